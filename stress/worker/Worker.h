// The loads that run inside the worker processes, each linked with the library. Every
// load returns the number of faults it saw itself (0 when all went as expected).
#pragma once

#include <windows.h>

#include <string>

namespace stress {

// Reports the process ready to the controller and waits until it lets every worker go.
bool WaitForStart(unsigned long controllerId);

// Runs count threads of procedure, each with its own context, and waits for them at most
// limitMs milliseconds. False when one of them hasn't finished by then.
bool RunThreads(int count, LPTHREAD_START_ROUTINE procedure, void* const* contexts, DWORD limitMs);

// Milliseconds since the system started.
inline ULONGLONG Now()
{
    return ::GetTickCount64();
}

// threads threads, each writing pairs start/remove pairs of event lines.
int WriteEventLines(int process, int threads, int pairs);

// threads threads starting, binding, changing and removing sessions for milliseconds, then
// the registry compared with what the threads say must be in it.
int ChurnRegistry(int threads, DWORD milliseconds);

// A worker renaming, backing up, removing and making files; the holder keeping them open.
int MoveFiles(int index, DWORD milliseconds, const std::string& journal);
int HoldFiles(DWORD milliseconds, const std::string& journal);

} // namespace stress
