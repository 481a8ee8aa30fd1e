// kovra_stress_worker: one process of a stress load, started by kovra_stress.
//
//   kovra_stress_worker events CONTROLLER PROCESS THREADS PAIRS
//   kovra_stress_worker registry CONTROLLER THREADS MILLISECONDS
//   kovra_stress_worker mover CONTROLLER INDEX MILLISECONDS JOURNAL
//   kovra_stress_worker holder CONTROLLER MILLISECONDS JOURNAL
//
// Each waits for the controller's start signal, runs its load and exits with the number
// of faults it saw (capped at 100), 2 for wrong arguments.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "../Shared.h"
#include "Worker.h"

namespace stress {

bool WaitForStart(unsigned long controllerId)
{
    HANDLE ready = ::OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, SignalName(kReadySemaphorePrefix, controllerId).c_str());
    HANDLE go = ::OpenEventA(SYNCHRONIZE, FALSE, SignalName(kGoEventPrefix, controllerId).c_str());
    bool started = ready && go && ::ReleaseSemaphore(ready, 1, nullptr) && ::WaitForSingleObject(go, 120000) == WAIT_OBJECT_0;
    if (ready)
        ::CloseHandle(ready);
    if (go)
        ::CloseHandle(go);
    return started;
}

bool RunThreads(int count, LPTHREAD_START_ROUTINE procedure, void* const* contexts, DWORD limitMs)
{
    bool finished = true;
    HANDLE threads[MAXIMUM_WAIT_OBJECTS] = {};
    if (count > MAXIMUM_WAIT_OBJECTS)
        return false;
    for (int index = 0; index < count; ++index)
        threads[index] = ::CreateThread(nullptr, 0, procedure, contexts[index], 0, nullptr);
    for (int index = 0; index < count; ++index) {
        if (!threads[index])
            finished = false;
    }
    if (finished)
        finished = ::WaitForMultipleObjects(count, threads, TRUE, limitMs) == WAIT_OBJECT_0;
    for (int index = 0; index < count; ++index) {
        if (threads[index])
            ::CloseHandle(threads[index]);
    }
    return finished;
}

} // namespace stress

namespace {

int Number(const char* text)
{
    return std::atoi(text);
}

DWORD Milliseconds(const char* text)
{
    return static_cast<DWORD>(std::strtoul(text, nullptr, 10));
}

struct Load {
    const char* name;
    int argumentCount;  // argc, the program's name included
    int (*run)(char** argv);
};

const Load kLoads[] = {
    {"events", 6, [](char** argv) { return stress::WriteEventLines(Number(argv[3]), Number(argv[4]), Number(argv[5])); }},
    {"registry", 5, [](char** argv) { return stress::ChurnRegistry(Number(argv[3]), Milliseconds(argv[4])); }},
    {"mover", 6, [](char** argv) { return stress::MoveFiles(Number(argv[3]), Milliseconds(argv[4]), argv[5]); }},
    {"holder", 5, [](char** argv) { return stress::HoldFiles(Milliseconds(argv[3]), argv[4]); }},
};

} // namespace

int main(int argc, char** argv)
{
    const Load* load = nullptr;
    for (const Load& candidate : kLoads) {
        if (argc == candidate.argumentCount && std::strcmp(argv[1], candidate.name) == 0)
            load = &candidate;
    }
    if (!load) {
        std::fprintf(stderr, "kovra_stress_worker: unknown load or arguments\n");
        return 2;
    }
    if (!stress::WaitForStart(std::strtoul(argv[2], nullptr, 10))) {
        std::fprintf(stderr, "kovra_stress_worker: no start signal from the controller\n");
        return 100;
    }
    int faults = load->run(argv);
    return faults > 100 ? 100 : faults;
}
