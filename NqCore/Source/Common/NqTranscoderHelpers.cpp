#include "NqCore/Include/NqTranscoderHelpers.h"

#include "NqCore/Include/UTF8Transcoder.h"

#include <algorithm>

namespace
{

// Fills the map from the characters of a table to their positions. False without memory.
bool FillReverseMap(TNqHashMap<uint16, uint8>& outMap, const TNqCharacterTable& inTable)
{
    if (!outMap.SetElemSpace(inTable.fCount))
        return false;
    for (uint32 i = 0; i < inTable.fCount; ++i)
    {
        boolean alreadyThere;
        if (outMap.AddElem(inTable.fCharacters[i], static_cast<uint8>(i), alreadyThere, true) == kNqHashNotFound)
            return false;
    }
    return true;
}

// The map, built on first need; null without memory.
TNqHashMap<uint16, uint8>* GetReverseMap(TNqHashMap<uint16, uint8>*& outMap, const TNqCharacterTable& inTable)
{
    if (outMap != nullptr)
        return outMap;
    outMap = new TNqHashMap<uint16, uint8>(inTable.fBucketCount);
    if (outMap != nullptr && !FillReverseMap(*outMap, inTable))
    {
        delete outMap;
        outMap = nullptr;
    }
    return outMap;
}

// The position of a character in the table, fCount when it has none.
uint32 FindPosition(const TNqCharacterTable& inTable, TNqHashMap<uint16, uint8>*& ioMap, uint16 ch)
{
    if (const TNqHashMap<uint16, uint8>* const map = GetReverseMap(ioMap, inTable))
    {
        const uint8* const position = map->FindElem(ch, true);
        return position != nullptr ? *position : inTable.fCount;
    }
    const uint16* const end = inTable.fCharacters + inTable.fCount;
    return static_cast<uint32>(std::find(inTable.fCharacters, end, ch) - inTable.fCharacters);
}

} // namespace

void NqSetToByte(TNqArray<uint8>& outBytes, uint8 inByte)
{
    if (outBytes.GetElemCount() == 1 || outBytes.SetElemCount(1))
        outBytes[0] = inByte;
}

void NqSetToUTF8(TNqArray<uint8>& outBytes, uint16 ch)
{
    if (outBytes.GetElemCount() == UnicodeNumBytes(ch) || outBytes.SetElemCount(UnicodeNumBytes(ch)))
        UnicodeToUTF8Char(ch, outBytes.BaseAddress());
}

void NqSetFromTable(TNqArray<uint8>& outBytes, const TNqCharacterTable& inTable, TNqHashMap<uint16, uint8>*& ioMap,
                    uint16 ch)
{
    const uint32 position = FindPosition(inTable, ioMap, ch);
    if (position < inTable.fCount)
        NqSetToByte(outBytes, static_cast<uint8>(0x80 + position));
    else
        NqSetToUTF8(outBytes, ch);
}
