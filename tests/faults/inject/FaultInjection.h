// Fault injection into kovra.dll, for tests only: the library's imports of platform file
// functions (and those it looks up with GetProcAddress) are redirected to stand-ins that count
// the calls and fail a chosen one with a chosen error, its heap calls to count what it holds.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

namespace kovrafaults {

enum class Fault { sharingViolation, accessDenied, diskFull, pathNotFound, networkNameGone, notEnoughMemory };
constexpr int kFaultCount = 6;

struct FaultCode {
    const char* name;
    DWORD osError;  // left for GetLastError by a failed Win32 function
    int crtErrno;   // left in errno by a failed C run-time function
    int cause;      // the library's cause number for osError
};
const FaultCode& CodeOf(Fault fault);

// Redirects the imports of the loaded kovra.dll, once per process; false when it can't.
bool InstallHooks();
const std::vector<std::string>& HookedFunctions();

struct Failure {
    std::string function;
    int ordinal;  // 1: the function's first call in the run
    Fault fault;
};
struct ArmedRun {
    std::vector<int> counts;  // calls of each function, as HookedFunctions lists them
    bool failuresMet = true;  // every failure was met by its call
    bool threw = false;
};
// Runs work with the calls of this thread counted and the failures made.
ArmedRun RunArmed(const std::vector<Failure>& failures, const std::function<void()>& work);

// The process's kernel handles, and the heap blocks kovra.dll allocated since InstallHooks
// and has not freed.
struct Holdings {
    long handles = 0;
    long long heapBlocks = 0, heapBytes = 0;
};
Holdings CurrentHoldings();

} // namespace kovrafaults
