#include "Support.h"

#include <cstdio>
#include <cstring>

namespace bench {

void MakeDirectories(const std::string& directory)
{
    for (size_t next = directory.find('\\', 3); next != std::string::npos; next = directory.find('\\', next + 1))
        ::CreateDirectoryA(directory.substr(0, next).c_str(), nullptr);
    ::CreateDirectoryA(directory.c_str(), nullptr);
}

void WriteFileBytes(const std::string& path, const std::string& bytes)
{
    MakeDirectories(path.substr(0, path.rfind('\\')));
    HANDLE file = ::CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written = 0;
    ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    ::CloseHandle(file);
}

DWORD RunThisProgram(const std::string& arguments, const char* variable, const std::string& value)
{
    char program[MAX_PATH];
    ::GetModuleFileNameA(nullptr, program, sizeof program);
    std::string command = std::string("\"") + program + "\" " + arguments;
    ::SetEnvironmentVariableA(variable, value.c_str());
    std::fflush(stdout);
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    const BOOL started =
        ::CreateProcessA(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
    if (!started)
        return ~DWORD{0};
    ::WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = ~DWORD{0};
    ::GetExitCodeProcess(process.hProcess, &code);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    return code;
}

bool ReadLineByFloor(HANDLE file, char* line, bool text)
{
    char block[512];
    DWORD filled = 0;
    if (!::ReadFile(file, block, sizeof block, &filled, nullptr) || filled == 0)
        return false;
    const char* end = static_cast<const char*>(std::memchr(block, '\n', filled));
    const DWORD used = end ? static_cast<DWORD>(end - block + 1) : filled;
    size_t stored = 0;
    for (DWORD index = 0; index < used; ++index)
        if (!text || (block[index] != '\r' && block[index] != '\n'))
            line[stored++] = block[index];
    line[stored] = '\0';
    if (used < filled)
        ::SetFilePointer(file, -static_cast<LONG>(filled - used), nullptr, FILE_CURRENT);
    return true;
}

const char* TargetName()
{
    return sizeof(void*) == 4 ? "i686 (32-bit)" : "x86_64 (64-bit)";
}

} // namespace bench
