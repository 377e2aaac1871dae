#include "Tools/nqres/Build.h"

#include "Tools/nqres/Text.h"
#include "Tools/nqres/TextReader.h"
#include "Tools/nqtoken/Text.h"

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqResourceStream.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <map>
#include <new>
#include <set>
#include <system_error>
#include <utility>

namespace nqres
{
namespace
{

constexpr size_t kLongestName = 255;
constexpr size_t kLongestPascal = 255;
constexpr size_t kLongestCounted = 4095; // behind four bytes of length: streams read no more
constexpr size_t kHexBytesOnLine = 32;

// ---- Numbers -------------------------------------------------------------------------------------------------------

// A whole number in decimal, or in hexadecimal digits behind 0x.
bool ParseWhole(std::string_view inText, int64& outValue)
{
    const bool hex = inText.substr(0, 2) == "0x";
    const std::string_view digits = hex ? inText.substr(2) : inText;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, outValue, hex ? 16 : 10);
    return error == std::errc() && stop == end && !(hex && outValue < 0);
}

std::string FoundNumber(std::string_view inText)
{
    return inText.empty() ? "nothing; write numbers without blanks between them, such as 1,2,3" : Excerpt(inText);
}

// What is wrong with it; empty when nothing is.
template <class Real>
std::string ParseReal(std::string_view inText, Real& outValue)
{
    const char* const end = inText.data() + inText.size();
    const auto [stop, error] = std::from_chars(inText.data(), end, outValue);
    if (stop != end || (error != std::errc() && error != std::errc::result_out_of_range))
        return fmt::format("expected a number, found {}", FoundNumber(inText));
    return error == std::errc()
               ? std::string()
               : fmt::format("{} is too large or too small for a number of {} bytes", Excerpt(inText), sizeof(Real));
}

// ---- One resource --------------------------------------------------------------------------------------------------

class ResourceBuilder
{
public:
    explicit ResourceBuilder(TextReader& ioReader) : fReader(ioReader), fStrings(NewTable()), fData(fStrings) {}

    // The block from behind its name to its closing brace.
    Outcome Read(size_t inOffset)
    {
        Token token;
        Outcome outcome = fReader.Expect(NqToken::kBeginToken, "{ behind RSRC", token);
        while (outcome.Ok())
        {
            outcome = fReader.Next(token);
            if (!outcome.Ok() || token.fKind == NqToken::kEndToken)
                break;
            outcome = ReadAttribute(token);
        }
        if (outcome.Ok() && fSeen.count("TYPE") == 0)
            return fReader.Fault(inOffset, "a resource without TYPE; add one, such as TYPE ICON");
        if (outcome.Ok() && fSeen.count("NMBR") == 0)
            return fReader.Fault(inOffset, "a resource without NMBR; add one, such as NMBR 128");
        return outcome;
    }

    FourCharT Type() const { return fType; }
    int16 Number() const { return fNumber; }

    // The resource, with the reference that the caller gets.
    TNqCountedPtr<TNqResource> Make()
    {
        TNqCountedPtr<TNqResource> resource;
        *&resource = new TNqResource(fType, fNumber, TNqDynamicString(fName.data(), static_cast<uint32>(fName.size())));
        if (resource == nullptr)
            throw std::bad_alloc();
        resource->SetAttributes(fAttributes);
        const uint32 size = static_cast<uint32>(fData.pcount());
        resource->TakeData(fData.str(), size);
        if (fHasTable)
            resource->SetLocalizedStrings(fStrings);
        return resource;
    }

private:
    static TNqCountedPtr<TResourceStrings> NewTable()
    {
        TNqCountedPtr<TResourceStrings> table;
        TResourceStrings::Create(&table);
        return table;
    }

    Outcome ReadAttribute(const Token& inName)
    {
        if (inName.IsName("DATA"))
            return ReadBlock("DATA", [this](const Token& name) { return ReadField(name); });
        if (inName.IsName("STRS"))
        {
            fHasTable = true;
            return ReadBlock("STRS", [this](const Token& name) { return ReadString(name); });
        }
        if (inName.fKind == NqToken::kWordToken && !fSeen.insert(inName.fText).second)
            return fReader.Fault(inName.fOffset, fmt::format("a second {}; remove one of them", inName.fText));
        if (inName.IsName("TYPE"))
            return ReadCode(fType);
        if (inName.IsName("NMBR"))
            return ReadWhole<int16, -32768, 32767>(fNumber);
        if (inName.IsName("ATTR"))
            return ReadWhole<int32, std::numeric_limits<int32>::min(), std::numeric_limits<uint32>::max()>(fAttributes);
        if (inName.IsName("NAME"))
            return ReadText(kLongestName, fName);
        return Unknown(inName, "TYPE, NMBR, NAME, ATTR, DATA, STRS or }");
    }

