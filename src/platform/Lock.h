// The registry lock: private to the process, re-entrant for the thread that holds it
// (it counts its acquisitions), taken without a time-out.
#pragma once

#include <windows.h>

class CMutex {
public:
    CMutex() noexcept { ::InitializeCriticalSection(&m_section); }
    ~CMutex() { ::DeleteCriticalSection(&m_section); }
    CMutex(const CMutex&) = delete;
    CMutex& operator=(const CMutex&) = delete;

    // timeout INFINITE waits; any other value only tries. True when the lock is held.
    bool Lock(DWORD timeout = INFINITE) noexcept
    {
        if (timeout == INFINITE) {
            ::EnterCriticalSection(&m_section);
            return true;
        }
        return ::TryEnterCriticalSection(&m_section) != FALSE;
    }
    void Unlock() noexcept { ::LeaveCriticalSection(&m_section); }

private:
    CRITICAL_SECTION m_section;
};

// Holds a CMutex for a scope; released on every way out.
class CSingleLock {
public:
    explicit CSingleLock(CMutex& mutex) noexcept : m_mutex(mutex) {}
    ~CSingleLock() { Unlock(); }
    CSingleLock(const CSingleLock&) = delete;
    CSingleLock& operator=(const CSingleLock&) = delete;

    bool Lock(DWORD timeout = INFINITE) noexcept
    {
        if (!m_locked)
            m_locked = m_mutex.Lock(timeout);
        return m_locked;
    }
    void Unlock() noexcept
    {
        if (m_locked)
            m_mutex.Unlock();
        m_locked = false;
    }
    bool IsLocked() const noexcept { return m_locked; }

private:
    CMutex& m_mutex;
    bool m_locked = false;
};
