// The fault walk: every member that calls the platform, walked over every platform call it
// makes. kovra.dll's imports of platform functions are redirected to stand-ins that count its
// calls and can fail a chosen one with a chosen error; its heap calls are counted to tell what
// it holds. A scenario runs one member once as it is, counting its platform calls, then once
// for every one of those calls with that call failing, and every run is judged: no exception,
// the member's result and reported cause, no handle, heap block or temporary file left behind,
// no file lost or half written. The rules of a scenario name the calls whose failure the member
// must show; a failure of any other call must leave the member's answer, its reported cause and
// the files exactly as a clean run leaves them. A member that only hands its call on to another,
// with nothing of its own around it, is walked through that one (operators = and += through -=,
// the int overloads of the profile members through their long ones, SetClient and SetModulePath
// through SetUser, CKovraFind's destructor through its Close).
#include <direct.h>
#include <io.h>
#include <malloc.h>
#include <winternl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <numeric>
#include <tuple>

#include <gtest/gtest.h>

#include "TestSupport.h"  // and filesystem, set, kovra.h, diag.h

namespace {

// The errors that failed calls take turns with: what GetLastError tells after a failed Win32
// function, errno after a failed run-time function, and the library's cause for it.
enum Fault { kSharingViolation, kAccessDenied, kDiskFull, kPathNotFound, kNetworkNameGone, kNotEnoughMemory };
struct FaultCode { const char* name; DWORD osError; int crtErrno, cause; };
const FaultCode kFaults[] = {
    {"sharing violation", ERROR_SHARING_VIOLATION, EACCES, 11}, {"access denied", ERROR_ACCESS_DENIED, EACCES, 5},
    {"disk full", ERROR_DISK_FULL, ENOSPC, 13}, {"path not found", ERROR_PATH_NOT_FOUND, ENOENT, 3},
    {"network name gone", ERROR_NETNAME_DELETED, EIO, 1}, {"not enough memory", ERROR_NOT_ENOUGH_MEMORY, ENOMEM, 1},
};

// ---- the stand-ins ----------------------------------------------------------------------

// An import of kovra.dll, its stand-in, the real function (taken from the slot that the
// stand-in replaces), how the stand-in fails and how often the armed run called it. A failing
// stand-in answers 0 (FALSE, null) unless marked -1 (INVALID_HANDLE_VALUE, EOF, ...); a close
// that fails has closed all the same.
enum : unsigned { kZero = 0, kMinusOne = 1, kClosesAnyway = 2 };
struct Hook { const char* name; void* standIn; void** real; unsigned failing; int calls = 0; };

// A call that the armed run fails: the ordinal-th of function; met once it was made.
struct Failure { std::string function; int ordinal = 1; Fault fault = kAccessDenied; bool met = false; };
std::vector<Failure> g_failures;
DWORD g_armedThread = 0;

// Counts a call of the armed thread and fails it if it is planned to fail; every other call goes on.
template <typename Result, typename Function, typename... Arguments>
Result Intercept(Hook& hook, Function real, Arguments... arguments)
{
    if (g_armedThread != ::GetCurrentThreadId())
        return real(arguments...);
    ++hook.calls;
    const auto failure = std::find_if(g_failures.begin(), g_failures.end(), [&](const Failure& planned) {
        return planned.ordinal == hook.calls && planned.function == hook.name;
    });
    if (failure == g_failures.end())
        return real(arguments...);
    if (hook.failing & kClosesAnyway)
        real(arguments...);
    failure->met = true;
    // Told the way either kind of function tells it: GetLastError, errno and _doserrno.
    ::SetLastError(kFaults[failure->fault].osError);
    _doserrno = kFaults[failure->fault].osError;
    errno = kFaults[failure->fault].crtErrno;
    return Result(INT_PTR(hook.failing & kMinusOne ? -1 : 0));  // as the function's type: null, FALSE, EOF, ...
}

// Fills the hook of a stand-in at run time: its function's name, the stand-in, where the real
// function is kept, how the stand-in fails.
template <typename Function>
Hook* Name(Hook& hook, const char* name, Function standIn, Function* real, unsigned how)
{
    return &(hook = {name, reinterpret_cast<void*>(standIn), reinterpret_cast<void**>(real), how});
}

// The stand-in of one imported function of type Function, and its hook; Id tells the functions
// of one type apart. Each calling convention needs a definition of its own.
template <int Id, typename Function>
struct StandIn;
#define KOVRA_FAULTS_STAND_IN(CONVENTION)                                                                        \
    template <int Id, typename Result, typename... Arguments>                                                    \
    struct StandIn<Id, Result(CONVENTION*)(Arguments...)> {                                                      \
        static inline Result(CONVENTION* real)(Arguments...) = nullptr;                                         \
        static Result CONVENTION Call(Arguments... arguments) { return Intercept<Result>(hook, real, arguments...); } \
        static inline Hook hook{};                                                                               \
        static Hook* Named(const char* name, unsigned how) { return Name(hook, name, &Call, &real, how); }      \
    };
KOVRA_FAULTS_STAND_IN(__cdecl)
#if defined(__i386__)
KOVRA_FAULTS_STAND_IN(__stdcall)
#endif
#define HOOK(function, ...) StandIn<__COUNTER__, decltype(&::function)>::Named(#function, {__VA_ARGS__})

// The blocks that kovra.dll allocated and hasn't freed, with their sizes. Blocks that it frees
// without having allocated them (objects a caller made with new, freed by its deleting
// destructor) don't count.
std::mutex g_heapLock;
std::map<void*, size_t> g_liveBlocks;

// Notes a block that kovra.dll got (null: none) or gives back; answers it.
void* Noted(void* block, bool got)
{
    std::lock_guard<std::mutex> hold(g_heapLock);
    if (!got)
        g_liveBlocks.erase(block);
    else if (block)
        g_liveBlocks[block] = _msize(block);
    return block;
}

template <auto Replacement>
decltype(Replacement) g_real = nullptr;  // the function that Replacement stands in for

// The stand-ins of the heap functions (never failed): realloc gives its old block back first.
void* __cdecl Malloc(size_t size) { return Noted(g_real<Malloc>(size), true); }
void* __cdecl Calloc(size_t count, size_t size) { return Noted(g_real<Calloc>(count, size), true); }
char* __cdecl Strdup(const char* text) { return static_cast<char*>(Noted(g_real<Strdup>(text), true)); }
void* __cdecl Realloc(void* old, size_t size) { return Noted(g_real<Realloc>(Noted(old, false), size), true); }
void __cdecl Free(void* block) { g_real<Free>(Noted(block, false)); }

// The hook of a stand-in written out here, which calls on g_real<Replacement>.
template <auto Replacement>
Hook g_passing{};
template <auto Replacement>
Hook* Passing(const char* name) { return Name(g_passing<Replacement>, name, Replacement, &g_real<Replacement>, kZero); }

FARPROC WINAPI RedirectingGetProcAddress(HMODULE module, LPCSTR name);

// The platform functions that the library calls, by family, and its heap functions. _sopen is
// variadic (the library always passes the permission argument), and the name and record of
// _stat differ between the two targets.
const std::vector<Hook*> g_hooks = {
    HOOK(CreateFileA, kMinusOne), HOOK(ReadFile), HOOK(WriteFile), HOOK(SetFilePointerEx), HOOK(GetFileSizeEx),
    HOOK(SetEndOfFile), HOOK(FlushFileBuffers), HOOK(LockFile), HOOK(UnlockFile), HOOK(CloseHandle, kClosesAnyway),
    HOOK(GetFileAttributesA, kMinusOne), HOOK(GetFileAttributesExA), HOOK(SetFileAttributesA), HOOK(SetFileTime),
    HOOK(GetFullPathNameA), HOOK(GetShortPathNameA), HOOK(GetLongPathNameA), HOOK(GetDiskFreeSpaceExA),
    HOOK(DeleteFileA), HOOK(MoveFileA), HOOK(CopyFileA), HOOK(CreateDirectoryA), HOOK(RemoveDirectoryA),
    HOOK(SetCurrentDirectoryA), HOOK(GetCurrentDirectoryA), HOOK(GetTempPathA), HOOK(GetTempFileNameA),
    HOOK(FindFirstFileA, kMinusOne), HOOK(FindNextFileA), HOOK(FindClose, kClosesAnyway),
    HOOK(GetPrivateProfileStringA), HOOK(WritePrivateProfileStringA), HOOK(GetPrivateProfileSectionA),
    HOOK(WritePrivateProfileSectionA), HOOK(CreateProcessA), HOOK(LoadLibraryA),
    StandIn<__COUNTER__, int (*)(const char*, int, int, int)>::Named("_sopen", kMinusOne),
    HOOK(_write, kMinusOne), HOOK(_read, kMinusOne), HOOK(_close, kClosesAnyway | kMinusOne),
    HOOK(_access, kMinusOne), HOOK(_unlink, kMinusOne), HOOK(_chdir, kMinusOne), HOOK(_chdrive, kMinusOne),
    HOOK(fopen), HOOK(fgets), HOOK(fclose, kClosesAnyway | kMinusOne),
    StandIn<__COUNTER__, int (*)(const char*, void*)>::Named(sizeof(void*) == 8 ? "_stat64" : "_stat", kMinusOne),
    Passing<Malloc>("malloc"), Passing<Calloc>("calloc"), Passing<Realloc>("realloc"), Passing<Free>("free"),
    Passing<Strdup>("_strdup"), Passing<RedirectingGetProcAddress>("GetProcAddress"),
};

Hook* HookOf(const std::string& name)
{
    const auto hook = std::find_if(g_hooks.begin(), g_hooks.end(), [&](Hook* each) { return each->name == name; });
    return hook == g_hooks.end() ? nullptr : *hook;
}

// Functions that the library looks up at run time are redirected as its imports are.
FARPROC WINAPI RedirectingGetProcAddress(HMODULE module, LPCSTR name)
{
    const FARPROC found = g_real<RedirectingGetProcAddress>(module, name);
    Hook* hook = found && !IS_INTRESOURCE(name) ? HookOf(name) : nullptr;
    if (!hook)
        return found;
    *hook->real = reinterpret_cast<void*>(found);
    return reinterpret_cast<FARPROC>(hook->standIn);
}

// Redirects the imports by name of the loaded kovra.dll (mingw's linker leaves its import table
// writable); g_hooksInstalled does it as the program starts.
bool InstallHooks()
{
    auto* base = reinterpret_cast<BYTE*>(::GetModuleHandleA("kovra.dll"));
    const auto* nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const DWORD imports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* module = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + imports); module->Name; ++module) {
        auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + module->FirstThunk);
        for (auto* name = reinterpret_cast<IMAGE_THUNK_DATA*>(base + module->OriginalFirstThunk);
             name->u1.AddressOfData; ++name, ++slot) {
            const auto* byName = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
            if (Hook* hook = IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal) ? nullptr : HookOf(byName->Name)) {
                *hook->real = reinterpret_cast<void*>(slot->u1.Function);
                slot->u1.Function = reinterpret_cast<ULONG_PTR>(hook->standIn);
            }
        }
    }
    return true;
}
const bool g_hooksInstalled = InstallHooks();

