// The fault walk: runs a scenario of one exported member once as it is, counting its platform
// calls, then once for every one of those calls with that call failing, and judges each run: no
// exception, the member's result and reported cause, no handle, heap block or temporary file
// left behind, no file lost or half written.
#pragma once

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <type_traits>
#include <utility>

#include "FaultInjection.h"
#include "TestSupport.h"
#include "kovra/kovra.h"

namespace kovrafaults {

// What a scenario works with; the walk tears it down after every run.
struct World {
    std::unique_ptr<CKovra> file;  // GetLastError of this object is the run's reported cause
    std::unique_ptr<CKovraFind> find;
    std::vector<std::function<void()>> undo;  // run last to first, unarmed
};

// What a failed call does to the member, beyond answering as a clean run does.
enum Effect : unsigned {
    kFails = 1,              // the member answers with its failure result
    kRecords = 2,            // GetLastError reports the cause of the injected error
    kShows = kFails | kRecords,
    kRetriesSharing = 4,     // a sharing violation is waited out and the member succeeds
    kAnyResult = 8,          // the member can't tell: its result is not judged
    kFilesMayDiffer = 16,    // the member answers success though the files differ from a clean run
    kNotFoundMeansGone = 32  // an existence test answered "path not found": the member acts as
                             // for a missing file, and may leave the file it would have removed
};

struct CallRule {
    std::string call;  // "CreateFileA" for every call of it, "CreateFileA#2" for its second
    unsigned effect;
    int cause = -1;    // the cause GetLastError must report; -1: by kRecords, else as a clean run
};

struct Scenario {
    std::string member, variant;
    std::function<void(World&)> setup;       // unarmed
    std::function<std::string(World&)> act;  // armed: calls the member, returns its result as text
    std::string failureResult;
    std::vector<CallRule> rules;
    // The first call of this function fails in every run, so that the walk reaches the road after it.
    std::string scripted = "";
    Fault scriptedFault = Fault::accessDenied;
};

// A result as the walk compares it.
inline std::string Text(std::string text) { return text; }
template <typename Value>
std::string Text(Value value)
{
    if constexpr (std::is_pointer_v<Value>)
        return value ? value : "(null)";
    else
        return std::to_string(value);
}

inline std::string g_currentRun;  // what the walk is doing, for the report of a crash

inline LONG WINAPI ReportCrash(EXCEPTION_POINTERS* exception)
{
    std::fprintf(stderr, "fault walk: exception %08lx during %s\n",
                 static_cast<unsigned long>(exception->ExceptionRecord->ExceptionCode), g_currentRun.c_str());
    return EXCEPTION_CONTINUE_SEARCH;
}

class FaultWalk {
public:
    // Lays out the fixture directory with files (name -> bytes; a name ending in a backslash is
    // a directory), as it is laid out again before every run.
    FaultWalk(const std::string& fixture, const std::map<std::string, std::string>& files) : m_fixture(fixture)
    {
        ::SetUnhandledExceptionFilter(&ReportCrash);
        ::GetCurrentDirectoryA(sizeof m_workingDirectory, m_workingDirectory);
        // The first exception thrown inside the library may set up the unwinder's tables for
        // good; let that happen before anything is counted.
        CKovra failed("DFT", "NO\\SUCH\\FILE.TXT", KOVRA_READ, nullptr, 0);
        char byte = 0;
        int cause = 0;
        failed.Read(&byte, 1, 0);
        failed.GetLastError(&cause);
        kovratest::RemoveTree(m_fixture);
        for (const auto& [name, bytes] : files)
            name.back() == '\\' ? kovratest::MakeDirectories(m_fixture + name)
                                : kovratest::WriteFileBytes(m_fixture + name, bytes);
        long temporaryFiles = 0;
        Snapshot(m_fixture, m_laidOut, temporaryFiles);
    }

    void Walk(const Scenario& scenario)
    {
        m_members.insert(scenario.member);
        const std::string name = scenario.member + " (" + scenario.variant + "), ";
        g_currentRun = name + "clean run";
        Execute(scenario, {});  // the first run may set up what the library keeps for good
        const Run clean = Execute(scenario, {});
        Judge(scenario, clean, clean, {"", 0, Fault::accessDenied});
        for (size_t function = 0; function < clean.armed.counts.size(); ++function) {
            const std::string& called = HookedFunctions()[function];
            const int calls = clean.armed.counts[function];
            if (calls > 0)
                m_reached.insert(called);
            for (int ordinal = scenario.scripted == called ? 2 : 1; ordinal <= calls; ++ordinal) {
                const Failure failure{called, ordinal, static_cast<Fault>(m_failedCalls++ % kFaultCount)};
                g_currentRun = name + "call " + Text(ordinal) + " of " + called + " failed with " +
                               CodeOf(failure.fault).name;
                Judge(scenario, clean, Execute(scenario, {failure}), failure);
            }
        }
        ++m_scenarios;
    }