    Outcome Unknown(const Token& inToken, std::string_view inExpected) const
    {
        return fReader.Fault(inToken.fOffset,
                             inToken.fKind == NqToken::kNoToken
                                 ? fmt::format("the text ends inside of a block; close it with }}")
                                 : fmt::format("{} is not known here; expected {}", Shown(inToken), inExpected));
    }

    template <class Each>
    Outcome ReadBlock(std::string_view inName, Each&& inEach)
    {
        Token token;
        Outcome outcome = fReader.Expect(NqToken::kBeginToken, fmt::format("{{ behind {}", inName), token);
        while (outcome.Ok())
        {
            outcome = fReader.Next(token);
            if (!outcome.Ok() || token.fKind == NqToken::kEndToken)
                break;
            outcome = inEach(token);
        }
        return outcome;
    }

    // ---- Values ----

    Outcome ReadText(size_t inMost, std::string& outText)
    {
        Token token;
        Outcome outcome = fReader.Expect(NqToken::kStringToken, "a text in quotes", token);
        if (outcome.Ok() && token.fText.size() > inMost)
            return fReader.Fault(token.fOffset, fmt::format("{} of text where at most {} {}; shorten it",
                                                            nqtoken::Counted(token.fText.size(), "byte"), inMost,
                                                            inMost == 1 ? "fits" : "fit"));
        outText = token.fText;
        return outcome;
    }

    // As a string, to be written to a stream.
    Outcome ReadText(size_t inMost, TNqDynamicString& outText)
    {
        std::string text;
        Outcome outcome = ReadText(inMost, text);
        outText.FromText(text.data(), static_cast<uint32>(text.size()));
        if (outText.ByteLength() != text.size())
            throw std::bad_alloc();
        return outcome;
    }

    Outcome ReadCode(FourCharT& outCode)
    {
        Token token;
        Outcome outcome = fReader.Next(token);
        if (!outcome.Ok())
            return outcome;
        const bool quoted = token.fKind == NqToken::kStringToken && token.fText.size() == 4;
        if (quoted)
            outCode = TypeFromBytes(token.fText);
        if (quoted || (token.fKind == NqToken::kWordToken && TypeFromWord(token.fText, outCode)))
            return {};
        return fReader.Fault(token.fOffset, "expected four characters, such as ICON, \"JPG \" or 0x4A504720");
    }

    // A value outside of the range is a fault; unsigned ones of the same width are taken, too.
    Outcome ParseInRange(std::string_view inText, size_t inOffset, int64 inLowest, int64 inHighest, int64& outValue)
    {
        if (ParseWhole(inText, outValue) && outValue >= inLowest && outValue <= inHighest)
            return {};
        return fReader.Fault(inOffset, fmt::format("expected a whole number from {} to {}, found {}", inLowest,
                                                   inHighest, FoundNumber(inText)));
    }

    template <class Number, int64 Lowest, int64 Highest>
    Outcome ReadWhole(Number& outValue)
    {
        Token token;
        int64 value = 0;
        Outcome outcome = fReader.Expect(NqToken::kWordToken, "a number", token);
        if (outcome.Ok())
            outcome = ParseInRange(token.fText, token.fOffset, Lowest, Highest, value);
        outValue = static_cast<Number>(value);
        return outcome;
    }

    // ---- Fields of the data ----

    // Every write clears the state of the stream: a failure must be seen at once.
    template <class Body>
    void Put(Body&& inBody)
    {
        inBody();
        if (!fData.good())
            throw std::bad_alloc();
    }

    // Calls inEach(text, offset) for each of the numbers between commas.
    template <class Each>
    Outcome EachNumber(Each&& inEach)
    {
        Token token;
        Outcome outcome = fReader.Expect(NqToken::kWordToken, "numbers with commas between them", token);
        for (size_t at = 0; outcome.Ok() && at <= token.fText.size();)
        {
            const size_t comma = std::min(token.fText.find(',', at), token.fText.size());
            outcome = inEach(std::string_view(token.fText).substr(at, comma - at), token.fOffset + at);
            at = comma + 1;
        }
        return outcome;
    }

    template <class Field, int64 Lowest, int64 Highest>
    Outcome WholeFields()
    {
        return EachNumber(
            [&](std::string_view text, size_t offset)
            {
                int64 value = 0;
                Outcome outcome = ParseInRange(text, offset, Lowest, Highest, value);
                if (outcome.Ok())
                    Put([&] { fData << static_cast<Field>(value); });
                return outcome;
            });
    }

    template <class Field>
    Outcome RealFields()
    {
        return EachNumber(
            [&](std::string_view text, size_t offset)
            {
                Field value = 0;
                const std::string fault = ParseReal(text, value);
                if (!fault.empty())
                    return fReader.Fault(offset, fault);
                Put([&] { fData << value; });
                return Outcome();
            });
    }

