// The library's diagnostics: CKOVRA.LOG's object lines (option bits 2 and 4) and event lines
// (bit 16), the monitor's traces, and retries on a held file with its holders (bit 8).
#include <gtest/gtest.h>

#include <optional>
#include <regex>

#include "TestSupport.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\", kLog = kBase + "CKOVRA.LOG", kIndent(19, ' ');
constexpr size_t kAttempts = 21;  // the first and 20 retries with the default repeat factor 1

std::string Call(const CKovra& file, const std::string& text, const std::string& fields)
{
    return Address(file) + " " + text + " (" + Hex(::GetCurrentThreadId()) + ", " + fields + ")";
}

std::string Exception(int cause, const std::string& message)
{
    return kIndent + "Exception(Cause(" + std::to_string(cause) + "), Msg(" + message + "))";
}

// count failed attempts on a held file: each its call, the sharing violation and the holders
// as the tool answered (its CR LF copied as read, and the log's text mode adds a CR of its own).
Lines HeldAttempts(size_t count, const std::string& call, const std::string& path, const std::string& answer)
{
    Lines lines;
    for (size_t attempt = 0; attempt < count; ++attempt)
        lines.insert(lines.end(), {call, Exception(11, "A sharing violation occurred while accessing " + path + "."),
                                   kIndent + answer + "\r"});
    return lines;
}

// The records about file, the handle of an open platform file shown as H.
Lines ObjectLines(const CKovra& file)
{
    Lines lines = LogRecords(kLog, Address(file) + " ");
    for (std::string& line : lines)
        line = std::regex_replace(line, std::regex(R"(, \d+, ([^,]*)\)$)"), ", H, $1)");
    return lines;
}

TEST(Log, RegistryEventsAndEveryCallWriteTheirOwnLinesAndEveryFailureItsException)
{
    ScratchDirectory directory(kBase + "LOG_CALLS");
    ::DeleteFileA(kLog.c_str());
    const std::string process = Hex(::GetCurrentProcessId());
    const std::string found = "*GetInfo =1 : Session(" + process + "), ThreadID(" + Hex(::GetCurrentThreadId()) +
                              "), ModulePath(" + kBase + "), User()";
    // The loading thread is bound to the process's session; another thread falls back to it.
    KovraGetThreadSession(nullptr);
    std::string worker;
    std::thread([&] {
        worker = Hex(::GetCurrentThreadId());
        KovraGetThreadSession(nullptr);
    }).join();
    void* session = reinterpret_cast<void*>(0x64);
    CKovra::StartSession(session);
    CKovra::StartSession(session);
    for (int call = 0; call < 3; ++call)  // the third is one too many
        CKovra::RemoveSession(session);
    CKovra::StartThread(session, 0x2b0);  // starts the session too
    CKovra::RemoveThread(session, 0x2b0);
    CKovra::RemoveThread(session, 0x2b0);
    CKovra::SetUser("U\r\n01.01 00:00:00.000 -------- *U");  // one line, escaped
    // Another process, at its end, removes its loading thread's binding and its own session.
    ChildProcess child(CommandLine("kovra_child.exe", ""));
    ASSERT_EQ(0, child.Wait());
    const std::string other = Hex(child.Id());

    Lines texts = LogRecords(kLog, R"(-------- \*)");
    for (std::string& text : texts)  // the time stamp's hyphens, and the other process's thread as T
        text = std::regex_replace(text.substr(9), std::regex(R"(^(\*RemoveThread \()" + other + R"(,)\w+)"), "$1T");
    EXPECT_EQ((Lines{found, "*GetInfo FAILED 0 (" + worker + ")", "*GetInfo FAILED 1 (" + worker + ")", found,
                     "*StartSession (1,64,1," + kBase + ",)", "*StartSession (0,64,2," + kBase + ",)",
                     "*RemoveSession (64,1," + kBase + ")", "*RemoveSession (64,0," + kBase + ")",
                     "*RemoveSession FAILED (64)", "*StartSession (1,64,1," + kBase + ",)", "*StartThread (1,64,2b0)",
                     "*RemoveThread (64,2b0)", "*RemoveSession (64,0," + kBase + ")", "*RemoveThread FAILED (64,2b0)",
                     found, "*SetUser (U\\r\\n01.01 00:00:00.000 -------- *U," + process + ",2," + kBase + ")",
                     "*RemoveThread (" + other + ",T)", "*RemoveSession (" + other + ",1," + kBase + ")",
                     "*RemoveSession (" + other + ",0," + kBase + ")"}), texts);

    // The lines of an object's calls.
    const std::string missing = directory / "MISSING.TXT", created = directory / "NEW.TXT";
    const std::string escaped = directory / "A\\r\\n01.01 B\\x7F", folder = kBase + "LOG_CALLS";
    CKovra file;
    EXPECT_EQ(0, file.Open(nullptr, "LOG_CALLS\\MISSING.TXT", KOVRA_READ));
    EXPECT_EQ(1, file.Open(nullptr, "LOG_CALLS\\NEW.TXT", KOVRA_READWRITE));
    EXPECT_EQ(1, file.Close());
    // A name's control characters are written escaped: each call gives its own lines only.
    EXPECT_EQ(0, file.Open(nullptr, "LOG_CALLS\\A\r\n01.01 B\x7F", KOVRA_READ));
    // Failures other than sharing violations are tried once and list no holders: a directory is no file to remove.
    file.GetRealFileName(nullptr, folder.c_str());
    EXPECT_EQ(0, file.Remove());
    EXPECT_EQ((Lines{Call(file, ":Open", "DFT, 1, -1, " + missing), Call(file, "Open", "DFT, 1, -1, " + missing),
                     Exception(2, missing + " was not found."), Call(file, ":Close", "DFT, 1, -1, " + missing),
                     Call(file, ":Open", "DFT, 2, H, " + created), Call(file, ":Close", "DFT, 2, H, " + created),
                     Call(file, ":Open", "DFT, 1, -1, " + escaped), Call(file, "Open", "DFT, 1, -1, " + escaped),
                     Exception(3, "All or part of the path " + escaped + " is invalid."),
                     Call(file, ":Close", "DFT, 1, -1, " + escaped), Call(file, "Remove", "DFT, 0, ..., " + folder),
                     Exception(5, "Access to " + folder + " was denied.")}), ObjectLines(file));
}