// Runs work with the calls of this thread counted and the planned failures made.
void RunArmed(std::vector<Failure> failures, const std::function<void()>& work)
{
    g_failures = std::move(failures);
    for (Hook* hook : g_hooks)
        hook->calls = 0;
    g_armedThread = ::GetCurrentThreadId();
    work();
    g_armedThread = 0;
}

// The process's kernel handles (wine counts none per process: they are counted in the system's
// list of every open handle), and the heap blocks and bytes that kovra.dll holds.
using Holdings = std::array<long long, 3>;
Holdings CurrentHoldings()
{
    static std::vector<char> buffer(1 << 16);
    while (::NtQuerySystemInformation(SystemHandleInformation, buffer.data(), static_cast<ULONG>(buffer.size()),
                                      nullptr) == static_cast<NTSTATUS>(0xC0000004))  // the buffer is too small
        buffer.resize(buffer.size() * 2);
    const auto* list = reinterpret_cast<const SYSTEM_HANDLE_INFORMATION*>(buffer.data());
    std::lock_guard<std::mutex> hold(g_heapLock);
    return {std::count_if(list->Handle, list->Handle + list->Count,
                          [](const auto& entry) { return entry.OwnerPid == ::GetCurrentProcessId(); }),
            static_cast<long long>(g_liveBlocks.size()),
            std::accumulate(g_liveBlocks.begin(), g_liveBlocks.end(), 0LL,
                            [](long long bytes, const auto& block) { return bytes + block.second; })};
}

