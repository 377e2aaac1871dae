#include "NqCore/Include/NqTranscoderHelpers.h"

#include "NqCore/Include/UTF8Transcoder.h"

#include <algorithm>

namespace
{

// Fills the map from the characters of a table to their positions. False without memory.
bool FillReverseMap(TNqHashMap<uint16, uint8>& map, const TNqCharacterTable& table)
{
    if (!map.SetElemSpace(table.fCount))
        return false;
    for (uint32 i = 0; i < table.fCount; ++i)
    {
        boolean alreadyThere;
        if (map.AddElem(table.fCharacters[i], static_cast<uint8>(i), alreadyThere, true) == kNqHashNotFound)
            return false;
    }
    return true;
}

// The map, built on first need; null without memory.
TNqHashMap<uint16, uint8>* GetReverseMap(TNqHashMap<uint16, uint8>*& map, const TNqCharacterTable& table)
{
    if (map != nullptr)
        return map;
    map = new TNqHashMap<uint16, uint8>(table.fBucketCount);
    if (map != nullptr && !FillReverseMap(*map, table))
    {
        delete map;
        map = nullptr;
    }
    return map;
}

// The position of a character in the table, fCount when it has none.
uint32 FindPosition(const TNqCharacterTable& table, TNqHashMap<uint16, uint8>*& ioMap, uint16 ch)
{
    if (const TNqHashMap<uint16, uint8>* const map = GetReverseMap(ioMap, table))
    {
        const uint8* const position = map->FindElem(ch, true);
        return position != nullptr ? *position : table.fCount;
    }
    const uint16* const end = table.fCharacters + table.fCount;
    return static_cast<uint32>(std::find(table.fCharacters, end, ch) - table.fCharacters);
}

} // namespace

void NqSetToByte(TNqArray<uint8>& bytes, uint8 byte)
{
    if (bytes.GetElemCount() == 1 || bytes.SetElemCount(1))
        bytes[0] = byte;
}

void NqSetToUTF8(TNqArray<uint8>& bytes, uint16 ch)
{
    if (bytes.GetElemCount() == UnicodeNumBytes(ch) || bytes.SetElemCount(UnicodeNumBytes(ch)))
        UnicodeToUTF8Char(ch, bytes.BaseAddress());
}

void NqSetFromTable(TNqArray<uint8>& bytes, const TNqCharacterTable& table, TNqHashMap<uint16, uint8>*& ioMap,
                    uint16 ch)
{
    const uint32 position = FindPosition(table, ioMap, ch);
    if (position < table.fCount)
        NqSetToByte(bytes, static_cast<uint8>(0x80 + position));
    else
        NqSetToUTF8(bytes, ch);
}
