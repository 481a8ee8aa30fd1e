#include "frame/InstallationPaths.h"

#include <cstdlib>
#include <cstring>

#include "platform/Text.h"

void CutBehindLastDataDirectory(char* path)
{
    char* last = nullptr;
    for (char* hit = std::strstr(path, "\\DAT\\"); hit; hit = std::strstr(hit + 1, "\\DAT\\"))
        last = hit;
    if (last)
        last[1] = '\0';
}

void BuildConfigFileName(char (&name)[kPathBufferSize])
{
    const char* home = std::getenv("KARVELO-CKOVRAHOME");
    if (!home) {
        CopyText(name, "DAT\\CKOVRA.INI");
        return;
    }
    CopyText(name, home);
    if (!EndsWithBackslash(name))
        AppendText(name, "\\");
    AppendText(name, "CKOVRA.INI");
}
