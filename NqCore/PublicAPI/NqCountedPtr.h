// A pointer that holds one reference of a counted interface.
//
//     TNqCountedPtr<IMyService> service;
//     TMyService::Create(&service);      // `&` gives the slot itself, for factories
//     service->Answer();
//
// Every use is checked against the dead-object sentinel; a dead or null pointer is reported, and a dead one is never
// dereferenced, counted or released. Threads: a pointer belongs to one thread; what it points to is as its class says.

#pragma once

#include "NqCore/PublicAPI/NqObject.h"

#include <cstring>

// The first word of an object: its virtual table, or the sentinel once it is dead.
template <class T>
inline void* NqFirstWord(const T* object)
{
    void* word;
    std::memcpy(&word, static_cast<const void*>(object), sizeof word);
    return word;
}

template <class T>
class TNqCountedPtr : public TNqObject0
{
public:
    TNqCountedPtr() : fObject(nullptr) {}

    TNqCountedPtr(T* lp) : fObject(lp)
    {
        if (NqCheck(!NqCheckDeceased(lp)))
            AddRefIfNotNull(lp);
    }

    TNqCountedPtr(const TNqCountedPtr& lp) : TNqObject0(), fObject(lp.fObject)
    {
        if (NqCheck(!NqCheckDeceased(lp.fObject)))
            AddRefIfNotNull(lp.fObject);
    }

    ~TNqCountedPtr()
    {
        if (!NqCheck(!NqCheckDeceased(fObject)) || fObject == nullptr)
            return;
        if (NqCheckText(!NqCheckDeceased(NqFirstWord(fObject)), "!NqCheckDeceased(*(void**)fObject)"))
            fObject->Release();
        fObject = nullptr;
    }

    // Puts `lp` into *pp with a reference of its own and releases what *pp held, in this order: the new object survives
    // even when the old one held the last reference to it. Returns lp. Dead pointers are reported and neither counted
    // nor released.
    static T* Assign(T** pp, T* lp)
    {
        if (!NqCheckText(pp != nullptr && !NqCheckDeceased(pp), "Bad Pointer"))
            return lp;
        const bool oldAlive = NqCheckText(!NqCheckDeceased(*pp), "!NqCheckDeceased(*pp)");
        bool newAlive = NqCheckText(!NqCheckDeceased(lp), "(lp == NULL) || !NqCheckDeceased(lp)");
        if (newAlive && lp != nullptr)
            newAlive = NqCheckText(!NqCheckDeceased(NqFirstWord(lp)), "(lp == NULL) || !NqCheckDeceased(*(void**)lp)");
        T* old = *pp;
        if (old == lp)
            return lp;
        if (newAlive)
            AddRefIfNotNull(lp);
        *pp = lp;
        if (oldAlive && old != nullptr)
            old->Release();
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
    static void AddRefIfNotNull(T* object)
    {
        if (object != nullptr)
            object->AddRef();
    }

    T* Checked() const
    {
        NqCheckText(fObject != nullptr && !NqCheckDeceased(fObject), "Bad Pointer");
        return fObject;
    }

    T* fObject; // null or one reference
};

static_assert(sizeof(TNqCountedPtr<int>) == sizeof(void*), "a counted pointer is a pointer in every layout");

// Releases what `p` holds, if anything, and clears it.
template <class T>
inline void ReleaseIfNotNull(T*& p)
{
    if (p != nullptr)
    {
        p->Release();
        p = nullptr;
    }
}

// The same for a pointer that is known only to be a component object.
void ReleaseIfNotNull(void*& p);
