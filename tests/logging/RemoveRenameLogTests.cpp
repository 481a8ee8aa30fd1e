// The attempts of Remove and Rename on a file that another process holds, counted through
// their log lines and exception traces, and the single attempt of every other failure.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
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
constexpr size_t kHeldAttempts = 21;  // the first and 20 retries with the default repeat factor 1

// The lines about one object (event lines left out).
std::vector<std::string> ObjectLines(const CKovra& file)
{
    return LogRecords(kLog, Address(file) + " ");
}

size_t Count(const std::vector<std::string>& lines, const std::string& line)
{
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}

std::string SharingViolation(const std::string& path)
{
    return kIndent + "Exception(Cause(11), Msg(A sharing violation occurred while accessing " + path + ".))";
}

std::string HolderDump(const std::string& path)
{
    // The tool's CR LF is copied as read, and the log's text mode adds a CR of its own.
    return kIndent + "holders of " + path + " can't be told on this system: the file is open in another process\r";
}

std::string ChildCommand(const std::string& arguments)
{
    return Quote(ProgramPath("kovra_child.exe")) + " " + arguments;
}

// F.TXT held exclusively by another process until released, the handle tool where the
// library runs it, and an object naming the held file.
class HeldByAnother : public ::testing::Test {
protected:
    void SetUp() override
    {
        MakeDirectories(kBase);
        ::CopyFileA(ProgramPath("handle.exe").c_str(), (m_tools / "HANDLE.EXE").c_str(), FALSE);
        WriteFileBytes(m_held, "held");
        m_holder = std::make_unique<ChildProcess>(ChildCommand("open DFT " + m_held + " 34 " + m_release.Name()));
        ASSERT_EQ("OPEN 1", m_holder->WaitForLine("OPEN"));
        ASSERT_EQ(1, m_file.Open(nullptr, m_held.c_str(), KOVRA_RESOLVE_ONLY));
        ::DeleteFileA(kLog.c_str());
    }

    void TearDown() override
    {
        m_release.Set();
        EXPECT_EQ(0, m_holder->Wait());
    }

    // The line of one failed attempt of the object: it is closed and without its type by then.
    std::string Attempt(const char* operation)
    {
        return Address(m_file) + " " + operation + " (" + Hex(::GetCurrentThreadId()) +
               ", DFT, 0, ..., " + m_held + ")";
    }

    // Every attempt of operation fails: its line, the exception and the holders, 21 times.
    void ExpectEveryAttemptFails(const char* operation, const std::function<int()>& call)
    {
        EXPECT_EQ(0, call());
        std::vector<std::string> expected;
        for (size_t attempt = 0; attempt < kHeldAttempts; ++attempt)
            expected.insert(expected.end(), {Attempt(operation), SharingViolation(m_held), HolderDump(m_held)});
        EXPECT_EQ(expected, ObjectLines(m_file));
        EXPECT_TRUE(PathExists(m_held));
    }

    // The holder lets go once the third attempt of operation shows in the log; the call then
    // succeeds with its remaining attempts.
    void ExpectSuccessOnceReleased(const char* operation, const std::function<int()>& call)
    {
        const std::string attempt = Attempt(operation);
        std::thread releaser([&] {
            for (int poll = 0; poll < 3000 && Count(ObjectLines(m_file), attempt) < 3; ++poll)
                ::Sleep(20);
            m_release.Set();
        });
        EXPECT_EQ(1, call());
        releaser.join();
        const std::vector<std::string> lines = ObjectLines(m_file);
        const size_t failures = Count(lines, attempt);
        EXPECT_GE(failures, 3u);
        EXPECT_LT(failures, kHeldAttempts);
        EXPECT_EQ(failures, Count(lines, SharingViolation(m_held)));
        EXPECT_FALSE(PathExists(m_held));
    }

    ScratchDirectory m_tools{kBase + "PRG"};
    ScratchDirectory m_directory{kBase + "HELD_FSOPS"};
    const std::string m_held = m_directory / "F.TXT";
    NamedEvent m_release;
    std::unique_ptr<ChildProcess> m_holder;
    CKovra m_file;
};

TEST_F(HeldByAnother, RemoveTriesTwentyOneTimesAndTracesTheCount)
{
    MonitorProgram monitor(m_directory / "monitor.txt");
    ASSERT_TRUE(monitor.Ready());
    CKovra::SetDebugLevel(1);
    ExpectEveryAttemptFails("Remove", [this] { return m_file.Remove(); });

    std::vector<std::string> expected;
    for (size_t count = 0; count < kHeldAttempts; ++count)
        expected.push_back("Kovra : Exception : Datei(" + m_held + ") Cause/Count(11," + std::to_string(count) +
                           ") Msg(A sharing violation occurred while accessing " + m_held + ".)");
    ASSERT_TRUE(monitor.WaitForLines(expected.size()));
    EXPECT_EQ(expected, monitor.Texts());
}

