#include "NqCore/PublicAPI/NqAsciiTranslationTable.h"

#include "NqCore/PublicAPI/NqHostServices.h"

#include <cstring>

namespace
{

constexpr NqSize kSide = 16; // a table is a square of bytes
constexpr NqSize kTableSize = kSide * kSide;

void CopyTransposed(uint8* inTable, const uint8* inData)
{
    for (NqSize row = 0; row < kSide; ++row)
    {
        for (NqSize column = 0; column < kSide; ++column)
            inTable[kSide * row + column] = inData[kSide * column + row];
    }
}

// A copy of a list with its count byte; null when the list is empty, or without memory.
uint8* CopyEscapes(const uint8* inList)
{
    const NqSize size = static_cast<NqSize>(inList[0]) + 1;
    uint8* const copy = size > 1 ? static_cast<uint8*>(Nqmalloc(size)) : nullptr;
    if (copy != nullptr)
        std::memcpy(copy, inList, size);
    return copy;
}

void FreeEscapes(uint8* inList)
{
    if (inList != nullptr)
        Nqfree(inList);
}

} // namespace

TNqAsciiTranslationTable::TNqAsciiTranslationTable() : fTable(), fITable(), fEscapes(nullptr), fIEscapes(nullptr) {}

TNqAsciiTranslationTable::~TNqAsciiTranslationTable()
{
    FreeEscapes(fEscapes);
    FreeEscapes(fIEscapes);
}

void TNqAsciiTranslationTable::InitFromResourceData(uint8* inData, uint32)
{
    CopyTransposed(fTable, inData);
    CopyTransposed(fITable, inData + kTableSize);
    FreeEscapes(fEscapes);
    FreeEscapes(fIEscapes);
    // The last byte of the first list is the count byte of the second: resources are written so.
    const uint8* const escapes = inData + 2 * kTableSize;
    fEscapes = CopyEscapes(escapes);
    fIEscapes = CopyEscapes(escapes + escapes[0]);
}

const uint8* TNqAsciiTranslationTable::FindEscapeChar(uint8 ch, uint8 inInverse) const
{
    const uint8* const list = inInverse ? fIEscapes : fEscapes;
    if (list == nullptr)
        return nullptr;
    const uint8* const end = list + 1 + list[0];
    for (const uint8* entry = list + 1; entry < end;)
    {
        const uint8* const text = entry + 1;
        const void* const terminator = std::memchr(text, 0, static_cast<NqSize>(end - text));
        if (terminator == nullptr)
            return nullptr; // cut by the end of the list
        if (*entry == ch)
            return text;
        entry = static_cast<const uint8*>(terminator) + 1;
    }
    return nullptr;
}
