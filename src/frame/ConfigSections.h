// The lines and type sections of a configuration file, read alike by the loading of
// CKOVRA.INI and by the checking of a configuration file. A Reader is a CKovra object on
// the file, or anything else with its ReadString and (text) GetProfile.
#pragma once

#include <windows.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/Text.h"

constexpr int kConfigWordSize = 65;
constexpr unsigned int kConfigLineChars = 1024;

// Calls onLine(line, lineNumber) for every line, its line end included, until it returns
// false. A line longer than 1024 characters comes in pieces that count as lines.
template <typename Reader, typename OnLine>
void ForEachLine(Reader& config, OnLine onLine)
{
    char line[kConfigLineChars + 1];
    for (int lineNumber = 1;; ++lineNumber) {
        unsigned int length = 0;
        int more = config.ReadString(line, kConfigLineChars, &length, 0);
        if (length > 0 && !onLine(line, lineNumber))
            return;
        if (!more)
            return;
    }
}

inline std::string WithoutLineEnd(const char* line)
{
    return std::string(line, std::strcspn(line, "\r\n"));
}

// The type named by a section header: the text between '[' and the last ']'.
// False for other lines and for [DefaultSettings], whatever its case.
inline bool ParseSectionHeader(const char* line, std::string& name)
{
    if (::lstrcmpiA(WithoutLineEnd(line).c_str(), "[DefaultSettings]") == 0)
        return false;
    const char* close = std::strrchr(line, ']');
    if (line[0] != '[' || !close)
        return false;
    name.assign(line + 1, close);
    return true;
}

inline bool SameSectionName(const std::string& a, const std::string& b)
{
    return ::lstrcmpiA(a.c_str(), b.c_str()) == 0;  // as the profile service compares them
}

struct TypeSection {
    std::string name;
    char location[kConfigWordSize] = "";
    char encryption[kConfigWordSize] = "";
    char base[kConfigWordSize] = "";
    std::vector<std::string> bases;  // every base the chain asked, in order
    bool loops = false;
};

// Reads the type's words and fills the missing ones from its BaseType chain. A base
// section without the key gives "DEFAULT"; a key present but empty asks the next base.
template <typename Reader>
void ReadTypeWords(Reader& config, TypeSection& type)
{
    const char* name = type.name.c_str();
    config.GetProfile(name, "Location", "", type.location, kConfigWordSize, 0);
    config.GetProfile(name, "Encryption", "", type.encryption, kConfigWordSize, 0);
    config.GetProfile(name, "BaseType", "", type.base, kConfigWordSize, 0);
    std::vector<std::string> visited{type.name};
    while (type.base[0]) {
        for (const std::string& seen : visited) {
            if (SameSectionName(seen, type.base)) {
                type.loops = true;  // the chain would never end
                return;
            }
        }
        visited.emplace_back(type.base);
        type.bases.emplace_back(type.base);
        char base[kConfigWordSize];
        CopyText(base, type.base);
        if (!type.location[0])
            config.GetProfile(base, "Location", "DEFAULT", type.location, kConfigWordSize, 0);
        if (!type.encryption[0])
            config.GetProfile(base, "Encryption", "DEFAULT", type.encryption, kConfigWordSize, 0);
        config.GetProfile(base, "BaseType", "", type.base, kConfigWordSize, 0);
    }
}
