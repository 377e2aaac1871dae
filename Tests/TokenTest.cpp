// Faults looked for: a token taken for another one, a stream left elsewhere than promised, bytes in a file that differ
// from those of earlier versions, anything written that does not read back as it was, a buffer overrun, and any
// difference between the streams that are read directly and those that somebody derived.

#include "Tests/StreamDoubles.h"

#include "NqCore/PublicAPI/NqToken.h"

#include <iomanip>
#include <stdexcept>

namespace
{

using namespace NqToken;
using namespace std::string_literals;
using S = TNqiostream;

class Token : public StreamTest
{
};

// Reads from somewhere that cannot go back by more than a byte, as a connection does.
class TPipe : public TNqiostream
{
public:
    explicit TPipe(const std::string& bytes) : fBytes(bytes) { SetTranscoder(kUTF8Transcoder); }
    using TNqiostream::read;
    int32 tell() override { return 0; }
    void seek(int32, seek_dir) override { changestate(failbit); }
    void putback(int8) override { --fPos; }
    void write(const int8*, int32) override { changestate(failbit); }
    void read(int8* data, int32 count) override
    {
        const size_t n = fBytes.copy(data, static_cast<size_t>(count), fPos);
        fPos += n;
        clear(n < static_cast<size_t>(count) ? eofbit : 0);
    }

protected:
    std::string fBytes;
    size_t fPos = 0;
};

// Has text of its own, and its own positions in it; the base has none.
class TOwnText : public TNqstrstream
{
public:
    explicit TOwnText(const std::string& bytes) : TNqstrstream(nullptr, 0, kUTF8Transcoder, eRead), fText(bytes) {}
    using TNqstrstream::get;
    using TNqstrstream::read;
    int32 tell() override { return fText.tell(); }
    void seek(int32 offset, seek_dir dir) override { fText.seek(offset, dir), clear(fText.good() ? 0 : eofbit); }
    void read(int8* data, int32 count) override { fText.read(data, count), clear(fText.good() ? 0 : eofbit); }
    void get(int8& c) override { read(&c, 1); }
    void putback(int8 c) override { fText.putback(c); }

private:
    // Goes where it is told to, and ends as soon as it stands at its end.
    class TText : public TPipe
    {
    public:
        using TPipe::TPipe;
        int32 tell() override { return static_cast<int32>(fPos); }
        void seek(int32 offset, seek_dir dir) override
        {
            fPos = static_cast<size_t>(dir == beg ? offset : static_cast<int32>(fBytes.size()) - offset);
            clear(0);
        }
    };
    TText fText;
};

// Finds each byte of the text twice in its buffer. That is where its positions are.
class TDecoder : public TNqstrstream
{
public:
    explicit TDecoder(const std::string& twice)
        : TNqstrstream(const_cast<int8*>(twice.data()), static_cast<int32>(twice.size()), kUTF8Transcoder, eRead)
    {
    }
    using TNqstrstream::get;
    using TNqstrstream::read;
    void get(int8& c) override { read(&c, 1); }
    void read(int8* data, int32 count) override
    {
        int8 pair[2];
        int32 done = 0;
        for (TNqstrstream::read(pair, 0); done < count && good(); done += good())
            if (TNqstrstream::read(pair, 2); good())
                data[done] = pair[0];
        fgcount = done;
    }
    void putback(int8 c) override { TNqstrstream::putback(c), TNqstrstream::putback(c); }

    static std::string Twice(const std::string& bytes)
    {
        std::string twice;
        for (const char c : bytes)
            twice.append(2, c);
        return twice;
    }
};

// Counts its positions so that the text ends at the last one there is.
template <class Stream>
class TFar : public Stream
{
public:
    template <class... Arguments>
    explicit TFar(size_t size, Arguments... arguments)
        : Stream(arguments...),
          fStart(0x7FFFFFFF - static_cast<int32>(size))
    {
    }
    int32 tell() override { return fStart + Stream::tell(); }
    void seek(int32 offset, S::seek_dir dir) override { Stream::seek(offset - (dir == S::beg ? fStart : 0), dir); }

private:
    int32 fStart;
};

// A stream of each kind over the same bytes.
class TReaders
{
public:
    explicit TReaders(const std::string& bytes) : fBuffers{bytes, bytes, bytes, TDecoder::Twice(bytes)}
    {
        fDisk.fFiles["/scene"] = bytes;
        const int32 size = static_cast<int32>(bytes.size());
        fAll.emplace_back("memory", new TNqstrstream(fBuffers[0].data(), size, kUTF8Transcoder, eRead));
        fAll.emplace_back("derived", new TDerived<TNqstrstream>(fBuffers[1].data(), size, kUTF8Transcoder, eRead));
        fAll.emplace_back("far",
                          new TFar<TNqstrstream>(bytes.size(), fBuffers[2].data(), size, kUTF8Transcoder, eRead));
        fAll.emplace_back("far file", new TFar<TNqfstream>(bytes.size(), "/scene", kUTF8Transcoder, eRead, 7, nullptr));
        fAll.emplace_back("own text", new TOwnText(bytes));
        fAll.emplace_back("decoder without positions", new TDecoder(fBuffers[3]));
        fAll.emplace_back("pipe without positions", new TPipe(bytes));
        for (const int32 space : {0, 7, 65536})
        {
            fAll.emplace_back("file", new TNqfstream("/scene", kUTF8Transcoder, eRead, space, nullptr));
            fAll.emplace_back("derived file",
                              new TDerived<TNqfstream>("/scene", kUTF8Transcoder, eRead, space, nullptr));
        }
    }

private:
    std::string fBuffers[4];
    TTestDisk fDisk;
    TTestFileUtilities fFileUtilities{fDisk};

public:
    std::vector<std::pair<std::string, std::unique_ptr<S>>> fAll;
};

// What a reader gives, as text: "!" and the low byte of the code for an exception.
template <class Read>
std::string Outcome(S& stream, Read&& read)
{
    try
    {
        return read(stream);
    }
    catch (const TNqException& error)
    {
        return "!" + std::to_string(error.GetError() & 0xFF);
    }
}

// ---- A second tokenizer, written from the description of the format, over the whole text at once

struct TModelToken
{
    NqErr fError = kNqErrEndOfFile;
    ETokenKind fKind = kNoToken;
    std::string fText; // uncut
    size_t fBegin = 0, fDataBegin = 0, fDataSize = 0, fExcess = 0;
};

class TModel
{
public:
    explicit TModel(const std::string& text) : fText(text) {}

    TModelToken Next(bool keep)
    {
        std::string comments;
        size_t i = Skip(fPos);
        while (At(i) == '#')
        {
            const size_t end = std::min(fText.find_first_of("\r\n", i), fText.size() - 1) + 1;
            comments += keep ? fText.substr(i, end - i) : "";
            i = IsLineEnd(end - 1) ? Skip(end) : fText.size();
        }
        TModelToken token;
        token.fBegin = i;
        fPos = fText.size(); // unless a token ends before
        const int c = At(i);
        token.fKind = c == -1    ? kNoToken
                      : c == '{' ? kBeginToken
                      : c == '}' ? kEndToken
                      : c == '"' ? kStringToken
                      : c == '$' ? kRawToken
                                 : kWordToken;
        if (token.fKind == kBeginToken || token.fKind == kEndToken)
            Found(token, fText.substr(i, 1), i + 1);
        else if (token.fKind == kWordToken && (i = fText.find_first_of(" \t\r\n#{}\"", i)) != std::string::npos)
            Found(token, comments + fText.substr(token.fBegin, i - token.fBegin), i);
        else if (token.fKind == kStringToken)
            Quoted(token, keep, comments);
        else if (token.fKind == kRawToken)
            Raw(token);
        return token;
    }

