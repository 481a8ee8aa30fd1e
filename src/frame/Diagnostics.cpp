#include "frame/Diagnostics.h"

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

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
    return ::SendMessageA(monitor, WM_COPYDATA, reinterpret_cast<WPARAM>(executable),
                          reinterpret_cast<LPARAM>(&message));
}

void WriteEventLine(const char* text)
{
    LogFile log;
    if (!log.IsOpen())
        return;
    char stamp[kTimeStampLength + 1];
    FormatTimeStamp(stamp);
    char line[kLogLineSize];
    FormatText(line, sizeof line, "%s -------- %s\n", stamp, text);
    log.Write(line);
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
    for (int retry = 0; m_fd < 0 && errno == EACCES && retry < kLogOpenRetries; ++retry) {
        ::Sleep(0);  // another writer holds the file: let it finish its lines
        m_fd = _sopen(name, flags, _SH_DENYWR, _S_IREAD | _S_IWRITE);
    }
}

LogFile::~LogFile()
{
    if (m_fd >= 0)
        _close(m_fd);
}

void LogFile::Write(const char* text, size_t length)
{
    if (m_fd >= 0 && length > 0)
        _write(m_fd, text, static_cast<unsigned>(length));
}

void LogFile::Write(const char* text)
{
    Write(text, std::strlen(text));
}

void ShowMessageBox(const char* text, UINT style)
{
    ::MessageBoxA(nullptr, text, "Kovra", style);
}
