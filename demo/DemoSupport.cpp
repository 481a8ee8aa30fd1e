#include "DemoSupport.h"

#include <fstream>

namespace kovrademo {

std::string ProgramDirectory()
{
    char path[MAX_PATH] = "";
    ::GetModuleFileNameA(nullptr, path, sizeof path);
    std::string text = path;
    return text.substr(0, text.find_last_of('\\') + 1);
}

std::string WithBackslash(std::string path)
{
    if (path.empty() || path.back() != '\\')
        path += '\\';
    return path;
}

std::string Quote(const std::string& text)
{
    return "\"" + text + "\"";
}

std::string QuoteDirectory(const std::string& directory)
{
    std::string path = directory;
    while (path.size() > 3 && path.back() == '\\')
        path.pop_back();
    return Quote(path);
}

bool FileExists(const std::string& path)
{
    return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void WriteTextFile(const std::string& path, const std::vector<std::string>& lines)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    for (const std::string& line : lines)
        file << line << "\r\n";
}

std::vector<std::string> ReadLines(const std::string& path)
{
    std::vector<std::string> lines;
    std::ifstream file(path, std::ios::binary);
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

Program::Program(const std::string& commandLine, bool quiet)
{
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    HANDLE nul = INVALID_HANDLE_VALUE;
    if (quiet) {
        SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
        nul = ::CreateFileA("NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                            OPEN_EXISTING, 0, nullptr);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = startup.hStdOutput = startup.hStdError = nul;
    }
    std::string command = commandLine;
    if (!::CreateProcessA(nullptr, &command[0], nullptr, nullptr, quiet ? TRUE : FALSE, 0, nullptr, nullptr,
                          &startup, &m_process))
        m_process = {};
    if (nul != INVALID_HANDLE_VALUE)
        ::CloseHandle(nul);
}

Program::~Program()
{
    if (!m_process.hProcess)
        return;
    Wait(0);
    ::CloseHandle(m_process.hThread);
    ::CloseHandle(m_process.hProcess);
}

int Program::Wait(DWORD timeoutMs)
{
    if (!m_process.hProcess)
        return -1;
    if (::WaitForSingleObject(m_process.hProcess, timeoutMs) != WAIT_OBJECT_0) {
        ::TerminateProcess(m_process.hProcess, 99);
        ::WaitForSingleObject(m_process.hProcess, 5000);
        return -1;
    }
    DWORD code = 0;
    ::GetExitCodeProcess(m_process.hProcess, &code);
    return static_cast<int>(code);
}

Event::Event(const char* purpose)
    : m_name("kovra-demo-" + std::to_string(::GetCurrentProcessId()) + "-" + purpose),
      m_event(::CreateEventA(nullptr, TRUE, FALSE, m_name.c_str()))
{
}

Event::~Event()
{
    if (m_event)
        ::CloseHandle(m_event);
}

bool Event::WaitFor(DWORD timeoutMs) const
{
    return m_event && ::WaitForSingleObject(m_event, timeoutMs) == WAIT_OBJECT_0;
}

void Event::Set() const
{
    if (m_event)
        ::SetEvent(m_event);
}

} // namespace kovrademo