    Outcome CodeField()
    {
        FourCharT code = 0;
        Outcome outcome = ReadCode(code);
        Put([&] { fData.WriteLong(code); });
        return outcome;
    }

    Outcome HexFields()
    {
        Token token;
        Outcome outcome = fReader.Expect(NqToken::kWordToken, "hexadecimal digits", token);
        if (!outcome.Ok())
            return outcome;
        if (token.fText.size() % 2 != 0)
            return fReader.Fault(token.fOffset, "an odd number of hexadecimal digits; a byte has two");
        for (size_t i = 0; i < token.fText.size(); i += 2)
        {
            uint8 byte = 0;
            const char* const digits = token.fText.data() + i;
            if (std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2)
                return fReader.Fault(token.fOffset + i, "expected hexadecimal digits, 0 to 9 and A to F");
            Put([&] { fData << byte; });
        }
        return {};
    }

    template <class PutText>
    Outcome TextField(size_t inMost, PutText&& inPut)
    {
        TNqDynamicString text;
        Outcome outcome = ReadText(inMost, text);
        if (outcome.Ok())
            Put([&] { inPut(text); });
        return outcome;
    }

    // P031 and L031: three digits behind a letter.
    static bool IsSizedField(const Token& inName, char inLetter, int32& outSize)
    {
        const std::string& text = inName.fText;
        if (inName.fKind != NqToken::kWordToken || text.size() != 4 || text[0] != inLetter ||
            text.find_first_not_of("0123456789", 1) != std::string::npos)
            return false;
        outSize = (text[1] - '0') * 100 + (text[2] - '0') * 10 + (text[3] - '0');
        return true;
    }

    Outcome PascalField(const Token& inName, int32 inSize)
    {
        if (static_cast<size_t>(inSize) > kLongestPascal)
            return fReader.Fault(inName.fOffset, "a Pascal field has room for at most 255 bytes: P000 to P255");
        return TextField(static_cast<size_t>(inSize),
                         [&](const TNqString& text) { fData.WriteTNqString(inSize, text); });
    }

    Outcome LocalizedField(const Token& inName, int32 inSize)
    {
        if (inSize % 4 != 3)
            return fReader.Fault(inName.fOffset, "the bytes of a localized field, one more than its number says, are a "
                                                 "multiple of 4: L003, L007, L031 and so on");
        fHasTable = true;
        // Whoever reads the field may have room for just as many bytes, as for a Pascal field of that size.
        return TextField(static_cast<size_t>(inSize),
                         [&](const TNqString& text) { fData.WriteLocalizedTNqString(inSize, text); });
    }

    Outcome ReadField(const Token& inName)
    {
        constexpr size_t kAnyLength = std::numeric_limits<size_t>::max();
        using Limits = std::numeric_limits<int32>;
        static const std::map<std::string_view, Outcome (*)(ResourceBuilder&)> kFields = {
            {"BYTE", [](ResourceBuilder& b) { return b.WholeFields<uint8, -128, 255>(); }},
            {"SHRT", [](ResourceBuilder& b) { return b.WholeFields<uint16, -32768, 65535>(); }},
            {"LONG", [](ResourceBuilder& b)
             { return b.WholeFields<uint32, Limits::min(), std::numeric_limits<uint32>::max()>(); }},
            {"RL32", [](ResourceBuilder& b) { return b.RealFields<real32>(); }},
            {"RL64", [](ResourceBuilder& b) { return b.RealFields<real64>(); }},
            {"FOUR", [](ResourceBuilder& b) { return b.CodeField(); }},
            {"HEXA", [](ResourceBuilder& b) { return b.HexFields(); }},
            {"STR1", [](ResourceBuilder& b)
             { return b.TextField(kLongestPascal, [&](const TNqString& text) { b.fData << TNqString255(text); }); }},
            {"STR4", [](ResourceBuilder& b)
             { return b.TextField(kLongestCounted, [&](const TNqString& text) { b.fData << text; }); }},
            {"CSTR", [](ResourceBuilder& b)
             { return b.TextField(kAnyLength, [&](const TNqString& text) { b.fData.WriteCString(text); }); }},
            {"LOCS",
             [](ResourceBuilder& b)
             {
                 b.fHasTable = true;
                 return b.TextField(kAnyLength, [&](const TNqString& text) { b.fData.WriteLocalizedCString(text); });
             }},
        };
        int32 size = 0;
        if (IsSizedField(inName, 'P', size))
            return PascalField(inName, size);
        if (IsSizedField(inName, 'L', size))
            return LocalizedField(inName, size);
        const auto known = kFields.find(inName.fText);
        if (inName.fKind != NqToken::kWordToken || known == kFields.end())
            return Unknown(inName, "BYTE, SHRT, LONG, RL32, RL64, FOUR, HEXA, STR1, STR4, CSTR, LOCS, P000, L003 or }");
        return known->second(*this);
    }

