// Opening and closing a CKovra object, and its temporary-file mode.
#include <io.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "context/ThreadInfo.h"
#include "file/KovraFileState.h"
#include "file/PathParts.h"
#include "file/SharingRetry.h"
#include "frame/CallFrame.h"
#include "frame/Diagnostics.h"
#include "frame/KovraApp.h"
#include "fsops/DirCreate.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

UINT PlatformOpenFlags(uint32_t options)
{
    UINT flags = CFile::modeRead;
    if (options & (kOptionReadWrite | kOptionAppend)) {
        flags = CFile::modeReadWrite | CFile::modeCreate;
        if ((options & kOptionAppend) || !(options & kOptionTruncate))
            flags |= CFile::modeNoTruncate;
    }
    if (options & kOptionExclusive)
        flags |= CFile::shareExclusive;
    else if (options & kOptionDenyWrite)
        flags |= CFile::shareDenyWrite;
    else
        flags |= CFile::shareDenyNone;
    return flags;
}

// The directory of a temporary file: the workstation's temporary directory, or for a
// client the same part of it below the client's directory in the data path.
bool TemporaryDirectory(const ThreadInfo& context, PathBuilder& directory)
{
    if (!context.client[0])
        return directory.Add(theApp.m_szWkstaTmpPath).Fits();
    const char* data = theApp.m_szDataPath;
    directory.Add(data).Add(context.client).Add("\\").Add(LastDirectory(data))
        .AddWithout(theApp.m_szWkstaTmpPath, std::strlen(theApp.m_szBasePath));
    return directory.Fits();
}

// The n-th candidate for a temporary file in directory; false when it doesn't fit.
bool TemporaryName(const char* directory, const void* session, const SYSTEMTIME& now, int n,
                   char (&path)[kPathBufferSize])
{
    const char* separator = EndsWithBackslash(directory) ? "" : "\\";
    return FormatText(path, sizeof path, "%s%sCKV_%d_%02d%02d%02d%02d%02d%02d%03d_%d.TMP", directory, separator,
                      SessionNumber(session), now.wYear % 100, now.wMonth, now.wDay, now.wHour, now.wMinute,
                      now.wSecond, now.wMilliseconds, n);
}

// Clears a read-only attribute; true when the file became writable that way.
bool MakeWritable(const char* path)
{
    CFileStatus status;
    if (!CFile::GetStatus(path, status) || !(status.m_attribute & FILE_ATTRIBUTE_READONLY))
        return false;
    status.m_attribute &= static_cast<BYTE>(~FILE_ATTRIBUTE_READONLY);
    CFile::SetStatus(path, status);
    return CFile::GetStatus(path, status) && !(status.m_attribute & FILE_ATTRIBUTE_READONLY);
}

} // namespace

int CKovra::Open(const char* type, const char* name, unsigned long options, KovraOpenPar_S* parameters, int flags)
{
    if (!m_pState)
        return 0;
    return RunInCallFrame(0, [&] {
        KovraFileState_S& state = *m_pState;
        Close((state.m_nCloseFlags & 1) | 2);

        const UINT platformFlags = PlatformOpenFlags(options);
        state.m_ulOptions = static_cast<uint32_t>(options);

        // The stored copy of the type serves again when it holds the same text. The copy that
        // a new type replaces lives until Open returns: the caller's type and name may point
        // into it.
        const char* wanted = type ? type : "DFT";
        std::unique_ptr<char, decltype(&std::free)> replacedType(nullptr, &std::free);
        if (!(state.m_pszType && (type == state.m_pszType || std::strcmp(state.m_pszType, wanted) == 0))) {
            char* copy = _strdup(wanted);
            if (!copy)
                throw std::bad_alloc();
            replacedType.reset(state.m_pszType);
            state.m_pszType = copy;
        }

        if (parameters) {
            size_t taken = parameters->size < sizeof state.m_openPar ? parameters->size : sizeof state.m_openPar;
            std::memmove(&state.m_openPar, parameters, taken);
        } else {
            std::memset(&state.m_openPar, 0, sizeof state.m_openPar);
        }

        int result = 0;
        bool resolved = true;
        if (name) {
            state.m_bTemporary = 0;
            int resolution = kErrorNameTooLong;
            if (CopyText(state.m_szName, name))
                resolution = ResolveName(state.m_pszType, state.m_szName, sizeof state.m_szName,
                                         state.m_szRealFileName, flags);
            else
                state.m_szName[0] = '\0';
            result = resolution == 1 ? 1 : 0;
            if (!result) {
                state.m_nError = resolution;
                resolved = false;  // no open on a stale or missing path
                if (resolution == kErrorNameTooLong)
                    state.m_szRealFileName[0] = '\0';  // names no file, not the one of an earlier Open
            }
        } else if (!state.m_bTemporary) {
            CreateTemporaryFile();
        }

        if ((options & kOptionsThatOpen) && resolved)
            result = OpenPlatformFile(platformFlags, flags);

        TraceIf(kDebugOpen, "Kovra : Open : Type(%s) Name(%s) Options(%d) Ret(%d)", type ? type : "(null)",
                name ? name : "(null)", static_cast<int>(options), result);
        TraceIf(kDebugOpen, "               RealFileName(%s)", state.m_szRealFileName);
        return result;
    });
}

