// The network stream over a socket that plays a script: blocks of any size, errors at any call.

#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqNetStream.h"
#include "NqCore/PublicAPI/NqToken.h"
#include "Tests/NetDoubles.h"

using namespace std::string_literals;

namespace
{

class NetStreamTest : public NqTest
{
protected:
    static TTexts Reports(const char* text, size_t count = 1) { return TTexts(count, text); }
};

} // namespace

// ---- Writing -------------------------------------------------------------------------------------------------------

// Random writes, flushes and short sends against what a buffer of 256 bytes does.
TEST_F(NetStreamTest, SendsFullBlocksAndTheRestWhenFlushed)
{
    TRandom random(46);
    for (int round = 0; round < 200; ++round)
    {
        TScriptedSocket socket;
        std::string waiting;
        TTexts sent;
        const auto flush = [&]
        {
            if (!waiting.empty())
                sent.push_back(waiting);
            waiting.clear();
        };
        {
            TNqNetStream stream(&socket);
            for (int step = random.Below(30); step > 0; --step)
            {
                const std::string bytes(static_cast<size_t>(random.Below(random.OneIn(4) ? 700 : 90)),
                                        static_cast<char>(random()));
                stream.write(bytes.data(), static_cast<int32>(bytes.size()));
                for (const char c : bytes)
                    if ((waiting += c).size() == 256)
                        flush();
                if (random.OneIn(5))
                {
                    stream.Flush();
                    flush();
                }
                ASSERT_TRUE(stream.good());
            }
            if (random.OneIn(2))
                stream.Close();
        }
        flush();
        ASSERT_EQ(socket.fSent, sent) << round;
        EXPECT_EQ(socket.References(), 1);
    }
}

TEST_F(NetStreamTest, AShortSendIsReportedAndNotRepeated)
{
    TScriptedSocket socket;
    {
        TNqNetStream stream(&socket);
        socket.fSendLimit = 255;
        stream.write(std::string(300, 'x').data(), 300);
        EXPECT_EQ(TakeReports(), Reports("byteRead == bufferSize"));
        EXPECT_TRUE(stream.good());
        stream.Close();
        EXPECT_TRUE(socket.fClosed);
    }
    EXPECT_EQ(socket.fSent, (TTexts{std::string(255, 'x'), std::string(44, 'x')}));
}

// ---- Reading -------------------------------------------------------------------------------------------------------

namespace
{

// What the token layer makes of a text: each token, number, string and payload, up to the end or an error.
std::string ReadAll(TNqiostream& stream)
{
    std::string seen;
    int8 token[NqToken::kTokenBufferSize];
    TNqDynamicString text;
    try
    {
        NqErr code = kNqNoErr;
        while ((code = NqToken::GetNextToken(stream, token, false)) == kNqNoErr)
        {
            seen += token + "|"s;
            uint32 size = 0;
            uint32 state = 0;
            int8 bytes[40] = {};
            int32 numbers[3] = {};
            const auto is = [&](const char* name) { return token == std::string(name); };
            if (is("INTS"))
                NqToken::GetInt32ArrayToken(stream, 3, numbers);
            else if (is("REAL"))
                seen += std::to_string(NqToken::GetReal64Token(stream));
            else if (is("INFI"))
                seen += std::to_string(NqToken::GetReal32InfToken(stream));
            else if (is("FOUR"))
                seen += std::to_string(NqToken::GetFourCharConstToken(stream));
            else if (is("TEXT"))
                seen += NqToken::GetNonLocalizedDynamicStringToken(stream, text, false).StrGet();
            else if (is("QUOT"))
                seen += (stream >> text, text.StrGet());
            else if (is("LINE"))
                seen += stream.getline(bytes, 30, '\n');
            else if (is("HEXA"))
                NqToken::GetHexaBinaryToken(stream, 33, bytes);
            else if (is("SIXB"))
                NqToken::GetBufferAsBinHex(stream, bytes, 8, state);
            else if (is("RAWB"))
            {
                NqToken::GetBinaryStartToken(stream, size);
                NqToken::GetBufferAsHexa(stream, bytes, 5, true);
                NqToken::GetBinaryEndToken(stream);
            }
            else if (is("SKIP"))
                NqToken::SkipTokenData(stream);
            seen.append(bytes, sizeof bytes);
            for (const int32 number : numbers)
                seen += std::to_string(number) + " ";
            seen += '\n';
        }
        return seen + (code != kNqErrEndOfFile ? "stopped" : stream.eof() && !stream.fail() ? "end" : "failed");
    }
    catch (const TNqException& error)
    {
        return seen + "error " + std::to_string(error.GetError());
    }
}

const std::string kDocument =
    "# a comment\rINTS 1,-20,300 INTS 7,8,9}INTS 4,x,6 REAL -1.5e3:\nREAL .25{INFI -inf INFI -2.5 FOUR AB,FOUR ABCD "
    "TEXT "
    "\"a\\\"b\\\\ c\"QUOT \"q\\\"\" QUOT bare LINE one\r\nLINE two\rLINE three\n\rSIXB 0123mno`abc SIXB \nX1` "
    "ooooop1234 "
    "HEXA 000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F20\r"
    "RAWB $00000005\r{}$\"#$ SKIP { A $00000003\rx\0y$ B { \"}\" } } SKIP $FFFFFFFF\r01mno$ Z\r"s;

} // namespace

