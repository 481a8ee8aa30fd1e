// handle: lists the processes that hold a file open. The library runs it after a sharing
// violation and copies every line after the four heading lines into its log.
#include <windows.h>

#include <restartmanager.h>

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

namespace {

constexpr int kExitOk = 0;
constexpr int kExitUsage = 1;
constexpr int kExitNoFile = 2;
constexpr int kListAttempts = 3;  // the holders may change between sizing and fetching the list

constexpr char kUsage[] =
    "Usage: handle NAME\n"
    "       handle --help\n"
    "\n"
    "Lists the processes that hold the file NAME open. NAME is absolute or relative to\n"
    "the current directory.\n"
    "\n"
    "Output: four heading lines (title, description, \"File: <full path>\", dashes), then\n"
    "one line per holder:\n"
    "  <image name> pid: <pid> <full path>\n"
    "Where the holders can't be named although the file is open elsewhere, a single line:\n"
    "  holders of <full path> can't be told on this system: the file is open in another process\n"
    "Where NAME is no existing file (missing, or a directory), a single line:\n"
    "  <full path>: no such file\n"
    "\n"
    "Exit code 0; 1 without NAME; 2 if NAME is no existing file.\n";

struct Holder {
    DWORD processId;
    std::string imageName;
};

// The absolute form of name; name itself if it has none.
std::string FullPath(const char* name)
{
    const DWORD needed = ::GetFullPathNameA(name, 0, nullptr, nullptr);
    if (needed == 0)
        return name;
    std::vector<char> buffer(needed);
    const DWORD length = ::GetFullPathNameA(name, needed, buffer.data(), nullptr);
    if (length == 0 || length >= needed)
        return name;
    return std::string(buffer.data(), length);
}

std::wstring Widen(const std::string& text)
{
    const int needed = ::MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, nullptr, 0);
    if (needed <= 0)
        return std::wstring();
    std::vector<wchar_t> buffer(needed);
    ::MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, buffer.data(), needed);
    return std::wstring(buffer.data());
}

std::string Narrow(const std::wstring& text)
{
    const int needed = ::WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr);
    if (needed <= 0)
        return std::string();
    std::vector<char> buffer(needed);
    ::WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, buffer.data(), needed, nullptr, nullptr);
    return std::string(buffer.data());
}

// The application name the Restart Manager gives; it is bounded by its array, not by a NUL.
std::string AppName(const RM_PROCESS_INFO& process)
{
    const size_t length = wcsnlen(process.strAppName, CCH_RM_MAX_APP_NAME + 1);
    const std::string name = Narrow(std::wstring(process.strAppName, length));
    return name.empty() ? "<unknown>" : name;
}

// Whether path names an existing file; a directory is none.
bool IsExistingFile(const std::string& path)
{
    const DWORD attributes = ::GetFileAttributesA(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES)
        return (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
    // Only a name that leads nowhere counts as missing; other failures (access, sharing)
    // don't tell that the file is absent.
    switch (::GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
        return false;
    default:
        return true;
    }
}

// The file name part of the process's executable, or fallback if it can't be read.
std::string ImageName(DWORD processId, const std::string& fallback)
{
    HANDLE process = ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId);
    if (process == nullptr)
        return fallback;
    char image[MAX_PATH * 4];
    DWORD size = sizeof image;
    const BOOL known = ::QueryFullProcessImageNameA(process, 0, image, &size);
    ::CloseHandle(process);
    if (!known)
        return fallback;
    const char* separator = std::strrchr(image, '\\');
    return separator ? separator + 1 : image;
}

// Fetches the Restart Manager's list of processes using the registered file.
DWORD FetchList(DWORD session, std::vector<RM_PROCESS_INFO>* processes)
{
    DWORD result = ERROR_MORE_DATA;
    for (int attempt = 0; attempt < kListAttempts && result == ERROR_MORE_DATA; ++attempt) {
        UINT needed = 0;
        UINT count = static_cast<UINT>(processes->size());
        DWORD reasons = 0;
        result = ::RmGetList(session, &needed, &count, processes->empty() ? nullptr : processes->data(), &reasons);
        if (result == ERROR_MORE_DATA)
            processes->resize(needed);
        else if (result == ERROR_SUCCESS)
            processes->resize(count);
    }
    return result;
}

// Asks the Restart Manager which processes use the file. Returns false if it can't tell.
bool FindHolders(const std::string& path, std::vector<Holder>* holders)
{
    DWORD session = 0;
    WCHAR key[CCH_RM_SESSION_KEY + 1] = {};
    DWORD result = ::RmStartSession(&session, 0, key);
    if (result != ERROR_SUCCESS) {
        std::fprintf(stderr, "handle: RmStartSession failed (error %lu)\n", static_cast<unsigned long>(result));
        return false;
    }
    const std::wstring widePath = Widen(path);
    LPCWSTR files[] = {widePath.c_str()};
    std::vector<RM_PROCESS_INFO> processes;
    result = ::RmRegisterResources(session, 1, files, 0, nullptr, 0, nullptr);
    if (result == ERROR_SUCCESS)
        result = FetchList(session, &processes);
    ::RmEndSession(session);
    if (result != ERROR_SUCCESS) {
        std::fprintf(stderr, "handle: the Restart Manager can't list the holders (error %lu)\n",
                     static_cast<unsigned long>(result));
        return false;
    }
    for (const RM_PROCESS_INFO& process : processes) {
        const DWORD processId = process.Process.dwProcessId;
        holders->push_back({processId, ImageName(processId, AppName(process))});
    }
    return true;
}

// Tries to open the file exclusively: a sharing violation shows that someone holds it.
bool IsHeldElsewhere(const std::string& path)
{
    HANDLE file = ::CreateFileA(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                                nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        ::CloseHandle(file);
        return false;
    }
    const DWORD error = ::GetLastError();
    if (error != ERROR_SHARING_VIOLATION)
        std::fprintf(stderr, "handle: can't open %s to probe it (error %lu)\n", path.c_str(),
                     static_cast<unsigned long>(error));
    return error == ERROR_SHARING_VIOLATION;
}

void PrintHeading(const std::string& path)
{
    std::printf("kovra handle tool\n");
    std::printf("Processes that hold the file open: image name, process id, file.\n");
    std::printf("File: %s\n", path.c_str());
    std::printf("------------------------------------------------------------------\n");
}

int Run(const char* name)
{
    const std::string path = FullPath(name);
    PrintHeading(path);
    if (!IsExistingFile(path)) {
        std::printf("%s: no such file\n", path.c_str());
        return kExitNoFile;
    }

    std::vector<Holder> holders;
    if (FindHolders(path, &holders) && !holders.empty()) {
        for (const Holder& holder : holders)
            std::printf("%s pid: %lu %s\n", holder.imageName.c_str(), static_cast<unsigned long>(holder.processId),
                        path.c_str());
    } else if (IsHeldElsewhere(path)) {
        // Without a list of holders the tool can only tell that there is one.
        std::printf("holders of %s can't be told on this system: the file is open in another process\n",
                    path.c_str());
    }
    return kExitOk;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(kUsage, stdout);
        return kExitOk;
    }
    if (argc != 2) {
        std::fputs(kUsage, stderr);
        return kExitUsage;
    }
    return Run(argv[1]);
}
