// Dated backups, removal and renaming of an object's file: the backup names of a day,
// where backups go, the copy when the file can't be moved, and the state the object is
// left in. Retries on sharing violations are counted in the logging suite.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "FileChecks.h"
#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

std::string Today()
{
    return CurrentUtcDate("%y%m%d");
}

// Writes bytes to the T_BASE file name and lets file name it without opening it.
void NameFile(CKovra& file, const std::string& name, const std::string& bytes)
{
    WriteFileBytes(kBase + name, bytes);
    ASSERT_EQ(1, file.Open("T_BASE", name.c_str(), KOVRA_RESOLVE_ONLY));
}

// Checks that file names path, closed and without a type, and that path holds bytes.
void ExpectNames(CKovra& file, const std::string& path, const std::string& bytes)
{
    EXPECT_EQ(path, file.GetFileName());
    EXPECT_EQ(path, file.GetRealFileName());
    EXPECT_EQ(0, file.IsOpen());
    EXPECT_STREQ("", file.GetFileType());
    EXPECT_EQ(bytes, ReadFileBytes(path));
}

TEST(SaveFile, BackupsOfADayAreNumberedInSavBelowTheTypesLocation)
{
    ScratchDirectory saves(kBase + "SAV");
    ScratchDirectory directory(kBase + "SAVE_DAY");
    const std::string day = saves / Today();

    // An open object is closed first; its own type places the backup.
    CKovra file("T_BASE", "SAVE_DAY\\F.TXT", KOVRA_READWRITE);
    ASSERT_EQ(3u, file.Write("one", 3));
    EXPECT_EQ(1, file.SaveFile());
    ExpectNames(file, day + "01.SAV", "one");
    EXPECT_FALSE(PathExists(directory / "F.TXT"));

    NameFile(file, "SAVE_DAY\\F.TXT", "two");
    EXPECT_EQ(1, file.SaveFile());
    ExpectNames(file, day + "02.SAV", "two");

    // Each extension counts on its own; without a type of its own the object saves as DFT.
    NameFile(file, "SAVE_DAY\\F.TXT", "three");
    file.Close();
    EXPECT_EQ(1, file.SaveFile(nullptr, nullptr, "BAK"));
    ExpectNames(file, day + "01.BAK", "three");
    EXPECT_EQ(0, CauseOf(file));

    // A temporary file saved is no longer temporary: Close leaves the backup alone.
    CKovra temporary(nullptr, nullptr, KOVRA_READWRITE);
    ASSERT_EQ(4u, temporary.Write("four", 4));
    EXPECT_EQ(1, temporary.SaveFile("T_BASE"));
    EXPECT_EQ(0, temporary.Close());
    EXPECT_EQ("four", ReadFileBytes(day + "03.SAV"));
}

TEST(SaveFile, AfterNinetyNineBackupsOfADayTheNumbersHaveSixDigits)
{
    ScratchDirectory directory(kBase + "SAVE_FULL");
    const std::string day = directory / ("BK\\" + Today());
    for (int number = 1; number <= 99; ++number)
        WriteFileBytes(day + (number < 10 ? "0" : "") + std::to_string(number) + ".SAV", "");
    CKovra file;
    NameFile(file, "SAVE_FULL\\F.TXT", "100");
    EXPECT_EQ(1, file.SaveFile("T_BASE", "SAVE_FULL\\BK"));
    ExpectNames(file, day + "000100.SAV", "100");
    NameFile(file, "SAVE_FULL\\F.TXT", "101");
    EXPECT_EQ(1, file.SaveFile("T_BASE", "SAVE_FULL\\BK"));
    ExpectNames(file, day + "000101.SAV", "101");
}

TEST(SaveFile, TheDirectoryIsResolvedForTheTypeOrTakenLiterally)
{
    ScratchDirectory directory(kBase + "SAVE_DIR");
    CKovra file;

    // A directory of the type that doesn't exist yet is made with its parents.
    NameFile(file, "SAVE_DIR\\F.TXT", "a");
    EXPECT_EQ(1, file.SaveFile("T_BASE", "SAVE_DIR\\A\\B", "OLD"));
    ExpectNames(file, directory / ("A\\B\\" + Today() + "01.OLD"), "a");

    // A text with a drive is a path of its own.
    NameFile(file, "SAVE_DIR\\F.TXT", "b");
    EXPECT_EQ(1, file.SaveFile("T_BASE", (directory / "DRIVE").c_str()));
    ExpectNames(file, directory / ("DRIVE\\" + Today() + "01.SAV"), "b");

    // With nameFlags 1 the text is taken as it stands: here relative to the current directory.
    ASSERT_TRUE(::SetCurrentDirectoryA(directory.Path().c_str()));
    NameFile(file, "SAVE_DIR\\F.TXT", "c");
    EXPECT_EQ(1, file.SaveFile("T_BASE", "LITERAL", nullptr, 1));
    EXPECT_EQ("LITERAL\\" + Today() + "01.SAV", file.GetRealFileName());
    EXPECT_EQ("c", ReadFileBytes(directory / ("LITERAL\\" + Today() + "01.SAV")));
    ::SetCurrentDirectoryA(kBase.c_str());
}

