// A small installation on the process suite's drive: its configuration and the environment
// that points the library and the kovra tool to it.
#pragma once

#include "TestSupport.h"

namespace kovratest {

inline std::string IniText(const Lines& lines)  // each line ended by CR LF
{
    std::string text;
    for (const std::string& line : lines)
        text += line + "\r\n";
    return text;
}

struct Installation {
    explicit Installation(const std::string& name) : directory(std::string(KOVRA_TEST_DRIVE) + ":\\" + name)
    {
        MakeDirectories(Base() + "DAT\\WS1");
        MakeDirectories(Root() + "CONF");
    }
    const std::string& Root() const { return directory.Path(); }
    std::string Base() const { return Root() + "APP\\"; }
    std::string ConfigFile() const { return Root() + "CONF\\CKOVRA.INI"; }
    void WriteConfig(const Lines& lines) const { WriteFileBytes(ConfigFile(), IniText(lines)); }
    std::vector<EnvVar> Environment(const std::vector<EnvVar>& changes = {}) const
    {
        std::vector<EnvVar> environment = {{"TARNEL31_WKSTA", Base() + "DAT\\WS1"},
                                           {"TARNEL31_WKSTATMP", Base() + "DAT\\WS1\\TMP"},
                                           {"KARVELO-CKOVRAHOME", Root() + "CONF"}};
        environment.insert(environment.end(), changes.begin(), changes.end());
        return environment;
    }
    // kovra_probe, which loads the library and prints "KEY value" lines of what it derived.
    ProgramRun Probe(const std::string& arguments = "", const std::vector<EnvVar>& changes = {}) const
    {
        return RunProgram("kovra_probe.exe", Environment(changes), arguments);
    }

    ScratchDirectory directory;
};

} // namespace kovratest
