// The per-process registry of sessions and thread bindings, the calling thread's
// session record and the identity setters.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
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

// The reference count of a session record, 0 when there is none.
int ReferenceCount(void* session)
{
    KovraSession_S record;
    for (int index = 0; KovraGetSession(index, &record); ++index)
        if (record.session == session)
            return record.referenceCount;
    return 0;
}

int SessionCount()
{
    KovraSession_S record;
    int count = 0;
    while (KovraGetSession(count, &record))
        ++count;
    return count;
}

int BindingCount(void* session, unsigned long threadId)
{
    void* bound = nullptr;
    unsigned long boundThread = 0;
    int count = 0;
    for (int index = 0; KovraGetThreadBinding(index, &bound, &boundThread); ++index)
        if (bound == session && boundThread == threadId)
            ++count;
    return count;
}

int AllBindings()
{
    int count = 0;
    while (KovraGetThreadBinding(count, nullptr, nullptr))
        ++count;
    return count;
}

// The session that GetInfo gives the calling thread.
KovraSession_S CallerSession()
{
    KovraSession_S record = {};
    EXPECT_EQ(1, KovraGetThreadSession(&record));
    return record;
}

// Runs body on a new thread and waits for it.
template <typename Body>
void OnOtherThread(Body body)
{
    std::thread thread(body);
    thread.join();
}

TEST(Registry, StartUpRegistersTheProcessAndItsLoadingThread)
{
    ASSERT_EQ(1, SessionCount());
    KovraSession_S record;
    ASSERT_EQ(1, KovraGetSession(0, &record));
    EXPECT_EQ(ProcessSession(), record.session);
    EXPECT_EQ(2, record.referenceCount);
    EXPECT_STREQ(KOVRA_TEST_DRIVE ":\\APP\\", record.modulePath);
    EXPECT_STREQ("", record.user);
    EXPECT_STREQ("", record.client);
    ASSERT_EQ(1, AllBindings());
    EXPECT_EQ(1, BindingCount(ProcessSession(), ::GetCurrentThreadId()));
}

TEST(Registry, SessionsAreCountedByStartsAndRemovals)
{
    void* session = Session(4711);
    EXPECT_EQ(1, CKovra::StartSession(session));
    EXPECT_EQ(0, CKovra::StartSession(session));
    EXPECT_EQ(2, ReferenceCount(session));
    EXPECT_EQ(1, CKovra::RemoveSession(session));
    EXPECT_EQ(1, ReferenceCount(session));
    EXPECT_EQ(1, CKovra::RemoveSession(session));
    EXPECT_EQ(0, ReferenceCount(session));
    EXPECT_EQ(0, CKovra::RemoveSession(session));
    EXPECT_EQ(1, SessionCount());  // only the process session is left

    // A session started again begins with a fresh identity.
    CKovra::StartSession(session);
    CKovra::StartThread(session, ::GetCurrentThreadId());
    CKovra::SetUser("U1");
    EXPECT_STREQ("USERS\\U1", CallerSession().user);
    CKovra::RemoveThread(session, ::GetCurrentThreadId());
    CKovra::RemoveSession(session);
    EXPECT_EQ(0, ReferenceCount(session));
    CKovra::StartSession(session);
    KovraSession_S record;
    ASSERT_EQ(1, KovraGetSession(1, &record));
    EXPECT_STREQ("", record.user);
}

TEST(Registry, StartingOneThreadTwiceCountsTheSessionTwiceButBindsOnce)
{
    void* session = Session(77);
    const unsigned long thread = 5000;
    EXPECT_EQ(1, CKovra::StartThread(session, thread));
    EXPECT_EQ(1, ReferenceCount(session));
    EXPECT_EQ(0, CKovra::StartThread(session, thread));
    EXPECT_EQ(2, ReferenceCount(session));
    EXPECT_EQ(1, BindingCount(session, thread));

    EXPECT_EQ(1, CKovra::RemoveThread(session, thread));
    EXPECT_EQ(0, BindingCount(session, thread));
    EXPECT_EQ(1, ReferenceCount(session));
    EXPECT_EQ(0, CKovra::RemoveThread(session, thread));  // not bound: the count stays
    EXPECT_EQ(1, ReferenceCount(session));
    EXPECT_EQ(1, CKovra::RemoveSession(session));
    EXPECT_EQ(0, ReferenceCount(session));
}

