// The C interface of CKovra's static members: file types, settings, sessions and identity.
#include "capi/Handles.h"

KOVRA_CAPI(int) Kovra_IsNetDrive(const char* name, int flags)
{
    return CallStatic(0, [=] { return CKovra::IsNetDrive(name, flags); });
}

KOVRA_CAPI(int) Kovra_AddFileType(const char* name, int location, int encryption, int flags)
{
    return CallStatic(0, [=] { return CKovra::AddFileType(name, location, encryption, flags); });
}

KOVRA_CAPI(int) Kovra_SetDebugLevel(int level, int flags)
{
    return CallStatic(0, [=] { return CKovra::SetDebugLevel(level, flags); });
}

KOVRA_CAPI(int) Kovra_SetOption(int option, int value, int flags)
{
    return CallStatic(0, [=] { return CKovra::SetOption(option, value, flags); });
}

KOVRA_CAPI(int) Kovra_StartSession(void* session, int flags)
{
    return CallStatic(0, [=] { return CKovra::StartSession(session, flags); });
}

KOVRA_CAPI(int) Kovra_RemoveSession(void* session, int flags)
{
    return CallStatic(0, [=] { return CKovra::RemoveSession(session, flags); });
}

KOVRA_CAPI(int) Kovra_StartThread(void* session, unsigned long threadId, int flags)
{
    return CallStatic(0, [=] { return CKovra::StartThread(session, threadId, flags); });
}

KOVRA_CAPI(int) Kovra_RemoveThread(void* session, unsigned long threadId, int flags)
{
    return CallStatic(0, [=] { return CKovra::RemoveThread(session, threadId, flags); });
}

KOVRA_CAPI(int) Kovra_SetUser(const char* user, int flags)
{
    return CallStatic(0, [=] { return CKovra::SetUser(user, flags); });
}

KOVRA_CAPI(int) Kovra_SetClient(const char* client, int flags)
{
    return CallStatic(0, [=] { return CKovra::SetClient(client, flags); });
}

KOVRA_CAPI(int) Kovra_SetModulePath(const char* path, int flags)
{
    return CallStatic(0, [=] { return CKovra::SetModulePath(path, flags); });
}

KOVRA_CAPI(int) Kovra_IsValidClient(const char* client, int flags)
{
    return CallStatic(0, [=] { return CKovra::IsValidClient(client, flags); });
}
