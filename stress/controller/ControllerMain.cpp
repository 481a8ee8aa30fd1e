// kovra_stress: puts the library under load in an installation of its own and checks
// that nothing was lost.
//
//   kovra_stress [--short] ROOT
//
// ROOT (for instance S:\) receives the installation ROOT\APP\ (workstation
// ROOT\APP\DAT\WS1\) and the workers' journals in ROOT\STRESS\; both are laid out anew.
// Three loads run one after the other, each in processes of kovra_stress_worker:
//   - event lines: processes x threads writing event lines into one CKOVRA.LOG;
//   - the registry: threads starting, binding, changing and removing sessions;
//   - files: two processes renaming, backing up and removing the same files while a
//     third holds them open.
// --short runs the same loads with small counts. The exit status is 0 when every load
// ran to its end and nothing was lost.
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "Directory.h"
#include "FileCheck.h"
#include "LogCheck.h"
#include "Workers.h"

namespace stress {

namespace {

struct Scale {
    EventLoad events;
    int registryThreads;
    DWORD registryMs;
    DWORD filesMs;
};

constexpr Scale kFull = {{8, 4, 5000}, 16, 30000, 30000};
constexpr Scale kShort = {{8, 4, 25}, 16, 2000, 3000};

// Option bits of CKOVRA.INI.
constexpr int kOptionEventLines = 16;
constexpr int kOptionNoMessageBoxes = 32;

// Time limits of the loads beyond their own duration; past them a worker counts as hung.
constexpr DWORD kEventLimitMs = 1800000;
constexpr DWORD kGraceMs = 60000;

class Installation {
public:
    explicit Installation(std::string root) : m_root(std::move(root))
    {
        if (m_root.empty() || m_root.back() != '\\')
            m_root += '\\';
    }

    std::string Base() const { return m_root + "APP\\"; }
    std::string Journal(const std::string& name) const { return m_root + "STRESS\\" + name + ".txt"; }

    // Lays the installation out anew and points the workers' environment at it.
    bool LayOut() const
    {
        RemoveTree(Base());
        RemoveTree(m_root + "STRESS\\");
        ::SetEnvironmentVariableA("KARVELO-CKOVRAHOME", nullptr);  // CKOVRA.INI is then the one in <base>DAT
        return MakeDirectories(Base() + "DAT\\WS1\\TMP\\") && MakeDirectories(m_root + "STRESS\\") &&
               ::SetEnvironmentVariableA("TARNEL31_WKSTA", (Base() + "DAT\\WS1\\").c_str()) &&
               ::SetEnvironmentVariableA("TARNEL31_WKSTATMP", (Base() + "DAT\\WS1\\TMP\\").c_str());
    }

    // The settings that the workers of the next load read when they start.
    bool Configure(int option) const
    {
        std::ofstream ini(Base() + "DAT\\CKOVRA.INI", std::ios::binary | std::ios::trunc);
        ini << "[DefaultSettings]\r\nOption=" << option << "\r\n";
        return static_cast<bool>(ini);
    }

