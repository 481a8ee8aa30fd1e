#include "platform/Text.h"

#include <cstdio>
#include <cstring>

bool CopyText(char* destination, size_t size, const char* source) noexcept
{
    if (!destination || size == 0)
        return false;
    destination[0] = '\0';
    return AppendText(destination, size, source);
}

bool AppendText(char* destination, size_t size, const char* source) noexcept
{
    if (!destination || size == 0)
        return false;
    size_t used = strnlen(destination, size - 1);
    const char* text = source ? source : "";
    size_t length = std::strlen(text);
    size_t room = size - 1 - used;
    size_t taken = length < room ? length : room;
    std::memcpy(destination + used, text, taken);
    destination[used + taken] = '\0';
    return taken == length;
}

bool FormatTextV(char* destination, size_t size, const char* format, va_list arguments) noexcept
{
    if (!destination || size == 0)
        return false;
    int length = std::vsnprintf(destination, size, format, arguments);
    if (length < 0) {
        destination[0] = '\0';
        return false;
    }
    return static_cast<size_t>(length) < size;
}

bool FormatText(char* destination, size_t size, const char* format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    bool fit = FormatTextV(destination, size, format, arguments);
    va_end(arguments);
    return fit;
}

bool EndsWithBackslash(const char* text) noexcept
{
    size_t length = text ? std::strlen(text) : 0;
    return length > 0 && text[length - 1] == '\\';
}

char* EmptyText() noexcept
{
    static char empty[1] = "";
    empty[0] = '\0';  // undo whatever a caller may have written into it
    return empty;
}
