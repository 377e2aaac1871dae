// A plain pointer whose uses are checked: a null or dead one is reported. It owns nothing and deletes nothing.
// T is at least as large as a pointer: the first word of the object is looked at.

#pragma once

#include "NqCore/PublicAPI/NqCountedPtr.h"

template <class T>
class TNqPtr : public TNqObject
{
public:
    TNqPtr() : fObject(nullptr) {}
    TNqPtr(T* p) : fObject(p) {}

    T* operator=(T* p)
    {
        fObject = p;
        return p;
    }

    T* operator->() const
    {
        const bool usable = NqCheckText(fObject != nullptr && !NqCheckDeceased(fObject), "Bad Pointer");
        if (!usable && fObject != nullptr)
            return fObject; // a dead slot has no first word to look at
        NqCheckText(fObject != nullptr && !NqCheckDeceased(NqFirstWord(fObject)),
                    "fObject && !NqCheckDeceased(*(void**)fObject)");
        return fObject;
    }

    operator T*() const
    {
        if (NqCheck(!NqCheckDeceased(fObject)) && fObject != nullptr)
            NqCheckText(!NqCheckDeceased(NqFirstWord(fObject)),
                        "(fObject == NULL) || !NqCheckDeceased(*(void**)fObject)");
        return fObject;
    }

private:
    T* fObject;
};
