#include "frame/ConfigSections.h"

#include <windows.h>

#include <algorithm>
#include <cstring>

namespace {

// The blanks of the profile format: trimmed around names and values, and around lines.
bool IsProfileBlank(wchar_t c)
{
    return c == L' ' || c == L'\t' || c == L'\v' || c == L'\f' || c == L'\r' || c == L'\n' || c == 0x1a;
}

void TrimBlanks(const wchar_t*& begin, const wchar_t*& end)
{
    while (begin < end && IsProfileBlank(*begin))
        ++begin;
    while (end > begin && IsProfileBlank(end[-1]))
        --end;
}

// Names and values count up to a NUL that the file may hold.
std::wstring UpToNul(const wchar_t* begin, const wchar_t* end)
{
    return std::wstring(begin, std::find(begin, end, L'\0'));
}

void FoldAsciiCase(std::wstring& text)
{
    for (wchar_t& c : text)
        if (c >= L'A' && c <= L'Z')
            c = static_cast<wchar_t>(c - L'A' + L'a');
}

std::wstring Widened(const char* bytes, size_t size, UINT codePage)
{
    if (size == 0)
        return std::wstring();
    const int count = ::MultiByteToWideChar(codePage, 0, bytes, static_cast<int>(size), nullptr, 0);
    std::wstring text(static_cast<size_t>(count), L'\0');
    if (count > 0)
        ::MultiByteToWideChar(codePage, 0, bytes, static_cast<int>(size), &text[0], count);
    return text;
}

std::string Narrowed(const std::wstring& text)
{
    if (text.empty())
        return std::string();
    const int size = ::WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                                           nullptr);
    std::string bytes(static_cast<size_t>(std::max(size, 0)), '\0');
    if (size > 0)
        ::WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), &bytes[0], size, nullptr, nullptr);
    return bytes;
}

std::wstring Utf16Text(const std::string& bytes, bool bigEndian)
{
    std::wstring text((bytes.size() - 2) / 2, L'\0');
    for (size_t index = 0; index < text.size(); ++index) {
        const unsigned char first = static_cast<unsigned char>(bytes[2 + 2 * index]);
        const unsigned char second = static_cast<unsigned char>(bytes[3 + 2 * index]);
        text[index] = static_cast<wchar_t>(bigEndian ? (first << 8 | second) : (second << 8 | first));
    }
    return text;
}

// The file's text as the profile service decodes it: UTF-8 or UTF-16 behind a byte-order
// mark, otherwise the system's ANSI code page.
std::wstring DecodedText(const std::string& bytes)
{
    if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0)
        return Widened(bytes.data() + 3, bytes.size() - 3, CP_UTF8);
    if (bytes.compare(0, 2, "\xFF\xFE") == 0 || bytes.compare(0, 2, "\xFE\xFF") == 0)
        return Utf16Text(bytes, bytes[0] == '\xFE');
    return Widened(bytes.data(), bytes.size(), CP_ACP);
}

// A value as the service copies it into a 65-byte buffer: enclosing quotes of one kind
// removed, at most 64 characters, in the ANSI code page.
std::string AnswerText(const std::wstring& value)
{
    std::wstring copied;
    const bool quoted = value.size() > 1 && (value[0] == L'"' || value[0] == L'\'') && value.back() == value[0];
    if (quoted) {
        // The closing quote is dropped only when the quoted text reached the buffer whole.
        const std::wstring inner = value.substr(1);
        copied = inner.substr(0, kConfigWordChars);
        if (inner.size() <= kConfigWordChars + 1)
            copied.pop_back();
    } else {
        copied = value.substr(0, kConfigWordChars);
    }
    std::string text = Narrowed(copied);
    text.resize(std::min(text.size(), kConfigWordChars));
    return text;
}

bool KeyOf(const std::wstring& name, TypeKey& key)
{
    static const struct {
        const wchar_t* name;
        TypeKey key;
    } kKeys[] = {{L"location", TypeKey::Location}, {L"encryption", TypeKey::Encryption}, {L"basetype", TypeKey::BaseType}};
    std::wstring folded = name;
    FoldAsciiCase(folded);
    for (const auto& candidate : kKeys) {
        if (folded == candidate.name) {
            key = candidate.key;
            return true;
        }
    }
    return false;
}

