// The library instance: one per process, holding the global state that every
// operation reads.
#pragma once

#include <windows.h>

#include "context/ThreadInfo.h"
#include "kovra/records.h"
#include "platform/List.h"
#include "platform/Lock.h"

// Option bits of CKovraApp::m_nOption (from the configuration file only).
enum KovraOptionBit : int {
    kOptionWriteThrough = 1,      // Open adds osWriteThrough
    kOptionLogFailedCalls = 2,    // LogCall writes the lines of failed operations
    kOptionLogOpenClose = 4,      // with 2: also the ':' lines of every platform open and close
    kOptionLogHandleOwners = 8,   // the handle-owner dump after a sharing violation
    kOptionLogEvents = 16,        // LogEvent writes the '*' lines
    kOptionNoMessageBoxes = 32    // GetLastError's and the registry lookup's boxes stay hidden
};

// Bits of CKovraApp::m_nDebugLevel: which trace lines are sent.
enum KovraDebugBit : int {
    kDebugExceptions = 1,  // caught file exceptions, GetLastError's report, registry and identity calls
    kDebugOpen = 2,        // Open's lines
    kDebugClose = 4        // Close's line and GetInfo's fall-back
};

constexpr int kMaxFileTypes = 1489;
constexpr DWORD kSharedBlockSize = 0x10000;

class CKovraApp {
public:
    CKovraApp();
    ~CKovraApp();
    CKovraApp(const CKovraApp&) = delete;
    CKovraApp& operator=(const CKovraApp&) = delete;

    int InitInstance();  // nonzero when the library may be used
    int ExitInstance();  // always 0

    // Creates or opens the named block and maps it; null (and *handle null) on failure.
    static void* CreateSharedMemory(const char* name, DWORD size, HANDLE* handle);

    bool HasOption(int bit) const { return (m_nOption & bit) != 0; }
    bool HasDebug(int bit) const { return (m_nDebugLevel & bit) != 0; }

    char m_szBasePath[kPathBufferSize];
    char m_szDataPath[kPathBufferSize];
    char m_szReadOnlyPath[kPathBufferSize];
    char m_szWkstaPath[kPathBufferSize];
    char m_szWkstaTmpPath[kPathBufferSize];
    CList<ThreadInfo> m_listSessions;
    CList<ThreadEntry> m_listThreads;
    int m_nDebugLevel;
    int m_nSharingViolationRepeat;
    int m_nOption;
    int m_bSkipProcessSession;
    FileType_S* m_pFileTypes;
    HANDLE m_hFileTypeMapping;
    CMutex m_mutex;
};

extern CKovraApp theApp;

// The machine-wide count of processes that have the library loaded, minus one.
extern volatile LONG g_lProcessCount;
