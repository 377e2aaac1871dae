// Binary streams: fields of fixed size, the most significant byte first whatever the machine, and the streams over
// resources, which keep the texts for translators in a table beside the data.
//
//   TNqByteSwapStream               fields over memory
//   TNqResourceStream               the same over a resource: a text may be an index into the resource's table
//   TNqLocalizedTextResourceStream  a resource kept as token text, with the same table
//
//     TNqByteSwapStream out;
//     out << int32(640) << int16(480) << TNqString31("Cube");   // 00 00 02 80  01 E0  04 43 75 62 65
//     const int32 size = out.pcount();
//     int8* bytes = out.str();                                  // Nqfree it
//     TNqByteSwapStream in(bytes, size, kUTF8Transcoder, eRead);
//     int32 width = 0;
//     in >> width;
//     const uint16 height = in.ReadShort();
//
// Reading past the end sets the end bit; a value is then built from the bytes that were there, zeros for the others. A
// single byte that is not there leaves its target as it was.
//
// Texts go out as the bytes they have, which are UTF-8; of those that come in only Pascal fields are taken as they are,
// the others pass through the stream's transcoder. Use kUTF8Transcoder where both directions must agree beyond ASCII:
// the streams with a buffer of their own start with kMacTranscoder, as the oldest resources were written. Transcoders
// know characters up to U+FFFF; texts with others belong into a string table, which keeps their bytes.
//
// Operators on C strings, 64-bit integers and manipulators write and read text as in every stream.
//
// Ownership and failure: as TNqstrstream. A caller's buffer that is full refuses the bytes.
// Threads: a stream belongs to one thread at a time.
// Cost: on TNqByteSwapStream and TNqResourceStream themselves fields move straight to and from the buffer; a class
// derived from them sees each field as one `read` or `write`.

#pragma once

#include "NqCore/PublicAPI/NqResource.h"
#include "NqCore/PublicAPI/NqStream.h"

// Reverse the bytes of a 32-bit and of a 16-bit value in place.
void ConvertLongPtr(int8* p);
void ConvertShortPtr(int8* p);

class TNqByteSwapStream : public TNqstrstream
{
public:
    // Over `inSize` bytes of the caller's; size 0: up to the first NUL, reading only.
    TNqByteSwapStream(int8* inBuffer, int32 inSize, TranscoderType inType, int32 inMode);
    // Writes into a block of its own.
    TNqByteSwapStream();
    ~TNqByteSwapStream() override;

    using TNqstrstream::operator>>;
    using TNqstrstream::operator<<;

    TNqiostream& operator>>(int8& c) override; // the byte itself, separators too
    TNqiostream& operator>>(uint8& c) override;
    TNqiostream& operator>>(int32& outValue) override;
    TNqiostream& operator>>(uint32& outValue) override;
    TNqiostream& operator>>(int16& outValue) override;
    TNqiostream& operator>>(uint16& outValue) override;
    TNqiostream& operator>>(real32& outValue) override;
    TNqiostream& operator>>(real64& outValue) override;
    // A text behind its length, one byte for strings that hold at most 255 bytes, four for those that hold more and for
    // every TNqDynamicString. Empty when the stream ends before it. A length of 4096 and more is reported, "length <
    // sizeof(gAllPurposeBuffer)", and fails.
    TNqiostream& operator>>(TNqString& outText) override;

    TNqiostream& operator<<(int8 c) override;
    TNqiostream& operator<<(uint8 c) override;
    TNqiostream& operator<<(int32 inValue) override;
    TNqiostream& operator<<(uint32 inValue) override;
    TNqiostream& operator<<(int16 inValue) override;
    TNqiostream& operator<<(uint16 inValue) override;
    TNqiostream& operator<<(real32 inValue) override;
    TNqiostream& operator<<(real64 inValue) override;
    TNqiostream& operator<<(const TNqString& inText) override;

    // A Pascal field: a length byte and `inSize` bytes, zeros behind the text, which is cut at the field. A size below
    // 0 or above 255 is reported and nothing is done. What is read loses the tags of old resources
    // (TranslateAfterRead).
    virtual void ReadTNqString(int32 inSizeToRead, TNqString& outText);
    virtual void WriteTNqString(int32 inSizeToWrite, const TNqString& inText);

