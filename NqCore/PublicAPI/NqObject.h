// The three empty bases through which every object of the library is allocated from the host.
//
//     class TMyRecord : public TNqObject { ... };
//     TMyRecord* record = new TMyRecord; // from the host's memory; null when there is none, never an exception
//     delete record;
//
// The three behave alike; they are distinct types so that a class may have more than one of them among its ancestors
// without growing. Such a class says whose allocation it means: `using TNqObject::operator new;`, and the same with
// `delete`. Derive from TNqObject unless a base already does.
//
// The host aligns blocks for scalars, and `new` asks for no more: a class with a stricter alignment, such as
// alignas(64), must not be made with it.
//
// Failure: without a memory service `new` reports "gMemoryUtilities" and yields null; `delete` then leaks in silence,
// since the host has already gone. Threads: as the host's memory service.

#pragma once

#include "NqCore/PublicAPI/NqCompiler.h"

#include <cstring>

// What a pointer slot, or the first word of an object, holds once its object is dead.
extern const uint64 kDeceasedPointerValue;

inline boolean NqCheckDeceased(uintpointer inValue)
{
    return inValue == static_cast<uintpointer>(0xDECEA5EDDECEA5EDULL);
}
inline boolean NqCheckDeceased(const volatile void* inPointer)
{
    return NqCheckDeceased(reinterpret_cast<uintpointer>(inPointer));
}

// Whether the first word of an object, where its virtual table would be, says that it is dead. The object is at least
// as large as a word.
inline bool NqIsMarkedDead(const void* inObject)
{
    void* word;
    std::memcpy(&word, inObject, sizeof word);
    return NqCheckDeceased(word);
}

// Whether there is an object to use: the pointer is neither null nor dead, and what it leads to is not marked dead.
// Objects smaller than a word cannot be marked.
template <class T>
inline bool NqIsAlive(const T* inObject)
{
    if (inObject == nullptr || NqCheckDeceased(inObject))
        return false;
    if constexpr (sizeof(T) < sizeof(void*))
        return true;
    else
        return !NqIsMarkedDead(inObject);
}

// The allocation that all the bases share. Sizes above 4 GiB are reported and requested modulo 2^32.
void* NqAllocateObject(NqSize inByteCount) noexcept;
void NqFreeObject(void* p) noexcept;
void* NqAllocateObjectArray(NqSize inByteCount) noexcept;
void NqFreeObjectArray(void* p) noexcept;

// Host-backed `operator new` and `delete`, written once for the bases and for the counted objects. Tag keeps the bases
// apart.
template <int Tag>
class TNqHostAllocated
{
public:
    static void* operator new(NqSize inByteCount) noexcept { return NqAllocateObject(inByteCount); }
    static void operator delete(void* p) noexcept { NqFreeObject(p); }
    static void* operator new[](NqSize inByteCount) noexcept { return NqAllocateObjectArray(inByteCount); }
    static void operator delete[](void* p) noexcept { NqFreeObjectArray(p); }
};

class TNqObject : public TNqHostAllocated<0>
{
public:
    using TNqHostAllocated<0>::operator new;
    using TNqHostAllocated<0>::operator delete;
    static void* operator new(NqSize, void* inWhere) noexcept { return inWhere; }
    static void operator delete(void*, void*) noexcept {}
};

class TNqObject0 : public TNqHostAllocated<1>
{
public:
    using TNqHostAllocated<1>::operator new;
    using TNqHostAllocated<1>::operator delete;
    static void* operator new(NqSize, void* inWhere) noexcept { return inWhere; }
    static void operator delete(void*, void*) noexcept {}
};

class TNqObject1 : public TNqHostAllocated<2>
{
};

static_assert(sizeof(TNqObject) == 1 && sizeof(TNqObject0) == 1 && sizeof(TNqObject1) == 1, "the bases stay empty");