    Outcome ReadString(const Token& inName)
    {
        if (!inName.IsName("TEXT"))
            return Unknown(inName, "TEXT or }");
        TNqDynamicString text;
        Outcome outcome = ReadText(std::numeric_limits<size_t>::max(), text);
        if (outcome.Ok() && !fStrings->AddElem(text))
            throw std::bad_alloc();
        return outcome;
    }

    TextReader& fReader;
    FourCharT fType = 0;
    int16 fNumber = 0;
    int32 fAttributes = 0;
    bool fHasTable = false;
    std::string fName;
    std::set<std::string> fSeen; // attributes that stand only once
    TNqCountedPtr<TResourceStrings> fStrings;
    TNqResourceStream fData;
};

// ---- Text ----------------------------------------------------------------------------------------------------------

// A text as the token format has it: line ends and everything else as they are, quotes and escapes behind a \.
std::string TokenString(const TNqString& inText)
{
    std::string out = "\"";
    for (const char c : std::string_view(inText.ByteLength() != 0 ? inText.StrGet() : "", inText.ByteLength()))
    {
        if (c == '"' || c == '\\' || c == 1)
            out += '\\';
        out += c;
    }
    return out + '"';
}

std::string TypeText(FourCharT inType)
{
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(inType >> shift);
    const std::string word = TypeWord(inType);
    const bool printable = std::all_of(bytes.begin(), bytes.end(), [](char c) { return c >= ' ' && c <= '~'; });
    if (word == bytes || !printable)
        return word;
    return TokenString(TNqString15(bytes.data(), 4));
}

void ShowData(const TNqResource& inResource, std::string& ioText)
{
    ioText += " DATA {\n";
    for (size_t at = 0; at < inResource.GetSize(); ++at)
    {
        ioText += at % kHexBytesOnLine == 0 ? "  HEXA " : "";
        ioText += fmt::format("{:02X}", static_cast<uint8>(inResource.GetData()[at]));
        if ((at + 1) % kHexBytesOnLine == 0 || at + 1 == inResource.GetSize())
            ioText += '\n';
    }
    ioText += " }\n";
}

void ShowStrings(const TResourceStrings& inStrings, std::string& ioText)
{
    ioText += " STRS {\n";
    for (uint32 i = 0; i < inStrings.GetElemCount(); ++i)
        ioText += fmt::format("  TEXT {}\n", TokenString(inStrings[i]));
    ioText += " }\n";
}

} // namespace

Outcome BuildResources(const std::string& inName, std::string_view inText, TNqHostResourceFile& outFile)
{
    TextReader reader(inName, inText);
    std::map<std::pair<FourCharT, int16>, TNqCountedPtr<TNqResource>> resources;
    for (;;)
    {
        Token token;
        Outcome outcome = reader.Next(token);
        if (!outcome.Ok())
            return outcome;
        if (token.fKind == NqToken::kNoToken)
            break;
        if (!token.IsName("RSRC"))
            return reader.Fault(token.fOffset, "expected RSRC, with which each resource begins");
        ResourceBuilder builder(reader);
        outcome = builder.Read(token.fOffset);
        if (!outcome.Ok())
            return outcome;
        const auto [there, added] = resources.try_emplace({builder.Type(), builder.Number()}, nullptr);
        if (!added || outFile.FindResource(builder.Type(), builder.Number()) != nullptr)
            return reader.Fault(token.fOffset, fmt::format("a second resource {} {}; give it another number",
                                                           TypeWord(builder.Type()), builder.Number()));
        there->second = builder.Make();
    }
    for (const auto& [key, resource] : resources) // in ascending order, in which adding moves none
        if (outFile.AddResource(*resource) != kNqNoErr)
            throw std::bad_alloc();
    return {};
}

std::string ShowResources(const TNqHostResourceFile& inFile)
{
    std::string text;
    for (uint32 i = 0; const TNqResource* resource = inFile.GetResource(i); ++i)
    {
        text += fmt::format("RSRC {{\n TYPE {}\n NMBR {}\n", TypeText(resource->GetType()), resource->GetID());
        if (resource->GetName().ByteLength() != 0)
            text += fmt::format(" NAME {}\n", TokenString(resource->GetName()));
        if (resource->GetAttributes() != 0)
            text += fmt::format(" ATTR 0x{:08X}\n", static_cast<uint32>(resource->GetAttributes()));
        if (resource->GetSize() != 0)
            ShowData(*resource, text);
        if (const TResourceStrings* strings = resource->GetLocalizedStrings())
            ShowStrings(*strings, text);
        text += "}\n";
    }
    return text;
}

} // namespace nqres
