// What every function of the C interface shares: the object behind a handle, and the call
// of one member from which nothing thrown leaves the library.
#pragma once

#include "frame/CallFrame.h"
#include "kovra/capi.h"
#include "kovra/kovra.h"

// Room for every text that a member reports: GetLastError's longest report included.
constexpr size_t kMessageBufferSize = 1024;

// A caller's buffer size as the bounded copies take it: nothing is written for 0 or less.
inline size_t BufferSize(int size) noexcept
{
    return size > 0 ? static_cast<size_t>(size) : 0;
}

// A handle is the address of its object under an opaque type.
inline CKovra* ObjectOf(KovraFile* file) noexcept
{
    return reinterpret_cast<CKovra*>(file);
}

inline CKovraFind* ObjectOf(KovraFind* find) noexcept
{
    return reinterpret_cast<CKovraFind*>(find);
}

inline KovraFile* HandleOf(CKovra* object) noexcept
{
    return reinterpret_cast<KovraFile*>(object);
}

inline KovraFind* HandleOf(CKovraFind* object) noexcept
{
    return reinterpret_cast<KovraFind*>(object);
}

// member(object) for the handle's object; failure for a null handle or anything thrown.
template <typename Handle, typename Result, typename Member>
Result CallMember(Handle* handle, Result failure, Member&& member) noexcept
{
    auto* object = ObjectOf(handle);
    if (!object)
        return failure;
    return RunInCallFrame(failure, [&]() -> Result { return member(*object); });
}

// A static member's call, guarded the same way.
template <typename Result, typename Member>
Result CallStatic(Result failure, Member&& member) noexcept
{
    return RunInCallFrame(failure, [&]() -> Result { return member(); });
}
