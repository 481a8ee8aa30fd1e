// Bounded text operations on fixed buffers. Every copy into a fixed buffer of the
// library goes through these: they never write past the buffer, always terminate
// it, treat a null source as the empty text and tell whether the text fit whole.
// CopyText and AppendText take a source that lies in the destination itself (a
// caller may hand an object its own text back).
#pragma once

#include <cstdarg>
#include <cstddef>

#include "kovra/export.h"

bool CopyText(char* destination, size_t size, const char* source) noexcept;
bool AppendText(char* destination, size_t size, const char* source) noexcept;
bool FormatText(char* destination, size_t size, const char* format, ...) noexcept
    KOVRA_PRINTF_FORMAT(3, 4);
bool FormatTextV(char* destination, size_t size, const char* format, va_list arguments) noexcept;

template <size_t N>
bool CopyText(char (&destination)[N], const char* source) noexcept
{
    return CopyText(destination, N, source);
}

template <size_t N>
bool AppendText(char (&destination)[N], const char* source) noexcept
{
    return AppendText(destination, N, source);
}

// Appends a backslash unless the text already ends in one (the empty text gets one);
// false when it doesn't fit.
template <size_t N>
bool EnsureTrailingBackslash(char (&destination)[N]) noexcept
{
    size_t length = 0;
    while (destination[length])
        ++length;
    if (length > 0 && destination[length - 1] == '\\')
        return true;
    return AppendText(destination, N, "\\");
}

bool EndsWithBackslash(const char* text) noexcept;

// Copies source into destination whole, or leaves destination empty and answers false:
// for paths, where a cut path would name another place.
template <size_t N>
bool CopyWholeText(char (&destination)[N], const char* source) noexcept
{
    if (CopyText(destination, N, source))
        return true;
    destination[0] = '\0';
    return false;
}

// Copies the first `length` bytes of source into destination with their control
// characters (below 0x20, and 0x7F) written as \r, \n or \xHH, so that a text from
// outside can't break the line it is written into; other bytes are copied as they are.
// Copies as many bytes as fit with their escapes whole, terminates destination and
// returns how many bytes of source it took.
size_t EscapeControlCharacters(char* destination, size_t size, const char* source, size_t length) noexcept;

// The length of a text that a caller promises ends in a NUL, measured without reading
// past the memory this process may read: without a NUL the text ends there. 0 for null.
size_t ReadableTextLength(const char* text) noexcept;

// The empty text that members return where they have no buffer of their own to point into.
char* EmptyText() noexcept;
