// CKOVRA.INI read by the library as the platform's profile service reads it. For each file this
// process loads the library as the first process and compares its table or stop box with a plain
// reading through the profile service; then the checker reads every file. The few files that the
// generator doesn't make come first, then 400 random ones (sections, keys, BaseType chains and rings, headers
// without ']', long lines, binary bytes, UTF-16) from a fixed seed.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <random>

#include "Installation.h"

using namespace kovratest;
using namespace std::string_literals;  // "...\0..."s keeps its NULs

namespace {

// The number of word in words, from 1, regardless of case; 0 for none.
int WordNumber(const std::string& word, const Lines& words)
{
    auto same = [&](const std::string& each) { return ::lstrcmpiA(each.c_str(), word.c_str()) == 0; };
    const auto found = std::find_if(words.begin(), words.end(), same);
    return found == words.end() ? 0 : static_cast<int>(found - words.begin()) + 1;
}

// What a load shows: the table's "name location encryption" lines, or the stop box.
Lines ReadPlainly(const std::string& path, const std::string& bytes)
{
    static const Lines kLocations = {"DEFAULT", "BASE",     "MODULE",   "CLIENT",       "MODULECLIENT",  "USER",
                                     "WKSTA",   "WKSTATMP", "BASEDATA", "BASEREADONLY", "MODULEREADONLY"};
    Lines names = {"DFT", "XWS"}, types = {"DFT 1 1", "XWS 3 1"};
    auto read = [&](const std::string& section, const char* key, const char* fallback = "") {
        char value[65] = "";
        ::GetPrivateProfileStringA(section.c_str(), key, fallback, value, sizeof value, path.c_str());
        return std::string(value);
    };
    // Lines of at most 1024 bytes, each ending behind its LF; a NUL ends a line's text.
    for (size_t start = 0, end; start < bytes.size(); start = end) {
        end = std::min(std::min(bytes.find('\n', start), bytes.size() - 1) + 1, start + 1024);
        const std::string line = bytes.substr(start, end - start).c_str();
        const size_t close = line.rfind(']');
        if (line[0] != '[' || close == std::string::npos ||
            !::lstrcmpiA(line.substr(0, line.find_first_of("\r\n")).c_str(), "[DefaultSettings]"))
            continue;
        const std::string name = line.substr(1, close - 1);
        std::string location = read(name, "Location"), encryption = read(name, "Encryption");
        std::string base = read(name, "BaseType");
        // The BaseType chain fills in what the section leaves out, until it ends or comes back.
        for (Lines asked = {name}; !base.empty() && !WordNumber(base, asked); base = read(base, "BaseType")) {
            asked.push_back(base);
            location = location.empty() ? read(base, "Location", "DEFAULT") : location;
            encryption = encryption.empty() ? read(base, "Encryption", "DEFAULT") : encryption;
        }
        const int locationNumber = location.empty() ? 1 : WordNumber(location, kLocations);
        const std::string wrong = "CKOVRA.INI wrong, (" + name + "," + location + "," + encryption + "," + base + ")";
        if (!base.empty() || !locationNumber || !(encryption.empty() || WordNumber(encryption, {"DEFAULT"})))
            return {"Kovra|" + wrong.substr(0, 511)};
        // Names of 1 to 35 characters; one seen before changes its record; the table holds 1489.
        const size_t same = std::find(names.begin(), names.end(), name) - names.begin();
        if (same == names.size() && !name.empty() && name.size() <= 35 && names.size() < 1489) {
            names.push_back(name);
            types.emplace_back();
        }
        if (same < types.size())
            types[same] = name + " " + std::to_string(locationNumber) + " 1";
    }
    return types;
}

// Loads the library as the first process: its table, then the boxes that it showed meanwhile.
Lines LoadLibraryOnce(BoxWatcher& watcher)
{
    HMODULE library = ::LoadLibraryA("kovra.dll");
    Lines outcome = library ? FileTypes(library) : Lines{}, boxes = watcher.Boxes();
    ::FreeLibrary(library);
    outcome.insert(outcome.end(), boxes.begin(), boxes.end());
    return outcome;
}

std::string Numbered(int index) { return "S" + std::to_string(10000 + index).substr(1); }  // "S0042"

// Sections S0000 to S<count-1> with Location=location, the last with Location=lastLocation; with a
// lastBase, a chain: each has the next as its base and the last lastBase.
std::string Sections(int count, const std::string& location, const char* lastLocation, const char* lastBase = nullptr)
{
    Lines lines;
    for (int index = 0; index < count; ++index) {
        const bool last = index == count - 1;
        lines.insert(lines.end(), {"[" + Numbered(index) + "]", "Location=" + (last ? lastLocation : location)});
        if (lastBase)
            lines.push_back("BaseType=" + (last ? lastBase : Numbered(index + 1)));
    }
    return IniText(lines);
}

// Lines that CKOVRA.INI may hold, good and bad: %N stands for a type name, %L a location, %E an
// encryption, %X a line of 1000 to 3000 bytes with a mark that would mean something. Drawn at
// random they make every rule of the file happen within the 400 files: sections whose names
// differ in case only (two types reading the first one's keys), BaseType chains that end, come
// back to their type or name no section (DEFAULT), bases without the key (DEFAULT, deeper bases
// not asked), blanks, quotes and case in keys and values, repeated keys, keys without '=',
// comments, names cut to 64 characters, the last ']' of a header, a lone CR, [DefaultSettings]
// in any case.
const Lines kLineKinds = {
    "[%N]", "[%N]", "[%N]", "[%N]", " [%N]", "[%N] ;note", "[%N]x]", "[%N]\t", "[%N", "[DefaultSettings]",
    "[defaultsettings]", "Option=32", "Location=%L", "Location=%L", "LOCATION = %L", " location=\t%L", "Location",
    "Encryption=%E", "encryption = %E", "Encryption =\t%E", "Encryption", "BaseType=%N", "BaseType=%N",
    "basetype = %N", "\tBaseType=%N", "BaseType=NOPE", "BaseType=\"A\"", "BaseType=' b '", "BaseType",
    ";Location=ARCHIVE", "", "   ", "Other=1", "=BASE", "Location=BASE\0"s, "Location=BASE\0X"s, "Location=BASE\xFF",
    "Location=BASE\rX", "Location=BASE\x1A", "%X"};
// Words are read into 64 characters: a base named by 70 finds the section of its first 64.
const std::map<char, Lines> kFields = {
    {'N', {"A", "B", "C", "D", "a", "b", "c", "DFT", "xws", " A", "B ", "[C", "C]D", "\xC4", "\xE4", "",
           "TYPE_NAME_LONGER_THAN_THIRTY_FIVE_CHARS", std::string(64, 'L'), std::string(70, 'L')}},
    {'L', {"BASE", "USER", "basedata", "DEFAULT", "", "MODULE", "\"BASE\"", "'USER'", "\"\"", "BASE\x1A", " WKSTA", "'",
           "\"" + std::string(64, 'B') + "\"", "ARCHIVE"}},
    {'E', {"DEFAULT", "", "default", "\"DEFAULT\"", "X"}}};

// Random lines of those kinds, some bytes damaged, often in UTF-16. Every draw stands in a
// statement of its own, so that the files follow from the seed alone.
std::string GeneratedFile(std::mt19937& random)
{
    auto pick = [&](size_t count) { return static_cast<int>(random() % count); };
    auto oneOf = [&](const Lines& choices) { return choices[pick(choices.size())]; };
    auto longLine = [&] {
        std::string line(1000 + pick(2000), 'x');
        const int at = pick(line.size());
        line[at] = "[]=\n"[pick(4)];
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
        text += line + (pick(100) < 80 ? "\r\n" : oneOf({"\n", "\r", "\n\r", ""}));
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

TEST(ConfigFuzz, GeneratedFilesLoadAsTheirPlainReadingSays)
{
    Installation installation("FUZZCONF");
    const std::string path = installation.ConfigFile(), checked = installation.Root() + "CHECKED.INI";
    _putenv(("KARVELO-CKOVRAHOME=" + installation.Root() + "CONF").c_str());
    Lines files = {
        // First a file that stops the load: its box must be served while the loader is busy.
        IniText({"[S]", "Location=USER", "BaseType=s"}),
        Sections(1500, "", "USER", "s0000"),  // a chain 1500 deep that comes back to its first section
        // A NUL ends a line's text; ^Z is a blank of the profile format; a lone CR ends a line for
        // the profile service but not for the section headers.
        "[N\0]\r\nLocation=USER\r\n[\xFF]\r\nLocation=USER\x1A\r\n[C]\rLocation=WKSTA\n"s,
        // When the table is full, later sections add no type, but their words are checked.
        Sections(2000, "BASE", "ARCHIVE"),
    };
    const char* chosenSeed = std::getenv("KOVRA_FUZZ_SEED");  // chooses another seed
    const std::uint32_t seed = chosenSeed ? std::strtoul(chosenSeed, nullptr, 10) : 20261123;
    std::mt19937 random(seed);
    std::vector<bool> refused;
    BoxWatcher watcher;
    const auto hourAgo = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
    for (size_t number = 0, last = files.size() + 400; number < last; ++number) {
        if (number >= files.size())
            files.push_back(GeneratedFile(random));
        WriteFileBytes(path, files[number]);  // a crash leaves it in CKOVRA.INI
        // A last-write time of its own, an hour back or more: the profile service then reads each
        // file once, and not on every call while it is young.
        std::filesystem::last_write_time(path, hourAgo - std::chrono::seconds(number));
        const Lines expected = ReadPlainly(path, files[number]), loaded = LoadLibraryOnce(watcher);
        refused.push_back(expected.size() == 1);  // a table holds the two built-in types at least
        EXPECT_EQ(expected, loaded) << "file " << number << " (seed " << seed << ")";
    }
    // Files beyond what the profile service reads plainly. A line longer than 1024 characters comes
    // in pieces: its first can't name a type, but a piece that starts with '[' can.
    WriteFileBytes(path, IniText({"[A]", "Location=BASE", "[" + std::string(1 << 20, 'y') + "]", "Location=ARCHIVE",
                                  std::string(1024, 'x') + "[Z]" + std::string(1 << 20, 'x'), "[B]", "Location=USER"}));
    EXPECT_EQ((Lines{"DFT 1 1", "XWS 3 1", "A 2 1", "Z 1 1", "B 6 1"}), LoadLibraryOnce(watcher));
    // Every section of a chain 1500 deep asks all of the chain behind it; the table holds 1489 types.
    WriteFileBytes(path, Sections(1500, "", "USER", ""));
    Lines full = {"DFT 1 1", "XWS 3 1"};
    for (int index = 0; index < 1487; ++index)
        full.push_back(Numbered(index) + " 6 1");
    EXPECT_EQ(full, LoadLibraryOnce(watcher));

    // The checker reads every file the same way: a problem for each file that stops the load.
    WriteFileBytes(path, "");
    HMODULE library = ::LoadLibraryA("kovra.dll");
    ASSERT_NE(nullptr, library);
    const auto check = Entry<decltype(&KovraCheckConfig)>(library, "KovraCheckConfig");
    for (size_t number = 0; number < refused.size(); ++number) {
        WriteFileBytes(checked, files[number]);
        int problems = 0;
        EXPECT_EQ(problems, check(checked.c_str(), [](void* count, int, const char*) { ++*static_cast<int*>(count); },
                                  &problems)) << "file " << number;
        EXPECT_TRUE(!refused[number] || problems > 0) << "file " << number;
    }
    ::FreeLibrary(library);
}

} // namespace
