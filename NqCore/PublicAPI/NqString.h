// UTF-8 strings: one base with every operation, a family of fixed capacity, and one that grows.
//
// TNqString is what functions take and fill. The fixed family (TNqString15 to TNqString1023) keeps its bytes inline,
// never allocates and cuts what does not fit: names, keys, work strings. TNqDynamicString keeps them on the heap and
// never cuts. TNqWideString is a copy in 16-bit units for interfaces that take those.
//
//     TNqString31 name("cube");
//     name += TNqString15(" 12");                 // "cube 12"
//     TNqDynamicString path(folder);
//     path += name;
//     const uint32 dot = path.FindCharPosFromRight('.', path.Length());
//     if (dot != kNqNotFound)
//         path.SetLength(dot);
//
// A character starts at every byte below 0x80 or in 0xC2..0xF4; other bytes belong to the character before them.
// Indices and counts are characters, in the operations with SB in their name bytes. Characters are 16 bits wide: a
// four-byte sequence reads as its low 16 bits. Text from outside is taken as it stands and may be malformed; nothing is
// read beyond the bytes.
//
// Failure: nothing throws. A failed check is reported to the host and the operation goes on with the value that its
// comment names. A fixed string that overflows is reported and holds what fits. A dynamic string that cannot grow
// becomes empty, with MaxLength() 0 and no buffer.
//
// Cost: finding a character walks the bytes from the start; every operation is linear in the text.
//
// Threads: one at a time.

#pragma once

#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqObject.h"

class ITranscoder;

// What a search returns when it finds nothing.
constexpr uint32 kNqNotFound = 0xFFFFFFFF;

// How a text ends its lines.
enum ELineFeed : int
{
    kMacLineFeed = 0,  // CR
    kUnixLineFeed = 1, // LF
    kWinLineFeed = 2   // CR LF
};

class TNqString : public TNqObject0
{
public:
    virtual ~TNqString() = default;

    // The order of the virtual operations is a contract with modules built elsewhere.

    // Takes the bytes of inString; a fixed string as many as fit.
    virtual TNqString& operator=(const TNqString& inString);

    // Appends the bytes of inString, a fixed string as many as fit: the cut may go through a character.
    virtual TNqString& operator+=(const TNqString& inString);

    // Appends the low 8 bits of inChar as one byte: the character is not encoded. Length() grows by one without a
    // recount. A full fixed string reports "fByteLength > oldByteLength" and stays.
    virtual TNqString& operator+=(uint16 inChar);

    // Order as a reader of the host's language expects it (NqCompareStrings).
    virtual boolean operator<(const TNqString& inString) const;
    virtual boolean operator>(const TNqString& inString) const;
    virtual boolean operator<=(const TNqString& inString) const;
    virtual boolean operator>=(const TNqString& inString) const;

    // Equality is by bytes, up to the first NUL: two texts may be neither equal nor ordered.
    virtual boolean operator==(const TNqString& inString) const;
    virtual boolean operator!=(const TNqString& inString) const;

    // Inserts inString before the character nIndex; at Length() it is appended, beyond it nothing happens. A fixed
    // string without room reports "newByteLength <= fMaxLength", cuts the result at its capacity and keeps its Length()
    // as it was.
    virtual void InsertStr(const TNqString& inString, uint32 nIndex);

    // The two hooks under all editing. SetByteLength sets the byte count alone, no terminator and no recount: a fixed
    // string cuts at its capacity and reports "byteLength <= fMaxLength", a dynamic one grows to exactly inByteLength.
    virtual void SetByteLength(uint32 inByteLength);

    // The capacity in bytes. Fixed strings ignore it; a dynamic one gets exactly this room and loses what does not fit.
    virtual void SetMaxLength(uint32 inMaxLength);

    // The NUL-terminated bytes. One operation serves readers and writers, so they come out writable. Null, with a
    // report, only when a dynamic string has no memory.
    virtual int8* GetString() const = 0;

    // ---- Size and access ----

    uint32 Length() const { return fLength; }         // characters
    uint32 ByteLength() const { return fByteLength; } // bytes without the terminator
    uint32 MaxLength() const { return fMaxLength; }   // bytes that fit without the terminator
    int8* StrGet() const { return GetString(); }

    // The character; 0 at or past the end. A negative index is reported ("Index Pb in GetChar") and taken as 0.
    uint16 GetCharAt(uint32 inCharIndex) const;
    uint16 operator[](uint32 inCharIndex) const { return GetCharAt(inCharIndex); }

