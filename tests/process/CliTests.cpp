// The command-line tool kovra.exe, with a prepared installation and without one: the output
// and exit code of every command, each run a process of its own.
#include <gtest/gtest.h>

#include <algorithm>

#include "Installation.h"

using namespace kovratest;

namespace {

TEST(Cli, EveryCommandWithAndWithoutAnInstallation)
{
    // Types for the data path, the user's and the workstation's directories, one that takes its
    // location by BaseType and one with a TAB in its name.
    Installation site("CLI");
    site.WriteConfig({"[DefaultSettings]", "Option=32", "DebugLevel=3", "[T_DATA]", "Location=BASEDATA", "[T_USER]",
                      "Location=USER", "[T_WKSTA]", "Location=WKSTA", "[REPORTS]", "BaseType=T_DATA", "[T\tTAB]"});
    WriteFileBytes(site.Root() + "REFUSED\\CKOVRA.INI", IniText({"[ARC]", "Location=ARCHIVE"}));
    const std::string base = site.Base(), workstation = base + "DAT\\WS1\\", config = site.ConfigFile();
    const std::string bad = "WRONG.INI", empty = site.Root() + "EMPTY";  // the tool runs in the root directory
    const std::string gone = base + "GONE\\MISSING.TXT", denied = base + "SAV: Access to " + base + "SAV was denied.";
    const std::string backup = "SAV\\" + CurrentUtcDate("%y%m%d") + "01.SAV", profile = workstation + "DEMO.INI";
    // A wrong configuration is checked as an argument: the library won't load with it in force.
    WriteFileBytes(site.Root() + bad, IniText({"[DefaultSettings]", "Option=0x10", "Colour=blue", "[A]", "BaseType=B",
                                               "Shade=red", "[B]", "BaseType=A", "[ARC]", "Location=ARCHIVE", "[arc]",
                                               "[NOEQ]", "Location", "Location=NOWHERE"}));
    WriteFileBytes(base + "IN.TXT", "one\r\ntwo\r\n");
    MakeDirectories(empty);
    const std::string noDefault = PathExists("C:\\KOVRA\\DAT") ? "C:\\KOVRA\\DAT\\CKOVRA.INI was not found."
                                  : "All or part of the path C:\\KOVRA\\DAT\\CKOVRA.INI is invalid.";
    const std::vector<EnvVar> inSite = site.Environment();
    const std::vector<EnvVar> refused = site.Environment({{"KARVELO-CKOVRAHOME", site.Root() + "REFUSED"}});
    const std::vector<EnvVar> nowhere = {{"TARNEL31_WKSTA", ""}, {"TARNEL31_WKSTATMP", ""}, {"KARVELO-CKOVRAHOME", ""}};
    const std::vector<EnvVar> emptyHome = site.Environment({{"TARNEL31_WKSTATMP", ""}, {"KARVELO-CKOVRAHOME", empty}});
    auto row = [](std::string name, std::string location) {  // of the types table
        return name.append(36 - name.size(), ' ') + location.append(16 - location.size(), ' ') + "DEFAULT";
    };
    struct Run {
        const std::vector<EnvVar>& environment;
        std::string arguments;
        int exitCode;
        Lines output;
        bool leading = false;  // only the output's first lines are compared: help or a hint follows
        std::string box = "";
    };
    const Run runs[] = {
        {inSite, "resolve T_USER SUB\\A.TXT", 0, {base + "A.TXT"}},
        {inSite, "resolve T_USER SUB\\A.TXT --user ANNA --client 42", 0, {base + "CLIENTS\\42\\USERS\\ANNA\\A.TXT"}},
        {inSite, "resolve XWS A.TXT --module " + base + "ORDERS", 0, {base + "ORDERS\\A.TXT"}},
        {inSite, "resolve NOPE A.TXT", 1, {"kovra: Kovra : KOVRA_ERROR(NOPE, A.TXT, , -1): unknown file type"}},
        {inSite, "types", 0, {"NAME                                LOCATION        ENCRYPTION", row("DFT", "DEFAULT"),
                              row("XWS", "MODULE"), row("T_DATA", "BASEDATA"), row("T_USER", "USER"),
                              row("T_WKSTA", "WKSTA"), row("REPORTS", "BASEDATA"), row("T\\x09TAB", "DEFAULT")}},
        {inSite, "settings", 0, {"configuration file       " + config, "base path                " + base,
                                 "data path                " + base, "read-only path           (none)",
                                 "workstation              " + workstation,
                                 "workstation temporary    " + workstation + "TMP\\",
                                 "debug level              3 = 1 exceptions, sessions and identity + 2 open",
                                 "option bits              32 = 32 no message boxes", "sharing-violation repeat 1",
                                 "process counter          0 (this is the first process)",
                                 "file-type table          shared"}},
        {inSite, "check-config", 0, {config + ": no problems"}},
        // Without an installation the tool checks, and says where the library would have looked. A file named
        // without its directory is checked where it lies; its problems in the order of the lines.
        {nowhere, "check-config " + config, 0, {config + ": no problems"}},
        {nowhere, "check-config " + bad, 1,
         {bad + ":2: Option value '0x10' is not a decimal number: it reads as 0",
          bad + ":3: unknown key 'Colour' in [DefaultSettings]",
          bad + ":5: BaseType chain of [A] loops back to [A]", bad + ":6: unknown key 'Shade' in [A]",
          bad + ":8: BaseType chain of [B] loops back to [B]", bad + ":10: unknown location word 'ARCHIVE' for [ARC]",
          bad + ":11: section [arc] repeats [ARC] of line 9: both read the same keys",
          bad + ":11: unknown location word 'ARCHIVE' for [arc]",
          bad + ":13: 'Location' without '=' in [NOEQ]: the key reads as missing, and the Location lines after it "
                  "are not read", bad + ": 9 problems"}},
        {nowhere, "resolve DFT", 2, {"kovra resolve: too few arguments"}, true},
        {nowhere, "resolve DFT A.TXT", 1, {"kovra: no configuration: " + noDefault}, true},
        {emptyHome, "types", 1, {"kovra: no configuration: " + empty + "\\CKOVRA.INI was not found."}, true},
        // A wrong configuration stops the library at its own box; the tool then says that it didn't load.
        {refused, "types", 1, {"kovra: kovra.dll didn't load: DLL initialization failed."}, true,
         "Kovra|CKOVRA.INI wrong, (ARC,ARCHIVE,,)"},
        // Files and profiles; a file that is only read makes no directory.
        {inSite, "cat T_DATA GONE\\MISSING.TXT", 1, {"kovra: there is no file " + gone}},
        {inSite, "hold T_DATA IN.TXT --for abc", 2, {"kovra hold: --for wants a number of milliseconds, not 'abc'"},
         true},
        {inSite, "append T_DATA GONE\\MISSING.TXT T_WKSTA COPY.TXT", 1,
         {"kovra: nothing to append: there is no file " + gone}},
        {inSite, "copy T_DATA IN.TXT T_WKSTA COPY.TXT", 0, {}},
        {inSite, "append T_DATA IN.TXT T_WKSTA COPY.TXT", 0, {}},
        {inSite, "append T_DATA IN.TXT T_DATA IN.TXT", 1,
         {"kovra: Kovra : KOVRA_ERROR(T_DATA, IN.TXT, " + base + "IN.TXT, -4): the target is the file itself"}},
        {inSite, "copy T_DATA IN.TXT T_DATA ORDERS.DAT", 0, {}},
        {inSite, "save T_DATA ORDERS.DAT", 0, {base + backup}},  // the day's first backup; the file moves there
        {inSite, "append T_DATA IN.TXT T_DATA SAV", 1, {"kovra: can't append to " + denied}},
        {inSite, "find T_DATA SAV\\*.SAV", 0, {"        10  " + backup}},
        {inSite, "mv T_DATA IN.TXT T_DATA NEW\\MOVED.TXT", 0, {base + "NEW\\MOVED.TXT"}},
        {inSite, "cat T_DATA NEW\\MOVED.TXT", 0, {"one", "two"}},
        {inSite, "rm T_DATA NEW\\MOVED.TXT", 0, {}},
        {inSite, "find T_DATA NEW\\*.TXT", 1, {"kovra: nothing matches " + base + "NEW\\*.TXT"}},
        {inSite, "profile set T_WKSTA DEMO.INI Window Width 640", 0, {}},
        {inSite, "profile set T_WKSTA DEMO.INI Window Title Orders", 0, {}},
        {inSite, "profile get T_WKSTA DEMO.INI Window Width", 0, {"640"}},
        {inSite, "profile get T_WKSTA DEMO.INI Window", 0, {"Width=640", "Title=Orders"}},
        {inSite, "profile get T_WKSTA DEMO.INI Window Height", 1, {"kovra: no key Height in [Window] of " + profile}},
    };
    // cat writes the bytes; with --text the library drops the CRs.
    EXPECT_EQ("one\r\ntwo\r\n", RunProgram("kovra.exe", inSite, "cat T_DATA IN.TXT").output);
    EXPECT_EQ("one\ntwo\n", RunProgram("kovra.exe", inSite, "cat T_DATA IN.TXT --text").output);
    for (const Run& run : runs) {
        const ProgramRun done = RunProgram("kovra.exe", run.environment, run.arguments, site.Root());
        EXPECT_EQ(run.exitCode, done.exitCode) << run.arguments;
        EXPECT_EQ(run.box.empty() ? Lines{} : Lines{run.box}, done.boxes) << run.arguments;
        const size_t compared = run.leading ? std::min(run.output.size(), done.lines.size()) : done.lines.size();
        EXPECT_EQ(run.output, Lines(done.lines.begin(), done.lines.begin() + compared)) << run.arguments;
    }
    EXPECT_FALSE(PathExists(base + "GONE"));
    EXPECT_EQ("one\r\ntwo\r\none\r\ntwo\r\n", ReadFileBytes(workstation + "COPY.TXT"));
}

} // namespace
