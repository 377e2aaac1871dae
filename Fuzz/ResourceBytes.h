// The frame of resource files, made apart from the code that reads them.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <string>

namespace NqFuzz
{

inline std::string BigEndian(uint32 value)
{
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift);
    return bytes;
}

// Gives the bytes the checksum that they should have.
inline std::string Resealed(std::string bytes)
{
    uint32 sum = 0xFFFFFFFF;
    for (size_t i = 16; i < bytes.size(); ++i)
    {
        sum ^= static_cast<uint8>(bytes[i]);
        for (int bit = 0; bit < 8; ++bit)
            sum = sum >> 1 ^ (sum & 1 ? 0xEDB88320 : 0);
    }
    return bytes.size() < 16 ? bytes : bytes.replace(12, 4, BigEndian(~sum));
}

// A whole file around entries and bodies.
inline std::string Sealed(const std::string& rest, uint32 count)
{
    using namespace std::string_literals;
    return Resealed("NqRs\0\0\0\1"s + BigEndian(static_cast<uint32>(20 + rest.size())) + "\0\0\0\0"s +
                    BigEndian(count) + rest);
}

// Two resources, 106 bytes: the header, two entries, and the bodies at 76 and 103.
inline std::string TwoResources()
{
    using namespace std::string_literals;
    return Sealed("DLOG\0\x80\1\5\0\0\0\7\0\0\0\x4C\0\0\0\4\0\0\0\2\0\0\0\x12"
                  "ICON\xFF\xFF\0\0\x80\0\0\0\0\0\0\x67\0\0\0\3\0\0\0\0\0\0\0\0"
                  "About\1\2\3\4\0\0\0\3One\0\0\0\7Zw\xC3\xB6lfeabc"s,
                  2);
}

} // namespace NqFuzz
