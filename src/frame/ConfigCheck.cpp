// Checking a configuration file: every problem with its line number. The file is read
// once and never opened as a CKovra object, so that the kovra tool can check a file
// without loading the library.
#include "frame/ConfigCheck.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "frame/ConfigSections.h"
#include "frame/FileTypes.h"
#include "platform/File.h"

namespace {

constexpr UINT kReadBlock = 4096;

// The file's bytes, or false when it can't be read.
bool ReadFileBytes(const char* path, std::string& bytes)
{
    CFile file;
    if (!file.Open(path, CFile::modeRead | CFile::shareDenyNone | CFile::modeNoInherit, nullptr))
        return false;
    try {
        char block[kReadBlock];
        for (UINT read = file.Read(block, kReadBlock); read > 0; read = file.Read(block, kReadBlock))
            bytes.append(block, read);
    } catch (const CFileException&) {
        return false;
    }
    return true;
}

struct SectionLines {
    std::string name;
    int header = 0;
    int location = 0;  // line of the key, 0 when the section lacks it
    int encryption = 0;
    int baseType = 0;
};

class ConfigChecker {
public:
    ConfigChecker(KovraConfigProblemFn report, void* context) : m_report(report), m_context(context) {}

    int Check(const std::string& bytes)
    {
        const ProfileSections sections(bytes);
        TypeChains chains(sections);
        ScanLines(bytes);
        std::map<int, size_t> firstOfSection;  // profile section -> first header reading it
        for (size_t index = 0; index < m_sections.size(); ++index) {
            const int section = sections.Find(ProfileSections::FoldedName(m_sections[index].name));
            auto first = firstOfSection.emplace(section, index).first;
            if (section >= 0 && first->second != index)
                ReportRepeat(m_sections[index], m_sections[first->second]);
            CheckType(m_sections[index], chains.Resolve(m_sections[index].name));
        }
        // Found line by line and then section by section, reported in the order of the lines.
        std::stable_sort(m_problems.begin(), m_problems.end(),
                         [](const Problem& one, const Problem& other) { return one.line < other.line; });
        if (m_report)
            for (const Problem& problem : m_problems)
                m_report(m_context, problem.line, problem.text.c_str());
        return static_cast<int>(m_problems.size());
    }

private:
    struct Problem {
        int line;
        std::string text;
    };

    void Report(int line, const std::string& text) { m_problems.push_back({line, text}); }

    void ScanLines(const std::string& bytes)
    {
        SectionLines* current = nullptr;
        bool inSettings = false;
        ForEachConfigLine(bytes, [&](const std::string& rawLine, int lineNumber) {
            std::string line = rawLine.substr(0, std::strcspn(rawLine.c_str(), "\r\n"));
            std::string name;
            if (ParseSectionHeader(rawLine, name)) {
                m_sections.push_back(SectionLines{name, lineNumber});
                current = &m_sections.back();
                inSettings = false;
            } else if (!line.empty() && line[0] == '[') {
                inSettings = line.find(']') != std::string::npos;
                current = nullptr;
                if (!inSettings)
                    Report(lineNumber, "section header without ']': " + line);
            } else {
                NoteKey(line, lineNumber, current, inSettings);
            }
            return true;
        });
    }

    void NoteKey(const std::string& line, int lineNumber, SectionLines* section, bool inSettings)
    {
        if (line.empty() || line[0] == ';')
            return;
        const size_t equals = line.find('=');
        const std::string key = Trim(line.substr(0, equals));
        if (equals == std::string::npos) {
            NoteKeyWithoutValue(key, lineNumber, section);
            return;
        }
        if (inSettings) {
            CheckSetting(key, Trim(line.substr(equals + 1)), lineNumber);
            return;
        }
        if (!section)
            return;
        int* first = KeyLine(*section, key);
        if (!first)
            Report(lineNumber, "unknown key '" + key + "' in [" + section->name + "]");
        else if (!*first)
            *first = lineNumber;  // the first line of a key is the one read
    }

