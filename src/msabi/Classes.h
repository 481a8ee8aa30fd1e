// CKovra and CKovraFind as an application built by Microsoft's compiler declares them: the
// argument types of the interface, char* for texts and names, void* for the blocks of Read
// and Write, a CTime* that isn't const. kovra.dll exports every member under the name that
// Microsoft's compiler gives this declaration (exports-i686.def, exports-x86_64.def). The
// library's build doesn't compile it: cmake/CheckExports.cmake does, with clang in Microsoft
// mode, to learn those names.
//
// Each member ends in KOVRA_MS_MEMBER, a plain ";" for a declaration. CheckExports makes the
// classes dllexport and KOVRA_MS_MEMBER an empty body, so that clang emits and marks for
// export every name that a DLL made from this declaration exports: the members, the implicit
// copy operations, the default-constructor closure that array new calls, and the table.

#ifndef KOVRA_MS_CLASS
#define KOVRA_MS_CLASS __declspec(dllimport)
#define KOVRA_MS_MEMBER ;
#endif

struct KovraOpenPar_S;
namespace ATL {
class CTime;
}

class KOVRA_MS_CLASS CKovra {
public:
    CKovra(char* type = 0, char* name = 0, unsigned long options = 0, KovraOpenPar_S* parameters = 0,
           int flags = 0) KOVRA_MS_MEMBER
    virtual ~CKovra() KOVRA_MS_MEMBER

    int Open(char* type, char* name, unsigned long options, KovraOpenPar_S* parameters = 0,
             int flags = 0) KOVRA_MS_MEMBER
    int Close(int flags = 0) KOVRA_MS_MEMBER
    int IsOpen(int = 0) KOVRA_MS_MEMBER
    int IsWritable(int = 0) KOVRA_MS_MEMBER
    char* GetRealFileName(char* type, char* name, int = 0) KOVRA_MS_MEMBER
    char* GetFileName(int = 0) KOVRA_MS_MEMBER
    char* GetFileType(int = 0) KOVRA_MS_MEMBER
    char* GetRealFileName(int = 0) KOVRA_MS_MEMBER
    int GetLastError(int* cause = 0, char* message = 0, int length = 0, int = 0) KOVRA_MS_MEMBER
    int IsDirectory(int = 0) KOVRA_MS_MEMBER

    unsigned int Read(void* buffer, unsigned int count, int flags = 0) KOVRA_MS_MEMBER
    unsigned int Write(void* buffer, unsigned int count, int flags = 0) KOVRA_MS_MEMBER
    int ReadString(char* buffer, unsigned int size, unsigned int* length = 0, int flags = 0) KOVRA_MS_MEMBER
    unsigned int WriteString(const char* text, int flags = 0) KOVRA_MS_MEMBER
    unsigned int WriteString(char* text, int flags = 0) KOVRA_MS_MEMBER
    unsigned int Printf(int flags, char* format, ...) KOVRA_MS_MEMBER
    int Flush(int = 0) KOVRA_MS_MEMBER

    long Seek(long offset, int origin, int = 0) KOVRA_MS_MEMBER
    unsigned long GetPosition(int = 0) KOVRA_MS_MEMBER
    unsigned long GetLength(int = 0) KOVRA_MS_MEMBER
    int SetLength(unsigned long length, int = 0) KOVRA_MS_MEMBER
    int Lock(long position, int count, int = 0) KOVRA_MS_MEMBER
    int UnLock(long position, int count, int = 0) KOVRA_MS_MEMBER
    int GetModificationTime(ATL::CTime* time, int selector) KOVRA_MS_MEMBER
    int SetModificationTime(ATL::CTime* time, int selector) KOVRA_MS_MEMBER
    CKovra* operator=(long offset) KOVRA_MS_MEMBER
    CKovra* operator+=(long offset) KOVRA_MS_MEMBER
    CKovra* operator-=(long offset) KOVRA_MS_MEMBER

