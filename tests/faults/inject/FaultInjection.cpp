#include "FaultInjection.h"

#include <direct.h>
#include <io.h>
#include <malloc.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <type_traits>
#include <unordered_map>

namespace kovrafaults {

namespace {

constexpr char kLibrary[] = "kovra.dll";
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

// ---- counting and failing -------------------------------------------------------------------

struct PlannedFailure {
    int function;
    int ordinal;
    Fault fault;
    bool met;
};

struct Injector {
    DWORD armedThread = 0;
    std::vector<int> counts;
    std::vector<PlannedFailure> failures;
};

Injector& TheInjector()
{
    static Injector injector;
    return injector;
}

// Counts a call of function; the fault it must fail with, or null to let it through.
const FaultCode* FaultOfNextCall(int function)
{
    Injector& injector = TheInjector();
    if (function < 0 || injector.armedThread != ::GetCurrentThreadId())
        return nullptr;
    const int ordinal = ++injector.counts[static_cast<size_t>(function)];
    for (PlannedFailure& failure : injector.failures) {
        if (failure.function == function && failure.ordinal == ordinal) {
            failure.met = true;
            return &CodeOf(failure.fault);
        }
    }
    return nullptr;
}

void LeaveError(const FaultCode& code, bool runtime)
{
    if (runtime) {
        errno = code.crtErrno;
        _doserrno = code.osError;
    }
    ::SetLastError(code.osError);
}

// ---- the stand-ins ------------------------------------------------------------------------------

// How a stand-in fails: the value it returns, and whether the real function runs first
// (a close that fails has still closed: the caller must not be left holding the handle).
struct Failing {
    bool minusOne = false;  // -1 (INVALID_HANDLE_VALUE, INVALID_FILE_ATTRIBUTES); else 0 or null
    bool stillRuns = false;
};
constexpr Failing kZero{false, false};
constexpr Failing kMinusOne{true, false};
constexpr Failing kClosesAnyway{false, true};
constexpr Failing kClosesAnywayMinusOne{true, true};

template <typename Result>
Result FailureValue(bool minusOne)
{
    if constexpr (std::is_pointer_v<Result>)
        return minusOne ? reinterpret_cast<Result>(static_cast<INT_PTR>(-1)) : nullptr;
    else
        return minusOne ? static_cast<Result>(-1) : Result{};
}

// One redirected import: where its real function is kept and what replaces it.
struct Redirection {
    const char* module;
    const char* name;
    void* replacement;
    void** real;
    int* index;  // the function's index in HookedFunctions; null for the heap accounting
};

// The replacement of one imported function of type Function; Id tells the functions of one
// type apart. A signature of each calling convention needs a definition of its own.
template <int Id, typename Function>
struct StandIn;

#define KOVRA_FAULTS_STAND_IN(CONVENTION)                                                            \
    template <int Id, typename Result, typename... Arguments>                                        \
    struct StandIn<Id, Result(CONVENTION*)(Arguments...)> {                                          \
        using Function = Result(CONVENTION*)(Arguments...);                                          \
        static inline Function real = nullptr;                                                       \
        static inline Function failure = nullptr; /* gives the failure where a value won't do */   \
        static inline Failing failing{};                                                             \
        static inline bool runtime = false;                                                          \
        static inline int index = -1;                                                                \
        static Result CONVENTION Call(Arguments... arguments)                                        \
        {                                                                                            \
            const FaultCode* fault = FaultOfNextCall(index);                                         \
            if (!fault)                                                                              \
                return real(arguments...);                                                           \
            if (failing.stillRuns)                                                                   \
                real(arguments...);                                                                  \
            Result result = failure ? failure(arguments...) : FailureValue<Result>(failing.minusOne); \
            LeaveError(*fault, runtime);                                                             \
            return result;                                                                           \
        }                                                                                            \
    };

KOVRA_FAULTS_STAND_IN(__cdecl)
#if defined(__i386__)
KOVRA_FAULTS_STAND_IN(__stdcall)
#endif

template <int Id, typename Function>
Redirection Redirect(const char* module, const char* name, Failing failing, Function failure = nullptr)
{
    using Hook = StandIn<Id, Function>;
    Hook::failing = failing;
    Hook::failure = failure;
    Hook::runtime = std::strcmp(module, kRuntime) == 0;
    return {module, name, reinterpret_cast<void*>(&Hook::Call), reinterpret_cast<void**>(&Hook::real), &Hook::index};
}

#define KOVRA_FAULTS_HOOK(module, function, ...) \
    Redirect<__LINE__, decltype(&::function)>(module, #function, __VA_ARGS__)

// Failures that a return value alone doesn't describe.
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

// The C run-time functions whose declarations don't fit the template as they are: _sopen
// is variadic (the library always passes the permission argument), and the name and
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
        KOVRA_FAULTS_HOOK(kKernel, CreateFileA, kMinusOne),
        KOVRA_FAULTS_HOOK(kKernel, ReadFile, kZero),
        KOVRA_FAULTS_HOOK(kKernel, WriteFile, kZero),
        KOVRA_FAULTS_HOOK(kKernel, SetFilePointerEx, kZero),
        KOVRA_FAULTS_HOOK(kKernel, GetFileSizeEx, kZero),
        KOVRA_FAULTS_HOOK(kKernel, SetEndOfFile, kZero),
        KOVRA_FAULTS_HOOK(kKernel, FlushFileBuffers, kZero),
        KOVRA_FAULTS_HOOK(kKernel, LockFile, kZero),
        KOVRA_FAULTS_HOOK(kKernel, UnlockFile, kZero),
        KOVRA_FAULTS_HOOK(kKernel, CloseHandle, kClosesAnyway),
        KOVRA_FAULTS_HOOK(kKernel, GetFileAttributesA, kMinusOne),
        KOVRA_FAULTS_HOOK(kKernel, GetFileAttributesExA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, SetFileAttributesA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, SetFileTime, kZero),
        KOVRA_FAULTS_HOOK(kKernel, GetFullPathNameA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, DeleteFileA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, MoveFileA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, CopyFileA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, CreateDirectoryA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, RemoveDirectoryA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, SetCurrentDirectoryA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, GetCurrentDirectoryA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, FindFirstFileA, kMinusOne),
        KOVRA_FAULTS_HOOK(kKernel, FindNextFileA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, FindClose, kClosesAnyway),
        KOVRA_FAULTS_HOOK(kKernel, GetShortPathNameA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, GetLongPathNameA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, GetDiskFreeSpaceExA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, GetTempPathA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, GetTempFileNameA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, GetPrivateProfileStringA, kZero, &ProfileStringUnread),
        KOVRA_FAULTS_HOOK(kKernel, WritePrivateProfileStringA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, GetPrivateProfileSectionA, kZero, &ProfileSectionUnread),
        KOVRA_FAULTS_HOOK(kKernel, WritePrivateProfileSectionA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, CreateProcessA, kZero),
        KOVRA_FAULTS_HOOK(kKernel, LoadLibraryA, kZero),
        Redirect<__LINE__, OpenWithSharing>(kRuntime, "_sopen", kMinusOne),
        KOVRA_FAULTS_HOOK(kRuntime, _write, kMinusOne),
        KOVRA_FAULTS_HOOK(kRuntime, _read, kMinusOne),
        KOVRA_FAULTS_HOOK(kRuntime, _close, kClosesAnywayMinusOne),
        KOVRA_FAULTS_HOOK(kRuntime, _access, kMinusOne),
        Redirect<__LINE__, StatusByName>(kRuntime, kStatusFunction, kMinusOne),
        KOVRA_FAULTS_HOOK(kRuntime, _unlink, kMinusOne),
        KOVRA_FAULTS_HOOK(kRuntime, _chdir, kMinusOne),
        KOVRA_FAULTS_HOOK(kRuntime, _chdrive, kMinusOne),
        KOVRA_FAULTS_HOOK(kRuntime, fopen, kZero),
        KOVRA_FAULTS_HOOK(kRuntime, fgets, kZero),
        KOVRA_FAULTS_HOOK(kRuntime, fclose, kClosesAnywayMinusOne),
    };
    return redirections;
}

// ---- heap accounting --------------------------------------------------------------------------

// The blocks that kovra.dll allocated and hasn't freed, by address. Blocks that the library
// frees without having allocated them (objects a caller made with new and the library's
// deleting destructor frees) don't count.
struct LiveBlocks {
    std::mutex lock;
    std::unordered_map<void*, size_t> sizes;
    long long bytes = 0;
};

LiveBlocks& TheLiveBlocks()
{
    static LiveBlocks blocks;
    return blocks;
}

void* (__cdecl* g_realMalloc)(size_t) = nullptr;
void* (__cdecl* g_realCalloc)(size_t, size_t) = nullptr;
void* (__cdecl* g_realRealloc)(void*, size_t) = nullptr;
void (__cdecl* g_realFree)(void*) = nullptr;
char* (__cdecl* g_realStrdup)(const char*) = nullptr;

void Allocated(void* block)
{
    if (!block)
        return;
    LiveBlocks& blocks = TheLiveBlocks();
    std::lock_guard<std::mutex> hold(blocks.lock);
    const size_t size = _msize(block);
    blocks.sizes[block] = size;
    blocks.bytes += static_cast<long long>(size);
}

void Released(void* block)
{
    LiveBlocks& blocks = TheLiveBlocks();
    std::lock_guard<std::mutex> hold(blocks.lock);
    auto found = blocks.sizes.find(block);
    if (found == blocks.sizes.end())
        return;
    blocks.bytes -= static_cast<long long>(found->second);
    blocks.sizes.erase(found);
}

void* __cdecl CountedMalloc(size_t size)
{
    void* block = g_realMalloc(size);
    Allocated(block);
    return block;
}

void* __cdecl CountedCalloc(size_t count, size_t size)
{
    void* block = g_realCalloc(count, size);
    Allocated(block);
    return block;
}

void* __cdecl CountedRealloc(void* old, size_t size)
{
    void* block = g_realRealloc(old, size);
    if (block || size == 0) {  // the old block is gone: moved, resized or freed
        Released(old);
        Allocated(block);
    }
    return block;
}

void __cdecl CountedFree(void* block)
{
    Released(block);
    g_realFree(block);
}

char* __cdecl CountedStrdup(const char* text)
{
    char* copy = g_realStrdup(text);
    Allocated(copy);
    return copy;
}

template <typename Function>
Redirection Accounting(const char* name, Function replacement, Function* real)
{
    return {kRuntime, name, reinterpret_cast<void*>(replacement), reinterpret_cast<void**>(real), nullptr};
}

const std::vector<Redirection>& AccountingRedirections()
{
    static const std::vector<Redirection> redirections = {
        Accounting("malloc", &CountedMalloc, &g_realMalloc),
        Accounting("calloc", &CountedCalloc, &g_realCalloc),
        Accounting("realloc", &CountedRealloc, &g_realRealloc),
        Accounting("free", &CountedFree, &g_realFree),
        Accounting("_strdup", &CountedStrdup, &g_realStrdup),
    };
    return redirections;
}

// ---- functions looked up at run time ------------------------------------------------------------

FARPROC (WINAPI* g_realGetProcAddress)(HMODULE, LPCSTR) = nullptr;

FARPROC WINAPI RedirectingGetProcAddress(HMODULE module, LPCSTR name)
{
    FARPROC found = g_realGetProcAddress(module, name);
    if (!found || IS_INTRESOURCE(name))
        return found;
    for (const Redirection& redirection : FaultRedirections()) {
        if (std::strcmp(redirection.name, name) == 0) {
            *redirection.real = reinterpret_cast<void*>(found);
            return reinterpret_cast<FARPROC>(redirection.replacement);
        }
    }
    return found;
}

const Redirection& LookupRedirection()
{
    static const Redirection redirection = {kKernel, "GetProcAddress",
                                            reinterpret_cast<void*>(&RedirectingGetProcAddress),
                                            reinterpret_cast<void**>(&g_realGetProcAddress), nullptr};
    return redirection;
}

// ---- the import table ---------------------------------------------------------------------------

const Redirection* RedirectionFor(const char* module, const char* name)
{
    auto matches = [&](const Redirection& redirection) {
        return ::lstrcmpiA(redirection.module, module) == 0 && std::strcmp(redirection.name, name) == 0;
    };
    for (const auto* list : {&FaultRedirections(), &AccountingRedirections()})
        for (const Redirection& redirection : *list)
            if (matches(redirection))
                return &redirection;
    return matches(LookupRedirection()) ? &LookupRedirection() : nullptr;
}

template <typename Slot>
bool Patch(Slot& slot, const Redirection& redirection)
{
    if (!*redirection.real)
        *redirection.real = reinterpret_cast<void*>(slot);
    DWORD protection = 0;
    if (!::VirtualProtect(&slot, sizeof slot, PAGE_READWRITE, &protection))
        return false;
    slot = reinterpret_cast<Slot>(redirection.replacement);
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
        const char* moduleName = reinterpret_cast<const char*>(base + module->Name);
        const DWORD namesOffset = module->OriginalFirstThunk ? module->OriginalFirstThunk : module->FirstThunk;
        auto* names = reinterpret_cast<IMAGE_THUNK_DATA*>(base + namesOffset);
        auto* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + module->FirstThunk);
        for (; names->u1.AddressOfData; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
                continue;
            const auto* import = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            const Redirection* redirection = RedirectionFor(moduleName, reinterpret_cast<const char*>(import->Name));
            if (redirection && !Patch(slots->u1.Function, *redirection))
                return false;
        }
    }
    return true;
}

