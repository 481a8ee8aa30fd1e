// The little that the Microsoft-mode test programs need from a run-time, which this machine
// doesn't have for Microsoft's ABI: the entry point, checks that count their failures, and new
// and delete on the heap of the C run-time DLL msvcrt.dll, whose functions they use.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

// Everything stated __cdecl: Walk.c is built with the 32-bit default __stdcall (/Gz), as an
// application may be, to show that the library's headers state their convention.
// The program's own part: mainCRTStartup runs it and exits with the number of failed checks.
void __cdecl Main(void);

// A failed check is counted and printed with its place.
void __cdecl Fail(const char* file, int line, const char* condition);
#define CHECK(condition) ((condition) ? (void)0 : Fail(__FILE__, __LINE__, #condition))

__declspec(dllimport) int __cdecl printf(const char* format, ...);
__declspec(dllimport) int __cdecl strcmp(const char* first, const char* second);
__declspec(dllimport) size_t __cdecl strlen(const char* text);
__declspec(dllimport) unsigned long __stdcall GetCurrentThreadId(void);

static inline int Same(const char* text, const char* expected) { return strcmp(text, expected) == 0; }
static inline int EndsWith(const char* text, const char* end)
{
    return strlen(text) >= strlen(end) && Same(text + strlen(text) - strlen(end), end);
}

#ifdef __cplusplus
}
#endif
