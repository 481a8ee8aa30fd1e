#include "FaultWalk.h"

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <optional>

#include "TestSupport.h"

namespace kovrafaults {

namespace {

constexpr char kDirectory[] = "<dir>";
constexpr char kLogName[] = "CKOVRA.LOG";  // the library's own log grows in every run

// What the walk is doing, for the report of a crash.
char g_currentRun[512] = "";

LONG WINAPI ReportCrash(EXCEPTION_POINTERS* exception)
{
    std::fprintf(stderr, "fault walk: exception %08lx during %s\n",
                 static_cast<unsigned long>(exception->ExceptionRecord->ExceptionCode), g_currentRun);
    std::fflush(stderr);
    return EXCEPTION_CONTINUE_SEARCH;
}

std::string WorkingDirectory()
{
    char directory[MAX_PATH] = "";
    ::GetCurrentDirectoryA(sizeof directory, directory);
    return directory;
}

std::string TemporaryDirectory()
{
    char directory[MAX_PATH] = "";
    ::GetTempPathA(sizeof directory, directory);
    return directory;
}

// Files the library leaves in the platform's temporary directory while it asks the handle tool.
long CountTemporaryFiles()
{
    static const std::string pattern = TemporaryDirectory() + "CKV*.tmp";
    WIN32_FIND_DATAA entry;
    HANDLE search = ::FindFirstFileA(pattern.c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return 0;
    long count = 0;
    do {
        ++count;
    } while (::FindNextFileA(search, &entry));
    ::FindClose(search);
    return count;
}

// A temporary file of an object in temporary-file mode.
bool IsTemporaryFile(const std::string& path)
{
    return path.find("\\CKV_") != std::string::npos;
}

std::optional<std::string> Lookup(const std::map<std::string, std::string>& files, const std::string& path)
{
    auto found = files.find(path);
    return found == files.end() ? std::nullopt : std::optional<std::string>(found->second);
}

std::string Describe(const std::optional<std::string>& state)
{
    if (!state)
        return "absent";
    if (*state == kDirectory)
        return "a directory";
    return std::to_string(state->size()) + " bytes";
}

bool IsDeletion(const std::string& function)
{
    return function == "DeleteFileA" || function == "_unlink";
}

std::string Difference(const char* what, long long before, long long after)
{
    return after == before ? "" : std::string(what) + " " + std::to_string(before) + " -> " + std::to_string(after);
}

std::string HoldingsProblem(const Holdings& before, const Holdings& after)
{
    std::string problem = Difference("handles", before.handles, after.handles);
    for (const std::string& part : {Difference("heap blocks", before.heapBlocks, after.heapBlocks),
                                    Difference("heap bytes", before.heapBytes, after.heapBytes)})
        if (!part.empty())
            problem += (problem.empty() ? "" : ", ") + part;
    return problem.empty() ? "" : "left behind: " + problem;
}

} // namespace

std::string Text(long long value)
{
    return std::to_string(value);
}

std::string Text(const char* text)
{
    return text ? text : "(null)";
}

FaultWalk::FaultWalk(std::string fixture, std::map<std::string, std::string> files)
    : m_fixture(std::move(fixture)), m_layout(std::move(files)), m_workingDirectory(WorkingDirectory())
{
    ::SetUnhandledExceptionFilter(&ReportCrash);
    // The first exception thrown inside the library may set up the unwinder's tables for good;
    // let that happen before anything is counted.
    {
        CKovra failed("DFT", "NO\\SUCH\\FILE.TXT", KOVRA_READ, nullptr, 0);
        char byte = 0;
        failed.Read(&byte, 1, 0);
        int cause = 0;
        failed.GetLastError(&cause, nullptr, 0, 0);
    }
    LayOutFixture();
    m_laidOut = Snapshot();
}

void FaultWalk::Walk(const Scenario& scenario)
{
    ++m_scenarios;
    m_members.insert(scenario.member);
    const std::vector<std::string>& functions = HookedFunctions();
    std::snprintf(g_currentRun, sizeof g_currentRun, "%s (%s), clean run", scenario.member.c_str(),
                  scenario.variant.c_str());
    Execute(scenario, {});  // the first run may set up what the library keeps for good
    const Run clean = Execute(scenario, {});
    JudgeCleanRun(scenario, clean);

    const int scriptedFunction = scenario.scripted.call.empty() ? -1 : FunctionIndex(scenario.scripted.call);
    for (size_t function = 0; function < functions.size(); ++function) {
        if (clean.counts[function] > 0)
            m_reached.insert(static_cast<int>(function));
        for (int ordinal = 1; ordinal <= clean.counts[function]; ++ordinal) {
            if (static_cast<int>(function) == scriptedFunction && ordinal == scenario.scripted.ordinal)
                continue;  // fails in every run already
            const Planned failure{static_cast<int>(function), ordinal, static_cast<Fault>(m_failedCalls % kFaultCount)};
            ++m_failedCalls;
            std::snprintf(g_currentRun, sizeof g_currentRun, "%s (%s), call %d of %s failed with %s",
                          scenario.member.c_str(), scenario.variant.c_str(), ordinal, functions[function].c_str(),
                          CodeOf(failure.fault).name);
            JudgeFaultRun(scenario, clean, failure, Execute(scenario, {failure}));
        }
    }
}

FaultWalk::Run FaultWalk::Execute(const Scenario& scenario, const std::vector<Planned>& failures)
{
    LayOutFixture();
    const long temporaryFilesBefore = CountTemporaryFiles();
    Run run;
    World world;
    run.before = CurrentHoldings();
    scenario.setup(world);

    ClearFailures();
    if (!scenario.scripted.call.empty())
        FailCall(FunctionIndex(scenario.scripted.call), scenario.scripted.ordinal, scenario.scripted.fault);
    for (const Planned& failure : failures)
        FailCall(failure.function, failure.ordinal, failure.fault);
    Arm();
    try {
        run.result = scenario.act(world);
    } catch (...) {
        run.threw = true;
    }
    Disarm();
    run.failuresMet = AllFailuresMet();
    ClearFailures();
    for (size_t function = 0; function < HookedFunctions().size(); ++function)
        run.counts.push_back(CallCount(static_cast<int>(function)));
    if (world.file)
        world.file->GetLastError(&run.cause, nullptr, 0, 0);

    for (auto undo = world.undo.rbegin(); undo != world.undo.rend(); ++undo)
        (*undo)();
    world.find.reset();
    world.file.reset();
    ::SetCurrentDirectoryA(m_workingDirectory.c_str());
    run.after = CurrentHoldings();
    run.temporaryFilesLeft = CountTemporaryFiles() - temporaryFilesBefore;
    run.files = Snapshot();
    return run;
}

void FaultWalk::JudgeCleanRun(const Scenario& scenario, const Run& run)
{
    if (run.threw)
        Report(scenario, "clean run: an exception crossed the interface");
    if (!run.failuresMet)
        Report(scenario, "clean run: the scripted failure was not met");
    std::string held = HoldingsProblem(run.before, run.after);
    if (!held.empty())
        Report(scenario, "clean run: " + held);
    if (run.temporaryFilesLeft != 0)
        Report(scenario, "clean run: temporary files left: " + std::to_string(run.temporaryFilesLeft));
    for (const auto& file : run.files)
        if (IsTemporaryFile(file.first))
            Report(scenario, "clean run: temporary file left: " + file.first);
}

void FaultWalk::JudgeFaultRun(const Scenario& scenario, const Run& clean, const Planned& failure, const Run& run)
{
    const std::string& function = HookedFunctions()[static_cast<size_t>(failure.function)];
    const FaultCode& code = CodeOf(failure.fault);
    const std::string prefix = "call " + std::to_string(failure.ordinal) + " of " + function + " failed with " +
                               code.name + ": ";
    const CallRule* rule = RuleFor(scenario, failure.function, failure.ordinal);
    unsigned effect = rule ? rule->effect : 0;
    const bool believedGone = (effect & kNotFoundMeansGone) && failure.fault == Fault::pathNotFound;
    if (believedGone)
        effect |= kAnyResult | kFilesMayDiffer;

    if (run.threw)
        Report(scenario, prefix + "an exception crossed the interface");
    if (!run.failuresMet)
        Report(scenario, prefix + "the call was not made again");
    const bool retried = (effect & kRetriesSharing) && failure.fault == Fault::sharingViolation;
    const std::string& due = (effect & kFails) && !retried ? scenario.failureResult : clean.result;
    if (!(effect & kAnyResult) && run.result != due)
        Report(scenario, prefix + "answered \"" + run.result + "\" where \"" + due + "\" was due");
    const int dueCause = rule && rule->cause >= 0 ? rule->cause : (effect & kRecords) ? code.cause : clean.cause;
    if (run.cause != dueCause)
        Report(scenario, prefix + "GetLastError reported cause " + std::to_string(run.cause) + " where " +
                             std::to_string(dueCause) + " was due");

    std::string held = HoldingsProblem(run.before, run.after);
    if (!held.empty())
        Report(scenario, prefix + held);
    const bool leftoversExcused = IsDeletion(function) || believedGone;
    if (run.temporaryFilesLeft != 0 && !leftoversExcused)
        Report(scenario, prefix + "temporary files left: " + std::to_string(run.temporaryFilesLeft));
    const bool answeredSuccess = run.result == clean.result && clean.result != scenario.failureResult;
    for (const std::string& problem :
         FileProblems(clean, run, answeredSuccess && !(effect & kFilesMayDiffer), leftoversExcused))
        Report(scenario, prefix + problem);
}

// The files after a run must be, path by path, as they were laid out or as a clean run leaves
// them (exactly as a clean run leaves them when the member answered success), and a file
// that a clean run moves must be at one of its two places.
std::vector<std::string> FaultWalk::FileProblems(const Run& clean, const Run& run, bool mustMatchClean,
                                                 bool leftoversExcused) const
{
    std::set<std::string> paths;
    for (const Files* files : {&m_laidOut, &clean.files, &run.files})
        for (const auto& file : *files)
            paths.insert(file.first);

    std::vector<std::string> problems;
    for (const std::string& path : paths) {
        const auto before = Lookup(m_laidOut, path);
        const auto cleanAfter = Lookup(clean.files, path);
        const auto after = Lookup(run.files, path);
        if (after == cleanAfter || (leftoversExcused && IsTemporaryFile(path)))
            continue;
        if (mustMatchClean)
            problems.push_back(path + " is " + Describe(after) + " though the member answered success (a clean run: " +
                               Describe(cleanAfter) + ")");
        else if (after != before)
            problems.push_back(path + " is " + Describe(after) + ", neither as before (" + Describe(before) +
                               ") nor as after a clean run (" + Describe(cleanAfter) + ")");
    }
    for (const auto& [path, bytes] : m_laidOut) {
        if (bytes == kDirectory || clean.files.count(path))
            continue;
        for (const auto& [target, moved] : clean.files) {
            if (moved != bytes || m_laidOut.count(target))
                continue;
            if (Lookup(run.files, path) != bytes && Lookup(run.files, target) != bytes)
                problems.push_back(path + " is lost: neither there nor at " + target);
        }
    }
    return problems;
}

const CallRule* FaultWalk::RuleFor(const Scenario& scenario, int function, int ordinal) const
{
    const std::string& name = HookedFunctions()[static_cast<size_t>(function)];
    const std::string numbered = name + "#" + std::to_string(ordinal);
    for (const std::string& wanted : {numbered, name})
        for (const CallRule& rule : scenario.rules)
            if (rule.call == wanted)
                return &rule;
    return nullptr;
}

void FaultWalk::LayOutFixture() const
{
    kovratest::RemoveTree(m_fixture);
    kovratest::MakeDirectories(m_fixture);
    for (const auto& [name, bytes] : m_layout) {
        if (!name.empty() && name.back() == '\\')
            kovratest::MakeDirectories(m_fixture + name);
        else
            kovratest::WriteFileBytes(m_fixture + name, bytes);
    }
}

FaultWalk::Files FaultWalk::Snapshot() const
{
    Files files;
    std::vector<std::string> directories{m_fixture};
    while (!directories.empty()) {
        const std::string directory = directories.back();
        directories.pop_back();
        WIN32_FIND_DATAA entry;
        HANDLE search = ::FindFirstFileA((directory + "*").c_str(), &entry);
        if (search == INVALID_HANDLE_VALUE)
            continue;
        do {
            const std::string name = entry.cFileName;
            if (name == "." || name == ".." || (directory == m_fixture && name == kLogName))
                continue;
            if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                files[directory + name] = kDirectory;
                directories.push_back(directory + name + "\\");
            } else {
                files[directory + name] = kovratest::ReadFileBytes(directory + name);
            }
        } while (::FindNextFileA(search, &entry));
        ::FindClose(search);
    }
    return files;
}

void FaultWalk::Report(const Scenario& scenario, const std::string& what)
{
    m_problems.push_back(scenario.member + " (" + scenario.variant + "), " + what);
}

std::string FaultWalk::Summary() const
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

} // namespace kovrafaults