std::string WithoutLineEnd(const char* line)
{
    return std::string(line, std::strcspn(line, "\r\n"));
}

} // namespace

bool ParseSectionHeader(const std::string& line, std::string& name)
{
    const char* text = line.c_str();
    const char* close = std::strrchr(text, ']');
    if (text[0] != '[' || !close || ::lstrcmpiA(WithoutLineEnd(text).c_str(), "[DefaultSettings]") == 0)
        return false;
    name.assign(text + 1, close);
    return true;
}

// ---- the profile service's view ------------------------------------------------------------

ProfileSections::ProfileSections(const std::string& fileBytes)
{
    // Keys ahead of the first header belong to a section without a name.
    m_sections.emplace_back();
    m_firstOfName.emplace(std::wstring(), 0);
    const std::wstring text = DecodedText(fileBytes);
    const wchar_t* end = text.data() + text.size();
    for (const wchar_t* line = text.data(); line < end;) {
        const wchar_t* lineEnd = std::find_if(line, end, [](wchar_t c) { return c == L'\r' || c == L'\n'; });
        AddLine(line, lineEnd);
        line = std::find_if(lineEnd, end, [](wchar_t c) { return c != L'\r' && c != L'\n'; });
    }
}

void ProfileSections::AddLine(const wchar_t* begin, const wchar_t* end)
{
    TrimBlanks(begin, end);
    if (begin == end)
        return;
    if (*begin == L'[') {
        const wchar_t* afterClose = end;  // behind the last ']'
        while (afterClose > begin && afterClose[-1] != L']')
            --afterClose;
        if (afterClose > begin) {
            const wchar_t* nameBegin = begin + 1;
            const wchar_t* nameEnd = afterClose - 1;
            TrimBlanks(nameBegin, nameEnd);
            std::wstring name = UpToNul(nameBegin, nameEnd);
            FoldAsciiCase(name);
            m_firstOfName.emplace(name, static_cast<int>(m_sections.size()));
            m_sections.emplace_back();
            return;
        }
    }
    // A key line: name=value, or a name alone, which answers with the default.
    const wchar_t* equals = std::find(begin, end, L'=');
    const wchar_t* nameEnd = equals;
    TrimBlanks(begin, nameEnd);
    TypeKey key;
    if (!KeyOf(UpToNul(begin, nameEnd), key))
        return;
    Section& section = m_sections.back();
    ProfileAnswer& answer = section.answers[static_cast<int>(key)];
    if (section.seen[static_cast<int>(key)])
        return;  // the first key of a name is the one read
    section.seen[static_cast<int>(key)] = true;
    if (equals == end)
        return;
    const wchar_t* valueBegin = equals + 1;
    TrimBlanks(valueBegin, end);
    answer.present = true;
    answer.value = AnswerText(UpToNul(valueBegin, end));
}

std::wstring ProfileSections::FoldedName(const std::string& name)
{
    std::wstring folded = Widened(name.data(), std::strlen(name.c_str()), CP_ACP);
    FoldAsciiCase(folded);
    return folded;
}

int ProfileSections::Find(const std::wstring& foldedName) const
{
    const wchar_t* begin = foldedName.data();
    const wchar_t* end = begin + foldedName.size();
    TrimBlanks(begin, end);
    auto found = m_firstOfName.find(std::wstring(begin, end));
    return found == m_firstOfName.end() ? -1 : found->second;
}

const ProfileAnswer& ProfileSections::Answer(int section, TypeKey key) const
{
    return m_sections[static_cast<size_t>(section)].answers[static_cast<int>(key)];
}

// ---- BaseType chains -----------------------------------------------------------------------

int TypeChains::NodeOf(const std::string& spelling)
{
    const std::wstring folded = ProfileSections::FoldedName(spelling);
    auto added = m_nodeOfName.emplace(folded, static_cast<int>(m_nodes.size()));
    if (!added.second)
        return added.first->second;
    Node node;
    node.section = m_sections.Find(folded);
    if (node.section >= 0)
        node.nextSpelling = m_sections.Answer(node.section, TypeKey::BaseType).value;
    m_nodes.push_back(std::move(node));
    return added.first->second;
}

