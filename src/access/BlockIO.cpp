// Block reading and writing, and flushing, with the text option's line-end translation.
#include <cstring>

#include "file/KovraFileState.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

constexpr size_t kTranslationChunk = 4096;

// Removes every CR from the first count bytes, zeroing the freed tail; the new count.
unsigned int RemoveCarriageReturns(char* bytes, unsigned int count)
{
    unsigned int kept = 0;
    for (unsigned int index = 0; index < count; ++index)
        if (bytes[index] != '\r')
            bytes[kept++] = bytes[index];
    std::memset(bytes + kept, 0, count - kept);
    return kept;
}

// Writes length bytes of text with a CR before every LF. The translated bytes go out in
// chunks; a failure leaves the chunks before it written.
void WriteTranslated(CFile& file, const char* text, size_t length)
{
    char chunk[kTranslationChunk];
    size_t used = 0;
    for (size_t index = 0; index < length; ++index) {
        if (used + 2 > sizeof chunk) {
            file.Write(chunk, static_cast<UINT>(used));
            used = 0;
        }
        if (text[index] == '\n')
            chunk[used++] = '\r';
        chunk[used++] = text[index];
    }
    file.Write(chunk, static_cast<UINT>(used));
}

} // namespace

unsigned int CKovra::Read(void* buffer, unsigned int count, int flags)
{
    if (!m_pState || !m_pState->m_pFile || (!buffer && count))
        return 0;
    unsigned int read = 0;
    if (!Attempt("Read", [&] { read = File().Read(buffer, count); }))
        return 0;
    if (read > 0 && (m_pState->m_ulOptions & kOptionText) && !(flags & 1))
        read = RemoveCarriageReturns(static_cast<char*>(buffer), read);
    return read;
}

unsigned int CKovra::Write(const void* buffer, unsigned int count, int flags)
{
    if (!IsWritable(0) || (!buffer && count))
        return 0;
    return Attempt("Write", [&] { WriteToPlatform(buffer, count, flags); }) ? count : 0;
}

void CKovra::WriteToPlatform(const void* buffer, unsigned int count, int flags)
{
    CFile& file = File();
    if (m_pState->m_ulOptions & kOptionAppend)
        file.Seek(0, CFile::end);
    if ((m_pState->m_ulOptions & kOptionText) && !(flags & 1)) {
        // A text-mode buffer is text up to its first NUL, whatever count says; the caller
        // gets count back all the same.
        const char* text = static_cast<const char*>(buffer);
        WriteTranslated(file, text, ReadableTextLength(text));
    } else {
        file.Write(buffer, count);
    }
}

int CKovra::Flush(int)
{
    if (!m_pState || !m_pState->m_pFile)
        return 0;
    return Attempt("Flush", [&] { File().Flush(); }) ? 1 : 0;
}
