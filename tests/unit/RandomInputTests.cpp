// Randomized bad input over name resolution and the profile members: a fixed seed, a bounded count and time, and
// invariants that every input must keep. The rows below (each broke an invariant once, or lies at a limit) are
// replayed before the generated inputs; a failure prints its input, to be kept as such a row (a number above 2^63
// wants its ULL).
#include <cfloat>
#include <cmath>
#include <cstring>
#include <optional>
#include <random>

#include "UnitChecks.h"

using namespace kovratest;

namespace {

constexpr unsigned kSeed = 20261123;
constexpr DWORD kTimeBudgetMs = 6000;  // per target, so that a run stays short on both builds
constexpr size_t kMaxInputs = 100000, kLongestProfileText = 32766;  // the longest text the profile service stores
constexpr auto npos = std::string::npos;
using Text = std::optional<std::string>;

// In the texts of an input "<null>" is the null pointer and "c{N}" N times the character c.
const std::string kNull = "<null>";
Text Expand(std::string text)
{
    for (size_t at; (at = text.find('{')) != npos;)
        text.replace(at - 1, text.find('}', at) - at + 2, std::stoul(text.substr(at + 1)), text[at - 1]);
    return text == kNull ? std::nullopt : Text(text);
}

const char* Pointer(const Text& text) { return text ? text->c_str() : nullptr; }
template <typename To, typename From>
To BitCast(From from)
{
    To to;
    std::memcpy(&to, &from, sizeof to);
    return to;
}
uint64_t Bits(double value) { return BitCast<uint64_t>(value); }

// Type, name, flags, and the user, client and module path to set first (null: not set).
using NameInput = std::tuple<std::string, std::string, int, std::string, std::string, std::string>;
// Operation, section, key, value, default, the 64 bits of the numbers (a double; a long of the low 32, an unsigned
// long of the high 32), the size of the buffer of the last read.
using ProfileInput = std::tuple<std::string, std::string, std::string, std::string, std::string, uint64_t, int>;

// Refused for its length, an Open kept the earlier path.
const std::vector<NameInput> kNameRows = {{"T_BASE", "N{260}", 0, kNull, kNull, kNull}};

ProfileInput Double(double value) { return {"double", "S", "K", kNull, kNull, Bits(value), 64}; }  // written, read back

const std::vector<ProfileInput> kProfileRows = {
    // Defaults of 32769 and 65536 characters: one ended the process inside the platform's profile service.
    {"double", "v\t\xFF=\xFF" "A", "", "\001v[", "N{32769}--AN{317}", Bits(DBL_MIN), 288},
    {"text", "S", "K", kNull, "N{65536}-=", 0xbf479abbe68efec9, 144},
    // Doubles: "%lf" while it has at most 127 characters (1e120), else a text that reads back as the same value
    // (1e121, DBL_MAX); 1e200 was once written in 207 characters, of which the reader took 127. -1e-300: -0.0.
    Double(1e120), Double(1e121), Double(2.5), Double(1e200), Double(DBL_MAX), Double(-DBL_MAX), Double(-1e-300),
    // 32766 characters are stored whole; values of 32767 and 65536 answered 1 and were stored as garbage or emptied
    // the key. Keys and sections of that length are refused for writing and reading too.
    {"text", "S", "K", "l{32766}", kNull, 0, 64}, {"text", "S", "K", "v{32767}", kNull, 0, 64},
    {"text", "S", "K", "v{65536}", kNull, 0, 64}, {"text", "S", "t{32767}", "v", "d", 0, 8},
    {"section", "t{32767}", kNull, "K=v", kNull, 0, 8}, {"long", "t{65536}", "K", kNull, "d", 5, 8},
    // Without a section a number or a section's lines ended the process in the service; without a key a number
    // removed the whole section.
    {"long", kNull, kNull, kNull, kNull, 5, 0}, {"section", kNull, kNull, "a=1", kNull, 0, 0},
    {"long", "S", kNull, kNull, kNull, 5, 0},
    // A section read into no byte writes nothing; into one byte it wrote two.
    {"section", "S", kNull, "K=v", kNull, 0, 0}, {"section", "S", kNull, "K=v", kNull, 0, 1},
};

struct Problems {  // the broken invariants of one input, a line each
    std::string text;
    void operator()(bool holds, const std::string& what) { text += holds ? "" : "  " + what + "\n"; }
};

// Checks the rows, then generated inputs until the time or count is spent; at most three failures are reported.
template <typename Input>
void RunInputs(const std::vector<Input>& rows, Input (*generate)(std::mt19937&), std::string (*check)(const Input&))
{
    std::mt19937 random(kSeed);
    const DWORD start = ::GetTickCount();
    auto more = [&](size_t count) { return count < kMaxInputs && ::GetTickCount() - start < kTimeBudgetMs; };
    size_t count = 0;
    for (int failures = 0; failures < 3 && (count < rows.size() || more(count)); ++count) {
        const Input input = count < rows.size() ? rows[count] : generate(random);
        if (const std::string problems = check(input); !problems.empty() && ++failures)
            ADD_FAILURE() << problems << "as a row: " << ::testing::PrintToString(input);
    }
    std::printf("%zu stored and %zu generated inputs of seed %u in %lu ms\n", rows.size(), count - rows.size(), kSeed,
                ::GetTickCount() - start);
}

size_t Pick(std::mt19937& random, size_t count) { return random() % count; }

// Up to six pieces, now and then a run of 'N' whose length lies at a limit that matters; one time in oneIn (if
// not 0) the null pointer.
std::string RandomText(std::mt19937& random, const std::vector<std::string>& pieces, const std::vector<size_t>& limits,
                       size_t oneIn = 0)
{
    std::string text;
    for (size_t count = Pick(random, 7); count > 0; --count) {
        const size_t run = Pick(random, 6) ? 0 : limits[Pick(random, limits.size())] + Pick(random, 3);
        text += run == 0 ? pieces[Pick(random, pieces.size())] : "N{" + std::to_string(run) + "}";
    }
    return oneIn && Pick(random, oneIn) == 0 ? kNull : text;
}

NameInput GenerateName(std::mt19937& random)
{
    static const std::vector<std::string> pieces = {
        "A", "F.TXT", "SUB\\", "..\\", "\\..\\", "\\", "\\\\", ".", "%Y", "%y", "%M", "%D", "%T", "%", "%%", ":",
        "C:\\", "*", "?", " ", "~", "\xE4\xFF", "\x7F", "\x01", "CLIENTS\\", "\t", "%s%n"};
    static const std::vector<std::string> types = {"DFT", "XWS", "T_BASE", "T_USER", "T_WKSTA", "T_CLIENT",
        "T_MODULECLIENT", "T_BASEREADONLY", "", "t_base", "T{35}", "T{36}", "T{4096}", kNull};
    static const std::vector<size_t> limits = {0, 1, 35, 36, 127, 128, 240, 250, 252, 253, 258, 259, 260, 261, 4096};
    auto text = [&](size_t oneIn) { return RandomText(random, pieces, limits, oneIn); };
    // The elements of a braced list are evaluated in their order: the draws are the seed's alone.
    return {Pick(random, 4) ? types[Pick(random, types.size())] : text(0), text(0), static_cast<int>(Pick(random, 4)),
            text(4), text(4), text(4)};
}

ProfileInput GenerateProfile(std::mt19937& random)
{
    static const std::vector<std::string> pieces = {"S", "K", "v", "A", "X", "=", "[", "]", ";", " ", "\"", "\r",
                                                    "\n", "\t", "\x01", "\xFF", "%s", "0", "-"};
    static const std::vector<size_t> limits = {0, 1, 126, 127, 128, 316, 32765, 32766, 32767, 32768, 65536};
    static const char* operations[] = {"text", "long", "ulong", "double", "section"};
    static const double specials[] = {1e200, -1e-300, DBL_MAX, -DBL_MAX, DBL_MIN, 0.0, -0.0, 2.5, 1e121, 1e120,
                                      -1e127, HUGE_VAL, -HUGE_VAL, NAN};
    auto text = [&](size_t oneIn) { return RandomText(random, pieces, limits, oneIn); };
    // 64 random bits (tiny, huge, integral or not a number), or a double that has been trouble.
    return {operations[Pick(random, std::size(operations))], Pick(random, 2) ? "S" : text(8),
            Pick(random, 2) ? "K" : text(8), text(8), text(4),
            Pick(random, 2) ? Bits(specials[Pick(random, std::size(specials))]) : uint64_t{random()} << 32 | random(),
            static_cast<int>(Pick(random, 3) ? Pick(random, 4) : Pick(random, 400))};
}

// Resolves in a session of its own, so that the input alone decides the identity.
std::string CheckName(const NameInput& input)
{
    static uintptr_t sessionValue = 0x5E550000;
    void* session = reinterpret_cast<void*>(++sessionValue);
    CKovra::StartThread(session, ::GetCurrentThreadId());  // starts the session too
    const auto& [typeRow, nameRow, flags, user, client, module] = input;
    for (const auto& [setting, setter] : {std::pair{user, &CKovra::SetUser}, std::pair{client, &CKovra::SetClient},
                                          std::pair{module, &CKovra::SetModulePath}})
        if (const Text value = Expand(setting))
            setter(value->c_str(), 0);
    Problems expect;
    const Text type = Expand(typeRow);
    const std::string name = *Expand(nameRow);
    CKovra file("T_BASE", "EARLIER.TXT");
    const int result = file.Open(Pointer(type), name.c_str(), KOVRA_RESOLVE_ONLY, nullptr, flags);
    const std::string real(file.GetRealFileName(), strnlen(file.GetRealFileName(), 300));
    const int cause = CauseOf(file);
    expect(real.size() <= 259 && strnlen(file.GetFileName(), 300) <= 259, "a path has more than 259 characters");
    expect(result == 1 ? cause == 0 : cause == -1 || cause == -2,
           "answered " + std::to_string(result) + ", cause " + std::to_string(cause));
    expect(cause != -1 || real == kBase + "EARLIER.TXT", "an unknown type changed the earlier path");
    expect(cause != -2 || real.empty(), "a name too long left the object naming " + real);
    // The base location joins the base path and the name (without its final backslash), and refuses what doesn't
    // fit.
    const std::string joined = kBase + name;
    if (type && (*type == "T_BASE" || *type == "DFT" || type->empty()) && !(flags & 1) &&
        name.find_first_of(":%") == npos && name.compare(0, 2, "\\\\") != 0 && joined.find("\\..\\") == npos)
        expect(joined.size() > 259 ? cause == -2 : result == 1 && real + (joined.back() == '\\' ? "\\" : "") == joined,
               "the base location gave " + real);
    // A resolved path without date fields or parent references resolves to itself.
    CKovra self;
    if (result == 1 && real.find('%') == npos && real.find("\\..\\") == npos && (real.empty() || real.back() != '\\'))
        expect(self.Open(Pointer(type), real.c_str(), KOVRA_RESOLVE_ONLY, nullptr, 1) == 1 &&
               self.GetRealFileName() == real, "the real path doesn't resolve to itself");
    CKovra::RemoveThread(session, ::GetCurrentThreadId());  // and the session with it
    return expect.text;
}

bool Storable(const Text& text) { return !text || text->size() <= kLongestProfileText; }

// A text that the profile service reads back as it was written.
bool Plain(const Text& text)
{
    auto plain = [](char c) { return c > 0x20 && c < 0x7F && !std::strchr("[]=;\"'", c); };
    return text && Storable(text) && std::all_of(text->begin(), text->end(), plain);
}

std::string CheckProfile(const ProfileInput& input)
{
    static const std::string kProfile = "[A]\r\nX=1\r\n[S]\r\nK=old\r\n", path = kBase + "RANDOM_PROFILE\\P.INI";
    WriteFileBytes(path, kProfile);
    CKovra profile("T_BASE", "RANDOM_PROFILE\\P.INI", KOVRA_RESOLVE_ONLY);
    const auto& [operation, sectionRow, keyRow, valueRow, defaultRow, bits, size] = input;
    const Text section = Expand(sectionRow), key = Expand(keyRow), value = Expand(valueRow), dflt = Expand(defaultRow);
    const char *s = Pointer(section), *k = Pointer(key), *v = Pointer(value);
    const double number = BitCast<double>(bits);
    const long low = static_cast<int32_t>(bits);
    const unsigned long high = static_cast<unsigned long>(bits >> 32);
    const bool isNumber = operation != "text" && operation != "section";
    const std::string lines = value.value_or("") + std::string(2, '\0');  // for a section: one line, ended twice
    const int written = operation == "text"     ? profile.WriteProfile(s, k, v)
                        : operation == "long"   ? profile.WriteProfile(s, k, low)
                        : operation == "ulong"  ? profile.WriteProfile(s, k, high)
                        : operation == "double" ? profile.WriteProfile(s, k, number)
                                                : profile.WriteProfileSectionA(s, v ? lines.c_str() : nullptr);
    Problems expect;
    const bool changed = ReadFileBytes(path) != kProfile;
    expect(written || !changed, "a write that answered 0 changed the file");
    expect(!written || (Storable(section) && (operation == "section" || Storable(key)) &&
                        (operation != "text" || Storable(value))),
           "a text longer than the profile service stores was written");
    expect(s || !changed, "a write without a section changed the file");
    expect(!isNumber || (s && k) || !written, "a number without a section and key was written");
    expect(!isNumber || (Storable(section) && Storable(key)) || profile.GetProfile(s, k, 7L) == 7,
           "a number read under a name too long gave no default");

    // What was written under plain names reads back: texts whole, numbers as their value.
    std::string back(kLongestProfileText + 2, '#');
    const bool plainNames = Plain(section) && Plain(key) && !section->empty() && !key->empty(),
               readsBack = written && plainNames;
    const int backLength = readsBack ? profile.GetProfile(s, k, "", &back[0], static_cast<int>(back.size())) : -1;
    back.resize(std::strlen(back.c_str()));
    if (operation == "text" && plainNames && Plain(value))
        expect(backLength == static_cast<int>(value->size()) && back == *value, "the text read back is " + back);
    expect(operation != "long" || !readsBack || profile.GetProfile(s, k, 7L) == low, "the long read back differs");
    expect(operation != "ulong" || !readsBack || profile.GetProfile(s, k, 7UL) == high, "the unsigned differs");
    // A double is stored as "%lf" while a numeric read takes that whole (127 characters), else in a text that
    // reads back as the same value. How "inf" and "nan" are spelt is the run-time library's matter.
    if (operation == "double" && readsBack) {
        char fixed[400];
        const bool isFixed = std::snprintf(fixed, sizeof fixed, "%lf", number) <= 127;
        const double stored = std::strtod(back.c_str(), nullptr), read = profile.GetProfile(s, k, 7.0);
        expect(!std::isfinite(number) || (isFixed ? back == fixed : back.size() <= 127 && stored == number),
               "the double is stored as " + back);
        expect(std::isnan(stored) ? std::isnan(read) : read == stored && std::signbit(read) == std::signbit(stored),
               "the double read back differs");
    }

    // Reads stay inside the caller's buffer. One the service can't serve writes the default cut to the buffer (a
    // section read: the empty list's first NUL into a buffer of one byte).
    std::string buffer(size + 16, '\xCD');
    const int read = operation == "section" ? profile.GetProfileSectionA(s, &buffer[0], size)
                                            : profile.GetProfile(s, k, Pointer(dflt), &buffer[0], size);
    expect(buffer.find_first_not_of('\xCD', size) == npos, "a read wrote behind the buffer");
    const bool readable = operation == "section" ? s && Storable(section) && size >= 2
                                                 : Storable(section) && Storable(key) && Storable(dflt) && size >= 1;
    const std::string due = operation == "section" ? "" : dflt.value_or("").substr(0, std::max(size - 1, 0));
    const std::string put = size == 0 || (operation == "section" && size > 1) ? "" : due + '\0';
    expect(readable || (read == static_cast<int>(due.size()) && buffer.compare(0, put.size(), put) == 0 &&
                        buffer.find_first_not_of('\xCD', put.size()) == npos),
           "a read that can't be served wrote other than the default");
    expect(!readable || operation == "section" || (read < size && buffer[read] == '\0'),
           "the text read isn't ended inside the buffer");
    return expect.text;
}

TEST(RandomInput, NameResolutionKeepsItsBoundsAndInvariants)
{
    const std::vector<std::string> before = Entries(kBase);
    RunInputs(kNameRows, GenerateName, CheckName);
    EXPECT_EQ(before, Entries(kBase));  // resolving alone makes nothing
}

TEST(RandomInput, ProfileMembersKeepTheBufferTheFileAndTheValues)
{
    ScratchDirectory directory(kBase + "RANDOM_PROFILE");
    RunInputs(kProfileRows, GenerateProfile, CheckProfile);
}

} // namespace
