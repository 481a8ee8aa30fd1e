// Read-only views of the global state and the shared file-type table, and the check of a
// configuration file.
#include <cstring>

#include "frame/CallFrame.h"
#include "frame/ConfigCheck.h"
#include "frame/FileTypes.h"
#include "frame/KovraApp.h"
#include "kovra/diag.h"
#include "platform/Text.h"

extern "C" int KOVRA_CALL KovraGetSettings(KovraSettings_S* settings)
{
    if (!settings)
        return 0;
    CopyText(settings->basePath, theApp.m_szBasePath);
    CopyText(settings->dataPath, theApp.m_szDataPath);
    CopyText(settings->readOnlyPath, theApp.m_szReadOnlyPath);
    CopyText(settings->wkstaPath, theApp.m_szWkstaPath);
    CopyText(settings->wkstaTmpPath, theApp.m_szWkstaTmpPath);
    settings->debugLevel = theApp.m_nDebugLevel;
    settings->sharingViolationRepeat = theApp.m_nSharingViolationRepeat;
    settings->option = theApp.m_nOption;
    settings->skipProcessSession = theApp.m_bSkipProcessSession;
    settings->processCount = g_lProcessCount;
    settings->sharedTableMapped = theApp.m_pFileTypes != nullptr;
    return 1;
}

extern "C" int KOVRA_CALL KovraGetFileType(int index, FileType_S* record)
{
    const FileType_S* table = FileTypeTable();
    if (!record || index < 0 || index >= kMaxFileTypes)
        return 0;
    for (int walked = 0; walked <= index; ++walked)
        if (!table[walked].name[0])
            return 0;
    *record = table[index];
    record->name[sizeof record->name - 1] = '\0';
    return 1;
}

extern "C" const char* KOVRA_CALL KovraLocationWord(int index)
{
    return LocationWord(index);
}

extern "C" const char* KOVRA_CALL KovraEncryptionWord(int index)
{
    return EncryptionWord(index);
}

extern "C" int KOVRA_CALL KovraCheckConfig(const char* path, KovraConfigProblemFn report, void* context)
{
    return RunInCallFrame(-1, [&] { return CheckConfigFile(path, report, context); });
}
