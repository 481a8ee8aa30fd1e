// kovra_child: a second process for tests, linked with kovra.dll.
//
//   kovra_child open TYPE NAME OPTIONS EVENT    opens, prints "OPEN <result>", holds until EVENT
//   kovra_child hold-for TYPE NAME OPTIONS MS   opens, prints "OPEN <result>", holds for MS ms
//   kovra_child lock TYPE NAME POS COUNT EVENT  opens read/write, prints "LOCK <result>", holds
//   kovra_child events N                        N StartSession/RemoveSession pairs (event lines)
//   kovra_child trace EVENT                     two traces, "SENT 1 tid=T module=M", waits for EVENT,
//                                               "SENT 2"
//   kovra_child resolve TYPE NAME               prints "REAL <path>" or "ERROR <text>"
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kovra/kovra.h"

namespace {

void WaitForEvent(const char* name)
{
    HANDLE event = ::OpenEventA(SYNCHRONIZE, FALSE, name);
    if (event) {
        ::WaitForSingleObject(event, 60000);
        ::CloseHandle(event);
    }
}

void Say(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::fflush(stdout);
}

int Open(char** argv, bool untilEvent)
{
    CKovra file(argv[2], argv[3], std::strtoul(argv[4], nullptr, 10));
    Say("OPEN %d\n", file.IsOpen());
    if (untilEvent)
        WaitForEvent(argv[5]);
    else
        ::Sleep(std::strtoul(argv[5], nullptr, 10));
    return 0;
}

int Lock(char** argv)
{
    CKovra file(argv[2], argv[3], KOVRA_READWRITE);
    Say("LOCK %d\n", file.Lock(std::atol(argv[4]), std::atoi(argv[5])));
    WaitForEvent(argv[6]);
    return 0;
}

int Events(char** argv)
{
    const int count = std::atoi(argv[2]);
    const int base = static_cast<int>(::GetCurrentProcessId()) * 1000;
    for (int index = 0; index < count; ++index) {
        void* session = reinterpret_cast<void*>(static_cast<INT_PTR>(base + index));
        CKovra::StartSession(session);
        CKovra::RemoveSession(session);
    }
    Say("DONE\n");
    return 0;
}

int Trace(char** argv)
{
    CKovra::SetDebugLevel(1);
    CKovra::StartSession(reinterpret_cast<void*>(1234));
    // What the trace record's header should carry: this thread and the executable's handle.
    Say("SENT 1 tid=%lu module=%llx\n", ::GetCurrentThreadId(),
        static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(::GetModuleHandleA(nullptr))));
    WaitForEvent(argv[2]);
    CKovra::RemoveSession(reinterpret_cast<void*>(1234));
    Say("SENT 2\n");
    return 0;
}

int Resolve(char** argv)
{
    CKovra file;
    const char* real = file.GetRealFileName(argv[2], argv[3]);
    char message[512] = "";
    if (file.GetLastError(nullptr, message, sizeof message))
        Say("ERROR %s\n", message);
    else
        Say("REAL %s\n", real);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "open" && argc == 6)
        return Open(argv, true);
    if (command == "hold-for" && argc == 6)
        return Open(argv, false);
    if (command == "lock" && argc == 7)
        return Lock(argv);
    if (command == "events" && argc == 3)
        return Events(argv);
    if (command == "trace" && argc == 3)
        return Trace(argv);
    if (command == "resolve" && argc == 4)
        return Resolve(argv);
    std::fprintf(stderr, "kovra_child: unknown command or arguments\n");
    return 2;
}
