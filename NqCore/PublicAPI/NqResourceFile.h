// The file that resources come from, as code sees it that only uses them. A host derives its own: the reference host
// has TNqHostResourceFile, which also makes, changes and saves such files.
//
//     TNqResource* resource = file.FindResource(NqFourChar("FTyp"), 128);
//     if (resource != nullptr)
//     {
//         TNqResourceStream stream(*resource, eRead);
//         ...
//     }
//
// Ownership: what a file finds belongs to it and lives as long as the file, or longer for whoever holds a reference.
// Threads: one at a time.

#pragma once

#include "NqCore/PublicAPI/NqObject.h"

class TNqResource;
class TNqString;

class TNqResourceFile : public TNqObject
{
public:
    TNqResourceFile() = default;
    TNqResourceFile(const TNqResourceFile&) = delete;
    TNqResourceFile& operator=(const TNqResourceFile&) = delete;
    virtual ~TNqResourceFile();

    // The resource of that type and number; null when there is none.
    virtual TNqResource* FindResource(FourCharT inType, int16 inId) = 0;
    // The resource of that type, of the lowest number, whose name has exactly these bytes; null when there is none.
    virtual TNqResource* FindResource(FourCharT inType, const TNqString& inName) = 0;

    // The types that there are, in ascending order. False when there is none, or no further one.
    //
    //     FourCharT type;
    //     for (boolean more = file.GetFirstType(type); more; more = file.GetNextType(type))
    //         ...
    virtual boolean GetFirstType(FourCharT& outType) = 0;
    virtual boolean GetNextType(FourCharT& ioType) = 0;

    // The resources of a type, by ascending numbers. An index out of range gives null.
    virtual uint32 CountResources(FourCharT inType) = 0;
    virtual TNqResource* GetResource(FourCharT inType, uint32 inIndex) = 0;

protected:
    // Files say whose a resource is: this one's, or nobody's once it has left.
    void Own(TNqResource& ioResource);
    static void Disown(TNqResource& ioResource);
};
