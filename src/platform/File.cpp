#include "platform/File.h"

#include <cstdio>
#include <cstring>

#include "platform/Text.h"

namespace {

// Windows counts file times in 100 ns steps since 1601-01-01; CTime in seconds since 1970.
constexpr LONGLONG kFileTimeUnitsPerSecond = 10000000LL;
constexpr LONGLONG kFileTimeEpochOffset = 116444736000000000LL;

ATL::CTime FileTimeToCTime(const FILETIME& time)
{
    ULARGE_INTEGER units;
    units.LowPart = time.dwLowDateTime;
    units.HighPart = time.dwHighDateTime;
    if (units.QuadPart == 0)
        return ATL::CTime(0);
    return ATL::CTime((static_cast<LONGLONG>(units.QuadPart) - kFileTimeEpochOffset) / kFileTimeUnitsPerSecond);
}

FILETIME CTimeToFileTime(const ATL::CTime& time)
{
    ULARGE_INTEGER units;
    units.QuadPart = static_cast<ULONGLONG>(time.GetTime() * kFileTimeUnitsPerSecond + kFileTimeEpochOffset);
    FILETIME result;
    result.dwLowDateTime = units.LowPart;
    result.dwHighDateTime = units.HighPart;
    return result;
}

struct CauseText {
    int cause;
    const char* text;  // %s stands for the file's name
};

const CauseText kCauseTexts[] = {
    {CFileException::none, "No error occurred on %s."},
    {CFileException::genericException, "An unspecified error occurred while accessing %s."},
    {CFileException::fileNotFound, "%s was not found."},
    {CFileException::badPath, "All or part of the path %s is invalid."},
    {CFileException::tooManyOpenFiles, "Too many files are open to open %s."},
    {CFileException::accessDenied, "Access to %s was denied."},
    {CFileException::invalidFile, "%s is not open: no valid file handle is associated with it."},
    {CFileException::removeCurrentDir, "%s is a current or non-empty directory and can't be removed."},
    {CFileException::directoryFull, "There is no room for another directory entry for %s."},
    {CFileException::badSeek, "The file pointer of %s could not be moved there."},
    {CFileException::hardIO, "A hardware error occurred while accessing %s."},
    {CFileException::sharingViolation, "A sharing violation occurred while accessing %s."},
    {CFileException::lockViolation, "A locked region of %s was in the way."},
    {CFileException::diskFull, "The disk is full while writing %s."},
    {CFileException::endOfFile, "The end of %s was reached."},
};

struct ErrorCause {
    LONG osError;
    int cause;
};

// OS errors that have a cause of their own; every other error is a genericException.
const ErrorCause kErrorCauses[] = {
    {NO_ERROR, CFileException::none},
    {ERROR_FILE_NOT_FOUND, CFileException::fileNotFound},
    {ERROR_PATH_NOT_FOUND, CFileException::badPath},
    {ERROR_TOO_MANY_OPEN_FILES, CFileException::tooManyOpenFiles},
    {ERROR_ACCESS_DENIED, CFileException::accessDenied},
    {ERROR_INVALID_HANDLE, CFileException::invalidFile},
    {ERROR_BAD_FORMAT, CFileException::invalidFile},
    {ERROR_INVALID_ACCESS, CFileException::accessDenied},
    {ERROR_INVALID_DRIVE, CFileException::badPath},
    {ERROR_CURRENT_DIRECTORY, CFileException::removeCurrentDir},
    {ERROR_DIR_NOT_EMPTY, CFileException::removeCurrentDir},
    {ERROR_NOT_SAME_DEVICE, CFileException::badPath},
    {ERROR_NO_MORE_FILES, CFileException::fileNotFound},
    {ERROR_WRITE_PROTECT, CFileException::accessDenied},
    {ERROR_BAD_UNIT, CFileException::hardIO},
    {ERROR_NOT_READY, CFileException::hardIO},
    {ERROR_CRC, CFileException::hardIO},
    {ERROR_SEEK, CFileException::badSeek},
    {ERROR_SECTOR_NOT_FOUND, CFileException::hardIO},
    {ERROR_WRITE_FAULT, CFileException::hardIO},
    {ERROR_READ_FAULT, CFileException::hardIO},
    {ERROR_GEN_FAILURE, CFileException::hardIO},
    {ERROR_SHARING_VIOLATION, CFileException::sharingViolation},
    {ERROR_LOCK_VIOLATION, CFileException::lockViolation},
    {ERROR_WRONG_DISK, CFileException::badPath},
    {ERROR_SHARING_BUFFER_EXCEEDED, CFileException::tooManyOpenFiles},
    {ERROR_HANDLE_EOF, CFileException::endOfFile},
    {ERROR_HANDLE_DISK_FULL, CFileException::diskFull},
    {ERROR_BAD_NETPATH, CFileException::badPath},
    {ERROR_NETWORK_BUSY, CFileException::accessDenied},
    {ERROR_DEV_NOT_EXIST, CFileException::badPath},
    {ERROR_NETWORK_ACCESS_DENIED, CFileException::accessDenied},
    {ERROR_BAD_NET_NAME, CFileException::badPath},
    {ERROR_FILE_EXISTS, CFileException::accessDenied},
    {ERROR_ALREADY_EXISTS, CFileException::accessDenied},
    {ERROR_CANNOT_MAKE, CFileException::directoryFull},
    {ERROR_INVALID_PARAMETER, CFileException::badPath},
    {ERROR_DRIVE_LOCKED, CFileException::sharingViolation},
    {ERROR_OPEN_FAILED, CFileException::fileNotFound},
    {ERROR_BUFFER_OVERFLOW, CFileException::badPath},
    {ERROR_DISK_FULL, CFileException::diskFull},
    {ERROR_INVALID_NAME, CFileException::badPath},
    {ERROR_FILENAME_EXCED_RANGE, CFileException::badPath},
    {ERROR_NEGATIVE_SEEK, CFileException::badSeek},
    {ERROR_SEEK_ON_DEVICE, CFileException::badSeek},
    {ERROR_NOT_LOCKED, CFileException::lockViolation},
};

DWORD DesiredAccess(UINT flags)
{
    switch (flags & 0x3) {
    case CFile::modeWrite:
        return GENERIC_WRITE;
    case CFile::modeReadWrite:
        return GENERIC_READ | GENERIC_WRITE;
    default:
        return GENERIC_READ;
    }
}

DWORD ShareMode(UINT flags)
{
    switch (flags & 0x70) {
    case CFile::shareDenyWrite:
        return FILE_SHARE_READ;
    case CFile::shareDenyRead:
        return FILE_SHARE_WRITE;
    case CFile::shareDenyNone:
        return FILE_SHARE_READ | FILE_SHARE_WRITE;
    default:  // compatibility mode and shareExclusive: no sharing
        return 0;
    }
}

DWORD CreationDisposition(UINT flags)
{
    if (!(flags & CFile::modeCreate))
        return OPEN_EXISTING;
    return (flags & CFile::modeNoTruncate) ? OPEN_ALWAYS : CREATE_ALWAYS;
}

LARGE_INTEGER ToLarge(ULONGLONG value)
{
    LARGE_INTEGER result;
    result.QuadPart = static_cast<LONGLONG>(value);
    return result;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// CFileException

CFileException::CFileException(int cause, LONG osError, const char* fileName) noexcept
    : m_cause(cause), m_lOsError(osError), m_strFileName{}
{
    SetFileName(fileName);
}

void CFileException::SetFileName(const char* fileName) noexcept
{
    CopyText(m_strFileName, sizeof m_strFileName, fileName);
}

void CFileException::Reset() noexcept
{
    m_cause = none;
    m_lOsError = -1;
    m_strFileName[0] = '\0';
}

bool CFileException::GetErrorMessage(char* buffer, unsigned size) const noexcept
{
    if (!buffer || size == 0)
        return false;
    const char* pattern = kCauseTexts[genericException].text;
    for (const CauseText& entry : kCauseTexts)
        if (entry.cause == m_cause)
            pattern = entry.text;
    const char* name = m_strFileName[0] ? m_strFileName : "an unnamed file";
    std::snprintf(buffer, size, pattern, name);
    return true;
}

int CFileException::OsErrorToCause(LONG osError) noexcept
{
    for (const ErrorCause& entry : kErrorCauses)
        if (entry.osError == osError)
            return entry.cause;
    return genericException;
}

void CFileException::ThrowOsError(LONG osError, const char* fileName)
{
    throw CFileException(OsErrorToCause(osError), osError, fileName);
}

void CFileException::ThrowLastError(const char* fileName)
{
    ThrowOsError(static_cast<LONG>(::GetLastError()), fileName);
}

// ---------------------------------------------------------------------------------------------
// CFile

const HANDLE CFile::hFileNull = INVALID_HANDLE_VALUE;

CFile::CFile() noexcept : m_hFile(hFileNull), m_szFileName{} {}

CFile::~CFile()
{
    Abort();
}

bool CFile::Open(const char* path, UINT flags, CFileException* error) noexcept
{
    Abort();
    if (error)
        error->Reset();
    const char* name = path ? path : "";
    if (std::strlen(name) > kMaxPathChars) {
        if (error) {
            error->m_cause = CFileException::badPath;
            error->m_lOsError = ERROR_FILENAME_EXCED_RANGE;
            error->SetFileName("");  // a name that doesn't fit is not carried along
        }
        return false;
    }
    SECURITY_ATTRIBUTES security = {sizeof security, nullptr, (flags & modeNoInherit) ? FALSE : TRUE};
    DWORD attributes = FILE_ATTRIBUTE_NORMAL | ((flags & osWriteThrough) ? FILE_FLAG_WRITE_THROUGH : 0);
    HANDLE handle = ::CreateFileA(name, DesiredAccess(flags), ShareMode(flags), &security,
                                  CreationDisposition(flags), attributes, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        if (error) {
            error->m_lOsError = static_cast<LONG>(::GetLastError());
            error->m_cause = CFileException::OsErrorToCause(error->m_lOsError);
            error->SetFileName(name);
        }
        return false;
    }
    m_hFile = handle;
    CopyText(m_szFileName, sizeof m_szFileName, name);
    return true;
}

void CFile::ThrowIfNotOpen() const
{
    if (m_hFile == hFileNull)
        CFileException::ThrowOsError(ERROR_INVALID_HANDLE, m_szFileName);
}

UINT CFile::Read(void* buffer, UINT count)
{
    ThrowIfNotOpen();
    if (count == 0)
        return 0;
    DWORD read = 0;
    if (!::ReadFile(m_hFile, buffer, count, &read, nullptr))
        CFileException::ThrowLastError(m_szFileName);
    return read;
}

void CFile::Write(const void* buffer, UINT count)
{
    ThrowIfNotOpen();
    if (count == 0)
        return;
    DWORD written = 0;
    if (!::WriteFile(m_hFile, buffer, count, &written, nullptr))
        CFileException::ThrowLastError(m_szFileName);
    if (written != count)
        CFileException::ThrowOsError(ERROR_DISK_FULL, m_szFileName);
}

ULONGLONG CFile::Seek(LONGLONG offset, UINT from)
{
    ThrowIfNotOpen();
    LARGE_INTEGER distance;
    distance.QuadPart = offset;
    LARGE_INTEGER position;
    if (!::SetFilePointerEx(m_hFile, distance, &position, from))
        CFileException::ThrowLastError(m_szFileName);
    return static_cast<ULONGLONG>(position.QuadPart);
}

ULONGLONG CFile::GetPosition() const
{
    ThrowIfNotOpen();
    LARGE_INTEGER zero = {};
    LARGE_INTEGER position;
    if (!::SetFilePointerEx(m_hFile, zero, &position, FILE_CURRENT))
        CFileException::ThrowLastError(m_szFileName);
    return static_cast<ULONGLONG>(position.QuadPart);
}

ULONGLONG CFile::GetLength() const
{
    ThrowIfNotOpen();
    LARGE_INTEGER size;
    if (!::GetFileSizeEx(m_hFile, &size))
        CFileException::ThrowLastError(m_szFileName);
    return static_cast<ULONGLONG>(size.QuadPart);
}

void CFile::SetLength(ULONGLONG length)
{
    ThrowIfNotOpen();
    // The end of the file is set at the file pointer, which stays there: the next write
    // follows the new end, as applications of the platform's file class expect.
    if (!::SetFilePointerEx(m_hFile, ToLarge(length), nullptr, FILE_BEGIN) || !::SetEndOfFile(m_hFile))
        CFileException::ThrowLastError(m_szFileName);
}

void CFile::LockRange(ULONGLONG position, ULONGLONG count)
{
    ThrowIfNotOpen();
    if (!::LockFile(m_hFile, static_cast<DWORD>(position), static_cast<DWORD>(position >> 32),
                    static_cast<DWORD>(count), static_cast<DWORD>(count >> 32)))
        CFileException::ThrowLastError(m_szFileName);
}

void CFile::UnlockRange(ULONGLONG position, ULONGLONG count)
{
    ThrowIfNotOpen();
    if (!::UnlockFile(m_hFile, static_cast<DWORD>(position), static_cast<DWORD>(position >> 32),
                      static_cast<DWORD>(count), static_cast<DWORD>(count >> 32)))
        CFileException::ThrowLastError(m_szFileName);
}

void CFile::Flush()
{
    ThrowIfNotOpen();
    if (!::FlushFileBuffers(m_hFile))
        CFileException::ThrowLastError(m_szFileName);
}

void CFile::Close()
{
    if (m_hFile == hFileNull)
        return;
    HANDLE handle = m_hFile;
    m_hFile = hFileNull;
    if (!::CloseHandle(handle))
        CFileException::ThrowLastError(m_szFileName);
    m_szFileName[0] = '\0';
}

void CFile::Abort() noexcept
{
    if (m_hFile != hFileNull)
        ::CloseHandle(m_hFile);
    m_hFile = hFileNull;
    m_szFileName[0] = '\0';
}

bool CFile::IsSameFile(const CFile& other) const noexcept
{
    BY_HANDLE_FILE_INFORMATION mine;
    BY_HANDLE_FILE_INFORMATION theirs;
    if (::GetFileInformationByHandle(m_hFile, &mine) && ::GetFileInformationByHandle(other.m_hFile, &theirs))
        return mine.dwVolumeSerialNumber == theirs.dwVolumeSerialNumber &&
               mine.nFileIndexHigh == theirs.nFileIndexHigh && mine.nFileIndexLow == theirs.nFileIndexLow;
    char myPath[kPathBufferSize];
    char theirPath[kPathBufferSize];
    DWORD myLength = ::GetFullPathNameA(m_szFileName, sizeof myPath, myPath, nullptr);
    DWORD theirLength = ::GetFullPathNameA(other.m_szFileName, sizeof theirPath, theirPath, nullptr);
    return myLength > 0 && myLength < sizeof myPath && theirLength > 0 && theirLength < sizeof theirPath &&
           ::lstrcmpiA(myPath, theirPath) == 0;
}

bool CFile::GetStatus(const char* path, CFileStatus& status) noexcept
{
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!path || !*path || !::GetFileAttributesExA(path, GetFileExInfoStandard, &data))
        return false;
    status.m_ctime = FileTimeToCTime(data.ftCreationTime);
    status.m_mtime = FileTimeToCTime(data.ftLastWriteTime);
    status.m_atime = FileTimeToCTime(data.ftLastAccessTime);
    status.m_size = (static_cast<ULONGLONG>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    status.m_attribute = static_cast<BYTE>(data.dwFileAttributes);
    if (!::GetFullPathNameA(path, sizeof status.m_szFullName, status.m_szFullName, nullptr))
        CopyText(status.m_szFullName, sizeof status.m_szFullName, path);
    return true;
}

void CFile::SetStatus(const char* path, const CFileStatus& status)
{
    DWORD current = ::GetFileAttributesA(path);
    if (current == INVALID_FILE_ATTRIBUTES)
        CFileException::ThrowLastError(path);

    auto setAttributes = [&] {
        DWORD wanted = status.m_attribute ? status.m_attribute : FILE_ATTRIBUTE_NORMAL;
        if ((current & 0xFF) != status.m_attribute && !::SetFileAttributesA(path, wanted))
            CFileException::ThrowLastError(path);
    };
    auto setTimes = [&] {
        HANDLE handle = ::CreateFileA(path, FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
        if (handle == INVALID_HANDLE_VALUE)
            CFileException::ThrowLastError(path);
        FILETIME created = CTimeToFileTime(status.m_ctime);
        FILETIME accessed = CTimeToFileTime(status.m_atime);
        FILETIME written = CTimeToFileTime(status.m_mtime);
        BOOL done = ::SetFileTime(handle, status.m_ctime.GetTime() ? &created : nullptr,
                                  status.m_atime.GetTime() ? &accessed : nullptr,
                                  status.m_mtime.GetTime() ? &written : nullptr);
        DWORD error = ::GetLastError();
        ::CloseHandle(handle);
        if (!done)
            CFileException::ThrowOsError(static_cast<LONG>(error), path);
    };

    // A read-only file accepts new times only while it is writable.
    if (status.m_attribute & FILE_ATTRIBUTE_READONLY) {
        setTimes();
        setAttributes();
    } else {
        setAttributes();
        setTimes();
    }
}

void CFile::Remove(const char* path)
{
    if (!::DeleteFileA(path))
        CFileException::ThrowLastError(path);
}

void CFile::Rename(const char* oldPath, const char* newPath)
{
    if (!::MoveFileA(oldPath, newPath))
        CFileException::ThrowLastError(oldPath);
}
