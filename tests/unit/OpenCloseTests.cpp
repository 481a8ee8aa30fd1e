// Opening and closing file objects: the options, sharing and its retries, read-only files,
// the temporary-file mode, directory creation and the existence test.
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>
#include <thread>

#include "FileChecks.h"
#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

TEST(OpenClose, OptionsDecideWhatIsOpenedCreatedKeptAndTranslated)
{
    ScratchDirectory directory(kBase + "OC_OPTIONS");
    const std::string path = directory / "RW\\F.TXT";
    const char* name = "OC_OPTIONS\\RW\\F.TXT";
    CKovra file;
    EXPECT_EQ(1, file.Open("T_BASE", name, KOVRA_RESOLVE_ONLY));  // resolves and touches nothing
    EXPECT_FALSE(PathExists(directory / "RW"));
    EXPECT_EQ(0, file.Open("T_BASE", name, KOVRA_READ));  // a missing file: only its directory is made
    EXPECT_TRUE(PathExists(directory / "RW\\"));

    EXPECT_EQ(1, file.Open("T_BASE", name, KOVRA_READWRITE));  // creates
    EXPECT_EQ(3u, file.Write("abc", 3));
    EXPECT_EQ(1, file.Open("T_BASE", name, KOVRA_READWRITE));  // keeps the contents
    EXPECT_EQ(1, file.Open("T_BASE", name, KOVRA_READ));
    EXPECT_EQ(0u, file.Write("x", 1));
    EXPECT_EQ(1, file.Open("T_BASE", name, KOVRA_APPEND));
    file.Seek(0, 0);
    file.Write("de", 2);
    file.Close();
    EXPECT_EQ("abcde", ReadFileBytes(path));

    EXPECT_EQ(1, file.Open("T_BASE", name, KOVRA_READWRITE | KOVRA_TRUNCATE | KOVRA_TEXT));
    file.WriteString("a\nb\n");
    file.Open("T_BASE", name, KOVRA_APPEND);  // without 64 the bytes go as they are
    file.WriteString("c\n");
    file.Close();
    EXPECT_EQ("a\r\nb\r\nc\n", ReadFileBytes(path));
}

TEST(OpenClose, OpeningAReadOnlyFileForWritingClearsTheAttributeAndTriesAgain)
{
    ScratchDirectory directory(kBase + "OC_READONLY");
    const std::string path = directory / "F.TXT";
    WriteFileBytes(path, "abc");
    ::SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY);
    HANDLE probe = ::CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (probe != INVALID_HANDLE_VALUE) {
        ::CloseHandle(probe);
        GTEST_SKIP() << "this system lets a read-only file be opened for writing (wine run by root)";
    }
    CKovra file;
    EXPECT_EQ(1, file.Open("T_BASE", "OC_READONLY\\F.TXT", KOVRA_APPEND));
    EXPECT_EQ(0u, ::GetFileAttributesA(path.c_str()) & FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(3u, file.GetLength());
    EXPECT_EQ(5, CauseOf(file));  // the first attempt's failure stays recorded
}

// Every failed attempt traces one exception line: a sharing violation is retried once, and
// with flag 2 for as long as it lasts.
TEST(OpenClose, SharingModesBetweenTwoObjectsAndTheRetryOfAViolation)
{
    ScratchDirectory directory(kBase + "OC_SHARE");
    const std::string path = directory / "F.TXT";
    WriteFileBytes(path, "x");
    const char* name = "OC_SHARE\\F.TXT";
    CKovra holder;
    CKovra other;
    ASSERT_EQ(1, holder.Open("T_BASE", name, KOVRA_READWRITE | KOVRA_DENY_WRITE));
    EXPECT_EQ(1, other.Open("T_BASE", name, KOVRA_READ));
    EXPECT_EQ(0, other.Open("T_BASE", name, KOVRA_READWRITE));
    EXPECT_EQ(11, CauseOf(other));
    ASSERT_EQ(1, holder.Open("T_BASE", name, KOVRA_READ | KOVRA_DENY_WRITE | KOVRA_EXCLUSIVE));

    MonitorProgram monitor(directory / "monitor.txt");
    ASSERT_TRUE(monitor.Ready());
    CKovra::SetDebugLevel(1);
    const std::string violation = "Kovra : Exception : Datei(" + path +
                                  ") Cause(11) Msg(A sharing violation occurred while accessing " + path + ".)";
    EXPECT_EQ(0, other.Open("T_BASE", name, KOVRA_READ));  // 32 wins over 16
    ASSERT_TRUE(monitor.WaitForLines(2));
    EXPECT_EQ(std::vector<std::string>(2, violation), monitor.Texts());

    std::thread release([&] {  // once three more attempts have been traced
        monitor.WaitForLines(5);
        holder.Close();
    });
    EXPECT_EQ(1, other.Open("T_BASE", name, KOVRA_READ, nullptr, 2));
    release.join();
    const std::vector<std::string> texts = monitor.Texts();
    EXPECT_GE(texts.size(), 5u);
    EXPECT_EQ(std::vector<std::string>(texts.size(), violation), texts);

    ASSERT_EQ(1, holder.Open("T_BASE", name, KOVRA_READWRITE));  // without 16 and 32 nothing is denied
    EXPECT_EQ(1, other.Open("T_BASE", name, KOVRA_APPEND));
}