    std::string ReadLog() const { return ReadWholeFile(Base() + "CKOVRA.LOG"); }

private:
    std::string m_root;
};

std::string WorkerProgram()
{
    char path[MAX_PATH] = "";
    ::GetModuleFileNameA(nullptr, path, sizeof path);
    std::string program = path;
    return program.substr(0, program.rfind('\\') + 1) + "kovra_stress_worker.exe";
}

struct LoadRun {
    int faults = 0;  // reported by the workers, or theirs that hung
    double seconds = 0;
    std::vector<DWORD> workerIds;
};

// Writes the settings with option, starts the workers that addWorkers adds, lets them go
// together and waits for them.
template <typename AddWorkers>
LoadRun RunLoad(const Installation& installation, int option, AddWorkers addWorkers, DWORD limitMs)
{
    WorkerGroup group(WorkerProgram());
    LoadRun run;
    std::string problems;
    if (!installation.Configure(option) || !addWorkers(group) || !group.Go()) {
        problems = "the workers could not be started; ";
        limitMs = 0;
        run.faults = 1;
    }
    run.faults += group.Finish(limitMs, problems);
    if (!problems.empty())
        std::printf("   %s\n", problems.c_str());
    run.seconds = group.Seconds();
    run.workerIds = group.ProcessIds();
    return run;
}

long RunEventLines(const Installation& installation, const EventLoad& load)
{
    const std::string arguments = std::to_string(load.threads) + " " + std::to_string(load.pairs);
    LoadRun run = RunLoad(
        installation, kOptionEventLines | kOptionNoMessageBoxes,
        [&](WorkerGroup& group) {
            bool started = true;
            for (int process = 0; process < load.processes; ++process)
                started = started && group.Start("events", std::to_string(process) + " " + arguments);
            return started;
        },
        kEventLimitMs);
    EventLogFigures figures = CheckEventLog(installation.ReadLog(), load, installation.Base(), run.workerIds);
    std::printf("event lines: %d processes x %d threads x %d lines = %ld lines in %.1f s (%.0f lines/s)\n",
                load.processes, load.threads, load.pairs * 2, figures.expected, run.seconds,
                run.seconds > 0 ? figures.expected / run.seconds : 0.0);
    std::printf("   found once %ld, missing %ld, duplicated %ld, malformed %ld, foreign %ld; "
                "%ld start-up and shut-down lines of the workers\n",
                figures.once, figures.missing, figures.duplicated, figures.malformed, figures.foreign,
                figures.processLines);
    return figures.Lost() + run.faults;
}

// The worker prints its own figures: the registry it checks is its own.
long RunRegistryChurn(const Installation& installation, int threads, DWORD milliseconds)
{
    return RunLoad(
               installation, kOptionNoMessageBoxes,
               [&](WorkerGroup& group) {
                   return group.Start("registry", std::to_string(threads) + " " + std::to_string(milliseconds));
               },
               milliseconds + kGraceMs)
        .faults;
}

void PrintFileFigures(const FileFigures& figures, double seconds)
{
    std::printf("files: 2 processes renaming, backing up and removing, 1 holding, for %.1f s: %ld made, %ld renamed, "
                "%ld backed up by renaming and %ld by copying, %ld removals, %ld holds, %ld calls through after "
                "sharing violations\n",
                seconds, figures.made, figures.renamed, figures.backedUp, figures.backedUpByCopy, figures.removed,
                figures.holds, figures.retried);
    std::printf("   failures by cause:");
    for (const auto& failures : figures.failuresByCause)
        std::printf(" %s (%d) %ld;", CauseName(failures.first), failures.first, failures.second);
    std::printf("%s\n", figures.failuresByCause.empty() ? " none" : "");
    std::printf("   at the end %ld files, %ld of them left behind by a backup by copying; lost %ld, duplicated %ld, "
                "foreign %ld, unexplained %ld\n",
                figures.found, figures.leftByCopy, figures.lost, figures.duplicated, figures.foreign,
                figures.unexplained);
}

long RunFileContention(const Installation& installation, DWORD milliseconds)
{
    const std::vector<std::string> journals = {installation.Journal("mover-0"), installation.Journal("mover-1"),
                                               installation.Journal("holder")};
    const std::string time = std::to_string(milliseconds);
    LoadRun run = RunLoad(
        installation, kOptionNoMessageBoxes,
        [&](WorkerGroup& group) {
            return group.Start("mover", "0 " + time + " " + journals[0]) &&
                   group.Start("mover", "1 " + time + " " + journals[1]) &&
                   group.Start("holder", time + " " + journals[2]);
        },
        milliseconds + kGraceMs);
    std::vector<std::string> problems;
    FileFigures figures = CheckFiles(journals, installation.Base(), problems);
    PrintFileFigures(figures, run.seconds);
    for (const std::string& problem : problems)
        std::printf("   %s\n", problem.c_str());
    return figures.Lost() + run.faults;
}

} // namespace

} // namespace stress

int main(int argc, char** argv)
{
    bool quick = argc == 3 && std::strcmp(argv[1], "--short") == 0;
    if (argc != 2 && !quick) {
        std::fprintf(stderr, "usage: kovra_stress [--short] ROOT\n");
        return 2;
    }
    stress::Installation installation(argv[argc - 1]);
    if (!installation.LayOut()) {
        std::fprintf(stderr, "kovra_stress: cannot lay out the installation in %s\n", argv[argc - 1]);
        return 1;
    }
    const stress::Scale& scale = quick ? stress::kShort : stress::kFull;
    const long events = stress::RunEventLines(installation, scale.events);
    const long registry = stress::RunRegistryChurn(installation, scale.registryThreads, scale.registryMs);
    const long files = stress::RunFileContention(installation, scale.filesMs);
    const long lost = events + registry + files;
    std::printf("lost or wrong: %ld event lines, %ld in the registry, %ld files: %s\n", events, registry, files,
                lost == 0 ? "nothing lost" : "FAILED");
    return lost == 0 ? 0 : 1;
}
