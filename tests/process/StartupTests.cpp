// Loading the library into processes: the machine-wide counter and shared table, the
// paths derived at construction, and a refused load.
#include <gtest/gtest.h>

#include <algorithm>

#include "Installation.h"

using namespace kovratest;

namespace {

bool Contains(const std::vector<std::string>& entries, const std::string& wanted)
{
    return std::find(entries.begin(), entries.end(), wanted) != entries.end();
}

TEST(Startup, ALaterProcessCountsOneAndKeepsTheFirstProcessTable)
{
    Installation first("FIRST");
    first.WriteConfig({"[DefaultSettings]", "Option=32", "[FIRSTTYPE]", "Location=BASE"});
    Installation later("LATER");
    later.WriteConfig({"[DefaultSettings]", "Option=48", "DebugLevel=3", "[LATERTYPE]", "Location=USER"});

    HeldProbe holder(first.Environment());
    ProbeReport second = RunProbe(later.Environment());
    EXPECT_EQ("1", second.Value("COUNT"));
    // The table is the first process's; the general settings are the later process's own.
    EXPECT_TRUE(Contains(second.Types(), "FIRSTTYPE 2 1"));
    EXPECT_FALSE(Contains(second.Types(), "LATERTYPE 6 1"));
    EXPECT_EQ("48", second.Value("OPTION"));
    EXPECT_EQ("3", second.Value("DEBUG"));
    EXPECT_EQ(later.Base(), second.Value("BASE"));

    ProbeReport firstReport = holder.Release();
    EXPECT_EQ("0", firstReport.Value("COUNT"));
    EXPECT_EQ("32", firstReport.Value("OPTION"));
    EXPECT_EQ((std::vector<std::string>{"DFT 1 1", "XWS 3 1", "FIRSTTYPE 2 1"}), firstReport.Types());
    EXPECT_EQ("UNLOADED", firstReport.lines.back());

    // With every process gone the next one is a first process with a zeroed block.
    ProbeReport fresh = RunProbe(later.Environment());
    EXPECT_EQ("0", fresh.Value("COUNT"));
    EXPECT_EQ((std::vector<std::string>{"DFT 1 1", "XWS 3 1", "LATERTYPE 6 1"}), fresh.Types());
}

TEST(Startup, TheProcessRegistersItselfAndItsLoadingThread)
{
    Installation installation("REGISTER");
    installation.WriteConfig({"[DefaultSettings]", "Option=32"});
    ProbeReport report = RunProbe(installation.Environment());
    EXPECT_EQ("2 " + installation.Base() + "||", report.Value("SESSION"));
    EXPECT_NE("", report.Value("THREAD"));
    EXPECT_EQ(0, report.exitCode);
}

TEST(Startup, TheBasePathEndsBehindTheLastDataDirectory)
{
    Installation installation("BASEPATH");
    installation.WriteConfig({"[DefaultSettings]", "Option=32"});
    struct Case {
        const char* workstation;
        const char* base;
    } cases[] = {
        {"C:\\APP\\DAT\\WS01", "C:\\APP\\"},
        {"C:\\APP\\WS01", "C:\\APP\\WS01\\"},
        {"C:\\A\\DAT\\B\\DAT\\C", "C:\\A\\DAT\\B\\"},
    };
    for (const Case& example : cases) {
        std::vector<EnvVar> environment = installation.Environment();
        environment.push_back({"TARNEL31_WKSTA", example.workstation});
        environment.push_back({"TARNEL31_WKSTATMP", "C:\\TMP"});
        ProbeReport report = RunProbe(environment);
        EXPECT_EQ(example.base, report.Value("BASE")) << example.workstation;
        EXPECT_EQ(example.base, report.Value("DATA")) << example.workstation;
        EXPECT_EQ(std::string(example.workstation) + "\\", report.Value("WKSTA"));
        EXPECT_EQ("C:\\TMP\\", report.Value("WKSTATMP"));
        EXPECT_EQ("", report.Value("READONLY"));
    }
}

TEST(Startup, TheDirectoryOptionIsCurrentBeforeThePathsAreUsed)
{
    // A relative workstation directory gives a relative base path, so the configuration
    // file DAT\CKOVRA.INI is found below the directory that //CKOVRADIR: made current.
    Installation installation("DIROPTION");
    const std::string work = installation.Root() + "WORK";
    WriteFileBytes(work + "\\REL\\DAT\\CKOVRA.INI", "[DefaultSettings]\r\nOption=48\r\n");
    std::vector<EnvVar> environment = {{"TARNEL31_WKSTA", "REL\\DAT\\WS1"},
                                       {"KARVELO-CKOVRAHOME", "", true}};
    ProbeReport report = RunProbe(environment, "//CKOVRADIR:" + work + "/X");
    EXPECT_EQ(work, report.Value("CWD"));
    EXPECT_EQ("REL\\", report.Value("BASE"));
    EXPECT_EQ("48", report.Value("OPTION"));
    EXPECT_TRUE(report.Boxes().empty());
}

TEST(Startup, OverlongAnswersAndOptionsAreCutToTheBuffers)
{
    Installation installation("OVERLONG");
    installation.WriteConfig({"[DefaultSettings]", "Option=32"});
    const std::string longDirectory = "C:\\" + std::string(400, 'W');
    std::vector<EnvVar> environment = installation.Environment();
    environment.push_back({"TARNEL31_WKSTA", longDirectory});
    environment.push_back({"TARNEL31_WKSTATMP", longDirectory + "\\TMP"});
    ProbeReport report = RunProbe(environment, "//CKOVRADIR:C:\\" + std::string(400, 'D'));
    EXPECT_EQ("1", report.Value("LOAD"));
    EXPECT_EQ(longDirectory.substr(0, 259), report.Value("BASE"));
    EXPECT_EQ(longDirectory.substr(0, 259), report.Value("WKSTA"));
    EXPECT_EQ(259u, report.Value("WKSTATMP").size());
    EXPECT_EQ(0, report.exitCode);
}

TEST(Startup, ARefusedLoadLeavesTheCounterWhereItWas)
{
    Installation wrong("WRONG");
    wrong.WriteConfig({"[ARC]", "Location=ARCHIVE"});
    ProbeReport refused = RunProbe(wrong.Environment());
    EXPECT_EQ((std::vector<std::string>{"Kovra|CKOVRA.INI wrong, (ARC,ARCHIVE,,)"}), refused.Boxes());
    EXPECT_EQ("0", refused.Value("LOAD").substr(0, 1));
    EXPECT_EQ(3, refused.exitCode);

    Installation right("RIGHT");
    right.WriteConfig({"[DefaultSettings]", "Option=32", "[GOOD]", "Location=basedata"});
    ProbeReport next = RunProbe(right.Environment());
    EXPECT_EQ("0", next.Value("COUNT"));
    EXPECT_TRUE(Contains(next.Types(), "GOOD 9 1"));
}

TEST(Startup, WithoutTheSharedBlockAProcessWorksWithATableOfItsOwn)
{
    // Objects of another kind under both names keep the block from being created.
    HANDLE global = ::CreateEventA(nullptr, TRUE, FALSE, "Global\\CKovraApp");
    HANDLE local = ::CreateEventA(nullptr, TRUE, FALSE, "CKovraApp");
    Installation installation("NOBLOCK");
    installation.WriteConfig({"[DefaultSettings]", "Option=32", "[SOME]", "Location=BASE"});
    ProbeReport report = RunProbe(installation.Environment());
    EXPECT_EQ("1", report.Value("LOAD"));
    EXPECT_EQ("0", report.Value("MAPPED"));
    EXPECT_EQ((std::vector<std::string>{"DFT 1 1", "XWS 3 1", "SOME 2 1"}), report.Types());
    EXPECT_EQ("32", report.Value("OPTION"));
    EXPECT_TRUE(report.Boxes().empty());

    ChildProcess child(Quote(ProgramPath("kovra_child.exe")) + " resolve SOME F.TXT", installation.Environment());
    EXPECT_EQ(0, child.Wait());
    EXPECT_EQ("REAL " + installation.Base() + "F.TXT", SplitLines(child.Output()).at(0));
    ::CloseHandle(global);
    ::CloseHandle(local);
}

} // namespace
