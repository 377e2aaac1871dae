#include "NqCore/PublicAPI/NqFileType.h"

#include "NqCore/Include/NqStreamText.h"
#include "NqCore/PublicAPI/NqFileTypeUtils.h"
#include "NqCore/PublicAPI/NqResourceStream.h"

#include <new>

namespace
{

constexpr uint32 kLongestCompared = 1023; // bytes that the case-blind comparison looks at

int8 InCapitals(int8 inChar)
{
    return inChar >= 'a' && inChar <= 'z' ? static_cast<int8>(inChar - ('a' - 'A')) : inChar;
}

bool IsAscii(int8 inChar)
{
    return (static_cast<uint8>(inChar) & 0x80) == 0;
}

// As IsEqualNotCaseSensitive, which copies and maps both texts. Mapping leaves every ASCII letter one letter, so up to
// the first byte that is not ASCII the bytes tell by themselves.
bool IsSameExtension(const TNqString& inA, const TNqString& inB)
{
    if (inA.ByteLength() > kLongestCompared || inB.ByteLength() > kLongestCompared)
        return inA.IsEqualNotCaseSensitive(inB);
    const int8* a = inA.ByteLength() != 0 ? inA.GetString() : "";
    const int8* b = inB.ByteLength() != 0 ? inB.GetString() : "";
    for (; IsAscii(*a) && IsAscii(*b); ++a, ++b)
    {
        if (InCapitals(*a) != InCapitals(*b))
            return false;
        if (*a == 0)
            return true;
    }
    return inA.IsEqualNotCaseSensitive(inB);
}

template <class T, class Test>
const T* FindFirst(const TNqClassArray<T>& inArray, Test&& inTest)
{
    for (uint32 i = 0; i < inArray.GetElemCount(); ++i)
    {
        const T& elem = inArray.BaseAddress()[i];
        if (inTest(elem))
            return &elem;
    }
    return nullptr;
}

// The count to write for so many entries.
int16 GetWrittenCount(int32 inCount)
{
    const auto count = static_cast<uint32>(inCount);
    NqCheckText(count <= kNqMaxFileTypeEntries, "count <= kNqMaxFileTypeEntries");
    return static_cast<int16>(Nq_Min(count, kNqMaxFileTypeEntries));
}

} // namespace

// ---- A type ---------------------------------------------------------------------------------------------------------

const TNqString& TNqFileType::GetExtension(int32 inIndex) const
{
    static const TNqString15 none;
    const auto index = static_cast<uint32>(inIndex);
    if (!NqCheckText(index < fExtensions.GetElemCount(), "index < GetElemCount()"))
        return none;
    return fExtensions.BaseAddress()[index];
}

const TNqFileID& TNqFileType::GetType(int32 inIndex) const
{
    static const TNqFileID none;
    const auto index = static_cast<uint32>(inIndex);
    if (!NqCheckText(index < fTypes.GetElemCount(), "index < GetElemCount()"))
        return none;
    return fTypes.BaseAddress()[index];
}

void TNqFileType::AddExtension(const TNqString& inExtension)
{
    if (ContainsExt(inExtension))
        return;
    const bool isEmpty = inExtension.ByteLength() == 0;
    const uint32 count = fExtensions.GetElemCount();
    // A copy for which there was no memory is empty, and as an extension that of every file without one.
    if (fExtensions.AddElem(TNqDynamicString(inExtension)) && !isEmpty && fExtensions[count].ByteLength() == 0)
        fExtensions.SetElemCount(count);
}

void TNqFileType::AddType(const TNqFileID& inType)
{
    if (inType.fID != 0 && !ContainsType(inType))
        fTypes.AddElem(inType);
}

boolean TNqFileType::ContainsExt(const TNqString& inExtension) const
{
    return FindFirst(fExtensions, [&inExtension](const TNqDynamicString& own)
                     { return IsSameExtension(inExtension, own); }) != nullptr;
}

