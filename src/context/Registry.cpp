// The per-process registry: counted session records and thread bindings, guarded by
// the re-entrant registry lock of theApp.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <unordered_map>
#include <vector>

#include "context/Registry.h"
#include "frame/CallFrame.h"
#include "frame/Diagnostics.h"
#include "frame/KovraApp.h"
#include "kovra/diag.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

using SessionPosition = CList<ThreadInfo>::iterator;
using BindingPosition = CList<ThreadEntry>::iterator;

// Kept beside the two lists so that no lookup walks them, however many sessions and
// bindings a process registers: the position of each session value's record, and the
// positions of each thread's bindings in the order in which they were made. The lists
// stay the registry; the index changes with them, under the registry lock.
struct RegistryIndex {
    std::unordered_map<void*, SessionPosition> sessions;
    std::unordered_map<unsigned long, std::vector<BindingPosition>> bindings;
};

RegistryIndex& Index()
{
    static RegistryIndex index;
    return index;
}

// A failed allocation leaves the list and the index as they were.
void AddSessionRecord(const ThreadInfo& record)
{
    auto& sessions = theApp.m_listSessions;
    auto slot = Index().sessions.emplace(record.session, sessions.end()).first;
    try {
        sessions.AddTail(record);
    } catch (...) {
        Index().sessions.erase(slot);
        throw;
    }
    slot->second = std::prev(sessions.end());
}

void RemoveSessionRecord(SessionPosition position)
{
    Index().sessions.erase(position->session);
    theApp.m_listSessions.RemoveAt(position);
}

// A failed allocation leaves the list as it was and at most an empty entry in the index.
void AddBinding(const ThreadEntry& entry)
{
    auto& threads = theApp.m_listThreads;
    std::vector<BindingPosition>& positions = Index().bindings[entry.threadId];
    if (positions.size() == positions.capacity())
        positions.reserve(2 * positions.size() + 1);
    threads.AddTail(entry);
    positions.push_back(std::prev(threads.end()));
}

void RemoveBinding(BindingPosition position)
{
    auto found = Index().bindings.find(position->threadId);
    std::vector<BindingPosition>& positions = found->second;
    positions.erase(std::find(positions.begin(), positions.end(), position));
    if (positions.empty())
        Index().bindings.erase(found);
    theApp.m_listThreads.RemoveAt(position);
}

const std::vector<BindingPosition>* BindingsOf(unsigned long threadId)
{
    auto found = Index().bindings.find(threadId);
    return found == Index().bindings.end() ? nullptr : &found->second;
}

BindingPosition FindBinding(void* session, unsigned long threadId)
{
    if (const auto* positions = BindingsOf(threadId))
        for (BindingPosition position : *positions)
            if (position->session == session)
                return position;
    return theApp.m_listThreads.end();
}

ThreadInfo NewSessionRecord(void* session)
{
    ThreadInfo record;
    std::memset(&record, 0, sizeof record);
    record.session = session;
    record.referenceCount = 1;
    CopyText(record.modulePath, theApp.m_szBasePath);
    return record;
}

} // namespace

CList<ThreadInfo>::iterator FindSession(void* session)
{
    auto found = Index().sessions.find(session);
    return found == Index().sessions.end() ? theApp.m_listSessions.end() : found->second;
}

const ThreadEntry* FindCallerBinding(unsigned long threadId, bool skipProcessSession, void* processSession,
                                     unsigned long& examinedThread)
{
    if (const auto* positions = BindingsOf(threadId)) {
        for (auto newest = positions->rbegin(); newest != positions->rend(); ++newest) {
            if (!(skipProcessSession && (*newest)->session == processSession)) {
                examinedThread = threadId;
                return &**newest;
            }
        }
    }
    const auto& threads = theApp.m_listThreads;
    examinedThread = threads.IsEmpty() ? 0 : threads.begin()->threadId;
    return nullptr;
}

int CKovra::StartSession(void* session, int)
{
    TraceIf(kDebugExceptions, "Kovra : StartSession : Session(%d)", SessionNumber(session));
    return RunInCallFrame(0, [session] {
        ThreadInfo record;
        int result = 0;
        {
            CSingleLock lock(theApp.m_mutex);
            if (!lock.Lock(INFINITE))
                return 0;
            auto found = FindSession(session);
            if (found != theApp.m_listSessions.end()) {
                ++found->referenceCount;
                TraceIf(kDebugExceptions, "Kovra : StartSession : Incr RefCount (%d,%d)", SessionNumber(session),
                        static_cast<int>(found->referenceCount));
                record = *found;
            } else {
                TraceIf(kDebugExceptions, "Kovra : StartSession : Add this Session(%d)", SessionNumber(session));
                record = NewSessionRecord(session);
                AddSessionRecord(record);
                result = 1;
            }
        }
        LogEventF("*StartSession (%d,%x,%d,%s,%s)", result, SessionHex(record.session),
                  static_cast<int>(record.referenceCount), record.modulePath, record.user);
        return result;
    });
}