// ---- the walk -----------------------------------------------------------------------------

// What a scenario works with; the walk tears it down after every run.
struct World {
    std::unique_ptr<CKovra> file = std::make_unique<CKovra>();  // its GetLastError is the run's reported cause
    CKovraFind find;
    std::function<void()> undo;  // run after the member, unarmed
    ~World() { if (undo) undo(); }
};

// What a failed call does to the member, beyond answering as a clean run does. kFails: it
// answers with its failure result; kRecords: GetLastError reports the cause of the injected
// error; kRetriesSharing: a sharing violation is waited out and the member succeeds;
// kAnyResult: the member can't tell, its result is not judged; kFilesMayDiffer: it answers
// success though the files differ from a clean run; kProbes: an existence test, failed with
// access denied as "path not found" would be a true answer: the member acts as if the file were there.
enum Effect : unsigned {
    kFails = 1, kRecords = 2, kShows = 3, kRetriesSharing = 4, kAnyResult = 8, kFilesMayDiffer = 16, kProbes = 32
};

// The calls named (by name for every call, with "#2" for the second; several apart by spaces)
// and what their failure does; cause, if not -1, is the cause that GetLastError must report.
struct CallRule { std::string calls; unsigned effect = 0; int cause = -1; };

using Setup = std::function<void(World&)>;
struct Scenario {
    std::string name;                        // the member's, and the road's in brackets
    Setup setup;                             // unarmed
    std::function<std::string(World&)> act;  // armed: calls the member, returns its result as text
    std::vector<CallRule> rules;
    std::string failureResult = "0";
    Failure scripted = {};  // made in every run, so that the walk reaches the road behind the failed call

};