TEST_F(HeldByAnother, RenameTriesTwentyOneTimes)
{
    char name[] = "HELD_FSOPS\\NEW.TXT";
    ExpectEveryAttemptFails("Rename", [&] { return m_file.Rename("DFT", name); });
    EXPECT_EQ(m_held, m_file.GetRealFileName());
    EXPECT_FALSE(PathExists(m_directory / "NEW.TXT"));
}

TEST_F(HeldByAnother, RemoveSucceedsOnceTheHolderLetsGo)
{
    ExpectSuccessOnceReleased("Remove", [this] { return m_file.Remove(); });
}

TEST_F(HeldByAnother, RenameSucceedsOnceTheHolderLetsGo)
{
    char name[] = "HELD_FSOPS\\NEW.TXT";
    ExpectSuccessOnceReleased("Rename", [&] { return m_file.Rename("DFT", name); });
    EXPECT_EQ(m_directory / "NEW.TXT", m_file.GetRealFileName());
    EXPECT_EQ("held", ReadFileBytes(m_directory / "NEW.TXT"));
}

// With SharingViolationRepeat=0 there is one attempt: the command-line tool's rm in a
// process of its own that reads such a configuration.
TEST_F(HeldByAnother, WithoutRepeatsRemoveTriesOnce)
{
    ScratchDirectory config(kBase + "CONF_NOREPEAT");
    WriteFileBytes(config / "CKOVRA.INI", "[DefaultSettings]\r\nOption=46\r\nSharingViolationRepeat=0\r\n");
    ChildProcess remover(Quote(ProgramPath("kovra.exe")) + " rm DFT " + m_held,
                         {{"KARVELO-CKOVRAHOME", config.Path().substr(0, config.Path().size() - 1)}});
    EXPECT_EQ(1, remover.Wait());
    const std::string fields = ", DFT, 0, ..., " + m_held + ")";
    std::vector<std::string> lines = LogRecords(kLog, R"([0-9a-f]+ Remove \()");
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(fields, lines[0].substr(lines[0].size() - fields.size()));
    EXPECT_EQ(SharingViolation(m_held), lines[1]);
    EXPECT_EQ(HolderDump(m_held), lines[2]);
    EXPECT_TRUE(PathExists(m_held));
}

// Failures other than sharing violations: one attempt, and no holders listed.
TEST(RemoveRenameLog, OtherFailuresAreNotRetried)
{
    ScratchDirectory directory(kBase + "FAIL_FSOPS");
    ::DeleteFileA(kLog.c_str());
    const std::string readOnly = directory / "RO.TXT";
    WriteFileBytes(readOnly, "r");
    ::SetFileAttributesA(readOnly.c_str(), FILE_ATTRIBUTE_READONLY);
    WriteFileBytes(directory / "TAKEN.TXT", "t");
    CKovra file(nullptr, readOnly.c_str());
    const std::string prefix = Address(file) + " ";
    const std::string fields = " (" + Hex(::GetCurrentThreadId()) + ", DFT, 0, ..., " + readOnly + ")";
    const std::string denied = kIndent + "Exception(Cause(5), Msg(Access to " + readOnly + " was denied.))";
    EXPECT_EQ(0, file.Remove());
    char taken[] = "FAIL_FSOPS\\TAKEN.TXT";
    EXPECT_EQ(0, file.Rename("DFT", taken));
    EXPECT_EQ((std::vector<std::string>{prefix + "Remove" + fields, denied, prefix + "Rename" + fields, denied}),
              ObjectLines(file));
    ::SetFileAttributesA(readOnly.c_str(), FILE_ATTRIBUTE_NORMAL);
}

// A backup that can't be moved is copied: the refused move is logged under its own name,
// without retries and without holders.
TEST(RemoveRenameLog, SaveFileLogsTheRefusedMove)
{
    ScratchDirectory directory(kBase + "SAVE_FSOPS");
    const std::string path = directory / "F.TXT";
    WriteFileBytes(path, "s");
    CKovra reader(nullptr, path.c_str(), KOVRA_READ);
    ASSERT_EQ(1, reader.IsOpen());
    CKovra file("DFT", path.c_str());
    ::DeleteFileA(kLog.c_str());
    EXPECT_EQ(1, file.SaveFile(nullptr, "SAVE_FSOPS\\BK"));
    EXPECT_EQ((std::vector<std::string>{
                  Address(file) + " SaveFile.Rename (" + Hex(::GetCurrentThreadId()) +
                      ", DFT, 0, ..., " + path + ")",
                  SharingViolation(path),
              }),
              ObjectLines(file));
}

} // namespace
