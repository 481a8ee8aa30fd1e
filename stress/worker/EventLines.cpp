// Event lines from many threads: each pair starts and removes a session of its own, so
// that the log must hold its "*StartSession" and its "*RemoveSession" line exactly once.
#include <atomic>
#include <cstdio>
#include <vector>

#include "../Shared.h"
#include "Worker.h"
#include "kovra/kovra.h"

namespace stress {

namespace {

struct EventWriter {
    int process;
    int thread;
    int pairs;
    std::atomic<int>* faults;
};

DWORD WINAPI WriteEvents(void* context)
{
    const EventWriter& writer = *static_cast<EventWriter*>(context);
    for (int pair = 0; pair < writer.pairs; ++pair) {
        void* session = SessionPointer(EventSession(writer.process, writer.thread, pair));
        // A fresh session is created and then removed: anything else is a fault of the registry.
        if (CKovra::StartSession(session) != 1 || CKovra::RemoveSession(session) != 1)
            ++*writer.faults;
    }
    return 0;
}

} // namespace

int WriteEventLines(int process, int threads, int pairs)
{
    if (process < 0 || process >= kMaxEventProcesses || threads < 1 || threads > kMaxEventThreads || pairs < 1 ||
        pairs > kMaxEventPairs)
        return 100;
    std::atomic<int> faults{0};
    std::vector<EventWriter> writers;
    std::vector<void*> contexts;
    for (int thread = 0; thread < threads; ++thread)
        writers.push_back(EventWriter{process, thread, pairs, &faults});
    for (EventWriter& writer : writers)
        contexts.push_back(&writer);
    if (!RunThreads(threads, WriteEvents, contexts.data(), INFINITE))
        return 100;
    if (faults > 0)
        std::printf("events: process %d: %d calls of the registry answered wrongly\n", process, faults.load());
    return faults;
}

} // namespace stress
