#include "frame/Diagnostics.h"

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "frame/KovraApp.h"
#include "kovra/records.h"
#include "platform/Text.h"

std::atomic<HWND> g_hDebugMonitor{nullptr};

namespace {

constexpr int kWvsprintfLimit = 1024;
constexpr int kLogOpenRetries = 30000;
constexpr size_t kLogLineSize = 4096;
// A monitor that doesn't answer within this time doesn't get the message; one that the
// system finds hung doesn't hold the sender at all.
constexpr UINT kTraceTimeoutMs = 1000;

HWND FindMonitorWindow()
{
    HWND window = g_hDebugMonitor.load();
    if (window && !::IsWindow(window))
        window = nullptr;
    if (!window) {
        window = ::FindWindowA("#32770", "Debug-Monitor");
        g_hDebugMonitor.store(window);
    }
    return window;
}

LRESULT SendTrace(const char* format, va_list arguments)
{
    HWND monitor = FindMonitorWindow();
    if (!monitor)
        return 0;

    union {
        TraceRecord_S record;
        char bytes[offsetof(TraceRecord_S, text) + kWvsprintfLimit + 1];
    } payload = {};
    int length = ::wvsprintfA(payload.record.text, format, arguments);
    if (length < 0)
        length = 0;
    payload.record.text[length] = '\0';
    payload.record.processId = ::GetCurrentProcessId();
    payload.record.threadId = ::GetCurrentThreadId();
    payload.record.mainWindow = 0;  // no framework thread object, hence no main window
    HMODULE executable = ::GetModuleHandleA(nullptr);
    payload.record.instance = static_cast<uint32_t>(reinterpret_cast<UINT_PTR>(executable));

    COPYDATASTRUCT message;
    message.dwData = KOVRA_TRACE_DATA_ID;
    message.cbData = static_cast<DWORD>(offsetof(TraceRecord_S, text) + length + 1);
    message.lpData = &payload;
    DWORD_PTR answer = 0;
    if (!::SendMessageTimeoutA(monitor, WM_COPYDATA, reinterpret_cast<WPARAM>(executable),
                               reinterpret_cast<LPARAM>(&message), SMTO_NORMAL | SMTO_ABORTIFHUNG, kTraceTimeoutMs,
                               &answer))
        return 0;  // timed out or hung: the message is dropped
    return static_cast<LRESULT>(answer);
}

void WriteEventLine(const char* text)
{
    LogFile log;
    if (!log.IsOpen())
        return;
    char stamp[kTimeStampLength + 1];
    FormatTimeStamp(stamp);
    log.Write(stamp);
    log.Write(" -------- ");
    log.WriteLine(text);
}

} // namespace

LRESULT Trace(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    LRESULT answer = SendTrace(format, arguments);
    va_end(arguments);
    return answer;
}

void TraceIf(int debugBit, const char* format, ...)
{
    if (!theApp.HasDebug(debugBit))
        return;
    va_list arguments;
    va_start(arguments, format);
    SendTrace(format, arguments);
    va_end(arguments);
}

void LogEvent(const char* text)
{
    if (!theApp.HasOption(kOptionLogEvents) || !text || text[0] != '*')
        return;
    WriteEventLine(text);
}

void LogEventF(const char* format, ...)
{
    if (!theApp.HasOption(kOptionLogEvents))
        return;
    char text[kLogLineSize];
    va_list arguments;
    va_start(arguments, format);
    FormatTextV(text, sizeof text, format, arguments);
    va_end(arguments);
    LogEvent(text);
}

void FormatTimeStamp(char (&stamp)[kTimeStampLength + 1])
{
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    FormatText(stamp, sizeof stamp, "%02d.%02d %02d:%02d:%02d.%03d", now.wDay, now.wMonth, now.wHour,
               now.wMinute, now.wSecond, now.wMilliseconds);
}

LogFile::LogFile() : m_fd(-1)
{
    char name[kPathBufferSize];
    if (!CopyText(name, theApp.m_szBasePath) || !AppendText(name, "CKOVRA.LOG"))
        return;
    const int flags = _O_WRONLY | _O_APPEND | _O_CREAT | _O_TEXT;
    m_fd = _sopen(name, flags, _SH_DENYWR, _S_IREAD | _S_IWRITE);
    // The run-time reports a held file and one that can't be written (a directory, a
    // read-only file) both as EACCES; only the system's code tells the held one.
    auto heldByAnotherWriter = [] { return errno == EACCES && _doserrno == ERROR_SHARING_VIOLATION; };
    for (int retry = 0; m_fd < 0 && heldByAnotherWriter() && retry < kLogOpenRetries; ++retry) {
        ::Sleep(0);  // another writer holds the file: let it finish its lines
        m_fd = _sopen(name, flags, _SH_DENYWR, _S_IREAD | _S_IWRITE);
    }
}

LogFile::~LogFile()
{
    if (m_fd < 0)
        return;
    Flush();
    _close(m_fd);
}

void LogFile::Flush()
{
    if (m_used > 0)
        _write(m_fd, m_buffer, static_cast<unsigned>(m_used));
    m_used = 0;
}

void LogFile::Write(const char* text)
{
    for (size_t length = std::strlen(text); m_fd >= 0 && length > 0;) {
        if (m_used == sizeof m_buffer)
            Flush();
        const size_t taken = std::min(length, sizeof m_buffer - m_used);
        std::memcpy(m_buffer + m_used, text, taken);
        m_used += taken;
        text += taken;
        length -= taken;
    }
}

void LogFile::WriteEscaped(const char* text, size_t length)
{
    for (size_t done = 0; m_fd >= 0 && done < length;) {
        if (sizeof m_buffer - m_used < 8)
            Flush();  // room for the longest escape and the terminator
        done += EscapeControlCharacters(m_buffer + m_used, sizeof m_buffer - m_used, text + done, length - done);
        m_used += std::strlen(m_buffer + m_used);
    }
}

void LogFile::WriteLine(const char* text)
{
    WriteEscaped(text, std::strlen(text));
    Write("\n");
}

void ShowMessageBox(const char* text, UINT style)
{
    ::MessageBoxA(nullptr, text, "Kovra", style);
}
