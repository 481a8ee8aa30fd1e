// ATL::CTime: a point in time as seconds since 1970-01-01 00:00 UTC.
// Time stamps cross the library's interface in this form.
#pragma once

#if defined(_MSC_VER)

// Microsoft's compiler: an application that has ATL's own CTime (ATL's atltime.h, included
// before kovra.h) uses that one. Otherwise the part of it that the library's members need,
// built without the C run-time's headers.
#if !defined(__ATLTIME_H__)

#include <stdint.h>

namespace ATL {

class CTime {
public:
    CTime() noexcept = default;
    explicit CTime(int64_t seconds) noexcept : m_time(seconds) {}

    int64_t GetTime() const noexcept { return m_time; }

    bool operator==(const CTime& other) const noexcept { return m_time == other.m_time; }
    bool operator!=(const CTime& other) const noexcept { return m_time != other.m_time; }
    bool operator<(const CTime& other) const noexcept { return m_time < other.m_time; }

private:
    int64_t m_time = 0;
};

} // namespace ATL

#endif // !defined(__ATLTIME_H__)

#else

#include <time.h>

namespace ATL {

class CTime {
public:
    CTime() noexcept = default;
    explicit CTime(__time64_t seconds) noexcept : m_time(seconds) {}

    // Local calendar time, as the C run-time's _mktime64 interprets it; -1 when it can't be represented.
    CTime(int year, int month, int day, int hour, int minute, int second) noexcept
    {
        struct tm parts = {};
        parts.tm_year = year - 1900;
        parts.tm_mon = month - 1;
        parts.tm_mday = day;
        parts.tm_hour = hour;
        parts.tm_min = minute;
        parts.tm_sec = second;
        parts.tm_isdst = -1;
        m_time = _mktime64(&parts);
    }

    static CTime GetCurrentTime() noexcept { return CTime(_time64(nullptr)); }

    __time64_t GetTime() const noexcept { return m_time; }

    // Calendar fields in local time; 0 for a time the run-time can't break down.
    int GetYear() const noexcept { return LocalField(&tm::tm_year, 1900); }
    int GetMonth() const noexcept { return LocalField(&tm::tm_mon, 1); }
    int GetDay() const noexcept { return LocalField(&tm::tm_mday, 0); }
    int GetHour() const noexcept { return LocalField(&tm::tm_hour, 0); }
    int GetMinute() const noexcept { return LocalField(&tm::tm_min, 0); }
    int GetSecond() const noexcept { return LocalField(&tm::tm_sec, 0); }

    bool operator==(const CTime& other) const noexcept { return m_time == other.m_time; }
    bool operator!=(const CTime& other) const noexcept { return m_time != other.m_time; }
    bool operator<(const CTime& other) const noexcept { return m_time < other.m_time; }

private:
    int LocalField(int tm::*field, int offset) const noexcept
    {
        const struct tm* parts = _localtime64(&m_time);
        return parts ? parts->*field + offset : 0;
    }

    __time64_t m_time = 0;
};

} // namespace ATL

#endif // defined(_MSC_VER)
