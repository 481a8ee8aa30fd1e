#include "FaultWalk.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <set>

#include "TestSupport.h"

namespace kovrafaults {

namespace {

using Files = std::map<std::string, std::string>;  // path -> bytes, kDirectory for a directory
constexpr char kDirectory[] = "<dir>";

// What the walk is doing, for the report of a crash.
char g_currentRun[512] = "";

LONG WINAPI ReportCrash(EXCEPTION_POINTERS* exception)
{
    std::fprintf(stderr, "fault walk: exception %08lx during %s\n",
                 static_cast<unsigned long>(exception->ExceptionRecord->ExceptionCode), g_currentRun);
    std::fflush(stderr);
    return EXCEPTION_CONTINUE_SEARCH;
}

std::string PlatformDirectory(DWORD(WINAPI* query)(DWORD, LPSTR))
{
    char directory[MAX_PATH] = "";
    query(sizeof directory, directory);
    return directory;
}

// Files the library leaves in the platform's temporary directory while it asks the handle tool.
long CountTemporaryFiles()
{
    static const std::string directory = PlatformDirectory(&::GetTempPathA);
    const std::vector<std::string> names = kovratest::Entries(directory);
    return static_cast<long>(std::count_if(names.begin(), names.end(), [](const std::string& name) {
        return name.rfind("CKV", 0) == 0 && name.size() > 4 && name.compare(name.size() - 4, 4, ".tmp") == 0;
    }));
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

std::string HoldingsProblem(const Holdings& before, const Holdings& after)
{
    std::string problem;
    auto compare = [&](const char* what, long long was, long long is) {
        if (was != is)
            problem += (problem.empty() ? "left behind: " : ", ") + std::string(what) + " " + std::to_string(was) +
                       " -> " + std::to_string(is);
    };
    compare("handles", before.handles, after.handles);
    compare("heap blocks", before.heapBlocks, after.heapBlocks);
    compare("heap bytes", before.heapBytes, after.heapBytes);
    return problem;
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
    Walker(std::string fixture, Files layout);
    void Walk(const Scenario& scenario);
    std::vector<std::string> m_problems;
    std::string Summary() const;

private:
    Run Execute(const Scenario& scenario, std::vector<Failure> failures);
    void Judge(const Scenario& scenario, const Run& clean, const Run& run, const Failure* failure);
    std::vector<std::string> FileProblems(const Run& clean, const Run& run, bool mustMatchClean) const;
    const CallRule* RuleFor(const Scenario& scenario, const Failure& failure) const;
    void LayOutFixture() const;
    void Snapshot(const std::string& directory, Files& files) const;

    std::string m_fixture;
    Files m_layout;
    Files m_laidOut;  // the fixture as every run starts with it
    std::string m_workingDirectory = PlatformDirectory(&::GetCurrentDirectoryA);
    std::set<std::string> m_members;
    std::set<int> m_reached;
    int m_scenarios = 0;
    int m_failedCalls = 0;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

Walker::Walker(std::string fixture, Files layout) : m_fixture(std::move(fixture)), m_layout(std::move(layout))
{
    ::SetUnhandledExceptionFilter(&ReportCrash);
    // The first exception thrown inside the library may set up the unwinder's tables for good;
    // let that happen before anything is counted.
    CKovra failed("DFT", "NO\\SUCH\\FILE.TXT", KOVRA_READ, nullptr, 0);
    char byte = 0;
    int cause = 0;
    failed.Read(&byte, 1, 0);
    failed.GetLastError(&cause);
    LayOutFixture();
    Snapshot(m_fixture, m_laidOut);
}

void Walker::Walk(const Scenario& scenario)
{
    ++m_scenarios;
    m_members.insert(scenario.member);
    std::snprintf(g_currentRun, sizeof g_currentRun, "%s (%s), clean run", scenario.member.c_str(),
                  scenario.variant.c_str());
    Execute(scenario, {});  // the first run may set up what the library keeps for good
    const Run clean = Execute(scenario, {});
    Judge(scenario, clean, clean, nullptr);

    const int scripted = scenario.scripted ? FunctionIndex(scenario.scripted) : -1;
    for (int function = 0; function < static_cast<int>(clean.armed.counts.size()); ++function) {
        const int calls = clean.armed.counts[static_cast<size_t>(function)];
        if (calls > 0)
            m_reached.insert(function);
        for (int ordinal = function == scripted ? 2 : 1; ordinal <= calls; ++ordinal) {
            const Failure failure{function, ordinal, static_cast<Fault>(m_failedCalls++ % kFaultCount)};
            std::snprintf(g_currentRun, sizeof g_currentRun, "%s (%s), call %d of %s failed with %s",
                          scenario.member.c_str(), scenario.variant.c_str(), ordinal,
                          HookedFunctions()[static_cast<size_t>(function)].c_str(), CodeOf(failure.fault).name);
            Judge(scenario, clean, Execute(scenario, {failure}), &failure);
        }
    }
}

Run Walker::Execute(const Scenario& scenario, std::vector<Failure> failures)
{
    LayOutFixture();
    const long temporaryFilesBefore = CountTemporaryFiles();
    Run run;
    World world;
    run.before = CurrentHoldings();
    scenario.setup(world);
    if (scenario.scripted)
        failures.push_back({FunctionIndex(scenario.scripted), 1, scenario.scriptedFault});
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
void Walker::Judge(const Scenario& scenario, const Run& clean, const Run& run, const Failure* failure)
{
    const std::string function = failure ? HookedFunctions()[static_cast<size_t>(failure->function)] : "";
    const CallRule* rule = failure ? RuleFor(scenario, *failure) : nullptr;
    const Fault fault = failure ? failure->fault : Fault::accessDenied;
    unsigned effect = rule ? rule->effect : 0;
    const bool believedGone = (effect & kNotFoundMeansGone) && fault == Fault::pathNotFound;
    if (believedGone)
        effect |= kAnyResult | kFilesMayDiffer;
    const bool retried = (effect & kRetriesSharing) && fault == Fault::sharingViolation;
    const std::string& dueResult = (effect & kFails) && !retried ? scenario.failureResult : clean.result;
    const int dueCause = rule && rule->cause >= 0 ? rule->cause : (effect & kRecords) ? CodeOf(fault).cause : clean.cause;
    // A failed deletion leaves the file it would have removed.
    const bool leftoversExcused = function == "DeleteFileA" || function == "_unlink" || believedGone;

    std::vector<std::string> problems;
    if (run.armed.threw)
        problems.push_back("an exception crossed the interface");
    if (!run.armed.failuresMet)
        problems.push_back("a failure planned for the run was not met");
    if (!(effect & kAnyResult) && run.result != dueResult)
        problems.push_back("answered \"" + run.result + "\" where \"" + dueResult + "\" was due");
    if (run.cause != dueCause)
        problems.push_back("GetLastError reported cause " + std::to_string(run.cause) + " where " +
                           std::to_string(dueCause) + " was due");
    if (std::string held = HoldingsProblem(run.before, run.after); !held.empty())
        problems.push_back(held);
    if (run.temporaryFilesLeft != 0 && !leftoversExcused)
        problems.push_back("temporary files left: " + std::to_string(run.temporaryFilesLeft));
    for (const auto& file : run.files)
        if (IsTemporaryFile(file.first) && !leftoversExcused && (!failure || !clean.files.count(file.first)))
            problems.push_back("temporary file left: " + file.first);
    const bool answeredSuccess = run.result == clean.result && clean.result != scenario.failureResult;
    for (const std::string& problem : FileProblems(clean, run, answeredSuccess && !(effect & kFilesMayDiffer)))
        problems.push_back(problem);

    const std::string prefix = scenario.member + " (" + scenario.variant + "), " +
                               (failure ? "call " + std::to_string(failure->ordinal) + " of " + function +
                                              " failed with " + CodeOf(fault).name
                                        : std::string("clean run")) + ": ";
    for (const std::string& problem : problems)
        m_problems.push_back(prefix + problem);
}

// The files after a run must be, path by path, as they were laid out or as a clean run leaves
// them (exactly as a clean run leaves them when the member answered success), and a file
// that a clean run moves must be at one of its two places.
std::vector<std::string> Walker::FileProblems(const Run& clean, const Run& run, bool mustMatchClean) const
{
    std::set<std::string> paths;
    for (const Files* files : {&m_laidOut, &clean.files, &run.files})
        for (const auto& file : *files)
            paths.insert(file.first);
    std::vector<std::string> problems;
    for (const std::string& path : paths) {
        const auto before = Lookup(m_laidOut, path), cleanAfter = Lookup(clean.files, path);
        const auto after = Lookup(run.files, path);
        if (after == cleanAfter || IsTemporaryFile(path) || (!mustMatchClean && after == before))
            continue;
        problems.push_back(path + " is " + Describe(after) +
                           (mustMatchClean ? " though the member answered success"
                                           : ", neither as before (" + Describe(before) + ")") +
                           ", a clean run leaves it " + Describe(cleanAfter));
    }
    for (const auto& [path, bytes] : m_laidOut)
        if (bytes != kDirectory && !clean.files.count(path))
            for (const auto& [target, moved] : clean.files)
                if (moved == bytes && !m_laidOut.count(target) && Lookup(run.files, path) != bytes &&
                    Lookup(run.files, target) != bytes)
                    problems.push_back(path + " is lost: neither there nor at " + target);
    return problems;
}

const CallRule* Walker::RuleFor(const Scenario& scenario, const Failure& failure) const
{
    const std::string& name = HookedFunctions()[static_cast<size_t>(failure.function)];
    for (const std::string& wanted : {name + "#" + std::to_string(failure.ordinal), name})
        for (const CallRule& rule : scenario.rules)
            if (rule.call == wanted)
                return &rule;
    return nullptr;
}

void Walker::LayOutFixture() const
{
    kovratest::RemoveTree(m_fixture);
    kovratest::MakeDirectories(m_fixture);
    for (const auto& [name, bytes] : m_layout) {
        if (name.back() == '\\')
            kovratest::MakeDirectories(m_fixture + name);
        else
            kovratest::WriteFileBytes(m_fixture + name, bytes);
    }
}

void Walker::Snapshot(const std::string& directory, Files& files) const
{
    for (const std::string& name : kovratest::Entries(directory)) {
        const std::string path = directory + name;
        if (directory == m_fixture && name == "CKOVRA.LOG")
            continue;  // the library's own log grows in every run
        if (::GetFileAttributesA(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY) {
            files[path] = kDirectory;
            Snapshot(path + "\\", files);
        } else {
            files[path] = kovratest::ReadFileBytes(path);
        }
    }
}

std::string Walker::Summary() const
{
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    std::string uncalled;
    for (size_t function = 0; function < HookedFunctions().size(); ++function)
        if (!m_reached.count(static_cast<int>(function)))
            uncalled += (uncalled.empty() ? "" : ", ") + HookedFunctions()[function];
    char line[512];
    std::snprintf(line, sizeof line,
                  "fault walk: %zu platform functions hooked, %zu of them called (not: %s); %zu members in %d "
                  "scenarios; %d calls failed one at a time; %.1f s",
                  HookedFunctions().size(), m_reached.size(), uncalled.c_str(), m_members.size(), m_scenarios,
                  m_failedCalls, seconds);
    return line;
}

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