    const std::vector<std::string>& Problems() const { return m_problems; }

    std::string Summary() const
    {
        std::string summary = "fault walk: " + Text(HookedFunctions().size()) + " platform functions hooked, " +
                              Text(m_reached.size()) + " of them called (not:";
        for (const std::string& function : HookedFunctions())
            if (!m_reached.count(function))
                summary += " " + function;
        return summary + "); " + Text(m_members.size()) + " members in " + Text(m_scenarios) + " scenarios; " +
               Text(m_failedCalls) + " calls failed one at a time";
    }

private:
    using Files = std::map<std::string, std::string>;  // path -> bytes, or kDirectory
    static constexpr char kDirectory[] = "<dir>";

    struct Run {
        std::string result;
        int cause = 0;
        ArmedRun armed;
        Holdings before, after;
        long temporaryFilesLeft = 0;
        Files files;
    };

    Run Execute(const Scenario& scenario, std::vector<Failure> failures) const
    {
        kovratest::RemoveTree(m_fixture);
        for (const auto& [path, bytes] : m_laidOut)
            bytes == kDirectory ? kovratest::MakeDirectories(path) : kovratest::WriteFileBytes(path, bytes);
        Run run;
        run.temporaryFilesLeft = -CountTemporaryFiles();
        run.before = CurrentHoldings();
        World world;
        scenario.setup(world);
        if (!scenario.scripted.empty())
            failures.push_back({scenario.scripted, 1, scenario.scriptedFault});
        run.armed = RunArmed(failures, [&] { run.result = scenario.act(world); });
        if (world.file)
            world.file->GetLastError(&run.cause, nullptr, 0, 0);
        for (auto undo = world.undo.rbegin(); undo != world.undo.rend(); ++undo)
            (*undo)();
        world.find.reset();
        world.file.reset();
        ::SetCurrentDirectoryA(m_workingDirectory);
        run.after = CurrentHoldings();
        run.temporaryFilesLeft += CountTemporaryFiles();
        Snapshot(m_fixture, run.files, run.temporaryFilesLeft);
        return run;
    }

    // Judges a run with one call failed, or, with a failure of no function, the clean run itself.
    void Judge(const Scenario& scenario, const Run& clean, const Run& run, const Failure& failure)
    {
        const CallRule* rule = RuleFor(scenario, failure);
        unsigned effect = rule ? rule->effect : 0;
        const bool believedGone = (effect & kNotFoundMeansGone) && failure.fault == Fault::pathNotFound;
        if (believedGone)
            effect |= kAnyResult | kFilesMayDiffer;
        const bool retried = (effect & kRetriesSharing) && failure.fault == Fault::sharingViolation;
        const std::string& dueResult = (effect & kFails) && !retried ? scenario.failureResult : clean.result;
        const int dueCause = rule && rule->cause >= 0 ? rule->cause
                             : effect & kRecords     ? CodeOf(failure.fault).cause
                                                     : clean.cause;
        // A failed deletion leaves the file it would have removed.
        const bool leftoversExcused =
            failure.function == "DeleteFileA" || failure.function == "_unlink" || believedGone;

        if (run.armed.threw)
            Report("an exception crossed the interface");
        if (!run.armed.failuresMet)
            Report("a failure planned for the run was not met");
        if (!(effect & kAnyResult) && run.result != dueResult)
            Report("answered \"" + run.result + "\" where \"" + dueResult + "\" was due");
        if (run.cause != dueCause)
            Report("GetLastError reported cause " + Text(run.cause) + " where " + Text(dueCause) + " was due");
        const std::pair<const char*, long long> held[] = {{"handles", run.after.handles - run.before.handles},
                                                          {"heap blocks", run.after.heapBlocks - run.before.heapBlocks},
                                                          {"heap bytes", run.after.heapBytes - run.before.heapBytes}};
        for (const auto& [what, more] : held)
            if (more != 0)
                Report(std::string(what) + " left behind: " + Text(more));
        if (run.temporaryFilesLeft != 0 && !leftoversExcused)
            Report("temporary files left: " + Text(run.temporaryFilesLeft));
        const bool answeredSuccess = run.result == clean.result && clean.result != scenario.failureResult;
        CheckFiles(clean, run, answeredSuccess && !(effect & kFilesMayDiffer));
    }

