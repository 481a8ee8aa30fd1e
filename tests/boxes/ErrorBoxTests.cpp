// GetLastError's report box (option bit 32 clear): shown only when neither a cause nor a
// message pointer is given.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

TEST(ErrorBoxes, GetLastErrorWithoutPointersShowsTheReport)
{
    ScratchDirectory directory(kBase + "ERRBOX");
    const std::string missing = directory / "MISSING.TXT";
    BoxWatcher watcher;
    CKovra file;
    // A box blocks its thread until the watcher has read and dismissed it.
    EXPECT_EQ(0, file.Open("T_BASE", "ERRBOX\\MISSING.TXT", KOVRA_READ));
    EXPECT_EQ(1, file.GetLastError());
    EXPECT_EQ(0, file.Open("NOPE", "F.TXT", KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(1, file.GetLastError());
    EXPECT_EQ(0, file.GetLastError());  // nothing pending: no box

    // With a pointer the failure is reported without a box.
    int cause = 0;
    char message[256];
    file.Open("T_BASE", "ERRBOX\\MISSING.TXT", KOVRA_READ);
    EXPECT_EQ(1, file.GetLastError(&cause));
    file.Open("NOPE", "F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(1, file.GetLastError(nullptr, message, sizeof message));

    const std::vector<MessageBoxSeen> boxes = watcher.Boxes();
    ASSERT_EQ(2u, boxes.size());
    EXPECT_EQ("Kovra", boxes[0].caption);
    EXPECT_EQ("Kovra : KOVRA_Exception(Type(T_BASE), FileName(ERRBOX\\MISSING.TXT), RealFileName(" + missing +
                  "), Cause(2), (Msg(" + missing + " was not found.))",
              boxes[0].text);
    EXPECT_EQ("Kovra : KOVRA_ERROR(Type(NOPE), FileName(F.TXT), RealFileName(" + missing + "), Error(-1))",
              boxes[1].text);
}

} // namespace
