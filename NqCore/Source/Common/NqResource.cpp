#include "NqCore/PublicAPI/NqResource.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqResourceFile.h"

#include <cstring>

// ---- TResourceStrings ----------------------------------------------------------------------------------------------

TResourceStrings::TResourceStrings() = default;

TResourceStrings::~TResourceStrings()
{
    for (uint32 i = 0; i < fStrings.GetElemCount(); ++i)
        delete fStrings[i];
}

void TResourceStrings::Create(TResourceStrings** outStrings)
{
    if (!NqCheck(outStrings != nullptr))
        return;
    TResourceStrings* const strings = new TResourceStrings;
    if (strings == nullptr)
        throw TNqException(kNqErrOutOfMemory, NqSourcePath(__FILE__), __LINE__);
    ReleaseIfNotNull(*outStrings);
    *outStrings = strings;
}

TNqString& TResourceStrings::operator[](uint32 inIndex)
{
    return const_cast<TNqString&>(static_cast<const TResourceStrings&>(*this)[inIndex]);
}

const TNqString& TResourceStrings::operator[](uint32 index) const
{
    if (NqCheck(index < GetElemCount()))
        return *fStrings[index];
    thread_local TNqString15 none;
    none.FromText("", 0);
    return none;
}

TNqString* TResourceStrings::AddElem()
{
    TNqDynamicString* const text = new TNqDynamicString;
    if (text != nullptr && fStrings.AddElem(text))
        return text;
    delete text;
    return nullptr;
}

boolean TResourceStrings::AddElem(const TNqString& inText)
{
    TNqString* const elem = AddElem();
    if (elem == nullptr)
        return false;
    *elem = inText;
    if (elem->ByteLength() == inText.ByteLength())
        return true;
    const uint32 last = fStrings.GetElemCount() - 1;
    delete fStrings[last];
    fStrings.SetElemCount(last);
    return false;
}

// ---- TNqResource ---------------------------------------------------------------------------------------------------

TNqResource::TNqResource(FourCharT inType, int16 inId, const TNqString& inName)
    : fOwningFile(nullptr),
      fSize(0),
      fResData(nullptr),
      fID(inId),
      fType(inType),
      fAttributes(0),
      fRefCount(NewAtomicCounter()),
      fResName(inName),
      fCanDelete(false)
{
    if (fRefCount == nullptr)
        throw TNqException(kNqErrOutOfMemory, NqSourcePath(__FILE__), __LINE__);
    SetAtomicCounterValue(fRefCount, 1);
}

TNqResource::~TNqResource()
{
    ReplaceData(nullptr, 0, false);
    DeleteAtomicCounter(fRefCount);
}

uint32 TNqResource::AddRef()
{
    return static_cast<uint32>(IncrementAtomicCounter(fRefCount));
}

uint32 TNqResource::Release()
{
    const int32 count = DecrementAtomicCounter(fRefCount);
    if (count == 0)
        delete this;
    else
        NqCheck(count > 0);
    return static_cast<uint32>(count);
}

void TNqResource::ReplaceData(int8* inData, uint32 inSize, boolean inCanDelete)
{
    if (fCanDelete && inData != fResData)
        Nqfree(fResData);
    fResData = inData;
    fSize = inData != nullptr ? inSize : 0;
    fCanDelete = inCanDelete;
}

boolean TNqResource::SetData(const int8* inData, uint32 inSize)
{
    if (inData == nullptr || inSize == 0)
    {
        ReplaceData(nullptr, 0, false);
        return true;
    }
    int8* const copy = static_cast<int8*>(Nqmalloc(inSize));
    if (copy == nullptr)
        return false;
    std::memcpy(copy, inData, inSize);
    ReplaceData(copy, inSize, true);
    return true;
}

void TNqResource::TakeData(int8* inData, uint32 inSize)
{
    ReplaceData(inData, inSize, true);
}

void TNqResource::LendData(int8* inData, uint32 inSize)
{
    ReplaceData(inData, inSize, false);
}

// ---- TNqResourceFile -----------------------------------------------------------------------------------------------

TNqResourceFile::~TNqResourceFile() = default;

void TNqResourceFile::Own(TNqResource& ioResource)
{
    ioResource.fOwningFile = this;
}

void TNqResourceFile::Disown(TNqResource& ioResource)
{
    ioResource.fOwningFile = nullptr;
}
