// A randomized run over CKOVRA.INI: generated files with sections, keys, BaseType chains
// and odd bytes, each loaded by this process as the first process on the machine, its
// table or stop box compared with a plain reading of the file whose keys come from the
// platform's profile service; then the checker runs over every file. The seed is fixed
// and printed, the run bounded in cases and time. The files in tests/config/fuzz-cases
// come first: every input that ever failed is kept there.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "Installation.h"
#include "kovra/diag.h"

using namespace kovratest;

namespace {

constexpr std::uint32_t kSeed = 20261123;  // KOVRA_FUZZ_SEED chooses another
constexpr int kMaxGeneratedCases = 500;
constexpr std::chrono::seconds kTimeBudget(8);

struct Outcome {
    Lines table;      // "name location encryption" of every type, when the library loaded
    Lines boxes;      // the texts of the message boxes shown while loading
    bool loaded = false;
};

bool operator==(const Outcome& a, const Outcome& b)
{
    return a.table == b.table && a.boxes == b.boxes && a.loaded == b.loaded;
}

void PrintTo(const Outcome& outcome, std::ostream* out)
{
    *out << (outcome.loaded ? "loaded" : "refused") << ", boxes " << testing::PrintToString(outcome.boxes)
         << ", table " << testing::PrintToString(outcome.table);
}

// ---- the reading done plainly ------------------------------------------------------------------

std::string ProfileText(const std::string& path, const std::string& section, const char* key, const char* fallback)
{
    char value[65] = "";
    ::GetPrivateProfileStringA(section.c_str(), key, fallback, value, sizeof value, path.c_str());
    return value;
}

int WordIndex(const std::string& word, const std::vector<std::string>& words)
{
    for (size_t index = 0; index < words.size(); ++index)
        if (::lstrcmpiA(words[index].c_str(), word.c_str()) == 0)
            return index == 0 ? 1 : static_cast<int>(index);
    return -1;
}

struct Type {
    std::string name;
    int location;
    int encryption;
};

void AddType(std::vector<Type>& table, const std::string& name, int location, int encryption)
{
    if (name.empty() || name.size() > 35)
        return;
    for (Type& type : table) {
        if (type.name == name) {
            type = {name, location, encryption};
            return;
        }
    }
    if (table.size() < 1489)
        table.push_back({name, location, encryption});
}

// Lines of at most 1024 bytes, each ending behind its LF; a NUL ends a line's text.
Lines LinePieces(const std::string& bytes)
{
    Lines pieces;
    for (size_t start = 0; start < bytes.size();) {
        size_t end = std::min(std::min(bytes.find('\n', start), bytes.size() - 1) + 1, start + 1024);
        pieces.push_back(bytes.substr(start, end - start).c_str());
        start = end;
    }
    return pieces;
}

Outcome ReadPlainly(const std::string& path, const std::string& bytes)
{
    static const std::vector<std::string> kLocations = {"", "DEFAULT", "BASE", "MODULE", "CLIENT", "MODULECLIENT", "USER",
                                                        "WKSTA", "WKSTATMP", "BASEDATA", "BASEREADONLY", "MODULEREADONLY"};
    static const std::vector<std::string> kEncryptions = {"", "DEFAULT"};
    std::vector<Type> table = {{"DFT", 1, 1}, {"XWS", 3, 1}};
    for (const std::string& line : LinePieces(bytes)) {
        if (line.empty() || line[0] != '[' || line.find(']') == std::string::npos ||
            ::lstrcmpiA(line.substr(0, line.find_first_of("\r\n")).c_str(), "[DefaultSettings]") == 0)
            continue;
        const std::string name = line.substr(1, line.rfind(']') - 1);
        std::string location = ProfileText(path, name, "Location", "");
        std::string encryption = ProfileText(path, name, "Encryption", "");
        std::string base = ProfileText(path, name, "BaseType", "");
        Lines asked = {name};
        bool loops = false;
        while (!base.empty()) {
            for (const std::string& seen : asked)
                loops = loops || _stricmp(seen.c_str(), base.c_str()) == 0;
            if (loops)
                break;
            asked.push_back(base);
            if (location.empty())
                location = ProfileText(path, base, "Location", "DEFAULT");
            if (encryption.empty())
                encryption = ProfileText(path, base, "Encryption", "DEFAULT");
            base = ProfileText(path, base, "BaseType", "");
        }
        const int locationIndex = WordIndex(location, kLocations), encryptionIndex = WordIndex(encryption, kEncryptions);
        if (loops || locationIndex < 0 || encryptionIndex < 0) {
            std::string text = "CKOVRA.INI wrong, (" + name + "," + location + "," + encryption + "," + base + ")";
            return {{}, {"Kovra|" + text.substr(0, 511)}, false};
        }
        AddType(table, name, locationIndex, encryptionIndex);
    }
    Outcome outcome;
    outcome.loaded = true;
    for (const Type& type : table)
        outcome.table.push_back(type.name + " " + std::to_string(type.location) + " " + std::to_string(type.encryption));
    return outcome;
}

// ---- the library ------------------------------------------------------------------------------

template <typename Function>
Function Entry(HMODULE library, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(::GetProcAddress(library, name)));
}

