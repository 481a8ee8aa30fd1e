#include "TestSupport.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

namespace kovratest {

// CTest reads the output through a pipe, which the run-time buffers whole: a test killed at
// its time-out would take its failure messages along. Unbuffered, they are there to read.
const bool g_unbufferedOutput = std::setvbuf(stdout, nullptr, _IONBF, 0) == 0;

// ---- files ------------------------------------------------------------------------------------

std::string ReadFileBytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

void WriteFileBytes(const std::string& path, const std::string& bytes)
{
    MakeDirectories(DirectoryOf(path));
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << bytes;
}

bool PathExists(const std::string& path)
{
    return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void MakeDirectories(const std::string& directory)
{
    for (size_t next = directory.find('\\', 3); next != std::string::npos; next = directory.find('\\', next + 1))
        ::CreateDirectoryA(directory.substr(0, next).c_str(), nullptr);
    ::CreateDirectoryA(directory.c_str(), nullptr);
}

void RemoveTree(const std::string& path)
{
    DWORD attributes = ::GetFileAttributesA(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return;
    ::SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        ::DeleteFileA(path.c_str());
        return;
    }
    std::string base = path.back() == '\\' ? path : path + "\\";
    for (const std::string& entry : Entries(base))
        RemoveTree(base + entry);
    ::RemoveDirectoryA(path.c_str());
}

std::vector<std::string> Entries(const std::string& directory)
{
    std::vector<std::string> names;
    WIN32_FIND_DATAA entry;
    HANDLE search = ::FindFirstFileA((directory + (directory.back() == '\\' ? "*" : "\\*")).c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return names;
    do {
        if (std::strcmp(entry.cFileName, ".") != 0 && std::strcmp(entry.cFileName, "..") != 0)
            names.push_back(entry.cFileName);
    } while (::FindNextFileA(search, &entry));
    ::FindClose(search);
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> SplitLines(const std::string& text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

std::string DirectoryOf(const std::string& path)
{
    size_t separator = path.find_last_of('\\');
    return separator == std::string::npos ? std::string() : path.substr(0, separator + 1);
}

std::string ProgramDirectory()
{
    char path[MAX_PATH];
    ::GetModuleFileNameA(nullptr, path, sizeof path);
    return DirectoryOf(path);
}

std::string CurrentUtcDate(const char* format)
{
    std::time_t now = std::time(nullptr);
    char text[64];
    std::strftime(text, sizeof text, format, std::gmtime(&now));
    return text;
}

std::string Hex(unsigned long long value)
{
    char text[24];
    std::snprintf(text, sizeof text, "%llx", value);
    return text;
}

std::vector<std::string> LogRecords(const std::string& logPath, const std::string& start)
{
    static const std::regex stamped(R"(\d\d\.\d\d \d\d:\d\d:\d\d\.\d\d\d (.*))");
    const std::regex wanted(start + ".*");
    std::vector<std::string> records;
    bool keep = false;
    std::smatch match;
    for (const std::string& line : SplitLines(ReadFileBytes(logPath))) {
        if (std::regex_match(line, match, stamped)) {
            keep = std::regex_match(match[1].str(), wanted);
            if (keep)
                records.push_back(match[1].str());
        } else if (keep) {
            records.push_back(line);
        }
    }
    return records;
}

ScratchDirectory::ScratchDirectory(const std::string& path) : m_path(path.back() == '\\' ? path : path + "\\")
{
    RemoveTree(m_path);
    MakeDirectories(m_path);
}

ScratchDirectory::~ScratchDirectory()
{
    RemoveTree(m_path);
}

// ---- child processes -------------------------------------------------------------------------

namespace {

std::string EnvironmentBlock(const std::vector<EnvVar>& changes)
{
    // Names compare without regard to case, as Windows does.
    auto upper = [](std::string text) {
        for (char& c : text)
            c = static_cast<char>(::toupper(static_cast<unsigned char>(c)));
        return text;
    };
    std::map<std::string, std::string> variables;
    char* block = ::GetEnvironmentStringsA();
    for (const char* entry = block; *entry; entry += std::strlen(entry) + 1) {
        const char* equals = std::strchr(entry + 1, '=');  // names of drive variables start with '='
        if (equals)
            variables[upper(std::string(entry, equals))] = entry;
    }
    ::FreeEnvironmentStringsA(block);
    for (const EnvVar& change : changes) {
        if (change.remove)
            variables.erase(upper(change.name));
        else
            variables[upper(change.name)] = change.name + "=" + change.value;
    }
    std::string result;
    for (const auto& variable : variables)
        result += variable.second + '\0';
    result += '\0';
    return result;
}

} // namespace

ChildProcess::ChildProcess(const std::string& commandLine, const std::vector<EnvVar>& environment,
                           const std::string& workingDirectory)
{
    SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
    HANDLE outputWrite = nullptr;
    if (!::CreatePipe(&m_outputRead, &outputWrite, &inheritable, 0))
        return;
    ::SetHandleInformation(m_outputRead, HANDLE_FLAG_INHERIT, 0);

    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = outputWrite;
    startup.hStdError = outputWrite;
    PROCESS_INFORMATION process = {};
    std::string command = commandLine;
    std::string block = EnvironmentBlock(environment);
    BOOL started = ::CreateProcessA(nullptr, &command[0], nullptr, nullptr, TRUE, 0, &block[0],
                                    workingDirectory.empty() ? nullptr : workingDirectory.c_str(), &startup, &process);
    ::CloseHandle(outputWrite);
    if (!started)
        return;
    ::CloseHandle(process.hThread);
    m_process = process.hProcess;
    m_processId = process.dwProcessId;
    m_reader = std::thread([this] { ReadOutput(); });
}

ChildProcess::~ChildProcess()
{
    if (m_process && ::WaitForSingleObject(m_process, 0) == WAIT_TIMEOUT)
        ::TerminateProcess(m_process, 99);
    if (m_reader.joinable())
        m_reader.join();
    if (m_process)
        ::CloseHandle(m_process);
    if (m_outputRead)
        ::CloseHandle(m_outputRead);
}

// Reads until the child has ended and the pipe holds nothing more. The end of the pipe
// alone can't tell: a process that the child started (wine starts its desktop process
// from the first program that makes a window) inherits the child's end of the pipe and
// may keep it open for as long as the test runs.
void ChildProcess::ReadOutput()
{
    char buffer[4096];
    for (;;) {
        DWORD available = 0;
        if (!::PeekNamedPipe(m_outputRead, nullptr, 0, nullptr, &available, nullptr))
            break;  // every writer has closed its end
        if (available == 0) {
            const bool ended = ::WaitForSingleObject(m_process, 10) == WAIT_OBJECT_0;
            if (ended && ::PeekNamedPipe(m_outputRead, nullptr, 0, nullptr, &available, nullptr) && available == 0)
                break;
            continue;
        }
        DWORD read = 0;
        if (!::ReadFile(m_outputRead, buffer, available < sizeof buffer ? available : sizeof buffer, &read, nullptr) ||
            read == 0)
            break;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_output.append(buffer, read);
        m_changed.notify_all();
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_ended = true;
    m_changed.notify_all();
}

bool ChildProcess::ReadLine(std::string& line, DWORD timeoutMs)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    auto complete = [this] { return m_output.find('\n', m_consumed) != std::string::npos || m_ended; };
    if (!m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), complete))
        return false;
    size_t end = m_output.find('\n', m_consumed);
    if (end == std::string::npos) {
        if (m_consumed >= m_output.size())
            return false;
        end = m_output.size();
    }
    line = m_output.substr(m_consumed, end - m_consumed);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    m_consumed = end + 1;
    return true;
}

std::string ChildProcess::WaitForLine(const std::string& prefix, DWORD timeoutMs)
{
    DWORD deadline = ::GetTickCount() + timeoutMs;
    std::string line;
    for (;;) {
        DWORD now = ::GetTickCount();
        if (static_cast<LONG>(deadline - now) <= 0 || !ReadLine(line, deadline - now))
            return "";
        if (line.compare(0, prefix.size(), prefix) == 0)
            return line;
    }
}

int ChildProcess::Wait(DWORD timeoutMs)
{
    if (!m_process)
        return -1;
    if (::WaitForSingleObject(m_process, timeoutMs) != WAIT_OBJECT_0) {
        ::TerminateProcess(m_process, 99);
        ::WaitForSingleObject(m_process, 5000);
        return -1;
    }
    DWORD code = 0;
    ::GetExitCodeProcess(m_process, &code);
    if (m_reader.joinable())
        m_reader.join();
    return static_cast<int>(code);
}

std::string ChildProcess::Output()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_output;
}

std::string Quote(const std::string& argument)
{
    return "\"" + argument + "\"";
}

std::string ProgramPath(const std::string& program)
{
    return ProgramDirectory() + program;
}

// ---- synchronisation --------------------------------------------------------------------------

bool WaitUntil(const std::function<bool()>& condition, DWORD timeoutMs)
{
    const DWORD start = ::GetTickCount();
    for (;;) {
        if (condition())
            return true;
        if (::GetTickCount() - start >= timeoutMs)
            return false;
        ::Sleep(20);
    }
}

NamedEvent::NamedEvent()
{
    static LONG counter = 0;
    m_name = "kovratest-" + std::to_string(::GetCurrentProcessId()) + "-" +
             std::to_string(::InterlockedIncrement(&counter));
    m_event = ::CreateEventA(nullptr, TRUE, FALSE, m_name.c_str());
}

NamedEvent::~NamedEvent()
{
    ::CloseHandle(m_event);
}

void NamedEvent::Set()
{
    ::SetEvent(m_event);
}

// ---- message boxes ----------------------------------------------------------------------------

namespace {

struct BoxSearch {
    DWORD processId;
    std::vector<HWND>* found;
};

// Collects the visible message boxes ("#32770" windows) of one process.
BOOL CALLBACK CollectMessageBox(HWND window, LPARAM parameter)
{
    auto* search = reinterpret_cast<BoxSearch*>(parameter);
    DWORD owner = 0;
    ::GetWindowThreadProcessId(window, &owner);
    char className[32] = "";
    ::GetClassNameA(window, className, sizeof className);
    if (owner == search->processId && std::strcmp(className, "#32770") == 0 && ::IsWindowVisible(window))
        search->found->push_back(window);
    return TRUE;
}

} // namespace

BoxWatcher::BoxWatcher(DWORD processId) : m_processId(processId), m_thread([this] { Watch(); })
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_runningChanged.wait(lock, [this] { return m_running; });
}

BoxWatcher::~BoxWatcher()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_thread.join();
}

