// A pointer that holds one reference of a counted interface.
//
//     TNqCountedPtr<IMyService> service;
//     TMyService::Create(&service);      // `&` gives the slot itself, for factories
//     service->Answer();
//
// Every use is checked against the dead-object sentinel. A dead pointer is reported, a null one where it is followed;
// an object that is dead, by its pointer or by the mark in its first word, is neither counted nor released.
// Threads: a pointer belongs to one thread; what it points to is as its class says.

#pragma once

#include "NqCore/PublicAPI/NqObject.h"

// Takes a reference of an object that is alive. Returns `inObject`.
template <class T>
inline T* NqAddReference(T* inObject)
{
    if (NqIsAlive(inObject))
        inObject->AddRef();
    return inObject;
}

// Puts `inObject`, with a reference that the slot takes over, into `ioSlot` and releases what was there, unless it is
// dead. Everything that holds references stores them here. The slot changes first: whatever the end of the old object
// sets off finds it in order and releases nothing twice.
template <class T>
inline void NqStoreReference(T*& ioSlot, T* inObject)
{
    T* const old = ioSlot;
    ioSlot = inObject;
    if (NqIsAlive(old))
        old->Release();
}

template <class T>
class TNqCountedPtr : public TNqObject0
{
public:
    TNqCountedPtr() : fObject(nullptr) {}

    TNqCountedPtr(T* lp) : fObject(lp)
    {
        NqCheck(!NqCheckDeceased(lp));
        NqAddReference(lp);
    }

    TNqCountedPtr(const TNqCountedPtr& lp) : TNqObject0(), fObject(lp.fObject)
    {
        NqCheck(!NqCheckDeceased(lp.fObject));
        NqAddReference(lp.fObject);
    }

    ~TNqCountedPtr()
    {
        if (NqCheck(!NqCheckDeceased(fObject)))
            NqCheckText(fObject == nullptr || NqIsAlive(fObject), "!NqCheckDeceased(*(void**)fObject)");
        NqStoreReference<T>(fObject, nullptr);
    }

    // Puts `lp` into *pp with a reference of its own and releases what *pp held, in this order: the new object survives
    // even when the old one held the last reference to it. Returns lp. Reported are a bad pp, with which nothing is
    // done, a dead pointer in *pp, and a dead lp. What *pp held and is marked dead is dropped in silence.
    static T* Assign(T** pp, T* lp)
    {
        if (!NqCheckText(pp != nullptr && !NqCheckDeceased(pp), "Bad Pointer"))
            return lp;
        NqCheck(!NqCheckDeceased(*pp));
        if (NqCheckText(!NqCheckDeceased(lp), "(lp == NULL) || !NqCheckDeceased(lp)"))
            NqCheckText(lp == nullptr || NqIsAlive(lp), "(lp == NULL) || !NqCheckDeceased(*(void**)lp)");
        if (*pp != lp)
            NqStoreReference(*pp, NqAddReference(lp));
        return lp;
    }

    T* operator=(T* lp) { return Assign(&fObject, lp); }

    TNqCountedPtr& operator=(const TNqCountedPtr& lp) // NOLINT(bugprone-unhandled-self-assignment): Assign sees it
    {
        Assign(&fObject, lp.fObject);
        return *this;
    }

    operator T*() const
    {
        NqCheck(!NqCheckDeceased(fObject));
        return fObject;
    }

    // A null or dead pointer is reported "Bad Pointer" and returned as it is.
    T& operator*() const { return *Checked(); }
    T* operator->() const { return Checked(); }

    // The slot itself, for out-parameters; the object held is not released.
    T** operator&() { return &fObject; }
    T** GetAddress() { return &fObject; }

    boolean operator!() const { return fObject == nullptr; }

private:
    T* Checked() const
    {
        NqCheckText(fObject != nullptr && !NqCheckDeceased(fObject), "Bad Pointer");
        return fObject;
    }

    T* fObject; // null or one reference
};

static_assert(sizeof(TNqCountedPtr<int>) == sizeof(void*), "a counted pointer is a pointer in every layout");

// Clears `p` and releases what it held, if anything.
template <class T>
inline void ReleaseIfNotNull(T*& p)
{
    NqStoreReference<T>(p, nullptr);
}

// The same for a pointer that is known only to be a component object.
void ReleaseIfNotNull(void*& p);
