// Block reading and writing, and flushing, with the text option's line-end translation.
#include <cstring>

#include "file/KovraFileState.h"
#include "kovra/kovra.h"

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

// Writes text up to its first NUL (and at most count bytes) with a CR before every LF.
// The translated bytes go out in chunks; a failure leaves the chunks before it written.
void WriteTranslated(CFile& file, const char* text, unsigned int count)
{
    char chunk[kTranslationChunk];
    size_t used = 0;
    for (unsigned int index = 0; index < count && text[index]; ++index) {
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
    if (!Attempt("Read", [&] { read = m_pState->m_pFile->Read(buffer, count); }))
        return 0;
    if (read > 0 && (m_pState->m_ulOptions & kOptionText) && !(flags & 1))
        read = RemoveCarriageReturns(static_cast<char*>(buffer), read);
    return read;
}

unsigned int CKovra::Write(const void* buffer, unsigned int count, int flags)
{
    if (!IsWritable(0) || (!buffer && count))
        return 0;
    CFile& file = *m_pState->m_pFile;
    const bool written = Attempt("Write", [&] {
        if (m_pState->m_ulOptions & kOptionAppend)
            file.Seek(0, CFile::end);
        if ((m_pState->m_ulOptions & kOptionText) && !(flags & 1))
            WriteTranslated(file, static_cast<const char*>(buffer), count);
        else
            file.Write(buffer, count);
    });
    return written ? count : 0;
}

int CKovra::Flush(int)
{
    if (!m_pState || !m_pState->m_pFile)
        return 0;
    return Attempt("Flush", [&] { m_pState->m_pFile->Flush(); }) ? 1 : 0;
}
