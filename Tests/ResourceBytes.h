// The frame of resource files, made apart from the code that is tested.

#pragma once

#include "Tests/TestHost.h"

inline std::string Hexadecimal(const std::string& bytes)
{
    std::string digits;
    for (const unsigned char byte : bytes)
        for (const int digit : {byte >> 4, byte & 15})
            digits += "0123456789ABCDEF"[digit];
    return digits;
}

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
