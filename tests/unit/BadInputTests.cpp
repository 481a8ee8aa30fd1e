// Bad input at the interface: null pointers, names, patterns and types at and beyond the
// path limit, and what trying bad input found: a file appended onto itself, profile texts and
// buffers the profile service can't take, doubles of more than 127 characters, an open
// refused for its length, and times that a file can't hold.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "FileChecks.h"
#include "kovra/capi.h"
#include "kovra/diag.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";
const std::string kProfile = "[S]\r\nK=old\r\n";

// Opens the protected resolver to the table of null pointers.
class Resolver : public CKovra {
public:
    using CKovra::BuildFileName;
};

struct Call {
    const char* what;
    std::function<long long()> call;
    long long expected;
};

TEST(BadInput, NullPointersGiveTheFailureResultAndChangeNothing)
{
    ScratchDirectory directory(kBase + "BI_NULL");
    WriteFileBytes(directory / "F.TXT", "abc");
    WriteFileBytes(directory / "P.INI", kProfile);
    CKovra file("T_BASE", "BI_NULL\\F.TXT", KOVRA_READWRITE);
    CKovra profile("T_BASE", "BI_NULL\\P.INI", KOVRA_RESOLVE_ONLY);
    CKovra named("T_BASE", "BI_NULL\\F.TXT");
    Resolver resolver;
    CKovraFind find;
    KovraFile* handle = KovraFile_Create("T_BASE", "BI_NULL\\P.INI", KOVRA_RESOLVE_ONLY, nullptr, 0);
    KovraFind* findHandle = KovraFind_Create();
    char buffer[16] = "";
    const char* none = nullptr;
    char* noText = nullptr;
    const Call calls[] = {
        {"GetLastError", [&] { return file.GetLastError(nullptr, nullptr, 5); }, 0},
        {"Read", [&] { return file.Read(nullptr, 3); }, 0},
        {"Write", [&] { return file.Write(nullptr, 3); }, 0},
        {"ReadString", [&] { return file.ReadString(nullptr, 10); }, 0},
        {"WriteString const", [&] { return file.WriteString(none); }, 0},
        {"WriteString", [&] { return file.WriteString(noText); }, 0},
        {"Printf", [&] { return file.Printf(0, nullptr); }, 0},
        {"GetModificationTime", [&] { return file.GetModificationTime(nullptr, 0); }, 0},
        {"SetModificationTime", [&] { return file.SetModificationTime(nullptr, 1); }, 0},
        {"WriteProfile text", [&] { return profile.WriteProfile(none, "K", "v"); }, 0},
        {"WriteProfile long", [&] { return profile.WriteProfile(none, none, 5L); }, 0},
        {"WriteProfile int", [&] { return profile.WriteProfile(none, none, 5); }, 0},
        {"WriteProfile unsigned long", [&] { return profile.WriteProfile(none, none, 5UL); }, 0},
        {"WriteProfile unsigned", [&] { return profile.WriteProfile(none, none, 5U); }, 0},
        {"WriteProfile double", [&] { return profile.WriteProfile(none, none, 5.0); }, 0},
        {"WriteProfile number, no key", [&] { return profile.WriteProfile("S", none, 5L); }, 0},
        {"GetProfile buffer", [&] { return profile.GetProfile("S", "K", "", nullptr, 16); }, 0},
        {"GetProfile default", [&] { return profile.GetProfile("S", "MISSING", none, buffer, sizeof buffer); }, 0},
        {"GetProfile section names", [&] { return profile.GetProfile(none, none, none, buffer, sizeof buffer); }, 2},
        {"GetProfile long", [&] { return profile.GetProfile(none, "K", 7L); }, 7},
        {"GetProfile unsigned", [&] { return profile.GetProfile("S", none, 7U); }, 7},
        {"GetProfile double", [&] { return std::lround(profile.GetProfile(none, none, 7.0)); }, 7},
        {"GetProfileSectionA section", [&] { return profile.GetProfileSectionA(none, buffer, sizeof buffer); }, 0},
        {"GetProfileSectionA buffer", [&] { return profile.GetProfileSectionA("S", nullptr, 16); }, 0},
        {"WriteProfileSectionA section", [&] { return profile.WriteProfileSectionA(none, "a=1\0"); }, 0},
        {"WriteProfileSectionA lines", [&] { return profile.WriteProfileSectionA("S", none); }, 0},
        {"Rename", [&] { return named.Rename("T_BASE", nullptr); }, 0},
        {"CopyFileA", [&] { return named.CopyFileA("T_BASE", nullptr, 0); }, 0},
        {"AppendFile", [&] { return named.AppendFile("T_BASE", nullptr); }, 0},
        {"BuildFileName name", [&] { return resolver.BuildFileName("DFT", nullptr, buffer, 0); }, 0},
        {"BuildFileName path", [&] { return resolver.BuildFileName("DFT", buffer, nullptr, 0); }, 0},
        {"IsNetDrive", [&] { return CKovra::IsNetDrive(none); }, 1},
        {"AddFileType", [&] { return CKovra::AddFileType(none, 2, 1); }, 0},
        {"SetUser", [&] { return CKovra::SetUser(none); }, 1},  // the empty name
        {"SetClient", [&] { return CKovra::SetClient(none); }, 1},
        {"SetModulePath", [&] { return CKovra::SetModulePath(none); }, 1},
        {"IsValidClient", [&] { return CKovra::IsValidClient(none); }, PathExists(kBase + "CLIENTS\\") ? 1 : 0},
        {"FindFile", [&] { return find.FindFile(none, none); }, 1},  // "*.*" in the directory of "DFT"
        {"KovraGetSettings", [&] { return KovraGetSettings(nullptr); }, 0},
        {"KovraGetFileType", [&] { return KovraGetFileType(0, nullptr); }, 0},
        {"KovraGetSession", [&] { return KovraGetSession(0, nullptr); }, 0},
        {"KovraGetThreadBinding", [&] { return KovraGetThreadBinding(0, nullptr, nullptr); }, 1},
        {"KovraGetThreadSession", [&] { return KovraGetThreadSession(nullptr); }, 1},
        {"KovraCheckConfig", [&] { return KovraCheckConfig(nullptr, nullptr, nullptr); }, -1},
        // The C interface hands its pointers on; its times are pointers of its own.
        {"KovraFile_GetModificationTime", [&] { return KovraFile_GetModificationTime(handle, nullptr, 0); }, 0},
        {"KovraFile_SetModificationTime", [&] { return KovraFile_SetModificationTime(handle, nullptr, 0); }, 0},
        {"KovraFile_WriteProfileLong", [&] { return KovraFile_WriteProfileLong(handle, none, none, 5, 0); }, 0},
        {"KovraFile_WriteProfileSectionA", [&] { return KovraFile_WriteProfileSectionA(handle, none, "a=1\0", 0); }, 0},
        {"KovraFile_GetProfileString",
         [&] { return KovraFile_GetProfileString(handle, "S", "K", none, nullptr, 9, 0); }, 0},
        {"KovraFile_BuildFileName", [&] { return KovraFile_BuildFileName(handle, none, nullptr, nullptr, 0); }, 0},
        {"KovraFile_Printf", [&] { return KovraFile_Printf(handle, 0, nullptr); }, 0},
        {"KovraFile_Rename", [&] { return KovraFile_Rename(handle, none, nullptr, 0); }, 0},
        {"KovraFile_AppendFile", [&] { return KovraFile_AppendFile(handle, none, none, 0); }, 0},
        {"KovraFind_FindFile", [&] { return KovraFind_FindFile(findHandle, none, none, 0); }, 1},
        {"Kovra_AddFileType", [&] { return Kovra_AddFileType(none, 2, 1, 0); }, 0},
    };
    for (const Call& row : calls)
        EXPECT_EQ(row.expected, row.call()) << row.what;
    KovraFile_Destroy(handle);
    KovraFind_Destroy(findHandle);
    EXPECT_EQ(-3, CauseOf(named));  // a member without its target name or time records why it refused
    EXPECT_EQ(-3, CauseOf(file));
    file.Close();
    EXPECT_EQ("abc", ReadFileBytes(directory / "F.TXT"));
    EXPECT_EQ(kProfile, ReadFileBytes(directory / "P.INI"));
    EXPECT_EQ((std::vector<std::string>{"F.TXT", "P.INI"}), Entries(directory.Path()));
}