// A name asked as a base gives a word unless its key is present and empty.
bool TypeChains::GivesWord(int node, TypeKey key) const
{
    const int section = At(node).section;
    if (section < 0)
        return true;
    const ProfileAnswer& answer = m_sections.Answer(section, key);
    return !answer.present || !answer.value.empty();
}

std::string TypeChains::WordOf(int node, TypeKey key) const
{
    const int section = At(node).section;
    if (section < 0 || !m_sections.Answer(section, key).present)
        return "DEFAULT";
    return m_sections.Answer(section, key).value;
}

// Walks from start until the chain ends, meets a name already settled or comes back to
// a name of this walk, then settles the names walked, the ring first.
void TypeChains::Follow(int start)
{
    std::vector<int> walked;
    int node = start;
    while (node != kEnd && !At(node).done && !At(node).visiting) {
        At(node).visiting = true;
        walked.push_back(node);
        const std::string next = At(node).nextSpelling;
        const int nextNode = next.empty() ? kEnd : NodeOf(next);
        At(node).next = nextNode;
        node = nextNode;
    }
    size_t tail = walked.size();
    if (node != kEnd && At(node).visiting) {
        auto ringStart = std::find(walked.begin(), walked.end(), node);
        SettleRing(std::vector<int>(ringStart, walked.end()));
        tail = static_cast<size_t>(ringStart - walked.begin());
    }
    while (tail-- > 0)
        SettleTail(walked[tail]);
}

// On a ring every name's chain goes once around it: a word comes from the first name
// from there on that gives one, and the chain comes back where the ring's previous name
// points. Walking backwards from a name that gives the word settles every name in one
// round.
void TypeChains::SettleRing(const std::vector<int>& ring)
{
    const size_t length = ring.size();
    auto previous = [length](size_t index) { return (index + length - 1) % length; };
    for (size_t index = 0; index < length; ++index) {
        Node& node = At(ring[index]);
        node.onRing = node.loops = node.done = true;
        node.visiting = false;
        node.loopBase = At(ring[previous(index)]).nextSpelling;
    }
    for (TypeKey key : kWordKeys) {
        auto giver = std::find_if(ring.begin(), ring.end(), [&](int node) { return GivesWord(node, key); });
        if (giver == ring.end())
            continue;  // no name of the ring gives the word
        int from = *giver;
        for (size_t index = static_cast<size_t>(giver - ring.begin()), step = 0; step < length;
             ++step, index = previous(index)) {
            if (GivesWord(ring[index], key))
                from = ring[index];
            WordFrom(At(ring[index]), key) = from;
        }
    }
}

// Off a ring a name's chain is the name itself and then its base's chain.
void TypeChains::SettleTail(int index)
{
    Node& node = At(index);
    node.visiting = false;
    node.done = true;
    Node* next = node.next == kEnd ? nullptr : &At(node.next);
    for (TypeKey key : kWordKeys)
        WordFrom(node, key) = GivesWord(index, key) ? index : next ? WordFrom(*next, key) : kEnd;
    if (next) {
        node.loops = next->loops;
        node.loopBase = next->loopBase;
        node.missingBase = next->section < 0 ? node.nextSpelling : next->missingBase;
    }
}

TypeWords TypeChains::Resolve(const std::string& typeName)
{
    const int start = NodeOf(typeName);
    TypeWords words;
    auto word = [&words](TypeKey key) -> std::string& {
        return key == TypeKey::Location ? words.location : words.encryption;
    };
    const int section = At(start).section;
    for (TypeKey key : kWordKeys)
        word(key) = section >= 0 ? m_sections.Answer(section, key).value : "";
    if (At(start).nextSpelling.empty())
        return words;
    Follow(start);
    Node& type = At(start);
    Node& base = At(type.next);
    // When the type's own name is on the ring its chain stops on coming back to it, so
    // the type gives itself no word as a base.
    for (TypeKey key : kWordKeys) {
        const int from = WordFrom(base, key);
        if (word(key).empty() && from != kEnd && from != start)
            word(key) = WordOf(from, key);
    }
    words.loops = base.loops;
    words.base = type.onRing ? type.loopBase : base.loopBase;
    words.missingBase = base.section < 0 ? type.nextSpelling : base.missingBase;
    return words;
}
