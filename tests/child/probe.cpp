// kovra_probe: loads kovra.dll at run time and prints what the library derived, so that
// tests can look at start-up from outside: the process counter, paths, settings, the
// shared file-type table and the registry. Message boxes shown while loading block the
// load until someone dismisses them: the test that starts the probe watches for them.
//
//   kovra_probe [--hold EVENT] [--keep-loaded]
//
// Output lines: "LOAD 1" or "LOAD 0 <error>", then "COUNT n",
// "BASE p", "DATA p", "READONLY p", "WKSTA p", "WKSTATMP p", "DEBUG n", "REPEAT n",
// "OPTION n", "MAPPED n", "CWD p", "TYPE name location encryption" for every type,
// "SESSION count modulepath|user|client", "THREAD tid"; with --hold "READY" and a wait
// for EVENT; then "UNLOADED".
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
    auto getSettings = Entry<int (*)(KovraSettings_S*)>(library, "KovraGetSettings");
    auto getFileType = Entry<int (*)(int, FileType_S*)>(library, "KovraGetFileType");
    auto getSession = Entry<int (*)(int, KovraSession_S*)>(library, "KovraGetSession");
    auto getBinding = Entry<int (*)(int, void**, unsigned long*)>(library, "KovraGetThreadBinding");
    KovraSettings_S settings = {};
    getSettings(&settings);
    std::printf("COUNT %d\nBASE %s\nDATA %s\nREADONLY %s\nWKSTA %s\nWKSTATMP %s\n", static_cast<int>(settings.processCount),
                settings.basePath, settings.dataPath, settings.readOnlyPath, settings.wkstaPath, settings.wkstaTmpPath);
    std::printf("DEBUG %d\nREPEAT %d\nOPTION %d\nMAPPED %d\n", settings.debugLevel, settings.sharingViolationRepeat,
                settings.option, settings.sharedTableMapped);
    char directory[MAX_PATH] = "";
    ::GetCurrentDirectoryA(sizeof directory, directory);
    std::printf("CWD %s\n", directory);
    FileType_S type;
    for (int index = 0; getFileType(index, &type); ++index)
        std::printf("TYPE %s %d %d\n", type.name, static_cast<int>(type.location), static_cast<int>(type.encryption));
    KovraSession_S session;
    for (int index = 0; getSession(index, &session); ++index)
        std::printf("SESSION %d %s|%s|%s\n", static_cast<int>(session.referenceCount), session.modulePath, session.user,
                    session.client);
    unsigned long threadId = 0;
    for (int index = 0; getBinding(index, nullptr, &threadId); ++index)
        std::printf("THREAD %lu\n", threadId);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    const char* holdEvent = nullptr;
    for (int index = 1; index < argc; ++index)
        if (std::strcmp(argv[index], "--hold") == 0 && index + 1 < argc)
            holdEvent = argv[++index];

    HMODULE library = ::LoadLibraryA("kovra.dll");
    DWORD error = ::GetLastError();
    if (!library) {
        std::printf("LOAD 0 %lu\n", error);
    } else {
        std::printf("LOAD 1\n");
        PrintState(library);
        if (holdEvent) {
            std::printf("READY\n");
            std::fflush(stdout);
            HANDLE event = ::OpenEventA(SYNCHRONIZE, FALSE, holdEvent);
            if (event) {
                ::WaitForSingleObject(event, 60000);
                ::CloseHandle(event);
            }
        }
        ::FreeLibrary(library);
    }
    std::printf("UNLOADED\n");
    std::fflush(stdout);
    return library ? 0 : 3;
}
