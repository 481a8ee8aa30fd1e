// The little that the Microsoft-mode test programs need from a run-time, which this machine
// doesn't have for Microsoft's ABI: the entry point, output, and a second thread.
#pragma once

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

// The program's own part: mainCRTStartup runs it and exits with its result.
int Main(void);

// Writes the text to the standard output with %s, %d, %u and %lu replaced by the arguments.
void Print(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Each byte as a blank and two lower-case hex digits.
void PrintBytes(const void* bytes, unsigned int count);

// Appends text to the NUL-terminated text in destination, within size bytes.
void AppendText(char* destination, unsigned int size, const char* text);

// Runs work(context) on a thread of its own and waits for it.
void RunOnSecondThread(void (*work)(void* context), void* context);
unsigned long CurrentThreadId(void);

#ifdef __cplusplus
}
#endif
