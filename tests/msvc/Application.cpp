// An application as Microsoft's compiler built them against kovra.dll: the classes declared here
// as the interface declares them (not kovra.h), their members imported under Microsoft's names
// from an import library of just the names that this program imports.
#include "Runtime.h"  // and stddef.h

struct KovraOpenPar_S;
namespace ATL { class CTime { public: __int64 time; }; }  // ATL's: seconds since 1970

class __declspec(dllimport) CKovra {
public:
    CKovra(char* type = 0, char* name = 0, unsigned long options = 0, KovraOpenPar_S* parameters = 0, int flags = 0);
    virtual ~CKovra();
    int Open(char* type, char* name, unsigned long options, KovraOpenPar_S* parameters = 0, int flags = 0);
    int Close(int flags = 0), IsOpen(int = 0), IsWritable(int = 0), IsDirectory(int = 0), Flush(int = 0);
    char *GetRealFileName(char* type, char* name, int = 0), *GetRealFileName(int = 0), *GetFileName(int = 0);
    int GetLastError(int* cause = 0, char* message = 0, int = 0, int = 0), GetProfile(char*, char*, int, int = 0);
    unsigned int Read(void* buffer, unsigned int count, int flags = 0), Write(void*, unsigned int, int = 0);
    int ReadString(char* buffer, unsigned int size, unsigned int* length = 0, int flags = 0);
    unsigned int WriteString(const char* text, int = 0), WriteString(char*, int = 0), Printf(int, char* format, ...);
    unsigned int GetProfile(char*, char*, unsigned int, int = 0);
    long Seek(long offset, int origin, int = 0), GetProfile(char*, char*, long, int = 0);
    unsigned long GetPosition(int = 0), GetLength(int = 0), GetDiskFreeSpaceA(int = 0);
    unsigned long GetProfile(char*, char*, unsigned long, int = 0);
    int SetLength(unsigned long length, int = 0), Lock(long position, int count, int = 0), UnLock(long, int, int = 0);
    int GetModificationTime(ATL::CTime* time, int selector), SetModificationTime(ATL::CTime* time, int selector);
    CKovra *operator=(long offset), *operator+=(long offset), *operator-=(long offset);
    int WriteProfile(char* section, char* key, char* value, int = 0), WriteProfile(char*, char*, long, int = 0);
    int WriteProfile(char*, char*, int, int = 0), WriteProfile(char*, char*, unsigned long, int = 0);
    int WriteProfile(char*, char*, unsigned int, int = 0), WriteProfile(char*, char*, double, int = 0);
    int GetProfile(char* section, char* key, char* defaultText, char* buffer, int size, int = 0);
    double GetProfile(char*, char*, double, int = 0);
    int GetProfileSectionA(char* section, char* buffer, int size, int = 0), WriteProfileSectionA(char*, char*, int = 0);
    int SaveFile(char* type = 0, char* directory = 0, char* extension = 0, int nameFlags = 0, int flags = 0);
    int Remove(int = 0), Rename(char* type, char* name, int nameFlags = 0), RmDir(int = 0), ChDir(int = 0);
    char *GetFileType(int = 0), *GetCwd(int = 0), *GetShortPathNameA(int = 0), *GetLongPathNameA(int = 0);
    int CopyFileA(char* type, char* name, int failIfExists, int flags = 0), AppendFile(char* type, char* name, int = 0);
    int GetDrive(int = 0), ChDrive(int drive, int = 0), IsNetDrive(int = 0), Access(int = 0), MkDir(int = 0);
    static int IsNetDrive(char* name, int = 0), IsValidClient(char* client, int = 0);
    static int AddFileType(char* name, int location, int encryption, int = 0), SetDebugLevel(int level, int = 0);
    static int SetOption(int option, int value, int = 0), StartSession(void*, int = 0), RemoveSession(void*, int = 0);
    static int StartThread(void* session, unsigned long threadId, int = 0), RemoveThread(void*, unsigned long, int = 0);
    static int SetUser(char* user, int = 0), SetClient(char* client, int = 0), SetModulePath(char* path, int = 0);

protected:
    int BuildFileName(char* type, char* name, char* realFileName, int flags);

private:
    void* m_pState;
};

