// Reading, writing, positioning, locking and the time stamps of an object's file.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

#include "FileChecks.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

// One ReadString call as "text|length|result|position after it".
std::string ReadLine(CKovra& file, unsigned int size)
{
    std::vector<char> buffer(size + 1, '#');
    unsigned int length = 99;
    const int result = file.ReadString(buffer.data(), size, &length);
    return std::string(buffer.data()) + "|" + std::to_string(length) + "|" + std::to_string(result) + "|" +
           std::to_string(file.GetPosition());
}

TEST(BlockTextIo, TextModeDropsCarriageReturnsAndReadStringCrossesBlockBorders)
{
    ScratchDirectory directory(kBase + "BT_READ");
    // ReadString fetches 512 bytes from the line's start and moves the position back behind the
    // line: the b line's CR and LF and the c line's LF sit at block ends, the d line spans two.
    const std::vector<std::string> lines = {std::string(508, 'a'), std::string(511, 'b'), std::string(510, 'c'),
                                            std::string(700, 'd'), "", "tail"};
    std::string bytes;
    for (const std::string& line : lines)
        bytes += line + (&line == &lines.back() ? "" : "\r\n");
    WriteFileBytes(directory / "F.TXT", bytes);
    CKovra file("T_BASE", "BT_READ\\F.TXT", KOVRA_READ | KOVRA_TEXT);
    char buffer[6];
    file.Seek(506, 0);
    EXPECT_EQ(5u, file.Read(buffer, 6));
    EXPECT_EQ(std::string("aa\nbb\0", 6), std::string(buffer, 6));
    file.Seek(0, 0);
    size_t consumed = 0;
    for (const std::string& line : lines) {
        const bool last = &line == &lines.back();
        consumed += line.size() + (last ? 0 : 2);
        EXPECT_EQ(line + "|" + std::to_string(line.size()) + (last ? "|0|" : "|1|") + std::to_string(consumed),
                  ReadLine(file, 1000));
    }
    EXPECT_EQ("|0|0|2243", ReadLine(file, 1000));
    file.Seek(1535, 0);  // the d line in pieces of the buffer's size
    EXPECT_EQ(std::string(256, 'd') + "|256|1|1791", ReadLine(file, 256));
    EXPECT_EQ(std::string(256, 'd') + "|256|1|2047", ReadLine(file, 256));
    EXPECT_EQ(std::string(188, 'd') + "|188|1|2237", ReadLine(file, 256));
    ASSERT_EQ(1, file.Open("T_BASE", "BT_READ\\F.TXT", KOVRA_READ));  // without the text option
    file.Seek(510, 0);
    EXPECT_EQ(lines[1] + "\r\n|513|1|1023", ReadLine(file, 1000));
}

TEST(BlockTextIo, TextModeWritesCrLfForEveryLineFeedAndAppendModeWritesAtTheEnd)
{
    ScratchDirectory directory(kBase + "BT_WRITE");
    CKovra file("T_BASE", "BT_WRITE\\F.TXT", KOVRA_READWRITE | KOVRA_TEXT);
    EXPECT_EQ(5u, file.WriteString("abc"));     // a line end of its own
    EXPECT_EQ(3u, file.WriteString("abc", 1));  // flags 1: none
    EXPECT_EQ(4u, file.WriteString("a\nb"));    // a text with a line feed gets none
    EXPECT_EQ(3u, file.Write("\nz\n", 3));      // Write answers with the count it was given
    EXPECT_EQ(2u, file.Write("hello\n", 2));    // ... but the text runs to its NUL
    EXPECT_EQ(4u, file.Write("a\0b\n", 4));
    EXPECT_EQ(2u, file.Write("\n\n", 2, 1));    // flags 1: raw
    const std::string longText(5000, 'y');      // beyond any fixed buffer; no line end added
    EXPECT_EQ(1u, file.Write((longText + "\n").c_str(), 1));
    EXPECT_EQ(5007u, file.Printf(0, "%d\n%s%d\n", 5, longText.c_str(), 42));
    // A block without a NUL ends where the readable memory ends: here with its page.
    SYSTEM_INFO system;
    ::GetSystemInfo(&system);
    char* page = static_cast<char*>(::VirtualAlloc(nullptr, system.dwPageSize, MEM_COMMIT, PAGE_READWRITE));
    ASSERT_NE(nullptr, page);
    std::memset(page, 'q', system.dwPageSize);
    EXPECT_EQ(1u, file.Write(page + system.dwPageSize - 3, 1));
    ::VirtualFree(page, 0, MEM_RELEASE);
    const std::string text = "abc\r\nabca\r\nb\r\nz\r\nhello\r\na\n\n" + longText + "\r\n5\r\n" + longText +
                             "42\r\nqqq";
    // Without the text option nothing is translated; in append mode every write goes to the end.
    ASSERT_EQ(1, file.Open("T_BASE", "BT_WRITE\\F.TXT", KOVRA_APPEND));
    file.Seek(1, 0);
    EXPECT_EQ(3u, file.WriteString("a\nb"));
    file.Seek(0, 0);
    EXPECT_EQ(2u, file.Printf(0, "%d\n", 5));
    EXPECT_EQ(text.size() + 5, file.GetPosition());
    file.Close();
    EXPECT_EQ(text + "a\nb5\n", ReadFileBytes(directory / "F.TXT"));
}

