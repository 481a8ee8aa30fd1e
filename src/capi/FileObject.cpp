// The C interface of CKovra's life, names and error state.
#include <new>

#include "capi/Handles.h"
#include "file/PathParts.h"
#include "platform/Text.h"

namespace {

// BuildFileName is protected; like any derived class, this one may name it, and the pointer
// it gives is one to a member of CKovra.
struct ProtectedMembers : CKovra {
    static constexpr auto kBuildFileName = &ProtectedMembers::BuildFileName;
};

} // namespace

KOVRA_CAPI(int) Kovra_InterfaceVersion(void)
{
    return KOVRA_C_INTERFACE_VERSION;
}

KOVRA_CAPI(KovraFile*) KovraFile_Create(const char* type, const char* name, unsigned long options,
                                        KovraOpenPar_S* parameters, int flags)
{
    return CallStatic(HandleOf(static_cast<CKovra*>(nullptr)), [=] {
        return HandleOf(new (std::nothrow) CKovra(type, name, options, parameters, flags));
    });
}

KOVRA_CAPI(void) KovraFile_Destroy(KovraFile* file)
{
    CallStatic(0, [=] {
        delete ObjectOf(file);
        return 0;
    });
}

KOVRA_CAPI(int) KovraFile_Open(KovraFile* file, const char* type, const char* name, unsigned long options,
                               KovraOpenPar_S* parameters, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.Open(type, name, options, parameters, flags); });
}

KOVRA_CAPI(int) KovraFile_Close(KovraFile* file, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.Close(flags); });
}

KOVRA_CAPI(int) KovraFile_IsOpen(KovraFile* file, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.IsOpen(flags); });
}

KOVRA_CAPI(int) KovraFile_IsWritable(KovraFile* file, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.IsWritable(flags); });
}

KOVRA_CAPI(char*) KovraFile_ResolveRealFileName(KovraFile* file, const char* type, const char* name, int flags)
{
    return CallMember(file, EmptyText(), [=](CKovra& object) { return object.GetRealFileName(type, name, flags); });
}

KOVRA_CAPI(char*) KovraFile_GetFileName(KovraFile* file, int flags)
{
    return CallMember(file, EmptyText(), [=](CKovra& object) { return object.GetFileName(flags); });
}

KOVRA_CAPI(char*) KovraFile_GetFileType(KovraFile* file, int flags)
{
    return CallMember(file, EmptyText(), [=](CKovra& object) { return object.GetFileType(flags); });
}

KOVRA_CAPI(char*) KovraFile_GetRealFileName(KovraFile* file, int flags)
{
    return CallMember(file, EmptyText(), [=](CKovra& object) { return object.GetRealFileName(flags); });
}

KOVRA_CAPI(int) KovraFile_BuildFileName(KovraFile* file, const char* type, char* name, char* realFileName, int size,
                                        int flags)
{
    return CallMember(file, 0, [=](CKovra& object) {
        // The member takes buffers of 260 bytes: it works on copies, and the caller's buffers
        // get what fits them.
        char datedName[kPathBufferSize];
        char path[kPathBufferSize];
        if (!name || !realFileName || !CopyText(datedName, name))
            return 0;
        const int built = (object.*ProtectedMembers::kBuildFileName)(type, datedName, path, flags);
        PutDateFieldsInPlace(name, std::strlen(name) + 1, datedName);
        return built && CopyText(realFileName, BufferSize(size), path) ? 1 : 0;
    });
}

KOVRA_CAPI(int) KovraFile_GetLastError(KovraFile* file, int* cause, char* message, int length, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) {
        // The member copies a message as strncpy does, without a NUL when it fills the buffer:
        // the text comes whole into a buffer of its own and is cut here with its NUL.
        char text[kMessageBufferSize] = "";
        const int reported = object.GetLastError(cause, message ? text : nullptr, sizeof text - 1, flags);
        if (reported && message)
            CopyText(message, BufferSize(length), text);
        return reported;
    });
}

KOVRA_CAPI(int) KovraFile_IsDirectory(KovraFile* file, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.IsDirectory(flags); });
}
