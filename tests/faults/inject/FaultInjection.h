// Fault injection into kovra.dll, for tests only. The entries of the library's import
// table that name platform file functions (Win32 and C run-time) are redirected, from the
// test process, to stand-ins that count the calls and make a chosen call fail with a
// chosen error; every other call goes on to the real function. Functions the library looks
// up at run time are redirected through its GetProcAddress. The library itself carries
// no trace of this.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace kovrafaults {

enum class Fault { sharingViolation, accessDenied, diskFull, pathNotFound, networkNameGone, notEnoughMemory };
constexpr int kFaultCount = 6;

struct FaultCode {
    const char* name;
    DWORD osError;  // what a failed Win32 function leaves for GetLastError
    int crtErrno;   // what a failed C run-time function leaves in errno
    int cause;      // the library's cause number for osError
};
const FaultCode& CodeOf(Fault fault);

// Redirects the imports of the loaded kovra.dll, once per process; false when the library
// isn't loaded or one of its imports can't be redirected.
bool InstallHooks();

// The platform functions that can be failed; an index into this list names one below.
const std::vector<std::string>& HookedFunctions();
int FunctionIndex(const std::string& name);  // -1 for a name that isn't hooked

// Calls are counted, and failed, only while armed and only on the thread that armed.
void Arm();
void Disarm();
int CallCount(int function);  // calls since the last Arm

// The ordinal-th call (1 = the first after Arm) of function fails with fault; a run may
// hold several such failures. They stay until ClearFailures.
void FailCall(int function, int ordinal, Fault fault);
void ClearFailures();
bool AllFailuresMet();  // every failure set was met by its call

// What the process holds: its kernel handles, and the C run-time heap blocks and bytes
// that kovra.dll allocated and has not freed since InstallHooks.
struct Holdings {
    long handles = 0;
    long long heapBlocks = 0;
    long long heapBytes = 0;
};
Holdings CurrentHoldings();

} // namespace kovrafaults
