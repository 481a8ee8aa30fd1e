// Formatted writing, shared by CKovra::Printf, the C interface's Printf and the Printf of
// programs built by Microsoft's compiler; each formats as its callers' run-time does.
#pragma once

#include <cstdarg>
#include <cstddef>

class CKovra;

// Formats as vsnprintf does: returns the text's whole length, of which at most size - 1
// characters and a NUL are stored; negative for a format it can't serve.
using Formatter = int (*)(char* buffer, size_t size, const char* format, va_list arguments);

// Microsoft's run-time's formatting (msvcrt.dll): %I64d, and long double is a double.
int FormatAsMicrosoft(char* buffer, size_t size, const char* format, va_list arguments);

// Formats the arguments by the printf-style format, without a length limit, and writes the
// text with WriteString's flags 1: no line end is appended. 0 without a format.
unsigned int WriteFormatted(CKovra& file, Formatter formatter, const char* format, va_list arguments);
