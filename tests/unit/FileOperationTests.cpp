// Backups, remove, rename, copy, append (retries: logging suite), directories, drives, names, search.
#include <gtest/gtest.h>

#include <algorithm>

#include "UnitChecks.h"

using namespace kovratest;

namespace {

const std::string kToday = CurrentUtcDate("%y%m%d");

// Writes bytes to the T_BASE file name and lets file name it without opening it.
void NameFile(CKovra& file, const std::string& name, const std::string& bytes)
{
    WriteFileBytes(kBase + name, bytes);
    Naming(file, name);
}

// What file names, as "name|real path|open|type|bytes of the real path".
std::string Names(CKovra& file)
{
    return std::string(file.GetFileName()) + "|" + file.GetRealFileName() + "|" + std::to_string(file.IsOpen()) + "|" +
           file.GetFileType() + "|" + ReadFileBytes(file.GetRealFileName());
}

// A backup names its path, closed and without a type.
std::string Backup(const std::string& path, const std::string& bytes) { return path + "|" + path + "|0||" + bytes; }

// Retries while the file is held: logging suite.
TEST(SaveRemoveRename, BackupsAreNumberedAndCopiedWhenMovesAreRefusedAMissingFileCountsAsRemovedRenamesWriteDateFields)
{
    ScratchDirectory saves(kBase + "SAV"), directory(kBase + "SAVE"), renames(kBase + "RENAME");
    CKovra file("T_BASE", "SAVE\\F.TXT", KOVRA_READWRITE);  // closed first
    ASSERT_EQ(3u, file.Write("one", 3));
    EXPECT_EQ(1, file.SaveFile());
    EXPECT_EQ(Backup(saves / (kToday + "01.SAV"), "one"), Names(file));
    EXPECT_FALSE(PathExists(directory / "F.TXT"));
    NameFile(file, "SAVE\\F.TXT", "new");  // a directory of the type is made with its parents
    EXPECT_EQ(1, file.SaveFile("T_BASE", "SAVE\\A\\B", "OLD"));
    EXPECT_EQ(Backup(directory / ("A\\B\\" + kToday + "01.OLD"), "new"), Names(file));
    for (int number = 2; number <= 99; ++number)  // the next backup takes the first free number
        WriteFileBytes(saves / (kToday + (number < 10 ? "0" : "") + std::to_string(number) + ".SAV"), "");
    // A reader that doesn't share deletion: the move fails, the copy can still read the file.
    NameFile(file, "SAVE\\F.TXT", "held");
    CKovra reader("T_BASE", "SAVE\\F.TXT", KOVRA_READ);
    EXPECT_EQ("1 11", AnswerAndCause(file.SaveFile(), file));
    EXPECT_EQ(Backup(saves / (kToday + "000100.SAV"), "held"), Names(file));
    EXPECT_EQ("held", ReadFileBytes(directory / "F.TXT"));
    EXPECT_EQ(0, file.SaveFile(nullptr, nullptr, std::string(260, 'X').c_str()));  // an extension that doesn't fit
    EXPECT_TRUE(PathExists(saves / (kToday + "000100.SAV")));
    EXPECT_EQ("0 -1", AnswerAndCause(reader.SaveFile("NOPE"), reader));  // no backup path: the file stays, open
    EXPECT_EQ(1, reader.IsOpen());

    ASSERT_EQ(1, file.Open("T_BASE", "RENAME\\F.TXT", KOVRA_READWRITE));
    EXPECT_EQ(1, file.Remove());  // closed first
    EXPECT_FALSE(PathExists(renames / "F.TXT"));
    for (const char* gone : {"RENAME\\F.TXT", "RENAME\\A?B.TXT", "RENAME\\NO\\F.TXT"})  // or no file's name
        EXPECT_EQ("1 0", AnswerAndCause(Naming(file, gone).Remove(), file)) << gone;  // nothing recorded
    NameFile(file, "RENAME\\RO.TXT", "r");
    ::SetFileAttributesA((renames / "RO.TXT").c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ("0 5", AnswerAndCause(file.Remove(), file));
    EXPECT_EQ("r", ReadFileBytes(renames / "RO.TXT"));

    ASSERT_EQ(1, file.Open("T_BASE", "RENAME\\F.TXT", KOVRA_READWRITE));
    ASSERT_EQ(3u, file.Write("abc", 3));
    // A name without date fields is never written to: a constant will do (the C interface passes it on as it is).
    EXPECT_EQ(1, file.Rename(nullptr, const_cast<char*>("RENAME\\A\\B\\G.TXT")));  // the object's own type
    EXPECT_EQ("RENAME\\A\\B\\G.TXT|" + (renames / "A\\B\\G.TXT") + "|0||abc", Names(file));  // closed
    // The caller's text gets its date fields as long as it doesn't grow.
    char dated[] = "RENAME\\D%y%M%D.TXT", grown[] = "RENAME\\Y%Y.TXT";
    EXPECT_EQ(1, file.Rename("T_BASE", dated));
    EXPECT_EQ("RENAME\\D" + kToday + ".TXT", std::string(dated));
    EXPECT_EQ(1, file.Rename("T_BASE", grown));
    EXPECT_STREQ("RENAME\\Y%Y.TXT", grown);
    EXPECT_EQ("abc", ReadFileBytes(renames / ("Y" + CurrentUtcDate("%Y") + ".TXT")));

    // A refused rename leaves the name, the real path and the file as they were.
    NameFile(file, "RENAME\\F.TXT", "f");
    WriteFileBytes(renames / "TAKEN.TXT", "taken");
    char taken[] = "RENAME\\TAKEN.TXT", unknownType[] = "RENAME\\%y.TXT";  // a name too long: BadInput
    const std::string unchanged = "RENAME\\F.TXT|" + (renames / "F.TXT") + "|0||f";  // closed, without a type
    EXPECT_EQ("0 5", AnswerAndCause(file.Rename("T_BASE", taken), file));
    EXPECT_EQ(unchanged, Names(file));
    EXPECT_EQ("taken", ReadFileBytes(renames / "TAKEN.TXT"));
    EXPECT_EQ("0 -1", AnswerAndCause(file.Rename("NOPE", unknownType), file));
    EXPECT_EQ(unchanged, Names(file));
    EXPECT_STREQ("RENAME\\%y.TXT", unknownType);
}

TEST(CopyAppend, CopyKeepsAnExistingDestinationOnlyWhenAskedAndAppendTakesFilesWhole)
{
    ScratchDirectory directory(kBase + "COPY");
    WriteFileBytes(directory / "DST.TXT", "old");
    CKovra file("T_BASE", "COPY\\F.TXT", KOVRA_READWRITE);
    ASSERT_EQ(3u, file.Write("new", 3));
    EXPECT_EQ(0, file.CopyFileA(nullptr, "COPY\\DST.TXT", 1));
    EXPECT_EQ("old", ReadFileBytes(directory / "DST.TXT"));
    EXPECT_EQ(1, file.CopyFileA(nullptr, "COPY\\DST.TXT", 0));
    EXPECT_EQ("new", ReadFileBytes(directory / "DST.TXT"));
    EXPECT_EQ("0 -1", AnswerAndCause(file.CopyFileA("NOPE", "COPY\\NEW\\DST.TXT", 0), file));  // nothing made
    EXPECT_FALSE(PathExists(directory / "NEW"));

    std::string source;  // more than two copy blocks, each byte telling its place
    for (int index = 0; index < 20000; ++index)
        source += static_cast<char>('A' + index % 23);
    WriteFileBytes(directory / "SRC.TXT", source);
    WriteFileBytes(directory / "APP.TXT", "head:");
    ASSERT_EQ(1, file.Open("T_BASE", "COPY\\SRC.TXT", KOVRA_READ));
    ASSERT_EQ(7, file.Seek(7, 0));  // an open object is appended whole, and read to its end
    // What it records is its own: a Flush of a file opened for reading.
    EXPECT_EQ("1 5", AnswerAndCause(file.AppendFile("T_BASE", "COPY\\APP.TXT"), file));
    EXPECT_EQ("head:" + source, ReadFileBytes(directory / "APP.TXT"));
    EXPECT_EQ(20000ul, file.GetPosition());
    NameFile(file, "COPY\\ABC.TXT", "abc");  // opened for the copy and closed again
    EXPECT_EQ(1, file.AppendFile("T_BASE", "COPY\\APP.TXT"));
    EXPECT_EQ("head:" + source + "abc", ReadFileBytes(directory / "APP.TXT"));
    EXPECT_EQ(0, file.IsOpen());
    EXPECT_EQ("0 0", AnswerAndCause(file.AppendFile("NOPE", "COPY\\APP.TXT"), file));  // the target's failure
    NameFile(file, "COPY\\EMPTY.TXT", "");  // nothing to append, a missing destination made
    EXPECT_EQ(1, file.AppendFile("T_BASE", "COPY\\SUB\\MADE.TXT"));
    EXPECT_TRUE(PathExists(directory / "SUB\\MADE.TXT"));
}

TEST(DirectoryOps, RmDirChDirDrivesNamesAndFreeSpace)
{
    ScratchDirectory directory(kBase + "DIRS");
    MakeDirectories(directory / "DIR");
    WriteFileBytes(directory / "FULL\\F.TXT", "f");
    WriteFileBytes(directory / "MixedCase.Txt", "m");
    CKovra file("T_BASE", "DIRS\\FULL\\F.TXT");
    EXPECT_EQ(directory / "FULL\\F.TXT", file.GetShortPathNameA());
    EXPECT_EQ(1, file.ChDir());  // a file's name: its directory
    EXPECT_EQ(directory / "FULL", file.GetCwd());
    EXPECT_EQ(1, Naming(file, "DIRS\\DIR").ChDir());  // a directory's name: the directory itself
    EXPECT_EQ(directory / "DIR", file.GetCwd());
    ASSERT_TRUE(::SetCurrentDirectoryA(kBase.c_str()));  // lets the directories go
    EXPECT_EQ(1, file.RmDir());
    EXPECT_FALSE(PathExists(directory / "DIR"));
    EXPECT_EQ(0, Naming(file, "DIRS\\FULL\\F.TXT").RmDir());  // not empty
    ASSERT_TRUE(::DeleteFileA((directory / "FULL\\F.TXT").c_str()));
    EXPECT_EQ(1, file.RmDir());
    EXPECT_FALSE(PathExists(directory / "FULL"));

    EXPECT_EQ(1, file.ChDrive(26));
    EXPECT_EQ(0, file.ChDrive(17));  // Q: isn't assigned
    EXPECT_EQ(26, file.GetDrive());
    EXPECT_EQ(directory / "MixedCase.Txt", Naming(file, "DIRS\\MIXEDCASE.TXT").GetLongPathNameA());  // as spelt there
    EXPECT_EQ(directory / "MISSING.TXT", Naming(file, "DIRS\\MISSING.TXT").GetShortPathNameA());
    EXPECT_EQ(directory / "MISSING.TXT", file.GetLongPathNameA());
    // Free space of missing directories: only the root of the drive can answer, more than 4 GiB on the test drive.
    EXPECT_EQ(4294967295ul, Naming(file, "NO_SUCH_DIR\\DEEP\\F.TXT").GetDiskFreeSpaceA());
    ASSERT_EQ(1, file.Open(nullptr, "NO_SUCH_DIR\\F.TXT", KOVRA_RESOLVE_ONLY, nullptr, 1));
    EXPECT_EQ(0ul, file.GetDiskFreeSpaceA());  // neither a drive nor a share: the question fails
}

// FIND\A.TXT, B.TXT (hidden), C.TXT and SUB\F.TXT, each holding its name; FIND is the module's directory.
TEST(Find, EachMatchOnceWithoutAPatternTheDotsTooAndPathsRelativeToTheTypesDirectory)
{
    ScratchDirectory directory(kBase + "FIND");
    for (const char* name : {"A.TXT", "B.TXT", "C.TXT", "SUB\\F.TXT"})
        WriteFileBytes(directory / name, name);
    ASSERT_TRUE(::SetFileAttributesA((directory / "B.TXT").c_str(), FILE_ATTRIBUTE_HIDDEN));
    ASSERT_EQ(1, CKovra::SetModulePath(directory.Path().c_str()));
    CKovraFind find;
    auto entries = [&find] {  // the entries still to come, sorted: directories end in a backslash
        Lines found;
        while (find.FindNextFileA())
            found.push_back((find.IsDots() ? "dots " : find.IsHidden() ? "hidden " : "") +
                            std::string(find.GetFileName()) + (find.IsDirectory() ? "\\" : ""));
        std::sort(found.begin(), found.end());
        return found;
    };
    ASSERT_NE(0, find.FindFile("T_BASE", "FIND\\*.TXT"));
    EXPECT_EQ((Lines{"A.TXT", "C.TXT", "hidden B.TXT"}), entries());
    EXPECT_EQ(0, find.FindFile("T_BASE", "FIND\\*.XYZ"));
    EXPECT_EQ(0, find.FindNextFileA());
    ASSERT_NE(0, find.FindFile("T_MODULE", nullptr));
    EXPECT_EQ((Lines{"A.TXT", "C.TXT", "SUB\\", "dots ..\\", "dots .\\", "hidden B.TXT"}), entries());
    const std::string path = directory / "SUB\\F.TXT";  // the first match's two paths
    ASSERT_TRUE(find.FindFile("T_MODULE", "SUB\\*.TXT") && find.FindNextFileA());
    EXPECT_EQ("SUB\\F.TXT " + path, Joined(find.GetFilePathRelative(), find.GetFilePath()));
    ASSERT_TRUE(find.FindFile(nullptr, (directory / "SUB\\*.TXT").c_str(), 1) && find.FindNextFileA());
    EXPECT_EQ("FIND\\SUB\\F.TXT " + path, Joined(find.GetFilePathRelative(), find.GetFilePath()));  // searched as DFT
}

} // namespace