TEST(SaveFile, AFileThatCantBeMovedIsCopied)
{
    ScratchDirectory directory(kBase + "SAVE_COPY");
    const std::string path = directory / "F.TXT";
    const std::string backup = directory / ("BK\\" + Today() + "01.SAV");
    CKovra file;
    NameFile(file, "SAVE_COPY\\F.TXT", "held");

    // A reader that doesn't share deletion: the move and the removal of the old file fail,
    // while the copy can still read it.
    CKovra reader("T_BASE", "SAVE_COPY\\F.TXT", KOVRA_READ);
    ASSERT_EQ(1, reader.IsOpen());
    EXPECT_EQ(1, file.SaveFile(nullptr, "SAVE_COPY\\BK"));
    ExpectNames(file, backup, "held");
    EXPECT_EQ("held", ReadFileBytes(path));
    int cause = 0;
    char message[256] = "";
    EXPECT_EQ(1, file.GetLastError(&cause, message, sizeof message));
    EXPECT_EQ(11, cause);
    EXPECT_EQ("A sharing violation occurred while accessing " + path + ".", std::string(message));
}

TEST(SaveFile, AnUnknownTypeLeavesTheFileWhereItIs)
{
    ScratchDirectory directory(kBase + "SAVE_UNKNOWN");
    CKovra file("T_BASE", "SAVE_UNKNOWN\\F.TXT", KOVRA_READWRITE);
    ASSERT_EQ(1u, file.Write("f", 1));
    EXPECT_EQ(0, file.SaveFile("NOPE"));
    EXPECT_EQ(1, file.IsOpen());
    EXPECT_EQ(directory / "F.TXT", file.GetRealFileName());
    EXPECT_EQ(-1, CauseOf(file));
    file.Close();
    EXPECT_EQ("f", ReadFileBytes(directory / "F.TXT"));
}

