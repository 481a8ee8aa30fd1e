// Construction, destruction and the name accessors of CKovra.
#include <cstring>
#include <new>

#include "file/KovraFileState.h"
#include "kovra/kovra.h"
#include "platform/Text.h"

CKovra::CKovra(const char* type, const char* name, unsigned long options, KovraOpenPar_S* parameters, int flags)
    : m_pState(new (std::nothrow) KovraFileState_S)
{
    if (!m_pState)
        return;  // every member answers with its failure value
    std::memset(m_pState, 0, sizeof *m_pState);
    ::InitializeCriticalSection(&m_pState->m_lock);
    if (name || options || parameters || flags)
        Open(type, name, options, parameters, flags);
}

CKovra::~CKovra()
{
    if (!m_pState)
        return;
    Close(m_pState->m_nCloseFlags & 1);
    if (m_pState->m_hModule)
        ::FreeLibrary(m_pState->m_hModule);
    m_pState->m_hModule = nullptr;
    m_pState->m_pfnLongPathName = nullptr;
    ::DeleteCriticalSection(&m_pState->m_lock);
    delete m_pState;
}

char* CKovra::GetFileName(int)
{
    if (!m_pState)
        return EmptyText();
    return m_pState->m_szName[0] ? m_pState->m_szName : m_pState->m_szRealFileName;
}

char* CKovra::GetFileType(int)
{
    return (m_pState && m_pState->m_pszType) ? m_pState->m_pszType : EmptyText();
}

char* CKovra::GetRealFileName(int)
{
    return m_pState ? m_pState->m_szRealFileName : EmptyText();
}
