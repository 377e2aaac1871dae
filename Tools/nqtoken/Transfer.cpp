#include "Tools/nqtoken/Transfer.h"

#include "Tools/nqtoken/Text.h"

#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqNetStream.h"
#include "NqCore/PublicAPI/NqToken.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace nqtoken
{
namespace
{

constexpr uint32 kVersion = 1;
constexpr uint64 kFrameSize = 4096; // what all but the text may take up at most
constexpr int32 kPieceSize = 3 << 13;
constexpr size_t kSendSize = 1 << 14;
constexpr std::string_view kMark = "\xEF\xBB\xBF";
constexpr int32 kUnknownCount = -1; // 0xFFFFFFFF: readers look for the closing '$'
constexpr size_t kMaxShown = 200;   // bytes of what a peer says

constexpr int32 kTransferToken = NqFourChar("XFER");
constexpr int32 kVersionToken = NqFourChar("VERS");
constexpr int32 kSizeToken = NqFourChar("SIZE");
constexpr int32 kMarkToken = NqFourChar("MARK");
constexpr int32 kDoneToken = NqFourChar("DONE");
constexpr int32 kChecksumToken = NqFourChar("CRCS");
constexpr int32 kRefusedToken = NqFourChar("FAIL");
constexpr int32 kTextToken = NqFourChar("TEXT");

// --- checksum

constexpr std::array<uint32, 256> MakeChecksumTable()
{
    std::array<uint32, 256> table = {};
    for (uint32 i = 0; i < table.size(); ++i)
    {
        uint32 value = i;
        for (int bit = 0; bit < 8; ++bit)
            value = value >> 1 ^ ((value & 1) != 0 ? 0xEDB88320 : 0);
        table[i] = value;
    }
    return table;
}

constexpr std::array<uint32, 256> kChecksumTable = MakeChecksumTable();

// CRC-32, as in ZIP files and PNG images.
class Checksum
{
public:
    void Add(std::string_view inBytes)
    {
        for (const char byte : inBytes)
            fValue = kChecksumTable[(fValue ^ static_cast<uint8>(byte)) & 0xFF] ^ fValue >> 8;
    }
    uint32 Value() const { return ~fValue; }

private:
    uint32 fValue = 0xFFFFFFFF;
};

// --- the connection

// Stands before a socket: bounds what is received, remembers that it broke off, and does not try it again then.
// What is sent goes out with Flush.
class Link final : public INqSocket
{
public:
    Link(INqSocket& ioSocket, uint64 inAllowed) : fSocket(ioSocket), fAllowed(inAllowed) {}

    // So many bytes more may come.
    void Allow(uint64 inBytes) { fAllowed += inBytes; }
    bool IsBroken() const { return fBroken; }
    bool IsExceeded() const { return fExceeded; }

    // Lives on the stack of whoever uses it.
    NqErr QueryInterface(const NqIID&, void** outInterface) override
    {
        *outInterface = nullptr;
        return kNqNoInterface;
    }
    uint32 AddRef() override { return ++fReferences; }
    uint32 Release() override { return --fReferences; }

    int32 Receive(int8* outBuffer, int32 inSize) override
    {
        fExceeded = fAllowed == 0;
        if (fExceeded || fBroken)
            return -1;
        const int32 count =
            fSocket.Receive(outBuffer, static_cast<int32>(std::min<uint64>(static_cast<uint64>(inSize), fAllowed)));
        fBroken = count < 0;
        fAllowed -= static_cast<uint64>(std::max(count, 0));
        return count;
    }
    // Collects what is sent: the stream's blocks are small, and each call wakes the peer.
    int32 Send(const int8* inBuffer, int32 inSize) override
    {
        if (fBroken)
            return 0;
        fPending.append(inBuffer, static_cast<size_t>(inSize));
        if (fPending.size() >= kSendSize)
            Flush();
        return inSize;
    }
    void Flush()
    {
        const int32 size = static_cast<int32>(fPending.size());
        if (size > 0 && !fBroken)
            fBroken = fSocket.Send(fPending.data(), size) != size;
        fPending.clear();
    }
    void Close() override {}

private:
    INqSocket& fSocket;
    uint64 fAllowed;
    uint32 fReferences = 1;
    std::string fPending;
    bool fBroken = false;
    bool fExceeded = false;
};

void Put(TNqNetStream& ioStream, std::string_view inBytes)
{
    ioStream.write(inBytes.data(), static_cast<int32>(inBytes.size()));
}

} // namespace

// --- sending

Outcome FileSender::Open(const std::string& inPath)
{
    Outcome outcome = fFile.Open(inPath);
    if (!outcome.Ok())
        return outcome;
    outcome = FindPayloads();
    return fFile.Failed() ? fFile.ReadOutcome() : outcome;
}

Outcome FileSender::FindPayloads()
{
    TNqiostream& stream = fFile.Stream();
    int8 token[NqToken::kTokenBufferSize];
    NqToken::TNqTokenInfo info;
    NqErr error = kNqNoErr;
    int32 behind = 0;
    do
    {
        error = NqToken::GetNextTokenInfo(stream, token, info, false);
        const bool whole = error == kNqNoErr;
        if (info.fKind == NqToken::kStringToken && !whole)
            return AtFault(fFile.FaultText(info.fOffset, "a string without its closing quote cannot be sent", error));
        if (info.fKind != NqToken::kRawToken)
            continue;
        if (!whole)
            return AtFault(fFile.FaultText(info.fOffset, "a payload that is not all there cannot be sent", error));
        Outcome outcome = CheckText(behind, info.fOffset);
        if (!outcome.Ok())
            return outcome;
        behind = stream.tell();
        fPayloads.push_back({info.fOffset, behind});
    } while (error == kNqNoErr);
    return CheckText(behind, fFile.Size());
}

Outcome FileSender::CheckText(int32 inFrom, int32 inTo)
{
    const int32 zero = fFile.FindZeroByte(inFrom, inTo);
    if (zero == inTo)
        return {};
    return AtFault(fFile.FaultText(zero, "a zero byte outside of a payload cannot be sent", kNqErrFormat));
}

namespace
{

// Copies parts of a file to a stream.
class FileCopy
{
public:
    FileCopy(TokenFile& inFile, TNqNetStream& ioStream, const Link& inLink)
        : fFile(inFile),
          fStream(ioStream),
          fLink(inLink)
    {
    }

    Outcome PutText(int32 inFrom, int32 inTo)
    {
        return ForEachPiece(inFrom, inTo, [this](int8* bytes, int32 size) { fStream.write(bytes, size); });
    }

    // What stands between the '$' signs, count included, as six-bit text: "$FFFFFFFF", CR, its size, the text, "$".
    Outcome PutPayload(int32 inBegin, int32 inEnd)
    {
        uint32 state;
        NqToken::BeginBufferAsBinHex(state);
        Put(fStream, "$");
        PutLongAsHexa(fStream, kUnknownCount);
        Put(fStream, "\r");
        PutLongAsHexa(fStream, inEnd - inBegin - 2);
        fChecksum.Add("$");
        Outcome outcome =
            ForEachPiece(inBegin + 1, inEnd - 1,
                         [&](int8* bytes, int32 size) { NqToken::PutBufferAsBinHex(fStream, bytes, size, state); });
        fChecksum.Add("$");
        NqToken::EndPutBufferAsBinHex(fStream, state);
        Put(fStream, "$");
        return outcome;
    }

    Checksum fChecksum;

private:
    template <class Take>
    Outcome ForEachPiece(int32 inFrom, int32 inTo, Take&& inTake)
    {
        TNqiostream& file = fFile.Stream();
        file.seek(inFrom, TNqiostream::beg);
        for (int32 size = 0; inFrom < inTo && !fLink.IsBroken(); inFrom += size)
        {
            size = std::min(kPieceSize, inTo - inFrom);
            file.read(fPiece, size);
            if (fFile.Failed())
                return fFile.ReadOutcome();
            if (file.gcount() != size)
                return Trouble(fmt::format("{}: could not be read to its end", fFile.ShownName()));
            fChecksum.Add({fPiece, static_cast<size_t>(size)});
            inTake(fPiece, size);
        }
        return {};
    }

    TokenFile& fFile;
    TNqNetStream& fStream;
    const Link& fLink;
    int8 fPiece[kPieceSize];
};

} // namespace

Outcome FileSender::Send(INqSocket& ioSocket)
{
    Link link(ioSocket, 0);
    TNqNetStream stream(&link);
    NqToken::InitTokenMgr(stream);
    const uint32 size = static_cast<uint32>(fFile.Size() + fFile.MarkSize());
    NqToken::PutBeginToken(stream, kTransferToken, false);
    NqToken::PutUInt32Attribute(stream, kVersionToken, kVersion);
    NqToken::PutUInt32Attribute(stream, kSizeToken, size);
    NqToken::PutBooleanAttribute(stream, kMarkToken, fFile.MarkSize() > 0);
    NqToken::PutEndToken(stream);

    FileCopy copy(fFile, stream, link);
    if (fFile.MarkSize() > 0)
        copy.fChecksum.Add(kMark);
    int32 behind = 0;
    Outcome outcome;
    for (auto payload = fPayloads.begin(); payload != fPayloads.end() && outcome.Ok(); ++payload)
    {
        outcome = copy.PutText(behind, payload->fBegin);
        if (outcome.Ok())
            outcome = copy.PutPayload(payload->fBegin, payload->fEnd);
        behind = payload->fEnd;
    }
    if (outcome.Ok())
        outcome = copy.PutText(behind, fFile.Size());
    if (!outcome.Ok())
        return outcome; // the receiver misses the end

    Put(stream, "\r");
    NqToken::PutBeginToken(stream, kDoneToken, false);
    NqToken::PutUInt32Attribute(stream, kSizeToken, size);
    NqToken::PutUInt32Attribute(stream, kChecksumToken, copy.fChecksum.Value());
    NqToken::PutEndToken(stream);
    stream.Flush();
    link.Flush();
    return link.IsBroken() ? AtFault("the connection broke off before everything was sent") : Outcome();
}

// --- receiving

namespace
{

// Goes along with the text and knows where a payload begins.
class TextState
{
public:
    // Whether the byte opens a payload.
    bool OpensPayload(int8 c)
    {
        switch (fState)
        {
        case kEscape:
            fState = kString;
            return false;
        case kString:
            fState = c == '"' ? kBetween : c == '\\' || c == 1 ? kEscape : kString;
            return false;
        case kComment:
            fState = c == '\r' || c == '\n' ? kBetween : kComment;
            return false;
        case kWord:
        case kBetween:
            break;
        }
        if (c == '$' && fState == kBetween)
            return true;
        const bool between = c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '{' || c == '}';
        fState = between ? kBetween : c == '"' ? kString : c == '#' ? kComment : kWord;
        return false;
    }

private:
    enum
    {
        kBetween,
        kWord,
        kComment,
        kString,
        kEscape
    } fState = kBetween;
};

class Receiver
{
public:
    Receiver(INqSocket& ioSocket, uint64 inMaxSize, const ByteSink& inSink)
        : fMaxSize(inMaxSize),
          fSink(inSink),
          fLink(ioSocket, kFrameSize),
          fStream(&fLink)
    {
    }

    Outcome Run()
    {
        try
        {
            return ReadHeader() && ReadText() && ReadEnd() ? Outcome() : fFault;
        }
        catch (const TNqException&)
        {
            Fail(WhyItEnded());
            return fFault;
        }
    }

private:
    bool Fail(const std::string& inWhat)
    {
        if (fFault.Ok())
            fFault = AtFault(inWhat);
        return false;
    }

    bool HasEnded() const { return fLink.IsExceeded() || fLink.IsBroken() || (fStream.eof() && fStream.gcount() == 0); }

    // Why there is no next byte, or why what came makes no sense.
    std::string WhyItEnded() const
    {
        if (fLink.IsExceeded())
            return "far more data came than was announced";
        if (HasEnded())
            return fmt::format("the connection {} {}", fLink.IsBroken() ? "broke off" : "ended",
                               !fAnnounced       ? "before a scene was announced"
                               : fCount == fSize ? "without the closing marker"
                                                 : fmt::format("after {} of {}", fCount, Counted(fSize, "byte")));
        return "what came is damaged: " +
               std::string(fStream.eof() ? "there is a zero byte in it" : "a payload in it is malformed");
    }

    // --- the frame

    // One token that must be this word.
    bool Expect(std::string_view inWord)
    {
        std::string_view word;
        return NextWord(word) && word == inWord;
    }

    bool NextWord(std::string_view& outWord)
    {
        const bool found = NqToken::GetNextToken(fStream, fToken, false) == kNqNoErr;
        outWord = fToken;
        return found;
    }

    bool ReadNumber(std::string_view inName, uint64& outValue)
    {
        std::string_view word;
        if (!Expect(inName) || !NextWord(word))
            return false;
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), outValue);
        return error == std::errc() && end == word.data() + word.size();
    }

    bool ReadByte(int8 inExpected)
    {
        int8 c = 0;
        fStream.get(c);
        return fStream.good() && c == inExpected;
    }

    bool ReadHeader()
    {
        uint64 version = 0;
        uint64 mark = 0;
        if (!Expect("XFER") || !Expect("{") || !ReadNumber("VERS", version))
            return Fail(HasEnded() ? WhyItEnded() : "what came is no transfer of a scene");
        if (version != kVersion)
            return Fail(fmt::format("the transfer has version {}, and only {} is known here", version, kVersion));
        if (!ReadNumber("SIZE", fSize) || !ReadNumber("MARK", mark) || !Expect("}") || !ReadByte('\r') || mark > 1 ||
            fSize < mark * kMark.size())
            return Fail(HasEnded() ? WhyItEnded() : "the header of the transfer is damaged");
        fAnnounced = true;
        if (fSize > fMaxSize)
            return Fail(fmt::format("the scene has {}, more than the {} allowed", Counted(fSize, "byte"), fMaxSize));
        fLink.Allow(3 * fSize); // of all bytes, an empty payload takes up most
        return mark == 0 || Append(kMark);
    }

    bool ReadEnd()
    {
        uint64 size = 0;
        uint64 checksum = 0;
        if (!Flush())
            return false;
        if (!ReadByte('\r') || !Expect("DONE") || !Expect("{") || !ReadNumber("SIZE", size) ||
            !ReadNumber("CRCS", checksum) || !Expect("}") || size != fSize)
            return Fail(HasEnded() || fStream.eof() ? WhyItEnded() : "more came than was announced");
        return checksum == fChecksum.Value() || Fail("what came is damaged: the checksum differs");
    }

    // --- the text

    bool ReadText()
    {
        TextState state;
        while (fCount < fSize)
        {
            int8 c = 0;
            fStream.get(c);
            if (!fStream.good())
                return Fail(WhyItEnded());
            if (!Append({&c, 1}) || (state.OpensPayload(c) && !ReadPayload()))
                return false;
        }
        return true;
    }

    // Behind the '$' that opens it.
    bool ReadPayload()
    {
        int32 count = 0;
        int32 size = 0;
        GetLongAsHex(fStream, count);
        if (count != kUnknownCount || !ReadByte('\r'))
            return Fail("what came is damaged: a payload is not in six-bit text");
        GetLongAsHex(fStream, size);
        if (static_cast<uint32>(size) > fSize - fCount)
            return Fail("more came than was announced");
        uint32 state;
        NqToken::BeginBufferAsBinHex(state);
        int8 piece[kPieceSize];
        for (int32 left = size; left > 0;)
        {
            const int32 now = std::min(left, kPieceSize);
            NqToken::GetBufferAsBinHex(fStream, piece, now, state);
            if (!Append({piece, static_cast<size_t>(now)}))
                return false;
            left -= now;
        }
        return ReadByte('$') ? Append("$") : Fail(WhyItEnded());
    }

    // --- the bytes of the file

    bool Append(std::string_view inBytes)
    {
        fCount += inBytes.size();
        if (fCount > fSize)
            return Fail("more came than was announced");
        fPending += inBytes;
        return fPending.size() < static_cast<size_t>(kPieceSize) || Flush();
    }

    bool Flush()
    {
        fChecksum.Add(fPending);
        fFault = fSink(fPending);
        fPending.clear();
        return fFault.Ok();
    }

    uint64 fMaxSize;
    const ByteSink& fSink;
    Link fLink;
    TNqNetStream fStream;
    int8 fToken[NqToken::kTokenBufferSize] = {};
    bool fAnnounced = false;
    uint64 fSize = 0;  // what was announced
    uint64 fCount = 0; // bytes of the file that have come
    std::string fPending;
    Checksum fChecksum;
    Outcome fFault;
};

} // namespace

