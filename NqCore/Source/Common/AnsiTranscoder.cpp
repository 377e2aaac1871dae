#include "NqCore/Include/AnsiTranscoder.h"

#include "NqCore/Include/NqTextRuns.h"
#include "NqCore/Include/NqTranscoderHelpers.h"

// The five undefined bytes stand for themselves, and 0x88 is U+20C6 rather than U+02C6: existing files depend on it.
constexpr uint16 TAnsiTranscoder::fAnsiToUnicodeTable[32] = {
    // clang-format off
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x20C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
    // clang-format on
};

TAnsiTranscoder::TAnsiTranscoder() : fUnicodeToAnsiTable(nullptr), fDecodedChar(0, 4, 1, true) {}

TAnsiTranscoder::~TAnsiTranscoder()
{
    delete fUnicodeToAnsiTable;
}

void TAnsiTranscoder::Create(ITranscoder** outTranscoder)
{
    NqCreateTranscoderObject<TAnsiTranscoder>(outTranscoder);
}

NqErr TAnsiTranscoder::QueryInterface(const NqIID& iid, void** outInterface)
{
    return NqQueryTranscoder(*this, iid, outInterface);
}

uint16 TAnsiTranscoder::Encode(uint8 inByte)
{
    return inByte >= 0x80 && inByte <= 0x9F ? fAnsiToUnicodeTable[inByte - 0x80] : inByte;
}

const TNqArray<uint8>& TAnsiTranscoder::Decode(uint16 ch)
{
    constexpr TNqCharacterTable table = {fAnsiToUnicodeTable, 32, 80};
    if (ch < 0x80 || (ch >= 0xA0 && ch <= 0xFF))
        NqSetToByte(fDecodedChar, static_cast<uint8>(ch));
    else
        NqSetFromTable(fDecodedChar, table, fUnicodeToAnsiTable, ch);
    return fDecodedChar;
}

uint8* TAnsiTranscoder::DecodeText(const uint16* inFirst, const uint16* inLast, uint8* outBytes)
{
    static constexpr TNqByteTable table(fAnsiToUnicodeTable, 0xA0);
    return NqEncodeWithTable(table, inFirst, inLast, outBytes);
}
