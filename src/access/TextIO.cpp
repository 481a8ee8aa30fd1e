// Line reading and text writing.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include "access/TextIO.h"
#include "file/KovraFileState.h"
#include "frame/CallFrame.h"
#include "kovra/kovra.h"

namespace {

constexpr unsigned int kReadBlock = 512;

} // namespace

int CKovra::ReadString(char* buffer, unsigned int size, unsigned int* length, int)
{
    if (!m_pState || !m_pState->m_pFile || !buffer)
        return 0;
    if (size == 0) {  // no room for a character: nothing is read
        buffer[0] = '\0';
        if (length)
            *length = 0;
        return 0;
    }
    const bool text = (m_pState->m_ulOptions & kOptionText) != 0;
    char block[kReadBlock];
    unsigned int fill = 0;
    unsigned int position = 0;
    unsigned int stored = 0;
    int result = 1;
    do {
        if (fill == 0) {
            fill = Read(block, kReadBlock, 1);
            position = 0;
        }
        if (fill == 0) {  // end of the file, or a failed read that Read has recorded
            result = 0;
            break;
        }
        const char byte = block[position++];
        buffer[stored] = byte;
        if (position == fill)
            fill = 0;
        if (byte == '\r' && text)
            continue;  // dropped: the next byte takes its place
        if (byte == '\n') {
            if (!text)
                ++stored;
            break;
        }
        ++stored;
    } while (stored < size);

    // No read-ahead is kept: the file position goes back behind the consumed bytes.
    if (position < fill)
        Seek(-static_cast<long>(fill - position), 1, 0);
    buffer[stored] = '\0';
    if (length)
        *length = stored;
    return result;
}

unsigned int CKovra::WriteString(const char* text, int flags)
{
    if (!IsWritable(0) || !text)
        return 0;
    if (!(m_pState->m_ulOptions & kOptionText))
        return Write(text, static_cast<unsigned int>(std::strlen(text)), 0);

    return RunInCallFrame(0u, [&] {
        const size_t length = std::strlen(text);
        std::unique_ptr<char[]> translated(new char[2 * length + 2]);
        size_t used = 0;
        for (size_t index = 0; index < length; ++index) {
            if (text[index] == '\n')
                translated[used++] = '\r';
            translated[used++] = text[index];
        }
        unsigned int written = Write(translated.get(), static_cast<unsigned int>(used), 1);
        if (!std::strchr(text, '\n') && !(flags & 1))
            written += Write("\r", 1, 1) + Write("\n", 1, 1);
        return written;
    });
}

unsigned int CKovra::WriteString(char* text, int flags)
{
    return WriteString(static_cast<const char*>(text), flags);
}

unsigned int WriteFormatted(CKovra& file, const char* format, va_list arguments)
{
    if (!format)
        return 0;
    va_list measuring;
    va_copy(measuring, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measuring);
    va_end(measuring);
    if (length < 0)
        return 0;
    std::unique_ptr<char[]> text(new (std::nothrow) char[static_cast<size_t>(length) + 1]);
    if (!text)
        return 0;
    std::vsnprintf(text.get(), static_cast<size_t>(length) + 1, format, arguments);
    return file.WriteString(static_cast<const char*>(text.get()), 1);
}

unsigned int CKovra::Printf(int, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const unsigned int written = WriteFormatted(*this, format, arguments);
    va_end(arguments);
    return written;
}