TEST(BlockTextIo, FailuresWithoutWriteAccessAndAfterAFailedOpen)
{
    ScratchDirectory directory(kBase + "BT_FAIL");
    WriteFileBytes(directory / "F.TXT", "123");
    CKovra file("T_BASE", "BT_FAIL\\F.TXT", KOVRA_READ);
    EXPECT_EQ(0u, file.WriteString("ab"));
    EXPECT_EQ(0, file.SetLength(1));
    EXPECT_EQ(0, CauseOf(file));  // refused before the platform is asked
    EXPECT_EQ(0, file.Flush());   // asked: it refuses a handle without write access
    EXPECT_EQ(5, CauseOf(file));
    EXPECT_EQ("123", ReadFileBytes(directory / "F.TXT"));
    // After a failed open the platform answers that no file is open.
    ASSERT_EQ(0, file.Open("T_BASE", "BT_FAIL\\NONE.TXT", KOVRA_READ | KOVRA_TEXT));
    EXPECT_EQ(2, CauseOf(file));
    char buffer[4] = "xyz";
    EXPECT_EQ(0, file.ReadString(buffer, 3));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(6, CauseOf(file));
}

TEST(PositionLockTime, SeekTheOperatorsAndTheLength)
{
    ScratchDirectory directory(kBase + "PL_SEEK");
    CKovra file("T_BASE", "PL_SEEK\\F.TXT", KOVRA_READWRITE);
    ASSERT_EQ(10u, file.Write("0123456789", 10));
    EXPECT_EQ(3, file.Seek(3, 0));
    EXPECT_EQ(5, file.Seek(2, 1));
    EXPECT_EQ(6, file.Seek(-4, 2));
    EXPECT_EQ(-1, file.Seek(-11, 2));  // before the start
    EXPECT_EQ(9, CauseOf(file));
    EXPECT_EQ(&file, file = 4L);
    EXPECT_EQ(&file, *(file += 3) -= 5);
    EXPECT_EQ(2ul, file.GetPosition());
    EXPECT_EQ(1, file.SetLength(12));
    EXPECT_EQ(12ul, file.GetLength());
    EXPECT_EQ(std::string("0123456789\0\0", 12), ReadFileBytes(directory / "F.TXT"));
    // Positions cross as 32 bits on both targets: past 2 GiB they read back whole as unsigned
    // values and wrap to negative ones as Seek's long.
    EXPECT_EQ(1, file.SetLength(0xC0000000ul));
    EXPECT_EQ(0xC0000000ul, file.GetLength());
    EXPECT_EQ(-1073741825L, file.Seek(-1, 2));
    EXPECT_EQ(0xBFFFFFFFul, file.GetPosition());
    EXPECT_EQ(1, file.SetLength(5));
    file.Close();  // the length of the file under the name
    EXPECT_EQ(5ul, file.GetLength());
    EXPECT_EQ("01234", ReadFileBytes(directory / "F.TXT"));
}

TEST(PositionLockTime, LockedRangesConflictWithOtherObjectsAndProcesses)
{
    ScratchDirectory directory(kBase + "PL_LOCK");
    CKovra first("T_BASE", "PL_LOCK\\F.TXT", KOVRA_READWRITE);
    CKovra second("T_BASE", "PL_LOCK\\F.TXT", KOVRA_READWRITE);
    EXPECT_EQ(1, first.Lock(0, 10));
    EXPECT_EQ(0, second.Lock(5, 10));
    EXPECT_EQ(12, CauseOf(second));
    EXPECT_EQ(1, second.Lock(10, 5));  // the neighbouring range is free
    EXPECT_EQ(1, first.UnLock(0, 10));
    EXPECT_EQ(0, first.UnLock(0, 10));  // no longer locked
    EXPECT_EQ(12, CauseOf(first));
    EXPECT_EQ(1, second.Lock(0, 10));
    // The child holds bytes 15 to 18 until it is released and ends.
    NamedEvent release;
    ChildProcess child(Quote(ProgramPath("kovra_child.exe")) + " lock T_BASE PL_LOCK\\F.TXT 15 4 " + release.Name());
    ASSERT_EQ("LOCK 1", child.WaitForLine("LOCK"));
    EXPECT_EQ(0, first.Lock(18, 2));
    EXPECT_EQ(12, CauseOf(first));
    release.Set();
    EXPECT_EQ(0, child.Wait());
    EXPECT_EQ(1, first.Lock(15, 4));
}

TEST(PositionLockTime, TimeStampsBySelector)
{
    ScratchDirectory directory(kBase + "PL_TIME");
    WriteFileBytes(directory / "F.TXT", "abc");
    CKovra file("T_BASE", "PL_TIME\\F.TXT", KOVRA_READWRITE);  // open or not, reached by the name
    // Seconds past 2038 need all 64 bits of the time stamp, on the 32-bit build too.
    const ATL::CTime written(4102444800);  // 2100-01-01 00:00 UTC
    const ATL::CTime created(1000000000);
    EXPECT_EQ(1, file.SetModificationTime(&written, 0));
    EXPECT_EQ(1, file.SetModificationTime(&created, 1));  // leaves the last write alone
    file.Close();
    struct _stat64 status = {};  // its st_ctime is the creation time (wine keeps none of its own)
    ASSERT_EQ(0, _stat64((directory / "F.TXT").c_str(), &status));
    EXPECT_EQ(4102444800, status.st_mtime);
    ATL::CTime time;
    EXPECT_EQ(1, file.GetModificationTime(&time, 0));
    EXPECT_EQ(4102444800, time.GetTime());
    EXPECT_EQ(1, file.GetModificationTime(&time, 1));
    EXPECT_EQ(status.st_ctime, time.GetTime());
}

} // namespace