Outcome LoadLibraryOnce(BoxWatcher& watcher)
{
    Outcome outcome;
    const size_t boxesBefore = watcher.Boxes().size();
    HMODULE library = ::LoadLibraryA("kovra.dll");
    if (library) {
        outcome.loaded = true;
        auto getFileType = Entry<int (*)(int, FileType_S*)>(library, "KovraGetFileType");
        FileType_S type;
        for (int index = 0; getFileType(index, &type); ++index)
            outcome.table.push_back(std::string(type.name) + " " + std::to_string(type.location) + " " +
                                    std::to_string(type.encryption));
        ::FreeLibrary(library);
    }
    const std::vector<MessageBoxSeen> boxes = watcher.Boxes();
    for (size_t index = boxesBefore; index < boxes.size(); ++index)
        outcome.boxes.push_back(boxes[index].caption + "|" + boxes[index].text);
    return outcome;
}

// ---- generated files ----------------------------------------------------------------------------

// Every draw of the generator stands in a statement of its own, so that the files follow
// from the seed alone.
class ConfigGenerator {
public:
    explicit ConfigGenerator(std::uint32_t seed) : m_random(seed) {}

    std::string File()
    {
        std::string text = Chance(3) ? "\xEF\xBB\xBF" : "";
        if (Chance(30)) {
            text += Line(OneOf({"[DefaultSettings]", "[defaultsettings]"}));
            text += Line("Option=32");
        }
        for (int section = Pick(14); section > 0; --section) {
            text += Line(Header());
            for (int line = Pick(5); line > 0; --line)
                text += Line(Chance(15) ? Junk() : KeyLine());
        }
        if (Chance(15))
            text = Damaged(text);
        return Chance(2) ? Utf16(text) : text;
    }

private:
    int Pick(int count) { return static_cast<int>(m_random() % static_cast<std::uint32_t>(count)); }
    bool Chance(int percent) { return Pick(100) < percent; }
    std::string OneOf(const std::vector<std::string>& choices)
    {
        return choices[static_cast<size_t>(Pick(static_cast<int>(choices.size())))];
    }

    std::string Line(const std::string& text)
    {
        return text + (Chance(80) ? "\r\n" : OneOf({"\n", "\r", "\n\r", ""}));
    }

    std::string Name()
    {
        // Words are read into 64 characters: a base named by 70 finds the section of its first 64.
        return OneOf({"A", "B", "C", "D", "a", "b", "c", "DFT", "xws", " A", "B ", "[C", "C]D", "\xC4", "\xE4", "",
                      "TYPE_NAME_LONGER_THAN_THIRTY_FIVE_CHARS", std::string(64, 'L'), std::string(70, 'L')});
    }

    std::string Header()
    {
        std::string header = "[" + Name() + "]";
        if (Chance(10))
            header = " " + header;
        if (Chance(10))
            header += OneOf({" ;note", "x]", "\t"});
        if (Chance(5))
            header.pop_back();  // no ']'
        return header;
    }

    std::string KeyLine()
    {
        static const std::vector<std::string> kNames[] = {{"Location", "LOCATION", " location"},
                                                          {"Encryption", "encryption", "Encryption "},
                                                          {"BaseType", "basetype", "\tBaseType"}};
        const int key = Pick(3);
        const std::string name = OneOf(kNames[key]);
        if (Chance(5))
            return name;  // no '='
        std::string value;
        if (key == 0)
            value = Chance(2) ? "ARCHIVE" : OneOf({"BASE", "USER", "basedata", "DEFAULT", "", "MODULE", "\"BASE\"",
                                                   "'USER'", "\"\"", "BASE\x1A", " WKSTA", "'",
                                                   "\"" + std::string(64, 'B') + "\""});
        else if (key == 1)
            value = Chance(2) ? "X" : OneOf({"DEFAULT", "", "default", "\"DEFAULT\""});
        else
            value = Chance(30) ? OneOf({"NOPE", "\"A\"", "' b '"}) : Name();
        return name + OneOf({"=", " = ", "=\t"}) + value;
    }

    std::string Junk()
    {
        switch (Pick(4)) {
        case 0:
            return OneOf({";Location=ARCHIVE", "", "   ", "Other=1", "=BASE"});
        case 1: {
            const std::string odd = OneOf({std::string(1, '\0'), "\xFF", "\r", "\x1A"});
            return "Location=BASE" + odd + OneOf({"", "X"});
        }
        case 2: {
            std::string line(static_cast<size_t>(1000 + Pick(2000)), 'x');
            for (int mark = Pick(6); mark > 0; --mark)
                line[static_cast<size_t>(Pick(static_cast<int>(line.size())))] = "[]=\n"[Pick(4)];
            return line;
        }
        default:
            return "[" + Name();
        }
    }

