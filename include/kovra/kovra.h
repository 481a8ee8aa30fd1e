// kovra: file access by logical file type and name.
//
// A CKovra object names a file by a file type ("DFT", or one of CKOVRA.INI) and a
// name; the library resolves the pair to a real path and offers opening, I/O,
// profile access, backups, removal, renaming, copying and directory operations on
// it. Members return plain values (1/0, counts, pointers into the object) and never
// throw; GetLastError reports the last recorded failure. The trailing int of every
// member is its flags word: 0 unless a member documents a bit.
//
// Compiled by mingw-w64 GCC (or Clang for a *-w64-mingw32 target), the classes are the
// ones that kovra.dll exports. Compiled by Microsoft's compiler or clang-cl, whose C++ ABI
// differs, kovra.h gives the same classes as inline wrappers over the C interface
// (msvc.h, capi.h).
#pragma once

#if defined(_MSC_VER)
#include "msvc.h"
#else

#include "atltime.h"
#include "export.h"
#include "options.h"
#include "records.h"

struct KovraFileState_S;
struct KovraFindState_S;
struct ThreadInfo;
class CFile;
class CFileException;

class CKovra {
public:
    // --- construction, open and close -------------------------------------------------
    // With name, options, parameters and flags all zero nothing is opened.
    KOVRA_API CKovra(const char* type = nullptr, const char* name = nullptr, unsigned long options = 0,
                     KovraOpenPar_S* parameters = nullptr, int flags = 0);
    KOVRA_API virtual ~CKovra();
    CKovra(const CKovra&) = delete;
    CKovra& operator=(const CKovra&) = delete;

    // flags: 1 takes name as a real path; 2 retries a sharing violation without limit.
    // Without a name a temporary file is made (temporary-file mode).
    KOVRA_API int Open(const char* type, const char* name, unsigned long options,
                       KovraOpenPar_S* parameters = nullptr, int flags = 0);
    // flags: 1 keeps a temporary file; 2 keeps the type.
    KOVRA_API int Close(int flags = 0);
    KOVRA_API int IsOpen(int = 0);
    KOVRA_API int IsWritable(int = 0);

    // --- names ---------------------------------------------------------------------------
    KOVRA_API char* GetRealFileName(const char* type, const char* name, int = 0);  // resolves via Open
    KOVRA_API char* GetFileName(int = 0);
    KOVRA_API char* GetFileType(int = 0);
    KOVRA_API char* GetRealFileName(int = 0);

    // --- error state -----------------------------------------------------------------
    // Reports the pending failure once; without cause and message it shows a message box.
    KOVRA_API int GetLastError(int* cause = nullptr, char* message = nullptr, int length = 0, int = 0);
    KOVRA_API int IsDirectory(int = 0);

    // --- block and text I/O ----------------------------------------------------------
    KOVRA_API unsigned int Read(void* buffer, unsigned int count, int flags = 0);
    KOVRA_API unsigned int Write(const void* buffer, unsigned int count, int flags = 0);
    KOVRA_API int ReadString(char* buffer, unsigned int size, unsigned int* length = nullptr, int flags = 0);
    KOVRA_API unsigned int WriteString(const char* text, int flags = 0);
    KOVRA_API unsigned int WriteString(char* text, int flags = 0);
    KOVRA_API unsigned int Printf(int flags, const char* format, ...) KOVRA_PRINTF_FORMAT(3, 4);
    KOVRA_API int Flush(int = 0);

    // --- position, length, locking and times ------------------------------------------
    KOVRA_API long Seek(long offset, int origin, int = 0);
    KOVRA_API unsigned long GetPosition(int = 0);
    KOVRA_API unsigned long GetLength(int = 0);
    KOVRA_API int SetLength(unsigned long length, int = 0);  // leaves the position at the new length
    KOVRA_API int Lock(long position, int count, int = 0);
    KOVRA_API int UnLock(long position, int count, int = 0);
    // selector 1: creation time; any other value: time of the last write. Times are set from
    // 1970-01-01 00:00:01 to 30828-09-14 02:48:05 UTC; others are refused (GetLastError: -3).
    KOVRA_API int GetModificationTime(ATL::CTime* time, int selector);
    KOVRA_API int SetModificationTime(const ATL::CTime* time, int selector);
    KOVRA_API CKovra* operator=(long offset);
    KOVRA_API CKovra* operator+=(long offset);
    KOVRA_API CKovra* operator-=(long offset);

