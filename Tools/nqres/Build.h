// From the text form of a resource file (docs/resource-text.md) to its resources, and back.

#pragma once

#include "Tools/nqtoken/Outcome.h"

#include "NqHost/PublicAPI/NqHostResourceFile.h"

#include <string>
#include <string_view>

namespace nqres
{

using nqtoken::Outcome;

// Adds what the text describes. inName is how messages call the text: "NAME:LINE:COLUMN: what is wrong". A fault
// leaves outFile as it was.
Outcome BuildResources(const std::string& inName, std::string_view inText, TNqHostResourceFile& outFile);

// The text that builds exactly these resources. Data is shown as hexadecimal digits: what its fields are is known only
// to who reads them.
std::string ShowResources(const TNqHostResourceFile& inFile);

} // namespace nqres
