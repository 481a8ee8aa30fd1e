// The resolved file as a profile: numbers stored as decimal text, the numeric readers'
// parsing and defaults, text keys, whole sections, and which objects have a profile file.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

TEST(Profile, NumbersAreStoredAsDecimalText)
{
    ScratchDirectory directory(kBase + "PR_WRITE");
    CKovra profile("T_BASE", "PR_WRITE\\P.INI", KOVRA_RESOLVE_ONLY);
    EXPECT_NE(0, profile.WriteProfile("S", "LONG", -5L));
    EXPECT_NE(0, profile.WriteProfile("S", "ULONG", 4000000000UL));
    EXPECT_NE(0, profile.WriteProfile("S", "DOUBLE", 2.5));
    EXPECT_NE(0, profile.WriteProfile("S", "NEGATIVE", -0.25));
    EXPECT_NE(0, profile.WriteProfile("S", "INT", -7));
    EXPECT_NE(0, profile.WriteProfile("S", "UINT", 3000000000U));
    EXPECT_NE(0, profile.WriteProfile("T", "TEXT", "a b"));
    EXPECT_EQ(
        "[S]\r\nLONG=-5\r\nULONG=4000000000\r\nDOUBLE=2.500000\r\nNEGATIVE=-0.250000\r\nINT=-7\r\n"
        "UINT=3000000000\r\n[T]\r\nTEXT=a b\r\n",
        ReadFileBytes(directory / "P.INI"));

    EXPECT_EQ(-5L, profile.GetProfile("S", "LONG", 0L));
    EXPECT_EQ(4000000000UL, profile.GetProfile("S", "ULONG", 0UL));
    EXPECT_EQ(2.5, profile.GetProfile("S", "DOUBLE", 0.0));
    EXPECT_EQ(-0.25, profile.GetProfile("S", "NEGATIVE", 0.0));
    EXPECT_EQ(-7, profile.GetProfile("S", "INT", 0));
    EXPECT_EQ(3000000000U, profile.GetProfile("S", "UINT", 0U));
}

TEST(Profile, NumericReadersParseWhatIsThereOrGiveTheDefault)
{
    ScratchDirectory directory(kBase + "PR_READ");
    // 127 characters read 12; all 200 would read 1.2e74 (or overflow a long).
    const std::string cut = std::string(125, '0') + "12" + std::string(73, '3');
    WriteFileBytes(directory / "P.INI", "[S]\r\nEMPTY=\r\nABC=abc\r\nMINUS=-1\r\nMIXED=12abc\r\nCUT=" + cut + "\r\n");
    CKovra profile("T_BASE", "PR_READ\\P.INI", KOVRA_RESOLVE_ONLY);

    EXPECT_EQ(7L, profile.GetProfile("S", "MISSING", 7L));
    EXPECT_EQ(7L, profile.GetProfile("S", "EMPTY", 7L));
    EXPECT_EQ(7L, profile.GetProfile("NOSECTION", "EMPTY", 7L));
    EXPECT_EQ(8, profile.GetProfile("S", "EMPTY", 8));
    EXPECT_EQ(9UL, profile.GetProfile("S", "MISSING", 9UL));
    EXPECT_EQ(10U, profile.GetProfile("S", "EMPTY", 10U));
    EXPECT_EQ(1.5, profile.GetProfile("S", "MISSING", 1.5));

    EXPECT_EQ(0L, profile.GetProfile("S", "ABC", 7L));
    EXPECT_EQ(0UL, profile.GetProfile("S", "ABC", 7UL));
    EXPECT_EQ(0.0, profile.GetProfile("S", "ABC", 7.0));
    EXPECT_EQ(4294967295UL, profile.GetProfile("S", "MINUS", 7UL));
    EXPECT_EQ(4294967295U, profile.GetProfile("S", "MINUS", 7U));
    EXPECT_EQ(-1L, profile.GetProfile("S", "MINUS", 7L));
    EXPECT_EQ(12L, profile.GetProfile("S", "MIXED", 7L));
    EXPECT_EQ(12UL, profile.GetProfile("S", "MIXED", 7UL));
    EXPECT_EQ(12.0, profile.GetProfile("S", "MIXED", 7.0));
    EXPECT_EQ(12.0, profile.GetProfile("S", "CUT", 7.0));
    EXPECT_EQ(12L, profile.GetProfile("S", "CUT", 7L));
    EXPECT_EQ(12UL, profile.GetProfile("S", "CUT", 7UL));
}

