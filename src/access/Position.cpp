// Position, length, byte-range locks and time stamps. Positions cross the interface as
// 32-bit values: offsets and ranges are sign-extended, results cut to their low 32 bits.
#include "file/KovraFileState.h"
#include "kovra/kovra.h"

long CKovra::Seek(long offset, int origin, int)
{
    if (!m_pState || !m_pState->m_pFile)
        return 0;
    if (origin < 0 || origin > static_cast<int>(CFile::end))
        return -1;
    try {
        return static_cast<long>(m_pState->m_pFile->Seek(static_cast<LONGLONG>(offset), static_cast<UINT>(origin)));
    } catch (const CFileException& failure) {
        RecordFailure(failure, "Seek");
        return -1;
    }
}

unsigned long CKovra::GetPosition(int)
{
    if (!IsOpen(0))
        return 0;
    try {
        return static_cast<unsigned long>(m_pState->m_pFile->GetPosition());
    } catch (const CFileException& failure) {
        RecordFailure(failure, "GetPosition");
        return 0;
    }
}

unsigned long CKovra::GetLength(int)
{
    if (!m_pState)
        return 0;
    if (!IsOpen(0)) {  // the file on disk under the resolved name
        CFileStatus status;
        return CFile::GetStatus(m_pState->m_szRealFileName, status) ? static_cast<unsigned long>(status.m_size) : 0;
    }
    try {
        return static_cast<unsigned long>(m_pState->m_pFile->GetLength());
    } catch (const CFileException& failure) {
        RecordFailure(failure, "GetLength");
        return 0;
    }
}

int CKovra::SetLength(unsigned long length, int)
{
    if (!IsWritable(0))
        return 0;
    try {
        m_pState->m_pFile->SetLength(static_cast<ULONGLONG>(length));
    } catch (const CFileException& failure) {
        RecordFailure(failure, "SetLength");
        return 0;
    }
    return 1;
}

int CKovra::Lock(long position, int count, int)
{
    if (!m_pState || !m_pState->m_pFile)
        return 0;
    try {
        m_pState->m_pFile->LockRange(static_cast<ULONGLONG>(static_cast<LONGLONG>(position)),
                                     static_cast<ULONGLONG>(static_cast<LONGLONG>(count)));
    } catch (const CFileException& failure) {
        RecordFailure(failure, "Lock");
        return 0;
    }
    return 1;
}

int CKovra::UnLock(long position, int count, int)
{
    if (!m_pState || !m_pState->m_pFile)
        return 0;
    try {
        m_pState->m_pFile->UnlockRange(static_cast<ULONGLONG>(static_cast<LONGLONG>(position)),
                                       static_cast<ULONGLONG>(static_cast<LONGLONG>(count)));
    } catch (const CFileException& failure) {
        RecordFailure(failure, "UnLock");
        return 0;
    }
    return 1;
}

CKovra* CKovra::operator=(long offset)
{
    Seek(offset, CFile::begin, 0);
    return this;
}

CKovra* CKovra::operator+=(long offset)
{
    Seek(offset, CFile::current, 0);
    return this;
}

CKovra* CKovra::operator-=(long offset)
{
    Seek(-offset, CFile::current, 0);
    return this;
}

int CKovra::GetModificationTime(ATL::CTime* time, int selector)
{
    CFileStatus status;
    if (!m_pState || !time || !CFile::GetStatus(m_pState->m_szRealFileName, status))
        return 0;
    *time = selector == 1 ? status.m_ctime : status.m_mtime;
    return 1;
}

int CKovra::SetModificationTime(const ATL::CTime* time, int selector)
{
    CFileStatus status;
    if (!m_pState || !time || !CFile::GetStatus(m_pState->m_szRealFileName, status))
        return 0;
    (selector == 1 ? status.m_ctime : status.m_mtime) = *time;
    try {
        CFile::SetStatus(m_pState->m_szRealFileName, status);
    } catch (const CFileException& failure) {
        RecordFailure(failure, "SetModificationTime");
        return 0;
    }
    return 1;
}
