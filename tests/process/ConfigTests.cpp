// Reading CKOVRA.INI at start-up: every case in a process of its own, loaded by the probe.
#include <gtest/gtest.h>

#include <algorithm>

#include "Installation.h"

using namespace kovratest;

namespace {

const std::vector<std::string> kBuiltInTypes = {"DFT 1 1", "XWS 3 1"};

std::vector<std::string> Plus(std::vector<std::string> types, const std::vector<std::string>& more)
{
    types.insert(types.end(), more.begin(), more.end());
    return types;
}

TEST(Config, AnEmptyFileLeavesTheDefaultsAndTheBuiltInTypes)
{
    Installation installation("EMPTYCONF");
    installation.WriteConfig({});
    ProbeReport report = RunProbe(installation.Environment());
    EXPECT_EQ(kBuiltInTypes, report.Types());
    EXPECT_EQ("0", report.Value("DEBUG"));
    EXPECT_EQ("1", report.Value("REPEAT"));
    EXPECT_EQ("0", report.Value("OPTION"));
    EXPECT_EQ(installation.Base(), report.Value("DATA"));
    EXPECT_TRUE(report.Boxes().empty());
}

TEST(Config, AMissingFileIsReportedInABoxAndTheLibraryStillLoads)
{
    Installation installation("NOCONF");
    const std::string expected = "Kovra|Kovra : KOVRA_Exception(Type(DFT), FileName(" + installation.ConfigDirectory() +
                                 "\\CKOVRA.INI), RealFileName(" + installation.ConfigDirectory() +
                                 "\\CKOVRA.INI), Cause(2), (Msg(" + installation.ConfigDirectory() +
                                 "\\CKOVRA.INI was not found.))";
    HeldProbe first(installation.Environment());

    // A later process that can read the file doesn't refill the table.
    Installation readable("READABLECONF");
    readable.WriteConfig({"[DefaultSettings]", "Option=32", "[LATE]", "Location=BASE"});
    ProbeReport later = RunProbe(readable.Environment());
    EXPECT_EQ(kBuiltInTypes, later.Types());
    EXPECT_EQ("32", later.Value("OPTION"));

    ProbeReport report = first.Release();
    EXPECT_EQ((std::vector<std::string>{expected}), report.Boxes());
    EXPECT_EQ("1", report.Value("LOAD"));
    EXPECT_EQ(kBuiltInTypes, report.Types());
}

TEST(Config, ALaterProcessWithoutAFileKeepsItsDefaultsSilently)
{
    Installation first("HOLDERCONF");
    first.WriteConfig({"[DefaultSettings]", "Option=32"});
    Installation missing("MISSINGLATER");
    HeldProbe holder(first.Environment());
    ProbeReport later = RunProbe(missing.Environment());
    EXPECT_EQ("1", later.Value("COUNT"));
    EXPECT_EQ("0", later.Value("OPTION"));
    EXPECT_TRUE(later.Boxes().empty());
    holder.Release();
}

TEST(Config, TypeSectionsWordsAndBaseTypeChains)
{
    Installation installation("TYPESCONF");
    installation.WriteConfig({
        "[defaultSETTINGS]", "Option=32", "DebugLevel=2",
        "[A]", "BaseType=B",
        "[B]", "Location=BASE", "BaseType=C",
        "[C]", "Location=USER", "Encryption=DEFAULT",
        "[NOKEYS]",
        "[lower]", "Location=basedata",
        "[abc]", "Location=BASE",
        "[ABC]", "Location=USER",  // the profile service reads [abc]'s keys for it
        "[DFT]", "Location=BASE",
        "[EMPTYLOC]", "Location=", "BaseType=C",
        "not a header", "[NOCLOSE",
    });
    ProbeReport report = RunProbe(installation.Environment());
    EXPECT_EQ((std::vector<std::string>{"DFT 2 1", "XWS 3 1", "A 2 1", "B 2 1", "C 6 1", "NOKEYS 1 1", "lower 9 1",
                                        "abc 2 1", "ABC 2 1", "EMPTYLOC 6 1"}),
              report.Types());
    EXPECT_EQ("2", report.Value("DEBUG"));
}

TEST(Config, AChainThatLoopsStopsTheLoad)
{
    Installation installation("LOOPCONF");
    installation.WriteConfig({"[L1]", "BaseType=L2", "[L2]", "BaseType=L1"});
    ProbeReport report = RunProbe(installation.Environment());
    EXPECT_EQ((std::vector<std::string>{"Kovra|CKOVRA.INI wrong, (L1,DEFAULT,DEFAULT,L1)"}), report.Boxes());
    EXPECT_EQ("0", report.Value("LOAD").substr(0, 1));
}

TEST(Config, AnUnknownEncryptionWordStopsTheLoad)
{
    Installation installation("CRYPTCONF");
    installation.WriteConfig({"[FIRST]", "Location=BASE", "[E]", "Encryption=AES", "BaseType=FIRST"});
    ProbeReport report = RunProbe(installation.Environment());
    EXPECT_EQ((std::vector<std::string>{"Kovra|CKOVRA.INI wrong, (E,BASE,AES,)"}), report.Boxes());
    EXPECT_EQ(3, report.exitCode);
}

TEST(Config, OptionValuesAreDecimalNumbers)
{
    struct Case {
        const char* value;
        const char* option;
    } cases[] = {{"abc", "0"}, {"48", "48"}, {"0x10", "0"}, {" 16 ", "16"}, {"-3", "-3"}};
    for (const Case& example : cases) {
        Installation installation("OPTIONCONF");
        installation.WriteConfig({"[DefaultSettings]", std::string("Option=") + example.value});
        ProbeReport report = RunProbe(installation.Environment());
        EXPECT_EQ(example.option, report.Value("OPTION")) << example.value;
    }
}

TEST(Config, PathSettingsAndTheDataPathsLastDirectoryRule)
{
    Installation installation("PATHCONF");
    const std::string root = installation.Root();
    installation.WriteConfig({"[DefaultSettings]", "Option=32", "BaseDataPath=" + root + "DATA",
                              "BaseReadOnlyPath=" + root + "RO", "SharingViolationRepeat=4"});
    ProbeReport report = RunProbe(installation.Environment());
    EXPECT_EQ(root + "DATA\\APP\\", report.Value("DATA"));
    EXPECT_EQ(root + "RO\\", report.Value("READONLY"));
    EXPECT_EQ(installation.Base(), report.Value("BASE"));
    EXPECT_EQ("4", report.Value("REPEAT"));

    // BasePath is taken as it stands; the data path appends the base path's last
    // directory as it is at that moment.
    installation.WriteConfig({"[DefaultSettings]", "Option=32", "BasePath=C:\\OTHER\\WS\\", "BaseDataPath=D:\\D\\",
                              "BaseReadOnlyPath=" + std::string(300, 'r')});
    report = RunProbe(installation.Environment());
    EXPECT_EQ("C:\\OTHER\\WS\\", report.Value("BASE"));
    EXPECT_EQ("D:\\D\\WS\\", report.Value("DATA"));
    EXPECT_EQ("", report.Value("READONLY"));  // a value that doesn't fit is not taken
}

TEST(Config, WithoutTheVariableTheFileIsDatBelowTheBasePath)
{
    Installation installation("DEFAULTCONF");
    WriteFileBytes(installation.Base() + "DAT\\CKOVRA.INI", "[DefaultSettings]\r\nOption=40\r\n");
    std::vector<EnvVar> environment = installation.Environment();
    environment.push_back({"KARVELO-CKOVRAHOME", "", true});
    ProbeReport report = RunProbe(environment);
    EXPECT_EQ("40", report.Value("OPTION"));

    // A value with its own final backslash names the same directory.
    environment = installation.Environment();
    environment.push_back({"KARVELO-CKOVRAHOME", installation.Base() + "DAT\\"});
    EXPECT_EQ("40", RunProbe(environment).Value("OPTION"));
}

TEST(Config, LongLinesAndNamesDontOverflow)
{
    Installation installation("LONGCONF");
    installation.WriteConfig({"[DefaultSettings]", "Option=32", "; " + std::string(3000, 'x'),
                              "[" + std::string(36, 'N') + "]", "Location=BASE", "[" + std::string(35, 'N') + "]",
                              "Location=USER", "[AFTER]", "Location=WKSTA"});
    ProbeReport report = RunProbe(installation.Environment());
    EXPECT_EQ(Plus(kBuiltInTypes, {std::string(35, 'N') + " 6 1", "AFTER 7 1"}), report.Types());
}

} // namespace

namespace {

TEST(Config, WithoutAReadOnlyPathTheReadOnlyLocationsAreTheBaseAndModuleOnes)
{
    Installation installation("NOREADONLY");
    installation.WriteConfig({"[DefaultSettings]", "Option=32", "[RO]", "Location=BASEREADONLY", "[MRO]",
                              "Location=MODULEREADONLY"});
    auto resolve = [&](const std::string& type) {
        ChildProcess child(Quote(ProgramPath("kovra_child.exe")) + " resolve " + type + " SUB\\F.TXT",
                           installation.Environment());
        child.Wait();
        return SplitLines(child.Output()).at(0);
    };
    // Without SetModulePath the module path is the base path.
    EXPECT_EQ("REAL " + installation.Base() + "SUB\\F.TXT", resolve("RO"));
    EXPECT_EQ("REAL " + installation.Base() + "SUB\\F.TXT", resolve("MRO"));
}

} // namespace
