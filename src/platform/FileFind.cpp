#include "platform/FileFind.h"

#include <cstring>

#include "platform/Text.h"

CFileFind::CFileFind() noexcept
    : m_hFind(INVALID_HANDLE_VALUE), m_hasCurrent(false), m_hasNext(false), m_current{}, m_next{}, m_szRoot{},
      m_szPath{}
{
}

CFileFind::~CFileFind()
{
    Close();
}

bool CFileFind::FindFile(const char* pattern, DWORD) noexcept
{
    Close();
    const char* search = (pattern && *pattern) ? pattern : "*.*";
    m_hFind = ::FindFirstFileA(search, &m_next);
    if (m_hFind == INVALID_HANDLE_VALUE)
        return false;
    m_hasNext = true;

    // Entry paths are built on the search directory in its full form.
    char full[MAX_PATH * 2];
    DWORD length = ::GetFullPathNameA(search, sizeof full, full, nullptr);
    if (length == 0 || length >= sizeof full)
        CopyText(full, sizeof full, search);
    char* lastSeparator = std::strrchr(full, '\\');
    if (lastSeparator)
        *lastSeparator = '\0';
    else
        full[0] = '\0';
    CopyText(m_szRoot, full);
    return true;
}

bool CFileFind::FindNextFileA() noexcept
{
    if (m_hFind == INVALID_HANDLE_VALUE || !m_hasNext)
        return false;
    m_current = m_next;
    m_hasCurrent = true;
    m_hasNext = ::FindNextFileA(m_hFind, &m_next) != FALSE;
    return m_hasNext;
}

void CFileFind::Close() noexcept
{
    if (m_hFind != INVALID_HANDLE_VALUE)
        ::FindClose(m_hFind);
    m_hFind = INVALID_HANDLE_VALUE;
    m_hasCurrent = false;
    m_hasNext = false;
}

const char* CFileFind::GetFileName() const noexcept
{
    return m_hasCurrent ? m_current.cFileName : "";
}

const char* CFileFind::GetFilePath() noexcept
{
    m_szPath[0] = '\0';
    if (!m_hasCurrent)
        return m_szPath;
    bool fit = CopyText(m_szPath, m_szRoot) && AppendText(m_szPath, "\\") && AppendText(m_szPath, m_current.cFileName);
    if (!fit)
        m_szPath[0] = '\0';
    return m_szPath;
}

ULONGLONG CFileFind::GetLength() const noexcept
{
    if (!m_hasCurrent)
        return 0;
    return (static_cast<ULONGLONG>(m_current.nFileSizeHigh) << 32) | m_current.nFileSizeLow;
}

bool CFileFind::IsDots() const noexcept
{
    if (!m_hasCurrent || !(m_current.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
        return false;
    return std::strcmp(m_current.cFileName, ".") == 0 || std::strcmp(m_current.cFileName, "..") == 0;
}

bool CFileFind::MatchesMask(DWORD mask) const noexcept
{
    return m_hasCurrent && (m_current.dwFileAttributes & mask) != 0;
}
