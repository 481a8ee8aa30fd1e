#include "TestSupport.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <regex>
#include <sstream>

namespace kovratest {

// CTest reads the output through a pipe, which the run-time buffers whole: a test killed at
// its time-out would take its failure messages along. Unbuffered, they are there to read.
const bool g_unbufferedOutput = std::setvbuf(stdout, nullptr, _IONBF, 0) == 0;

namespace {

std::string DirectoryOf(const std::string& path)  // with its trailing backslash
{
    size_t separator = path.find_last_of('\\');
    return separator == std::string::npos ? std::string() : path.substr(0, separator + 1);
}

} // namespace

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
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
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
    for (size_t start = 0, end; start < text.size(); start = end + 1) {
        end = std::min(text.find('\n', start), text.size());
        lines.push_back(text.substr(start, end - start));
        if (!lines.back().empty() && lines.back().back() == '\r')
            lines.back().pop_back();
    }
    return lines;
}

std::string ProgramDirectory()
{
    char path[MAX_PATH];
    ::GetModuleFileNameA(nullptr, path, sizeof path);
    return DirectoryOf(path);
}

std::string ProgramPath(const std::string& program)
{
    return ProgramDirectory() + program;
}

std::string CommandLine(const std::string& program, const std::string& arguments)
{
    return "\"" + ProgramPath(program) + "\" " + arguments;
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

namespace {

// Changes this process's environment, which a child started meanwhile inherits, until it ends.
class EnvironmentChange {
public:
    explicit EnvironmentChange(const std::vector<EnvVar>& changes)
    {
        char value[32768];
        for (const EnvVar& change : changes) {
            const DWORD length = ::GetEnvironmentVariableA(change.name.c_str(), value, sizeof value);
            m_saved.push_back({change.name, std::string(value, length), length == 0});
            Apply(change);
        }
    }
    ~EnvironmentChange()
    {
        for (auto saved = m_saved.rbegin(); saved != m_saved.rend(); ++saved)
            Apply(*saved);
    }

private:
    static void Apply(const EnvVar& change)
    {
        ::SetEnvironmentVariableA(change.name.c_str(), change.remove ? nullptr : change.value.c_str());
    }
    std::vector<EnvVar> m_saved;
};

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
    EnvironmentChange changed(environment);
    BOOL started = ::CreateProcessA(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr,
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
        if (!::ReadFile(m_outputRead, buffer, std::min<DWORD>(available, sizeof buffer), &read, nullptr) || read == 0)
            break;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_output.append(buffer, read);
        m_changed.notify_all();
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_ended = true;
    m_changed.notify_all();
}

std::string ChildProcess::WaitForLine(const std::string& prefix, DWORD timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        const size_t end = m_output.find('\n', m_consumed);
        if (end == std::string::npos) {
            if (m_ended || m_changed.wait_until(lock, deadline) == std::cv_status::timeout)
                return "";
            continue;
        }
        std::string line = m_output.substr(m_consumed, end - m_consumed);
        m_consumed = end + 1;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
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

NamedEvent::NamedEvent()
{
    static LONG counter = 0;
    m_name = "kovratest-" + std::to_string(::GetCurrentProcessId()) + "-" +
             std::to_string(::InterlockedIncrement(&counter));
    m_event = ::CreateEventA(nullptr, TRUE, FALSE, m_name.c_str());
}

namespace {

using BoxSearch = std::pair<DWORD, std::vector<HWND>>;  // a process and its visible message boxes

BOOL CALLBACK CollectMessageBox(HWND window, LPARAM parameter)
{
    auto* search = reinterpret_cast<BoxSearch*>(parameter);
    DWORD owner = 0;
    ::GetWindowThreadProcessId(window, &owner);
    char className[32] = "";
    ::GetClassNameA(window, className, sizeof className);
    if (owner == search->first && std::strcmp(className, "#32770") == 0 && ::IsWindowVisible(window))
        search->second.push_back(window);
    return TRUE;
}

} // namespace

BoxWatcher::BoxWatcher(DWORD processId) : m_processId(processId), m_thread([this] { Watch(); })
{
    m_running.get_future().wait();
}

void BoxWatcher::Watch()
{
    for (bool first = true;; first = false) {
        BoxSearch search{m_processId, {}};
        ::EnumWindows(&CollectMessageBox, reinterpret_cast<LPARAM>(&search));
        for (HWND box : search.second) {
            char text[2048] = "", caption[256] = "";
            ::GetDlgItemTextA(box, 0xFFFF, text, sizeof text);
            ::GetWindowTextA(box, caption, sizeof caption);
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                if (std::find(m_dismissed.begin(), m_dismissed.end(), box) == m_dismissed.end()) {
                    m_dismissed.push_back(box);
                    m_boxes.push_back({caption, text});
                }
            }
            ::PostMessageA(box, WM_COMMAND, IDOK, 0);
        }
        if (first)
            m_running.set_value();  // the window services have served this thread once
        ::Sleep(20);
        if (m_stop)
            return;
    }
}

std::vector<MessageBoxSeen> BoxWatcher::Boxes()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_boxes;
}

MonitorProgram::MonitorProgram()
    : m_process(CommandLine("kovramon.exe", "--verbose --ready-event " + m_readyEvent.Name()))
{
    m_ready = m_readyEvent.Wait(20000);
}

std::vector<std::string> MonitorProgram::Lines()
{
    std::vector<std::string> lines;
    std::string output = m_process.Output();
    output.erase(output.rfind('\n') + 1);  // complete lines only
    for (const std::string& line : SplitLines(output))
        if (!line.empty())
            lines.push_back(line.substr(line.find(' ') + 1));
    return lines;
}

std::vector<std::string> MonitorProgram::Texts()
{
    std::vector<std::string> texts;
    for (const std::string& line : Lines())
        texts.push_back(line.substr(line.find(" text=") + 6));
    return texts;
}

bool MonitorProgram::WaitForLines(size_t count, DWORD timeoutMs)
{
    for (const DWORD start = ::GetTickCount(); Lines().size() < count; ::Sleep(20))
        if (::GetTickCount() - start >= timeoutMs)
            return false;
    return true;
}

void MonitorProgram::Close()
{
    if (!m_open)
        return;
    m_open = false;
    if (HWND window = ::FindWindowA("#32770", "Debug-Monitor"))
        ::PostMessageA(window, WM_CLOSE, 0, 0);
    m_process.Wait(10000);
}

} // namespace kovratest
