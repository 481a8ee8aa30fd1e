// Every exported member walked over every platform call it makes, each call failed in turn
// (see FaultWalk.h), and the faults that the walk found. The rules of a scenario name the calls
// whose failure the member must show; a failure of any other call must leave the member's
// answer, its reported cause and the files exactly as a clean run leaves them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <tuple>

#include "FaultWalk.h"
#include "FileChecks.h"
#include "kovra/diag.h"
#include "kovra/kovra.h"

namespace {

using namespace kovrafaults;
using Setup = std::function<void(World&)>;
using Act = std::function<std::string(World&)>;

// A scenario's act: the member's result as text; w is the World.
#define ACT(call) [=]([[maybe_unused]] World& w) { return Text(call); }

const std::string kRoot = KOVRA_TEST_DRIVE ":\\APP\\";
void* const kSession = reinterpret_cast<void*>(0x5eed);
const ATL::CTime kTime(1600000000);
ATL::CTime g_time;
char g_text[256];  // the buffer members write into; Scratch fills it afresh

char* Scratch(const char* text = "") { return std::strcpy(g_text, text); }

const std::map<std::string, std::string> kFixture = {
    {"DATA.TXT", "alpha\r\nbeta\r\ngamma\r\n"}, {"DEST.TXT", "dest\r\n"}, {"PROFILE.INI", "[S]\r\nK=42\r\n"},
    {"CHECK.INI",
     "[DefaultSettings]\r\nOption=0x10\r\n[T1]\r\nLocation=BASE\r\n[T2]\r\nBaseType=T9\r\nLocation=NOWHERE\r\n"},
    {"EMPTY\\", ""}, {"FIND\\A.TXT", "a"}, {"FIND\\B.TXT", "bb"}, {"CLIENTS\\0042\\", ""},
};

// An open of the platform file must fail the member, and GetLastError must name the cause.
const CallRule kOpenFails{"CreateFileA", kShows | kRetriesSharing};
const CallRule kSeekFails{"SetFilePointerEx", kShows};
const CallRule kWriteFails{"WriteFile", kShows};
const CallRule kNoStatus{"GetFileAttributesExA", kFails};

void Nothing(World&) {}

void Unopened(World& world) { world.file = std::make_unique<CKovra>(); }

Setup Opened(const char* name, unsigned long options, long position = 0)
{
    return [=](World& world) {
        world.file = std::make_unique<CKovra>("DFT", name, options, nullptr, 0);
        if (position)
            world.file->Seek(position, 0, 0);
    };
}

Setup Resolved(const char* name) { return Opened(name, 0); }

void OpenedTemporary(World& world)
{
    (world.file = std::make_unique<CKovra>())->Open(nullptr, nullptr, KOVRA_READWRITE, nullptr, 0);
}

Setup Searching(int entriesMadeCurrent)
{
    return [=](World& world) {
        (world.find = std::make_unique<CKovraFind>())->FindFile("DFT", "FIND\\*.TXT", 0);
        for (int entry = 0; entry < entriesMadeCurrent; ++entry)
            world.find->FindNextFileA(0);
    };
}

// Undone after the run, as for a member that starts a session or binds a thread.
Setup Undoing(void (*undo)()) { return [=](World& world) { world.undo.push_back(undo); }; }

// The calling thread bound to a session of its own, so that the identity setters change
// nothing that the other scenarios resolve with.
void OwnSession(World& world)
{
    CKovra::StartThread(kSession, ::GetCurrentThreadId(), 0);
    world.undo.push_back([] { CKovra::RemoveThread(kSession, ::GetCurrentThreadId(), 0); });
}

void StartedSession(World& world)
{
    CKovra::StartSession(kSession, 0);
    CKovra::StartThread(kSession, 4242, 0);
    world.undo.push_back([] { CKovra::RemoveSession(kSession, 0); });
}

Act Opening(const char* name, unsigned long options) { return ACT(w.file->Open("DFT", name, options, nullptr, 0)); }

template <typename Object>
std::string Destroyed(std::unique_ptr<Object>& object)
{
    object.reset();
    return "";
}

// Each profile member fails, or answers its default, when its profile service fails.
Scenario OnProfile(const char* member, const char* variant, Act act, std::string failureResult, const char* service)
{
    return {member, variant, Resolved("PROFILE.INI"), std::move(act), std::move(failureResult), {{service, kFails}}};
}

// A numeric overload pair: the value written, and read back with the same value as default.
template <typename Number>
void AddNumberOverloads(std::vector<Scenario>& scenarios, const char* variant, Number value)
{
    scenarios.push_back(OnProfile("WriteProfile", variant, ACT(w.file->WriteProfile("S", "K", value, 0)), "0",
                                  "WritePrivateProfileStringA"));
    scenarios.push_back(OnProfile("GetProfile", variant, ACT(w.file->GetProfile("S", "K", value, 0)), Text(value),
                                  "GetPrivateProfileStringA"));
}

// A member that makes no platform call: the walk confirms that it makes none.
Scenario Quiet(const char* member, Act act)
{
    auto fileAndSearch = [](World& world) { Opened("DATA.TXT", KOVRA_READ)(world); Searching(1)(world); };
    return {member, "", fileAndSearch, std::move(act), "", {}};
}

std::vector<Scenario> Scenarios()
{
    const Setup reading = Opened("DATA.TXT", KOVRA_READ), writing = Opened("DATA.TXT", KOVRA_READWRITE);
    const Setup data = Resolved("DATA.TXT");
    std::vector<Scenario> scenarios = {
        {"CKovra", "read", Nothing,
         ACT((w.file = std::make_unique<CKovra>("DFT", "DATA.TXT", KOVRA_READ, nullptr, 0))->IsOpen(0)), "0",
         {kOpenFails}},
        {"Open", "read/write, deny write", Unopened, Opening("DATA.TXT", KOVRA_READWRITE | KOVRA_DENY_WRITE), "0",
         {kOpenFails}},
        {"Open", "truncate, exclusive", Unopened,
         Opening("DATA.TXT", KOVRA_READWRITE | KOVRA_TRUNCATE | KOVRA_EXCLUSIVE), "0", {kOpenFails}},
        // A directory that couldn't be made fails the open that needs it: path not found.
        {"Open", "append, text, new directory", Unopened, Opening("NEW\\NEW.TXT", KOVRA_APPEND | KOVRA_TEXT), "0",
         {kOpenFails, {"CreateDirectoryA", kFails, 3}}},
        {"Open", "temporary file", Unopened, ACT(w.file->Open(nullptr, nullptr, KOVRA_READWRITE, nullptr, 0)), "0",
         {{"CreateFileA#2", kShows | kRetriesSharing}}},
        {"Open", "resolve only", Unopened, Opening("DATA.TXT", 0), "0", {}},
        // The first open is refused: the read-only attribute is cleared and the open tried again.
        {"Open", "read-only file",
         [](World& w) { ::SetFileAttributesA((kRoot + "DATA.TXT").c_str(), FILE_ATTRIBUTE_READONLY); Unopened(w); },
         Opening("DATA.TXT", KOVRA_READWRITE), "0",
         {{"CreateFileA#2", kShows}, {"CreateFileA#3", kShows | kRetriesSharing}, {"GetFileAttributesA", kShows},
          {"SetFileAttributesA", kShows}, {"SetFileTime", kShows}, kNoStatus},
         "CreateFileA"},
        {"Close", "open file", writing, ACT(w.file->Close(0)), "0", {}},
        {"Close", "temporary file", OpenedTemporary, ACT(w.file->Close(0)), "0",
         {{"DeleteFileA", kRecords}, {"_access", kNotFoundMeansGone}}},
        {"~CKovra", "temporary file", OpenedTemporary, ACT(Destroyed(w.file)), "", {{"_access", kNotFoundMeansGone}}},
        {"GetRealFileName", "type and name", Unopened, ACT(w.file->GetRealFileName("DFT", "DATA.TXT", 0)), "", {}},
        {"GetLastError", "pending failure", Opened("MISSING.TXT", KOVRA_READ),
         [](World& w) {
             int cause = 0;
             const int reported = w.file->GetLastError(&cause, Scratch(), sizeof g_text, 0);
             return Text(reported) + " " + Text(cause);
         },
         "0 0", {}},

        {"Read", "", reading, ACT(w.file->Read(Scratch(), sizeof g_text, 0)), "0", {{"ReadFile", kShows}}},
        {"Write", "", writing, ACT(w.file->Write("xyz", 3, 0)), "0", {kWriteFails}},
        {"Write", "append", Opened("DATA.TXT", KOVRA_APPEND), ACT(w.file->Write("xyz", 3, 0)), "0",
         {kSeekFails, kWriteFails}},
        // A failed move back behind the line is recorded; the line itself was read.
        {"ReadString", "text", Opened("DATA.TXT", KOVRA_READ | KOVRA_TEXT),
         ACT(Text(w.file->ReadString(Scratch(), sizeof g_text - 1, nullptr, 0)) + " " + g_text), "0 ",
         {{"ReadFile", kShows}, {"SetFilePointerEx", kRecords}}},
        {"WriteString", "text", Opened("DATA.TXT", KOVRA_READWRITE | KOVRA_TEXT), ACT(w.file->WriteString("abc\n", 0)),
         "0", {kWriteFails}},
        // The line goes out with its line end in one write; when that fails, the three pieces follow.
        {"WriteString", "text line", Opened("DATA.TXT", KOVRA_READWRITE | KOVRA_TEXT),
         ACT(w.file->WriteString("abc", 0)), "0", {}},
        {"ReadString", "read ahead", Opened("DATA.TXT", KOVRA_READ | KOVRA_DENY_WRITE),
         ACT(Text(w.file->ReadString(Scratch(), 3, nullptr, 0)) + " " + g_text), "0 ", {{"ReadFile", kShows}}},
        {"WriteString", "modifiable text", writing, ACT(w.file->WriteString(Scratch("abc"), 0)), "0", {kWriteFails}},
        {"Printf", "text", Opened("DATA.TXT", KOVRA_READWRITE | KOVRA_TEXT), ACT(w.file->Printf(0, "%d\n", 5)), "0",
         {kWriteFails}},
        {"Flush", "", writing, ACT(w.file->Flush(0)), "0", {{"FlushFileBuffers", kShows}}},
        {"Seek", "", reading, ACT(w.file->Seek(5, 0, 0)), "-1", {kSeekFails}},
        // The operators answer with the object whatever happens; only the cause tells.
        {"operator=", "", reading, ACT((*w.file = 5L) == w.file.get()), "1", {kSeekFails}},
        {"operator+=", "", reading, ACT((*w.file += 5L) == w.file.get()), "1", {kSeekFails}},
        {"operator-=", "", reading, ACT((*w.file -= 0L) == w.file.get()), "1", {kSeekFails}},
        {"GetPosition", "", Opened("DATA.TXT", KOVRA_READ, 5), ACT(w.file->GetPosition(0)), "0", {kSeekFails}},
        {"GetLength", "open file", reading, ACT(w.file->GetLength(0)), "0", {{"GetFileSizeEx", kShows}}},
        {"GetLength", "closed file", data, ACT(w.file->GetLength(0)), "0", {kNoStatus}},
        {"SetLength", "", writing, ACT(w.file->SetLength(4, 0)), "0", {kSeekFails, {"SetEndOfFile", kShows}}},
        {"Lock", "", writing, ACT(w.file->Lock(0, 4, 0)), "0", {{"LockFile", kShows}}},
        {"UnLock", "", [](World& w) { Opened("DATA.TXT", KOVRA_READWRITE)(w); w.file->Lock(0, 4, 0); },
         ACT(w.file->UnLock(0, 4, 0)), "0", {{"UnlockFile", kShows}}},
        {"GetModificationTime", "", data, ACT(w.file->GetModificationTime(&g_time, 0)), "0", {kNoStatus}},
        {"SetModificationTime", "", data, ACT(w.file->SetModificationTime(&kTime, 0)), "0",
         {kNoStatus, {"GetFileAttributesA", kShows}, {"SetFileAttributesA", kShows}, {"CreateFileA", kShows},
          {"SetFileTime", kShows}}},

        OnProfile("WriteProfile", "text", ACT(w.file->WriteProfile("S", "K", "7", 0)), "0",
                  "WritePrivateProfileStringA"),
        OnProfile("GetProfile", "text",
                  ACT(Text(w.file->GetProfile("S", "K", "none", Scratch(), sizeof g_text, 0)) + " " + g_text),
                  "4 none", "GetPrivateProfileStringA"),
        OnProfile("GetProfileSectionA", "", ACT(w.file->GetProfileSectionA("S", Scratch(), sizeof g_text, 0)), "0",
                  "GetPrivateProfileSectionA"),
        OnProfile("WriteProfileSectionA", "", ACT(w.file->WriteProfileSectionA("T", "A=1\0B=2\0", 0)), "0",
                  "WritePrivateProfileSectionA"),

        // A refused move falls back to copying: the member succeeds, the refusal is reported.
        {"SaveFile", "open file", writing, ACT(w.file->SaveFile(nullptr, nullptr, nullptr, 0, 0)), "0",
         {{"MoveFileA", kRecords}, {"CreateDirectoryA", kFails, 3}}},
        // A copy whose source can't be removed leaves the file at both places, by contract.
        {"SaveFile", "move refused", data, ACT(w.file->SaveFile(nullptr, nullptr, nullptr, 0, 0)), "0",
         {{"CopyFileA", kFails}, {"CreateDirectoryA", kFails}, {"_unlink", kFilesMayDiffer}}, "MoveFileA"},
        {"Remove", "", data, ACT(w.file->Remove(0)), "0",
         {{"DeleteFileA", kShows | kRetriesSharing}, {"_access", kNotFoundMeansGone}}},
        {"Rename", "into a new directory", writing, ACT(w.file->Rename("DFT", Scratch("MOVED\\DATA.TXT"), 0)), "0",
         {{"MoveFileA", kShows | kRetriesSharing}, {"CreateDirectoryA", kFails, 3}}},
        {"CopyFileA", "", writing, ACT(w.file->CopyFileA("DFT", "COPY\\DATA.TXT", 0, 0)), "0",
         {{"CopyFileA", kFails}, {"CreateDirectoryA", kFails}, {"FlushFileBuffers", kRecords}}},
        // By contract a failed read or write of the copy doesn't change AppendFile's answer.
        {"AppendFile", "closed file", data, ACT(w.file->AppendFile("DFT", "DEST.TXT", 0)), "0",
         {{"CreateFileA", kFails | kRetriesSharing}, {"ReadFile#1", kFilesMayDiffer},
          {"SetFilePointerEx", kFilesMayDiffer}, {"WriteFile", kFilesMayDiffer}}},
        {"AppendFile", "open file", writing, ACT(w.file->AppendFile("DFT", "DEST.TXT", 0)), "0",
         {{"CreateFileA", kFails | kRetriesSharing}, {"FlushFileBuffers", kRecords}, {"SetFilePointerEx#1", kRecords},
          {"SetFilePointerEx#2", kFilesMayDiffer}, {"ReadFile#1", kRecords | kFilesMayDiffer},
          {"ReadFile#2", kRecords}, {"WriteFile", kFilesMayDiffer}}},
        {"RmDir", "", Resolved("EMPTY"), ACT(w.file->RmDir(0)), "0", {{"RemoveDirectoryA", kFails}, kNoStatus}},
        // A name whose status can't be read is taken for a file's: ChDir enters its directory.
        {"ChDir", "",
         [](World& w) { ::SetCurrentDirectoryA(kRoot.c_str()); Resolved("EMPTY")(w); },
         [](World& w) {
             const int result = w.file->ChDir(0);
             ::GetCurrentDirectoryA(sizeof g_text, g_text);
             return Text(result) + " " + g_text;
         },
         "0 " + kRoot.substr(0, kRoot.size() - 1), {{"_chdir", kFails}, {"GetFileAttributesExA", kAnyResult}}},
        {"ChDrive", "", Unopened, ACT(w.file->ChDrive(KOVRA_TEST_DRIVE[0] - 'A' + 1, 0)), "0", {{"_chdrive", kFails}}},
        {"GetCwd", "", Unopened, ACT(w.file->GetCwd(0)), "", {{"GetCurrentDirectoryA", kFails}}},
        {"GetShortPathNameA", "", data, ACT(w.file->GetShortPathNameA(0)), "", {}},
        {"GetLongPathNameA", "", data, ACT(w.file->GetLongPathNameA(0)), "", {}},
        {"GetDiskFreeSpaceA", "", data, ACT(w.file->GetDiskFreeSpaceA(0) != 0), "0", {{"GetDiskFreeSpaceExA", kFails}}},
        {"Access", "", data, ACT(w.file->Access(0)), "0", {{"_access", kFails}}},
        // MkDir answers 1 also when a directory couldn't be made.
        {"MkDir", "", Resolved("NEWDIR\\X.TXT"), ACT(w.file->MkDir(0)), "0", {{"CreateDirectoryA", kFilesMayDiffer}}},
        {"IsDirectory", "", Resolved("EMPTY"), ACT(w.file->IsDirectory(0)), "0", {kNoStatus}},

        {"CKovraFind::FindFile", "", [](World& w) { w.find = std::make_unique<CKovraFind>(); },
         ACT(w.find->FindFile("DFT", "FIND\\*.TXT", 0)), "0", {{"FindFirstFileA", kFails}}},
        // A failed step of the listing can't be told from its end.
        {"CKovraFind::FindNextFileA", "whole listing", Searching(0),
         [](World& w) {
             std::string names;
             while (w.find->FindNextFileA(0))
                 names += std::string(w.find->GetFileName(0)) + " ";
             return names;
         },
         "", {{"FindNextFileA", kAnyResult}}},
        {"CKovraFind::GetFilePathRelative", "", Searching(1), ACT(w.find->GetFilePathRelative(0)), "", {}},
        {"CKovraFind::Close", "", Searching(1), ACT(w.find->Close(0)), "1", {}},
        {"~CKovraFind", "", Searching(1), ACT(Destroyed(w.find)), "", {}},

        {"StartSession", "", Undoing([] { CKovra::RemoveSession(kSession, 0); }),
         ACT(CKovra::StartSession(kSession, 0)), "0", {}},
        {"StartThread", "", Undoing([] { CKovra::RemoveThread(kSession, 4242, 0); }),
         ACT(CKovra::StartThread(kSession, 4242, 0)), "0", {}},
        {"RemoveThread", "", StartedSession, ACT(CKovra::RemoveThread(kSession, 4242, 0)), "0", {}},
        {"RemoveSession", "", StartedSession, ACT(CKovra::RemoveSession(kSession, 0)), "0", {}},
        {"SetUser", "", OwnSession, ACT(CKovra::SetUser("ANNA", 0)), "0", {}},
        {"SetClient", "", OwnSession, ACT(CKovra::SetClient("0042", 0)), "0", {}},
        {"SetModulePath", "", OwnSession, ACT(CKovra::SetModulePath(kRoot.c_str(), 0)), "0", {}},
        {"IsValidClient", "", Nothing, ACT(CKovra::IsValidClient("0042", 0)), "0", {{"_access", kFails}}},
        {"KovraCheckConfig", "", Nothing, ACT(KovraCheckConfig((kRoot + "CHECK.INI").c_str(), nullptr, nullptr)),
         "-1", {{"CreateFileA", kFails}, {"ReadFile", kFails}}},

        Quiet("IsOpen", ACT(w.file->IsOpen(0))), Quiet("IsWritable", ACT(w.file->IsWritable(0))),
        Quiet("GetFileName", ACT(w.file->GetFileName(0))), Quiet("GetFileType", ACT(w.file->GetFileType(0))),
        Quiet("GetRealFileName", ACT(w.file->GetRealFileName(0))), Quiet("GetDrive", ACT(w.file->GetDrive(0))),
        Quiet("IsNetDrive", ACT(w.file->IsNetDrive(0) + CKovra::IsNetDrive("X:", 0))),
        Quiet("AddFileType", ACT(CKovra::AddFileType("T_FAULTS", 2, 1, 0))),
        Quiet("SetDebugLevel", ACT(CKovra::SetDebugLevel(7, 0))), Quiet("SetOption", ACT(CKovra::SetOption(1, 0, 0))),
        Quiet("CKovraFind::GetLength", ACT(w.find->GetLength(0))),
        Quiet("CKovraFind::GetFileName", ACT(w.find->GetFileName(0))),
        Quiet("CKovraFind::GetFilePath", ACT(w.find->GetFilePath(0))),
        Quiet("CKovraFind::IsDots", ACT(w.find->IsDots(0))),
        Quiet("CKovraFind::IsDirectory", ACT(w.find->IsDirectory(0))),
        Quiet("CKovraFind::IsHidden", ACT(w.find->IsHidden(0))),
    };
    AddNumberOverloads(scenarios, "long", 7L);
    AddNumberOverloads(scenarios, "int", 7);
    AddNumberOverloads(scenarios, "unsigned long", 7UL);
    AddNumberOverloads(scenarios, "unsigned int", 7U);
    AddNumberOverloads(scenarios, "double", 7.5);
    // Last, being slow: after each sharing violation the library asks the handle tool (through
    // the command interpreter) who holds the file.
    scenarios.push_back({"Open", "sharing violation waited out", Unopened, Opening("DATA.TXT", KOVRA_READ), "0",
                         {{"CreateFileA#2", kShows}}, "CreateFileA", Fault::sharingViolation});
    return scenarios;
}

// The walk's judgement rests on these counts: a handle and a block that the library holds
// must show.
TEST(FaultWalk, HoldingsShowAHandleAndTheLibrarysHeapBlocks)
{
    ASSERT_TRUE(InstallHooks());
    const Holdings before = CurrentHoldings();
    HANDLE event = ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
    auto file = std::make_unique<CKovra>("DFT", "DATA.TXT", 0, nullptr, 0);
    const Holdings holding = CurrentHoldings();
    ::CloseHandle(event);
    file.reset();
    const Holdings after = CurrentHoldings();

    EXPECT_GT(before.handles, 0);
    EXPECT_EQ(holding.handles, before.handles + 1);
    EXPECT_EQ(holding.heapBlocks, before.heapBlocks + 2);  // the object's record and its type
    EXPECT_GT(holding.heapBytes, before.heapBytes + 1000);
    EXPECT_EQ(std::tie(after.handles, after.heapBlocks, after.heapBytes),
              std::tie(before.handles, before.heapBlocks, before.heapBytes));
}

TEST(FaultWalk, EveryMemberSurvivesEveryFailedPlatformCall)
{
    ASSERT_TRUE(InstallHooks());
    FaultWalk walk(kRoot, kFixture);
    for (const Scenario& scenario : Scenarios())
        walk.Walk(scenario);
    std::printf("%s\n", walk.Summary().c_str());
    std::string listed;
    for (const std::string& problem : walk.Problems())
        listed += problem + "\n";
    EXPECT_EQ(listed, "");
}

// ---- faults that the walk found, each pinned by the failed call that showed it -----------------

// Runs work with the ordinal-th call of function failing with fault.
template <typename Work>
void WithFailedCall(const char* function, int ordinal, Fault fault, Work work)
{
    ASSERT_TRUE(InstallHooks());
    EXPECT_TRUE(RunArmed({{function, ordinal, fault}}, work).failuresMet) << function;
}

// An existence test that fails for another reason than a missing file proves nothing:
// Remove, and Close for a temporary file, remove the file all the same.
TEST(FaultRegressions, AFailedExistenceTestIsNoMissingFile)
{
    kovratest::ScratchDirectory scratch(kRoot);
    kovratest::WriteFileBytes(scratch / "HELD.TXT", "x");
    CKovra file("DFT", "HELD.TXT", 0, nullptr, 0);
    int removed = 0;
    WithFailedCall("_access", 1, Fault::networkNameGone, [&] { removed = file.Remove(0); });
    EXPECT_EQ(removed, 1);
    EXPECT_FALSE(kovratest::PathExists(scratch / "HELD.TXT"));

    CKovra temporary;
    temporary.Open(nullptr, nullptr, KOVRA_READWRITE, nullptr, 0);
    const std::string path = temporary.GetRealFileName(0);
    ASSERT_TRUE(kovratest::PathExists(path));
    WithFailedCall("_access", 1, Fault::accessDenied, [&] { temporary.Close(0); });
    EXPECT_FALSE(kovratest::PathExists(path));
}

// Only a log that another writer holds is tried again (30000 times at most); one that waiting
// can't fix, here a directory, is given up after the first attempt of each line.
TEST(FaultRegressions, OnlyALogHeldByAnotherWriterIsWaitedFor)
{
    ASSERT_TRUE(InstallHooks());
    const std::vector<std::string>& hooked = HookedFunctions();
    const size_t sopen = std::find(hooked.begin(), hooked.end(), "_sopen") - hooked.begin();
    auto attempts = [sopen] {  // to write the ":Close" line of an object that attempted an open
        CKovra file("DFT", "MISSING.TXT", KOVRA_READ, nullptr, 0);
        return RunArmed({}, [&] { file.Close(0); }).counts[sopen];
    };
    const std::string log = kRoot + "CKOVRA.LOG";
    ::DeleteFileA(log.c_str());
    kovratest::MakeDirectories(log);
    EXPECT_EQ(1, attempts());
    ::RemoveDirectoryA(log.c_str());
    kovratest::NamedEvent release;
    kovratest::ChildProcess holder(
        kovratest::CommandLine("kovra_child.exe", "open DFT " + log + " 18 " + release.Name()));
    ASSERT_EQ("OPEN 1", holder.WaitForLine("OPEN"));
    EXPECT_EQ(30001, attempts());
    release.Set();
}

} // namespace
