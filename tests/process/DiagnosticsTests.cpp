// The two diagnostic channels seen from outside: trace messages as the monitor program
// receives them, and event lines that several processes write to one log at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <regex>

#include "Installation.h"

using namespace kovratest;

namespace {

std::string ChildCommand(const std::string& arguments)
{
    return Quote(ProgramPath("kovra_child.exe")) + " " + arguments;
}

void ExpectTraceLine(const std::string& line, DWORD processId, const std::string& text)
{
    EXPECT_EQ(std::to_string(processId), MonitorField(line, "pid")) << line;
    EXPECT_EQ("10", MonitorField(line, "id")) << line;
    EXPECT_EQ(std::to_string(16 + text.size() + 1), MonitorField(line, "cb")) << line;
    EXPECT_EQ("0x0", MonitorField(line, "wnd")) << line;
    EXPECT_NE("0x0", MonitorField(line, "inst")) << line;
    EXPECT_EQ(text, MonitorField(line, "text")) << line;
}

TEST(Diagnostics, TraceMessagesReachTheMonitorAlsoAfterItWasRestarted)
{
    Installation installation("TRACE");
    installation.WriteConfig({"[DefaultSettings]", "Option=32"});
    ScratchDirectory output(installation.Root() + "MONITOR");
    auto monitor = std::make_unique<MonitorProgram>(output / "first.txt");
    ASSERT_TRUE(monitor->Ready());

    NamedEvent secondMessage;
    ChildProcess child(ChildCommand("trace " + secondMessage.Name()), installation.Environment());
    ASSERT_EQ("SENT 1", child.WaitForLine("SENT"));
    ASSERT_TRUE(monitor->WaitForLines(2));
    std::vector<std::string> lines = monitor->Lines();
    ASSERT_EQ(2u, lines.size());
    ExpectTraceLine(lines[0], child.Id(), "Kovra : StartSession : Session(1234)");
    ExpectTraceLine(lines[1], child.Id(), "Kovra : StartSession : Add this Session(1234)");
    EXPECT_EQ(MonitorField(lines[0], "tid"), MonitorField(lines[1], "tid"));

    // A new monitor window replaces the one the child had cached.
    monitor->Close();
    monitor = std::make_unique<MonitorProgram>(output / "second.txt");
    ASSERT_TRUE(monitor->Ready());
    secondMessage.Set();
    ASSERT_EQ("SENT 2", child.WaitForLine("SENT"));
    ASSERT_TRUE(monitor->WaitForLines(1));
    ExpectTraceLine(monitor->Lines().at(0), child.Id(), "Kovra : RemoveSession : Session(1234)");
    EXPECT_EQ(0, child.Wait());
}

TEST(Diagnostics, SeveralProcessesWriteEventLinesWithoutLosingOrMixingAny)
{
    Installation installation("EVENTS");
    installation.WriteConfig({"[DefaultSettings]", "Option=16"});
    const int processes = 4;
    const int pairs = 150;
    std::vector<std::unique_ptr<ChildProcess>> children;
    for (int index = 0; index < processes; ++index)
        children.push_back(std::make_unique<ChildProcess>(ChildCommand("events " + std::to_string(pairs)),
                                                          installation.Environment()));
    for (auto& child : children)
        ASSERT_EQ(0, child->Wait());

    const std::string log = ReadFileBytes(installation.Base() + "CKOVRA.LOG");
    const std::regex lineFormat(R"(\d\d\.\d\d \d\d:\d\d:\d\d\.\d\d\d -------- \*[^\r\n]*)");
    std::map<std::string, int> seen;
    for (const std::string& line : SplitLines(log)) {
        ASSERT_TRUE(std::regex_match(line, lineFormat)) << line;
        ++seen[line.substr(28)];
    }
    // Every session of every child was started once and removed once.
    for (auto& child : children) {
        for (int index = 0; index < pairs; ++index) {
            char session[16];
            std::snprintf(session, sizeof session, "%x", static_cast<unsigned>(child->Id() * 1000 + index));
            EXPECT_EQ(1, seen["*StartSession (1," + std::string(session) + ",1," + installation.Base() + ",)"]);
            EXPECT_EQ(1, seen["*RemoveSession (" + std::string(session) + ",0," + installation.Base() + ")"]);
        }
        char process[16];
        std::snprintf(process, sizeof process, "%lx", child->Id());
        // The registration at load comes before the option word is read; the removal at unload is logged.
        EXPECT_EQ(0, seen["*StartSession (1," + std::string(process) + ",1," + installation.Base() + ",)"]);
        EXPECT_EQ(1, seen["*RemoveSession (" + std::string(process) + ",1," + installation.Base() + ")"]);
        EXPECT_EQ(1, seen["*RemoveSession (" + std::string(process) + ",0," + installation.Base() + ")"]);
    }
    // Lines end in CR LF: the log is written in text mode.
    EXPECT_EQ(std::string::npos, log.find("\n\n"));
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), std::count(log.begin(), log.end(), '\r'));
}

} // namespace