    size_t fPos = 0;

private:
    int At(size_t i) const { return i < fText.size() ? static_cast<uint8>(fText[i]) : -1; }
    bool IsLineEnd(size_t i) const { return At(i) == '\r' || At(i) == '\n'; }
    size_t Skip(size_t i) const { return std::min(fText.find_first_not_of(" \t\r\n", i), fText.size()); }

    void Found(TModelToken& token, const std::string& text, size_t position)
    {
        token.fError = 0;
        token.fText = text;
        fPos = position;
    }

    void Quoted(TModelToken& token, bool keep, const std::string& comments)
    {
        std::string plain;
        for (size_t i = token.fBegin + 1; i < fText.size(); ++i)
        {
            if (At(i) == '"')
                return Found(token, keep ? comments + fText.substr(token.fBegin, i + 1 - token.fBegin) : plain, i + 1);
            i += At(i) == '\\' || At(i) == 1;
            plain += static_cast<char>(At(i));
        }
    }

    void Raw(TModelToken& token)
    {
        std::string digits;
        size_t i = token.fBegin + 1;
        for (; digits.size() < 8 && At(i) != -1 && At(i) != '$'; ++i)
            digits += std::string("0123456789ABCDEF").find(fText[i]) != std::string::npos ? fText.substr(i, 1) : "";
        if (digits.size() < 8 && At(i) == '$')
            token.fError = kNqErrFormat, fPos = i;
        if (digits.size() < 8)
            return;
        const size_t count = std::stoul(digits, nullptr, 16);
        const size_t end = fText.find('$', count == 0xFFFFFFFF ? i : i + 1 + count);
        if (end == std::string::npos)
            return;
        token.fDataBegin = std::min(i + 1, end);
        token.fDataSize = count == 0xFFFFFFFF ? end - token.fDataBegin : count;
        token.fExcess = end - token.fDataBegin - token.fDataSize;
        Found(token, "", end + 1);
    }

