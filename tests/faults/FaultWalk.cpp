#include "FaultWalk.h"

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <optional>
#include <set>

#include "TestSupport.h"

namespace kovrafaults {

namespace {

using Files = std::map<std::string, std::string>;  // path -> bytes, kDirectory for a directory
constexpr char kDirectory[] = "<dir>";
std::string g_currentRun;  // what the walk is doing, for the report of a crash

LONG WINAPI ReportCrash(EXCEPTION_POINTERS* exception)
{
    std::fprintf(stderr, "fault walk: exception %08lx during %s\n",
                 static_cast<unsigned long>(exception->ExceptionRecord->ExceptionCode), g_currentRun.c_str());
    return EXCEPTION_CONTINUE_SEARCH;
}

// Files the library leaves in the platform's temporary directory while it asks the handle tool.
long CountTemporaryFiles()
{
    char directory[MAX_PATH] = "";
    ::GetTempPathA(sizeof directory, directory);
    long count = 0;
    for (const std::string& name : kovratest::Entries(directory))
        count += name.size() > 7 && _strnicmp(name.c_str(), "CKV", 3) == 0 && _stricmp(&name.end()[-4], ".tmp") == 0;
    return count;
}

// A temporary file of an object in temporary-file mode.
bool IsTemporaryFile(const std::string& path)
{
    return path.find("\\CKV_") != std::string::npos;
}

std::optional<std::string> Lookup(const Files& files, const std::string& path)
{
    auto found = files.find(path);
    return found == files.end() ? std::nullopt : std::optional<std::string>(found->second);
}

std::string Describe(const std::optional<std::string>& state)
{
    return !state ? "absent" : *state == kDirectory ? "a directory" : std::to_string(state->size()) + " bytes";
}

struct Run {
    std::string result;
    int cause = 0;
    ArmedRun armed;
    Holdings before, after;
    long temporaryFilesLeft = 0;
    Files files;
};

class Walker {
public:
    Walker(std::string fixture, Files layout) : m_fixture(std::move(fixture)), m_layout(std::move(layout))
    {
        ::SetUnhandledExceptionFilter(&ReportCrash);
        char directory[MAX_PATH] = "";
        ::GetCurrentDirectoryA(sizeof directory, directory);
        m_workingDirectory = directory;
        // The first exception thrown inside the library may set up the unwinder's tables for
        // good; let that happen before anything is counted.
        CKovra failed("DFT", "NO\\SUCH\\FILE.TXT", KOVRA_READ, nullptr, 0);
        char byte = 0;
        int cause = 0;
        failed.Read(&byte, 1, 0);
        failed.GetLastError(&cause);
        LayOutFixture();
        Snapshot(m_fixture, m_laidOut);
    }

    void Walk(const Scenario& scenario)
    {
        ++m_scenarios;
        m_members.insert(scenario.member);
        const std::string name = scenario.member + " (" + scenario.variant + "), ";
        g_currentRun = name + "clean run";
        Execute(scenario, {});  // the first run may set up what the library keeps for good
        const Run clean = Execute(scenario, {});
        Judge(scenario, clean, clean, nullptr, name + "clean run: ");
        for (size_t function = 0; function < clean.armed.counts.size(); ++function) {
            const std::string& called = HookedFunctions()[function];
            const int calls = clean.armed.counts[function];
            if (calls > 0)
                m_reached.insert(called);
            for (int ordinal = scenario.scripted == called ? 2 : 1; ordinal <= calls; ++ordinal) {
                const Failure failure{called, ordinal, static_cast<Fault>(m_failedCalls++ % kFaultCount)};
                g_currentRun = name + "call " + std::to_string(ordinal) + " of " + called + " failed with " +
                               CodeOf(failure.fault).name;
                Judge(scenario, clean, Execute(scenario, {failure}), &failure, g_currentRun + ": ");
            }
        }
    }

    std::string Summary() const
    {
        std::string uncalled;
        for (const std::string& function : HookedFunctions())
            if (!m_reached.count(function))
                uncalled += (uncalled.empty() ? "" : ", ") + function;
        char line[512];
        std::snprintf(line, sizeof line,
                      "fault walk: %zu platform functions hooked, %zu of them called (not: %s); %zu members in %d "
                      "scenarios; %d calls failed one at a time; %.1f s",
                      HookedFunctions().size(), m_reached.size(), uncalled.c_str(), m_members.size(), m_scenarios,
                      m_failedCalls, std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count());
        return line;
    }

    std::vector<std::string> m_problems;

private:
    Run Execute(const Scenario& scenario, std::vector<Failure> failures)
    {
        LayOutFixture();
        const long temporaryFilesBefore = CountTemporaryFiles();
        Run run;
        World world;
        run.before = CurrentHoldings();
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
        ::SetCurrentDirectoryA(m_workingDirectory.c_str());
        run.after = CurrentHoldings();
        run.temporaryFilesLeft = CountTemporaryFiles() - temporaryFilesBefore;
        Snapshot(m_fixture, run.files);
        return run;
    }

