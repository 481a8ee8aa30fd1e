// The C interface of CKovra's backups, removal, renaming, and directory, drive and path
// operations.
#include "capi/Handles.h"
#include "platform/Text.h"

KOVRA_CAPI(int) KovraFile_SaveFile(KovraFile* file, const char* type, const char* directory, const char* extension,
                                   int nameFlags, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) {
        return object.SaveFile(type, directory, extension, nameFlags, flags);
    });
}

KOVRA_CAPI(int) KovraFile_Remove(KovraFile* file, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.Remove(flags); });
}

KOVRA_CAPI(int) KovraFile_Rename(KovraFile* file, const char* type, char* name, int nameFlags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.Rename(type, name, nameFlags); });
}

KOVRA_CAPI(int) KovraFile_RmDir(KovraFile* file, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.RmDir(flags); });
}

KOVRA_CAPI(int) KovraFile_ChDir(KovraFile* file, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.ChDir(flags); });
}

KOVRA_CAPI(int) KovraFile_GetDrive(KovraFile* file, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.GetDrive(flags); });
}

KOVRA_CAPI(int) KovraFile_ChDrive(KovraFile* file, int drive, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.ChDrive(drive, flags); });
}

KOVRA_CAPI(char*) KovraFile_GetCwd(KovraFile* file, int flags)
{
    return CallMember(file, EmptyText(), [=](CKovra& object) { return object.GetCwd(flags); });
}

KOVRA_CAPI(char*) KovraFile_GetShortPathNameA(KovraFile* file, int flags)
{
    return CallMember(file, EmptyText(), [=](CKovra& object) { return object.GetShortPathNameA(flags); });
}

KOVRA_CAPI(char*) KovraFile_GetLongPathNameA(KovraFile* file, int flags)
{
    return CallMember(file, EmptyText(), [=](CKovra& object) { return object.GetLongPathNameA(flags); });
}

KOVRA_CAPI(int) KovraFile_CopyFileA(KovraFile* file, const char* type, const char* name, int failIfExists, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.CopyFileA(type, name, failIfExists, flags); });
}

KOVRA_CAPI(int) KovraFile_AppendFile(KovraFile* file, const char* type, const char* name, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.AppendFile(type, name, flags); });
}

KOVRA_CAPI(unsigned long) KovraFile_GetDiskFreeSpaceA(KovraFile* file, int flags)
{
    return CallMember(file, 0UL, [=](CKovra& object) { return object.GetDiskFreeSpaceA(flags); });
}

KOVRA_CAPI(int) KovraFile_IsNetDrive(KovraFile* file, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.IsNetDrive(flags); });
}

KOVRA_CAPI(int) KovraFile_Access(KovraFile* file, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.Access(flags); });
}

KOVRA_CAPI(int) KovraFile_MkDir(KovraFile* file, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.MkDir(flags); });
}
