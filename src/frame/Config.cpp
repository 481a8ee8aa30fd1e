// CKOVRA.INI: the general settings of [DefaultSettings] and one section per file type.
// The file is read through a CKovra object: sections are found line by line, keys
// through the platform's private-profile service.
#include "frame/Config.h"

#include <cstdlib>

#include "file/PathParts.h"
#include "frame/CallFrame.h"
#include "frame/ConfigSections.h"
#include "frame/Diagnostics.h"
#include "frame/FileTypes.h"
#include "frame/KovraApp.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

constexpr char kSettingsSection[] = "DefaultSettings";
constexpr int kValueSize = 1024;
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
