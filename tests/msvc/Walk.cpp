// The main road of kovra through the classes of kovra.h, in a C++ program built in Microsoft
// mode, where they are inline wrappers over the C interface. Walk.c takes the same road
// through the C functions; both print expected.txt.
#include "Runtime.h"
#include "kovra/diag.h"
#include "kovra/kovra.h"

namespace {

// Every type's real path for one name, with a module directory, a client and a user set for
// a session of the calling thread's own.
void ResolveEveryType(void* context)
{
    CKovra& file = *static_cast<CKovra*>(context);
    void* const session = reinterpret_cast<void*>(4711);
    const unsigned long thread = GetCurrentThreadId();
    const int sessionStarted = CKovra::StartSession(session);
    Print("session %d %d\n", sessionStarted, CKovra::StartThread(session, thread));
    CKovra::SetModulePath(file.GetRealFileName("PROGRAM", "ORDERS"));
    CKovra::SetClient("0042");
    CKovra::SetUser("ANNA");
    FileType_S type;
    for (int index = 0; KovraGetFileType(index, &type); ++index)
        Print("%s:%s %s\n", type.name, KovraLocationWord(type.location), file.GetRealFileName(type.name, "NOTES.TXT"));
    CKovra::RemoveThread(session, thread);
    CKovra::RemoveSession(session);
}

void KOVRA_CALL PrintProblem(void* context, int line, const char* problem)
{
    Print("problem %d %s%s\n", line, problem, static_cast<const char*>(context));
}

} // namespace

int Main(void)
{
    Print("interface %d\n", Kovra_InterfaceVersion());
    CKovra file;
    RunOnSecondThread(&ResolveEveryType, &file);

    // Text written with CR LF, read back as bytes and as lines; the time stamp.
    file.Open("DATA", "NOTES.TXT", KOVRA_READWRITE | KOVRA_TRUNCATE | KOVRA_TEXT);
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

    // The profile's numbers of every kind.
    file.Open("SETTINGS", "WALK.INI", KOVRA_RESOLVE_ONLY);
    file.MkDir();
    file.WriteProfile("Window", "Title", "Orders");
    file.WriteProfile("Window", "Width", 640);
    file.WriteProfile("Window", "Big", 4000000000UL);
    file.WriteProfile("Window", "Zoom", 1.25);
    file.GetProfile("Window", "Title", "", bytes, sizeof bytes);
    Print("profile %s %d %lu %d %d\n", bytes, file.GetProfile("Window", "Width", 0),
          file.GetProfile("Window", "Big", 0UL), static_cast<int>(file.GetProfile("Window", "Zoom", 0.0) * 100),
          file.GetProfile("Window", "Height", 480));
    Print("checked %d\n", KovraCheckConfig(file.GetRealFileName(), &PrintProblem, const_cast<char*>(".")));

    // Two backups of a day, and a search for the second.
    for (int generation = 1; generation <= 2; ++generation) {
        file.Open("DATA", "ORDERS.DAT", KOVRA_READWRITE | KOVRA_TRUNCATE);
        file.Printf(0, "orders, generation %d\r\n", generation);
        file.SaveFile();
        Print("backup %s\n", file.GetRealFileName());
    }
    CKovraFind find;
    find.FindFile("DATA", "SAV\\*2.SAV");
    while (find.FindNextFileA())
        Print("found %s %lu %s\n", find.GetFileName(), find.GetLength(), find.GetFilePathRelative());

    // A sharing violation and its message.
    CKovra holder("DATA", "SHARED.TXT", KOVRA_READWRITE | KOVRA_EXCLUSIVE);
    const int opened = file.Open("DATA", "SHARED.TXT", KOVRA_READ);
    char message[512];
    int cause = 0;
    file.GetLastError(&cause, message, sizeof message - 1);
    Print("sharing %d %d %s\n", opened, cause, message);
    return 0;
}
