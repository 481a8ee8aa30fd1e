// Measures every road of the library against the raw platform sequence that its own
// algorithm performs for it, and how the cost grows with the installation (thread
// bindings in the process, files in a directory, types in the file-type table). Run through scripts/bench.sh, which
// lays out the installation on drive B: with the file type BENCH in the base path.
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Measure.h"
#include "Support.h"
#include "kovra/diag.h"
#include "kovra/kovra.h"

namespace {

constexpr char kType[] = "BENCH";
constexpr unsigned kLinesBytes = 16 * 1024 * 1024;
constexpr int kLastTwoDigitBackup = 99;

// Operations per round of each road: a round takes some tens of microseconds.
constexpr int kOpenCycles = 1;
constexpr int kResolutions = 100;
constexpr int kLinesPerRound = 64;
constexpr int kWrites = 16;
constexpr int kPrintfs = 32;
constexpr int kProfileReads = 1;
constexpr int kRemovals = 1;
constexpr int kBackups = 1;
constexpr int kLogLines = 1;
constexpr int kWalkedEntries = 2000;  // at least one walk per round

const int kWalkSizes[] = {100, 1000, 10000};
const int kBindingCounts[] = {1, 100, 10000};
const int kTableSizes[] = {10, 100, 1489};

std::string g_base;       // the base path with its backslash: BENCH's directory and the log's
std::string g_directory;  // the same without the backslash, as Open's directory test sees it

std::string PathOf(const std::string& name)
{
    return g_base + name;
}

// A line of 63 characters, as applications hand them to the library.
std::string TextLine(int number)
{
    char line[64];
    std::snprintf(line, sizeof line, "%08d %.54s", number, "the quick brown fox jumps over the lazy dog 0123456789ab");
    return line;
}

// ---- the platform sequences ---------------------------------------------------------------

// Open's existence test of the file's directory, before the file is opened.
void TestDirectory()
{
    struct _stat status;
    _stat(g_directory.c_str(), &status);
}

HANDLE OpenPlatformFile(const std::string& path, DWORD access, DWORD disposition)
{
    SECURITY_ATTRIBUTES security = {sizeof security, nullptr, FALSE};
    return ::CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, &security, disposition,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
}

void WritePlatform(HANDLE file, const char* bytes, size_t count)
{
    DWORD written = 0;
    ::WriteFile(file, bytes, static_cast<DWORD>(count), &written, nullptr);
}

// One line of CKOVRA.LOG as every writer puts it there: stamped, then the log opened for
// appending in text mode with deny-write sharing, written and closed.
void WriteLogLine(const char* text)
{
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    char line[512];
    const int length = std::snprintf(line, sizeof line, "%02d.%02d %02d:%02d:%02d.%03d %s\n", now.wDay, now.wMonth,
                                     now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, text);
    const int log = _sopen(PathOf("CKOVRA.LOG").c_str(), _O_WRONLY | _O_APPEND | _O_CREAT | _O_TEXT, _SH_DENYWR,
                           _S_IREAD | _S_IWRITE);
    _write(log, line, static_cast<unsigned>(length));
    _close(log);
}

// The text of a per-call log line about the file object at path, as the library words it.
std::string LogCallText(const char* operation, const std::string& path)
{
    char text[400];
    std::snprintf(text, sizeof text, "%p %s (%lx, %s, %d, %d, %s)", static_cast<void*>(text), operation,
                  ::GetCurrentThreadId(), kType, 1, 1234, path.c_str());
    return text;
}

// ---- open, close and resolution ---------------------------------------------------------------

bench::Sample OpenAndCloseThroughLibrary()
{
    auto file = std::make_shared<CKovra>();
    return bench::Batch(kOpenCycles, [file] {
        file->Open(kType, "OPEN.DAT", KOVRA_READ);
        file->Close();
    });
}

bench::Sample OpenAndCloseOnPlatform()
{
    const std::string path = PathOf("OPEN.DAT");
    return bench::Batch(kOpenCycles, [path] {
        TestDirectory();
        ::CloseHandle(OpenPlatformFile(path, GENERIC_READ, OPEN_EXISTING));
    });
}

const bench::Road kOpenAndClose = {"open and close of a typed name", "_stat of its directory, CreateFileA, CloseHandle",
                                   "", 1.2};

bench::Sample ResolutionThroughLibrary(const std::string& type = kType)
{
    auto file = std::make_shared<CKovra>();
    return bench::Batch(kResolutions, [file, type] { file->GetRealFileName(type.c_str(), "OPEN.DAT"); });
}

bench::Sample PlainJoin()
{
    auto joined = std::make_shared<std::string>();
    const std::string directory = g_base;
    return bench::Batch(kResolutions, [joined, directory] {
        char path[MAX_PATH];
        std::strcpy(path, directory.c_str());
        std::strcat(path, "OPEN.DAT");
        joined->assign(path);
    });
}

const bench::Road kResolution = {"GetRealFileName of a typed name", "a plain join of the directory and the name", "",
                                 2.0};

// ---- line reading ------------------------------------------------------------------------------

void WriteLinesFile(const std::string& path)
{
    std::string text;
    text.reserve(kLinesBytes);
    for (int number = 0; text.size() + 65 <= kLinesBytes; ++number)
        text.append(TextLine(number)).append("\r\n");
    bench::WriteFileBytes(path, text);
}

void LineReading(bool text)
{
    const std::string path = PathOf("LINES.TXT");
    const unsigned long options = text ? KOVRA_READ | KOVRA_TEXT : KOVRA_READ;
    CKovra file(kType, "LINES.TXT", options);
    HANDLE raw = OpenPlatformFile(path, GENERIC_READ, OPEN_EXISTING);
    FILE* stream = std::fopen(path.c_str(), text ? "r" : "rb");
    char line[256];
    // Each side reads on where its last round stopped, and starts again at the end of the file.
    const bench::Sample plain = bench::Batch(kLinesPerRound, [&] {
        if (!std::fgets(line, sizeof line, stream))
            std::rewind(stream);
    });
    const std::string mode = text ? "text mode" : "binary mode";
    const std::string fgetsMode = text ? "fgets, mode \"r\"" : "fgets, mode \"rb\"";
    bench::Comparison timing = bench::Compare(
        bench::Batch(kLinesPerRound,
                     [&] {
                         if (!file.ReadString(line, sizeof line - 1))
                             file.Seek(0, 0);
                     }),
        bench::Batch(kLinesPerRound,
                     [&] {
                         if (!bench::ReadLineByFloor(raw, line, text))
                             ::SetFilePointer(raw, 0, nullptr, FILE_BEGIN);
                     }),
        plain);
    bench::PrintRoad({"ReadString of 16 MB, " + mode, "ReadFile of 512 bytes and SetFilePointer back, per line",
                      fgetsMode + ":", 1.2},
                     timing);

    // An object that denies others writing keeps what it reads beyond a line: the C run-time's
    // buffered line reading is what it is measured against.
    CKovra ahead(kType, "LINES.TXT", options | KOVRA_DENY_WRITE);
    bench::PrintRoad({"ReadString of 16 MB, read-ahead, " + mode, fgetsMode + " (4 KB buffer)", "", 2.0},
                     bench::Compare(bench::Batch(kLinesPerRound,
                                                 [&] {
                                                     if (!ahead.ReadString(line, sizeof line - 1))
                                                         ahead.Seek(0, 0);
                                                 }),
                                    plain));
    std::fclose(stream);
    ::CloseHandle(raw);
}

// ---- text writing ------------------------------------------------------------------------------

void TextWriting()
{
    CKovra file(kType, "WRITE.TXT", KOVRA_READWRITE | KOVRA_TRUNCATE | KOVRA_TEXT);
    HANDLE raw = OpenPlatformFile(PathOf("RAWWRITE.TXT"), GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS);
    const std::string line = TextLine(0);
    const std::string lineWithEnd = line + "\r\n";
    bench::PrintRoad({"WriteString of a line, text mode", "one WriteFile of the line and CR LF", "", 1.3},
                     bench::Compare(bench::Batch(kWrites, [&] { file.WriteString(line.c_str()); }),
                                    bench::Batch(kWrites, [&] {
                                        WritePlatform(raw, lineWithEnd.data(), lineWithEnd.size());
                                    })));

    int number = 0;
    char formatted[128];
    bench::PrintRoad(
        {"Printf of a line, text mode", "snprintf and one WriteFile of the same bytes", "", 0},
        bench::Compare(bench::Batch(kPrintfs, [&] { file.Printf(0, "%s %6d\n", "record", ++number); }),
                       bench::Batch(kPrintfs, [&] {
                           const int length = std::snprintf(formatted, sizeof formatted, "%s %6d\r\n", "record", ++number);
                           WritePlatform(raw, formatted, static_cast<size_t>(length));
                       })));
    ::CloseHandle(raw);
}

// ---- profiles, backups and removal ----------------------------------------------------------------

void ProfileReading()
{
    std::string text;
    for (int section = 0; section < 20; ++section) {
        text += "[SECTION" + std::to_string(section) + "]\r\n";
        for (int key = 0; key < 8; ++key)
            text += "KEY" + std::to_string(key) + "=value " + std::to_string(section * 8 + key) + "\r\n";
    }
    const std::string path = PathOf("PROFILE.INI");
    bench::WriteFileBytes(path, text);
    CKovra profile(kType, "PROFILE.INI", KOVRA_RESOLVE_ONLY);
    char value[128];
    bench::PrintRoad(
        {"GetProfile of a key", "GetPrivateProfileStringA of the resolved file", "", 0},
        bench::Compare(bench::Batch(kProfileReads,
                                    [&] { profile.GetProfile("SECTION10", "KEY5", "", value, sizeof value); }),
                       bench::Batch(kProfileReads, [&] {
                           ::GetPrivateProfileStringA("SECTION10", "KEY5", "", value, sizeof value, path.c_str());
                       })));
}

std::string BackupName(const std::string& base, int number)
{
    char name[16];
    std::snprintf(name, sizeof name, "%02d.SAV", number);
    return base + name;
}

// SaveFile when backups 01 to 98 of the day exist: the 99th. Before each operation the
// 99th is removed again and the file to save is made anew.
void BackupSaving()
{
    SYSTEMTIME today;
    ::GetSystemTime(&today);
    char date[16];
    std::snprintf(date, sizeof date, "%02d%02d%02d", today.wYear % 100, today.wMonth, today.wDay);
    const std::string backupDirectory = PathOf("SAV");
    const std::string base = backupDirectory + "\\" + date;
    for (int number = 1; number < kLastTwoDigitBackup; ++number)
        bench::WriteFileBytes(BackupName(base, number), "backup");
    const std::string source = PathOf("SAVE.DAT");
    const std::string last = BackupName(base, kLastTwoDigitBackup);

    CKovra file;
    auto prepare = [&] {
        ::DeleteFileA(last.c_str());
        bench::WriteFileBytes(source, "data");
        file.Open(kType, "SAVE.DAT", KOVRA_RESOLVE_ONLY);
    };
    auto platform = [&] {
        SYSTEMTIME now;
        ::GetSystemTime(&now);
        std::string backup;
        for (int number = 1; number <= kLastTwoDigitBackup; ++number) {
            backup = BackupName(base, number);
            if (_access(backup.c_str(), 0) != 0)
                break;
        }
        struct _stat status;
        _stat(backupDirectory.c_str(), &status);
        ::MoveFileA(source.c_str(), backup.c_str());
    };
    bench::PrintRoad({"SaveFile as the 99th backup of a day", "_access of backups 01 to 99, _stat, MoveFileA", "", 0},
                     bench::Compare(bench::Batch(kBackups, [&] { file.SaveFile(); }, prepare),
                                    bench::Batch(kBackups, platform, prepare)));
    if (file.GetRealFileName() != last)
        std::printf("    (SaveFile made %s)\n", file.GetRealFileName());
}

void Removal()
{
    const std::string path = PathOf("REMOVE.DAT");
    CKovra file;
    auto prepare = [&] {
        bench::WriteFileBytes(path, "data");
        file.Open(kType, "REMOVE.DAT", KOVRA_RESOLVE_ONLY);
    };
    bench::PrintRoad({"Remove of a file that is not held", "_access, DeleteFileA", "", 0},
                     bench::Compare(bench::Batch(kRemovals, [&] { file.Remove(); }, prepare),
                                    bench::Batch(
                                        kRemovals,
                                        [&] {
                                            _access(path.c_str(), 0);
                                            ::DeleteFileA(path.c_str());
                                        },
                                        prepare)));
}

// ---- log lines: run in a process of its own, whose configuration sets option bits 2 and 4 ---

void LogLines()
{
    const std::string path = PathOf("OPEN.DAT");
    const std::string openText = LogCallText(":Open", path);
    const std::string closeText = LogCallText(":Close", path);
    CKovra file;
    bench::PrintRoad({"open and close writing two log lines",
                      "_stat, CreateFileA, two log lines, CloseHandle", "", 0},
                     bench::Compare(bench::Batch(kLogLines,
                                                 [&] {
                                                     file.Open(kType, "OPEN.DAT", KOVRA_READ);
                                                     file.Close();
                                                 }),
                                    bench::Batch(kLogLines, [&] {
                                        TestDirectory();
                                        HANDLE raw = OpenPlatformFile(path, GENERIC_READ, OPEN_EXISTING);
                                        WriteLogLine(openText.c_str());
                                        WriteLogLine(closeText.c_str());
                                        ::CloseHandle(raw);
                                    })));

    // Closing an object whose open failed closes no handle: it only writes its ":Close" line.
    bench::PrintRoad({"one log line (Close after a failed open)", "_sopen of the log, _write, _close", "", 1.1},
                     bench::Compare(bench::Batch(
                                        kLogLines, [&] { file.Close(); },
                                        [&] { file.Open(kType, "MISSING\\NONE.DAT", KOVRA_READ); }),
                                    bench::Batch(kLogLines, [&] { WriteLogLine(closeText.c_str()); })));
}

void LogLinesInOwnProcess()
{
    const std::string configuration = PathOf("LOGCONF");
    bench::WriteFileBytes(configuration + "\\CKOVRA.INI", "[DefaultSettings]\r\nOption=38\r\n");
    if (bench::RunThisProgram("--log-lines", "KARVELO-CKOVRAHOME", configuration) != 0)
        std::printf("    (the process with option bits 2 and 4 failed)\n");
}

// ---- directory walks and thread bindings, at growing sizes ---------------------------------------

std::string WalkDirectory(int files)
{
    return "WALK" + std::to_string(files);
}

void MakeWalkDirectory(int files)
{
    const std::string directory = PathOf(WalkDirectory(files));
    bench::MakeDirectories(directory);
    for (int number = 0; number < files; ++number) {
        char name[32];
        std::snprintf(name, sizeof name, "\\F%05d.DAT", number);
        ::CloseHandle(OpenPlatformFile(directory + name, GENERIC_WRITE, CREATE_ALWAYS));
    }
}

bench::Sample WalkThroughLibrary(int files)
{
    const std::string pattern = WalkDirectory(files) + "\\*.*";
    auto find = std::make_shared<CKovraFind>();
    return bench::Batch(std::max(1, kWalkedEntries / files), [pattern, find] {
        find->FindFile(kType, pattern.c_str());
        while (find->FindNextFileA())
            find->GetFileName();
        find->Close();
    });
}

bench::Sample WalkOnPlatform(int files)
{
    const std::string pattern = PathOf(WalkDirectory(files) + "\\*.*");
    return bench::Batch(std::max(1, kWalkedEntries / files), [pattern] {
        WIN32_FIND_DATAA entry;
        HANDLE search = ::FindFirstFileA(pattern.c_str(), &entry);
        if (search == INVALID_HANDLE_VALUE)
            return;
        while (::FindNextFileA(search, &entry)) {
        }
        ::FindClose(search);
    });
}

const bench::Road kWalk = {"CKovraFind walk over the files of a directory",
                           "FindFirstFileA, FindNextFileA for every entry, FindClose", "", 0};

std::vector<bench::Comparison> MeasureWalks()
{
    std::vector<bench::Sample> library;
    std::vector<bench::Sample> platform;
    for (int files : kWalkSizes) {
        MakeWalkDirectory(files);
        library.push_back(WalkThroughLibrary(files));
        platform.push_back(WalkOnPlatform(files));
    }
    return bench::CompareAtSizes(library, platform, bench::kLongRounds);
}

// Thread ids and session values that no thread of the process has.
unsigned long OtherThread(int index)
{
    return 0x7F000000UL + static_cast<unsigned long>(index);
}

void* OtherSession(int index)
{
    return reinterpret_cast<void*>(static_cast<UINT_PTR>(0x60000000UL + static_cast<unsigned long>(index)));
}

// Binds or unbinds threads of other sessions until the process has count bindings. The
// measuring thread keeps the binding that the load made for it, the oldest one.
void KeepBindings(int count)
{
    static int registered = 1;
    for (; registered < count; ++registered)
        CKovra::StartThread(OtherSession(registered), OtherThread(registered));
    while (registered > count) {
        --registered;
        CKovra::RemoveThread(OtherSession(registered), OtherThread(registered));
    }
}

// Each size is measured in its own rounds, since changing the bindings between rounds
// would leave the caches cold for the side that follows.
void GrowthWithBindings(const bench::Road& road, const bench::Sample& library, const bench::Sample& platform)
{
    std::vector<bench::Comparison> timings;
    std::vector<std::string> sizes;
    for (int count : kBindingCounts) {
        KeepBindings(count);
        timings.push_back(bench::Compare(library, platform));
        sizes.push_back(std::to_string(count) + (count == 1 ? " binding" : ""));
    }
    bench::PrintGrowth(road, sizes, timings);
    KeepBindings(1);
}

// The name of the newest of count types in the shared table, after adding types of the
// base path's location until the table holds that many (the table only ever grows).
std::string NewestOfTypes(int count)
{
    FileType_S record;
    int types = 0;
    while (KovraGetFileType(types, &record))
        ++types;
    for (; types < count; ++types)
        CKovra::AddFileType(("GROW" + std::to_string(types)).c_str(), 2, 1);
    return KovraGetFileType(count - 1, &record) ? record.name : "";
}

// Resolution looks a type up in the process's index over the table, which takes in the records
// added since its last lookup.
void GrowthWithTypes()
{
    std::vector<bench::Comparison> timings;
    std::vector<std::string> sizes;
    for (int count : kTableSizes) {
        timings.push_back(bench::Compare(ResolutionThroughLibrary(NewestOfTypes(count)), PlainJoin()));
        sizes.push_back(std::to_string(count) + " types");
    }
    bench::Road road = kResolution;
    road.name = "GetRealFileName of the newest type in the table";
    bench::PrintGrowth(road, sizes, timings, 1.2);
}

bool LocateInstallation()
{
    KovraSettings_S settings;
    CKovra probe;
    if (!KovraGetSettings(&settings) || !probe.GetRealFileName(kType, "x")[0])
        return false;
    g_base = settings.basePath;
    g_directory = g_base.substr(0, g_base.size() - 1);
    if (PathOf("x") != probe.GetRealFileName(0))
        return false;
    // The file that the open roads open, and a check that they do open it.
    bench::WriteFileBytes(PathOf("OPEN.DAT"), "open");
    return probe.Open(kType, "OPEN.DAT", KOVRA_READ) == 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (!LocateInstallation()) {
        std::fprintf(stderr, "the type BENCH is not configured in the base path: run scripts/bench.sh\n");
        return 1;
    }
    if (argc > 1 && std::strcmp(argv[1], "--log-lines") == 0) {
        LogLines();
        return 0;
    }

    bench::PrintTitle(std::string("roads, ") + bench::TargetName());
    bench::PrintHeader();
    bench::PrintRoad(kOpenAndClose, bench::Compare(OpenAndCloseThroughLibrary(), OpenAndCloseOnPlatform()));
    bench::PrintRoad(kResolution, bench::Compare(ResolutionThroughLibrary(), PlainJoin()));
    WriteLinesFile(PathOf("LINES.TXT"));
    LineReading(true);
    LineReading(false);
    TextWriting();
    LogLinesInOwnProcess();
    ProfileReading();
    const std::vector<bench::Comparison> walks = MeasureWalks();
    bench::Road walk = kWalk;
    walk.name = "CKovraFind walk over 10 000 files";
    bench::PrintRoad(walk, walks.back());
    BackupSaving();
    Removal();

    bench::PrintTitle(std::string("growth, ") + bench::TargetName());
    GrowthWithBindings(kOpenAndClose, OpenAndCloseThroughLibrary(), OpenAndCloseOnPlatform());
    GrowthWithBindings(kResolution, ResolutionThroughLibrary(), PlainJoin());
    std::vector<std::string> sizes;
    for (int files : kWalkSizes)
        sizes.push_back(std::to_string(files) + " files");
    bench::PrintGrowth(kWalk, sizes, walks);
    GrowthWithTypes();  // last: the table keeps the types it was filled with
    return 0;
}
