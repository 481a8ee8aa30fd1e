// The C interface of CKovraFind.
#include <new>

#include "capi/Handles.h"
#include "platform/Text.h"

KOVRA_CAPI(KovraFind*) KovraFind_Create(void)
{
    return CallStatic(HandleOf(static_cast<CKovraFind*>(nullptr)),
                      [] { return HandleOf(new (std::nothrow) CKovraFind); });
}

KOVRA_CAPI(void) KovraFind_Destroy(KovraFind* find)
{
    CallStatic(0, [=] {
        delete ObjectOf(find);
        return 0;
    });
}

KOVRA_CAPI(int) KovraFind_FindFile(KovraFind* find, const char* type, const char* pattern, int flags)
{
    return CallMember(find, 0, [=](CKovraFind& object) { return object.FindFile(type, pattern, flags); });
}

KOVRA_CAPI(int) KovraFind_FindNextFileA(KovraFind* find, int flags)
{
    return CallMember(find, 0, [=](CKovraFind& object) { return object.FindNextFileA(flags); });
}

KOVRA_CAPI(int) KovraFind_Close(KovraFind* find, int flags)
{
    return CallMember(find, 0, [=](CKovraFind& object) { return object.Close(flags); });
}

KOVRA_CAPI(unsigned long) KovraFind_GetLength(KovraFind* find, int flags)
{
    return CallMember(find, 0UL, [=](CKovraFind& object) { return object.GetLength(flags); });
}

KOVRA_CAPI(char*) KovraFind_GetFileName(KovraFind* find, int flags)
{
    return CallMember(find, EmptyText(), [=](CKovraFind& object) { return object.GetFileName(flags); });
}

KOVRA_CAPI(char*) KovraFind_GetFilePath(KovraFind* find, int flags)
{
    return CallMember(find, EmptyText(), [=](CKovraFind& object) { return object.GetFilePath(flags); });
}

KOVRA_CAPI(char*) KovraFind_GetFilePathRelative(KovraFind* find, int flags)
{
    return CallMember(find, EmptyText(), [=](CKovraFind& object) { return object.GetFilePathRelative(flags); });
}

KOVRA_CAPI(int) KovraFind_IsDots(KovraFind* find, int flags)
{
    return CallMember(find, 0, [=](CKovraFind& object) { return object.IsDots(flags); });
}

KOVRA_CAPI(int) KovraFind_IsDirectory(KovraFind* find, int flags)
{
    return CallMember(find, 0, [=](CKovraFind& object) { return object.IsDirectory(flags); });
}

KOVRA_CAPI(int) KovraFind_IsHidden(KovraFind* find, int flags)
{
    return CallMember(find, 0, [=](CKovraFind& object) { return object.IsHidden(flags); });
}
