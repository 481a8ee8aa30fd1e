// Directory listing: FindFile loads the first match; each FindNextFileA makes the
// next match current and tells whether more follow it.
#pragma once

#include <windows.h>

#include "platform/File.h"

class CFileFind {
public:
    CFileFind() noexcept;
    ~CFileFind();
    CFileFind(const CFileFind&) = delete;
    CFileFind& operator=(const CFileFind&) = delete;

    bool FindFile(const char* pattern, DWORD unused = 0) noexcept;  // true when anything matches
    bool FindNextFileA() noexcept;                                   // true while more entries follow
    void Close() noexcept;

    // About the current entry; empty texts and 0 when none is current.
    const char* GetFileName() const noexcept;
    // Full path of the current entry: the search directory in full form and the entry's name.
    // Empty when the path would not fit kMaxPathChars.
    const char* GetFilePath() noexcept;
    ULONGLONG GetLength() const noexcept;
    bool IsDots() const noexcept;
    bool MatchesMask(DWORD mask) const noexcept;

private:
    HANDLE m_hFind;
    bool m_hasCurrent;
    bool m_hasNext;
    WIN32_FIND_DATAA m_current;
    WIN32_FIND_DATAA m_next;
    char m_szRoot[kPathBufferSize];  // the search directory, without a trailing backslash
    char m_szPath[kPathBufferSize];
};
