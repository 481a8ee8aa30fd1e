// Reading CKOVRA.LOG after the event-line load: every expected line exactly once, every
// line well formed, nothing else in the file but the workers' own start-up and shut-down.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace stress {

struct EventLoad {
    int processes;
    int threads;
    int pairs;  // two lines each
};

struct EventLogFigures {
    long expected = 0;    // lines of the load
    long once = 0;        // of them found exactly once
    long missing = 0;
    long duplicated = 0;  // expected lines found more than once
    long malformed = 0;   // torn, interleaved or foreign bytes
    long foreign = 0;     // well formed, but neither expected nor a worker's own line
    long processLines = 0;  // the workers' start-up and shut-down lines

    long Lost() const { return missing + duplicated + malformed + foreign; }
};

// log: the whole file; basePath: the installation's base path as the lines show it.
EventLogFigures CheckEventLog(const std::string& log, const EventLoad& load, const std::string& basePath,
                              const std::vector<DWORD>& workerIds);

} // namespace stress