    // The byte, likewise.
    char GetSBCharAt(uint32 inByteIndex) const;

    // Bytes of inLength characters from inIndex on. Characters past the end are reported ("Substring extends past end
    // of string!") and left out.
    uint32 GetSubStringByteLength(uint32 inIndex, uint32 inLength) const;

    // ---- Conversion in ----

    // The core of every assignment: takes `inLength` bytes, which may be the string's own. With null data the bytes
    // held before stay under the new length, and further ones are 0.
    void FromText(const char* inData, uint32 inLength);

    // A NUL-terminated text of UTF-8 bytes, unchanged. Null does nothing.
    void FromCAsciiPtr(const char* inData);
    void FromCPtr(const char* inData) { FromCAsciiPtr(inData); }

    // A text with its length in the first byte. Null does nothing.
    void FromPPtr(const uint8* inData);

    // NUL-terminated 16-bit units. A fixed string is cut at a whole character. Null does nothing.
    void FromUnicode(const uint16* inData);

    // NUL-terminated bytes in the encoding of the transcoder; without one reports "transcoder" and does nothing.
    void FromEncodedPtr(const uint8* inData, ITranscoder* inTranscoder);

    // The four characters of a code, up to the first NUL; a code that cannot be four printable ones as a decimal
    // number. With inDontCheckValue always exactly its four bytes.
    void FromFourCharT(uint32 inCode, uint8 inDontCheckValue);

    // Decimal digits with a '-' when negative.
    void FromInt32(int32 inValue);

    // inDecimals digits behind the decimal point of the user's language.
    void FromReal32(real32 inValue, uint8 inDecimals);

    // inPrecision significant digits, with an exponent where that is shorter; without a precision two decimals.
    void FromReal64(real64 inValue, uint8 inPrecision);
    void FromReal64(real64 inValue);

    // ---- Conversion out ----

    // Copy ByteLength() bytes and a NUL. ToUTF8Ptr returns where the NUL is.
    void ToCPtr(char* outText) const;
    uint8* ToUTF8Ptr(uint8* outBytes) const;

    // A length byte and the bytes, no terminator. Of a length past 255 only the low 8 bits are written.
    void ToPPtr(uint8* outBytes) const;

    // Decodes up to the first NUL into `outData`, which holds inDataSize units, Length() + 1 for a whole well-formed
    // text, and returns where the terminator is. A byte that starts no character gives 0 up to the end of `outData`.
    // Too many characters are reported ("index < dataSize", then "Bad size in TNqString::ToUnicode") and cut; a
    // inDataSize below 1 is reported and nothing written.
    uint16* ToUnicode(uint16* outData, int32 inDataSize) const;

    // The low 8 bits of the first four characters, the first one on top; missing ones are 0.
    uint32 ToFourCharT() const;

    // The leading decimal number, 0 when there is none. A group separator ends it: 1,234 is 1, files depend on it.
    int32 ToInt32() const;

    // A sign, digits and up to nine decimals, without exponent. ',' between digits is skipped, unless it is the decimal
    // point.
    real32 ToReal32() const;

    // A number as the C library reads it, with the decimal point of the user's language; 0 when it does not parse.
    // Texts of 64 bytes and more are reported ("ByteLength() < 64") and cut.
    real64 ToReal64() const;

    // Whether all bytes are digits, signs or decimal points; true for an empty text.
    boolean IsNumericString() const;

    // ---- Editing ----

    // Keeps the first `inLength` characters. More than Length() is reported ("length < fLength") and changes nothing.
    void SetLength(uint32 inLength);

    // Removes nCount characters from nIndex on, as many as there are. False when there is nothing to remove.
    boolean EraseStr(uint32 nIndex, uint32 nCount);

    // The same in bytes, for single-byte text only: nCount is also taken off the number of characters kept. What is
    // left is always shorter than before.
    boolean EraseSBStr(uint32 nIndex, uint32 nCount);

    // Keeps only nCount characters from nIndex on. A start at or past the end is reported ("nIndex < Length()") and
    // leaves nothing.
    void SubString(uint32 nIndex, uint32 nCount);

    // Replaces a character; past the end nothing happens, a negative index is 0. A fixed string without room drops
    // whole characters at its end; the new character is not written when it does not fit itself.
    void SetCharAt(uint16 c, uint32 nIndex);

    // Replaces a byte, changing no count; at the end only by 0 ("c==0" is reported otherwise).
    void SetSBCharAt(char c, int32 nIndex);

