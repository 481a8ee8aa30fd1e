// kovramon: the trace monitor. It owns the "Debug-Monitor" window that the library
// looks for, and prints every trace message it receives as one line.
#include <windows.h>

#include <share.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kovra/records.h"

namespace {

constexpr char kWindowClass[] = "#32770";  // the system's dialog class
constexpr char kWindowTitle[] = "Debug-Monitor";
constexpr size_t kHeaderSize = offsetof(TraceRecord_S, text);
constexpr size_t kTextLimit = 8191;  // longer texts are cut
constexpr size_t kLineSize = kTextLimit + 256;  // room for the verbose fields before the text
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

constexpr char kUsage[] =
    "Usage: kovramon [--verbose] [--output FILE] [--count N] [--ready-event NAME]\n"
    "       kovramon --help\n"
    "\n"
    "Owns the window \"Debug-Monitor\" (class #32770) and prints each trace message\n"
    "(WM_COPYDATA with dwData 10) it receives as one line on stdout.\n"
    "\n"
    "Options:\n"
    "  --verbose           show every field of a message (format below)\n"
    "  --output FILE       also append every line to FILE\n"
    "  --count N           exit after N printed messages (N >= 1)\n"
    "  --ready-event NAME  once the window exists, open or create the event NAME and set it\n"
    "  --help              show this text and exit\n"
    "\n"
    "Line formats (fields separated by one space; the text runs to the end of the line):\n"
    "  default:    HH:MM:SS.mmm PID TID TEXT\n"
    "  --verbose:  HH:MM:SS.mmm pid=PID tid=TID wnd=0xW inst=0xI wparam=0xP id=D cb=C text=TEXT\n"
    "  HH:MM:SS.mmm is the local time of reception. PID, TID, D and C are decimal;\n"
    "  W, I and P are lowercase hexadecimal without leading zeros. wnd and inst are the\n"
    "  record's main window and instance, wparam the message's wParam, id its dwData,\n"
    "  cb its cbData. Control characters in TEXT are written as spaces, so every message\n"
    "  is one line; a TEXT longer than 8191 characters is cut. Lines end in CR LF.\n"
    "\n"
    "Malformed messages (cbData < 17, no NUL within cbData) and messages with another\n"
    "dwData are ignored with a note on stderr; they don't count for --count.\n"
    "\n"
    "Ends with exit code 0 on WM_CLOSE to its window, after --count messages, or on\n"
    "Ctrl+C / Ctrl+Break. Exit code 1: the window, FILE or the event could not be set up;\n"
    "exit code 2: bad arguments.\n";

struct Options {
    bool verbose = false;
    const char* outputPath = nullptr;
    unsigned long count = 0;  // 0: no limit
    const char* readyEvent = nullptr;
};

struct Monitor {
    Options options;
    FILE* output = nullptr;
    unsigned long received = 0;
};

// The console control handler runs on its own thread and only needs the window.
std::atomic<HWND> g_window{nullptr};

// Parses a count of 1 or more; anything else is rejected.
bool ParseCount(const char* text, unsigned long* count)
{
    if (text[0] < '0' || text[0] > '9')
        return false;
    char* end = nullptr;
    errno = 0;
    unsigned long value = std::strtoul(text, &end, 10);
    if (errno != 0 || *end != '\0' || value == 0)
        return false;
    *count = value;
    return true;
}

// Returns false for arguments that can't be used; --help is reported through showHelp.
bool ParseArguments(int argc, char** argv, Options* options, bool* showHelp)
{
    for (int i = 1; i < argc; ++i) {
        const char* argument = argv[i];
        const bool hasValue = i + 1 < argc;
        if (std::strcmp(argument, "--help") == 0) {
            *showHelp = true;
        } else if (std::strcmp(argument, "--verbose") == 0) {
            options->verbose = true;
        } else if (std::strcmp(argument, "--output") == 0 && hasValue) {
            options->outputPath = argv[++i];
        } else if (std::strcmp(argument, "--count") == 0 && hasValue) {
            if (!ParseCount(argv[++i], &options->count))
                return false;
        } else if (std::strcmp(argument, "--ready-event") == 0 && hasValue) {
            options->readyEvent = argv[++i];
        } else {
            return false;
        }
    }
    return true;
}

// Writes "HH:MM:SS.mmm" of the local time into stamp.
void FormatTime(char* stamp, size_t size)
{
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    std::snprintf(stamp, size, "%02u:%02u:%02u.%03u", static_cast<unsigned>(now.wHour),
                  static_cast<unsigned>(now.wMinute), static_cast<unsigned>(now.wSecond),
                  static_cast<unsigned>(now.wMilliseconds));
}

// Copies text into a bounded buffer, with control characters turned into spaces so that
// a message never spans lines.
void CopyPrintable(char* target, size_t size, const char* text)
{
    size_t length = 0;
    for (; text[length] != '\0' && length + 1 < size; ++length) {
        const unsigned char c = static_cast<unsigned char>(text[length]);
        target[length] = c < 0x20 || c == 0x7F ? ' ' : static_cast<char>(c);
    }
    target[length] = '\0';
}

// Returns the record of a well-formed trace message, or nullptr (with a note on stderr).
const TraceRecord_S* ValidRecord(const COPYDATASTRUCT& data)
{
    if (data.dwData != KOVRA_TRACE_DATA_ID) {
        std::fprintf(stderr, "kovramon: ignored a message with dwData %lu\n",
                     static_cast<unsigned long>(data.dwData));
        return nullptr;
    }
    if (data.cbData < kHeaderSize + 1 || data.lpData == nullptr) {
        std::fprintf(stderr, "kovramon: ignored a trace message of %lu bytes: too short\n",
                     static_cast<unsigned long>(data.cbData));
        return nullptr;
    }
    const char* text = static_cast<const char*>(data.lpData) + kHeaderSize;
    if (std::memchr(text, '\0', data.cbData - kHeaderSize) == nullptr) {
        std::fprintf(stderr, "kovramon: ignored a trace message of %lu bytes: its text has no NUL\n",
                     static_cast<unsigned long>(data.cbData));
        return nullptr;
    }
    return static_cast<const TraceRecord_S*>(data.lpData);
}

void FormatLine(char* line, size_t size, const Options& options, WPARAM wParam, const COPYDATASTRUCT& data,
                const TraceRecord_S& record)
{
    char stamp[16];
    FormatTime(stamp, sizeof stamp);
    // The sender bounds the text only by cbData; the copy is bounded here.
    char text[kTextLimit + 1];
    CopyPrintable(text, sizeof text, record.text);
    if (options.verbose) {
        std::snprintf(line, size, "%s pid=%lu tid=%lu wnd=0x%lx inst=0x%lx wparam=0x%llx id=%lu cb=%lu text=%s\n",
                      stamp, static_cast<unsigned long>(record.processId),
                      static_cast<unsigned long>(record.threadId), static_cast<unsigned long>(record.mainWindow),
                      static_cast<unsigned long>(record.instance), static_cast<unsigned long long>(wParam),
                      static_cast<unsigned long>(data.dwData), static_cast<unsigned long>(data.cbData), text);
    } else {
        std::snprintf(line, size, "%s %lu %lu %s\n", stamp, static_cast<unsigned long>(record.processId),
                      static_cast<unsigned long>(record.threadId), text);
    }
}

void WriteLine(FILE* stream, const char* line)
{
    std::fputs(line, stream);
    std::fflush(stream);
}

// Handles one WM_COPYDATA; returns whether the message was a trace message.
bool OnCopyData(HWND window, Monitor* monitor, WPARAM wParam, const COPYDATASTRUCT* data)
{
    if (data == nullptr)
        return false;
    const TraceRecord_S* record = ValidRecord(*data);
    if (record == nullptr)
        return false;

    char line[kLineSize];
    FormatLine(line, sizeof line, monitor->options, wParam, *data, *record);
    WriteLine(stdout, line);
    if (monitor->output)
        WriteLine(monitor->output, line);

    ++monitor->received;
    if (monitor->options.count != 0 && monitor->received == monitor->options.count)
        ::PostMessageA(window, WM_CLOSE, 0, 0);
    return true;
}

INT_PTR CALLBACK MonitorProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_INITDIALOG:
        ::SetWindowLongPtrA(window, GWLP_USERDATA, lParam);
        return TRUE;
    case WM_COPYDATA: {
        auto* monitor = reinterpret_cast<Monitor*>(::GetWindowLongPtrA(window, GWLP_USERDATA));
        const bool handled = monitor && OnCopyData(window, monitor, wParam,
                                                   reinterpret_cast<const COPYDATASTRUCT*>(lParam));
        // A dialog procedure hands a message's result back through DWLP_MSGRESULT.
        ::SetWindowLongPtrA(window, DWLP_MSGRESULT, handled ? TRUE : FALSE);
        return TRUE;
    }
    case WM_CLOSE:
        ::DestroyWindow(window);
        return TRUE;
    case WM_DESTROY:
        ::PostQuitMessage(0);
        return TRUE;
    default:
        return FALSE;
    }
}

