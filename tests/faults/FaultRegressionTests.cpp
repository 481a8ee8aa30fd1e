// Faults that the fault walk found in the library, each pinned by the failed call that
// showed it.
#include <gtest/gtest.h>

#include "FaultInjection.h"
#include "FileChecks.h"
#include "kovra/kovra.h"

namespace {

using namespace kovrafaults;

const std::string kRoot = KOVRA_TEST_DRIVE ":\\APP\\";

// Runs work with the ordinal-th call of function failing with fault.
template <typename Work>
void WithFailedCall(const char* function, int ordinal, Fault fault, Work work)
{
    ASSERT_TRUE(InstallHooks());
    EXPECT_TRUE(RunArmed({{function, ordinal, fault}}, work).failuresMet) << function;
}

// An existence test that fails for another reason than a missing file proves nothing:
// Remove, and Close for a temporary file, remove the file all the same.
TEST(FaultRegressions, AFailedExistenceTestIsNoMissingFile)
{
    kovratest::ScratchDirectory scratch(kRoot);
    kovratest::WriteFileBytes(scratch / "HELD.TXT", "x");
    CKovra file("DFT", "HELD.TXT", 0, nullptr, 0);
    int removed = 0;
    WithFailedCall("_access", 1, Fault::networkNameGone, [&] { removed = file.Remove(0); });
    EXPECT_EQ(removed, 1);
    EXPECT_FALSE(kovratest::PathExists(scratch / "HELD.TXT"));

    CKovra temporary;
    temporary.Open(nullptr, nullptr, KOVRA_READWRITE, nullptr, 0);
    const std::string path = temporary.GetRealFileName(0);
    ASSERT_TRUE(kovratest::PathExists(path));
    WithFailedCall("_access", 1, Fault::accessDenied, [&] { temporary.Close(0); });
    EXPECT_FALSE(kovratest::PathExists(path));
}

// SetLength moves the file pointer to the new end and back; a pointer that can't be moved
// back would send the next write elsewhere, so the member fails and tells why.
TEST(FaultRegressions, SetLengthFailsWhenThePositionCantBeMovedBack)
{
    kovratest::ScratchDirectory scratch(kRoot);
    kovratest::WriteFileBytes(scratch / "LENGTH.TXT", "0123456789");
    CKovra file("DFT", "LENGTH.TXT", KOVRA_READWRITE, nullptr, 0);
    file.Seek(2, 0, 0);
    int set = 1;
    WithFailedCall("SetFilePointerEx", 3, Fault::accessDenied, [&] { set = file.SetLength(4, 0); });
    EXPECT_EQ(set, 0);
    EXPECT_EQ(kovratest::CauseOf(file), 5);
}

} // namespace