    // The profile service reads a type's key without '=' as missing, and as the first line of
    // that key it hides the later ones.
    void NoteKeyWithoutValue(const std::string& key, int lineNumber, SectionLines* section)
    {
        int* first = section ? KeyLine(*section, key) : nullptr;
        if (!first || *first)
            return;
        *first = lineNumber;
        Report(lineNumber, "'" + key + "' without '=' in [" + section->name + "]: the key reads as missing, and the " +
                               key + " lines after it are not read");
    }

    // The line of the section's first Location, Encryption or BaseType key; null for other keys.
    static int* KeyLine(SectionLines& section, const std::string& key)
    {
        if (::lstrcmpiA(key.c_str(), "Location") == 0)
            return &section.location;
        if (::lstrcmpiA(key.c_str(), "Encryption") == 0)
            return &section.encryption;
        if (::lstrcmpiA(key.c_str(), "BaseType") == 0)
            return &section.baseType;
        return nullptr;
    }

    void CheckSetting(const std::string& key, const std::string& value, int lineNumber)
    {
        static const char* const kPathKeys[] = {"BasePath", "BaseDataPath", "BaseReadOnlyPath"};
        static const char* const kNumberKeys[] = {"DebugLevel", "SharingViolationRepeat", "Option"};
        for (const char* pathKey : kPathKeys) {
            if (::lstrcmpiA(key.c_str(), pathKey) == 0) {
                if (value.size() > kMaxPathChars)
                    Report(lineNumber, key + " is longer than 259 characters and is ignored");
                return;
            }
        }
        for (const char* numberKey : kNumberKeys) {
            if (::lstrcmpiA(key.c_str(), numberKey) == 0) {
                char* end = nullptr;
                std::strtol(value.c_str(), &end, 10);
                if (!value.empty() && *end != '\0')
                    Report(lineNumber, key + " value '" + value + "' is not a decimal number: it reads as " +
                                           std::to_string(std::atoi(value.c_str())));
                return;
            }
        }
        Report(lineNumber, "unknown key '" + key + "' in [DefaultSettings]");
    }

    void ReportRepeat(const SectionLines& section, const SectionLines& first)
    {
        Report(section.header, "section [" + section.name + "] repeats [" + first.name + "] of line " +
                                   std::to_string(first.header) + ": both read the same keys");
    }

    void CheckType(const SectionLines& section, const TypeWords& type)
    {
        const std::string& name = section.name;
        if (name.size() > kMaxTypeNameChars)
            Report(section.header, "type name '" + name + "' is longer than 35 characters: the type stays unknown");
        int baseLine = section.baseType ? section.baseType : section.header;
        if (!type.missingBase.empty())
            Report(baseLine, "BaseType '" + type.missingBase + "' of [" + name + "] names no section");
        if (type.loops)
            Report(baseLine, "BaseType chain of [" + name + "] loops back to [" + type.base + "]");
        if (LookupLocationWord(type.location.c_str()) < 0)
            Report(section.location ? section.location : section.header,
                   "unknown location word '" + type.location + "' for [" + name + "]");
        if (LookupEncryptionWord(type.encryption.c_str()) < 0)
            Report(section.encryption ? section.encryption : section.header,
                   "unknown encryption word '" + type.encryption + "' for [" + name + "]");
    }

    static std::string Trim(const std::string& text)
    {
        size_t first = text.find_first_not_of(" \t");
        size_t last = text.find_last_not_of(" \t");
        return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
    }

    KovraConfigProblemFn m_report;
    void* m_context;
    std::vector<SectionLines> m_sections;
    std::vector<Problem> m_problems;
};

} // namespace

int CheckConfigFile(const char* path, KovraConfigProblemFn report, void* context)
{
    std::string bytes;
    if (!path || !ReadFileBytes(path, bytes))
        return -1;
    return ConfigChecker(report, context).Check(bytes);
}
