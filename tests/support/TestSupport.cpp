#include "TestSupport.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <utility>

namespace kovratest {

namespace fs = std::filesystem;

// CTest reads the output through a pipe, which the run-time buffers whole: a test killed at
// its time-out would take its failure messages along. Unbuffered, they are there to read.
const bool g_unbufferedOutput = std::setvbuf(stdout, nullptr, _IONBF, 0) == 0;

std::string ReadFileBytes(const std::string& path)
{
    return {std::istreambuf_iterator<char>(std::ifstream(path, std::ios::binary).rdbuf()), {}};
}

void WriteFileBytes(const std::string& path, const std::string& bytes)
{
    MakeDirectories(path.substr(0, path.find_last_of('\\') + 1));
    std::ofstream(path, std::ios::binary) << bytes;
}

void RemoveTree(const std::string& path)
{
    std::error_code error;
    ::SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    for (fs::recursive_directory_iterator entry(path, error), end; entry != end; entry.increment(error))
        ::SetFileAttributesW(entry->path().c_str(), FILE_ATTRIBUTE_NORMAL);
    fs::remove_all(path, error);
}

Lines Entries(const std::string& directory)
{
    Lines names;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, error))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// On LF, each line without its CR LF.
Lines SplitLines(const std::string& text)
{
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(!line.empty() && line.back() == '\r' ? line.substr(0, line.size() - 1) : line);
    return lines;
}

std::string ProgramPath(const std::string& program)
{
    char path[MAX_PATH] = "";
    ::GetModuleFileNameA(nullptr, path, sizeof path);
    return std::string(path, std::strrchr(path, '\\') + 1) + program;
}

std::string CurrentUtcDate(const char* format)
{
    std::time_t now = std::time(nullptr);
    char text[64];
    return std::string(text, std::strftime(text, sizeof text, format, std::gmtime(&now)));
}

std::string Hex(unsigned long long value)
{
    char text[24];
    return std::string(text, std::to_chars(text, text + sizeof text, value, 16).ptr);
}

Lines LogRecords(const std::string& logPath, const std::string& start)
{
    static const std::regex stamped(R"(\d\d\.\d\d \d\d:\d\d:\d\d\.\d\d\d (.*))");
    const std::regex wanted(start + ".*");
    Lines records;
    bool keep = false;
    std::smatch match;
    for (const std::string& line : SplitLines(ReadFileBytes(logPath))) {
        const bool stampedLine = std::regex_match(line, match, stamped);
        keep = stampedLine ? std::regex_match(match[1].str(), wanted) : keep;
        if (keep)
            records.push_back(stampedLine ? match[1].str() : line);
    }
    return records;
}

ChildProcess::ChildProcess(const std::string& commandLine, const std::vector<EnvVar>& environment,
                           const std::string& workingDirectory)
{
    SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = startup.hStdError = ::CreateFileA(m_outputPath.c_str(), GENERIC_WRITE,
        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inheritable, CREATE_ALWAYS, 0, nullptr);
    // The child inherits this process's environment, changed for as long as it takes to start it.
    std::vector<EnvVar> saved;
    for (const EnvVar& change : environment) {
        const char* value = std::getenv(change.name.c_str());
        saved.insert(saved.begin(), {change.name, value ? value : ""});
        _putenv((change.name + "=" + change.value).c_str());  // "NAME=" removes it
    }
    std::string command = commandLine;
    ::CreateProcessA(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr,
                     workingDirectory.empty() ? nullptr : workingDirectory.c_str(), &startup, &m_info);
    for (const EnvVar& variable : saved)
        _putenv((variable.name + "=" + variable.value).c_str());
    ::CloseHandle(startup.hStdOutput);
}

ChildProcess::~ChildProcess()
{
    ::TerminateProcess(m_info.hProcess, 99);  // when it is still running
    ::WaitForSingleObject(m_info.hProcess, 5000);
    ::CloseHandle(m_info.hProcess);
    ::CloseHandle(m_info.hThread);
    ::DeleteFileA(m_outputPath.c_str());
}

std::string ChildProcess::WaitForLine(const std::string& prefix, DWORD timeoutMs)
{
    for (const DWORD start = ::GetTickCount();; ::Sleep(10)) {
        const bool ended = ::WaitForSingleObject(m_info.hProcess, 0) != WAIT_TIMEOUT;  // all it wrote is there then
        const std::string output = Output();
        for (size_t end; (end = output.find('\n', m_consumed)) != std::string::npos;) {
            const std::string line = SplitLines(output.substr(m_consumed, end + 1 - m_consumed))[0];
            m_consumed = end + 1;
            if (line.compare(0, prefix.size(), prefix) == 0)
                return line;
        }
        if (ended || ::GetTickCount() - start >= timeoutMs)
            return "";
    }
}

int ChildProcess::Wait(DWORD timeoutMs)
{
    DWORD code = 0;
    if (::WaitForSingleObject(m_info.hProcess, timeoutMs) == WAIT_OBJECT_0 &&
        ::GetExitCodeProcess(m_info.hProcess, &code))
        return static_cast<int>(code);
    ::TerminateProcess(m_info.hProcess, 99);
    return -1;
}

BoxWatcher::BoxWatcher(DWORD processId) : m_processId(processId), m_thread([this] { Watch(); })
{
    while (!m_running)  // the window services have served the thread once
        ::Sleep(1);
}

BoxWatcher::~BoxWatcher()
{
    m_stop = true;
    m_thread.join();
}

void BoxWatcher::Watch()
{
    while (!m_stop) {
        for (HWND box = nullptr; (box = ::FindWindowExA(nullptr, box, "#32770", nullptr)) != nullptr;) {
            DWORD owner = 0;
            ::GetWindowThreadProcessId(box, &owner);
            if (owner != m_processId || !::IsWindowVisible(box))
                continue;
            char text[2048] = "", caption[256] = "";
            ::GetDlgItemTextA(box, 0xFFFF, text, sizeof text);
            ::GetWindowTextA(box, caption, sizeof caption);
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_seen.insert(box).second)
                m_boxes.push_back(caption + ("|" + std::string(text)));
            ::PostMessageA(box, WM_COMMAND, IDOK, 0);
        }
        m_running = true;
        ::Sleep(20);
    }
}

Lines BoxWatcher::Boxes()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_boxes, {});
}

Lines ProgramRun::Values(const std::string& key) const
{
    Lines values;
    for (const std::string& line : lines)
        if (line.compare(0, key.size() + 1, key + " ") == 0)
            values.push_back(line.substr(key.size() + 1));
    return values;
}

ProgramRun RunProgram(const std::string& name, const std::vector<EnvVar>& environment, const std::string& arguments,
                      const std::string& workingDirectory)
{
    ChildProcess process(CommandLine(name, arguments), environment, workingDirectory);
    BoxWatcher watcher(process.Id());
    const int exitCode = process.Wait();
    return {exitCode, process.Output(), SplitLines(process.Output()), watcher.Boxes()};
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
    std::vector<std::string> texts = Lines();
    for (std::string& line : texts)
        line.erase(0, line.find(" text=") + 6);
    return texts;
}

bool MonitorProgram::WaitForLines(size_t count, DWORD timeoutMs)
{
    for (const DWORD start = ::GetTickCount(); Lines().size() < count; ::Sleep(20))
        if (::GetTickCount() - start >= timeoutMs)
            return false;
    return true;
}

} // namespace kovratest
