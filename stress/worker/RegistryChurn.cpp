// Registry churn: threads start, bind, change and remove sessions at random while each
// keeps its own account of what it did. Every thread removes only what it started
// itself, so at every moment the registry must equal the sum of the accounts: the
// reference counts exactly, every binding to a live session. Sessions of one thread
// (private) are checked against its account while it runs; sessions that all threads
// share are checked at the end, when the accounts are added up.
#include <cstdio>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Worker.h"
#include "kovra/diag.h"
#include "kovra/kovra.h"

namespace stress {

namespace {

constexpr int kPrivateSessions = 4;
constexpr int kSharedSessions = 4;
constexpr size_t kFaultsShown = 20;

void* Value(uintptr_t value)
{
    return reinterpret_cast<void*>(value);
}

void* PrivateSession(int thread, int index)
{
    return Value(0x53000000u | static_cast<unsigned>(thread) << 8 | static_cast<unsigned>(index));
}

void* SharedSession(int index)
{
    return Value(0x5E000000u | static_cast<unsigned>(index));
}

// A value that no thread ever starts: removing it must fail.
void* UnknownSession(int thread)
{
    return Value(0x5F000000u | static_cast<unsigned>(thread));
}

void* ProcessSession()
{
    return Value(::GetCurrentProcessId());
}

// The identity fields as a session record holds them.
struct Identity {
    std::string modulePath;
    std::string user;
    std::string client;

    bool operator==(const Identity& other) const
    {
        return modulePath == other.modulePath && user == other.user && client == other.client;
    }
};

Identity IdentityOf(const KovraSession_S& record)
{
    return Identity{record.modulePath, record.user, record.client};
}

// What one thread holds of one session.
struct Holding {
    Holding(void* value, bool ownedByOneThread) : session(value), isPrivate(ownedByOneThread) {}

    void* session;
    bool isPrivate;
    int references = 0;
    bool bound = false;
    Identity identity;  // private sessions only: what the record must show
};

class Faults {
public:
    void Add(const std::string& what)
    {
        std::lock_guard<std::mutex> hold(m_mutex);
        if (m_list.size() < kFaultsShown)
            m_list.push_back(what);
        ++m_count;
    }
    int Count() const { return m_count; }
    void Print() const
    {
        for (const std::string& fault : m_list)
            std::printf("   registry fault: %s\n", fault.c_str());
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_list;
    int m_count = 0;
};

std::string Hex(const void* session)
{
    char text[24];
    std::snprintf(text, sizeof text, "%lx", static_cast<unsigned long>(reinterpret_cast<uintptr_t>(session)));
    return text;
}

class Churner {
public:
    Churner(int thread, const std::string& basePath, ULONGLONG deadline, Faults& faults)
        : m_thread(thread), m_basePath(basePath), m_deadline(deadline), m_faults(faults), m_random(thread + 1)
    {
        for (int index = 0; index < kPrivateSessions; ++index)
            m_holdings.emplace_back(PrivateSession(thread, index), true);
        for (int index = 0; index < kSharedSessions; ++index)
            m_holdings.emplace_back(SharedSession(index), false);
    }

    void Run()
    {
        m_threadId = ::GetCurrentThreadId();
        while (Now() < m_deadline) {
            Holding& holding = m_holdings[m_random() % m_holdings.size()];
            switch (m_random() % 8) {
            case 0: StartSession(holding); break;
            case 1: RemoveSession(holding); break;
            case 2: StartThread(holding); break;
            case 3: RemoveThread(holding); break;
            case 4: ChangeIdentity(); break;
            default: LookUp(); break;
            }
            ++m_calls;
        }
    }

    unsigned long ThreadId() const { return m_threadId; }
    long Calls() const { return m_calls; }
    const std::vector<Holding>& Holdings() const { return m_holdings; }

private:
    void Expect(bool condition, const char* call, const void* session)
    {
        if (!condition)
            m_faults.Add("thread " + std::to_string(m_thread) + ": " + call + " of session " + Hex(session));
    }

    // A private record that comes into being starts from the base path and no user or client.
    void Created(Holding& holding)
    {
        if (holding.references == 0)
            holding.identity = Identity{m_basePath, "", ""};
    }

    void StartSession(Holding& holding)
    {
        int result = CKovra::StartSession(holding.session);
        if (holding.isPrivate)
            Expect(result == (holding.references == 0 ? 1 : 0), "StartSession's result", holding.session);
        Created(holding);
        ++holding.references;
    }

