// Randomized bad input over name resolution and the profile members: a fixed seed, a bounded
// count and time, and invariants that every input must keep. The inputs in tests/badinput/cases
// (each broke one once, or lies at a limit) are replayed before the generated ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <random>

#include "FileChecks.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";
constexpr unsigned kSeed = 20261123;
constexpr DWORD kTimeBudgetMs = 6000;  // per target, so that a run stays short on both builds
constexpr int kMaxInputs = 100000;
constexpr size_t kLongestProfileText = 32766;  // what the profile service stores intact
constexpr auto npos = std::string::npos;
using Text = std::optional<std::string>;

// An input in the form of a case file: "field=text" lines and "#" comments. "<null>", or a field
// left out, is the null pointer; in a text "\xHH" is a byte and "c\[N]" N times the character c.
class Input {
public:
    explicit Input(const std::string& lines)
    {
        for (const std::string& line : SplitLines(lines))
            if (line.find('=') != npos && line[0] != '#')
                m_fields[line.substr(0, line.find('='))] = Decode(line.substr(line.find('=') + 1));
    }
    const Text& Of(const std::string& name) const { return m_fields[name]; }  // a field left out: null
    const char* Pointer(const std::string& name) const { return Of(name) ? Of(name)->c_str() : nullptr; }
    std::string Field(const std::string& name) const { return Of(name).value_or(""); }
    unsigned long long Number(const std::string& name, int base = 10) const
    {
        return Field(name).empty() ? 0 : std::stoull(Field(name), nullptr, base);
    }

private:
    static Text Decode(const std::string& encoded)
    {
        if (encoded == "<null>")
            return std::nullopt;
        std::string text;
        for (size_t index = 0; index < encoded.size(); ++index) {
            if (encoded.compare(index, 2, "\\x") == 0) {
                text += static_cast<char>(std::stoi(encoded.substr(index + 2, 2), nullptr, 16));
                index += 3;
            } else if (encoded.compare(index, 2, "\\[") == 0) {
                const size_t end = encoded.find(']', index);
                text.append(std::stoul(encoded.substr(index + 2, end - index - 2)) - 1, text.back());
                index = end;
            } else {
                text += encoded[index];
            }
        }
        return text;
    }

    mutable std::map<std::string, Text> m_fields;
};

// The stored cases of target, each named by a "case=" line of its own.
std::vector<std::string> CasesOf(const std::string& target)
{
    std::vector<std::string> cases;
    for (const std::string& name : Entries(KOVRA_BADINPUT_CASES)) {
        const std::string lines = ReadFileBytes(KOVRA_BADINPUT_CASES "/" + name);
        if (Input(lines).Field("target") == target)
            cases.push_back("case=" + name + "\n" + lines);
    }
    EXPECT_FALSE(cases.empty()) << "no " << target << " case in " KOVRA_BADINPUT_CASES;
    return cases;
}

// ---- the run: a failed invariant names its input; a crash prints it before the process ends

std::string g_currentInput;

LONG WINAPI PrintInputOfCrash(EXCEPTION_POINTERS* exception)
{
    std::fprintf(stderr, "crash %08lx on the input:\n%s", exception->ExceptionRecord->ExceptionCode,
                 g_currentInput.c_str());
    std::fflush(stderr);
    return EXCEPTION_EXECUTE_HANDLER;
}

struct Problems {  // the broken invariants of one input, a line each
    std::string text;
    void operator()(bool holds, const std::string& what) { text += holds ? "" : "  " + what + "\n"; }
};

// Checks the stored cases of target, then generated inputs until the time or count is spent;
// at most three failures are reported, each with its input.
void RunInputs(const std::string& target, std::string (*generate)(std::mt19937&), std::string (*check)(const Input&))
{
    ::SetUnhandledExceptionFilter(&PrintInputOfCrash);
    int failures = 0;
    auto runOne = [&](const std::string& lines) {
        g_currentInput = lines;
        const std::string problems = check(Input(lines));
        if (!problems.empty() && ++failures <= 3)
            ADD_FAILURE() << problems << "keep the input as a case (tests/badinput/cases):\n" << g_currentInput;
    };
    for (const std::string& stored : CasesOf(target))
        runOne(stored);
    std::mt19937 random(kSeed);
    const DWORD start = ::GetTickCount();
    int count = 0;
    for (; count < kMaxInputs && ::GetTickCount() - start < kTimeBudgetMs && failures < 3; ++count)
        runOne("target=" + target + "\n" + generate(random));
    std::printf("%s: seed %u, %d generated inputs in %lu ms\n", target.c_str(), kSeed, count,
                ::GetTickCount() - start);
}

