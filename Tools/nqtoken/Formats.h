// The file formats that the tool knows: a registry of file types, read from the resource file formats.nqr that the
// build makes of Formats.txt and installs. Adding a name or an extension is a matter of that file alone.
//
// What a file is follows from the extension of its name; where that says nothing, from its first four bytes, which are
// the type code of a file here.

#pragma once

#include "Tools/nqtoken/Outcome.h"

#include "NqCore/PublicAPI/NqFileType.h"

#include <string>
#include <vector>

namespace nqtoken
{

class Output;

constexpr NqTypeFamilyID kModelFamily = 0x4D6F646C; // "Modl"
constexpr NqTypeFamilyID kSceneFamily = 0x5363656E; // "Scen"

// Reads the registry unless that has been done. Looks for the file beside the program, as in a build tree, and where
// the installation puts it. Trouble: it is not there, or it is not whole.
Outcome LoadFormats();
// The same with a file of another place, replacing what was read before.
Outcome LoadFormats(const std::string& inPath);

// The format of a file by its name and then by its bytes, and the one that its name alone tells; null when there is
// none. The file need not be there. Formats are loaded.
const TNqFileType* FindFormat(const std::string& inPath);
const TNqFileType* FindFormatByName(const std::string& inPath);

// "a", "a or b", "a, b or c": the first extension of each format, with a dot.
std::string JoinExtensions(const std::vector<const TNqFileType*>& inFormats);

// The table that "nqtoken formats" prints.
Outcome ListFormats(Output& outOutput);

} // namespace nqtoken
