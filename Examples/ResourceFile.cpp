// Keeps the cursors of an application in a resource file: adds them, saves the file, lists what is in it, and shows
// what is said of a file that was damaged on its way. (Applications that need no program for it make such files with
// nqres.)

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqResourceStream.h"
#include "NqHost/PublicAPI/NqHost.h"
#include "NqHost/PublicAPI/NqHostFiles.h"
#include "NqHost/PublicAPI/NqHostResourceFile.h"

#include <cstdio>

namespace
{

constexpr FourCharT kCursor = NqFourChar("CURS");
constexpr FourCharT kDefaults = NqFourChar("DFLT");
constexpr const char* kPath = "cursors.nqr";

// A resource whose data are the point of a cursor.
NqErr AddPoint(TNqHostResourceFile& ioFile, FourCharT inType, int16 inId, const char* inName, int16 x, int16 y)
{
    TNqByteSwapStream out;
    out << x << y;
    const uint32 size = static_cast<uint32>(out.pcount());
    TNqCountedPtr<TNqResource> resource;
    *&resource = new TNqResource(inType, inId, TNqString255(inName)); // the pointer takes over the first reference
    resource->TakeData(out.str(), size);
    return ioFile.AddResource(*resource);
}

void List(TNqHostResourceFile& ioFile)
{
    FourCharT type;
    for (boolean more = ioFile.GetFirstType(type); more; more = ioFile.GetNextType(type))
        for (uint32 i = 0; TNqResource* const resource = ioFile.GetResource(type, i); ++i)
        {
            TNqString15 code;
            code.FromFourCharT(type, true);
            TNqResourceStream in(*resource, eRead);
            int16 x = 0;
            int16 y = 0;
            in >> x >> y;
            std::printf("%s %d \"%s\": %d,%d\n", code.StrGet(), resource->GetID(), resource->GetName().StrGet(), x, y);
        }
}

// A transfer that changed one byte.
void Damage()
{
    int8* bytes = nullptr;
    uint32 size = 0;
    TNqDynamicString reason;
    if (NqHostLoadFile(kPath, bytes, size, reason) == kNqNoErr)
    {
        bytes[size / 2] ^= 1;
        NqHostReplaceFile(kPath, bytes, size, reason);
    }
    Nqfree(bytes);
}

} // namespace

int main()
{
    const TNqHost host;
    TNqDynamicString reason;
    TNqHostResourceFile file;
    AddPoint(file, kDefaults, 0, "", 2, 2);
    AddPoint(file, kCursor, 130, "Cross", 8, 8);
    AddPoint(file, kCursor, 128, "Arrow", 1, -1);
    if (AddPoint(file, kCursor, 128, "Hand", 0, 0) == kNqErrInvalidData)
        std::printf("CURS 128 is taken\n");
    if (file.Write(kPath, reason) != kNqNoErr)
        std::printf("%s: %s\n", kPath, reason.StrGet());

    TNqHostResourceFile copy;
    if (copy.Read(kPath, reason) == kNqNoErr)
        List(copy);
    const TNqResource* const cross = copy.FindResource(kCursor, TNqString31("Cross"));
    std::printf("Cross has the number %d\n", cross != nullptr ? cross->GetID() : 0);

    Damage();
    if (copy.Read(kPath, reason) != kNqNoErr)
        std::printf("%s: %s; %u resources as before\n", kPath, reason.StrGet(), copy.CountAllResources());
    return 0;
}