// However the bytes are cut into blocks, one by one included, and wherever they end, the text reads as from memory.
TEST_F(NetStreamTest, ReadsTheSameTextAsFromMemory)
{
    TRandom random(2026);
    for (int round = 0; round < 1500; ++round)
    {
        std::string document = kDocument + kDocument;
        // In a payload a zero byte is data; a document without its head may have it elsewhere, where it is the end.
        if (random.OneIn(3))
        {
            std::replace(document.begin(), document.end(), '\0', 'z');
            document.erase(0, static_cast<size_t>(random.Below(200)));
        }
        const bool whole = random.OneIn(2);
        if (!whole)
            document.resize(1 + random() % document.size());
        TNqstrstream memory(document.data(), static_cast<int32>(document.size()), kUTF8Transcoder, eRead);
        const std::string expected = ReadAll(memory);
        const TTexts reported = TakeReports();
        TScriptedSocket socket(document, round % 4 == 0 ? 1 : 1 + random.Below(300), random());
        TNqNetStream stream(&socket);
        ASSERT_EQ(ReadAll(stream), expected) << round << document;
        const TTexts reports = TakeReports();
        ASSERT_TRUE(reports == reported || !whole) << round; // a payload that is cut says so
    }
}

// It is an exception of the typed readers, 0x80010027, and a code of GetNextToken, and no end.
TEST_F(NetStreamTest, EachFailingReceiveIsTold)
{
    int codes = 0;
    for (int bad = 1; bad <= 40; ++bad)
    {
        TScriptedSocket socket(kDocument, 7, 1);
        socket.fBadReceive = bad;
        TNqNetStream stream(&socket);
        const std::string seen = ReadAll(stream);
        const bool isCode = seen.find("failed") != std::string::npos;
        ASSERT_TRUE(isCode || seen.find("error -2147418073") != std::string::npos) << bad << seen;
        codes += isCode;
        ASSERT_FALSE(stream.eof() && !stream.fail());
        ASSERT_EQ(TakeReports().back(), "An exception is being thrown");
        ASSERT_FALSE(stream.MoreDataAvailable());
        ReadAll(stream); // the data behind the error can be read on
        ASSERT_TRUE(stream.eof() && !stream.fail());
        TakeReports();
    }
    EXPECT_GT(codes, 5);
    EXPECT_LT(codes, 35);
}

