// The implementation record behind every CKovra object.
#pragma once

#include <windows.h>

#include <cstdint>

#include "kovra/kovra.h"
#include "kovra/records.h"
#include "platform/File.h"

// Library error codes of the error field (besides the file layer's causes).
enum KovraError : int {
    kErrorNone = 0,
    kErrorUnknownType = -1,      // the file type is not in the table
    kErrorNameTooLong = -2,      // a name or the resolved path doesn't fit 259 characters
    kErrorInvalidArgument = -3,  // a missing name or a value the member can't take
    kErrorSameFile = -4          // the target of AppendFile is the object's own file
};

// GetLastError's report of a pending error: type, file name, real file name and error.
constexpr char kErrorReportFormat[] = "Kovra : KOVRA_ERROR(Type(%s), FileName(%s), RealFileName(%s), Error(%d))";

// What ReadString read beyond the lines it returned, kept only on a file that no other writer
// can change (deny-write or exclusive sharing). While it holds unread bytes, the platform
// file's position stands that many bytes ahead of the object's own position.
struct LineReadAhead_S {
    char* m_pBytes;       // kLineReadAheadSize bytes, made by the first ReadString that reads ahead
    unsigned int m_fill;  // bytes held
    unsigned int m_next;  // the first byte not yet returned
};

constexpr unsigned int kLineReadAheadSize = 4096;

struct KovraFileState_S {
    // Null until an open is attempted after Close. Members that read, write, position or lock
    // the file reach it through CKovra::File(), which first gives back what ReadString read
    // ahead; only ReadString itself and members that merely look at the file (its handle, its
    // length) use this pointer directly.
    CFile* m_pFile;
    char m_szMessage[256];                     // message of the last recorded failure
    int m_nCause;                              // cause of the last recorded failure; 0 none
    char m_szFailureFileName[kPathBufferSize]; // file name the last failure carried
    char m_szName[kPathBufferSize];            // the caller's name after date substitution
    char m_szRealFileName[kPathBufferSize];    // resolved path, or the temporary file
    char m_szShortPath[kPathBufferSize];
    char m_szLongPath[kPathBufferSize];
    char m_szCurrentDir[kPathBufferSize];
    char* m_pszType;                           // heap copy of the file type
    int m_bTemporary;                          // the real file name is a temporary file of ours
    int m_nCloseFlags;                         // flags of the last Close
    uint32_t m_ulOptions;                      // options of the last Open
    int m_nError;                              // KovraError, reported by GetLastError
    KovraOpenPar_S m_openPar;
    FileType_S m_fileType;                     // the type record in force for this object
    HMODULE m_hModule;                         // loaded for the long-path-name procedure
    FARPROC m_pfnLongPathName;
    CRITICAL_SECTION m_lock;                   // taken by Close only
    LineReadAhead_S m_readAhead;               // ReadString's unread bytes (deny-write files)
};

// Open options as the record stores them.
constexpr uint32_t kOptionRead = 1;
constexpr uint32_t kOptionReadWrite = 2;
constexpr uint32_t kOptionAppend = 4;
constexpr uint32_t kOptionTruncate = 8;
constexpr uint32_t kOptionDenyWrite = 16;
constexpr uint32_t kOptionExclusive = 32;
constexpr uint32_t kOptionText = 64;

constexpr uint32_t kOptionsThatOpen = kOptionRead | kOptionReadWrite | kOptionAppend;
constexpr uint32_t kOptionsThatWrite = kOptionReadWrite | kOptionAppend;

// Records why a member refused its arguments, for GetLastError; gives the failure result 0.
inline int Refuse(KovraFileState_S& state, KovraError error)
{
    state.m_nError = error;
    return 0;
}

template <typename Work>
bool CKovra::Attempt(const char* operation, Work work)
{
    try {
        work();
        return true;
    } catch (const CFileException& failure) {
        RecordFailure(failure, operation);
        return false;
    }
}