    // The files after a run must be, path by path, as they were laid out or as a clean run
    // leaves them (exactly as a clean run leaves them when the member answered success), and a
    // file that a clean run moves must be at one of its two places.
    void CheckFiles(const Run& clean, const Run& run, bool mustMatchClean)
    {
        std::set<std::string> paths;
        for (const Files* files : {&std::as_const(m_laidOut), &clean.files, &run.files})
            for (const auto& file : *files)
                paths.insert(file.first);
        for (const std::string& path : paths) {
            const std::string before = State(m_laidOut, path), cleanAfter = State(clean.files, path);
            const std::string after = State(run.files, path);
            if (after != cleanAfter && (mustMatchClean || after != before))
                Report(path + " is " + Describe(after) +
                       (mustMatchClean ? " though the member answered success" : ", was " + Describe(before)) +
                       ", a clean run leaves it " + Describe(cleanAfter));
        }
        for (const auto& [path, bytes] : m_laidOut)
            if (bytes != kDirectory && !clean.files.count(path))
                for (const auto& [target, moved] : clean.files)
                    if (moved == bytes && !m_laidOut.count(target) && State(run.files, path) != bytes &&
                        State(run.files, target) != bytes)
                        Report(path + " is lost: neither there nor at " + target);
    }

    void Report(const std::string& problem) { m_problems.push_back(g_currentRun + ": " + problem); }

    static const CallRule* RuleFor(const Scenario& scenario, const Failure& failure)
    {
        for (const std::string& wanted : {failure.function + "#" + Text(failure.ordinal), failure.function})
            for (const CallRule& rule : scenario.rules)
                if (rule.call == wanted)
                    return &rule;
        return nullptr;
    }

    // The files and directories under directory; temporary files of objects in temporary-file
    // mode are counted instead, and the library's own log, which grows in every run, is left out.
    void Snapshot(const std::string& directory, Files& files, long& temporaryFiles) const
    {
        ForEachEntry(directory + "*", [&](const WIN32_FIND_DATAA& entry) {
            const std::string name = entry.cFileName, path = directory + name;
            if (name.rfind("CKV_", 0) == 0) {
                ++temporaryFiles;
            } else if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                files[path] = kDirectory;
                Snapshot(path + "\\", files, temporaryFiles);
            } else if (name != "CKOVRA.LOG" || directory != m_fixture) {
                files[path] = kovratest::ReadFileBytes(path);
            }
        });
    }

    // Files the library leaves in the platform's temporary directory while it asks the handle tool.
    static long CountTemporaryFiles()
    {
        char directory[MAX_PATH] = "";
        ::GetTempPathA(sizeof directory, directory);
        long count = 0;
        ForEachEntry(directory + std::string("CKV*.tmp"), [&](const WIN32_FIND_DATAA&) { ++count; });
        return count;
    }

    template <typename Visit>
    static void ForEachEntry(const std::string& pattern, Visit visit)
    {
        WIN32_FIND_DATAA entry;
        HANDLE search = ::FindFirstFileA(pattern.c_str(), &entry);
        if (search == INVALID_HANDLE_VALUE)
            return;
        do {
            if (std::strcmp(entry.cFileName, ".") != 0 && std::strcmp(entry.cFileName, "..") != 0)
                visit(entry);
        } while (::FindNextFileA(search, &entry));
        ::FindClose(search);
    }

    // A path's state: its bytes, kDirectory, or kAbsent.
    static constexpr char kAbsent[] = "<absent>";
    static std::string State(const Files& files, const std::string& path)
    {
        return files.count(path) ? files.at(path) : kAbsent;
    }

    static std::string Describe(const std::string& state)
    {
        return state == kAbsent ? "absent" : state == kDirectory ? "a directory" : Text(state.size()) + " bytes";
    }

    std::string m_fixture;
    Files m_laidOut;  // the fixture as every run starts with it
    char m_workingDirectory[MAX_PATH] = "";
    std::vector<std::string> m_problems;
    std::set<std::string> m_members, m_reached;
    int m_scenarios = 0;
    int m_failedCalls = 0;
};

} // namespace kovrafaults