void CKovra::CreateTemporaryFile()
{
    KovraFileState_S& state = *m_pState;
    state.m_szName[0] = '\0';
    state.m_szRealFileName[0] = '\0';  // until a name is found
    ThreadInfo context;
    std::memset(&context, 0, sizeof context);  // session 0 and no client when none is found
    GetInfo(&context, 0);

    PathBuilder directory;
    if (!TemporaryDirectory(context, directory))
        return;
    TraceIf(kDebugOpen, "Kovra : Open : TempPath(%s)", directory.Text());
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    char path[kPathBufferSize];
    if (!TemporaryName(directory.Text(), context.session, now, 1, path))
        return;  // no directory is made for a name that can't be had in it
    MkDirTree(directory.Text());

    // A name that doesn't fit ends the search.
    for (int n = 1; n > 0 && TemporaryName(directory.Text(), context.session, now, n, path); ++n) {
        if (_access(path, 0) == 0)
            continue;
        CopyText(state.m_szRealFileName, path);
        CFile file;  // made empty; a failure to create it ends the search all the same
        file.Open(path, CFile::modeCreate | CFile::modeWrite | CFile::shareDenyNone | CFile::modeNoInherit, nullptr);
        state.m_bTemporary = 1;
        return;
    }
}

int CKovra::OpenPlatformFile(UINT platformFlags, int flags)
{
    KovraFileState_S& state = *m_pState;
    MkDir(0);
    state.m_pFile = new CFile;
    CFileException failure;
    if (theApp.HasOption(kOptionWriteThrough))
        platformFlags |= CFile::osWriteThrough;
    platformFlags |= CFile::modeNoInherit;

    SharingRetry retry = SharingRetry::ForOpen(flags & 2);
    bool madeWritable = false;
    for (;;) {
        failure.m_cause = CFileException::none;
        int opened = state.m_pFile->Open(state.m_szRealFileName, platformFlags, &failure) ? 1 : 0;
        LogCall(":Open");
        if (failure.m_cause == CFileException::none)
            return opened;
        RecordFailure(failure, "Open", -1, true);

        if (failure.m_cause == CFileException::accessDenied && (state.m_ulOptions & kOptionsThatWrite) &&
            !madeWritable) {
            Attempt("Open", [&] { madeWritable = MakeWritable(state.m_szRealFileName); });
            if (madeWritable)
                continue;
        } else if (failure.m_cause == CFileException::sharingViolation) {
            LogHandleOwners();
            if (retry.PauseForNextAttempt())
                continue;
        }
        return 0;
    }
}

int CKovra::Close(int flags)
{
    if (!m_pState)
        return 0;
    KovraFileState_S& state = *m_pState;
    TraceIf(kDebugClose, "Kovra : Close : Type(%s) Name(%s) RealFileName(%s)", GetFileType(), GetFileName(),
            GetRealFileName());
    int result = 0;

    ::EnterCriticalSection(&state.m_lock);
    delete[] state.m_readAhead.m_pBytes;  // what ReadString read ahead belongs to this file only
    state.m_readAhead = LineReadAhead_S{};
    if (state.m_pFile) {
        LogCall(":Close");
        result = 1;
        if (state.m_pFile->m_hFile != CFile::hFileNull) {
            try {
                state.m_pFile->Close();
            } catch (const CFileException& failure) {
                // The cause and failure file name stay as they were; only the message is taken.
                state.m_pFile->Abort();
                failure.GetErrorMessage(state.m_szMessage, sizeof state.m_szMessage);
                LogCall("Close");
                TraceIf(kDebugExceptions, "Kovra : Exception : Datei(%s) Cause(%d) Msg(%s)", failure.m_strFileName,
                        failure.m_cause, state.m_szMessage);
            }
        }
        delete state.m_pFile;
        state.m_pFile = nullptr;
    }
    ::LeaveCriticalSection(&state.m_lock);

    if (state.m_bTemporary && !(flags & 1)) {
        if (MayExist(state.m_szRealFileName))
            Attempt("Close", [&] { CFile::Remove(state.m_szRealFileName); });
        state.m_bTemporary = 0;
        result = 1;
    }
    if (!(flags & 2)) {
        std::free(state.m_pszType);
        state.m_pszType = nullptr;
    }
    state.m_nCloseFlags = flags;
    return result;
}

int CKovra::IsOpen(int)
{
    return (m_pState && m_pState->m_pFile && m_pState->m_pFile->m_hFile != CFile::hFileNull) ? 1 : 0;
}

int CKovra::IsWritable(int)
{
    return (IsOpen(0) && (m_pState->m_ulOptions & kOptionsThatWrite)) ? 1 : 0;
}

char* CKovra::GetRealFileName(const char* type, const char* name, int)
{
    Open(type, name, 0, nullptr, 0);
    return GetRealFileName(0);
}
