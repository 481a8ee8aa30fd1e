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
constexpr DWORD kHandleToolWaitMs = 5000;  // a tool that takes longer is ended
constexpr DWORD kHandleToolEndMs = 1000;   // what ending it may take

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

// cmd takes a quoted text as it stands, except for a quote, which would end it, and %,
// which names a variable even between quotes: a text with either isn't handed over.
bool QuotableForCommandInterpreter(const char* text)
{
    return !std::strpbrk(text, "\"%");
}

// The command line that runs exactly <base>PRG\HANDLE.EXE with name as its one argument
// and its output in outputFile. /S takes everything between the outer quotes as the
// command; /D leaves out the interpreter's own start-up commands.
bool BuildHandleToolCommand(const char* name, const char* outputFile, char* command, size_t size)
{
    const char* base = theApp.m_szBasePath;
    return QuotableForCommandInterpreter(base) && QuotableForCommandInterpreter(name) &&
           QuotableForCommandInterpreter(outputFile) &&
           FormatText(command, size, "cmd /S /D /C \"\"%sPRG\\HANDLE.EXE\" \"%s\" >\"%s\"\"", base, name, outputFile);
}

// Starts the command and waits for it at most kHandleToolWaitMs. The interpreter and the
// tool run in a job of their own, so that one that hasn't ended by then is ended with it.
void RunAndWait(char* command, const char* directory)
{
    HANDLE job = ::CreateJobObjectA(nullptr, nullptr);
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (::CreateProcessA(nullptr, command, nullptr, nullptr, FALSE, CREATE_NO_WINDOW | CREATE_SUSPENDED, nullptr,
                         directory[0] ? directory : nullptr, &startup, &process)) {
        const bool inJob = job && ::AssignProcessToJobObject(job, process.hProcess);
        ::ResumeThread(process.hThread);
        if (::WaitForSingleObject(process.hProcess, kHandleToolWaitMs) == WAIT_TIMEOUT) {
            if (!inJob || !::TerminateJobObject(job, WAIT_TIMEOUT))
                ::TerminateProcess(process.hProcess, WAIT_TIMEOUT);
            ::WaitForSingleObject(process.hProcess, kHandleToolEndMs);
        }
        ::CloseHandle(process.hThread);
        ::CloseHandle(process.hProcess);
    }
    if (job)
        ::CloseHandle(job);
}

// Runs the handle tool for name with its output in outputFile. The tool starts in the
// directory that the name is relative to, so that it finds the file.
void RunHandleTool(const char* name, const char* realFileName, const char* outputFile)
{
    char directory[kPathBufferSize];
    NameDirectory(name, realFileName, directory);
    char command[3 * kPathBufferSize + 64];
    if (BuildHandleToolCommand(name, outputFile, command, sizeof command))
        RunAndWait(command, directory);
}

// Writes a line of the tool's output, indented; its control characters but its line end
// are escaped, since the tool may name things that other programs chose.
void WriteToolLine(LogFile& log, const char* line)
{
    size_t body = std::strlen(line);
    if (body > 0 && line[body - 1] == '\n')
        body -= body > 1 && line[body - 2] == '\r' ? 2 : 1;
    log.Write(kContinuationIndent);
    log.WriteEscaped(line, body);
    log.Write(line + body);
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
    FormatText(line, sizeof line, "%s %" PRIxPTR " %s (%x, %s, %d, %s, %s)", stamp, reinterpret_cast<uintptr_t>(this),
               text, static_cast<unsigned>(::GetCurrentThreadId()), state.m_pszType ? state.m_pszType : "DFT",
               static_cast<int>(state.m_ulOptions), handle, state.m_szRealFileName);
    log.WriteLine(line);
    if (state.m_nCause != 0 && text[0] != ':') {
        FormatText(line, sizeof line, "%sException(Cause(%d), Msg(%s))", kContinuationIndent, state.m_nCause,
                   state.m_szMessage);
        log.WriteLine(line);
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
            while (log.IsOpen() && std::fgets(line, sizeof line, output))
                WriteToolLine(log, line);
            std::fclose(output);
        }
    }
    _unlink(outputFile);
}