// ---- generated inputs, written as case files are

size_t Pick(std::mt19937& random, size_t count) { return random() % count; }

// Up to six pieces, now and then a run of 'N' whose length lies at a limit that matters; one
// time in oneIn (if not 0) the null pointer.
std::string RandomText(std::mt19937& random, const std::vector<std::string>& pieces, const std::vector<size_t>& limits,
                       size_t oneIn = 0)
{
    std::string text;
    for (size_t count = Pick(random, 7); count > 0; --count) {
        if (Pick(random, 6) == 0) {
            const size_t length = limits[Pick(random, limits.size())] + Pick(random, 3);
            text += length > 1 ? "N\\[" + std::to_string(length) + "]" : std::string(length, 'N');
        } else {
            text += pieces[Pick(random, pieces.size())];
        }
    }
    return oneIn && Pick(random, oneIn) == 0 ? "<null>" : text;
}

// Type names, buffers, paths; texts of the profile service.
const std::vector<size_t> kPathLimits = {0, 1, 35, 36, 127, 128, 240, 250, 252, 253, 258, 259, 260, 261, 4096};
const std::vector<size_t> kProfileLimits = {0, 1, 126, 127, 128, 316, 32765, 32766, 32767, 32768, 65536};

std::string GenerateName(std::mt19937& random)
{
    static const std::vector<std::string> pieces = {
        "A", "F.TXT", "SUB\\", "..\\", "\\..\\", "\\", "\\\\", ".", "%Y", "%y", "%M", "%D", "%T", "%", "%%", ":",
        "C:\\", "*", "?", " ", "~", "\\xE4\\xFF", "\\x7F", "\\x01", "CLIENTS\\", "\\x09", "%s%n"};
    static const std::vector<std::string> types = {"DFT", "XWS", "T_BASE", "T_USER", "T_WKSTA", "T_CLIENT",
                                                   "T_MODULECLIENT", "T_BASEREADONLY", "", "t_base", "T\\[35]",
                                                   "T\\[36]", "T\\[4096]", "<null>"};
    std::string lines = "type=";
    lines += Pick(random, 4) ? types[Pick(random, types.size())] : RandomText(random, pieces, kPathLimits);
    lines += "\nname=" + RandomText(random, pieces, kPathLimits);
    lines += "\nflags=" + std::to_string(Pick(random, 4));
    for (const char* field : {"user", "client", "module"})
        lines += "\n" + std::string(field) + "=" + RandomText(random, pieces, kPathLimits, 4);
    return lines + "\n";
}

std::string GenerateProfile(std::mt19937& random)
{
    static const std::vector<std::string> pieces = {"S", "K", "v", "A", "X", "=", "[", "]", ";", " ", "\"", "\\x0D",
                                                    "\\x0A", "\\x09", "\\x01", "\\xFF", "%s", "0", "-"};
    static const std::vector<std::string> operations = {"text", "long", "ulong", "double", "section"};
    static const double specials[] = {1e200, -1e-300, DBL_MAX, -DBL_MAX, DBL_MIN, 0.0, -0.0, 2.5, 1e121, 1e120,
                                      -1e127, HUGE_VAL, -HUGE_VAL, NAN};
    std::string lines = "operation=" + operations[Pick(random, operations.size())];
    lines += "\nsection=" + (Pick(random, 2) ? "S" : RandomText(random, pieces, kProfileLimits, 8));
    lines += "\nkey=" + (Pick(random, 2) ? "K" : RandomText(random, pieces, kProfileLimits, 8));
    lines += "\nvalue=" + RandomText(random, pieces, kProfileLimits, 8);
    lines += "\ndefault=" + RandomText(random, pieces, kProfileLimits, 4);
    lines += "\nsize=" + std::to_string(Pick(random, 3) ? Pick(random, 4) : Pick(random, 400));
    // 64 random bits (tiny, huge, integral or not a number), or a double that has been trouble.
    uint64_t bits = uint64_t{random()} << 32 | random();
    if (Pick(random, 2))
        std::memcpy(&bits, &specials[Pick(random, std::size(specials))], sizeof bits);
    char text[24];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(bits));
    return lines + "\nbits=" + text + "\n";
}

