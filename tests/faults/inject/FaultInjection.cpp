#include "FaultInjection.h"

#include <direct.h>
#include <io.h>
#include <malloc.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <type_traits>
#include <unordered_map>

namespace kovrafaults {

namespace {

constexpr char kKernel[] = "KERNEL32.dll";
constexpr char kRuntime[] = "msvcrt.dll";

const FaultCode kCodes[kFaultCount] = {
    {"sharing violation", ERROR_SHARING_VIOLATION, EACCES, 11},
    {"access denied", ERROR_ACCESS_DENIED, EACCES, 5},
    {"disk full", ERROR_DISK_FULL, ENOSPC, 13},
    {"path not found", ERROR_PATH_NOT_FOUND, ENOENT, 3},
    {"network name gone", ERROR_NETNAME_DELETED, EIO, 1},
    {"not enough memory", ERROR_NOT_ENOUGH_MEMORY, ENOMEM, 1},
};

// ---- counting and failing ---------------------------------------------------------------------

struct Planned {
    Failure failure;
    bool met;
};
DWORD g_armedThread = 0;
std::vector<int> g_counts;
std::vector<Planned> g_planned;

// Counts a call of function; the fault it must fail with, or null to let it through.
const FaultCode* FaultOfNextCall(int function)
{
    if (g_armedThread != ::GetCurrentThreadId())
        return nullptr;
    const int ordinal = ++g_counts[static_cast<size_t>(function)];
    for (Planned& planned : g_planned)
        if (planned.failure.function == function && planned.failure.ordinal == ordinal) {
            planned.met = true;
            return &CodeOf(planned.failure.fault);
        }
    return nullptr;
}

// How a stand-in fails: with 0 (FALSE, null), or -1 (INVALID_HANDLE_VALUE,
// INVALID_FILE_ATTRIBUTES); a close runs the real function first, as a close that fails has
// still closed and the caller must not be left holding the handle.
enum : unsigned { kZero = 0, kMinusOne = 1, kClosesAnyway = 2 };

struct Hook {
    int index = -1;  // in HookedFunctions
    unsigned failing = kZero;
    bool runtime = false;  // a C run-time function: its failure sets errno too
};

template <typename Result, typename Function, typename... Arguments>
Result Intercept(const Hook& hook, Function real, Function failure, Arguments... arguments)
{
    const FaultCode* fault = FaultOfNextCall(hook.index);
    if (!fault)
        return real(arguments...);
    if (hook.failing & kClosesAnyway)
        real(arguments...);
    Result result;
    if (failure)
        result = failure(arguments...);
    else if constexpr (std::is_pointer_v<Result>)
        result = hook.failing & kMinusOne ? reinterpret_cast<Result>(static_cast<INT_PTR>(-1)) : nullptr;
    else
        result = hook.failing & kMinusOne ? static_cast<Result>(-1) : Result{};
    if (hook.runtime) {
        errno = fault->crtErrno;
        _doserrno = fault->osError;
    }
    ::SetLastError(fault->osError);
    return result;
}

// The stand-in of one imported function of type Function; Id tells the functions of one
// type apart. Each calling convention needs a definition of its own.
template <int Id, typename Function>
struct StandIn;

#define KOVRA_FAULTS_STAND_IN(CONVENTION)                                                     \
    template <int Id, typename Result, typename... Arguments>                                 \
    struct StandIn<Id, Result(CONVENTION*)(Arguments...)> {                                   \
        using Function = Result(CONVENTION*)(Arguments...);                                   \
        static inline Function real = nullptr;                                                \
        static inline Function failure = nullptr; /* gives the failure where a value won't do */ \
        static inline Hook hook;                                                              \
        static Result CONVENTION Call(Arguments... arguments)                                 \
        {                                                                                     \
            return Intercept<Result>(hook, real, failure, arguments...);                      \
        }                                                                                     \
    };
KOVRA_FAULTS_STAND_IN(__cdecl)
#if defined(__i386__)
KOVRA_FAULTS_STAND_IN(__stdcall)
#endif

struct Redirection {
    const char* module;
    const char* name;
    void* replacement;
    void** real;
    Hook* hook;  // null for the heap accounting and the look-up
};

template <int Id, typename Function>
Redirection Redirect(const char* module, const char* name, unsigned failing, Function failure = nullptr)
{
    using Stand = StandIn<Id, Function>;
    Stand::failure = failure;
    Stand::hook = {-1, failing, std::strcmp(module, kRuntime) == 0};
    return {module, name, reinterpret_cast<void*>(&Stand::Call), reinterpret_cast<void**>(&Stand::real), &Stand::hook};
}

#define HOOK(module, function, ...) Redirect<__COUNTER__, decltype(&::function)>(module, #function, __VA_ARGS__)

// Failures that a return value alone doesn't describe: a profile service that can't read
// the file gives the default, or an empty section.
DWORD WINAPI ProfileStringUnread(LPCSTR, LPCSTR, LPCSTR defaultText, LPSTR buffer, DWORD size, LPCSTR)
{
    if (!buffer || size == 0)
        return 0;
    ::lstrcpynA(buffer, defaultText ? defaultText : "", static_cast<int>(size));
    return static_cast<DWORD>(::lstrlenA(buffer));
}

DWORD WINAPI ProfileSectionUnread(LPCSTR, LPSTR buffer, DWORD size, LPCSTR)
{
    if (buffer && size > 1)
        buffer[0] = buffer[1] = '\0';
    return 0;
}

// _sopen is variadic (the library always passes the permission argument), and the name and
// record of _stat differ between the two targets.
using OpenWithSharing = int(__cdecl*)(const char*, int, int, int);
using StatusByName = int(__cdecl*)(const char*, void*);
#if defined(_WIN64)
constexpr char kStatusFunction[] = "_stat64";
#else
constexpr char kStatusFunction[] = "_stat";
#endif

const std::vector<Redirection>& FaultRedirections()
{
    static const std::vector<Redirection> redirections = {
        HOOK(kKernel, CreateFileA, kMinusOne), HOOK(kKernel, ReadFile, kZero), HOOK(kKernel, WriteFile, kZero),
        HOOK(kKernel, SetFilePointerEx, kZero), HOOK(kKernel, GetFileSizeEx, kZero),
        HOOK(kKernel, SetEndOfFile, kZero), HOOK(kKernel, FlushFileBuffers, kZero), HOOK(kKernel, LockFile, kZero),
        HOOK(kKernel, UnlockFile, kZero), HOOK(kKernel, CloseHandle, kClosesAnyway),
        HOOK(kKernel, GetFileAttributesA, kMinusOne), HOOK(kKernel, GetFileAttributesExA, kZero),
        HOOK(kKernel, SetFileAttributesA, kZero), HOOK(kKernel, SetFileTime, kZero),
        HOOK(kKernel, GetFullPathNameA, kZero), HOOK(kKernel, DeleteFileA, kZero), HOOK(kKernel, MoveFileA, kZero),
        HOOK(kKernel, CopyFileA, kZero), HOOK(kKernel, CreateDirectoryA, kZero),
        HOOK(kKernel, RemoveDirectoryA, kZero), HOOK(kKernel, SetCurrentDirectoryA, kZero),
        HOOK(kKernel, GetCurrentDirectoryA, kZero), HOOK(kKernel, FindFirstFileA, kMinusOne),
        HOOK(kKernel, FindNextFileA, kZero), HOOK(kKernel, FindClose, kClosesAnyway),
        HOOK(kKernel, GetShortPathNameA, kZero), HOOK(kKernel, GetLongPathNameA, kZero),
        HOOK(kKernel, GetDiskFreeSpaceExA, kZero), HOOK(kKernel, GetTempPathA, kZero),
        HOOK(kKernel, GetTempFileNameA, kZero), HOOK(kKernel, GetPrivateProfileStringA, kZero, &ProfileStringUnread),
        HOOK(kKernel, WritePrivateProfileStringA, kZero),
        HOOK(kKernel, GetPrivateProfileSectionA, kZero, &ProfileSectionUnread),
        HOOK(kKernel, WritePrivateProfileSectionA, kZero), HOOK(kKernel, CreateProcessA, kZero),
        HOOK(kKernel, LoadLibraryA, kZero), Redirect<__COUNTER__, OpenWithSharing>(kRuntime, "_sopen", kMinusOne),
        HOOK(kRuntime, _write, kMinusOne), HOOK(kRuntime, _read, kMinusOne),
        HOOK(kRuntime, _close, kClosesAnyway | kMinusOne), HOOK(kRuntime, _access, kMinusOne),
        Redirect<__COUNTER__, StatusByName>(kRuntime, kStatusFunction, kMinusOne), HOOK(kRuntime, _unlink, kMinusOne),
        HOOK(kRuntime, _chdir, kMinusOne), HOOK(kRuntime, _chdrive, kMinusOne), HOOK(kRuntime, fopen, kZero),
        HOOK(kRuntime, fgets, kZero), HOOK(kRuntime, fclose, kClosesAnyway | kMinusOne),
    };
    return redirections;
}

// ---- heap accounting ----------------------------------------------------------------------------

// The blocks that kovra.dll allocated and hasn't freed. Blocks it frees without having
// allocated them (objects a caller made with new, freed by its deleting destructor) don't count.
std::mutex g_heapLock;
std::unordered_map<void*, size_t> g_liveBlocks;
long long g_liveBytes = 0;

void* (__cdecl* g_malloc)(size_t) = nullptr;
void* (__cdecl* g_calloc)(size_t, size_t) = nullptr;
void* (__cdecl* g_realloc)(void*, size_t) = nullptr;
void (__cdecl* g_free)(void*) = nullptr;
char* (__cdecl* g_strdup)(const char*) = nullptr;

template <typename Block>
Block* Allocated(Block* block)
{
    std::lock_guard<std::mutex> hold(g_heapLock);
    if (block)
        g_liveBytes += static_cast<long long>(g_liveBlocks[block] = _msize(block));
    return block;
}

void Released(void* block)
{
    std::lock_guard<std::mutex> hold(g_heapLock);
    auto found = g_liveBlocks.find(block);
    if (found != g_liveBlocks.end()) {
        g_liveBytes -= static_cast<long long>(found->second);
        g_liveBlocks.erase(found);
    }
}

void* __cdecl CountedMalloc(size_t size) { return Allocated(g_malloc(size)); }
void* __cdecl CountedCalloc(size_t count, size_t size) { return Allocated(g_calloc(count, size)); }
char* __cdecl CountedStrdup(const char* text) { return Allocated(g_strdup(text)); }

void* __cdecl CountedRealloc(void* old, size_t size)
{
    void* block = g_realloc(old, size);
    if (block || size == 0) {  // the old block is gone: moved, resized or freed
        Released(old);
        Allocated(block);
    }
    return block;
}

void __cdecl CountedFree(void* block)
{
    Released(block);
    g_free(block);
}

// ---- functions looked up at run time ------------------------------------------------------------

FARPROC (WINAPI* g_getProcAddress)(HMODULE, LPCSTR) = nullptr;

FARPROC WINAPI RedirectingGetProcAddress(HMODULE module, LPCSTR name)
{
    FARPROC found = g_getProcAddress(module, name);
    if (found && !IS_INTRESOURCE(name))
        for (const Redirection& redirection : FaultRedirections())
            if (std::strcmp(redirection.name, name) == 0) {
                *redirection.real = reinterpret_cast<void*>(found);
                return reinterpret_cast<FARPROC>(redirection.replacement);
            }
    return found;
}

template <typename Function>
Redirection Plain(const char* module, const char* name, Function replacement, Function* real)
{
    return {module, name, reinterpret_cast<void*>(replacement), reinterpret_cast<void**>(real), nullptr};
}

const std::vector<Redirection>& OtherRedirections()
{
    static const std::vector<Redirection> redirections = {
        Plain(kRuntime, "malloc", &CountedMalloc, &g_malloc),
        Plain(kRuntime, "calloc", &CountedCalloc, &g_calloc),
        Plain(kRuntime, "realloc", &CountedRealloc, &g_realloc),
        Plain(kRuntime, "free", &CountedFree, &g_free),
        Plain(kRuntime, "_strdup", &CountedStrdup, &g_strdup),
        Plain(kKernel, "GetProcAddress", &RedirectingGetProcAddress, &g_getProcAddress),
    };
    return redirections;
}

// ---- the import table ---------------------------------------------------------------------------

const Redirection* RedirectionFor(const char* module, const char* name)
{
    for (const auto* list : {&FaultRedirections(), &OtherRedirections()})
        for (const Redirection& redirection : *list)
            if (::lstrcmpiA(redirection.module, module) == 0 && std::strcmp(redirection.name, name) == 0)
                return &redirection;
    return nullptr;
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

bool PatchImportTable(HMODULE library)
{
    auto* base = reinterpret_cast<BYTE*>(library);
    auto* headers = reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (auto* module = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress); module->Name;
         ++module) {
        const DWORD namesOffset = module->OriginalFirstThunk ? module->OriginalFirstThunk : module->FirstThunk;
        auto* names = reinterpret_cast<IMAGE_THUNK_DATA*>(base + namesOffset);
        auto* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + module->FirstThunk);
        for (; names->u1.AddressOfData; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
                continue;
            const auto* import = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            const Redirection* redirection = RedirectionFor(reinterpret_cast<const char*>(base + module->Name),
                                                            reinterpret_cast<const char*>(import->Name));
            if (redirection && !Patch(slots->u1.Function, *redirection))
                return false;
        }
    }
    return true;
}

// ---- handles ------------------------------------------------------------------------------------

// The system's list of every open handle (information class 16): wine answers no count per
// process.
struct SystemHandleList {
    ULONG count;
    struct {
        ULONG ownerProcessId;
        BYTE objectType;
        BYTE flags;
        USHORT value;
        PVOID object;
        ACCESS_MASK access;
    } entries[1];
};

long CountProcessHandles()
{
    using QuerySystem = LONG(WINAPI*)(ULONG, PVOID, ULONG, PULONG);
    static const auto query = reinterpret_cast<QuerySystem>(
        reinterpret_cast<void (*)()>(::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "NtQuerySystemInformation")));
    constexpr LONG kInfoLengthMismatch = static_cast<LONG>(0xC0000004L);
    static std::vector<char> buffer(1 << 16);
    LONG status;
    ULONG needed = 0;
    while ((status = query(16, buffer.data(), static_cast<ULONG>(buffer.size()), &needed)) == kInfoLengthMismatch)
        buffer.resize(buffer.size() * 2);
    if (status != 0)
        return -1;
    const auto* list = reinterpret_cast<const SystemHandleList*>(buffer.data());
    const DWORD self = ::GetCurrentProcessId();
    return static_cast<long>(std::count_if(list->entries, list->entries + list->count,
                                           [self](const auto& entry) { return entry.ownerProcessId == self; }));
}

} // namespace

