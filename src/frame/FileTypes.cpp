#include "frame/FileTypes.h"

#include <windows.h>

#include <atomic>
#include <cstdint>
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

// The position of the first record whose name equals name, by walking the table from its start
// as far as its end; -1 when there is none.
int Walk(const FileType_S* table, const char* name)
{
    for (int position = 0; position < kMaxFileTypes && table[position].name[0]; ++position)
        if (NameEquals(table[position], name))
            return position;
    return -1;
}

// FNV-1a of a name as far as a record holds it.
uint32_t NameHash(const char* name)
{
    uint32_t hash = 2166136261u;
    for (size_t index = 0; index < sizeof FileType_S::name && name[index]; ++index)
        hash = (hash ^ static_cast<unsigned char>(name[index])) * 16777619u;
    return hash;
}

// Each process's index over the file-type table: the position of every name's first record,
// by the name's hash, so that a lookup doesn't walk the table. It holds positions, never
// copies, so a record that AddFileType changes in place is read as it now is. Records are
// only ever added at the end of the table, by any process: a name that the index doesn't hold
// makes it take in the records behind those it has seen, and one it still doesn't hold is
// looked for by the walk all the same, so the answer is always the walk's, even for a record
// whose name another process was still writing when it was taken in.
//
// Lookups read the index without a lock: entries are only ever added, each published by the
// release of its position after its hash, and the count of records taken in is published after
// their entries. Taking in records and answering a miss are serialised by a lock of their own.
// The index serves the table it was first asked about (the shared one, or the process's own
// when the shared block is missing); any other table is walked. It is zero-initialised and
// needs no destruction, so it serves from the library's load to its unload.
class FileTypeIndex {
public:
    int Find(const FileType_S* table, const char* name)
    {
        // A name in the index is at its first record: the records not yet taken in come later.
        const uint32_t hash = NameHash(name);
        if (table == m_table.load(std::memory_order_acquire)) {
            const int position = Probe(table, name, hash);
            if (position >= 0)
                return position;
        }
        ::AcquireSRWLockExclusive(&m_adding);
        if (!m_table.load(std::memory_order_relaxed))
            m_table.store(table, std::memory_order_release);
        int position = -1;
        if (table == m_table.load(std::memory_order_relaxed)) {
            TakeInNewRecords(table);
            position = Probe(table, name, hash);
        }
        if (position < 0) {
            position = Walk(table, name);
            if (position >= 0 && table == m_table.load(std::memory_order_relaxed))
                Insert(hash, position);
        }
        ::ReleaseSRWLockExclusive(&m_adding);
        return position;
    }

private:
    static constexpr uint32_t kSlots = 4096;  // a power of two, well above the table's records

    struct Slot {
        uint32_t hash;
        std::atomic<int> positionPlusOne;  // 0 marks a free slot
    };

    bool HasGrown(const FileType_S* table) const
    {
        const int indexed = m_indexed.load(std::memory_order_acquire);
        return indexed < kMaxFileTypes && table[indexed].name[0];
    }

    void TakeInNewRecords(const FileType_S* table)
    {
        for (int position = m_indexed.load(std::memory_order_relaxed); HasGrown(table); ++position) {
            const char* name = table[position].name;
            const uint32_t hash = NameHash(name);
            if (Probe(table, name, hash) < 0)  // the first record of a name is the one the walk finds
                Insert(hash, position);
            m_indexed.store(position + 1, std::memory_order_release);
        }
    }

    int Probe(const FileType_S* table, const char* name, uint32_t hash) const
    {
        for (uint32_t slot = hash & (kSlots - 1);; slot = (slot + 1) & (kSlots - 1)) {
            const int positionPlusOne = m_slots[slot].positionPlusOne.load(std::memory_order_acquire);
            if (!positionPlusOne)
                return -1;
            if (m_slots[slot].hash == hash && NameEquals(table[positionPlusOne - 1], name))
                return positionPlusOne - 1;
        }
    }

    void Insert(uint32_t hash, int position)
    {
        if (m_used + 1 >= kSlots)  // a probe must always meet a free slot
            return;
        uint32_t slot = hash & (kSlots - 1);
        while (m_slots[slot].positionPlusOne.load(std::memory_order_relaxed))
            slot = (slot + 1) & (kSlots - 1);
        m_slots[slot].hash = hash;
        m_slots[slot].positionPlusOne.store(position + 1, std::memory_order_release);
        ++m_used;
    }

    SRWLOCK m_adding;                         // serialises taking in records and answering misses
    std::atomic<const FileType_S*> m_table;   // the table indexed, set once
    std::atomic<int> m_indexed;               // records of the table taken in, from its first
    uint32_t m_used;                          // slots in use
    Slot m_slots[kSlots];
};

FileTypeIndex g_fileTypeIndex;  // zero-initialised: an unlocked lock, and nothing indexed

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
    const int position = g_fileTypeIndex.Find(table, name);
    if (position < 0)
        return false;
    record = table[position];
    record.name[sizeof record.name - 1] = '\0';
    return true;
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