int CKovra::RemoveSession(void* session, int)
{
    TraceIf(kDebugExceptions, "Kovra : RemoveSession : Session(%d)", SessionNumber(session));
    CSingleLock lock(theApp.m_mutex);
    if (!lock.Lock(INFINITE))
        return 0;
    auto found = FindSession(session);
    if (found == theApp.m_listSessions.end()) {
        LogEventF("*RemoveSession FAILED (%x)", SessionHex(session));
        return 0;
    }
    LONG count = --found->referenceCount;
    char modulePath[kPathBufferSize];
    CopyText(modulePath, found->modulePath);
    if (count <= 0)
        RemoveSessionRecord(found);
    else
        TraceIf(kDebugExceptions, "Kovra : RemoveSession : Decr RefCount (%d,%d)", SessionNumber(session),
                static_cast<int>(count));
    LogEventF("*RemoveSession (%x,%d,%s)", SessionHex(session), static_cast<int>(count), modulePath);
    return 1;
}

int CKovra::StartThread(void* session, unsigned long threadId, int)
{
    TraceIf(kDebugExceptions, "Kovra : StartThread : Session(%d), ThreadID(%d)", SessionNumber(session),
            static_cast<int>(threadId));
    return RunInCallFrame(0, [session, threadId] {
        int result = 0;
        {
            CSingleLock lock(theApp.m_mutex);
            if (!lock.Lock(INFINITE))
                return 0;
            StartSession(session, 0);  // every start of a thread counts for its session
            if (FindBinding(session, threadId) == theApp.m_listThreads.end()) {
                AddBinding(ThreadEntry{session, threadId});
                result = 1;
            }
        }
        LogEventF("*StartThread (%d,%x,%x)", result, SessionHex(session), static_cast<unsigned>(threadId));
        return result;
    });
}

int CKovra::RemoveThread(void* session, unsigned long threadId, int)
{
    TraceIf(kDebugExceptions, "Kovra : RemoveThread : Session(%d), ThreadID(%d)", SessionNumber(session),
            static_cast<int>(threadId));
    CSingleLock lock(theApp.m_mutex);
    if (!lock.Lock(INFINITE))
        return 0;
    auto found = FindBinding(session, threadId);
    if (found == theApp.m_listThreads.end()) {
        LogEventF("*RemoveThread FAILED (%x,%x)", SessionHex(session), static_cast<unsigned>(threadId));
        return 0;
    }
    LogEventF("*RemoveThread (%x,%x)", SessionHex(session), static_cast<unsigned>(threadId));
    RemoveSession(session, 0);
    RemoveBinding(found);
    return 1;
}

// ---------------------------------------------------------------------------------------------
// Read-only views for tools and tests.

namespace {

void CopySessionView(const ThreadInfo& record, KovraSession_S& view)
{
    view.session = record.session;
    CopyText(view.modulePath, record.modulePath);
    CopyText(view.user, record.user);
    CopyText(view.client, record.client);
    view.referenceCount = record.referenceCount;
}

template <typename List>
typename List::iterator EntryAt(List& list, int index)
{
    auto it = list.begin();
    for (int step = 0; it != list.end() && step < index; ++step)
        ++it;
    return it;
}

} // namespace

extern "C" int KOVRA_CALL KovraGetSession(int index, KovraSession_S* session)
{
    CSingleLock lock(theApp.m_mutex);
    if (!session || index < 0 || !lock.Lock(INFINITE))
        return 0;
    auto it = EntryAt(theApp.m_listSessions, index);
    if (it == theApp.m_listSessions.end())
        return 0;
    CopySessionView(*it, *session);
    return 1;
}

extern "C" int KOVRA_CALL KovraGetThreadBinding(int index, void** session, unsigned long* threadId)
{
    CSingleLock lock(theApp.m_mutex);
    if (index < 0 || !lock.Lock(INFINITE))
        return 0;
    auto it = EntryAt(theApp.m_listThreads, index);
    if (it == theApp.m_listThreads.end())
        return 0;
    if (session)
        *session = it->session;
    if (threadId)
        *threadId = it->threadId;
    return 1;
}

extern "C" int KOVRA_CALL KovraGetThreadSession(KovraSession_S* session)
{
    ThreadInfo record;
    std::memset(&record, 0, sizeof record);
    unsigned long examined = 0;
    int found = LookupCallerSession(record, examined);
    LogLookupSummary(found, record, examined);
    if (found && session)
        CopySessionView(record, *session);
    return found;
}
