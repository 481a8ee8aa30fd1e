// Loading the library into processes, each a probe of its own: the machine-wide counter
// and shared block, the paths derived at load, and the settings of CKOVRA.INI.
#include <gtest/gtest.h>

#include "Installation.h"

using namespace kovratest;

namespace {

// The same directory, written with "\." steps and backslashes to `length` characters.
std::string Padded(std::string directory, size_t length)
{
    while (directory.size() + 2 <= length)
        directory += "\\.";
    directory.resize(length, '\\');
    return directory;
}

TEST(Startup, LaterProcessesShareTheFirstOnesBlockUntilAllHaveUnloadedAndAnotherProgramsBlockGivesWay)
{
    Installation first("FIRST"), later("LATER");
    first.WriteConfig({"[DefaultSettings]", "Option=32", "[FIRST]", "Location=BASE", "[DFT]", "Location=BASE"});
    later.WriteConfig({"[DefaultSettings]", "Option=48", "[LATERTYPE]", "Location=USER"});
    NamedEvent release;
    ChildProcess holder(CommandLine("kovra_probe.exe", "--hold " + release.Name()), first.Environment());
    ASSERT_EQ("READY", holder.WaitForLine("READY"));
    // A later process reads its own settings but keeps the first one's table of types, where
    // a section may redefine a built-in type in its place.
    ProgramRun second = later.Probe();
    EXPECT_EQ("1", second.Value("COUNT"));
    EXPECT_EQ((Lines{"DFT 2 1", "XWS 3 1", "FIRST 2 1"}), second.Values("TYPE"));
    EXPECT_EQ("48", second.Value("OPTION"));
    release.Set();
    EXPECT_EQ(0, holder.Wait());
    // With every process gone the next one is a first process with a zeroed block.
    ProgramRun fresh = later.Probe();
    EXPECT_EQ("0", fresh.Value("COUNT"));
    EXPECT_EQ((Lines{"DFT 1 1", "XWS 3 1", "LATERTYPE 6 1"}), fresh.Values("TYPE"));

    // Another program's block, smaller than the table, under the global name: the session's own
    // serves, and names resolve.
    HANDLE global = ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, "Global\\CKovraApp");
    ProgramRun probe = first.Probe();
    EXPECT_EQ("1", probe.Value("MAPPED"));
    EXPECT_EQ((Lines{"DFT 2 1", "XWS 3 1", "FIRST 2 1"}), probe.Values("TYPE"));
    EXPECT_EQ(Lines{first.Base() + "A.TXT"}, RunProgram("kovra.exe", first.Environment(), "resolve FIRST A.TXT").lines);
    // Under the session's name too: a table of its own, and a trace that says why.
    HANDLE local = ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, "CKovraApp");
    MonitorProgram monitor;
    probe = first.Probe();
    EXPECT_EQ("0", probe.Value("MAPPED"));
    EXPECT_EQ((Lines{"DFT 2 1", "XWS 3 1", "FIRST 2 1"}), probe.Values("TYPE"));
    ASSERT_TRUE(monitor.WaitForLines(1));
    EXPECT_EQ(Lines{"CKovra::CreateSharedMemory RC=1462"}, monitor.Texts());
    ::CloseHandle(global);
    ::CloseHandle(local);
}

