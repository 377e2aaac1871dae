// Texels as the bytes of a PNG file.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <string>

namespace nqtoken
{

// inTexels has four bytes for each of inWidth times inHeight texels: blue, green, red, alpha, from the top left. Empty
// when the size is 0 or more than the format holds.
std::string MakePngFile(int32 inWidth, int32 inHeight, const std::string& inTexels);

} // namespace nqtoken
