// Copying the object's file to another (type, name) and appending it to one.
#include <cstring>

#include "file/KovraFileState.h"
#include "fsops/DirCreate.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

constexpr unsigned int kCopyBlock = 8192;

// Copies everything that source still has to read to destination. Failed writes don't
// stop the copy; a failed read ends it like the end of the file.
void CopyRest(CKovra& source, CKovra& destination)
{
    char block[kCopyBlock];
    for (unsigned int read = source.Read(block, kCopyBlock, 0); read != 0; read = source.Read(block, kCopyBlock, 0))
        destination.Write(block, read, 0);
}

} // namespace

int CKovra::CopyFileA(const char* type, const char* name, int failIfExists, int flags)
{
    if (!m_pState)
        return 0;
    if (!name)
        return Refuse(*m_pState, kErrorInvalidArgument);
    char destinationName[kPathBufferSize];
    char destination[kPathBufferSize];
    if (!ResolveTarget(type, name, destinationName, destination, flags))
        return 0;  // no destination: nothing is flushed, created or copied
    Flush(0);
    MkDirTreeOfParent(destination);
    return ::CopyFileA(m_pState->m_szRealFileName, destination, failIfExists) ? 1 : 0;
}

int CKovra::AppendFile(const char* type, const char* name, int)
{
    if (!m_pState)
        return 0;
    if (!name)  // without a name the target would be a new temporary file
        return Refuse(*m_pState, kErrorInvalidArgument);
    Flush(0);
    // The destination's failures stay with the destination object.
    CKovra destination(type, name, KOVRA_APPEND, nullptr, 0);
    if (!destination.IsOpen(0))
        return 0;
    const bool ownFileOpen = IsOpen(0) != 0;
    CKovra reader;  // reads the file when this object doesn't hold it open
    if (!ownFileOpen)
        reader.Open(m_pState->m_pszType, GetFileName(), KOVRA_READ, nullptr, 0);
    CKovra& source = ownFileOpen ? *this : reader;

    const bool sameFile = source.IsOpen(0) && source.m_pState->m_pFile->IsSameFile(*destination.m_pState->m_pFile);
    int result = 0;
    if (sameFile) {
        Refuse(*m_pState, kErrorSameFile);  // the copy would read what it appends, without end
    } else if (source.IsOpen(0)) {
        if (ownFileOpen)
            Seek(0, CFile::begin, 0);
        CopyRest(source, destination);  // leaves an open object at its end
        result = 1;
    }
    reader.Close(0);
    destination.Close(0);
    return result;
}
