// A resource: a block of data with a type of four characters, a number and a name, and beside it the texts that
// translators work on.
//
//     TNqCountedPtr<TNqResource> resource;
//     *&resource = new TNqResource(NqFourChar("DLOG"), 128, TNqString255("About"));
//     TNqCountedPtr<TResourceStrings> strings;
//     TResourceStrings::Create(&strings);
//     TNqResourceStream out(strings);              // NqResourceStream.h: fields in, texts into the table
//     out << int32(640);
//     out.WriteLocalizedCString(TNqString255("About this program"));
//     const int32 size = out.pcount();
//     resource->TakeData(out.str(), static_cast<uint32>(size));
//     resource->SetLocalizedStrings(strings);
//
// Ownership: a resource is counted and born with one reference, its creator's; it holds a reference of its strings and
// frees its data, unless that is only lent. Threads: counting is safe from any thread, everything else is used by one
// thread at a time. Failure: nothing throws but the constructors, which need a counter of the host.

#pragma once

#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqCountedPtr.h"
#include "NqCore/PublicAPI/NqPtrArray.h"
#include "NqCore/PublicAPI/NqString.h"

class TNqResourceFile;

// The string table of a resource: texts in a fixed order, since the resource's data names them by their index.
class TResourceStrings : public TNqSMPCountedObject
{
public:
    TResourceStrings();
    ~TResourceStrings() override;

    // An empty table in *outStrings, which holds its one reference; what *outStrings held is released.
    // Throws kNqErrOutOfMemory, with *outStrings as it was.
    static void Create(TResourceStrings** outStrings);

    uint32 GetElemCount() const { return fStrings.GetElemCount(); }

    // The string, which stays where it is while others are appended. An index past the count is reported and gives an
    // empty string that is part of no table.
    TNqString& operator[](uint32 inIndex);
    const TNqString& operator[](uint32 inIndex) const;

    // Appends an empty string and returns it; null without memory.
    TNqString* AddElem();
    // Appends a copy of `inText`. False, with the table as it was, without memory.
    boolean AddElem(const TNqString& inText);

private:
    TNqPtrArray<TNqDynamicString> fStrings; // owned
};

// A resource in memory. Data and layout are shared with modules built elsewhere: there is no virtual operation.
class TNqResource : public TNqObject
{
public:
    // Without data. Throws kNqErrOutOfMemory when the host has no counter to give.
    TNqResource(FourCharT inType, int16 inId, const TNqString& inName);
    TNqResource(const TNqResource&) = delete;
    TNqResource& operator=(const TNqResource&) = delete;
    ~TNqResource();

    uint32 AddRef();
    uint32 Release(); // the last one deletes the resource

    // The file that it is in; null for one that is in none.
    TNqResourceFile* GetOwningFile() const { return fOwningFile; }
    FourCharT GetType() const { return fType; }
    int16 GetID() const { return fID; }
    const TNqString& GetName() const { return fResName; }
    void SetName(const TNqString& inName) { fResName = inName; } // at most 255 bytes of it

    // Bits that the file keeps with the resource; what they mean is up to who uses it.
    int32 GetAttributes() const { return fAttributes; }
    void SetAttributes(int32 inAttributes) { fAttributes = inAttributes; }

    uint32 GetSize() const { return fSize; }
    int8* GetData() const { return fResData; } // null when there is none

    // Replace the data. A stream over the data before must be gone. A block of the resource's own may be taken again,
    // with another size.
    boolean SetData(const int8* inData, uint32 inSize); // by a copy; false, and nothing changes, without memory
    void TakeData(int8* inData, uint32 inSize);         // by a block from Nqmalloc, which passes to the resource
    void LendData(int8* inData, uint32 inSize);         // by memory that stays the caller's and outlives the resource

    // The table of the texts that the data names; null for data that holds its texts itself.
    TResourceStrings* GetLocalizedStrings() const { return fLocalizedStrings; }
    void SetLocalizedStrings(TResourceStrings* inStrings) { fLocalizedStrings = inStrings; }

private:
    friend class TNqResourceFile;
    friend struct TNqResourceLayout;

    void ReplaceData(int8* inData, uint32 inSize, boolean inCanDelete);

    TNqResourceFile* fOwningFile;
    uint32 fSize;
    int8* fResData;
    int16 fID;
    FourCharT fType;
    int32 fAttributes;
    TNqAtomicCounterHolder fRefCount;
    TNqString255 fResName;
    boolean fCanDelete; // fResData is freed with the resource
    TNqCountedPtr<TResourceStrings> fLocalizedStrings;
};

static_assert(sizeof(TNqResource) == 344, "modules built elsewhere look into resources");
