// Listing the entries that match a pattern in a file type's directory.
#include <cstring>
#include <new>

#include "kovra/kovra.h"
#include "platform/FileFind.h"
#include "platform/Text.h"

struct KovraFindState_S {
    CKovra* m_pFile;        // never opened: it resolves the pattern
    CFileFind* m_pFinder;
    int m_bActive;          // the last FindFile found something and the search is open
    int m_bMore;            // a further entry can be made current
    char m_szFileName[kPathBufferSize];
    char m_szPath[kPathBufferSize];
};

CKovraFind::CKovraFind() : m_pState(new (std::nothrow) KovraFindState_S{})
{
    if (!m_pState)
        return;
    m_pState->m_pFile = new (std::nothrow) CKovra();
    m_pState->m_pFinder = new (std::nothrow) CFileFind;
    if (!m_pState->m_pFile || !m_pState->m_pFinder) {  // every member then answers with its failure value
        delete m_pState->m_pFile;
        delete m_pState->m_pFinder;
        delete m_pState;
        m_pState = nullptr;
    }
}

CKovraFind::~CKovraFind()
{
    if (!m_pState)
        return;
    Close(0);
    delete m_pState->m_pFile;
    delete m_pState->m_pFinder;
    delete m_pState;
}

int CKovraFind::FindFile(const char* type, const char* pattern, int flags)
{
    if (!m_pState)
        return 0;
    Close(0);
    if (!m_pState->m_pFile->Open(type, pattern ? pattern : "*.*", 0, nullptr, flags))
        return 0;  // an unknown type has no directory to search
    int found = m_pState->m_pFinder->FindFile(m_pState->m_pFile->GetRealFileName(0)) ? 1 : 0;
    m_pState->m_bActive = found;
    m_pState->m_bMore = found;
    return found;
}

int CKovraFind::FindNextFileA(int)
{
    if (!m_pState)
        return 0;
    int current = m_pState->m_bMore;
    if (current) {
        m_pState->m_bMore = m_pState->m_pFinder->FindNextFileA() ? 1 : 0;
    } else {
        m_pState->m_pFinder->Close();
        m_pState->m_bActive = 0;
    }
    return current;
}

int CKovraFind::Close(int)
{
    if (!m_pState)
        return 1;
    m_pState->m_pFile->Close(0);
    if (m_pState->m_bActive) {
        m_pState->m_bActive = 0;
        m_pState->m_bMore = 0;
        m_pState->m_pFinder->Close();
    }
    return 1;
}

unsigned long CKovraFind::GetLength(int)
{
    return m_pState ? static_cast<unsigned long>(m_pState->m_pFinder->GetLength()) : 0;
}

char* CKovraFind::GetFileName(int)
{
    if (!m_pState)
        return EmptyText();
    CopyText(m_pState->m_szFileName, m_pState->m_pFinder->GetFileName());
    return m_pState->m_szFileName;
}

char* CKovraFind::GetFilePath(int)
{
    if (!m_pState)
        return EmptyText();
    CopyText(m_pState->m_szPath, m_pState->m_pFinder->GetFilePath());
    return m_pState->m_szPath;
}

char* CKovraFind::GetFilePathRelative(int)
{
    if (!m_pState)
        return EmptyText();
    // The type's directory with its backslash is the real file name of "x" less one character.
    CKovra directory(m_pState->m_pFile->GetFileType(0), "x", 0, nullptr, 0);
    size_t skip = std::strlen(directory.GetRealFileName(0));
    skip = skip > 0 ? skip - 1 : 0;
    char* path = GetFilePath(0);
    return skip <= std::strlen(path) ? path + skip : path + std::strlen(path);
}

int CKovraFind::IsDots(int)
{
    return (m_pState && m_pState->m_pFinder->IsDots()) ? 1 : 0;
}

int CKovraFind::IsDirectory(int)
{
    return (m_pState && m_pState->m_pFinder->MatchesMask(FILE_ATTRIBUTE_DIRECTORY)) ? 1 : 0;
}

int CKovraFind::IsHidden(int)
{
    return (m_pState && m_pState->m_pFinder->MatchesMask(FILE_ATTRIBUTE_HIDDEN)) ? 1 : 0;
}
