// Loading the library into processes, each a probe of its own: the machine-wide counter
// and shared block, the paths derived at load, and the configuration CKOVRA.INI.
#include <gtest/gtest.h>

#include "Installation.h"

using namespace kovratest;
using namespace std::string_literals;  // "...\0..."s keeps its NULs

namespace {

// The same directory, written with "\." steps and backslashes to `length` characters.
std::string Padded(std::string directory, size_t length)
{
    while (directory.size() + 2 <= length)
        directory += "\\.";
    directory.resize(length, '\\');
    return directory;
}

TEST(Startup, LaterProcessesShareTheFirstOnesBlockUntilAllHaveUnloaded)
{
    // A load refused after the stop box leaves the counter where it was.
    Installation wrong("WRONG");
    wrong.WriteConfig({"[ARC]", "Location=ARCHIVE"});
    EXPECT_EQ(3, RunProbe(wrong.Environment()).exitCode);

    Installation first("FIRST"), later("LATER");
    first.WriteConfig({"[DefaultSettings]", "Option=32", "[FIRSTTYPE]", "Location=BASE", "[DFT]", "Location=BASE"});
    later.WriteConfig({"[DefaultSettings]", "Option=48", "[LATERTYPE]", "Location=USER"});
    NamedEvent release;
    ChildProcess holder(CommandLine("kovra_probe.exe", "--hold " + release.Name()), first.Environment());
    ASSERT_EQ("COUNT 0", holder.WaitForLine("COUNT"));
    ASSERT_EQ("READY", holder.WaitForLine("READY"));
    // A later process reads its own settings but keeps the first one's table of types, where
    // a section may redefine a built-in type in its place.
    ProgramRun second = RunProbe(later.Environment());
    EXPECT_EQ("1", second.Value("COUNT"));
    EXPECT_EQ((Lines{"DFT 2 1", "XWS 3 1", "FIRSTTYPE 2 1"}), second.Values("TYPE"));
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
    // Answers that don't fit are no paths, not the ones their first 259 characters name; the
    // load goes on.
    ProgramRun overlong = probe("C:\\" + std::string(400, 'W'), "//CKOVRADIR:C:\\" + std::string(400, 'D'));
    EXPECT_EQ(0, overlong.exitCode);
    EXPECT_EQ((Lines{""}), overlong.Values("BASE"));
    EXPECT_EQ((Lines{""}), overlong.Values("WKSTA"));

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
    char current[MAX_PATH] = "";
    ::GetCurrentDirectoryA(sizeof current, current);
    for (const std::string& directory : {installation.Root() + "NOWHERE", Padded(work, 259) + "MORE"})
        EXPECT_EQ(current, probe("C:\\APP\\DAT\\WS01", "//CKOVRADIR:" + directory).Value("CWD")) << directory;
}

TEST(Startup, ABlockOfAnotherProgramGivesWayToTheSessionsOwnOrToATableOfItsOwn)
{
    Installation installation("NOBLOCK");
    installation.WriteConfig({"[DefaultSettings]", "Option=32", "[SOME]", "Location=BASE"});
    auto squat = [](const char* name) {  // a block smaller than the table under the library's name
        return ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, name);
    };
    // Another program's block under the global name: the session's own serves, and names resolve.
    HANDLE global = squat("Global\\CKovraApp");
    ProgramRun probe = RunProbe(installation.Environment());
    EXPECT_EQ("1", probe.Value("MAPPED"));
    EXPECT_EQ((Lines{"DFT 1 1", "XWS 3 1", "SOME 2 1"}), probe.Values("TYPE"));
    EXPECT_EQ(Lines{installation.Base() + "A.TXT"},
              RunProgram("kovra.exe", installation.Environment(), "resolve SOME A.TXT").lines);
    // Under the session's name too: a table of its own, and a trace that says why.
    HANDLE local = squat("CKovraApp");
    MonitorProgram monitor;
    probe = RunProbe(installation.Environment());
    EXPECT_EQ("0", probe.Value("MAPPED"));
    EXPECT_EQ((Lines{"DFT 1 1", "XWS 3 1", "SOME 2 1"}), probe.Values("TYPE"));
    ASSERT_TRUE(monitor.WaitForLines(1));
    EXPECT_EQ(Lines{"CKovra::CreateSharedMemory RC=1462"}, monitor.Texts());
    ::CloseHandle(global);
    ::CloseHandle(local);
}

