// Commands about the installation: name resolution, the file-type table, the settings in
// force, checking a configuration file, and holding a file for a second process's sake.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Cli.h"
#include "frame/ConfigCheck.h"
#include "kovra/diag.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace kovracli {

namespace {

struct BitName {
    int bit;
    const char* meaning;
};

const BitName kDebugBits[] = {
    {1, "exceptions, sessions and identity"},
    {2, "open"},
    {4, "close and thread look-up"},
};

const BitName kOptionBits[] = {
    {1, "write-through"},
    {2, "failed calls logged"},
    {4, "opens and closes logged"},
    {8, "handle owners logged"},
    {16, "events logged"},
    {32, "no message boxes"},
};

// "42 = 2 failed calls logged + 8 handle owners logged + ..." for the bits that have a meaning.
template <size_t N>
std::string DescribeBits(int value, const BitName (&names)[N])
{
    std::string text = std::to_string(value);
    const char* joiner = " = ";
    int described = 0;
    for (const BitName& name : names) {
        if (value & name.bit) {
            text += joiner + std::to_string(name.bit) + " " + name.meaning;
            joiner = " + ";
            described |= name.bit;
        }
    }
    if (value & ~described)
        text += std::string(joiner) + "other bits without effect";
    return text;
}

void PrintSetting(const char* name, const std::string& value)
{
    std::printf("%-25s%s\n", name, value.c_str());
}

std::string PathOrNone(const char* path)
{
    return path[0] ? path : "(none)";
}

std::string WordOrNumber(const char* word, int value)
{
    return word ? word : std::to_string(value);
}

void KOVRA_CALL ReportProblem(void* file, int line, const char* problem)
{
    const std::string& name = *static_cast<const std::string*>(file);
    if (line > 0)
        std::printf("%s:%d: %s\n", name.c_str(), line, problem);
    else
        std::printf("%s: %s\n", name.c_str(), problem);
}

// Waits until the named event is set; false when there is no such event.
bool WaitForEvent(const char* name)
{
    HANDLE event = ::OpenEventA(SYNCHRONIZE, FALSE, name);
    if (!event)
        return false;
    ::WaitForSingleObject(event, INFINITE);
    ::CloseHandle(event);
    return true;
}

// The handle stays open until the process ends, so that an event made here lives on
// until its waiter has opened it.
bool SignalEvent(const char* name)
{
    HANDLE event = ::CreateEventA(nullptr, TRUE, FALSE, name);
    return event && ::SetEvent(event);
}

// Interactive use: a line on the standard input (or its end) lets go.
void WaitForEnter()
{
    int c;
    do {
        c = std::getchar();
    } while (c != EOF && c != '\n');
}

} // namespace

int RunResolve(const Arguments& arguments)
{
    if (!ApplyContext(arguments))
        return kExitFailure;
    CKovra file;
    if (!file.Open(arguments.positional[0].c_str(), arguments.positional[1].c_str(), KOVRA_RESOLVE_ONLY))
        return Fail(file, "can't resolve " + arguments.positional[1]);
    Say(std::string(file.GetRealFileName()) + "\n");
    return kExitOk;
}

int RunTypes(const Arguments&)
{
    std::printf("%-36s%-16s%s\n", "NAME", "LOCATION", "ENCRYPTION");
    FileType_S type;
    for (int index = 0; KovraGetFileType(index, &type); ++index) {
        const int location = static_cast<int>(type.location);
        const int encryption = static_cast<int>(type.encryption);
        char name[4 * sizeof type.name];  // one line per type, whatever its name holds
        EscapeControlCharacters(name, sizeof name, type.name, std::strlen(type.name));
        std::printf("%-36s%-16s%s\n", name, WordOrNumber(KovraLocationWord(location), location).c_str(),
                    WordOrNumber(KovraEncryptionWord(encryption), encryption).c_str());
    }
    std::fflush(stdout);
    return kExitOk;
}

int RunSettings(const Arguments&)
{
    KovraSettings_S settings = {};
    KovraGetSettings(&settings);
    const int count = static_cast<int>(settings.processCount);
    PrintSetting("configuration file", ConfigurationFileInForce());
    PrintSetting("base path", settings.basePath);
    PrintSetting("data path", settings.dataPath);
    PrintSetting("read-only path", PathOrNone(settings.readOnlyPath));
    PrintSetting("workstation", settings.wkstaPath);
    PrintSetting("workstation temporary", settings.wkstaTmpPath);
    PrintSetting("debug level", DescribeBits(settings.debugLevel, kDebugBits));
    PrintSetting("option bits", DescribeBits(settings.option, kOptionBits));
    PrintSetting("sharing-violation repeat", std::to_string(settings.sharingViolationRepeat));
    PrintSetting("process counter", std::to_string(count) + (count == 0 ? " (this is the first process)" : ""));
    PrintSetting("file-type table", settings.sharedTableMapped ? "shared" : "private to this process");
    std::fflush(stdout);
    return kExitOk;
}

int RunCheckConfig(const Arguments& arguments)
{
    std::string file = arguments.positional.empty() ? ConfigurationFileInForce() : arguments.positional[0];
    int problems = CheckConfigFile(file.c_str(), &ReportProblem, &file);
    std::fflush(stdout);
    if (problems < 0)
        return Complain("can't read " + file);
    if (problems == 0) {
        Say(file + ": no problems\n");
        return kExitOk;
    }
    Say(file + ": " + std::to_string(problems) + (problems == 1 ? " problem\n" : " problems\n"));
    return kExitFailure;
}

int RunHold(const Arguments& arguments)
{
    const char* until = arguments.Value("--until-event");
    const char* milliseconds = arguments.Value("--for");
    char* end = nullptr;
    const unsigned long pause = milliseconds ? std::strtoul(milliseconds, &end, 10) : 0;
    if (milliseconds && (!milliseconds[0] || *end))
        return UsageError("hold", std::string("--for wants a number of milliseconds, not '") + milliseconds + "'");
    CKovra file;
    if (!ApplyContext(arguments) || !OpenExisting(file, arguments, KOVRA_READ | KOVRA_EXCLUSIVE))
        return kExitFailure;
    Say(std::string("holding ") + file.GetRealFileName() + "\n");
    const char* ready = arguments.Value("--ready-event");
    if (ready && !SignalEvent(ready))
        return Complain(std::string("can't set the event ") + ready + ": " + SystemMessage(::GetLastError()));
    if (until) {
        if (!WaitForEvent(until))
            return Complain(std::string("there is no event ") + until);
    } else if (milliseconds) {
        ::Sleep(pause);
    } else {
        WaitForEnter();
    }
    file.Close();
    return kExitOk;
}

} // namespace kovracli