TEST(Profile, TextKeysAndWholeSections)
{
    ScratchDirectory directory(kBase + "PR_TEXT");
    const std::string path = directory / "P.INI";
    WriteFileBytes(path, "[S]\r\nA=1\r\nB=22\r\n[EMPTY]\r\n");
    CKovra profile("T_BASE", "PR_TEXT\\P.INI", KOVRA_RESOLVE_ONLY);

    char buffer[32];
    EXPECT_EQ(2, profile.GetProfile("S", "B", "dflt", buffer, sizeof buffer));
    EXPECT_STREQ("22", buffer);
    EXPECT_EQ(4, profile.GetProfile("S", "MISSING", "dflt", buffer, sizeof buffer));
    EXPECT_STREQ("dflt", buffer);

    EXPECT_EQ(0, profile.GetProfileSectionA("NOSECTION", buffer, sizeof buffer));
    EXPECT_EQ(0, profile.GetProfileSectionA("EMPTY", buffer, sizeof buffer));
    EXPECT_EQ(1, profile.GetProfileSectionA("S", buffer, sizeof buffer));
    EXPECT_EQ(std::string("A=1\0B=22\0\0", 10), std::string(buffer, 10));
    // Too small for both lines: still 1, with what fitted.
    EXPECT_EQ(1, profile.GetProfileSectionA("S", buffer, 6));
    EXPECT_EQ(std::string("A=1\0", 4), std::string(buffer, 4));

    // A written section replaces the lines of the old one.
    EXPECT_EQ(1, profile.WriteProfileSectionA("S", "X=1\0Y=two\0"));
    EXPECT_EQ(1, profile.WriteProfileSectionA("NEW", "Z=3\0"));
    EXPECT_EQ("[S]\r\nX=1\r\nY=two\r\n[EMPTY]\r\n[NEW]\r\nZ=3\r\n", ReadFileBytes(path));
    EXPECT_EQ(3, profile.GetProfile("S", "Y", "", buffer, sizeof buffer));
    EXPECT_STREQ("two", buffer);
}

TEST(Profile, TheProfileIsTheResolvedFileOpenOrNot)
{
    // Through the user's location.
    ScratchDirectory user(kBase + "USERS\\PRU1");
    CKovra::SetUser("PRU1");
    CKovra profile("T_USER", "SUB\\P.INI", KOVRA_RESOLVE_ONLY);
    ASSERT_EQ(user / "P.INI", profile.GetRealFileName());
    EXPECT_NE(0, profile.WriteProfile("S", "K", 42L));
    EXPECT_EQ("[S]\r\nK=42\r\n", ReadFileBytes(user / "P.INI"));
    EXPECT_EQ(42L, profile.GetProfile("S", "K", 0L));

    // An open object leaves its file position alone: the profile goes by the name.
    EXPECT_EQ(1, profile.Open("T_USER", "P.INI", KOVRA_READ));
    EXPECT_EQ(42, profile.GetProfile("S", "K", 0));
    EXPECT_EQ(0ul, profile.GetPosition());

    // Without a resolved name there is no profile file: defaults, and nothing written.
    CKovra fresh;
    CKovra unresolved;
    EXPECT_EQ(0, unresolved.Open("T_NOSUCHTYPE", "P.INI", KOVRA_RESOLVE_ONLY));
    char buffer[16] = "xyz";
    for (CKovra* object : {&fresh, &unresolved}) {
        EXPECT_EQ(0, object->WriteProfile("PR_NONE", "K", "v"));
        EXPECT_EQ(0, object->WriteProfile("PR_NONE", "K", 5L));
        EXPECT_EQ(0, object->WriteProfileSectionA("PR_NONE", "K=v\0"));
        EXPECT_EQ(0, object->GetProfile("PR_NONE", "K", "dflt", buffer, sizeof buffer));
        EXPECT_EQ(7L, object->GetProfile("PR_NONE", "K", 7L));
        EXPECT_EQ(0, object->GetProfileSectionA("PR_NONE", buffer, sizeof buffer));
    }
    EXPECT_EQ(0u, ::GetProfileStringA("PR_NONE", "K", "", buffer, sizeof buffer));
}

} // namespace
