// Position, length, byte-range locks and time stamps. Positions cross the interface as
// 32-bit values: offsets and ranges are sign-extended, results cut to their low 32 bits.
#include "file/KovraFileState.h"
#include "kovra/kovra.h"

namespace {

// A 32-bit offset or range of the interface as the file layer's 64-bit value.
ULONGLONG SignExtended(long value)
{
    return static_cast<ULONGLONG>(static_cast<LONGLONG>(value));
}

} // namespace

long CKovra::Seek(long offset, int origin, int)
{
    if (!m_pState || !m_pState->m_pFile)
        return 0;
    if (origin < 0 || origin > static_cast<int>(CFile::end))
        return -1;
    long position = -1;
    Attempt("Seek", [&] {
        position = static_cast<long>(File().Seek(static_cast<LONGLONG>(offset), static_cast<UINT>(origin)));
    });
    return position;
}

unsigned long CKovra::GetPosition(int)
{
    if (!IsOpen(0))
        return 0;
    unsigned long position = 0;
    // Behind the last line returned: the platform stands ahead by what ReadString read ahead.
    const LineReadAhead_S& ahead = m_pState->m_readAhead;
    Attempt("GetPosition", [&] {
        position = static_cast<unsigned long>(m_pState->m_pFile->GetPosition() - (ahead.m_fill - ahead.m_next));
    });
    return position;
}

unsigned long CKovra::GetLength(int)
{
    if (!m_pState)
        return 0;
    if (!IsOpen(0)) {  // the file on disk under the resolved name
        CFileStatus status;
        return CFile::GetStatus(m_pState->m_szRealFileName, status) ? static_cast<unsigned long>(status.m_size) : 0;
    }
    unsigned long length = 0;
    Attempt("GetLength", [&] { length = static_cast<unsigned long>(m_pState->m_pFile->GetLength()); });
    return length;
}

int CKovra::SetLength(unsigned long length, int)
{
    if (!IsWritable(0))
        return 0;
    return Attempt("SetLength", [&] { File().SetLength(static_cast<ULONGLONG>(length)); }) ? 1 : 0;
}

int CKovra::Lock(long position, int count, int)
{
    if (!m_pState || !m_pState->m_pFile)
        return 0;
    const bool locked =
        Attempt("Lock", [&] { File().LockRange(SignExtended(position), SignExtended(count)); });
    return locked ? 1 : 0;
}

int CKovra::UnLock(long position, int count, int)
{
    if (!m_pState || !m_pState->m_pFile)
        return 0;
    const bool unlocked =
        Attempt("UnLock", [&] { File().UnlockRange(SignExtended(position), SignExtended(count)); });
    return unlocked ? 1 : 0;
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
    if (!m_pState)
        return 0;
    if (!time || !IsFileTime(*time))  // the platform would keep another time, or none, and say yes
        return Refuse(*m_pState, kErrorInvalidArgument);
    CFileStatus status;
    if (!CFile::GetStatus(m_pState->m_szRealFileName, status))
        return 0;
    (selector == 1 ? status.m_ctime : status.m_mtime) = *time;
    const bool set = Attempt("SetModificationTime", [&] { CFile::SetStatus(m_pState->m_szRealFileName, status); });
    return set ? 1 : 0;
}
