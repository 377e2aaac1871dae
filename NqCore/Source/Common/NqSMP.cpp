#include "NqCore/PublicAPI/NqSMP.h"

#include "NqCore/PublicAPI/NqSMPCriticalSection.h"

int32* gNumberOfProcessors = nullptr;
TNqLocalStorage* gSMPAbortFlagTLS = nullptr;

namespace
{

inline TNqLocalStorageData* FindInTable(TNqLocalStorageDataPtrArray& inTable, int32 inIndex)
{
    return inIndex >= 0 && inIndex < inTable.GetElemCount() ? &inTable[inIndex] : nullptr;
}

// The calling thread's element, null after a report.
inline TNqLocalStorageData* GetThreadElem(const TNqLocalStorage& inStorage)
{
    TNqLocalStorageDataPtrArray* const localStorage = GetLocalStorage();
    if (!NqCheck(localStorage))
        return nullptr;
    TNqLocalStorageData* const data = FindInTable(*localStorage, inStorage.GetIndex());
    return data != nullptr ? data : localStorage->GetElem(inStorage.GetIndex());
}

} // namespace

TNqLocalStorageDataPtrArray::TNqLocalStorageDataPtrArray()
    : TNqExtensibleArray(kLogMaxElemCount, kLogGrowSize, true),
      fTlsDataCS(NewCS())
{
}

TNqLocalStorageDataPtrArray::~TNqLocalStorageDataPtrArray()
{
    if (fTlsDataCS != nullptr)
        DeleteCS(fTlsDataCS);
}

TNqLocalStorageData* TNqLocalStorageDataPtrArray::GetElem(int32 inIndex)
{
    if (!NqCheck(inIndex >= 0 && inIndex < GetMaxElemCount()))
        return nullptr;
    if (inIndex >= GetElemCount() && !NqCheckText(Grow(inIndex), "Thread local storage allocation failed!"))
        return nullptr;
    return &(*this)[inIndex];
}

TNqLocalStorageData* TNqLocalStorageDataPtrArray::FindElem(int32 inIndex)
{
    return FindInTable(*this, inIndex);
}

// To the end of the block in which the element lies, so that neighbours need no further growth.
boolean TNqLocalStorageDataPtrArray::Grow(int32 inIndex)
{
    const CWhileInCS growing(fTlsDataCS);
    return SetElemCount(((inIndex >> kLogGrowSize) + 1) << kLogGrowSize);
}

void InitSMP(boolean inFlag)
{
    InitSysDepSMP(inFlag);
}

void TerminateSMP()
{
    TerminateSysDepSMP();
}

int32 GetNumberOfProcessors()
{
    return gNumberOfProcessors != nullptr ? Nq_Max(*gNumberOfProcessors, 1) : 1;
}

TNqLocalStorage* NewTLS()
{
    return NewTLSWithDelete(nullptr);
}

TNqLocalStorage* NewTLSWithDelete(void (*inDestructor)(void**))
{
    return NqCheck(gShellSMPUtilities) ? gShellSMPUtilities->NewTLS(inDestructor) : nullptr;
}

void DeleteTLS(TNqLocalStorage* inStorage)
{
    if (NqCheck(gShellSMPUtilities))
        gShellSMPUtilities->DeleteTLS(inStorage);
}

void SetupSmpThreadLocalStorage()
{
    if (NqCheck(gShellSMPUtilities))
        gShellSMPUtilities->SetupThreadLocalStorage();
}

boolean IsTLSValid()
{
    return GetLocalStorage() != nullptr;
}

void* GetTLS(TNqLocalStorage* aTLS)
{
    if (!NqCheck(aTLS))
        return nullptr;
    const TNqLocalStorageData* const data = GetThreadElem(*aTLS);
    return data != nullptr ? data->fDataPtr : nullptr;
}

void* SetTLS(TNqLocalStorage*& aTLS, void* inValue)
{
    if (aTLS == nullptr)
        return nullptr;
    TNqLocalStorageData* const data = GetThreadElem(*aTLS);
    if (data == nullptr)
        return nullptr;
    data->fDataPtr = inValue;
    return inValue;
}

void* GetSMPAbortFlag()
{
    return gSMPAbortFlagTLS != nullptr ? GetTLS(gSMPAbortFlagTLS) : nullptr;
}
