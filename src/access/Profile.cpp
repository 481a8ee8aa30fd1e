// The resolved file as a private profile (INI file), through the platform's
// private-profile services. Numbers are stored as decimal text.
#include <cstdio>
#include <cstdlib>

#include "file/KovraFileState.h"
#include "kovra/kovra.h"

namespace {

constexpr int kNumberTextSize = 128;

// Without a resolved name the platform would fall back to its own profile: refuse instead.
bool HasProfileFile(const KovraFileState_S* state)
{
    return state && state->m_szRealFileName[0];
}

} // namespace

int CKovra::WriteProfile(const char* section, const char* key, const char* value, int)
{
    if (!HasProfileFile(m_pState))
        return 0;
    return ::WritePrivateProfileStringA(section, key, value, m_pState->m_szRealFileName) ? 1 : 0;
}

int CKovra::WriteProfile(const char* section, const char* key, long value, int)
{
    char text[kNumberTextSize];
    return WriteProfile(section, key, static_cast<const char*>(_ltoa(value, text, 10)), 0);
}

int CKovra::WriteProfile(const char* section, const char* key, int value, int flags)
{
    return WriteProfile(section, key, static_cast<long>(value), flags);
}

int CKovra::WriteProfile(const char* section, const char* key, unsigned long value, int)
{
    char text[kNumberTextSize];
    return WriteProfile(section, key, static_cast<const char*>(_ultoa(value, text, 10)), 0);
}

int CKovra::WriteProfile(const char* section, const char* key, unsigned int value, int flags)
{
    return WriteProfile(section, key, static_cast<unsigned long>(value), flags);
}

int CKovra::WriteProfile(const char* section, const char* key, double value, int)
{
    char text[kNumberTextSize * 4];  // "%lf" of a large double has up to 316 characters
    std::snprintf(text, sizeof text, "%lf", value);
    return WriteProfile(section, key, static_cast<const char*>(text), 0);
}

int CKovra::GetProfile(const char* section, const char* key, const char* defaultText, char* buffer, int size, int)
{
    if (!HasProfileFile(m_pState) || !buffer || size <= 0)
        return 0;
    return static_cast<int>(::GetPrivateProfileStringA(section, key, defaultText, buffer, static_cast<DWORD>(size),
                                                       m_pState->m_szRealFileName));
}

long CKovra::GetProfile(const char* section, const char* key, long defaultValue, int)
{
    char text[kNumberTextSize] = "";
    GetProfile(section, key, "", text, kNumberTextSize, 0);
    return text[0] ? std::atol(text) : defaultValue;
}

int CKovra::GetProfile(const char* section, const char* key, int defaultValue, int flags)
{
    return static_cast<int>(GetProfile(section, key, static_cast<long>(defaultValue), flags));
}

unsigned long CKovra::GetProfile(const char* section, const char* key, unsigned long defaultValue, int)
{
    char text[kNumberTextSize] = "";
    GetProfile(section, key, "", text, kNumberTextSize, 0);
    return text[0] ? std::strtoul(text, nullptr, 10) : defaultValue;
}

unsigned int CKovra::GetProfile(const char* section, const char* key, unsigned int defaultValue, int flags)
{
    return static_cast<unsigned int>(GetProfile(section, key, static_cast<unsigned long>(defaultValue), flags));
}

double CKovra::GetProfile(const char* section, const char* key, double defaultValue, int)
{
    char text[kNumberTextSize] = "";
    GetProfile(section, key, "", text, kNumberTextSize, 0);
    return text[0] ? std::strtod(text, nullptr) : defaultValue;
}

int CKovra::GetProfileSectionA(const char* section, char* buffer, int size, int)
{
    if (!HasProfileFile(m_pState) || !buffer || size <= 0)
        return 0;
    return ::GetPrivateProfileSectionA(section, buffer, static_cast<DWORD>(size), m_pState->m_szRealFileName) > 0 ? 1
                                                                                                                : 0;
}

int CKovra::WriteProfileSectionA(const char* section, const char* lines, int)
{
    if (!HasProfileFile(m_pState))
        return 0;
    return ::WritePrivateProfileSectionA(section, lines, m_pState->m_szRealFileName) ? 1 : 0;
}
