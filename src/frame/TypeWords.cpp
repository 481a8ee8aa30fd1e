// The word tables by which the configuration file names locations and encryptions.
#include <windows.h>

#include "frame/FileTypes.h"

namespace {

const char* const kLocationWords[] = {"",     "DEFAULT",  "BASE",     "MODULE",       "CLIENT",       "MODULECLIENT",
                                      "USER", "WKSTA",    "WKSTATMP", "BASEDATA",     "BASEREADONLY", "MODULEREADONLY"};
const char* const kEncryptionWords[] = {"", "DEFAULT"};

template <size_t N>
int LookupWord(const char* const (&words)[N], const char* word)
{
    for (size_t index = 0; index < N; ++index)
        if (::lstrcmpiA(words[index], word ? word : "") == 0)
            return index == 0 ? 1 : static_cast<int>(index);
    return -1;
}

template <size_t N>
const char* WordAt(const char* const (&words)[N], int index)
{
    return (index >= 1 && static_cast<size_t>(index) < N) ? words[index] : nullptr;
}

} // namespace

int LookupLocationWord(const char* word)
{
    return LookupWord(kLocationWords, word);
}

int LookupEncryptionWord(const char* word)
{
    return LookupWord(kEncryptionWords, word);
}

const char* LocationWord(int index)
{
    return WordAt(kLocationWords, index);
}

const char* EncryptionWord(int index)
{
    return WordAt(kEncryptionWords, index);
}
