// A file of the file system that is looked at without being opened for good: what a registry of file types asks for.
//
//     const TNqHostPathFile file(TNqString255("/home/me/duck.obj"));
//     const TNqFileType* type = TNqFileTypeUtils::GetAllTypes().FindNqFileType(file);
//
// The file system keeps no type codes: the code of a file is its first four bytes, the first one on top, as many
// formats start with a mark of their own ("glTF", "ply\n"). Files of less than four bytes, and whatever is no file that
// may be read, have the code 0. Nothing waits: pipes and devices are not opened.
//
// Threads: any number may ask at the same time. Each question looks at the file anew.

#pragma once

#include "NqCore/PublicAPI/INqFile.h"
#include "NqCore/PublicAPI/NqString.h"

class TNqHostPathFile final : public TNqFile
{
public:
    // The name is UTF-8; nothing needs to stand under it. A relative one is looked up in the folder that is current
    // when it is used.
    explicit TNqHostPathFile(const TNqString& inPath) : fPath(inPath) {}

    // Sizes, times (of its last change where the file system does not keep that of creation), the type code, whether
    // it may be written, and whether its name starts with a dot. Nothing of it when there is no such file.
    void GetInfo(APIFileInfo& outInfo) const override;

    // What follows the last dot of the last name in the path, but for a dot at its start.
    void GetExtension(TNqString& outExtension) const override;

private:
    TNqDynamicString fPath;
};
