// kovra's C interface: every member of CKovra and CKovraFind as a plain C function, for
// programs built by any compiler (Microsoft's, clang-cl, mingw-w64) and for every
// language that can call C.
//
// The objects live behind opaque handles that the library creates and destroys, so all
// of their memory is allocated and freed inside kovra.dll. Each function calls the member
// of the same name and gives exactly its result; nothing thrown leaves the library. A null
// handle gives the failure value: 0, the empty text for texts, the default for profile
// numbers. Texts are NUL-terminated in the system's ANSI code page; texts returned point
// into the object and stay valid until the next call that changes or destroys it. Names
// and paths are at most 259 characters. `long`, `unsigned long`, `int` and `unsigned int`
// are 32 bits wide on both targets; time stamps are seconds since 1970-01-01 00:00 UTC.
// The trailing `flags` of a function is its member's flags word: 0 unless a bit is named.
//
// Buffers. A function that writes text into a buffer of the caller's takes the buffer's
// size in bytes, the terminating NUL included (the `size` of BuildFileName, ReadString,
// GetProfileString and GetProfileSectionA, the `length` of GetLastError). A text longer
// than that is cut: as much as fits is written, and always a NUL behind it (a section's
// list ends with its second NUL where there is room for it). With a size of 0 (or less)
// nothing is written. A name that a function rewrites in place (Rename, BuildFileName)
// only gets the date fields that keep its length: a name without date fields is never
// written to, so it may be a constant.
//
// Threads. Any thread of the process may call any function. An object (a handle) is used
// by one thread at a time: its functions take no lock, except that closing it is guarded.
// The static functions, the inspection entry points of diag.h and the shared file-type
// table may be used from every thread at once. File names resolve with the identity (the
// module directory, the user and the client) of the session that the calling thread is
// bound to (Kovra_StartThread), or else of the process's own session; Kovra_SetUser,
// Kovra_SetClient and Kovra_SetModulePath change that session's record, and with it the
// identity of every thread bound to it.
//
// Every function uses the calling convention KOVRA_CALL (__cdecl), stated in each
// declaration, so that a program compiled with another default (/Gz) calls it right, and is
// exported from kovra.dll under its plain name, on the 32-bit and on the 64-bit build.
#pragma once

#include <stdarg.h>
#include <stdint.h>

#include "export.h"
#include "options.h"
#include "records.h"

// The version of this interface that the header describes; Kovra_InterfaceVersion tells
// the version of the loaded kovra.dll. Version 2 gave BuildFileName the size of its path
// buffer and made the sizes of ReadString and GetLastError those of the whole buffer.
#define KOVRA_C_INTERFACE_VERSION 2

#define KOVRA_CAPI(type) KOVRA_API type KOVRA_CALL

