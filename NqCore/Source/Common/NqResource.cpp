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

TNqString& TResourceStrings::operator[](uint32 index)
{
    return const_cast<TNqString&>(static_cast<const TResourceStrings&>(*this)[index]);
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

boolean TResourceStrings::AddElem(const TNqString& text)
{
    TNqString* const elem = AddElem();
    if (elem == nullptr)
        return false;
    *elem = text;
    if (elem->ByteLength() == text.ByteLength())
        return true;
    const uint32 last = fStrings.GetElemCount() - 1;
    delete fStrings[last];
    fStrings.SetElemCount(last);
    return false;
}

// ---- TNqResource ---------------------------------------------------------------------------------------------------

TNqResource::TNqResource(FourCharT type, int16 id, const TNqString& name)
    : fOwningFile(nullptr),
      fSize(0),
      fResData(nullptr),
      fID(id),
      fType(type),
      fAttributes(0),
      fRefCount(NewAtomicCounter()),
      fResName(name),
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

void TNqResource::ReplaceData(int8* data, uint32 size, boolean canDelete)
{
    if (fCanDelete && data != fResData)
        Nqfree(fResData);
    fResData = data;
    fSize = data != nullptr ? size : 0;
    fCanDelete = canDelete;
}

boolean TNqResource::SetData(const int8* data, uint32 size)
{
    if (data == nullptr || size == 0)
    {
        ReplaceData(nullptr, 0, false);
        return true;
    }
    int8* const copy = static_cast<int8*>(Nqmalloc(size));
    if (copy == nullptr)
        return false;
    std::memcpy(copy, data, size);
    ReplaceData(copy, size, true);
    return true;
}

void TNqResource::TakeData(int8* data, uint32 size)
{
    ReplaceData(data, size, true);
}

void TNqResource::LendData(int8* data, uint32 size)
{
    ReplaceData(data, size, false);
}

// ---- TNqResourceFile -----------------------------------------------------------------------------------------------

TNqResourceFile::~TNqResourceFile() = default;

void TNqResourceFile::Own(TNqResource& resource)
{
    resource.fOwningFile = this;
}

void TNqResourceFile::Disown(TNqResource& resource)
{
    resource.fOwningFile = nullptr;
}
