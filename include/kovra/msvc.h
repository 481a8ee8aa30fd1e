// The classes of kovra.h for compilers with Microsoft's C++ ABI (Microsoft's compiler,
// clang-cl): the same members, argument types, defaults and results, as inline wrappers
// over the C interface of capi.h. The application's own compiler compiles them, so only
// plain C calls cross into kovra.dll; link with kovra.lib. Included by kovra.h.
#pragma once

#include <stdarg.h>
#include <stdint.h>

#include "atltime.h"
#include "capi.h"

class CKovra {
public:
    // --- construction, open and close -------------------------------------------------
    CKovra(const char* type = nullptr, const char* name = nullptr, unsigned long options = 0,
           KovraOpenPar_S* parameters = nullptr, int flags = 0)
        : m_file(KovraFile_Create(type, name, options, parameters, flags))
    {
    }
    virtual ~CKovra() { KovraFile_Destroy(m_file); }
    CKovra(const CKovra&) = delete;
    CKovra& operator=(const CKovra&) = delete;

    int Open(const char* type, const char* name, unsigned long options, KovraOpenPar_S* parameters = nullptr,
             int flags = 0)
    {
        return KovraFile_Open(m_file, type, name, options, parameters, flags);
    }
    int Close(int flags = 0) { return KovraFile_Close(m_file, flags); }
    int IsOpen(int flags = 0) { return KovraFile_IsOpen(m_file, flags); }
    int IsWritable(int flags = 0) { return KovraFile_IsWritable(m_file, flags); }

    // --- names ---------------------------------------------------------------------------
    char* GetRealFileName(const char* type, const char* name, int flags = 0)
    {
        return KovraFile_ResolveRealFileName(m_file, type, name, flags);
    }
    char* GetFileName(int flags = 0) { return KovraFile_GetFileName(m_file, flags); }
    char* GetFileType(int flags = 0) { return KovraFile_GetFileType(m_file, flags); }
    char* GetRealFileName(int flags = 0) { return KovraFile_GetRealFileName(m_file, flags); }

    // --- error state -----------------------------------------------------------------
    // A message cut to length bytes keeps its NUL here (GCC's member fills all of them).
    int GetLastError(int* cause = nullptr, char* message = nullptr, int length = 0, int flags = 0)
    {
        return KovraFile_GetLastError(m_file, cause, message, length, flags);
    }
    int IsDirectory(int flags = 0) { return KovraFile_IsDirectory(m_file, flags); }

    // --- block and text I/O ----------------------------------------------------------
    unsigned int Read(void* buffer, unsigned int count, int flags = 0)
    {
        return KovraFile_Read(m_file, buffer, count, flags);
    }
    unsigned int Write(const void* buffer, unsigned int count, int flags = 0)
    {
        return KovraFile_Write(m_file, buffer, count, flags);
    }
    // size characters and their NUL, as the member counts them: the C function takes the
    // size of the whole buffer.
    int ReadString(char* buffer, unsigned int size, unsigned int* length = nullptr, int flags = 0)
    {
        return KovraFile_ReadString(m_file, buffer, size + 1, length, flags);
    }
    unsigned int WriteString(const char* text, int flags = 0) { return KovraFile_WriteString(m_file, text, flags); }
    unsigned int WriteString(char* text, int flags = 0) { return KovraFile_WriteString(m_file, text, flags); }
    KOVRA_PRINTF_FORMAT(3, 4) unsigned int Printf(int flags, const char* format, ...)
    {
        va_list arguments;
        va_start(arguments, format);
        const unsigned int written = KovraFile_VPrintf(m_file, flags, format, arguments);
        va_end(arguments);
        return written;
    }
    int Flush(int flags = 0) { return KovraFile_Flush(m_file, flags); }

