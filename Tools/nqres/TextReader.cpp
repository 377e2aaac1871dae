#include "Tools/nqres/TextReader.h"

#include "Tools/nqres/Text.h"

#include "NqCore/PublicAPI/NqException.h"

#include <fmt/format.h>

#include <utility>

namespace nqres
{
namespace
{

constexpr std::string_view kMark = "\xEF\xBB\xBF";
constexpr char kOldEscape = 1;

// The last word of a text needs a blank behind it, which an editor may have left out.
std::string WithLastLineEnded(std::string_view inText)
{
    return std::string(inText) + "\n";
}

std::string WithoutQuotesAndEscapes(std::string_view inRaw)
{
    std::string text;
    for (size_t i = 1; i + 1 < inRaw.size(); ++i)
    {
        if (inRaw[i] == '\\' || inRaw[i] == kOldEscape)
            ++i;
        text += inRaw[i];
    }
    return text;
}

} // namespace

std::string Shown(const Token& inToken)
{
    if (inToken.fKind == NqToken::kBeginToken || inToken.fKind == NqToken::kEndToken)
        return inToken.fKind == NqToken::kBeginToken ? "{" : "}";
    return (inToken.fKind == NqToken::kStringToken ? "the text " : "") + Excerpt(inToken.fText);
}

TextReader::TextReader(std::string inName, std::string_view inText)
    : fName(std::move(inName)),
      fText(WithLastLineEnded(inText)),
      fStream(fText.data(), static_cast<int32>(fText.size()), kUTF8Transcoder, eRead)
{
    if (inText.substr(0, kMark.size()) == kMark)
        fStream.seek(static_cast<int32>(kMark.size()), TNqiostream::beg);
}

Outcome TextReader::Next(Token& outToken)
{
    int8 buffer[NqToken::kTokenBufferSize];
    NqToken::TNqTokenInfo info;
    const NqErr error = NqToken::GetNextTokenInfo(fStream, buffer, info, false);
    outToken = {info.fKind, info.fKind == NqToken::kNoToken ? fText.size() - 1 : static_cast<size_t>(info.fOffset), {}};
    if (info.fKind == NqToken::kRawToken)
        return Fault(outToken.fOffset, "a raw payload; write bytes as hexadecimal digits behind HEXA");
    if (info.fKind == NqToken::kStringToken && error != kNqNoErr)
        return Fault(outToken.fOffset, "a string without its closing quote");
    if (info.fKind == NqToken::kWordToken)
        outToken.fText = fText.substr(outToken.fOffset, info.fFullLength);
    if (info.fKind == NqToken::kStringToken)
        outToken.fText = WithoutQuotesAndEscapes(
            std::string_view(fText).substr(outToken.fOffset, static_cast<size_t>(fStream.tell()) - outToken.fOffset));
    if (outToken.fText.find('\0') != std::string::npos)
        return Fault(outToken.fOffset, "a zero byte; no text of a resource can hold one");
    return {};
}

Outcome TextReader::Expect(NqToken::ETokenKind inKind, std::string_view inWhat, Token& outToken)
{
    Outcome outcome = Next(outToken);
    if (outcome.Ok() && outToken.fKind != inKind)
        outcome = Fault(outToken.fOffset, outToken.fKind == NqToken::kNoToken
                                              ? fmt::format("the text ends where {} should stand", inWhat)
                                              : fmt::format("expected {}, found {}", inWhat, Shown(outToken)));
    return outcome;
}

Outcome TextReader::Fault(size_t inOffset, const std::string& inWhat) const
{
    const Place place = PlaceOf(fText, inOffset);
    return nqtoken::AtFault(fmt::format("{}:{}:{}: {}", fName, place.fLine, place.fColumn, inWhat));
}

} // namespace nqres
