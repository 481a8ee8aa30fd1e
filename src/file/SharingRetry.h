// How the file object waits out a sharing violation: after each violation (and the
// handle-owner dump that the caller writes) it pauses and tries again as long as the
// operation's allowance of retries lasts. Open and the moving operations differ only in
// that allowance.
#pragma once

#include <windows.h>

#include <climits>

class SharingRetry {
public:
    // Open: one retry after the first violation, or a retry after every one.
    static SharingRetry ForOpen(bool retryEveryViolation) { return SharingRetry(retryEveryViolation ? kUnlimited : 1); }
    // Remove and Rename: 20 retries for each step of the configured repeat factor.
    static SharingRetry ForMove(int repeatFactor)
    {
        if (repeatFactor <= 0)
            return SharingRetry(0);
        return SharingRetry(repeatFactor > INT_MAX / kRetriesPerRepeat ? INT_MAX : kRetriesPerRepeat * repeatFactor);
    }

    // The retries made so far.
    int Count() const { return m_count; }

    // After a violation: pauses and answers true when another attempt is due.
    bool PauseForNextAttempt()
    {
        if (m_limit != kUnlimited && m_count >= m_limit)
            return false;
        ++m_count;
        ::Sleep(kPauseMilliseconds);
        return true;
    }

private:
    static constexpr int kUnlimited = -1;
    static constexpr int kRetriesPerRepeat = 20;
    static constexpr DWORD kPauseMilliseconds = 50;

    explicit SharingRetry(int limit) : m_limit(limit) {}

    int m_limit;
    int m_count = 0;
};
