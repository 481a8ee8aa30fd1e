// The C interface of CKovra's I/O, position, length, locks, time stamps and profile access.
#include <cstdarg>

#include "access/TextIO.h"
#include "capi/Handles.h"

KOVRA_CAPI(unsigned int) KovraFile_Read(KovraFile* file, void* buffer, unsigned int count, int flags)
{
    return CallMember(file, 0u, [=](CKovra& object) { return object.Read(buffer, count, flags); });
}

KOVRA_CAPI(unsigned int) KovraFile_Write(KovraFile* file, const void* buffer, unsigned int count, int flags)
{
    return CallMember(file, 0u, [=](CKovra& object) { return object.Write(buffer, count, flags); });
}

KOVRA_CAPI(int) KovraFile_ReadString(KovraFile* file, char* buffer, unsigned int size, unsigned int* length,
                                     int flags)
{
    // The member's size counts the characters, without the NUL that follows them.
    return CallMember(file, 0, [=](CKovra& object) {
        return size > 0 ? object.ReadString(buffer, size - 1, length, flags) : 0;
    });
}

KOVRA_CAPI(unsigned int) KovraFile_WriteString(KovraFile* file, const char* text, int flags)
{
    return CallMember(file, 0u, [=](CKovra& object) { return object.WriteString(text, flags); });
}

KOVRA_CAPI(unsigned int) KovraFile_VPrintf(KovraFile* file, int, const char* format, va_list arguments)
{
    // Printf's flags word has no bits: like the member, the formatted writing ignores it. The
    // arguments are read as Microsoft's run-time reads them, whatever compiler built the caller.
    return CallMember(file, 0u,
                      [&](CKovra& object) { return WriteFormatted(object, &FormatAsMicrosoft, format, arguments); });
}

KOVRA_CAPI(unsigned int) KovraFile_Printf(KovraFile* file, int flags, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const unsigned int written = KovraFile_VPrintf(file, flags, format, arguments);
    va_end(arguments);
    return written;
}

KOVRA_CAPI(int) KovraFile_Flush(KovraFile* file, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.Flush(flags); });
}

KOVRA_CAPI(long) KovraFile_Seek(KovraFile* file, long offset, int origin, int flags)
{
    return CallMember(file, 0L, [=](CKovra& object) { return object.Seek(offset, origin, flags); });
}

KOVRA_CAPI(unsigned long) KovraFile_GetPosition(KovraFile* file, int flags)
{
    return CallMember(file, 0UL, [=](CKovra& object) { return object.GetPosition(flags); });
}

KOVRA_CAPI(unsigned long) KovraFile_GetLength(KovraFile* file, int flags)
{
    return CallMember(file, 0UL, [=](CKovra& object) { return object.GetLength(flags); });
}

KOVRA_CAPI(int) KovraFile_SetLength(KovraFile* file, unsigned long length, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.SetLength(length, flags); });
}

KOVRA_CAPI(int) KovraFile_Lock(KovraFile* file, long position, int count, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.Lock(position, count, flags); });
}

KOVRA_CAPI(int) KovraFile_UnLock(KovraFile* file, long position, int count, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.UnLock(position, count, flags); });
}

// Time stamps cross this interface as plain seconds; ATL::CTime holds the same number.
KOVRA_CAPI(int) KovraFile_GetModificationTime(KovraFile* file, int64_t* seconds, int selector)
{
    return CallMember(file, 0, [=](CKovra& object) {
        ATL::CTime time;
        const int result = object.GetModificationTime(seconds ? &time : nullptr, selector);
        if (result)
            *seconds = time.GetTime();
        return result;
    });
}

KOVRA_CAPI(int) KovraFile_SetModificationTime(KovraFile* file, const int64_t* seconds, int selector)
{
    return CallMember(file, 0, [=](CKovra& object) {
        const ATL::CTime time(seconds ? *seconds : 0);
        return object.SetModificationTime(seconds ? &time : nullptr, selector);
    });
}

KOVRA_CAPI(KovraFile*) KovraFile_OperatorAssign(KovraFile* file, long offset)
{
    return CallMember(file, file, [=](CKovra& object) { return HandleOf(object = offset); });
}

