// What the C interface adds to the members: handles, the failure values of a null handle,
// the protected and variadic members, the operators' handle results and plain-second times.
#include <gtest/gtest.h>

#include <string>

#include "FileChecks.h"
#include "kovra/capi.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

TEST(CInterface, NullHandlesGiveFailureValues)
{
    EXPECT_EQ(0, KovraFile_Open(nullptr, "T_BASE", "A.TXT", KOVRA_READ, nullptr, 0));
    EXPECT_STREQ("", KovraFile_GetRealFileName(nullptr, 0));
    EXPECT_EQ(0, KovraFile_GetLastError(nullptr, nullptr, nullptr, 0, 0));
    EXPECT_EQ(0u, KovraFile_Printf(nullptr, 0, "%d", 1));
    EXPECT_EQ(7L, KovraFile_GetProfileLong(nullptr, "S", "K", 7, 0));
    EXPECT_EQ(2.5, KovraFile_GetProfileDouble(nullptr, "S", "K", 2.5, 0));
    EXPECT_EQ(nullptr, KovraFile_OperatorAssign(nullptr, 3));
    EXPECT_EQ(0, KovraFind_FindFile(nullptr, "T_BASE", "*.*", 0));
    EXPECT_STREQ("", KovraFind_GetFilePath(nullptr, 0));
    KovraFile_Destroy(nullptr);
    KovraFind_Destroy(nullptr);
    EXPECT_EQ(KOVRA_C_INTERFACE_VERSION, Kovra_InterfaceVersion());
}

TEST(CInterface, ReachesEveryKindOfMember)
{
    ScratchDirectory directory(kBase + "CI");
    KovraFile* file = KovraFile_Create("T_BASE", "CI\\F.TXT", KOVRA_READWRITE | KOVRA_TEXT, nullptr, 0);
    ASSERT_NE(nullptr, file);
    EXPECT_EQ(5u, KovraFile_Printf(file, 0, "%d-%s\n", 5, "x"));
    EXPECT_EQ(file, KovraFile_OperatorAssign(file, 1));
    EXPECT_EQ(file, KovraFile_OperatorAddAssign(file, 3));
    EXPECT_EQ(file, KovraFile_OperatorSubtractAssign(file, 2));
    EXPECT_EQ(2UL, KovraFile_GetPosition(file, 0));
    EXPECT_EQ("5-x\r\n", ReadFileBytes(directory / "F.TXT"));

    char name[260] = "D%y%M%D.TXT";  // date fields that keep the length are replaced in place
    char realFileName[260] = "";
    EXPECT_EQ(1, KovraFile_BuildFileName(file, "T_BASE", name, realFileName, 0));
    EXPECT_EQ("D" + CurrentUtcDate("%y%m%d") + ".TXT", std::string(name));
    EXPECT_EQ(kBase + name, std::string(realFileName));

    const int64_t stamp = 1700000000;
    int64_t read = 5;
    EXPECT_EQ(0, KovraFile_GetModificationTime(file, nullptr, 0));
    EXPECT_EQ(1, KovraFile_SetModificationTime(file, &stamp, 0));
    EXPECT_EQ(1, KovraFile_GetModificationTime(file, &read, 0));
    EXPECT_EQ(stamp, read);

    char message[256] = "";
    int cause = 0;
    EXPECT_EQ(0, KovraFile_Open(file, "NOSUCH", "X.TXT", KOVRA_RESOLVE_ONLY, nullptr, 0));
    EXPECT_EQ(1, KovraFile_GetLastError(file, &cause, message, sizeof message - 1, 0));
    EXPECT_EQ(-1, cause);
    EXPECT_EQ("Kovra : KOVRA_ERROR(NOSUCH, X.TXT, " + kBase + "CI\\F.TXT, -1)", std::string(message));
    KovraFile_Destroy(file);
}

} // namespace