    const std::string& fText;
};

std::string RandomText(TRandom& random)
{
    const std::string pieces[] = {"$0000000", "$FFFFFFFF\r", "$FFFFFFFF", "$00000003\r{\"#$", std::string(300, 'w')};
    std::string text;
    for (int n = random.Below(60); n > 0; --n)
        text += random.Below(4) == 0 ? pieces[random.Below(5)]
                                     : std::string(1, "\0{}\"#\\\x01$, \t\r\nab01F\xC3\xA9-.'"[random.Below(24)]);
    return text;
}

// Reads one token of a text that starts at a position, if that can be told, and compares; yields the model's result.
NqErr CompareToken(S& stream, bool seekable, int32 start, TModel& model, TRandom& choice)
{
    std::string buffer(256, 'x');
    const bool keep = choice.Below(2) != 0;
    const TModelToken expected = model.Next(keep);
    const std::string& text = expected.fText;
    if (keep || !seekable || choice.Below(2) == 0)
        EXPECT_EQ(GetNextToken(stream, buffer.data(), keep), expected.fError);
    else
    {
        TNqTokenInfo info;
        EXPECT_EQ(GetNextTokenInfo(stream, buffer.data(), info, false), expected.fError);
        EXPECT_EQ(info.fKind, expected.fKind);
        const auto offset = [start](int32 position) { return static_cast<size_t>(position - start); };
        EXPECT_EQ(offset(info.fOffset), expected.fBegin);
        const size_t commas = static_cast<size_t>(std::count(text.begin(), text.end(), ','));
        const std::vector<size_t> wanted = {text.size(),      std::min<size_t>(text.size(), 255),
                                            commas,           expected.fDataSize,
                                            expected.fExcess, expected.fDataBegin};
        const std::vector<size_t> found = {info.fFullLength, info.fStoredLength, info.fCommaCount,
                                           info.fDataSize,   info.fExcess,       offset(info.fDataOffset)};
        const bool hasData = expected.fKind == kRawToken;
        const auto end = hasData ? found.end() : found.end() - 1;
        EXPECT_TRUE(expected.fError != 0 || std::equal(found.begin(), end, wanted.begin()));
    }
    // Cuts among kept delimiters have a test of their own.
    const size_t compared = text.size() <= 255 ? text.size() : keep ? 200 : 255;
    const bool ends = buffer.find('\0', std::min<size_t>(compared, 254)) != std::string::npos;
    EXPECT_TRUE(expected.fError != 0 || (ends && buffer.compare(0, compared, text, 0, compared) == 0));
    EXPECT_TRUE(!seekable || static_cast<size_t>(stream.tell() - start) == model.fPos);
    return expected.fError;
}

TEST_F(Token, AgreesWithTheModelOnRandomText)
{
    for (int seed = 0; seed < 700 && !HasFailure(); ++seed)
    {
        TRandom random(seed);
        const std::string text = RandomText(random);
        const TReaders readers(text);
        for (const auto& [name, stream] : readers.fAll)
        {
            SCOPED_TRACE(name + ", seed " + std::to_string(seed));
            TRandom choice(seed);
            TModel model(text);
            const bool seekable = name.find("without") == std::string::npos;
            const int32 start = stream->tell();
            while (CompareToken(*stream, seekable, start, model, choice) != kNqErrEndOfFile && !HasFailure())
            {
            }
            EXPECT_TRUE(stream->eof() && !stream->fail());
        }
    }
}

// ---- One reader, one text, what comes out, what is left

struct TReadCase
{
    std::string fText;
    std::function<std::string(S&)> fRead;
    std::string fExpected;
    std::string fRest; // of the text, as get() finds it
    TTexts fReports = {};
};

void CheckReads(const std::vector<TReadCase>& cases)
{
    for (const TReadCase& c : cases)
    {
        const TReaders readers(c.fText);
        for (const auto& [name, stream] : readers.fAll)
        {
            SCOPED_TRACE(c.fText.substr(0, 60) + ", " + name);
            const std::string outcome = Outcome(*stream, c.fRead);
            EXPECT_EQ(outcome, c.fExpected);
            EXPECT_TRUE(outcome != "!39" || (stream->eof() && !stream->fail())); // the end, and no failure
            TTexts reports = TakeReports();
            reports.erase(std::remove(reports.begin(), reports.end(), "An exception is being thrown"), reports.end());
            EXPECT_EQ(reports, c.fReports);
            std::string rest;
            int8 next = 0;
            for (stream->get(next); stream->good(); stream->get(next))
                rest += next;
            EXPECT_EQ(rest, c.fRest);
        }
    }
}

std::string Show(real64 value)
{
    std::ostringstream out;
    out << std::setprecision(10) << value;
    return out.str();
}

std::string Text(const TNqString& text)
{
    return std::string(text.StrGet(), text.ByteLength());
}

std::string Dynamic(S& s)
{
    TNqDynamicString text;
    return Text(GetNonLocalizedDynamicStringToken(s, text, true));
}

// The bytes that fill(stream, count, bytes) reads.
template <class Fill>
auto Into(int32 count, Fill fill)
{
    return [=](S& s)
    {
        std::string bytes(static_cast<size_t>(count), '-');
        return fill(s, count, bytes.data()), bytes;
    };
}

std::string List(S& s, int32 count)
{
    int32 values[4] = {77, 77, 77, 77};
    GetInt32ArrayToken(s, count, values);
    return Show(values[0]) + ";" + Show(values[1]) + ";" + Show(values[2]);
}

std::string Extract(S& s)
{
    void* data = nullptr;
    uint32 size = 0;
    ExtractTokenData(s, data, size);
    const std::string text(static_cast<int8*>(data), size);
    return Nqfree(data), text;
}

std::string Copy(S& s)
{
    TNqstrstream out(kUTF8Transcoder);
    int32 size = -1;
    GetStreamToken(s, out, size);
    int8* const block = out.str();
    const std::string text(block == nullptr ? "" : block, static_cast<size_t>(size));
    return Nqfree(block), text;
}

TEST_F(Token, ReadsThisAndLeavesThat)
{
    const auto byte = [](S& s) { return std::string(1, GetInt8Token(s)); };
    const auto number = [](S& s) { return Show(GetInt32Token(s)); };
    const auto bits = [](S& s, std::ostringstream out = {})
    { return out << std::hexfloat << GetReal64Token(s), out.str(); };
    const auto inf = [](S& s) { return Show(GetReal32InfToken(s)); };
    const auto name = [](S& s) { return Show(static_cast<uint32>(GetFourCharConstToken(s))); };
    const auto none = [](S& s) { return GetInt16ArrayToken(s, 2, nullptr), "discarded"; };
    const auto point = [](S& s, TNqPoint p = {}) { return p = GetPointToken(s), Show(p.x) + ";" + Show(p.y); };
    const auto list = [](int32 n) { return [n](S& s) { return List(s, n); }; };
    const auto hexa = [](int32 n)
    { return Into(n, [](S& s, int32 size, int8* out) { GetHexaBinaryToken(s, size, out); }); };
    const auto fewer = [](S& s, int8 c = 'x')
    {
        GetHexaBinaryToken(s, -1, &c);
        for (const boolean binary : {false, true})
            GetBufferAsHexa(s, &c, -2147483647, binary);
        return std::string(1, c);
    };
    const auto digits = Into(3, [](S& s, int32 n, int8* out) { GetBufferAsHexa(s, out, n, false); });
    const auto sixBit =
        Into(2, [](S& s, int32 n, int8* out, uint32 state = 0) { GetBufferAsBinHex(s, out, n, state); });
    const auto string = [](S& s) { return Text(GetNonLocalizedStringToken(s)); };
    const auto local = [](S& s) { return Text(GetLocalizedStringToken(s)); };
    const auto keep = [](S& s, std::string token = std::string(kTokenBufferSize, 0))
    { return GetNextToken(s, token.data(), true), std::string(token.c_str()); };
    const auto begin = [](S& s) { return GetBeginToken(s), "read"; };
    const auto end = [](S& s) { return GetEndToken(s), "read"; };
    const auto skip = [](S& s) { return SkipTokenData(s), "skipped"; };
    const auto leave = [](S& s) { return SkipTokenData(s, true), "skipped"; };
    const auto count = [](S& s, int32 value = 0) { return GetLongAsHex(s, value), Show(value); };
    const TTexts failed = {"Stream throw TNqException"};
    const std::string tagged = "\x0C@x@Mhello@y", tall(3000, 'w'), note = "# " + std::string(500, 'c') + "\r";
    const std::string open(100000, '{'), closed(100000, '}');
    std::string escapes;
    for (int i = 0; i < 150; ++i)
        escapes += "\\\"";
    CheckReads({
        {" A}", byte, "A", "}"},
        {" \r", byte, "!39", ""},
        {"12", number, "12", ""},
        {" \r\n", number, "!39", "", failed},
        {"abc", number, "0", "bc", failed},
        {"70000 ", [](S& s) { return Show(GetUInt16Token(s)); }, "4464", ""},
        {"2 ", [](S& s) { return Show(GetBooleanToken(s)); }, "1", ""},
        // The weight of each place is a tenth of the one before, not a power of its own.
        {".01 ", bits, "0x1.47ae147ae147bp-7", ""},
        {"0.003 ", bits, "0x1.89374bc6a7efap-9", ""},
        {".000000001}", bits, "0x1.12e0be826d696p-30", "}"},
        {" inf}", inf, "3.402823466e+38", "}"},
        {"\t-inf ", inf, "-3.402823466e+38", " "},
        {"--2.5 ", inf, "2.5", ""},
        {"-0 ", inf, "-0", ""},
        {"in5 ", inf, "5", ""}, // what was taken of an incomplete "inf" is lost
        {"  ", inf, "!39", ""},
        {"AB,", name, Show(0x41422020), ","},
        {"  A'B' x", name, Show(0x41004200), " x"},
        {"'B ", name, Show(0x00422020), ""},
        {"ABCDEF", name, Show(0x41424344), "EF"},
        {",B ", name, Show(0x2C422020), "", {"c != tCOMMA"}},
        {" \r", name, "!39", ""},
        {"A", name, Show(0x41202020), ""},
        {"10,  -20}", point, "10;-20", "}"},
        {"10 ,20", point, "!36", ",20"},
        {"10,", point, "!39", "", failed},
        {"1,2,3,4 ",
         [](S& s, TNqRect r = {})
         { return r = GetRectToken(s), Show(r.top * 1000 + r.left * 100 + r.bottom * 10 + r.right); },
         "1234", ""},
        {"7,8 ", list(-2147483647 - 1), "7;77;77", ",8 "},
        {"7;8,", list(2), "!36", "8,"},
        {"7,x,9,", list(3), "7;0;9", ",", failed},
        {"1,2,3 ", none, "discarded", ",3 "},
        {" \"a\\\"b\\\\c\\x\"}", string, "a\"b\\cx", "}"},
        {"\"\x01\"\"z", local, "\"", "z"},
        {"NAME\"abc\"", string, "NAME", "\"abc\""},
        {"\"" + tall + "\"}", string, tall.substr(0, 255), "}"},
        {"\"" + tagged + "\"", string, "hello", ""},
        {"\"" + tagged + "\"", Dynamic, "hello", ""},
        {"\"" + tagged + "\"",
         [](S& s, TNqDynamicString text = {}) { return Text(GetNonLocalizedDynamicStringToken(s, text, false)); },
         tagged, ""},
        {"\"" + tagged + "\"", [](S& s) { return Text(GetPathRefToken(s)); }, "hello", ""},
        {"{\"" + tall + "\\\"\xC3\xA9\" ", Dynamic, tall + "\"\xC3\xA9", " "},
        // A zero byte in a string ends its text, and not the string.
        {"\"a\0b\"Z"s, string, "a", "Z"},
        {"\"a\0b\"Z"s, Dynamic, "a", "Z"},
        {"{\"a\0b\"}Z"s, Extract, "{\"a\0b\"}"s, "Z"},
        {"{\"a\0b\"}Z"s, Copy, "\"a\0b\" "s, "Z"},
        {"41 42", fewer, "x", "41 42"},
        {"\"open\\\"", Dynamic, "!39", ""},
        {"none", Dynamic, "!39", ""},
        {" # { \r{x", begin, "read", "x"},
        {"\"{\" x", begin, "!36", " x"},
        {" }", end, "read", ""},
        {"{ A \"}\" # }\r $00000002\r}}$ {} } Z", skip, "skipped", " Z"},
        {"A 1 } Z", leave, "skipped", " Z"},
        {" A { x }", Extract, " A", " { x }"},
        {" {\"a\\\"}\x01\"\" # c }\n  }Z", Extract, " {\"a\\\"}\x01\"\" }", "Z"},
        {"{A#c\n$00000001\r}$#c\nB#d\n{C}}", Extract, "{A B{C}}", ""},
        {"$00000002\r{{$Z", Extract, "", "Z"},
        {"{ $00000009\r", Extract, "!1", ""},
        {"{ $0$", Extract, "!36", "$"},
        {open, skip, "!39", ""},
        {std::string(100000, '$'), skip, "!36", std::string(99999, '$')},
        {"{" + std::string(100000, '#'), skip, "!39", ""},
        {"{$7FFFFFFF\rabcd", skip, "!39", ""},
        {"{$FFFFFFFE\rabcd", skip, "!39", ""},
        {open, Extract, "!1", ""},
        {open + closed, Extract, open + closed, ""},
        {" { a { b } c } d", Copy, "a { b }c ", " d"},
        {"{\"}\\\"\"" + note + "{" + note + "w}" + note + "}", Copy, "\"}\\\"\" " + note + "{ " + note + "w }" + note,
         ""},
        {"{A $00000004\r}$\"{$ $FFFFFFFF\r}$}", Copy, "A $00000004\r}$\"{$ $FFFFFFFF\r}$ ", ""},
        {open, Copy, "!39", ""},
        {"0000 1a2b00 -", count, "4608", " -"}, // small letters are no digits
        {"0000$0000", count, "!36", "$0000"},
        {"0000000", count, "!39", ""},
        {"4142 ", hexa(3), "!36", " "},
        {std::string(130, '4') + " MORE 41 ", hexa(65), std::string(64, 'D') + "A", " "},
        {std::string(128, '4') + " LESS 41 ", hexa(65), "!36", " 41 "},
        {"4\r1\n4243Z", digits, "ABC", "Z"},
        {"1 1\r~p/5Z", sixBit, "AP", "Z"},
        {"11~", sixBit, "!39", "", {"!stream.eof()"}},
        {"11}", sixBit, "!5", "", {"d!='}'"}},
        // What is kept is cut so that it can be read again.
        {"\"" + tall + "\" ", keep, "\"" + tall.substr(0, 253) + "\"", " "},
        {"\"" + escapes + "\" ", keep, "\"" + escapes.substr(0, 252) + "\"", " "},
        {"# " + tall + "\rSIZE ", keep, "# " + tall.substr(0, 252) + "\r", " "},
    });
    int8 token[kTokenBufferSize];
    TNqTokenInfo info;
    EXPECT_EQ(GetNextTokenInfo(*TReaders("  # note\r\nA ").fAll[0].second, token, info, true), 0);
    EXPECT_TRUE(info.fKind == kCommentToken && info.fOffset == 2 && std::string(token) == "# note\r");
    std::string cut = "$00000000";
    TFar<TNqstrstream> far(cut.size(), cut.data(), 9, kUTF8Transcoder, eRead);
    EXPECT_EQ(GetNextTokenInfo(far, token, info, true), kNqErrEndOfFile);
    EXPECT_TRUE(info.fOffset == 0x7FFFFFFF - 9 && info.fDataOffset == 0x7FFFFFFF); // there is none behind it
}

TEST_F(Token, PayloadsOfAFileAreSkippedExactlyAndWithoutLoadingItAgain)
{
    std::string text = "\xEF\xBB\xBF{";
    for (int i = 0; i < 50000; ++i)
        text += i % 10000 ? "A $00000002\r$}$ " : "A $00011170\r" + std::string(70000, '$') + "$ ";
    fDisk.fFiles["/scene"] = text + "} Z ";
    for (const int32 space : {64, 65536})
    {
        fDisk.fLog.clear();
        TNqfstream direct("/scene", kUTF8Transcoder, eRead, space, nullptr);
        TDerived<TNqfstream> derived("/scene", kUTF8Transcoder, eRead, space, nullptr);
        for (TNqfstream* stream : {&direct, static_cast<TNqfstream*>(&derived)})
        {
            stream->CheckIdentifier();
            SkipTokenData(*stream);
            EXPECT_EQ(Text(GetNonLocalizedStringToken(*stream)), "Z");
            EXPECT_TRUE(stream != &direct || fDisk.fLog.size() < text.size() / static_cast<size_t>(space) + 30);
        }
    }
}

// The position of its host cannot be had, always or once the stream has been moved.
class TLost : public TNqstrstream
{
public:
    using TNqstrstream::TNqstrstream;
    int32 tell() override { return fTells-- > 0 ? TNqstrstream::tell() : (changestate(failbit), 0); }
    int fTells = 0;
};

TEST_F(Token, AHostWithoutPositionsDoesNotLeadBack)
{
    int8 text[] = "WORD $00000002\rab$ B $ ", token[kTokenBufferSize];
    TLost stream(text, kUTF8Transcoder), moved(text, kUTF8Transcoder);
    moved.fTells = 2;
    for (const char* expected : {"WORD", "", "B"})
        EXPECT_EQ((GetNextToken(stream, token, false), std::string(token)), expected);
    EXPECT_EQ(GetNextToken(moved, token, false), 0);
    EXPECT_EQ(GetNextToken(moved, token, false), kNqErrEndOfFile);
}

TEST_F(Token, ABlockIsNotCopiedOntoItself)
{
    int8 text[] = "{ A {}} B ";
    TNqstrstream stream(text, 10, kUTF8Transcoder, eReadWrite);
    int32 size = -1;
    GetStreamToken(stream, stream, size);
    EXPECT_EQ(size, 1);
    ReadStream(stream, stream, true);
    EXPECT_EQ(TakeReports(), TTexts(2, "&stream != &out"));
    EXPECT_EQ(std::string(text) + Text(GetNonLocalizedStringToken(stream)), "{ A {}} B A");
}

// ---- A stream that fails

// Throws what it is made for, at the byte or position that it counts down to.
template <class Thrown>
class TThrower : public TNqstrstream
{
public:
    using TNqstrstream::get;
    using TNqstrstream::TNqstrstream;
    void get(int8& c) override { Count(), TNqstrstream::get(c); }
    int32 tell() override { return Count(), TNqstrstream::tell(); }
    int fLeft = 0;
    Thrown* fThrown = nullptr;

private:
    void Count()
    {
        if (fLeft-- == 0)
            throw *fThrown;
    }
};

template <class Thrown>
void CheckCodes(Thrown thrown, NqErr code)
{
    int8 text[] = "NAME \"text\" $00000001\r}$ ", token[kTokenBufferSize];
    for (int first = 0; first < 24; ++first)
        for (const bool info : {false, true})
        {
            TThrower<Thrown> stream(text, kUTF8Transcoder);
            stream.fLeft = first;
            stream.fThrown = &thrown;
            NqErr error = kNqNoErr;
            for (TNqTokenInfo found; error == kNqNoErr;)
                error = info ? GetNextTokenInfo(stream, token, found, false) : GetNextToken(stream, token, false);
            EXPECT_EQ(error, stream.fLeft < 0 ? code : kNqErrEndOfFile) << first;
            EXPECT_TRUE(stream.fail() == (stream.fLeft < 0)) << first;
        }
}

TEST_F(Token, WhatAStreamThrowsIsACode)
{
    CheckCodes(TNqException(kNqErrInvalidData, nullptr, 0), kNqErrInvalidData);
    CheckCodes(TNqException(kNqNoErr, nullptr, 0), kNqErrEndOfFile); // 0 would go on
    CheckCodes(std::bad_alloc(), kNqErrOutOfMemory);
    CheckCodes(std::runtime_error(""), kNqErrEndOfFile);
    TakeReports();
}

// ---- Calls that a derived stream sees

TEST_F(Token, DerivedStreamsSeeTheCallsOfTheirOperations)
{
    int8 token[kTokenBufferSize];
    int32 values[2];
    CheckCalls({
        {" AB ", [&](S& s) { GetNextToken(s, token, false); }, "ggggp"},
        {"$00000002\rab$", [&](S& s) { GetNextToken(s, token, false); }, "grrrrrrrrtrtstg"},
        {"1,2 ", [&](S& s) { GetInt32ArrayToken(s, 2, values); }, ">ggpr>gg"},
        {" \"a\"", [&](S& s) { Dynamic(s); }, "rrrr"},
        {"", [&](S& s) { PutPointAttribute(s, 0x53495A45, TNqPoint(10, -2)); }, "11111<21<11e1"},
        {"", [&](S& s) { PutNonLocalizedString(s, TNqString15("a\"b"), false); }, "111111"},
        {"\x01\x02\x01\x02", [&](S& s) { EXPECT_EQ(GetUInt32Token(s), 0x02010201u); }, "r"},
    });
}

// ---- Writing

constexpr int32 kName = 0x4E414D45; // NAME
constexpr int32 kLowest = -2147483647 - 1;

// What write puts into a memory stream, the same on one that somebody derived.
template <class Write>
std::string Bytes(Write&& write)
{
    const std::string bytes = WrittenBy(write);
    EXPECT_EQ(bytes, WrittenBy<TDerived<TNqstrstream>>(write));
    return bytes;
}

// The same into a few lent bytes, and what became of the stream.
template <class Stream, class Write>
std::string WrittenInto(int32 room, Write&& write)
{
    int8 lent[24] = {};
    Stream stream(lent, room, kUTF8Transcoder, eWrite);
    write(stream);
    return std::string(lent, sizeof(lent)) + std::to_string(stream.pcount()) + (stream.good() ? " good" : " failed");
}

enum ESettings
{
    kPlain,
    kCompact,
    kIndented
};

void Apply(S& stream, int settings)
{
    InitTokenMgr(stream);
    GetNqTokenData(stream)->fTokenCompact = settings == kCompact;
    GetNqTokenData(stream)->fTokenIndent = settings == kIndented;
}

void PutNested(S& s)
{
    PutBeginToken(s, kName, false);
    PutBeginToken(s, kName, false);
    PutInt8Attribute(s, kName, 'x');
    PutEndToken(s);
    PutEndToken(s);
    PutUInt8Attribute(s, kName, 'y');
}

void PutPayload(S& s)
{
    PutBinaryStartAttribute(s, kName, 0x1A2B);
    s.write("$x", 2);
    PutBinaryEndAttribute(s);
}

// Six-bit text, in pieces of one to four bytes; so is it read.
void PutSixBit(S& s, const std::string& data, uint32 seed)
{
    TRandom random(seed);
    uint32 state = 77;
    BeginBufferAsBinHex(state);
    for (size_t i = 0, piece; i < data.size(); i += piece)
    {
        piece = std::min(1 + random() % 4, data.size() - i);
        PutBufferAsBinHex(s, data.data() + i, static_cast<int32>(piece), state);
    }
    EndPutBufferAsBinHex(s, state);
}

std::string GetSixBit(S& s, size_t size, uint32 seed)
{
    TRandom random(seed);
    std::string data(size, '-');
    uint32 state = 0;
    for (size_t i = 0, piece; i < size; i += piece)
    {
        piece = std::min(1 + random() % 4, size - i);
        GetBufferAsBinHex(s, data.data() + i, static_cast<int32>(piece), state);
    }
    return data;
}

TEST_F(Token, WritesTheseBytes)
{
    const int16 shorts[] = {1, -2};
    const int32 longs[] = {7, 8, 9};
    const real32 reals[] = {0.1f, -2};
    const std::string data(130, 'D');
    const TNqDynamicString none;
    const TNqString15 text("Cu\"b\\\x01"), path("/a/b");
    int8 bytesOfFixed[] = "A 1 ";
    TNqstrstream content(kUTF8Transcoder), fixed(bytesOfFixed, 4, kUTF8Transcoder, eRead);
    PutPointAttribute(content, kName, TNqPoint(1, 2));
    const std::tuple<ESettings, std::function<void(S&)>, std::string> cases[] = {
        {kPlain, [](S& s) { PutBeginToken(s, kName, false); }, "NAME {\r"},
        {kPlain, [](S& s) { PutBeginToken(s); }, " {\r"},
        {kCompact, [](S& s) { PutBeginToken(s); }, "{\r"},
        {kIndented, PutNested, "NAME {\r NAME {\r  NAME x\r  }\r }\rNAME y\r"},
        {kPlain, [](S& s) { PutToken(s, 0x41204220, true); }, "A"},
        {kPlain, [](S& s) { PutToken(s, 0x41204220, false); }, "A B "},
        {kCompact, [](S& s) { PutInt32Attribute(s, kName, kLowest); }, "NAME -2147483648\r"},
        {kPlain, [](S& s) { PutUInt32Attribute(s, kName, 4294967295u); }, "NAME 4294967295\r"},
        {kPlain, [](S& s) { PutBooleanAttribute(s, kName, 200); }, "NAME 1\r"},
        {kPlain, [](S& s) { PutReal64Attribute(s, kName, -0.25); }, "NAME -0.25\r"},
        {kPlain, [](S& s) { PutFourCharConstAttribute(s, kName, 0x61622020); }, "NAME ab\r"},
        {kCompact, [](S& s) { PutPointAttribute(s, kName, TNqPoint(10, 20)); }, "NAME 10,20\r"},
        {kPlain, [](S& s) { PutRectAttribute(s, kName, TNqRect(2, 1, 4, 3)); }, "NAME 1,2,3,4\r"},
        {kPlain, [&](S& s) { PutInt16ArrayAttribute(s, kName, 2, shorts); }, "NAME 1,-2\r"},
        {kPlain, [&](S& s) { PutInt32ArrayAttribute(s, kName, kLowest, longs); }, "NAME 7\r"},
        {kPlain, [&](S& s) { PutInt32ArrayAttribute(s, kName, 3, nullptr); }, "NAME 0\r"},
        {kIndented, [&](S& s) { PutReal32ArrayAttribute(s, 0, 2, reals); }, " 0.1,-2"},
        {kPlain, [](S& s) { PutInt32Token(s, 5); }, " 5\r"},
        {kPlain, [&](S& s) { PutNonLocalizedStringAttribute(s, kName, text, false); }, "NAME \"Cu\\\"b\\\\\\\x01\"\r"},
        {kCompact, [&](S& s) { PutNonLocalizedLongStringAttribute(s, kName, none, true); }, "NAME\"\"\r"},
        {kCompact, [&](S& s) { PutLocalizedLongStringAttribute(s, kName, text, true); }, "NAME\"Cu\\\"b\\\\\\\x01\"\r"},
        {kPlain, [&](S& s) { PutPathRefAttribute(s, kName, path); }, "NAME \"/a/b\"\r"},
        {kCompact, [&](S& s) { PutPathRefAttribute(s, kName, path); }, "NAME\"/a/b\"\r"},
        {kPlain, [](S& s) { PutNonLocalizedString(s, TNqDynamicString("a\0b", 3), false); },
         std::string("\"a\0b\"", 5)},
        {kPlain, [&](S& s) { PutStreamAttribute(s, kName, fixed); }, "NAME {\rA 1 }\r"},
        {kPlain, [&](S& s) { PutStreamAttribute(s, kName, content); }, "NAME {\rNAME 1,2\r}\r"},
        {kPlain, [](S& s) { s << "{A} ", PutStreamAttribute(s, kName, dynamic_cast<TNqstrstream&>(s)); }, "{A} "},
        {kPlain,
         [](S& s)
         { s << "{A} ", s.seek(1, S::beg), ReadStream(s, dynamic_cast<TNqstrstream&>(s), false), s.seek(0, S::end); },
         "{A} "},
        {kPlain, PutPayload, "NAME $00001A2B\r$x$\r"},
        {kIndented, [](S& s) { PutHexaBinaryAttribute(s, kName, 3, "\x01\xAF\xFF"); }, "NAME 01AFFF\r"},
        {kPlain, [](S& s) { PutHexaBinaryAttribute(s, kName, 0, "x"); }, ""},
        {kPlain, [&](S& s) { PutHexaBinaryAttribute(s, kName, 130, data.data()); },
         "NAME " + std::string(128, '4') + "\rMORE " + std::string(128, '4') + "\rMORE 4444\r"},
        {kPlain, [](S& s) { PutBufferAsHexa(s, "AZ", 2, true); }, "AZ"},
        {kPlain, [](S& s) { PutLongAsHexa(s, -2); }, "FFFFFFFE"},
        {kPlain, [](S& s) { PutSixBit(s, std::string(3, 0), 1); }, "0000"},
        {kPlain, [](S& s) { PutSixBit(s, "\xFF\xFF\xFF", 2); }, "oooo"},
        {kPlain, [](S& s) { PutSixBit(s, "A", 1); }, "11"},
        {kPlain, [](S& s) { PutSixBit(s, "ABCDE", 1); }, "19d@4E4"},
    };
    TTexts told;
    for (const auto& [settings, write, bytes] : cases)
    {
        const auto putAll = [set = settings, &put = write](S& s) { Apply(s, set), put(s); };
        EXPECT_EQ(Bytes(putAll), bytes);
        for (const std::string& report : TakeReports())
            told.push_back(report);
        for (int32 room = 0; room <= 20; ++room)
            EXPECT_EQ(WrittenInto<TNqstrstream>(room, putAll), WrittenInto<TDerived<TNqstrstream>>(room, putAll))
                << bytes << " into " << room;
        TakeReports(); // the same ones
    }
    EXPECT_EQ(told, (TTexts{"&stream != &content", "&stream != &content", "&stream != &out", "&stream != &out"}));
    PutInt32Attribute(content, kName, 3); // it still has its block
    EXPECT_EQ(content.pcount(), 16);
    EXPECT_EQ(Bytes([](S& s) { PutToken(s, 0x412C4243, true); }), "A,BC");
    const auto putDeep = [](S& s)
    {
        Apply(s, kIndented);
        GetNqTokenData(s)->fTokenIndentLevel = 1000;
        PutInt32Attribute(s, kName, 7);
    };
    EXPECT_EQ(Bytes(putDeep), std::string(1000, ' ') + "NAME 7\r");
    EXPECT_EQ(TakeReports(), TTexts(2, "c != tCOMMA"));
    TNqstrstream own(kUTF8Transcoder), shared(kUTF8Transcoder);
    uint32 state = 9;
    PutBufferAsBinHex(own, nullptr, 0, state);
    GetBufferAsBinHex(own, nullptr, -1, state);
    EndPutBufferAsBinHex(own, state);
    EXPECT_EQ(TakeReports(), TTexts({"count>=1", "size", "0"}));
    InitTokenMgr(own);
    EXPECT_TRUE(GetNqTokenData(own) != &gDefaultTokenData && GetNqTokenData(shared) == &gDefaultTokenData);
}

// ---- Random documents

template <bool Localized>
void PutText(S& s, int32 name, const std::string& text)
{
    (Localized ? PutLocalizedStringAttribute : PutNonLocalizedStringAttribute)(s, name, TNqString255(text.c_str()), 1);
}

void PutHexa(S& s, int32 name, const std::string& data)
{
    PutHexaBinaryAttribute(s, name, static_cast<int32>(data.size()), data.data());
}

void PutRaw(S& s, int32 name, const std::string& data)
{
    const bool counted = data.find('$') != std::string::npos;
    PutBinaryStartAttribute(s, name, counted ? static_cast<uint32>(data.size()) : 0xFFFFFFFF);
    s.write(data.data(), static_cast<int32>(data.size()));
    PutBinaryEndAttribute(s);
}

// Passes over a document that follows from a seed, and writes it, or reads it back and compares.
class TDocument
{
public:
    TDocument(S& stream, int seed, bool writing) : fStream(stream), fRandom(seed), fSkips(seed), fWriting(writing) {}