// The bytes of each call, with what it leaves in the state.
TEST_F(NetStreamTest, TellsTheEndFromDataByteByByte)
{
    TScriptedSocket socket("ab\0c"s, 2, 0);
    socket.fSmallestBlock = 2;
    TNqNetStream stream(&socket);
    EXPECT_FALSE(stream.MoreDataAvailable());
    int8 c = 'x';
    stream.get(c);
    EXPECT_EQ(c, 'a');
    EXPECT_TRUE(stream.good() && stream.MoreDataAvailable());
    stream.putback('z'); // the byte itself is not stored
    stream.get(c);
    EXPECT_EQ(c, 'a');
    int8 bytes[6] = "yyyyy";
    stream.read(bytes, 2);
    EXPECT_EQ(std::string(bytes, 3), "b\0y"s);
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.gcount(), 2);
    stream.putback(0);
    stream.get(c); // a zero byte ends a text
    EXPECT_EQ(c, 0);
    EXPECT_TRUE(stream.eof());
    stream.clear(0);
    stream.read(bytes, 3);
    EXPECT_EQ(std::string(bytes, 3), "c\0y"s);
    EXPECT_EQ(stream.gcount(), 1);
    EXPECT_TRUE(stream.eof());
    EXPECT_EQ(TakeReports(), Reports("n==1"));
    stream.putback('c'); // its block is gone
    EXPECT_EQ(TakeReports(), Reports("fCurrentPosition>=0"));
    stream.get(c);
    EXPECT_TRUE(stream.eof());
    EXPECT_EQ(stream.tell(), 0);
    stream.seek(1, TNqiostream::beg);
    EXPECT_EQ(TakeReports(), Reports("Should never be called!!", 2));
    EXPECT_FALSE(stream.CanSeek());
}

TEST_F(NetStreamTest, WorksWithoutSocketAndTakesOneLater)
{
    TScriptedSocket first("12 ", 9, 0);
    TScriptedSocket second;
    {
        TNqNetStream stream(nullptr);
        int32 value = 5;
        int8 c = 'x';
        stream.get(c);
        EXPECT_TRUE(c == 0 && stream.eof());
        stream << int32(7);
        stream.AttachToSocket(&first);
        stream >> value;
        EXPECT_EQ(value, 12);
        stream.AttachToSocket(&second);
        EXPECT_EQ(TakeReports(), Reports("!fSocket"));
        stream.Close();
        stream << int32(8);
        stream.AttachToSocket(nullptr);
        EXPECT_EQ(TakeReports(), Reports("!fSocket"));
    }
    EXPECT_EQ(TakeReports(), Reports("byteRead == bufferSize")); // nobody took the 8
    EXPECT_TRUE(first.fSent.empty() && !first.fClosed && second.fClosed);
    EXPECT_EQ(second.fSent, TTexts{"7"});
    EXPECT_EQ(first.References() + second.References(), 2);
}

TEST_F(NetStreamTest, SurvivesWithoutMemory)
{
    ForEachFailingAllocation(
        [](int64)
        {
            TScriptedSocket socket("1 2 ", 3, 0);
            TNqNetStream stream(&socket);
            stream << "text" << endl;
            int32 value = 0;
            stream >> value;
        });
}

// A module built elsewhere: primitives by slot, the six of them first.
TEST_F(NetStreamTest, SlotsOfSocketAndStream)
{
    TScriptedSocket socket("abc", 9, 0);
    INqSocket* const face = &socket;
    int8 bytes[4] = {};
    EXPECT_EQ(Slot<int32 (*)(void*, int8*, int32)>(face, 3)(face, bytes, 2), 2);
    EXPECT_EQ(Slot<int32 (*)(void*, const int8*, int32)>(face, 4)(face, "xy", 2), 2);
    Slot<void (*)(void*)>(face, 5)(face);
    EXPECT_TRUE(socket.fClosed && bytes[1] == 'b' && socket.fSent == TTexts{"xy"});
    TNqNetStream stream(&socket);
    Slot<void (*)(void*, int8*, int32)>(&stream, 4)(&stream, bytes, 1);
    EXPECT_EQ(bytes[0], 'c');
}
