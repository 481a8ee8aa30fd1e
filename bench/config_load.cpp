// Measures how long a first process's load of kovra.dll takes with a CKOVRA.INI of a
// given number of types, with BaseType chains of a given depth and with one line of a
// given number of megabytes, and sets each figure beside the platform work that reading
// such a file asks for at least: one profile lookup of the three keys of every section,
// or for the long line reading the file's bytes. Every load here is a first process's
// (the program holds the library alone), so each one reads the type sections.
//
//   kovra_config_load [DIRECTORY]
//
// DIRECTORY (default: the temporary directory) receives the installation it loads from.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "kovra/diag.h"

namespace {

constexpr int kRounds = 3;  // each measurement keeps its fastest round

double Seconds(const std::function<void()>& work)
{
    LARGE_INTEGER frequency, start, end;
    ::QueryPerformanceFrequency(&frequency);
    double best = 1e30;
    for (int round = 0; round < kRounds; ++round) {
        ::QueryPerformanceCounter(&start);
        work();
        ::QueryPerformanceCounter(&end);
        best = std::min(best, static_cast<double>(end.QuadPart - start.QuadPart) / frequency.QuadPart);
    }
    return best;
}

std::string TypeName(int index)
{
    char name[16];
    std::snprintf(name, sizeof name, "T%04d", index);
    return name;
}

// Sections as an installation writes them: a location for most, an encryption for some,
// and every fifth type taking its words from an earlier one.
std::string TypesConfig(int sections)
{
    static const char* const kLocations[] = {"BASE", "BASEDATA", "USER", "WKSTA", "MODULE"};
    std::string text = "[DefaultSettings]\r\nOption=32\r\n";
    for (int index = 0; index < sections; ++index) {
        text += "[" + TypeName(index) + "]\r\n";
        if (index % 5 == 4) {
            text += "BaseType=" + TypeName(index - 3) + "\r\n";
            continue;
        }
        text += std::string("Location=") + kLocations[index % 5] + "\r\n";
        if (index % 3 == 0)
            text += "Encryption=DEFAULT\r\n";
    }
    return text;
}

// A chain of `depth` sections, each naming the next as its base; the last one has a location.
std::string ChainConfig(int depth)
{
    std::string text = "[DefaultSettings]\r\nOption=32\r\n";
    for (int index = 0; index + 1 < depth; ++index)
        text += "[" + TypeName(index) + "]\r\nBaseType=" + TypeName(index + 1) + "\r\n";
    return text + "[" + TypeName(depth - 1) + "]\r\nLocation=BASE\r\n";
}

// Two sections with a comment line of `megabytes` between them: the reading must stay
// linear in the file's size however long its lines are.
std::string LongLineConfig(int megabytes)
{
    return "[DefaultSettings]\r\nOption=32\r\n[T0000]\r\nLocation=BASE\r\n;" + std::string(megabytes << 20, 'x') +
           "\r\n[T0001]\r\nLocation=USER\r\n";
}

bool WriteText(const std::string& path, const std::string& text)
{
    HANDLE file = ::CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    DWORD written = 0;
    BOOL done = ::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    // An installation's file is old: the profile service keeps a file it has read in a
    // cache only when it was last written more than a few seconds ago.
    FILETIME past;
    SYSTEMTIME now;
    ::GetSystemTime(&now);
    ::SystemTimeToFileTime(&now, &past);
    ULARGE_INTEGER time{{past.dwLowDateTime, past.dwHighDateTime}};
    time.QuadPart -= 3600ULL * 10000000ULL;
    past.dwLowDateTime = time.LowPart;
    past.dwHighDateTime = time.HighPart;
    done = done && ::SetFileTime(file, nullptr, nullptr, &past);
    ::CloseHandle(file);
    return done && written == text.size();
}

// Loads and unloads the library; the number of types its table held, or -1.
int LoadTypes()
{
    HMODULE library = ::LoadLibraryA("kovra.dll");
    if (!library)
        return -1;
    auto getFileType = reinterpret_cast<int (*)(int, FileType_S*)>(
        reinterpret_cast<void (*)()>(::GetProcAddress(library, "KovraGetFileType")));
    FileType_S record;
    int types = 0;
    while (getFileType && getFileType(types, &record))
        ++types;
    ::FreeLibrary(library);
    return types;
}

// The file's bytes in one read.
void PlatformRead(const std::string& path)
{
    HANDLE file = ::CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    std::string bytes(::GetFileSize(file, nullptr), '\0');
    DWORD read = 0;
    ::ReadFile(file, &bytes[0], static_cast<DWORD>(bytes.size()), &read, nullptr);
    ::CloseHandle(file);
}

// The three keys of every section, looked up through the platform's profile service.
void PlatformLookups(const std::string& path, int sections)
{
    char value[65];
    for (int index = 0; index < sections; ++index) {
        const std::string name = TypeName(index);
        for (const char* key : {"Location", "Encryption", "BaseType"})
            ::GetPrivateProfileStringA(name.c_str(), key, "", value, sizeof value, path.c_str());
    }
}

struct Measurement {
    const char* what;
    int size;
    std::string config;
    bool readsBytes = false;  // the platform side reads the file rather than looking up `size` sections
};

void Measure(const std::string& path, const Measurement& measurement)
{
    if (!WriteText(path, measurement.config)) {
        std::printf("cannot write %s\n", path.c_str());
        return;
    }
    int types = 0;
    const double load = Seconds([&] { types = LoadTypes(); });
    const double platform = Seconds([&] {
        if (measurement.readsBytes)
            PlatformRead(path);
        else
            PlatformLookups(path, measurement.size);
    });
    std::printf("%-12s %5d %6d %10.1f ms %8.1f us %10.1f ms %7.2fx\n", measurement.what, measurement.size, types,
                load * 1000, load * 1e6 / measurement.size, platform * 1000, load / platform);
}

} // namespace

int main(int argc, char** argv)
{
    char temporary[MAX_PATH] = "";
    ::GetTempPathA(sizeof temporary, temporary);
    std::string directory = argc > 1 ? argv[1] : std::string(temporary) + "kovra_config_load";
    if (directory.back() == '\\')
        directory.pop_back();
    ::CreateDirectoryA(directory.c_str(), nullptr);
    // Both the run-time's copy of the environment and the process's: the library reads one,
    // the environment library the other.
    _putenv(("KARVELO-CKOVRAHOME=" + directory).c_str());
    _putenv(("TARNEL31_WKSTA=" + directory + "\\DAT\\WS1").c_str());
    const std::string path = directory + "\\CKOVRA.INI";

    const Measurement measurements[] = {
        {"types", 8, TypesConfig(8)},           {"types", 98, TypesConfig(98)},
        {"types", 1487, TypesConfig(1487)},     {"chain depth", 100, ChainConfig(100)},
        {"chain depth", 300, ChainConfig(300)}, {"chain depth", 1487, ChainConfig(1487)},
        {"line MB", 1, LongLineConfig(1), true}, {"line MB", 10, LongLineConfig(10), true},
    };
    std::printf("first process's load, fastest of %d; platform: 3 GetPrivateProfileStringA per section, or for a long\n"
                "line one ReadFile of the file\n", kRounds);
    std::printf("%-12s %5s %6s %13s %11s %13s %8s\n", "config", "size", "types", "load", "per unit", "platform",
                "ratio");
    for (const Measurement& measurement : measurements)
        Measure(path, measurement);
    return 0;
}
