// A small installation on the process suite's drive, and the programs started with its
// environment: kovra_probe (loads the library, prints "KEY value" lines) and kovra.exe.
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
        MakeDirectories(ConfigDirectory());
    }
    const std::string& Root() const { return directory.Path(); }
    std::string Base() const { return Root() + "APP\\"; }
    std::string ConfigDirectory() const { return Root() + "CONF"; }
    std::string ConfigFile() const { return ConfigDirectory() + "\\CKOVRA.INI"; }
    void WriteConfig(const Lines& lines) const { WriteFileBytes(ConfigFile(), IniText(lines)); }
    std::vector<EnvVar> Environment() const
    {
        return {{"TARNEL31_WKSTA", Base() + "DAT\\WS1"}, {"TARNEL31_WKSTATMP", Base() + "DAT\\WS1\\TMP"},
                {"KARVELO-CKOVRAHOME", ConfigDirectory()}};
    }

    ScratchDirectory directory;
};

// What a program printed (standard output and error) and the message boxes it showed.
struct ProgramRun {
    int exitCode = -1;
    std::string output;
    Lines lines;  // without their line ends
    Lines boxes;  // "caption|text"

    Lines Values(const std::string& key) const  // of every line "KEY value"
    {
        Lines values;
        for (const std::string& line : lines)
            if (line.compare(0, key.size() + 1, key + " ") == 0)
                values.push_back(line.substr(key.size() + 1));
        return values;
    }
    std::string Value(const std::string& key) const { return Values(key).empty() ? "" : Values(key)[0]; }
};

// Runs a program beside the tests to its end, reading and dismissing its message boxes.
inline ProgramRun RunProgram(const std::string& name, const std::vector<EnvVar>& environment,
                             const std::string& arguments = "", const std::string& workingDirectory = "")
{
    ChildProcess process(CommandLine(name, arguments), environment, workingDirectory);
    BoxWatcher watcher(process.Id());
    ProgramRun run;
    run.exitCode = process.Wait();
    run.output = process.Output();
    run.lines = SplitLines(run.output);
    for (const MessageBoxSeen& box : watcher.Boxes())
        run.boxes.push_back(box.caption + "|" + box.text);
    return run;
}

inline ProgramRun RunProbe(const std::vector<EnvVar>& environment, const std::string& arguments = "")
{
    return RunProgram("kovra_probe.exe", environment, arguments);
}

} // namespace kovratest