// The window is a hidden dialog without controls, built from a template in memory.
HWND CreateMonitorWindow(Monitor* monitor)
{
    struct alignas(4) Template {
        DLGTEMPLATE header;
        WORD menu;         // 0: no menu
        WORD windowClass;  // 0: the system's dialog class
        WCHAR title[sizeof kWindowTitle];
    } dialog = {};
    static_assert(offsetof(Template, menu) == sizeof(DLGTEMPLATE), "the menu follows the header directly");

    dialog.header.style = WS_POPUP | WS_CAPTION | WS_SYSMENU;
    dialog.header.cx = 200;
    dialog.header.cy = 40;
    for (size_t i = 0; i < sizeof kWindowTitle; ++i)
        dialog.title[i] = static_cast<WCHAR>(kWindowTitle[i]);
    return ::CreateDialogIndirectParamA(::GetModuleHandleA(nullptr), &dialog.header, nullptr, MonitorProc,
                                        reinterpret_cast<LPARAM>(monitor));
}

BOOL WINAPI OnConsoleControl(DWORD event)
{
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        return FALSE;
    HWND window = g_window.load();
    if (window)
        ::PostMessageA(window, WM_CLOSE, 0, 0);
    return TRUE;
}

// Opens or creates the event and sets it. The handle stays open until the process ends,
// so that an event created here lives on until its waiter has opened it.
bool SignalReady(const char* name)
{
    HANDLE event = ::CreateEventA(nullptr, TRUE, FALSE, name);
    if (event == nullptr || !::SetEvent(event)) {
        std::fprintf(stderr, "kovramon: can't set the event %s (error %lu)\n", name,
                     static_cast<unsigned long>(::GetLastError()));
        return false;
    }
    return true;
}