// ---- invariants of name resolution

// Resolves in a session of its own, so that the input alone decides the identity.
std::string CheckName(const Input& input)
{
    static uintptr_t sessionValue = 0x5E550000;
    void* session = reinterpret_cast<void*>(++sessionValue);
    CKovra::StartSession(session);
    CKovra::StartThread(session, ::GetCurrentThreadId());
    const std::pair<const char*, int (*)(const char*, int)> setters[] = {
        {"user", &CKovra::SetUser}, {"client", &CKovra::SetClient}, {"module", &CKovra::SetModulePath}};
    for (const auto& setter : setters)
        if (input.Of(setter.first))
            setter.second(input.Pointer(setter.first), 0);

    Problems expect;
    const std::string name = input.Field("name");
    const int flags = static_cast<int>(input.Number("flags"));
    CKovra file("T_BASE", "EARLIER.TXT");
    const std::string earlier = file.GetRealFileName();
    const int result = file.Open(input.Pointer("type"), name.c_str(), KOVRA_RESOLVE_ONLY, nullptr, flags);
    const std::string real(file.GetRealFileName(), strnlen(file.GetRealFileName(), 300));
    const int cause = CauseOf(file);
    expect(real.size() <= 259 && strnlen(file.GetFileName(), 300) <= 259, "a path has more than 259 characters");
    expect(result == 1 ? cause == 0 : cause == -1 || cause == -2,
           "the answer " + std::to_string(result) + " recorded " + std::to_string(cause));
    expect(cause != -1 || real == earlier, "an unknown type changed the earlier path");
    expect(cause != -2 || real.empty(), "a name too long left the object naming " + real);

    // The base location joins the base path and the name, and refuses what doesn't fit.
    const Text& type = input.Of("type");
    if (type && (*type == "T_BASE" || *type == "DFT" || type->empty()) && !(flags & 1) &&
        name.find_first_of(":%") == npos && name.compare(0, 2, "\\\\") != 0 && (kBase + name).find("\\..\\") == npos) {
        std::string joined = kBase + name;
        const bool fits = joined.size() <= 259;
        if (joined.back() == '\\')
            joined.pop_back();
        expect(fits ? result == 1 && real == joined : cause == -2, "the base location gave " + real);
    }
    // A resolved path without date fields or parent references resolves to itself.
    if (result == 1 && real.find('%') == npos && real.find("\\..\\") == npos && (real.empty() || real.back() != '\\')) {
        CKovra again;
        expect(again.Open(input.Pointer("type"), real.c_str(), KOVRA_RESOLVE_ONLY, nullptr, 1) == 1 &&
                   again.GetRealFileName() == real,
               "the real path doesn't resolve to itself");
    }
    CKovra::RemoveThread(session, ::GetCurrentThreadId());
    CKovra::RemoveSession(session);
    return expect.text;
}

// ---- invariants of the profile members

bool Storable(const Text& text) { return !text || text->size() <= kLongestProfileText; }

// A text that the profile service reads back as it was written.
bool Plain(const Text& text)
{
    return text && Storable(text) && std::all_of(text->begin(), text->end(), [](char c) {
               return c > 0x20 && c < 0x7F && !std::strchr("[]=;\"'", c);
           });
}

// The text that the double overload stores: "%lf" while a numeric read takes it whole (127
// characters), else the shortest text that reads back as the same value.
std::string StoredDouble(double value)
{
    char text[400];
    if (std::snprintf(text, sizeof text, "%lf", value) <= 127)
        return text;
    for (int digits = 1; digits <= 17; ++digits)  // 17 significant digits always read back as written
        if (std::snprintf(text, sizeof text, "%.*g", digits, value) > 0 && std::strtod(text, nullptr) == value)
            break;
    return text;
}