    // Replaces `ss` by `inReplace` wherever it is found from nIndex on and returns how often. The head before nIndex is
    // dropped when anything was replaced: existing callers depend on it.
    uint32 ReplaceStr(const TNqString& ss, const TNqString& inReplace, uint32 nIndex);

    // ---- Searching: an index or kNqNotFound ----

    // Compares as many bytes of inString as it has characters, so of a multi-byte pattern only the first ones.
    uint32 SearchStr(const TNqString& inString, uint32 nIndex) const;
    uint32 SearchSBStr(const TNqString& inString, uint32 nIndex) const;

    // A byte that starts no character ends the search with "Invalid UTF8 string".
    uint32 FindCharPos(uint16 c, uint32 nIndex) const;
    uint32 FindSBCharPos(char c, uint32 nIndex) const;

    // Backwards from the character nIndex, or from the last one.
    uint32 FindCharPosFromRight(uint16 c, uint32 nIndex) const;

    // ---- Comparison and case ----

    // The difference of the first bytes that differ, narrowed to a signed byte: a quick order that only a computer
    // likes.
    int CompareQuick(const TNqString& inString) const;

    // Compares the first 1023 bytes in capitals.
    boolean IsEqualNotCaseSensitive(const TNqString& inString) const;

    // Unicode case mapping, which may change the length.
    void ToUpper();
    void ToLower();

    // All small, but a capital at the start when it is one of 'a' to 'z'.
    void Capitalize();

    // ---- Text translation ----

    // Translates the bytes with the host's table (NqAsciiTranslationTable.h), nothing without one. Bytes that the table
    // lacks are reported and dropped. Length() only follows what replacements add.
    void TranslateAscii(uint8 inInverse);

    // What is written to a file: a copy of the text.
    void TranslateBeforeWrite(TNqString& outText) const;

    // Strips the tags of a text from a resource: form feed, then from '@' through "@M", then from the next '@' on. The
    // SB form works on bytes and expects no form feed.
    void TranslateAfterRead();
    void TranslateSBAfterRead();

    // Gives every line break (CR LF, CR or LF) the form inToType. kWinLineFeed narrows every character to one byte.
    void ConvertLineFeed(ELineFeed inToType);

protected:
    TNqString() : fLength(0), fByteLength(0), fMaxLength(0) {}
    TNqString(const TNqString& inString) = default; // the counters; a derived class copies the bytes

    // How every string starts on its buffer of inMaxLen + 1 bytes: with as much of inData as fits, or zero-filled.
    void Initialize(char* myData, uint32 inMaxLen, const char* inData, uint32 inDataLength);

    // A run of bytes inside a string.
    struct TByteRun
    {
        const int8* fBytes;
        uint32 fByteLength;
    };

    static TByteRun GetText(const char* inString);      // a C string; null is empty
    static TByteRun GetText(const TNqString& inString); // the whole text
    // nCount characters from nIndex on; 0, or more than there are, means up to the end.
    static TByteRun GetText(const TNqString& inString, uint32 nIndex, uint32 nCount);

    // Puts inText before the bytes from inByteIndex on, cut at the byte length, which the caller has already raised.
    void SpliceBytes(int8* inBuffer, uint32 inByteIndex, TByteRun inText);

    // Whether InsertStr does anything at this character index.
    boolean CanInsertAt(uint32 nIndex) const;

    // The end of every operation that brought bytes in.
    void TerminateAndCount(int8* inBuffer);

    uint32 fLength;     // characters
    uint32 fByteLength; // bytes in use
    uint32 fMaxLength;  // bytes that fit

private:
    friend struct TNqStringLayout;

    void Terminate(int8* inBuffer, bool inIsAscii); // TerminateAndCount, when ASCII need not be counted
    static uint32 GetPatternLength(TByteRun inPattern, uint32 inLength); // bytes that SearchStr compares; 0: no match
    void RemoveBytes(uint32 inStart, uint32 inEnd); // terminates the rest, whose characters the caller counts
    void CorrectLength();                           // malformed text may leave fewer bytes than characters were counted
    boolean MakeRoom(uint32 inExtra);               // for TranslateAscii: raises both lengths, false without the room
    void ChangeLineBreaks(char inLineBreak);
    void ChangeLineBreaksToWin();
};

// A string of up to N bytes that holds them inline.
template <uint32 N>
class TNqFixedString : public TNqString
{
public:
    TNqFixedString() { Initialize(fStringBuffer, N, nullptr, 0); }
    TNqFixedString(const char* inString) { Start(GetText(inString)); }
    TNqFixedString(const char* inString, uint32 inByteLength) { Start({inString, inByteLength}); }
    TNqFixedString(const TNqString& inString) { Start(GetText(inString)); }
    TNqFixedString(const TNqFixedString& inString) : TNqString() { Start(GetText(inString)); }

