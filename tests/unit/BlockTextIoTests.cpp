// Block and line I/O on an open file: CR removal on reading, line reading in and out of
// the text option, across block borders and for long lines, line-end translation on
// writing, Printf, the writability guard, append mode and the failures after a failed open.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FileChecks.h"
#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

// One ReadString call: the text, the stored length, the result and the position after it.
struct Line {
    std::string text;
    unsigned int length;
    int result;
    unsigned long position;
};

bool operator==(const Line& a, const Line& b)
{
    return a.text == b.text && a.length == b.length && a.result == b.result && a.position == b.position;
}

std::ostream& operator<<(std::ostream& out, const Line& line)
{
    return out << '"' << line.text << "\" length " << line.length << " result " << line.result << " at "
               << line.position;
}

Line ReadLine(CKovra& file, unsigned int size)
{
    std::vector<char> buffer(size + 1, '#');
    unsigned int length = 99;
    const int result = file.ReadString(buffer.data(), size, &length);
    return {buffer.data(), length, result, file.GetPosition()};
}

// Opens NAME below the base for reading after writing bytes into it.
void OpenWith(CKovra& file, const std::string& name, const std::string& bytes, unsigned long options)
{
    WriteFileBytes(kBase + name, bytes);
    ASSERT_EQ(1, file.Open("T_BASE", name.c_str(), options));
}

TEST(BlockTextIo, ReadRemovesCarriageReturnsOnlyInTextModeWithFlagsZero)
{
    ScratchDirectory directory(kBase + "BT_READ");
    CKovra file;
    OpenWith(file, "BT_READ\\F.TXT", "A\r\nB\r", KOVRA_READ | KOVRA_TEXT);

    char buffer[6] = "xxxxx";
    EXPECT_EQ(0u, file.Read(buffer, 0));
    EXPECT_STREQ("xxxxx", buffer);
    EXPECT_EQ(3u, file.Read(buffer, 5, 0));
    EXPECT_EQ(std::string("A\nB\0\0", 5), std::string(buffer, 5));
    EXPECT_EQ(0u, file.Read(buffer, 5, 0));  // the end of the file

    file.Seek(0, 0);
    EXPECT_EQ(5u, file.Read(buffer, 5, 1));
    EXPECT_EQ("A\r\nB\r", std::string(buffer, 5));

    // Without the text option nothing is stripped, whatever the flags.
    EXPECT_EQ(1, file.Open("T_BASE", "BT_READ\\F.TXT", KOVRA_READ));
    EXPECT_EQ(5u, file.Read(buffer, 5, 0));
    EXPECT_EQ("A\r\nB\r", std::string(buffer, 5));
    EXPECT_EQ(0, file.GetLastError(nullptr, buffer, sizeof buffer));
}

TEST(BlockTextIo, ReadStringEndsLinesAtLineFeedsFullBuffersAndTheEnd)
{
    ScratchDirectory directory(kBase + "BT_LINES");
    CKovra file;
    OpenWith(file, "BT_LINES\\CRLF.TXT", "abc\r\ndef", KOVRA_READ | KOVRA_TEXT);
    EXPECT_EQ((Line{"abc", 3, 1, 5}), ReadLine(file, 10));
    EXPECT_EQ((Line{"def", 3, 0, 8}), ReadLine(file, 10));
    EXPECT_EQ((Line{"", 0, 0, 8}), ReadLine(file, 10));

    EXPECT_EQ(1, file.Open("T_BASE", "BT_LINES\\CRLF.TXT", KOVRA_READ));
    EXPECT_EQ((Line{"abc\r\n", 5, 1, 5}), ReadLine(file, 10));
    EXPECT_EQ((Line{"def", 3, 0, 8}), ReadLine(file, 10));

    // A full buffer ends the line; the rest, and then its line feed, come with the next calls.
    OpenWith(file, "BT_LINES\\LONG.TXT", "abcdef\n", KOVRA_READ | KOVRA_TEXT);
    EXPECT_EQ((Line{"abc", 3, 1, 3}), ReadLine(file, 3));
    EXPECT_EQ((Line{"def", 3, 1, 6}), ReadLine(file, 3));
    EXPECT_EQ((Line{"", 0, 1, 7}), ReadLine(file, 3));
    EXPECT_EQ((Line{"", 0, 0, 7}), ReadLine(file, 3));

    // Every CR of the line is dropped, not only the one before the line feed.
    OpenWith(file, "BT_LINES\\CR.TXT", "a\rb\nc", KOVRA_READ | KOVRA_TEXT);
    EXPECT_EQ((Line{"ab", 2, 1, 4}), ReadLine(file, 10));
    char buffer[4] = "xyz";
    EXPECT_EQ(0, file.ReadString(buffer, 3, nullptr));  // no length wanted
    EXPECT_STREQ("c", buffer);

    // A size of 0 reads nothing.
    file.Seek(0, 0);
    EXPECT_EQ((Line{"", 0, 0, 0}), ReadLine(file, 0));

    // Without an open file the buffer and the length stay as they were.
    file.Close();
    unsigned int length = 7;
    EXPECT_EQ(0, file.ReadString(buffer, 3, &length));
    EXPECT_STREQ("c", buffer);
    EXPECT_EQ(7u, length);
}