// ---- handles ------------------------------------------------------------------------------------

// The system's list of every open handle (information class 16), one entry per handle.
struct SystemHandleEntry {
    ULONG ownerProcessId;
    BYTE objectType;
    BYTE flags;
    USHORT value;
    PVOID object;
    ACCESS_MASK access;
};
struct SystemHandleList {
    ULONG count;
    SystemHandleEntry entries[1];
};
constexpr ULONG kSystemHandleInformation = 16;
constexpr LONG kInfoLengthMismatch = static_cast<LONG>(0xC0000004L);

long CountProcessHandles()
{
    using QuerySystem = LONG(WINAPI*)(ULONG, PVOID, ULONG, PULONG);
    static const auto query = reinterpret_cast<QuerySystem>(
        reinterpret_cast<void (*)()>(::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "NtQuerySystemInformation")));
    static std::vector<char> buffer(1 << 16);
    if (!query)
        return -1;
    LONG status;
    ULONG needed = 0;
    while ((status = query(kSystemHandleInformation, buffer.data(), static_cast<ULONG>(buffer.size()), &needed)) ==
           kInfoLengthMismatch)
        buffer.resize(buffer.size() * 2);
    if (status != 0)
        return -1;
    const auto* list = reinterpret_cast<const SystemHandleList*>(buffer.data());
    const DWORD self = ::GetCurrentProcessId();
    long count = 0;
    for (ULONG index = 0; index < list->count; ++index)
        count += list->entries[index].ownerProcessId == self ? 1 : 0;
    return count;
}

} // namespace

