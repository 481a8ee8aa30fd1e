// Read-only views of the library's state, for tools that inspect an installation
// (the kovra command-line tool) and for tests. Plain C entry points, so that a
// program may also find them with GetProcAddress. Like the functions of capi.h they use
// the calling convention KOVRA_CALL (__cdecl), the problem callback of KovraCheckConfig
// too, whatever the compiler's default; any thread may call them.
#pragma once

#include "export.h"
#include "records.h"

#ifdef __cplusplus
extern "C" {
#endif

// Global state of the calling process as the library derived it.
struct KovraSettings_S {
    char basePath[260];
    char dataPath[260];
    char readOnlyPath[260];
    char wkstaPath[260];
    char wkstaTmpPath[260];
    int debugLevel;
    int sharingViolationRepeat;
    int option;
    int skipProcessSession;
    int32_t processCount;     // the machine-wide counter: 0 in the first process
    int sharedTableMapped;    // 0 when the shared file-type block couldn't be created
};

// A copy of one session record.
struct KovraSession_S {
    void* session;
    char modulePath[260];
    char user[260];
    char client[260];
    int32_t referenceCount;
};

KOVRA_API int KOVRA_CALL KovraGetSettings(struct KovraSettings_S* settings);

// Copies record `index` of the shared file-type table; 0 past the end of the table.
KOVRA_API int KOVRA_CALL KovraGetFileType(int index, struct FileType_S* record);

// The words of the location (1..11) and encryption (1) tables; null for other indexes.
KOVRA_API const char* KOVRA_CALL KovraLocationWord(int index);
KOVRA_API const char* KOVRA_CALL KovraEncryptionWord(int index);

// Entry `index` of this process's session list or thread list; 0 past the end.
KOVRA_API int KOVRA_CALL KovraGetSession(int index, struct KovraSession_S* session);
KOVRA_API int KOVRA_CALL KovraGetThreadBinding(int index, void** session, unsigned long* threadId);

// The session record that the calling thread's file names resolve with (no message box).
KOVRA_API int KOVRA_CALL KovraGetThreadSession(struct KovraSession_S* session);

// Checks a configuration file the way the first process reads it, reporting every
// problem with its line number (0 for the file as a whole). Returns the number of
// problems, or -1 when the file can't be opened.
typedef void(KOVRA_CALL* KovraConfigProblemFn)(void* context, int line, const char* problem);
KOVRA_API int KOVRA_CALL KovraCheckConfig(const char* path, KovraConfigProblemFn report, void* context);

#ifdef __cplusplus
}
#endif
