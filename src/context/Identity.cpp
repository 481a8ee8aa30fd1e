// The calling thread's session record and the identity setters.
#include <io.h>

#include <cstring>

#include "context/Registry.h"
#include "frame/Diagnostics.h"
#include "frame/KovraApp.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

constexpr char kGetInfoNotFound[] = "CKovra::GetInfo ThreadInfo not found !!!";
constexpr char kSetInfoNotFound[] = "CKovra::SetInfo ThreadInfo not found !!!";

void ShowLookupBox(const char* text)
{
    if (!theApp.HasOption(kOptionNoMessageBoxes))
        ShowMessageBox(text, MB_OK);
}

// Replaces the first record of info's session value; false when there is none.
bool ReplaceSessionRecord(const ThreadInfo& info)
{
    auto found = FindSession(info.session);
    if (found == theApp.m_listSessions.end())
        return false;
    *found = info;
    return true;
}

ThreadInfo EmptyContext()
{
    ThreadInfo record;
    std::memset(&record, 0, sizeof record);
    return record;
}

// Looks the caller's record up and changes it under one hold of the registry lock, so
// that two threads changing the same session never lose each other's change. The
// boxes and the summary line come after the lock is released, as GetInfo's and
// SetInfo's do.
template <typename Change>
int UpdateCallerSession(Change change, ThreadInfo& record)
{
    record = EmptyContext();
    ThreadInfo before = record;  // the lookup's summary shows the record as it was found
    unsigned long examined = 0;
    int found = 0;
    {
        CSingleLock lock(theApp.m_mutex);
        if (lock.Lock(INFINITE)) {
            found = LookupCallerSession(record, examined);
            if (found) {
                before = record;
                change(record);
                ReplaceSessionRecord(record);
            }
        }
    }
    if (!found)
        ShowLookupBox(kGetInfoNotFound);
    LogLookupSummary(found, before, examined);
    if (!found)
        ShowLookupBox(kSetInfoNotFound);
    return found;
}

} // namespace

int LookupCallerSession(ThreadInfo& record, unsigned long& examinedThread)
{
    const unsigned long threadId = ::GetCurrentThreadId();
    void* const processSession = ProcessSession();
    examinedThread = 0;

    CSingleLock lock(theApp.m_mutex);
    if (!lock.Lock(INFINITE))
        return 0;

    // The newest binding of this thread wins; with the skip flag, not one to the process session.
    auto& sessions = theApp.m_listSessions;
    const ThreadEntry* match =
        FindCallerBinding(threadId, theApp.m_bSkipProcessSession != 0, processSession, examinedThread);

    if (match) {
        auto found = FindSession(match->session);
        if (found != sessions.end()) {
            record = *found;
            return 1;
        }
        LogEventF("*GetInfo FAILED 0 (%x,%x)", static_cast<unsigned>(threadId), SessionHex(match->session));
    } else {
        LogEventF("*GetInfo FAILED 0 (%x)", static_cast<unsigned>(threadId));
    }

    TraceIf(kDebugClose, "Kovra : GetInfo Default-Handling !!!");
    auto processRecord = FindSession(processSession);
    if (processRecord != sessions.end()) {
        record = *processRecord;
        TraceIf(kDebugClose, "Kovra : GetInfo Default 1");
        LogEventF("*GetInfo FAILED 1 (%x)", static_cast<unsigned>(threadId));
        return 1;
    }
    if (!sessions.IsEmpty()) {
        record = sessions.GetHead();  // the oldest session
        TraceIf(kDebugClose, "Kovra : GetInfo Default 2");
        LogEventF("*GetInfo FAILED 2 (%x)", static_cast<unsigned>(threadId));
        return 1;
    }
    return 0;
}

void LogLookupSummary(int result, const ThreadInfo& record, unsigned long examinedThread)
{
    LogEventF("*GetInfo =%d : Session(%x), ThreadID(%x), ModulePath(%s), User(%s)", result, SessionHex(record.session),
              static_cast<unsigned>(examinedThread), record.modulePath, record.user);
}

int CKovra::GetInfo(ThreadInfo* info, int)
{
    // The lookup writes the caller's record only when it finds one.
    ThreadInfo ownRecord;
    ThreadInfo& record = info ? *info : ownRecord;
    unsigned long examined = 0;
    const int found = LookupCallerSession(record, examined);
    if (!found) {
        ShowLookupBox(kGetInfoNotFound);
        LogLookupSummary(found, EmptyContext(), examined);
        return 0;
    }
    LogLookupSummary(found, record, examined);
    return 1;
}

int CKovra::SetInfo(ThreadInfo* info, int)
{
    int replaced = 0;
    {
        CSingleLock lock(theApp.m_mutex);
        if (info && lock.Lock(INFINITE))
            replaced = ReplaceSessionRecord(*info) ? 1 : 0;
    }
    if (!replaced)
        ShowLookupBox(kSetInfoNotFound);
    return replaced;
}

int CKovra::SetUser(const char* user, int)
{
    const char* name = user ? user : "";
    if (std::strlen(name) > kMaxPathChars - std::strlen("USERS\\"))
        return 0;
    ThreadInfo record;
    UpdateCallerSession([name](ThreadInfo& info) { FormatText(info.user, sizeof info.user, "USERS\\%s", name); },
                        record);
    TraceIf(kDebugExceptions, "Kovra : SetUser : User(%s)", name);
    LogEventF("*SetUser (%s,%x,%d,%s)", name, SessionHex(record.session), static_cast<int>(record.referenceCount),
              record.modulePath);
    return 1;
}

int CKovra::SetClient(const char* client, int)
{
    const char* name = client ? client : "";
    if (std::strlen(name) > kMaxPathChars - std::strlen("CLIENTS\\"))
        return 0;
    ThreadInfo record;
    UpdateCallerSession(
        [name](ThreadInfo& info) { FormatText(info.client, sizeof info.client, "CLIENTS\\%s", name); }, record);
    TraceIf(kDebugExceptions, "Kovra : SetClient : Client(%s)", name);
    return 1;
}

int CKovra::SetModulePath(const char* path, int)
{
    char stored[kPathBufferSize];
    if (!CopyText(stored, path) || !EnsureTrailingBackslash(stored))
        return 0;
    ThreadInfo record;
    UpdateCallerSession([&stored](ThreadInfo& info) { CopyText(info.modulePath, stored); }, record);
    TraceIf(kDebugExceptions, "Kovra : SetModulePath : ModulePath(%s)", stored);
    LogEventF("*SetModulePath (%x,%d,%s,%s)", SessionHex(record.session), static_cast<int>(record.referenceCount),
              record.modulePath, record.user);
    return 1;
}

int CKovra::IsValidClient(const char* client, int)
{
    char path[kPathBufferSize];
    if (!FormatText(path, sizeof path, "%sCLIENTS\\%s", theApp.m_szDataPath, client ? client : ""))
        return 0;
    return _access(path, 0) == 0 ? 1 : 0;
}