const FaultCode& CodeOf(Fault fault)
{
    return kCodes[static_cast<int>(fault)];
}

bool InstallHooks()
{
    static const bool installed = [] {
        HMODULE library = ::GetModuleHandleA(kLibrary);
        if (!library)
            return false;
        const std::vector<Redirection>& redirections = FaultRedirections();
        for (size_t index = 0; index < redirections.size(); ++index)
            *redirections[index].index = static_cast<int>(index);
        TheInjector().counts.assign(redirections.size(), 0);
        return PatchImportTable(library);
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
    for (size_t index = 0; index < names.size(); ++index)
        if (names[index] == name)
            return static_cast<int>(index);
    return -1;
}

void Arm()
{
    Injector& injector = TheInjector();
    injector.counts.assign(FaultRedirections().size(), 0);
    injector.armedThread = ::GetCurrentThreadId();
}

void Disarm()
{
    TheInjector().armedThread = 0;
}

int CallCount(int function)
{
    const std::vector<int>& counts = TheInjector().counts;
    return function >= 0 && static_cast<size_t>(function) < counts.size() ? counts[static_cast<size_t>(function)] : 0;
}

void FailCall(int function, int ordinal, Fault fault)
{
    TheInjector().failures.push_back(PlannedFailure{function, ordinal, fault, false});
}

void ClearFailures()
{
    TheInjector().failures.clear();
}

bool AllFailuresMet()
{
    for (const PlannedFailure& failure : TheInjector().failures)
        if (!failure.met)
            return false;
    return true;
}

Holdings CurrentHoldings()
{
    Holdings holdings;
    holdings.handles = CountProcessHandles();
    LiveBlocks& blocks = TheLiveBlocks();
    std::lock_guard<std::mutex> hold(blocks.lock);
    holdings.heapBlocks = static_cast<long long>(blocks.sizes.size());
    holdings.heapBytes = blocks.bytes;
    return holdings;
}

} // namespace kovrafaults