const FaultCode& CodeOf(Fault fault)
{
    return kCodes[static_cast<int>(fault)];
}

bool InstallHooks()
{
    static const bool installed = [] {
        HMODULE library = ::GetModuleHandleA("kovra.dll");
        const std::vector<Redirection>& redirections = FaultRedirections();
        for (size_t index = 0; index < redirections.size(); ++index)
            redirections[index].hook->index = static_cast<int>(index);
        g_counts.assign(redirections.size(), 0);
        return library && PatchImportTable(library);
    }();
    return installed;
}

const std::vector<std::string>& HookedFunctions()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const Redirection& redirection : FaultRedirections())
            list.emplace_back(redirection.name);
        return list;
    }();
    return names;
}

int FunctionIndex(const std::string& name)
{
    const std::vector<std::string>& names = HookedFunctions();
    const auto found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? -1 : static_cast<int>(found - names.begin());
}

ArmedRun RunArmed(const std::vector<Failure>& failures, const std::function<void()>& work)
{
    g_planned.clear();
    for (const Failure& failure : failures)
        g_planned.push_back({failure, false});
    g_counts.assign(g_counts.size(), 0);
    ArmedRun run;
    g_armedThread = ::GetCurrentThreadId();
    try {
        work();
    } catch (...) {
        run.threw = true;
    }
    g_armedThread = 0;
    run.counts = g_counts;
    run.failuresMet = std::all_of(g_planned.begin(), g_planned.end(), [](const Planned& planned) { return planned.met; });
    return run;
}

Holdings CurrentHoldings()
{
    std::lock_guard<std::mutex> hold(g_heapLock);
    return {CountProcessHandles(), static_cast<long long>(g_liveBlocks.size()), g_liveBytes};
}

} // namespace kovrafaults
