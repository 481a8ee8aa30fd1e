// The fault walk: runs a scenario of one exported member once as it is, counting the
// platform calls the member makes, and then once for every one of those calls with that
// call failing, and judges each run: no exception, the member's result and reported
// cause, no handle, heap block or temporary file left behind, and no file lost or half
// written.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "FaultInjection.h"
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
    kFails = 1,           // the member answers with its failure result
    kRecords = 2,         // GetLastError reports the cause of the injected error
    kRetriesSharing = 4,  // a sharing violation is waited out and the member succeeds
    kAnyResult = 8,       // the member can't tell: its result is not judged
    kFilesMayDiffer = 16, // the member answers success though the files differ from a clean run
    kNotFoundMeansGone = 32  // an existence test answered "path not found": the member acts as
                             // for a missing file, and may leave the file it would have removed
};

struct CallRule {
    std::string call;  // "CreateFileA" for every call of it, "CreateFileA#2" for its second
    unsigned effect;
    int cause = -1;    // the cause GetLastError must report; -1: by kRecords, else as a clean run
};

// A failure that belongs to the scenario itself, so that the walk reaches the road after it.
struct ScriptedFailure {
    std::string call;  // empty: none
    int ordinal = 1;
    Fault fault = Fault::accessDenied;
};

struct Scenario {
    std::string member;
    std::string variant;
    std::function<void(World&)> setup;        // unarmed
    std::function<std::string(World&)> act;   // armed: calls the member, returns its result as text
    std::string failureResult;
    std::vector<CallRule> rules;
    ScriptedFailure scripted = {};
};

class FaultWalk {
public:
    // fixture: the directory the scenarios work in, and its files (relative name, bytes;
    // a name ending in a backslash is a directory), laid out afresh before every run.
    FaultWalk(std::string fixture, std::map<std::string, std::string> files);

    void Walk(const Scenario& scenario);

    const std::vector<std::string>& Problems() const { return m_problems; }
    std::string Summary() const;

private:
    using Files = std::map<std::string, std::string>;  // path -> bytes, "<dir>" for a directory

    struct Planned {
        int function;
        int ordinal;
        Fault fault;
    };
    struct Run {
        std::string result;
        int cause = 0;
        bool threw = false;
        bool failuresMet = true;
        Holdings before;
        Holdings after;
        long temporaryFilesLeft = 0;
        Files files;
        std::vector<int> counts;
    };

    Run Execute(const Scenario& scenario, const std::vector<Planned>& failures);
    void JudgeCleanRun(const Scenario& scenario, const Run& run);
    void JudgeFaultRun(const Scenario& scenario, const Run& clean, const Planned& failure, const Run& run);
    std::vector<std::string> FileProblems(const Run& clean, const Run& run, bool mustMatchClean,
                                          bool leftoversExcused) const;
    const CallRule* RuleFor(const Scenario& scenario, int function, int ordinal) const;
    void LayOutFixture() const;
    Files Snapshot() const;
    void Report(const Scenario& scenario, const std::string& what);

    std::string m_fixture;
    Files m_layout;
    Files m_laidOut;  // the fixture as every run starts with it
    std::string m_workingDirectory;
    std::vector<std::string> m_problems;
    std::set<std::string> m_members;
    std::set<int> m_reached;
    int m_scenarios = 0;
    int m_failedCalls = 0;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

// A result as the walk compares it.
std::string Text(long long value);
std::string Text(const char* text);

} // namespace kovrafaults
