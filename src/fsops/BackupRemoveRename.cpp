// Dated backup generations, removal and renaming of the object's file.
#include <io.h>

#include <cstring>

#include "file/KovraFileState.h"
#include "file/PathParts.h"
#include "file/SharingRetry.h"
#include "frame/KovraApp.h"
#include "fsops/DirCreate.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

constexpr int kLastTwoDigitNumber = 99;
constexpr int kLastSixDigitNumber = 999999;

// The first free backup path of the day: two-digit numbers first, then six digits.
bool FindFreeBackupPath(const char* basePath, const char* extension, char (&backup)[kPathBufferSize])
{
    for (int number = 1; number <= kLastSixDigitNumber; ++number) {
        const char* pattern = number <= kLastTwoDigitNumber ? "%s%.2d.%s" : "%s%.6d.%s";
        if (!FormatText(backup, sizeof backup, pattern, basePath, number, extension))
            return false;
        if (_access(backup, 0) != 0)
            return true;
    }
    return false;
}

} // namespace

int CKovra::SaveFile(const char* type, const char* directory, const char* extension, int nameFlags, int)
{
    if (!m_pState)
        return 0;
    KovraFileState_S& state = *m_pState;
    // A text cut here is longer than any name, so resolving it fails as too long.
    char nameText[kPathBufferSize + 16];
    FormatText(nameText, sizeof nameText, "%s\\%%y%%M%%D", directory ? directory : "SAV");
    char name[kPathBufferSize];
    char basePath[kPathBufferSize];
    if (!ResolveTarget(type, nameText, name, basePath, nameFlags))
        return 0;  // no backup path: the file stays where it is

    // Close drops the type, and the extension may be a text of this object's own.
    char extensionText[kPathBufferSize];
    const bool extensionFits = CopyText(extensionText, extension ? extension : "SAV");
    Close(1);
    char backup[kPathBufferSize];
    if (!extensionFits || !FindFreeBackupPath(basePath, extensionText, backup))
        return 0;
    MkDirTreeOfParent(backup);

    int result = Attempt("SaveFile.Rename", [&] { CFile::Rename(state.m_szRealFileName, backup); }) ? 1 : 0;
    if (!result && ::CopyFileA(state.m_szRealFileName, backup, TRUE)) {
        result = 1;
        _unlink(state.m_szRealFileName);  // a copy left at the old path is not reported
    }
    CopyText(state.m_szName, backup);
    CopyText(state.m_szRealFileName, backup);
    state.m_bTemporary = 0;
    return result;
}

int CKovra::Remove(int)
{
    if (!m_pState)
        return 0;
    Close(0);
    if (!MayExist(m_pState->m_szRealFileName))
        return 1;
    return MoveOrRemoveWithRetries("Remove", nullptr);
}

int CKovra::Rename(const char* type, char* name, int nameFlags)
{
    if (!m_pState)
        return 0;
    KovraFileState_S& state = *m_pState;
    if (!name)
        return Refuse(state, kErrorInvalidArgument);
    char newName[kPathBufferSize];
    char newPath[kPathBufferSize];
    if (!ResolveTarget(type, name, newName, newPath, nameFlags))
        return 0;
    PutDateFieldsInPlace(name, std::strlen(name) + 1, newName);

    Close(1);
    MkDirTreeOfParent(newPath);
    int result = MoveOrRemoveWithRetries("Rename", newPath);
    if (result) {
        CopyText(state.m_szName, newName);
        CopyText(state.m_szRealFileName, newPath);
        state.m_bTemporary = 0;
    }
    return result;
}

int CKovra::MoveOrRemoveWithRetries(const char* operation, const char* newPath)
{
    const char* path = m_pState->m_szRealFileName;
    SharingRetry retry = SharingRetry::ForMove(theApp.m_nSharingViolationRepeat);
    for (;;) {
        try {
            if (newPath)
                CFile::Rename(path, newPath);
            else
                CFile::Remove(path);
            return 1;
        } catch (const CFileException& failure) {
            RecordFailure(failure, operation, retry.Count());
            if (failure.m_cause != CFileException::sharingViolation)
                return 0;
            LogHandleOwners();
            if (!retry.PauseForNextAttempt())
                return 0;
        }
    }
}
