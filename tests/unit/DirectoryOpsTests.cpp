// Directory, drive and path operations around an object's file, and the pattern search.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

TEST(DirectoryOps, RmDirAndChDirTakeTheNamedDirectoryOrTheFilesDirectory)
{
    ScratchDirectory directory(kBase + "DIRS");
    MakeDirectories(directory / "DIR");
    WriteFileBytes(directory / "FULL\\F.TXT", "f");
    CKovra file("T_BASE", "DIRS\\FULL\\F.TXT");
    EXPECT_EQ(1, file.ChDir());  // a file's name: its directory
    EXPECT_EQ(directory / "FULL", file.GetCwd());
    ASSERT_EQ(1, file.Open("T_BASE", "DIRS\\DIR", KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(1, file.ChDir());  // a directory's name: the directory itself
    EXPECT_EQ(directory / "DIR", file.GetCwd());
    ASSERT_TRUE(::SetCurrentDirectoryA(kBase.c_str()));  // lets the directories go
    EXPECT_EQ(1, file.RmDir());
    EXPECT_FALSE(PathExists(directory / "DIR"));
    ASSERT_EQ(1, file.Open("T_BASE", "DIRS\\FULL\\F.TXT", KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(0, file.RmDir());  // not empty
    ASSERT_TRUE(::DeleteFileA((directory / "FULL\\F.TXT").c_str()));
    EXPECT_EQ(1, file.RmDir());
    EXPECT_FALSE(PathExists(directory / "FULL"));
}

TEST(DirectoryOps, DrivesNamesFreeSpaceAndNetworkDrives)
{
    CKovra file;
    EXPECT_EQ(1, file.ChDrive(26));
    EXPECT_EQ("Z:", std::string(file.GetCwd()).substr(0, 2));
    EXPECT_EQ(0, file.ChDrive(17));  // Q: isn't assigned
    EXPECT_EQ(26, file.GetDrive());
    ScratchDirectory directory(kBase + "NAMES");
    WriteFileBytes(directory / "F.TXT", "f");
    WriteFileBytes(directory / "MixedCase.Txt", "m");
    ASSERT_EQ(1, file.Open("T_BASE", "NAMES\\F.TXT", KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(directory / "F.TXT", file.GetShortPathNameA());
    ASSERT_EQ(1, file.Open("T_BASE", "NAMES\\MIXEDCASE.TXT", KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(directory / "MixedCase.Txt", file.GetLongPathNameA());  // as the directory spells it
    ASSERT_EQ(1, file.Open("T_BASE", "NAMES\\MISSING.TXT", KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(file.GetRealFileName(), file.GetShortPathNameA());
    EXPECT_EQ(directory / "MISSING.TXT", file.GetLongPathNameA());
    // Free space of missing directories: only the root of the drive can answer.
    ULARGE_INTEGER available;
    ASSERT_TRUE(::GetDiskFreeSpaceExA(KOVRA_TEST_DRIVE ":\\", &available, nullptr, nullptr));
    ASSERT_GT(available.QuadPart, 0xFFFFFFFFull) << "the test drive needs more than 4 GiB free";
    ASSERT_EQ(1, file.Open("T_BASE", "NO_SUCH_DIR\\DEEP\\F.TXT", KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(4294967295ul, file.GetDiskFreeSpaceA());
    ASSERT_EQ(1, file.Open(nullptr, "NO_SUCH_DIR\\F.TXT", KOVRA_RESOLVE_ONLY, nullptr, 1));
    EXPECT_EQ(0ul, file.GetDiskFreeSpaceA());  // neither a drive nor a share: the question fails
    EXPECT_EQ(1, file.IsNetDrive());
    EXPECT_EQ(1, CKovra::IsNetDrive(KOVRA_TEST_DRIVE ":\\F.TXT"));
}

// FIND\A.TXT, B.TXT, C.TXT and SUB\F.TXT below the base, which is also the module's
// directory; each file holds its name.
class Find : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const char* name : {"A.TXT", "B.TXT", "C.TXT", "SUB\\F.TXT"})
            WriteFileBytes(m_directory / name, name);
        ASSERT_EQ(1, CKovra::SetModulePath(m_directory.Path().c_str()));
    }

    // The entries still to come, sorted: directories end in a backslash, dots come marked.
    std::vector<std::string> Entries()
    {
        std::vector<std::string> entries;
        while (m_find.FindNextFileA())
            entries.push_back((m_find.IsDots() ? "dots " : "") + std::string(m_find.GetFileName()) +
                              (m_find.IsDirectory() ? "\\" : ""));
        std::sort(entries.begin(), entries.end());
        return entries;
    }

    ScratchDirectory m_directory{kBase + "FIND"};
    CKovraFind m_find;
};

TEST_F(Find, EachMatchIsListedOnceAndWithoutAPatternTheDotsToo)
{
    ASSERT_NE(0, m_find.FindFile("T_BASE", "FIND\\*.TXT"));
    EXPECT_EQ((std::vector<std::string>{"A.TXT", "B.TXT", "C.TXT"}), Entries());
    EXPECT_EQ(0, m_find.FindFile("T_BASE", "FIND\\*.XYZ"));
    EXPECT_EQ(0, m_find.FindNextFileA());
    ASSERT_NE(0, m_find.FindFile("T_MODULE", nullptr));
    EXPECT_EQ((std::vector<std::string>{"A.TXT", "B.TXT", "C.TXT", "SUB\\", "dots ..\\", "dots .\\"}), Entries());
}

TEST_F(Find, PathsRelativeToTheTypesDirectory)
{
    ASSERT_NE(0, m_find.FindFile("T_MODULE", "SUB\\*.TXT"));
    ASSERT_NE(0, m_find.FindNextFileA());
    EXPECT_STREQ("SUB\\F.TXT", m_find.GetFilePathRelative());
    EXPECT_EQ(m_directory / "SUB\\F.TXT", m_find.GetFilePath());
    EXPECT_EQ(9ul, m_find.GetLength());  // the file holds its nine-character name
    ASSERT_NE(0, m_find.FindFile(nullptr, (m_directory / "SUB\\*.TXT").c_str(), 1));  // searched as DFT
    ASSERT_NE(0, m_find.FindNextFileA());
    EXPECT_STREQ("FIND\\SUB\\F.TXT", m_find.GetFilePathRelative());
}

} // namespace
