// The main road of kovra through the classes of kovra.h, in a C++ program built in Microsoft
// mode, where they are inline wrappers over the C interface; Walk.c compiles the C headers as C.
#include "Runtime.h"
#include "kovra/kovra.h"

extern "C" void __cdecl WalkC(const char* profile);

void Main(void)
{
    // Names resolve with the module directory, the client and the user of the thread's session.
    CKovra file;
    CHECK(CKovra::StartSession(&file) == 1 && CKovra::StartThread(&file, GetCurrentThreadId()) == 1);
    CHECK(CKovra::SetModulePath(file.GetRealFileName("PROGRAM", "ORDERS")) == 1);
    CHECK(CKovra::SetClient("0042") == 1 && CKovra::SetUser("ANNA") == 1);
    CHECK(EndsWith(file.GetRealFileName("CLIENTFORMS", "N.TXT"), "\\DATA\\APP\\CLIENTS\\0042\\ORDERS\\N.TXT"));
    CHECK(EndsWith(file.GetRealFileName("LETTERS", "N.TXT"), "\\DATA\\APP\\CLIENTS\\0042\\USERS\\ANNA\\N.TXT"));
    CHECK(CKovra::RemoveThread(&file, GetCurrentThreadId()) == 1 && CKovra::RemoveSession(&file) == 1);

    // Text written with CR LF, read back as bytes and as a line cut to 2 characters; the time stamp.
    file.Open("DATA", "N.TXT", KOVRA_READWRITE | KOVRA_TRUNCATE | KOVRA_TEXT);
    CHECK(file.WriteString("one\n") == 5 && file.WriteString("two") == 5 && file.Printf(0, "%d\n", 3) == 3);
    char bytes[64] = "";
    CHECK(file.Open("DATA", "N.TXT", KOVRA_READ) && file.Read(bytes, sizeof bytes) == 13);
    CHECK(Same(bytes, "one\r\ntwo\r\n3\r\n") && file.Open("DATA", "N.TXT", KOVRA_READ | KOVRA_TEXT));
    unsigned int length = 0;
    CHECK(file.ReadString(bytes, 2, &length) == 1 && Same(bytes, "on") && length == 2);
    ATL::CTime stamp(1700000000), read;
    CHECK(file.SetModificationTime(&stamp, 0) && file.GetModificationTime(&read, 0) && read.GetTime() == 1700000000);

    // The profile's numbers of every kind.
    file.Open("SETTINGS", "WALK.INI", KOVRA_RESOLVE_ONLY);
    CHECK(file.MkDir() == 1 && file.WriteProfile("W", "Title", "Orders") && file.WriteProfile("W", "Width", 640));
    CHECK(file.WriteProfile("W", "Big", 4000000000UL) && file.WriteProfile("W", "Zoom", 1.25));
    CHECK(file.GetProfile("W", "Title", "", bytes, sizeof bytes) == 6 && Same(bytes, "Orders"));
    CHECK(file.GetProfile("W", "Width", 0) == 640 && file.GetProfile("W", "Big", 0UL) == 4000000000UL);
    CHECK(file.GetProfile("W", "Zoom", 0.0) == 1.25 && file.GetProfile("W", "Height", 480) == 480);
    WalkC(file.GetRealFileName());

    // A backup, and a search that finds it (and nothing more, checked last).
    file.Open("DATA", "ORDERS.DAT", KOVRA_READWRITE | KOVRA_TRUNCATE);
    CHECK(file.Printf(0, "orders, generation %d\r\n", 1) == 22 && file.SaveFile() == 1);
    CKovraFind find;
    CHECK(find.FindFile("DATA", "SAV\\*.SAV") && find.FindNextFileA() && find.GetLength() == 22);
    CHECK(strlen(find.GetFilePathRelative()) == 16 && EndsWith(file.GetRealFileName(), find.GetFilePathRelative()));

    // A sharing violation, its cause and its message in a buffer of 20 bytes.
    CKovra holder("DATA", "SHARED.TXT", KOVRA_READWRITE | KOVRA_EXCLUSIVE);
    int cause = 0;
    CHECK(file.Open("DATA", "SHARED.TXT", KOVRA_READ) == 0 && file.GetLastError(&cause, bytes, 20) == 1);
    CHECK(cause == 11 && Same(bytes, "A sharing violation") && find.FindNextFileA() == 0);
}