void BoxWatcher::Watch()
{
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stop)
                return;
        }
        std::vector<HWND> found;
        BoxSearch search{m_processId, &found};
        ::EnumWindows(&CollectMessageBox, reinterpret_cast<LPARAM>(&search));
        for (HWND box : found) {
            MessageBoxSeen seen;
            char text[2048] = "";
            ::GetDlgItemTextA(box, 0xFFFF, text, sizeof text);
            seen.text = text;
            ::GetWindowTextA(box, text, sizeof text);
            seen.caption = text;
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                bool known = false;
                for (HWND dismissed : m_dismissed)
                    known = known || dismissed == box;
                if (!known) {
                    m_dismissed.push_back(box);
                    m_boxes.push_back(seen);
                }
            }
            ::PostMessageA(box, WM_COMMAND, IDOK, 0);
        }
        // Running once the window services have served this thread a first time.
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_running = true;
        }
        m_runningChanged.notify_all();
        ::Sleep(20);
    }
}

std::vector<MessageBoxSeen> BoxWatcher::Boxes()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_boxes;
}

bool BoxWatcher::WaitFor(size_t count, DWORD timeoutMs)
{
    return WaitUntil([&] { return Boxes().size() >= count; }, timeoutMs);
}

// ---- the monitor program ----------------------------------------------------------------------

