// A run-time for the Microsoft-mode test programs, on kernel32 and msvcrt.
#include "Runtime.h"

// The C run-time's functions used here, declared as Microsoft's headers do.
extern "C" __declspec(dllimport) void __cdecl exit(int code);
extern "C" __declspec(dllimport) void* __cdecl malloc(size_t size);
extern "C" __declspec(dllimport) void __cdecl free(void* block);

// The compiler refers to _fltused when a program uses floating point.
extern "C" int _fltused = 0;
static int g_failures = 0;

extern "C" void mainCRTStartup(void)
{
    Main();
    exit(g_failures);  // msvcrt's exit also writes out what printf holds
}

void __cdecl Fail(const char* file, int line, const char* condition)
{
    ++g_failures;
    printf("%s(%d): %s\n", file, line, condition);
}

// On the C run-time DLL's heap, from which kovra.dll's deleting destructors free an object.
void* operator new(size_t size) { return malloc(size); }
void* operator new[](size_t size) { return malloc(size); }
void operator delete(void* block) noexcept { free(block); }
