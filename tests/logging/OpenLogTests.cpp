// The per-call lines of file objects in CKOVRA.LOG (option bits 2 and 4), their exception
// lines, and the handle-owner dump (bit 8) after each sharing violation of Open.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <regex>
#include <string>
#include <thread>

#include "FileChecks.h"
#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";
const std::string kLog = kBase + "CKOVRA.LOG";
const std::string kIndent(19, ' ');

// The records about file since the log was cleared, the handle field shown as H unless it
// is -1 or "...".
std::vector<std::string> ObjectLines(const CKovra& file)
{
    static const std::regex openHandle(R"(, \d+, ([^,]*)\)$)");
    std::vector<std::string> lines = LogRecords(kLog, Address(file) + " ");
    for (std::string& line : lines)
        line = std::regex_replace(line, openHandle, ", H, $1)");
    return lines;
}

size_t Count(const std::vector<std::string>& lines, const std::string& line)
{
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}

std::string ChildCommand(const std::string& arguments)
{
    return Quote(ProgramPath("kovra_child.exe")) + " " + arguments;
}

class OpenLog : public ::testing::Test {
protected:
    void SetUp() override
    {
        MakeDirectories(kBase);
        ::DeleteFileA(kLog.c_str());
    }

    std::string Call(const char* text, const std::string& fields)
    {
        return Address(m_file) + " " + text + " (" + m_thread + ", " + fields + ")";
    }

    CKovra m_file;
    const std::string m_thread = Hex(::GetCurrentThreadId());
};

// A file that another process holds exclusively, and the handle tool where Open runs it.
class HeldFile : public OpenLog {
protected:
    void SetUp() override
    {
        OpenLog::SetUp();
        ::CopyFileA(ProgramPath("handle.exe").c_str(), (m_tools / "HANDLE.EXE").c_str(), FALSE);
        WriteFileBytes(m_held, "x");
        m_holder = std::make_unique<ChildProcess>(ChildCommand("open DFT " + m_held + " 34 " + m_release.Name()));
        ASSERT_EQ("OPEN 1", m_holder->WaitForLine("OPEN"));
        ::DeleteFileA(kLog.c_str());
    }

    void TearDown() override
    {
        m_release.Set();
        EXPECT_EQ(0, m_holder->Wait());
    }

    // The lines of two failed attempts to open the held file for reading and writing.
    std::vector<std::string> TwoFailedAttempts()
    {
        const std::string fields = "DFT, 2, -1, " + m_held;
        const std::vector<std::string> attempt = {
            Call(":Open", fields),
            Call("Open", fields),
            kIndent + "Exception(Cause(11), Msg(A sharing violation occurred while accessing " + m_held + ".))",
            // The tool's CR LF is copied as read, and the log's text mode adds a CR of its own.
            kIndent + "holders of " + m_held + " can't be told on this system: the file is open in another process\r",
        };
        std::vector<std::string> lines = attempt;
        lines.insert(lines.end(), attempt.begin(), attempt.end());
        return lines;
    }

    ScratchDirectory m_tools{kBase + "PRG"};
    ScratchDirectory m_directory{kBase + "LOG_HELD"};
    const std::string m_held = m_directory / "HELD.TXT";
    NamedEvent m_release;
    std::unique_ptr<ChildProcess> m_holder;
};

TEST_F(OpenLog, ASuccessfulOpenAndCloseWriteTheirColonLinesOnly)
{
    ScratchDirectory directory(kBase + "LOG_OK");
    const std::string path = directory / "F.TXT";
    ASSERT_EQ(1, m_file.Open("T_BASE", "LOG_OK\\F.TXT", KOVRA_READWRITE));
    EXPECT_EQ(1, m_file.Close());
    EXPECT_EQ((std::vector<std::string>{Call(":Open", "T_BASE, 2, H, " + path), Call(":Close", "T_BASE, 2, H, " + path)}),
              ObjectLines(m_file));
    // The whole line: time stamp, address, text and fields.
    EXPECT_TRUE(std::regex_search(ReadFileBytes(kLog),
                                  std::regex(R"((^|\n)\d\d\.\d\d \d\d:\d\d:\d\d\.\d\d\d )" + Address(m_file) +
                                             R"( :Open \()" + m_thread + R"(, T_BASE, 2, \d+, L:\\APP\\LOG_OK\\F\.TXT\)\r\n)")));
}