// Results for texts of 0, 258, 259, 260 and 4096 characters; kSkipped where a length isn't tried.
constexpr size_t kLengths[] = {0, 258, 259, 260, 4096};
constexpr int kSkipped = -9;

// A real path of length characters: directory, then fill; for 0 the empty name.
std::string PathOfLength(const std::string& directory, size_t length, char fill)
{
    return length ? directory + std::string(length - directory.size(), fill) : "";
}

struct LengthRow {
    const char* what;
    std::function<int(CKovra& file, const std::string& text)> call;
    int results[std::size(kLengths)];
};

TEST(BadInput, NamesAndTypesAtAndBeyondThePathLimit)
{
    ScratchDirectory directory(kBase + "BI_LONG");
    const std::string source = directory / "SRC.TXT";
    // The path members get a real path of that length (a name with a colon is taken as one),
    // or the empty name; they act on an object that names SRC.TXT.
    const LengthRow pathRows[] = {
        {"Open",
         [](CKovra& file, const std::string& path) { return file.Open("T_BASE", path.c_str(), KOVRA_READWRITE); },
         {0, 1, 1, 0, 0}},  // the empty name names the base directory, which opens for nobody
        {"GetRealFileName", [](CKovra& file, const std::string& path) {
             return static_cast<int>(std::strlen(file.GetRealFileName("T_BASE", path.c_str())));
         }, {6, 258, 259, 0, 0}},
        {"Rename", [](CKovra& file, std::string path) { return file.Rename("T_BASE", &path[0]); }, {0, 1, 1, 0, 0}},
        {"CopyFileA", [](CKovra& file, const std::string& path) { return file.CopyFileA("T_BASE", path.c_str(), 0); },
         {0, 1, 1, 0, 0}},
        {"AppendFile", [](CKovra& file, const std::string& path) { return file.AppendFile("T_BASE", path.c_str()); },
         {0, 1, 1, 0, 0}},
        {"SaveFile", [](CKovra& file, const std::string& path) { return file.SaveFile("T_BASE", path.c_str()); },
         {kSkipped, 0, 0, 0, 0}},  // the backup's date and number make every one too long
    };
    for (const LengthRow& row : pathRows) {
        for (size_t index = 0; index < std::size(kLengths); ++index) {
            const size_t length = kLengths[index];
            if (row.results[index] == kSkipped)
                continue;
            WriteFileBytes(source, "src");
            CKovra file("T_BASE", "BI_LONG\\SRC.TXT");
            const int result = row.call(file, PathOfLength(directory.Path(), length, 'N'));
            EXPECT_EQ(row.results[index], result) << row.what << " " << length;
            EXPECT_LE(std::strlen(file.GetRealFileName()), 259u) << row.what << " " << length;
            if (length > 259) {
                EXPECT_EQ(-2, CauseOf(file)) << row.what << " " << length;
            }
            if (result == 0) {  // refused or failed: nothing opened, made or moved
                EXPECT_EQ(std::vector<std::string>{"SRC.TXT"}, Entries(directory.Path())) << row.what << " " << length;
                EXPECT_EQ("src", ReadFileBytes(source)) << row.what << " " << length;
            }
            file.Close();  // lets go what an accepted row opened or made
            RemoveTree(directory.Path());
            MakeDirectories(directory.Path());
        }
    }
    // Patterns of stars behind the directory match every entry, as long as they fit.
    WriteFileBytes(source, "src");
    CKovraFind find;
    const int found[] = {1, 1, 1, 0, 0};  // the empty pattern finds the base directory itself
    for (size_t index = 0; index < std::size(kLengths); ++index) {
        EXPECT_EQ(found[index], find.FindFile("T_BASE", PathOfLength(directory.Path(), kLengths[index], '*').c_str()));
        find.FindNextFileA();
        EXPECT_LE(std::strlen(find.GetFilePath()), 259u);
    }
    // Wildcards in a directory part find nothing: a search lists one directory.
    WriteFileBytes(directory / "SUB\\F.TXT", "f");
    for (const char* pattern : {"BI_LONG\\S*\\*.TXT", "BI_LONG\\?UB\\F.TXT", "*\\SRC.TXT"}) {
        EXPECT_EQ(0, find.FindFile("T_BASE", pattern)) << pattern;
        EXPECT_EQ(0, find.FindNextFileA()) << pattern;
        EXPECT_STREQ("", find.GetFilePathRelative()) << pattern;
    }

    // Types, names of types and the identity setters get a text of that length.
    const LengthRow textRows[] = {
        {"type", [](CKovra& file, const std::string& type) { return file.Open(type.c_str(), "F.TXT", 0); },
         {1, 0, 0, 0, 0}},  // the empty type is always known
        {"AddFileType", [](CKovra&, const std::string& name) { return CKovra::AddFileType(name.c_str(), 2, 1); },
         {0, 0, 0, 0, 0}},
        {"SetUser", [](CKovra&, const std::string& user) { return CKovra::SetUser(user.c_str()); }, {1, 0, 0, 0, 0}},
        {"SetClient", [](CKovra&, const std::string& client) { return CKovra::SetClient(client.c_str()); },
         {1, 0, 0, 0, 0}},
        {"SetModulePath", [](CKovra&, const std::string& path) { return CKovra::SetModulePath(path.c_str()); },
         {1, 1, 0, 0, 0}},  // with the backslash it appends: 259 characters
        {"IsValidClient", [](CKovra&, const std::string& client) { return CKovra::IsValidClient(client.c_str()); },
         {PathExists(kBase + "CLIENTS\\") ? 1 : 0, 0, 0, 0, 0}},
    };
    CKovra file;
    for (const LengthRow& row : textRows)
        for (size_t index = 0; index < std::size(kLengths); ++index)
            EXPECT_EQ(row.results[index], row.call(file, std::string(kLengths[index], 'N')))
                << row.what << " " << kLengths[index];
    KovraSession_S session;
    ASSERT_EQ(1, KovraGetThreadSession(&session));
    EXPECT_STREQ("USERS\\", session.user);
    EXPECT_STREQ("CLIENTS\\", session.client);
    EXPECT_EQ(std::string(258, 'N') + "\\", session.modulePath);
}

