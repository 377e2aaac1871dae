// The two ways in which a new pointer reaches a caller's out-parameter.
//
//     void TMyService::Create(IMyService** outObject)
//     {
//         TNqCountedCreateHelper<IMyService>{outObject} = new TMyService; // hands over the first reference, or throws
//     }
//
// The create helper stores an object whose first reference passes to the caller; the get helper stores one that lives
// already and adds a reference. Both release what the out-parameter held, after the new reference is safe.

#pragma once

#include "NqCore/PublicAPI/NqCountedPtr.h"
#include "NqCore/PublicAPI/NqException.h"

template <class T>
class TNqCountedCreateHelper : public TNqObject
{
public:
    explicit TNqCountedCreateHelper(T** inPtr) : fPtr(inPtr) {}

    // Throws kNqErrOutOfMemory for null, with *fPtr as it was. The pointer that is already there changes nothing.
    T** operator=(T* inNewObject) const
    {
        if (inNewObject == nullptr)
            throw TNqException(kNqErrOutOfMemory, NqSourcePath(__FILE__), __LINE__);
        if (*fPtr != inNewObject)
            NqStoreReference(*fPtr, inNewObject);
        return fPtr;
    }

private:
    T** fPtr;
};

template <class T>
class TNqCountedGetHelper : public TNqObject
{
public:
    explicit TNqCountedGetHelper(T** inPtr) : fPtr(inPtr) {}

    T** operator=(T* inObject) const
    {
        NqStoreReference(*fPtr, NqAddReference(inObject));
        return fPtr;
    }

private:
    T** fPtr;
};