    void Items(int depth)
    {
        const auto text = [](auto get) { return [get](S& s) { return Text(get(s)); }; };
        const std::function<void()> items[] = {
            [&] { Value(static_cast<int8>('A' + fRandom.Below(26)), PutInt8Attribute, GetInt8Token); },
            [&] { Value(static_cast<uint8>('a' + fRandom.Below(26)), PutUInt8Attribute, GetUInt8Token); },
            [&] { Value(static_cast<int16>(fRandom()), PutInt16Attribute, GetInt16Token); },
            [&] { Value(static_cast<uint16>(fRandom()), PutUInt16Attribute, GetUInt16Token); },
            [&] { Value(static_cast<int32>(fRandom()), PutInt32Attribute, GetInt32Token); },
            [&] { Value(static_cast<uint32>(fRandom()), PutUInt32Attribute, GetUInt32Token); },
            [&] { Value(static_cast<boolean>(fRandom.Below(2)), PutBooleanAttribute, GetBooleanToken); },
            [&] { Value(Real(), PutReal32Attribute, GetReal32Token); },
            [&] { Value(Real(), PutReal32Attribute, GetReal32InfToken); },
            [&] { Value(std::floor(real64(Real())), PutReal64Attribute, GetReal64Token); },
            [&] { Value(Name(), PutFourCharConstAttribute, GetFourCharConstToken); },
            [&] { List<int16, PutInt16ArrayAttribute>(GetInt16ArrayToken); },
            [&] { List<int32, PutInt32ArrayAttribute>(GetInt32ArrayToken); },
            [&] { List<real32, PutReal32ArrayAttribute>(GetReal32ArrayToken); },
            [&] { Value(Letters(), PutText<true>, text(GetLocalizedStringToken)); },
            [&] { Value(Letters(), PutText<false>, text(GetNonLocalizedStringToken)); },
            [&] { Value(Letters(), PutText<false>, Dynamic); },
            [&] { Raw(); },
            [&] { Hexa(); },
            [&] { SixBit(); },
            [&] { Block(depth); },
        };
        for (int n = fRandom.Below(depth == 0 ? 30 : 6); n > 0; --n)
            items[std::min(fRandom.Below(depth < 4 ? 24 : 20), 20)]();
    }

private:
    // One to four letters, then blanks or zero bytes.
    int32 Name()
    {
        const int letters = 1 + fRandom.Below(4);
        const uint32 rest = fRandom.Below(2) ? ' ' : 0;
        uint32 name = 0;
        for (int i = 0; i < 4; ++i)
            name = name << 8 | (i < letters ? static_cast<uint8>("ABCxyz019_-+"[fRandom.Below(12)]) : rest);
        return static_cast<int32>(name);
    }

