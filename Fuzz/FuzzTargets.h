// The fuzz targets: each takes any bytes and throws std::logic_error when the library breaks a promise. Memory faults
// are the sanitizers' to find.
//
// Each is the whole of one libFuzzer program (Entry.cpp), and the tests run all of them over a small seeded corpus. A
// host must be running, with a report handler that expects many reports.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace NqFuzz
{

void Tokens(const uint8* data, size_t size);      // the tokenizer, skipping, typed readers
void Payloads(const uint8* data, size_t size);    // hexadecimal and six-bit text, there and back
void Extraction(const uint8* data, size_t size);  // copying parts of a document
void Numbers(const uint8* data, size_t size);     // the scanners of the streams
void Writers(const uint8* data, size_t size);     // every writer, on every kind of stream
void Strings(const uint8* data, size_t size);     // editing, searching, converting
void Transcoders(const uint8* data, size_t size); // bytes to characters and back
void Resources(const uint8* data, size_t size);   // resource files, there and back
#ifdef NQCORE_HAS_TOOLS
void Transfers(const uint8* data, size_t size); // files over a connection, and what may come instead
#endif

struct TTarget
{
    const char* fName;
    void (*fRun)(const uint8* data, size_t size);
};
constexpr TTarget kTargets[] = {
    {"tokens", Tokens},       {"payloads", Payloads}, {"extraction", Extraction},   {"numbers", Numbers},
    {"writers", Writers},     {"strings", Strings},   {"transcoders", Transcoders}, {"resources", Resources},
#ifdef NQCORE_HAS_TOOLS
    {"transfers", Transfers},
#endif
};

inline void Require(bool holds, const std::string& promise)
{
    if (!holds)
        throw std::logic_error(promise);
}

// Takes choices from the front of the input; an exhausted one gives 0.
class TChoices
{
public:
    TChoices(const uint8* data, size_t size) : fData(data), fSize(size) {}

    bool More() const { return fSize > 0; }
    uint8 Byte()
    {
        if (fSize == 0)
            return 0;
        --fSize;
        return *fData++;
    }
    uint32 Below(uint32 limit) { return Byte() % limit; }
    uint32 Word()
    {
        uint32 word = 0;
        for (int i = 0; i < 4; ++i)
            word = word << 8 | Byte();
        return word;
    }
    // Up to `most` bytes, their number chosen first.
    std::vector<int8> Bytes(uint32 most)
    {
        std::vector<int8> bytes(std::min<size_t>(Below(most + 1), fSize));
        for (int8& byte : bytes)
            byte = static_cast<int8>(Byte());
        return bytes;
    }
    // All that is left, in a block of exactly its size.
    std::vector<int8> Rest()
    {
        const std::vector<int8> rest(reinterpret_cast<const int8*>(fData),
                                     reinterpret_cast<const int8*>(fData) + fSize);
        fSize = 0;
        return rest;
    }

private:
    const uint8* fData;
    size_t fSize;
};

} // namespace NqFuzz
