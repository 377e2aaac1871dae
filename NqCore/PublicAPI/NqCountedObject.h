// The two implementations of reference counting that component objects derive from.
//
//     class TMyService : public TNqCountedObject, public IMyService // NqCompObj.h shows the interface
//     {
//     public:
//         NqErr QueryInterface(const NqIID& iid, void** outInterface) override
//         {
//             if (iid != IID_IMyService)
//                 return TNqCountedObject::QueryInterface(iid, outInterface);
//             TNqCountedGetHelper<IMyService>{reinterpret_cast<IMyService**>(outInterface)} = this;
//             return kNqNoErr;
//         }
//         uint32 AddRef() override { return TNqCountedObject::AddRef(); } // both bases have one
//         uint32 Release() override { return TNqCountedObject::Release(); }
//         int32 Answer() override { return 42; }
//     };
//
//     TNqCountedPtr<IMyService> service;
//     TNqCountedCreateHelper<IMyService>{&service} = new TMyService; // NqCountedPtrHelper.h
//
// TNqCountedObject counts plainly and belongs to one thread; the host can walk all living ones. TNqSMPCountedObject
// counts atomically and may be shared by threads; it is in no list.
//
// Ownership: an object is born with one reference, its creator's, and deletes itself when the last one is released. A
// plain object may also live on the stack or in another object, never released. An SMP object must have been released
// to 0. Failure: a count that is wrong at destruction is reported. Objects created before InitNqCountedObject are not
// registered, which is reported for plain ones.

#pragma once

#include "NqCore/PublicAPI/NqCompObj.h"
#include "NqCore/PublicAPI/NqHostServices.h"

class TNqCountedObject : public INqUnknown
{
public:
    TNqCountedObject();
    TNqCountedObject(const TNqCountedObject&) = delete;
    TNqCountedObject& operator=(const TNqCountedObject&) = delete;

    // As INqUnknown says. A null outInterface is reported, and there is no interface then.
    NqErr QueryInterface(const NqIID& iid, void** outInterface) override;
    uint32 AddRef() override;
    uint32 Release() override;
    virtual ~TNqCountedObject();

    // A bare object in *outObject, which holds its one reference; what *outObject held is released.
    // Throws kNqErrOutOfMemory, with *outObject as it was. A null outObject is reported.
    static void Create(TNqCountedObject** outObject);

    static void* operator new(NqSize inByteCount) noexcept { return NqAllocateObject(inByteCount); }
    static void operator delete(void* p) noexcept { NqFreeObject(p); }
    static void* operator new[](NqSize inByteCount) noexcept { return NqAllocateObjectArray(inByteCount); }
    static void operator delete[](void* p) noexcept { NqFreeObjectArray(p); }

    // Its number among all counted objects ever created; 0 when it was created before the registry.
    uint32 GetUniqueObjectNumber() const { return fUniqueObjectNumber; }

    // The neighbours in the list of living objects, null at its ends.
    TNqCountedObject* GetPreviousCountedObject() const { return fPreviousCountedObject; }
    TNqCountedObject* GetNextCountedObject() const { return fNextCountedObject; }

private:
    friend struct TNqCountedObjectLayout;

    bool IsRegistered() const;

    uint32_t fRefCount;
    uint32_t fUniqueObjectNumber;
    TNqCountedObject* fPreviousCountedObject;
    TNqCountedObject* fNextCountedObject;
};

class TNqSMPCountedObject : public INqUnknown
{
public:
    // Throws kNqErrOutOfMemory when the host has no counter to give.
    TNqSMPCountedObject();
    TNqSMPCountedObject(const TNqSMPCountedObject&) = delete;
    TNqSMPCountedObject& operator=(const TNqSMPCountedObject&) = delete;

    // As TNqCountedObject::QueryInterface.
    NqErr QueryInterface(const NqIID& iid, void** outInterface) override;

    // Safe from any thread. A Release below 0 is reported, deletes nothing and returns the negative count as uint32.
    uint32 AddRef() override;
    uint32 Release() override;
    virtual ~TNqSMPCountedObject();

    // As TNqCountedObject::Create.
    static void Create(TNqSMPCountedObject** outObject);

    static void* operator new(NqSize inByteCount) noexcept { return NqAllocateObject(inByteCount); }
    static void operator delete(void* p) noexcept { NqFreeObject(p); }
    static void* operator new[](NqSize inByteCount) noexcept { return NqAllocateObjectArray(inByteCount); }
    static void operator delete[](void* p) noexcept { NqFreeObjectArray(p); }

protected:
    // On a counter of its maker's, which it takes over: for a class whose makers cannot throw.
    explicit TNqSMPCountedObject(TNqAtomicCounterHolder inCounter);

private:
    friend struct TNqSMPCountedObjectLayout;

    TNqAtomicCounterHolder fRefCountAC;
};

// The registry: six variables of the host, kept here by address so that modules can share one set. Null until
// InitNqCountedObject; while the last is null nothing is registered.
extern TNqCountedObject** gFirstCountedObject;
extern TNqCountedObject** gLastCountedObject;
extern TNqSMPCountedObject** gFirstSMPCountedObject; // kept for the host, not used here
extern TNqSMPCountedObject** gLastSMPCountedObject;  // kept for the host, not used here
extern TNqAtomicCounterHolder* gTotalCountedObjects;
extern TNqAtomicCounterHolder* gCurrentCountedObjects;

// Called once by the host, before the first counted object; `outCurrent` null turns the statistics off.
void InitNqCountedObject(TNqCountedObject** inFirst, TNqCountedObject** inLast, TNqSMPCountedObject** inFirstSMP,
                         TNqSMPCountedObject** inLastSMP, TNqAtomicCounter** inTotal, TNqAtomicCounter** inCurrent);

// The six addresses, for a module that shares the registry of another.
void GetNqCountedObject(TNqCountedObject**& outFirst, TNqCountedObject**& outLast, TNqSMPCountedObject**& outFirstSMP,
                        TNqSMPCountedObject**& outLastSMP, TNqAtomicCounter**& outTotal,
                        TNqAtomicCounter**& outCurrent);