    // Numbers that six decimals hold exactly.
    real32 Real() { return static_cast<real32>(fRandom.Below(2000001) - 1000000) / 64; }

    std::string Letters()
    {
        static const char* const kPieces[] = {"a", " ", "\"", "\\", "\x01", "{", "}", "#", "$", "\r", "\n", "\xC3\xA9"};
        std::string text;
        for (int n = fRandom.Below(100); n > 0; --n)
            text += kPieces[fRandom.Below(12)];
        return text;
    }

    std::string Data()
    {
        std::string data(static_cast<size_t>(1 + fRandom.Below(300)), 0);
        const char often = fRandom.Below(2) ? '$' : '?', instead = fRandom.Below(2) ? '$' : '!';
        for (char& c : data)
            c = static_cast<char>(fRandom.Below(3) ? fRandom() : static_cast<uint32>(often));
        std::replace(data.begin(), data.end(), '$', instead);
        return data;
    }

    // Reads the name; false when the value is skipped, or was not even looked for.
    bool IsRead(int32 name, bool skippable)
    {
        if (fIgnoring)
            return false;
        // A compact name may be followed by its value at once, and only a token ends there.
        int8 token[kTokenBufferSize];
        if (GetNqTokenData(fStream)->fTokenCompact || fSkips.Below(2))
        {
            if (GetNextToken(fStream, token, false) != kNqNoErr)
                FailEOFFile();
            EXPECT_EQ(CompactAttribute(token), name);
        }
        else
            EXPECT_EQ(GetFourCharConstToken(fStream), name);
        const bool skipped = skippable && fSkips.Below(4) == 0;
        if (skipped)
            SkipTokenData(fStream);
        return !skipped;
    }

