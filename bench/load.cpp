// Measures the first process's load of the library with a CKOVRA.INI that fills the
// file-type table with 10, 100 and 1489 types (a full table), against the platform
// calls that the load makes. Every measurement runs in a new
// process of its own that loads kovra.dll itself, so this program must not hold it:
// each child is then the first process. Run through scripts/bench.sh with a scratch
// directory for the configurations as its argument.
#include <sys/stat.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Measure.h"
#include "Support.h"
#include "kovra/diag.h"

namespace {

const int kTableSizes[] = {10, 100, 1489};
constexpr int kBuiltInTypes = 2;  // DFT and XWS, which the first process adds itself
constexpr DWORD kFailed = ~DWORD{0};
constexpr DWORD kNotFirstProcess = kFailed - 1;
constexpr DWORD kReadBlockBytes = 64 * 1024;

const char* const kGeneralKeys[] = {"BasePath", "BaseDataPath", "BaseReadOnlyPath", "DebugLevel",
                                    "SharingViolationRepeat", "Option"};
const char* const kLocations[] = {"BASE", "MODULE", "CLIENT", "USER", "WKSTA", "WKSTATMP", "BASEDATA"};

std::string Configuration(int types)
{
    std::string text = "[DefaultSettings]\r\nOption=32\r\nSharingViolationRepeat=1\r\n";
    for (int index = 0; index < types - kBuiltInTypes; ++index) {
        char section[128];
        std::snprintf(section, sizeof section, "[TYPE%04d]\r\nLocation=%s\r\n%s", index,
                      kLocations[index % (sizeof kLocations / sizeof kLocations[0])],
                      index % 4 == 0 ? "Encryption=DEFAULT\r\n" : "");
        text += section;
    }
    return text;
}

// In the child: the library loaded by this first process, timed; then a check that it
// was the first process and filled the table with the expected number of types.
DWORD LoadLibraryOnce(int types)
{
    LARGE_INTEGER frequency, start, end;
    ::QueryPerformanceFrequency(&frequency);
    ::QueryPerformanceCounter(&start);
    HMODULE library = ::LoadLibraryA("kovra.dll");
    ::QueryPerformanceCounter(&end);
    if (!library)
        return kFailed;
    auto getSettings = reinterpret_cast<int (*)(KovraSettings_S*)>(
        reinterpret_cast<void*>(::GetProcAddress(library, "KovraGetSettings")));
    auto getFileType = reinterpret_cast<int (*)(int, FileType_S*)>(
        reinterpret_cast<void*>(::GetProcAddress(library, "KovraGetFileType")));
    KovraSettings_S settings = {};
    FileType_S record = {};
    DWORD result = static_cast<DWORD>((end.QuadPart - start.QuadPart) * 1000000 / frequency.QuadPart);
    if (!getSettings || !getFileType || !getSettings(&settings) || settings.processCount != 0)
        result = kNotFirstProcess;
    else if (!getFileType(types - 1, &record) || getFileType(types, &record))
        result = kFailed;
    ::FreeLibrary(library);
    return result;
}

// In the child: the platform calls that the load makes, timed: the system libraries that
// kovra.dll imports loaded, the shared block mapped, the configuration file's directory
// tested and the file opened, the general settings read through the private-profile
// service, and the whole file read in blocks of 64 KB, from which the type sections are
// taken.
DWORD LoadLikeTheLibrary(const std::string& path)
{
    LARGE_INTEGER frequency, start, end;
    ::QueryPerformanceFrequency(&frequency);
    ::QueryPerformanceCounter(&start);
    ::LoadLibraryA("user32.dll");
    ::LoadLibraryA("advapi32.dll");
    HANDLE block = ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 0x10000, "BenchBlock");
    void* view = ::MapViewOfFile(block, FILE_MAP_ALL_ACCESS, 0, 0, 0);
    if (view)
        std::memset(view, 0, 0x10000);
    struct _stat status;
    _stat(path.substr(0, path.rfind('\\')).c_str(), &status);
    HANDLE file = ::CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return kFailed;
    char value[1024];
    for (const char* key : kGeneralKeys)
        ::GetPrivateProfileStringA("DefaultSettings", key, "", value, sizeof value, path.c_str());
    std::string bytes;
    DWORD read = 0;
    do {
        const size_t used = bytes.size();
        bytes.resize(used + kReadBlockBytes);
        ::ReadFile(file, &bytes[used], kReadBlockBytes, &read, nullptr);
        bytes.resize(used + read);
    } while (read > 0);
    ::CloseHandle(file);
    ::QueryPerformanceCounter(&end);
    ::UnmapViewOfFile(view);
    ::CloseHandle(block);
    return static_cast<DWORD>((end.QuadPart - start.QuadPart) * 1000000 / frequency.QuadPart);
}

// A round of one side: a child process that measures once and answers in microseconds.
// An answer from 2^31 on is a failure (or the status of a crash); the first one is kept.
bench::Sample InChild(const std::string& mode, int types, const std::string& directory, std::string& failure)
{
    return [=, &failure] {
        const std::string arguments = mode + " " + std::to_string(types) + " " + directory;
        const DWORD microseconds = bench::RunThisProgram(arguments, "KARVELO-CKOVRAHOME", directory);
        if (microseconds < 0x80000000UL)
            return microseconds * 1e-6;
        if (failure.empty()) {
            char text[160];
            std::snprintf(text, sizeof text, "%s answered %#lx%s", arguments.c_str(), microseconds,
                          microseconds == kNotFirstProcess ? " (not the first process)" : "");
            failure = text;
        }
        return 0.0;
    };
}

int Measure(const std::string& scratch)
{
    bench::PrintTitle(std::string("the first process's load, ") + bench::TargetName());
    std::vector<bench::Sample> library;
    std::vector<bench::Sample> platform;
    std::vector<std::string> sizes;
    std::string failure;
    for (int types : kTableSizes) {
        const std::string directory = scratch + "\\TYPES" + std::to_string(types);
        bench::WriteFileBytes(directory + "\\CKOVRA.INI", Configuration(types));
        library.push_back(InChild("--library", types, directory, failure));
        platform.push_back(InChild("--platform", types, directory, failure));
        sizes.push_back(std::to_string(types) + " types");
    }
    const std::vector<bench::Comparison> timings = bench::CompareAtSizes(library, platform, bench::kLongRounds);
    bench::PrintGrowth({"LoadLibrary of kovra.dll in the first process",
                        "LoadLibrary of USER32 and ADVAPI32, the shared block mapped, _stat and "
                        "CreateFileA of CKOVRA.INI, GetPrivateProfileStringA of the 6 general settings, "
                        "ReadFile of the whole file in blocks of 64 KB",
                        "", 0},
                       sizes, timings);
    const double full = timings.back().library;
    std::printf("    goal: a full table under 200 ms: %s (%s)\n", full < 0.2 ? "met" : "missed",
                bench::FormatTime(full).c_str());
    if (!failure.empty())
        std::printf("    (a measurement failed, the figures are not valid: %s)\n", failure.c_str());
    return failure.empty() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && std::strcmp(argv[1], "--library") == 0)
        return static_cast<int>(LoadLibraryOnce(std::atoi(argv[2])));
    if (argc == 4 && std::strcmp(argv[1], "--platform") == 0)
        return static_cast<int>(LoadLikeTheLibrary(std::string(argv[3]) + "\\CKOVRA.INI"));
    if (argc != 2) {
        std::fprintf(stderr, "usage: kovra_bench_load SCRATCH-DIRECTORY\n");
        return 2;
    }
    return Measure(argv[1]);
}
