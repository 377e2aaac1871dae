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
void InitTokenMgr(TNqiostream& ioStream);
// The stream's own settings, or &gDefaultTokenData. Valid until the next InitTokenMgr of the stream or its end.
NqTokenData* GetNqTokenData(TNqiostream& ioStream);
void SetTokenAsciiFormat(TNqiostream& ioStream, int32 inAsciiFormat);
int32 GetTokenAsciiFormat(TNqiostream& ioStream);

// Tokens and blocks

// Reads one token into the 256 bytes of `inToken`: a brace, the text of a quoted string, or a word, which ends before a
// blank, a "#", a brace or a quote. What exceeds 255 bytes is passed over. Comments (from "#" to the end of the line)
// are skipped, and so is a "$" payload, which gives an empty token. Returns 0; kNqErrEndOfFile when the stream ends
// first, also within a word, or fails; kNqErrFormat when the count of a payload is malformed; the code of an exception
// of the stream's own. The buffer is terminated in every case.
//
// With `inKeepDelimiters` quotes, escapes and the comments before a word or string are kept as they stand. A string too
// long for the buffer keeps its closing quote, a comment its line end; before a brace comments are dropped.
NqErr GetNextToken(TNqiostream& ioStream, int8* outToken, boolean inKeepDelimiters);
boolean IsBeginToken(const int8* inToken);
boolean IsEndToken(const int8* inToken);
// Reads a token that must be an opening (closing) brace. A quoted string that begins with a brace is none.
void GetBeginToken(TNqiostream& ioStream);
void GetEndToken(TNqiostream& ioStream);
// Skips one value or one whole block; with `inInsideBlock` the rest of the current block and its closing brace.
void SkipTokenData(TNqiostream& ioStream);
void SkipTokenData(TNqiostream& ioStream, boolean inInsideBlock);
// The first four bytes of a name as a number, the first one most significant. Missing ones are blanks, a ' stands for a
// zero byte.
int32 CompactAttribute(const int8* inText);

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
// or check a document. With `inKeepComments` a comment is a token too. The result codes are those of GetNextToken;
// after a code that is not 0, `outInfo` describes the token that was begun. The stream must know its position (tell()).
// To read the values of a word with the typed readers, seek back to its offset.
NqErr GetNextTokenInfo(TNqiostream& ioStream, int8* outToken, TNqTokenInfo& outInfo, boolean inKeepComments);

// Values. Each is called when the name before the value has been read.

int8 GetInt8Token(TNqiostream& ioStream);
uint8 GetUInt8Token(TNqiostream& ioStream);
int16 GetInt16Token(TNqiostream& ioStream);
uint16 GetUInt16Token(TNqiostream& ioStream);
int32 GetInt32Token(TNqiostream& ioStream);
uint32 GetUInt32Token(TNqiostream& ioStream);
uint32 GetEnumToken(TNqiostream& ioStream);
boolean GetBooleanToken(TNqiostream& ioStream);
real32 GetReal32Token(TNqiostream& ioStream);
real64 GetReal64Token(TNqiostream& ioStream);
// Accepts "inf" and "-inf" too, as the largest finite values.
real32 GetReal32InfToken(TNqiostream& ioStream);
// A name as a value: one to four characters, ended by a blank (consumed), a comma (left) or the end of the stream.
int32 GetFourCharConstToken(TNqiostream& ioStream);

// Values with commas between them. No blank may stand before a comma.
TNqPoint GetPointToken(TNqiostream& ioStream);
TNqRect GetRectToken(TNqiostream& ioStream); // top, left, bottom, right
// Read `inCount` values, at least one: `ioOut` must hold one even when `inCount` is 0. A null `ioOut` discards what is
// read.
void GetInt16ArrayToken(TNqiostream& ioStream, int32 inCount, int16* outValues);
void GetInt32ArrayToken(TNqiostream& ioStream, int32 inCount, int32* outValues);
void GetReal32ArrayToken(TNqiostream& ioStream, int32 inCount, real32* outValues);