    // --- position, length, locking and times ------------------------------------------
    long Seek(long offset, int origin, int flags = 0) { return KovraFile_Seek(m_file, offset, origin, flags); }
    unsigned long GetPosition(int flags = 0) { return KovraFile_GetPosition(m_file, flags); }
    unsigned long GetLength(int flags = 0) { return KovraFile_GetLength(m_file, flags); }
    int SetLength(unsigned long length, int flags = 0) { return KovraFile_SetLength(m_file, length, flags); }
    int Lock(long position, int count, int flags = 0) { return KovraFile_Lock(m_file, position, count, flags); }
    int UnLock(long position, int count, int flags = 0) { return KovraFile_UnLock(m_file, position, count, flags); }
    int GetModificationTime(ATL::CTime* time, int selector)
    {
        int64_t seconds = 0;
        const int result = KovraFile_GetModificationTime(m_file, time ? &seconds : nullptr, selector);
        if (result)
            *time = ATL::CTime(seconds);
        return result;
    }
    int SetModificationTime(const ATL::CTime* time, int selector)
    {
        const int64_t seconds = time ? time->GetTime() : 0;
        return KovraFile_SetModificationTime(m_file, time ? &seconds : nullptr, selector);
    }
    CKovra* operator=(long offset)
    {
        KovraFile_OperatorAssign(m_file, offset);
        return this;
    }
    CKovra* operator+=(long offset)
    {
        KovraFile_OperatorAddAssign(m_file, offset);
        return this;
    }
    CKovra* operator-=(long offset)
    {
        KovraFile_OperatorSubtractAssign(m_file, offset);
        return this;
    }

    // --- profile access on the resolved file -------------------------------------------
    int WriteProfile(const char* section, const char* key, const char* value, int flags = 0)
    {
        return KovraFile_WriteProfileString(m_file, section, key, value, flags);
    }
    int WriteProfile(const char* section, const char* key, long value, int flags = 0)
    {
        return KovraFile_WriteProfileLong(m_file, section, key, value, flags);
    }
    int WriteProfile(const char* section, const char* key, int value, int flags = 0)
    {
        return KovraFile_WriteProfileInt(m_file, section, key, value, flags);
    }
    int WriteProfile(const char* section, const char* key, unsigned long value, int flags = 0)
    {
        return KovraFile_WriteProfileULong(m_file, section, key, value, flags);
    }
    int WriteProfile(const char* section, const char* key, unsigned int value, int flags = 0)
    {
        return KovraFile_WriteProfileUInt(m_file, section, key, value, flags);
    }
    int WriteProfile(const char* section, const char* key, double value, int flags = 0)
    {
        return KovraFile_WriteProfileDouble(m_file, section, key, value, flags);
    }
    int GetProfile(const char* section, const char* key, const char* defaultText, char* buffer, int size,
                   int flags = 0)
    {
        return KovraFile_GetProfileString(m_file, section, key, defaultText, buffer, size, flags);
    }
    long GetProfile(const char* section, const char* key, long defaultValue, int flags = 0)
    {
        return KovraFile_GetProfileLong(m_file, section, key, defaultValue, flags);
    }
    int GetProfile(const char* section, const char* key, int defaultValue, int flags = 0)
    {
        return KovraFile_GetProfileInt(m_file, section, key, defaultValue, flags);
    }
    unsigned long GetProfile(const char* section, const char* key, unsigned long defaultValue, int flags = 0)
    {
        return KovraFile_GetProfileULong(m_file, section, key, defaultValue, flags);
    }
    unsigned int GetProfile(const char* section, const char* key, unsigned int defaultValue, int flags = 0)
    {
        return KovraFile_GetProfileUInt(m_file, section, key, defaultValue, flags);
    }
    double GetProfile(const char* section, const char* key, double defaultValue, int flags = 0)
    {
        return KovraFile_GetProfileDouble(m_file, section, key, defaultValue, flags);
    }
    int GetProfileSectionA(const char* section, char* buffer, int size, int flags = 0)
    {
        return KovraFile_GetProfileSectionA(m_file, section, buffer, size, flags);
    }
    int WriteProfileSectionA(const char* section, const char* lines, int flags = 0)
    {
        return KovraFile_WriteProfileSectionA(m_file, section, lines, flags);
    }

    // --- backups, removal and renaming ---------------------------------------------------
    int SaveFile(const char* type = nullptr, const char* directory = nullptr, const char* extension = nullptr,
                 int nameFlags = 0, int flags = 0)
    {
        return KovraFile_SaveFile(m_file, type, directory, extension, nameFlags, flags);
    }
    int Remove(int flags = 0) { return KovraFile_Remove(m_file, flags); }
    int Rename(const char* type, char* name, int nameFlags = 0)
    {
        return KovraFile_Rename(m_file, type, name, nameFlags);
    }

