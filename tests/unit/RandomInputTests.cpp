// Randomized bad input over name resolution and the profile members: a fixed seed, a bounded
// count and time, and invariants that every input must keep. Every input that ever broke one
// lies in tests/badinput/cases and is replayed before the generated ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

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

// An input: named texts, each possibly a null pointer; a field that a case file leaves out is one.
using Text = std::optional<std::string>;
struct Input : std::map<std::string, Text> {
    const Text& Of(const std::string& name) const
    {
        static const Text none;
        const auto found = find(name);
        return found != end() ? found->second : none;
    }
    const char* Pointer(const std::string& name) const { return Of(name) ? Of(name)->c_str() : nullptr; }
    std::string Field(const std::string& name) const { return Of(name).value_or(""); }
    unsigned long long Number(const std::string& name, int base = 10) const
    {
        return Field(name).empty() ? 0 : std::stoull(Field(name), nullptr, base);
    }
};

// ---- case files: "field=text" lines and "#" comments; "<null>" is the null pointer, a text
// escapes "\\" and "\xHH", and "c\[N]" stands for N times the character c.

std::string Encode(const Text& text)
{
    if (!text)
        return "<null>";
    std::string encoded;
    for (size_t index = 0, run = 1; index < text->size(); index += run) {
        const char c = (*text)[index];
        // A leading '<' is escaped so that "<null>" stays the null pointer.
        const bool plain = c >= 0x20 && c < 0x7F && c != '\\' && (c != '<' || index > 0);
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, plain ? "%c" : c == '\\' ? "\\\\" : "\\x%02X",
                      static_cast<unsigned char>(c));
        encoded += escaped;
        run = std::min(text->find_first_not_of(c, index), text->size()) - index;
        if (run >= 8)
            encoded += "\\[" + std::to_string(run) + "]";
        else
            run = 1;
    }
    return encoded;
}

Text Decode(const std::string& encoded)
{
    if (encoded == "<null>")
        return std::nullopt;
    std::string text;
    for (size_t index = 0; index < encoded.size(); ++index) {
        if (encoded[index] != '\\' || index + 1 == encoded.size()) {
            text += encoded[index];
        } else if (encoded[index + 1] == 'x') {
            text += static_cast<char>(std::stoi(encoded.substr(index + 2, 2), nullptr, 16));
            index += 3;
        } else if (encoded[index + 1] == '[') {
            const size_t end = encoded.find(']', index);
            text.append(std::stoul(encoded.substr(index + 2, end - index - 2)) - 1, text.back());
            index = end;
        } else {
            text += encoded[++index];
        }
    }
    return text;
}

