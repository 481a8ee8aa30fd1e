// kovra_child: a second process for tests, linked with kovra.dll.
//
//   kovra_child open TYPE NAME OPTIONS EVENT    opens, prints "OPEN <result>", holds until EVENT
//   kovra_child addtype NAME LOCATION           adds the type to the shared table
//   kovra_child orphan                          a failure read without and with its cause, then a lookup
//                                               and a setter without any session: "ANSWER CAUSE REAL SETUSER"
//   kovra_child                                 loads the library and ends
//   kovra_child stall                           a "Debug-Monitor" window that doesn't answer, "STALLING",
//                                               for longer than a test may take (the test ends it)
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "kovra/kovra.h"

int main(int argc, char** argv)
{
    std::setvbuf(stdout, nullptr, _IONBF, 0);  // each line reaches the test as it is printed
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "stall" && argc == 2) {
        ::CreateWindowExA(0, "#32770", "Debug-Monitor", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
        std::printf("STALLING\n");
        ::Sleep(300000);  // not looking at its messages
    } else if (command == "open" && argc == 6) {
        CKovra file(argv[2], argv[3], std::strtoul(argv[4], nullptr, 10));
        std::printf("OPEN %d\n", file.IsOpen());
        // Until the test sets the event: on a busy machine a held file may be needed for longer than a
        // minute, and a test that fails ends the child with its own end.
        ::WaitForSingleObject(::OpenEventA(SYNCHRONIZE, FALSE, argv[5]), 600000);
    } else if (command == "addtype" && argc == 4) {
        return CKovra::AddFileType(argv[2], std::atoi(argv[3]), 1) == 1 ? 0 : 1;
    } else if (command == "orphan" && argc == 2) {
        CKovra file("NOPE", "F.TXT", KOVRA_RESOLVE_ONLY);
        const int answer = file.GetLastError();
        file.Open("DFT", "MISSING.TXT", KOVRA_READ);
        int cause = 0;
        file.GetLastError(&cause);
        void* own = reinterpret_cast<void*>(static_cast<INT_PTR>(::GetCurrentProcessId()));
        CKovra::RemoveThread(own, ::GetCurrentThreadId());
        CKovra::RemoveSession(own);
        const std::string real = file.GetRealFileName("DFT", "F.TXT");
        std::printf("%d %d %s %d\n", answer, cause, real.c_str(), CKovra::SetUser("U1"));
    } else if (argc > 1) {
        return 2;  // an unknown command or the wrong number of arguments
    }
}