    template <class T, class Put, class Get>
    void Value(const T& value, Put put, Get get, bool skippable = true)
    {
        const int32 name = Name();
        const bool reads = !fWriting && IsRead(name, skippable);
        EXPECT_TRUE(fWriting ? (put(fStream, name, value), true) : !reads || value == get(fStream));
    }

    template <class T, void (*Put)(S&, int32, int32, const T*)>
    void List(void (*get)(S&, int32, T*))
    {
        std::vector<T> values(1 + static_cast<size_t>(fRandom.Below(20))), found(values.size());
        std::generate(values.begin(), values.end(), [&] { return static_cast<T>(Real()); });
        const int32 count = static_cast<int32>(values.size());
        const auto put = [](S& s, int32 name, const std::vector<T>& list)
        { Put(s, name, static_cast<int32>(list.size()), list.data()); };
        Value(values, put, [&](S& s) { return get(s, count, found.data()), found; });
    }

    void Hexa()
    {
        std::string data = Data(), found(data.size(), 0);
        const int32 size = static_cast<int32>(data.size());
        const auto get = [&](S& s) { return GetHexaBinaryToken(s, size, found.data()), found; };
        Value(data, PutHexa, get, false);
    }

    void SixBit()
    {
        const std::string data = Data();
        const uint32 pieces = static_cast<uint32>(fRandom());
        const auto put = [=](S& s, int32 name, const std::string& bytes)
        {
            PutToken(s, static_cast<uint32>(name), true);
            PutSixBit(s << int8(' '), bytes, pieces);
            s << endl;
        };
        Value(data, put, [&](S& s) { return GetSixBit(s, data.size(), static_cast<uint32>(fSkips())); });
    }