TEST(BlockTextIo, ReadStringAcrossBlockBordersAndLinesLongerThanTheBuffer)
{
    ScratchDirectory directory(kBase + "BT_BLOCKS");
    // ReadString fetches 512 bytes from where the line starts: the b line's CR is the last
    // byte of its block and its LF the first of the next, the c line's LF is the last byte of
    // its block, the d line spans two blocks. The b and c lines straddle offsets 512 and 1024.
    const std::vector<std::string> lines = {std::string(508, 'a'), std::string(511, 'b'), std::string(510, 'c'),
                                            std::string(700, 'd'), "", "tail"};
    std::string bytes;
    for (const std::string& line : lines)
        bytes += line + (&line == &lines.back() ? "" : "\r\n");
    CKovra file;
    OpenWith(file, "BT_BLOCKS\\F.TXT", bytes, KOVRA_READ | KOVRA_TEXT);

    unsigned long consumed = 0;
    for (size_t index = 0; index < lines.size(); ++index) {
        const bool last = index + 1 == lines.size();
        consumed += lines[index].size() + (last ? 0 : 2);
        const unsigned int length = static_cast<unsigned int>(lines[index].size());
        EXPECT_EQ((Line{lines[index], length, last ? 0 : 1, consumed}), ReadLine(file, 1000)) << index;
    }

    // A line longer than the buffer comes in pieces of the buffer's size.
    file.Seek(1535, 0);
    EXPECT_EQ((Line{std::string(256, 'd'), 256, 1, 1791}), ReadLine(file, 256));
    EXPECT_EQ((Line{std::string(256, 'd'), 256, 1, 2047}), ReadLine(file, 256));
    EXPECT_EQ((Line{std::string(188, 'd'), 188, 1, 2237}), ReadLine(file, 256));

    // Without the text option the lines come with their CR LF.
    EXPECT_EQ(1, file.Open("T_BASE", "BT_BLOCKS\\F.TXT", KOVRA_READ));
    file.Seek(510, 0);
    EXPECT_EQ((Line{lines[1] + "\r\n", 513, 1, 1023}), ReadLine(file, 1000));
    EXPECT_EQ((Line{lines[2] + "\r\n", 512, 1, 1535}), ReadLine(file, 1000));
    EXPECT_EQ((Line{std::string(256, 'd'), 256, 1, 1791}), ReadLine(file, 256));
    file.Seek(2235, 0);
    EXPECT_EQ((Line{"\r\n", 2, 1, 2237}), ReadLine(file, 256));
}

TEST(BlockTextIo, WriteStringTranslatesLineEndsAndAppendsThemInTextMode)
{
    ScratchDirectory directory(kBase + "BT_WRITE");
    CKovra file("T_BASE", "BT_WRITE\\TEXT.TXT", KOVRA_READWRITE | KOVRA_TEXT);
    EXPECT_EQ(5u, file.WriteString("abc", 0));
    EXPECT_EQ(3u, file.WriteString("abc", 1));
    EXPECT_EQ(4u, file.WriteString("a\nb", 0));
    EXPECT_EQ(2u, file.WriteString("", 0));
    EXPECT_EQ(0u, file.WriteString("", 1));
    char crlf[] = "x\r\ny";  // the char* overload; a CR already there stays
    EXPECT_EQ(5u, file.WriteString(crlf, 0));
    EXPECT_EQ(1, file.Flush());
    // Write translates too unless flags say raw, and returns the count it was given.
    EXPECT_EQ(3u, file.Write("\nz\n", 3, 0));
    EXPECT_EQ(2u, file.Write("\n\n", 2, 1));
    EXPECT_EQ(3u, file.Write("q\0r", 3, 0));  // the text ends at its NUL, or after count bytes
    EXPECT_EQ(2u, file.Write("\nst", 2, 0));
    file.Close();
    EXPECT_EQ("abc\r\nabca\r\nb\r\nx\r\r\ny\r\nz\r\n\n\nq\r\ns", ReadFileBytes(directory / "TEXT.TXT"));

    EXPECT_EQ(1, file.Open("T_BASE", "BT_WRITE\\RAW.TXT", KOVRA_READWRITE));
    EXPECT_EQ(3u, file.WriteString("abc", 0));
    EXPECT_EQ(3u, file.WriteString("a\nb", 1));
    EXPECT_EQ(0u, file.WriteString("", 0));
    EXPECT_EQ(3u, file.Write("\0\n\r", 3, 0));
    file.Close();
    EXPECT_EQ(std::string("abca\nb\0\n\r", 9), ReadFileBytes(directory / "RAW.TXT"));
}

