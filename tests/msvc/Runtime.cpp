// A run-time for the Microsoft-mode test programs, on kernel32 alone.
#include <stddef.h>

#include "Runtime.h"

extern "C" {

// The kernel32 functions used here, declared as Microsoft's headers do.
__declspec(dllimport) void* __stdcall GetStdHandle(unsigned long which);
__declspec(dllimport) int __stdcall WriteFile(void* file, const void* bytes, unsigned long count,
                                              unsigned long* written, void* overlapped);
__declspec(dllimport) void __stdcall ExitProcess(unsigned int code);
__declspec(dllimport) void* __stdcall GetProcessHeap(void);
__declspec(dllimport) void* __stdcall HeapAlloc(void* heap, unsigned long flags, size_t size);
__declspec(dllimport) int __stdcall HeapFree(void* heap, unsigned long flags, void* block);
typedef unsigned long(__stdcall* ThreadStart)(void* parameter);
__declspec(dllimport) void* __stdcall CreateThread(void* security, size_t stackSize, ThreadStart start,
                                                   void* parameter, unsigned long flags, unsigned long* threadId);
__declspec(dllimport) unsigned long __stdcall WaitForSingleObject(void* handle, unsigned long milliseconds);
__declspec(dllimport) int __stdcall CloseHandle(void* handle);
__declspec(dllimport) unsigned long __stdcall GetCurrentThreadId(void);

// The compiler refers to these: _fltused when a program uses floating point, memset and
// memcpy for initialisations and copies of its own.
int _fltused = 0;

void* memset(void* destination, int value, size_t count)
{
    unsigned char* bytes = static_cast<unsigned char*>(destination);
    for (size_t index = 0; index < count; ++index)
        bytes[index] = static_cast<unsigned char>(value);
    return destination;
}

void* memcpy(void* destination, const void* source, size_t count)
{
    unsigned char* to = static_cast<unsigned char*>(destination);
    const unsigned char* from = static_cast<const unsigned char*>(source);
    for (size_t index = 0; index < count; ++index)
        to[index] = from[index];
    return destination;
}

void mainCRTStartup(void)
{
    ExitProcess(static_cast<unsigned int>(Main()));
}

} // extern "C"

namespace {

void Write(const char* text, size_t length)
{
    const unsigned long kStandardOutput = static_cast<unsigned long>(-11);
    unsigned long written = 0;
    WriteFile(GetStdHandle(kStandardOutput), text, static_cast<unsigned long>(length), &written, nullptr);
}

void WriteNumber(unsigned long value, bool negative)
{
    char digits[16];
    char* first = digits + sizeof digits;
    do {
        *--first = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    if (negative)
        *--first = '-';
    Write(first, static_cast<size_t>(digits + sizeof digits - first));
}

struct Work {
    void (*function)(void* context);
    void* context;
};

unsigned long __stdcall RunWork(void* parameter)
{
    const Work* work = static_cast<const Work*>(parameter);
    work->function(work->context);
    return 0;
}

} // namespace

void Print(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    while (*format) {
        size_t plain = 0;
        while (format[plain] && format[plain] != '%')
            ++plain;
        Write(format, plain);
        format += plain;
        if (!*format)
            break;
        const bool isLong = format[1] == 'l';
        const char conversion = format[isLong ? 2 : 1];
        format += isLong ? 3 : 2;
        if (conversion == 's') {
            const char* text = va_arg(arguments, const char*);
            size_t length = 0;
            while (text[length])
                ++length;
            Write(text, length);
        } else if (conversion == 'd') {
            const int value = va_arg(arguments, int);
            const unsigned long magnitude = static_cast<unsigned long>(value);
            WriteNumber(value < 0 ? 0UL - magnitude : magnitude, value < 0);
        } else {
            WriteNumber(va_arg(arguments, unsigned long), false);  // %u and %lu: both 32 bits wide
        }
    }
    va_end(arguments);
}

void PrintBytes(const void* bytes, unsigned int count)
{
    const char kHex[] = "0123456789abcdef";
    const unsigned char* byte = static_cast<const unsigned char*>(bytes);
    for (unsigned int index = 0; index < count; ++index) {
        const char text[] = {' ', kHex[byte[index] >> 4], kHex[byte[index] & 15]};
        Write(text, sizeof text);
    }
}

void AppendText(char* destination, unsigned int size, const char* text)
{
    unsigned int length = 0;
    while (length < size && destination[length])
        ++length;
    while (length + 1 < size && *text)
        destination[length++] = *text++;
    if (length < size)
        destination[length] = '\0';
}

void RunOnSecondThread(void (*work)(void* context), void* context)
{
    Work parameter = {work, context};
    void* thread = CreateThread(nullptr, 0, &RunWork, &parameter, 0, nullptr);
    const unsigned long kInfinite = 0xFFFFFFFF;
    WaitForSingleObject(thread, kInfinite);
    CloseHandle(thread);
}

unsigned long CurrentThreadId(void)
{
    return GetCurrentThreadId();
}

// The classes of kovra.h have virtual destructors, whose deleting forms refer to operator delete.
void* operator new(size_t size)
{
    return HeapAlloc(GetProcessHeap(), 0, size);
}

void operator delete(void* block) noexcept
{
    if (block)
        HeapFree(GetProcessHeap(), 0, block);
}

void operator delete(void* block, size_t) noexcept
{
    operator delete(block);
}
