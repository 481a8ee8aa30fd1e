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

// Whether ReadString may keep what it reads beyond a line: only on a file that no one else
// may write, whose bytes can't change behind the read-ahead. Its buffer is made on first use;
// without room for it the lines are read block by block.
bool KeepsReadAhead(KovraFileState_S& state)
{
    if (!(state.m_ulOptions & (kOptionDenyWrite | kOptionExclusive)))
        return false;
    if (!state.m_readAhead.m_pBytes)
        state.m_readAhead.m_pBytes = new (std::nothrow) char[kLineReadAheadSize];
    return state.m_readAhead.m_pBytes != nullptr;
}

// Takes bytes from block into buffer until an LF, a full buffer of size characters or the end
// of the file; refill() fills the block when it runs out and returns how many bytes it holds.
// stored receives the number of characters stored. With the text option a CR is dropped (the
// next byte takes its place) and the LF isn't stored. 1 when an LF or the full buffer ended
// the line, 0 when the end of the file or a failed read did.
template <typename Refill>
int TakeLine(LineReadAhead_S& block, Refill refill, char* buffer, unsigned int size, bool text, unsigned int& stored)
{
    for (;;) {
        if (block.m_next == block.m_fill) {
            block.m_fill = refill();
            block.m_next = 0;
            if (block.m_fill == 0)
                return 0;
        }
        const char byte = block.m_pBytes[block.m_next++];
        buffer[stored] = byte;
        if (byte == '\r' && text)
            continue;
        if (byte == '\n') {
            if (!text)
                ++stored;
            return 1;
        }
        if (++stored == size)
            return 1;
    }
}

} // namespace

CFile& CKovra::File()
{
    LineReadAhead_S& ahead = m_pState->m_readAhead;
    if (ahead.m_next < ahead.m_fill)
        m_pState->m_pFile->Seek(-static_cast<LONGLONG>(ahead.m_fill - ahead.m_next), CFile::current);
    ahead.m_fill = ahead.m_next = 0;
    return *m_pState->m_pFile;
}

int CKovra::ReadString(char* buffer, unsigned int size, unsigned int* length, int)
{
    if (!m_pState || !m_pState->m_pFile || !buffer)
        return 0;
    unsigned int stored = 0;
    int result = 0;
    if (size > 0) {  // without room for a character nothing is read
        const bool text = (m_pState->m_ulOptions & kOptionText) != 0;
        // The read-ahead keeps the bytes behind the line for the next call; a block of its own
        // goes back behind the line, so that the file position lies just behind it.
        char bytes[kReadBlock];
        LineReadAhead_S local = {bytes, 0, 0};
        const bool ahead = KeepsReadAhead(*m_pState);
        LineReadAhead_S& block = ahead ? m_pState->m_readAhead : local;
        const unsigned int capacity = ahead ? kLineReadAheadSize : kReadBlock;
        result = TakeLine(block, [&] { return Read(block.m_pBytes, capacity, 1); }, buffer, size, text, stored);
        if (local.m_next < local.m_fill)
            Seek(-static_cast<long>(local.m_fill - local.m_next), 1, 0);
    }
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
    char* line = translated.Get();
    size_t used = 0;
    bool hasLineFeed = false;
    for (size_t index = 0; index < length; ++index) {
        if (text[index] == '\n') {
            line[used++] = '\r';
            hasLineFeed = true;
        }
        line[used++] = text[index];
    }
    const unsigned int count = static_cast<unsigned int>(used);
    if (hasLineFeed || (flags & 1))
        return Write(line, count, 1);

    // The line and its line end go to the platform in one write. Should the platform refuse
    // it, they are written as three pieces, whose results add up with a failed one counting 0.
    line[used] = '\r';
    line[used + 1] = '\n';
    try {
        WriteToPlatform(line, count + 2, 1);
        return count + 2;
    } catch (const CFileException&) {
        return Write(line, count, 1) + Write("\r", 1, 1) + Write("\n", 1, 1);
    }
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
