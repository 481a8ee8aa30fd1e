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

bool BuildConfigFileName(char (&name)[kPathBufferSize])
{
    const char* home = std::getenv(kConfigHomeVariable);
    if (!home)
        return CopyText(name, "DAT\\CKOVRA.INI");
    if (CopyText(name, home) && EnsureTrailingBackslash(name) && AppendText(name, "CKOVRA.INI"))
        return true;
    name[0] = '\0';  // a cut name could name another file
    return false;
}
