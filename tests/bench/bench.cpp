// Measures what the library adds to the platform work underneath and prints the ratios:
// opening and closing by type and name, block writes, text writes with their line-end
// translation, line reading, and the memory that one file object takes. Run through
// scripts/bench.sh, which lays out the installation that it expects.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "kovra/kovra.h"

namespace {

constexpr int kRounds = 3;  // each measurement keeps its fastest round
constexpr int kOpenCloseCycles = 2000;
constexpr unsigned kBlock = 64 * 1024;
constexpr unsigned kFileBytes = 4 * 1024 * 1024;
constexpr unsigned kBytePerCallSample = 128 * 1024;
constexpr int kObjects = 4000;

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

void Report(const char* what, double library, double platform, const char* against)
{
    std::printf("%-44s %9.3f ms  %6.2fx %s\n", what, library * 1000, library / platform, against);
}

// Lines of 63 characters and an LF, as an application hands text to the library.
std::string TextLines(unsigned bytes)
{
    std::string text;
    text.reserve(bytes);
    while (text.size() + 64 <= bytes)
        text.append(63, 'x').push_back('\n');
    return text;
}

void PlatformWrite(const char* path, const char* bytes, size_t size, size_t perCall)
{
    HANDLE file = ::CreateFileA(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written = 0;
    for (size_t offset = 0; offset < size; offset += perCall)
        ::WriteFile(file, bytes + offset, static_cast<DWORD>(std::min(perCall, size - offset)), &written, nullptr);
    ::CloseHandle(file);
}

// The text in blocks of 64 KB, each a string of its own: a text-mode Write takes its
// text up to the NUL.
std::vector<std::string> InBlocks(const std::string& text)
{
    std::vector<std::string> blocks;
    for (size_t offset = 0; offset < text.size(); offset += kBlock)
        blocks.push_back(text.substr(offset, kBlock));
    return blocks;
}

void LibraryWrite(const char* name, unsigned long options, const std::vector<std::string>& blocks)
{
    CKovra file("BENCH", name, options | KOVRA_READWRITE | KOVRA_TRUNCATE);
    for (const std::string& block : blocks)
        file.Write(block.c_str(), static_cast<unsigned>(block.size()));
}

void OpenAndClose(const std::string& path)
{
    Report("open and close by type and name", Seconds([] {
               for (int cycle = 0; cycle < kOpenCloseCycles; ++cycle) {
                   CKovra file("BENCH", "OPEN.DAT", KOVRA_READ);
               }
           }),
           Seconds([&] {
               for (int cycle = 0; cycle < kOpenCloseCycles; ++cycle)
                   ::CloseHandle(::CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
           }),
           "CreateFile and CloseHandle");
}

void Writes(const std::string& directory)
{
    const std::string text = TextLines(kFileBytes);
    const std::vector<std::string> blocks = InBlocks(text);
    const std::string path = directory + "RAW.DAT";
    const double platform = Seconds([&] { PlatformWrite(path.c_str(), text.data(), text.size(), kBlock); });
    Report("block writes of 64 KB", Seconds([&] { LibraryWrite("BLOCK.DAT", 0, blocks); }), platform,
           "WriteFile of the same blocks");
    const double translated = Seconds([&] { LibraryWrite("TEXT.DAT", KOVRA_TEXT, blocks); });
    Report("text writes with CR LF translation", translated, platform, "WriteFile untranslated");

    // The translated text written with one platform call per byte, scaled from a sample.
    const double bytePerCall = Seconds([&] {
        PlatformWrite(path.c_str(), text.data(), kBytePerCallSample, 1);
    }) * (static_cast<double>(text.size()) / kBytePerCallSample);
    std::printf("%-44s %9.3f ms  %6.2fx faster than one WriteFile per byte\n", "", translated * 1000,
                bytePerCall / translated);
}

void LineReading(const std::string& directory)
{
    LibraryWrite("LINES.TXT", KOVRA_TEXT, InBlocks(TextLines(kFileBytes / 4)));
    const std::string path = directory + "LINES.TXT";
    std::vector<char> whole(kFileBytes);
    const double platform = Seconds([&] {
        HANDLE file = ::CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        DWORD read = 0;
        ::ReadFile(file, whole.data(), kFileBytes, &read, nullptr);
        ::CloseHandle(file);
    });
    int lines = 0;
    const double library = Seconds([&] {
        CKovra file("BENCH", "LINES.TXT", KOVRA_READ | KOVRA_TEXT);
        char line[256];
        unsigned length = 0;
        for (lines = 0; file.ReadString(line, sizeof line - 1, &length); ++lines) {
        }
    });
    char what[64];
    std::snprintf(what, sizeof what, "ReadString of %d lines of 64 bytes", lines);
    Report(what, library, platform, "one ReadFile of the whole file");
}

// The bytes allocated in all of the process's heaps.
ULONGLONG HeapBytesInUse()
{
    HANDLE heaps[64];
    DWORD count = std::min<DWORD>(::GetProcessHeaps(64, heaps), 64);
    ULONGLONG used = 0;
    for (DWORD index = 0; index < count; ++index) {
        PROCESS_HEAP_ENTRY entry = {};
        ::HeapLock(heaps[index]);
        while (::HeapWalk(heaps[index], &entry))
            if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY)
                used += entry.cbData;
        ::HeapUnlock(heaps[index]);
    }
    return used;
}

void Memory()
{
    const ULONGLONG before = HeapBytesInUse();
    std::vector<CKovra*> objects;
    for (int index = 0; index < kObjects; ++index)
        objects.push_back(new CKovra("BENCH", "OPEN.DAT", KOVRA_READ));
    const ULONGLONG after = HeapBytesInUse();
    for (CKovra* object : objects)
        delete object;
    std::printf("%-44s %9.0f bytes each\n", "memory of an open file object",
                static_cast<double>(after - before) / kObjects);
}

} // namespace

int main()
{
    CKovra probe("BENCH", "OPEN.DAT", KOVRA_READWRITE);
    if (!probe.IsOpen()) {
        std::fprintf(stderr, "the type BENCH is not configured: run scripts/bench.sh\n");
        return 1;
    }
    probe.Write("open", 4);
    const std::string path = probe.GetRealFileName();
    const std::string directory = path.substr(0, path.rfind('\\') + 1);
    probe.Close();

    std::printf("%-44s %12s  %7s\n", "measurement (fastest of 3)", "library", "ratio");
    OpenAndClose(path);
    Writes(directory);
    LineReading(directory);
    Memory();
    return 0;
}
