// Recording caught failures of the file layer and reporting them through GetLastError.
#include <cstring>

#include "file/KovraFileState.h"
#include "frame/Diagnostics.h"
#include "frame/KovraApp.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

constexpr size_t kReportSize = 1024;

} // namespace

void CKovra::RecordFailure(const CFileException& failure, const char* operation, int retryCount,
                           bool takeMessageAlways)
{
    KovraFileState_S& state = *m_pState;
    state.m_nCause = failure.m_cause;
    if (takeMessageAlways || failure.m_strFileName[0])
        failure.GetErrorMessage(state.m_szMessage, sizeof state.m_szMessage);
    CopyText(state.m_szFailureFileName, failure.m_strFileName);
    LogCall(operation);
    if (retryCount < 0)
        TraceIf(kDebugExceptions, "Kovra : Exception : Datei(%s) Cause(%d) Msg(%s)", failure.m_strFileName,
                failure.m_cause, state.m_szMessage);
    else
        TraceIf(kDebugExceptions, "Kovra : Exception : Datei(%s) Cause/Count(%d,%d) Msg(%s)",
                state.m_szFailureFileName, failure.m_cause, retryCount, state.m_szMessage);
}

int CKovra::GetLastError(int* cause, char* message, int length, int)
{
    if (!m_pState)
        return 0;
    KovraFileState_S& state = *m_pState;
    const char* type = GetFileType();  // "" once Close has dropped the type
    char report[kReportSize] = "";
    int result = 0;

    // The texts are put together before anything is written: the caller's message buffer
    // may be one of this object's own texts.
    if (state.m_nCause != 0) {
        result = 1;
        FormatText(report, sizeof report,
                   "Kovra : KOVRA_Exception(Type(%s), FileName(%s), RealFileName(%s), Cause(%d), (Msg(%s))", type,
                   GetFileName(), GetRealFileName(), state.m_nCause, state.m_szMessage);
        if (message && length > 0)
            std::strncpy(message, state.m_szMessage, static_cast<size_t>(length));
        if (cause)
            *cause = state.m_nCause;
        state.m_nCause = 0;
    } else if (state.m_nError != 0) {
        result = 1;
        char text[kReportSize];
        FormatText(text, sizeof text, "Kovra : KOVRA_ERROR(%s, %s, %s, %d)", type, GetFileName(), GetRealFileName(),
                   state.m_nError);
        FormatText(report, sizeof report, kErrorReportFormat, type, GetFileName(), GetRealFileName(), state.m_nError);
        if (message && length > 0)
            CopyText(message, static_cast<size_t>(length), text);
        if (cause)
            *cause = state.m_nError;
        state.m_nError = 0;
    }

    if (result && !cause && !message && !theApp.HasOption(kOptionNoMessageBoxes))
        ShowMessageBox(report, MB_OK | MB_ICONERROR);
    if (report[0])
        TraceIf(kDebugExceptions, "%s", report);
    return result;
}

int CKovra::IsDirectory(int)
{
    CFileStatus status;
    return (m_pState && CFile::GetStatus(m_pState->m_szRealFileName, status) &&
            (status.m_attribute & FILE_ATTRIBUTE_DIRECTORY))
               ? 1
               : 0;
}
