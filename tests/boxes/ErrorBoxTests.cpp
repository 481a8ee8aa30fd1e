// The message boxes of GetLastError and of the registry lookup (option bit 32 clear): a
// box blocks its thread until the watcher has read and dismissed it.
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

TEST(Boxes, GetLastErrorAndTheLookupWithoutASessionShowTheirBoxes)
{
    ScratchDirectory directory(KOVRA_TEST_DRIVE ":\\APP\\ERRBOX");
    const std::string missing = directory / "MISSING.TXT";
    BoxWatcher watcher;
    CKovra file;
    EXPECT_EQ(0, file.Open("T_BASE", "ERRBOX\\MISSING.TXT", KOVRA_READ));
    EXPECT_EQ(1, file.GetLastError());
    EXPECT_EQ(0, file.Open("NOPE", "F.TXT", KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(1, file.GetLastError());
    int cause = 0;
    file.Open("T_BASE", "ERRBOX\\MISSING.TXT", KOVRA_READ);
    EXPECT_EQ(1, file.GetLastError(&cause));  // reported without a box
    // Without any session the lookup and the setter report that they found none.
    void* process = reinterpret_cast<void*>(static_cast<INT_PTR>(::GetCurrentProcessId()));
    CKovra::RemoveThread(process, ::GetCurrentThreadId());
    CKovra::RemoveSession(process);
    EXPECT_STREQ(KOVRA_TEST_DRIVE ":\\APP\\F.TXT", file.GetRealFileName("T_BASE", "F.TXT"));
    EXPECT_EQ(1, CKovra::SetUser("U1"));
    EXPECT_EQ((Lines{"Kovra|Kovra : KOVRA_Exception(Type(T_BASE), FileName(ERRBOX\\MISSING.TXT), RealFileName(" +
                         missing + "), Cause(2), (Msg(" + missing + " was not found.))",
                     "Kovra|Kovra : KOVRA_ERROR(Type(NOPE), FileName(F.TXT), RealFileName(" + missing + "), Error(-1))",
                     "Kovra|CKovra::GetInfo ThreadInfo not found !!!", "Kovra|CKovra::GetInfo ThreadInfo not found !!!",
                     "Kovra|CKovra::SetInfo ThreadInfo not found !!!"}),
              watcher.Boxes());
}

} // namespace