TEST(Registry, RemovingASessionLeavesItsBindingsAndLookupsFallBack)
{
    void* session = Session(88);
    const unsigned long thisThread = ::GetCurrentThreadId();
    CKovra::StartThread(session, thisThread);
    CKovra::StartThread(session, 6000);
    EXPECT_EQ(2, ReferenceCount(session));
    EXPECT_EQ(session, CallerSession().session);

    EXPECT_EQ(1, CKovra::RemoveSession(session));
    EXPECT_EQ(1, CKovra::RemoveSession(session));
    EXPECT_EQ(0, ReferenceCount(session));
    EXPECT_EQ(1, BindingCount(session, thisThread));
    EXPECT_EQ(1, BindingCount(session, 6000));
    // The stale binding finds no record: the process session answers.
    EXPECT_EQ(ProcessSession(), CallerSession().session);
}

TEST(Registry, TheNewestBindingOfAThreadWins)
{
    const unsigned long thisThread = ::GetCurrentThreadId();
    void* first = Session(101);
    void* second = Session(102);
    CKovra::StartThread(first, thisThread);
    EXPECT_EQ(first, CallerSession().session);
    CKovra::StartThread(second, thisThread);
    EXPECT_EQ(1, BindingCount(first, thisThread));
    EXPECT_EQ(1, BindingCount(second, thisThread));
    EXPECT_EQ(second, CallerSession().session);
    CKovra::RemoveThread(second, thisThread);
    EXPECT_EQ(first, CallerSession().session);
    EXPECT_EQ(1, BindingCount(first, thisThread));
}

TEST(Registry, UnboundThreadsFallBackToTheProcessSessionThenTheOldestSession)
{
    void* older = Session(201);
    void* newer = Session(202);
    CKovra::StartSession(older);
    CKovra::StartSession(newer);
    OnOtherThread([] { EXPECT_EQ(ProcessSession(), CallerSession().session); });

    // Without the process session the oldest remaining session answers.
    CKovra::RemoveThread(ProcessSession(), ::GetCurrentThreadId());
    CKovra::RemoveSession(ProcessSession());
    ASSERT_EQ(0, ReferenceCount(ProcessSession()));
    OnOtherThread([older] { EXPECT_EQ(older, CallerSession().session); });

    // With no session at all there is nothing to find.
    CKovra::RemoveSession(older);
    CKovra::RemoveSession(newer);
    KovraSession_S record = {};
    EXPECT_EQ(0, KovraGetThreadSession(&record));
}

TEST(Registry, SkippingTheProcessSessionPrefersAnyOtherBinding)
{
    const unsigned long thisThread = ::GetCurrentThreadId();
    void* other = Session(301);
    EXPECT_EQ(1, CKovra::SetOption(1, 7));

    // Bound only to the process session: the fall-back still finds it.
    EXPECT_EQ(ProcessSession(), CallerSession().session);

    // Bound to another session first and then to the process session: the other one wins.
    CKovra::RemoveThread(ProcessSession(), thisThread);
    CKovra::StartThread(other, thisThread);
    CKovra::StartThread(ProcessSession(), thisThread);
    EXPECT_EQ(other, CallerSession().session);

    EXPECT_EQ(1, CKovra::SetOption(1, 0));
    EXPECT_EQ(ProcessSession(), CallerSession().session);
    EXPECT_EQ(0, CKovra::SetOption(2, 1));
}

TEST(Identity, SettersStoreTheirForms)
{
    EXPECT_EQ(1, CKovra::SetUser("abc"));
    EXPECT_STREQ("USERS\\abc", CallerSession().user);
    EXPECT_EQ(1, CKovra::SetClient("abc"));
    EXPECT_STREQ("CLIENTS\\abc", CallerSession().client);
    EXPECT_EQ(1, CKovra::SetModulePath("C:\\APP"));
    EXPECT_STREQ("C:\\APP\\", CallerSession().modulePath);
    EXPECT_EQ(1, CKovra::SetModulePath("C:\\APP\\"));
    EXPECT_STREQ("C:\\APP\\", CallerSession().modulePath);
    EXPECT_EQ(1, CKovra::SetModulePath(""));
    EXPECT_STREQ("\\", CallerSession().modulePath);
    EXPECT_EQ(1, CKovra::SetUser(""));
    EXPECT_STREQ("USERS\\", CallerSession().user);

    // Names that the record can't hold are refused and change nothing.
    const std::string longest(253, 'u');
    EXPECT_EQ(1, CKovra::SetUser(longest.c_str()));
    EXPECT_EQ("USERS\\" + longest, CallerSession().user);
    EXPECT_EQ(0, CKovra::SetUser((longest + "u").c_str()));
    EXPECT_EQ("USERS\\" + longest, CallerSession().user);
    EXPECT_EQ(0, CKovra::SetClient(std::string(252, 'c').c_str()));
    EXPECT_EQ(0, CKovra::SetModulePath(std::string(259, 'm').c_str()));
    EXPECT_EQ(1, CKovra::SetModulePath((std::string(258, 'm') + "\\").c_str()));
    EXPECT_EQ(1, CKovra::SetUser(nullptr));
    EXPECT_STREQ("USERS\\", CallerSession().user);
}