    // --- directory, drive and path operations -------------------------------------------
    int RmDir(int flags = 0) { return KovraFile_RmDir(m_file, flags); }
    int ChDir(int flags = 0) { return KovraFile_ChDir(m_file, flags); }
    int GetDrive(int flags = 0) { return KovraFile_GetDrive(m_file, flags); }
    int ChDrive(int drive, int flags = 0) { return KovraFile_ChDrive(m_file, drive, flags); }
    char* GetCwd(int flags = 0) { return KovraFile_GetCwd(m_file, flags); }
    char* GetShortPathNameA(int flags = 0) { return KovraFile_GetShortPathNameA(m_file, flags); }
    char* GetLongPathNameA(int flags = 0) { return KovraFile_GetLongPathNameA(m_file, flags); }
    int CopyFileA(const char* type, const char* name, int failIfExists, int flags = 0)
    {
        return KovraFile_CopyFileA(m_file, type, name, failIfExists, flags);
    }
    int AppendFile(const char* type, const char* name, int flags = 0)
    {
        return KovraFile_AppendFile(m_file, type, name, flags);
    }
    unsigned long GetDiskFreeSpaceA(int flags = 0) { return KovraFile_GetDiskFreeSpaceA(m_file, flags); }
    int IsNetDrive(int flags = 0) { return KovraFile_IsNetDrive(m_file, flags); }
    static int IsNetDrive(const char* name, int flags = 0) { return Kovra_IsNetDrive(name, flags); }
    int Access(int flags = 0) { return KovraFile_Access(m_file, flags); }
    int MkDir(int flags = 0) { return KovraFile_MkDir(m_file, flags); }

    // --- file types and settings -----------------------------------------------------------
    static int AddFileType(const char* name, int location, int encryption, int flags = 0)
    {
        return Kovra_AddFileType(name, location, encryption, flags);
    }
    static int SetDebugLevel(int level, int flags = 0) { return Kovra_SetDebugLevel(level, flags); }
    static int SetOption(int option, int value, int flags = 0) { return Kovra_SetOption(option, value, flags); }

    // --- sessions, threads and identity ---------------------------------------------------
    static int StartSession(void* session, int flags = 0) { return Kovra_StartSession(session, flags); }
    static int RemoveSession(void* session, int flags = 0) { return Kovra_RemoveSession(session, flags); }
    static int StartThread(void* session, unsigned long threadId, int flags = 0)
    {
        return Kovra_StartThread(session, threadId, flags);
    }
    static int RemoveThread(void* session, unsigned long threadId, int flags = 0)
    {
        return Kovra_RemoveThread(session, threadId, flags);
    }
    static int SetUser(const char* user, int flags = 0) { return Kovra_SetUser(user, flags); }
    static int SetClient(const char* client, int flags = 0) { return Kovra_SetClient(client, flags); }
    static int SetModulePath(const char* path, int flags = 0) { return Kovra_SetModulePath(path, flags); }
    static int IsValidClient(const char* client, int flags = 0) { return Kovra_IsValidClient(client, flags); }

protected:
    // realFileName holds 260 bytes; date fields that lengthen name are not written back.
    int BuildFileName(const char* type, char* name, char* realFileName, int flags)
    {
        return KovraFile_BuildFileName(m_file, type, name, realFileName, 260, flags);
    }

private:
    KovraFile* m_file;
};

class CKovraFind {
public:
    CKovraFind() : m_find(KovraFind_Create()) {}
    virtual ~CKovraFind() { KovraFind_Destroy(m_find); }
    CKovraFind(const CKovraFind&) = delete;
    CKovraFind& operator=(const CKovraFind&) = delete;

    int FindFile(const char* type, const char* pattern, int flags = 0)
    {
        return KovraFind_FindFile(m_find, type, pattern, flags);
    }
    int FindNextFileA(int flags = 0) { return KovraFind_FindNextFileA(m_find, flags); }
    int Close(int flags = 0) { return KovraFind_Close(m_find, flags); }
    unsigned long GetLength(int flags = 0) { return KovraFind_GetLength(m_find, flags); }
    char* GetFileName(int flags = 0) { return KovraFind_GetFileName(m_find, flags); }
    char* GetFilePath(int flags = 0) { return KovraFind_GetFilePath(m_find, flags); }
    char* GetFilePathRelative(int flags = 0) { return KovraFind_GetFilePathRelative(m_find, flags); }
    int IsDots(int flags = 0) { return KovraFind_IsDots(m_find, flags); }
    int IsDirectory(int flags = 0) { return KovraFind_IsDirectory(m_find, flags); }
    int IsHidden(int flags = 0) { return KovraFind_IsHidden(m_find, flags); }

private:
    KovraFind* m_find;
};