Outcome ReceiveFile(INqSocket& ioSocket, uint64 inMaxSize, const ByteSink& inSink)
{
    return Receiver(ioSocket, std::min<uint64>(inMaxSize, kMaxFileSize), inSink).Run();
}

// --- replies

void PutReply(INqSocket& ioSocket, const Outcome& inOutcome)
{
    Link link(ioSocket, 0);
    TNqNetStream stream(&link);
    NqToken::InitTokenMgr(stream);
    NqToken::PutBeginToken(stream, inOutcome.Ok() ? kDoneToken : kRefusedToken, false);
    if (!inOutcome.Ok())
    {
        TNqDynamicString text;
        ToLibrary(inOutcome.Status() == kAtFault ? inOutcome.Text() : "it could not be stored", text);
        NqToken::PutNonLocalizedStringAttribute(stream, kTextToken, text, false);
    }
    NqToken::PutEndToken(stream);
    stream.Flush();
    link.Flush();
}

Outcome GetReply(INqSocket& ioSocket, bool& outReplied)
{
    Link link(ioSocket, kFrameSize);
    TNqNetStream stream(&link);
    int8 token[NqToken::kTokenBufferSize] = {};
    outReplied = false;
    try
    {
        const auto next = [&]() -> std::string_view
        {
            const bool found = NqToken::GetNextToken(stream, token, false) == kNqNoErr;
            return found ? token : "";
        };
        const std::string answer(next());
        if (next() == "{" && answer == "DONE")
            outReplied = next() == "}";
        if (outReplied)
            return {};
        if (answer == "FAIL" && next() == "TEXT" && NqToken::GetNextToken(stream, token, false) == kNqNoErr)
        {
            outReplied = true;
            return AtFault("the receiver has refused it: " + Printable(token, kMaxShown));
        }
    }
    catch (const TNqException&)
    {
    }
    return AtFault("the receiver has not confirmed that it has everything");
}

} // namespace nqtoken
