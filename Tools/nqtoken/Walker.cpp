#include "Tools/nqtoken/Walker.h"

#include "Tools/nqtoken/Text.h"
#include "Tools/nqtoken/TokenFile.h"

#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqStream.h"

#include <fmt/format.h>

#include <algorithm>

namespace nqtoken
{
namespace
{

constexpr size_t kMaxShown = 40;  // bytes of a text in a message
constexpr int32 kCountLength = 9; // of the '$' and the eight digits behind it

bool IsDigit(char inCharacter)
{
    return inCharacter >= '0' && inCharacter <= '9';
}

} // namespace

bool LooksLikeNumber(std::string_view inText)
{
    size_t digits = 0;
    size_t i = !inText.empty() && (inText[0] == '-' || inText[0] == '+') ? 1 : 0;
    for (; i < inText.size() && (IsDigit(inText[i]) || inText[i] == '.'); ++i)
        digits += IsDigit(inText[i]);
    if (digits > 0 && i < inText.size() && (inText[i] == 'e' || inText[i] == 'E'))
    {
        ++i;
        if (i < inText.size() && (inText[i] == '-' || inText[i] == '+'))
            ++i;
        digits = 0;
        for (; i < inText.size() && IsDigit(inText[i]); ++i)
            ++digits;
    }
    return digits > 0 && i == inText.size();
}

bool AreNumbers(std::string_view inText, bool inIsCut)
{
    for (;;)
    {
        const size_t comma = inText.find(',');
        if (comma == std::string_view::npos && inIsCut)
            return true; // the last one is not all there
        if (!LooksLikeNumber(inText.substr(0, comma)))
            return false;
        if (comma == std::string_view::npos)
            return true;
        inText.remove_prefix(comma + 1);
    }
}

Walker::Walker(TokenFile& ioFile) : fFile(ioFile), fStream(ioFile.Stream()) {}

bool Walker::Found(EKind inKind)
{
    fKind = inKind;
    return true;
}

bool Walker::FoundFault(int32 inPosition, std::string inWhat, NqErr inCode)
{
    fFaultPosition = inPosition;
    fFault = std::move(inWhat);
    fFaultCode = inCode;
    return Found(kFault);
}

bool Walker::FoundLastFault(int32 inPosition, std::string inWhat, NqErr inCode)
{
    fEnded = true;
    return FoundFault(inPosition, std::move(inWhat), inCode);
}

// --- tokens

// Reads the next token, or takes the one that waits. False when a fault was found in it, which then still waits.
bool Walker::ReadToken()
{
    if (fTokenState == kToRead)
    {
        fError = NqToken::GetNextTokenInfo(fStream, fToken, fInfo, false);
        fTokenState = kToCheckPayload;
        if (ZeroByteFound())
            return false;
    }
    if (fTokenState == kToCheckPayload)
    {
        fTokenState = kToLookAt;
        if (fError == 0 && fInfo.fKind == NqToken::kRawToken && PayloadIsWrong())
            return false;
    }
    fTokenState = kToRead;
    return true;
}

// Looks for a zero byte between the last token and the end of this one, payloads left out.
bool Walker::ZeroByteFound()
{
    const int32 from = fZeroFreeTo;
    fZeroFreeTo = fStream.tell();
    const int32 to = fInfo.fKind == NqToken::kRawToken ? fInfo.fOffset : fZeroFreeTo;
    const int32 zero = fFile.FindZeroByte(from, to);
    if (zero >= to)
        return false;
    FoundFault(zero, "a zero byte outside of a payload", kNqErrFormat);
    return true;
}

bool Walker::PayloadIsWrong()
{
    if (fInfo.fDataOffset - fInfo.fOffset != kCountLength + 1)
        return FoundLastFault(fInfo.fOffset, "the count of a payload must be eight digits of 0-9 and A-F behind the $",
                              kNqErrFormat);
    if (fInfo.fExcess != 0)
        return FoundLastFault(fInfo.fOffset,
                              fmt::format("the count of a payload says {}, and no $ stands behind {}",
                                          Counted(fInfo.fDataSize, "byte"), fInfo.fDataSize == 1 ? "it" : "them"),
                              kNqErrFormat);
    if (fFile.ByteAt(fInfo.fDataOffset - 1) == '\r')
        return false;
    return FoundFault(fInfo.fDataOffset - 1, "a CR must stand between the count of a payload and its bytes",
                      kNqErrFormat);
}

// The stream ended within a token, or the count of a payload is none.
bool Walker::TokenUnfinished(NqErr inError)
{
    switch (fInfo.fKind)
    {
    case NqToken::kWordToken:
        // What a line end makes good is the only fault of its kind: blocks may still be open.
        fInfo.fKind = NqToken::kNoToken;
        fTokenState = kToLookAt;
        fNamed = false;
        return FoundFault(fInfo.fOffset, "the last word of the file has no line end or blank behind it", inError);
    case NqToken::kStringToken:
        return FoundLastFault(fInfo.fOffset, "a string without its closing quote", inError);
    case NqToken::kRawToken:
        if (inError == kNqErrEndOfFile)
            return FoundLastFault(
                fInfo.fOffset, "a payload that the file ends in: its count is too large, or its $ is missing", inError);
        return FoundLastFault(fInfo.fOffset, "the count of a payload must be eight digits of 0-9 and A-F behind the $",
                              inError);
    default:
        return FoundLastFault(fStream.tell(), "the file cannot be read on", inError);
    }
}

bool Walker::FileEnded()
{
    const int32 end = fStream.tell();
    if (fNamed)
    {
        fNamed = false;
        fTokenState = kToLookAt;
        return FoundFault(end,
                          fmt::format("the file ends between the name {} and its value", Printable(fName, kMaxShown)),
                          kNqErrEndOfFile);
    }
    fEnded = true;
    if (fDepth == 0)
        return false;
    const OpenedBlock& block = fOpened[std::min(fDepth, kRemembered) - 1];
    const LineColumn place = fFile.Locate(block.fPosition);
    std::string what =
        fDepth == 1 ? "the file ends inside a block" : fmt::format("the file ends inside {} blocks", fDepth);
    what += fmt::format("; {} is open since {}:{}",
                        block.fName.empty() ? "one without a name" : Printable(block.fName, kMaxShown), place.fLine,
                        place.fColumn);
    return FoundFault(end, std::move(what), kNqErrEndOfFile);
}

// --- structure

bool Walker::Next()
{
    if (fKind == kBlockEnd)
        --fDepth;
    fKind = kFault;
    while (!fEnded)
    {
        const bool isRead = ReadToken();
        if (fFile.Failed()) // nothing that was found can be believed
            fEnded = true;
        else if (!isRead)
            return true;
        if (fEnded)
            return false;
        if (fInfo.fKind == NqToken::kNoToken)
            return FileEnded();
        if (fError != 0)
            return TokenUnfinished(fError);
        if (fNamed ? AtValue() : AtName())
            return true;
    }
    return false;
}

bool Walker::OpenBlock()
{
    if (fDepth < kRemembered)
        fOpened[fDepth] = {fName, fInfo.fOffset};
    ++fDepth;
    fNamed = false;
    return Found(kBlockBegin);
}

// A name must stand here, or the end of the block. False when it is a name: its value tells what has been found.
bool Walker::AtName()
{
    const std::string_view text = ValueText();
    switch (fInfo.fKind)
    {
    case NqToken::kEndToken:
        if (fDepth == 0)
            return FoundFault(fInfo.fOffset, "a closing brace without an opening one", kNqErrFormat);
        return Found(kBlockEnd);
    case NqToken::kBeginToken:
        fName.clear();
        if (fDepth == 0)
            return OpenBlock();
        fNamed = true; // so that the block is opened next
        fTokenState = kToLookAt;
        return FoundFault(fInfo.fOffset, "a block without a name", kNqErrFormat);
    case NqToken::kStringToken:
        return FoundFault(fInfo.fOffset,
                          fmt::format("a string where a name must stand: \"{}\"", Printable(text, kMaxShown)),
                          kNqErrFormat);
    case NqToken::kRawToken:
        return FoundFault(fInfo.fOffset, "a payload where a name must stand", kNqErrFormat);
    default:
        break;
    }
    const std::string shown = Printable(text, kMaxShown);
    if (AreNumbers(text, fInfo.fStoredLength < fInfo.fFullLength))
        return FoundFault(fInfo.fOffset, "a number where a name must stand: " + shown, kNqErrFormat);
    if (fInfo.fFullLength > 4)
        return FoundFault(fInfo.fOffset, "a name of more than four characters: " + shown, kNqErrFormat);
    if (fInfo.fCommaCount > 0)
        return FoundFault(fInfo.fOffset, "a name with a comma in it: " + shown, kNqErrFormat);
    fName = text;
    fNamed = true;
    return false;
}

bool Walker::AtValue()
{
    switch (fInfo.fKind)
    {
    case NqToken::kEndToken:
        fNamed = false;
        fTokenState = kToLookAt;
        return FoundFault(fInfo.fOffset, fmt::format("the name {} has no value", Printable(fName, kMaxShown)),
                          kNqErrFormat);
    case NqToken::kBeginToken:
        return OpenBlock();
    default:
        fNamed = false;
        return Found(kAttribute);
    }
}

void Walker::SkipBlock()
{
    int64 depth = 1;
    do
    {
        fError = NqToken::GetNextTokenInfo(fStream, fToken, fInfo, false);
        depth += fInfo.fKind == NqToken::kBeginToken ? 1 : 0;
        depth -= fInfo.fKind == NqToken::kEndToken ? 1 : 0;
    } while (fError == 0 && depth > 0);
    fZeroFreeTo = fStream.tell();
    fTokenState = kToLookAt;
}

} // namespace nqtoken
