#include "tarnel31.h"

#include <windows.h>

#include <cstring>

namespace {

// Answers may be longer than a Windows path: callers bound what they copy.
constexpr DWORD kAnswerSize = 2048;

thread_local char t_wkstaDir[kAnswerSize];
thread_local char t_wkstaTmpDir[kAnswerSize];

void EnsureBackslash(char* path)
{
    size_t length = std::strlen(path);
    if (length > 0 && path[length - 1] != '\\' && length + 1 < kAnswerSize) {
        path[length] = '\\';
        path[length + 1] = '\0';
    }
}

bool ReadVariable(const char* name, char* answer)
{
    DWORD length = ::GetEnvironmentVariableA(name, answer, kAnswerSize);
    if (length == 0 || length >= kAnswerSize) {
        answer[0] = '\0';
        return false;
    }
    EnsureBackslash(answer);
    return true;
}

void DefaultWkstaDir(char* answer)
{
    char computer[MAX_COMPUTERNAME_LENGTH + 1] = "WKSTA";
    DWORD size = sizeof computer;
    if (!::GetComputerNameA(computer, &size))
        std::strcpy(computer, "WKSTA");
    std::strcpy(answer, "C:\\KOVRA\\DAT\\");
    std::strcat(answer, computer);
    std::strcat(answer, "\\");
}

} // namespace

extern "C" const char* TarnelWkstaDir(int)
{
    if (!ReadVariable("TARNEL31_WKSTA", t_wkstaDir))
        DefaultWkstaDir(t_wkstaDir);
    return t_wkstaDir;
}

extern "C" const char* TarnelWkstaTmpDir(int)
{
    if (ReadVariable("TARNEL31_WKSTATMP", t_wkstaTmpDir))
        return t_wkstaTmpDir;
    const char* wksta = TarnelWkstaDir(0);
    if (std::strlen(wksta) + 4 < kAnswerSize) {
        std::strcpy(t_wkstaTmpDir, wksta);
        std::strcat(t_wkstaTmpDir, "TMP\\");
    } else {
        t_wkstaTmpDir[0] = '\0';
    }
    return t_wkstaTmpDir;
}
