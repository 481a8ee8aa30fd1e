// The two diagnostic channels: the trace to the "Debug-Monitor" window and the log
// file CKOVRA.LOG in the base path, plus the library's message boxes.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstddef>

#include "kovra/export.h"

// The monitor window, cached for the whole process; looked up again once it is gone.
extern std::atomic<HWND> g_hDebugMonitor;

// Formats with wvsprintfA (at most 1024 characters) and sends the text to the monitor
// window. Doesn't look at the debug level; returns the monitor's answer, 0 without one.
LRESULT Trace(const char* format, ...);

// Trace only when the debug level has the given bit.
void TraceIf(int debugBit, const char* format, ...);

// Writes an event line ("*..." texts only) when option bit 16 is set.
void LogEvent(const char* text);

// Formats an event text and writes it as LogEvent does; formats nothing when bit 16 is clear.
void LogEventF(const char* format, ...) KOVRA_PRINTF_FORMAT(1, 2);

constexpr size_t kTimeStampLength = 18;  // "dd.mm hh:mm:ss.mmm"
constexpr const char kContinuationIndent[] = "                   ";  // time stamp and its blank

// The local time as the log's time stamp.
void FormatTimeStamp(char (&stamp)[kTimeStampLength + 1]);

// CKOVRA.LOG opened by the procedure that every writer follows: appending, text mode,
// deny-write sharing, retried while another writer holds it (and only then: a log that
// can't be opened for another reason is given up at once). What is written is collected
// and goes to the file in one piece when the buffer is full and at the latest when the
// destructor closes the file.
class LogFile {
public:
    LogFile();
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    bool IsOpen() const { return m_fd >= 0; }
    void Write(const char* text);
    // Texts that may hold names from outside: their control characters are written
    // escaped (EscapeControlCharacters), so that they can't make lines of their own.
    void WriteEscaped(const char* text, size_t length);
    void WriteLine(const char* text);  // escaped, then the line end

private:
    void Flush();

    int m_fd;
    size_t m_used = 0;
    char m_buffer[4096];
};

// The library's message boxes; the caller decides whether option bit 32 holds one back.
void ShowMessageBox(const char* text, UINT style);
