// Opening and closing file objects: the options, sharing within and between processes,
// read-only files, the temporary-file mode, the close flags, the accessors, directory
// creation and the existence test, and the open and close traces.
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>

#include "FileChecks.h"
#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";
const std::string kTemporaryDirectory = kBase + "DAT\\WS1\\TMP\\";

std::string ChildCommand(const std::string& arguments)
{
    return Quote(ProgramPath("kovra_child.exe")) + " " + arguments;
}

// The local date and time as a temporary file's name carries it, cut to the minute.
std::string LocalMinuteStamp()
{
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    char text[16];
    std::snprintf(text, sizeof text, "%02d%02d%02d%02d%02d", now.wYear % 100, now.wMonth, now.wDay, now.wHour,
                  now.wMinute);
    return text;
}

// A temporary file's path: directory, session, yymmddhhmmssmmm and the number n.
std::regex TemporaryName(const std::string& directory, const std::string& session, int n)
{
    return std::regex(std::regex_replace(directory, std::regex(R"(\\)"), R"(\\)") + "CKV_" + session +
                      R"(_\d{15}_)" + std::to_string(n) + R"(\.TMP)");
}

TEST(OpenClose, ANewObjectIsEmptyAndClosed)
{
    CKovra file;
    EXPECT_STREQ("", file.GetFileName());
    EXPECT_STREQ("", file.GetFileType());
    EXPECT_STREQ("", file.GetRealFileName());
    EXPECT_EQ(0, file.IsOpen());
    EXPECT_EQ(0, file.IsWritable());
    EXPECT_EQ(0, file.Access());
    EXPECT_EQ(0, file.MkDir());
    int cause = 77;
    EXPECT_EQ(0, file.GetLastError(&cause));
    EXPECT_EQ(77, cause);
    EXPECT_EQ(0, file.Close());

    // A type alone opens nothing and isn't even stored; an array needs no arguments.
    CKovra typed("T_BASE");
    EXPECT_STREQ("", typed.GetFileType());
    CKovra several[3];
    EXPECT_STREQ("", several[2].GetRealFileName());
}

