// Component objects: 128-bit identifiers and the root interface.
//
//     class IMyService : public INqUnknown
//     {
//     public:
//         virtual int32 Answer() = 0;
//
//     protected:
//         ~IMyService() = default; // Release destroys, nobody else
//     };
//     constexpr NqIID IID_IMyService(0x51F3A08C, 0x2B64, 0x47D9, 0x8E, 0x13, 0xC0, 0x7A, 0x5D, 0x92, 0x4F, 0xB6);
//
//     TNqCountedPtr<IMyService> service; // NqCountedPtr.h
//     if (object->QueryInterface(IID_IMyService, reinterpret_cast<void**>(&service)) == 0)
//         service->Answer();
//
// Implementations derive from TNqCountedObject (one thread) or TNqSMPCountedObject (any thread), NqCountedObject.h.

#pragma once

#include "NqCore/PublicAPI/NqObject.h"

using NqCOMErr = NqErr;

// What QueryInterface returns for an interface that the object does not have.
constexpr NqCOMErr kNqNoInterface = static_cast<NqCOMErr>(0x80014002);

// A 128-bit identifier, 16 bytes in memory in the order of its parts.
class NqGUID : public TNqObject
{
public:
    constexpr NqGUID(uint32 d1, uint16 d2, uint16 d3, uint8 b0, uint8 b1, uint8 b2, uint8 b3, uint8 b4, uint8 b5,
                     uint8 b6, uint8 b7)
        : Data1(d1),
          Data2(d2),
          Data3(d3),
          Data4_0(b0),
          Data4_1(b1),
          Data4_2(b2),
          Data4_3(b3),
          Data4_4(b4),
          Data4_5(b5),
          Data4_6(b6),
          Data4_7(b7)
    {
    }

    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4_0;
    uint8_t Data4_1;
    uint8_t Data4_2;
    uint8_t Data4_3;
    uint8_t Data4_4;
    uint8_t Data4_5;
    uint8_t Data4_6;
    uint8_t Data4_7;
};

using NqIID = NqGUID;

static_assert(sizeof(NqGUID) == 16 && alignof(NqGUID) == 4, "identifiers are exchanged as 16 bytes");

// True when all 16 bytes are equal.
boolean NqInlineIsEqualGUID(const NqGUID& a, const NqGUID& b);

inline bool operator==(const NqGUID& a, const NqGUID& b)
{
    return NqInlineIsEqualGUID(a, b) != 0;
}
inline bool operator!=(const NqGUID& a, const NqGUID& b)
{
    return !(a == b);
}

// The root of every interface. It has no virtual destructor: the slots of derived interfaces follow these three.
class INqUnknown
{
public:
    // Stores this object's face for `iid` in *outInterface with a reference for the caller and returns 0; the interface
    // that *outInterface held before, if any, is released. Without that face: null is stored, kNqNoInterface returned.
    virtual NqErr QueryInterface(const NqIID& iid, void** outInterface) = 0;

    // Both return the new count. The last Release deletes the object.
    virtual uint32 AddRef() = 0;
    virtual uint32 Release() = 0;

protected:
    ~INqUnknown() = default;
};
