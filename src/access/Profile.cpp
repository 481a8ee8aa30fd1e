// The resolved file as a private profile (INI file), through the platform's
// private-profile services. Numbers are stored as decimal text.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "file/KovraFileState.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

namespace {

// A numeric read takes at most 127 characters of a value.
constexpr int kNumberTextSize = 128;
// The longest section, key, value or default text that the profile service takes: from
// 32767 characters on it stores garbage or nothing while answering success, or fails.
constexpr size_t kLongestProfileText = 32766;

// Without a resolved name the platform would fall back to its own profile: refuse instead.
bool HasProfileFile(const KovraFileState_S* state)
{
    return state && state->m_szRealFileName[0];
}

// Null texts keep their meaning for the platform and count as fitting.
bool ProfileTakes(std::initializer_list<const char*> texts)
{
    for (const char* text : texts)
        if (text && strnlen(text, kLongestProfileText + 1) > kLongestProfileText)
            return false;
    return true;
}

// "%lf" while a numeric read takes that text whole; a longer one (magnitudes from about
// 1e120 on) in the shortest form that reads back as the same value.
void FormatDouble(double value, char (&text)[kNumberTextSize])
{
    if (FormatText(text, sizeof text, "%lf", value))
        return;
    for (int digits = 1; digits <= 17; ++digits) {
        FormatText(text, sizeof text, "%.*g", digits, value);
        if (std::strtod(text, nullptr) == value)
            return;
    }
}

// A number is stored under a key: without one the platform would delete the section.
int WriteNumber(CKovra& profile, const char* section, const char* key, const char* text)
{
    return key ? profile.WriteProfile(section, key, text, 0) : 0;
}

// The value's text for a numeric read; false when there is none (missing, empty or unnamed).
bool ReadNumber(CKovra& profile, const char* section, const char* key, char (&text)[kNumberTextSize])
{
    text[0] = '\0';
    if (section && key)
        profile.GetProfile(section, key, "", text, kNumberTextSize, 0);
    return text[0] != '\0';
}

} // namespace

int CKovra::WriteProfile(const char* section, const char* key, const char* value, int)
{
    // A null key or value asks the platform to delete; a key or value without a section it can't take.
    if (!HasProfileFile(m_pState) || (!section && (key || value)) || !ProfileTakes({section, key, value}))
        return 0;
    return ::WritePrivateProfileStringA(section, key, value, m_pState->m_szRealFileName) ? 1 : 0;
}

int CKovra::WriteProfile(const char* section, const char* key, long value, int)
{
    char text[kNumberTextSize];
    return WriteNumber(*this, section, key, _ltoa(value, text, 10));
}

int CKovra::WriteProfile(const char* section, const char* key, int value, int flags)
{
    return WriteProfile(section, key, static_cast<long>(value), flags);
}

int CKovra::WriteProfile(const char* section, const char* key, unsigned long value, int)
{
    char text[kNumberTextSize];
    return WriteNumber(*this, section, key, _ultoa(value, text, 10));
}

int CKovra::WriteProfile(const char* section, const char* key, unsigned int value, int flags)
{
    return WriteProfile(section, key, static_cast<unsigned long>(value), flags);
}

int CKovra::WriteProfile(const char* section, const char* key, double value, int)
{
    char text[kNumberTextSize];
    FormatDouble(value, text);
    return WriteNumber(*this, section, key, text);
}

int CKovra::GetProfile(const char* section, const char* key, const char* defaultText, char* buffer, int size, int)
{
    if (!buffer || size <= 0)
        return 0;
    if (!HasProfileFile(m_pState) || !ProfileTakes({section, key, defaultText})) {
        // Unasked, the platform's answer for a missing key stands: the default, cut to the buffer.
        CopyText(buffer, static_cast<size_t>(size), defaultText);
        return static_cast<int>(std::strlen(buffer));
    }
    return static_cast<int>(::GetPrivateProfileStringA(section, key, defaultText, buffer, static_cast<DWORD>(size),
                                                       m_pState->m_szRealFileName));
}

long CKovra::GetProfile(const char* section, const char* key, long defaultValue, int)
{
    char text[kNumberTextSize];
    return ReadNumber(*this, section, key, text) ? std::atol(text) : defaultValue;
}

int CKovra::GetProfile(const char* section, const char* key, int defaultValue, int flags)
{
    return static_cast<int>(GetProfile(section, key, static_cast<long>(defaultValue), flags));
}

unsigned long CKovra::GetProfile(const char* section, const char* key, unsigned long defaultValue, int)
{
    char text[kNumberTextSize];
    return ReadNumber(*this, section, key, text) ? std::strtoul(text, nullptr, 10) : defaultValue;
}

unsigned int CKovra::GetProfile(const char* section, const char* key, unsigned int defaultValue, int flags)
{
    return static_cast<unsigned int>(GetProfile(section, key, static_cast<unsigned long>(defaultValue), flags));
}

double CKovra::GetProfile(const char* section, const char* key, double defaultValue, int)
{
    char text[kNumberTextSize];
    return ReadNumber(*this, section, key, text) ? std::strtod(text, nullptr) : defaultValue;
}

int CKovra::GetProfileSectionA(const char* section, char* buffer, int size, int)
{
    // The platform ends even an empty list with two NULs, whatever the size: a buffer of one
    // byte gets the empty list's first NUL only.
    if (buffer && size == 1)
        buffer[0] = '\0';
    if (!HasProfileFile(m_pState) || !section || !buffer || size < 2 || !ProfileTakes({section}))
        return 0;
    return ::GetPrivateProfileSectionA(section, buffer, static_cast<DWORD>(size), m_pState->m_szRealFileName) > 0 ? 1
                                                                                                                : 0;
}

int CKovra::WriteProfileSectionA(const char* section, const char* lines, int)
{
    if (!HasProfileFile(m_pState) || !section || !lines || !ProfileTakes({section}))
        return 0;
    return ::WritePrivateProfileSectionA(section, lines, m_pState->m_szRealFileName) ? 1 : 0;
}