    // --- profile access on the resolved file -------------------------------------------
    // Sections, keys, values and defaults of up to 32766 characters; numbers need a section
    // and a key. Doubles read back as written: six decimals, or from about 1e120 on the
    // shortest exponent form.
    KOVRA_API int WriteProfile(const char* section, const char* key, const char* value, int = 0);
    KOVRA_API int WriteProfile(const char* section, const char* key, long value, int = 0);
    KOVRA_API int WriteProfile(const char* section, const char* key, int value, int = 0);
    KOVRA_API int WriteProfile(const char* section, const char* key, unsigned long value, int = 0);
    KOVRA_API int WriteProfile(const char* section, const char* key, unsigned int value, int = 0);
    KOVRA_API int WriteProfile(const char* section, const char* key, double value, int = 0);
    KOVRA_API int GetProfile(const char* section, const char* key, const char* defaultText, char* buffer,
                             int size, int = 0);
    KOVRA_API long GetProfile(const char* section, const char* key, long defaultValue, int = 0);
    KOVRA_API int GetProfile(const char* section, const char* key, int defaultValue, int = 0);
    KOVRA_API unsigned long GetProfile(const char* section, const char* key, unsigned long defaultValue, int = 0);
    KOVRA_API unsigned int GetProfile(const char* section, const char* key, unsigned int defaultValue, int = 0);
    KOVRA_API double GetProfile(const char* section, const char* key, double defaultValue, int = 0);
    KOVRA_API int GetProfileSectionA(const char* section, char* buffer, int size, int = 0);
    KOVRA_API int WriteProfileSectionA(const char* section, const char* lines, int = 0);

    // --- backups, removal and renaming ---------------------------------------------------
    // nameFlags 1: the directory (SaveFile) or name (Rename) is a real path.
    KOVRA_API int SaveFile(const char* type = nullptr, const char* directory = nullptr,
                           const char* extension = nullptr, int nameFlags = 0, int flags = 0);
    KOVRA_API int Remove(int = 0);
    // Date fields in name are replaced in place, as long as the text doesn't grow; a name
    // without date fields is never written to.
    KOVRA_API int Rename(const char* type, char* name, int nameFlags = 0);

    // --- directory, drive and path operations -------------------------------------------
    KOVRA_API int RmDir(int = 0);
    KOVRA_API int ChDir(int = 0);
    KOVRA_API int GetDrive(int = 0);
    KOVRA_API int ChDrive(int drive, int = 0);
    KOVRA_API char* GetCwd(int = 0);
    KOVRA_API char* GetShortPathNameA(int = 0);
    KOVRA_API char* GetLongPathNameA(int = 0);
    KOVRA_API int CopyFileA(const char* type, const char* name, int failIfExists, int flags = 0);
    // Refuses a target that is this object's own file, whatever its name (GetLastError: -4).
    KOVRA_API int AppendFile(const char* type, const char* name, int = 0);
    KOVRA_API unsigned long GetDiskFreeSpaceA(int = 0);
    KOVRA_API int IsNetDrive(int = 0);
    KOVRA_API static int IsNetDrive(const char* name, int = 0);
    KOVRA_API int Access(int = 0);
    KOVRA_API int MkDir(int = 0);

    // --- file types and settings -----------------------------------------------------------
    // 1 for every name but null; names that are empty or longer than 35 characters aren't added.
    KOVRA_API static int AddFileType(const char* name, int location, int encryption, int = 0);
    KOVRA_API static int SetDebugLevel(int level, int = 0);
    KOVRA_API static int SetOption(int option, int value, int = 0);