using Files = std::map<std::string, std::string>;  // path -> bytes, or kDirectory
const std::string kDirectory = "<dir>", kAbsent = "<absent>";

struct Run {
    Holdings before, after;  // as the run starts and after its world is torn down
    std::string result;
    int cause = 0;
    std::vector<int> calls;  // of each hook, as Hooks lists them
    long temporaryFiles = 0;
    Files files;
    std::string At(const std::string& path) const { return files.count(path) ? files.at(path) : kAbsent; }
};

// The fixture directory, laid out with these files (name -> bytes; a name ending in a backslash
// is a directory) before every run. It is the platform's temporary directory too, so that
// temporary files left there show.
const std::string kRoot = KOVRA_TEST_DRIVE ":\\APP\\";
const Files kFixture = {
    {"DATA.TXT", "alpha\r\nbeta\r\ngamma\r\n"}, {"DEST.TXT", "dest\r\n"}, {"PROFILE.INI", "[S]\r\nK=42\r\n"},
    {"CHECK.INI", "[T1]\r\nLocation=BASE\r\n[T2]\r\nBaseType=T9\r\nLocation=NOWHERE\r\n"},
    {"EMPTY\\", ""}, {"FIND\\A.TXT", "a"}, {"FIND\\B.TXT", "bb"},
};

// Walks scenarios over the fixture and judges every run through the test's expectations.
struct FaultWalk {
    FaultWalk()
    {
        ::SetEnvironmentVariableA("TMP", kRoot.c_str());
        // The first exception thrown inside the library (by a read of a file that isn't open)
        // may set up the unwinder's tables for good; let that happen before anything is counted.
        char byte = 0;
        CKovra("DFT", "NO\\SUCH\\FILE.TXT", KOVRA_READ, nullptr, 0).Read(&byte, 1, 0);
        LayOut();
        Snapshot(laidOut);
    }

    void Walk(const Scenario& scenario)
    {
        members.insert(scenario.name.substr(0, scenario.name.find(" (")));
        Execute(scenario);  // the first run may set up what the library keeps for good
        const Run clean = Execute(scenario);
        Judge(scenario, clean, clean);
        for (size_t index = 0; index < g_hooks.size(); ++index) {
            const std::string called = g_hooks[index]->name;
            for (int ordinal = scenario.scripted.function == called ? 2 : 1; ordinal <= clean.calls[index]; ++ordinal) {
                const CallRule rule = RuleFor(scenario, called, ordinal);
                // The errors take turns, but an existence test fails with access denied, as "path not
                // found" would be a true answer, and a call whose sharing violation is waited out
                // fails with one as well.
                const Fault turn = rule.effect & kProbes ? kAccessDenied : Fault(failedCalls % 6);
                const std::set<Fault> faults{turn, rule.effect & kRetriesSharing ? kSharingViolation : turn};
                failedCalls += faults.size();
                for (const Fault fault : faults)
                    Judge(scenario, clean, Execute(scenario, {called, ordinal, fault}), rule, {called, ordinal, fault});
            }
        }
    }

    void LayOut() const
    {
        kovratest::RemoveTree(kRoot);
        for (const auto& [name, bytes] : kFixture)
            name.back() == '\\' ? kovratest::MakeDirectories(kRoot + name)
                                : kovratest::WriteFileBytes(kRoot + name, bytes);
    }

    // Runs the scenario with failure made (none by default, a failure of no function) and the
    // scenario's scripted failure.
    Run Execute(const Scenario& scenario, const Failure& failure = {}) const
    {
        LayOut();
        Run run;
        run.before = CurrentHoldings();
        {
            World world;
            if (scenario.setup)
                scenario.setup(world);
            RunArmed({failure, scenario.scripted}, [&] {
                EXPECT_NO_THROW(run.result = scenario.act(world)) << scenario.name << ", failing " << failure.function;
            });
            world.file->GetLastError(&run.cause, nullptr, 0, 0);
        }
        for (const Hook* hook : g_hooks)
            run.calls.push_back(hook->calls);
        for (const Failure& planned : g_failures)  // an empty one plans nothing
            EXPECT_TRUE(planned.met || planned.function.empty()) << scenario.name << ": no call " << planned.function;
        std::filesystem::current_path(workingDirectory);
        run.after = CurrentHoldings();
        Snapshot(run);
        return run;
    }

