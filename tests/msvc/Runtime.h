// The little that the Microsoft-mode test programs need from a run-time, which this machine
// doesn't have for Microsoft's ABI: the entry point, formatted output, and new and delete on
// the heap of the C run-time DLL msvcrt.dll, as Microsoft's run-time of that DLL has them.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Stated __cdecl: Walk.c is built with the 32-bit default __stdcall (/Gz), as an application
// may be, to show that the library's headers state their convention.
// The program's own part: mainCRTStartup runs it and exits with its result.
int __cdecl Main(void);

// Writes to the standard output as wsprintf formats (%s, %d, %u, %lu, %02x: no floating point).
void __cdecl Print(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Each byte as a blank and two lower-case hex digits.
void __cdecl PrintBytes(const void* bytes, unsigned int count);

// Runs work(context) on a new thread and waits for its end.
void __cdecl RunOnSecondThread(void(__cdecl* work)(void* context), void* context);

__declspec(dllimport) unsigned long __stdcall GetCurrentThreadId(void);
__declspec(dllimport) int __stdcall lstrcmpA(const char* first, const char* second);
__declspec(dllimport) int __stdcall lstrlenA(const char* text);

#ifdef __cplusplus
}
#endif