int RunMessageLoop()
{
    MSG message;
    BOOL result;
    while ((result = ::GetMessageA(&message, nullptr, 0, 0)) > 0) {
        ::TranslateMessage(&message);
        ::DispatchMessageA(&message);
    }
    return result == 0 ? kExitOk : kExitFailure;
}

int Run(const Options& options)
{
    Monitor monitor;
    monitor.options = options;
    if (options.outputPath) {
        // Readers may look at the file while the monitor writes it.
        monitor.output = _fsopen(options.outputPath, "a", _SH_DENYNO);
        if (monitor.output == nullptr) {
            std::fprintf(stderr, "kovramon: can't open %s: %s\n", options.outputPath, std::strerror(errno));
            return kExitFailure;
        }
    }
    if (::FindWindowA(kWindowClass, kWindowTitle))
        std::fprintf(stderr, "kovramon: another %s window exists; senders may reach either\n", kWindowTitle);

    HWND window = CreateMonitorWindow(&monitor);
    if (window == nullptr) {
        std::fprintf(stderr, "kovramon: can't create the window (error %lu)\n",
                     static_cast<unsigned long>(::GetLastError()));
        return kExitFailure;
    }
    g_window.store(window);
    ::SetConsoleCtrlHandler(OnConsoleControl, TRUE);

    int exitCode = kExitFailure;
    if (!options.readyEvent || SignalReady(options.readyEvent))
        exitCode = RunMessageLoop();
    else
        ::DestroyWindow(window);

    g_window.store(nullptr);
    if (monitor.output)
        std::fclose(monitor.output);
    return exitCode;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    bool showHelp = false;
    if (!ParseArguments(argc, argv, &options, &showHelp)) {
        std::fputs(kUsage, stderr);
        return kExitUsage;
    }
    if (showHelp) {
        std::fputs(kUsage, stdout);
        return kExitOk;
    }
    return Run(options);
}