TEST(Traces, ReachTheMonitorAsSentAlsoAfterItWasRestartedAndAreDroppedWhereItDoesntAnswer)
{
    // A window of the monitor's name whose program never answers holds no caller: each trace
    // is dropped after a second at most. The program and its window end with the object.
    {
        ChildProcess stalled(CommandLine("kovra_child.exe", "stall"));
        ASSERT_EQ("STALLING", stalled.WaitForLine("STALLING"));
        CKovra::SetDebugLevel(1);
        CKovra::StartSession(reinterpret_cast<void*>(77));  // two traces
    }

    std::optional<MonitorProgram> monitor(std::in_place);
    CKovra::StartSession(reinterpret_cast<void*>(1234));
    CKovra::SetDebugLevel(2);  // the directory of Open's temporary file, before the lines of the Open itself
    EXPECT_EQ(0, CKovra().Open(nullptr, nullptr, KOVRA_RESOLVE_ONLY));
    ASSERT_TRUE(monitor->WaitForLines(3));
    // The header as the monitor got it: this process and thread, no window, and the executable's
    // handle, whole in the message's wParam and cut to 32 bits in the record; then message id,
    // size (a 16-byte header, the text and its zero) and text.
    const unsigned long long module = reinterpret_cast<uintptr_t>(::GetModuleHandleA(nullptr));
    auto trace = [&](const std::string& text) {
        return "pid=" + std::to_string(::GetCurrentProcessId()) + " tid=" + std::to_string(::GetCurrentThreadId()) +
               " wnd=0x0 inst=0x" + Hex(module & 0xFFFFFFFFull) + " wparam=0x" + Hex(module) + " id=10 cb=" +
               std::to_string(16 + text.size() + 1) + " text=" + text;
    };
    const Lines lines = monitor->Lines();
    EXPECT_EQ((Lines{trace("Kovra : StartSession : Session(1234)"),
                     trace("Kovra : StartSession : Add this Session(1234)"),
                     trace("Kovra : Open : TempPath(" KOVRA_TEST_DRIVE ":\\APP\\DAT\\WS1\\TMP\\)")}),
              Lines(lines.begin(), lines.begin() + 3));

    monitor.emplace();  // a new monitor window replaces the one found before
    CKovra::SetDebugLevel(1);
    CKovra::RemoveSession(reinterpret_cast<void*>(1234));
    ASSERT_TRUE(monitor->WaitForLines(1));
    EXPECT_EQ(Lines{trace("Kovra : RemoveSession : Session(1234)")}, monitor->Lines());
}

