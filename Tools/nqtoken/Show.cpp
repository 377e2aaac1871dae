#include "Tools/nqtoken/Show.h"

#include "Tools/nqtoken/Output.h"
#include "Tools/nqtoken/Reports.h"
#include "Tools/nqtoken/Text.h"
#include "Tools/nqtoken/TokenFile.h"
#include "Tools/nqtoken/Walker.h"

#include "NqCore/PublicAPI/NqException.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace nqtoken
{
namespace
{

constexpr int64 kMaxIndent =
    32; // blocks deeper than this are not indented further: a line must stay readable, and short
constexpr size_t kStringShown = 60; // bytes

// 1234567 as "1.2 MB"; small sizes to the byte.
std::string SizeText(uint64 inBytes)
{
    if (inBytes < 10000)
        return Counted(inBytes, "byte");
    const auto bytes = static_cast<double>(inBytes);
    return inBytes < 1000000 ? fmt::format("{:.1f} kB", bytes / 1e3) : fmt::format("{:.1f} MB", bytes / 1e6);
}

class Shower
{
public:
    Shower(TokenFile& ioFile, const ShowOptions& inOptions, Output& ioOutput)
        : fFile(ioFile),
          fOptions(inOptions),
          fOutput(ioOutput),
          fWalker(ioFile)
    {
    }

    Outcome Show();

private:
    void Indent();
    void PutName();
    void ShowBlock();
    void ShowValue();
    void ShowWord();
    void ShowNumbers();
    void ShowPayload();
    void PutType(std::string_view inType, std::string_view inLength);
    void PutFault();

    TokenFile& fFile;
    const ShowOptions& fOptions;
    Output& fOutput;
    Walker fWalker;
    uint64 fFaults = 0;
    bool fSkipped = false; // the block whose end comes next is shown already
};

void Shower::Indent()
{
    const int64 depth = fWalker.Depth() - (fWalker.Kind() == Walker::kAttribute ? 0 : 1);
    fOutput.Put(std::string(static_cast<size_t>(2 * std::min(depth, kMaxIndent)), ' '));
}

void Shower::PutName()
{
    fOutput.Put(fmt::format("{:<4}", Printable(fWalker.Name(), 16)), Colour::kName);
}

void Shower::PutType(std::string_view inType, std::string_view inLength)
{
    fOutput.Put(fmt::format("  {:<8} {:>14}  ", inType, inLength), Colour::kFaint);
}

// --- values

// Numbers as the file has them while the token's buffer holds them; further ones are read from the file.
void Shower::ShowNumbers()
{
    const NqToken::TNqTokenInfo info = fWalker.Value();
    const int64 count = int64{info.fCommaCount} + 1;
    const int64 wanted = std::min(count, fOptions.fValues);
    std::string_view rest = fWalker.ValueText();
    PutType(rest.find_first_of(".eE") == std::string_view::npos ? "integer" : "real",
            count == 1 ? "" : fmt::format("{} values", count));
    int64 done = 0;
    for (; done < wanted; ++done)
    {
        const size_t comma = rest.find(',');
        if (comma == std::string_view::npos && info.fStoredLength < info.fFullLength)
            break; // the last one may be cut
        fOutput.Put(fmt::format("{}{}", done == 0 ? "" : ", ", rest.substr(0, comma)));
        rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
    }
    if (done < wanted)
    {
        TNqiostream& stream = fFile.Stream();
        const int32 behind = stream.tell();
        stream.seek(info.fOffset + static_cast<int32>(info.fStoredLength - rest.size()), TNqiostream::beg);
        const ReportMark mark;
        for (; done < wanted && !mark.Reported() && fOutput.Wanted(); ++done)
        {
            fOutput.Put(fmt::format(", {:.10g}", NqToken::GetReal64Token(stream)));
            int8 comma = 0;
            stream.read(&comma, 1);
        }
        stream.seek(behind, TNqiostream::beg);
    }
    if (done < count)
        fOutput.Put(done == 0 ? "..." : ", ...");
}

void Shower::ShowWord()
{
    const NqToken::TNqTokenInfo& info = fWalker.Value();
    if (AreNumbers(fWalker.ValueText(), info.fStoredLength < info.fFullLength))
        return ShowNumbers();
    PutType("word", info.fFullLength > 4 ? SizeText(info.fFullLength) : "");
    fOutput.Put(Printable(fWalker.ValueText(), kStringShown));
}

void Shower::ShowPayload()
{
    const NqToken::TNqTokenInfo info = fWalker.Value();
    const int64 wanted = std::min(int64{info.fDataSize}, std::min(fOptions.fValues, int64{INT32_MAX}) * 4);
    PutType("payload", SizeText(info.fDataSize));
    if (wanted > 0)
    {
        TNqiostream& stream = fFile.Stream();
        const int32 behind = stream.tell();
        stream.seek(info.fDataOffset, TNqiostream::beg);
        for (int64 done = 0; done < wanted && fOutput.Wanted(); ++done)
        {
            int8 byte = 0;
            stream.read(&byte, 1);
            fOutput.Put(fmt::format("{}{:02X}", done == 0 ? "" : " ", static_cast<uint8>(byte)));
        }
        stream.seek(behind, TNqiostream::beg);
    }
    if (wanted < int64{info.fDataSize})
        fOutput.Put(wanted == 0 ? "..." : " ...");
}

void Shower::ShowValue()
{
    Indent();
    PutName();
    const NqToken::TNqTokenInfo& info = fWalker.Value();
    switch (info.fKind)
    {
    case NqToken::kStringToken:
        PutType("string", SizeText(info.fFullLength));
        fOutput.Put(Quoted(fWalker.ValueText(), kStringShown));
        break;
    case NqToken::kRawToken:
        ShowPayload();
        break;
    default:
        ShowWord();
    }
    fOutput.EndLine();
}

// --- blocks

void Shower::ShowBlock()
{
    Indent();
    if (!fWalker.Name().empty())
    {
        PutName();
        fOutput.Put(" ");
    }
    if (fOptions.fDepth < 0 || fWalker.Depth() <= fOptions.fDepth)
    {
        fOutput.Put("{");
        fOutput.EndLine();
        return;
    }
    const int32 start = fFile.Stream().tell();
    fWalker.SkipBlock();
    const auto size = static_cast<uint64>(fFile.Stream().tell() - start);
    fOutput.Put("{ ... }");
    fOutput.Put("  " + SizeText(size), Colour::kFaint);
    fOutput.EndLine();
    fSkipped = true;
}

// A file that is no token file at all has a fault in every word: "check" is for telling them all.
void Shower::PutFault()
{
    constexpr uint64 kMaxFaults = 10;
    ++fFaults;
    fSkipped = false;
    if (fFaults > kMaxFaults + 1)
        return;
    static_cast<void>(fOutput.Flush());
    if (fFaults <= kMaxFaults)
        PutNote(fFile.FaultText(fWalker.FaultPosition(), fWalker.Fault(), fWalker.FaultCode()));
    else
        PutNote(fmt::format("{}: there are more faults; \"nqtoken check\" tells them", fFile.ShownName()));
}

Outcome Shower::Show()
{
    bool first = true;
    while (fOutput.Wanted() && fWalker.Next())
    {
        if (std::exchange(first, false) && fWalker.Kind() == Walker::kFault && fFile.Stream().tell() < fFile.Size())
            return AtFault(
                fFile.FaultText(fWalker.FaultPosition(), "not a token file: " + fWalker.Fault(), fWalker.FaultCode()));
        switch (fWalker.Kind())
        {
        case Walker::kAttribute:
            ShowValue();
            break;
        case Walker::kBlockBegin:
            ShowBlock();
            break;
        case Walker::kBlockEnd:
            if (!std::exchange(fSkipped, false))
            {
                Indent();
                fOutput.Put("}");
                fOutput.EndLine();
            }
            break;
        case Walker::kFault:
            PutFault();
        }
    }
    const Outcome read = fFile.ReadOutcome();
    return read.Ok() && fFaults > 0 ? AtFault({}) : read;
}

} // namespace

Outcome ShowFile(const std::string& inPath, const ShowOptions& inOptions, Output& ioOutput)
{
    TokenFile file;
    Outcome outcome = file.Open(inPath);
    if (!outcome.Ok())
        return outcome;
    try
    {
        return Shower(file, inOptions, ioOutput).Show();
    }
    catch (const TNqException&)
    {
        if (!file.Failed())
            throw;
        return file.ReadOutcome();
    }
}

} // namespace nqtoken
