// Existence test and directory creation.
#include "fsops/DirCreate.h"

#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <cerrno>
#include <cstring>

#include "file/KovraFileState.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

bool Exists(const char* path)
{
    struct _stat status;
    return _stat(path, &status) == 0;
}

bool IsExistingDirectory(const char* path)
{
    struct _stat status;
    return _stat(path, &status) == 0 && (status.st_mode & _S_IFDIR);
}

int MakeTree(char* path)
{
    const size_t length = std::strlen(path);
    if (length == 2)  // a bare drive such as C:
        return 1;
    if (length > 0 && path[length - 1] == '\\' && length != 3) {
        path[length - 1] = '\0';
        int result = IsExistingDirectory(path) ? 0 : MakeTree(path);
        path[length - 1] = '\\';
        return result;
    }
    if (Exists(path))
        return 1;
    if (length == 3)  // a drive root that doesn't exist
        return -1;
    char* separator = std::strrchr(path, '\\');
    if (separator) {
        *separator = '\0';
        int parent = MakeTree(path);
        *separator = '\\';
        if (parent == -1)
            return 1;  // no drive to create anything on
    }
    ::CreateDirectoryA(path, nullptr);  // an existing directory counts as made
    return 1;
}

} // namespace

int MkDirTree(const char* path)
{
    char work[kPathBufferSize];
    if (!path || !CopyText(work, path))
        return 1;  // nothing that fits can be created; the caller's operation will fail
    return MakeTree(work);
}

int MkDirTreeOfParent(const char* path)
{
    char directory[kPathBufferSize];
    if (!path || !CopyText(directory, path))
        return 0;
    char* separator = std::strrchr(directory, '\\');
    if (!separator)
        return 0;
    *separator = '\0';
    return MkDirTree(directory);
}

bool MayExist(const char* path)
{
    // ENOENT: nothing there, or a directory of the path is missing; EINVAL: the name holds
    // characters that no file's name can hold. Any other failure proves nothing.
    return path && path[0] && (_access(path, 0) == 0 || (errno != ENOENT && errno != EINVAL));
}

int CKovra::Access(int)
{
    return (m_pState && _access(m_pState->m_szRealFileName, 0) == 0) ? 1 : 0;
}

int CKovra::MkDir(int)
{
    return m_pState ? MkDirTreeOfParent(m_pState->m_szRealFileName) : 0;
}