    // Judges a run with failure made, by the effect of its rule, or, with no rule and no failure,
    // the clean run itself. The files after a run must be, path by path, as they were laid out or as
    // a clean run leaves them (exactly as a clean run leaves them when the member answered
    // success), and a file that a clean run keeps, where it was or moved, must be somewhere.
    void Judge(const Scenario& scenario, const Run& clean, const Run& run, const CallRule& rule = {},
               const Failure& failure = {}) const
    {
        const std::string& called = failure.function;
        SCOPED_TRACE(scenario.name + (called.empty() ? ", clean run" : ", call " + std::to_string(failure.ordinal) +
                                      " of " + called + ", " + kFaults[failure.fault].name));
        const unsigned effect = rule.effect;
        const bool failed = effect & kFails && !(effect & kRetriesSharing && failure.fault == kSharingViolation);
        const auto& result = effect & kAnyResult ? run.result : failed ? scenario.failureResult : clean.result;
        const int cause = rule.cause >= 0 ? rule.cause : effect & kRecords ? kFaults[failure.fault].cause : clean.cause;
        // A failed deletion leaves the file it would have removed.
        const bool temporaryLeft = run.temporaryFiles && called != "DeleteFileA" && called != "_unlink";
        // The answer, the reported cause, as many handles, heap blocks and bytes as before, no temporary
        // file left (no exception and every planned failure made: Execute).
        EXPECT_EQ(std::tie(run.result, run.cause, run.after, temporaryLeft),
                  std::make_tuple(result, cause, run.before, false));
        const bool answeredSuccess = run.result == clean.result && clean.result != scenario.failureResult;
        const bool mustMatchClean = answeredSuccess && !(effect & kFilesMayDiffer);
        for (const Files* each : {&run.files, &clean.files, &laidOut.files})
            for (const auto& [path, ignored] : *each)
                EXPECT_TRUE(run.At(path) == clean.At(path) || (!mustMatchClean && run.At(path) == laidOut.At(path)))
                    << path << " is " << run.At(path) << ", was " << laidOut.At(path) << ", clean " << clean.At(path);
        auto holds = [](const Files& files, const std::string& bytes) {
            return std::any_of(files.begin(), files.end(), [&](const auto& file) { return file.second == bytes; });
        };
        for (const auto& [path, bytes] : laidOut.files)
            EXPECT_TRUE(!holds(clean.files, bytes) || holds(run.files, bytes)) << path << " lost";
    }

    static CallRule RuleFor(const Scenario& scenario, const std::string& called, int ordinal)
    {
        for (const std::string& wanted : {called + "#" + std::to_string(ordinal), called})
            for (const CallRule& rule : scenario.rules)
                if ((" " + rule.calls + " ").find(" " + wanted + " ") != std::string::npos)
                    return rule;
        return {};
    }

    // The files and directories of the fixture but the library's log, which grows in every run;
    // temporary files ("CKV...") are counted instead.
    void Snapshot(Run& run) const
    {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(kRoot)) {
            const std::string path = entry.path().string(), name = entry.path().filename().string();
            if (name.rfind("CKV", 0) == 0)
                ++run.temporaryFiles;
            else if (name != "CKOVRA.LOG")
                run.files[path] = entry.is_directory() ? kDirectory : kovratest::ReadFileBytes(path);
        }
    }

    Run laidOut;  // the fixture's files
    const std::filesystem::path workingDirectory = std::filesystem::current_path();
    std::set<std::string> members;  // walked
    size_t failedCalls = 0;
};

// ---- the scenarios ------------------------------------------------------------------------

// A scenario's act: the member's result as text (as the test framework prints it); w is the World.
#define ACT(call) []([[maybe_unused]] World& w) { return testing::PrintToString(call); }
#define OPENING(name, options) ACT(w.file->Open("DFT", name, options))

void* const kSession = reinterpret_cast<void*>(0x5eed);
const ATL::CTime kTime(1600000000);
ATL::CTime g_time;  // what GetModificationTime reads into
char g_text[256];  // the buffer members write into; Scratch fills it afresh

char* Scratch(const char* text = "") { return std::strcpy(g_text, text); }


// An open of the platform file must fail the member, and GetLastError must name the cause.
const CallRule kOpenFails{"CreateFileA", kShows | kRetriesSharing}, kNoStatus{"GetFileAttributesExA", kFails};
const CallRule kSeekFails{"SetFilePointerEx", kShows}, kWriteFails{"WriteFile", kShows}, kReadFails{"ReadFile", kShows};
const CallRule kNoDirectory{"CreateDirectoryA", kFails, 3}, kProbe{"_access", kProbes};  // path not found
const CallRule kProfileFails{"GetPrivateProfileStringA WritePrivateProfileStringA "
                             "GetPrivateProfileSectionA WritePrivateProfileSectionA", kFails};