TEST(Remove, RemovesTheFileAndCountsAMissingOneAsRemoved)
{
    ScratchDirectory directory(kBase + "REMOVE");
    CKovra file("T_BASE", "REMOVE\\F.TXT", KOVRA_READWRITE);
    EXPECT_EQ(1, file.Remove());
    EXPECT_FALSE(PathExists(directory / "F.TXT"));
    EXPECT_EQ(0, file.IsOpen());
    EXPECT_STREQ("", file.GetFileType());
    EXPECT_STREQ("REMOVE\\F.TXT", file.GetFileName());
    EXPECT_EQ(directory / "F.TXT", file.GetRealFileName());

    EXPECT_EQ(1, file.Remove());  // nothing there any more, and nothing recorded
    EXPECT_EQ(0, CauseOf(file));

    // A temporary file goes with the Close that Remove makes first.
    CKovra temporary(nullptr, nullptr, KOVRA_READWRITE);
    const std::string temporaryPath = temporary.GetRealFileName();
    ASSERT_TRUE(PathExists(temporaryPath));
    EXPECT_EQ(1, temporary.Remove());
    EXPECT_FALSE(PathExists(temporaryPath));
    EXPECT_EQ(0, CauseOf(temporary));

    // A read-only file can't be removed; that isn't waited out.
    WriteFileBytes(directory / "RO.TXT", "r");
    ::SetFileAttributesA((directory / "RO.TXT").c_str(), FILE_ATTRIBUTE_READONLY);
    file.Open("T_BASE", "REMOVE\\RO.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(0, file.Remove());
    EXPECT_EQ(5, CauseOf(file));
    EXPECT_TRUE(PathExists(directory / "RO.TXT"));
}

TEST(Rename, MovesTheFileAndTheObjectNamesItsNewPlace)
{
    ScratchDirectory directory(kBase + "RENAME");
    CKovra file("T_BASE", "RENAME\\F.TXT", KOVRA_READWRITE);
    ASSERT_EQ(3u, file.Write("abc", 3));

    // Missing directories are made; the object's own type resolves the new name.
    char name[] = "RENAME\\A\\B\\G.TXT";
    EXPECT_EQ(1, file.Rename(nullptr, name));
    EXPECT_STREQ("RENAME\\A\\B\\G.TXT", file.GetFileName());
    EXPECT_EQ(directory / "A\\B\\G.TXT", file.GetRealFileName());
    EXPECT_EQ(0, file.IsOpen());
    EXPECT_STREQ("", file.GetFileType());
    EXPECT_EQ("abc", ReadFileBytes(directory / "A\\B\\G.TXT"));
    EXPECT_FALSE(PathExists(directory / "F.TXT"));

    // Date fields are replaced in the caller's text, as long as it doesn't grow.
    char dated[] = "RENAME\\D%y%M%D.TXT";
    EXPECT_EQ(1, file.Rename("T_BASE", dated));
    const std::string datedName = "RENAME\\D" + Today() + ".TXT";
    EXPECT_EQ(datedName, dated);
    EXPECT_EQ(datedName, file.GetFileName());
    char grown[] = "RENAME\\Y%Y.TXT";
    EXPECT_EQ(1, file.Rename("T_BASE", grown));
    EXPECT_STREQ("RENAME\\Y%Y.TXT", grown);
    EXPECT_EQ("RENAME\\Y" + CurrentUtcDate("%Y") + ".TXT", file.GetFileName());
    EXPECT_EQ("abc", ReadFileBytes(directory / ("Y" + CurrentUtcDate("%Y") + ".TXT")));
    EXPECT_EQ(0, CauseOf(file));
}

TEST(Rename, ATemporaryFileRenamedIsKept)
{
    ScratchDirectory directory(kBase + "RENAME_TMP");
    CKovra file(nullptr, nullptr, KOVRA_READWRITE);
    const std::string temporaryPath = file.GetRealFileName();
    ASSERT_EQ(1u, file.Write("t", 1));
    char name[] = "RENAME_TMP\\KEPT.TXT";
    EXPECT_EQ(1, file.Rename("T_BASE", name));
    EXPECT_EQ(0, file.Close());  // nothing open, nothing temporary left to remove
    EXPECT_EQ("t", ReadFileBytes(directory / "KEPT.TXT"));
    EXPECT_FALSE(PathExists(temporaryPath));
}

TEST(Rename, AFailedRenameLeavesTheNamesAsTheyWere)
{
    ScratchDirectory directory(kBase + "RENAME_FAIL");
    WriteFileBytes(directory / "TAKEN.TXT", "taken");
    CKovra file;
    NameFile(file, "RENAME_FAIL\\F.TXT", "f");

    // An existing target is refused.
    char taken[] = "RENAME_FAIL\\TAKEN.TXT";
    EXPECT_EQ(0, file.Rename("T_BASE", taken));
    EXPECT_EQ(5, CauseOf(file));
    EXPECT_STREQ("RENAME_FAIL\\F.TXT", file.GetFileName());
    EXPECT_EQ(directory / "F.TXT", file.GetRealFileName());
    EXPECT_EQ("taken", ReadFileBytes(directory / "TAKEN.TXT"));
    EXPECT_EQ("f", ReadFileBytes(directory / "F.TXT"));

    // An unknown type resolves nothing: the object stays open on its file.
    file.Open("T_BASE", "RENAME_FAIL\\F.TXT", KOVRA_READ);
    char dated[] = "RENAME_FAIL\\%y.TXT";
    EXPECT_EQ(0, file.Rename("NOPE", dated));
    EXPECT_EQ(-1, CauseOf(file));
    EXPECT_STREQ("RENAME_FAIL\\%y.TXT", dated);
    EXPECT_EQ(1, file.IsOpen());
    EXPECT_STREQ("T_BASE", file.GetFileType());

    // A file that isn't there can't be moved.
    file.Open("T_BASE", "RENAME_FAIL\\MISSING.TXT", KOVRA_RESOLVE_ONLY);
    char target[] = "RENAME_FAIL\\NEW.TXT";
    EXPECT_EQ(0, file.Rename(nullptr, target));
    EXPECT_EQ(2, CauseOf(file));
    EXPECT_STREQ("RENAME_FAIL\\MISSING.TXT", file.GetFileName());
    EXPECT_FALSE(PathExists(directory / "NEW.TXT"));
}

TEST(Rename, TargetsTooLongForAPathAreRefusedAndTheFileStays)
{
    ScratchDirectory directory(kBase + "TOO_LONG");
    CKovra file;
    NameFile(file, "TOO_LONG\\F.TXT", "f");
    const std::string longName = "TOO_LONG\\" + std::string(259, 'N');

    std::string renamed = longName;
    EXPECT_EQ(0, file.Rename("T_BASE", &renamed[0]));
    EXPECT_EQ(-2, CauseOf(file));
    EXPECT_EQ(longName, renamed);
    EXPECT_EQ(0, file.SaveFile("T_BASE", longName.c_str()));
    EXPECT_EQ(-2, CauseOf(file));
    EXPECT_EQ(0, file.CopyFileA("T_BASE", longName.c_str(), 0));
    EXPECT_EQ(-2, CauseOf(file));
    EXPECT_EQ(0, file.AppendFile("T_BASE", longName.c_str()));

    EXPECT_EQ(directory / "F.TXT", file.GetRealFileName());
    EXPECT_EQ("f", ReadFileBytes(directory / "F.TXT"));
    CKovraFind find;
    EXPECT_EQ(0, find.FindFile("T_BASE", longName.c_str()));
    EXPECT_EQ(0, find.FindNextFileA());
}

} // namespace