// Texts that an object hands out may come back as its arguments, whole or in part.
TEST(OpenClose, AnObjectTakesItsOwnTextsBackAsArguments)
{
    ScratchDirectory directory(kBase + "OC_OWN");
    CKovra file("T_BASE", "OC_OWN\\F.TXT", KOVRA_READWRITE);
    ASSERT_EQ(1, file.IsOpen());
    EXPECT_EQ(1, file.Open(file.GetFileType(), file.GetFileName(), KOVRA_READWRITE));  // the file, not its directory
    EXPECT_EQ(directory / "F.TXT", file.GetRealFileName());
    EXPECT_EQ(kBase + "F.TXT", std::string(file.GetRealFileName("T_USER", file.GetFileName())));
    EXPECT_EQ(1, file.Open("T_BASE", file.GetFileName() + 7, KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(kBase + "F.TXT", file.GetRealFileName());
    // A type and a name inside the type that the Open replaces.
    ASSERT_EQ(1, CKovra::AddFileType("XT_BASE", 2, 1));
    file.Open("XT_BASE", "OC_OWN\\F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(1, file.Open(file.GetFileType() + 1, file.GetFileType(), KOVRA_RESOLVE_ONLY));
    EXPECT_EQ("T_BASE " + kBase + "XT_BASE", std::string(file.GetFileType()) + " " + file.GetRealFileName());
    // SaveFile's extension outlives the type that its Close drops.
    file.Open("T_BASE", "OC_OWN\\F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(1, file.SaveFile(nullptr, "OC_OWN", file.GetFileType()));
    const std::string backup = directory / (CurrentUtcDate("%y%m%d") + "01.T_BASE");
    EXPECT_EQ(backup, file.GetRealFileName());
    // GetLastError's message written over the real file name that it reports.
    EXPECT_EQ(0, file.Open("NOPE", "G.TXT", KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(1, file.GetLastError(nullptr, file.GetRealFileName(), 260));
    EXPECT_EQ("Kovra : KOVRA_ERROR(NOPE, G.TXT, " + backup + ", -1)", file.GetRealFileName());
}

TEST(OpenClose, TemporaryFilesAreNamedKeptAndRemoved)
{
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    char day[8];
    std::snprintf(day, sizeof day, "%02d%02d%02d", now.wYear % 100, now.wMonth, now.wDay);
    CKovra file;
    EXPECT_EQ(1, file.Open("T_BASE", nullptr, KOVRA_READWRITE));
    const std::string path = file.GetRealFileName();
    const std::string prefix = kBase + "DAT\\WS1\\TMP\\CKV_" + std::to_string(::GetCurrentProcessId()) + "_" + day;
    EXPECT_EQ(prefix, path.substr(0, prefix.size()));
    EXPECT_TRUE(std::regex_match(path.substr(prefix.size()), std::regex(R"(\d{9}_1\.TMP)"))) << path;

    // Kept by Close(1), the path serves the next Open without a name again; Close removes it.
    file.Write("tmp", 3);
    EXPECT_EQ(1, file.Close(1));
    EXPECT_EQ(1, file.Open(nullptr, nullptr, KOVRA_READ));
    EXPECT_EQ(path, file.GetRealFileName());
    EXPECT_EQ(3u, file.GetLength());
    EXPECT_EQ(1, file.Close());
    EXPECT_FALSE(PathExists(path));
}

TEST(OpenClose, MkDirMakesTheParentWithThreeResultsAndAccessSeesWhatExists)
{
    ScratchDirectory directory(kBase + "OC_MKDIR");
    MakeDirectories(directory / "EXIST");
    WriteFileBytes(directory / "F.TXT", "");
    CKovra file;
    auto at = [&file](const std::string& path) -> CKovra& {
        file.Open("T_BASE", path.c_str(), KOVRA_RESOLVE_ONLY, nullptr, 1);
        return file;
    };
    EXPECT_EQ(0, at(directory / "EXIST\\\\F").MkDir());  // an existing directory, named with its backslash
    EXPECT_EQ(1, at(directory / "A\\B\\F.TXT").MkDir());
    EXPECT_TRUE(PathExists(directory / "A\\B\\"));
    EXPECT_EQ(-1, at("Q:\\\\F").MkDir());  // the root of a drive that doesn't exist

    EXPECT_EQ(1, at(directory / "F.TXT").Access());
    EXPECT_EQ(0, at(directory / "G.TXT").Access());
}

} // namespace
