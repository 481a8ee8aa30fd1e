// Randomized bad input over name resolution and the profile members: a fixed seed, a
// bounded time, and invariants that every input must keep. Every input that ever broke
// one lies in tests/badinput/cases and is replayed before the random ones.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
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

// An input: named texts, each of them possibly a null pointer.
using Text = std::optional<std::string>;
using Input = std::map<std::string, Text>;

// ---- the case-file form: "field=text" lines, "#" comments, "<null>" for a null pointer,
// \\ \xHH escapes, and c\[N] for N times the character c.

std::string Encode(const Text& text)
{
    if (!text)
        return "<null>";
    std::string encoded;
    for (size_t index = 0; index < text->size();) {
        const unsigned char c = static_cast<unsigned char>((*text)[index]);
        size_t run = 1;
        while (index + run < text->size() && (*text)[index + run] == (*text)[index])
            ++run;
        if (c == '\\') {
            encoded += "\\\\";
        } else if (c < 0x20 || c >= 0x7F || (c == '<' && index == 0)) {  // "<null>" stays the null pointer
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
            encoded += escaped;
        } else {
            encoded += static_cast<char>(c);
        }
        if (run >= 8)
            encoded += "\\[" + std::to_string(run) + "]";
        else
            run = 1;
        index += run;
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
            size_t end = encoded.find(']', index);
            text.append(std::stoul(encoded.substr(index + 2, end - index - 2)) - 1, text.back());
            index = end;
        } else {
            text += encoded[++index];
        }
    }
    return text;
}

std::string Describe(const Input& input)
{
    std::string lines;
    for (const auto& field : input)
        lines += field.first + "=" + Encode(field.second) + "\n";
    return lines;
}

std::vector<Input> CasesOf(const std::string& target)
{
    std::vector<Input> cases;
    WIN32_FIND_DATAA entry;
    HANDLE search = ::FindFirstFileA(KOVRA_BADINPUT_CASES "/*.txt", &entry);
    EXPECT_NE(INVALID_HANDLE_VALUE, search) << "no case files in " KOVRA_BADINPUT_CASES;
    if (search == INVALID_HANDLE_VALUE)
        return cases;
    do {
        std::ifstream file(std::string(KOVRA_BADINPUT_CASES "/") + entry.cFileName, std::ios::binary);
        Input input;
        for (std::string line; std::getline(file, line);) {
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            size_t equals = line.find('=');
            if (!line.empty() && line[0] != '#' && equals != std::string::npos)
                input[line.substr(0, equals)] = Decode(line.substr(equals + 1));
        }
        input["case"] = entry.cFileName;
        if (input["target"] == target)
            cases.push_back(input);
    } while (::FindNextFileA(search, &entry));
    ::FindClose(search);
    return cases;
}

// ---- reporting: a failed invariant names its input; a crash prints it before the process ends

std::string g_currentInput;

LONG WINAPI PrintInputOfCrash(EXCEPTION_POINTERS* exception)
{
    std::fprintf(stderr, "crash %08lx on the input:\n%s", exception->ExceptionRecord->ExceptionCode,
                 g_currentInput.c_str());
    std::fflush(stderr);
    return EXCEPTION_EXECUTE_HANDLER;
}

class Problems {
public:
    void Expect(bool holds, const std::string& what)
    {
        if (!holds)
            m_text += "  " + what + "\n";
    }
    const std::string& Text() const { return m_text; }

private:
    std::string m_text;
};

// A field of the input; a field that a case file leaves out is a null pointer.
Text Of(const Input& input, const char* name)
{
    auto found = input.find(name);
    return found != input.end() ? found->second : std::nullopt;
}

std::string Field(const Input& input, const char* name)
{
    return Of(input, name).value_or("");
}

int IntegerOf(const Input& input, const char* name)
{
    const std::string text = Field(input, name);
    return text.empty() ? 0 : std::stoi(text);
}

const char* Pointer(const Text& text)
{
    return text ? text->c_str() : nullptr;
}

