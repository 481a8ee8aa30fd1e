// The fault walk: runs a scenario of one exported member once as it is, counting the
// platform calls the member makes, and then once for every one of those calls with that
// call failing, and judges each run: no exception, the member's result and reported
// cause, no handle, heap block or temporary file left behind, and no file lost or half
// written.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
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
    std::string member;
    std::string variant;
    std::function<void(World&)> setup;        // unarmed
    std::function<std::string(World&)> act;   // armed: calls the member, returns its result as text
    std::string failureResult;
    std::vector<CallRule> rules;
    // The first call of this function fails in every run, so that the walk reaches the road after it.
    std::string scripted = "";
    Fault scriptedFault = Fault::accessDenied;
};

// Walks every scenario in the fixture directory, laid out afresh before every run with its
// files (relative name -> bytes; a name ending in a backslash is a directory). Returns the
// problems found; summary receives the walk's figures.
std::vector<std::string> WalkAll(const std::string& fixture, const std::map<std::string, std::string>& files,
                                 const std::vector<Scenario>& scenarios, std::string& summary);

// A result as the walk compares it.
inline std::string Text(std::string text)
{
    return text;
}

template <typename Value>
std::string Text(Value value)
{
    if constexpr (std::is_pointer_v<Value>)
        return value ? value : "(null)";
    else
        return std::to_string(value);
}

} // namespace kovrafaults
