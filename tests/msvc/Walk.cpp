// The main road of kovra through the classes of kovra.h, in a C++ program built in Microsoft
// mode, where they are inline wrappers over the C interface. Walk.c takes the same road
// through the C functions; both print expected.txt.
#include "Runtime.h"
#include "kovra/diag.h"
#include "kovra/kovra.h"

namespace {

void* const kSession = reinterpret_cast<void*>(4711);

// Every type's real path for one name, with a module directory, a client and a user set
// for a session of this thread's own.
void ResolveEveryType()
{
    CKovra file;
    const unsigned long thread = GetCurrentThreadId();
    const int sessionStarted = CKovra::StartSession(kSession);
    Print("session %d %d\n", sessionStarted, CKovra::StartThread(kSession, thread));
    CKovra::SetModulePath(file.GetRealFileName("PROGRAM", "ORDERS"));
    CKovra::SetClient("0042");
    CKovra::SetUser("ANNA");
    FileType_S type;
    for (int index = 0; KovraGetFileType(index, &type); ++index)
        Print("%s:%s %s\n", type.name, KovraLocationWord(type.location), file.GetRealFileName(type.name, "NOTES.TXT"));
    CKovra::RemoveThread(kSession, thread);
    CKovra::RemoveSession(kSession);
}

void TextAndTime()
{
    CKovra file("DATA", "NOTES.TXT", KOVRA_READWRITE | KOVRA_TRUNCATE | KOVRA_TEXT);
    file.WriteString("first line\n");
    file.WriteString("second line");
    file.Printf(0, "%d lines\n", 3);
    file.Open("DATA", "NOTES.TXT", KOVRA_READ);
    char bytes[64];
    Print("bytes");
    PrintBytes(bytes, file.Read(bytes, sizeof bytes));
    file.Open("DATA", "NOTES.TXT", KOVRA_READ | KOVRA_TEXT);
    unsigned int length = 0;
    while (file.ReadString(bytes, sizeof bytes - 1, &length) || length > 0)
        Print("\nline %s", bytes);
    const ATL::CTime stamp(1700000000);
    ATL::CTime read;
    file.SetModificationTime(&stamp, 0);
    file.GetModificationTime(&read, 0);
    Print("\ntime %lu\n", static_cast<unsigned long>(read.GetTime()));
}

void ProfileNumbers()
{
    CKovra profile("SETTINGS", "WALK.INI", KOVRA_RESOLVE_ONLY);
    profile.MkDir();
    profile.WriteProfile("Window", "Title", "Orders");
    profile.WriteProfile("Window", "Width", 640);
    profile.WriteProfile("Window", "Big", 4000000000UL);
    profile.WriteProfile("Window", "Zoom", 1.25);
    char title[32];
    profile.GetProfile("Window", "Title", "", title, sizeof title);
    Print("profile %s %d %lu %d %d\n", title, profile.GetProfile("Window", "Width", 0),
          profile.GetProfile("Window", "Big", 0UL), static_cast<int>(profile.GetProfile("Window", "Zoom", 0.0) * 100),
          profile.GetProfile("Window", "Height", 480));
}

void BackupsAndSearch()
{
    for (int generation = 1; generation <= 2; ++generation) {
        CKovra file("DATA", "ORDERS.DAT", KOVRA_READWRITE | KOVRA_TRUNCATE);
        file.Printf(0, "orders, generation %d\r\n", generation);
        file.SaveFile();
        Print("backup %s\n", file.GetRealFileName());
    }
    CKovraFind find;
    find.FindFile("DATA", "SAV\\*2.SAV");
    while (find.FindNextFileA())
        Print("found %s %lu %s\n", find.GetFileName(), find.GetLength(), find.GetFilePathRelative());
}

void SharingViolation()
{
    CKovra holder("DATA", "SHARED.TXT", KOVRA_READWRITE | KOVRA_EXCLUSIVE);
    CKovra file;
    const int opened = file.Open("DATA", "SHARED.TXT", KOVRA_READ);
    char message[512];
    int cause = 0;
    file.GetLastError(&cause, message, sizeof message - 1);
    Print("sharing %d %d %s\n", opened, cause, message);
}

} // namespace

int Main(void)
{
    Print("interface %d\n", Kovra_InterfaceVersion());
    ResolveEveryType();
    TextAndTime();
    ProfileNumbers();
    BackupsAndSearch();
    SharingViolation();
    return 0;
}
