// The token format: the structured text in which scenes and settings are kept. A document is a tree of blocks in
// braces; each block and each value is introduced by a name of four characters. These functions write such text to any
// stream and read it back; for plain numbers and words without names, the operators of the stream do.
//
//     NqToken::PutBeginToken(stream, 0x4F424A54, false);                                    // OBJT {
//     NqToken::PutNonLocalizedStringAttribute(stream, 0x4E414D45, TNqString255("Cube"), false);  // NAME "Cube"
//     NqToken::PutPointAttribute(stream, 0x53495A45, TNqPoint(10, 20));                     // SIZE 10,20
//     NqToken::PutEndToken(stream);                                                         // }
//
//     int8 token[NqToken::kTokenBufferSize];
//     NqToken::GetBeginToken(stream);                       // after the block's name was read
//     NqErr error;
//     while ((error = NqToken::GetNextToken(stream, token, false)) == 0 && !NqToken::IsEndToken(token))
//         switch (NqToken::CompactAttribute(token))
//         {
//         case 0x53495A45: size = NqToken::GetPointToken(stream); break;
//         default:         NqToken::SkipTokenData(stream); break;   // an unknown value or block
//         }
//     if (error != 0)
//         NqToken::FailEOFFile();                           // the block has no end
//
// Failure: readers throw TNqException with kNqErrFormat or kNqErrEndOfFile and leave the stream behind the byte that
// was wrong; GetNextToken returns these codes and never throws: what an operation of the stream throws is a code too.
// Readers of strings and of whole blocks throw kNqErrOutOfMemory when they do not fit. Writers throw nothing: a failed
// write shows in the state of the stream. A malformed number is reported by the stream and reads as 0.
//
// The end: kNqErrEndOfFile also comes of a stream that cannot be read on, as a disk with a bad sector or a connection
// that broke off; what was read of a value is none then. The document has ended where the stream then says eof() and
// not fail(). docs/reading-tokens.md has more.
//
// Cost: time is linear in the bytes passed and nothing recurses, whatever the input. On TNqstrstream and TNqfstream
// themselves the bytes are taken from the stream's own buffer; classes derived from them see each call of the stream's
// operations.
//
// Threads: a stream belongs to one thread at a time. gDefaultTokenData is shared by all streams without settings of
// their own and is not protected.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"
#include "NqCore/PublicAPI/NqObject.h"
#include "NqCore/PublicAPI/NqPoint.h"
#include "NqCore/PublicAPI/NqRect.h"
#include "NqCore/PublicAPI/NqString.h"

class TNqiostream;
class TNqiostreamContext;
class TNqstrstream;

// How tokens are written to one stream. Attached to the stream by NqToken::InitTokenMgr.
class NqTokenData : public TNqObject
{
public:
    boolean fBinary = true;        // the stream can carry binary payloads; kept for callers, not looked at here
    boolean fTokenCompact = false; // no blank before a string, a path or an opening brace
    boolean fTokenIndent = false;  // lines begin with a blank for each open block
    int32 fTokenIndentLevel = 0;   // open blocks, counted while fTokenIndent is set
    int32 fTokenBinaryCount = 0;   // set to 0 at the start of each binary payload
    int32 fTokenAsciiFormat = 0;   // a number of the caller's own
};

// The settings of every stream without its own: what is changed through such a stream changes for all of them.
extern NqTokenData gDefaultTokenData;