// Runs check on the stored cases of target, then on generated inputs until the time or
// input budget is spent; at most a few failures are reported, each with its input.
void RunInputs(const std::string& target, const std::function<Input(std::mt19937&)>& generate,
               const std::function<std::string(const Input&)>& check)
{
    ::SetUnhandledExceptionFilter(&PrintInputOfCrash);
    int failures = 0;
    auto runOne = [&](Input input) {
        input["target"] = target;
        g_currentInput = Describe(input);
        std::string problems = check(input);
        if (!problems.empty() && ++failures <= 3)
            ADD_FAILURE() << problems << "keep the input as a case (tests/badinput/cases):\n" << g_currentInput;
    };
    for (const Input& stored : CasesOf(target))
        runOne(stored);
    std::mt19937 random(kSeed);
    const DWORD start = ::GetTickCount();
    int count = 0;
    while (count < kMaxInputs && ::GetTickCount() - start < kTimeBudgetMs && failures < 3) {
        runOne(generate(random));
        ++count;
    }
    std::printf("%s: seed %u, %d generated inputs in %lu ms\n", target.c_str(), kSeed, count,
                ::GetTickCount() - start);
}

// ---- generators

size_t Pick(std::mt19937& random, size_t count)
{
    return random() % count;
}

// Lengths around the borders that matter: type names, buffers, paths and the profile service.
size_t InterestingLength(std::mt19937& random, bool profile)
{
    static const size_t path[] = {0, 1, 35, 36, 127, 128, 240, 250, 252, 253, 258, 259, 260, 261, 4096};
    static const size_t text[] = {0, 1, 126, 127, 128, 316, 32765, 32766, 32767, 32768, 65536};
    return profile ? text[Pick(random, std::size(text))] : path[Pick(random, std::size(path))];
}

std::string Pieces(std::mt19937& random, const std::vector<std::string>& pieces, bool profile)
{
    std::string text;
    for (size_t count = Pick(random, 7); count > 0; --count) {
        if (Pick(random, 6) == 0)
            text.append(InterestingLength(random, profile) + Pick(random, 3), 'N');
        else
            text += pieces[Pick(random, pieces.size())];
    }
    return text;
}

Text MaybeNull(std::mt19937& random, Text text, size_t oneIn)
{
    return Pick(random, oneIn) == 0 ? std::nullopt : text;
}

Input GenerateName(std::mt19937& random)
{
    static const std::vector<std::string> pieces = {
        "A",  "F.TXT", "SUB\\", "..\\", "\\..\\", "\\",  "\\\\", ".",   "%Y",     "%y",  "%M", "%D",    "%T",
        "%",  "%%",    ":",     "C:\\", "*",      "?",   " ",    "~",   "\xE4\xFF", "\x7F", "\x01", "CLIENTS\\",
        "\t", "%s%n"};
    static const std::vector<std::string> types = {"DFT",     "XWS",      "T_BASE",  "T_USER",         "T_WKSTA",
                                                   "T_CLIENT", "T_MODULECLIENT", "T_BASEREADONLY", "",  "t_base",
                                                   std::string(35, 'T'), std::string(36, 'T'), std::string(4096, 'T')};
    Input input;
    const std::string type = Pick(random, 4) ? types[Pick(random, types.size())] : Pieces(random, pieces, false);
    input["type"] = MaybeNull(random, type, 20);
    input["name"] = Pieces(random, pieces, false);
    input["flags"] = std::to_string(Pick(random, 4));
    input["user"] = MaybeNull(random, Pieces(random, pieces, false), 4);
    input["client"] = MaybeNull(random, Pieces(random, pieces, false), 4);
    input["module"] = MaybeNull(random, Pieces(random, pieces, false), 4);
    return input;
}

