// The command-line tool kovra.exe, with a prepared installation and without one: the output
// and exit code of every command, each run a process of its own.
#include <gtest/gtest.h>

#include <algorithm>

#include "Installation.h"

using namespace kovratest;

namespace {

struct Command {
    std::string arguments;
    int exitCode;
    Lines output;  // its lines
};

// Runs kovra.exe with each command in turn: its exit code, no message box, and its output
// lines, or with `leading` only as many of its first lines as the command gives.
void ExpectRuns(const std::vector<EnvVar>& environment, const std::vector<Command>& commands, bool leading = false)
{
    for (const Command& command : commands) {
        const ProgramRun run = RunProgram("kovra.exe", environment, command.arguments);
        EXPECT_EQ(command.exitCode, run.exitCode) << command.arguments;
        EXPECT_EQ(Lines{}, run.boxes) << command.arguments;
        const size_t compared = leading ? std::min(command.output.size(), run.lines.size()) : run.lines.size();
        EXPECT_EQ(command.output, Lines(run.lines.begin(), run.lines.begin() + compared)) << command.arguments;
    }
}

// An installation with types for the data path, the user's and the workstation's
// directories, and one that takes its location by BaseType.
struct Site : Installation {
    explicit Site(const std::string& name) : Installation(name)
    {
        WriteConfig({"[DefaultSettings]", "Option=32", "DebugLevel=3", "[T_DATA]", "Location=BASEDATA", "[T_USER]",
                     "Location=USER", "[T_WKSTA]", "Location=WKSTA", "[REPORTS]", "BaseType=T_DATA", "[T\tTAB]"});
    }
    std::string Workstation() const { return Base() + "DAT\\WS1\\"; }
    ProgramRun Run(const std::string& arguments) const { return RunProgram("kovra.exe", Environment(), arguments); }
    void Expect(const std::vector<Command>& commands) const { ExpectRuns(Environment(), commands); }
};

// What the tool says when the library would find no configuration file.
Lines NoConfiguration(const std::string& failure, const std::string& home, const std::string& workstation,
                      const std::string& temporary)
{
    return {"kovra: no configuration: " + failure,
            "  The library reads CKOVRA.INI from the directory that KARVELO-CKOVRAHOME names, or",
            "  else from DAT\\ below the installation's base path, the workstation directory up to",
            "  its last \\DAT\\. These variables point it to an installation:",
            "    KARVELO-CKOVRAHOME  " + home,
            "    TARNEL31_WKSTA      " + workstation,
            "    TARNEL31_WKSTATMP   " + temporary};
}

TEST(Cli, ResolveTypesSettingsAndCheckConfig)
{
    Site site("CLIREPORTS");
    const std::string base = site.Base(), workstation = site.Workstation(), wrong = site.Root() + "WRONG.INI";
    auto row = [](std::string name, std::string location) {
        name.resize(36, ' ');
        location.resize(16, ' ');
        return name + location + "DEFAULT";
    };
    // A wrong configuration is checked as an argument: the library won't load with it in force.
    WriteFileBytes(wrong, "[DefaultSettings]\r\nOption=0x10\r\nColour=blue\r\n[A]\r\nBaseType=B\r\nShade=red\r\n"
                          "[B]\r\nBaseType=A\r\n[ARC]\r\nLocation=ARCHIVE\r\n[arc]\r\n[NOEQ]\r\nLocation\r\n"
                          "Location=NOWHERE\r\n");
    site.Expect({
        {"resolve T_USER SUB\\A.TXT", 0, {base + "A.TXT"}},
        {"resolve T_USER SUB\\A.TXT --user ANNA --client 42", 0, {base + "CLIENTS\\42\\USERS\\ANNA\\A.TXT"}},
        {"resolve XWS A.TXT --module " + base + "ORDERS", 0, {base + "ORDERS\\A.TXT"}},
        {"resolve REPORTS R%Y.TXT", 0, {base + "R" + CurrentUtcDate("%Y") + ".TXT"}},
        {"resolve NOPE A.TXT", 1, {"kovra: Kovra : KOVRA_ERROR(NOPE, A.TXT, , -1): unknown file type"}},
        {"types", 0, {"NAME                                LOCATION        ENCRYPTION", row("DFT", "DEFAULT"),
                      row("XWS", "MODULE"), row("T_DATA", "BASEDATA"), row("T_USER", "USER"), row("T_WKSTA", "WKSTA"),
                      row("REPORTS", "BASEDATA"), row("T\\x09TAB", "DEFAULT")}},  // one line, whatever the name holds
        {"settings", 0, {"configuration file       " + site.ConfigFile(),
                         "base path                " + base, "data path                " + base,
                         "read-only path           (none)", "workstation              " + workstation,
                         "workstation temporary    " + workstation + "TMP\\",
                         "debug level              3 = 1 exceptions, sessions and identity + 2 open",
                         "option bits              32 = 32 no message boxes", "sharing-violation repeat 1",
                         "process counter          0 (this is the first process)", "file-type table          shared"}},
        {"check-config", 0, {site.ConfigFile() + ": no problems"}},
        {"check-config " + wrong, 1, {wrong + ":2: Option value '0x10' is not a decimal number: it reads as 0",
                                      wrong + ":3: unknown key 'Colour' in [DefaultSettings]",
                                      wrong + ":5: BaseType chain of [A] loops back to [A]",
                                      wrong + ":6: unknown key 'Shade' in [A]",  // in the order of the lines
                                      wrong + ":8: BaseType chain of [B] loops back to [B]",
                                      wrong + ":10: unknown location word 'ARCHIVE' for [ARC]",
                                      wrong + ":11: section [arc] repeats [ARC] of line 9: both read the same keys",
                                      wrong + ":11: unknown location word 'ARCHIVE' for [arc]",
                                      wrong + ":13: 'Location' without '=' in [NOEQ]: the key reads as missing, and "
                                              "the Location lines after it are not read",
                                      wrong + ": 9 problems"}},
    });
}

// Help and check-config need no installation; the other commands read their arguments and
// then say where the library would look for its configuration, without loading it.
TEST(Cli, WithoutAnInstallationTheToolHelpsChecksAndSaysWhereItLooked)
{
    Site site("CLINONE");
    const std::string config = site.ConfigFile(), empty = site.Root() + "EMPTY";
    MakeDirectories(empty);
    char computer[MAX_COMPUTERNAME_LENGTH + 1] = "";
    DWORD size = sizeof computer;
    ::GetComputerNameA(computer, &size);
    const std::string defaultWorkstation = "C:\\KOVRA\\DAT\\" + std::string(computer) + "\\";
    const std::string defaultConfig = "C:\\KOVRA\\DAT\\CKOVRA.INI";
    const std::vector<EnvVar> none = {
        {"TARNEL31_WKSTA", "", true}, {"TARNEL31_WKSTATMP", "", true}, {"KARVELO-CKOVRAHOME", "", true}};
    const std::vector<EnvVar> emptyHome = {
        {"TARNEL31_WKSTA", site.Base() + "DAT\\WS1"}, {"TARNEL31_WKSTATMP", "", true}, {"KARVELO-CKOVRAHOME", empty}};
    ExpectRuns(none, {
        {"--help", 0, {"Usage: kovra COMMAND [ARGUMENTS]"}},
        {"resolve --help", 0, {"Usage: kovra resolve TYPE NAME [--user U] [--client C] [--module DIR]"}},
        {"resolve DFT", 2, {"kovra resolve: too few arguments"}},
        {"check-config " + config, 0, {config + ": no problems"}},
        {"resolve DFT A.TXT", 1,
         NoConfiguration(PathExists("C:\\KOVRA\\DAT") ? defaultConfig + " was not found."
                                                     : "All or part of the path " + defaultConfig + " is invalid.",
                         "(not set)", "(not set: the workstation directory is " + defaultWorkstation + ")",
                         "(not set: its temporary directory is " + defaultWorkstation + "TMP\\)")},
    }, true);
    const Lines noHome = NoConfiguration(empty + "\\CKOVRA.INI was not found.", empty, site.Base() + "DAT\\WS1",
                                         "(not set: its temporary directory is " + site.Workstation() + "TMP\\)");
    ExpectRuns(emptyHome, {{"types", 1, noHome}}, true);
    // A file named without its directory is checked where it lies, its keys included.
    WriteFileBytes(site.Root() + "WRONG.INI", "[ARC]\r\nLocation=ARCHIVE\r\n");
    EXPECT_EQ((Lines{"WRONG.INI:2: unknown location word 'ARCHIVE' for [ARC]", "WRONG.INI: 1 problem"}),
              RunProgram("kovra.exe", none, "check-config WRONG.INI", site.Root()).lines);
    // A wrong configuration stops the library at its own box; the tool then says that it didn't load.
    site.WriteConfig({"[ARC]", "Location=ARCHIVE"});
    const ProgramRun refused = site.Run("types");
    EXPECT_EQ(1, refused.exitCode);
    EXPECT_EQ(Lines{"Kovra|CKOVRA.INI wrong, (ARC,ARCHIVE,,)"}, refused.boxes);
    EXPECT_EQ((Lines{"kovra: kovra.dll didn't load: DLL initialization failed.",
                     "  kovra check-config lists the problems of CKOVRA.INI."}),
              refused.lines);
}

TEST(Cli, FileAndProfileCommands)
{
    Site site("CLIFILES");
    const std::string base = site.Base(), profile = site.Workstation() + "DEMO.INI";
    const std::string backup = "SAV\\" + CurrentUtcDate("%y%m%d") + "01.SAV";
    WriteFileBytes(base + "IN.TXT", "one\r\ntwo\r\n");
    EXPECT_EQ("one\r\ntwo\r\n", site.Run("cat T_DATA IN.TXT").output);
    EXPECT_EQ("one\ntwo\n", site.Run("cat T_DATA IN.TXT --text").output);
    const std::string gone = base + "GONE\\MISSING.TXT";  // a file that is only read makes no directory
    site.Expect({
        {"cat T_DATA GONE\\MISSING.TXT", 1, {"kovra: there is no file " + gone}},
        {"hold T_DATA GONE\\MISSING.TXT", 1, {"kovra: there is no file " + gone}},
        {"append T_DATA GONE\\MISSING.TXT T_WKSTA COPY.TXT", 1, {"kovra: nothing to append: there is no file " + gone}},
        {"copy T_DATA IN.TXT T_WKSTA COPY.TXT", 0, {}},
        {"append T_DATA IN.TXT T_WKSTA COPY.TXT", 0, {}},
        {"append T_DATA IN.TXT T_DATA IN.TXT", 1,
         {"kovra: Kovra : KOVRA_ERROR(T_DATA, IN.TXT, " + base + "IN.TXT, -4): the target is the file itself"}},
        {"copy T_DATA IN.TXT T_DATA ORDERS.DAT", 0, {}},
        {"save T_DATA ORDERS.DAT", 0, {base + backup}},  // the day's first backup; the file moves there
        {"append T_DATA IN.TXT T_DATA SAV", 1,
         {"kovra: can't append to " + base + "SAV: Access to " + base + "SAV was denied."}},
        {"find T_DATA SAV\\*.SAV", 0, {"        10  " + backup}},
        {"mv T_DATA IN.TXT T_DATA NEW\\MOVED.TXT", 0, {base + "NEW\\MOVED.TXT"}},
        {"cat T_DATA NEW\\MOVED.TXT", 0, {"one", "two"}},
        {"rm T_DATA NEW\\MOVED.TXT", 0, {}},
        {"find T_DATA NEW\\*.TXT", 1, {"kovra: nothing matches " + base + "NEW\\*.TXT"}},
        {"profile set T_WKSTA DEMO.INI Window Width 640", 0, {}},
        {"profile set T_WKSTA DEMO.INI Window Title Orders", 0, {}},
        {"profile get T_WKSTA DEMO.INI Window Width", 0, {"640"}},
        {"profile get T_WKSTA DEMO.INI Window", 0, {"Width=640", "Title=Orders"}},
        {"profile get T_WKSTA DEMO.INI Window Height", 1, {"kovra: no key Height in [Window] of " + profile}},
    });
    ExpectRuns(site.Environment(), {
        {"hold T_DATA IN.TXT --for abc", 2, {"kovra hold: --for wants a number of milliseconds, not 'abc'"}},
        {"cat --help", 0, {"Usage: kovra cat TYPE NAME [--text] [context options]", "",
                           "Writes the file's bytes to the standard output. With --text the library reads it in",
                           "text mode, which drops every CR byte: CR LF line ends come out as LF."}},
    }, true);
    EXPECT_FALSE(PathExists(base + "GONE"));
    EXPECT_EQ("one\r\ntwo\r\none\r\ntwo\r\n", ReadFileBytes(site.Workstation() + "COPY.TXT"));
    EXPECT_FALSE(PathExists(base + "ORDERS.DAT"));
    EXPECT_EQ("[Window]\r\nWidth=640\r\nTitle=Orders\r\n", ReadFileBytes(profile));
}

} // namespace
