// Checking a configuration file: every problem with its line number. The file is read
// once and never opened as a CKovra object, so that the kovra tool can check a file
// without loading the library.
#include "frame/ConfigCheck.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "frame/ConfigSections.h"
#include "frame/FileTypes.h"
#include "platform/File.h"

namespace {

constexpr UINT kReadBlock = 4096;

// The text of a configuration file, handed out line by line as CKovra's ReadString does
// without the text option, and its keys through the platform's private-profile service.
class ConfigText {
public:
    bool Read(const char* path)
    {
        // The profile service takes a name without a directory from the Windows directory.
        DWORD length = ::GetFullPathNameA(path, sizeof m_path, m_path, nullptr);
        if (length == 0 || length >= sizeof m_path)
            return false;
        CFile file;
        if (!file.Open(m_path, CFile::modeRead | CFile::shareDenyNone | CFile::modeNoInherit, nullptr))
            return false;
        try {
            char block[kReadBlock];
            for (UINT read = file.Read(block, kReadBlock); read > 0; read = file.Read(block, kReadBlock))
                m_text.append(block, read);
        } catch (const CFileException&) {
            return false;
        }
        return true;
    }

    // The next line with its line end, or its next size characters; 0 when the text ended it.
    int ReadString(char* buffer, unsigned int size, unsigned int* length, int)
    {
        unsigned int stored = 0;
        int result = 1;
        while (stored < size) {
            if (m_position == m_text.size()) {
                result = 0;
                break;
            }
            buffer[stored] = m_text[m_position++];
            if (buffer[stored++] == '\n')
                break;
        }
        buffer[stored] = '\0';
        *length = stored;
        return result;
    }

    int GetProfile(const char* section, const char* key, const char* defaultText, char* buffer, int size, int)
    {
        return static_cast<int>(
            ::GetPrivateProfileStringA(section, key, defaultText, buffer, static_cast<DWORD>(size), m_path));
    }

private:
    char m_path[kPathBufferSize] = "";
    std::string m_text;
    size_t m_position = 0;
};

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

    int Check(ConfigText& config)
    {
        ScanLines(config);
        for (size_t index = 0; index < m_sections.size(); ++index)
            CheckType(config, index);
        return m_problems;
    }

private:
    void Report(int line, const std::string& text)
    {
        ++m_problems;
        if (m_report)
            m_report(m_context, line, text.c_str());
    }

    const SectionLines* FindSection(const std::string& name, size_t before) const
    {
        for (size_t index = 0; index < before && index < m_sections.size(); ++index)
            if (SameSectionName(m_sections[index].name, name))
                return &m_sections[index];
        return nullptr;
    }

    void ScanLines(ConfigText& config)
    {
        SectionLines* current = nullptr;
        bool inSettings = false;
        ForEachLine(config, [&](const char* rawLine, int lineNumber) {
            std::string line = WithoutLineEnd(rawLine);
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
        size_t equals = line.find('=');
        if (equals == std::string::npos || line[0] == ';')
            return;
        std::string key = Trim(line.substr(0, equals));
        std::string value = Trim(line.substr(equals + 1));
        if (inSettings) {
            CheckSetting(key, value, lineNumber);
            return;
        }
        if (!section)
            return;
        if (::lstrcmpiA(key.c_str(), "Location") == 0 && !section->location)
            section->location = lineNumber;
        else if (::lstrcmpiA(key.c_str(), "Encryption") == 0 && !section->encryption)
            section->encryption = lineNumber;
        else if (::lstrcmpiA(key.c_str(), "BaseType") == 0 && !section->baseType)
            section->baseType = lineNumber;
        else if (::lstrcmpiA(key.c_str(), "Location") != 0 && ::lstrcmpiA(key.c_str(), "Encryption") != 0 &&
                 ::lstrcmpiA(key.c_str(), "BaseType") != 0)
            Report(lineNumber, "unknown key '" + key + "' in [" + section->name + "]");
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

    void CheckType(ConfigText& config, size_t index)
    {
        const SectionLines& section = m_sections[index];
        const std::string& name = section.name;
        if (const SectionLines* first = FindSection(name, index)) {
            Report(section.header, "section [" + name + "] repeats [" + first->name + "] of line " +
                                       std::to_string(first->header) + ": both read the same keys");
        }
        if (name.size() > kMaxTypeNameChars)
            Report(section.header, "type name '" + name + "' is longer than 35 characters: the type stays unknown");

        TypeSection type;
        type.name = name;
        ReadTypeWords(config, type);
        int baseLine = section.baseType ? section.baseType : section.header;
        for (const std::string& base : type.bases)
            if (!FindSection(base, m_sections.size()))
                Report(baseLine, "BaseType '" + base + "' of [" + name + "] names no section");
        if (type.loops)
            Report(baseLine, "BaseType chain of [" + name + "] loops back to [" + type.base + "]");
        if (LookupLocationWord(type.location) < 0)
            Report(section.location ? section.location : section.header,
                   "unknown location word '" + std::string(type.location) + "' for [" + name + "]");
        if (LookupEncryptionWord(type.encryption) < 0)
            Report(section.encryption ? section.encryption : section.header,
                   "unknown encryption word '" + std::string(type.encryption) + "' for [" + name + "]");
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
    int m_problems = 0;
};

} // namespace

int CheckConfigFile(const char* path, KovraConfigProblemFn report, void* context)
{
    ConfigText config;
    if (!path || !config.Read(path))
        return -1;
    return ConfigChecker(report, context).Check(config);
}
