// The entry points of CKovra and CKovraFind for programs built by Microsoft's compiler, where
// its ABI differs from GCC's. Every other member is GCC's own, exported under Microsoft's name
// (exports-<target>.def): on i686 both compilers make members thiscall and Printf and the
// static members cdecl, on x86_64 there is one convention; both objects are a table pointer
// followed by the record pointer, and none of those members lets an exception out.
//
// What differs: Microsoft's constructors return the object, and its table holds one slot, the
// deleting destructor. So the constructors here build GCC's object in place and then put the
// Microsoft table in its first word; GCC's members never read that word, as the destructor is
// the only virtual member. The names follow KovraMs_<class>_<what>, which CheckExports maps to.
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <new>

#include "capi/Handles.h"

// Microsoft's members on i686: the object in ECX, the callee removes the other arguments.
#if defined(__i386__)
#define KOVRA_MS_THISCALL __attribute__((thiscall))
#else
#define KOVRA_MS_THISCALL
#endif

static_assert(sizeof(CKovra) == 2 * sizeof(void*) && sizeof(CKovraFind) == 2 * sizeof(void*),
              "an object is its table pointer and its record pointer, as Microsoft's compiler lays it out");

namespace {

using DeletingDestructor = void*(KOVRA_MS_THISCALL*)(void* object, unsigned int flags);
constexpr unsigned int kFreeMemory = 1;  // the flags of Microsoft's deleting destructor
constexpr unsigned int kArray = 2;

// Destroys the object, or with kArray the array that new[] made, whose element count lies in
// the pointer-sized word in front of it: every element, the last first. With kFreeMemory the
// memory goes back to the C run-time DLL's heap, as the program's own delete gives it back.
// Returns the start of that memory, as Microsoft's deleting destructors do.
template <typename Object>
KOVRA_MS_THISCALL void* DeleteObjects(void* memory, unsigned int flags)
{
    Object* objects = static_cast<Object*>(memory);
    void* block = memory;
    size_t count = 1;
    if (flags & kArray) {
        block = static_cast<size_t*>(memory) - 1;
        count = *static_cast<size_t*>(block);
    }
    while (count > 0)
        objects[--count].Object::~Object();  // GCC's destructor, not a call through the table
    if (flags & kFreeMemory)
        std::free(block);
    return block;
}

template <typename Object>
Object* WithTable(Object* object, const DeletingDestructor* table)
{
    std::memcpy(static_cast<void*>(object), &table, sizeof table);
    return object;
}

// The copy operations that Microsoft's compiler makes for these classes: the copy takes the
// other object's record pointer, which both then share.
template <typename Object>
Object* CopyRecordPointer(Object* object, const Object* other)
{
    std::memcpy(reinterpret_cast<char*>(object) + sizeof(void*), reinterpret_cast<const char*>(other) + sizeof(void*),
                sizeof(void*));
    return object;
}

} // namespace

extern "C" {

extern const DeletingDestructor KovraMs_CKovra_Table[] = {&DeleteObjects<CKovra>};
extern const DeletingDestructor KovraMs_CKovraFind_Table[] = {&DeleteObjects<CKovraFind>};

KOVRA_MS_THISCALL CKovra* KovraMs_CKovra_Construct(CKovra* object, const char* type, const char* name,
                                                   unsigned long options, KovraOpenPar_S* parameters, int flags)
{
    return WithTable(new (object) CKovra(type, name, options, parameters, flags), KovraMs_CKovra_Table);
}

// The default-constructor closure, which Microsoft's array new calls for each element.
KOVRA_MS_THISCALL CKovra* KovraMs_CKovra_ConstructDefault(CKovra* object)
{
    return KovraMs_CKovra_Construct(object, nullptr, nullptr, 0, nullptr, 0);
}

KOVRA_MS_THISCALL CKovra* KovraMs_CKovra_CopyConstruct(CKovra* object, const CKovra* other)
{
    return WithTable(CopyRecordPointer(object, other), KovraMs_CKovra_Table);
}

KOVRA_MS_THISCALL CKovra* KovraMs_CKovra_CopyAssign(CKovra* object, const CKovra* other)
{
    return CopyRecordPointer(object, other);
}

KOVRA_MS_THISCALL CKovraFind* KovraMs_CKovraFind_Construct(CKovraFind* object)
{
    return WithTable(new (object) CKovraFind, KovraMs_CKovraFind_Table);
}

KOVRA_MS_THISCALL CKovraFind* KovraMs_CKovraFind_CopyConstruct(CKovraFind* object, const CKovraFind* other)
{
    return WithTable(CopyRecordPointer(object, other), KovraMs_CKovraFind_Table);
}

KOVRA_MS_THISCALL CKovraFind* KovraMs_CKovraFind_CopyAssign(CKovraFind* object, const CKovraFind* other)
{
    return CopyRecordPointer(object, other);
}

// Reads its arguments as Microsoft's run-time does, as the C interface's Printf does.
unsigned int KovraMs_CKovra_Printf(CKovra* object, int flags, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const unsigned int written = KovraFile_VPrintf(HandleOf(object), flags, format, arguments);
    va_end(arguments);
    return written;
}

} // extern "C"