boolean TNqFileType::ContainsType(const TNqFileID& inType) const
{
    const TNqFileID* const codes = fTypes.BaseAddress();
    return std::any_of(codes, codes + fTypes.GetElemCount(),
                       [&inType](const TNqFileID& own) { return own.fID == inType.fID; });
}

bool TNqFileType::IsWholeCopyOf(const TNqFileType& inType) const
{
    const TNqDynamicString* const own = fExtensions.BaseAddress();
    return GetTypesCount() == inType.GetTypesCount() && GetExtensionsCount() == inType.GetExtensionsCount() &&
           std::equal(own, own + fExtensions.GetElemCount(), inType.fExtensions.BaseAddress(),
                      [](const TNqDynamicString& a, const TNqDynamicString& b)
                      { return a.ByteLength() == b.ByteLength(); });
}

// ---- The list -------------------------------------------------------------------------------------------------------

const TNqFileType& TNqFileTypeList::GetElem(int32 inIndex) const
{
    static const TNqFileType none;
    const auto index = static_cast<uint32>(inIndex);
    if (!NqCheckText(index < fList.GetElemCount(), "index < GetElemCount()"))
        return none;
    return fList.BaseAddress()[index];
}

void TNqFileTypeList::AddElem(const TNqFileType& fileType)
{
    NqCheck(fileType.GetExtensionsCount() > 0);
    auto* const listed = const_cast<TNqFileType*>(FindNqFileTypeByID(fileType.GetID()));
    if (listed == nullptr)
    {
        const uint32 count = fList.GetElemCount();
        if (fList.AddElem(fileType) && !fList[count].IsWholeCopyOf(fileType))
            fList.SetElemCount(count);
        return;
    }
    for (int32 i = 0; i < fileType.GetExtensionsCount(); ++i)
        listed->AddExtension(fileType.GetExtension(i));
    for (int32 i = 0; i < fileType.GetTypesCount(); ++i)
        listed->AddType(fileType.GetType(i));
}

const TNqFileType* TNqFileTypeList::FindNqFileTypeByID(const NqFileTypeID& inID) const
{
    return FindFirst(fList, [inID](const TNqFileType& type) { return type.GetID() == inID; });
}

const TNqFileType* TNqFileTypeList::FindNqFileType(const TNqString& inExtension, const TNqFileID& inType) const
{
    const TNqFileType* const found =
        FindFirst(fList, [&inExtension](const TNqFileType& type) { return type.ContainsExt(inExtension); });
    if (found != nullptr)
        return found;
    return FindFirst(fList, [&inType](const TNqFileType& type) { return type.ContainsType(inType); });
}

const TNqFileType* TNqFileTypeList::FindNqFileType(const TNqFile& inFile) const
{
    APIFileInfo info;
    TNqString255 extension;
    inFile.GetInfo(info);
    inFile.GetExtension(extension);
    return FindFirst(fList, [&](const TNqFileType& type) { return type.Contains(extension, info.fType); });
}

NqFileTypeID TNqFileTypeList::FindNqFileTypeID(const TNqFile& inFile) const
{
    const TNqFileType* const type = FindNqFileType(inFile);
    return type != nullptr ? type->GetID() : 0;
}

boolean TNqFileTypeList::IsSingleFileFamily() const
{
    return FindFirst(fList, [this](const TNqFileType& type)
                     { return type.GetFileTypeFamilyID() != GetElem(0).GetFileTypeFamilyID(); }) == nullptr;
}

// ---- Resources ------------------------------------------------------------------------------------------------------

void TNqFileTypeList::ReadFromResource(TNqResourceStream& inStream, uint32 inFamilyID)
{
    int16 count = 0;
    inStream >> count;
    for (int16 i = 0; i < count && inStream.good(); ++i)
    {
        TNqFileType type(0, inFamilyID);
        inStream >> type;
        if (inStream.good())
            AddElem(type);
    }
}

