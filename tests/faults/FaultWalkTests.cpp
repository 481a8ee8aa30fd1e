// Every exported member walked over every platform call it makes, each call failed in
// turn (see FaultWalk.h). The rules of a scenario name the calls whose failure the member
// must show; a failure of any other call must leave the member's answer, its reported
// cause and the files exactly as a clean run leaves them.
#include <gtest/gtest.h>

#include <cstdio>

#include "FaultWalk.h"
#include "kovra/diag.h"
#include "kovra/kovra.h"

namespace {

using namespace kovrafaults;

const std::string kRoot = KOVRA_TEST_DRIVE ":\\APP\\";
void* const kSession = reinterpret_cast<void*>(0x5eed);

const std::map<std::string, std::string> kFixture = {
    {"DATA.TXT", "alpha\r\nbeta\r\ngamma\r\n"},
    {"DEST.TXT", "dest\r\n"},
    {"PROFILE.INI", "[S]\r\nK=42\r\n"},
    {"CHECK.INI", "[DefaultSettings]\r\nOption=0x10\r\n[T1]\r\nLocation=BASE\r\n[T2]\r\nBaseType=T9\r\nLocation=NOWHERE\r\n"},
    {"EMPTY\\", ""},
    {"FIND\\A.TXT", "a"},
    {"FIND\\B.TXT", "bb"},
    {"CLIENTS\\0042\\", ""},
};

// An open of the platform file: it must fail the member, and GetLastError must name the cause.
const CallRule kOpenFails{"CreateFileA", kFails | kRecords | kRetriesSharing};

// ---- set-ups ----------------------------------------------------------------------------------

using Setup = std::function<void(World&)>;

void Nothing(World&) {}

void Unopened(World& world)
{
    world.file = std::make_unique<CKovra>();
}

Setup Opened(const char* name, unsigned long options)
{
    return [name, options](World& world) { world.file = std::make_unique<CKovra>("DFT", name, options, nullptr, 0); };
}

Setup Resolved(const char* name)
{
    return Opened(name, 0);
}

void OpenedTemporary(World& world)
{
    Unopened(world);
    world.file->Open(nullptr, nullptr, KOVRA_READWRITE, nullptr, 0);
}

Setup Searching(int entriesMadeCurrent)
{
    return [entriesMadeCurrent](World& world) {
        world.find = std::make_unique<CKovraFind>();
        world.find->FindFile("DFT", "FIND\\*.TXT", 0);
        for (int entry = 0; entry < entriesMadeCurrent; ++entry)
            world.find->FindNextFileA(0);
    };
}

// The calling thread bound to a session of its own, so that the identity setters change
// nothing that the other scenarios resolve with.
void OwnSession(World& world)
{
    CKovra::StartThread(kSession, ::GetCurrentThreadId(), 0);
    world.undo.push_back([] { CKovra::RemoveThread(kSession, ::GetCurrentThreadId(), 0); });
}

std::string CurrentDirectory()
{
    char directory[MAX_PATH] = "";
    ::GetCurrentDirectoryA(sizeof directory, directory);
    return directory;
}

// ---- the scenarios ----------------------------------------------------------------------------

std::vector<Scenario> OpenAndCloseScenarios()
{
    auto open = [](const char* name, unsigned long options) {
        return [name, options](World& world) { return Text(world.file->Open("DFT", name, options, nullptr, 0)); };
    };
    return {
        {"CKovra", "read", Nothing,
         [](World& world) {
             world.file = std::make_unique<CKovra>("DFT", "DATA.TXT", KOVRA_READ, nullptr, 0);
             return Text(world.file->IsOpen(0));
         },
         "0", {kOpenFails}},
        {"Open", "read/write, deny write", Unopened, open("DATA.TXT", KOVRA_READWRITE | KOVRA_DENY_WRITE), "0",
         {kOpenFails}},
        {"Open", "truncate, exclusive", Unopened, open("DATA.TXT", KOVRA_READWRITE | KOVRA_TRUNCATE | KOVRA_EXCLUSIVE),
         "0", {kOpenFails}},
        // A directory that couldn't be made fails the open that needs it: path not found.
        {"Open", "append, text, new directory", Unopened, open("NEW\\NEW.TXT", KOVRA_APPEND | KOVRA_TEXT), "0",
         {kOpenFails, {"CreateDirectoryA", kFails, 3}}},
        {"Open", "temporary file", Unopened,
         [](World& world) { return Text(world.file->Open(nullptr, nullptr, KOVRA_READWRITE, nullptr, 0)); }, "0",
         {{"CreateFileA#2", kFails | kRecords | kRetriesSharing}}},
        {"Open", "resolve only", Unopened, open("DATA.TXT", 0), "0", {}},
        // The first open is refused: the read-only attribute is cleared and the open tried again.
        {"Open", "read-only file",
         [](World& world) {
             ::SetFileAttributesA((kRoot + "DATA.TXT").c_str(), FILE_ATTRIBUTE_READONLY);
             Unopened(world);
         },
         open("DATA.TXT", KOVRA_READWRITE), "0",
         {{"CreateFileA#2", kFails | kRecords},
          {"CreateFileA#3", kFails | kRecords | kRetriesSharing},
          {"GetFileAttributesA", kFails | kRecords},
          {"SetFileAttributesA", kFails | kRecords},
          {"SetFileTime", kFails | kRecords},
          {"GetFileAttributesExA", kFails}},
         {"CreateFileA", 1, Fault::accessDenied}},
        {"Close", "open file", Opened("DATA.TXT", KOVRA_READWRITE), [](World& world) { return Text(world.file->Close(0)); },
         "0", {}},
        {"Close", "temporary file", OpenedTemporary, [](World& world) { return Text(world.file->Close(0)); }, "0",
         {{"DeleteFileA", kRecords}, {"_access", kNotFoundMeansGone}}},
        {"~CKovra", "temporary file", OpenedTemporary,
         [](World& world) {
             world.file.reset();
             return std::string();
         },
         "", {{"_access", kNotFoundMeansGone}}},
        {"GetRealFileName", "type and name", Unopened,
         [](World& world) { return Text(world.file->GetRealFileName("DFT", "DATA.TXT", 0)); }, "", {}},
        {"GetLastError", "pending failure", Opened("MISSING.TXT", KOVRA_READ),
         [](World& world) {
             int cause = 0;
             char message[256] = "";
             int reported = world.file->GetLastError(&cause, message, sizeof message, 0);
             return Text(reported) + " " + Text(cause);
         },
         "0 0", {}},
    };
}

std::vector<Scenario> DataScenarios()
{
    const CallRule seekFails{"SetFilePointerEx", kFails | kRecords};
    auto onData = [](unsigned long options) { return Opened("DATA.TXT", options); };
    return {
        {"Read", "", onData(KOVRA_READ),
         [](World& world) {
             char buffer[64];
             return Text(world.file->Read(buffer, sizeof buffer, 0));
         },
         "0", {{"ReadFile", kFails | kRecords}}},
        {"Write", "", onData(KOVRA_READWRITE), [](World& world) { return Text(world.file->Write("xyz", 3, 0)); }, "0",
         {{"WriteFile", kFails | kRecords}}},
        {"Write", "append", onData(KOVRA_APPEND), [](World& world) { return Text(world.file->Write("xyz", 3, 0)); },
         "0", {seekFails, {"WriteFile", kFails | kRecords}}},
        // A failed move back behind the line is recorded; the line itself was read.
        {"ReadString", "text", onData(KOVRA_READ | KOVRA_TEXT),
         [](World& world) {
             char line[64] = "";
             int result = world.file->ReadString(line, sizeof line - 1, nullptr, 0);
             return Text(result) + " " + line;
         },
         "0 ", {{"ReadFile", kFails | kRecords}, {"SetFilePointerEx", kRecords}}},
        {"WriteString", "text", onData(KOVRA_READWRITE | KOVRA_TEXT),
         [](World& world) { return Text(world.file->WriteString("abc\n", 0)); }, "0", {{"WriteFile", kFails | kRecords}}},
        {"WriteString", "modifiable text", onData(KOVRA_READWRITE),
         [](World& world) {
             char text[] = "abc";
             return Text(world.file->WriteString(text, 0));
         },
         "0", {{"WriteFile", kFails | kRecords}}},
        {"Printf", "text", onData(KOVRA_READWRITE | KOVRA_TEXT),
         [](World& world) { return Text(world.file->Printf(0, "%d\n", 5)); }, "0", {{"WriteFile", kFails | kRecords}}},
        {"Flush", "", onData(KOVRA_READWRITE), [](World& world) { return Text(world.file->Flush(0)); }, "0",
         {{"FlushFileBuffers", kFails | kRecords}}},
        {"Seek", "", onData(KOVRA_READ), [](World& world) { return Text(world.file->Seek(5, 0, 0)); }, "-1", {seekFails}},
        // The operators answer with the object whatever happens; only the cause tells.
        {"operator=", "", onData(KOVRA_READ),
         [](World& world) { return Text((*world.file = 5L) == world.file.get()); }, "1", {seekFails}},
        {"operator+=", "", onData(KOVRA_READ),
         [](World& world) { return Text((*world.file += 5L) == world.file.get()); }, "1", {seekFails}},
        {"operator-=", "", onData(KOVRA_READ),
         [](World& world) { return Text((*world.file -= 0L) == world.file.get()); }, "1", {seekFails}},
        {"GetPosition", "",
         [](World& world) {
             Opened("DATA.TXT", KOVRA_READ)(world);
             world.file->Seek(5, 0, 0);
         },
         [](World& world) { return Text(world.file->GetPosition(0)); }, "0", {seekFails}},
        {"GetLength", "open file", onData(KOVRA_READ), [](World& world) { return Text(world.file->GetLength(0)); }, "0",
         {{"GetFileSizeEx", kFails | kRecords}}},
        {"GetLength", "closed file", Resolved("DATA.TXT"), [](World& world) { return Text(world.file->GetLength(0)); },
         "0", {{"GetFileAttributesExA", kFails}}},
        {"SetLength", "", onData(KOVRA_READWRITE), [](World& world) { return Text(world.file->SetLength(4, 0)); }, "0",
         {seekFails, {"SetEndOfFile", kFails | kRecords}}},
        {"Lock", "", onData(KOVRA_READWRITE), [](World& world) { return Text(world.file->Lock(0, 4, 0)); }, "0",
         {{"LockFile", kFails | kRecords}}},
        {"UnLock", "",
         [](World& world) {
             Opened("DATA.TXT", KOVRA_READWRITE)(world);
             world.file->Lock(0, 4, 0);
         },
         [](World& world) { return Text(world.file->UnLock(0, 4, 0)); }, "0", {{"UnlockFile", kFails | kRecords}}},
        {"GetModificationTime", "", Resolved("DATA.TXT"),
         [](World& world) {
             ATL::CTime time;
             return Text(world.file->GetModificationTime(&time, 0));
         },
         "0", {{"GetFileAttributesExA", kFails}}},
        {"SetModificationTime", "", Resolved("DATA.TXT"),
         [](World& world) {
             const ATL::CTime time(1600000000);
             return Text(world.file->SetModificationTime(&time, 0));
         },
         "0",
         {{"GetFileAttributesExA", kFails},
          {"GetFileAttributesA", kFails | kRecords},
          {"SetFileAttributesA", kFails | kRecords},
          {"CreateFileA", kFails | kRecords},
          {"SetFileTime", kFails | kRecords}}},
    };
}

struct ProfileCall {
    const char* member;
    const char* variant;
    std::function<std::string(CKovra&)> call;
    std::string failureResult;
    const char* service;
};

constexpr char kWriteKey[] = "WritePrivateProfileStringA";
constexpr char kReadKey[] = "GetPrivateProfileStringA";

// A numeric overload pair: the value written, and read back with the same value as default.
template <typename Number>
void AddNumberOverloads(std::vector<ProfileCall>& calls, const char* variant, Number value)
{
    calls.push_back({"WriteProfile", variant, [value](CKovra& f) { return Text(f.WriteProfile("S", "K", value, 0)); },
                     "0", kWriteKey});
    calls.push_back({"GetProfile", variant,
                     [value](CKovra& f) { return std::to_string(f.GetProfile("S", "K", value, 0)); },
                     std::to_string(value), kReadKey});
}

std::vector<Scenario> ProfileScenarios()
{
    std::vector<ProfileCall> calls = {
        {"WriteProfile", "text", [](CKovra& f) { return Text(f.WriteProfile("S", "K", "7", 0)); }, "0", kWriteKey},
        {"GetProfile", "text",
         [](CKovra& f) {
             char value[64] = "";
             int length = f.GetProfile("S", "K", "none", value, sizeof value, 0);
             return Text(length) + " " + value;
         },
         "4 none", kReadKey},
        {"GetProfileSectionA", "",
         [](CKovra& f) {
             char lines[64] = "";
             return Text(f.GetProfileSectionA("S", lines, sizeof lines, 0));
         },
         "0", "GetPrivateProfileSectionA"},
        {"WriteProfileSectionA", "", [](CKovra& f) { return Text(f.WriteProfileSectionA("T", "A=1\0B=2\0", 0)); }, "0",
         "WritePrivateProfileSectionA"},
    };
    AddNumberOverloads(calls, "long", 7L);
    AddNumberOverloads(calls, "int", 7);
    AddNumberOverloads(calls, "unsigned long", 7UL);
    AddNumberOverloads(calls, "unsigned int", 7U);
    AddNumberOverloads(calls, "double", 7.5);
    std::vector<Scenario> scenarios;
    for (const ProfileCall& call : calls)
        scenarios.push_back({call.member, call.variant, Resolved("PROFILE.INI"),
                             [member = call.call](World& world) { return member(*world.file); }, call.failureResult,
                             {{call.service, kFails}}});
    return scenarios;
}

std::vector<Scenario> FileOperationScenarios()
{
    const CallRule noDirectory{"CreateDirectoryA", kFails};
    return {
        // A refused move falls back to copying: the member succeeds, the refusal is reported.
        {"SaveFile", "open file", Opened("DATA.TXT", KOVRA_READWRITE),
         [](World& world) { return Text(world.file->SaveFile(nullptr, nullptr, nullptr, 0, 0)); }, "0",
         {{"MoveFileA", kRecords}, {"CreateDirectoryA", kFails, 3}}},
        // A copy whose source can't be removed leaves the file at both places, by contract.
        {"SaveFile", "move refused", Resolved("DATA.TXT"),
         [](World& world) { return Text(world.file->SaveFile(nullptr, nullptr, nullptr, 0, 0)); }, "0",
         {{"CopyFileA", kFails}, noDirectory, {"_unlink", kFilesMayDiffer}},
         {"MoveFileA", 1, Fault::accessDenied}},
        {"Remove", "", Resolved("DATA.TXT"), [](World& world) { return Text(world.file->Remove(0)); }, "0",
         {{"DeleteFileA", kFails | kRecords | kRetriesSharing}, {"_access", kNotFoundMeansGone}}},
        {"Rename", "into a new directory", Opened("DATA.TXT", KOVRA_READWRITE),
         [](World& world) {
             char name[] = "MOVED\\DATA.TXT";
             return Text(world.file->Rename("DFT", name, 0));
         },
         "0", {{"MoveFileA", kFails | kRecords | kRetriesSharing}, {"CreateDirectoryA", kFails, 3}}},
        {"CopyFileA", "", Opened("DATA.TXT", KOVRA_READWRITE),
         [](World& world) { return Text(world.file->CopyFileA("DFT", "COPY\\DATA.TXT", 0, 0)); }, "0",
         {{"CopyFileA", kFails}, noDirectory, {"FlushFileBuffers", kRecords}}},
        // By contract a failed read or write of the copy doesn't change AppendFile's answer.
        {"AppendFile", "closed file", Resolved("DATA.TXT"),
         [](World& world) { return Text(world.file->AppendFile("DFT", "DEST.TXT", 0)); }, "0",
         {{"CreateFileA", kFails | kRetriesSharing},
          {"ReadFile#1", kFilesMayDiffer},
          {"SetFilePointerEx", kFilesMayDiffer},
          {"WriteFile", kFilesMayDiffer}}},
        {"AppendFile", "open file", Opened("DATA.TXT", KOVRA_READWRITE),
         [](World& world) { return Text(world.file->AppendFile("DFT", "DEST.TXT", 0)); }, "0",
         {{"CreateFileA", kFails | kRetriesSharing},
          {"FlushFileBuffers", kRecords},
          {"SetFilePointerEx#1", kRecords},
          {"SetFilePointerEx#2", kFilesMayDiffer},
          {"ReadFile#1", kRecords | kFilesMayDiffer},
          {"ReadFile#2", kRecords},
          {"WriteFile", kFilesMayDiffer}}},
        {"RmDir", "", Resolved("EMPTY"), [](World& world) { return Text(world.file->RmDir(0)); }, "0",
         {{"RemoveDirectoryA", kFails}, {"GetFileAttributesExA", kFails}}},
        // A name whose status can't be read is taken for a file's: ChDir enters its directory.
        {"ChDir", "",
         [](World& world) {
             ::SetCurrentDirectoryA(kRoot.c_str());
             Resolved("EMPTY")(world);
         },
         [](World& world) { return Text(world.file->ChDir(0)) + " " + CurrentDirectory(); }, "0 " + kRoot.substr(0, kRoot.size() - 1),
         {{"_chdir", kFails}, {"GetFileAttributesExA", kAnyResult}}},
        {"ChDrive", "", Unopened,
         [](World& world) { return Text(world.file->ChDrive(KOVRA_TEST_DRIVE[0] - 'A' + 1, 0)); }, "0",
         {{"_chdrive", kFails}}},
        {"GetCwd", "", Unopened, [](World& world) { return Text(world.file->GetCwd(0)); }, "",
         {{"GetCurrentDirectoryA", kFails}}},
        {"GetShortPathNameA", "", Resolved("DATA.TXT"),
         [](World& world) { return Text(world.file->GetShortPathNameA(0)); }, "", {}},
        {"GetLongPathNameA", "", Resolved("DATA.TXT"), [](World& world) { return Text(world.file->GetLongPathNameA(0)); },
         "", {}},
        {"GetDiskFreeSpaceA", "", Resolved("DATA.TXT"),
         [](World& world) { return Text(world.file->GetDiskFreeSpaceA(0) != 0); }, "0",
         {{"GetDiskFreeSpaceExA", kFails}}},
        {"Access", "", Resolved("DATA.TXT"), [](World& world) { return Text(world.file->Access(0)); }, "0",
         {{"_access", kFails}}},
        // MkDir answers 1 also when a directory couldn't be made.
        {"MkDir", "", Resolved("NEWDIR\\X.TXT"), [](World& world) { return Text(world.file->MkDir(0)); }, "0",
         {{"CreateDirectoryA", kFilesMayDiffer}}},
        {"IsDirectory", "", Resolved("EMPTY"), [](World& world) { return Text(world.file->IsDirectory(0)); }, "0",
         {{"GetFileAttributesExA", kFails}}},
    };
}

std::vector<Scenario> SearchScenarios()
{
    return {
        {"CKovraFind::FindFile", "",
         [](World& world) { world.find = std::make_unique<CKovraFind>(); },
         [](World& world) { return Text(world.find->FindFile("DFT", "FIND\\*.TXT", 0)); }, "0",
         {{"FindFirstFileA", kFails}}},
        // A failed step of the listing can't be told from its end.
        {"CKovraFind::FindNextFileA", "whole listing", Searching(0),
         [](World& world) {
             std::string names;
             while (world.find->FindNextFileA(0))
                 names += std::string(world.find->GetFileName(0)) + " ";
             return names;
         },
         "", {{"FindNextFileA", kAnyResult}}},
        {"CKovraFind::GetFilePathRelative", "", Searching(1),
         [](World& world) { return Text(world.find->GetFilePathRelative(0)); }, "", {}},
        {"CKovraFind::Close", "", Searching(1), [](World& world) { return Text(world.find->Close(0)); }, "1", {}},
        {"~CKovraFind", "", Searching(1),
         [](World& world) {
             world.find.reset();
             return std::string();
         },
         "", {}},
    };
}

std::vector<Scenario> SessionAndSettingScenarios()
{
    auto started = [](World& world) {
        CKovra::StartSession(kSession, 0);
        CKovra::StartThread(kSession, 4242, 0);
        world.undo.push_back([] { CKovra::RemoveSession(kSession, 0); });
    };
    return {
        {"StartSession", "", Nothing,
         [](World& world) {
             world.undo.push_back([] { CKovra::RemoveSession(kSession, 0); });
             return Text(CKovra::StartSession(kSession, 0));
         },
         "0", {}},
        {"StartThread", "", Nothing,
         [](World& world) {
             world.undo.push_back([] { CKovra::RemoveThread(kSession, 4242, 0); });
             return Text(CKovra::StartThread(kSession, 4242, 0));
         },
         "0", {}},
        {"RemoveThread", "", started, [](World&) { return Text(CKovra::RemoveThread(kSession, 4242, 0)); }, "0", {}},
        {"RemoveSession", "", started, [](World&) { return Text(CKovra::RemoveSession(kSession, 0)); }, "0", {}},
        {"SetUser", "", OwnSession, [](World&) { return Text(CKovra::SetUser("ANNA", 0)); }, "0", {}},
        {"SetClient", "", OwnSession, [](World&) { return Text(CKovra::SetClient("0042", 0)); }, "0", {}},
        {"SetModulePath", "", OwnSession, [](World&) { return Text(CKovra::SetModulePath(kRoot.c_str(), 0)); }, "0",
         {}},
        {"IsValidClient", "", Nothing, [](World&) { return Text(CKovra::IsValidClient("0042", 0)); }, "0",
         {{"_access", kFails}}},
        {"KovraCheckConfig", "", Nothing,
         [](World&) { return Text(KovraCheckConfig((kRoot + "CHECK.INI").c_str(), nullptr, nullptr)); }, "-1",
         {{"CreateFileA", kFails}, {"ReadFile", kFails}}},
    };
}

// Members that make no platform call: the walk confirms that they make none.
std::vector<Scenario> MembersWithoutPlatformCalls()
{
    auto fileAndSearch = [](World& world) {
        Opened("DATA.TXT", KOVRA_READ)(world);
        Searching(1)(world);
    };
    const std::pair<const char*, std::function<std::string(World&)>> members[] = {
        {"IsOpen", [](World& w) { return Text(w.file->IsOpen(0)); }},
        {"IsWritable", [](World& w) { return Text(w.file->IsWritable(0)); }},
        {"GetFileName", [](World& w) { return Text(w.file->GetFileName(0)); }},
        {"GetFileType", [](World& w) { return Text(w.file->GetFileType(0)); }},
        {"GetRealFileName", [](World& w) { return Text(w.file->GetRealFileName(0)); }},
        {"GetDrive", [](World& w) { return Text(w.file->GetDrive(0)); }},
        {"IsNetDrive", [](World& w) { return Text(w.file->IsNetDrive(0) + CKovra::IsNetDrive("X:", 0)); }},
        {"AddFileType", [](World&) { return Text(CKovra::AddFileType("T_FAULTS", 2, 1, 0)); }},
        {"SetDebugLevel", [](World&) { return Text(CKovra::SetDebugLevel(7, 0)); }},
        {"SetOption", [](World&) { return Text(CKovra::SetOption(1, 0, 0)); }},
        {"CKovraFind::GetLength", [](World& w) { return Text(w.find->GetLength(0)); }},
        {"CKovraFind::GetFileName", [](World& w) { return Text(w.find->GetFileName(0)); }},
        {"CKovraFind::GetFilePath", [](World& w) { return Text(w.find->GetFilePath(0)); }},
        {"CKovraFind::IsDots", [](World& w) { return Text(w.find->IsDots(0)); }},
        {"CKovraFind::IsDirectory", [](World& w) { return Text(w.find->IsDirectory(0)); }},
        {"CKovraFind::IsHidden", [](World& w) { return Text(w.find->IsHidden(0)); }},
    };
    std::vector<Scenario> scenarios;
    for (const auto& [member, call] : members)
        scenarios.push_back({member, "", fileAndSearch, call, "", {}});
    return scenarios;
}

// Last, being slow: after each sharing violation the library asks the handle tool (through
// the command interpreter) who holds the file.
Scenario HandleOwnerScenario()
{
    return {"Open", "sharing violation waited out", Unopened,
            [](World& world) { return Text(world.file->Open("DFT", "DATA.TXT", KOVRA_READ, nullptr, 0)); }, "0",
            {{"CreateFileA#2", kFails | kRecords}},
            {"CreateFileA", 1, Fault::sharingViolation}};
}

std::string Lines(const std::vector<std::string>& lines)
{
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

// The walk's judgement rests on these counts: a handle and a block that the library holds
// must show.
TEST(FaultWalk, HoldingsShowAHandleAndTheLibrarysHeapBlocks)
{
    ASSERT_TRUE(kovrafaults::InstallHooks());
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
    EXPECT_EQ(after.handles, before.handles);
    EXPECT_EQ(after.heapBlocks, before.heapBlocks);
    EXPECT_EQ(after.heapBytes, before.heapBytes);
}

TEST(FaultWalk, EveryMemberSurvivesEveryFailedPlatformCall)
{
    ASSERT_TRUE(kovrafaults::InstallHooks());
    kovrafaults::FaultWalk walk(kRoot, kFixture);
    for (auto family : {OpenAndCloseScenarios, DataScenarios, ProfileScenarios, FileOperationScenarios,
                        SearchScenarios, SessionAndSettingScenarios, MembersWithoutPlatformCalls})
        for (const Scenario& scenario : family())
            walk.Walk(scenario);
    walk.Walk(HandleOwnerScenario());
    std::printf("%s\n", walk.Summary().c_str());
    EXPECT_TRUE(walk.Problems().empty()) << walk.Problems().size() << " problems:\n" << Lines(walk.Problems());
}

} // namespace
