// The lookup's message boxes when no session is registered (option bit 32 clear).
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

void RemoveProcessSession()
{
    void* process = reinterpret_cast<void*>(static_cast<INT_PTR>(::GetCurrentProcessId()));
    CKovra::RemoveThread(process, ::GetCurrentThreadId());
    CKovra::RemoveSession(process);
}

std::vector<std::string> Texts(BoxWatcher& watcher)
{
    std::vector<std::string> texts;
    for (const MessageBoxSeen& box : watcher.Boxes())
        texts.push_back(box.caption + "|" + box.text);
    return texts;
}

TEST(RegistryBoxes, ResolvingWithoutAnySessionShowsTheLookupBoxAndUsesAnEmptyContext)
{
    RemoveProcessSession();
    BoxWatcher watcher;
    CKovra file;
    EXPECT_STREQ("F.TXT", file.GetRealFileName("T_MODULE", "F.TXT"));  // no module path
    EXPECT_STREQ(KOVRA_TEST_DRIVE ":\\APP\\F.TXT", file.GetRealFileName("T_BASE", "F.TXT"));
    ASSERT_TRUE(watcher.WaitFor(2));
    EXPECT_EQ((std::vector<std::string>{"Kovra|CKovra::GetInfo ThreadInfo not found !!!",
                                        "Kovra|CKovra::GetInfo ThreadInfo not found !!!"}),
              Texts(watcher));
}

TEST(RegistryBoxes, ASetterWithoutAnySessionShowsBothBoxesAndStillAnswersOne)
{
    RemoveProcessSession();
    BoxWatcher watcher;
    EXPECT_EQ(1, CKovra::SetUser("U1"));
    ASSERT_TRUE(watcher.WaitFor(2));
    EXPECT_EQ((std::vector<std::string>{"Kovra|CKovra::GetInfo ThreadInfo not found !!!",
                                        "Kovra|CKovra::SetInfo ThreadInfo not found !!!"}),
              Texts(watcher));
}

TEST(RegistryBoxes, ARegisteredProcessShowsNoBox)
{
    BoxWatcher watcher;
    CKovra file;
    EXPECT_STREQ(KOVRA_TEST_DRIVE ":\\APP\\F.TXT", file.GetRealFileName("T_MODULE", "F.TXT"));
    EXPECT_EQ(1, CKovra::SetUser("U1"));
    ::Sleep(100);
    EXPECT_TRUE(watcher.Boxes().empty());
}

} // namespace