    std::string Damaged(std::string text)
    {
        for (int damage = 1 + Pick(3); damage > 0 && !text.empty(); --damage)
            text[static_cast<size_t>(Pick(static_cast<int>(text.size())))] = "\0\xFF\r\n[]="[Pick(7)];
        return text;
    }

    static std::string Utf16(const std::string& text)
    {
        std::string wide = "\xFF\xFE";
        for (char c : text)
            wide += std::string(1, c) + '\0';
        return wide;
    }

    std::mt19937 m_random;
};

// ---- the run ------------------------------------------------------------------------------------

// Every file gets a last-write time of its own, an hour back: the profile service then
// reads each one once, not on every call while it is young.
void WriteConfig(const std::string& path, const std::string& bytes, int number)
{
    WriteFileBytes(path, bytes);
    HANDLE file = ::CreateFileA(path.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    FILETIME now;
    ::GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER time{{now.dwLowDateTime, now.dwHighDateTime}};
    time.QuadPart -= (3600ULL + static_cast<ULONGLONG>(number)) * 10000000ULL;
    FILETIME past{time.LowPart, time.HighPart};
    ::SetFileTime(file, nullptr, nullptr, &past);
    ::CloseHandle(file);
}

std::vector<std::string> KeptCases()
{
    std::vector<std::string> cases;
    WIN32_FIND_DATAA found;
    HANDLE search = ::FindFirstFileA(KOVRA_FUZZ_CASES "/*.ini", &found);
    for (BOOL more = search != INVALID_HANDLE_VALUE; more; more = ::FindNextFileA(search, &found))
        cases.push_back(ReadFileBytes(std::string(KOVRA_FUZZ_CASES "/") + found.cFileName));
    if (search != INVALID_HANDLE_VALUE)
        ::FindClose(search);
    return cases;
}

void CountProblem(void* problems, int, const char*)
{
    ++*static_cast<int*>(problems);
}

TEST(ConfigFuzz, GeneratedFilesLoadAsTheirPlainReadingSays)
{
    Installation installation("FUZZCONF");
    const std::string path = installation.ConfigDirectory() + "\\CKOVRA.INI";
    _putenv(("KARVELO-CKOVRAHOME=" + installation.ConfigDirectory()).c_str());

    std::vector<std::string> files = KeptCases();
    const size_t kept = files.size();
    const char* chosenSeed = std::getenv("KOVRA_FUZZ_SEED");
    const std::uint32_t seed = chosenSeed ? static_cast<std::uint32_t>(std::strtoul(chosenSeed, nullptr, 10)) : kSeed;
    ConfigGenerator generator(seed);
    std::vector<bool> refused;
    BoxWatcher watcher;
    const auto start = std::chrono::steady_clock::now();
    for (size_t number = 0; number < kept + kMaxGeneratedCases; ++number) {
        if (number >= kept) {
            if (std::chrono::steady_clock::now() - start > kTimeBudget)
                break;
            files.push_back(generator.File());
        }
        // A crash leaves the file in CKOVRA.INI of the installation.
        WriteConfig(path, files[number], static_cast<int>(number));
        const Outcome expected = ReadPlainly(path, files[number]);
        const Outcome outcome = LoadLibraryOnce(watcher);
        refused.push_back(!outcome.loaded);

        if (!(outcome == expected)) {
            const std::string keep = ProgramDirectory() + "fuzz-failed-" + std::to_string(number) + ".ini";
            WriteFileBytes(keep, files[number]);
            ADD_FAILURE() << "file " << number << " (seed " << seed << "), kept as " << keep
                          << ": add it to tests/config/fuzz-cases\n  expected " << testing::PrintToString(expected)
                          << "\n  loaded   " << testing::PrintToString(outcome);
        }
    }
    std::printf("seed %u: %zu kept and %zu generated files\n", seed, kept, files.size() - kept);

    // The checker reads every file the same way: a problem for each file that stops the load.
    WriteConfig(path, "", -1);
    HMODULE library = ::LoadLibraryA("kovra.dll");
    ASSERT_NE(nullptr, library);
    auto check = Entry<int (*)(const char*, KovraConfigProblemFn, void*)>(library, "KovraCheckConfig");
    const std::string checked = installation.ConfigDirectory() + "\\CHECKED.INI";
    for (size_t number = 0; number < files.size(); ++number) {
        WriteFileBytes(checked, files[number]);
        int problems = 0;
        const int result = check(checked.c_str(), &CountProblem, &problems);
        EXPECT_EQ(problems, result) << "file " << number;
        EXPECT_TRUE(!refused[number] || problems > 0) << "file " << number;
    }
    ::FreeLibrary(library);
}

} // namespace
