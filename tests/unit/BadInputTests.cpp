// Bad input at the interface: null pointers, texts at and beyond the path limit, wildcards in directory parts, and
// what trying bad input found: a file appended onto itself and times that a file can't hold. Names refused for
// their length, profile texts, buffers and doubles that the profile service can't take whole: RandomInputTests.cpp.
#include <climits>
#include <cstring>
#include <functional>

#include "UnitChecks.h"
#include "kovra/capi.h"

using namespace kovratest;

namespace {

// A call written once, with its text to name it in a failure.
using Call = std::pair<const char*, std::function<long long()>>;
#define CALL(...) Call{#__VA_ARGS__, [&] { return static_cast<long long>(__VA_ARGS__); }}

void ExpectEach(long long expected, std::initializer_list<Call> calls)
{
    for (const auto& [text, make] : calls)
        EXPECT_EQ(expected, make()) << text;
}

TEST(BadInput, NullPointersGiveTheFailureResultAndChangeNothing)
{
    ScratchDirectory directory(kBase + "BI_NULL");
    WriteFileBytes(directory / "F.TXT", "abc");
    WriteFileBytes(directory / "P.INI", "[S]\r\nK=old\r\n");
    CKovra file("T_BASE", "BI_NULL\\F.TXT", KOVRA_READWRITE), named("T_BASE", "BI_NULL\\F.TXT");
    CKovra profile("T_BASE", "BI_NULL\\P.INI", KOVRA_RESOLVE_ONLY);
    NameBuilder builder;
    CKovraFind find;
    KovraFile* handle = KovraFile_Create("T_BASE", "BI_NULL\\P.INI", KOVRA_RESOLVE_ONLY, nullptr, 0);
    char buffer[16] = "";
    const char* none = nullptr;
    // The C interface's own pointers are its times and copies of names; it hands the others on to the members.
    ExpectEach(0, {
        CALL(file.GetLastError(nullptr, nullptr, 5)), CALL(file.Read(nullptr, 3)), CALL(file.Write(nullptr, 3)),
        CALL(file.ReadString(nullptr, 10)), CALL(file.WriteString(none)), CALL(file.Printf(0, nullptr)),
        CALL(file.GetModificationTime(nullptr, 0)), CALL(file.SetModificationTime(nullptr, 1)),
        CALL(profile.WriteProfile(none, "K", "v")), CALL(profile.WriteProfile(none, none, 5L)),
        CALL(profile.WriteProfile(none, none, 5UL)), CALL(profile.WriteProfile(none, none, 5.0)),
        CALL(profile.WriteProfile("S", none, 5L)), CALL(profile.GetProfile("S", "K", "", nullptr, 16)),
        CALL(profile.GetProfile("S", "MISSING", none, buffer, 16)), CALL(profile.GetProfileSectionA(none, buffer, 16)),
        CALL(profile.GetProfileSectionA("S", nullptr, 16)), CALL(profile.WriteProfileSectionA(none, "a=1\0")),
        CALL(profile.WriteProfileSectionA("S", none)), CALL(named.Rename("T_BASE", nullptr)),
        CALL(named.CopyFileA("T_BASE", nullptr, 0)), CALL(named.AppendFile("T_BASE", nullptr)),
        CALL(builder.BuildFileName("DFT", nullptr, buffer, 0)), CALL(builder.BuildFileName("DFT", buffer, nullptr, 0)),
        CALL(KovraGetSettings(nullptr)), CALL(KovraGetFileType(0, nullptr)), CALL(KovraGetSession(0, nullptr)),
        CALL(KovraFile_GetModificationTime(handle, nullptr, 0)), CALL(KovraFile_Printf(handle, 0, nullptr)),
        CALL(KovraFile_SetModificationTime(handle, nullptr, 0)),
        CALL(KovraFile_BuildFileName(handle, none, nullptr, nullptr, 260, 0)),
        // A null handle gives each function's failure result.
        CALL(KovraFile_Open(nullptr, "T_BASE", "A.TXT", KOVRA_READ, nullptr, 0)),
        CALL(*KovraFile_GetRealFileName(nullptr, 0)), CALL(KovraFile_GetLastError(nullptr, nullptr, nullptr, 0, 0)),
        CALL(KovraFile_Printf(nullptr, 0, "%d", 1)), CALL(KovraFile_OperatorAssign(nullptr, 3) != nullptr),
        CALL(KovraFind_FindFile(nullptr, "T_BASE", "*.*", 0)), CALL(*KovraFind_GetFilePath(nullptr, 0))});
    KovraFile_Destroy(nullptr);
    KovraFind_Destroy(nullptr);
    // An empty name stands in for the null pointer; "*.*" is searched in the directory of "DFT".
    ExpectEach(1, {CALL(CKovra::AddFileType(none, 2, 1)), CALL(CKovra::IsNetDrive(none)), CALL(CKovra::SetUser(none)),
                   CALL(CKovra::SetClient(none)), CALL(CKovra::SetModulePath(none)), CALL(find.FindFile(none, none)),
                   CALL(KovraGetThreadSession(nullptr)), CALL(KovraGetThreadBinding(0, nullptr, nullptr))});
    ExpectEach(7, {CALL(profile.GetProfile(none, "K", 7L)), CALL(profile.GetProfile("S", none, 7UL)),
                   CALL(profile.GetProfile(none, none, 7.0)), CALL(KovraFile_GetProfileLong(nullptr, "S", "K", 7, 0))});
    EXPECT_EQ(2, profile.GetProfile(none, none, none, buffer, 16));  // the section names: "S"
    EXPECT_EQ(-1, KovraCheckConfig(nullptr, nullptr, nullptr));
    EXPECT_EQ(PathExists(kBase + "CLIENTS\\") ? 1 : 0, CKovra::IsValidClient(none));
    KovraFile_Destroy(handle);
    EXPECT_EQ("-3 -3", Joined(CauseOf(named), CauseOf(file)));  // a member without its target name or time: why
    file.Close();
    EXPECT_EQ(Lines({"F.TXT", "P.INI"}), Entries(directory.Path()));  // nothing made, nothing written
    EXPECT_EQ("abc", ReadFileBytes(directory / "F.TXT"));
    EXPECT_EQ("[S]\r\nK=old\r\n", ReadFileBytes(directory / "P.INI"));
}

// What a member gives for texts of 0, 258, 259, 260 and 4096 characters (kSkipped: not tried).
constexpr size_t kLengths[] = {0, 258, 259, 260, 4096};
constexpr int kSkipped = -9;
// The call's text, the call, and what it gives for each length.
using LengthRow =
    std::tuple<const char*, std::function<int(CKovra&, std::string)>, std::array<int, std::size(kLengths)>>;
#define LENGTH_ROW(call, ...)                                                                                    \
    LengthRow{#call, [](CKovra& file [[maybe_unused]], std::string text) { return static_cast<int>(call); }, \
              {__VA_ARGS__}}

// A real path of length characters: directory, then fill; for 0 the empty name.
std::string PathOfLength(const std::string& directory, size_t length, char fill)
{
    return length ? directory + std::string(length - directory.size(), fill) : "";
}

TEST(BadInput, NamesTypesAndPatternsAtAndBeyondThePathLimit)
{
    ScratchDirectory directory(kBase + "BI_LONG");
    // The path members get a real path of that length (a name with a colon is one), or the empty name, which
    // names the base directory; they act on an object that names SRC.TXT.
    const LengthRow pathRows[] = {
        LENGTH_ROW(file.Open("T_BASE", text.c_str(), KOVRA_READWRITE), 0, 1, 1, 0, 0),
        LENGTH_ROW(std::strlen(file.GetRealFileName("T_BASE", text.c_str())), 6, 258, 259, 0, 0),
        LENGTH_ROW(file.Rename("T_BASE", &text[0]), 0, 1, 1, 0, 0),
        LENGTH_ROW(file.CopyFileA("T_BASE", text.c_str(), 0), 0, 1, 1, 0, 0),
        LENGTH_ROW(file.AppendFile("T_BASE", text.c_str()), 0, 1, 1, 0, 0),
        // The backup's date and number make every one too long (extensions: SaveFile).
        LENGTH_ROW(file.SaveFile("T_BASE", text.c_str()), kSkipped, 0, 0, 0, 0),
    };
    for (const auto& [call, make, results] : pathRows)
        for (size_t index = 0; index < std::size(kLengths); ++index) {
            SCOPED_TRACE(std::string(call) + " " + std::to_string(kLengths[index]));
            if (results[index] == kSkipped)
                continue;
            RemoveTree(directory.Path());
            WriteFileBytes(directory / "SRC.TXT", "src");
            CKovra file("T_BASE", "BI_LONG\\SRC.TXT");  // lets go what an accepted row opened or made when it ends
            const int result = make(file, PathOfLength(directory.Path(), kLengths[index], 'N'));
            EXPECT_EQ(results[index], result);
            EXPECT_LE(std::strlen(file.GetRealFileName()), 259u);
            // AppendFile leaves a refused target's error with the target's object.
            EXPECT_TRUE(kLengths[index] <= 259 || CauseOf(file) == (std::strstr(call, "AppendFile") ? 0 : -2));
            EXPECT_TRUE(result != 0 || Entries(directory.Path()) == Lines{"SRC.TXT"});
            EXPECT_TRUE(result != 0 || ReadFileBytes(directory / "SRC.TXT") == "src");
        }
    // Stars behind the directory match every entry while they fit; the empty pattern finds the base directory.
    // Wildcards in a directory part find nothing: a search lists one directory.
    CKovraFind find;
    const int found[] = {1, 1, 1, 0, 0};
    for (size_t index = 0; index < std::size(kLengths); ++index) {
        EXPECT_EQ(found[index], find.FindFile("T_BASE", PathOfLength(directory.Path(), kLengths[index], '*').c_str()));
        find.FindNextFileA();
        EXPECT_LE(std::strlen(find.GetFilePath()), 259u);
    }
    WriteFileBytes(directory / "SUB\\F.TXT", "f");
    for (const char* pattern : {"BI_LONG\\S*\\*.TXT", "BI_LONG\\?UB\\F.TXT", "*\\SRC.TXT"}) {
        EXPECT_EQ(0, find.FindFile("T_BASE", pattern)) << pattern;
        EXPECT_EQ(0, find.FindNextFileA()) << pattern;
        EXPECT_STREQ("", find.GetFilePathRelative()) << pattern;
    }

    // Types, names of types and the identity setters get a text of that length. The empty type is always known;
    // with its backslash a module path of 258 characters takes 259.
    const LengthRow textRows[] = {
        LENGTH_ROW(file.Open(text.c_str(), "F.TXT", 0), 1, 0, 0, 0, 0),
        LENGTH_ROW(CKovra::AddFileType(text.c_str(), 2, 1), 1, 1, 1, 1, 1),  // and adds nothing: FileTypes
        LENGTH_ROW(CKovra::SetUser(text.c_str()), 1, 0, 0, 0, 0),
        LENGTH_ROW(CKovra::SetClient(text.c_str()), 1, 0, 0, 0, 0),
        LENGTH_ROW(CKovra::SetModulePath(text.c_str()), 1, 1, 0, 0, 0),
        LENGTH_ROW(CKovra::IsValidClient(text.c_str()), PathExists(kBase + "CLIENTS\\") ? 1 : 0, 0, 0, 0, 0),
    };
    CKovra file;
    for (const auto& [call, make, results] : textRows)
        for (size_t index = 0; index < std::size(kLengths); ++index)
            EXPECT_EQ(results[index], make(file, std::string(kLengths[index], 'N'))) << call << " " << kLengths[index];
    const KovraSession_S session = CallerSession();
    EXPECT_EQ("USERS\\ CLIENTS\\ " + std::string(258, 'N') + "\\",
              Joined(session.user, session.client, session.modulePath));
}

TEST(BadInput, AFileIsNotAppendedOntoItselfAndTimesItCannotHoldAreRefused)
{
    ScratchDirectory directory(kBase + "BI_SELF");
    WriteFileBytes(directory / "SELF.TXT", "self");
    ASSERT_TRUE(::CreateHardLinkA((directory / "LINK.TXT").c_str(), (directory / "SELF.TXT").c_str(), nullptr));
    // Open or not, under other spellings and through a second link it is the same file.
    CKovra named("T_BASE", "BI_SELF\\SELF.TXT"), open("T_BASE", "BI_SELF\\SELF.TXT", KOVRA_READWRITE);
    for (CKovra* file : {&named, &open})
        for (const char* target : {"BI_SELF\\SELF.TXT", "bi_self\\.\\self.txt", "BI_SELF\\LINK.TXT"})
            EXPECT_EQ("0 -4", AnswerAndCause(file->AppendFile("T_BASE", target), *file)) << target;
    EXPECT_EQ("self", ReadFileBytes(directory / "SELF.TXT"));  // appending onto another file: CopyAppend

    // Times before 1970-01-01 00:00:01 UTC (0 would mean "unchanged") or after 30828-09-14 02:48:05 UTC.
    CKovra& file = Naming(open, "BI_SELF\\SELF.TXT");  // closed, for the times
    const ATL::CTime earliest(1);
    ASSERT_EQ(1, file.SetModificationTime(&earliest, 0));
    for (long long seconds : {LLONG_MIN, -11644473601LL, -1LL, 0LL, 910692730086LL, LLONG_MAX}) {
        const ATL::CTime time(seconds);
        EXPECT_EQ("0 -3", AnswerAndCause(file.SetModificationTime(&time, 0), file)) << seconds;
        EXPECT_EQ(0, file.SetModificationTime(&time, 1)) << seconds;
    }
    ATL::CTime time;  // read back (-1 when the read fails): the earliest as set, none of the others changed it
    EXPECT_EQ(1, file.GetModificationTime(&time, 0) == 1 ? time.GetTime() : -1);
}

} // namespace
