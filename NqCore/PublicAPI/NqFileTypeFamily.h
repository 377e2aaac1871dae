// Families of file types: all image formats, say. A family is a number that the application gives, and a name.

#pragma once

#include "NqCore/PublicAPI/NqString.h"

using NqTypeFamilyID = uint32;

class TNqFileTypeFamily : public TNqObject
{
public:
    NqTypeFamilyID GetFileTypeFamilyID() const { return fFileTypeFamilyID; }
    void SetFileTypeFamilyID(int32 inID) { fFileTypeFamilyID = static_cast<NqTypeFamilyID>(inID); }

    const TNqString& GetName() const { return fFileFamilyName; }
    void SetName(const TNqString& inName) { fFileFamilyName = inName; }

private:
    NqTypeFamilyID fFileTypeFamilyID = 0;
    TNqString31 fFileFamilyName;
};

static_assert(sizeof(TNqFileTypeFamily) == 64, "families are shared with modules built elsewhere");
