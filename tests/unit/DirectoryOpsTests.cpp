// Directory, drive and path operations around an object's file: removing and entering
// its directory, the current drive, short and long names, free space, network drives.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";
constexpr unsigned long kLargestUnsigned32 = 4294967295ul;

TEST(DirectoryOps, RmDirRemovesTheNamedDirectoryOrTheFilesDirectory)
{
    ScratchDirectory directory(kBase + "RMDIR");
    MakeDirectories(directory / "DIR");
    MakeDirectories(directory / "EMPTY");
    WriteFileBytes(directory / "FULL\\F.TXT", "f");

    CKovra file("T_BASE", "RMDIR\\DIR");
    EXPECT_EQ(1, file.RmDir());
    EXPECT_FALSE(PathExists(directory / "DIR"));
    EXPECT_EQ(0, file.RmDir());  // gone, and its parent isn't empty

    file.Open("T_BASE", "RMDIR\\EMPTY\\F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(1, file.RmDir());
    EXPECT_FALSE(PathExists(directory / "EMPTY"));

    file.Open("T_BASE", "RMDIR\\FULL\\F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(0, file.RmDir());
    EXPECT_TRUE(PathExists(directory / "FULL\\F.TXT"));
}

TEST(DirectoryOps, ChDirEntersTheNamedDirectoryOrTheFilesDirectory)
{
    ScratchDirectory directory(kBase + "CHDIR");
    MakeDirectories(directory / "SUB");
    CKovra file("T_BASE", "CHDIR\\SUB\\F.TXT");
    EXPECT_EQ(1, file.ChDir());
    char* current = file.GetCwd();
    EXPECT_EQ(directory / "SUB", current);

    file.Open("T_BASE", "CHDIR", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(1, file.ChDir());
    EXPECT_EQ(current, file.GetCwd());  // the object's buffer, filled again
    EXPECT_EQ(kBase + "CHDIR", current);

    file.Open("T_BASE", "CHDIR\\MISSING\\F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(0, file.ChDir());
    EXPECT_EQ(kBase + "CHDIR", file.GetCwd());
    ::SetCurrentDirectoryA(kBase.c_str());
}

TEST(DirectoryOps, TheCurrentDriveIsNumberedFromAOnwards)
{
    CKovra file;
    EXPECT_EQ(1, file.ChDrive(26));
    EXPECT_EQ(26, file.GetDrive());
    EXPECT_EQ(1, file.ChDrive(24));
    EXPECT_EQ(24, file.GetDrive());
    EXPECT_EQ(KOVRA_TEST_DRIVE ":", std::string(file.GetCwd()).substr(0, 2));
    EXPECT_EQ(0, file.ChDrive(17));  // Q: isn't assigned
    EXPECT_EQ(24, file.GetDrive());
}

TEST(DirectoryOps, ShortAndLongNames)
{
    ScratchDirectory directory(kBase + "NAMES");
    WriteFileBytes(directory / "MixedCase.Txt", "m");
    WriteFileBytes(directory / "F.TXT", "f");
    CKovra file("T_BASE", "NAMES\\F.TXT");
    char* shortName = file.GetShortPathNameA();
    EXPECT_NE(file.GetRealFileName(), shortName);
    EXPECT_EQ(directory / "F.TXT", shortName);

    // The long form lists each part as the directory spells it.
    file.Open("T_BASE", "NAMES\\MIXEDCASE.TXT", KOVRA_RESOLVE_ONLY);
    char* longName = file.GetLongPathNameA();
    EXPECT_NE(file.GetRealFileName(), longName);
    EXPECT_EQ(directory / "MixedCase.Txt", longName);

    // A relative name becomes the full path.
    ASSERT_TRUE(::SetCurrentDirectoryA(directory.Path().c_str()));
    file.Open(nullptr, "F.TXT", KOVRA_RESOLVE_ONLY, nullptr, 1);
    EXPECT_EQ(longName, file.GetLongPathNameA());
    EXPECT_EQ(directory / "F.TXT", longName);
    ::SetCurrentDirectoryA(kBase.c_str());

    // A missing file: the short form is the real name itself, the long form a copy of it.
    file.Open("T_BASE", "NAMES\\MISSING.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(file.GetRealFileName(), file.GetShortPathNameA());
    EXPECT_EQ(longName, file.GetLongPathNameA());
    EXPECT_EQ(directory / "MISSING.TXT", longName);
}

TEST(DirectoryOps, FreeSpaceIsAskedOfTheDrivesRootAndCutTo32Bits)
{
    ULARGE_INTEGER available;
    ASSERT_TRUE(::GetDiskFreeSpaceExA(KOVRA_TEST_DRIVE ":\\", &available, nullptr, nullptr));
    ASSERT_GT(available.QuadPart, 0xFFFFFFFFull) << "the test drive needs more than 4 GiB free";

    // The directory doesn't exist: only its drive's root can be asked.
    CKovra file("T_BASE", "NO_SUCH_DIR\\DEEP\\F.TXT");
    EXPECT_EQ(kLargestUnsigned32, file.GetDiskFreeSpaceA());
    file.Open(nullptr, "\\\\?\\" KOVRA_TEST_DRIVE ":\\NO_SUCH_DIR\\F.TXT", KOVRA_RESOLVE_ONLY, nullptr, 1);
    EXPECT_EQ(kLargestUnsigned32, file.GetDiskFreeSpaceA());
    // Neither a drive nor a share: the whole missing name is asked, and the question fails.
    file.Open(nullptr, "NO_SUCH_DIR\\F.TXT", KOVRA_RESOLVE_ONLY, nullptr, 1);
    EXPECT_EQ(0ul, file.GetDiskFreeSpaceA());
}

TEST(DirectoryOps, EveryDriveCountsAsANetworkDrive)
{
    CKovra file("T_BASE", "F.TXT");
    EXPECT_EQ(1, file.IsNetDrive());
    EXPECT_EQ(1, CKovra::IsNetDrive(KOVRA_TEST_DRIVE ":\\APP\\F.TXT"));
    EXPECT_EQ(1, CKovra::IsNetDrive(nullptr));
}

} // namespace