#ifdef __cplusplus
extern "C" {
#endif

typedef struct KovraFile KovraFile;  // a CKovra object
typedef struct KovraFind KovraFind;  // a CKovraFind object

// The interface version of the loaded library (KOVRA_C_INTERFACE_VERSION of its build).
KOVRA_CAPI(int) Kovra_InterfaceVersion(void);

// --- file objects: construction, open and close ------------------------------------------

// A new file object, opened as Open says unless name, options, parameters and flags are all
// 0 (null). Null only when the memory for it is exhausted. Destroy it with KovraFile_Destroy.
KOVRA_CAPI(KovraFile*) KovraFile_Create(const char* type, const char* name, unsigned long options,
                                        struct KovraOpenPar_S* parameters, int flags);
// Closes the file (a temporary file goes unless the last Close kept it) and frees the object.
KOVRA_CAPI(void) KovraFile_Destroy(KovraFile* file);

// Resolves (type, name) and opens the file with the KOVRA_... options; a null type is "DFT",
// a null name makes a temporary file. flags 1: name is a real path; 2: retry a sharing
// violation without limit. Nonzero when the file is open (with KOVRA_RESOLVE_ONLY: 1 when
// the type is known).
KOVRA_CAPI(int) KovraFile_Open(KovraFile* file, const char* type, const char* name, unsigned long options,
                               struct KovraOpenPar_S* parameters, int flags);
// flags 1: keep a temporary file; 2: keep the type. 1 when a file was dealt with.
KOVRA_CAPI(int) KovraFile_Close(KovraFile* file, int flags);
// 1 while the file is open.
KOVRA_CAPI(int) KovraFile_IsOpen(KovraFile* file, int flags);
// 1 when open with KOVRA_READWRITE or KOVRA_APPEND.
KOVRA_CAPI(int) KovraFile_IsWritable(KovraFile* file, int flags);

// --- names ------------------------------------------------------------------------------

// GetRealFileName(type, name): resolves without opening (an Open with options 0, which first
// closes what is open) and returns the real path.
KOVRA_CAPI(char*) KovraFile_ResolveRealFileName(KovraFile* file, const char* type, const char* name, int flags);
// The name as given to Open (date fields replaced), else the real path.
KOVRA_CAPI(char*) KovraFile_GetFileName(KovraFile* file, int flags);
// The type; "" when there is none.
KOVRA_CAPI(char*) KovraFile_GetFileType(KovraFile* file, int flags);
// The real path that the last Open resolved (or its temporary file).
KOVRA_CAPI(char*) KovraFile_GetRealFileName(KovraFile* file, int flags);
// The protected BuildFileName: resolves (type, name) into realFileName, a buffer of size
// bytes (260 hold every path), and gives name its date fields in place. flags 1: name is a
// real path. 1 for a known type whose path fit the buffer; realFileName is left alone for
// an unknown type.
KOVRA_CAPI(int) KovraFile_BuildFileName(KovraFile* file, const char* type, char* name, char* realFileName,
                                        int size, int flags);

// --- error state -------------------------------------------------------------------------

// Reports the pending failure once: 1 and its cause and text (message is a buffer of length
// bytes), 0 when none is pending. cause and message may be null; with both null the report
// is shown in a message box unless option bit 32 is set.
KOVRA_CAPI(int) KovraFile_GetLastError(KovraFile* file, int* cause, char* message, int length, int flags);
// 1 when the real path names an existing directory.
KOVRA_CAPI(int) KovraFile_IsDirectory(KovraFile* file, int flags);

// --- block and text I/O ------------------------------------------------------------------

// Up to count bytes; in text mode CR bytes are dropped unless flags has 1. The number of
// bytes in buffer, 0 at the end of the file.
KOVRA_CAPI(unsigned int) KovraFile_Read(KovraFile* file, void* buffer, unsigned int count, int flags);
// count bytes (in text mode: the text up to its NUL, each LF as CR LF unless flags has 1).
// count on success, 0 when the file isn't writable or the write failed.
KOVRA_CAPI(unsigned int) KovraFile_Write(KovraFile* file, const void* buffer, unsigned int count, int flags);
// One line into buffer, a buffer of size bytes; a longer line comes in pieces that fill the
// buffer. In text mode without its LF and CR bytes. 1 when a line end or the full buffer
// ended it, 0 at the end of the file (length, the characters stored, then tells what the
// last line held). length may be null.
KOVRA_CAPI(int) KovraFile_ReadString(KovraFile* file, char* buffer, unsigned int size, unsigned int* length,
                                     int flags);
// The text (in text mode LF as CR LF, and a CR LF appended to a text without LF unless
// flags has 1). The number of bytes written.
KOVRA_CAPI(unsigned int) KovraFile_WriteString(KovraFile* file, const char* text, int flags);
// Formats as the printf of Microsoft's C run-time (msvcrt.dll) does, whatever compiler built
// the caller (%I64d for 64-bit numbers; long double is a double), and writes the text as
// WriteString with flags 1 (no line end is appended). flags comes first, as in the member.
KOVRA_CAPI(unsigned int) KovraFile_Printf(KovraFile* file, int flags, const char* format, ...)
    KOVRA_MS_PRINTF_FORMAT(3, 4);
// KovraFile_Printf with the arguments as a va_list.
KOVRA_CAPI(unsigned int) KovraFile_VPrintf(KovraFile* file, int flags, const char* format, va_list arguments);
// Has the platform write the file's buffers to disk. 1 on success; 0 without a file, and
// for a file opened only for reading (the platform refuses that handle).
KOVRA_CAPI(int) KovraFile_Flush(KovraFile* file, int flags);

// --- position, length, locking and times -------------------------------------------------

// origin 0 begin, 1 current, 2 end. The new position; -1 on failure, 0 without a file.
KOVRA_CAPI(long) KovraFile_Seek(KovraFile* file, long offset, int origin, int flags);
// The position in the open file; 0 without one.
KOVRA_CAPI(unsigned long) KovraFile_GetPosition(KovraFile* file, int flags);
// The open file's length, or without an open file the length of the file on disk.
KOVRA_CAPI(unsigned long) KovraFile_GetLength(KovraFile* file, int flags);
// Cuts or extends the file to length bytes and leaves the position there. 1 on success; 0
// when the file isn't open for writing or the change failed.
KOVRA_CAPI(int) KovraFile_SetLength(KovraFile* file, unsigned long length, int flags);
// Locks or unlocks count bytes from position against other handles. 1 on success.
KOVRA_CAPI(int) KovraFile_Lock(KovraFile* file, long position, int count, int flags);
KOVRA_CAPI(int) KovraFile_UnLock(KovraFile* file, long position, int count, int flags);
// selector 1: the creation time; any other value: the time of the last write. Work by the
// real path, also without an open file. 1 on success; *seconds is left alone on failure.
KOVRA_CAPI(int) KovraFile_GetModificationTime(KovraFile* file, int64_t* seconds, int selector);
// Times from 1970-01-01 00:00:01 to 30828-09-14 02:48:05 UTC; others are refused (error -3).
KOVRA_CAPI(int) KovraFile_SetModificationTime(KovraFile* file, const int64_t* seconds, int selector);
// The operators =, += and -=: seek to offset from the beginning, forward and back by offset
// from the current position. They return the handle, whatever the seek gave.
KOVRA_CAPI(KovraFile*) KovraFile_OperatorAssign(KovraFile* file, long offset);
KOVRA_CAPI(KovraFile*) KovraFile_OperatorAddAssign(KovraFile* file, long offset);
KOVRA_CAPI(KovraFile*) KovraFile_OperatorSubtractAssign(KovraFile* file, long offset);

// --- profile access on the resolved file -------------------------------------------------

// WriteProfile: the value as text, as decimal text, or (Double) formatted by "%lf".
// Nonzero on success.
KOVRA_CAPI(int) KovraFile_WriteProfileString(KovraFile* file, const char* section, const char* key,
                                             const char* value, int flags);
KOVRA_CAPI(int) KovraFile_WriteProfileLong(KovraFile* file, const char* section, const char* key, long value,
                                           int flags);
KOVRA_CAPI(int) KovraFile_WriteProfileInt(KovraFile* file, const char* section, const char* key, int value,
                                          int flags);
KOVRA_CAPI(int) KovraFile_WriteProfileULong(KovraFile* file, const char* section, const char* key,
                                            unsigned long value, int flags);
KOVRA_CAPI(int) KovraFile_WriteProfileUInt(KovraFile* file, const char* section, const char* key,
                                           unsigned int value, int flags);
KOVRA_CAPI(int) KovraFile_WriteProfileDouble(KovraFile* file, const char* section, const char* key, double value,
                                             int flags);
// GetProfile: the text, or defaultText for a missing key, into buffer of size bytes; the
// number of characters placed there. Where the platform isn't asked (no real path, a text
// longer than 32766 characters) the buffer gets defaultText too.
KOVRA_CAPI(int) KovraFile_GetProfileString(KovraFile* file, const char* section, const char* key,
                                           const char* defaultText, char* buffer, int size, int flags);
// GetProfile of a number: the value read, or the default when the key is missing or empty.
KOVRA_CAPI(long) KovraFile_GetProfileLong(KovraFile* file, const char* section, const char* key, long defaultValue,
                                          int flags);
KOVRA_CAPI(int) KovraFile_GetProfileInt(KovraFile* file, const char* section, const char* key, int defaultValue,
                                        int flags);
KOVRA_CAPI(unsigned long) KovraFile_GetProfileULong(KovraFile* file, const char* section, const char* key,
                                                    unsigned long defaultValue, int flags);
KOVRA_CAPI(unsigned int) KovraFile_GetProfileUInt(KovraFile* file, const char* section, const char* key,
                                                  unsigned int defaultValue, int flags);
KOVRA_CAPI(double) KovraFile_GetProfileDouble(KovraFile* file, const char* section, const char* key,
                                              double defaultValue, int flags);
// The section's lines ("key=value", each NUL-terminated, an empty one last) into buffer of
// size bytes; 1 when a line was placed there.
KOVRA_CAPI(int) KovraFile_GetProfileSectionA(KovraFile* file, const char* section, char* buffer, int size,
                                             int flags);
// Replaces the section by lines in the same form. 1 on success.
KOVRA_CAPI(int) KovraFile_WriteProfileSectionA(KovraFile* file, const char* section, const char* lines, int flags);

// --- backups, removal and renaming -------------------------------------------------------

// Closes the file and moves it to the day's next backup <directory>\<yymmdd><nn>.<extension>
// of type (null: the object's type, else "DFT"); directory and extension default to "SAV".
// nameFlags 1: directory is a real path. 1 when the file now lies at the backup path; the
// object then names the backup.
KOVRA_CAPI(int) KovraFile_SaveFile(KovraFile* file, const char* type, const char* directory, const char* extension,
                                   int nameFlags, int flags);
// Closes the file and removes it, retrying while another process holds it. 1 when the file is
// gone, also when it didn't exist or its name can't name a file (a ? or *, a directory that
// doesn't exist).
KOVRA_CAPI(int) KovraFile_Remove(KovraFile* file, int flags);
// Closes the file and moves it to (type, name) (a null type: the object's type, else "DFT"),
// making missing directories and retrying while another process holds it; name gets its date
// fields in place (see Buffers). nameFlags 1: name is a real path. 1 when the file was moved;
// the object then names it there.
KOVRA_CAPI(int) KovraFile_Rename(KovraFile* file, const char* type, char* name, int nameFlags);

// --- directory, drive and path operations ------------------------------------------------

// The directory of the real path (the path itself when it is a directory): removed (it must
// be empty), or made the current directory. Nonzero on success.
KOVRA_CAPI(int) KovraFile_RmDir(KovraFile* file, int flags);
KOVRA_CAPI(int) KovraFile_ChDir(KovraFile* file, int flags);
// The current drive's number (1 is A:); ChDrive makes drive current, 1 on success.
KOVRA_CAPI(int) KovraFile_GetDrive(KovraFile* file, int flags);
KOVRA_CAPI(int) KovraFile_ChDrive(KovraFile* file, int drive, int flags);
// The process's current directory.
KOVRA_CAPI(char*) KovraFile_GetCwd(KovraFile* file, int flags);
// The real path's short or long form; the real path when it can't be translated.
KOVRA_CAPI(char*) KovraFile_GetShortPathNameA(KovraFile* file, int flags);
KOVRA_CAPI(char*) KovraFile_GetLongPathNameA(KovraFile* file, int flags);
// Copies the file to (type, name) (a null type: the object's type, else "DFT"), making the
// directories it needs; failIfExists nonzero keeps an existing target. flags 1: name is a
// real path. 1 on success.
KOVRA_CAPI(int) KovraFile_CopyFileA(KovraFile* file, const char* type, const char* name, int failIfExists,
                                    int flags);
// Appends the whole file to (type, name), which is created when missing. 1 on success; 0
// when either file can't be opened, or (error -4) when the target is the file itself.
// Besides that refusal the object records only what its own Flush, Seek and Read record:
// a failure to open the target is not reported.
KOVRA_CAPI(int) KovraFile_AppendFile(KovraFile* file, const char* type, const char* name, int flags);
// The bytes free for the caller on the real path's drive, at most 4294967295.
KOVRA_CAPI(unsigned long) KovraFile_GetDiskFreeSpaceA(KovraFile* file, int flags);
// Always 1.
KOVRA_CAPI(int) KovraFile_IsNetDrive(KovraFile* file, int flags);
// 1 when the real path exists, as a file or a directory.
KOVRA_CAPI(int) KovraFile_Access(KovraFile* file, int flags);
// Makes the directory that holds the file, with its missing parents: 1, also when it couldn't
// be made; 0 for a name without a backslash, -1 for the root of a drive that doesn't exist.
KOVRA_CAPI(int) KovraFile_MkDir(KovraFile* file, int flags);

// --- static members: file types, settings, sessions and identity ----------------------------

// IsNetDrive(name): always 1.
KOVRA_CAPI(int) Kovra_IsNetDrive(const char* name, int flags);
// Adds the type to the shared table or changes its location (1..11) and encryption (1).
// Always 1 (nothing is added for a null or empty name, one over 35 characters or a full
// table).
KOVRA_CAPI(int) Kovra_AddFileType(const char* name, int location, int encryption, int flags);
// Sets the debug level; returns the one it replaced.
KOVRA_CAPI(int) Kovra_SetDebugLevel(int level, int flags);
// option 1: value nonzero skips the process's own session in the look-up of a thread's
// session. 1 for option 1, 0 for any other.
KOVRA_CAPI(int) Kovra_SetOption(int option, int value, int flags);
// Registers a session (any value that identifies it), or counts one more start of it; 1 for
// a new session. RemoveSession counts down and removes it at 0; 1 when it was found.
KOVRA_CAPI(int) Kovra_StartSession(void* session, int flags);
KOVRA_CAPI(int) Kovra_RemoveSession(void* session, int flags);
// Binds the thread to the session, so that its names resolve with that session's module
// path, user and client; 1 for a new binding. RemoveThread: 1 when the binding was removed.
KOVRA_CAPI(int) Kovra_StartThread(void* session, unsigned long threadId, int flags);
KOVRA_CAPI(int) Kovra_RemoveThread(void* session, unsigned long threadId, int flags);
// Set the user ("ANNA" becomes USERS\ANNA), the client ("0042" becomes CLIENTS\0042) and the
// module directory of the calling thread's session. 1; 0 for a user over 253 characters,
// a client over 251 or a path over 259 with its final backslash.
KOVRA_CAPI(int) Kovra_SetUser(const char* user, int flags);
KOVRA_CAPI(int) Kovra_SetClient(const char* client, int flags);
KOVRA_CAPI(int) Kovra_SetModulePath(const char* path, int flags);
// 1 when the client's directory exists.
KOVRA_CAPI(int) Kovra_IsValidClient(const char* client, int flags);

// --- directory searches ------------------------------------------------------------------

// A new search object; null only when the memory for it is exhausted.
KOVRA_CAPI(KovraFind*) KovraFind_Create(void);
// Ends the search and frees the object.
KOVRA_CAPI(void) KovraFind_Destroy(KovraFind* find);
// Starts a search for pattern (null: "*.*") in the directory of type (null: "DFT").
// flags 1: pattern is a real path. Nonzero when anything matches.
KOVRA_CAPI(int) KovraFind_FindFile(KovraFind* find, const char* type, const char* pattern, int flags);
// Makes the next matching entry current: nonzero exactly once for each entry.
KOVRA_CAPI(int) KovraFind_FindNextFileA(KovraFind* find, int flags);
// Ends the search; always 1.
KOVRA_CAPI(int) KovraFind_Close(KovraFind* find, int flags);
// The current entry: its size (low 32 bits), name, full path, path relative to the type's
// directory, and whether it is "." or "..", a directory, hidden.
KOVRA_CAPI(unsigned long) KovraFind_GetLength(KovraFind* find, int flags);
KOVRA_CAPI(char*) KovraFind_GetFileName(KovraFind* find, int flags);
KOVRA_CAPI(char*) KovraFind_GetFilePath(KovraFind* find, int flags);
KOVRA_CAPI(char*) KovraFind_GetFilePathRelative(KovraFind* find, int flags);
KOVRA_CAPI(int) KovraFind_IsDots(KovraFind* find, int flags);
KOVRA_CAPI(int) KovraFind_IsDirectory(KovraFind* find, int flags);
KOVRA_CAPI(int) KovraFind_IsHidden(KovraFind* find, int flags);

#ifdef __cplusplus
}
#endif
