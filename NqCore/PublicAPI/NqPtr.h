// A plain pointer whose uses are checked: a dead one is reported, and one to an object that is marked dead; a null one
// is where it is followed. All are returned as they are. It owns nothing and deletes nothing.
// T is at least as large as a pointer: the first word of the object is looked at.

#pragma once

#include "NqCore/PublicAPI/NqObject.h"

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
        NqCheckText(fObject != nullptr && !NqCheckDeceased(fObject), "Bad Pointer");
        if (!NqCheckDeceased(fObject)) // a dead pointer leads to nothing that could be looked at
            NqCheckText(fObject != nullptr && !NqIsMarkedDead(fObject),
                        "fObject && !NqCheckDeceased(*(void**)fObject)");
        return fObject;
    }

    operator T*() const
    {
        if (NqCheck(!NqCheckDeceased(fObject)) && fObject != nullptr)
            NqCheckText(!NqIsMarkedDead(fObject), "(fObject == NULL) || !NqCheckDeceased(*(void**)fObject)");
        return fObject;
    }

private:
    T* fObject;
};