class __declspec(dllimport) CKovraFind {
public:
    CKovraFind();
    virtual ~CKovraFind();
    int FindFile(char* type, char* pattern, int flags = 0), FindNextFileA(int = 0), Close(int = 0);
    unsigned long GetLength(int = 0);
    char *GetFileName(int = 0), *GetFilePath(int = 0), *GetFilePathRelative(int = 0);
    int IsDots(int = 0), IsDirectory(int = 0), IsHidden(int = 0);

private:
    void* m_pState;
};

// What Microsoft's compiler makes of new CKovra[n] (the count in front of the elements, the
// default-constructor closure for each) and of delete[] (slot 0 of the table with flags 3).
#if defined(_WIN64)
__declspec(dllimport) void ConstructDefault(CKovra* object) asm("??_FCKovra@@QEAAXXZ");
#else
__declspec(dllimport) void __thiscall ConstructDefault(CKovra* object) asm("??_FCKovra@@QAEXXZ");
#endif
extern "C" __declspec(dllimport) void* __stdcall CreateThread(void*, size_t, unsigned long(__stdcall*)(char**), void*,
                                                             unsigned long, unsigned long*);
extern "C" __declspec(dllimport) unsigned long __stdcall WaitForSingleObject(void* handle, unsigned long milliseconds);
struct DeletingDestructor { virtual void* Delete(unsigned int flags) = 0; };

int g_destroyed = 0;

// A class of the program's own, with its own table and destructor.
struct Orders : CKovra {
    Orders() : CKovra("DATA", "ORDERS.TXT") {}
    virtual ~Orders() { ++g_destroyed; }
    int Resolve(char* name, char* path) { return BuildFileName("DATA", name, path, 0); }
};

// Binds the calling thread to a session of the user's own (name, client, path of a letter)
// and resolves names with that identity.
unsigned long __stdcall BindAndResolve(char** user)
{
    CKovra file;
    CHECK(CKovra::StartSession(user) == 1 && CKovra::StartThread(user, GetCurrentThreadId()) == 1);
    CHECK(CKovra::SetUser(user[0]) == 1 && CKovra::SetClient(user[1]) == 1 && CKovra::IsValidClient(user[1]) == 0);
    CHECK(CKovra::SetModulePath(file.GetRealFileName("PROGRAM", "ORDERS")) == 1);
    CHECK(EndsWith(file.GetRealFileName("FORMS", "F.TXT"), "\\APP\\ORDERS\\F.TXT"));
    CHECK(EndsWith(file.GetRealFileName("LETTERS", "N.TXT"), user[2]));
    return 0;
}