TEST(Identity, IsSharedByEveryThreadOfASession)
{
    void* session = Session(401);
    OnOtherThread([&] {
        CKovra::StartThread(session, ::GetCurrentThreadId());
        CKovra::SetUser("U1");
        CKovra::SetClient("C1");
        OnOtherThread([&] {
            CKovra::StartThread(session, ::GetCurrentThreadId());
            KovraSession_S seen = CallerSession();
            EXPECT_EQ(session, seen.session);
            EXPECT_STREQ("USERS\\U1", seen.user);
            EXPECT_STREQ("CLIENTS\\C1", seen.client);
        });
    });
    // An unbound thread sees the process session, which kept its own identity.
    OnOtherThread([] {
        KovraSession_S seen = CallerSession();
        EXPECT_EQ(ProcessSession(), seen.session);
        EXPECT_STREQ("", seen.user);
    });
    // A change to the process session reaches unbound threads.
    CKovra::SetUser("MAIN");
    OnOtherThread([] { EXPECT_STREQ("USERS\\MAIN", CallerSession().user); });
}

TEST(Identity, ValidClientsAreTheDirectoriesBelowTheDataPath)
{
    kovratest::ScratchDirectory clients(KOVRA_TEST_DRIVE ":\\APP\\CLIENTS\\");
    kovratest::MakeDirectories(clients / "C9");
    EXPECT_EQ(1, CKovra::IsValidClient("C9"));
    EXPECT_EQ(0, CKovra::IsValidClient("C8"));
    EXPECT_EQ(0, CKovra::IsValidClient(std::string(300, 'x').c_str()));
}

TEST(Registry, ManyThreadsAtOnceKeepTheCountsConsistent)
{
    void* shared = Session(500);
    const int threads = 8;
    const int rounds = 150;
    std::vector<std::thread> workers;
    for (int worker = 0; worker < threads; ++worker) {
        workers.emplace_back([=] {
            void* own = Session(600 + worker);
            const unsigned long self = ::GetCurrentThreadId();
            for (int round = 0; round < rounds; ++round) {
                CKovra::StartSession(shared);
                CKovra::StartThread(own, self);
                CKovra::SetUser(("W" + std::to_string(worker)).c_str());
                EXPECT_EQ(own, CallerSession().session);
                EXPECT_EQ("USERS\\W" + std::to_string(worker), CallerSession().user);
                EXPECT_EQ(1, CKovra::RemoveThread(own, self));
                CKovra::RemoveSession(shared);
            }
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(0, ReferenceCount(shared));
    EXPECT_EQ(1, SessionCount());
    EXPECT_EQ(2, ReferenceCount(ProcessSession()));
    EXPECT_EQ(1, AllBindings());
}

TEST(Identity, TwoThreadsChangingOneSessionNeverLoseAChange)
{
    // Each setter reads the record and writes it back whole; done under one hold of the
    // registry lock, neither thread's field can be overwritten by a stale copy.
    const int rounds = 300;
    std::thread users([&] {
        for (int round = 0; round < rounds; ++round)
            CKovra::SetUser(("U" + std::to_string(round)).c_str());
    });
    std::thread clients([&] {
        for (int round = 0; round < rounds; ++round)
            CKovra::SetClient(("C" + std::to_string(round)).c_str());
    });
    users.join();
    clients.join();
    KovraSession_S seen = CallerSession();
    EXPECT_EQ("USERS\\U" + std::to_string(rounds - 1), seen.user);
    EXPECT_EQ("CLIENTS\\C" + std::to_string(rounds - 1), seen.client);
    EXPECT_EQ(2, seen.referenceCount);
}

} // namespace
