// The tokens of a text, with their places, for readers that tell the user what is wrong where.

#pragma once

#include "Tools/nqtoken/Outcome.h"

#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqToken.h"

#include <string>
#include <string_view>

namespace nqres
{

using nqtoken::Outcome;

struct Token
{
    NqToken::ETokenKind fKind = NqToken::kNoToken;
    size_t fOffset = 0;
    std::string fText; // of a word, or of a string without its quotes and escapes, of any length

    bool IsName(std::string_view inName) const { return fKind == NqToken::kWordToken && fText == inName; }
};

// A token as messages show it.
std::string Shown(const Token& inToken);

class TextReader
{
public:
    TextReader(std::string inName, std::string_view inText);

    // The next token; kNoToken at the end of the text.
    Outcome Next(Token& outToken);
    // The same, and any other than this kind is a fault: "expected" and inWhat.
    Outcome Expect(NqToken::ETokenKind inKind, std::string_view inWhat, Token& outToken);

    // "NAME:LINE:COLUMN: what is wrong".
    Outcome Fault(size_t inOffset, const std::string& inWhat) const;

private:
    std::string fName;
    std::string fText;
    TNqstrstream fStream;
};

} // namespace nqres