// Strings, converted from the stream's encoding. All but the dynamic ones take a word as well, and cut at 255 bytes.
TNqString255 GetNonLocalizedStringToken(TNqiostream& ioStream);
TNqString& GetLongStringToken(TNqiostream& ioStream, TNqString& outText);
TNqDynamicString& GetNonLocalizedDynamicStringToken(TNqiostream& ioStream, TNqDynamicString& outText,
                                                    boolean inTranslate);
TNqString255 GetLocalizedStringToken(TNqiostream& ioStream);
TNqDynamicString& GetLocalizedDynamicStringToken(TNqiostream& ioStream, TNqDynamicString& outText);
TNqString255 GetPathRefToken(TNqiostream& ioStream);

// Writing: names and blocks

// Writes the four characters of a name, the most significant byte first. A zero byte is written as '. When `inCompact`
// is set a blank ends the name.
void PutToken(TNqiostream& ioStream, uint32 inToken, boolean inCompact);
void IndentToken(TNqiostream& ioStream);
// Opens a block with a name. The context of the stream is returned when it is wanted, else null; the caller owns it.
TNqiostreamContext* PutBeginToken(TNqiostream& ioStream, int32 inToken, boolean inWantContext);
// Opens a block on the current line.
void PutBeginToken(TNqiostream& ioStream);
// Closes a block. With indentation the brace stands in line with the contents of the block.
void PutEndToken(TNqiostream& ioStream);

// Writing: a line with a name and a value each

void PutInt8Attribute(TNqiostream& ioStream, int32 inToken, int8 inValue);
void PutUInt8Attribute(TNqiostream& ioStream, int32 inToken, uint8 inValue);
void PutInt16Attribute(TNqiostream& ioStream, int32 inToken, int16 inValue);
void PutUInt16Attribute(TNqiostream& ioStream, int32 inToken, uint16 inValue);
void PutInt32Attribute(TNqiostream& ioStream, int32 inToken, int32 inValue);
void PutUInt32Attribute(TNqiostream& ioStream, int32 inToken, uint32 inValue);
void PutEnumAttribute(TNqiostream& ioStream, int32 inToken, uint32 inValue);
void PutBooleanAttribute(TNqiostream& ioStream, int32 inToken, boolean inValue);
void PutReal32Attribute(TNqiostream& ioStream, int32 inToken, real32 inValue);
void PutReal64Attribute(TNqiostream& ioStream, int32 inToken, real64 inValue);
void PutFourCharConstAttribute(TNqiostream& ioStream, int32 inToken, int32 inValue);
void PutPointAttribute(TNqiostream& ioStream, int32 inToken, const TNqPoint& inPoint);
void PutRectAttribute(TNqiostream& ioStream, int32 inToken, const TNqRect& inRect);
// Write at least one value, also when `inCount` is less; a null array is written as one 0.
void PutInt16ArrayAttribute(TNqiostream& ioStream, int32 inToken, int32 inCount, const int16* inValues);
void PutInt32ArrayAttribute(TNqiostream& ioStream, int32 inToken, int32 inCount, const int32* inValues);
// With a `inToken` of 0 the values continue the current line: neither name nor line end is written.
void PutReal32ArrayAttribute(TNqiostream& ioStream, int32 inToken, int32 inCount, const real32* inValues);
void PutNonLocalizedStringAttribute(TNqiostream& ioStream, int32 inToken, const TNqString& inText, boolean inTranslate);
void PutNonLocalizedLongStringAttribute(TNqiostream& ioStream, int32 inToken, const TNqString& inText,
                                        boolean inTranslate);
void PutLocalizedStringAttribute(TNqiostream& ioStream, int32 inToken, const TNqString& inText, boolean inTranslate);
void PutLocalizedLongStringAttribute(TNqiostream& ioStream, int32 inToken, const TNqString& inText,
                                     boolean inTranslate);
void PutPathRefAttribute(TNqiostream& ioStream, int32 inToken, const TNqString& inPath);
// A block with a name whose content is the text in a memory stream, which keeps it.
void PutStreamAttribute(TNqiostream& ioStream, int32 inToken, TNqstrstream& ioContent);

// Writing: values that continue a line