TEST(BadInput, AFileIsNotAppendedOntoItself)
{
    ScratchDirectory directory(kBase + "BI_SELF");
    const std::string self = directory / "SELF.TXT";
    WriteFileBytes(self, "self");
    ASSERT_TRUE(::CreateHardLinkA((directory / "LINK.TXT").c_str(), self.c_str(), nullptr));
    CKovra named("T_BASE", "BI_SELF\\SELF.TXT");
    EXPECT_EQ(0, named.AppendFile("T_BASE", "BI_SELF\\SELF.TXT"));
    EXPECT_EQ(-4, CauseOf(named));
    // Open or not, under other spellings and through a second link it is the same file.
    CKovra open("T_BASE", "BI_SELF\\SELF.TXT", KOVRA_READWRITE);
    for (const char* target : {"bi_self\\.\\self.txt", "BI_SELF\\LINK.TXT"}) {
        EXPECT_EQ(0, open.AppendFile("T_BASE", target)) << target;
        EXPECT_EQ(-4, CauseOf(open)) << target;
        EXPECT_EQ(0, named.AppendFile("T_BASE", target)) << target;
    }
    EXPECT_EQ("self", ReadFileBytes(self));
    EXPECT_EQ(1, open.AppendFile("T_BASE", "BI_SELF\\OTHER.TXT"));
    EXPECT_EQ("self", ReadFileBytes(directory / "OTHER.TXT"));
}

