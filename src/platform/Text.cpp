#include "platform/Text.h"

#include <windows.h>

#include <cstdio>
#include <cstring>

namespace {

// Puts source behind the first `used` characters of destination. The source is measured
// before anything is written and moved rather than copied: it may lie in the destination.
bool PutText(char* destination, size_t size, size_t used, const char* source) noexcept
{
    const char* text = source ? source : "";
    size_t length = std::strlen(text);
    size_t room = size - 1 - used;
    size_t taken = length < room ? length : room;
    std::memmove(destination + used, text, taken);
    destination[used + taken] = '\0';
    return taken == length;
}

bool IsReadable(const MEMORY_BASIC_INFORMATION& region) noexcept
{
    const DWORD readable = PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READ |
                           PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
    return region.State == MEM_COMMIT && (region.Protect & readable) && !(region.Protect & PAGE_GUARD);
}

// The escape of a control character, or the character itself; answers its length.
size_t EscapedCharacter(unsigned char c, char (&escape)[4]) noexcept
{
    static const char kHexDigits[] = "0123456789ABCDEF";
    if (c >= 0x20 && c != 0x7F) {
        escape[0] = static_cast<char>(c);
        return 1;
    }
    escape[0] = '\\';
    if (c == '\r' || c == '\n') {
        escape[1] = c == '\r' ? 'r' : 'n';
        return 2;
    }
    escape[1] = 'x';
    escape[2] = kHexDigits[c >> 4];
    escape[3] = kHexDigits[c & 0xF];
    return 4;
}

} // namespace

bool CopyText(char* destination, size_t size, const char* source) noexcept
{
    if (!destination || size == 0)
        return false;
    return PutText(destination, size, 0, source);
}

bool AppendText(char* destination, size_t size, const char* source) noexcept
{
    if (!destination || size == 0)
        return false;
    return PutText(destination, size, strnlen(destination, size - 1), source);
}

size_t ReadableTextLength(const char* text) noexcept
{
    size_t length = 0;
    MEMORY_BASIC_INFORMATION region;
    while (text && ::VirtualQuery(text + length, &region, sizeof region) && IsReadable(region)) {
        const char* regionEnd = static_cast<const char*>(region.BaseAddress) + region.RegionSize;
        const size_t readable = static_cast<size_t>(regionEnd - (text + length));
        const size_t found = strnlen(text + length, readable);
        length += found;
        if (found < readable)
            break;
    }
    return length;
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

size_t EscapeControlCharacters(char* destination, size_t size, const char* source, size_t length) noexcept
{
    if (!destination || size == 0)
        return 0;
    size_t used = 0, taken = 0;
    for (char escape[4]; taken < length; ++taken) {
        const size_t escapeLength = EscapedCharacter(static_cast<unsigned char>(source[taken]), escape);
        if (used + escapeLength >= size)
            break;
        std::memcpy(destination + used, escape, escapeLength);
        used += escapeLength;
    }
    destination[used] = '\0';
    return taken;
}

char* EmptyText() noexcept
{
    static char empty[1] = "";
    empty[0] = '\0';  // undo whatever a caller may have written into it
    return empty;
}
