// CKOVRA.INI: the general settings of [DefaultSettings] and one section per file type.
// The file is read through a CKovra object: sections are found line by line, keys
// through the platform's private-profile service.
#include "frame/Config.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "file/PathParts.h"
#include "frame/CallFrame.h"
#include "frame/Diagnostics.h"
#include "frame/FileTypes.h"
#include "frame/KovraApp.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

constexpr char kSettingsSection[] = "DefaultSettings";
constexpr int kValueSize = 1024;
constexpr int kWordSize = 65;
constexpr int kLineChars = 1024;
constexpr DWORD kLaterProcessPause = 1000;
constexpr int kLaterProcessAttempts = 3;

// ---- general settings ---------------------------------------------------------------------

// Paths longer than the fields hold keep the value in force rather than being cut.
void ApplyBasePath(const char* value)
{
    char path[kPathBufferSize];
    if (CopyText(path, value))
        CopyText(theApp.m_szBasePath, path);
}

// The data path gets the base path's last directory name appended: D:\DATA and C:\APP\ give D:\DATA\APP\.
void ApplyDataPath(const char* value)
{
    char path[kPathBufferSize];
    if (CopyText(path, value) && EnsureTrailingBackslash(path) && AppendText(path, LastDirectory(theApp.m_szBasePath)))
        CopyText(theApp.m_szDataPath, path);
}

void ApplyReadOnlyPath(const char* value)
{
    char path[kPathBufferSize];
    if (CopyText(path, value) && EnsureTrailingBackslash(path))
        CopyText(theApp.m_szReadOnlyPath, path);
}

void ReadGeneralSettings(CKovra& config)
{
    char value[kValueSize];
    auto read = [&](const char* key) {
        config.GetProfile(kSettingsSection, key, "", value, kValueSize, 0);
        return value[0] != '\0';
    };
    if (read("BasePath"))
        ApplyBasePath(value);
    if (read("BaseDataPath"))
        ApplyDataPath(value);
    if (read("BaseReadOnlyPath"))
        ApplyReadOnlyPath(value);
    if (read("DebugLevel"))
        CKovra::SetDebugLevel(std::atoi(value), 0);
    if (read("SharingViolationRepeat"))
        theApp.m_nSharingViolationRepeat = std::atoi(value);
    if (read("Option"))
        theApp.m_nOption = std::atoi(value);
}

// ---- type sections ------------------------------------------------------------------------

// Calls onLine(line, lineNumber) for every line, its line end included, until it returns
// false. A line longer than 1024 characters comes in pieces that count as lines.
template <typename OnLine>
void ForEachLine(CKovra& config, OnLine onLine)
{
    char line[kLineChars + 1];
    for (int lineNumber = 1;; ++lineNumber) {
        unsigned int length = 0;
        int more = config.ReadString(line, kLineChars, &length, 0);
        if (length > 0 && !onLine(line, lineNumber))
            return;
        if (!more)
            return;
    }
}

std::string WithoutLineEnd(const char* line)
{
    return std::string(line, std::strcspn(line, "\r\n"));
}

// The type named by a section header: the text between '[' and the last ']'.
// False for other lines and for [DefaultSettings], whatever its case.
bool ParseSectionHeader(const char* line, std::string& name)
{
    if (::lstrcmpiA(WithoutLineEnd(line).c_str(), "[DefaultSettings]") == 0)
        return false;
    const char* close = std::strrchr(line, ']');
    if (line[0] != '[' || !close)
        return false;
    name.assign(line + 1, close);
    return true;
}

bool SameSectionName(const std::string& a, const std::string& b)
{
    return ::lstrcmpiA(a.c_str(), b.c_str()) == 0;  // as the profile service compares them
}

struct TypeSection {
    std::string name;
    char location[kWordSize] = "";
    char encryption[kWordSize] = "";
    char base[kWordSize] = "";
    std::vector<std::string> bases;  // every base the chain asked, in order
    bool loops = false;
};

// Reads the type's words and fills the missing ones from its BaseType chain. A base
// section without the key gives "DEFAULT"; a key present but empty asks the next base.
void ReadTypeWords(CKovra& config, TypeSection& type)
{
    const char* name = type.name.c_str();
    config.GetProfile(name, "Location", "", type.location, kWordSize, 0);
    config.GetProfile(name, "Encryption", "", type.encryption, kWordSize, 0);
    config.GetProfile(name, "BaseType", "", type.base, kWordSize, 0);
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
        char base[kWordSize];
        CopyText(base, type.base);
        if (!type.location[0])
            config.GetProfile(base, "Location", "DEFAULT", type.location, kWordSize, 0);
        if (!type.encryption[0])
            config.GetProfile(base, "Encryption", "DEFAULT", type.encryption, kWordSize, 0);
        config.GetProfile(base, "BaseType", "", type.base, kWordSize, 0);
    }
}

void ShowWrongConfiguration(const TypeSection& type)
{
    char text[512];
    FormatText(text, sizeof text, "CKOVRA.INI wrong, (%s,%s,%s,%s)", type.name.c_str(), type.location,
               type.encryption, type.base);
    ShowMessageBox(text, MB_OK | MB_ICONSTOP);  // shown whatever the option bits say
}

int ReadTypeSections(CKovra& config)
{
    int result = 1;
    ForEachLine(config, [&](const char* line, int) {
        TypeSection type;
        if (!ParseSectionHeader(line, type.name))
            return true;
        ReadTypeWords(config, type);
        int location = LookupLocationWord(type.location);
        int encryption = LookupEncryptionWord(type.encryption);
        if (type.loops || location < 0 || encryption < 0) {
            ShowWrongConfiguration(type);
            result = 0;
            return false;
        }
        CKovra::AddFileType(type.name.c_str(), location, encryption, 0);  // a name too long stays unknown
        return true;
    });
    return result;
}

} // namespace

int ReadConfigurationFirstProcess(const char* fileName)
{
    CKovra::AddFileType("DFT", kLocationDefault, 1, 0);
    CKovra::AddFileType("XWS", kLocationModule, 1, 0);
    return RunInCallFrame(1, [fileName] {
        CKovra config("DFT", fileName, KOVRA_READ, nullptr, 0);
        config.GetLastError();  // a file that can't be opened is reported in a box
        if (!config.IsOpen())
            return 1;  // the defaults and the built-in types
        ReadGeneralSettings(config);
        int result = ReadTypeSections(config);
        config.Close(0);
        return result;
    });
}

int ReadConfigurationLaterProcess(const char* fileName)
{
    CKovra config("DFT", fileName, KOVRA_READ, nullptr, 0);
    for (int attempt = 1; !config.IsOpen() && attempt < kLaterProcessAttempts; ++attempt) {
        ::Sleep(kLaterProcessPause);  // the first process may be rewriting it
        config.Open("DFT", fileName, KOVRA_READ, nullptr, 0);
    }
    if (config.IsOpen()) {
        ReadGeneralSettings(config);
        config.Close(0);
    }
    return 1;
}

// ---- checking a configuration file --------------------------------------------------------

namespace {

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

    int Check(CKovra& config)
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

    void ScanLines(CKovra& config)
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

    void CheckType(CKovra& config, size_t index)
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

extern "C" int KovraCheckConfig(const char* path, KovraConfigProblemFn report, void* context)
{
    if (!path)
        return -1;
    return RunInCallFrame(-1, [&] {
        CKovra config("", path, KOVRA_READ, nullptr, 1);  // the empty type is always known
        if (!config.IsOpen())
            return -1;
        int problems = ConfigChecker(report, context).Check(config);
        config.Close(0);
        return problems;
    });
}