TEST(BadInput, ProfileTextsAndBuffersTheProfileServiceCannotTakeAreRefused)
{
    ScratchDirectory directory(kBase + "BI_PROFILE");
    WriteFileBytes(directory / "P.INI", kProfile);
    CKovra profile("T_BASE", "BI_PROFILE\\P.INI", KOVRA_RESOLVE_ONLY);
    for (size_t length : {32767u, 65536u}) {  // the service stores garbage, or nothing, and answers 1
        const std::string text(length, 't');
        const char* t = text.c_str();
        EXPECT_EQ(0, profile.WriteProfile("S", "K", t)) << length;
        EXPECT_EQ(0, profile.WriteProfile("S", t, "v")) << length;
        EXPECT_EQ(0, profile.WriteProfile(t, "K", 5L)) << length;
        EXPECT_EQ(0, profile.WriteProfileSectionA(t, "K=v\0")) << length;
        char buffer[8] = "x";
        EXPECT_EQ(0, profile.GetProfile("S", t, "d", buffer, sizeof buffer)) << length;
        EXPECT_EQ(0, profile.GetProfile(t, "K", "d", buffer, sizeof buffer)) << length;
        EXPECT_EQ(0, profile.GetProfile("S", "MISSING", t, buffer, sizeof buffer)) << length;
        EXPECT_EQ(0, profile.GetProfileSectionA(t, buffer, sizeof buffer)) << length;
        EXPECT_STREQ("x", buffer);
        EXPECT_EQ(7L, profile.GetProfile("S", t, 7L)) << length;
    }
    EXPECT_EQ(kProfile, ReadFileBytes(directory / "P.INI"));
    // A section doesn't fit a buffer of one byte: nothing is written into it.
    char small[4] = {'#', '#', '#', '#'};
    EXPECT_EQ(0, profile.GetProfileSectionA("S", small, 1));
    EXPECT_EQ(0, profile.GetProfileSectionA("S", small, 0));
    EXPECT_EQ("####", std::string(small, sizeof small));
    // 32766 characters are the longest text stored whole.
    const std::string longest(32766, 'l');
    EXPECT_EQ(1, profile.WriteProfile("S", "K", longest.c_str()));
    std::string back(40000, '\0');
    EXPECT_EQ(32766, profile.GetProfile("S", "K", "", &back[0], static_cast<int>(back.size())));
    EXPECT_EQ(longest, back.c_str());
}

