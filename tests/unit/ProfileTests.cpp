// The resolved file as a profile: numbers as decimal text, defaults, text keys and sections.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

TEST(Profile, NumbersAreWrittenAsDecimalTextAndReadBack)
{
    ScratchDirectory directory(kBase + "PR_WRITE");
    CKovra profile("T_BASE", "PR_WRITE\\P.INI", KOVRA_RESOLVE_ONLY);
    EXPECT_NE(0, profile.WriteProfile("S", "LONG", -5L));
    EXPECT_NE(0, profile.WriteProfile("S", "ULONG", 4000000000UL));
    EXPECT_NE(0, profile.WriteProfile("S", "DOUBLE", 2.5));
    EXPECT_NE(0, profile.WriteProfile("S", "NEGATIVE", -0.25));
    EXPECT_EQ("[S]\r\nLONG=-5\r\nULONG=4000000000\r\nDOUBLE=2.500000\r\nNEGATIVE=-0.250000\r\n",
              ReadFileBytes(directory / "P.INI"));
    EXPECT_EQ(-5L, profile.GetProfile("S", "LONG", 0L));
    EXPECT_EQ(4000000000UL, profile.GetProfile("S", "ULONG", 0UL));
    EXPECT_EQ(2.5, profile.GetProfile("S", "DOUBLE", 0.0));
    EXPECT_EQ(-0.25, profile.GetProfile("S", "NEGATIVE", 0.0));
    CKovra unnamed;  // without a resolved name there is no profile file
    EXPECT_EQ(0, unnamed.WriteProfile("S", "K", 5L));
    EXPECT_EQ(7L, unnamed.GetProfile("S", "K", 7L));
}

TEST(Profile, ReadersParseWhatIsThereOrGiveTheDefault)
{
    ScratchDirectory directory(kBase + "PR_READ");
    // 127 characters read 12; all 200 would read 1.2e74 (or overflow a long).
    const std::string cut = std::string(125, '0') + "12" + std::string(73, '3');
    WriteFileBytes(directory / "P.INI",
                   "[S]\r\nEMPTY=\r\nABC=abc\r\nMINUS=-1\r\nCUT=" + cut + "\r\n[T]\r\nA=1\r\nB=22\r\n");
    CKovra profile("T_BASE", "PR_READ\\P.INI", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(7L, profile.GetProfile("S", "MISSING", 7L));
    EXPECT_EQ(8U, profile.GetProfile("S", "EMPTY", 8U));
    EXPECT_EQ(0L, profile.GetProfile("S", "ABC", 7L));
    EXPECT_EQ(4294967295UL, profile.GetProfile("S", "MINUS", 7UL));
    EXPECT_EQ(12L, profile.GetProfile("S", "CUT", 7L));
    EXPECT_EQ(12.0, profile.GetProfile("S", "CUT", 7.0));
    char buffer[32];
    EXPECT_EQ(4, profile.GetProfile("S", "MISSING", "dflt", buffer, sizeof buffer));
    EXPECT_STREQ("dflt", buffer);
    EXPECT_EQ(0, profile.GetProfile("S", "EMPTY", "dflt", buffer, sizeof buffer));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(1, profile.GetProfileSectionA("T", buffer, sizeof buffer));
    EXPECT_EQ(std::string("A=1\0B=22\0\0", 10), std::string(buffer, 10));
    EXPECT_EQ(0, profile.GetProfileSectionA("NOSECTION", buffer, sizeof buffer));
}

} // namespace
