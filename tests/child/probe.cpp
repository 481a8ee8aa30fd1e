// kovra_probe: loads kovra.dll at run time and prints what the library derived, so that
// tests can look at start-up from outside: the process counter, paths, settings, the
// shared file-type table and the registry. Message boxes shown while loading block the
// load until someone dismisses them: the test that starts the probe watches for them.
//
//   kovra_probe [--hold EVENT] [//CKOVRADIR:...]
//
// Output lines: "COUNT n", "BASE p", "DATA p", "WKSTA p", "REPEAT n", "OPTION n", "MAPPED n",
// "CWD p", "TYPE name location encryption" for every type, "SESSION count modulepath|user|client";
// with --hold "READY" and a wait for EVENT. Exit code 3 when the library didn't load.
//
// Copied to PRG\HANDLE.EXE it loads nothing and is a handle tool that never ends: its
// heading, one line "<its pid> <NAME>" with a lone CR and a BEL in it, then a minute's sleep.
#include <windows.h>

#include <cstdio>
#include <cstring>

#include "kovra/diag.h"

namespace {

template <typename Function>
Function Entry(HMODULE library, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(::GetProcAddress(library, name)));
}

void PrintState(HMODULE library)
{
    KovraSettings_S settings = {};
    Entry<int (*)(KovraSettings_S*)>(library, "KovraGetSettings")(&settings);
    char directory[MAX_PATH] = "";
    ::GetCurrentDirectoryA(sizeof directory, directory);
    std::printf("COUNT %d\nBASE %s\nDATA %s\nWKSTA %s\nREPEAT %d\nOPTION %d\nMAPPED %d\nCWD %s\n",
                static_cast<int>(settings.processCount), settings.basePath, settings.dataPath, settings.wkstaPath,
                settings.sharingViolationRepeat, settings.option, settings.sharedTableMapped, directory);
    auto getFileType = Entry<int (*)(int, FileType_S*)>(library, "KovraGetFileType");
    FileType_S type;
    for (int index = 0; getFileType(index, &type); ++index)
        std::printf("TYPE %s %d %d\n", type.name, static_cast<int>(type.location), static_cast<int>(type.encryption));
    auto getSession = Entry<int (*)(int, KovraSession_S*)>(library, "KovraGetSession");
    KovraSession_S session;
    for (int index = 0; getSession(index, &session); ++index)
        std::printf("SESSION %d %s|%s|%s\n", static_cast<int>(session.referenceCount), session.modulePath, session.user,
                    session.client);
    std::fflush(stdout);
}

bool RunsAsHandleTool()
{
    char path[MAX_PATH] = "";
    ::GetModuleFileNameA(nullptr, path, sizeof path);
    const char* name = std::strrchr(path, '\\');
    return name && ::lstrcmpiA(name + 1, "HANDLE.EXE") == 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (RunsAsHandleTool() && argc == 2) {
        std::printf("1\n2\n3\n4\n%lu %s\r\a\n", ::GetCurrentProcessId(), argv[1]);
        std::fflush(stdout);
        ::Sleep(60000);
        return 0;
    }
    HMODULE library = ::LoadLibraryA("kovra.dll");
    if (!library)
        return 3;
    PrintState(library);
    if (argc > 2 && std::strcmp(argv[1], "--hold") == 0) {
        std::printf("READY\n");
        std::fflush(stdout);
        if (HANDLE event = ::OpenEventA(SYNCHRONIZE, FALSE, argv[2])) {
            ::WaitForSingleObject(event, 60000);
            ::CloseHandle(event);
        }
    }
    ::FreeLibrary(library);
    return 0;
}