std::string CheckProfile(const Input& input)
{
    static const std::string kProfile = "[A]\r\nX=1\r\n[S]\r\nK=old\r\n", path = kBase + "RANDOM_PROFILE\\P.INI";
    WriteFileBytes(path, kProfile);
    CKovra profile("T_BASE", "RANDOM_PROFILE\\P.INI", KOVRA_RESOLVE_ONLY);
    const Text &section = input.Of("section"), &key = input.Of("key"), &value = input.Of("value");
    const char *s = input.Pointer("section"), *k = input.Pointer("key"), *v = input.Pointer("value");
    // The numbers are the input's 64 bits: a double, a long of the low 32, an unsigned long of the high 32.
    const uint64_t bits = input.Number("bits", 16);
    double number;
    std::memcpy(&number, &bits, sizeof number);
    const long low = static_cast<int32_t>(bits);
    const unsigned long high = static_cast<unsigned long>(bits >> 32);
    const std::string operation = input.Field("operation");
    const std::string lines = value.value_or("") + std::string(2, '\0');  // for a section: one line, ended twice
    const int written = operation == "text"     ? profile.WriteProfile(s, k, v)
                        : operation == "long"   ? profile.WriteProfile(s, k, low)
                        : operation == "ulong"  ? profile.WriteProfile(s, k, high)
                        : operation == "double" ? profile.WriteProfile(s, k, number)
                                                : profile.WriteProfileSectionA(s, v ? lines.c_str() : nullptr);

    Problems expect;
    const bool changed = ReadFileBytes(path) != kProfile;
    expect(written || !changed, "a write that answered 0 changed the file");
    const bool storable =
        Storable(section) && (operation == "section" || Storable(key)) && (operation != "text" || Storable(value));
    expect(storable || !written, "a text longer than the profile service stores was written");
    const bool plainNames = Plain(section) && Plain(key) && !section->empty() && !key->empty();
    std::string back(std::max<size_t>(value ? value->size() + 1 : 0, 400), '#');
    const int backSize = static_cast<int>(back.size());
    if (operation == "text") {
        expect(s || !changed, "a write without a section changed the file");
        if (plainNames && Plain(value)) {  // written and read back whole, up to the longest text stored
            const int read = written ? profile.GetProfile(s, k, "", &back[0], backSize) : -1;
            const std::string text = back.c_str();
            expect(read == static_cast<int>(value->size()) && text == *value,
                   "the text read back is " + text.substr(0, 80));
        }
    } else if (operation != "section") {
        expect((s && k) || (!written && !changed), "a number without a section and key was written");
        expect((Storable(section) && Storable(key)) || profile.GetProfile(s, k, 7L) == 7,
               "a number read under a name too long gave no default");
        if (written && plainNames) {
            expect(operation != "long" || profile.GetProfile(s, k, 7L) == low, "the long read back differs");
            expect(operation != "ulong" || profile.GetProfile(s, k, 7UL) == high, "the unsigned read back differs");
        }
        if (written && plainNames && operation == "double") {
            const std::string stored = StoredDouble(number);
            const double expected = std::strtod(stored.c_str(), nullptr), read = profile.GetProfile(s, k, 7.0);
            profile.GetProfile(s, k, "", &back[0], backSize);
            const std::string text = back.c_str();
            // How "inf" and "nan" are spelt is the run-time library's matter: only their reading counts.
            expect(!std::isfinite(number) || text == stored, "the double is stored as " + text);
            expect((std::isnan(expected) && std::isnan(read)) ||
                       (expected == read && std::signbit(expected) == std::signbit(read)),
                   "the double read back differs");
        }
    }

    // Reads stay inside the caller's buffer. One the service can't serve writes the default cut to
    // the buffer (a section read: the empty list's first NUL into a buffer of one byte).
    const int size = static_cast<int>(input.Number("size"));
    std::string buffer(size + 16, '\xCD');
    const int read = operation == "section" ? profile.GetProfileSectionA(s, &buffer[0], size)
                                            : profile.GetProfile(s, k, input.Pointer("default"), &buffer[0], size);
    expect(buffer.find_first_not_of('\xCD', size) == npos, "a read wrote behind the buffer");
    const bool readable = operation == "section"
                              ? s && Storable(section) && size >= 2
                              : Storable(section) && Storable(key) && Storable(input.Of("default")) && size >= 1;
    const std::string due = operation == "section" ? "" : input.Field("default").substr(0, std::max(size - 1, 0));
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
    RunInputs("resolve", GenerateName, CheckName);
    EXPECT_EQ(before, Entries(kBase));  // resolving alone makes nothing
}

TEST(RandomInput, ProfileMembersKeepTheBufferTheFileAndTheValues)
{
    ScratchDirectory directory(kBase + "RANDOM_PROFILE");
    RunInputs("profile", GenerateProfile, CheckProfile);
}

} // namespace
