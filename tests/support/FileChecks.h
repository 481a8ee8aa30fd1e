// Small views of a file object that the suites linked with the library share.
#pragma once

#include <cstdint>
#include <string>

#include "TestSupport.h"
#include "kovra/kovra.h"

namespace kovratest {

// The cause that GetLastError reports: 0, a file-layer cause, or -1/-2 of the library.
inline int CauseOf(CKovra& file)
{
    int cause = 0;
    file.GetLastError(&cause);
    return cause;
}

// The object's address as its per-call log lines show it.
inline std::string Address(const CKovra& file)
{
    return Hex(reinterpret_cast<uintptr_t>(&file));
}

} // namespace kovratest
