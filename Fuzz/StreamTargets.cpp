#include "Fuzz/StreamWalk.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqToken.h"

namespace NqFuzz
{

namespace
{

template <class T>
void ReadNumber(TNqiostream& stream, TTrace& trace)
{
    T value{};
    stream >> value;
    trace.Note(value);
}

void NoteText(TTrace& trace, const TNqString& text)
{
    trace.Note(text.StrGet(), text.ByteLength());
}

bool StepScanner(TNqiostream& stream, TTrace& trace, uint8 choice)
{
    std::vector<int8> line(choice / 16 + 2U, 'x');
    const int32 room = static_cast<int32>(line.size()) - 1;
    TNqString255 text;
    TNqDynamicString longText;
    int8 c = 'x';
    switch (choice % 16)
    {
    case 0:
        ReadNumber<int32>(stream, trace);
        break;
    case 1:
        ReadNumber<uint32>(stream, trace);
        break;
    case 2:
        ReadNumber<int16>(stream, trace);
        break;
    case 3:
        ReadNumber<uint16>(stream, trace);
        break;
    case 4:
        ReadNumber<real32>(stream, trace);
        break;
    case 5:
        ReadNumber<real64>(stream, trace);
        break;
    case 6:
        ReadNumber<int8>(stream, trace);
        break;
    case 7:
        trace.Note(stream.getline(line.data(), room, choice < 128 ? '\n' : ','));
        trace.Note(line.data(), line.size());
        break;
    case 8:
        trace.Note(stream.get(line.data(), room, choice < 128 ? '\n' : ','));
        trace.Note(line.data(), line.size());
        break;
    case 9:
        trace.Note(stream.ReadString(line.data(), room + 1));
        trace.Note(line.data(), line.size());
        break;
    case 10:
        trace.Note(stream.getLine(longText, choice < 128 ? '\n' : ','));
        NoteText(trace, longText);
        break;
    case 11:
        stream.readQuotedString(text);
        NoteText(trace, text);
        break;
    case 12:
        trace.Note(stream.ReadSingleLineQuotedString(text, choice / 16));
        NoteText(trace, text);
        break;
    case 13:
        trace.Note(stream.myipfx());
        break;
    case 14:
        stream.get(c);
        if (stream.good())
            stream.putback(choice < 128 ? c : 'y');
        stream.get(c);
        trace.Note(c);
        break;
    default:
        stream.seek(choice / 16 - 4, TNqiostream::cur);
    }
    trace.Note(stream.gcount());
    return stream.good();
}

real64 Real(TChoices& choices)
{
    const int32 mantissa = static_cast<int32>(choices.Word());
    return mantissa * gPowersTen[choices.Below(16)] / gPowersTen[choices.Below(16)];
}

void WriteValues(TNqiostream& stream, TChoices choices)
{
    while (choices.More())
    {
        const uint8 choice = choices.Byte();
        const int32 name = static_cast<int32>(choices.Word());
        switch (choice % 14)
        {
        case 0:
            NqToken::PutInt32Attribute(stream, name, static_cast<int32>(choices.Word()));
            break;
        case 1:
            NqToken::PutUInt32Attribute(stream, name, choices.Word());
            break;
        case 2:
            stream.precision(static_cast<int32>(choices.Below(16)));
            NqToken::PutReal64Attribute(stream, name, Real(choices));
            break;
        case 3:
        {
            const real32 values[] = {static_cast<real32>(Real(choices)), static_cast<real32>(Real(choices))};
            NqToken::PutReal32ArrayAttribute(stream, name, 2, values);
            break;
        }
        case 4:
        case 5:
        {
            const std::vector<int8> bytes = choices.Bytes(255);
            const TNqDynamicString text(bytes.data(), static_cast<uint32>(bytes.size()));
            if (choice % 14 == 4)
                NqToken::PutNonLocalizedStringAttribute(stream, name, text, choice / 14 % 2);
            else
                stream << text;
            break;
        }
        case 6:
            NqToken::PutBeginToken(stream, name, false);
            break;
        case 7:
            NqToken::PutEndToken(stream);
            break;
        case 8:
            NqToken::InitTokenMgr(stream);
            NqToken::GetNqTokenData(stream)->fTokenIndent = choice / 14 % 2;
            NqToken::GetNqTokenData(stream)->fTokenCompact = choice / 28 % 2;
            break;
        case 9:
            NqToken::PutFourCharConstAttribute(stream, name, static_cast<int32>(choices.Word()));
            break;
        case 10:
        {
            const std::vector<int8> bytes = choices.Bytes(200);
            NqToken::PutHexaBinaryAttribute(stream, name, static_cast<int32>(bytes.size()), bytes.data());
            break;
        }
        case 11:
            stream << static_cast<int16>(name) << ' ' << static_cast<uint8>(choice) << endl;
            break;
        case 12:
            PutLongAsHexa(stream, name);
            break;
        default:
            stream << static_cast<real32>(Real(choices)) << endl;
        }
    }
}

template <class Stream>
std::string WrittenOn(const TChoices& choices)
{
    Stream stream(kUTF8Transcoder);
    WriteValues(stream, choices);
    const size_t count = static_cast<size_t>(stream.pcount());
    int8* text = stream.str();
    std::string written(text != nullptr ? text : "", count);
    Nqfree(text);
    return written;
}

} // namespace

void Numbers(const uint8* data, size_t size)
{
    TChoices choices(data, size);
    std::vector<uint8> steps(8);
    for (uint8& step : steps)
        step = choices.Byte();
    const std::vector<int8> text = choices.Rest();
    // Both walks make the same choices: by the position, which they must agree on.
    RequireSameWalk(text, [&](TNqiostream& stream, TTrace& trace)
                    { return StepScanner(stream, trace, steps[static_cast<uint32>(stream.tell()) % steps.size()]); });
}

void Writers(const uint8* data, size_t size)
{
    const TChoices choices(data, size);
    const std::string direct = WrittenOn<TNqstrstream>(choices);
    Require(direct == WrittenOn<TPlain<TNqstrstream>>(choices), "a stream's buffer is filled as through its calls");
    countstream counter;
    counter.SetTranscoder(kUTF8Transcoder);
    WriteValues(counter, choices);
    Require(static_cast<size_t>(counter.count()) == direct.size(), "the count is the size of the output");
}

} // namespace NqFuzz