TEST(HeldFile, AttemptsAreRetriedAndCountedUntilTheHolderLetsGo)
{
    ScratchDirectory tools(kBase + "PRG"), directory(kBase + "HELD");
    ::CopyFileA(ProgramPath("handle.exe").c_str(), (tools / "HANDLE.EXE").c_str(), FALSE);
    const std::string held = directory / "F.TXT";
    WriteFileBytes(held, "held");
    ::DeleteFileA(kLog.c_str());
    CKovra holder(nullptr, held.c_str(), KOVRA_READWRITE | KOVRA_EXCLUSIVE);
    MonitorProgram monitor;
    CKovra::SetDebugLevel(1);
    CKovra file(nullptr, held.c_str());
    char newName[] = "HELD\\NEW.TXT";
    EXPECT_EQ(0, file.Rename("DFT", newName));
    EXPECT_EQ(HeldAttempts(kAttempts, Call(file, "Rename", "DFT, 0, ..., " + held), held,
                           "holders of " + held + " can't be told on this system: the file is open in another process"),
              ObjectLines(file));
    Lines traces;  // the trace of each failed attempt counts the retries before it
    for (size_t attempt = 0; attempt < kAttempts; ++attempt)
        traces.push_back("Kovra : Exception : Datei(" + held + ") Cause/Count(11," + std::to_string(attempt) +
                         ") Msg(A sharing violation occurred while accessing " + held + ".)");
    ASSERT_TRUE(monitor.WaitForLines(traces.size()));
    EXPECT_EQ(traces, monitor.Texts());

    // The holder lets go once three more attempts have failed: one of the remaining succeeds.
    std::thread releaser([&] {
        monitor.WaitForLines(traces.size() + 3);
        holder.Close();
    });
    EXPECT_EQ(1, file.Remove());
    releaser.join();
    const size_t failures = monitor.Lines().size() - traces.size();
    EXPECT_TRUE(failures >= 3 && failures < kAttempts) << failures;
    EXPECT_FALSE(PathExists(held));
}

// The tool runs as <base>PRG\HANDLE.EXE, all paths quoted, also where the base path holds '&'
// and blanks and the temporary directory a blank; one that doesn't end is ended after 5 s,
// and what it wrote is logged, its control characters escaped. With SharingViolationRepeat=0 a
// Remove makes one attempt.
TEST(HeldFile, TheHandleToolRunsByItsQuotedPathForABoundedTime)
{
    ScratchDirectory root(KOVRA_TEST_DRIVE ":\\A&B C");
    const std::string base = root.Path(), held = base + "HELD\\F G.TXT", temporary = base + "T M P";
    MakeDirectories(temporary);
    WriteFileBytes(base + "PRG\\HANDLE.EXE", ReadFileBytes(ProgramPath("kovra_probe.exe")));
    WriteFileBytes(base + "CONF\\CKOVRA.INI", "[DefaultSettings]\r\nOption=10\r\nSharingViolationRepeat=0\r\n");
    WriteFileBytes(held, "held");
    CKovra holder(nullptr, held.c_str(), KOVRA_READWRITE | KOVRA_EXCLUSIVE);
    // Another installation's process removes it: one attempt, with the answer of a tool that has been ended.
    const std::vector<EnvVar> another = {{"TARNEL31_WKSTA", base + "DAT\\WS1"}, {"KARVELO-CKOVRAHOME", base + "CONF"},
                                         {"TMP", temporary}, {"TEMP", temporary}};
    EXPECT_EQ(1, RunProgram("kovra.exe", another, "rm DFT \"HELD\\F G.TXT\"").exitCode);
    Lines records = LogRecords(base + "CKOVRA.LOG", R"([0-9a-f]+ Remove \()");
    std::smatch tool;
    for (std::string& line : records) {
        line = std::regex_replace(line, std::regex(R"(^[0-9a-f]+ Remove \([0-9a-f]+)"), "Remove (T");  // object, thread
        if (std::regex_match(line, tool, std::regex(kIndent + R"((\d+) (.*)\r)"))) {
            HANDLE process = ::OpenProcess(SYNCHRONIZE, FALSE, std::stoul(tool[1]));
            EXPECT_TRUE(!process || ::WaitForSingleObject(process, 0) == WAIT_OBJECT_0) << line;
            ::CloseHandle(process);
            line = kIndent + tool[2].str() + "\r";
        }
    }
    EXPECT_EQ(HeldAttempts(1, "Remove (T, DFT, 0, ..., " + held + ")", held, "HELD\\F G.TXT\\r\\x07"), records);
}

} // namespace