Setup Opened(unsigned long options, const char* name = "DATA.TXT")
{
    return [=](World& world) { world.file = std::make_unique<CKovra>("DFT", name, options); };
}

void MadeReadOnly(World&) { ::SetFileAttributesA((kRoot + "DATA.TXT").c_str(), FILE_ATTRIBUTE_READONLY); }
void OpenedTemporary(World& world) { world.file->Open(nullptr, nullptr, KOVRA_READWRITE); }
void Searching(World& world) { world.find.FindFile("DFT", "FIND\\*.TXT"); }
void Locked(World& world) { (world.file = std::make_unique<CKovra>("DFT", "DATA.TXT", KOVRA_READWRITE))->Lock(0, 4); }

// ReadString's answer followed by the line it read.
std::string ReadLine(World& w) { return std::to_string(w.file->ReadString(Scratch(), 9)) + g_text; }

const Setup reading = Opened(KOVRA_READ), writing = Opened(KOVRA_READWRITE), data = Opened(0);
const Setup profile = Opened(0, "PROFILE.INI"), empty = Opened(0, "EMPTY"), text = Opened(KOVRA_READWRITE | KOVRA_TEXT);

// One scenario for each member and each road of its own through the platform.
const std::vector<Scenario> kScenarios = {
    {"Open (deny write)", {}, OPENING("DATA.TXT", KOVRA_READWRITE | KOVRA_DENY_WRITE), {kOpenFails}},
    {"Open (new directory)", {}, OPENING("NEW\\N.TXT", KOVRA_APPEND), {kOpenFails, kNoDirectory}},
    {"Open (temporary file)", {}, OPENING(nullptr, KOVRA_READWRITE), {{"CreateFileA#2", kOpenFails.effect}}},
    // The first open is refused: the read-only attribute is cleared and the open tried again.
    {"Open (read-only file)", MadeReadOnly, OPENING("DATA.TXT", KOVRA_READWRITE),
     {{"CreateFileA#2 GetFileAttributesA SetFileAttributesA SetFileTime", kShows},
      {"CreateFileA#3", kOpenFails.effect}, kNoStatus}, "0", {"CreateFileA"}},
    {"Close (open file)", writing, ACT(w.file->Close()), {}},
    // A failed existence test is no missing file: the temporary file is removed all the same.
    {"Close (temporary file)", OpenedTemporary, ACT(w.file->Close()), {{"DeleteFileA", kRecords}, kProbe}},
    {"Read", reading, ACT(w.file->Read(g_text, sizeof g_text)), {kReadFails}},
    {"Write", writing, ACT(w.file->Write("xyz", 3)), {kWriteFails}},
    {"Write (append)", Opened(KOVRA_APPEND), ACT(w.file->Write("xyz", 3)), {kSeekFails, kWriteFails}},
    // A failed move back behind the line is recorded; the line itself was read.
    {"ReadString (text)", Opened(KOVRA_READ | KOVRA_TEXT), ReadLine, {kReadFails, {"SetFilePointerEx", kRecords}}},
    // The line goes out with its line end in one write; when that fails, the three pieces follow.
    {"WriteString (line)", text, ACT(w.file->WriteString("abc")), {}},
    {"Flush", writing, ACT(w.file->Flush()), {{"FlushFileBuffers", kShows}}},
    {"Seek", reading, ACT(w.file->Seek(5, 0)), {kSeekFails}, "-1"},
    {"GetLength (open file)", reading, ACT(w.file->GetLength()), {{"GetFileSizeEx", kShows}}},
    {"GetLength (closed file)", data, ACT(w.file->GetLength()), {kNoStatus}},
    {"SetLength", writing, ACT(w.file->SetLength(4)), {kSeekFails, {"SetEndOfFile", kShows}}},
    {"Lock", writing, ACT(w.file->Lock(0, 4)), {{"LockFile", kShows}}},
    {"UnLock", Locked, ACT(w.file->UnLock(0, 4)), {{"UnlockFile", kShows}}},
    {"SetModificationTime", data, ACT(w.file->SetModificationTime(&kTime, 0)),
     {kNoStatus, {"GetFileAttributesA SetFileAttributesA CreateFileA SetFileTime", kShows}}},
    // Each profile member fails, or answers its default, when its profile service fails.
    {"WriteProfile", profile, ACT(w.file->WriteProfile("S", "K", "7")), {kProfileFails}},
    {"GetProfile (text)", profile, ACT(w.file->GetProfile("S", "K", "no", Scratch(), 9)), {kProfileFails}},
    {"GetProfile (long)", profile, ACT(w.file->GetProfile("S", "K", 7L)), {kProfileFails}, "7"},
    {"GetProfileSectionA", profile, ACT(w.file->GetProfileSectionA("S", g_text, 9)), {kProfileFails}},
    {"WriteProfileSectionA", profile, ACT(w.file->WriteProfileSectionA("T", "A=1\0")), {kProfileFails}},
    // A refused move falls back to copying: the member succeeds, the refusal is reported.
    {"SaveFile", writing, ACT(w.file->SaveFile()), {{"MoveFileA", kRecords}, kNoDirectory}},
    // A copy whose source can't be removed leaves the file at both places, by contract.
    {"SaveFile (move refused)", data, ACT(w.file->SaveFile()),
     {{"CopyFileA CreateDirectoryA", kFails}, {"_unlink", kFilesMayDiffer}}, "0", {"MoveFileA"}},
    {"Remove", data, ACT(w.file->Remove()), {{"DeleteFileA", kShows | kRetriesSharing}, kProbe}},
    {"Rename", writing, ACT(w.file->Rename("DFT", Scratch("MOVED\\DATA.TXT"))),
     {{"MoveFileA", kShows | kRetriesSharing}, kNoDirectory}},
    {"CopyFileA", writing, ACT(w.file->CopyFileA("DFT", "COPY\\DATA.TXT", 0)),
     {{"CopyFileA CreateDirectoryA", kFails}, {"FlushFileBuffers", kRecords}}},
    // By contract a failed read or write of the copy doesn't change AppendFile's answer.
    {"AppendFile (closed file)", data, ACT(w.file->AppendFile("DFT", "DEST.TXT")),
     {{"CreateFileA", kFails | kRetriesSharing}, {"ReadFile#1 SetFilePointerEx WriteFile", kFilesMayDiffer}}},
    {"AppendFile (open file)", writing, ACT(w.file->AppendFile("DFT", "DEST.TXT")),
     {{"CreateFileA", kFails | kRetriesSharing}, {"FlushFileBuffers SetFilePointerEx#1 ReadFile#2", kRecords},
      {"SetFilePointerEx#2 WriteFile", kFilesMayDiffer}, {"ReadFile#1", kRecords | kFilesMayDiffer}}},
    {"RmDir", empty, ACT(w.file->RmDir()), {{"RemoveDirectoryA", kFails}, kNoStatus}},
    // A name whose status can't be read is taken for a file's: ChDir enters its directory.
    {"ChDir", empty, ACT(w.file->ChDir()), {{"_chdir", kFails}, {"GetFileAttributesExA", kAnyResult}}},
    {"ChDrive", {}, ACT(w.file->ChDrive(KOVRA_TEST_DRIVE[0] - 'A' + 1)), {{"_chdrive", kFails}}},
    {"GetCwd", {}, ACT(w.file->GetCwd()), {{"GetCurrentDirectoryA", kFails}}, R"("")"},
    {"GetShortPathNameA", data, ACT(w.file->GetShortPathNameA()), {}, R"("")"},
    {"GetLongPathNameA", data, ACT(w.file->GetLongPathNameA()), {}, R"("")"},
    {"GetDiskFreeSpaceA", data, ACT(w.file->GetDiskFreeSpaceA() != 0), {{"GetDiskFreeSpaceExA", kFails}}, "false"},
    {"Access", data, ACT(w.file->Access()), {{"_access", kFails}}},
    // MkDir answers 1 also when a directory couldn't be made.
    {"MkDir", Opened(0, "NEW\\X.TXT"), ACT(w.file->MkDir()), {{"CreateDirectoryA", kFilesMayDiffer}}},
    {"CKovraFind::FindFile", {}, ACT(w.find.FindFile("DFT", "FIND\\*.TXT")), {{"FindFirstFileA", kFails}}},
    // Both entries and past the end, which closes the search: a failed step can't be told from the end.
    {"CKovraFind::FindNextFileA", Searching,
     ACT(w.find.FindNextFileA() + w.find.FindNextFileA() + w.find.FindNextFileA()), {{"FindNextFileA", kAnyResult}}},
    {"CKovraFind::Close", Searching, ACT(w.find.Close()), {}, "1"},
    {"StartSession", [](World& w) { w.undo = [] { CKovra::RemoveSession(kSession); }; },
     ACT(CKovra::StartSession(kSession)), {}},
    {"StartThread", [](World& w) { w.undo = [] { CKovra::RemoveThread(kSession, 42); }; },
     ACT(CKovra::StartThread(kSession, 42)), {}},
    {"KovraCheckConfig", {}, ACT(KovraCheckConfig((kRoot + "CHECK.INI").c_str(), nullptr, nullptr)),
     {{"CreateFileA ReadFile", kFails}}, "-1"},
    // Members that make another member's calls but answer, record or clean up on their own.
    {"CKovra::CKovra", {}, ACT((w.file = std::make_unique<CKovra>("DFT", "DATA.TXT", KOVRA_READ))->IsOpen()),
     {kOpenFails}},
    {"CKovra::~CKovra (temporary file)", OpenedTemporary, ACT((w.file = std::make_unique<CKovra>(), 1)), {kProbe}},
    {"GetPosition", reading, ACT(w.file->GetPosition()), {kSeekFails}},
    {"operator-=", reading, ACT(w.file->operator-=(2) == w.file.get()), {{"SetFilePointerEx", kRecords}}},
    {"ReadString (read-ahead)", Opened(KOVRA_READ | KOVRA_TEXT | KOVRA_DENY_WRITE), ReadLine, {kReadFails}},
    {"WriteString (binary)", writing, ACT(w.file->WriteString("abc")), {kWriteFails}},
    {"Printf", text, ACT(w.file->Printf(0, "%d\n", 42)), {kWriteFails}},
    {"GetModificationTime", data, ACT(w.file->GetModificationTime(&g_time, 0)), {kNoStatus}},
    {"IsDirectory", empty, ACT(w.file->IsDirectory()), {kNoStatus}},
    {"GetProfile (double)", profile, ACT(w.file->GetProfile("S", "K", 7.5)), {kProfileFails}, "7.5"},
    {"GetProfile (unsigned long)", profile, ACT(w.file->GetProfile("S", "K", 7UL)), {kProfileFails}, "7"},
    {"WriteProfile (double)", profile, ACT(w.file->WriteProfile("S", "K", 2.5)), {kProfileFails}},
    {"WriteProfile (long)", profile, ACT(w.file->WriteProfile("S", "K", -5L)), {kProfileFails}},
    {"WriteProfile (unsigned long)", profile, ACT(w.file->WriteProfile("S", "K", 5UL)), {kProfileFails}},
    {"GetRealFileName (type and name)", {}, ACT(w.file->GetRealFileName("DFT", "DATA.TXT")), {}, R"("")"},
    {"SetUser", {}, ACT(CKovra::SetUser("U")), {}},
    {"RemoveSession", [](World&) { CKovra::StartSession(kSession); }, ACT(CKovra::RemoveSession(kSession)), {}},
    {"RemoveThread", [](World&) { CKovra::StartThread(kSession, 42); }, ACT(CKovra::RemoveThread(kSession, 42)), {}},
    {"IsValidClient", {}, ACT(CKovra::IsValidClient("C1")), {{"_access", kFails}}},
    // Last, being slow: after each sharing violation the library asks the handle tool
    // (through the command interpreter) who holds the file.
    {"Open (sharing violation waited out)", {}, OPENING("DATA.TXT", KOVRA_READ), {{"CreateFileA#2", kShows}}, "0",
     {"CreateFileA", 1, kSharingViolation}},
};

