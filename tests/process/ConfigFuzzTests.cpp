// CKOVRA.INI at random: sections, keys, BaseType chains and loops, headers without ']', long
// lines, binary bytes and UTF-16. This process loads the library as the first process for each
// file and compares its table or stop box with a plain reading through the platform's profile
// service; then the checker reads every file. The files in tests/config/fuzz-cases (inputs that
// once failed) come first; the generated ones follow from a fixed seed, bounded in count and time.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <random>

#include "Installation.h"
#include "kovra/diag.h"

using namespace kovratest;

namespace {

constexpr std::uint32_t kSeed = 20261123;  // KOVRA_FUZZ_SEED chooses another
constexpr size_t kMaxGeneratedFiles = 500;
constexpr std::chrono::seconds kTimeBudget(8);

std::string ProfileText(const std::string& path, const std::string& section, const char* key, const char* fallback)
{
    char value[65] = "";
    ::GetPrivateProfileStringA(section.c_str(), key, fallback, value, sizeof value, path.c_str());
    return value;
}

// The number of a location or encryption word, from 1 (DEFAULT, also the empty word); -1 for none.
int WordNumber(const std::string& word, const Lines& words)
{
    for (size_t index = 0; index < words.size(); ++index)
        if (::lstrcmpiA(words[index].c_str(), word.c_str()) == 0)
            return static_cast<int>(index) + 1;
    return word.empty() ? 1 : -1;
}

bool Contains(const Lines& names, const std::string& name)
{
    return std::any_of(names.begin(), names.end(),
                       [&](const std::string& seen) { return !_stricmp(seen.c_str(), name.c_str()); });
}

// What a load shows: "loaded" and the table's "name location encryption" lines, or "refused";
// then "box caption|text" of each message box.
Lines ReadPlainly(const std::string& path, const std::string& bytes)
{
    static const Lines kLocations = {"DEFAULT", "BASE",     "MODULE",   "CLIENT",       "MODULECLIENT",  "USER",
                                     "WKSTA",   "WKSTATMP", "BASEDATA", "BASEREADONLY", "MODULEREADONLY"};
    std::vector<std::pair<std::string, std::string>> table = {{"DFT", "1 1"}, {"XWS", "3 1"}};
    // Lines of at most 1024 bytes, each ending behind its LF; a NUL ends a line's text.
    for (size_t start = 0, end; start < bytes.size(); start = end) {
        end = std::min(std::min(bytes.find('\n', start), bytes.size() - 1) + 1, start + 1024);
        const std::string line = bytes.substr(start, end - start).c_str();
        const size_t close = line.rfind(']');
        if (line[0] != '[' || close == std::string::npos ||
            !::lstrcmpiA(line.substr(0, line.find_first_of("\r\n")).c_str(), "[DefaultSettings]"))
            continue;
        const std::string name = line.substr(1, close - 1);
        std::string location = ProfileText(path, name, "Location", "");
        std::string encryption = ProfileText(path, name, "Encryption", "");
        std::string base = ProfileText(path, name, "BaseType", "");
        // The BaseType chain fills in what the section leaves out, until it ends or comes back.
        Lines asked = {name};
        for (; !base.empty() && !Contains(asked, base); base = ProfileText(path, base, "BaseType", "")) {
            asked.push_back(base);
            location = location.empty() ? ProfileText(path, base, "Location", "DEFAULT") : location;
            encryption = encryption.empty() ? ProfileText(path, base, "Encryption", "DEFAULT") : encryption;
        }
        const int locationNumber = WordNumber(location, kLocations);
        const int encryptionNumber = WordNumber(encryption, {"DEFAULT"});
        if (!base.empty() || locationNumber < 0 || encryptionNumber < 0) {
            const std::string text = "CKOVRA.INI wrong, (" + name + "," + location + "," + encryption + "," + base;
            return {"refused", "box Kovra|" + (text + ")").substr(0, 511)};
        }
        // Names of 1 to 35 characters; one seen before changes its record; the table holds 1489.
        if (name.empty() || name.size() > 35)
            continue;
        const std::string numbers = std::to_string(locationNumber) + " " + std::to_string(encryptionNumber);
        auto same = std::find_if(table.begin(), table.end(), [&](const auto& type) { return type.first == name; });
        if (same != table.end())
            same->second = numbers;
        else if (table.size() < 1489)
            table.emplace_back(name, numbers);
    }
    Lines outcome = {"loaded"};
    for (const auto& type : table)
        outcome.push_back(type.first + " " + type.second);
    return outcome;
}

template <typename Function>
Function Entry(HMODULE library, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(::GetProcAddress(library, name)));
}

