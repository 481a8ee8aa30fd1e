#include "Installation.h"

namespace kovratest {

Installation::Installation(const std::string& name) : m_directory(std::string(KOVRA_TEST_DRIVE) + ":\\" + name)
{
    MakeDirectories(Base() + "DAT\\WS1");
    MakeDirectories(ConfigDirectory());
}

void Installation::WriteConfig(const std::vector<std::string>& lines) const
{
    std::string text;
    for (const std::string& line : lines)
        text += line + "\r\n";
    WriteFileBytes(ConfigDirectory() + "\\CKOVRA.INI", text);
}

std::vector<EnvVar> Installation::Environment() const
{
    return {{"TARNEL31_WKSTA", Base() + "DAT\\WS1"},
            {"TARNEL31_WKSTATMP", Base() + "DAT\\WS1\\TMP"},
            {"KARVELO-CKOVRAHOME", ConfigDirectory()}};
}

std::string ProbeReport::Value(const std::string& key) const
{
    for (const std::string& line : lines)
        if (line.compare(0, key.size() + 1, key + " ") == 0)
            return line.substr(key.size() + 1);
    return "";
}

namespace {

std::vector<std::string> LinesAfter(const std::vector<std::string>& lines, const std::string& prefix)
{
    std::vector<std::string> found;
    for (const std::string& line : lines)
        if (line.compare(0, prefix.size(), prefix) == 0)
            found.push_back(line.substr(prefix.size()));
    return found;
}

ProbeReport Collect(ChildProcess& probe, BoxWatcher& watcher)
{
    ProbeReport report;
    report.exitCode = probe.Wait();
    report.lines = SplitLines(probe.Output());
    for (const MessageBoxSeen& box : watcher.Boxes())
        report.boxes.push_back(box.caption + "|" + box.text);
    return report;
}

} // namespace

std::vector<std::string> ProbeReport::Types() const
{
    return LinesAfter(lines, "TYPE ");
}

ProbeReport RunProbe(const std::vector<EnvVar>& environment, const std::string& arguments)
{
    ChildProcess probe(Quote(ProgramPath("kovra_probe.exe")) + " " + arguments, environment);
    BoxWatcher watcher(probe.Id());
    return Collect(probe, watcher);
}

HeldProbe::HeldProbe(const std::vector<EnvVar>& environment)
    : m_process(Quote(ProgramPath("kovra_probe.exe")) + " --hold " + m_release.Name(), environment),
      m_boxes(m_process.Id())
{
    m_process.WaitForLine("READY");
}

ProbeReport HeldProbe::Release()
{
    m_release.Set();
    return Collect(m_process, m_boxes);
}

} // namespace kovratest
