// Every member that calls the platform, walked over every platform call it makes, each call
// failed in turn (see FaultWalk.h). The rules of a scenario name the calls whose failure the
// member must show; a failure of any other call must leave the member's answer, its reported
// cause and the files exactly as a clean run leaves them. A member that only hands its call on
// to another, with nothing of its own around it, is walked through that one (operators = and +=
// through -=, the int overloads of the profile members through their long ones, SetClient and
// SetModulePath through SetUser, CKovraFind's destructor through its Close).
#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

#include "FaultWalk.h"
#include "kovra/diag.h"

namespace {

using namespace kovrafaults;

// A result as the walk compares it.
std::string Text(const std::string& text) { return text; }
std::string Text(const char* text) { return text ? text : "(null)"; }
template <typename Number, typename = std::enable_if_t<std::is_arithmetic_v<Number>>>
std::string Text(Number number) { return std::to_string(number); }

// A scenario's act: the member's result as text; w is the World.
#define ACT(call) [=]([[maybe_unused]] World& w) { return Text(call); }

const std::string kRoot = KOVRA_TEST_DRIVE ":\\APP\\";
void* const kSession = reinterpret_cast<void*>(0x5eed);
const ATL::CTime kTime(1600000000);
ATL::CTime g_time;  // what GetModificationTime reads into
char g_text[256];  // the buffer members write into; Scratch fills it afresh

char* Scratch(const char* text = "") { return std::strcpy(g_text, text); }

const std::map<std::string, std::string> kFixture = {
    {"DATA.TXT", "alpha\r\nbeta\r\ngamma\r\n"}, {"DEST.TXT", "dest\r\n"}, {"PROFILE.INI", "[S]\r\nK=42\r\n"},
    {"CHECK.INI", "[T1]\r\nLocation=BASE\r\n[T2]\r\nBaseType=T9\r\nLocation=NOWHERE\r\n"},
    {"EMPTY\\", ""}, {"FIND\\A.TXT", "a"}, {"FIND\\B.TXT", "bb"},
};

// An open of the platform file must fail the member, and GetLastError must name the cause.
const CallRule kOpenFails{"CreateFileA", kShows | kRetriesSharing}, kNoStatus{"GetFileAttributesExA", kFails};
const CallRule kSeekFails{"SetFilePointerEx", kShows}, kWriteFails{"WriteFile", kShows}, kReadFails{"ReadFile", kShows};
const CallRule kNoDirectory{"CreateDirectoryA", kFails, 3}, kProbe{"_access", kProbes};  // path not found
const CallRule kProfileFails{"GetPrivateProfileStringA WritePrivateProfileStringA "
                             "GetPrivateProfileSectionA WritePrivateProfileSectionA", kFails};

Setup Opened(unsigned long options, const char* name = "DATA.TXT", void (*then)(CKovra&) = nullptr)
{
    return [=](World& world) {
        world.file = std::make_unique<CKovra>("DFT", name, options, nullptr, 0);
        if (then)
            then(*world.file);
    };
}

Setup Resolved(const char* name) { return Opened(0, name); }
void MadeReadOnly(World&) { ::SetFileAttributesA((kRoot + "DATA.TXT").c_str(), FILE_ATTRIBUTE_READONLY); }
void OpenedTemporary(World& world) { world.file->Open(nullptr, nullptr, KOVRA_READWRITE, nullptr, 0); }
void Searching(World& world) { (world.find = std::make_unique<CKovraFind>())->FindFile("DFT", "FIND\\*.TXT", 0); }

// ReadString's answer and the line it read.
std::string Line(CKovra& file) { return Text(file.ReadString(Scratch(), 9, nullptr, 0)) + " " + g_text; }

#define OPENING(name, options) ACT(w.file->Open("DFT", name, options, nullptr, 0))

// One scenario for each member and each road of its own through the platform.
std::vector<Scenario> Scenarios()
{
    const Setup reading = Opened(KOVRA_READ), writing = Opened(KOVRA_READWRITE), data = Resolved("DATA.TXT");
    const Setup profile = Resolved("PROFILE.INI"), empty = Resolved("EMPTY");
    return {
        {"Open", "deny write", {}, OPENING("DATA.TXT", KOVRA_READWRITE | KOVRA_DENY_WRITE), "0", {kOpenFails}},
        {"Open", "new directory", {}, OPENING("NEW\\N.TXT", KOVRA_APPEND), "0", {kOpenFails, kNoDirectory}},
        {"Open", "temporary file", {}, OPENING(nullptr, KOVRA_READWRITE), "0", {{"CreateFileA#2", kOpenFails.effect}}},
        // The first open is refused: the read-only attribute is cleared and the open tried again.
        {"Open", "read-only file", MadeReadOnly, OPENING("DATA.TXT", KOVRA_READWRITE), "0",
         {{"CreateFileA#2 GetFileAttributesA SetFileAttributesA SetFileTime", kShows},
          {"CreateFileA#3", kOpenFails.effect}, kNoStatus}, "CreateFileA"},
        {"Close", "open file", writing, ACT(w.file->Close(0)), "0", {}},
        // A failed existence test is no missing file: the temporary file is removed all the same.
        {"Close", "temporary file", OpenedTemporary, ACT(w.file->Close(0)), "0", {{"DeleteFileA", kRecords}, kProbe}},
        {"Read", "", reading, ACT(w.file->Read(Scratch(), sizeof g_text, 0)), "0", {kReadFails}},
        {"Write", "", writing, ACT(w.file->Write("xyz", 3, 0)), "0", {kWriteFails}},
        {"Write", "append", Opened(KOVRA_APPEND), ACT(w.file->Write("xyz", 3, 0)), "0", {kSeekFails, kWriteFails}},
        // A failed move back behind the line is recorded; the line itself was read.
        {"ReadString", "text", Opened(KOVRA_READ | KOVRA_TEXT), ACT(Line(*w.file)), "0 ",
         {kReadFails, {"SetFilePointerEx", kRecords}}},
        // The line goes out with its line end in one write; when that fails, the three pieces follow.
        {"WriteString", "line", Opened(KOVRA_READWRITE | KOVRA_TEXT), ACT(w.file->WriteString("abc", 0)), "0", {}},
        {"Flush", "", writing, ACT(w.file->Flush(0)), "0", {{"FlushFileBuffers", kShows}}},
        {"Seek", "", reading, ACT(w.file->Seek(5, 0, 0)), "-1", {kSeekFails}},
        {"GetLength", "open file", reading, ACT(w.file->GetLength(0)), "0", {{"GetFileSizeEx", kShows}}},
        {"GetLength", "closed file", data, ACT(w.file->GetLength(0)), "0", {kNoStatus}},
        {"SetLength", "", writing, ACT(w.file->SetLength(4, 0)), "0", {kSeekFails, {"SetEndOfFile", kShows}}},
        {"Lock", "", writing, ACT(w.file->Lock(0, 4, 0)), "0", {{"LockFile", kShows}}},
        {"UnLock", "", Opened(KOVRA_READWRITE, "DATA.TXT", [](CKovra& file) { file.Lock(0, 4, 0); }),
         ACT(w.file->UnLock(0, 4, 0)), "0", {{"UnlockFile", kShows}}},
        {"SetModificationTime", "", data, ACT(w.file->SetModificationTime(&kTime, 0)), "0",
         {kNoStatus, {"GetFileAttributesA SetFileAttributesA CreateFileA SetFileTime", kShows}}},
        // Each profile member fails, or answers its default, when its profile service fails.
        {"WriteProfile", "", profile, ACT(w.file->WriteProfile("S", "K", "7", 0)), "0", {kProfileFails}},
        {"GetProfile", "text", profile, ACT(w.file->GetProfile("S", "K", "no", Scratch(), 9, 0)), "0", {kProfileFails}},
        {"GetProfile", "long", profile, ACT(w.file->GetProfile("S", "K", 7L, 0)), "7", {kProfileFails}},
        {"GetProfileSectionA", "", profile, ACT(w.file->GetProfileSectionA("S", g_text, 9, 0)), "0", {kProfileFails}},
        {"WriteProfileSectionA", "", profile, ACT(w.file->WriteProfileSectionA("T", "A=1\0", 0)), "0", {kProfileFails}},
        // A refused move falls back to copying: the member succeeds, the refusal is reported.
        {"SaveFile", "", writing, ACT(w.file->SaveFile(nullptr, nullptr, nullptr, 0, 0)), "0",
         {{"MoveFileA", kRecords}, kNoDirectory}},
        // A copy whose source can't be removed leaves the file at both places, by contract.
        {"SaveFile", "move refused", data, ACT(w.file->SaveFile(nullptr, nullptr, nullptr, 0, 0)), "0",
         {{"CopyFileA CreateDirectoryA", kFails}, {"_unlink", kFilesMayDiffer}}, "MoveFileA"},
        {"Remove", "", data, ACT(w.file->Remove(0)), "0", {{"DeleteFileA", kShows | kRetriesSharing}, kProbe}},
        {"Rename", "", writing, ACT(w.file->Rename("DFT", Scratch("MOVED\\DATA.TXT"), 0)), "0",
         {{"MoveFileA", kShows | kRetriesSharing}, kNoDirectory}},
        {"CopyFileA", "", writing, ACT(w.file->CopyFileA("DFT", "COPY\\DATA.TXT", 0, 0)), "0",
         {{"CopyFileA CreateDirectoryA", kFails}, {"FlushFileBuffers", kRecords}}},
        // By contract a failed read or write of the copy doesn't change AppendFile's answer.
        {"AppendFile", "closed file", data, ACT(w.file->AppendFile("DFT", "DEST.TXT", 0)), "0",
         {{"CreateFileA", kFails | kRetriesSharing}, {"ReadFile#1 SetFilePointerEx WriteFile", kFilesMayDiffer}}},
        {"AppendFile", "open file", writing, ACT(w.file->AppendFile("DFT", "DEST.TXT", 0)), "0",
         {{"CreateFileA", kFails | kRetriesSharing}, {"FlushFileBuffers SetFilePointerEx#1 ReadFile#2", kRecords},
          {"SetFilePointerEx#2 WriteFile", kFilesMayDiffer}, {"ReadFile#1", kRecords | kFilesMayDiffer}}},
        {"RmDir", "", empty, ACT(w.file->RmDir(0)), "0", {{"RemoveDirectoryA", kFails}, kNoStatus}},
        // A name whose status can't be read is taken for a file's: ChDir enters its directory.
        {"ChDir", "", empty, ACT(w.file->ChDir(0)), "0", {{"_chdir", kFails}, {"GetFileAttributesExA", kAnyResult}}},
        {"ChDrive", "", {}, ACT(w.file->ChDrive(KOVRA_TEST_DRIVE[0] - 'A' + 1, 0)), "0", {{"_chdrive", kFails}}},
        {"GetCwd", "", {}, ACT(w.file->GetCwd(0)), "", {{"GetCurrentDirectoryA", kFails}}},
        {"GetShortPathNameA", "", data, ACT(w.file->GetShortPathNameA(0)), "", {}},
        {"GetLongPathNameA", "", data, ACT(w.file->GetLongPathNameA(0)), "", {}},
        {"GetDiskFreeSpaceA", "", data, ACT(w.file->GetDiskFreeSpaceA(0) != 0), "0", {{"GetDiskFreeSpaceExA", kFails}}},
        {"Access", "", data, ACT(w.file->Access(0)), "0", {{"_access", kFails}}},
        // MkDir answers 1 also when a directory couldn't be made.
        {"MkDir", "", Resolved("NEW\\X.TXT"), ACT(w.file->MkDir(0)), "0", {{"CreateDirectoryA", kFilesMayDiffer}}},
        {"CKovraFind::FindFile", "", [](World& w) { w.find = std::make_unique<CKovraFind>(); },
         ACT(w.find->FindFile("DFT", "FIND\\*.TXT", 0)), "0", {{"FindFirstFileA", kFails}}},
        // Both entries and past the end, which closes the search: a failed step can't be told from the end.
        {"CKovraFind::FindNextFileA", "", Searching,
         ACT(w.find->FindNextFileA(0) + w.find->FindNextFileA(0) + w.find->FindNextFileA(0)), "0",
         {{"FindNextFileA", kAnyResult}}},
        {"CKovraFind::Close", "", Searching, ACT(w.find->Close(0)), "1", {}},
        {"StartSession", "", [](World& w) { w.undo = [] { CKovra::RemoveSession(kSession, 0); }; },
         ACT(CKovra::StartSession(kSession, 0)), "0", {}},
        {"StartThread", "", [](World& w) { w.undo = [] { CKovra::RemoveThread(kSession, 4242, 0); }; },
         ACT(CKovra::StartThread(kSession, 4242, 0)), "0", {}},
        {"KovraCheckConfig", "", {}, ACT(KovraCheckConfig((kRoot + "CHECK.INI").c_str(), nullptr, nullptr)), "-1",
         {{"CreateFileA ReadFile", kFails}}},
        // Members that make another member's calls but answer, record or clean up on their own.
        {"CKovra::CKovra", "", {}, ACT((w.file = std::make_unique<CKovra>("DFT", "DATA.TXT", KOVRA_READ, nullptr, 0))
                                           ->IsOpen(0)), "0", {kOpenFails}},
        {"CKovra::~CKovra", "temporary file", OpenedTemporary, ACT((w.file = std::make_unique<CKovra>(), 1)), "0",
         {kProbe}},
        {"GetPosition", "", reading, ACT(w.file->GetPosition(0)), "0", {kSeekFails}},
        {"operator-=", "", reading, ACT(w.file->operator-=(2) == w.file.get()), "0", {{"SetFilePointerEx", kRecords}}},
        {"ReadString", "read-ahead", Opened(KOVRA_READ | KOVRA_TEXT | KOVRA_DENY_WRITE), ACT(Line(*w.file)), "0 ",
         {kReadFails}},
        {"WriteString", "binary", writing, ACT(w.file->WriteString("abc", 0)), "0", {kWriteFails}},
        {"Printf", "", Opened(KOVRA_READWRITE | KOVRA_TEXT), ACT(w.file->Printf(0, "%d\n", 42)), "0", {kWriteFails}},
        {"GetModificationTime", "", data, ACT(w.file->GetModificationTime(&g_time, 0)), "0", {kNoStatus}},
        {"IsDirectory", "", empty, ACT(w.file->IsDirectory(0)), "0", {kNoStatus}},
        {"GetProfile", "double", profile, ACT(w.file->GetProfile("S", "K", 7.5, 0)), "7.500000", {kProfileFails}},
        {"GetProfile", "unsigned long", profile, ACT(w.file->GetProfile("S", "K", 7UL, 0)), "7", {kProfileFails}},
        {"WriteProfile", "double", profile, ACT(w.file->WriteProfile("S", "K", 2.5, 0)), "0", {kProfileFails}},
        {"WriteProfile", "long", profile, ACT(w.file->WriteProfile("S", "K", -5L, 0)), "0", {kProfileFails}},
        {"WriteProfile", "unsigned long", profile, ACT(w.file->WriteProfile("S", "K", 5UL, 0)), "0", {kProfileFails}},
        {"GetRealFileName", "type and name", {}, ACT(w.file->GetRealFileName("DFT", "DATA.TXT", 0)), "", {}},
        {"SetUser", "", {}, ACT(CKovra::SetUser("U", 0)), "0", {}},
        {"RemoveSession", "", [](World&) { CKovra::StartSession(kSession, 0); },
         ACT(CKovra::RemoveSession(kSession, 0)), "0", {}},
        {"RemoveThread", "", [](World&) { CKovra::StartThread(kSession, 4242, 0); },
         ACT(CKovra::RemoveThread(kSession, 4242, 0)), "0", {}},
        {"IsValidClient", "", {}, ACT(CKovra::IsValidClient("C1", 0)), "0", {{"_access", kFails}}},
        // Last, being slow: after each sharing violation the library asks the handle tool
        // (through the command interpreter) who holds the file.
        {"Open", "sharing violation waited out", {}, OPENING("DATA.TXT", KOVRA_READ), "0", {{"CreateFileA#2", kShows}},
         "CreateFileA", kSharingViolation},
    };
}

TEST(FaultWalk, EveryMemberSurvivesEveryFailedPlatformCall)
{
    FaultWalk walk(kRoot, kFixture);
    const std::vector<Scenario> scenarios = Scenarios();
    for (const Scenario& scenario : scenarios)
        walk.Walk(scenario);
    std::printf("fault walk: %zu members in %zu scenarios; %d calls failed\n", walk.members.size(), scenarios.size(),
                walk.failedCalls);
    // The judgement rests on the stand-ins and the counts: every hooked import found (or looked
    // up), an open file's handle and heap blocks seen.
    for (const Hook* hook : Hooks())
        EXPECT_NE(*hook->real, nullptr) << hook->name;
    const Holdings before = CurrentHoldings();
    CKovra open("DFT", "DATA.TXT", KOVRA_READ, nullptr, 0);
    EXPECT_EQ(CurrentHoldings().handles, before.handles + 1);
    EXPECT_GT(CurrentHoldings().heapBlocks, before.heapBlocks);
}

// Only a log that another writer holds is tried again (30000 times at most); one that waiting
// can't fix, here a directory, is given up after the first attempt of each line.
TEST(FaultRegressions, OnlyALogHeldByAnotherWriterIsWaitedFor)
{
    auto attempts = [] {  // to write the ":Close" line of an object that attempted an open
        CKovra file("DFT", "MISSING.TXT", KOVRA_READ, nullptr, 0);
        RunArmed({}, [&] { file.Close(0); });
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