MonitorProgram::MonitorProgram(const std::string& outputFile) : m_outputFile(outputFile)
{
    ::DeleteFileA(outputFile.c_str());
    m_process = std::make_unique<ChildProcess>(ProgramPath("kovramon.exe") + " --verbose --output " +
                                               Quote(outputFile) + " --ready-event " + m_readyEvent.Name());
    HANDLE ready = ::OpenEventA(SYNCHRONIZE, FALSE, m_readyEvent.Name().c_str());
    m_ready = ready && ::WaitForSingleObject(ready, 20000) == WAIT_OBJECT_0;
    if (ready)
        ::CloseHandle(ready);
}

MonitorProgram::~MonitorProgram()
{
    Close();
}

std::vector<std::string> MonitorProgram::Lines()
{
    std::vector<std::string> lines;
    for (const std::string& line : SplitLines(ReadFileBytes(m_outputFile)))
        if (!line.empty())
            lines.push_back(line);
    return lines;
}

bool MonitorProgram::WaitForLines(size_t count, DWORD timeoutMs)
{
    return WaitUntil([&] { return Lines().size() >= count; }, timeoutMs);
}

void MonitorProgram::Close()
{
    if (!m_process)
        return;
    HWND window = ::FindWindowA("#32770", "Debug-Monitor");
    if (window)
        ::PostMessageA(window, WM_CLOSE, 0, 0);
    m_process->Wait(10000);
    m_process.reset();
}

std::vector<std::string> MonitorProgram::Texts()
{
    std::vector<std::string> texts;
    for (const std::string& line : Lines())
        texts.push_back(MonitorField(line, "text"));
    return texts;
}

std::string MonitorField(const std::string& line, const std::string& name)
{
    std::string key = " " + name + "=";
    size_t start = line.find(key);
    if (start == std::string::npos)
        return "";
    start += key.size();
    if (name == "text")
        return line.substr(start);
    size_t end = line.find(' ', start);
    return line.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

} // namespace kovratest
