#include "NqCore/PublicAPI/NqCountedObject.h"

#include "NqCore/PublicAPI/NqCountedPtr.h"
#include "NqCore/PublicAPI/NqCountedPtrHelper.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"

TNqCountedObject** gFirstCountedObject = nullptr;
TNqCountedObject** gLastCountedObject = nullptr;
TNqSMPCountedObject** gFirstSMPCountedObject = nullptr;
TNqSMPCountedObject** gLastSMPCountedObject = nullptr;
TNqAtomicCounterHolder* gTotalCountedObjects = nullptr;
TNqAtomicCounterHolder* gCurrentCountedObjects = nullptr;

namespace
{

// Answers for the root interface; every other identifier clears the caller's pointer.
NqErr QueryRootInterface(INqUnknown* inObject, const NqIID& iid, void** outInterface)
{
    if (!NqCheckText(outInterface != nullptr, "outInterface != NULL"))
        return kNqNoInterface;
    INqUnknown** out = reinterpret_cast<INqUnknown**>(outInterface);
    if (NqInlineIsEqualGUID(iid, IID_INqUnknown))
    {
        TNqCountedGetHelper<INqUnknown>{out} = inObject;
        return kNqNoErr;
    }
    ReleaseIfNotNull(*out);
    return kNqNoInterface;
}

// Counts one more object alive. Returns its number among all ever made.
uint32_t CountNewObject()
{
    const int32 number = IncrementAtomicCounter(*gTotalCountedObjects);
    IncrementAtomicCounter(*gCurrentCountedObjects);
    return static_cast<uint32_t>(number);
}

template <class T>
void CreateBareObject(T** outObject)
{
    if (NqCheckText(outObject != nullptr, "outObject != NULL"))
        TNqCountedCreateHelper<T>{outObject} = new T;
}

} // namespace

void ReleaseIfNotNull(void*& p)
{
    INqUnknown* object = static_cast<INqUnknown*>(p);
    p = nullptr;
    ReleaseIfNotNull(object);
}

TNqCountedObject::TNqCountedObject()
    : fRefCount(1),
      fUniqueObjectNumber(0),
      fPreviousCountedObject(nullptr),
      fNextCountedObject(nullptr)
{
    if (gCurrentCountedObjects == nullptr)
    {
        NqNotify("InitNqCountedObject should be called before creating counted objects");
        return;
    }
    fUniqueObjectNumber = CountNewObject();
    if (*gFirstCountedObject == nullptr)
    {
        *gFirstCountedObject = this;
    }
    else
    {
        fPreviousCountedObject = *gLastCountedObject;
        fPreviousCountedObject->fNextCountedObject = this;
    }
    *gLastCountedObject = this;
}

TNqCountedObject::~TNqCountedObject()
{
    if (gCurrentCountedObjects != nullptr && IsRegistered())
    {
        (fNextCountedObject != nullptr ? fNextCountedObject->fPreviousCountedObject : *gLastCountedObject) =
            fPreviousCountedObject;
        (fPreviousCountedObject != nullptr ? fPreviousCountedObject->fNextCountedObject : *gFirstCountedObject) =
            fNextCountedObject;
        fPreviousCountedObject = nullptr;
        fNextCountedObject = nullptr;
        DecrementAtomicCounter(*gCurrentCountedObjects);
    }
    NqCheck(fRefCount <= 1);
}

// An object that was created before the registry is in no list. The serial number alone would do until it wraps to 0.
bool TNqCountedObject::IsRegistered() const
{
    return fUniqueObjectNumber != 0 || fPreviousCountedObject != nullptr || fNextCountedObject != nullptr ||
           *gFirstCountedObject == this;
}

NqErr TNqCountedObject::QueryInterface(const NqIID& iid, void** outInterface)
{
    return QueryRootInterface(this, iid, outInterface);
}

uint32 TNqCountedObject::AddRef()
{
    return ++fRefCount;
}

uint32 TNqCountedObject::Release()
{
    const uint32 count = --fRefCount;
    if (count == 0)
        delete this;
    return count;
}

void TNqCountedObject::Create(TNqCountedObject** outObject)
{
    CreateBareObject(outObject);
}

TNqSMPCountedObject::TNqSMPCountedObject() : fRefCountAC(nullptr)
{
    if (gCurrentCountedObjects != nullptr)
        CountNewObject();
    fRefCountAC = NewAtomicCounter();
    if (fRefCountAC == nullptr)
    {
        if (gCurrentCountedObjects != nullptr)
            DecrementAtomicCounter(*gCurrentCountedObjects);
        throw TNqException(kNqErrOutOfMemory, NqSourcePath(__FILE__), __LINE__);
    }
    SetAtomicCounterValue(fRefCountAC, 1);
}

TNqSMPCountedObject::TNqSMPCountedObject(TNqAtomicCounterHolder inCounter) : fRefCountAC(inCounter)
{
    if (gCurrentCountedObjects != nullptr)
        CountNewObject();
    SetAtomicCounterValue(fRefCountAC, 1);
}

TNqSMPCountedObject::~TNqSMPCountedObject()
{
    if (gCurrentCountedObjects != nullptr)
        DecrementAtomicCounter(*gCurrentCountedObjects);
    NqCheck(GetAtomicCounterValue(fRefCountAC) == 0);
    DeleteAtomicCounter(fRefCountAC);
}

NqErr TNqSMPCountedObject::QueryInterface(const NqIID& iid, void** outInterface)
{
    return QueryRootInterface(this, iid, outInterface);
}

uint32 TNqSMPCountedObject::AddRef()
{
    return static_cast<uint32>(IncrementAtomicCounter(fRefCountAC));
}

uint32 TNqSMPCountedObject::Release()
{
    const int32 count = DecrementAtomicCounter(fRefCountAC);
    if (count == 0)
        delete this;
    else if (count < 0)
        NqNotify("TNqSMPCountedObject: ref count < 0");
    return static_cast<uint32>(count);
}

void TNqSMPCountedObject::Create(TNqSMPCountedObject** outObject)
{
    CreateBareObject(outObject);
}

void InitNqCountedObject(TNqCountedObject** inFirst, TNqCountedObject** inLast, TNqSMPCountedObject** inFirstSMP,
                         TNqSMPCountedObject** inLastSMP, TNqAtomicCounter** inTotal, TNqAtomicCounter** inCurrent)
{
    gFirstCountedObject = inFirst;
    gLastCountedObject = inLast;
    gFirstSMPCountedObject = inFirstSMP;
    gLastSMPCountedObject = inLastSMP;
    gTotalCountedObjects = inTotal;
    gCurrentCountedObjects = inCurrent;
}

void GetNqCountedObject(TNqCountedObject**& outFirst, TNqCountedObject**& outLast, TNqSMPCountedObject**& outFirstSMP,
                        TNqSMPCountedObject**& outLastSMP, TNqAtomicCounter**& outTotal, TNqAtomicCounter**& outCurrent)
{
    outFirst = gFirstCountedObject;
    outLast = gLastCountedObject;
    outFirstSMP = gFirstSMPCountedObject;
    outLastSMP = gLastSMPCountedObject;
    outTotal = gTotalCountedObjects;
    outCurrent = gCurrentCountedObjects;
}
