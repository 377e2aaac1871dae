// The file types that an application knows, and the list in which it looks up what a file is: by the extension of its
// name, or by the type code that the host has for it.
//
//     TNqFileTypeList& types = TNqFileTypeUtils::GetAllTypes();          // NqFileTypeUtils.h
//     TNqResourceStream stream(resource, eRead);
//     types.ReadFromResource(stream, NqFourChar("Modl"));
//     ...
//     const TNqFileType* type = types.FindNqFileType(TNqString15("obj"), TNqFileID());
//     if (type != nullptr && type->GetFileTypeFamilyID() == NqFourChar("Modl"))
//         ImportModel(path);
//
// A type is listed once: adding one whose id is there already adds its extensions and codes to the first, which keeps
// its name and family. So modules can each bring what they know of a type.
//
// As a resource, big-endian: id (4 bytes), name (NUL-terminated, or the 4-byte index of a string table), count (2) and
// codes (4 each), count (2) and extensions (NUL-terminated). A list is a count (2) and its types.
//
// Cost: adding and finding walk the list, and the extensions of a type. Failure: reported; a type, extension or code
// for which there is no memory is not added. Threads: one at a time.

#pragma once

#include "NqCore/PublicAPI/INqFile.h"
#include "NqCore/PublicAPI/NqClassArray.h"
#include "NqCore/PublicAPI/NqFileTypeFamily.h"

class TNqResourceStream;

using NqFileTypeID = uint32; // given by the application

// What a resource holds of each at most: counts are 16 bits wide.
constexpr uint32 kNqMaxFileTypeEntries = 32767;

class TNqFileType : public TNqObject
{
public:
    TNqFileType() = default;
    TNqFileType(const NqFileTypeID& inID, NqTypeFamilyID inFamily) : fID(inID), fFileTypeFamilyID(inFamily) {}

    NqFileTypeID GetID() const { return fID; }
    void SetID(const NqFileTypeID& inID) { fID = inID; }

    // At most 31 bytes are kept.
    const TNqString& GetName() const { return fName; }
    void SetName(const TNqString& inName) { fName = inName; }

    NqTypeFamilyID GetFileTypeFamilyID() const { return fFileTypeFamilyID; }
    void SetFileTypeFamilyID(uint32 inFamily) { fFileTypeFamilyID = inFamily; }

    // Without dot, as they were added. An index that is none is reported and gives an empty extension, a code of 0.
    int32 GetExtensionsCount() const { return static_cast<int32>(fExtensions.GetElemCount()); }
    const TNqString& GetExtension(int32 inIndex) const;
    int32 GetTypesCount() const { return static_cast<int32>(fTypes.GetElemCount()); }
    const TNqFileID& GetType(int32 inIndex) const;

    // Appends an extension that the type does not have yet, upper and lower case being the same.
    void AddExtension(const TNqString& inExtension);
    // Appends a code that the type does not have yet; 0 is none.
    void AddType(const TNqFileID& inType);

    // Upper and lower case are the same, in all scripts (TNqString::IsEqualNotCaseSensitive).
    boolean ContainsExt(const TNqString& inExtension) const;
    boolean ContainsType(const TNqFileID& inType) const;
    boolean Contains(const TNqString& inExtension, const TNqFileID& inType) const
    {
        return ContainsExt(inExtension) || ContainsType(inType);
    }

private:
    friend class TNqFileTypeList;
    friend struct TNqFileTypeLayout;

    // False when there was no memory for all of the copy.
    bool IsWholeCopyOf(const TNqFileType& inType) const;

    NqFileTypeID fID = 0;
    TNqString31 fName;
    NqTypeFamilyID fFileTypeFamilyID = 0;
    TNqClassArray<TNqDynamicString> fExtensions; // all different
    TNqArray<TNqFileID> fTypes;                  // all different, none 0
};

class TNqFileTypeList : public TNqObject
{
public:
    int32 GetElemCount() const { return static_cast<int32>(fList.GetElemCount()); }

    // An index that is none is reported and gives an empty type.
    const TNqFileType& GetElem(int32 inIndex) const;

    // Appends a copy, or merges it into the type of the same id. A type without extension is reported
    // ("fileType.GetExtensionsCount() > 0") and added all the same.
    void AddElem(const TNqFileType& inFileType);

    // The lookups return null when nothing fits. What they return is good until the next type is added.

    const TNqFileType* FindNqFileTypeByID(const NqFileTypeID& inID) const;

    // The first type with the extension; only when there is none, the first with the code.
    const TNqFileType* FindNqFileType(const TNqString& inExtension, const TNqFileID& inType) const;

    // The first type with the extension or the code of the file, whichever it has: a type that only has the code wins
    // over a later one that has the extension. The extension is cut at 255 bytes.
    const TNqFileType* FindNqFileType(const TNqFile& inFile) const;

    // The id of that type, or 0.
    NqFileTypeID FindNqFileTypeID(const TNqFile& inFile) const;

    // Whether all types are of the family of the first.
    boolean IsSingleFileFamily() const;

    // Adds the types of a resource, each as one of the given family. A resource that ends early gives the types that
    // are whole in it, and leaves the stream not good.
    void ReadFromResource(TNqResourceStream& inStream, uint32 inFamilyID);

private:
    friend struct TNqFileTypeLayout;

    TNqClassArray<TNqFileType> fList;
};

// Reads what a resource holds of a type: all but its family. Extensions are cut at 15 bytes and become lower case. A
// name index that the string table does not have is reported and gives an empty name. A resource that ends early gives
// what is whole in it, and leaves the stream not good.
TNqResourceStream& operator>>(TNqResourceStream& inStream, TNqFileType& outType);

// Write the type as it is, and all types. Entries beyond kNqMaxFileTypeEntries are reported and left out.
TNqResourceStream& operator<<(TNqResourceStream& outStream, const TNqFileType& inType);
TNqResourceStream& operator<<(TNqResourceStream& outStream, const TNqFileTypeList& inList);

static_assert(sizeof(TNqFileType) == 120 && sizeof(TNqFileTypeList) == 32,
              "types are shared with modules built elsewhere");