Input GenerateProfile(std::mt19937& random)
{
    static const std::vector<std::string> pieces = {"S", "K", "v", "A", "X", "=", "[", "]", ";", " ", "\"",
                                                    "\r", "\n", "\t", "\x01", "\xFF", "%s", "0", "-"};
    static const char* const operations[] = {"text", "long", "ulong", "double", "section"};
    Input input;
    input["operation"] = operations[Pick(random, std::size(operations))];
    input["section"] = MaybeNull(random, Pick(random, 2) ? "S" : Pieces(random, pieces, true), 8);
    input["key"] = MaybeNull(random, Pick(random, 2) ? "K" : Pieces(random, pieces, true), 8);
    input["value"] = MaybeNull(random, Pieces(random, pieces, true), 8);
    input["default"] = MaybeNull(random, Pieces(random, pieces, true), 4);
    input["size"] = std::to_string(Pick(random, 3) ? Pick(random, 4) : Pick(random, 400));
    static const double specials[] = {1e200, -1e-300, DBL_MAX, -DBL_MAX, DBL_MIN, 0.0, -0.0, 2.5, 1e121, 1e120,
                                      -1e127, HUGE_VAL, -HUGE_VAL, NAN};
    uint64_t bits = (static_cast<uint64_t>(random()) << 32) | random();  // tiny, huge, integral, not a number
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
    if (Of(input, "user"))
        CKovra::SetUser(Pointer(Of(input, "user")));
    if (Of(input, "client"))
        CKovra::SetClient(Pointer(Of(input, "client")));
    if (Of(input, "module"))
        CKovra::SetModulePath(Pointer(Of(input, "module")));

    Problems problems;
    const std::string name = Field(input, "name");
    const int flags = IntegerOf(input, "flags");
    CKovra file("T_BASE", "EARLIER.TXT");
    const std::string earlier = file.GetRealFileName();
    const int result = file.Open(Pointer(Of(input, "type")), name.c_str(), KOVRA_RESOLVE_ONLY, nullptr, flags);
    const std::string real(file.GetRealFileName(), strnlen(file.GetRealFileName(), 300));
    problems.Expect(real.size() <= 259, "the real path has more than 259 characters");
    problems.Expect(strnlen(file.GetFileName(), 300) <= 259, "the file name has more than 259 characters");
    const int cause = CauseOf(file);
    if (result == 1) {
        problems.Expect(cause == 0, "a resolved name recorded " + std::to_string(cause));
    } else {
        problems.Expect(cause == -1 || cause == -2, "a refused name recorded " + std::to_string(cause));
        problems.Expect(cause != -1 || real == earlier, "an unknown type changed the earlier path");
        problems.Expect(cause != -2 || real.empty(), "a name too long left the object naming " + real);
    }

    // The base location joins the base path and the name, and refuses what doesn't fit.
    const Text type = Of(input, "type");
    const bool plainBaseName = type && (*type == "T_BASE" || *type == "DFT" || type->empty()) && !(flags & 1) &&
                               name.find_first_of(":%") == std::string::npos && name.compare(0, 2, "\\\\") != 0 &&
                               (kBase + name).find("\\..\\") == std::string::npos;
    if (plainBaseName) {
        std::string joined = kBase + name;
        const bool fits = joined.size() <= 259;
        if (!joined.empty() && joined.back() == '\\')
            joined.pop_back();
        problems.Expect(fits ? (result == 1 && real == joined) : cause == -2, "the base location gave " + real);
    }
    // A resolved path without date fields or parent references resolves to itself.
    if (result == 1 && real.find('%') == std::string::npos && real.find("\\..\\") == std::string::npos &&
        (real.empty() || real.back() != '\\')) {
        CKovra again;
        problems.Expect(again.Open(Pointer(type), real.c_str(), KOVRA_RESOLVE_ONLY, nullptr, 1) == 1 &&
                            again.GetRealFileName() == real,
                        "the real path doesn't resolve to itself");
    }
    CKovra::RemoveThread(session, ::GetCurrentThreadId());
    CKovra::RemoveSession(session);
    return problems.Text();
}

// ---- invariants of the profile members

const std::string kProfile = "[A]\r\nX=1\r\n[S]\r\nK=old\r\n";

bool Storable(const Text& text)
{
    return !text || text->size() <= kLongestProfileText;
}

// A section, key and value that the profile service reads back as they were written.
bool Plain(const Text& text, bool mayBeEmpty)
{
    if (!text || (!mayBeEmpty && text->empty()) || !Storable(text))
        return false;
    for (char c : *text)
        if (c < 0x21 || c > 0x7E || std::strchr("[]=;\"'", c))
            return false;
    return true;
}

// A buffer of size bytes followed by a guard; both start filled with one byte value.
class GuardedBuffer {
public:
    explicit GuardedBuffer(size_t size) : m_size(size), m_bytes(size + kGuard, '\xCD') {}
    char* Data() { return &m_bytes[0]; }
    bool GuardIntact() const { return m_bytes.find_first_not_of('\xCD', m_size) == std::string::npos; }
    bool Untouched() const { return m_bytes.find_first_not_of('\xCD') == std::string::npos; }

private:
    static constexpr size_t kGuard = 16;
    size_t m_size;
    std::string m_bytes;
};

// The numbers of an input: a double of all 64 bits, a long of the low 32, an unsigned long of the high 32.
uint64_t BitsOf(const Input& input)
{
    const std::string text = Field(input, "bits");
    return text.empty() ? 0 : std::stoull(text, nullptr, 16);
}