TEST(OpenClose, OptionsDecideWhatIsOpenedCreatedAndKept)
{
    ScratchDirectory directory(kBase + "OC_OPTIONS");
    CKovra file;
    // 0 resolves only and touches nothing.
    EXPECT_EQ(1, file.Open("T_BASE", "OC_OPTIONS\\NEW\\F.TXT", KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(directory / "NEW\\F.TXT", file.GetRealFileName());
    EXPECT_FALSE(PathExists(directory / "NEW"));
    EXPECT_EQ(0, file.IsOpen());
    EXPECT_EQ(0, file.Close());

    // Reading a missing file makes its directory and fails; the attempt still counts for Close.
    EXPECT_EQ(0, file.Open("T_BASE", "OC_OPTIONS\\READ\\F.TXT", KOVRA_READ));
    EXPECT_TRUE(PathExists(directory / "READ\\"));
    EXPECT_FALSE(PathExists(directory / "READ\\F.TXT"));
    EXPECT_EQ(0, file.IsOpen());
    EXPECT_EQ(2, CauseOf(file));
    EXPECT_EQ(1, file.Close());

    // 2 creates, and keeps the contents of an existing file.
    const std::string path = directory / "RW\\F.TXT";
    EXPECT_EQ(1, file.Open("T_BASE", "OC_OPTIONS\\RW\\F.TXT", KOVRA_READWRITE));
    EXPECT_EQ(1, file.IsOpen());
    EXPECT_EQ(1, file.IsWritable());
    EXPECT_EQ(0u, file.GetLength());
    file.Close();
    WriteFileBytes(path, "abc");
    EXPECT_EQ(1, file.Open("T_BASE", "OC_OPTIONS\\RW\\F.TXT", KOVRA_READWRITE));
    EXPECT_EQ(3u, file.GetLength());

    // 1 reads only; 4 appends; 2 with 8 empties the file.
    EXPECT_EQ(1, file.Open("T_BASE", "OC_OPTIONS\\RW\\F.TXT", KOVRA_READ));
    EXPECT_EQ(1, file.IsOpen());
    EXPECT_EQ(0, file.IsWritable());
    EXPECT_EQ(1, file.Open("T_BASE", "OC_OPTIONS\\RW\\F.TXT", KOVRA_APPEND));
    EXPECT_EQ(1, file.IsWritable());
    file.Write("de", 2);
    file.Close();
    EXPECT_EQ("abcde", ReadFileBytes(path));
    EXPECT_EQ(0, file.IsOpen());
    EXPECT_EQ(0, file.IsWritable());
    EXPECT_EQ(1, file.Open("T_BASE", "OC_OPTIONS\\RW\\F.TXT", KOVRA_READWRITE | KOVRA_TRUNCATE));
    EXPECT_EQ(0u, file.GetLength());
    file.Close();
    EXPECT_EQ("", ReadFileBytes(path));
    EXPECT_TRUE(PathExists(path));
}

TEST(OpenClose, SharingBetweenTwoObjectsOfOneProcess)
{
    ScratchDirectory directory(kBase + "OC_SHARE");
    WriteFileBytes(directory / "F.TXT", "x");
    const char* name = "OC_SHARE\\F.TXT";
    CKovra holder;
    CKovra other;

    ASSERT_EQ(1, holder.Open("T_BASE", name, KOVRA_READWRITE | KOVRA_EXCLUSIVE));
    EXPECT_EQ(0, other.Open("T_BASE", name, KOVRA_READ));
    EXPECT_EQ(11, CauseOf(other));

    // 16 lets others read but not write; 32 wins over 16.
    ASSERT_EQ(1, holder.Open("T_BASE", name, KOVRA_READWRITE | KOVRA_DENY_WRITE));
    EXPECT_EQ(1, other.Open("T_BASE", name, KOVRA_READ));
    EXPECT_EQ(0, other.Open("T_BASE", name, KOVRA_READWRITE));
    EXPECT_EQ(11, CauseOf(other));
    ASSERT_EQ(1, holder.Open("T_BASE", name, KOVRA_READ | KOVRA_DENY_WRITE | KOVRA_EXCLUSIVE));
    EXPECT_EQ(0, other.Open("T_BASE", name, KOVRA_READ));

    // Without 16 and 32 nothing is denied.
    ASSERT_EQ(1, holder.Open("T_BASE", name, KOVRA_READWRITE));
    EXPECT_EQ(1, other.Open("T_BASE", name, KOVRA_APPEND));
    holder.Close();
    EXPECT_EQ(1, holder.Open("T_BASE", name, KOVRA_READ));
}

TEST(OpenClose, SharingWithAnotherProcess)
{
    ScratchDirectory directory(kBase + "OC_PROCESS");
    WriteFileBytes(directory / "F.TXT", "x");
    CKovra file;
    {
        NamedEvent release;
        ChildProcess child(ChildCommand("open T_BASE OC_PROCESS\\F.TXT 34 " + release.Name()));
        ASSERT_EQ("OPEN 1", child.WaitForLine("OPEN"));
        EXPECT_EQ(0, file.Open("T_BASE", "OC_PROCESS\\F.TXT", KOVRA_READ));
        EXPECT_EQ(11, CauseOf(file));
        release.Set();
        EXPECT_EQ(0, child.Wait());
    }
    EXPECT_EQ(1, file.Open("T_BASE", "OC_PROCESS\\F.TXT", KOVRA_READ));
    file.Close();

    NamedEvent release;
    ChildProcess child(ChildCommand("open T_BASE OC_PROCESS\\F.TXT 17 " + release.Name()));
    ASSERT_EQ("OPEN 1", child.WaitForLine("OPEN"));
    EXPECT_EQ(1, file.Open("T_BASE", "OC_PROCESS\\F.TXT", KOVRA_READ));
    EXPECT_EQ(0, file.Open("T_BASE", "OC_PROCESS\\F.TXT", KOVRA_READWRITE));
    EXPECT_EQ(11, CauseOf(file));
    release.Set();
    EXPECT_EQ(0, child.Wait());
}

TEST(OpenClose, OpeningForWritingClearsTheReadOnlyAttribute)
{
    ScratchDirectory directory(kBase + "OC_READONLY");
    const std::string path = directory / "F.TXT";
    WriteFileBytes(path, "abc");
    ::SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY);
    CKovra file;

    EXPECT_EQ(1, file.Open("T_BASE", "OC_READONLY\\F.TXT", KOVRA_READ));
    EXPECT_NE(0u, ::GetFileAttributesA(path.c_str()) & FILE_ATTRIBUTE_READONLY);
    file.Close();
    HANDLE probe = ::CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (probe != INVALID_HANDLE_VALUE) {
        ::CloseHandle(probe);
        GTEST_SKIP() << "this system lets a read-only file be opened for writing (wine run by root)";
    }
    EXPECT_EQ(1, file.Open("T_BASE", "OC_READONLY\\F.TXT", KOVRA_READWRITE));
    EXPECT_EQ(0u, ::GetFileAttributesA(path.c_str()) & FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(1, file.IsWritable());
    EXPECT_EQ(3u, file.GetLength());
    int cause = 0;
    EXPECT_EQ(1, file.GetLastError(&cause));  // the first attempt's failure stays recorded
    EXPECT_EQ(5, cause);

    file.Close();
    ::SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(1, file.Open("T_BASE", "OC_READONLY\\F.TXT", KOVRA_APPEND));
    EXPECT_EQ(0u, ::GetFileAttributesA(path.c_str()) & FILE_ATTRIBUTE_READONLY);
}

TEST(OpenClose, TemporaryFilesAreMadeRemovedAndKept)
{
    const std::string session = std::to_string(::GetCurrentProcessId());
    const std::string minuteBefore = LocalMinuteStamp();
    CKovra file;
    EXPECT_EQ(0, file.Open("T_BASE", nullptr, KOVRA_RESOLVE_ONLY));
    const std::string minuteAfter = LocalMinuteStamp();
    const std::string first = file.GetRealFileName();
    EXPECT_TRUE(std::regex_match(first, TemporaryName(kTemporaryDirectory, session, 1))) << first;
    const std::string minute = first.substr(kTemporaryDirectory.size() + 5 + session.size(), 10);
    EXPECT_TRUE(minute == minuteBefore || minute == minuteAfter) << minute;
    EXPECT_EQ(first, file.GetFileName());
    EXPECT_STREQ("T_BASE", file.GetFileType());
    EXPECT_TRUE(PathExists(first));
    EXPECT_EQ("", ReadFileBytes(first));
    EXPECT_EQ(0, file.IsOpen());

    EXPECT_EQ(1, file.Close());
    EXPECT_FALSE(PathExists(first));
    EXPECT_EQ(0, file.Close());

    // Kept by Close(1), the path is used again by the next Open without a name, and kept on.
    EXPECT_EQ(1, file.Open(nullptr, nullptr, KOVRA_READWRITE));
    const std::string kept = file.GetRealFileName();
    EXPECT_EQ(1, file.IsWritable());
    file.Write("tmp", 3);
    EXPECT_EQ(1, file.Close(1));
    EXPECT_EQ("tmp", ReadFileBytes(kept));
    EXPECT_EQ(0, file.Open(nullptr, nullptr, KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(kept, file.GetRealFileName());

    // A named Open drops the mark: the file stays where it is.
    EXPECT_EQ(1, file.Open("T_BASE", "F.TXT", KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(0, file.Close());
    EXPECT_TRUE(PathExists(kept));
    ::DeleteFileA(kept.c_str());

    // The destructor removes a temporary file unless the last Close kept it.
    std::string removed;
    {
        CKovra scoped;
        scoped.Open(nullptr, nullptr, KOVRA_READWRITE);
        removed = scoped.GetRealFileName();
        EXPECT_EQ(1, scoped.IsOpen());
    }
    EXPECT_FALSE(PathExists(removed));
    std::string survivor;
    {
        CKovra scoped;
        scoped.Open(nullptr, nullptr, KOVRA_RESOLVE_ONLY);
        scoped.Close(1);
        scoped.Open(nullptr, nullptr, KOVRA_RESOLVE_ONLY);
        survivor = scoped.GetRealFileName();
    }
    EXPECT_TRUE(PathExists(survivor));
    ::DeleteFileA(survivor.c_str());
}

TEST(OpenClose, TemporaryFilesOfAClientAndOfAnotherSession)
{
    ScratchDirectory clients(kBase + "CLIENTS");
    CKovra::SetClient("C1");
    CKovra file;
    std::string path = file.GetRealFileName("T_BASE", nullptr);
    const std::string session = std::to_string(::GetCurrentProcessId());
    EXPECT_TRUE(std::regex_match(path, TemporaryName(kBase + "CLIENTS\\C1\\APP\\DAT\\WS1\\TMP\\", session, 1)))
        << path;
    EXPECT_TRUE(PathExists(path));
    file.Close();
    EXPECT_FALSE(PathExists(path));

    void* other = reinterpret_cast<void*>(1234);
    CKovra::StartThread(other, ::GetCurrentThreadId());
    path = file.GetRealFileName("T_BASE", nullptr);
    EXPECT_TRUE(std::regex_match(path, TemporaryName(kTemporaryDirectory, "1234", 1))) << path;
    file.Close();
    CKovra::RemoveThread(other, ::GetCurrentThreadId());
}

TEST(OpenClose, CloseFlagsKeepTheTypeAndTheNameAccessorsFollowOpen)
{
    CKovra file("T_MODULE", "SUB\\F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_STREQ("T_MODULE", file.GetFileType());
    EXPECT_STREQ("SUB\\F.TXT", file.GetFileName());
    EXPECT_STREQ(KOVRA_TEST_DRIVE ":\\APP\\SUB\\F.TXT", file.GetRealFileName());
    file.Close(2);
    EXPECT_STREQ("T_MODULE", file.GetFileType());
    file.Close(0);
    EXPECT_STREQ("", file.GetFileType());
    EXPECT_STREQ("SUB\\F.TXT", file.GetFileName());  // names outlive Close
    EXPECT_STREQ(KOVRA_TEST_DRIVE ":\\APP\\SUB\\F.TXT", file.GetRealFileName());

    // GetRealFileName with a type and a name resolves through Open.
    CKovra::SetModulePath(KOVRA_TEST_DRIVE ":\\APP\\MOD1");
    EXPECT_STREQ(KOVRA_TEST_DRIVE ":\\APP\\MOD1\\G.TXT", file.GetRealFileName("T_MODULE", "G.TXT"));
    EXPECT_STREQ("T_MODULE", file.GetFileType());
    EXPECT_STREQ("G.TXT", file.GetFileName());

    // Flag 1 of the constructor takes the name as it is.
    CKovra literal("T_USER", "REL\\F.TXT", KOVRA_RESOLVE_ONLY, nullptr, 1);
    EXPECT_STREQ("REL\\F.TXT", literal.GetRealFileName());
}

TEST(OpenClose, MkDirCreatesTheFilesDirectoryAndTellsThreeResults)
{
    ScratchDirectory directory(kBase + "OC_MKDIR");
    MakeDirectories(directory / "EXIST");
    WriteFileBytes(directory / "FILE", "");
    auto mkDir = [](const std::string& name) {
        CKovra file;
        file.Open("T_BASE", name.c_str(), KOVRA_RESOLVE_ONLY, nullptr, 1);
        return file.MkDir();
    };
    EXPECT_EQ(0, mkDir(directory / "EXIST\\\\F"));  // an existing directory with its backslash
    EXPECT_EQ(1, mkDir(directory / "EXIST\\F"));
    EXPECT_EQ(-1, mkDir("Q:\\\\F"));                // the root of a drive that doesn't exist
    EXPECT_EQ(1, mkDir("Q:\\F"));                   // a bare drive
    EXPECT_EQ(1, mkDir("Q:\\A\\B\\F"));
    EXPECT_EQ(1, mkDir(KOVRA_TEST_DRIVE ":\\F"));
    EXPECT_EQ(1, mkDir(directory / "FILE\\F"));     // something is there, if only a file
    EXPECT_EQ(0, mkDir("F.TXT"));
    EXPECT_EQ(1, mkDir("AB\\F"));                   // two characters are taken for a drive
    EXPECT_FALSE(PathExists("AB"));

    EXPECT_EQ(1, mkDir(directory / "A\\B\\F.TXT"));
    EXPECT_TRUE(PathExists(directory / "A\\B\\"));
    EXPECT_FALSE(PathExists(directory / "A\\B\\F.TXT"));
    EXPECT_EQ(1, mkDir(directory / "NEW\\\\F"));    // missing: made, with 1
    EXPECT_TRUE(PathExists(directory / "NEW\\"));
}

TEST(OpenClose, AccessSeesFilesAndDirectories)
{
    ScratchDirectory directory(kBase + "OC_ACCESS");
    WriteFileBytes(directory / "F.TXT", "");
    CKovra file;
    file.Open("T_BASE", "OC_ACCESS\\F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(1, file.Access());
    file.Open("T_BASE", "OC_ACCESS", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(1, file.Access());
    file.Open("T_BASE", "OC_ACCESS\\G.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(0, file.Access());
    int cause = 0;
    EXPECT_EQ(0, file.GetLastError(&cause));  // nothing recorded
}

TEST(OpenClose, OpenAndCloseTraceTheirCalls)
{
    ScratchDirectory directory(kBase + "OC_TRACE");
    MonitorProgram monitor(directory / "monitor.txt");
    ASSERT_TRUE(monitor.Ready());
    CKovra::SetDebugLevel(1 | 2 | 4);
    CKovra file;
    file.Open("T_BASE", "OC_TRACE\\MISSING.TXT", KOVRA_READ);
    const std::string missing = directory / "MISSING.TXT";
    file.Close();
    file.Open(nullptr, nullptr, KOVRA_RESOLVE_ONLY);
    const std::string temporary = file.GetRealFileName();
    file.Close();
    const std::vector<std::string> expected = {
        "Kovra : Close : Type() Name() RealFileName()",
        "Kovra : Exception : Datei(" + missing + ") Cause(2) Msg(" + missing + " was not found.)",
        "Kovra : Open : Type(T_BASE) Name(OC_TRACE\\MISSING.TXT) Options(1) Ret(0)",
        "               RealFileName(" + missing + ")",
        "Kovra : Close : Type(T_BASE) Name(OC_TRACE\\MISSING.TXT) RealFileName(" + missing + ")",
        "Kovra : Close : Type() Name(OC_TRACE\\MISSING.TXT) RealFileName(" + missing + ")",
        "Kovra : Open : TempPath(" + kTemporaryDirectory + ")",
        "Kovra : Open : Type((null)) Name((null)) Options(0) Ret(0)",
        "               RealFileName(" + temporary + ")",
        "Kovra : Close : Type(DFT) Name(" + temporary + ") RealFileName(" + temporary + ")",
    };
    ASSERT_TRUE(monitor.WaitForLines(expected.size()));
    EXPECT_EQ(expected, monitor.Texts());
}

} // namespace