void Main(void)
{
    // Names, lines and blocks on an object on the stack.
    CKovra file;
    CHECK(Same(file.GetFileType(), "") && EndsWith(file.GetRealFileName("DATA", "A.TXT"), "\\DATA\\APP\\A.TXT"));
    CHECK(Same(file.GetFileName(), "A.TXT") && Same(file.GetFileType(), "DATA"));
    CHECK(file.Open("DATA", "LINES.TXT", 2 | 8 | 64) == 1 && file.IsOpen() == 1 && file.IsWritable() == 1);
    char text[300] = "second", raw[] = "raw", newName[] = "MOVED.DAT", name[260] = "PLAIN.TXT", path[260];
    CHECK(file.WriteString("first\n") == 7 && file.WriteString(text) == 8 && file.Write(raw, 3, 1) == 3);
    CHECK(file.Printf(0, "\n%I64d %Lf\n", 1099511627776LL, 2.5L) == 26 && file.Flush() == 1 && file.GetLength() == 44);
    CHECK(file.Open("DATA", "LINES.TXT", 1 | 64) == 1 && file.IsWritable() == 0 && file.Seek(20, 0) == 20);
    unsigned int length = 0;  // the line that Printf formatted as Microsoft's run-time does
    CHECK(file.ReadString(text, 100, &length) == 1 && Same(text, "1099511627776 2.500000") && length == 22);
    CHECK((file = 7L) == &file && file.GetPosition() == 7 && (file += 8L) == &file && file.GetPosition() == 15);
    CHECK((file -= 6L) == &file && file.Read(text, 3) == 3 && text[0] == 'c' && text[2] == 'n');
    CHECK(file.Seek(-3, 2) == 41 && file.Lock(0, 10) == 1 && file.UnLock(0, 10) == 1);
    ATL::CTime stamp = {1700000000}, read = {0};
    CHECK(file.SetModificationTime(&stamp, 0) == 1 && file.GetModificationTime(&read, 0) == 1);
    CHECK(read.time == 1700000000 && file.Open("DATA", "LINES.TXT", 2) == 1 && file.SetLength(5) == 1);
    int cause = 0;
    CHECK(file.GetLength() == 5 && file.Open("DATA", "MISSING.TXT", 1) == 0);
    CHECK(file.GetLastError(&cause, text, 299) == 1 && cause == 2 && file.GetLastError(&cause, text, 299) == 0);

    // The profile's numbers of every type and its sections.
    CHECK(file.Close() == 1 && file.Open("DATA", "NUMBERS.INI", 0) == 1);
    CHECK(file.WriteProfile("N", "T", "abc") && file.WriteProfile("N", "I", 42) && file.WriteProfile("N", "D", 2.5));
    CHECK(file.WriteProfile("N", "UL", 4000000000UL) && file.WriteProfile("N", "UI", 3000000000U));
    CHECK(file.GetProfile("N", "T", "", text, 100) == 3 && Same(text, "abc") && file.GetProfile("N", "I", 0) == 42);
    CHECK(file.GetProfile("N", "UL", 0UL) == 4000000000UL && file.GetProfile("N", "UI", 0U) == 3000000000U);
    CHECK(file.WriteProfile("N", "L", -7L) && file.GetProfile("N", "L", 0L) == -7);
    CHECK(file.WriteProfileSectionA("S", "a=1\0b=2\0") == 1 && file.GetProfileSectionA("S", text, 100) == 1);
    CHECK(Same(text, "a=1") && Same(text + 4, "b=2") && file.GetProfile("N", "D", 0.0) == 2.5);

    // A backup, a copy, an append, a rename and a removal.
    file.Open("DATA", "ORDERS.DAT", 2 | 8);
    CHECK(file.WriteString("orders", 1) == 6 && file.SaveFile() == 1 && EndsWith(file.GetRealFileName(), "01.SAV"));
    CHECK(file.CopyFileA("DATA", "COPY.DAT", 1) == 1 && file.AppendFile("DATA", "COPY.DAT") == 1);
    CKovra copy("DATA", "COPY.DAT", 1);  // the backup's six bytes twice
    CHECK(file.Rename("DATA", newName) == 1 && EndsWith(file.GetRealFileName(), "\\MOVED.DAT") && file.Access() == 1);
    CHECK(file.Remove() == 1 && file.Access() == 0 && copy.GetLength() == 12);

    // Directories, drives and paths; the static settings.
    CHECK(file.GetRealFileName("DATA", "SUB\\X.TXT") && file.MkDir() == 1);
    CHECK(EndsWith(file.GetShortPathNameA(), "\\SUB\\X.TXT") && EndsWith(file.GetLongPathNameA(), "\\SUB\\X.TXT"));
    CHECK(file.ChDir() == 1 && EndsWith(file.GetCwd(), "APP\\SUB"));
    CHECK(file.GetDrive() == 26 && file.ChDrive(26) == 1 && file.GetDiskFreeSpaceA() > 0 && file.IsNetDrive() == 1);
    CHECK(file.GetRealFileName("DATA", "Y.TXT") && file.ChDir() == 1 && file.GetRealFileName("DATA", "SUB"));
    CHECK(file.IsDirectory() == 1 && file.RmDir() != 0 && file.Access() == 0 && CKovra::IsNetDrive("X") == 1);
    CHECK(CKovra::AddFileType("EXTRA", 9, 1) == 1 && EndsWith(file.GetRealFileName("EXTRA", "E"), "\\DATA\\APP\\E"));
    CHECK(CKovra::SetDebugLevel(0) == 0 && CKovra::SetOption(1, 0) == 1 && CKovra::SetOption(2, 1) == 0);

    // Objects of the program's new and new[], deleted through base pointers; a derived class.
    CKovra* held = new CKovra("DATA", "HELD.TXT", 2 | 32);
    CHECK(held->IsOpen() == 1 && copy.Open("DATA", "HELD.TXT", 1) == 0);
    delete held;
    CHECK(copy.Open("DATA", "HELD.TXT", 1) == 1);
    CKovra* orders = new Orders;
    CHECK(static_cast<Orders*>(orders)->Resolve(name, path) == 1 && EndsWith(path, "\\DATA\\APP\\PLAIN.TXT"));
    CHECK(Same(orders->GetFileName(), "ORDERS.TXT"));
    delete orders;  // through the program's own table, whose destructor calls the library's
    CHECK(g_destroyed == 1);
    char* block = static_cast<char*>(operator new[](sizeof(size_t) + 2 * sizeof(CKovra)));
    *reinterpret_cast<size_t*>(block) = 2;
    CKovra* files = reinterpret_cast<CKovra*>(block + sizeof(size_t));
    for (CKovra* each = files; each < files + 2; ++each)
        ConstructDefault(each);
    CHECK(files[0].Open("DATA", "A0.TXT", 2 | 32) == 1 && files[1].Open("DATA", "A1.TXT", 2 | 32) == 1);
    reinterpret_cast<DeletingDestructor*>(files)->Delete(3);
    CHECK(copy.Open("DATA", "A0.TXT", 2 | 32) == 1 && copy.Open("DATA", "A1.TXT", 2 | 32) == 1);
    CKovraFind* finds = new CKovraFind[3];
    CHECK(finds[2].FindFile("DATA", "LINES.*") != 0 && finds[2].FindNextFileA() != 0 && finds[2].GetLength() == 5);
    CHECK(Same(finds[2].GetFileName(), "LINES.TXT") && EndsWith(finds[2].GetFilePath(), "\\DATA\\APP\\LINES.TXT"));
    CHECK(Same(finds[2].GetFilePathRelative(), "LINES.TXT") && !finds[2].IsDots() && !finds[2].IsDirectory());
    CHECK(!finds[2].IsHidden() && finds[2].FindNextFileA() == 0 && finds[2].Close() == 1);
    reinterpret_cast<DeletingDestructor*>(finds)->Delete(3);

    // Two threads, each bound to a session of its own with a user of its own.
    char *anna[] = {"ANNA", "0041", "\\CLIENTS\\0041\\USERS\\ANNA\\N.TXT"};
    char *bert[] = {"BERT", "0042", "\\CLIENTS\\0042\\USERS\\BERT\\N.TXT"};
    BindAndResolve(anna);
    CHECK(WaitForSingleObject(CreateThread(0, 0, &BindAndResolve, bert, 0, 0), 0xFFFFFFFF) == 0);
    CHECK(EndsWith(file.GetRealFileName("LETTERS", "N.TXT"), anna[2]));
    CHECK(CKovra::RemoveThread(anna, GetCurrentThreadId()) == 1 && CKovra::RemoveSession(anna) == 1);
}