TNqResourceStream& operator>>(TNqResourceStream& inStream, TNqFileType& outType)
{
    NqFileTypeID id = 0;
    inStream >> id;
    if (!inStream.good())
        return inStream;
    outType.SetID(id);

    TNqString31 name;
    inStream.ReadLocalizedCString(name);
    if (!inStream.good())
        return inStream;
    outType.SetName(name);

    int16 count = 0;
    inStream >> count;
    for (int16 i = 0; i < count && inStream.good(); ++i)
    {
        TNqFileID type;
        inStream >> type.fID;
        if (inStream.good())
            outType.AddType(type);
    }
    if (!inStream.good())
        return inStream;

    count = 0;
    inStream >> count;
    for (int16 i = 0; i < count && inStream.good(); ++i)
    {
        TNqDynamicString text;
        inStream.ReadCString(text);
        TNqString15 extension(text);
        extension.ToLower();
        if (inStream.good())
            outType.AddExtension(extension);
    }
    return inStream;
}

TNqResourceStream& operator<<(TNqResourceStream& outStream, const TNqFileType& inType)
{
    NqPlainSink sink(outStream);
    NqInsert(sink, inType.GetID());
    sink.Run([&] { outStream.WriteLocalizedCString(inType.GetName()); });
    const int16 types = GetWrittenCount(inType.GetTypesCount());
    NqInsert(sink, types);
    for (int16 i = 0; i < types; ++i)
        NqInsert(sink, inType.GetType(i).fID);
    const int16 extensions = GetWrittenCount(inType.GetExtensionsCount());
    NqInsert(sink, extensions);
    for (int16 i = 0; i < extensions; ++i)
        sink.Run([&] { outStream.WriteCString(inType.GetExtension(i)); });
    return outStream;
}

TNqResourceStream& operator<<(TNqResourceStream& outStream, const TNqFileTypeList& inList)
{
    NqPlainSink sink(outStream);
    const int16 count = GetWrittenCount(inList.GetElemCount());
    NqInsert(sink, count);
    for (int16 i = 0; i < count; ++i)
        sink.Run([&] { outStream << inList.GetElem(i); });
    return outStream;
}

// ---- The registry ---------------------------------------------------------------------------------------------------

namespace
{

// An object made on first use, in static memory: making it cannot fail. It is ended by End alone, never when the
// process ends, as the host is gone by then.
template <class T>
class TOnFirstUse
{
public:
    T& Get()
    {
        if (fObject == nullptr)
            fObject = ::new (static_cast<void*>(fMemory)) T;
        return *fObject;
    }
    const T* GetIfMade() const { return fObject; }
    void End()
    {
        if (fObject != nullptr)
            fObject->~T();
        fObject = nullptr;
    }

private:
    alignas(T) unsigned char fMemory[sizeof(T)];
    T* fObject;
};

TOnFirstUse<TNqFileTypeList> gAllTypes;
TOnFirstUse<TNqClassArray<TNqFileTypeFamily>> gFamilies;

} // namespace

TNqFileTypeList& TNqFileTypeUtils::GetAllTypes()
{
    return gAllTypes.Get();
}

void TNqFileTypeUtils::RegisterFileFamily(int32 inID, const TNqString& inName)
{
    TNqFileTypeFamily family;
    family.SetFileTypeFamilyID(inID);
    family.SetName(inName);
    gFamilies.Get().AddElem(family);
}

const TNqFileTypeFamily* TNqFileTypeUtils::FindFileFamily(int32 inID)
{
    const auto* const families = gFamilies.GetIfMade();
    if (families == nullptr)
        return nullptr;
    return FindFirst(*families, [inID](const TNqFileTypeFamily& family)
                     { return family.GetFileTypeFamilyID() == static_cast<NqTypeFamilyID>(inID); });
}

void TNqFileTypeUtils::ShutDown()
{
    gAllTypes.End();
    gFamilies.End();
}
