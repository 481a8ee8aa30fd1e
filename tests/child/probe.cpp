// kovra_probe: loads kovra.dll at run time and prints what the library derived, so that
// tests can look at start-up from outside: the process counter, paths, settings and the
// shared file-type table. Message boxes shown while loading block the
// load until someone dismisses them: the test that starts the probe watches for them.
//
//   kovra_probe [--hold EVENT] [//CKOVRADIR:...]
//
// Output lines: "COUNT n", "BASE p", "DATA p", "WKSTA p", "OPTION n", "MAPPED n", "CWD p",
// and "TYPE name location encryption" for every type; with --hold "READY" and a wait for EVENT.
// Exit code 3 when the library didn't load.
//
// Copied to PRG\HANDLE.EXE and given a file's NAME, it loads nothing and is a handle tool that
// never ends: its heading, one line "<its pid> <NAME>" with a lone CR and a BEL in it, then a
// minute's sleep.
#include <cstdio>
#include <cstring>

#include "TestSupport.h"

using namespace kovratest;

int main(int argc, char** argv)
{
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    if (argc == 2 && argv[1][0] != '-' && argv[1][0] != '/') {  // a file's name: the handle tool's one argument
        std::printf("1\n2\n3\n4\n%lu %s\r\a\n", ::GetCurrentProcessId(), argv[1]);
        ::Sleep(60000);
        return 0;
    }
    HMODULE library = ::LoadLibraryA("kovra.dll");
    if (!library)
        return 3;
    KovraSettings_S settings = {};
    Entry<decltype(&KovraGetSettings)>(library, "KovraGetSettings")(&settings);
    std::printf("COUNT %d\nBASE %s\nDATA %s\nWKSTA %s\nOPTION %d\nMAPPED %d\nCWD %s\n",
                static_cast<int>(settings.processCount), settings.basePath, settings.dataPath, settings.wkstaPath,
                settings.option, settings.sharedTableMapped, std::filesystem::current_path().string().c_str());
    for (const std::string& type : FileTypes(library))
        std::printf("TYPE %s\n", type.c_str());
    if (argc > 2 && std::strcmp(argv[1], "--hold") == 0) {
        std::printf("READY\n");
        ::WaitForSingleObject(::OpenEventA(SYNCHRONIZE, FALSE, argv[2]), 60000);
    }
    ::FreeLibrary(library);
}
