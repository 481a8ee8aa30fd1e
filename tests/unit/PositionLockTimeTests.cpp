// Positioning and the seek operators, length on open and closed objects, byte-range locks
// within one process and against another, and the two time stamps by name.
#include <gtest/gtest.h>

#include <string>

#include "FileChecks.h"
#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

// The file's time stamps in seconds since 1970, read past the library.
struct DiskTimes {
    long long created;
    long long written;
};

long long Seconds(const FILETIME& time)
{
    ULARGE_INTEGER units;
    units.LowPart = time.dwLowDateTime;
    units.HighPart = time.dwHighDateTime;
    return static_cast<long long>(units.QuadPart / 10000000ULL) - 11644473600LL;
}

DiskTimes TimesOnDisk(const std::string& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    ::GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data);
    return {Seconds(data.ftCreationTime), Seconds(data.ftLastWriteTime)};
}

TEST(PositionLockTime, SeekByOriginAndTheChainingOperators)
{
    ScratchDirectory directory(kBase + "PL_SEEK");
    WriteFileBytes(directory / "F.TXT", "0123456789");
    CKovra file("T_BASE", "PL_SEEK\\F.TXT", KOVRA_READ);
    EXPECT_EQ(3, file.Seek(3, 0));
    EXPECT_EQ(5, file.Seek(2, 1));
    EXPECT_EQ(6, file.Seek(-4, 2));
    EXPECT_EQ(10, file.Seek(0, 2));
    EXPECT_EQ(-1, file.Seek(1, 3));  // no such origin: refused without a trace
    EXPECT_EQ(0, CauseOf(file));
    EXPECT_EQ(-1, file.Seek(-11, 2));
    EXPECT_EQ(9, CauseOf(file));
    EXPECT_EQ(10ul, file.GetPosition());

    EXPECT_EQ(&file, file = 4L);
    EXPECT_EQ(&file, *(file += 3) -= 5);
    char byte = 0;
    EXPECT_EQ(1u, file.Read(&byte, 1));
    EXPECT_EQ('2', byte);
    // A failed seek leaves the position and still answers with the object.
    EXPECT_EQ(&file, file -= 50);
    EXPECT_EQ(9, CauseOf(file));
    EXPECT_EQ(3ul, file.GetPosition());

    // Without a platform file nothing moves and nothing is recorded.
    file.Close();
    EXPECT_EQ(0, file.Seek(3, 0));
    EXPECT_EQ(0, file.Seek(3, 7));
    EXPECT_EQ(&file, file += 2);
    EXPECT_EQ(0ul, file.GetPosition());
    EXPECT_EQ(0, file.Lock(0, 1));
    EXPECT_EQ(0, file.UnLock(0, 1));
    EXPECT_EQ(0, CauseOf(file));

    // After a failed open the platform is asked, and its failure recorded.
    EXPECT_EQ(0, file.Open("T_BASE", "PL_SEEK\\NONE.TXT", KOVRA_READ));
    EXPECT_EQ(2, CauseOf(file));
    EXPECT_EQ(-1, file.Seek(3, 0));
    EXPECT_EQ(6, CauseOf(file));
    EXPECT_EQ(&file, file = 1L);
    EXPECT_EQ(6, CauseOf(file));
    EXPECT_EQ(0, file.Lock(0, 1));
    EXPECT_EQ(6, CauseOf(file));
    EXPECT_EQ(0, file.UnLock(0, 1));
    EXPECT_EQ(6, CauseOf(file));
    EXPECT_EQ(0ul, file.GetPosition());
    EXPECT_EQ(0ul, file.GetLength());
    EXPECT_EQ(0, CauseOf(file));
}

