// A small installation on the process suite's drive, and the probe program that loads
// the library into a process of its own with that installation's environment.
#pragma once

#include <string>
#include <vector>

#include "TestSupport.h"

namespace kovratest {

class Installation {
public:
    explicit Installation(const std::string& name);

    const std::string& Root() const { return m_directory.Path(); }  // P:\<name>\ .
    std::string Base() const { return Root() + "APP\\"; }
    std::string ConfigDirectory() const { return Root() + "CONF"; }
    // Writes CONF\CKOVRA.INI from lines joined with CR LF.
    void WriteConfig(const std::vector<std::string>& lines) const;
    // TARNEL31_WKSTA=<base>DAT\WS1, TARNEL31_WKSTATMP and KARVELO-CKOVRAHOME=<CONF>.
    std::vector<EnvVar> Environment() const;

private:
    ScratchDirectory m_directory;
};

// What kovra_probe printed.
struct ProbeReport {
    int exitCode = -1;
    std::vector<std::string> lines;
    std::vector<std::string> boxes;  // "caption|text" of every message box it showed

    std::string Value(const std::string& key) const;  // text after "KEY ", "" when absent
    std::vector<std::string> Types() const;          // "name location encryption" of every TYPE line
    const std::vector<std::string>& Boxes() const { return boxes; }
};

ProbeReport RunProbe(const std::vector<EnvVar>& environment, const std::string& arguments = "");

// A probe that keeps the library loaded until Release().
class HeldProbe {
public:
    explicit HeldProbe(const std::vector<EnvVar>& environment);
    ProbeReport Release();  // lets it unload and collects its report

private:
    NamedEvent m_release;
    ChildProcess m_process;
    BoxWatcher m_boxes;
};

} // namespace kovratest