    void Raw()
    {
        const std::string data = Data();
        const auto get = [&](S& s)
        {
            uint32 size = 0;
            std::string found(data.size(), 0);
            GetBinaryStartToken(s, size);
            EXPECT_TRUE(size == data.size() || size == 0xFFFFFFFF);
            GetBufferAsHexa(s, found.data(), static_cast<int32>(data.size()), true);
            return GetBinaryEndToken(s), found;
        };
        Value(data, PutRaw, get);
    }

    void Block(int depth)
    {
        const int32 name = Name();
        const bool ignoring = fIgnoring;
        fIgnoring = !fWriting && !IsRead(name, true);
        if (fWriting)
            PutBeginToken(fStream, name, false);
        else if (!fIgnoring)
            GetBeginToken(fStream);
        Items(depth + 1);
        if (fWriting)
            PutEndToken(fStream);
        else if (!fIgnoring)
            GetEndToken(fStream);
        fIgnoring = ignoring;
    }

    S& fStream;
    TRandom fRandom; // what the document holds
    TRandom fSkips;  // how it is read
    bool fWriting;
    bool fIgnoring = false; // inside a block that was skipped
};

std::string RandomDocument(int seed)
{
    return Bytes(
        [seed](S& stream)
        {
            Apply(stream, seed % 3);
            PutBeginToken(stream, kName, false);
            TDocument(stream, seed, true).Items(0);
            PutEndToken(stream);
        });
}

std::string ReadDocument(S& stream, int seed)
{
    Apply(stream, seed % 3);
    EXPECT_EQ(GetFourCharConstToken(stream), kName);
    GetBeginToken(stream);
    TDocument(stream, seed, false).Items(0);
    return GetEndToken(stream), "whole";
}

TEST_F(Token, DocumentsReadBackAsTheyWereWritten)
{
    for (int seed = 0; seed < 300 && !HasFailure(); ++seed)
    {
        const TReaders readers(RandomDocument(seed));
        for (const auto& [name, stream] : readers.fAll)
        {
            SCOPED_TRACE(name + ", seed " + std::to_string(seed));
            ReadDocument(*stream, seed);
        }
    }
}

// Reads from a disk of which each call fails in turn. What is read is right, or nothing: a value that was cut short is
// an exception, as the end is, and the failure bit tells the two apart.
template <class Stream, class Read>
void CheckFailingDisk(TTestDisk& disk, int32 space, const std::string& expected, Read&& read)
{
    for (int bad = 1;; ++bad)
    {
        SCOPED_TRACE(bad);
        disk.fCalls = disk.fBadCall = 0;
        Stream stream("/scene", kUTF8Transcoder, eRead, space, nullptr);
        disk.fBadCall = disk.fCalls + bad;
        const std::string outcome = Outcome(stream, read);
        const bool reached = disk.fCalls >= disk.fBadCall;
        ASSERT_TRUE(outcome == expected || (outcome == "!39" && reached && stream.fail())) << outcome;
        if (!reached)
            return;
    }
}

TEST_F(Token, AFailingDiskMakesNoValues)
{
    const auto check = [&](const std::string& text, const std::string& expected, auto read)
    {
        fDisk.fFiles["/scene"] = text;
        for (const int32 space : {0, 1, 7, 64})
        {
            SCOPED_TRACE(text.substr(0, 20) + std::to_string(space));
            CheckFailingDisk<TNqfstream>(fDisk, space, expected, read);
            CheckFailingDisk<TDerived<TNqfstream>>(fDisk, space, expected, read);
        }
        TakeReports();
    };
    const auto inf = [](S& s) { return Show(GetReal32InfToken(s)); };
    check(" -25.5 ", "-25.5", inf);
    check("- inf", "-0", inf); // no number
    check("-inf ", "-3.402823466e+38", inf);
    check(" \"/path/of\" ", "/path/of", [](S& s) { return Text(GetPathRefToken(s)); });
    int documents = 0;
    for (int seed = 0; documents < 8 && !HasFailure(); ++seed)
    {
        const std::string text = RandomDocument(seed);
        if (text.size() < 100 || text.size() > 500)
            continue;
        ++documents;
        check(text, "whole", [seed](S& s) { return ReadDocument(s, seed); });
    }
}

// ---- Damaged documents

// Reads one thing after the other, whatever comes, up to the first exception, or code that is not 0.
std::string ReadAnything(S& stream, TRandom& random)
{
    int8 bytes[kTokenBufferSize];
    int32 numbers[100];
    uint32 state = static_cast<uint32>(random()), size = 0;
    void* data = nullptr;
    TNqDynamicString text;
    TNqstrstream out(kUTF8Transcoder);
    const std::function<void()> readers[] = {
        [&] { GetInt32ArrayToken(stream, random.Below(101), numbers); },
        [&] { GetReal32ArrayToken(stream, random.Below(101), reinterpret_cast<real32*>(numbers)); },
        [&] { GetReal32InfToken(stream); },
        [&] { GetFourCharConstToken(stream); },
        [&] { GetNonLocalizedDynamicStringToken(stream, text, true); },
        [&] { GetBinaryStartToken(stream, size); },
        [&] { GetHexaBinaryToken(stream, random.Below(101), bytes); },
        [&] { GetBufferAsHexa(stream, bytes, random.Below(101), random.Below(2) != 0); },
        [&] { GetBufferAsBinHex(stream, bytes, random.Below(101), state); },
        [&] { ReadStream(stream, out, random.Below(2) != 0); },
        [&] { ExtractTokenData(stream, data, size), Nqfree(data), data = nullptr; },
        [&] { SkipTokenData(stream, random.Below(8) == 0); },
        [&] { GetNonLocalizedStringToken(stream); },
    };
    const auto readAll = [&](S&) -> std::string
    {
        for (;;)
            if (const int reader = random.Below(18); reader < 13)
                readers[reader]();
            else if (const NqErr error = GetNextToken(stream, bytes, random.Below(2) != 0))
                return error == kNqErrEndOfFile ? "!39" : "!36";
    };
    return Outcome(stream, readAll);
}

TEST_F(Token, DamagedDocumentsEndAlikeOnAllStreams)
{
    for (int seed = 0; seed < 400; ++seed)
    {
        TRandom random(seed);
        std::string text = RandomDocument(seed).substr(0, 2000);
        const int size = static_cast<int>(text.size());
        for (int n = random.Below(8); n > 0; --n)
            text[static_cast<size_t>(random.Below(size))] = "{}\"#$\\, \0\xFFG9"[random.Below(12)];
        text.resize(static_cast<size_t>(random.Below(size + 1)));
        TTexts expected;
        const TReaders readers(text);
        for (const auto& [name, stream] : readers.fAll)
        {
            TRandom choice(seed);
            TTexts ends;
            do
                ends.push_back(ReadAnything(*stream, choice));
            while (ends.size() < 20 && ends.back() != "!39");
            expected = expected.empty() ? ends : expected;
            ASSERT_EQ(ends, expected) << name << ", seed " << seed;
        }
        for (const std::string& end : expected)
            ASSERT_TRUE(end == "!36" || end == "!39" || end == "!5" || end == "!1") << end;
        TakeReports();
    }
}

TEST_F(Token, EveryCutOfADocumentIsFound)
{
    const std::string text = RandomDocument(24);
    const auto skip = [](S& s) { return GetFourCharConstToken(s), SkipTokenData(s), "whole"; };
    for (size_t size = 0; size + 1 < text.size(); ++size)
        ASSERT_EQ(Outcome(*TReaders(text.substr(0, size)).fAll[0].second, skip), "!39");
    TakeReports();
}

// ---- Memory

// With a transcoder and without one, which leaves the text UTF-8.
TEST_F(Token, ReadersSurviveEachFailedAllocation)
{
    std::string bytes;
    for (const bool isPlain : {true, false})
    {
        std::string tall;
        while (tall.size() < 5000)
            tall += isPlain ? "w" : "\xC3\xA9";
        bytes = "{\"" + tall + "\"} ";
        const auto string = [](S& s) { return GetBeginToken(s), Text(GetNonLocalizedStringToken(s)); };
        const std::tuple<std::function<std::string(S&)>, std::string, bool> readers[] = {
            {Dynamic, tall, false},
            {string, tall.substr(0, isPlain ? 255 : 254), false},
            {Extract, "{\"" + tall + "\"}", true}, // without its block it leaves what was there, and reports it
            {Copy, "\"" + tall + "\" ", false}};
        const auto readAll = [&](int64)
        {
            for (const auto& [read, whole, mayLeave] : readers)
            {
                TNqstrstream stream(bytes.data(), static_cast<int32>(bytes.size()),
                                    isPlain ? kUTF8Transcoder : kJpnTranscoder, eRead);
                const std::string outcome = Outcome(stream, read);
                EXPECT_TRUE(outcome == "!2" || outcome == whole || (mayLeave && outcome.empty())) << outcome.size();
            }
        };
        ForEachFailingAllocation(readAll);
    }
    int8 small[20];
    TNqstrstream full(small, 20, kUTF8Transcoder, eWrite);
    TNqstrstream stream(bytes.data(), static_cast<int32>(bytes.size()), kUTF8Transcoder, eRead);
    EXPECT_EQ(Outcome(stream, [&](S& s, int32 size = 7) { return GetStreamToken(s, full, size), ""; }), "!2");
    EXPECT_EQ(stream.tell(), static_cast<int32>(bytes.size()) - 1); // behind the block
    TakeReports();
}

} // namespace
