// CKOVRA.INI: the general settings of [DefaultSettings] and one section per file type.
// The file is read through a CKovra object: the general settings through the platform's
// private-profile service, the type sections from the file's text in one pass.
#include "frame/Config.h"

#include <cstdlib>
#include <string>

#include "file/KovraFileState.h"
#include "file/PathParts.h"
#include "frame/CallFrame.h"
#include "frame/ConfigSections.h"
#include "frame/Diagnostics.h"
#include "frame/FileTypes.h"
#include "frame/InstallationPaths.h"
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

// The box of a configuration file that can't be opened, for one whose name doesn't fit:
// the error of a name too long, with the variable that made it.
void ShowUnnamedConfiguration()
{
    char name[64];
    FormatText(name, sizeof name, "%%%s%%\\CKOVRA.INI", kConfigHomeVariable);
    char text[256];
    FormatText(text, sizeof text, kErrorReportFormat, "DFT", name, "", static_cast<int>(kErrorNameTooLong));
    ShowMessageBox(text, MB_OK | MB_ICONERROR);
}

} // namespace

int ReadConfigurationFirstProcess(const char* fileName)
{
    CKovra::AddFileType("DFT", kLocationDefault, 1, 0);
    CKovra::AddFileType("XWS", kLocationModule, 1, 0);
    return RunInCallFrame(1, [fileName] {
        if (!fileName) {
            ShowUnnamedConfiguration();
            return 1;  // the defaults and the built-in types
        }
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
    if (!fileName)
        return 1;  // the defaults, silently
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
