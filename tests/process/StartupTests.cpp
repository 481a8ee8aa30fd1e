// Loading the library into processes, each a probe of its own: the machine-wide counter
// and shared block, the paths derived at load, and the configuration CKOVRA.INI.
#include <gtest/gtest.h>

#include "Installation.h"

using namespace kovratest;

namespace {

TEST(Startup, LaterProcessesShareTheFirstOnesBlockUntilAllHaveUnloaded)
{
    // A load refused after the stop box leaves the counter where it was.
    Installation wrong("WRONG");
    wrong.WriteConfig({"[ARC]", "Location=ARCHIVE"});
    ProgramRun refused = RunProbe(wrong.Environment());
    EXPECT_EQ(Lines{"Kovra|CKOVRA.INI wrong, (ARC,ARCHIVE,,)"}, refused.boxes);
    EXPECT_EQ(3, refused.exitCode);

    Installation first("FIRST"), later("LATER");
    first.WriteConfig({"[DefaultSettings]", "Option=32", "[FIRSTTYPE]", "Location=BASE"});
    later.WriteConfig({"[DefaultSettings]", "Option=48", "[LATERTYPE]", "Location=USER"});
    NamedEvent release;
    ChildProcess holder(Quote(ProgramPath("kovra_probe.exe")) + " --hold " + release.Name(), first.Environment());
    ASSERT_EQ("COUNT 0", holder.WaitForLine("COUNT"));
    ASSERT_EQ("READY", holder.WaitForLine("READY"));
    // A later process reads its own settings but keeps the first one's table of types.
    ProgramRun second = RunProbe(later.Environment());
    EXPECT_EQ("1", second.Value("COUNT"));
    EXPECT_EQ((Lines{"DFT 1 1", "XWS 3 1", "FIRSTTYPE 2 1"}), second.Values("TYPE"));
    EXPECT_EQ("48", second.Value("OPTION"));
    release.Set();
    EXPECT_EQ(0, holder.Wait());

    // With every process gone the next one is a first process with a zeroed block.
    ProgramRun fresh = RunProbe(later.Environment());
    EXPECT_EQ("0", fresh.Value("COUNT"));
    EXPECT_EQ((Lines{"DFT 1 1", "XWS 3 1", "LATERTYPE 6 1"}), fresh.Values("TYPE"));
    EXPECT_EQ(Lines{"2 " + later.Base() + "||"}, fresh.Values("SESSION"));
}

TEST(Startup, ThePathsComeFromTheWorkstationDirectoryAndTheDirectoryOption)
{
    Installation installation("PATHS");
    installation.WriteConfig({"[DefaultSettings]", "Option=32"});
    auto probe = [&](const std::string& workstation, const std::string& arguments = "") {
        std::vector<EnvVar> environment = installation.Environment();
        environment.push_back({"TARNEL31_WKSTA", workstation});
        return RunProbe(environment, arguments);
    };
    // The base path ends behind the last DAT directory, or is the workstation directory.
    EXPECT_EQ("C:\\APP\\", probe("C:\\APP\\DAT\\WS01").Value("BASE"));
    EXPECT_EQ("C:\\APP\\WS01\\", probe("C:\\APP\\WS01").Value("BASE"));
    EXPECT_EQ("C:\\A\\DAT\\B\\", probe("C:\\A\\DAT\\B\\DAT\\C").Value("BASE"));
    // Answers that don't fit are cut to 259 characters; the load goes on.
    const std::string longDirectory = "C:\\" + std::string(400, 'W');
    ProgramRun overlong = probe(longDirectory, "//CKOVRADIR:C:\\" + std::string(400, 'D'));
    EXPECT_EQ(longDirectory.substr(0, 259), overlong.Value("BASE"));
    EXPECT_EQ(longDirectory.substr(0, 259), overlong.Value("WKSTA"));

    // //CKOVRADIR: makes its directory current before the paths are used: a relative
    // workstation directory finds DAT\CKOVRA.INI below it.
    const std::string work = installation.Root() + "WORK";
    WriteFileBytes(work + "\\REL\\DAT\\CKOVRA.INI", "[DefaultSettings]\r\nOption=48\r\n");
    ProgramRun relative = RunProbe({{"TARNEL31_WKSTA", "REL\\DAT\\WS1"}, {"KARVELO-CKOVRAHOME", "", true}},
                                   "//CKOVRADIR:" + work + "/X");
    EXPECT_EQ(work, relative.Value("CWD"));
    EXPECT_EQ("REL\\", relative.Value("BASE"));
    EXPECT_EQ("48", relative.Value("OPTION"));

    // A directory that doesn't exist, or a value longer than 259 characters whose first 259
    // name the directory WORK, leave the current directory (the probe inherits this one's).
    std::string detour = work;
    while (detour.size() + 2 <= 259)
        detour += "\\.";
    detour.resize(259, '\\');
    char current[MAX_PATH] = "";
    ::GetCurrentDirectoryA(sizeof current, current);
    for (const std::string& directory : {installation.Root() + "NOWHERE", detour + "MORE"})
        EXPECT_EQ(current, probe("C:\\APP\\DAT\\WS01", "//CKOVRADIR:" + directory).Value("CWD")) << directory;
}

TEST(Startup, WithoutTheSharedBlockAProcessWorksWithATableOfItsOwn)
{
    // Objects of another kind under both names keep the block from being created.
    HANDLE global = ::CreateEventA(nullptr, TRUE, FALSE, "Global\\CKovraApp");
    HANDLE local = ::CreateEventA(nullptr, TRUE, FALSE, "CKovraApp");
    Installation installation("NOBLOCK");
    installation.WriteConfig({"[DefaultSettings]", "Option=32", "[SOME]", "Location=BASE"});
    ProgramRun probe = RunProbe(installation.Environment());
    EXPECT_EQ("0", probe.Value("MAPPED"));
    EXPECT_EQ((Lines{"DFT 1 1", "XWS 3 1", "SOME 2 1"}), probe.Values("TYPE"));
    ::CloseHandle(global);
    ::CloseHandle(local);
}

TEST(Config, TheDefaultSettingsAndTheirValues)
{
    Installation installation("SETTINGSCONF");
    const std::string file = installation.ConfigDirectory() + "\\CKOVRA.INI";
    ProgramRun missing = RunProbe(installation.Environment());
    EXPECT_EQ(Lines{"Kovra|Kovra : KOVRA_Exception(Type(DFT), FileName(" + file + "), RealFileName(" + file +
                    "), Cause(2), (Msg(" + file + " was not found.))"},
              missing.boxes);
    installation.WriteConfig({});
    ProgramRun empty = RunProbe(installation.Environment());
    EXPECT_TRUE(empty.boxes.empty());
    for (const ProgramRun& probe : {missing, empty}) {
        EXPECT_EQ((Lines{"DFT 1 1", "XWS 3 1"}), probe.Values("TYPE"));
        EXPECT_EQ("0", probe.Value("OPTION"));
        EXPECT_EQ("1", probe.Value("REPEAT"));
        EXPECT_EQ(installation.Base(), probe.Value("DATA"));
    }
    const std::pair<std::string, std::string> options[] = {{"abc", "0"}, {"48", "48"}, {"0x10", "0"}};
    for (const auto& option : options) {
        installation.WriteConfig({"[DefaultSettings]", "Option=" + option.first});
        EXPECT_EQ(option.second, RunProbe(installation.Environment()).Value("OPTION")) << option.first;
    }
    // BaseDataPath gets the base path's last directory as it stands when the line is read.
    installation.WriteConfig({"[DefaultSettings]", "BaseDataPath=" + installation.Root() + "DATA"});
    EXPECT_EQ(installation.Root() + "DATA\\APP\\", RunProbe(installation.Environment()).Value("DATA"));
    installation.WriteConfig({"[DefaultSettings]", "BasePath=C:\\OTHER\\WS\\", "BaseDataPath=D:\\D\\"});
    EXPECT_EQ("D:\\D\\WS\\", RunProbe(installation.Environment()).Value("DATA"));
}

TEST(Config, TypeSectionsAndTheirBaseTypeChains)
{
    Installation installation("TYPESCONF");
    installation.WriteConfig({"[defaultSETTINGS]", "Option=32", "[A]", "BaseType=B", "[B]", "Location=BASE",
                              "BaseType=C", "[C]", "Location=USER", "[abc]", "Location=BASE", "[ABC]", "Location=USER",
                              "[DFT]", "Location=BASE"});
    ProgramRun probe = RunProbe(installation.Environment());
    // [ABC] reads the keys of [abc], as the profile service finds sections.
    EXPECT_EQ((Lines{"DFT 2 1", "XWS 3 1", "A 2 1", "B 2 1", "C 6 1", "abc 2 1", "ABC 2 1"}), probe.Values("TYPE"));
    EXPECT_EQ("32", probe.Value("OPTION"));
    // A chain that loops stops the load after the stop box.
    installation.WriteConfig({"[L1]", "BaseType=L2", "[L2]", "BaseType=L1"});
    ProgramRun loop = RunProbe(installation.Environment());
    EXPECT_EQ(Lines{"Kovra|CKOVRA.INI wrong, (L1,DEFAULT,DEFAULT,L1)"}, loop.boxes);
    EXPECT_EQ(3, loop.exitCode);
}

} // namespace
