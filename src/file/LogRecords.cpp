// The log records about one file object: the per-call line and the handle-owner dump.
#include <io.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "file/KovraFileState.h"
#include "frame/Diagnostics.h"
#include "frame/KovraApp.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

constexpr size_t kLineSize = 4096;
constexpr int kHandleToolHeadingLines = 4;

// The directory that a relative name is relative to: the real path less the name when it
// ends with it, otherwise the directory of the real path.
void NameDirectory(const char* name, const char* realFileName, char (&directory)[kPathBufferSize])
{
    CopyText(directory, realFileName);
    size_t realLength = std::strlen(directory);
    size_t nameLength = std::strlen(name);
    if (nameLength < realLength && ::lstrcmpiA(directory + realLength - nameLength, name) == 0) {
        directory[realLength - nameLength] = '\0';
        return;
    }
    char* separator = std::strrchr(directory, '\\');
    if (separator)
        separator[1] = '\0';
}

// Runs the handle tool for name with its output in outputFile, and waits for it. The tool
// starts in the directory that the name is relative to, so that it finds the file.
void RunHandleTool(const char* name, const char* realFileName, const char* outputFile)
{
    char directory[kPathBufferSize];
    NameDirectory(name, realFileName, directory);
    char command[3 * kPathBufferSize + 64];
    if (!FormatText(command, sizeof command, "cmd /C %sPRG\\HANDLE.EXE \"%s\" >%s", theApp.m_szBasePath, name,
                    outputFile))
        return;
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!::CreateProcessA(nullptr, command, nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                          directory[0] ? directory : nullptr, &startup, &process))
        return;
    do {
        ::Sleep(10);
    } while (::WaitForSingleObject(process.hProcess, 1) == WAIT_TIMEOUT);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
}

} // namespace

void CKovra::LogCall(const char* text)
{
    if (!theApp.HasOption(kOptionLogOpenClose) && text[0] == ':')
        return;
    if (!theApp.HasOption(kOptionLogFailedCalls))
        return;
    LogFile log;
    if (!log.IsOpen())
        return;

    const KovraFileState_S& state = *m_pState;
    char stamp[kTimeStampLength + 1];
    FormatTimeStamp(stamp);
    char handle[24] = "...";
    if (state.m_pFile)
        FormatText(handle, sizeof handle, "%d", static_cast<int>(reinterpret_cast<INT_PTR>(state.m_pFile->m_hFile)));
    char line[kLineSize];
    FormatText(line, sizeof line, "%s %" PRIxPTR " %s (%x, %s, %d, %s, %s)\n", stamp, reinterpret_cast<uintptr_t>(this),
               text, static_cast<unsigned>(::GetCurrentThreadId()), state.m_pszType ? state.m_pszType : "DFT",
               static_cast<int>(state.m_ulOptions), handle, state.m_szRealFileName);
    log.Write(line);
    if (state.m_nCause != 0 && text[0] != ':') {
        FormatText(line, sizeof line, "%sException(Cause(%d), Msg(%s))\n", kContinuationIndent, state.m_nCause,
                   state.m_szMessage);
        log.Write(line);
    }
}

void CKovra::LogHandleOwners()
{
    if (!theApp.HasOption(kOptionLogHandleOwners))
        return;
    char tempDirectory[4096];
    char outputFile[MAX_PATH];
    if (!::GetTempPathA(sizeof tempDirectory, tempDirectory) ||
        !::GetTempFileNameA(tempDirectory, "CKV", 0, outputFile))
        return;

    // The tool runs before the log is opened, so that other writers aren't held off meanwhile.
    RunHandleTool(GetFileName(), m_pState->m_szRealFileName, outputFile);
    {
        LogFile log;
        FILE* output = std::fopen(outputFile, "rb");
        if (output) {
            char line[kLineSize];
            int skipped = 0;
            while (skipped < kHandleToolHeadingLines && std::fgets(line, sizeof line, output))
                ++skipped;
            while (log.IsOpen() && std::fgets(line, sizeof line, output)) {
                log.Write(kContinuationIndent);
                log.Write(line);
            }
            std::fclose(output);
        }
    }
    _unlink(outputFile);
}
