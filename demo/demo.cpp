// kovra_demo: lays out a small installation in a scratch directory, starts the trace
// monitor, and runs kovra_demo_worker.exe in that installation's environment.
//
//   kovra_demo [BIN [SCRATCH]]
//
// BIN is the directory of the programs (default: this program's own), SCRATCH the
// directory to work in (default D:\KOVRADEMO); everything the demo makes stays there.
//
// The library reads its environment and CKOVRA.INI when it is loaded, and only the
// first process that loads it reads the file types. So this program never loads
// kovra.dll itself: it sets the environment and starts the worker, which does.
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include "DemoSupport.h"

using namespace kovrademo;

namespace {

constexpr char kDefaultScratch[] = "D:\\KOVRADEMO";
constexpr DWORD kMonitorStartMs = 20000;
constexpr DWORD kWorkerMs = 120000;
constexpr DWORD kMonitorEndMs = 10000;

// Removes a directory tree; the scratch directory of an earlier run goes this way.
void RemoveTree(const std::string& path)
{
    DWORD attributes = ::GetFileAttributesA(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return;
    ::SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        ::DeleteFileA(path.c_str());
        return;
    }
    WIN32_FIND_DATAA entry;
    HANDLE search = ::FindFirstFileA((WithBackslash(path) + "*").c_str(), &entry);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            std::string name = entry.cFileName;
            if (name != "." && name != "..")
                RemoveTree(WithBackslash(path) + name);
        } while (::FindNextFileA(search, &entry));
        ::FindClose(search);
    }
    ::RemoveDirectoryA(path.c_str());
}