double DoubleOf(const Input& input)
{
    const uint64_t bits = BitsOf(input);
    double number;
    std::memcpy(&number, &bits, sizeof number);
    return number;
}

long LongOf(const Input& input)
{
    return static_cast<long>(static_cast<int32_t>(BitsOf(input)));
}

unsigned long UnsignedOf(const Input& input)
{
    return static_cast<unsigned long>(BitsOf(input) >> 32);
}

// What the double overload reads back: the number of its "%lf" text when a numeric read
// takes that text whole, otherwise the value itself.
double DoubleReadBack(double value)
{
    char text[512];
    int length = std::snprintf(text, sizeof text, "%lf", value);
    return length <= 127 ? std::strtod(text, nullptr) : value;
}

bool SameDouble(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || (a == b && std::signbit(a) == std::signbit(b));
}

std::string CheckProfile(const Input& input)
{
    static const std::string path = kBase + "RANDOM_PROFILE\\P.INI";
    WriteFileBytes(path, kProfile);
    CKovra profile("T_BASE", "RANDOM_PROFILE\\P.INI", KOVRA_RESOLVE_ONLY);
    Problems problems;
    const Text section = Of(input, "section"), key = Of(input, "key"), value = Of(input, "value");
    const std::string operation = Field(input, "operation");
    const bool named = section && key;
    int written = 0;
    if (operation == "text")
        written = profile.WriteProfile(Pointer(section), Pointer(key), Pointer(value));
    else if (operation == "long")
        written = profile.WriteProfile(Pointer(section), Pointer(key), LongOf(input));
    else if (operation == "ulong")
        written = profile.WriteProfile(Pointer(section), Pointer(key), UnsignedOf(input));
    else if (operation == "double")
        written = profile.WriteProfile(Pointer(section), Pointer(key), DoubleOf(input));
    else if (operation == "section")
        written = profile.WriteProfileSectionA(Pointer(section), value ? (*value + '\0' + '\0').c_str() : nullptr);
    const bool changed = ReadFileBytes(path) != kProfile;
    problems.Expect(written || !changed, "a write that answered 0 changed the file");

    const bool storable = Storable(section) && (operation == "section" || Storable(key)) &&
                          (operation != "text" || Storable(value));
    problems.Expect(storable || !written, "a text longer than the profile service stores was written");
    if (operation == "text") {
        problems.Expect(section || !changed, "a write without a section changed the file");
        if (Plain(section, false) && Plain(key, false) && Plain(value, true) && written) {
            char back[64];
            profile.GetProfile(Pointer(section), Pointer(key), "<default>", back, sizeof back);
            problems.Expect(value->size() >= sizeof back || back == *value,
                            "the text read back is " + std::string(back));
        }
    } else if (operation != "section") {
        problems.Expect(named || (!written && !changed), "a number without a section and key was written");
        if (named && written && Plain(section, false) && Plain(key, false)) {
            const char *s = Pointer(section), *k = Pointer(key);
            if (operation == "long")
                problems.Expect(profile.GetProfile(s, k, 7L) == LongOf(input), "the long read back differs");
            else if (operation == "ulong")
                problems.Expect(profile.GetProfile(s, k, 7UL) == UnsignedOf(input), "the unsigned read back differs");
            else
                problems.Expect(SameDouble(DoubleReadBack(DoubleOf(input)), profile.GetProfile(s, k, 7.0)),
                                "the double read back differs");
        }
    }

    // Reads stay inside the caller's buffer; texts the service can't take leave it untouched.
    const int size = IntegerOf(input, "size");
    GuardedBuffer buffer(static_cast<size_t>(size));
    const Text defaultText = Of(input, "default");
    const int read = operation == "section"
                         ? profile.GetProfileSectionA(Pointer(section), buffer.Data(), size)
                         : profile.GetProfile(Pointer(section), Pointer(key), Pointer(defaultText), buffer.Data(),
                                              size);
    problems.Expect(buffer.GuardIntact(), "a read wrote behind the buffer");
    const bool readable = operation == "section"
                              ? section && Storable(section) && size >= 2
                              : Storable(section) && Storable(key) && Storable(defaultText) && size >= 1;
    problems.Expect(readable || (read == 0 && buffer.Untouched()), "a read that can't be served changed the buffer");
    if (readable && operation != "section")
        problems.Expect(read < size && buffer.Data()[read] == '\0', "the text read isn't ended inside the buffer");
    return problems.Text();
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