    // nCount characters of inString from nIndex on; 0, or more than there are, means up to its end.
    TNqFixedString(const TNqString& inString, uint32 nIndex, uint32 nCount)
    {
        Start(GetText(inString, nIndex, nCount));
    }

    TNqFixedString& operator=(const TNqString& inString) override
    {
        TNqString::operator=(inString);
        return *this;
    }
    TNqFixedString& operator=(const TNqFixedString& inString)
    {
        if (this != &inString)
            FromText(inString.fStringBuffer, inString.fByteLength);
        return *this;
    }

    int8* GetString() const override { return const_cast<int8*>(fStringBuffer); }

private:
    friend struct TNqStringLayout;
    static_assert(N <= std::numeric_limits<uint32>::max() - 2, "a capacity leaves room for the terminator");

    void Start(TByteRun inText) { Initialize(fStringBuffer, N, inText.fBytes, inText.fByteLength); }

    int8 fStringBuffer[N + 1];
};

using TNqString15 = TNqFixedString<15>;
using TNqString31 = TNqFixedString<31>;
using TNqString63 = TNqFixedString<63>;
using TNqString255 = TNqFixedString<255>;
using TNqString1023 = TNqFixedString<1023>;

extern template class TNqFixedString<15>;
extern template class TNqFixedString<31>;
extern template class TNqFixedString<63>;
extern template class TNqFixedString<255>;
extern template class TNqFixedString<1023>;

// The left text with the right one appended, cut at 1023 bytes.
TNqString1023 operator+(const TNqString& inLeft, const TNqString& inRight);

// A string that grows, to exactly the size asked for: a long text made of many small appends moves and is
// counted at each of them. Build such a text in a stream (TNqstrstream).
//
// Callers that must not lose text check MaxLength() after growing.
class TNqDynamicString : public TNqString
{
public:
    TNqDynamicString();
    TNqDynamicString(const char* inString);
    TNqDynamicString(const char* inString, uint32 inByteLength);
    TNqDynamicString(const TNqString& inString);
    TNqDynamicString(const TNqDynamicString& inString);

    // nCount characters of inString from nIndex on; 0, or more than there are, means up to its end.
    TNqDynamicString(const TNqString& inString, uint32 nIndex, uint32 nCount);

    ~TNqDynamicString() override;

    TNqDynamicString& operator=(const TNqString& inString) override;
    TNqDynamicString& operator=(const TNqDynamicString& inString);

    TNqDynamicString& operator+=(const TNqString& inString) override;

    // Appends a character code of the system's encoding: its low 8 bits, or high byte and low byte where a code of that
    // high byte has two (NqStrCharLen). Length() grows by one without a recount.
    TNqDynamicString& operator+=(uint16 inChar) override;

    void InsertStr(const TNqString& inString, uint32 nIndex) override;
    void SetByteLength(uint32 inByteLength) override;
    void SetMaxLength(uint32 inMaxLength) override;
    int8* GetString() const override;

    // Reallocates the buffer for exactly inByteLength bytes and a terminator, cutting the text there. Without memory
    // the string becomes empty and has no buffer.
    virtual void AllocateDynamicString(uint32 inByteLength);

    // Appends bytes, which may be the string's own.
    void Append(const char* ss, uint32 inByteCount);

protected:
    // The end of every constructor: a buffer for exactly `inLength` bytes.
    void InitializeDynamic(const char* inString, uint32 inLength);

private:
    friend struct TNqStringLayout;

    void LoseBuffer();

    int8* fStringBuffer; // owned, fMaxLength + 1 bytes; null without memory
};

// A NUL-terminated copy of a text in 16-bit units.
//
//     TNqWideString wide(name);
//     Draw(wide.StrGet(), wide.Length());
class TNqWideString
{
public:
    TNqWideString() = default;
    TNqWideString(const TNqString& inString) { FromString(inString); }
    TNqWideString(const char* inString); // UTF-8 bytes
    TNqWideString& operator=(const TNqString& inString);

    void FromString(const TNqString& inString);
    void FromUnicode(const uint16* inText); // its own units too; null does nothing

    // Units without the terminator.
    uint32 Length() const;

    // The units; null before any text was assigned. Without memory for a text the string is empty.
    uint16* StrGet() const;

private:
    friend struct TNqStringLayout;

    TNqArray<uint16> fStringBuffer; // the units and the terminator
};
