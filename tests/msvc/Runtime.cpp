// A run-time for the Microsoft-mode test programs, on kernel32, user32 and msvcrt.
#include <stdarg.h>
#include <stddef.h>

#include "Runtime.h"

extern "C" {

// The system functions used here, declared as Microsoft's headers do.
__declspec(dllimport) void* __stdcall GetStdHandle(unsigned long which);
__declspec(dllimport) int __stdcall WriteFile(void* file, const void* bytes, unsigned long count,
                                              unsigned long* written, void* overlapped);
__declspec(dllimport) void __stdcall ExitProcess(unsigned int code);
__declspec(dllimport) void* __cdecl malloc(size_t size);
__declspec(dllimport) void __cdecl free(void* block);
__declspec(dllimport) int __stdcall wvsprintfA(char* output, const char* format, va_list arguments);
typedef unsigned long(__stdcall* ThreadStart)(void* parameter);
__declspec(dllimport) void* __stdcall CreateThread(void* security, size_t stackSize, ThreadStart start,
                                                   void* parameter, unsigned long flags, unsigned long* threadId);
__declspec(dllimport) unsigned long __stdcall WaitForSingleObject(void* handle, unsigned long milliseconds);
__declspec(dllimport) int __stdcall CloseHandle(void* handle);

// The compiler refers to _fltused when a program uses floating point.
int _fltused = 0;

void mainCRTStartup(void)
{
    ExitProcess(static_cast<unsigned int>(Main()));
}

} // extern "C"

void __cdecl Print(const char* format, ...)
{
    char text[1025];  // the most that wvsprintfA writes
    va_list arguments;
    va_start(arguments, format);
    const int length = wvsprintfA(text, format, arguments);
    va_end(arguments);
    unsigned long written = 0;
    const unsigned long kStandardOutput = static_cast<unsigned long>(-11);
    WriteFile(GetStdHandle(kStandardOutput), text, static_cast<unsigned long>(length), &written, nullptr);
}

void __cdecl PrintBytes(const void* bytes, unsigned int count)
{
    for (unsigned int index = 0; index < count; ++index)
        Print(" %02x", static_cast<const unsigned char*>(bytes)[index]);
}

namespace {

struct Work {
    void (*run)(void* context);
    void* context;
};

unsigned long __stdcall RunWork(void* parameter)
{
    const Work* work = static_cast<const Work*>(parameter);
    work->run(work->context);
    return 0;
}

} // namespace

void __cdecl RunOnSecondThread(void(__cdecl* work)(void* context), void* context)
{
    Work parameter = {work, context};
    void* thread = CreateThread(nullptr, 0, &RunWork, &parameter, 0, nullptr);
    const unsigned long kInfinite = 0xFFFFFFFF;
    WaitForSingleObject(thread, kInfinite);
    CloseHandle(thread);
}

// On the C run-time DLL's heap, from which kovra.dll's deleting destructors free an object.
void* operator new(size_t size)
{
    return malloc(size);
}

void* operator new[](size_t size)
{
    return malloc(size);
}

void operator delete(void* block) noexcept
{
    free(block);
}

void operator delete[](void* block) noexcept
{
    free(block);
}

void operator delete(void* block, size_t) noexcept
{
    free(block);
}