Lines LoadLibraryOnce(BoxWatcher& watcher)
{
    const size_t boxesBefore = watcher.Boxes().size();
    Lines outcome = {"refused"};
    if (HMODULE library = ::LoadLibraryA("kovra.dll")) {
        outcome = {"loaded"};
        auto getFileType = Entry<int (*)(int, FileType_S*)>(library, "KovraGetFileType");
        FileType_S type;
        for (int index = 0; getFileType(index, &type); ++index)
            outcome.push_back(std::string(type.name) + " " + std::to_string(type.location) + " " +
                              std::to_string(type.encryption));
        ::FreeLibrary(library);
    }
    const std::vector<MessageBoxSeen> boxes = watcher.Boxes();
    for (size_t index = boxesBefore; index < boxes.size(); ++index)
        outcome.push_back("box " + boxes[index].caption + "|" + boxes[index].text);
    return outcome;
}

// Lines that CKOVRA.INI may hold, good and bad: %N stands for a type name, %L a location, %E an
// encryption, %0 a NUL, %X a line of 1000 to 3000 bytes with marks that would mean something.
const Lines kLineKinds = {
    "[%N]", "[%N]", "[%N]", "[%N]", " [%N]", "[%N] ;note", "[%N]x]", "[%N]\t", "[%N", "[DefaultSettings]",
    "[defaultsettings]", "Option=32", "Location=%L", "Location=%L", "LOCATION = %L", " location=\t%L", "Location",
    "Encryption=%E", "encryption = %E", "Encryption =\t%E", "Encryption", "BaseType=%N", "BaseType=%N",
    "basetype = %N", "\tBaseType=%N", "BaseType=NOPE", "BaseType=\"A\"", "BaseType=' b '", "BaseType",
    ";Location=ARCHIVE", "", "   ", "Other=1", "=BASE", "Location=BASE%0", "Location=BASE%0X", "Location=BASE\xFF",
    "Location=BASE\rX", "Location=BASE\x1A", "%X"};
// Words are read into 64 characters: a base named by 70 finds the section of its first 64.
const std::map<char, Lines> kFields = {
    {'N', {"A", "B", "C", "D", "a", "b", "c", "DFT", "xws", " A", "B ", "[C", "C]D", "\xC4", "\xE4", "",
           "TYPE_NAME_LONGER_THAN_THIRTY_FIVE_CHARS", std::string(64, 'L'), std::string(70, 'L')}},
    {'L', {"BASE", "USER", "basedata", "DEFAULT", "", "MODULE", "\"BASE\"", "'USER'", "\"\"", "BASE\x1A", " WKSTA", "'",
           "\"" + std::string(64, 'B') + "\"", "ARCHIVE"}},
    {'E', {"DEFAULT", "", "default", "\"DEFAULT\"", "X"}},
    {'0', {std::string(1, '\0')}}};

// Random lines of those kinds, some bytes damaged, often in UTF-16. Every draw stands in a
// statement of its own, so that the files follow from the seed alone.
std::string GeneratedFile(std::mt19937& random)
{
    auto pick = [&](size_t count) { return static_cast<int>(random() % count); };
    auto oneOf = [&](const Lines& choices) { return choices[pick(choices.size())]; };
    auto longLine = [&] {
        std::string line(1000 + pick(2000), 'x');
        for (int mark = pick(6); mark > 0; --mark) {
            const int at = pick(line.size());
            line[at] = "[]=\n"[pick(4)];
        }
        return line;
    };
    std::string text = pick(100) < 3 ? "\xEF\xBB\xBF" : "";
    for (int count = pick(40); count > 0; --count) {
        std::string line = oneOf(kLineKinds);
        for (size_t at = line.find('%'); at != std::string::npos; at = line.find('%', at)) {
            const std::string field = line[at + 1] == 'X' ? longLine() : oneOf(kFields.at(line[at + 1]));
            line.replace(at, 2, field);
            at += field.size();
        }
        text += line;
        text += pick(100) < 80 ? "\r\n" : oneOf({"\n", "\r", "\n\r", ""});
    }
    for (int damage = pick(100) < 15 ? 1 + pick(3) : 0; damage > 0 && !text.empty(); --damage) {
        const int at = pick(text.size());
        text[at] = "\0\xFF\r\n[]="[pick(7)];
    }
    if (pick(2))
        return text;
    std::string wide = "\xFF\xFE";  // UTF-16
    for (char c : text)
        wide += std::string(1, c) + '\0';
    return wide;
}