TEST(PositionLockTime, LengthOfOpenAndClosedObjects)
{
    ScratchDirectory directory(kBase + "PL_LENGTH");
    const std::string path = directory / "F.TXT";
    CKovra file("T_BASE", "PL_LENGTH\\F.TXT", KOVRA_READWRITE);
    EXPECT_EQ(0ul, file.GetLength());
    file.Write("abcdefgh", 8);
    EXPECT_EQ(8ul, file.GetLength());
    EXPECT_EQ(1, file.SetLength(12));
    EXPECT_EQ(12ul, file.GetLength());
    EXPECT_EQ(std::string("abcdefgh\0\0\0\0", 12), ReadFileBytes(path));
    EXPECT_EQ(1, file.SetLength(5));
    EXPECT_EQ(5ul, file.GetLength());
    EXPECT_EQ("abcde", ReadFileBytes(path));

    // A closed object reports the length of the file under its name.
    file.Close();
    EXPECT_EQ(5ul, file.GetLength());
    EXPECT_EQ(0ul, file.GetPosition());
    EXPECT_EQ(0, file.SetLength(1));
    CKovra resolved("T_BASE", "PL_LENGTH\\F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(5ul, resolved.GetLength());
    EXPECT_EQ(1, resolved.Open("T_BASE", "PL_LENGTH\\NONE.TXT", KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(0ul, resolved.GetLength());
    EXPECT_EQ(0ul, CKovra().GetLength());

    // Reading only: the length can't be changed.
    EXPECT_EQ(1, file.Open("T_BASE", "PL_LENGTH\\F.TXT", KOVRA_READ));
    EXPECT_EQ(0, file.SetLength(1));
    EXPECT_EQ(0, CauseOf(file));
    EXPECT_EQ("abcde", ReadFileBytes(path));
}

TEST(PositionLockTime, LockedRangesConflictBetweenObjectsUntilUnlocked)
{
    ScratchDirectory directory(kBase + "PL_LOCK");
    CKovra first("T_BASE", "PL_LOCK\\F.TXT", KOVRA_READWRITE);
    CKovra second("T_BASE", "PL_LOCK\\F.TXT", KOVRA_READWRITE);
    first.Write("0123456789abcdefghij", 20);
    EXPECT_EQ(1, first.Lock(0, 10));
    EXPECT_EQ(0, second.Lock(5, 10));
    EXPECT_EQ(12, CauseOf(second));
    EXPECT_EQ(1, second.Lock(10, 5));  // the neighbouring range is free
    EXPECT_EQ(0, first.Lock(12, 1));
    EXPECT_EQ(12, CauseOf(first));

    EXPECT_EQ(1, first.UnLock(0, 10));
    EXPECT_EQ(0, first.UnLock(0, 10));  // no longer locked
    EXPECT_EQ(12, CauseOf(first));
    EXPECT_EQ(1, second.Lock(0, 10));
    EXPECT_EQ(1, second.UnLock(0, 10));
    EXPECT_EQ(1, second.UnLock(10, 5));
    EXPECT_EQ(1, first.Lock(5, 10));
}

TEST(PositionLockTime, ALockOfAnotherProcessHoldsUntilItEnds)
{
    ScratchDirectory directory(kBase + "PL_CHILD");
    CKovra file("T_BASE", "PL_CHILD\\F.TXT", KOVRA_READWRITE);
    file.Write("0123456789", 10);
    NamedEvent release;
    ChildProcess child(Quote(ProgramPath("kovra_child.exe")) + " lock T_BASE PL_CHILD\\F.TXT 2 4 " + release.Name());
    ASSERT_EQ("LOCK 1", child.WaitForLine("LOCK"));
    EXPECT_EQ(0, file.Lock(5, 2));
    EXPECT_EQ(12, CauseOf(file));
    EXPECT_EQ(1, file.Lock(6, 2));
    release.Set();
    EXPECT_EQ(0, child.Wait());
    EXPECT_EQ(1, file.Lock(0, 6));
}

TEST(PositionLockTime, TimeStampsBySelectorThroughTheName)
{
    ScratchDirectory directory(kBase + "PL_TIME");
    const std::string path = directory / "F.TXT";
    WriteFileBytes(path, "abc");
    // Resolved only: the times are reached by the name. Wine on Linux keeps no creation time
    // of its own (it reports the last write's and ignores a new one), so what only a
    // creation time apart can show is checked where the file system has one.
    CKovra file("T_BASE", "PL_TIME\\F.TXT", KOVRA_RESOLVE_ONLY);
    const ATL::CTime created(1000000000);
    const ATL::CTime written(1100000000);
    EXPECT_EQ(1, file.SetModificationTime(&written, 0));
    EXPECT_EQ(1, file.SetModificationTime(&created, 1));
    EXPECT_EQ(1100000000, TimesOnDisk(path).written);
    const bool keepsCreation = TimesOnDisk(path).created == 1000000000;
    ATL::CTime time;
    EXPECT_EQ(1, file.GetModificationTime(&time, 1));
    EXPECT_EQ(TimesOnDisk(path).created, time.GetTime());
    EXPECT_EQ(1, file.GetModificationTime(&time, 0));
    EXPECT_EQ(1100000000, time.GetTime());
    EXPECT_EQ(1, file.GetModificationTime(&time, 5));  // every other selector: the last write
    EXPECT_EQ(1100000000, time.GetTime());

    // Also while the object holds the file open.
    EXPECT_EQ(1, file.Open("T_BASE", "PL_TIME\\F.TXT", KOVRA_READWRITE));
    const ATL::CTime later(1200000000);
    EXPECT_EQ(1, file.SetModificationTime(&later, 2));
    EXPECT_EQ(1200000000, TimesOnDisk(path).written);
    if (keepsCreation) {
        EXPECT_EQ(1000000000, TimesOnDisk(path).created);
    }
    EXPECT_EQ(1, file.SetModificationTime(&created, 1));
    EXPECT_EQ(1200000000, TimesOnDisk(path).written);
    file.Close();
    EXPECT_EQ(1, file.GetModificationTime(&time, 0));
    EXPECT_EQ(1200000000, time.GetTime());

    // A missing file: 0, the time untouched, nothing recorded.
    EXPECT_EQ(1, file.Open("T_BASE", "PL_TIME\\NONE.TXT", KOVRA_RESOLVE_ONLY));
    ATL::CTime untouched(12345);
    EXPECT_EQ(0, file.GetModificationTime(&untouched, 0));
    EXPECT_EQ(0, file.GetModificationTime(&untouched, 1));
    EXPECT_EQ(12345, untouched.GetTime());
    EXPECT_EQ(0, file.SetModificationTime(&later, 0));
    EXPECT_FALSE(PathExists(directory / "NONE.TXT"));
    EXPECT_EQ(0, CauseOf(file));
    EXPECT_EQ(0, CKovra().GetModificationTime(&untouched, 0));
}

} // namespace
