// What the unit tests share beyond tests/support: the installation's base path, the file types they name and short
// views of an object.
#pragma once

#include <gtest/gtest.h>

#include <sstream>

#include "TestSupport.h"

namespace kovratest {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

// T_BASE to T_MODULEREADONLY, the types of the locations 2 to 11, added behind DFT and XWS of the configuration
// before any test runs.
inline const bool kLocationTypesAdded = [] {
    const char* locations[] = {"BASE", "MODULE", "CLIENT", "MODULECLIENT", "USER", "WKSTA", "WKSTATMP", "BASEDATA",
                               "BASEREADONLY", "MODULEREADONLY"};
    for (int location = 2; location <= 11; ++location)
        CKovra::AddFileType(("T_" + std::string(locations[location - 2])).c_str(), location, 1);
    return true;
}();

// The values as texts joined by blanks, to compare what several getters give after one step at once.
template <typename First, typename... Rest>
std::string Joined(const First& first, const Rest&... rest)
{
    std::ostringstream text;
    text << first;
    ((text << ' ' << rest), ...);
    return text.str();
}

// A member's answer and the cause that the object recorded with it, as "answer cause".
inline std::string AnswerAndCause(long long answer, CKovra& file) { return Joined(answer, CauseOf(file)); }

// The session record that the calling thread's names resolve with.
inline KovraSession_S CallerSession()
{
    KovraSession_S record = {};
    EXPECT_EQ(1, KovraGetThreadSession(&record));
    return record;
}

// file, made to name a T_BASE name (with flags 1 a real path) without opening it.
inline CKovra& Naming(CKovra& file, const std::string& name, int flags = 0)
{
    file.Open("T_BASE", name.c_str(), KOVRA_RESOLVE_ONLY, nullptr, flags);
    return file;
}

struct NameBuilder : CKovra {  // BuildFileName, open to derived classes, rewrites a 260-byte name buffer
    using CKovra::BuildFileName;
};

} // namespace kovratest
