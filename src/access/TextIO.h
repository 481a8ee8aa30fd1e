// Formatted writing, shared by CKovra::Printf and the C interface's va_list form of it.
#pragma once

#include <cstdarg>

class CKovra;

// Formats the arguments by the printf-style format, without a length limit, and writes the
// text with WriteString's flags 1: no line end is appended. 0 without a format.
unsigned int WriteFormatted(CKovra& file, const char* format, va_list arguments);