std::vector<Input> CasesOf(const std::string& target)
{
    std::vector<Input> cases;
    WIN32_FIND_DATAA entry;
    HANDLE search = ::FindFirstFileA(KOVRA_BADINPUT_CASES "/*.txt", &entry);
    EXPECT_NE(INVALID_HANDLE_VALUE, search) << "no case files in " KOVRA_BADINPUT_CASES;
    for (BOOL more = search != INVALID_HANDLE_VALUE; more; more = ::FindNextFileA(search, &entry)) {
        std::ifstream file(std::string(KOVRA_BADINPUT_CASES "/") + entry.cFileName, std::ios::binary);
        Input input;
        for (std::string line; std::getline(file, line);) {
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            const size_t equals = line.find('=');
            if (equals != npos && line[0] != '#')
                input[line.substr(0, equals)] = Decode(line.substr(equals + 1));
        }
        input["case"] = entry.cFileName;
        if (input.Field("target") == target)
            cases.push_back(input);
    }
    if (search != INVALID_HANDLE_VALUE)
        ::FindClose(search);
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

// The broken invariants of one input, a line each.
struct Problems {
    std::string text;
    void operator()(bool holds, const std::string& what)
    {
        if (!holds)
            text += "  " + what + "\n";
    }
};

// Checks the stored cases of target, then generated inputs until the time or count is spent;
// at most three failures are reported, each with its input in the case-file form.
void RunInputs(const std::string& target, Input (*generate)(std::mt19937&), std::string (*check)(const Input&))
{
    ::SetUnhandledExceptionFilter(&PrintInputOfCrash);
    int failures = 0;
    auto runOne = [&](Input input) {
        input["target"] = target;
        g_currentInput.clear();
        for (const auto& field : input)
            g_currentInput += field.first + "=" + Encode(field.second) + "\n";
        const std::string problems = check(input);
        if (!problems.empty() && ++failures <= 3)
            ADD_FAILURE() << problems << "keep the input as a case (tests/badinput/cases):\n" << g_currentInput;
    };
    for (const Input& stored : CasesOf(target))
        runOne(stored);
    std::mt19937 random(kSeed);
    const DWORD start = ::GetTickCount();
    int count = 0;
    for (; count < kMaxInputs && ::GetTickCount() - start < kTimeBudgetMs && failures < 3; ++count)
        runOne(generate(random));
    std::printf("%s: seed %u, %d generated inputs in %lu ms\n", target.c_str(), kSeed, count,
                ::GetTickCount() - start);
}

// ---- generated inputs

size_t Pick(std::mt19937& random, size_t count)
{
    return random() % count;
}

// Up to six pieces, now and then a run of 'N' whose length lies at a limit that matters.
std::string RandomText(std::mt19937& random, const std::vector<std::string>& pieces, const std::vector<size_t>& limits)
{
    std::string text;
    for (size_t count = Pick(random, 7); count > 0; --count) {
        if (Pick(random, 6) == 0) {
            const size_t limit = limits[Pick(random, limits.size())];
            text.append(limit + Pick(random, 3), 'N');
        } else {
            text += pieces[Pick(random, pieces.size())];
        }
    }
    return text;
}

Text MaybeNull(std::mt19937& random, Text text, size_t oneIn)
{
    return Pick(random, oneIn) == 0 ? std::nullopt : text;
}

// Type names, buffers, paths; texts of the profile service.
const std::vector<size_t> kPathLimits = {0, 1, 35, 36, 127, 128, 240, 250, 252, 253, 258, 259, 260, 261, 4096};
const std::vector<size_t> kProfileLimits = {0, 1, 126, 127, 128, 316, 32765, 32766, 32767, 32768, 65536};

Input GenerateName(std::mt19937& random)
{
    static const std::vector<std::string> pieces = {
        "A", "F.TXT", "SUB\\", "..\\", "\\..\\", "\\", "\\\\", ".", "%Y", "%y", "%M", "%D", "%T", "%", "%%", ":",
        "C:\\", "*", "?", " ", "~", "\xE4\xFF", "\x7F", "\x01", "CLIENTS\\", "\t", "%s%n"};
    static const std::vector<std::string> types = {
        "DFT", "XWS", "T_BASE", "T_USER", "T_WKSTA", "T_CLIENT", "T_MODULECLIENT", "T_BASEREADONLY", "", "t_base",
        std::string(35, 'T'), std::string(36, 'T'), std::string(4096, 'T')};
    Input input;
    const std::string type =
        Pick(random, 4) ? types[Pick(random, types.size())] : RandomText(random, pieces, kPathLimits);
    input["type"] = MaybeNull(random, type, 20);
    input["name"] = RandomText(random, pieces, kPathLimits);
    input["flags"] = std::to_string(Pick(random, 4));
    for (const char* field : {"user", "client", "module"})
        input[field] = MaybeNull(random, RandomText(random, pieces, kPathLimits), 4);
    return input;
}

Input GenerateProfile(std::mt19937& random)
{
    static const std::vector<std::string> pieces = {"S", "K", "v", "A", "X", "=", "[", "]", ";", " ", "\"",
                                                    "\r", "\n", "\t", "\x01", "\xFF", "%s", "0", "-"};
    static const std::vector<std::string> operations = {"text", "long", "ulong", "double", "section"};
    static const double specials[] = {1e200, -1e-300, DBL_MAX, -DBL_MAX, DBL_MIN, 0.0, -0.0, 2.5, 1e121, 1e120,
                                      -1e127, HUGE_VAL, -HUGE_VAL, NAN};
    Input input;
    input["operation"] = operations[Pick(random, operations.size())];
    input["section"] = MaybeNull(random, Pick(random, 2) ? "S" : RandomText(random, pieces, kProfileLimits), 8);
    input["key"] = MaybeNull(random, Pick(random, 2) ? "K" : RandomText(random, pieces, kProfileLimits), 8);
    input["value"] = MaybeNull(random, RandomText(random, pieces, kProfileLimits), 8);
    input["default"] = MaybeNull(random, RandomText(random, pieces, kProfileLimits), 4);
    input["size"] = std::to_string(Pick(random, 3) ? Pick(random, 4) : Pick(random, 400));
    // 64 random bits (tiny, huge, integral or not a number), or a double that has been trouble.
    uint64_t bits = random();
    bits = bits << 32 | random();
    if (Pick(random, 2))
        std::memcpy(&bits, &specials[Pick(random, std::size(specials))], sizeof bits);
    char text[24];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(bits));
    input["bits"] = text;
    return input;
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
    expect(result == 1 ? cause == 0 : cause == -1 || cause == -2, "the answer " + std::to_string(result) +
                                                                      " recorded " + std::to_string(cause));
    expect(cause != -1 || real == earlier, "an unknown type changed the earlier path");
    expect(cause != -2 || real.empty(), "a name too long left the object naming " + real);

    // The base location joins the base path and the name, and refuses what doesn't fit.
    const Text& type = input.Of("type");
    if (type && (*type == "T_BASE" || *type == "DFT" || type->empty()) && !(flags & 1) &&
        name.find_first_of(":%") == npos && name.compare(0, 2, "\\\\") != 0 &&
        (kBase + name).find("\\..\\") == npos) {
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

bool Storable(const Text& text)
{
    return !text || text->size() <= kLongestProfileText;
}

// A text that the profile service reads back as it was written.
bool Plain(const Text& text)
{
    return text && Storable(text) && std::all_of(text->begin(), text->end(), [](char c) {
               return c > 0x20 && c < 0x7F && !std::strchr("[]=;\"'", c);
           });
}

// What the double overload reads back: the number of its "%lf" text when a numeric read takes
// that text whole (127 characters), otherwise the value itself.
bool ReadsBackAsWritten(double written, double read)
{
    char text[512];
    const double expected = std::snprintf(text, sizeof text, "%lf", written) <= 127 ? std::strtod(text, nullptr) : written;
    return (std::isnan(expected) && std::isnan(read)) || (expected == read && std::signbit(expected) == std::signbit(read));
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
    int written = 0;
    if (operation == "text")
        written = profile.WriteProfile(s, k, v);
    else if (operation == "long")
        written = profile.WriteProfile(s, k, low);
    else if (operation == "ulong")
        written = profile.WriteProfile(s, k, high);
    else if (operation == "double")
        written = profile.WriteProfile(s, k, number);
    else
        written = profile.WriteProfileSectionA(s, v ? (*value + std::string(2, '\0')).c_str() : nullptr);

    Problems expect;
    const bool changed = ReadFileBytes(path) != kProfile;
    expect(written || !changed, "a write that answered 0 changed the file");
    const bool storable =
        Storable(section) && (operation == "section" || Storable(key)) && (operation != "text" || Storable(value));
    expect(storable || !written, "a text longer than the profile service stores was written");
    const bool plainNames = Plain(section) && Plain(key) && !section->empty() && !key->empty();
    if (operation == "text") {
        expect(s || !changed, "a write without a section changed the file");
        if (plainNames && Plain(value)) {  // read back whole, up to the longest text stored
            std::string back(value->size() + 1, '#');
            expect(written && profile.GetProfile(s, k, "<default>", &back[0], static_cast<int>(back.size())) ==
                                  static_cast<int>(value->size()) && back.c_str() == *value,
                   "the text wasn't written, or read back otherwise: " + back.substr(0, 80));
        }
    } else if (operation != "section") {
        expect((s && k) || (!written && !changed), "a number without a section and key was written");
        if (written && plainNames) {
            expect(operation != "long" || profile.GetProfile(s, k, 7L) == low, "the long read back differs");
            expect(operation != "ulong" || profile.GetProfile(s, k, 7UL) == high, "the unsigned read back differs");
            expect(operation != "double" || ReadsBackAsWritten(number, profile.GetProfile(s, k, 7.0)),
                   "the double read back differs");
        }
    }

    // Reads stay inside the caller's buffer; texts the service can't take leave it untouched.
    const int size = static_cast<int>(input.Number("size"));
    std::string buffer(size + 16, '\xCD');
    const int read = operation == "section"
                         ? profile.GetProfileSectionA(s, &buffer[0], size)
                         : profile.GetProfile(s, k, input.Pointer("default"), &buffer[0], size);
    expect(buffer.find_first_not_of('\xCD', size) == npos, "a read wrote behind the buffer");
    const bool readable = operation == "section"
                              ? s && Storable(section) && size >= 2
                              : Storable(section) && Storable(key) && Storable(input.Of("default")) && size >= 1;
    expect(readable || (read == 0 && buffer.find_first_not_of('\xCD') == npos),
           "a read that can't be served changed the buffer");
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