    // Only references beyond the one a binding needs are given back, so that no binding
    // ever outlives its session; a removal of a session never started must fail.
    void RemoveSession(Holding& holding)
    {
        if (holding.references > (holding.bound ? 1 : 0)) {
            Expect(CKovra::RemoveSession(holding.session) == 1, "RemoveSession's result", holding.session);
            --holding.references;
        } else {
            Expect(CKovra::RemoveSession(UnknownSession(m_thread)) == 0, "RemoveSession of an unknown session",
                   UnknownSession(m_thread));
        }
    }

    void StartThread(Holding& holding)
    {
        Expect(CKovra::StartThread(holding.session, m_threadId) == (holding.bound ? 0 : 1), "StartThread's result",
               holding.session);
        Created(holding);
        ++holding.references;
        if (!holding.bound)
            m_bindings.push_back(&holding);
        holding.bound = true;
    }

    void RemoveThread(Holding& holding)
    {
        Expect(CKovra::RemoveThread(holding.session, m_threadId) == (holding.bound ? 1 : 0), "RemoveThread's result",
               holding.session);
        if (!holding.bound)
            return;
        --holding.references;
        holding.bound = false;
        for (auto it = m_bindings.begin(); it != m_bindings.end(); ++it) {
            if (*it == &holding) {
                m_bindings.erase(it);
                break;
            }
        }
    }

    // The setters change the session of the thread's newest binding, or the process's.
    void ChangeIdentity()
    {
        std::string name = "T" + std::to_string(m_thread) + "N" + std::to_string(m_calls);
        Holding* current = m_bindings.empty() ? nullptr : m_bindings.back();
        Identity* expected = current && current->isPrivate ? &current->identity : nullptr;
        switch (m_random() % 3) {
        case 0:
            CKovra::SetUser(name.c_str());
            if (expected)
                expected->user = "USERS\\" + name;
            break;
        case 1:
            CKovra::SetClient(name.c_str());
            if (expected)
                expected->client = "CLIENTS\\" + name;
            break;
        default:
            CKovra::SetModulePath((m_basePath + "MOD\\" + name).c_str());
            if (expected)
                expected->modulePath = m_basePath + "MOD\\" + name + "\\";
            break;
        }
    }

    // The thread's names resolve with its newest binding's session; a private one must
    // show exactly this thread's references and identity.
    void LookUp()
    {
        Holding* current = m_bindings.empty() ? nullptr : m_bindings.back();
        void* expected = current ? current->session : ProcessSession();
        KovraSession_S record = {};
        Expect(KovraGetThreadSession(&record) == 1 && record.session == expected, "the look-up", expected);
        if (current && current->isPrivate && record.session == expected) {
            Expect(record.referenceCount == current->references, "the reference count", expected);
            Expect(IdentityOf(record) == current->identity, "the identity", expected);
        }
    }

    int m_thread;
    std::string m_basePath;
    ULONGLONG m_deadline;
    Faults& m_faults;
    std::minstd_rand m_random;
    unsigned long m_threadId = 0;
    long m_calls = 0;
    std::vector<Holding> m_holdings;
    std::vector<Holding*> m_bindings;  // in the order they were made
};

DWORD WINAPI Churn(void* context)
{
    static_cast<Churner*>(context)->Run();
    return 0;
}

// Whether text is empty or the prefix and a name that a thread set ("T<thread>N<call>").
bool IsSetByThread(const std::string& text, const std::string& prefix, const std::string& suffix)
{
    if (text.empty())
        return true;
    if (text.size() < prefix.size() + suffix.size() + 3 || text.compare(0, prefix.size(), prefix) != 0 ||
        text.compare(text.size() - suffix.size(), suffix.size(), suffix) != 0)
        return false;
    std::string name = text.substr(prefix.size(), text.size() - prefix.size() - suffix.size());
    return name[0] == 'T' && name.find('N') != std::string::npos &&
           name.find_first_not_of("0123456789", 1) == name.find('N') &&
           name.find_first_not_of("0123456789", name.find('N') + 1) == std::string::npos;
}

bool IsWellFormed(const Identity& identity, const std::string& basePath)
{
    return (identity.modulePath == basePath || IsSetByThread(identity.modulePath, basePath + "MOD\\", "\\")) &&
           IsSetByThread(identity.user, "USERS\\", "") && IsSetByThread(identity.client, "CLIENTS\\", "");
}

// The registry that the accounts add up to, and the comparison with the real one.
class Expectation {
public:
    Expectation(const std::vector<Churner>& churners, const std::string& basePath) : m_basePath(basePath)
    {
        m_references[ProcessSession()] = 2;  // the start-up's session and thread
        m_bindings.insert({ProcessSession(), ::GetCurrentThreadId()});
        for (const Churner& churner : churners) {
            for (const Holding& holding : churner.Holdings()) {
                if (holding.references > 0)
                    m_references[holding.session] += holding.references;
                if (holding.isPrivate && holding.references > 0)
                    m_identities[holding.session] = holding.identity;
                if (holding.bound)
                    m_bindings.insert({holding.session, churner.ThreadId()});
            }
        }
    }

