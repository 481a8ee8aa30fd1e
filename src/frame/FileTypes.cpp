#include "frame/FileTypes.h"

#include <cstring>

#include "frame/KovraApp.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

// Records hold at most 35 characters and their NUL; a longer name never equals one.
bool NameEquals(const FileType_S& record, const char* name)
{
    // Compared here rather than by the run-time: the walks of the table compare a name
    // with every record before its own, and most differ within their first characters.
    for (size_t index = 0; index < sizeof record.name; ++index) {
        if (record.name[index] != name[index])
            return false;
        if (!name[index])
            return true;
    }
    return false;  // 36 characters without their end: longer than a record holds
}

} // namespace

FileType_S* FileTypeTable()
{
    static FileType_S privateTable[kMaxFileTypes];
    return theApp.m_pFileTypes ? theApp.m_pFileTypes : privateTable;
}

bool FindFileType(const char* name, FileType_S& record)
{
    // The search starts from an all-zero record, so the empty name is known without an entry.
    record = FileType_S{};
    if (!name)
        return false;
    if (!*name)
        return true;
    const FileType_S* table = FileTypeTable();
    for (int index = 0; index < kMaxFileTypes && table[index].name[0]; ++index) {
        if (NameEquals(table[index], name)) {
            record = table[index];
            record.name[sizeof record.name - 1] = '\0';
            return true;
        }
    }
    return false;
}

int CKovra::AddFileType(const char* name, int location, int encryption, int)
{
    // Nothing is added for a null or empty name (the empty one would end the table where it
    // stands) or for one that the record can't hold whole (a cut name could stand for another
    // type); the answer is 1 all the same, as for a full table.
    FileType_S* table = FileTypeTable();
    if (!name || !*name || std::strlen(name) > kMaxTypeNameChars)
        return 1;
    int index = 0;
    while (index < kMaxFileTypes && table[index].name[0] && !NameEquals(table[index], name))
        ++index;
    if (index == kMaxFileTypes)
        return 1;  // the table is full: nothing is added
    if (!table[index].name[0])
        CopyText(table[index].name, name);
    table[index].location = location;
    table[index].encryption = encryption;
    return 1;
}

int CKovra::SetDebugLevel(int level, int)
{
    int previous = theApp.m_nDebugLevel;
    theApp.m_nDebugLevel = level;
    return previous;
}

int CKovra::SetOption(int option, int value, int)
{
    if (option != 1)
        return 0;
    theApp.m_bSkipProcessSession = value ? 1 : 0;
    return 1;
}
