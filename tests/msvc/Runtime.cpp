// A run-time for the Microsoft-mode test programs, on kernel32 and msvcrt.
#include "Runtime.h"

extern "C" {

// The C run-time's functions used here, declared as Microsoft's headers do.
__declspec(dllimport) void __cdecl exit(int code);
__declspec(dllimport) void* __cdecl malloc(size_t size);
__declspec(dllimport) void __cdecl free(void* block);

// The compiler refers to _fltused when a program uses floating point.
int _fltused = 0;
static int g_failures = 0;

void mainCRTStartup(void)
{
    Main();
    exit(g_failures);  // msvcrt's exit also writes out what printf holds
}

} // extern "C"

void __cdecl Fail(const char* file, int line, const char* condition)
{
    ++g_failures;
    printf("%s(%d): %s\n", file, line, condition);
}

int __cdecl Same(const char* text, const char* expected) { return strcmp(text, expected) == 0; }

int __cdecl EndsWith(const char* text, const char* end)
{
    return strlen(text) >= strlen(end) && Same(text + strlen(text) - strlen(end), end);
}

// On the C run-time DLL's heap, from which kovra.dll's deleting destructors free an object.
void* operator new(size_t size) { return malloc(size); }
void* operator new[](size_t size) { return malloc(size); }
void operator delete(void* block) noexcept { free(block); }
void operator delete(void* block, size_t) noexcept { free(block); }
