// Helpers shared by the test programs: files, child processes with captured output,
// named events, message-box watching and the monitor program.
#pragma once

#include <windows.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kovratest {

using Lines = std::vector<std::string>;

std::string ReadFileBytes(const std::string& path);  // "" when the file can't be read
void WriteFileBytes(const std::string& path, const std::string& bytes);  // makes the directories
bool PathExists(const std::string& path);
void MakeDirectories(const std::string& directory);
void RemoveTree(const std::string& path);
std::vector<std::string> Entries(const std::string& directory);  // names in it, sorted, without . and ..
std::vector<std::string> SplitLines(const std::string& text);  // on LF, each line without CR LF
std::string ProgramDirectory();                                // of the running program
std::string ProgramPath(const std::string& program);           // a program beside this one
std::string CommandLine(const std::string& program, const std::string& arguments);  // of ProgramPath
std::string CurrentUtcDate(const char* format);                // strftime of the UTC date
std::string Hex(unsigned long long value);                     // lower-case, no prefix

// The records of CKOVRA.LOG at logPath whose text after the time stamp matches the regular
// expression start, stamp removed, each followed by its indented continuation lines.
std::vector<std::string> LogRecords(const std::string& logPath, const std::string& start);

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

struct EnvVar {
    std::string name;
    std::string value;
    bool remove = false;
};

// A program started with its standard output and error captured.
class ChildProcess {
public:
    ChildProcess(const std::string& commandLine, const std::vector<EnvVar>& environment = {},
                 const std::string& workingDirectory = "");
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    DWORD Id() const { return m_processId; }
    // The next line that starts with prefix, dropping others; "" on timeout or end of output.
    std::string WaitForLine(const std::string& prefix, DWORD timeoutMs = 20000);
    // Exit code, or -1 when it didn't end in time (it is then killed).
    int Wait(DWORD timeoutMs = 60000);
    std::string Output();  // everything it printed, once it has ended

private:
    void ReadOutput();

    HANDLE m_process = nullptr;
    DWORD m_processId = 0;
    HANDLE m_outputRead = nullptr;
    std::thread m_reader;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::string m_output;
    size_t m_consumed = 0;
    bool m_ended = false;
};

class NamedEvent {
public:
    NamedEvent();  // a unique name
    ~NamedEvent() { ::CloseHandle(m_event); }
    const std::string& Name() const { return m_name; }
    void Set() { ::SetEvent(m_event); }
    bool Wait(DWORD timeoutMs) { return ::WaitForSingleObject(m_event, timeoutMs) == WAIT_OBJECT_0; }

private:
    std::string m_name;
    HANDLE m_event;
};

struct MessageBoxSeen {
    std::string caption;
    std::string text;
};

// Watches for message boxes of a process (this one by default), reads their text and
// dismisses them with OK. Its thread runs once it is constructed, so it also serves boxes
// that this process shows while the loader is busy (a library's start-up).
class BoxWatcher {
public:
    explicit BoxWatcher(DWORD processId = ::GetCurrentProcessId());
    ~BoxWatcher()
    {
        m_stop = true;
        m_thread.join();
    }
    std::vector<MessageBoxSeen> Boxes();

private:
    void Watch();

    DWORD m_processId;
    std::atomic<bool> m_stop{false};
    std::promise<void> m_running;
    std::mutex m_mutex;
    std::vector<MessageBoxSeen> m_boxes;
    std::vector<HWND> m_dismissed;
    std::thread m_thread;
};

// kovramon.exe in verbose mode, its lines read from its output.
class MonitorProgram {
public:
    MonitorProgram();
    ~MonitorProgram() { Close(); }
    bool Ready() const { return m_ready; }
    std::vector<std::string> Lines();  // "pid=... text=TEXT", without the time stamp
    std::vector<std::string> Texts();  // the text field of each line
    bool WaitForLines(size_t count, DWORD timeoutMs = 20000);
    void Close();  // WM_CLOSE to its window, then waits for it to end

private:
    NamedEvent m_readyEvent;
    ChildProcess m_process;
    bool m_ready = false;
    bool m_open = true;
};

} // namespace kovratest