    // Judges a run with one call failed, or, without a failure, the clean run itself.
    void Judge(const Scenario& scenario, const Run& clean, const Run& run, const Failure* failure,
               const std::string& prefix)
    {
        const CallRule* rule = failure ? RuleFor(scenario, *failure) : nullptr;
        const Fault fault = failure ? failure->fault : Fault::accessDenied;
        unsigned effect = rule ? rule->effect : 0;
        const bool believedGone = (effect & kNotFoundMeansGone) && fault == Fault::pathNotFound;
        if (believedGone)
            effect |= kAnyResult | kFilesMayDiffer;
        const bool retried = (effect & kRetriesSharing) && fault == Fault::sharingViolation;
        const std::string& dueResult = (effect & kFails) && !retried ? scenario.failureResult : clean.result;
        const int dueCause = rule && rule->cause >= 0 ? rule->cause : effect & kRecords ? CodeOf(fault).cause : clean.cause;
        // A failed deletion leaves the file it would have removed.
        const bool leftoversExcused =
            failure && (failure->function == "DeleteFileA" || failure->function == "_unlink" || believedGone);

        auto report = [&](const std::string& problem) { m_problems.push_back(prefix + problem); };
        if (run.armed.threw)
            report("an exception crossed the interface");
        if (!run.armed.failuresMet)
            report("a failure planned for the run was not met");
        if (!(effect & kAnyResult) && run.result != dueResult)
            report("answered \"" + run.result + "\" where \"" + dueResult + "\" was due");
        if (run.cause != dueCause)
            report("GetLastError reported cause " + std::to_string(run.cause) + " where " + std::to_string(dueCause) +
                   " was due");
        const std::pair<const char*, long long> held[] = {{"handles", run.after.handles - run.before.handles},
                                                          {"heap blocks", run.after.heapBlocks - run.before.heapBlocks},
                                                          {"heap bytes", run.after.heapBytes - run.before.heapBytes}};
        for (const auto& [what, more] : held)
            if (more != 0)
                report(std::string(what) + " left behind: " + std::to_string(more));
        if (run.temporaryFilesLeft != 0 && !leftoversExcused)
            report("temporary files left: " + std::to_string(run.temporaryFilesLeft));
        for (const auto& file : run.files)
            if (IsTemporaryFile(file.first) && !leftoversExcused && (!failure || !clean.files.count(file.first)))
                report("temporary file left: " + file.first);
        const bool answeredSuccess = run.result == clean.result && clean.result != scenario.failureResult;
        ReportFileProblems(clean, run, answeredSuccess && !(effect & kFilesMayDiffer), report);
    }

    // The files after a run must be, path by path, as they were laid out or as a clean run
    // leaves them (exactly as a clean run leaves them when the member answered success), and a
    // file that a clean run moves must be at one of its two places.
    template <typename Report>
    void ReportFileProblems(const Run& clean, const Run& run, bool mustMatchClean, Report report) const
    {
        std::set<std::string> paths;
        for (const Files* files : {&m_laidOut, &clean.files, &run.files})
            for (const auto& file : *files)
                paths.insert(file.first);
        for (const std::string& path : paths) {
            const auto before = Lookup(m_laidOut, path), cleanAfter = Lookup(clean.files, path);
            const auto after = Lookup(run.files, path);
            if (after != cleanAfter && !IsTemporaryFile(path) && (mustMatchClean || after != before))
                report(path + " is " + Describe(after) +
                       (mustMatchClean ? " though the member answered success" : ", was " + Describe(before)) +
                       ", a clean run leaves it " + Describe(cleanAfter));
        }
        for (const auto& [path, bytes] : m_laidOut)
            if (bytes != kDirectory && !clean.files.count(path))
                for (const auto& [target, moved] : clean.files)
                    if (moved == bytes && !m_laidOut.count(target) && Lookup(run.files, path) != bytes &&
                        Lookup(run.files, target) != bytes)
                        report(path + " is lost: neither there nor at " + target);
    }

    const CallRule* RuleFor(const Scenario& scenario, const Failure& failure) const
    {
        for (const std::string& wanted : {failure.function + "#" + std::to_string(failure.ordinal), failure.function})
            for (const CallRule& rule : scenario.rules)
                if (rule.call == wanted)
                    return &rule;
        return nullptr;
    }

    void LayOutFixture() const
    {
        kovratest::RemoveTree(m_fixture);
        kovratest::MakeDirectories(m_fixture);
        for (const auto& [name, bytes] : m_layout)
            if (name.back() == '\\')
                kovratest::MakeDirectories(m_fixture + name);
            else
                kovratest::WriteFileBytes(m_fixture + name, bytes);
    }

    void Snapshot(const std::string& directory, Files& files) const
    {
        for (const std::string& name : kovratest::Entries(directory)) {
            const std::string path = directory + name;
            if (directory == m_fixture && name == "CKOVRA.LOG")
                continue;  // the library's own log grows in every run
            const bool isDirectory = ::GetFileAttributesA(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY;
            files[path] = isDirectory ? kDirectory : kovratest::ReadFileBytes(path);
            if (isDirectory)
                Snapshot(path + "\\", files);
        }
    }

    std::string m_fixture;
    Files m_layout;
    Files m_laidOut;  // the fixture as every run starts with it
    std::string m_workingDirectory;
    std::set<std::string> m_members, m_reached;
    int m_scenarios = 0;
    int m_failedCalls = 0;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

} // namespace

std::vector<std::string> WalkAll(const std::string& fixture, const std::map<std::string, std::string>& files,
                                 const std::vector<Scenario>& scenarios, std::string& summary)
{
    Walker walker(fixture, files);
    for (const Scenario& scenario : scenarios)
        walker.Walk(scenario);
    summary = walker.Summary();
    return walker.m_problems;
}

} // namespace kovrafaults
