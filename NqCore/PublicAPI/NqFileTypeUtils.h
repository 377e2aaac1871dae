// The one registry of an application: all its file types, and the families that they belong to.
//
//     TNqFileTypeUtils::RegisterFileFamily(NqFourChar("Modl"), TNqString31("3D models"));
//     TNqFileTypeUtils::GetAllTypes().ReadFromResource(stream, NqFourChar("Modl"));
//     ...
//     TNqFileTypeUtils::ShutDown();      // before the host ends
//
// Threads: register and read on one thread, at the start; then any number may look up.

#pragma once

#include "NqCore/PublicAPI/NqFileType.h"

class TNqFileTypeUtils
{
public:
    // Empty at first, and again after ShutDown, which ends what was returned before.
    static TNqFileTypeList& GetAllTypes();

    // Appends a family; an id may be registered more than once.
    static void RegisterFileFamily(int32 inID, const TNqString& inName);

    // Whether a family of that id was registered, and the first that was, or null.
    static boolean IsFileFamily(int32 inID) { return FindFileFamily(inID) != nullptr; }
    static const TNqFileTypeFamily* FindFileFamily(int32 inID);

    // Forgets all types and families and gives their memory back. Without it they are lost to the end of the process.
    static void ShutDown();
};