    // The fields by name.
    boolean ReadBoolean();
    uint16 ReadShort();
    uint32 ReadLong();
    real32 ReadFloat();
    real64 ReadDouble();
    void WriteBoolean(uint8 inValue);
    void WriteShort(uint16 inValue);
    void WriteLong(uint32 inValue);
    void WriteFloat(real32 inValue);
    void WriteDouble(real64 inValue);

    // A text up to a NUL, which is consumed, or the end of the stream.
    void ReadCString(TNqString& outText);
    void WriteCString(const TNqString& inText);
};

static_assert(sizeof(TNqByteSwapStream) == sizeof(TNqstrstream), "other modules derive from streams");

// Fields over the data of a resource, texts in its string table.
//
// A localized field takes a fixed number of bytes: the index of the text in the table, four bytes, and zeros. Writing
// one appends the text to the table. Without a table the same calls read and write the text itself, in the form that
// stands there: so one piece of code serves resources with a table and those without.
//
// The resource must outlive the stream; the table is held by a reference.
class TNqResourceStream : public TNqByteSwapStream
{
public:
    // The resource's data in place, with its table, in UTF-8.
    TNqResourceStream(TNqResource& ioResource, int32 inMode);
    // Writes into a block of its own, with a table or, null, without.
    explicit TNqResourceStream(TResourceStrings* inStrings);
    ~TNqResourceStream() override;

    // A localized field of `inSize` bytes, at least 4; a size that is no multiple of 4 is reported and counts without
    // its rest. False without a table, and for an index past the table, which is reported; the text is then as it was.
    using TNqiostream::ReadLocalizedString;
    using TNqiostream::WriteLocalizedString;
    virtual boolean ReadLocalizedString(TNqString& outText, int32 inSize);
    // False without a table, reported, and when the table has no memory: that is a failure of the stream, too.
    virtual boolean WriteLocalizedString(const TNqString& inText, int32 inSize);

    // A localized field with a table; without one, in this order: a text behind its length, a text up to a NUL, a
    // Pascal field of the same size in both forms (size + 1 bytes).
    void ReadLocalizedTNqString(TNqString& outText);
    void WriteLocalizedTNqString(const TNqString& inText);
    void ReadLocalizedCString(TNqString& outText);
    void WriteLocalizedCString(const TNqString& inText);
    void ReadLocalizedTNqString(int32 inSize, TNqString& outText);
    void WriteLocalizedTNqString(int32 inSize, const TNqString& inText);

    // Every string of the table, in order, as a localized string attribute "Strg" of the token format.
    void WriteAllStrings(TNqiostream& ioStream);

private:
    friend struct TNqResourceStreamLayout;

    TNqResource* fResource; // null when the stream writes into a block of its own
    TNqCountedPtr<TResourceStrings> fLocalizedStrings;
};

// A resource kept as token text. Where the text has a localized string there is a number, its index in the table.
class TNqLocalizedTextResourceStream : public TNqstrstream
{
public:
    // Reads `inSize` bytes of text; size 0: up to the NUL. It is a reading stream whatever `inMode` says.
    TNqLocalizedTextResourceStream(TResourceStrings& ioStrings, int8* inBuffer, int32 inSize, int32 inMode);
    // Writes into a block of its own.
    explicit TNqLocalizedTextResourceStream(TResourceStrings& ioStrings);
    ~TNqLocalizedTextResourceStream() override;

    // Appends the text to the table and writes its index and a line end.
    void WriteLocalizedString(const TNqString& inText) override;
    // False for an index past the table, which is reported; the text is then as it was. Throw as NqToken's
    // GetInt32Token.
    boolean ReadLocalizedString(TNqString& outText) override;
    void ReadLocalizedDynamicString(TNqDynamicString& outText) override;

    // As TNqResourceStream::WriteAllStrings.
    void WriteAllStrings(TNqiostream& ioStream);

private:
    friend struct TNqResourceStreamLayout;

    TResourceStrings& fLocalizedStrings; // outlives the stream
};

static_assert(sizeof(TNqResourceStream) == 128 && sizeof(TNqLocalizedTextResourceStream) == 120,
              "other modules derive from streams");
