// The main road of kovra through its C interface, in a C program built in Microsoft mode.
// Walk.cpp takes the same road through the classes of kovra.h; both print expected.txt.
#include "Runtime.h"
#include "kovra/capi.h"
#include "kovra/diag.h"

// Every type's real path for one name, with a module directory, a client and a user set for
// a session of the calling thread's own.
static void __cdecl ResolveEveryType(void* context)
{
    KovraFile* file = (KovraFile*)context;
    void* const session = (void*)4711;
    const unsigned long thread = GetCurrentThreadId();
    const int sessionStarted = Kovra_StartSession(session, 0);
    Print("session %d %d\n", sessionStarted, Kovra_StartThread(session, thread, 0));
    Kovra_SetModulePath(KovraFile_ResolveRealFileName(file, "PROGRAM", "ORDERS", 0), 0);
    Kovra_SetClient("0042", 0);
    Kovra_SetUser("ANNA", 0);
    struct FileType_S type;
    for (int index = 0; KovraGetFileType(index, &type); ++index)
        Print("%s:%s %s\n", type.name, KovraLocationWord(type.location),
              KovraFile_ResolveRealFileName(file, type.name, "NOTES.TXT", 0));
    Kovra_RemoveThread(session, thread, 0);
    Kovra_RemoveSession(session, 0);
}

static void KOVRA_CALL PrintProblem(void* context, int line, const char* problem)
{
    Print("problem %d %s%s\n", line, problem, (const char*)context);
}

int __cdecl Main(void)
{
    Print("interface %d\n", Kovra_InterfaceVersion());
    KovraFile* file = KovraFile_Create(0, 0, 0, 0, 0);
    RunOnSecondThread(&ResolveEveryType, file);

    // Text written with CR LF, read back as bytes and as lines; the time stamp.
    KovraFile_Open(file, "DATA", "NOTES.TXT", KOVRA_READWRITE | KOVRA_TRUNCATE | KOVRA_TEXT, 0, 0);
    KovraFile_WriteString(file, "first line\n", 0);
    KovraFile_WriteString(file, "second line", 0);
    KovraFile_Printf(file, 0, "%d lines\n", 3);
    KovraFile_Open(file, "DATA", "NOTES.TXT", KOVRA_READ, 0, 0);
    char bytes[64];
    Print("bytes");
    PrintBytes(bytes, KovraFile_Read(file, bytes, sizeof bytes, 0));
    KovraFile_Open(file, "DATA", "NOTES.TXT", KOVRA_READ | KOVRA_TEXT, 0, 0);
    unsigned int length = 0;
    while (KovraFile_ReadString(file, bytes, sizeof bytes - 1, &length, 0) || length > 0)
        Print("\nline %s", bytes);
    const int64_t stamp = 1700000000;
    int64_t read = 0;
    KovraFile_SetModificationTime(file, &stamp, 0);
    KovraFile_GetModificationTime(file, &read, 0);
    Print("\ntime %lu\n", (unsigned long)read);

    // The profile's numbers of every kind.
    KovraFile_Open(file, "SETTINGS", "WALK.INI", KOVRA_RESOLVE_ONLY, 0, 0);
    KovraFile_MkDir(file, 0);
    KovraFile_WriteProfileString(file, "Window", "Title", "Orders", 0);
    KovraFile_WriteProfileInt(file, "Window", "Width", 640, 0);
    KovraFile_WriteProfileULong(file, "Window", "Big", 4000000000UL, 0);
    KovraFile_WriteProfileDouble(file, "Window", "Zoom", 1.25, 0);
    KovraFile_GetProfileString(file, "Window", "Title", "", bytes, sizeof bytes, 0);
    Print("profile %s %d %lu %d %d\n", bytes, KovraFile_GetProfileInt(file, "Window", "Width", 0, 0),
          KovraFile_GetProfileULong(file, "Window", "Big", 0, 0),
          (int)(KovraFile_GetProfileDouble(file, "Window", "Zoom", 0.0, 0) * 100),
          KovraFile_GetProfileInt(file, "Window", "Height", 480, 0));
    Print("checked %d\n", KovraCheckConfig(KovraFile_GetRealFileName(file, 0), &PrintProblem, "."));

    // Two backups of a day, and a search for the second.
    for (int generation = 1; generation <= 2; ++generation) {
        KovraFile_Open(file, "DATA", "ORDERS.DAT", KOVRA_READWRITE | KOVRA_TRUNCATE, 0, 0);
        KovraFile_Printf(file, 0, "orders, generation %d\r\n", generation);
        KovraFile_SaveFile(file, 0, 0, 0, 0, 0);
        Print("backup %s\n", KovraFile_GetRealFileName(file, 0));
    }
    KovraFind* find = KovraFind_Create();
    KovraFind_FindFile(find, "DATA", "SAV\\*2.SAV", 0);
    while (KovraFind_FindNextFileA(find, 0))
        Print("found %s %lu %s\n", KovraFind_GetFileName(find, 0), KovraFind_GetLength(find, 0),
              KovraFind_GetFilePathRelative(find, 0));
    KovraFind_Destroy(find);

    // A sharing violation and its message.
    KovraFile* holder = KovraFile_Create("DATA", "SHARED.TXT", KOVRA_READWRITE | KOVRA_EXCLUSIVE, 0, 0);
    const int opened = KovraFile_Open(file, "DATA", "SHARED.TXT", KOVRA_READ, 0, 0);
    char message[512];
    int cause = 0;
    KovraFile_GetLastError(file, &cause, message, sizeof message - 1, 0);
    Print("sharing %d %d %s\n", opened, cause, message);
    KovraFile_Destroy(holder);
    KovraFile_Destroy(file);
    return 0;
}
