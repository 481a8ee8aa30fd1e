// The command-line tool kovra.exe against a prepared installation: its outputs and exit
// codes, run as a process of its own with the installation's environment.
#include <gtest/gtest.h>

#include "Installation.h"

using namespace kovratest;

namespace {

struct Outcome {
    int exitCode = -1;
    std::string output;  // standard output and error together, as the bytes came

    std::vector<std::string> Lines() const { return SplitLines(output); }
    // The output with the console's CR LF line ends as LF.
    std::string Text() const
    {
        std::string text;
        for (const std::string& line : Lines())
            text += line + "\n";
        return text;
    }
};

std::string KovraCommand(const std::string& arguments)
{
    return Quote(ProgramPath("kovra.exe")) + " " + arguments;
}

Outcome Kovra(const Installation& installation, const std::string& arguments)
{
    ChildProcess child(KovraCommand(arguments), installation.Environment());
    Outcome run;
    run.exitCode = child.Wait();
    run.output = child.Output();
    return run;
}

// An installation whose configuration has a type for the data path, the user's and the
// workstation's directories, and one that takes its location by BaseType.
struct CliInstallation : Installation {
    explicit CliInstallation(const std::string& name) : Installation(name)
    {
        WriteConfig({"[DefaultSettings]", "Option=32", "DebugLevel=3", "[T_DATA]", "Location=BASEDATA", "[T_USER]",
                     "Location=USER", "[T_WKSTA]", "Location=WKSTA", "[REPORTS]", "BaseType=T_DATA"});
    }
    std::string Workstation() const { return Base() + "DAT\\WS1\\"; }
};

TEST(Cli, ResolveGivesRealPathsAndTheLibraryErrorTexts)
{
    CliInstallation site("CLIRESOLVE");
    const std::string base = site.Base();
    struct Case {
        std::string arguments;
        std::string output;
    } cases[] = {
        {"resolve T_USER SUB\\A.TXT", base + "A.TXT\n"},
        {"resolve T_USER SUB\\A.TXT --user ANNA --client 42", base + "CLIENTS\\42\\USERS\\ANNA\\A.TXT\n"},
        {"resolve XWS A.TXT --module " + base + "ORDERS", base + "ORDERS\\A.TXT\n"},
        {"resolve REPORTS R%Y.TXT", base + "R" + CurrentUtcDate("%Y") + ".TXT\n"},
    };
    for (const Case& example : cases) {
        Outcome run = Kovra(site, example.arguments);
        EXPECT_EQ(0, run.exitCode) << example.arguments;
        EXPECT_EQ(example.output, run.Text()) << example.arguments;
    }

    Outcome unknown = Kovra(site, "resolve NOPE A.TXT");
    EXPECT_EQ(1, unknown.exitCode);
    EXPECT_EQ("kovra: Kovra : KOVRA_ERROR(NOPE, A.TXT, , -1): unknown file type\n", unknown.Text());
    Outcome tooLong = Kovra(site, "resolve T_DATA " + std::string(300, 'N'));
    EXPECT_EQ(1, tooLong.exitCode);
    EXPECT_NE(std::string::npos,
              tooLong.Text().find(", -2): the name or its real path is longer than 259 characters\n"));
}

TEST(Cli, TypesAndSettingsShowWhatTheLibraryDerived)
{
    CliInstallation site("CLISETTINGS");
    Outcome types = Kovra(site, "types");
    EXPECT_EQ(0, types.exitCode);
    auto row = [](std::string name, std::string location) {
        name.resize(36, ' ');
        location.resize(16, ' ');
        return name + location + "DEFAULT";
    };
    EXPECT_EQ((std::vector<std::string>{"NAME                                LOCATION        ENCRYPTION",
                                        row("DFT", "DEFAULT"), row("XWS", "MODULE"), row("T_DATA", "BASEDATA"),
                                        row("T_USER", "USER"), row("T_WKSTA", "WKSTA"),
                                        row("REPORTS", "BASEDATA")}),
              types.Lines());

    Outcome settings = Kovra(site, "settings");
    EXPECT_EQ(0, settings.exitCode);
    EXPECT_EQ((std::vector<std::string>{
                  "configuration file       " + site.ConfigDirectory() + "\\CKOVRA.INI",
                  "base path                " + site.Base(),
                  "data path                " + site.Base(),
                  "read-only path           (none)",
                  "workstation              " + site.Workstation(),
                  "workstation temporary    " + site.Workstation() + "TMP\\",
                  "debug level              3 = 1 exceptions, sessions and identity + 2 open",
                  "option bits              32 = 32 no message boxes",
                  "sharing-violation repeat 1",
                  "process counter          0 (this is the first process)",
                  "file-type table          shared",
              }),
              settings.Lines());
}

TEST(Cli, FileCommandsCopyAppendSaveMoveRemoveAndFind)
{
    CliInstallation site("CLIFILES");
    const std::string base = site.Base();
    WriteFileBytes(base + "IN.TXT", "one\r\ntwo\r\n");

    EXPECT_EQ("one\r\ntwo\r\n", Kovra(site, "cat T_DATA IN.TXT").output);
    EXPECT_EQ("one\ntwo\n", Kovra(site, "cat T_DATA IN.TXT --text").output);
    Outcome missing = Kovra(site, "cat T_DATA MISSING.TXT");
    EXPECT_EQ(1, missing.exitCode);
    EXPECT_EQ("kovra: " + base + "MISSING.TXT was not found.\n", missing.Text());

    EXPECT_EQ(0, Kovra(site, "copy T_DATA IN.TXT T_WKSTA COPY.TXT").exitCode);
    EXPECT_EQ("one\r\ntwo\r\n", ReadFileBytes(site.Workstation() + "COPY.TXT"));
    Outcome refused = Kovra(site, "copy T_DATA IN.TXT T_WKSTA COPY.TXT --no-overwrite");
    EXPECT_EQ(1, refused.exitCode);
    EXPECT_EQ(0u, refused.Text().find("kovra: can't copy " + base + "IN.TXT to " + site.Workstation() + "COPY.TXT: "));
    EXPECT_EQ(0, Kovra(site, "append T_DATA IN.TXT T_WKSTA COPY.TXT").exitCode);
    EXPECT_EQ("one\r\ntwo\r\none\r\ntwo\r\n", ReadFileBytes(site.Workstation() + "COPY.TXT"));

    // Two backup generations of the day, numbered in turn; the file itself moves away.
    const std::string backups = base + "SAV\\" + CurrentUtcDate("%y%m%d");
    for (const char* generation : {"01", "02"}) {
        ASSERT_EQ(0, Kovra(site, "copy T_DATA IN.TXT T_DATA ORDERS.DAT").exitCode);
        Outcome save = Kovra(site, "save T_DATA ORDERS.DAT");
        EXPECT_EQ(0, save.exitCode);
        EXPECT_EQ(backups + generation + ".SAV\n", save.Text());
    }
    EXPECT_FALSE(PathExists(base + "ORDERS.DAT"));
    Outcome found = Kovra(site, "find T_DATA SAV\\*.SAV");
    EXPECT_EQ(0, found.exitCode);
    const std::string day = CurrentUtcDate("%y%m%d");
    EXPECT_EQ((std::vector<std::string>{"        10  SAV\\" + day + "01.SAV", "        10  SAV\\" + day + "02.SAV"}),
              found.Lines());

    Outcome moved = Kovra(site, "mv T_DATA IN.TXT T_DATA NEW\\MOVED.TXT");
    EXPECT_EQ(0, moved.exitCode);
    EXPECT_EQ(base + "NEW\\MOVED.TXT\n", moved.Text());
    EXPECT_EQ("one\r\ntwo\r\n", ReadFileBytes(base + "NEW\\MOVED.TXT"));
    EXPECT_FALSE(PathExists(base + "IN.TXT"));
    Outcome notThere = Kovra(site, "mv T_DATA IN.TXT T_DATA AGAIN.TXT");
    EXPECT_EQ(1, notThere.exitCode);
    EXPECT_EQ("kovra: " + base + "IN.TXT was not found.\n", notThere.Text());

    EXPECT_EQ(0, Kovra(site, "rm T_DATA NEW\\MOVED.TXT").exitCode);
    EXPECT_FALSE(PathExists(base + "NEW\\MOVED.TXT"));
    Outcome nothing = Kovra(site, "find T_DATA NEW\\*.TXT");
    EXPECT_EQ(1, nothing.exitCode);
    EXPECT_EQ("kovra: nothing matches " + base + "NEW\\*.TXT\n", nothing.Text());
}

TEST(Cli, ProfileGetAndSet)
{
    CliInstallation site("CLIPROFILE");
    const std::string profile = site.Workstation() + "DEMO.INI";
    ::RemoveDirectoryA(site.Workstation().c_str());  // set makes the directory it needs
    EXPECT_EQ(0, Kovra(site, "profile set T_WKSTA DEMO.INI Window Width 640").exitCode);
    EXPECT_EQ(0, Kovra(site, "profile set T_WKSTA DEMO.INI Window Title Orders").exitCode);
    EXPECT_EQ("[Window]\r\nWidth=640\r\nTitle=Orders\r\n", ReadFileBytes(profile));
    EXPECT_EQ("640\n", Kovra(site, "profile get T_WKSTA DEMO.INI Window Width").Text());
    EXPECT_EQ("Width=640\nTitle=Orders\n", Kovra(site, "profile get T_WKSTA DEMO.INI Window").Text());

    Outcome noKey = Kovra(site, "profile get T_WKSTA DEMO.INI Window Height");
    EXPECT_EQ(1, noKey.exitCode);
    EXPECT_EQ("kovra: no key Height in [Window] of " + profile + "\n", noKey.Text());
    Outcome noSection = Kovra(site, "profile get T_WKSTA DEMO.INI Colours");
    EXPECT_EQ(1, noSection.exitCode);
    EXPECT_EQ("kovra: no section [Colours] of " + profile + "\n", noSection.Text());
    Outcome noFile = Kovra(site, "profile get T_WKSTA NONE.INI Window Width");
    EXPECT_EQ(1, noFile.exitCode);
    EXPECT_EQ("kovra: there is no file " + site.Workstation() + "NONE.INI\n", noFile.Text());
    EXPECT_EQ(2, Kovra(site, "profile put T_WKSTA DEMO.INI Window Width 1").exitCode);
}

TEST(Cli, CheckConfigReportsEveryProblemWithItsLineNumber)
{
    CliInstallation site("CLICHECK");
    Outcome inForce = Kovra(site, "check-config");
    EXPECT_EQ(0, inForce.exitCode);
    EXPECT_EQ(site.ConfigDirectory() + "\\CKOVRA.INI: no problems\n", inForce.Text());

    // The library refuses to load with a wrong configuration in force: the wrong file is
    // checked as an argument.
    const std::string wrong = site.Root() + "WRONG.INI";
    const std::string longName(37, 'L');
    WriteFileBytes(wrong, "[DefaultSettings]\r\nOption=0x10\r\nColour=blue\r\n[ARC]\r\nLocation=ARCHIVE\r\n"
                          "[A]\r\nBaseType=B\r\n[B]\r\nBaseType=A\r\n[GONE]\r\nBaseType=NOWHERE\r\n[" +
                              longName + "]\r\n[arc]\r\n");
    Outcome check = Kovra(site, "check-config " + wrong);
    EXPECT_EQ(1, check.exitCode);
    EXPECT_EQ((std::vector<std::string>{
                  wrong + ":2: Option value '0x10' is not a decimal number: it reads as 0",
                  wrong + ":3: unknown key 'Colour' in [DefaultSettings]",
                  wrong + ":5: unknown location word 'ARCHIVE' for [ARC]",
                  wrong + ":7: BaseType chain of [A] loops back to [A]",
                  wrong + ":9: BaseType chain of [B] loops back to [B]",
                  wrong + ":11: BaseType 'NOWHERE' of [GONE] names no section",
                  wrong + ":12: type name '" + longName + "' is longer than 35 characters: the type stays unknown",
                  wrong + ":13: section [arc] repeats [ARC] of line 4: both read the same keys",
                  wrong + ":13: unknown location word 'ARCHIVE' for [arc]",
                  wrong + ": 9 problems",
              }),
              check.Lines());

    Outcome unreadable = Kovra(site, "check-config " + site.Root() + "NONE.INI");
    EXPECT_EQ(1, unreadable.exitCode);
    EXPECT_EQ("kovra: can't read " + site.Root() + "NONE.INI\n", unreadable.Text());
}

TEST(Cli, HoldMakesASecondProcessMeetASharingViolation)
{
    CliInstallation site("CLIHOLD");
    const std::string held = site.Base() + "HELD.TXT";
    WriteFileBytes(held, "held\r\n");
    NamedEvent release;
    ChildProcess holder(KovraCommand("hold T_DATA HELD.TXT --until-event " + release.Name()), site.Environment());
    ASSERT_EQ("holding " + held, holder.WaitForLine("holding"));

    // The second kovra.exe is a later process: it finds the types in the holder's table.
    Outcome blocked = Kovra(site, "cat T_DATA HELD.TXT");
    EXPECT_EQ(1, blocked.exitCode);
    EXPECT_EQ("kovra: A sharing violation occurred while accessing " + held + ".\n", blocked.Text());
    release.Set();
    EXPECT_EQ(0, holder.Wait());
    EXPECT_EQ("held\r\n", Kovra(site, "cat T_DATA HELD.TXT").output);

    Outcome absent = Kovra(site, "hold T_DATA ABSENT.TXT --for 10");
    EXPECT_EQ(1, absent.exitCode);
    EXPECT_EQ("kovra: " + site.Base() + "ABSENT.TXT was not found.\n", absent.Text());
}

TEST(Cli, HelpAndWrongArguments)
{
    CliInstallation site("CLIHELP");
    Outcome help = Kovra(site, "--help");
    EXPECT_EQ(0, help.exitCode);
    EXPECT_EQ("Usage: kovra COMMAND [ARGUMENTS]", help.Lines().at(0));
    EXPECT_NE(std::string::npos, help.Text().find("\n  check-config  check a configuration file, line by line\n"));
    Outcome commandHelp = Kovra(site, "resolve --help");
    EXPECT_EQ(0, commandHelp.exitCode);
    EXPECT_EQ("Usage: kovra resolve TYPE NAME [--user U] [--client C] [--module DIR]", commandHelp.Lines().at(0));

    struct Case {
        const char* arguments;
        const char* firstLine;
    } cases[] = {
        {"", "Usage: kovra COMMAND [ARGUMENTS]"},
        {"frob", "kovra: unknown command frob"},
        {"resolve T_DATA", "kovra resolve: too few arguments"},
        {"types extra", "kovra types: too many arguments"},
        {"cat T_DATA A.TXT --bogus", "kovra cat: unknown option --bogus"},
        {"resolve T_DATA A.TXT --user", "kovra resolve: --user wants a value"},
    };
    for (const Case& example : cases) {
        Outcome run = Kovra(site, example.arguments);
        EXPECT_EQ(2, run.exitCode) << example.arguments;
        EXPECT_EQ(example.firstLine, run.Lines().at(0)) << example.arguments;
    }
}

} // namespace
