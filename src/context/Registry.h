// Internal access to the session and thread registry of theApp.
#pragma once

#include "context/ThreadInfo.h"
#include "platform/List.h"

// The record of the session value in the session list, or its end. The caller holds the
// registry lock.
CList<ThreadInfo>::iterator FindSession(void* session);

// The binding of the calling thread that GetInfo takes: its newest one, or with
// skipProcessSession its newest one to another session than processSession; null when
// there is none. examinedThread receives the thread id of the binding that a walk of the
// thread list from its newest entry would have examined last: the match's, else the
// oldest binding's (0 when the list is empty). The caller holds the registry lock.
const ThreadEntry* FindCallerBinding(unsigned long threadId, bool skipProcessSession, void* processSession,
                                     unsigned long& examinedThread);

// GetInfo's lookup (its walk, fall-backs, traces and "FAILED" lines) without the message
// box and summary line. Copies the found record into record; examinedThread receives the
// thread id of the binding examined last. Returns 1 when a record was found.
int LookupCallerSession(ThreadInfo& record, unsigned long& examinedThread);

// GetInfo's summary line; record is the empty context when nothing was found.
void LogLookupSummary(int result, const ThreadInfo& record, unsigned long examinedThread);
