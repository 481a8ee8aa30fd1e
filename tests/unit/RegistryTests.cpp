// The per-process registry of sessions and thread bindings, the calling thread's session
// record and the identity setters.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <thread>
#include <vector>

#include "kovra/diag.h"
#include "kovra/kovra.h"

namespace {

void* Session(INT_PTR value)
{
    return reinterpret_cast<void*>(value);
}

void* ProcessSession()
{
    return Session(static_cast<INT_PTR>(::GetCurrentProcessId()));
}

const std::string kProcess = std::to_string(::GetCurrentProcessId());

// The session records "<session>:<reference count>", "|", the bindings "<session>/<thread id>".
std::string Registry()
{
    std::string text;
    KovraSession_S record;
    for (int index = 0; KovraGetSession(index, &record); ++index)
        text += std::to_string(reinterpret_cast<INT_PTR>(record.session)) + ":" +
                std::to_string(record.referenceCount) + " ";
    text += "|";
    void* session = nullptr;
    unsigned long thread = 0;
    for (int index = 0; KovraGetThreadBinding(index, &session, &thread); ++index)
        text += " " + std::to_string(reinterpret_cast<INT_PTR>(session)) + "/" + std::to_string(thread);
    return text;
}

// The session record that the calling thread's names resolve with.
KovraSession_S CallerSession()
{
    KovraSession_S record = {};
    EXPECT_EQ(1, KovraGetThreadSession(&record));
    return record;
}

TEST(Registry, StartsAndRemovalsCountReferences)
{
    const std::string self = " " + kProcess + "/" + std::to_string(::GetCurrentThreadId());
    // Start-up counted the process session for itself and for the thread that loaded the library.
    EXPECT_EQ(kProcess + ":2 |" + self, Registry());

    EXPECT_EQ(1, CKovra::StartSession(Session(4711)));
    EXPECT_EQ(0, CKovra::StartSession(Session(4711)));
    EXPECT_EQ(1, CKovra::RemoveSession(Session(4711)));
    EXPECT_EQ(kProcess + ":2 4711:1 |" + self, Registry());
    EXPECT_EQ(1, CKovra::RemoveSession(Session(4711)));
    EXPECT_EQ(0, CKovra::RemoveSession(Session(4711)));

    // Starting one thread twice counts its session twice but binds it once.
    EXPECT_EQ(1, CKovra::StartThread(Session(77), 5000));
    EXPECT_EQ(0, CKovra::StartThread(Session(77), 5000));
    EXPECT_EQ(kProcess + ":2 77:2 |" + self + " 77/5000", Registry());
    EXPECT_EQ(1, CKovra::RemoveThread(Session(77), 5000));
    EXPECT_EQ(0, CKovra::RemoveThread(Session(77), 5000));  // no longer bound: the count stays
    EXPECT_EQ(kProcess + ":2 77:1 |" + self, Registry());

    // Removing a session leaves the bindings of its threads.
    CKovra::StartThread(Session(77), 6000);
    EXPECT_EQ(1, CKovra::RemoveSession(Session(77)));
    EXPECT_EQ(1, CKovra::RemoveSession(Session(77)));
    EXPECT_EQ(kProcess + ":2 |" + self + " 77/6000", Registry());
}

TEST(Registry, TheCallersSessionComesFromItsNewestLiveBindingOrAFallBack)
{
    const unsigned long self = ::GetCurrentThreadId();
    CKovra::StartThread(Session(101), self);
    EXPECT_EQ(Session(101), CallerSession().session);
    CKovra::StartThread(Session(102), self);  // bound to two sessions: the newest binding wins
    EXPECT_EQ(Session(102), CallerSession().session);
    CKovra::StartThread(Session(105), self);
    CKovra::RemoveThread(Session(102), self);  // a binding between two others goes
    EXPECT_EQ(Session(105), CallerSession().session);
    CKovra::RemoveThread(Session(105), self);
    EXPECT_EQ(Session(101), CallerSession().session);
    CKovra::RemoveSession(Session(101));  // a stale binding finds no record: the process session answers
    EXPECT_EQ(ProcessSession(), CallerSession().session);

    // With option 1 a binding to the process session gives way to any other binding.
    CKovra::RemoveThread(ProcessSession(), self);
    CKovra::StartThread(Session(103), self);
    CKovra::StartThread(ProcessSession(), self);
    EXPECT_EQ(ProcessSession(), CallerSession().session);
    EXPECT_EQ(1, CKovra::SetOption(1, 7));
    EXPECT_EQ(Session(103), CallerSession().session);
    std::thread([] { EXPECT_EQ(ProcessSession(), CallerSession().session); }).join();  // unbound
    EXPECT_EQ(1, CKovra::SetOption(1, 0));

    // Without the process session an unbound thread gets the oldest session; without any, none.
    CKovra::StartSession(Session(104));
    CKovra::RemoveThread(ProcessSession(), self);
    CKovra::RemoveSession(ProcessSession());
    std::thread([] { EXPECT_EQ(Session(103), CallerSession().session); }).join();
    CKovra::RemoveThread(Session(103), self);
    CKovra::RemoveSession(Session(104));
    EXPECT_EQ(0, KovraGetThreadSession(nullptr));
}

TEST(Identity, EveryThreadOfASessionSeesItAndOverlongValuesAreRefused)
{
    void* session = Session(401);
    const std::string longest(253, 'u');
    std::thread([&] {
        CKovra::StartThread(session, ::GetCurrentThreadId());
        EXPECT_EQ(1, CKovra::SetUser(longest.c_str()));
        EXPECT_EQ(0, CKovra::SetUser((longest + "u").c_str()));
        EXPECT_EQ(1, CKovra::SetClient("C1"));
        EXPECT_EQ(0, CKovra::SetClient(std::string(252, 'c').c_str()));
        EXPECT_EQ(0, CKovra::SetModulePath(std::string(259, 'm').c_str()));
        EXPECT_EQ(1, CKovra::SetModulePath("C:\\APP"));
    }).join();
    std::thread([&] {
        CKovra::StartThread(session, ::GetCurrentThreadId());
        KovraSession_S seen = CallerSession();
        EXPECT_EQ(session, seen.session);
        EXPECT_EQ("USERS\\" + longest, seen.user);
        EXPECT_STREQ("CLIENTS\\C1", seen.client);
        EXPECT_STREQ("C:\\APP\\", seen.modulePath);
    }).join();
    EXPECT_STREQ("", CallerSession().user);  // the process session kept its own identity
}

TEST(Registry, ManyThreadsAtOnceKeepTheCountsAndLoseNoChange)
{
    std::vector<std::thread> workers;
    for (int worker = 0; worker < 8; ++worker) {
        workers.emplace_back([worker] {
            void* own = Session(600 + worker);
            const std::string user = "W" + std::to_string(worker);
            for (int round = 0; round < 150; ++round) {
                CKovra::StartSession(Session(500));
                CKovra::StartThread(own, ::GetCurrentThreadId());
                CKovra::SetUser(user.c_str());
                EXPECT_EQ("USERS\\" + user, CallerSession().user);
                EXPECT_EQ(1, CKovra::RemoveThread(own, ::GetCurrentThreadId()));
                CKovra::RemoveSession(Session(500));
            }
        });
    }
    // Meanwhile two unbound threads change the process session: neither change gets lost.
    for (const char* prefix : {"U", "C"}) {
        workers.emplace_back([prefix] {
            auto setter = prefix[0] == 'U' ? &CKovra::SetUser : &CKovra::SetClient;
            for (int round = 0; round < 300; ++round)
                setter((prefix + std::to_string(round)).c_str(), 0);
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(kProcess + ":2 | " + kProcess + "/" + std::to_string(::GetCurrentThreadId()), Registry());
    EXPECT_STREQ("USERS\\U299", CallerSession().user);
    EXPECT_STREQ("CLIENTS\\C299", CallerSession().client);
}

} // namespace
