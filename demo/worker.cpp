// kovra_demo_worker: the part of the demo that uses the library. kovra_demo starts it
// with the environment of the installation it laid out, so that kovra.dll, loaded with
// this program, reads that installation's CKOVRA.INI.
//
//   kovra_demo_worker SCRATCH BIN
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "DemoSupport.h"
#include "kovra/diag.h"
#include "kovra/kovra.h"

using namespace kovrademo;

namespace {

constexpr DWORD kHolderStartMs = 20000;
constexpr char kName[] = "NOTES.TXT";
constexpr char kClient[] = "0042";
constexpr char kUser[] = "ANNA";

// The session under which the second column of names is resolved.
void* const kDemoSession = reinterpret_cast<void*>(static_cast<INT_PTR>(4711));

struct Context {
    std::string scratch;
    std::string bin;
    std::string base;  // the library's base path
    bool ok = true;
};

void Heading(int number, const char* title)
{
    std::printf("\n%d. %s\n", number, title);
}

void Line(const std::string& text)
{
    std::printf("   %s\n", text.c_str());
}

// Notes a failed step with the library's own text for it.
void Failed(Context& context, CKovra& file, const char* what)
{
    char message[1024] = "";
    int cause = 0;
    file.GetLastError(&cause, message, sizeof message - 1);
    Line(std::string("FAILED: ") + what + ": " + message);
    context.ok = false;
}

std::string Resolved(const char* type, const char* name)
{
    CKovra file;
    return file.GetRealFileName(type, name);
}

// What GetLastError reports after resolving (type, name) failed.
std::string ResolutionError(const char* type, const char* name)
{
    CKovra file;
    char message[512] = "";
    file.Open(type, name, KOVRA_RESOLVE_ONLY);
    file.GetLastError(nullptr, message, sizeof message - 1);
    return message;
}

// Text with its CR and LF shown, so that the line ends can be seen.
std::string Visible(const std::string& bytes)
{
    std::string text;
    for (char c : bytes)
        text += c == '\r' ? std::string("\\r") : c == '\n' ? std::string("\\n") : std::string(1, c);
    return text;
}

std::string ReadAll(CKovra& file)
{
    std::string bytes;
    char block[512];
    for (unsigned int read; (read = file.Read(block, sizeof block)) != 0;)
        bytes.append(block, read);
    return bytes;
}

bool WriteFile(const char* type, const char* name, const char* text)
{
    CKovra file(type, name, KOVRA_READWRITE | KOVRA_TRUNCATE);
    return file.IsOpen() && file.Write(text, static_cast<unsigned int>(std::strlen(text))) == std::strlen(text);
}

void Introduce(Context& context)
{
    KovraSettings_S settings = {};
    KovraGetSettings(&settings);
    context.base = settings.basePath;
    std::printf("kovra demo: a small installation in %s\n", context.scratch.c_str());
    Line(std::string("base path    ") + settings.basePath);
    Line(std::string("workstation  ") + settings.wkstaPath + " (from TARNEL31_WKSTA)");
    Line(std::string("temporary    ") + settings.wkstaTmpPath + " (from TARNEL31_WKSTATMP)");
    Line(std::string("data path    ") + settings.dataPath + " (BaseDataPath)");
    Line(std::string("read-only    ") + settings.readOnlyPath + " (BaseReadOnlyPath)");
    Line("settings and types from " + context.scratch + "\\APP\\DAT\\CKOVRA.INI (KARVELO-CKOVRAHOME);");
    Line("the type REPORTS there has no Location: it takes DATA's by BaseType=DATA");
    if (settings.processCount != 0) {
        Line("Another program has kovra.dll loaded: the file types come from the CKOVRA.INI it read.");
        context.ok = false;
    }
}

void ResolveByLocation(Context& context)
{
    const std::string module = context.base + "ORDERS";
    Heading(1, "The same name resolved by every type: without, then with a user and a client");
    Line("module directory " + module + "\\; the second path is for user " + kUser + " and client " + kClient);
    CKovra::SetModulePath(module.c_str());

    FileType_S type;
    std::vector<std::string> names;
    std::vector<std::string> words;
    for (int index = 0; KovraGetFileType(index, &type); ++index) {
        names.push_back(type.name);
        const char* word = KovraLocationWord(static_cast<int>(type.location));
        words.push_back(std::string("(") + (word ? word : "?") + ")");
    }
    std::vector<std::string> without;
    for (const std::string& name : names)
        without.push_back(Resolved(name.c_str(), kName));

    // A session of its own for this thread: the user and client stay in it.
    CKovra::StartThread(kDemoSession, ::GetCurrentThreadId());
    CKovra::SetModulePath(module.c_str());
    CKovra::SetClient(kClient);
    CKovra::SetUser(kUser);
    for (size_t index = 0; index < names.size(); ++index) {
        char label[64];
        std::snprintf(label, sizeof label, "%-12s%-17s", names[index].c_str(), words[index].c_str());
        Line(label + without[index]);
        Line(std::string(std::strlen(label), ' ') + Resolved(names[index].c_str(), kName));
    }
    CKovra::RemoveThread(kDemoSession, ::GetCurrentThreadId());
    Line("A date field: DATA LOG%Y%M%D.TXT is " + Resolved("DATA", "LOG%Y%M%D.TXT"));
    Line("An unknown type: " + ResolutionError("NOSUCHTYPE", kName));
}

void TextWithLineEnds(Context& context)
{
    Heading(2, "A text file written and read back with CR LF translation (type DATA)");
    {
        CKovra file("DATA", kName, KOVRA_READWRITE | KOVRA_TRUNCATE | KOVRA_TEXT);
        if (!file.IsOpen())
            return Failed(context, file, "open for writing");
        file.WriteString("first line\n");
        file.WriteString("second line");  // without a line end: the library adds one
        file.Printf(0, "%d lines so far\n", 3);
    }
    CKovra raw("DATA", kName, KOVRA_READ);
    Line(std::string("in the file: ") + Visible(ReadAll(raw)));
    CKovra text("DATA", kName, KOVRA_READ | KOVRA_TEXT);
    char line[256];
    unsigned int length = 0;
    for (int number = 1; text.ReadString(line, sizeof line, &length) || length > 0; ++number)
        Line("ReadString " + std::to_string(number) + ": \"" + line + "\"");
}

void ProfileWithNumbers(Context& context)
{
    Heading(3, "A profile with numbers (type SETTINGS: the workstation's directory)");
    CKovra profile("SETTINGS", "DEMO.INI", KOVRA_RESOLVE_ONLY);
    profile.MkDir();  // the profile service makes the file, not its directory
    if (!profile.WriteProfile("Window", "Title", "Orders") || !profile.WriteProfile("Window", "Width", 640) ||
        !profile.WriteProfile("Window", "Zoom", 1.25))
        return Failed(context, profile, "write the profile");
    Line(std::string("written to ") + profile.GetRealFileName() + ":");
    CKovra file("SETTINGS", "DEMO.INI", KOVRA_READ | KOVRA_TEXT);
    char line[256];
    unsigned int length = 0;
    while (file.ReadString(line, sizeof line, &length) || length > 0)
        Line(std::string("  ") + line);
    Line("Width " + std::to_string(profile.GetProfile("Window", "Width", 0)) + ", Zoom " +
         std::to_string(profile.GetProfile("Window", "Zoom", 0.0)) + ", Height (missing, default 480) " +
         std::to_string(profile.GetProfile("Window", "Height", 480)));
}

void BackupGenerations(Context& context)
{
    Heading(4, "Two backup generations of DATA ORDERS.DAT (SaveFile)");
    for (int generation = 1; generation <= 2; ++generation) {
        std::string text = "orders, generation " + std::to_string(generation) + "\r\n";
        WriteFile("DATA", "ORDERS.DAT", text.c_str());
        CKovra file("DATA", "ORDERS.DAT", KOVRA_RESOLVE_ONLY);
        if (!file.SaveFile())
            return Failed(context, file, "save a backup");
        Line("generation " + std::to_string(generation) + " saved as " + file.GetRealFileName());
    }
    Line(std::string("ORDERS.DAT itself is gone: Access = ") +
         std::to_string(CKovra("DATA", "ORDERS.DAT").Access()));
}

void RenameIntoNewDirectory(Context& context)
{
    Heading(5, "A rename into a new directory (Rename makes it)");
    CKovra file("DATA", kName, KOVRA_RESOLVE_ONLY);
    char target[] = "ARCHIVE\\%y%M\\NOTES.TXT";  // the date fields come back in the text
    Line(std::string("from ") + file.GetRealFileName());
    if (!file.Rename("DATA", target))
        return Failed(context, file, "rename");
    Line(std::string("to   ") + file.GetRealFileName() + " (the name became " + target + ")");
}

void SearchDirectory(Context&)
{
    Heading(6, "A directory search: DATA SAV\\*.SAV");
    CKovraFind find;
    if (!find.FindFile("DATA", "SAV\\*.SAV"))
        Line("nothing found");
    while (find.FindNextFileA()) {
        char line[512];
        std::snprintf(line, sizeof line, "%-20s %3lu bytes  (%s)", find.GetFileName(), find.GetLength(),
                      find.GetFilePathRelative());
        Line(line);
    }
}

void SharingViolation(Context& context)
{
    Heading(7, "A sharing violation met and waited out (kovra.exe hold keeps DATA SHARED.TXT open)");
    WriteFile("DATA", "SHARED.TXT", "shared text\r\n");
    const std::string path = Resolved("DATA", "SHARED.TXT");
    Event held("held");
    Event release("release");
    Program holder(Quote(context.bin + "kovra.exe") + " hold DATA SHARED.TXT --ready-event " + held.Name() +
                       " --until-event " + release.Name(),
                   true);
    if (!holder.Started() || !held.WaitFor(kHolderStartMs)) {
        Line("FAILED: kovra.exe hold didn't start");
        context.ok = false;
        return;
    }
    // The real path as the name (flag 1), so that the handle tool in the log can name the file.
    CKovra file;
    if (file.Open("DATA", path.c_str(), KOVRA_READ, nullptr, 1)) {
        Line("FAILED: the file opened while another process held it");
        context.ok = false;
        return;
    }
    char message[512] = "";
    int cause = 0;
    file.GetLastError(&cause, message, sizeof message - 1);
    Line("Open, one retry after 50 ms, gave up: cause " + std::to_string(cause) + ", " + message);
    release.Set();
    if (!file.Open("DATA", path.c_str(), KOVRA_READ, nullptr, 1 | 2))  // 2: retry as long as it takes
        return Failed(context, file, "open with retries");
    Line("Open with flag 2 retried until kovra.exe let go, then read: \"" + Visible(ReadAll(file)) + "\"");
    holder.Wait(kHolderStartMs);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "Usage: kovra_demo_worker SCRATCH BIN (kovra_demo starts it)\n");
        return 2;
    }
    Context context;
    context.scratch = argv[1];
    context.bin = WithBackslash(argv[2]);
    Introduce(context);
    ResolveByLocation(context);
    TextWithLineEnds(context);
    ProfileWithNumbers(context);
    BackupGenerations(context);
    RenameIntoNewDirectory(context);
    SearchDirectory(context);
    SharingViolation(context);
    std::fflush(stdout);
    return context.ok ? 0 : 1;
}