namespace NqToken
{

// Bytes of the buffer that GetNextToken fills: at most 255 of the token, and a NUL.
constexpr int32 kTokenBufferSize = 256;

// Settings of a stream

// Gives the stream settings of its own, with the defaults. Settings that it had are lost.
void InitTokenMgr(TNqiostream& stream);
// The stream's own settings, or &gDefaultTokenData. Valid until the next InitTokenMgr of the stream or its end.
NqTokenData* GetNqTokenData(TNqiostream& stream);
void SetTokenAsciiFormat(TNqiostream& stream, int32 asciiFormat);
int32 GetTokenAsciiFormat(TNqiostream& stream);

// Tokens and blocks

// Reads one token into the 256 bytes of `token`: a brace, the text of a quoted string, or a word, which ends before a
// blank, a "#", a brace or a quote. What exceeds 255 bytes is passed over. Comments (from "#" to the end of the line)
// are skipped, and so is a "$" payload, which gives an empty token. Returns 0; kNqErrEndOfFile when the stream ends
// first, also within a word, or fails; kNqErrFormat when the count of a payload is malformed; the code of an exception
// of the stream's own. The buffer is terminated in every case.
//
// With `keepDelimiters` quotes, escapes and the comments before a word or string are kept as they stand. A string too
// long for the buffer keeps its closing quote, a comment its line end; before a brace comments are dropped.
NqErr GetNextToken(TNqiostream& stream, int8* token, boolean keepDelimiters);
boolean IsBeginToken(const int8* token);
boolean IsEndToken(const int8* token);
// Reads a token that must be an opening (closing) brace. A quoted string that begins with a brace is none.
void GetBeginToken(TNqiostream& stream);
void GetEndToken(TNqiostream& stream);
// Skips one value or one whole block; with `insideBlock` the rest of the current block and its closing brace.
void SkipTokenData(TNqiostream& stream);
void SkipTokenData(TNqiostream& stream, boolean insideBlock);
// The first four bytes of a name as a number, the first one most significant. Missing ones are blanks, a ' stands for a
// zero byte.
int32 CompactAttribute(const int8* text);

// Throw kNqErrFormat and kNqErrEndOfFile.
[[noreturn]] void FailReadFile();
[[noreturn]] void FailEOFFile();

// Documents of unknown content

enum ETokenKind
{
    kNoToken,      // the stream ended before a token began
    kWordToken,    // a name or a value without quotes
    kStringToken,  // a quoted string; the buffer holds it without quotes and escapes
    kBeginToken,   // {
    kEndToken,     // }
    kRawToken,     // a '$' payload
    kCommentToken, // from '#' to the end of its line, both in the buffer
};

// What GetNextTokenInfo found. Offsets are positions as the stream's tell() counts them.
struct TNqTokenInfo
{
    ETokenKind fKind;
    int32 fOffset;        // of the first byte of the token, with its quote, '#' or '$'
    uint32 fStoredLength; // bytes in the buffer; they may hold a NUL
    uint32 fFullLength;   // bytes that the text has; more than fStoredLength when the buffer could not hold it
    uint32 fCommaCount;   // commas in the text: an array has one value more
    int32 fDataOffset;    // of the first byte of a payload
    uint32 fDataSize;     // bytes of the payload: what its count says, or what was found when the count is 0xFFFFFFFF
    uint32 fExcess;       // bytes between the end of the payload and its closing '$': not 0 when the count is too small
};

// Reads one token as GetNextToken does without its delimiters, and tells what it was and where: for programs that list
// or check a document. With `keepComments` a comment is a token too. The result codes are those of GetNextToken; after
// a code that is not 0, `info` describes the token that was begun. The stream must know its position (tell()). To read
// the values of a word with the typed readers, seek back to its offset.
NqErr GetNextTokenInfo(TNqiostream& stream, int8* token, TNqTokenInfo& info, boolean keepComments);

// Values. Each is called when the name before the value has been read.

int8 GetInt8Token(TNqiostream& stream);
uint8 GetUInt8Token(TNqiostream& stream);
int16 GetInt16Token(TNqiostream& stream);
uint16 GetUInt16Token(TNqiostream& stream);
int32 GetInt32Token(TNqiostream& stream);
uint32 GetUInt32Token(TNqiostream& stream);
uint32 GetEnumToken(TNqiostream& stream);
boolean GetBooleanToken(TNqiostream& stream);
real32 GetReal32Token(TNqiostream& stream);
real64 GetReal64Token(TNqiostream& stream);
// Accepts "inf" and "-inf" too, as the largest finite values.
real32 GetReal32InfToken(TNqiostream& stream);
// A name as a value: one to four characters, ended by a blank (consumed), a comma (left) or the end of the stream.
int32 GetFourCharConstToken(TNqiostream& stream);

// Values with commas between them. No blank may stand before a comma.
TNqPoint GetPointToken(TNqiostream& stream);
TNqRect GetRectToken(TNqiostream& stream); // top, left, bottom, right
// Read `count` values, at least one: `out` must hold one even when `count` is 0. A null `out` discards what is read.
void GetInt16ArrayToken(TNqiostream& stream, int32 count, int16* out);
void GetInt32ArrayToken(TNqiostream& stream, int32 count, int32* out);
void GetReal32ArrayToken(TNqiostream& stream, int32 count, real32* out);

// Strings, converted from the stream's encoding. All but the dynamic ones take a word as well, and cut at 255 bytes.
TNqString255 GetNonLocalizedStringToken(TNqiostream& stream);
TNqString& GetLongStringToken(TNqiostream& stream, TNqString& out);
TNqDynamicString& GetNonLocalizedDynamicStringToken(TNqiostream& stream, TNqDynamicString& out, boolean translate);
TNqString255 GetLocalizedStringToken(TNqiostream& stream);
TNqDynamicString& GetLocalizedDynamicStringToken(TNqiostream& stream, TNqDynamicString& out);
TNqString255 GetPathRefToken(TNqiostream& stream);

// Writing: names and blocks

// Writes the four characters of a name, the most significant byte first. A zero byte is written as '. When `compact` is
// set a blank ends the name.
void PutToken(TNqiostream& stream, uint32 token, boolean compact);
void IndentToken(TNqiostream& stream);
// Opens a block with a name. The context of the stream is returned when it is wanted, else null; the caller owns it.
TNqiostreamContext* PutBeginToken(TNqiostream& stream, int32 token, boolean wantContext);
// Opens a block on the current line.
void PutBeginToken(TNqiostream& stream);
// Closes a block. With indentation the brace stands in line with the contents of the block.
void PutEndToken(TNqiostream& stream);

// Writing: a line with a name and a value each

void PutInt8Attribute(TNqiostream& stream, int32 token, int8 value);
void PutUInt8Attribute(TNqiostream& stream, int32 token, uint8 value);
void PutInt16Attribute(TNqiostream& stream, int32 token, int16 value);
void PutUInt16Attribute(TNqiostream& stream, int32 token, uint16 value);
void PutInt32Attribute(TNqiostream& stream, int32 token, int32 value);
void PutUInt32Attribute(TNqiostream& stream, int32 token, uint32 value);
void PutEnumAttribute(TNqiostream& stream, int32 token, uint32 value);
void PutBooleanAttribute(TNqiostream& stream, int32 token, boolean value);
void PutReal32Attribute(TNqiostream& stream, int32 token, real32 value);
void PutReal64Attribute(TNqiostream& stream, int32 token, real64 value);
void PutFourCharConstAttribute(TNqiostream& stream, int32 token, int32 value);
void PutPointAttribute(TNqiostream& stream, int32 token, const TNqPoint& point);
void PutRectAttribute(TNqiostream& stream, int32 token, const TNqRect& rect);
// Write at least one value, also when `count` is less; a null array is written as one 0.
void PutInt16ArrayAttribute(TNqiostream& stream, int32 token, int32 count, const int16* values);
void PutInt32ArrayAttribute(TNqiostream& stream, int32 token, int32 count, const int32* values);
// With a `token` of 0 the values continue the current line: neither name nor line end is written.
void PutReal32ArrayAttribute(TNqiostream& stream, int32 token, int32 count, const real32* values);
void PutNonLocalizedStringAttribute(TNqiostream& stream, int32 token, const TNqString& text, boolean translate);
void PutNonLocalizedLongStringAttribute(TNqiostream& stream, int32 token, const TNqString& text, boolean translate);
void PutLocalizedStringAttribute(TNqiostream& stream, int32 token, const TNqString& text, boolean translate);
void PutLocalizedLongStringAttribute(TNqiostream& stream, int32 token, const TNqString& text, boolean translate);
void PutPathRefAttribute(TNqiostream& stream, int32 token, const TNqString& path);
// A block with a name whose content is the text in a memory stream, which keeps it.
void PutStreamAttribute(TNqiostream& stream, int32 token, TNqstrstream& content);

// Writing: values that continue a line

void PutInt32Token(TNqiostream& stream, int32 value);
// A string between quotes. The bytes of the text are written as they are, whatever the stream's encoding.
void PutNonLocalizedString(TNqiostream& stream, const TNqString& text, boolean translate);
void PutLocalizedString(TNqiostream& stream, const TNqString& text, boolean translate);

// Raw binary payloads: the bytes themselves, between '$' signs and behind a count

// Writes what stands before a payload of `size` bytes; 0xFFFFFFFF when the size is not known, and then the payload must
// hold no '$'.
void PutBinaryStartAttribute(TNqiostream& stream, int32 token, uint32 size);
void PutBinaryEndAttribute(TNqiostream& stream);
// Passes over what stands before a payload, up to its first byte.
void GetBinaryStartToken(TNqiostream& stream, uint32& size);
void GetBinaryEndToken(TNqiostream& stream);

// Hexadecimal text: two digits of 0-9 and A-F for a byte

// Without `binary` the digits of the bytes, with it the bytes themselves.
void PutBufferAsHexa(TNqiostream& stream, const int8* buffer, int32 count, boolean binary);
void GetBufferAsHexa(TNqiostream& stream, int8* buffer, int32 count, boolean binary);
// Lines of at most 64 bytes; all but the first are named MORE. A count below 1 writes nothing.
void PutHexaBinaryAttribute(TNqiostream& stream, int32 token, int32 count, const void* data);
void GetHexaBinaryToken(TNqiostream& stream, int32 count, void* out);

// Six bits in a character: three bytes are four characters from '0' to 'o'. The state carries the bytes between groups
// from call to call, so that data may be cut anywhere; it is the caller's. Calls with a count or size below 1 are
// reported and do nothing.
void BeginBufferAsBinHex(uint32& state);
void PutBufferAsBinHex(TNqiostream& stream, const int8* buffer, int32 count, uint32& state);
void EndPutBufferAsBinHex(TNqiostream& stream, uint32& state);
// Other characters between those of the data are skipped, except braces: they throw kNqErrInvalidData.
void GetBufferAsBinHex(TNqiostream& stream, int8* buffer, int32 size, uint32& state);

// Parts of a document as text

// The text of the next value or block, without its comments and '$' payloads, in a block that the caller frees with
// Nqfree. The end of the stream throws the code 1. Nothing is stored when the text is empty, or when there is no memory
// for that block (reported).
void ExtractTokenData(TNqiostream& stream, void*& data, uint32& size);
// Reads a block and appends its content to `out`, comments and payloads included; `size` is the position in `out`
// afterwards. Throws kNqErrOutOfMemory, behind the block, when `out` could not take all of it.
void GetStreamToken(TNqiostream& stream, TNqstrstream& out, int32& size);

} // namespace NqToken

// Eight hexadecimal digits, the most significant first. Reading skips what is no digit, except a '$', which is left and
// throws.
void PutLongAsHexa(TNqiostream& stream, int32 value);
NqErr GetLongAsHex(TNqiostream& stream, int32& value);

// One group of six-bit characters: b0 is in the low bits of c0.
void BinaryToBinHex(uint8& c0, uint8& c1, uint8& c2, uint8& c3, uint8 b0, uint8 b1, uint8 b2);
void BinHexToBinary(const uint8& c0, const uint8& c1, const uint8& c2, const uint8& c3, uint8& b0, uint8& b1,
                    uint8& b2);
// The next character of six-bit data.
void GetInt8TokenHexa(TNqiostream& stream, uint8& character);

// Copies tokens to `out`, each with a blank behind it, up to the brace that closes the block that is open; that brace
// is copied, without a blank, when `nested` is set. Throws as GetStreamToken does.
void ReadStream(TNqiostream& stream, TNqstrstream& out, boolean nested);
