#include "file/PathParts.h"

namespace {

// Position of the second-last backslash, or null.
const char* SecondLastBackslash(const char* path)
{
    const char* last = std::strrchr(path, '\\');
    if (!last)
        return nullptr;
    for (const char* p = last; p > path;) {
        --p;
        if (*p == '\\')
            return p;
    }
    return nullptr;
}

} // namespace

const char* LastDirectory(const char* path)
{
    const char* separator = SecondLastBackslash(path);
    return separator ? separator + 1 : "";
}

const char* LastPart(const char* name)
{
    const char* separator = std::strrchr(name, '\\');
    return separator ? separator + 1 : name;
}

bool IsRealPathName(const char* name)
{
    return std::strchr(name, ':') || std::strncmp(name, "\\\\", 2) == 0;
}

PathBuilder& PathBuilder::Add(const char* text, size_t length)
{
    if (length > kMaxPathChars - m_length) {
        m_fits = false;
        return *this;
    }
    std::memcpy(m_path + m_length, text, length);
    m_length += length;
    m_path[m_length] = '\0';
    return *this;
}

PathBuilder& PathBuilder::AddParent(const char* path)
{
    const char* separator = SecondLastBackslash(path);
    if (separator)
        return Add(path, static_cast<size_t>(separator + 1 - path));
    const char* single = std::strrchr(path, '\\');
    return single ? Add(path, static_cast<size_t>(single - path)) : *this;
}

PathBuilder& PathBuilder::AddWithout(const char* text, size_t skip)
{
    size_t length = std::strlen(text);
    return length > skip ? Add(text + skip, length - skip) : *this;
}

void PutDateFieldsInPlace(char* name, size_t nameSize, const char* datedName)
{
    if (std::strcmp(name, datedName) != 0 && std::strlen(datedName) < nameSize)
        std::strcpy(name, datedName);
}
