// The platform file layer: a file class over the Win32 file API with one error
// type. Every failure of an operation that has no result of its own throws a
// CFileException (by value) that carries the cause, the OS error and the file name.
#pragma once

#include <windows.h>

#include "kovra/atltime.h"

constexpr size_t kMaxPathChars = 259;  // the longest name or path the library handles
constexpr size_t kPathBufferSize = kMaxPathChars + 1;

// The time stamps that a file's status takes: from 1970-01-01 00:00:01 UTC (the status
// writer reads a time of 0 as "leave it") to 30828-09-14 02:48:05 UTC, the last second
// that a FILETIME holds.
constexpr __time64_t kLatestFileTime = 910692730085;
inline bool IsFileTime(const ATL::CTime& time) noexcept
{
    return time.GetTime() >= 1 && time.GetTime() <= kLatestFileTime;
}

class CFileException {
public:
    // The cause numbers are part of the library's interface: callers store and compare them.
    enum Cause {
        none = 0,
        genericException = 1,
        fileNotFound = 2,
        badPath = 3,
        tooManyOpenFiles = 4,
        accessDenied = 5,
        invalidFile = 6,
        removeCurrentDir = 7,
        directoryFull = 8,
        badSeek = 9,
        hardIO = 10,
        sharingViolation = 11,
        lockViolation = 12,
        diskFull = 13,
        endOfFile = 14
    };

    explicit CFileException(int cause = none, LONG osError = -1, const char* fileName = nullptr) noexcept;

    // Writes the message text of the cause, naming the file, into buffer (at most size - 1
    // characters and a NUL). Returns false when there is no room at all.
    bool GetErrorMessage(char* buffer, unsigned size) const noexcept;

    void SetFileName(const char* fileName) noexcept;
    void Reset() noexcept;

    static int OsErrorToCause(LONG osError) noexcept;
    [[noreturn]] static void ThrowOsError(LONG osError, const char* fileName);
    [[noreturn]] static void ThrowLastError(const char* fileName);

    int m_cause;
    LONG m_lOsError;
    char m_strFileName[kPathBufferSize];
};

struct CFileStatus {
    ATL::CTime m_ctime;   // creation
    ATL::CTime m_mtime;   // last write
    ATL::CTime m_atime;   // last access
    ULONGLONG m_size = 0;
    BYTE m_attribute = 0; // FILE_ATTRIBUTE_* bits: 0x01 read-only, 0x10 directory
    char m_szFullName[kPathBufferSize] = {};
};

class CFile {
public:
    enum OpenFlags : UINT {
        modeRead = 0x0000,
        modeWrite = 0x0001,
        modeReadWrite = 0x0002,
        shareExclusive = 0x0010,
        shareDenyWrite = 0x0020,
        shareDenyRead = 0x0030,
        shareDenyNone = 0x0040,
        modeNoInherit = 0x0080,
        modeCreate = 0x1000,
        modeNoTruncate = 0x2000,
        osWriteThrough = 0x20000
    };
    enum SeekPosition : UINT { begin = 0, current = 1, end = 2 };

    static const HANDLE hFileNull;

    CFile() noexcept;
    ~CFile();  // closes an open handle without throwing
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    // Opens the file. On failure nothing is thrown: error (when given) receives the cause,
    // the OS error and the path, and m_hFile stays hFileNull.
    bool Open(const char* path, UINT flags, CFileException* error) noexcept;

    UINT Read(void* buffer, UINT count);  // bytes read, 0 at the end of the file
    void Write(const void* buffer, UINT count);
    ULONGLONG Seek(LONGLONG offset, UINT from);
    ULONGLONG GetPosition() const;
    ULONGLONG GetLength() const;
    void SetLength(ULONGLONG length);
    void LockRange(ULONGLONG position, ULONGLONG count);
    void UnlockRange(ULONGLONG position, ULONGLONG count);
    void Flush();
    void Close();
    void Abort() noexcept;

    const char* GetFilePath() const noexcept { return m_szFileName; }

    // True when both hold the same file open, whatever names they reached it by (links
    // included); without the platform's file identity, when their full paths are the same.
    bool IsSameFile(const CFile& other) const noexcept;

    // Status by path: false when nothing exists under the path.
    static bool GetStatus(const char* path, CFileStatus& status) noexcept;
    static void SetStatus(const char* path, const CFileStatus& status);
    static void Remove(const char* path);
    static void Rename(const char* oldPath, const char* newPath);

    HANDLE m_hFile;

private:
    void ThrowIfNotOpen() const;

    char m_szFileName[kPathBufferSize];
};
