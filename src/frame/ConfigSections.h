// Reading CKOVRA.INI from its bytes, shared by the start-up reading and the checker:
// the lines as the line reader gives them, the sections and keys as the platform's
// private-profile service reads them, and the words each type section gets along its
// BaseType chain.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

constexpr size_t kConfigLineChars = 1024;  // a longer line comes in pieces that count as lines
constexpr size_t kConfigWordChars = 64;    // what the 65-byte word buffers hold

// Calls onLine(piece, lineNumber) for every line of the text as the line reader gives
// it: ended by LF and keeping it, in pieces of at most 1024 bytes, until onLine returns
// false.
template <typename OnLine>
void ForEachConfigLine(const std::string& text, OnLine onLine)
{
    int lineNumber = 1;
    size_t lineEnd = 0;  // behind the LF of the line that the pieces come from
    for (size_t start = 0; start < text.size(); ++lineNumber) {
        // Each line end is looked for once, so that a long line costs its length once.
        if (start >= lineEnd) {
            lineEnd = text.find('\n', start);
            lineEnd = lineEnd == std::string::npos ? text.size() : lineEnd + 1;
        }
        const size_t end = std::min(lineEnd, start + kConfigLineChars);
        if (!onLine(text.substr(start, end - start), lineNumber))
            return;
        start = end;
    }
}

// The type named by a section header line: the text between '[' and the last ']'.
// False for other lines and for [DefaultSettings], whatever its case. The line counts
// up to its first NUL.
bool ParseSectionHeader(const std::string& line, std::string& name);

// What the profile service answers for a key of a section: nothing (the caller's
// default then), or a value that may be empty, cut to 64 characters.
struct ProfileAnswer {
    bool present = false;
    std::string value;
};

enum class TypeKey { Location, Encryption, BaseType };

// The sections of the file as the platform's private-profile service sees them, with the
// answers for the three keys of a type section. Names are compared as the service does:
// blanks around them don't count, nor does the case of the letters A to Z; the first
// section of a name and the first key of a name in it are the ones read.
class ProfileSections {
public:
    explicit ProfileSections(const std::string& fileBytes);

    // A name as the service compares it, in its text and with the case of A to Z folded;
    // blanks around it still count here.
    static std::wstring FoldedName(const std::string& name);
    // The index of the section that the service reads for a folded name, or -1.
    int Find(const std::wstring& foldedName) const;
    const ProfileAnswer& Answer(int section, TypeKey key) const;

private:
    struct Section {
        ProfileAnswer answers[3];
        bool seen[3] = {false, false, false};
    };
    void AddLine(const wchar_t* begin, const wchar_t* end);

    std::vector<Section> m_sections;
    std::unordered_map<std::wstring, int> m_firstOfName;
};

// A type section's words once its BaseType chain has been followed. A chain that would
// never end stops where it comes back to a name already on it: `loops` is set and
// `base` holds that name as written; otherwise `base` is empty.
struct TypeWords {
    std::string location;
    std::string encryption;
    std::string base;
    bool loops = false;
    std::string missingBase;  // a base on the chain that names no section, as written
};

// Follows the BaseType chains of all types of a file. Each name on a chain is followed
// once, whatever the number of types whose chains pass it, so a file's chains are
// resolved in time linear in its sections. A word comes from the nearest base asked
// while it is still empty; a base without the key gives "DEFAULT", one with the key
// present and empty asks the next base.
class TypeChains {
public:
    explicit TypeChains(const ProfileSections& sections) : m_sections(sections) {}

    TypeWords Resolve(const std::string& typeName);

private:
    static constexpr int kEnd = -1;
    static constexpr TypeKey kWordKeys[] = {TypeKey::Location, TypeKey::Encryption};

    // A name on the chains. Names that differ only in the case of A to Z are one name;
    // blanks around a name make another one, though both read the same section.
    struct Node {
        int section = -1;
        int next = kEnd;          // the node of its BaseType, kEnd where the chain ends
        std::string nextSpelling; // its BaseType as written
        bool visiting = false;
        bool done = false;
        bool onRing = false;
        // What a chain gets from this name asked as a base and the names behind it.
        int locationFrom = kEnd;   // the node whose word is taken, kEnd for none
        int encryptionFrom = kEnd;
        bool loops = false;
        std::string loopBase;      // the name as written where the chain comes back
        std::string missingBase;
    };

    Node& At(int node) { return m_nodes[static_cast<size_t>(node)]; }
    const Node& At(int node) const { return m_nodes[static_cast<size_t>(node)]; }
    int NodeOf(const std::string& spelling);
    void Follow(int start);
    void SettleRing(const std::vector<int>& ring);
    void SettleTail(int node);
    static int& WordFrom(Node& node, TypeKey key)
    {
        return key == TypeKey::Location ? node.locationFrom : node.encryptionFrom;
    }
    bool GivesWord(int node, TypeKey key) const;
    std::string WordOf(int node, TypeKey key) const;

    const ProfileSections& m_sections;
    std::vector<Node> m_nodes;
    std::unordered_map<std::wstring, int> m_nodeOfName;
};
