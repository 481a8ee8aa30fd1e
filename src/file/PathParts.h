// Pieces of paths that name resolution joins, and a bounded path builder.
#pragma once

#include <cstddef>
#include <cstring>

#include "platform/File.h"

// The text after the second-last backslash (of X:\APP\ it is APP\); "" with fewer than two.
const char* LastDirectory(const char* path);

// The text after the last backslash, or all of it without one.
const char* LastPart(const char* name);

// A name that contains a colon or begins with two backslashes is a real path as it stands.
bool IsRealPathName(const char* name);

// Gives the caller's name the date fields that resolution put into datedName, in place, where
// the dated name fits the name's buffer of nameSize bytes (a caller's text of unknown size has
// room for its own length only). A name without date fields is never written to, so it may be
// a constant.
void PutDateFieldsInPlace(char* name, size_t nameSize, const char* datedName);

// Joins pieces into a path of at most kMaxPathChars; remembers whether everything fit.
class PathBuilder {
public:
    PathBuilder() { m_path[0] = '\0'; }

    PathBuilder& Add(const char* text) { return Add(text, text ? std::strlen(text) : 0); }
    PathBuilder& Add(const char* text, size_t length);
    // The parent of path: cut after its second-last backslash, or before a single one.
    PathBuilder& AddParent(const char* path);
    // text with its first `skip` characters left out ("" when it is shorter).
    PathBuilder& AddWithout(const char* text, size_t skip);

    bool Fits() const { return m_fits; }
    const char* Text() const { return m_path; }

private:
    char m_path[kPathBufferSize];
    size_t m_length = 0;
    bool m_fits = true;
};