    void Compare(Faults& faults) const
    {
        std::set<void*> seen;
        KovraSession_S record = {};
        for (int index = 0; KovraGetSession(index, &record); ++index) {
            auto expected = m_references.find(record.session);
            if (expected == m_references.end() || !seen.insert(record.session).second)
                faults.Add("session " + Hex(record.session) + " should not be registered");
            else if (record.referenceCount != expected->second)
                faults.Add("session " + Hex(record.session) + " has " + std::to_string(record.referenceCount) +
                           " references instead of " + std::to_string(expected->second));
            auto identity = m_identities.find(record.session);
            if (identity != m_identities.end() ? !(IdentityOf(record) == identity->second)
                                               : !IsWellFormed(IdentityOf(record), m_basePath))
                faults.Add("session " + Hex(record.session) + " has a wrong identity");
        }
        if (seen.size() != m_references.size())
            faults.Add(std::to_string(m_references.size() - seen.size()) + " sessions are missing");

        std::set<std::pair<void*, unsigned long>> bindings;
        void* session = nullptr;
        unsigned long threadId = 0;
        for (int index = 0; KovraGetThreadBinding(index, &session, &threadId); ++index) {
            if (!m_bindings.count({session, threadId}) || !bindings.insert({session, threadId}).second)
                faults.Add("binding of thread " + Hex(Value(threadId)) + " to " + Hex(session) + " should not exist");
            if (!seen.count(session))
                faults.Add("binding of thread " + Hex(Value(threadId)) + " to the removed session " + Hex(session));
        }
        if (bindings.size() != m_bindings.size())
            faults.Add(std::to_string(m_bindings.size() - bindings.size()) + " bindings are missing");
    }

    size_t Sessions() const { return m_references.size(); }
    size_t Bindings() const { return m_bindings.size(); }

private:
    std::string m_basePath;
    std::map<void*, int> m_references;
    std::map<void*, Identity> m_identities;
    std::set<std::pair<void*, unsigned long>> m_bindings;
};

// Gives back everything the threads still hold, as the threads' owners would.
void Release(const std::vector<Churner>& churners, Faults& faults)
{
    for (const Churner& churner : churners) {
        for (const Holding& holding : churner.Holdings()) {
            if (holding.bound && CKovra::RemoveThread(holding.session, churner.ThreadId()) != 1)
                faults.Add("releasing a binding to " + Hex(holding.session));
            for (int reference = holding.bound ? 1 : 0; reference < holding.references; ++reference) {
                if (CKovra::RemoveSession(holding.session) != 1)
                    faults.Add("releasing a reference to " + Hex(holding.session));
            }
        }
    }
}

} // namespace

int ChurnRegistry(int threads, DWORD milliseconds)
{
    KovraSettings_S settings = {};
    if (threads < 1 || threads > MAXIMUM_WAIT_OBJECTS || !KovraGetSettings(&settings))
        return 100;
    const std::string basePath = settings.basePath;
    Faults faults;
    const ULONGLONG deadline = Now() + milliseconds;
    std::vector<Churner> churners;
    for (int thread = 0; thread < threads; ++thread)
        churners.emplace_back(thread, basePath, deadline, faults);
    std::vector<void*> contexts;
    for (Churner& churner : churners)
        contexts.push_back(&churner);
    if (!RunThreads(threads, Churn, contexts.data(), milliseconds + 60000)) {
        std::printf("registry: the threads did not finish within a minute after their time (deadlock?)\n");
        std::fflush(stdout);
        ::ExitProcess(100);  // the threads still hold the registry: nothing more can be checked
    }

    long calls = 0;
    for (const Churner& churner : churners)
        calls += churner.Calls();
    Expectation expectation(churners, basePath);
    expectation.Compare(faults);
    const size_t sessions = expectation.Sessions(), bindings = expectation.Bindings();
    Release(churners, faults);
    Expectation({}, basePath).Compare(faults);  // only the process's own session is left

    std::printf("registry: %d threads for %.1f s: %ld calls; at the end %u sessions and %u bindings as the threads "
                "counted them, %d faults\n",
                threads, milliseconds / 1000.0, calls, static_cast<unsigned>(sessions),
                static_cast<unsigned>(bindings), faults.Count());
    faults.Print();
    return faults.Count();
}

} // namespace stress
