// The installation that the library will find, and loading kovra.dll once a command needs
// it. A first process whose library can't open CKOVRA.INI stops at a message box, so the
// tool looks for the file itself before it loads the library.
#include <windows.h>

#include <cstdlib>
#include <cstdio>
#include <string>

#include "Cli.h"
#include "file/PathParts.h"
#include "frame/InstallationPaths.h"
#include "platform/File.h"
#include "platform/Text.h"
#include "tarnel31.h"

namespace kovracli {

namespace {

// The variable's value, or what stands in for it while it isn't set.
std::string VariableState(const char* name, const std::string& inEffect)
{
    const char* value = std::getenv(name);
    return value ? value : "(not set" + (inEffect.empty() ? "" : ": " + inEffect) + ")";
}

void ExplainMissingConfiguration(const char* failure)
{
    const std::string home = VariableState("KARVELO-CKOVRAHOME", "");
    const std::string workstation =
        VariableState("TARNEL31_WKSTA", std::string("the workstation directory is ") + TarnelWkstaDir(0));
    const std::string temporary =
        VariableState("TARNEL31_WKSTATMP", std::string("its temporary directory is ") + TarnelWkstaTmpDir(0));
    Complain(std::string("no configuration: ") + failure);
    std::fprintf(stderr,
                 "  The library reads CKOVRA.INI from the directory that KARVELO-CKOVRAHOME names, or\n"
                 "  else from DAT\\ below the installation's base path, the workstation directory up to\n"
                 "  its last \\DAT\\. These variables point it to an installation:\n"
                 "    KARVELO-CKOVRAHOME  %s\n"
                 "    TARNEL31_WKSTA      %s\n"
                 "    TARNEL31_WKSTATMP   %s\n",
                 home.c_str(), workstation.c_str(), temporary.c_str());
    std::fflush(stderr);
}

} // namespace

std::string ConfigurationFileInForce()
{
    char name[kPathBufferSize];
    if (!BuildConfigFileName(name))
        return "";
    if (IsRealPathName(name))
        return name;
    char base[kPathBufferSize];
    CopyWholeText(base, TarnelWkstaDir(0));
    CutBehindLastDataDirectory(base);
    return std::string(base) + name;
}

bool LoadKovraLibrary()
{
    const std::string name = ConfigurationFileInForce();
    if (name.empty()) {
        ExplainMissingConfiguration((std::string(kConfigHomeVariable) + " is too long to name CKOVRA.INI.").c_str());
        return false;
    }
    CFile configuration;
    CFileException failure;
    if (!configuration.Open(name.c_str(), CFile::modeRead | CFile::shareDenyNone, &failure)) {
        char message[kPathBufferSize + 64];
        failure.GetErrorMessage(message, sizeof message);
        ExplainMissingConfiguration(message);
        return false;
    }
    configuration.Abort();
    if (!::LoadLibraryA("kovra.dll")) {  // the calls into it find it loaded
        const DWORD error = ::GetLastError();
        Complain("kovra.dll didn't load: " + SystemMessage(error));
        if (error == ERROR_DLL_INIT_FAILED)  // it refuses a configuration file that it can't use
            std::fputs("  kovra check-config lists the problems of CKOVRA.INI.\n", stderr);
        return false;
    }
    return true;
}

} // namespace kovracli
