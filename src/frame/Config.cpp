// CKOVRA.INI: the general settings of [DefaultSettings] and one section per file type.
// The file is read through a CKovra object: the general settings through the platform's
// private-profile service, the type sections from the file's text in one pass.
#include "frame/Config.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "file/PathParts.h"
#include "frame/CallFrame.h"
#include "frame/ConfigReader.h"
#include "frame/Diagnostics.h"
#include "frame/FileTypes.h"
#include "frame/KovraApp.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

constexpr char kSettingsSection[] = "DefaultSettings";
constexpr int kValueSize = 1024;
constexpr unsigned int kReadBlockBytes = 64 * 1024;
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

// The whole file through the open object: the sections are found in its lines and the
// type keys read from its text in one pass, rather than one look into the file per key.
std::string ReadWholeFile(CKovra& config)
{
    std::string bytes;
    for (;;) {
        const size_t used = bytes.size();
        bytes.resize(used + kReadBlockBytes);
        const unsigned int read = config.Read(&bytes[used], kReadBlockBytes, 0);
        bytes.resize(used + read);
        if (read == 0)
            return bytes;  // the end, or a failed read that the object has recorded
    }
}

void ShowWrongConfiguration(const std::string& name, const TypeWords& words)
{
    char text[512];
    FormatText(text, sizeof text, "CKOVRA.INI wrong, (%s,%s,%s,%s)", name.c_str(), words.location.c_str(),
               words.encryption.c_str(), words.base.c_str());
    ShowMessageBox(text, MB_OK | MB_ICONSTOP);  // shown whatever the option bits say
}

int ReadTypeSections(const std::string& bytes)
{
    const ProfileSections sections(bytes);
    TypeChains chains(sections);
    int result = 1;
    ForEachConfigLine(bytes, [&](const std::string& line, int) {
        std::string name;
        if (!ParseSectionHeader(line, name))
            return true;
        const TypeWords words = chains.Resolve(name);
        const int location = LookupLocationWord(words.location.c_str());
        const int encryption = LookupEncryptionWord(words.encryption.c_str());
        if (words.loops || location < 0 || encryption < 0) {
            ShowWrongConfiguration(name, words);
            result = 0;
            return false;
        }
        CKovra::AddFileType(name.c_str(), location, encryption, 0);  // a name too long stays unknown
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
        const std::string bytes = ReadWholeFile(config);
        config.Close(0);
        return ReadTypeSections(bytes);
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
        return m_problems;
    }

private:
    void Report(int line, const std::string& text)
    {
        ++m_problems;
        if (m_report)
            m_report(m_context, line, text.c_str());
    }

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
        const std::string bytes = ReadWholeFile(config);
        config.Close(0);
        return ConfigChecker(report, context).Check(bytes);
    });
}
