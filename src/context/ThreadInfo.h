// Records of the per-process session and thread registry.
#pragma once

#include <windows.h>

#include "platform/File.h"

// One session: its identity data and how many starts it outlives.
struct ThreadInfo {
    void* session;                      // opaque value, compared for equality only
    char modulePath[kPathBufferSize];   // ends in a backslash; the base path on creation
    char user[kPathBufferSize];         // "USERS\<name>" or empty
    char client[kPathBufferSize];       // "CLIENTS\<name>" or empty
    LONG referenceCount;
};

// One binding of a thread to a session.
struct ThreadEntry {
    void* session;
    unsigned long threadId;
};

// Session values print as numbers in traces (%d) and log lines (%x).
inline int SessionNumber(const void* session)
{
    return static_cast<int>(reinterpret_cast<INT_PTR>(session));
}

inline unsigned SessionHex(const void* session)
{
    return static_cast<unsigned>(SessionNumber(session));
}

// The session that the library registers for the process: its process id.
inline void* ProcessSession()
{
    return reinterpret_cast<void*>(static_cast<UINT_PTR>(::GetCurrentProcessId()));
}
