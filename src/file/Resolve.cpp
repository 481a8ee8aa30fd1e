// Resolution of (file type, name) to a real path.
#include <cstdio>
#include <cstring>

#include "context/ThreadInfo.h"
#include "file/KovraFileState.h"
#include "file/PathParts.h"
#include "frame/FileTypes.h"
#include "frame/KovraApp.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

// Room for a name whose every "%Y" grew by two characters before the result is checked.
constexpr size_t kDateWorkSize = 3 * kPathBufferSize;

// Replaces the first occurrence of field in text by value; false when there is none.
bool ReplaceFirst(char* text, const char* field, const char* value)
{
    char* hit = std::strstr(text, field);
    if (!hit)
        return false;
    size_t fieldLength = std::strlen(field);
    size_t valueLength = std::strlen(value);
    size_t tailLength = std::strlen(hit + fieldLength);
    if (std::strlen(text) - fieldLength + valueLength >= kDateWorkSize)
        return false;  // can't grow any further; the caller sees the text too long
    std::memmove(hit + valueLength, hit + fieldLength, tailLength + 1);
    std::memcpy(hit, value, valueLength);
    return true;
}

// Replaces %Y, %y, %M and %D (or, without %D, %T) by the current UTC date.
void SubstituteDateFields(char* text)
{
    SYSTEMTIME now;
    ::GetSystemTime(&now);
    const int year = now.wYear % 100;
    char twoDigits[8];

    std::snprintf(twoDigits, sizeof twoDigits, "%02d", year);
    char fourDigits[8];
    std::snprintf(fourDigits, sizeof fourDigits, "%s%s", twoDigits[0] < '5' ? "20" : "19", twoDigits);
    while (ReplaceFirst(text, "%Y", fourDigits)) {
    }
    while (ReplaceFirst(text, "%y", twoDigits)) {
    }
    std::snprintf(twoDigits, sizeof twoDigits, "%02d", now.wMonth);
    while (ReplaceFirst(text, "%M", twoDigits)) {
    }
    std::snprintf(twoDigits, sizeof twoDigits, "%02d", now.wDay);
    while (ReplaceFirst(text, "%D", twoDigits) || (!std::strstr(text, "%D") && ReplaceFirst(text, "%T", twoDigits))) {
    }
}

// The directory rule of each location, joined with the name.
void BuildByLocation(PathBuilder& path, int location, const ThreadInfo& context, const char* name)
{
    const char* base = theApp.m_szBasePath;
    const char* data = theApp.m_szDataPath;
    const char* readOnly = theApp.m_szReadOnlyPath;
    const char* module = context.modulePath;
    const bool hasClient = context.client[0] != '\0';
    const size_t baseLength = std::strlen(base);

    switch (location) {
    case kLocationBase:
        path.Add(base).Add(name);
        break;
    case kLocationModule:
        path.Add(module).Add(name);
        break;
    case kLocationClient:
        if (hasClient)
            path.Add(data).Add(context.client).Add("\\").Add(LastDirectory(data)).Add(name);
        else
            path.Add(data).Add(name);
        break;
    case kLocationModuleClient:
        if (hasClient)
            path.Add(data).Add(context.client).Add("\\").Add(LastDirectory(module)).Add(name);
        else
            path.AddParent(data).Add(LastDirectory(module)).Add(name);
        break;
    case kLocationUser:
        path.Add(data);
        if (hasClient)
            path.Add(context.client).Add("\\");
        if (context.user[0])
            path.Add(context.user).Add("\\");
        path.Add(LastPart(name));
        break;
    case kLocationWksta:
    case kLocationWkstaTmp:
        path.Add(data);
        if (hasClient)
            path.Add(context.client).Add("\\");
        path.AddWithout(location == kLocationWksta ? theApp.m_szWkstaPath : theApp.m_szWkstaTmpPath, baseLength)
            .Add(LastPart(name));
        break;
    case kLocationBaseData:
        path.Add(data).Add(name);
        break;
    case kLocationBaseReadOnly:
        if (readOnly[0])
            path.Add(readOnly).Add(LastDirectory(base)).Add(name);
        else
            path.Add(base).Add(name);
        break;
    case kLocationModuleReadOnly:
        if (readOnly[0])
            path.Add(readOnly).Add(LastDirectory(module)).Add(name);
        else
            path.Add(module).Add(name);
        break;
    default:  // 0, DEFAULT and anything out of range
        path.Add(base).Add(name);
        break;
    }
}

char* FindParentReference(char* path)
{
    for (char* p = path; *p; ++p)
        if (p[0] == '\\' && p[1] == '.' && p[2] == '.' && p[3] == '\\')
            return p;
    return nullptr;
}

// The first "\..\" takes the directory name before it along, once.
void CollapseFirstParentReference(char* path)
{
    char* hit = FindParentReference(path);
    if (!hit)
        return;
    for (char* p = hit - 1; p >= path + 1; --p) {
        if (*p == '\\') {
            std::memmove(p + 1, hit + 4, std::strlen(hit + 4) + 1);
            return;
        }
    }
}

} // namespace

int CKovra::ResolveName(const char* type, char* name, size_t nameSize, char* realFileName, int flags)
{
    if (std::strlen(name) > kMaxPathChars)
        return kErrorNameTooLong;
    // Date fields are replaced in a work copy, which may grow beyond the name's buffer.
    char datedName[kDateWorkSize];
    const char* resolvedName = name;
    if (std::strchr(name, '%')) {
        CopyText(datedName, name);
        SubstituteDateFields(datedName);
        PutDateFieldsInPlace(name, nameSize, datedName);
        resolvedName = datedName;
    }

    FileType_S record;
    if (!FindFileType(type, record))
        return kErrorUnknownType;

    ThreadInfo context;
    if (!GetInfo(&context, 0))
        std::memset(&context, 0, sizeof context);  // the empty context

    const KovraOpenPar_S& parameters = m_pState->m_openPar;
    if (parameters.size != 0) {
        if (parameters.location != 0)
            record.location = parameters.location;
        if (parameters.encryption != 0)
            record.encryption = parameters.encryption;
    }
    m_pState->m_fileType = record;

    PathBuilder path;
    if (std::strlen(resolvedName) > kMaxPathChars)
        return kErrorNameTooLong;
    if ((flags & 1) || IsRealPathName(resolvedName))
        path.Add(resolvedName);
    else
        BuildByLocation(path, record.location, context, resolvedName);
    if (!path.Fits())
        return kErrorNameTooLong;

    char result[kPathBufferSize];
    CopyText(result, path.Text());
    if (EndsWithBackslash(result))
        result[std::strlen(result) - 1] = '\0';
    CollapseFirstParentReference(result);
    std::strcpy(realFileName, result);
    return 1;
}

int CKovra::ResolveTarget(const char* type, const char* nameText, char* name, char* path, int flags)
{
    const char* ownType = m_pState->m_pszType;
    int resolution = kErrorNameTooLong;
    if (CopyText(name, kPathBufferSize, nameText))
        resolution = ResolveName(type ? type : (ownType ? ownType : "DFT"), name, kPathBufferSize, path, flags);
    if (resolution == 1)
        return 1;
    m_pState->m_nError = resolution;
    return 0;
}

int CKovra::BuildFileName(const char* type, char* name, char* realFileName, int flags)
{
    if (!m_pState || !name || !realFileName)
        return 0;
    // Name buffers hold 260 characters: the date fields may lengthen the caller's text up to that.
    return ResolveName(type, name, kPathBufferSize, realFileName, flags) == 1 ? 1 : 0;
}
