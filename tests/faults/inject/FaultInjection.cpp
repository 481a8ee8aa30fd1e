#include "FaultInjection.h"

#include <direct.h>
#include <io.h>
#include <malloc.h>
#include <winternl.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <type_traits>
#include <unordered_map>

namespace kovrafaults {

namespace {

const FaultCode kCodes[kFaultCount] = {
    {"sharing violation", ERROR_SHARING_VIOLATION, EACCES, 11},
    {"access denied", ERROR_ACCESS_DENIED, EACCES, 5},
    {"disk full", ERROR_DISK_FULL, ENOSPC, 13},
    {"path not found", ERROR_PATH_NOT_FOUND, ENOENT, 3},
    {"network name gone", ERROR_NETNAME_DELETED, EIO, 1},
    {"not enough memory", ERROR_NOT_ENOUGH_MEMORY, ENOMEM, 1},
};

DWORD g_armedThread = 0;
std::vector<int> g_counts;                        // of each hooked function, while armed
std::vector<std::pair<Failure, bool>> g_planned;  // and whether its call was made

// How a stand-in fails: with 0 (FALSE, null) or -1 (INVALID_HANDLE_VALUE, INVALID_FILE_ATTRIBUTES);
// a close runs the real function first: a close that fails has closed all the same.
enum : unsigned { kZero = 0, kMinusOne = 1, kClosesAnyway = 2 };

// An import of kovra.dll, by name, and what replaces it. The hooked functions come first, in
// the order of HookedFunctions.
struct Redirection {
    const char* name;
    void* replacement;
    void** real;  // the real function, taken from the slot it replaces
    unsigned failing;
};
const std::vector<Redirection>& Redirections();
std::vector<std::string> g_hookedNames;  // as Redirections lists them

// Counts a call of a hooked function; the fault it must fail with, or null to let it through.
const FaultCode* FaultOfNextCall(int index)
{
    if (g_armedThread != ::GetCurrentThreadId())
        return nullptr;
    const int ordinal = ++g_counts[static_cast<size_t>(index)];
    for (auto& [failure, met] : g_planned)
        if (failure.function == g_hookedNames[static_cast<size_t>(index)] && failure.ordinal == ordinal) {
            met = true;
            return &CodeOf(failure.fault);
        }
    return nullptr;
}

template <typename Result, typename Function, typename... Arguments>
Result Intercept(int index, Function real, Function failure, Arguments... arguments)
{
    const FaultCode* fault = FaultOfNextCall(index);
    if (!fault)
        return real(arguments...);
    const Redirection& hook = Redirections()[static_cast<size_t>(index)];
    if (hook.failing & kClosesAnyway)
        real(arguments...);
    Result result;
    if (failure)
        result = failure(arguments...);
    else if constexpr (std::is_pointer_v<Result>)
        result = hook.failing & kMinusOne ? reinterpret_cast<Result>(static_cast<INT_PTR>(-1)) : nullptr;
    else
        result = hook.failing & kMinusOne ? static_cast<Result>(-1) : Result{};
    if (hook.name[0] == '_' || std::islower(hook.name[0])) {  // a C run-time function
        errno = fault->crtErrno;
        _doserrno = fault->osError;
    }
    ::SetLastError(fault->osError);
    return result;
}

// The stand-in of one imported function of type Function; Id tells the functions of one type
// apart. Each calling convention needs a definition of its own.
template <int Id, typename Function>
struct StandIn;
#define KOVRA_FAULTS_STAND_IN(CONVENTION)                                                      \
    template <int Id, typename Result, typename... Arguments>                                  \
    struct StandIn<Id, Result(CONVENTION*)(Arguments...)> {                                    \
        static inline Result(CONVENTION* real)(Arguments...) = nullptr;                         \
        static inline Result(CONVENTION* failure)(Arguments...) = nullptr; /* a value won't do */ \
        static inline int index = -1;                                                          \
        static Result CONVENTION Call(Arguments... arguments)                                  \
        { return Intercept<Result>(index, real, failure, arguments...); }                      \
    };
KOVRA_FAULTS_STAND_IN(__cdecl)
#if defined(__i386__)
KOVRA_FAULTS_STAND_IN(__stdcall)
#endif

template <int Id, typename Function>
Redirection Redirect(const char* name, unsigned failing = kZero, Function failure = nullptr)
{
    using Stand = StandIn<Id, Function>;
    Stand::failure = failure;
    Stand::index = static_cast<int>(g_hookedNames.size());
    g_hookedNames.push_back(name);
    return {name, reinterpret_cast<void*>(&Stand::Call), reinterpret_cast<void**>(&Stand::real), failing};
}
#define HOOK(function, ...) Redirect<__COUNTER__, decltype(&::function)>(#function, ##__VA_ARGS__)

template <typename Function>
Redirection Plain(const char* name, Function replacement, Function* real)
{
    return {name, reinterpret_cast<void*>(replacement), reinterpret_cast<void**>(real), kZero};
}

// A profile service that can't read the file answers the default, or an empty section.
DWORD WINAPI ProfileStringUnread(LPCSTR, LPCSTR, LPCSTR defaultText, LPSTR buffer, DWORD size, LPCSTR)
{
    return buffer && size ? ::lstrlenA(::lstrcpynA(buffer, defaultText ? defaultText : "", static_cast<int>(size))) : 0;
}

DWORD WINAPI ProfileSectionUnread(LPCSTR, LPSTR buffer, DWORD size, LPCSTR)
{
    if (buffer && size > 1)
        buffer[0] = buffer[1] = '\0';
    return 0;
}

// The blocks that kovra.dll allocated and hasn't freed, with their sizes. Blocks it frees
// without having allocated them (objects a caller made with new, freed by its deleting
// destructor) don't count.
std::mutex g_heapLock;
std::unordered_map<void*, size_t> g_liveBlocks;

template <typename Block>
Block* Allocated(Block* block)
{
    std::lock_guard<std::mutex> hold(g_heapLock);
    if (block)
        g_liveBlocks[block] = _msize(block);
    return block;
}

void Released(void* block)
{
    std::lock_guard<std::mutex> hold(g_heapLock);
    g_liveBlocks.erase(block);
}

void* (__cdecl* g_malloc)(size_t) = nullptr;
void* (__cdecl* g_calloc)(size_t, size_t) = nullptr;
void* (__cdecl* g_realloc)(void*, size_t) = nullptr;
void (__cdecl* g_free)(void*) = nullptr;
char* (__cdecl* g_strdup)(const char*) = nullptr;
FARPROC (WINAPI* g_getProcAddress)(HMODULE, LPCSTR) = nullptr;

void* __cdecl CountedMalloc(size_t size) { return Allocated(g_malloc(size)); }
void* __cdecl CountedCalloc(size_t count, size_t size) { return Allocated(g_calloc(count, size)); }
char* __cdecl CountedStrdup(const char* text) { return Allocated(g_strdup(text)); }
void __cdecl CountedFree(void* block) { Released(block); g_free(block); }

void* __cdecl CountedRealloc(void* old, size_t size)
{
    void* block = g_realloc(old, size);
    if (block || size == 0) {  // the old block is gone: moved, resized or freed
        Released(old);
        Allocated(block);
    }
    return block;
}

// Functions that the library looks up at run time are redirected as its imports are.
FARPROC WINAPI RedirectingGetProcAddress(HMODULE module, LPCSTR name)
{
    FARPROC found = g_getProcAddress(module, name);
    if (found && !IS_INTRESOURCE(name))
        for (const Redirection& redirection : Redirections())
            if (std::strcmp(redirection.name, name) == 0) {
                *redirection.real = reinterpret_cast<void*>(found);
                return reinterpret_cast<FARPROC>(redirection.replacement);
            }
    return found;
}

// _sopen is variadic (the library always passes the permission argument), and the name and
// record of _stat differ between the two targets.
using OpenWithSharing = int(__cdecl*)(const char*, int, int, int);
using StatusByName = int(__cdecl*)(const char*, void*);

// Each hooked function fails with 0 unless marked.
const std::vector<Redirection>& Redirections()
{
    static const std::vector<Redirection> redirections = {
        HOOK(CreateFileA, kMinusOne), HOOK(ReadFile), HOOK(WriteFile), HOOK(SetFilePointerEx), HOOK(GetFileSizeEx),
        HOOK(SetEndOfFile), HOOK(FlushFileBuffers), HOOK(LockFile), HOOK(UnlockFile), HOOK(CloseHandle, kClosesAnyway),
        HOOK(GetFileAttributesA, kMinusOne), HOOK(GetFileAttributesExA), HOOK(SetFileAttributesA), HOOK(SetFileTime),
        HOOK(GetFullPathNameA), HOOK(DeleteFileA), HOOK(MoveFileA), HOOK(CopyFileA), HOOK(CreateDirectoryA),
        HOOK(RemoveDirectoryA), HOOK(SetCurrentDirectoryA), HOOK(GetCurrentDirectoryA),
        HOOK(FindFirstFileA, kMinusOne), HOOK(FindNextFileA), HOOK(FindClose, kClosesAnyway), HOOK(GetShortPathNameA),
        HOOK(GetLongPathNameA), HOOK(GetDiskFreeSpaceExA), HOOK(GetTempPathA), HOOK(GetTempFileNameA),
        HOOK(GetPrivateProfileStringA, kZero, &ProfileStringUnread), HOOK(WritePrivateProfileStringA),
        HOOK(GetPrivateProfileSectionA, kZero, &ProfileSectionUnread), HOOK(WritePrivateProfileSectionA),
        HOOK(CreateProcessA), HOOK(LoadLibraryA), Redirect<__COUNTER__, OpenWithSharing>("_sopen", kMinusOne),
        HOOK(_write, kMinusOne), HOOK(_read, kMinusOne), HOOK(_close, kClosesAnyway | kMinusOne),
        HOOK(_access, kMinusOne), HOOK(_unlink, kMinusOne), HOOK(_chdir, kMinusOne), HOOK(_chdrive, kMinusOne),
        Redirect<__COUNTER__, StatusByName>(sizeof(void*) == 8 ? "_stat64" : "_stat", kMinusOne), HOOK(fopen),
        HOOK(fgets), HOOK(fclose, kClosesAnyway | kMinusOne),
        Plain("malloc", &CountedMalloc, &g_malloc), Plain("calloc", &CountedCalloc, &g_calloc),
        Plain("realloc", &CountedRealloc, &g_realloc), Plain("free", &CountedFree, &g_free),
        Plain("_strdup", &CountedStrdup, &g_strdup),
        Plain("GetProcAddress", &RedirectingGetProcAddress, &g_getProcAddress),
    };
    return redirections;
}

bool Patch(ULONG_PTR& slot, const Redirection& redirection)
{
    if (!*redirection.real)
        *redirection.real = reinterpret_cast<void*>(slot);
    DWORD protection = 0;
    if (!::VirtualProtect(&slot, sizeof slot, PAGE_READWRITE, &protection))
        return false;
    slot = reinterpret_cast<ULONG_PTR>(redirection.replacement);
    ::VirtualProtect(&slot, sizeof slot, protection, &protection);
    return true;
}

bool PatchImportTable(BYTE* base)
{
    auto* headers = reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const DWORD imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* module = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + imports); module->Name; ++module) {
        const DWORD names = module->OriginalFirstThunk ? module->OriginalFirstThunk : module->FirstThunk;
        auto* name = reinterpret_cast<IMAGE_THUNK_DATA*>(base + names);
        for (auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + module->FirstThunk); name->u1.AddressOfData;
             ++name, ++slot) {
            if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal))
                continue;
            const char* function = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData)->Name;
            for (const Redirection& redirection : Redirections())
                if (std::strcmp(redirection.name, function) == 0 && !Patch(slot->u1.Function, redirection))
                    return false;
        }
    }
    return true;
}

