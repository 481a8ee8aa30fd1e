// Loading and unloading the library: InitInstance, ExitInstance and the DLL entry.
#include <windows.h>

#include "context/ThreadInfo.h"
#include "frame/Config.h"
#include "frame/InstallationPaths.h"
#include "frame/KovraApp.h"
#include "kovra/kovra.h"

namespace {

// Set once InitInstance has accepted the load, so that unloading undoes only what was done.
bool g_bInitialised = false;

} // namespace

int CKovraApp::InitInstance()
{
    char configName[kPathBufferSize];
    const char* config = BuildConfigFileName(configName) ? configName : nullptr;

    CKovra::StartSession(ProcessSession(), 0);
    CKovra::StartThread(ProcessSession(), ::GetCurrentThreadId(), 0);

    // A process without the shared block fills a table of its own, as a first process does.
    if (::InterlockedIncrement(&g_lProcessCount) == 0 || !m_pFileTypes)
        return ReadConfigurationFirstProcess(config);
    return ReadConfigurationLaterProcess(config);
}

int CKovraApp::ExitInstance()
{
    CKovra::RemoveThread(ProcessSession(), ::GetCurrentThreadId(), 0);
    CKovra::RemoveSession(ProcessSession(), 0);
    return 0;
}

// The run-time constructs theApp before this entry runs and destroys it after the
// entry's detach (also after a refused attach), which steps the process counter back.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID)
{
    switch (reason) {
    case DLL_PROCESS_ATTACH:
        if (!theApp.InitInstance()) {
            theApp.ExitInstance();
            return FALSE;
        }
        g_bInitialised = true;
        return TRUE;
    case DLL_PROCESS_DETACH:
        if (g_bInitialised)
            theApp.ExitInstance();
        g_bInitialised = false;
        return TRUE;
    default:
        return TRUE;
    }
}