TEST_F(OpenLog, AFailedOpenAddsItsCallAndExceptionLinesAndColonLinesNeverGetOne)
{
    ScratchDirectory directory(kBase + "LOG_FAIL");
    const std::string missing = directory / "MISSING.TXT";
    const std::string created = directory / "NEW.TXT";
    EXPECT_EQ(0, m_file.Open(nullptr, "LOG_FAIL\\MISSING.TXT", KOVRA_READ));
    // The failure stays pending while the object opens another file.
    EXPECT_EQ(1, m_file.Open(nullptr, "LOG_FAIL\\NEW.TXT", KOVRA_READWRITE));
    m_file.Close();
    EXPECT_EQ((std::vector<std::string>{
                  Call(":Open", "DFT, 1, -1, " + missing),
                  Call("Open", "DFT, 1, -1, " + missing),
                  kIndent + "Exception(Cause(2), Msg(" + missing + " was not found.))",
                  Call(":Close", "DFT, 1, -1, " + missing),
                  Call(":Open", "DFT, 2, H, " + created),
                  Call(":Close", "DFT, 2, H, " + created),
              }),
              ObjectLines(m_file));
}

TEST_F(OpenLog, WithoutAPlatformFileTheHandleShowsDots)
{
    // A temporary file that can't be removed: Close records that without a platform file.
    m_file.Open(nullptr, nullptr, KOVRA_RESOLVE_ONLY);
    const std::string temporary = m_file.GetRealFileName();
    HANDLE reader = ::CreateFileA(temporary.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, reader);
    EXPECT_EQ(1, m_file.Close());
    ::CloseHandle(reader);
    EXPECT_TRUE(PathExists(temporary));
    ::DeleteFileA(temporary.c_str());
    EXPECT_EQ((std::vector<std::string>{
                  Call("Close", "DFT, 0, ..., " + temporary),
                  kIndent + "Exception(Cause(11), Msg(A sharing violation occurred while accessing " + temporary + ".))",
              }),
              ObjectLines(m_file));
}

TEST_F(HeldFile, ASharingViolationIsTriedTwiceWithTheHoldersListedEachTime)
{
    EXPECT_EQ(0, m_file.Open(nullptr, m_held.c_str(), KOVRA_READWRITE));
    EXPECT_EQ(TwoFailedAttempts(), ObjectLines(m_file));
}

TEST_F(HeldFile, WithFlagTwoTheTriesGoOnUntilTheHolderLetsGo)
{
    const std::string attemptLine = Call(":Open", "DFT, 2, -1, " + m_held);
    // The holder lets go once a third attempt has shown in the log.
    std::thread releaser([&] {
        for (int poll = 0; poll < 3000 && Count(ObjectLines(m_file), attemptLine) < 3; ++poll)
            ::Sleep(20);
        m_release.Set();
    });
    EXPECT_EQ(1, m_file.Open(nullptr, m_held.c_str(), KOVRA_READWRITE, nullptr, 2));
    releaser.join();

    // Whether the last failed attempt still found a holder to list depends on when it let go.
    std::vector<std::string> lines = ObjectLines(m_file);
    const size_t failures = Count(lines, attemptLine);
    EXPECT_GE(failures, 3u);
    EXPECT_EQ(failures, Count(lines, Call("Open", "DFT, 2, -1, " + m_held)));
    EXPECT_EQ(Call(":Open", "DFT, 2, H, " + m_held), lines.back());
    const std::vector<std::string> firstTwo = TwoFailedAttempts();
    lines.resize(firstTwo.size());
    EXPECT_EQ(firstTwo, lines);
    EXPECT_EQ(1, m_file.IsWritable());
}

} // namespace
