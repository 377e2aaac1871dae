#include "Fuzz/FuzzTargets.h"
#include "NqCore/Include/UTF8Transcoder.h"
#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqString.h"
#include "NqCore/PublicAPI/NqStringUtils.h"

#include <algorithm>

namespace NqFuzz
{

namespace
{

constexpr uint32 kLongText = 3000; // bytes; what is longer starts anew, so that repeated inserting stays cheap

void RequireWhole(const TNqString& text)
{
    Require(text.ByteLength() <= text.MaxLength(), "a text fits its capacity");
    Require(text.StrGet()[text.ByteLength()] == 0, "a text is terminated");
}

TNqDynamicString Text(TChoices& choices, uint32 most)
{
    const std::vector<int8> bytes = choices.Bytes(most);
    return TNqDynamicString(bytes.data(), static_cast<uint32>(bytes.size()));
}

void Edit(TNqString& text, TChoices& choices)
{
    const uint32 index = choices.Below(40);
    const uint32 count = choices.Below(40);
    switch (choices.Below(24))
    {
    case 0:
        text = Text(choices, 60);
        break;
    case 1:
        text += Text(choices, 20);
        break;
    case 2:
        text += static_cast<uint16>(choices.Word());
        break;
    case 3:
        text.InsertStr(Text(choices, 20), index);
        break;
    case 4:
        text.InsertStr(text, index);
        break;
    case 5:
        text += text;
        break;
    case 6:
        text.EraseStr(index, count);
        break;
    case 7:
        text.EraseSBStr(index, count);
        break;
    case 8:
        text.SubString(index, count);
        break;
    case 9:
        text.SetCharAt(static_cast<uint16>(choices.Word()), index);
        break;
    case 10:
        text.SetSBCharAt(static_cast<char>(choices.Byte()), static_cast<int32>(index));
        break;
    case 11:
        text.SetLength(index);
        break;
    case 12:
        text.ReplaceStr(Text(choices, 3), Text(choices, 8), index);
        break;
    case 13:
        text.ToUpper();
        break;
    case 14:
        text.ToLower();
        break;
    case 15:
        text.Capitalize();
        break;
    case 16:
        text.ConvertLineFeed(static_cast<ELineFeed>(index % 3));
        break;
    case 17:
        text.TranslateAfterRead();
        break;
    case 18:
        text.TranslateSBAfterRead();
        break;
    case 19:
        text.FromInt32(static_cast<int32>(choices.Word()));
        break;
    case 20:
        text.FromReal64(static_cast<int32>(choices.Word()) / 1000.0, static_cast<uint8>(count));
        break;
    case 21:
        text.FromFourCharT(choices.Word(), index % 2);
        break;
    case 22:
        NqParameterText(text, Text(choices, 6));
        break;
    default:
        text.SetMaxLength(index);
    }
}

// Reads that change nothing; their output blocks have exactly the size that they are promised.
void Look(const TNqString& text, TChoices& choices)
{
    const uint32 index = choices.Below(40);
    const TNqDynamicString other = Text(choices, 8);
    std::vector<uint16> units(index + 1);
    text.ToUnicode(units.data(), static_cast<int32>(units.size()));
    std::vector<int8> bytes(text.ByteLength() + 1);
    text.ToCPtr(bytes.data());
    Require(bytes.back() == 0, "a copy is terminated");
    const uint32 found = text.SearchSBStr(other, index);
    Require(found == kNqNotFound || (found >= index && found <= text.ByteLength()), "what is found lies in the text");
    text.SearchStr(other, index);
    text.FindCharPos(choices.Byte(), index);
    text.FindCharPosFromRight(choices.Byte(), index);
    text.GetCharAt(index);
    text.GetSBCharAt(index);
    text.ToInt32();
    text.ToReal32();
    text.ToReal64();
    text.ToFourCharT();
    text.IsNumericString();
    NqGetHashValue8(text);
    Require(text == TNqDynamicString(text), "a copy is equal");
    Require(text.IsEqualNotCaseSensitive(text), "a text is equal to itself");
    Require(!(text < text) && text <= text, "a text is not before itself");
    Require((text.CompareQuick(other) == 0) == (other.CompareQuick(text) == 0), "equality has no direction");
}

} // namespace

void Strings(const uint8* data, size_t size)
{
    TChoices choices(data, size);
    TNqDynamicString growing;
    TNqString15 small;
    TNqString255 large;
    TNqString* const texts[] = {&growing, &small, &large};
    while (choices.More())
    {
        TNqString& text = *texts[choices.Below(3)];
        Edit(text, choices);
        RequireWhole(text);
        if (text.ByteLength() > kLongText)
            text = TNqString15("start");
        if (choices.Below(4) == 0)
            Look(text, choices);
    }
}

void Transcoders(const uint8* data, size_t size)
{
    TChoices choices(data, size);
    const auto type = static_cast<TranscoderType>(choices.Below(3));
    TNqCountedPtr<ITranscoder> transcoder;
    NqCreateTranscoder(transcoder, type);
    const std::vector<int8> bytes = choices.Rest();
    std::vector<uint16> characters;
    for (const int8 byte : bytes)
    {
        const uint16 ch = transcoder->Encode(static_cast<uint8>(byte));
        if (ch != kNqNoCharacter)
            characters.push_back(ch);
        if (type == kUTF8Transcoder)
            continue;
        const TNqArray<uint8>& back = transcoder->Decode(ch);
        Require(back.GetElemCount() == 1 && back[0] == static_cast<uint8>(byte), "each byte comes back");
    }
    for (const uint16 ch : characters)
    {
        TNqCountedPtr<ITranscoder> reader;
        NqCreateTranscoder(reader, type);
        const TNqArray<uint8>& encoded = transcoder->Decode(ch);
        Require(encoded.GetElemCount() >= 1 && encoded.GetElemCount() <= 3, "a character has one to three bytes");
        uint16 back = kNqNoCharacter;
        for (uint32 i = 0; i < encoded.GetElemCount(); ++i)
            back = reader->Encode(encoded[i]);
        Require(back == ch || ch == kNqNoCharacter, "each character comes back");
    }

    std::vector<uint8> text(bytes.begin(), bytes.end());
    const NqSize length = static_cast<NqSize>(std::find(text.begin(), text.end(), 0) - text.begin());
    const uint32 count = UTF8StrLen(text.data(), text.size());
    Require(UTF8CharIndex(text.data(), count, text.size()) == length, "the characters end where the text does");
    text.push_back(0);
    Require(UTF8StrLen(text.data()) == count, "a text has as many characters as its bytes");
    TNqDynamicString taken;
    taken.FromEncodedPtr(text.data(), transcoder);
    RequireWhole(taken);
}

} // namespace NqFuzz
