// Line reading and text writing.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "access/TextIO.h"
#include "file/KovraFileState.h"
#include "kovra/kovra.h"

namespace {

constexpr unsigned int kReadBlock = 512;
constexpr size_t kShortText = 1024;  // the bytes of a work buffer that lives on the stack

// A work buffer of a given size: on the stack when it is small, as the lines that
// applications write mostly are, else on the heap. Empty when the heap has no room.
class WorkBuffer {
public:
    explicit WorkBuffer(size_t size) : m_heap(size > sizeof m_local ? new (std::nothrow) char[size] : nullptr)
    {
        m_text = size > sizeof m_local ? m_heap.get() : m_local;
    }
    WorkBuffer(const WorkBuffer&) = delete;
    WorkBuffer& operator=(const WorkBuffer&) = delete;

    char* Get() const { return m_text; }

private:
    char m_local[kShortText];
    std::unique_ptr<char[]> m_heap;
    char* m_text;
};

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

    const size_t length = std::strlen(text);
    WorkBuffer translated(2 * length + 2);
    if (!translated.Get())
        return 0;
    size_t used = 0;
    bool hasLineFeed = false;
    for (size_t index = 0; index < length; ++index) {
        if (text[index] == '\n') {
            translated.Get()[used++] = '\r';
            hasLineFeed = true;
        }
        translated.Get()[used++] = text[index];
    }
    unsigned int written = Write(translated.Get(), static_cast<unsigned int>(used), 1);
    if (!hasLineFeed && !(flags & 1))
        written += Write("\r", 1, 1) + Write("\n", 1, 1);
    return written;
}

unsigned int CKovra::WriteString(char* text, int flags)
{
    return WriteString(static_cast<const char*>(text), flags);
}

int FormatAsMicrosoft(char* buffer, size_t size, const char* format, va_list arguments)
{
    va_list measuring;
    va_copy(measuring, arguments);
    int length = _vsnprintf(buffer, size, format, arguments);
    if (length < 0 || static_cast<size_t>(length) >= size)  // cut short: the run-time doesn't say by how much
        length = _vscprintf(format, measuring);
    va_end(measuring);
    return length;
}

unsigned int WriteFormatted(CKovra& file, Formatter formatter, const char* format, va_list arguments)
{
    if (!format)
        return 0;
    // Formatted once into a short buffer; a text too long for it is formatted again into
    // a buffer of its length.
    WorkBuffer shortText(kShortText);
    va_list measuring;
    va_copy(measuring, arguments);
    const int length = formatter(shortText.Get(), kShortText, format, measuring);
    va_end(measuring);
    if (length < 0)
        return 0;
    if (static_cast<size_t>(length) < kShortText)
        return file.WriteString(static_cast<const char*>(shortText.Get()), 1);
    WorkBuffer text(static_cast<size_t>(length) + 1);
    if (!text.Get())
        return 0;
    formatter(text.Get(), static_cast<size_t>(length) + 1, format, arguments);
    return file.WriteString(static_cast<const char*>(text.Get()), 1);
}

unsigned int CKovra::Printf(int, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const unsigned int written = WriteFormatted(*this, &std::vsnprintf, format, arguments);
    va_end(arguments);
    return written;
}
