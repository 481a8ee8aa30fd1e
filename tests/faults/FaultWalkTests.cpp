// Every member that calls the platform, walked over every platform call it makes, each call
// failed in turn (see FaultWalk.h). The rules of a scenario name the calls whose failure the
// member must show; a failure of any other call must leave the member's answer, its reported
// cause and the files exactly as a clean run leaves them. A member that only hands its call on
// to another, with nothing of its own around it, is walked through that one (operators = and +=
// through -=, the int overloads of the profile members through their long ones, SetClient and
// SetModulePath through SetUser, CKovraFind's destructor through its Close).
#include <gtest/gtest.h>

#include <cstring>

#include "FaultWalk.h"
#include "kovra/diag.h"

namespace {

using namespace kovrafaults;

// A scenario's act: the member's result as text (as the test framework prints it); w is the World.
#define ACT(call) []([[maybe_unused]] World& w) { return testing::PrintToString(call); }
#define OPENING(name, options) ACT(w.file->Open("DFT", name, options))

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

Setup Opened(unsigned long options, const char* name = "DATA.TXT")
{
    return [=](World& world) { world.file = std::make_unique<CKovra>("DFT", name, options); };
}

void MadeReadOnly(World&) { ::SetFileAttributesA((kRoot + "DATA.TXT").c_str(), FILE_ATTRIBUTE_READONLY); }
void OpenedTemporary(World& world) { world.file->Open(nullptr, nullptr, KOVRA_READWRITE); }
void Searching(World& world) { world.find.FindFile("DFT", "FIND\\*.TXT"); }
void Locked(World& world)
{
    Opened(KOVRA_READWRITE)(world);
    world.file->Lock(0, 4);
}

// ReadString's answer followed by the line it read.
std::string ReadLine(World& w) { return std::to_string(w.file->ReadString(Scratch(), 9)) + g_text; }

const Setup reading = Opened(KOVRA_READ), writing = Opened(KOVRA_READWRITE), data = Opened(0);
const Setup profile = Opened(0, "PROFILE.INI"), empty = Opened(0, "EMPTY"), text = Opened(KOVRA_READWRITE | KOVRA_TEXT);

// One scenario for each member and each road of its own through the platform.
const std::vector<Scenario> kScenarios = {
    {"Open (deny write)", {}, OPENING("DATA.TXT", KOVRA_READWRITE | KOVRA_DENY_WRITE), {kOpenFails}},
    {"Open (new directory)", {}, OPENING("NEW\\N.TXT", KOVRA_APPEND), {kOpenFails, kNoDirectory}},
    {"Open (temporary file)", {}, OPENING(nullptr, KOVRA_READWRITE), {{"CreateFileA#2", kOpenFails.effect}}},
    // The first open is refused: the read-only attribute is cleared and the open tried again.
    {"Open (read-only file)", MadeReadOnly, OPENING("DATA.TXT", KOVRA_READWRITE),
     {{"CreateFileA#2 GetFileAttributesA SetFileAttributesA SetFileTime", kShows},
      {"CreateFileA#3", kOpenFails.effect}, kNoStatus}, "0", {"CreateFileA"}},
    {"Close (open file)", writing, ACT(w.file->Close()), {}},
    // A failed existence test is no missing file: the temporary file is removed all the same.
    {"Close (temporary file)", OpenedTemporary, ACT(w.file->Close()), {{"DeleteFileA", kRecords}, kProbe}},
    {"Read", reading, ACT(w.file->Read(g_text, sizeof g_text)), {kReadFails}},
    {"Write", writing, ACT(w.file->Write("xyz", 3)), {kWriteFails}},
    {"Write (append)", Opened(KOVRA_APPEND), ACT(w.file->Write("xyz", 3)), {kSeekFails, kWriteFails}},
    // A failed move back behind the line is recorded; the line itself was read.
    {"ReadString (text)", Opened(KOVRA_READ | KOVRA_TEXT), ReadLine, {kReadFails, {"SetFilePointerEx", kRecords}}},
    // The line goes out with its line end in one write; when that fails, the three pieces follow.
    {"WriteString (line)", text, ACT(w.file->WriteString("abc")), {}},
    {"Flush", writing, ACT(w.file->Flush()), {{"FlushFileBuffers", kShows}}},
    {"Seek", reading, ACT(w.file->Seek(5, 0)), {kSeekFails}, "-1"},
    {"GetLength (open file)", reading, ACT(w.file->GetLength()), {{"GetFileSizeEx", kShows}}},
    {"GetLength (closed file)", data, ACT(w.file->GetLength()), {kNoStatus}},
    {"SetLength", writing, ACT(w.file->SetLength(4)), {kSeekFails, {"SetEndOfFile", kShows}}},
    {"Lock", writing, ACT(w.file->Lock(0, 4)), {{"LockFile", kShows}}},
    {"UnLock", Locked, ACT(w.file->UnLock(0, 4)), {{"UnlockFile", kShows}}},
    {"SetModificationTime", data, ACT(w.file->SetModificationTime(&kTime, 0)),
     {kNoStatus, {"GetFileAttributesA SetFileAttributesA CreateFileA SetFileTime", kShows}}},
    // Each profile member fails, or answers its default, when its profile service fails.
    {"WriteProfile", profile, ACT(w.file->WriteProfile("S", "K", "7")), {kProfileFails}},
    {"GetProfile (text)", profile, ACT(w.file->GetProfile("S", "K", "no", Scratch(), 9)), {kProfileFails}},
    {"GetProfile (long)", profile, ACT(w.file->GetProfile("S", "K", 7L)), {kProfileFails}, "7"},
    {"GetProfileSectionA", profile, ACT(w.file->GetProfileSectionA("S", g_text, 9)), {kProfileFails}},
    {"WriteProfileSectionA", profile, ACT(w.file->WriteProfileSectionA("T", "A=1\0")), {kProfileFails}},
    // A refused move falls back to copying: the member succeeds, the refusal is reported.
    {"SaveFile", writing, ACT(w.file->SaveFile()), {{"MoveFileA", kRecords}, kNoDirectory}},
    // A copy whose source can't be removed leaves the file at both places, by contract.
    {"SaveFile (move refused)", data, ACT(w.file->SaveFile()),
     {{"CopyFileA CreateDirectoryA", kFails}, {"_unlink", kFilesMayDiffer}}, "0", {"MoveFileA"}},
    {"Remove", data, ACT(w.file->Remove()), {{"DeleteFileA", kShows | kRetriesSharing}, kProbe}},
    {"Rename", writing, ACT(w.file->Rename("DFT", Scratch("MOVED\\DATA.TXT"))),
     {{"MoveFileA", kShows | kRetriesSharing}, kNoDirectory}},
    {"CopyFileA", writing, ACT(w.file->CopyFileA("DFT", "COPY\\DATA.TXT", 0)),
     {{"CopyFileA CreateDirectoryA", kFails}, {"FlushFileBuffers", kRecords}}},
    // By contract a failed read or write of the copy doesn't change AppendFile's answer.
    {"AppendFile (closed file)", data, ACT(w.file->AppendFile("DFT", "DEST.TXT")),
     {{"CreateFileA", kFails | kRetriesSharing}, {"ReadFile#1 SetFilePointerEx WriteFile", kFilesMayDiffer}}},
    {"AppendFile (open file)", writing, ACT(w.file->AppendFile("DFT", "DEST.TXT")),
     {{"CreateFileA", kFails | kRetriesSharing}, {"FlushFileBuffers SetFilePointerEx#1 ReadFile#2", kRecords},
      {"SetFilePointerEx#2 WriteFile", kFilesMayDiffer}, {"ReadFile#1", kRecords | kFilesMayDiffer}}},
    {"RmDir", empty, ACT(w.file->RmDir()), {{"RemoveDirectoryA", kFails}, kNoStatus}},
    // A name whose status can't be read is taken for a file's: ChDir enters its directory.
    {"ChDir", empty, ACT(w.file->ChDir()), {{"_chdir", kFails}, {"GetFileAttributesExA", kAnyResult}}},
    {"ChDrive", {}, ACT(w.file->ChDrive(KOVRA_TEST_DRIVE[0] - 'A' + 1)), {{"_chdrive", kFails}}},
    {"GetCwd", {}, ACT(w.file->GetCwd()), {{"GetCurrentDirectoryA", kFails}}, R"("")"},
    {"GetShortPathNameA", data, ACT(w.file->GetShortPathNameA()), {}, R"("")"},
    {"GetLongPathNameA", data, ACT(w.file->GetLongPathNameA()), {}, R"("")"},
    {"GetDiskFreeSpaceA", data, ACT(w.file->GetDiskFreeSpaceA() != 0), {{"GetDiskFreeSpaceExA", kFails}}, "false"},
    {"Access", data, ACT(w.file->Access()), {{"_access", kFails}}},
    // MkDir answers 1 also when a directory couldn't be made.
    {"MkDir", Opened(0, "NEW\\X.TXT"), ACT(w.file->MkDir()), {{"CreateDirectoryA", kFilesMayDiffer}}},
    {"CKovraFind::FindFile", {}, ACT(w.find.FindFile("DFT", "FIND\\*.TXT")), {{"FindFirstFileA", kFails}}},
    // Both entries and past the end, which closes the search: a failed step can't be told from the end.
    {"CKovraFind::FindNextFileA", Searching,
     ACT(w.find.FindNextFileA() + w.find.FindNextFileA() + w.find.FindNextFileA()), {{"FindNextFileA", kAnyResult}}},
    {"CKovraFind::Close", Searching, ACT(w.find.Close()), {}, "1"},
    {"StartSession", [](World& w) { w.undo = [] { CKovra::RemoveSession(kSession); }; },
     ACT(CKovra::StartSession(kSession)), {}},
    {"StartThread", [](World& w) { w.undo = [] { CKovra::RemoveThread(kSession, 42); }; },
     ACT(CKovra::StartThread(kSession, 42)), {}},
    {"KovraCheckConfig", {}, ACT(KovraCheckConfig((kRoot + "CHECK.INI").c_str(), nullptr, nullptr)),
     {{"CreateFileA ReadFile", kFails}}, "-1"},
    // Members that make another member's calls but answer, record or clean up on their own.
    {"CKovra::CKovra", {}, ACT((w.file = std::make_unique<CKovra>("DFT", "DATA.TXT", KOVRA_READ))->IsOpen()),
     {kOpenFails}},
    {"CKovra::~CKovra (temporary file)", OpenedTemporary, ACT((w.file = std::make_unique<CKovra>(), 1)), {kProbe}},
    {"GetPosition", reading, ACT(w.file->GetPosition()), {kSeekFails}},
    {"operator-=", reading, ACT(w.file->operator-=(2) == w.file.get()), {{"SetFilePointerEx", kRecords}}},
    {"ReadString (read-ahead)", Opened(KOVRA_READ | KOVRA_TEXT | KOVRA_DENY_WRITE), ReadLine, {kReadFails}},
    {"WriteString (binary)", writing, ACT(w.file->WriteString("abc")), {kWriteFails}},
    {"Printf", text, ACT(w.file->Printf(0, "%d\n", 42)), {kWriteFails}},
    {"GetModificationTime", data, ACT(w.file->GetModificationTime(&g_time, 0)), {kNoStatus}},
    {"IsDirectory", empty, ACT(w.file->IsDirectory()), {kNoStatus}},
    {"GetProfile (double)", profile, ACT(w.file->GetProfile("S", "K", 7.5)), {kProfileFails}, "7.5"},
    {"GetProfile (unsigned long)", profile, ACT(w.file->GetProfile("S", "K", 7UL)), {kProfileFails}, "7"},
    {"WriteProfile (double)", profile, ACT(w.file->WriteProfile("S", "K", 2.5)), {kProfileFails}},
    {"WriteProfile (long)", profile, ACT(w.file->WriteProfile("S", "K", -5L)), {kProfileFails}},
    {"WriteProfile (unsigned long)", profile, ACT(w.file->WriteProfile("S", "K", 5UL)), {kProfileFails}},
    {"GetRealFileName (type and name)", {}, ACT(w.file->GetRealFileName("DFT", "DATA.TXT")), {}, R"("")"},
    {"SetUser", {}, ACT(CKovra::SetUser("U")), {}},
    {"RemoveSession", [](World&) { CKovra::StartSession(kSession); }, ACT(CKovra::RemoveSession(kSession)), {}},
    {"RemoveThread", [](World&) { CKovra::StartThread(kSession, 42); }, ACT(CKovra::RemoveThread(kSession, 42)), {}},
    {"IsValidClient", {}, ACT(CKovra::IsValidClient("C1")), {{"_access", kFails}}},
    // Last, being slow: after each sharing violation the library asks the handle tool
    // (through the command interpreter) who holds the file.
    {"Open (sharing violation waited out)", {}, OPENING("DATA.TXT", KOVRA_READ), {{"CreateFileA#2", kShows}}, "0",
     {"CreateFileA", 1, kSharingViolation}},
};

TEST(FaultWalk, EveryMemberSurvivesEveryFailedPlatformCall)
{
    FaultWalk walk(kRoot, kFixture);
    for (const Scenario& scenario : kScenarios)
        walk.Walk(scenario);
    std::printf("fault walk: %zu members in %zu scenarios; %zu calls failed\n", walk.members.size(), kScenarios.size(),
                walk.failedCalls);
    // The judgement rests on the stand-ins and the counts: every hooked import found (or looked
    // up), an open file's handle and heap blocks seen.
    for (const Hook* hook : Hooks())
        EXPECT_NE(*hook->real, nullptr) << hook->name;
    const Holdings before = CurrentHoldings();
    CKovra open("DFT", "DATA.TXT", KOVRA_READ);
    EXPECT_EQ(CurrentHoldings()[0], before[0] + 1);  // handles
    EXPECT_GT(CurrentHoldings()[1], before[1]);      // heap blocks
}

// Only a log that another writer holds is tried again (30000 times at most); one that waiting
// can't fix, here a directory, is given up after the first attempt of each line.
TEST(FaultRegressions, OnlyALogHeldByAnotherWriterIsWaitedFor)
{
    auto attempts = [] {  // to write the ":Close" line of an object that attempted an open
        CKovra file("DFT", "MISSING.TXT", KOVRA_READ);
        RunArmed({}, [&] { file.Close(); });
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
