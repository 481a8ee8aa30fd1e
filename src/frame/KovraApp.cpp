#include "frame/KovraApp.h"

#include <cstring>

#include "frame/Diagnostics.h"
#include "frame/InstallationPaths.h"
#include "platform/Text.h"
#include "tarnel31.h"

// One counter for every process that loads the library: the section is shared.
__attribute__((section("Shared"), shared)) volatile LONG g_lProcessCount = -1;

namespace {

// "//CKOVRADIR:<dir>" anywhere in the command line makes <dir> (up to the next '/' or
// the end) the current directory before the workstation paths are asked for. A <dir>
// longer than a path, or one that doesn't exist, leaves the current directory as it is.
void ApplyDirectoryOption()
{
    static const char kOption[] = "//CKOVRADIR:";
    const char* commandLine = ::GetCommandLineA();
    const char* found = commandLine ? std::strstr(commandLine, kOption) : nullptr;
    if (!found)
        return;
    const char* value = found + sizeof kOption - 1;
    size_t length = std::strcspn(value, "/");
    if (length > kMaxPathChars)
        return;  // cut, it would name another directory
    char directory[kPathBufferSize];
    std::memcpy(directory, value, length);
    directory[length] = '\0';
    ::SetCurrentDirectoryA(directory);  // a directory that doesn't exist leaves the current one
}

// One attempt of CreateSharedMemory under one name: a view of at least size bytes, or null
// with the reason as the last error (ERROR_INCORRECT_SIZE for a block smaller than size).
void* MapBlock(const char* name, DWORD size, SECURITY_ATTRIBUTES& security, HANDLE* handle)
{
    *handle = ::CreateFileMappingA(INVALID_HANDLE_VALUE, &security, PAGE_READWRITE, 0, size, name);
    if (!*handle)
        return nullptr;
    const DWORD creation = ::GetLastError();
    void* view = ::MapViewOfFile(*handle, FILE_MAP_ALL_ACCESS, 0, 0, 0);
    DWORD failure = ::GetLastError();
    // A block that another program made under this name may be smaller than asked for (the
    // size counts only for the one that creates it): such a one can't be had either.
    MEMORY_BASIC_INFORMATION region;
    if (view && (!::VirtualQuery(view, &region, sizeof region) || region.State != MEM_COMMIT ||
                 region.RegionSize < size)) {
        ::UnmapViewOfFile(view);
        view = nullptr;
        failure = ERROR_INCORRECT_SIZE;
    }
    if (!view) {
        ::CloseHandle(*handle);
        *handle = nullptr;
        ::SetLastError(failure);
        return nullptr;
    }
    if (creation != ERROR_ALREADY_EXISTS)  // a block that another process holds keeps its contents
        std::memset(view, 0, size);
    return view;
}

} // namespace

CKovraApp theApp;

CKovraApp::CKovraApp()
    : m_szBasePath{}, m_szDataPath{}, m_szReadOnlyPath{}, m_szWkstaPath{}, m_szWkstaTmpPath{},
      m_nDebugLevel(0), m_nSharingViolationRepeat(1), m_nOption(0), m_bSkipProcessSession(0),
      m_pFileTypes(nullptr), m_hFileTypeMapping(nullptr)
{
    ApplyDirectoryOption();
    // An answer longer than a path is no path: the field stays empty rather than naming
    // the place that its first 259 characters name.
    CopyWholeText(m_szBasePath, TarnelWkstaDir(0));
    CutBehindLastDataDirectory(m_szBasePath);
    CopyText(m_szDataPath, m_szBasePath);
    std::memset(m_szReadOnlyPath, 0, sizeof m_szReadOnlyPath);
    CopyWholeText(m_szWkstaPath, TarnelWkstaDir(0));
    CopyWholeText(m_szWkstaTmpPath, TarnelWkstaTmpDir(0));
    m_pFileTypes = static_cast<FileType_S*>(CreateSharedMemory("Global\\CKovraApp", kSharedBlockSize,
                                                                &m_hFileTypeMapping));
}

CKovraApp::~CKovraApp()
{
    if (m_pFileTypes)
        ::UnmapViewOfFile(m_pFileTypes);
    if (m_hFileTypeMapping)
        ::CloseHandle(m_hFileTypeMapping);
    m_pFileTypes = nullptr;
    m_hFileTypeMapping = nullptr;
    ::InterlockedDecrement(&g_lProcessCount);
}

void* CKovraApp::CreateSharedMemory(const char* name, DWORD size, HANDLE* handle)
{
    // A present but empty access list: every user on the machine may map the block.
    SECURITY_DESCRIPTOR descriptor;
    ::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    ::SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES security = {sizeof security, &descriptor, TRUE};

    // The block under its name, else under the session's own name (for a process that may
    // not create global objects, or where another program holds the global name).
    void* view = MapBlock(name, size, security, handle);
    const char* lastSeparator = std::strrchr(name, '\\');
    if (!view && lastSeparator)
        view = MapBlock(lastSeparator + 1, size, security, handle);
    if (!view)
        Trace("CKovra::CreateSharedMemory RC=%d", static_cast<int>(::GetLastError()));
    return view;
}