bool MakeDirectories(const std::string& directory)
{
    std::string path = WithBackslash(directory);
    for (size_t next = path.find('\\', 3); next != std::string::npos; next = path.find('\\', next + 1))
        ::CreateDirectoryA(path.substr(0, next).c_str(), nullptr);
    DWORD attributes = ::GetFileAttributesA(directory.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

// A directory given with slashes (as a shell hands it over) in the system's form.
std::string NativeDirectory(const char* given)
{
    std::string path = given;
    for (char& c : path)
        if (c == '/')
            c = '\\';
    char full[MAX_PATH] = "";
    DWORD length = ::GetFullPathNameA(path.c_str(), sizeof full, full, nullptr);
    return WithBackslash(length > 0 && length < sizeof full ? full : path);
}

struct Layout {
    std::string bin;      // the programs
    std::string scratch;  // everything the demo makes
    std::string base() const { return scratch + "APP\\"; }
    std::string workstation() const { return base() + "DAT\\WS1"; }
    std::string configDirectory() const { return base() + "DAT"; }
    std::string monitorOutput() const { return scratch + "MONITOR.TXT"; }
};

// CKOVRA.INI with a type for every location, one that takes its location from another
// type, trace bit 1 (exceptions, sessions, identity) and options 2 | 8 | 32 (failed
// calls and handle owners logged, no message boxes).
void WriteConfiguration(const Layout& layout)
{
    WriteTextFile(layout.configDirectory() + "\\CKOVRA.INI",
                  {"[DefaultSettings]", "DebugLevel=1", "Option=42", "BaseDataPath=" + layout.scratch + "DATA",
                   "BaseReadOnlyPath=" + layout.scratch + "RO",
                   "", "[PROGRAM]", "Location=BASE", "[FORMS]", "Location=MODULE", "[ORDERS]", "Location=CLIENT",
                   "[CLIENTFORMS]", "Location=MODULECLIENT", "[LETTERS]", "Location=USER", "[SETTINGS]",
                   "Location=WKSTA", "[SCRATCH]", "Location=WKSTATMP", "[DATA]", "Location=BASEDATA", "[MASTER]",
                   "Location=BASEREADONLY", "[TEMPLATES]", "Location=MODULEREADONLY", "[REPORTS]", "BaseType=DATA"});
}

bool LayOut(const Layout& layout)
{
    RemoveTree(layout.scratch);
    if (!MakeDirectories(layout.workstation() + "\\TMP") || !MakeDirectories(layout.base() + "PRG") ||
        !MakeDirectories(layout.scratch + "TEMP"))
        return false;
    WriteConfiguration(layout);
    // The library runs <base>PRG\HANDLE.EXE after a sharing violation to log who holds the file.
    return ::CopyFileA((layout.bin + "handle.exe").c_str(), (layout.base() + "PRG\\HANDLE.EXE").c_str(), FALSE) != 0;
}

// The worker and every program it starts inherit this environment.
void SetInstallationEnvironment(const Layout& layout)
{
    ::SetEnvironmentVariableA("TARNEL31_WKSTA", layout.workstation().c_str());
    ::SetEnvironmentVariableA("TARNEL31_WKSTATMP", (layout.workstation() + "\\TMP").c_str());
    ::SetEnvironmentVariableA("KARVELO-CKOVRAHOME", layout.configDirectory().c_str());
    // The handle-owner dump goes through a temporary file: keep it in the scratch directory.
    ::SetEnvironmentVariableA("TEMP", (layout.scratch + "TEMP").c_str());
    ::SetEnvironmentVariableA("TMP", (layout.scratch + "TEMP").c_str());
}

struct MonitorWindowSearch {
    DWORD processId;
    HWND window;
};

BOOL CALLBACK FindMonitorWindow(HWND window, LPARAM parameter)
{
    auto* search = reinterpret_cast<MonitorWindowSearch*>(parameter);
    DWORD owner = 0;
    ::GetWindowThreadProcessId(window, &owner);
    char title[32] = "";
    ::GetWindowTextA(window, title, sizeof title);
    if (owner == search->processId && std::string(title) == "Debug-Monitor")
        search->window = window;
    return search->window == nullptr;
}

// WM_CLOSE to the monitor's own window ends it; it has written every line by then.
void CloseMonitor(Program& monitor)
{
    MonitorWindowSearch search = {monitor.Id(), nullptr};
    ::EnumWindows(&FindMonitorWindow, reinterpret_cast<LPARAM>(&search));
    if (search.window)
        ::PostMessageA(search.window, WM_CLOSE, 0, 0);
    monitor.Wait(kMonitorEndMs);
}

void PrintSection(const std::string& heading, const std::vector<std::string>& lines)
{
    std::printf("\n%s\n", heading.c_str());
    for (const std::string& line : lines)
        if (!line.empty())
            std::printf("  %s\n", line.c_str());
    if (lines.empty())
        std::printf("  (none)\n");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    Layout layout;
    layout.bin = argc > 1 ? NativeDirectory(argv[1]) : ProgramDirectory();
    if (!FileExists(layout.bin + "kovra_demo_worker.exe"))
        layout.bin = ProgramDirectory();  // a path this system can't read as given
    layout.scratch = WithBackslash(argc > 2 ? argv[2] : kDefaultScratch);

    if (!LayOut(layout)) {
        std::fprintf(stderr, "kovra_demo: can't lay out the installation in %s\n", layout.scratch.c_str());
        return 1;
    }
    SetInstallationEnvironment(layout);

    Event monitorReady("monitor");
    Program monitor(Quote(layout.bin + "kovramon.exe") + " --output " + Quote(layout.monitorOutput()) +
                        " --ready-event " + monitorReady.Name(),
                    true);
    if (!monitor.Started() || !monitorReady.WaitFor(kMonitorStartMs))
        std::printf("(the trace monitor kovramon.exe didn't start: no trace lines this time)\n");

    std::fflush(stdout);
    Program worker(Quote(layout.bin + "kovra_demo_worker.exe") + " " + QuoteDirectory(layout.scratch) + " " +
                   QuoteDirectory(layout.bin));
    const int result = worker.Started() ? worker.Wait(kWorkerMs) : -1;
    CloseMonitor(monitor);

    PrintSection("Trace lines that the monitor kovramon.exe received (time, process, thread, text):",
                 ReadLines(layout.monitorOutput()));
    PrintSection("Lines of " + layout.base() + "CKOVRA.LOG:", ReadLines(layout.base() + "CKOVRA.LOG"));
    std::printf("\nEverything the demo made is in %s\n", layout.scratch.c_str());
    if (result != 0)
        std::fprintf(stderr, "kovra_demo: the worker ended with %d\n", result);
    return result == 0 ? 0 : 1;
}