TEST(BadInput, DoublesReadBackAsTheyWereWritten)
{
    ScratchDirectory directory(kBase + "BI_DOUBLE");
    CKovra profile("T_BASE", "BI_DOUBLE\\P.INI", KOVRA_RESOLVE_ONLY);
    // Six decimals while the text fits the 127 characters that a numeric read takes; beyond
    // that the shortest text that reads back as the same value.
    const std::string lf120 = "99999999999999998000346834739420118166880519289700851818864831183077241462742872546"
                              "4789434929992439754776075181077037056.000000";
    struct Row {
        double value;
        std::string stored;
        double readBack;
    } const rows[] = {
        {2.5, "2.500000", 2.5},
        {-1e-300, "-0.000000", -0.0},
        {1e120, lf120, 1e120},
        {1e121, "1e+121", 1e121},
        {1e200, "1e+200", 1e200},
        {DBL_MAX, "1.7976931348623157e+308", DBL_MAX},
        {-DBL_MAX, "-1.7976931348623157e+308", -DBL_MAX},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(1, profile.WriteProfile("S", "K", row.value)) << row.stored;
        char stored[400] = "";
        profile.GetProfile("S", "K", "", stored, sizeof stored);
        EXPECT_EQ(row.stored, stored);
        const double back = profile.GetProfile("S", "K", 7.0);
        EXPECT_EQ(row.readBack, back) << row.stored;
        EXPECT_EQ(std::signbit(row.readBack), std::signbit(back)) << row.stored;
    }
}

TEST(BadInput, AnOpenRefusedForItsLengthLeavesTheObjectNamingNoFile)
{
    ScratchDirectory directory(kBase + "BI_OPEN");
    CKovra file("T_BASE", "BI_OPEN\\KEEP.TXT", KOVRA_READWRITE);
    ASSERT_EQ(1, file.IsOpen());
    for (const std::string& name : {std::string(260, 'N'), "BI_OPEN\\" + std::string(250, 'N')}) {
        EXPECT_EQ(0, file.Open("T_BASE", name.c_str(), KOVRA_READWRITE));
        EXPECT_STREQ("", file.GetRealFileName());
        EXPECT_EQ(-2, CauseOf(file));
        EXPECT_EQ(1, file.Remove());  // there is nothing to remove
    }
    EXPECT_EQ((std::vector<std::string>{"KEEP.TXT"}), Entries(directory.Path()));
}

TEST(BadInput, TimesAFileCannotHoldAreRefused)
{
    ScratchDirectory directory(kBase + "BI_TIME");
    WriteFileBytes(directory / "F.TXT", "f");
    CKovra file("T_BASE", "BI_TIME\\F.TXT");
    const ATL::CTime set(1100000000);
    ASSERT_EQ(1, file.SetModificationTime(&set, 0));
    // Before 1970-01-01 00:00:01 UTC (0 would mean "unchanged") or after 30828-09-14 02:48:05 UTC.
    for (long long seconds : {LLONG_MIN, -11644473601LL, -1LL, 0LL, 910692730086LL, LLONG_MAX}) {
        const ATL::CTime time(seconds);
        EXPECT_EQ(0, file.SetModificationTime(&time, 0)) << seconds;
        EXPECT_EQ(-3, CauseOf(file)) << seconds;
        EXPECT_EQ(0, file.SetModificationTime(&time, 1)) << seconds;
    }
    ATL::CTime time;
    ASSERT_EQ(1, file.GetModificationTime(&time, 0));
    EXPECT_EQ(1100000000, time.GetTime());
    const ATL::CTime earliest(1);
    EXPECT_EQ(1, file.SetModificationTime(&earliest, 0));
    ASSERT_EQ(1, file.GetModificationTime(&time, 0));
    EXPECT_EQ(1, time.GetTime());
}

} // namespace
