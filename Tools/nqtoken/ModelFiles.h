// The files of a model while it is being written: in memory until all of them are known to be right. One has the name
// of the model, the others belong to it (the .mtl of an OBJ, the .bin of a glTF).

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <cstring>
#include <map>
#include <string>

namespace nqtoken
{

using ModelFiles = std::map<std::string, std::string>; // bytes by path

// Appends a value, the low byte first on every machine.
template <class Value>
void PutLow(std::string& ioBytes, Value inValue)
{
    static_assert(sizeof(Value) <= sizeof(uint32));
    uint32 bits = 0;
    if constexpr (std::is_floating_point_v<Value>)
        memcpy(&bits, &inValue, sizeof(inValue));
    else
        bits = static_cast<uint32>(inValue);
    for (size_t i = 0; i < sizeof(Value); ++i)
        ioBytes += static_cast<char>(bits >> (8 * i));
}

} // namespace nqtoken