    int WriteProfile(char* section, char* key, char* value, int = 0) KOVRA_MS_MEMBER
    int WriteProfile(char* section, char* key, long value, int = 0) KOVRA_MS_MEMBER
    int WriteProfile(char* section, char* key, int value, int = 0) KOVRA_MS_MEMBER
    int WriteProfile(char* section, char* key, unsigned long value, int = 0) KOVRA_MS_MEMBER
    int WriteProfile(char* section, char* key, unsigned int value, int = 0) KOVRA_MS_MEMBER
    int WriteProfile(char* section, char* key, double value, int = 0) KOVRA_MS_MEMBER
    int GetProfile(char* section, char* key, char* defaultText, char* buffer, int size, int = 0) KOVRA_MS_MEMBER
    long GetProfile(char* section, char* key, long defaultValue, int = 0) KOVRA_MS_MEMBER
    int GetProfile(char* section, char* key, int defaultValue, int = 0) KOVRA_MS_MEMBER
    unsigned long GetProfile(char* section, char* key, unsigned long defaultValue, int = 0) KOVRA_MS_MEMBER
    unsigned int GetProfile(char* section, char* key, unsigned int defaultValue, int = 0) KOVRA_MS_MEMBER
    double GetProfile(char* section, char* key, double defaultValue, int = 0) KOVRA_MS_MEMBER
    int GetProfileSectionA(char* section, char* buffer, int size, int = 0) KOVRA_MS_MEMBER
    int WriteProfileSectionA(char* section, char* lines, int = 0) KOVRA_MS_MEMBER

    int SaveFile(char* type = 0, char* directory = 0, char* extension = 0, int nameFlags = 0,
                 int flags = 0) KOVRA_MS_MEMBER
    int Remove(int = 0) KOVRA_MS_MEMBER
    int Rename(char* type, char* name, int nameFlags = 0) KOVRA_MS_MEMBER

    int RmDir(int = 0) KOVRA_MS_MEMBER
    int ChDir(int = 0) KOVRA_MS_MEMBER
    int GetDrive(int = 0) KOVRA_MS_MEMBER
    int ChDrive(int drive, int = 0) KOVRA_MS_MEMBER
    char* GetCwd(int = 0) KOVRA_MS_MEMBER
    char* GetShortPathNameA(int = 0) KOVRA_MS_MEMBER
    char* GetLongPathNameA(int = 0) KOVRA_MS_MEMBER
    int CopyFileA(char* type, char* name, int failIfExists, int flags = 0) KOVRA_MS_MEMBER
    int AppendFile(char* type, char* name, int = 0) KOVRA_MS_MEMBER
    unsigned long GetDiskFreeSpaceA(int = 0) KOVRA_MS_MEMBER
    int IsNetDrive(int = 0) KOVRA_MS_MEMBER
    static int IsNetDrive(char* name, int = 0) KOVRA_MS_MEMBER
    int Access(int = 0) KOVRA_MS_MEMBER
    int MkDir(int = 0) KOVRA_MS_MEMBER

    static int AddFileType(char* name, int location, int encryption, int = 0) KOVRA_MS_MEMBER
    static int SetDebugLevel(int level, int = 0) KOVRA_MS_MEMBER
    static int SetOption(int option, int value, int = 0) KOVRA_MS_MEMBER
    static int StartSession(void* session, int = 0) KOVRA_MS_MEMBER
    static int RemoveSession(void* session, int = 0) KOVRA_MS_MEMBER
    static int StartThread(void* session, unsigned long threadId, int = 0) KOVRA_MS_MEMBER
    static int RemoveThread(void* session, unsigned long threadId, int = 0) KOVRA_MS_MEMBER
    static int SetUser(char* user, int = 0) KOVRA_MS_MEMBER
    static int SetClient(char* client, int = 0) KOVRA_MS_MEMBER
    static int SetModulePath(char* path, int = 0) KOVRA_MS_MEMBER
    static int IsValidClient(char* client, int = 0) KOVRA_MS_MEMBER

protected:
    int BuildFileName(char* type, char* name, char* realFileName, int flags) KOVRA_MS_MEMBER

private:
    struct KovraFileState_S* m_pState;
};

class KOVRA_MS_CLASS CKovraFind {
public:
    CKovraFind() KOVRA_MS_MEMBER
    virtual ~CKovraFind() KOVRA_MS_MEMBER

    int FindFile(char* type, char* pattern, int flags = 0) KOVRA_MS_MEMBER
    int FindNextFileA(int = 0) KOVRA_MS_MEMBER
    int Close(int = 0) KOVRA_MS_MEMBER
    unsigned long GetLength(int = 0) KOVRA_MS_MEMBER
    char* GetFileName(int = 0) KOVRA_MS_MEMBER
    char* GetFilePath(int = 0) KOVRA_MS_MEMBER
    char* GetFilePathRelative(int = 0) KOVRA_MS_MEMBER
    int IsDots(int = 0) KOVRA_MS_MEMBER
    int IsDirectory(int = 0) KOVRA_MS_MEMBER
    int IsHidden(int = 0) KOVRA_MS_MEMBER

private:
    struct KovraFindState_S* m_pState;
};