KOVRA_CAPI(KovraFile*) KovraFile_OperatorAddAssign(KovraFile* file, long offset)
{
    return CallMember(file, file, [=](CKovra& object) { return HandleOf(object += offset); });
}

KOVRA_CAPI(KovraFile*) KovraFile_OperatorSubtractAssign(KovraFile* file, long offset)
{
    return CallMember(file, file, [=](CKovra& object) { return HandleOf(object -= offset); });
}

namespace {

// Each value type reaches the overload of its own type.
template <typename Value>
int WriteProfileValue(KovraFile* file, const char* section, const char* key, Value value, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.WriteProfile(section, key, value, flags); });
}

template <typename Value>
Value GetProfileValue(KovraFile* file, const char* section, const char* key, Value defaultValue, int flags)
{
    return CallMember(file, defaultValue,
                      [=](CKovra& object) { return object.GetProfile(section, key, defaultValue, flags); });
}

} // namespace

KOVRA_CAPI(int) KovraFile_WriteProfileString(KovraFile* file, const char* section, const char* key, const char* value,
                                             int flags)
{
    return WriteProfileValue(file, section, key, value, flags);
}

KOVRA_CAPI(int) KovraFile_WriteProfileLong(KovraFile* file, const char* section, const char* key, long value,
                                           int flags)
{
    return WriteProfileValue(file, section, key, value, flags);
}

KOVRA_CAPI(int) KovraFile_WriteProfileInt(KovraFile* file, const char* section, const char* key, int value, int flags)
{
    return WriteProfileValue(file, section, key, value, flags);
}

KOVRA_CAPI(int) KovraFile_WriteProfileULong(KovraFile* file, const char* section, const char* key,
                                            unsigned long value, int flags)
{
    return WriteProfileValue(file, section, key, value, flags);
}

KOVRA_CAPI(int) KovraFile_WriteProfileUInt(KovraFile* file, const char* section, const char* key, unsigned int value,
                                           int flags)
{
    return WriteProfileValue(file, section, key, value, flags);
}

KOVRA_CAPI(int) KovraFile_WriteProfileDouble(KovraFile* file, const char* section, const char* key, double value,
                                             int flags)
{
    return WriteProfileValue(file, section, key, value, flags);
}

KOVRA_CAPI(int) KovraFile_GetProfileString(KovraFile* file, const char* section, const char* key,
                                           const char* defaultText, char* buffer, int size, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) {
        return object.GetProfile(section, key, defaultText, buffer, size, flags);
    });
}

KOVRA_CAPI(long) KovraFile_GetProfileLong(KovraFile* file, const char* section, const char* key, long defaultValue,
                                          int flags)
{
    return GetProfileValue(file, section, key, defaultValue, flags);
}

KOVRA_CAPI(int) KovraFile_GetProfileInt(KovraFile* file, const char* section, const char* key, int defaultValue,
                                        int flags)
{
    return GetProfileValue(file, section, key, defaultValue, flags);
}

KOVRA_CAPI(unsigned long) KovraFile_GetProfileULong(KovraFile* file, const char* section, const char* key,
                                                    unsigned long defaultValue, int flags)
{
    return GetProfileValue(file, section, key, defaultValue, flags);
}

KOVRA_CAPI(unsigned int) KovraFile_GetProfileUInt(KovraFile* file, const char* section, const char* key,
                                                  unsigned int defaultValue, int flags)
{
    return GetProfileValue(file, section, key, defaultValue, flags);
}

KOVRA_CAPI(double) KovraFile_GetProfileDouble(KovraFile* file, const char* section, const char* key,
                                              double defaultValue, int flags)
{
    return GetProfileValue(file, section, key, defaultValue, flags);
}

KOVRA_CAPI(int) KovraFile_GetProfileSectionA(KovraFile* file, const char* section, char* buffer, int size, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.GetProfileSectionA(section, buffer, size, flags); });
}

KOVRA_CAPI(int) KovraFile_WriteProfileSectionA(KovraFile* file, const char* section, const char* lines, int flags)
{
    return CallMember(file, 0, [=](CKovra& object) { return object.WriteProfileSectionA(section, lines, flags); });
}