TEST(Config, TheDefaultSettingsAndTheirValues)
{
    Installation installation("SETTINGSCONF");
    const std::string file = installation.ConfigFile();
    ProgramRun missing = RunProbe(installation.Environment());
    EXPECT_EQ(Lines{"Kovra|Kovra : KOVRA_Exception(Type(DFT), FileName(" + file + "), RealFileName(" + file +
                    "), Cause(2), (Msg(" + file + " was not found.))"},
              missing.boxes);
    // KARVELO-CKOVRAHOME leaving no room for CKOVRA.INI names no file, not the one that the
    // first 259 characters of the name would name.
    installation.WriteConfig({"[DefaultSettings]", "Option=48"});
    std::vector<EnvVar> overlong = installation.Environment();
    overlong.back().value = Padded(installation.ConfigDirectory(), 248) + "\\CKOVRA.INI\\MORE";
    ProgramRun unnamed = RunProbe(overlong);
    EXPECT_EQ(Lines{"Kovra|Kovra : KOVRA_ERROR(Type(DFT), FileName(%KARVELO-CKOVRAHOME%\\CKOVRA.INI), "
                    "RealFileName(), Error(-2))"},
              unnamed.boxes);
    installation.WriteConfig({});
    ProgramRun empty = RunProbe(installation.Environment());
    EXPECT_TRUE(empty.boxes.empty());
    for (const ProgramRun& probe : {missing, unnamed, empty}) {
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

// A CKOVRA.INI and what a first process makes of it: the types it adds to the built-in DFT
// and XWS, or the "(...)" of the stop box that refuses the load.
struct ConfigCase {
    const char* what;
    std::string file;
    Lines types;
    std::string wrong;
};

std::string Numbered(char letter, int number)  // "C0042"
{
    const std::string digits = std::to_string(number);
    return letter + std::string(4 - digits.size(), '0') + digits;
}

// Sections C0000 to C<depth-1>, each with an empty Location and the next as its base; the
// last has Location=USER and the base `last` (none when empty).
std::string Chain(int depth, const std::string& last)
{
    Lines lines;
    for (int index = 0; index + 1 < depth; ++index)
        lines.insert(lines.end(), {"[" + Numbered('C', index) + "]", "Location=",
                                   "BaseType=" + Numbered('C', index + 1)});
    lines.insert(lines.end(), {"[" + Numbered('C', depth - 1) + "]", "Location=USER"});
    if (!last.empty())
        lines.push_back("BaseType=" + last);
    return IniText(lines);
}

// Sections T0000 to T<count-1> with Location=BASE, the last one with `lastLocation`.
std::string ManySections(int count, const std::string& lastLocation)
{
    Lines lines;
    for (int index = 0; index < count; ++index)
        lines.insert(lines.end(),
                     {"[" + Numbered('T', index) + "]", "Location=" + (index + 1 < count ? "BASE" : lastLocation)});
    return IniText(lines);
}

// 1487 generated names, each with `row`: with the built-in two the table is full.
Lines FullTable(char letter, const char* row)
{
    Lines types;
    for (int index = 0; index < 1487; ++index)
        types.push_back(Numbered(letter, index) + row);
    return types;
}

TEST(Config, BaseTypeChainsLongLinesBinaryBytesBrokenHeadersAndOverfullTables)
{
    // A line longer than 1024 characters comes in pieces: its first can't name a type, but a
    // piece that starts with '[' can.
    const std::string longLines = IniText({"[A]", "Location=BASE", "[" + std::string(1 << 20, 'y') + "]",
                                           "Location=ARCHIVE", std::string(1024, 'x') + "[Z]" + std::string(1 << 20, 'x'),
                                           "[B]", "Location=USER"});
    // A NUL ends a line's text; ^Z is a blank of the profile format; a lone CR ends a line
    // for the profile service but not for the section headers.
    const std::string binary = "[N\0]\r\nLocation=USER\r\n[\xFF]\r\nLocation=USER\x1A\r\n[C]\rLocation=WKSTA\n"s;
    const ConfigCase cases[] = {
        // [ABC] reads the keys of [abc], as the profile service finds sections.
        {"chains and names", IniText({"[defaultSETTINGS]", "Option=32", "[A]", "BaseType=B", "[B]", "Location=BASE",
                                      "BaseType=C", "[C]", "Location=USER", "[abc]", "Location=BASE", "[ABC]",
                                      "Location=USER"}),
         {"A 2 1", "B 2 1", "C 6 1", "abc 2 1", "ABC 2 1"}, ""},
        // A base without the key gives DEFAULT, whatever its own bases say; a key present
        // and empty asks the next base; a base naming no section gives DEFAULT.
        {"missing and empty keys", IniText({"[B]", "BaseType=C", "[C]", "Location=USER", "Encryption=DEFAULT", "[T]",
                                            "BaseType=b", "[E]", "Location=", "BaseType=F", "[F]", "Location=",
                                            "Encryption=", "BaseType=C", "[N]", "Encryption=", "BaseType=NOPE"}),
         {"B 6 1", "C 6 1", "T 1 1", "E 6 1", "F 6 1", "N 1 1"}, ""},
        // Blanks and quotes around values, the case of keys, the first of repeated keys
        // and sections, a key without '=' and a comment, as the profile format has them.
        {"profile format", IniText({"[Q]", "  BaseType = \" r \"  ", "[R]", "location = 'BaseData'", "Location=USER",
                                    "[S]", ";Location=USER", "Location", "Location=USER", "[r]", "Location=USER"}),
         {"Q 9 1", "R 9 1", "S 1 1", "r 9 1"}, ""},
        // Words are read into 64 characters: a base named by 70 finds the section of its first 64.
        {"long base names", IniText({"[T]", "BaseType=" + std::string(70, 'L'), "[" + std::string(64, 'L') + "]",
                                     "Location=USER", "[" + std::string(70, 'L') + "]", "Location=BASE"}),
         {"T 6 1"}, ""},
        {"two sections naming each other", IniText({"[L1]", "BaseType=L2", "[L2]", "BaseType=L1"}), {},
         "(L1,DEFAULT,DEFAULT,L1)"},
        {"a chain running into a ring", IniText({"[T]", "BaseType=R1", "[R1]", "Location=BASE", "BaseType=R2", "[R2]",
                                                 "BaseType=r1"}), {}, "(T,BASE,DEFAULT,r1)"},
        {"a section naming itself", IniText({"[S]", "Location=USER", "BaseType=s"}), {}, "(S,USER,,s)"},
        // The type's own section gives it nothing as a base when its chain comes back to it.
        {"back to the type", IniText({"[R1]", "BaseType=R2", "[R2]", "Location=", "BaseType=R1"}), {},
         "(R1,,DEFAULT,R1)"},
        // Every section of a chain 1500 deep asks all of the chain behind it.
        {"1500 deep", Chain(1500, ""), FullTable('C', " 6 1"), ""},
        {"1500 deep ring", Chain(1500, "c0000"), {}, "(C0000,USER,DEFAULT,c0000)"},
        {"1 MB lines", longLines, {"A 2 1", "Z 1 1", "B 6 1"}, ""},
        {"binary bytes", binary, {"\xFF 6 1", "C 7 1"}, ""},
        {"a NUL in a word", "[A]\r\nLocation=BA\0SE\r\n"s, {}, "(A,BA,,)"},
        {"a header without ']'", IniText({"[A", "Location=ARCHIVE", "[B]", "Location=USER"}), {"B 6 1"}, ""},
        // The table holds 1489 types: later sections add none, but their words are checked.
        {"2000 sections", ManySections(2000, "BASE"), FullTable('T', " 2 1"), ""},
        {"2000 sections, the last wrong", ManySections(2000, "ARCHIVE"), {}, "(T1999,ARCHIVE,,)"},
    };
    Installation installation("CONFIGS");
    for (const ConfigCase& config : cases) {
        WriteFileBytes(installation.ConfigFile(), config.file);
        ProgramRun probe = RunProbe(installation.Environment());
        Lines types{"DFT 1 1", "XWS 3 1"};
        types.insert(types.end(), config.types.begin(), config.types.end());
        EXPECT_EQ(config.wrong.empty() ? 0 : 3, probe.exitCode) << config.what;
        EXPECT_EQ(config.wrong.empty() ? Lines{} : Lines{"Kovra|CKOVRA.INI wrong, " + config.wrong}, probe.boxes)
            << config.what;
        EXPECT_EQ(config.wrong.empty() ? types : Lines{}, probe.Values("TYPE")) << config.what;
    }
}

} // namespace