// Every file gets a last-write time of its own, an hour back: the profile service then reads
// each one once, not on every call while it is young.
void WriteConfig(const std::string& path, const std::string& bytes, int number)
{
    WriteFileBytes(path, bytes);
    HANDLE file = ::CreateFileA(path.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    FILETIME now;
    ::GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER time{{now.dwLowDateTime, now.dwHighDateTime}};
    time.QuadPart -= (3600ULL + static_cast<ULONGLONG>(number)) * 10000000ULL;
    const FILETIME past{time.LowPart, time.HighPart};
    ::SetFileTime(file, nullptr, nullptr, &past);
    ::CloseHandle(file);
}

Lines KeptFiles()
{
    Lines files;
    WIN32_FIND_DATAA found;
    HANDLE search = ::FindFirstFileA(KOVRA_FUZZ_CASES "/*.ini", &found);
    for (BOOL more = search != INVALID_HANDLE_VALUE; more; more = ::FindNextFileA(search, &found))
        files.push_back(ReadFileBytes(std::string(KOVRA_FUZZ_CASES "/") + found.cFileName));
    if (search != INVALID_HANDLE_VALUE)
        ::FindClose(search);
    return files;
}

TEST(ConfigFuzz, GeneratedFilesLoadAsTheirPlainReadingSays)
{
    Installation installation("FUZZCONF");
    const std::string path = installation.ConfigDirectory() + "\\CKOVRA.INI";
    _putenv(("KARVELO-CKOVRAHOME=" + installation.ConfigDirectory()).c_str());
    const char* chosenSeed = std::getenv("KOVRA_FUZZ_SEED");
    const std::uint32_t seed = chosenSeed ? std::strtoul(chosenSeed, nullptr, 10) : kSeed;
    std::mt19937 random(seed);
    Lines files = KeptFiles();
    const size_t kept = files.size();
    std::vector<bool> refused;
    BoxWatcher watcher;
    const auto start = std::chrono::steady_clock::now();
    for (size_t number = 0; number < kept || (number < kept + kMaxGeneratedFiles &&
                                               std::chrono::steady_clock::now() - start < kTimeBudget); ++number) {
        if (number >= kept)
            files.push_back(GeneratedFile(random));
        WriteConfig(path, files[number], static_cast<int>(number));  // a crash leaves it in CKOVRA.INI
        const Lines expected = ReadPlainly(path, files[number]), loaded = LoadLibraryOnce(watcher);
        refused.push_back(loaded[0] == "refused");
        if (loaded == expected)
            continue;
        const std::string keep = ProgramDirectory() + "fuzz-failed-" + std::to_string(number) + ".ini";
        WriteFileBytes(keep, files[number]);
        EXPECT_EQ(expected, loaded) << "file " << number << " (seed " << seed << "), kept as " << keep
                                    << ": add it to tests/config/fuzz-cases";
    }
    std::printf("seed %u: %zu kept and %zu generated files, %zu refused\n", seed, kept, files.size() - kept,
                static_cast<size_t>(std::count(refused.begin(), refused.end(), true)));

    // The checker reads every file the same way: a problem for each file that stops the load.
    WriteConfig(path, "", -1);
    HMODULE library = ::LoadLibraryA("kovra.dll");
    ASSERT_NE(nullptr, library);
    auto check = Entry<int (*)(const char*, KovraConfigProblemFn, void*)>(library, "KovraCheckConfig");
    const std::string checked = installation.ConfigDirectory() + "\\CHECKED.INI";
    for (size_t number = 0; number < files.size(); ++number) {
        WriteFileBytes(checked, files[number]);
        int problems = 0;
        EXPECT_EQ(problems, check(checked.c_str(), [](void* count, int, const char*) { ++*static_cast<int*>(count); },
                                  &problems)) << "file " << number;
        EXPECT_TRUE(!refused[number] || problems > 0) << "file " << number;
    }
    ::FreeLibrary(library);
}

} // namespace
