// Fixed-size records of the library's interface, for C and C++. Their layouts are the same on
// the 32-bit and the 64-bit build: every field has an explicit width.
#pragma once

#include <stddef.h>
#include <stdint.h>

// The layouts are checked wherever the language can (C++, C11 and later).
#if defined(__cplusplus)
#define KOVRA_STATIC_ASSERT(condition, text) static_assert(condition, text)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define KOVRA_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#else
#define KOVRA_STATIC_ASSERT(condition, text) struct KovraUncheckedLayout
#endif

// One entry of the file-type table that all processes share.
struct FileType_S {
    char name[36];      // NUL-terminated, at most 35 characters; empty marks a free record
    int32_t location;   // index into the location words (1 DEFAULT ... 11 MODULEREADONLY)
    int32_t encryption; // index into the encryption words (1 DEFAULT)
};

// Optional open parameters of CKovra::Open. Only the leading `size` bytes are taken.
struct KovraOpenPar_S {
    uint16_t size;        // number of leading bytes that Open copies, at most 12
    uint8_t reserved[2];  // not read
    int32_t location;     // nonzero: replaces the file type's location
    int32_t encryption;   // nonzero: replaces the file type's encryption
};

// Payload of a trace message (WM_COPYDATA, dwData 10) sent to the "Debug-Monitor" window.
// cbData is 16 + the text's length + 1.
struct TraceRecord_S {
    uint32_t processId;
    uint32_t threadId;
    uint32_t mainWindow;  // main window of the calling thread's framework object; 0 without one
    uint32_t instance;    // module handle of the process's executable
    char text[1];         // NUL-terminated text, as long as the sender made it
};

KOVRA_STATIC_ASSERT(sizeof(struct FileType_S) == 44, "FileType_S is a 44-byte record");
KOVRA_STATIC_ASSERT(offsetof(struct FileType_S, location) == 36 && offsetof(struct FileType_S, encryption) == 40,
                    "FileType_S field offsets");
KOVRA_STATIC_ASSERT(sizeof(struct KovraOpenPar_S) == 12, "KovraOpenPar_S is a 12-byte record");
KOVRA_STATIC_ASSERT(offsetof(struct KovraOpenPar_S, location) == 4 && offsetof(struct KovraOpenPar_S, encryption) == 8,
                    "KovraOpenPar_S field offsets");
KOVRA_STATIC_ASSERT(offsetof(struct TraceRecord_S, text) == 16, "TraceRecord_S has a 16-byte header");

// The identifier of a trace message in COPYDATASTRUCT::dwData.
enum { KOVRA_TRACE_DATA_ID = 10 };
