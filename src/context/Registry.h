// Internal access to the session and thread registry of theApp.
#pragma once

#include "context/ThreadInfo.h"
#include "platform/List.h"

// The first record of the session value in the session list, or its end. The caller holds
// the registry lock.
CList<ThreadInfo>::iterator FindSession(void* session);

// GetInfo's lookup (its walk, fall-backs, traces and "FAILED" lines) without the message
// box and summary line. Copies the found record into record; examinedThread receives the
// thread id of the binding examined last. Returns 1 when a record was found.
int LookupCallerSession(ThreadInfo& record, unsigned long& examinedThread);

// GetInfo's summary line; record is the empty context when nothing was found.
void LogLookupSummary(int result, const ThreadInfo& record, unsigned long examinedThread);
