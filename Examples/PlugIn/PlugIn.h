// What the application and its plug-ins agree on: two functions that a plug-in exports, and what it is given.

#pragma once

#include "NqCore/PublicAPI/NqCommandBinding.h"
#include "NqCore/PublicAPI/NqCompObj.h"
#include "NqCore/PublicAPI/NqFileType.h"

class IPointCloudReader : public INqUnknown
{
public:
    // How many points the text has, one a line.
    virtual int32 CountPoints(const TNqString& inText) = 0;

protected:
    ~IPointCloudReader() = default;
};

constexpr NqIID IID_IPointCloudReader(0x3D0A6E15, 0x7C42, 0x4B8F, 0x9A, 0x61, 0x0E, 0xD7, 0x25, 0xB3, 0x48, 0xFC);

struct TPlugInHost
{
    TNqFileTypeList* fFileTypes;
    TNqCommandBindingContextList* fContexts;
    // Where the application counts its objects: gCurrentCountedObjects of its library.
    TNqAtomicCounter** fCountedObjects;
};

// 0, or an error, and nothing is registered then.
using TPlugInStart = NqErr (*)(const TPlugInHost*);
// A new object of the plug-in, with one reference for the caller.
using TPlugInCreate = void (*)(INqUnknown** outObject);
// Takes back what the plug-in registered. None of its objects may be alive.
using TPlugInEnd = void (*)();

constexpr const char* kPlugInStart = "NqPlugInStart";
constexpr const char* kPlugInCreate = "NqPlugInCreate";
constexpr const char* kPlugInEnd = "NqPlugInEnd";
