// The byte translation of a legacy character set, in both directions, as a host loads it from a resource.
//
//     TNqAsciiTranslationTable table;
//     table.InitFromResourceData(resource, resourceSize);
//     host.SetAsciiTranslationTable(&table);
//     text.TranslateAscii(0);                           // NqString.h
//
// An entry is the replacement byte, kNqUntranslatable, or kNqEscaped: then a list gives the text that replaces the
// byte. Ownership: the table owns its lists. Threads: filled by one, then read by any.

#pragma once

#include "NqCore/PublicAPI/NqObject.h"

constexpr uint8 kNqUntranslatable = 0;
constexpr uint8 kNqEscaped = 27;

class TNqAsciiTranslationTable : public TNqObject
{
public:
    // Without lists; the tables hold nothing until InitFromResourceData.
    TNqAsciiTranslationTable();
    ~TNqAsciiTranslationTable();
    TNqAsciiTranslationTable(const TNqAsciiTranslationTable&) = delete;
    TNqAsciiTranslationTable& operator=(const TNqAsciiTranslationTable&) = delete;

    // Takes both tables (256 bytes each, rows and columns exchanged) and both lists from a resource. The lists tell
    // their own lengths, `inSize` is not looked at: `inData` must be whole.
    void InitFromResourceData(uint8* inData, uint32 inSize);

    // The entry of a byte; `inInverse` chooses the direction.
    uint8 Translate(uint8 ch, uint8 inInverse) const { return inInverse ? fITable[ch] : fTable[ch]; }

    // The NUL-terminated text that replaces a byte, null when the list has none.
    const uint8* FindEscapeChar(uint8 ch, uint8 inInverse) const;

private:
    friend struct TNqAsciiTranslationTableLayout;

    uint8 fTable[256];
    uint8 fITable[256];
    // A byte with the number of bytes that follow: for each entry a key and a NUL-terminated text. Owned, null for
    // none.
    uint8* fEscapes;
    uint8* fIEscapes;
};