TEST(BlockTextIo, PrintfWritesTheFormattedTextWithoutALineEndOfItsOwn)
{
    ScratchDirectory directory(kBase + "BT_PRINTF");
    CKovra file("T_BASE", "BT_PRINTF\\TEXT.TXT", KOVRA_READWRITE | KOVRA_TEXT);
    EXPECT_EQ(3u, file.Printf(0, "%d\n", 5));
    EXPECT_EQ(1u, file.Printf(0, "%d", 5));
    // Far beyond any fixed buffer, with its line feeds translated.
    const std::string first(3000, 'y');
    const std::string second(3000, 'z');
    EXPECT_EQ(6006u, file.Printf(0, "%s\n%s%d\n", first.c_str(), second.c_str(), 42));
    file.Close();
    EXPECT_EQ("5\r\n5" + first + "\r\n" + second + "42\r\n", ReadFileBytes(directory / "TEXT.TXT"));

    EXPECT_EQ(1, file.Open("T_BASE", "BT_PRINTF\\RAW.TXT", KOVRA_READWRITE));
    EXPECT_EQ(2u, file.Printf(1, "%d\n", 5));
    EXPECT_EQ(1u, file.Printf(0, "%d", 5));
    const std::string third(5000, 'w');
    EXPECT_EQ(5001u, file.Printf(0, "%s%s", third.c_str(), "\n"));
    file.Close();
    EXPECT_EQ("5\n5" + third + "\n", ReadFileBytes(directory / "RAW.TXT"));
}

TEST(BlockTextIo, WritingNeedsAWritableFileAndAppendingGoesToTheEnd)
{
    ScratchDirectory directory(kBase + "BT_GUARD");
    const std::string path = directory / "F.TXT";
    CKovra file;
    OpenWith(file, "BT_GUARD\\F.TXT", "123", KOVRA_READ | KOVRA_TEXT);
    EXPECT_EQ(0u, file.Write("ab", 2));
    EXPECT_EQ(0u, file.WriteString("ab"));
    EXPECT_EQ(0u, file.Printf(0, "%d", 5));
    EXPECT_EQ(0, CauseOf(file));
    // Flushing doesn't ask for writability: the platform refuses a handle without write access.
    EXPECT_EQ(0, file.Flush());
    EXPECT_EQ(5, CauseOf(file));
    file.Close();
    EXPECT_EQ(0u, file.Write("ab", 2));
    EXPECT_EQ(0, file.Flush());
    EXPECT_EQ("123", ReadFileBytes(path));
    CKovra never;
    EXPECT_EQ(0, never.Flush());
    char buffer[4] = "xyz";
    EXPECT_EQ(0u, never.Read(buffer, 3));

    // In append mode every write lands at the end, wherever the position was.
    EXPECT_EQ(1, file.Open("T_BASE", "BT_GUARD\\F.TXT", KOVRA_APPEND));
    file.Seek(1, 0);
    EXPECT_EQ(2u, file.Write("ab", 2));
    EXPECT_EQ(5ul, file.GetPosition());
    file.Seek(0, 0);
    EXPECT_EQ(2u, file.WriteString("cd"));
    file.Seek(2, 0);
    EXPECT_EQ(1u, file.Printf(0, "%d", 9));
    file.Seek(2, 0);
    EXPECT_EQ(3u, file.Read(buffer, 3));  // reading isn't moved to the end
    EXPECT_STREQ("3ab", buffer);
    file.Close();
    EXPECT_EQ("123abcd9", ReadFileBytes(path));
}

TEST(BlockTextIo, AfterAFailedOpenReadingAndFlushingRecordTheMissingHandle)
{
    ScratchDirectory directory(kBase + "BT_FAILED");
    const std::string openFailure = directory / "NONE.TXT was not found.";
    CKovra file;
    ASSERT_EQ(0, file.Open("T_BASE", "BT_FAILED\\NONE.TXT", KOVRA_READ | KOVRA_TEXT));
    EXPECT_EQ(2, CauseOf(file));

    // The platform answers that no file is open; its exception names no file, so the
    // message stays the one of the failed open.
    auto expectInvalidFile = [&](const char* operation) {
        int cause = 0;
        char message[256] = "";
        EXPECT_EQ(1, file.GetLastError(&cause, message, sizeof message)) << operation;
        EXPECT_EQ(6, cause) << operation;
        EXPECT_EQ(openFailure, message) << operation;
    };
    char buffer[8] = "xyz";
    EXPECT_EQ(0u, file.Read(buffer, 3));
    expectInvalidFile("Read");
    unsigned int length = 7;
    EXPECT_EQ(0, file.ReadString(buffer, 3, &length));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(0u, length);
    expectInvalidFile("ReadString");
    EXPECT_EQ(0, file.Flush());
    expectInvalidFile("Flush");

    // Writing stops at the writability test and records nothing.
    EXPECT_EQ(0u, file.Write("ab", 2));
    EXPECT_EQ(0u, file.WriteString("ab"));
    EXPECT_EQ(0u, file.Printf(0, "ab"));
    EXPECT_EQ(0, file.GetLastError(nullptr, buffer, sizeof buffer));
}

} // namespace
