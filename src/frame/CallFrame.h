// The per-call frame of the exported members that can meet an exception of their own
// making (a failed allocation). No C++ exception crosses the library's interface: the
// member answers with its failure value instead. Failures of the file layer are caught
// inside the members themselves and recorded in the object.
#pragma once

#include <new>

template <typename Result, typename Body>
Result RunInCallFrame(Result failure, Body&& body) noexcept
{
    try {
        return body();
    } catch (...) {
        return failure;
    }
}
