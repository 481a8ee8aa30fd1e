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

} // namespace

CKovraApp theApp;

CKovraApp::CKovraApp()
    : m_szBasePath{}, m_szDataPath{}, m_szReadOnlyPath{}, m_szWkstaPath{}, m_szWkstaTmpPath{},
      m_nDebugLevel(0), m_nSharingViolationRepeat(1), m_nOption(0), m_bSkipProcessSession(0),
      m_pFileTypes(nullptr), m_hFileTypeMapping(nullptr)
{
    ApplyDirectoryOption();
    CopyText(m_szBasePath, TarnelWkstaDir(0));
    CutBehindLastDataDirectory(m_szBasePath);
    CopyText(m_szDataPath, m_szBasePath);
    std::memset(m_szReadOnlyPath, 0, sizeof m_szReadOnlyPath);
    CopyText(m_szWkstaPath, TarnelWkstaDir(0));
    CopyText(m_szWkstaTmpPath, TarnelWkstaTmpDir(0));
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

    *handle = ::CreateFileMappingA(INVALID_HANDLE_VALUE, &security, PAGE_READWRITE, 0, size, name);
    const char* lastSeparator = std::strrchr(name, '\\');
    if (!*handle && lastSeparator)  // not allowed to create global objects: use the session's namespace
        *handle = ::CreateFileMappingA(INVALID_HANDLE_VALUE, &security, PAGE_READWRITE, 0, size, lastSeparator + 1);
    if (!*handle) {
        Trace("CKovra::CreateSharedMemory RC=%d", static_cast<int>(::GetLastError()));
        return nullptr;
    }
    DWORD creation = ::GetLastError();
    void* view = ::MapViewOfFile(*handle, FILE_MAP_ALL_ACCESS, 0, 0, 0);
    if (!view) {
        Trace("CKovra::CreateSharedMemory RC=%d", static_cast<int>(::GetLastError()));
        ::CloseHandle(*handle);
        *handle = nullptr;
        return nullptr;
    }
    if (creation != ERROR_ALREADY_EXISTS)  // a block that another process holds keeps its contents
        std::memset(view, 0, size);
    return view;
}
