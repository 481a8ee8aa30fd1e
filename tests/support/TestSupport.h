// Helpers shared by the test programs: files, child processes and their output, named
// events, message boxes, the monitor program and small views of the library's objects.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kovra/diag.h"
#include "kovra/kovra.h"

namespace kovratest {

using Lines = std::vector<std::string>;

std::string ReadFileBytes(const std::string& path);                      // "" when the file can't be read
void WriteFileBytes(const std::string& path, const std::string& bytes);  // makes the directories
void RemoveTree(const std::string& path);                                 // read-only files too
Lines Entries(const std::string& directory);                              // the names in it, sorted
std::string ProgramPath(const std::string& program);                      // a program beside this one
std::string CurrentUtcDate(const char* format);                           // strftime of the UTC date
std::string Hex(unsigned long long value);                                // lower-case, no prefix

inline bool PathExists(const std::string& path) { return ::GetFileAttributesA(path.data()) != INVALID_FILE_ATTRIBUTES; }

inline void MakeDirectories(const std::string& directory)
{
    std::error_code ignored;
    std::filesystem::create_directories(directory, ignored);
}

inline std::string UniqueName()  // for this test's files and events
{
    static LONG last = 0;
    return "kovratest-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(::InterlockedIncrement(&last));
}

// The command line that starts ProgramPath(program) with its arguments.
inline std::string CommandLine(const std::string& program, const std::string& arguments)
{
    return "\"" + ProgramPath(program) + "\" " + arguments;
}

// The records of CKOVRA.LOG at logPath whose text after the time stamp matches the regular
// expression start, stamp removed, each followed by its indented continuation lines.
Lines LogRecords(const std::string& logPath, const std::string& start);

// The cause that GetLastError reports: 0, a file-layer cause, or -1/-2 of the library.
inline int CauseOf(CKovra& file)
{
    int cause = 0;
    file.GetLastError(&cause);
    return cause;
}

// The object's address as its per-call log lines show it.
inline std::string Address(const CKovra& file) { return Hex(reinterpret_cast<uintptr_t>(&file)); }

// An entry point of a library loaded at run time.
template <typename Function> Function Entry(HMODULE library, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(::GetProcAddress(library, name)));
}

// "name location encryption" of every record of the file-type table of a kovra.dll loaded at run time.
inline Lines FileTypes(HMODULE library)
{
    Lines types;
    FileType_S type;
    for (int index = 0; Entry<decltype(&KovraGetFileType)>(library, "KovraGetFileType")(index, &type); ++index)
        types.push_back(type.name + (" " + std::to_string(type.location)) + " " + std::to_string(type.encryption));
    return types;
}

// A fresh, empty directory for one test, removed again at the end.
class ScratchDirectory {
public:
    explicit ScratchDirectory(const std::string& path) : m_path(path.back() == '\\' ? path : path + "\\")
    {
        RemoveTree(m_path);
        MakeDirectories(m_path);
    }
    ~ScratchDirectory() { RemoveTree(m_path); }
    const std::string& Path() const { return m_path; }  // with a trailing backslash
    std::string operator/(const std::string& name) const { return m_path + name; }

private:
    std::string m_path;
};

struct EnvVar { std::string name, value; };  // an empty value removes the variable

// A program started with its standard output and error going to a file that this process
// reads: unlike a pipe's, its end doesn't wait for the processes that the program starts
// and that inherit the handle (wine's desktop process among them).
class ChildProcess {
public:
    ChildProcess(const std::string& commandLine, const std::vector<EnvVar>& environment = {},
                 const std::string& workingDirectory = "");
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    DWORD Id() const { return m_info.dwProcessId; }
    // The next line that starts with prefix, dropping others; "" on timeout or end of output.
    std::string WaitForLine(const std::string& prefix, DWORD timeoutMs = 20000);
    int Wait(DWORD timeoutMs = 60000);  // the exit code, or -1 when it didn't end in time (it is then killed)
    std::string Output() const { return ReadFileBytes(m_outputPath); }  // all it has printed so far

private:
    const std::string m_outputPath = ProgramPath(UniqueName() + ".out");
    PROCESS_INFORMATION m_info = {};
    size_t m_consumed = 0;
};

class NamedEvent {
public:
    NamedEvent() : m_name(UniqueName()), m_event(::CreateEventA(nullptr, TRUE, FALSE, m_name.c_str())) {}
    ~NamedEvent() { ::CloseHandle(m_event); }
    const std::string& Name() const { return m_name; }
    void Set() { ::SetEvent(m_event); }
    bool Wait(DWORD timeoutMs) { return ::WaitForSingleObject(m_event, timeoutMs) == WAIT_OBJECT_0; }

private:
    std::string m_name;
    HANDLE m_event;
};

// Watches for message boxes of a process (this one by default), reads their text and
// dismisses them with OK. Its thread runs once it is constructed, so it also serves boxes
// that this process shows while the loader is busy (a library's start-up).
class BoxWatcher {
public:
    explicit BoxWatcher(DWORD processId = ::GetCurrentProcessId());
    ~BoxWatcher();
    Lines Boxes();  // "caption|text" of each box seen since the last call, in order

private:
    void Watch();

    DWORD m_processId;
    std::atomic<bool> m_running{false}, m_stop{false};
    std::mutex m_mutex;
    std::set<HWND> m_seen;
    Lines m_boxes;
    std::thread m_thread;
};

// What a program printed (standard output and error) and the message boxes it showed.
struct ProgramRun {
    int exitCode = -1;
    std::string output;
    Lines lines;  // without their line ends
    Lines boxes;  // "caption|text"

    Lines Values(const std::string& key) const;  // of every line "KEY value"
    std::string Value(const std::string& key) const { return Values(key).empty() ? "" : Values(key)[0]; }
};

// Runs a program beside the tests to its end, reading and dismissing its message boxes.
ProgramRun RunProgram(const std::string& name, const std::vector<EnvVar>& environment,
                      const std::string& arguments = "", const std::string& workingDirectory = "");

// kovramon.exe in verbose mode, its lines read from its output; ended with the object, its
// window with it.
class MonitorProgram {
public:
    MonitorProgram() : m_process(CommandLine("kovramon.exe", "--verbose --ready-event " + m_readyEvent.Name()))
    {
        m_readyEvent.Wait(20000);  // until its window is there
    }
    std::vector<std::string> Lines();  // "pid=... text=TEXT", without the time stamp
    std::vector<std::string> Texts();  // the text field of each line
    bool WaitForLines(size_t count, DWORD timeoutMs = 20000);

private:
    NamedEvent m_readyEvent;
    ChildProcess m_process;
};

} // namespace kovratest
