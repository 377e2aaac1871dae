#include "Fuzz/StreamWalk.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqToken.h"

namespace NqFuzz
{

namespace
{

std::string Written(const std::vector<int8>& bytes, void (*write)(TNqiostream&, const std::vector<int8>&))
{
    TNqstrstream out(kUTF8Transcoder);
    write(out, bytes);
    const size_t count = static_cast<size_t>(out.pcount());
    int8* text = out.str();
    std::string written(text, count);
    Nqfree(text);
    return written;
}

// What was written must be read back, whatever follows it.
void RequireRoundTrip(const std::vector<int8>& bytes, void (*write)(TNqiostream&, const std::vector<int8>&),
                      void (*read)(TNqiostream&, std::vector<int8>&))
{
    const std::string text = Written(bytes, write) + " 0 ";
    TNqstrstream in(const_cast<int8*>(text.data()), static_cast<int32>(text.size()), kUTF8Transcoder, eRead);
    std::vector<int8> back(bytes.size());
    read(in, back);
    Require(back == bytes, "payloads come back as they were");
}

int32 Count(const std::vector<int8>& bytes)
{
    return static_cast<int32>(bytes.size());
}

void WriteHexa(TNqiostream& stream, const std::vector<int8>& bytes)
{
    NqToken::PutHexaBinaryAttribute(stream, 0x44415441, Count(bytes), bytes.data());
}

void ReadHexa(TNqiostream& stream, std::vector<int8>& bytes)
{
    int8 name[NqToken::kTokenBufferSize];
    NqToken::GetNextToken(stream, name, false);
    NqToken::GetHexaBinaryToken(stream, Count(bytes), bytes.data());
}

void WriteBinHex(TNqiostream& stream, const std::vector<int8>& bytes)
{
    uint32 state = 0;
    NqToken::BeginBufferAsBinHex(state);
    NqToken::PutBufferAsBinHex(stream, bytes.data(), Count(bytes), state);
    NqToken::EndPutBufferAsBinHex(stream, state);
}

void ReadBinHex(TNqiostream& stream, std::vector<int8>& bytes)
{
    uint32 state = 0;
    NqToken::BeginBufferAsBinHex(state);
    const int32 half = Count(bytes) / 2; // cut anywhere
    if (half > 0)
        NqToken::GetBufferAsBinHex(stream, bytes.data(), half, state);
    NqToken::GetBufferAsBinHex(stream, bytes.data() + half, Count(bytes) - half, state);
}

void WriteRaw(TNqiostream& stream, const std::vector<int8>& bytes)
{
    NqToken::PutBinaryStartAttribute(stream, 0x44415441, static_cast<uint32>(bytes.size()));
    stream.write(bytes.data(), Count(bytes));
    NqToken::PutBinaryEndAttribute(stream);
}

void ReadRaw(TNqiostream& stream, std::vector<int8>& bytes)
{
    int8 name[NqToken::kTokenBufferSize];
    uint32 size = 0;
    NqToken::GetNextToken(stream, name, false);
    NqToken::GetBinaryStartToken(stream, size);
    Require(size == bytes.size(), "the count of a payload comes back");
    stream.read(bytes.data(), Count(bytes));
    NqToken::GetBinaryEndToken(stream);
}

} // namespace

void Payloads(const uint8* data, size_t size)
{
    TChoices choices(data, size);
    const uint8 kind = choices.Byte();
    const uint32 count = choices.Below(200) + 1;
    const std::vector<int8> bytes = choices.Rest();
    if (bytes.empty())
        return;
    switch (kind % 7)
    {
    case 0:
        return RequireRoundTrip(bytes, WriteHexa, ReadHexa);
    case 1:
        return RequireRoundTrip(bytes, WriteBinHex, ReadBinHex);
    case 2:
        return RequireRoundTrip(bytes, WriteRaw, ReadRaw);
    default:
        break;
    }
    RequireSameWalk(bytes,
                    [&](TNqiostream& stream, TTrace& trace)
                    {
                        std::vector<int8> out(count);
                        uint32 state = 0;
                        int32 value = 0;
                        switch (kind % 7)
                        {
                        case 3:
                            trace.Note(GetLongAsHex(stream, value));
                            trace.Note(value);
                            break;
                        case 4:
                            NqToken::GetBufferAsHexa(stream, out.data(), Count(out), kind / 7 % 2);
                            break;
                        case 5:
                            NqToken::GetHexaBinaryToken(stream, Count(out), out.data());
                            break;
                        default:
                            NqToken::BeginBufferAsBinHex(state);
                            NqToken::GetBufferAsBinHex(stream, out.data(), Count(out), state);
                        }
                        trace.Note(out.data(), out.size());
                        return stream.good();
                    });
}

} // namespace NqFuzz