void PutInt32Token(TNqiostream& ioStream, int32 inValue);
// A string between quotes. The bytes of the text are written as they are, whatever the stream's encoding.
void PutNonLocalizedString(TNqiostream& ioStream, const TNqString& inText, boolean inTranslate);
void PutLocalizedString(TNqiostream& ioStream, const TNqString& inText, boolean inTranslate);

// Raw binary payloads: the bytes themselves, between '$' signs and behind a count

// Writes what stands before a payload of `outSize` bytes; 0xFFFFFFFF when the size is not known, and then the payload
// must hold no '$'.
void PutBinaryStartAttribute(TNqiostream& ioStream, int32 inToken, uint32 inSize);
void PutBinaryEndAttribute(TNqiostream& ioStream);
// Passes over what stands before a payload, up to its first byte.
void GetBinaryStartToken(TNqiostream& ioStream, uint32& outSize);
void GetBinaryEndToken(TNqiostream& ioStream);

// Hexadecimal text: two digits of 0-9 and A-F for a byte

// Without `inBinary` the digits of the bytes, with it the bytes themselves.
void PutBufferAsHexa(TNqiostream& ioStream, const int8* inBuffer, int32 inCount, boolean inBinary);
void GetBufferAsHexa(TNqiostream& ioStream, int8* outBuffer, int32 inCount, boolean inBinary);
// Lines of at most 64 bytes; all but the first are named MORE. A count below 1 writes nothing.
void PutHexaBinaryAttribute(TNqiostream& ioStream, int32 inToken, int32 inCount, const void* inData);
void GetHexaBinaryToken(TNqiostream& ioStream, int32 inCount, void* outBytes);

// Six bits in a character: three bytes are four characters from '0' to 'o'. The state carries the bytes between groups
// from call to call, so that data may be cut anywhere; it is the caller's. Calls with a count or size below 1 are
// reported and do nothing.
void BeginBufferAsBinHex(uint32& ioState);
void PutBufferAsBinHex(TNqiostream& ioStream, const int8* inBuffer, int32 inCount, uint32& ioState);
void EndPutBufferAsBinHex(TNqiostream& ioStream, uint32& ioState);
// Other characters between those of the data are skipped, except braces: they throw kNqErrInvalidData.
void GetBufferAsBinHex(TNqiostream& ioStream, int8* outBuffer, int32 inSize, uint32& ioState);

// Parts of a document as text

// The text of the next value or block, without its comments and '$' payloads, in a block that the caller frees with
// Nqfree. The end of the stream throws the code 1. Nothing is stored when the text is empty, or when there is no memory
// for that block (reported).
void ExtractTokenData(TNqiostream& ioStream, void*& outData, uint32& outSize);
// Reads a block and appends its content to `ioOut`, comments and payloads included; `outSize` is the position in
// `ioOut` afterwards. Throws kNqErrOutOfMemory, behind the block, when `ioOut` could not take all of it.
void GetStreamToken(TNqiostream& ioStream, TNqstrstream& ioOut, int32& outSize);

} // namespace NqToken

// Eight hexadecimal digits, the most significant first. Reading skips what is no digit, except a '$', which is left and
// throws.
void PutLongAsHexa(TNqiostream& ioStream, int32 inValue);
NqErr GetLongAsHex(TNqiostream& ioStream, int32& outValue);

// One group of six-bit characters: b0 is in the low bits of c0.
void BinaryToBinHex(uint8& c0, uint8& c1, uint8& c2, uint8& c3, uint8 b0, uint8 b1, uint8 b2);
void BinHexToBinary(const uint8& c0, const uint8& c1, const uint8& c2, const uint8& c3, uint8& b0, uint8& b1,
                    uint8& b2);
// The next character of six-bit data.
void GetInt8TokenHexa(TNqiostream& ioStream, uint8& outCharacter);

// Copies tokens to `ioOut`, each with a blank behind it, up to the brace that closes the block that is open; that brace
// is copied, without a blank, when `inNested` is set. Throws as GetStreamToken does.
void ReadStream(TNqiostream& ioStream, TNqstrstream& ioOut, boolean inNested);
