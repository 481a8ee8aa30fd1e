// Directory, drive and path operations around the object's file.
#include <direct.h>

#include <cstring>

#include "file/KovraFileState.h"
#include "kovra/kovra.h"
#include "platform/FileFind.h"
#include "platform/Text.h"

namespace {

constexpr ULONGLONG kLargestUnsigned32 = 0xFFFFFFFFull;

using LongPathNameProc = DWORD(WINAPI*)(LPCSTR, LPSTR, DWORD);

// The directory that RmDir and ChDir act on: the real file name when it is a directory,
// otherwise its part before the last backslash (or, without one, before the last colon).
void OperatedDirectory(CKovra& object, const char* realFileName, char (&directory)[kPathBufferSize])
{
    CopyText(directory, realFileName);
    if (object.IsDirectory(0))
        return;
    char* cut = std::strrchr(directory, '\\');
    if (!cut)
        cut = std::strrchr(directory, ':');
    if (cut)
        *cut = '\0';
}

// The root that free space is asked about: X:\ for a drive, \\server\share\ for a share.
void FreeSpaceRoot(const char* path, char (&root)[kPathBufferSize])
{
    CopyText(root, path);
    if (std::strlen(root) < 2)
        return;
    if (root[1] == ':') {
        root[2] = '\\';
        root[3] = '\0';
    } else if (root[1] == '\\') {
        char* serverEnd = std::strchr(root + 2, '\\');
        char* shareEnd = serverEnd ? std::strchr(serverEnd + 1, '\\') : nullptr;
        if (shareEnd)
            shareEnd[1] = '\0';
    }
}

} // namespace

int CKovra::RmDir(int)
{
    if (!m_pState)
        return 0;
    char directory[kPathBufferSize];
    OperatedDirectory(*this, m_pState->m_szRealFileName, directory);
    return ::RemoveDirectoryA(directory) ? 1 : 0;
}

int CKovra::ChDir(int)
{
    if (!m_pState)
        return 0;
    char directory[kPathBufferSize];
    OperatedDirectory(*this, m_pState->m_szRealFileName, directory);
    return _chdir(directory) == 0 ? 1 : 0;
}

int CKovra::GetDrive(int)
{
    return _getdrive();
}

int CKovra::ChDrive(int drive, int)
{
    return _chdrive(drive) == 0 ? 1 : 0;
}

char* CKovra::GetCwd(int)
{
    if (!m_pState)
        return EmptyText();
    char* directory = m_pState->m_szCurrentDir;
    DWORD length = ::GetCurrentDirectoryA(kPathBufferSize, directory);
    if (length == 0 || length >= kPathBufferSize)
        directory[0] = '\0';  // a current directory that doesn't fit is not reported cut
    return directory;
}

char* CKovra::GetShortPathNameA(int)
{
    if (!m_pState)
        return EmptyText();
    DWORD length = ::GetShortPathNameA(m_pState->m_szRealFileName, m_pState->m_szShortPath, kPathBufferSize);
    return (length != 0 && length < kPathBufferSize) ? m_pState->m_szShortPath : m_pState->m_szRealFileName;
}

char* CKovra::GetLongPathNameA(int)
{
    if (!m_pState)
        return EmptyText();
    KovraFileState_S& state = *m_pState;
    if (!Access(0)) {
        CopyText(state.m_szLongPath, state.m_szRealFileName);
        return state.m_szLongPath;
    }

    char* result = nullptr;
    CFileFind finder;
    if (finder.FindFile(state.m_szRealFileName)) {
        finder.FindNextFileA();
        if (*finder.GetFilePath()) {
            CopyText(state.m_szLongPath, finder.GetFilePath());
            result = state.m_szLongPath;
        }
    }

    // The system's long-name procedure, loaded once per object and kept in its record.
    if (!state.m_hModule) {
        state.m_hModule = ::LoadLibraryA("KERNEL32.DLL");
        state.m_pfnLongPathName = state.m_hModule ? ::GetProcAddress(state.m_hModule, "GetLongPathNameA") : nullptr;
    }
    if (state.m_pfnLongPathName) {
        auto procedure = reinterpret_cast<LongPathNameProc>(reinterpret_cast<void (*)()>(state.m_pfnLongPathName));
        DWORD length = procedure(state.m_szLongPath, state.m_szLongPath, kPathBufferSize);
        result = (length != 0 && length < kPathBufferSize) ? state.m_szLongPath : state.m_szRealFileName;
    }
    return result;
}

unsigned long CKovra::GetDiskFreeSpaceA(int)
{
    if (!m_pState)
        return 0;
    char root[kPathBufferSize];
    FreeSpaceRoot(m_pState->m_szRealFileName, root);
    ULARGE_INTEGER available;
    if (!::GetDiskFreeSpaceExA(root, &available, nullptr, nullptr))
        return 0;
    return static_cast<unsigned long>(available.QuadPart > kLargestUnsigned32 ? kLargestUnsigned32
                                                                              : available.QuadPart);
}

int CKovra::IsNetDrive(int)
{
    return 1;
}

int CKovra::IsNetDrive(const char*, int)
{
    return 1;
}