TEST(FaultWalk, EveryMemberSurvivesEveryFailedPlatformCall)
{
    FaultWalk walk;
    for (const Scenario& scenario : kScenarios)
        walk.Walk(scenario);
    std::printf("fault walk: %zu members in %zu scenarios; %zu calls failed\n", walk.members.size(), kScenarios.size(),
                walk.failedCalls);
    // The judgement rests on the stand-ins and the counts: every hooked import found (or looked
    // up), an open file's handle and heap blocks seen.
    for (const Hook* hook : g_hooks)
        EXPECT_NE(*hook->real, nullptr) << hook->name;
    const Holdings before = CurrentHoldings();
    CKovra open("DFT", "DATA.TXT", KOVRA_READ);
    EXPECT_EQ(CurrentHoldings()[0], before[0] + 1);  // handles
    EXPECT_GT(CurrentHoldings()[1], before[1]);      // heap blocks
}

// Only a log that another writer holds is tried again (30000 times at most); one that waiting
// can't fix, here a directory, is given up after the first attempt of each line.
TEST(FaultRegressions, OnlyALogHeldByAnotherWriterIsWaitedFor)
{
    auto attempts = [] {  // to write the ":Close" line of an object that attempted an open
        CKovra file("DFT", "MISSING.TXT", KOVRA_READ);
        RunArmed({}, [&] { file.Close(); });
        return HookOf("_sopen")->calls;
    };
    const std::string log = kRoot + "CKOVRA.LOG";
    ::DeleteFileA(log.c_str());
    kovratest::MakeDirectories(log);
    EXPECT_EQ(1, attempts());
    ::RemoveDirectoryA(log.c_str());
    kovratest::NamedEvent done;
    kovratest::ChildProcess writer(kovratest::CommandLine("kovra_child.exe", "open DFT " + log + " 18 " + done.Name()));
    ASSERT_EQ("OPEN 1", writer.WaitForLine("OPEN"));
    EXPECT_EQ(30001, attempts());
    done.Set();
}

} // namespace