// Wine counts no handles per process: they are counted in the system's list of every open handle.
long CountProcessHandles()
{
    static std::vector<char> buffer(1 << 16);
    NTSTATUS status;
    while ((status = ::NtQuerySystemInformation(SystemHandleInformation, buffer.data(),
                                                static_cast<ULONG>(buffer.size()), nullptr)) ==
           static_cast<NTSTATUS>(0xC0000004))  // the buffer is too small
        buffer.resize(buffer.size() * 2);
    if (status != 0)
        return -1;
    const auto* list = reinterpret_cast<const SYSTEM_HANDLE_INFORMATION*>(buffer.data());
    const DWORD self = ::GetCurrentProcessId();
    return static_cast<long>(std::count_if(list->Handle, list->Handle + list->Count,
                                           [self](const auto& entry) { return entry.OwnerPid == self; }));
}

} // namespace

const FaultCode& CodeOf(Fault fault) { return kCodes[static_cast<int>(fault)]; }

const std::vector<std::string>& HookedFunctions()
{
    Redirections();
    return g_hookedNames;
}

bool InstallHooks()
{
    static const bool installed = [] {
        HMODULE library = ::GetModuleHandleA("kovra.dll");
        return library && PatchImportTable(reinterpret_cast<BYTE*>(library));
    }();
    return installed;
}

ArmedRun RunArmed(const std::vector<Failure>& failures, const std::function<void()>& work)
{
    g_planned.clear();
    for (const Failure& failure : failures)
        g_planned.emplace_back(failure, false);
    g_counts.assign(HookedFunctions().size(), 0);
    ArmedRun run;
    g_armedThread = ::GetCurrentThreadId();
    try {
        work();
    } catch (...) {
        run.threw = true;
    }
    g_armedThread = 0;
    run.counts = g_counts;
    for (const auto& planned : g_planned)
        run.failuresMet = run.failuresMet && planned.second;
    return run;
}

Holdings CurrentHoldings()
{
    std::lock_guard<std::mutex> hold(g_heapLock);
    Holdings holdings{CountProcessHandles(), static_cast<long long>(g_liveBlocks.size()), 0};
    for (const auto& block : g_liveBlocks)
        holdings.heapBytes += static_cast<long long>(block.second);
    return holdings;
}

} // namespace kovrafaults
