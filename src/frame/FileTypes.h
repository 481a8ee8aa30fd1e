// The shared file-type table and the word tables by which the configuration file
// names locations and encryptions.
#pragma once

#include "kovra/records.h"

enum KovraLocation : int {
    kLocationDefault = 1,
    kLocationBase = 2,
    kLocationModule = 3,
    kLocationClient = 4,
    kLocationModuleClient = 5,
    kLocationUser = 6,
    kLocationWksta = 7,
    kLocationWkstaTmp = 8,
    kLocationBaseData = 9,
    kLocationBaseReadOnly = 10,
    kLocationModuleReadOnly = 11
};

constexpr int kMaxTypeNameChars = 35;

// Index of a word in the location or encryption table, compared without regard to
// case; the empty word counts as 1. -1 for a word that isn't in the table.
int LookupLocationWord(const char* word);
int LookupEncryptionWord(const char* word);

const char* LocationWord(int index);    // null outside 1..11
const char* EncryptionWord(int index);  // null outside 1..1

// The shared table, or, in a process that couldn't map the shared block, a table of its
// own: the library then works in that process with the types it reads itself.
FileType_S* FileTypeTable();

// Copies the record whose name equals name (with regard to case); false for an unknown
// name.
bool FindFileType(const char* name, FileType_S& record);