TEST(Startup, TheSettingsAndThePathsComeFromCKOVRAINITheWorkstationDirectoryAndTheDirectoryOption)
{
    Installation installation("SETTINGSCONF");
    const std::string file = installation.ConfigFile();
    ProgramRun missing = installation.Probe();
    EXPECT_EQ(Lines{"Kovra|Kovra : KOVRA_Exception(Type(DFT), FileName(" + file + "), RealFileName(" + file +
                    "), Cause(2), (Msg(" + file + " was not found.))"}, missing.boxes);
    // KARVELO-CKOVRAHOME leaving no room for CKOVRA.INI names no file, not the one that the
    // first 259 characters of the name would name.
    installation.WriteConfig({"[DefaultSettings]", "Option=48"});
    ProgramRun unnamed = installation.Probe("", {{"KARVELO-CKOVRAHOME", Padded(installation.Root() + "CONF", 248) +
                                                                             "\\CKOVRA.INI\\MORE"}});
    EXPECT_EQ(Lines{"Kovra|Kovra : KOVRA_ERROR(Type(DFT), FileName(%KARVELO-CKOVRAHOME%\\CKOVRA.INI), "
                    "RealFileName(), Error(-2))"}, unnamed.boxes);
    installation.WriteConfig({});
    ProgramRun empty = installation.Probe();
    EXPECT_TRUE(empty.boxes.empty());
    for (const ProgramRun& probe : {missing, unnamed, empty}) {
        EXPECT_EQ((Lines{"DFT 1 1", "XWS 3 1"}), probe.Values("TYPE"));
        EXPECT_EQ("0", probe.Value("OPTION"));
        EXPECT_EQ(installation.Base(), probe.Value("DATA"));
    }
    // With option bit 32 clear a failure read without its cause shows its box, one read with its cause none, and
    // a lookup without any session shows its own; bit 32 holds back every box.
    ProgramRun shown = RunProgram("kovra_child.exe", installation.Environment(), "orphan");
    installation.WriteConfig({"[DefaultSettings]", "Option=32"});
    ProgramRun held = RunProgram("kovra_child.exe", installation.Environment(), "orphan");
    EXPECT_EQ((Lines{"Kovra|Kovra : KOVRA_ERROR(Type(NOPE), FileName(F.TXT), RealFileName(), Error(-1))",
                     "Kovra|CKovra::GetInfo ThreadInfo not found !!!", "Kovra|CKovra::GetInfo ThreadInfo not found !!!",
                     "Kovra|CKovra::SetInfo ThreadInfo not found !!!"}), shown.boxes);
    EXPECT_TRUE(held.boxes.empty());
    for (const ProgramRun& run : {shown, held})
        EXPECT_EQ(Lines{"1 2 " + installation.Base() + "F.TXT 1"}, run.lines);

    // The paths derived at load.
    auto probe = [&](const std::string& workstation, const std::string& arguments = "") {
        return installation.Probe(arguments, {{"TARNEL31_WKSTA", workstation}});
    };
    // The base path ends behind the last DAT directory, or is the workstation directory.
    EXPECT_EQ("C:\\APP\\", probe("C:\\APP\\DAT\\WS01").Value("BASE"));
    EXPECT_EQ("C:\\APP\\WS01\\", probe("C:\\APP\\WS01").Value("BASE"));
    EXPECT_EQ("C:\\A\\DAT\\B\\", probe("C:\\A\\DAT\\B\\DAT\\C").Value("BASE"));
    // Answers that don't fit are no paths, not the ones their first 259 characters name; the
    // load goes on (a failed one would print no paths at all).
    ProgramRun overlong = probe("C:\\" + std::string(400, 'W'), "//CKOVRADIR:C:\\" + std::string(400, 'D'));
    EXPECT_EQ((Lines{""}), overlong.Values("BASE"));
    EXPECT_EQ((Lines{""}), overlong.Values("WKSTA"));

    // //CKOVRADIR: makes its directory current before the paths are used: a relative
    // workstation directory finds DAT\CKOVRA.INI below it.
    const std::string work = installation.Root() + "WORK";
    WriteFileBytes(work + "\\REL\\DAT\\CKOVRA.INI", IniText({"[DefaultSettings]", "Option=48"}));
    ProgramRun relative = installation.Probe("//CKOVRADIR:" + work + "/X",
                                             {{"TARNEL31_WKSTA", "REL\\DAT\\WS1"}, {"KARVELO-CKOVRAHOME", ""}});
    EXPECT_EQ(work, relative.Value("CWD"));
    EXPECT_EQ("REL\\", relative.Value("BASE"));
    EXPECT_EQ("48", relative.Value("OPTION"));

    // A directory that doesn't exist, or a value longer than 259 characters whose first 259
    // name the directory WORK, leave the current directory (the probe inherits this one's).
    const std::string current = std::filesystem::current_path().string();
    for (const std::string& directory : {installation.Root() + "NOWHERE", Padded(work, 259) + "MORE"})
        EXPECT_EQ(current, probe("C:\\APP\\DAT\\WS01", "//CKOVRADIR:" + directory).Value("CWD")) << directory;

    // Numbers are decimal: 0x10 reads as 0. BaseDataPath gets the base path's last directory as it stands when
    // the line is read.
    installation.WriteConfig({"[DefaultSettings]", "Option=0x10", "BaseDataPath=" + installation.Root() + "DATA"});
    ProgramRun data = installation.Probe();
    EXPECT_EQ("0", data.Value("OPTION"));
    EXPECT_EQ(installation.Root() + "DATA\\APP\\", data.Value("DATA"));
    installation.WriteConfig({"[DefaultSettings]", "BasePath=C:\\OTHER\\WS\\", "BaseDataPath=D:\\D\\"});
    EXPECT_EQ("D:\\D\\WS\\", installation.Probe().Value("DATA"));
}

} // namespace