    // --- sessions, threads and identity ---------------------------------------------------
    KOVRA_API static int StartSession(void* session, int = 0);
    KOVRA_API static int RemoveSession(void* session, int = 0);
    KOVRA_API static int StartThread(void* session, unsigned long threadId, int = 0);
    KOVRA_API static int RemoveThread(void* session, unsigned long threadId, int = 0);
    KOVRA_API static int SetUser(const char* user, int = 0);
    KOVRA_API static int SetClient(const char* client, int = 0);
    KOVRA_API static int SetModulePath(const char* path, int = 0);
    KOVRA_API static int IsValidClient(const char* client, int = 0);

protected:
    // Resolves (type, name) into realFileName (260 bytes); rewrites date fields in name,
    // which may grow up to its buffer of 260 bytes. flags 1: name is a real path. Returns 1
    // for a known type, 0 otherwise.
    KOVRA_API int BuildFileName(const char* type, char* name, char* realFileName, int flags);

private:
    static int GetInfo(ThreadInfo* info, int);
    static int SetInfo(ThreadInfo* info, int);
    // BuildFileName with the name buffer's size: date fields may lengthen the name up to
    // it. Returns 1, or a negative KovraError-like code (-1 unknown type, -2 too long).
    int ResolveName(const char* type, char* name, size_t nameSize, char* realFileName, int flags);
    // The target of SaveFile, Rename and CopyFileA: nameText resolved for the given type,
    // else the object's own, else "DFT", into name and path (260 bytes each). On failure the
    // error is recorded and 0 returned.
    int ResolveTarget(const char* type, const char* nameText, char* name, char* path, int flags);
    void CreateTemporaryFile();
    int OpenPlatformFile(unsigned int platformFlags, int flags);
    void LogCall(const char* text);
    void LogHandleOwners();
    // Records a caught failure of the file layer under the operation's name. retryCount >= 0
    // selects the trace line of the retrying operations; takeMessageAlways is Open's rule.
    void RecordFailure(const CFileException& failure, const char* operation, int retryCount = -1,
                       bool takeMessageAlways = false);
    // Runs work on the file layer: true when it succeeded, false after its failure has been
    // recorded under the operation's name.
    template <typename Work>
    bool Attempt(const char* operation, Work work);
    // The platform file, positioned where the object stands: bytes that ReadString read
    // ahead are given back first (a failed move throws the file layer's exception). Every
    // member that reads, writes, positions or locks the file reaches it through this, inside
    // its Attempt.
    CFile& File();
    // Write's platform part: at the end in append mode, translated in text mode unless flags
    // hold 1. Throws the file layer's exception.
    void WriteToPlatform(const void* buffer, unsigned int count, int flags);
    // The retry loop shared by Remove (newPath null) and Rename.
    int MoveOrRemoveWithRetries(const char* operation, const char* newPath);

    KovraFileState_S* m_pState;
};

class CKovraFind {
public:
    KOVRA_API CKovraFind();
    KOVRA_API virtual ~CKovraFind();
    CKovraFind(const CKovraFind&) = delete;
    CKovraFind& operator=(const CKovraFind&) = delete;

    // flags 1: pattern is a real path. A null pattern means "*.*", a null type "DFT".
    KOVRA_API int FindFile(const char* type, const char* pattern, int flags = 0);
    // Nonzero exactly once for each matching entry, which it makes current.
    KOVRA_API int FindNextFileA(int = 0);
    KOVRA_API int Close(int = 0);
    KOVRA_API unsigned long GetLength(int = 0);
    KOVRA_API char* GetFileName(int = 0);
    KOVRA_API char* GetFilePath(int = 0);
    KOVRA_API char* GetFilePathRelative(int = 0);
    KOVRA_API int IsDots(int = 0);
    KOVRA_API int IsDirectory(int = 0);
    KOVRA_API int IsHidden(int = 0);

private:
    KovraFindState_S* m_pState;
};

#endif // !defined(_MSC_VER)
