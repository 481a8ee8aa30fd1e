// Small helpers that both demo programs use: paths, text files and processes.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace kovrademo {

std::string ProgramDirectory();  // of the running program, with its trailing backslash
std::string WithBackslash(std::string path);
std::string Quote(const std::string& text);
// A directory quoted for a command line: without its trailing backslash, which would
// escape the closing quote.
std::string QuoteDirectory(const std::string& directory);
bool FileExists(const std::string& path);

void WriteTextFile(const std::string& path, const std::vector<std::string>& lines);  // CR LF line ends
std::vector<std::string> ReadLines(const std::string& path);  // without their line ends

// A started program; its handles are closed by the destructor.
class Program {
public:
    // quiet: the program's standard handles go to NUL instead of this console.
    explicit Program(const std::string& commandLine, bool quiet = false);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    bool Started() const { return m_process.hProcess != nullptr; }
    DWORD Id() const { return m_process.dwProcessId; }
    // Exit code, or -1 when it didn't end in time (it is then stopped).
    int Wait(DWORD timeoutMs);

private:
    PROCESS_INFORMATION m_process = {};
};

// A manual-reset event under a name that is unique to this process and purpose.
class Event {
public:
    explicit Event(const char* purpose);
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    const std::string& Name() const { return m_name; }
    bool WaitFor(DWORD timeoutMs) const;
    void Set() const;

private:
    std::string m_name;
    HANDLE m_event;
};

} // namespace kovrademo
