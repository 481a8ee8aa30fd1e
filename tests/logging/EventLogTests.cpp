// Event lines of the registry and of the thread lookup in CKOVRA.LOG (option bit 16),
// and the trace lines of the lookup's fall-back and the identity setters.
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <thread>

#include "TestSupport.h"
#include "kovra/diag.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";
const std::string kLog = kBase + "CKOVRA.LOG";

std::string Hex(unsigned long value)
{
    char text[16];
    std::snprintf(text, sizeof text, "%lx", value);
    return text;
}

const std::string kProcess = Hex(::GetCurrentProcessId());

// The texts of the event lines written since the test began, in order.
std::vector<std::string> EventTexts()
{
    static const std::regex eventLine(R"(\d\d\.\d\d \d\d:\d\d:\d\d\.\d\d\d -------- (\*.*))");
    std::vector<std::string> texts;
    std::smatch match;
    for (const std::string& line : SplitLines(ReadFileBytes(kLog)))
        if (std::regex_match(line, match, eventLine))
            texts.push_back(match[1]);
    return texts;
}

class EventLog : public ::testing::Test {
protected:
    void SetUp() override
    {
        MakeDirectories(kBase);  // the log lives in the base path, which must exist
        ::DeleteFileA(kLog.c_str());
    }
};

TEST_F(EventLog, SessionAndThreadCallsWriteTheirLines)
{
    void* session = reinterpret_cast<void*>(0x64);
    CKovra::StartSession(session);
    CKovra::StartSession(session);
    CKovra::RemoveSession(session);
    CKovra::RemoveSession(session);
    CKovra::RemoveSession(session);
    CKovra::StartThread(session, 0x2b0);
    CKovra::StartThread(session, 0x2b0);
    CKovra::RemoveThread(session, 0x2b0);
    CKovra::RemoveThread(session, 0x2b0);
    CKovra::RemoveThread(session, 0x2b0);
    EXPECT_EQ((std::vector<std::string>{
                  "*StartSession (1,64,1," + kBase + ",)",
                  "*StartSession (0,64,2," + kBase + ",)",
                  "*RemoveSession (64,1," + kBase + ")",
                  "*RemoveSession (64,0," + kBase + ")",
                  "*RemoveSession FAILED (64)",
                  "*StartSession (1,64,1," + kBase + ",)",
                  "*StartThread (1,64,2b0)",
                  "*StartSession (0,64,2," + kBase + ",)",
                  "*StartThread (0,64,2b0)",
                  "*RemoveThread (64,2b0)",
                  "*RemoveSession (64,1," + kBase + ")",
                  "*RemoveThread FAILED (64,2b0)",
                  "*RemoveThread FAILED (64,2b0)",
              }),
              EventTexts());
    // The whole line: time stamp, a blank, eight hyphens, a blank and the text.
    const std::string log = ReadFileBytes(kLog);
    EXPECT_TRUE(std::regex_search(log, std::regex(R"((^|\n)\d\d\.\d\d \d\d:\d\d:\d\d\.\d\d\d -------- \*StartThread \(1,64,2b0\)\r\n)")));
}

TEST_F(EventLog, TheLookupWritesItsFallBacksAndASummary)
{
    const std::string mainThread = Hex(::GetCurrentThreadId());
    KovraSession_S record;
    KovraGetThreadSession(&record);
    EXPECT_EQ((std::vector<std::string>{"*GetInfo =1 : Session(" + kProcess + "), ThreadID(" + mainThread +
                                        "), ModulePath(" + kBase + "), User()"}),
              EventTexts());

    ::DeleteFileA(kLog.c_str());
    std::string worker;
    std::thread unbound([&] {
        worker = Hex(::GetCurrentThreadId());
        KovraGetThreadSession(&record);
    });
    unbound.join();
    EXPECT_EQ((std::vector<std::string>{"*GetInfo FAILED 0 (" + worker + ")", "*GetInfo FAILED 1 (" + worker + ")",
                                        "*GetInfo =1 : Session(" + kProcess + "), ThreadID(" + mainThread +
                                            "), ModulePath(" + kBase + "), User()"}),
              EventTexts());

    // A binding whose session is gone, and no process session left: the oldest session answers.
    void* stale = reinterpret_cast<void*>(0x99);
    void* other = reinterpret_cast<void*>(0x77);
    CKovra::StartSession(other);
    CKovra::StartThread(stale, ::GetCurrentThreadId());
    CKovra::RemoveSession(stale);
    CKovra::RemoveThread(reinterpret_cast<void*>(static_cast<INT_PTR>(::GetCurrentProcessId())), ::GetCurrentThreadId());
    CKovra::RemoveSession(reinterpret_cast<void*>(static_cast<INT_PTR>(::GetCurrentProcessId())));
    ::DeleteFileA(kLog.c_str());
    KovraGetThreadSession(&record);
    EXPECT_EQ((std::vector<std::string>{"*GetInfo FAILED 0 (" + mainThread + ",99)",
                                        "*GetInfo FAILED 2 (" + mainThread + ")",
                                        "*GetInfo =1 : Session(77), ThreadID(" + mainThread + "), ModulePath(" +
                                            kBase + "), User()"}),
              EventTexts());
}

TEST_F(EventLog, IdentitySettersWriteTheirLines)
{
    const std::string summary = "*GetInfo =1 : Session(" + kProcess + "), ThreadID(" + Hex(::GetCurrentThreadId()) + ")";
    CKovra::SetUser("U1");
    CKovra::SetClient("C1");
    CKovra::SetModulePath(KOVRA_TEST_DRIVE ":\\MOD");
    EXPECT_EQ((std::vector<std::string>{
                  summary + ", ModulePath(" + kBase + "), User()",
                  "*SetUser (U1," + kProcess + ",2," + kBase + ")",
                  summary + ", ModulePath(" + kBase + "), User(USERS\\U1)",
                  summary + ", ModulePath(" + kBase + "), User(USERS\\U1)",
                  "*SetModulePath (" + kProcess + ",2," KOVRA_TEST_DRIVE ":\\MOD\\,USERS\\U1)",
              }),
              EventTexts());
}

TEST(Traces, RegistryIdentityAndFallBackTraces)
{
    ScratchDirectory directory(kBase + "TRACES");
    MonitorProgram monitor(directory / "monitor.txt");
    ASSERT_TRUE(monitor.Ready());
    CKovra::SetDebugLevel(1 | 4);
    CKovra::StartThread(reinterpret_cast<void*>(42), 7);
    CKovra::RemoveThread(reinterpret_cast<void*>(42), 7);
    CKovra::SetUser("U2");
    std::thread([] {
        KovraSession_S record;
        KovraGetThreadSession(&record);
    }).join();
    const std::vector<std::string> expected = {
        "Kovra : StartThread : Session(42), ThreadID(7)",
        "Kovra : StartSession : Session(42)",
        "Kovra : StartSession : Add this Session(42)",
        "Kovra : RemoveThread : Session(42), ThreadID(7)",
        "Kovra : RemoveSession : Session(42)",
        "Kovra : SetUser : User(U2)",
        "Kovra : GetInfo Default-Handling !!!",
        "Kovra : GetInfo Default 1",
    };
    ASSERT_TRUE(monitor.WaitForLines(expected.size()));
    EXPECT_EQ(expected, monitor.Texts());
}

} // namespace
