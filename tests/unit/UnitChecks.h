// What the unit tests share beyond tests/support: the installation's base path and short views of an object.
#pragma once

#include <string>

#include "TestSupport.h"

namespace kovratest {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

// A member's answer and the cause that the object recorded with it, as "answer cause".
template <typename Answer>
std::string AnswerAndCause(Answer answer, CKovra& file)
{
    return std::to_string(answer) + " " + std::to_string(CauseOf(file));
}

// file, made to name a T_BASE name (with flags 1 a real path) without opening it.
inline CKovra& Naming(CKovra& file, const std::string& name, int flags = 0)
{
    file.Open("T_BASE", name.c_str(), KOVRA_RESOLVE_ONLY, nullptr, flags);
    return file;
}

} // namespace kovratest
