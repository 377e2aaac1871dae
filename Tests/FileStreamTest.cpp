#include "Tests/StreamDoubles.h"

#include <random>

namespace
{

constexpr char kPath[] = "/a/b/doc.x";

class FileStreamTest : public StreamTest
{
protected:
    TBytes& Disk() { return fDisk.fFiles[kPath]; }
    void Put(const std::string& text) { Disk() = BytesOf(text); }
};

// ---- A file as a vector and a position -----------------------------------------------------------------------------
//
// Runs operations on a stream and on the model, and says what differs. A byte put back in place of another is seen by
// the read that follows at once, may be seen later, and never reaches the file.
class TFileRun
{
public:
    enum EOperation
    {
        kRead,
        kGet,
        kWrite,
        kSeekBeg,
        kSeekCur,
        kSeekEnd,
        kPutbackSame,
        kPutbackOther,
        kFlush,
        kReopen
    };

    TFileRun(TTestDisk& disk, const TBytes& start, int32 bufferSize)
        : fDisk(disk),
          fBytes(start),
          fBufferSize(bufferSize)
    {
        fDisk.fFiles[kPath] = start;
        fStream = std::make_unique<TNqfstream>(kPath, kUTF8Transcoder, eReadWrite, fBufferSize, nullptr);
    }

    // Empty when stream and model agree.
    std::string Do(EOperation operation, int32 argument)
    {
        const bool afterPutback = fAfterPutback;
        fAfterPutback = false;
        switch (operation)
        {
        case kRead:
        case kGet:
            return Read(operation == kGet, argument, afterPutback) + Compare();
        case kWrite:
            Write(argument);
            break;
        case kSeekBeg:
            Seek(argument, argument, TNqiostream::beg);
            break;
        case kSeekCur:
            Seek(fPosition + argument, argument, TNqiostream::cur);
            break;
        case kSeekEnd:
            Seek(Size() - argument, argument, TNqiostream::end);
            break;
        case kPutbackSame:
        case kPutbackOther:
            Putback(operation == kPutbackOther);
            break;
        case kFlush:
            fStream->flush();
            return Compare() + CompareFile();
        case kReopen:
            fStream->Init(kPath, kUTF8Transcoder, eReadWrite, fBufferSize, nullptr);
            fStream->clear(fState = 0);
            fPosition = 0;
            fForeign.clear();
            return Compare() + CompareFile();
        }
        return Compare();
    }

    std::string Finish()
    {
        fStream.reset();
        return CompareFile() + (fDisk.fOpen != 0 ? "left open " : "");
    }

private:
    int64 Size() const { return static_cast<int64>(fBytes.size()); }

    std::string Read(bool byGet, int32 count, bool afterPutback)
    {
        TBytes data(static_cast<size_t>(count) + 1, '?');
        if (byGet)
            fStream->get(data[0]);
        else
            fStream->read(data.data(), count);
        const int64 expected = std::min<int64>(byGet ? 1 : count, std::max<int64>(Size() - fPosition, 0));
        if (fStream->gcount() != expected)
            return "count ";
        for (int64 i = 0; i < expected; ++i, ++fPosition)
        {
            const auto foreign = fForeign.find(fPosition);
            const bool isForeign = foreign != fForeign.end() && foreign->second == data[i];
            const bool mustBeForeign = i == 0 && afterPutback && fBufferSize > 0 && foreign != fForeign.end();
            if (mustBeForeign ? !isForeign : (data[i] != fBytes[fPosition] && !isForeign))
                return "bytes ";
        }
        fState = expected < (byGet ? 1 : count) ? TNqiostream::eofbit : 0;
        return "";
    }

    void Write(int32 count)
    {
        TBytes data;
        for (int32 i = 0; i < count; ++i)
            data.push_back(static_cast<int8>(fNext = fNext == 'z' ? 'a' : static_cast<int8>(fNext + 1)));
        fStream->write(data.data(), count);
        fState = 0;
        if (count == 0)
            return;
        fForeign.clear();
        fBytes.resize(std::max<size_t>(fBytes.size(), fPosition + data.size()));
        std::copy(data.begin(), data.end(), fBytes.begin() + fPosition);
        fPosition += count;
    }

    void Seek(int64 position, int32 argument, TNqiostream::seek_dir dir)
    {
        fStream->seek(argument, dir);
        fState = position < 0                             ? TNqiostream::failbit
                 : position > Size()                      ? TNqiostream::eofbit
                 : fBufferSize == 0 && position == Size() ? TNqiostream::eofbit
                                                          : 0;
        if (position < 0)
            return;
        fPosition = position;
        fForeign.clear();
    }

    void Putback(bool other)
    {
        const int64 before = fPosition - 1;
        const bool inFile = before >= 0 && before < Size();
        const int8 same = inFile ? fBytes[before] : '?';
        fStream->putback(other ? '!' : same);
        if (before < 0)
        {
            fState |= TNqiostream::failbit;
            return;
        }
        fPosition = before;
        fAfterPutback = true;
        fForeign.erase(before);
        if (other && inFile)
            fForeign[before] = '!';
    }

    std::string Compare() const
    {
        std::string wrong;
        if (fStream->tell() != fPosition)
            wrong += "position ";
        if (fStream->GetFileSize() != fBytes.size())
            wrong += "size ";
        if (fStream->good() != (fState == 0) || fStream->eof() != (fState & TNqiostream::eofbit))
            wrong += "state ";
        return wrong;
    }

    std::string CompareFile() const { return fDisk.fFiles[kPath] == fBytes ? "" : "file "; }

    TTestDisk& fDisk;
    TBytes fBytes;
    int32 fBufferSize;
    std::unique_ptr<TNqfstream> fStream;
    int64 fPosition = 0;
    int32 fState = 0;
    int8 fNext = 'a';
    bool fAfterPutback = false;
    std::map<int64, int8> fForeign;
};

struct TStep
{
    TFileRun::EOperation fOperation;
    int32 fArgument;
};

// Runs a whole sequence; what is wrong, with the sequence, or empty.
std::string RunSteps(TTestDisk& disk, const TBytes& start, int32 bufferSize, const std::vector<TStep>& steps)
{
    TFileRun run(disk, start, bufferSize);
    std::string wrong;
    for (size_t i = 0; i < steps.size() && wrong.empty(); ++i)
        wrong = run.Do(steps[i].fOperation, steps[i].fArgument);
    if (wrong.empty())
        wrong = run.Finish();
    TakeReports();
    if (wrong.empty())
        return "";
    for (const TStep& step : steps)
        wrong += std::to_string(step.fOperation) + "(" + std::to_string(step.fArgument) + ") ";
    return wrong + "buffer " + std::to_string(bufferSize) + " file " + std::to_string(start.size());
}

// Every sequence of four operations, whatever the buffer: bytes neither get lost nor change their place.
TEST_F(FileStreamTest, AllShortSequencesKeepEveryByte)
{
    const std::vector<TStep> all = {
        {TFileRun::kRead, 1},     {TFileRun::kRead, 3},        {TFileRun::kGet, 1},          {TFileRun::kWrite, 1},
        {TFileRun::kWrite, 3},    {TFileRun::kSeekBeg, 0},     {TFileRun::kSeekBeg, 2},      {TFileRun::kSeekBeg, 9},
        {TFileRun::kSeekCur, -1}, {TFileRun::kSeekCur, 1},     {TFileRun::kSeekEnd, 0},      {TFileRun::kSeekEnd, 2},
        {TFileRun::kFlush, 0},    {TFileRun::kPutbackSame, 0}, {TFileRun::kPutbackOther, 0}, {TFileRun::kReopen, 0}};
    const size_t depth = 4;
    for (const char* start : {"", "xyz", "0123456"})
        for (int32 bufferSize : {0, 1, 2, 4})
            for (size_t code = 0; code < size_t(1) << (4 * depth); ++code)
            {
                std::vector<TStep> steps;
                for (size_t i = 0; i < depth; ++i)
                    steps.push_back(all[(code >> (4 * i)) & 15]);
                const std::string wrong = RunSteps(fDisk, BytesOf(start), bufferSize, steps);
                ASSERT_EQ(wrong, "");
            }
}

TEST_F(FileStreamTest, RandomLongSequencesKeepEveryByte)
{
    std::mt19937 random(20240611);
    for (int round = 0; round < 6000; ++round)
    {
        const TBytes start = BytesOf(std::string("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ", random() % 37));
        std::vector<TStep> steps;
        for (int i = 0; i < 40; ++i)
            steps.push_back({static_cast<TFileRun::EOperation>(random() % 10), static_cast<int32>(random() % 12)});
        const int32 bufferSize = static_cast<int32>(random() % 10);
        ASSERT_EQ(RunSteps(fDisk, start, bufferSize == 9 ? 64 : bufferSize, steps), "");
    }
}

// ---- Host calls that fail, or move fewer bytes ---------------------------------------------------------------------

// A writer that goes by good() and tell() loses nothing, whichever host call goes wrong.
TEST_F(FileStreamTest, BytesStayInTheBufferUntilTheHostTakesThem)
{
    const std::string text = "the quick brown fox";
    for (int32 bufferSize : {0, 1, 3, 8, 64})
        for (bool isShort : {false, true})
            for (int bad = 8; bad < 60; ++bad) // behind the calls that open the file
            {
                fDisk = TTestDisk();
                Put("0123456789012345678901234567890123456789");
                fDisk.fBadCall = bad;
                fDisk.fShort = isShort;
                TNqfstream stream(kPath, kUTF8Transcoder, eReadWrite, bufferSize, nullptr);
                ASSERT_TRUE(stream.good());
                const auto retry = [&](auto&& call)
                {
                    call();
                    if (!stream.good())
                        call();
                    ASSERT_TRUE(stream.good()) << bad;
                };
                const auto writeUpTo = [&](int32 last)
                {
                    int32 position = stream.tell();
                    if (position < 5) // it was the call that asks for the position
                        position = stream.tell();
                    stream.write(text.data() + (position - 5), last - position);
                };
                retry([&] { stream.seek(5, TNqiostream::beg); });
                retry([&] { writeUpTo(15); });
                retry([&] { writeUpTo(24); });
                retry(
                    [&]
                    {
                        stream.clear(0);
                        stream.flush();
                    });
                std::string back;
                retry([&] { stream.seek(4, TNqiostream::beg); });
                while (back.size() < 22)
                    retry(
                        [&]
                        {
                            int8 data[5];
                            stream.read(data, static_cast<int32>(std::min<size_t>(5, 22 - back.size())));
                            back.append(data, static_cast<size_t>(stream.gcount()));
                        });
                EXPECT_EQ(back, "4" + text + "45") << bufferSize << isShort << bad;
                stream.close();
                EXPECT_EQ(std::string(Disk().begin(), Disk().end()), "01234" + text + "4567890123456789") << bad;
                TakeReports();
            }
}

TEST_F(FileStreamTest, OpeningReportsTheFirstErrorAndLeavesNothingOpen)
{
    for (int32 mode : {int32(eRead), int32(eWrite), int32(eReadWrite)})
        for (bool exists : {true, false})
            for (int bad = 1;; ++bad)
            {
                fDisk = TTestDisk();
                if (exists)
                    Put("text");
                boolean created = 2;
                fDisk.fBadCall = bad;
                TNqfstream stream;
                const NqErr error = stream.Init(kPath, kUTF8Transcoder, mode, 16, &created);
                const bool opens = exists || mode != eRead;
                const bool reached = fDisk.fCalls >= bad;
                fDisk.fBadCall = 0;
                if (!reached)
                {
                    EXPECT_EQ(error, opens ? 0 : kNqErrFileNotFound);
                    EXPECT_EQ(created, opens && !exists);
                    EXPECT_EQ(stream.good(), opens);
                    break;
                }
                EXPECT_NE(error, 0) << mode << exists << bad;
                EXPECT_EQ(created, 0);
                EXPECT_FALSE(stream.good());
                EXPECT_EQ(fDisk.fOpen, 0) << mode << exists << bad;
            }
    EXPECT_EQ(fDisk.fFiles.count("/none"), 0u);
    TNqfstream noCreate("/none", kUTF8Transcoder, eReadWrite | kNqModeNoCreate, 16, nullptr);
    EXPECT_FALSE(noCreate.good());
    EXPECT_EQ(fDisk.fFiles.count("/none"), 0u);
}

TEST_F(FileStreamTest, ABufferThatCannotBeHadIsHalved)
{
    Put("0123456789");
    TTestFile* const file = new TTestFile(fDisk);
    TNqCountedPtr<INqFile> holder;
    ASSERT_EQ(file->QueryInterface(IID_INqFile, reinterpret_cast<void**>(&holder)), 0);
    file->Release();
    file->SetFileName(TNqString255(kPath), 0);
    class TStream : public TNqfstream
    {
    public:
        using TNqfstream::fBufferSize;
    };
    for (int failing : {0, 3, 20})
    {
        TStream stream;
        stream.SetTranscoder(kUTF8Transcoder);
        ASSERT_EQ(file->SetPermission(eRead), 0);
        // The stream's own file object is the first allocation; the buffers follow.
        TestHost().FailAllocations(2, failing);
        const NqErr error = stream.Init(*holder, 4096, nullptr, kUTF8Transcoder);
        TestHost().FailAllocations(0);
        EXPECT_EQ(error, failing == 20 ? kNqErrOutOfMemory : 0);
        EXPECT_EQ(stream.fBufferSize, failing == 20 ? 0u : 4096u >> failing);
    }
    TakeReports();
}

// ---- Modes, positions, identifiers ---------------------------------------------------------------------------------

TEST_F(FileStreamTest, ModesRefuseWhatTheyDoNotAllow)
{
    Put("old text");
    {
        TNqfstream out(kPath, kUTF8Transcoder, eWrite, 4, nullptr);
        EXPECT_EQ(Disk().size(), 0u) << "a file that is only written starts empty";
        int8 c = '-';
        out.write("abcdefgh", 8);
        out.get(c);
        out.putback('h');
        EXPECT_EQ(c, '-');
        out.seek(2, TNqiostream::beg);
        out.write("XY", 2);
        EXPECT_TRUE(out.good());
        EXPECT_EQ(TakeReports().size(), 2u);
    }
    EXPECT_EQ(Disk(), BytesOf("abXYefgh"));
    TNqfstream in(kPath, kUTF8Transcoder, eRead, 4, nullptr);
    in.write("no", 2);
    EXPECT_FALSE(in.good());
    in.seek(4, TNqiostream::end);
    int8 data[10] = {};
    in.read(data, 10);
    EXPECT_EQ(in.gcount(), 4);
    EXPECT_TRUE(in.eof());
    EXPECT_STREQ(data, "efgh");
    in.close();
    in.close();
    in.read(data, 1);
    in.seek(0, TNqiostream::beg);
    EXPECT_EQ(fDisk.fOpen, 0);
    EXPECT_EQ(TakeReports(), TTexts(3, "Stream throw TNqException"));
    EXPECT_EQ(fDisk.fLog.substr(fDisk.fLog.size() - 2), "wr");
}

TEST_F(FileStreamTest, PositionsCountFromBehindTheIdentifier)
{
    for (int32 bufferSize : {0, 2, 64})
    {
        {
            TNqfstream out(kPath, kUTF8Transcoder, eReadWrite, bufferSize, nullptr);
            out.WriteIdentifier();
            EXPECT_EQ(out.tell(), 0);
            out << "abc";
            EXPECT_EQ(out.tell(), 3);
        }
        EXPECT_EQ(Disk(), BytesOf("\xEF\xBB\xBF"
                                  "abc"));
        TNqfstream in(kPath, kMacTranscoder, eReadWrite, bufferSize, nullptr);
        in.CheckIdentifier();
        EXPECT_EQ(in.GetTranscoder()->GetType(), kUTF8Transcoder);
        EXPECT_EQ(in.tell(), 0);
        EXPECT_EQ(in.GetFileSize(), 3u);
        int8 c = 0;
        in.get(c);
        EXPECT_EQ(c, 'a');
        // Each seek adds the mark, also by `cur` and from the end.
        in.seek(-3, TNqiostream::cur);
        EXPECT_EQ(in.tell(), 1);
        in.seek(-1, TNqiostream::end);
        EXPECT_EQ(in.tell(), 1);
        in.Init(kPath, kUTF8Transcoder, eReadWrite, bufferSize, nullptr);
        EXPECT_EQ(in.GetFileSize(), 6u) << "another opening knows of no mark yet";
        Disk().clear();
    }
}

TEST_F(FileStreamTest, SynchTakesUpWhatAnotherWrote)
{
    for (int32 bufferSize : {0, 4})
    {
        Put("one");
        TNqfstream stream(kPath, kUTF8Transcoder, eReadWrite, bufferSize, nullptr);
        Put("one two");
        stream.synch();
        EXPECT_EQ(stream.tell(), 7);
        EXPECT_EQ(stream.GetFileSize(), 7u);
        stream << "!";
        stream.seek(3, TNqiostream::beg);
        TNqString255 word;
        stream >> word;
        EXPECT_STREQ(word.StrGet(), "two!");
        stream.append(-20);
        EXPECT_EQ(stream.GetFileSize(), 0u);
    }
}

// Nothing can be written behind the last position; nothing wraps.
TEST_F(FileStreamTest, PositionsEndAt31Bits)
{
    for (int32 bufferSize : {0, 16})
    {
        Put("abc");
        TNqfstream stream(kPath, kUTF8Transcoder, eReadWrite, bufferSize, nullptr);
        stream.seek(0x7FFFFFFF, TNqiostream::beg);
        EXPECT_TRUE(stream.eof());
        stream.seek(1, TNqiostream::cur);
        stream.seek(-0x7FFFFFFF - 1, TNqiostream::end);
        EXPECT_FALSE(stream.good());
        EXPECT_EQ(stream.tell(), 0x7FFFFFFF);
        if (bufferSize > 0)
        {
            stream.write("x", 1);
            EXPECT_FALSE(stream.good());
        }
    }
    EXPECT_EQ(Disk().size(), 3u);
    EXPECT_EQ(TakeReports().size(), 5u);
}

// ---- References and contexts ---------------------------------------------------------------------------------------

TEST_F(FileStreamTest, ReferencesAreRelativeAndComeBack)
{
    const struct
    {
        const char* fBase;
        const char* fPath;
        const char* fRef;
        const char* fBack;
    } cases[] = {
        {"/a/b/doc.x", "/a/c/tex.jpg", "::c:tex.jpg", "/a/c/tex.jpg"},
        {"/a/b/doc.x", "/A/B/tex.jpg", ":tex.jpg", "/a/b/tex.jpg"}, // case is the base's
        {"/a/b/doc.x", "/a/b/doc.x", ":doc.x", "/a/b/doc.x"},
        {"/a/b/doc.x", "/a/b/c/d/t", ":c:d:t", "/a/b/c/d/t"},
        {"/a/b/c/doc.x", "/z",
         ":::"
         ":z",
         "/z"},
        {"doc.x", "tex.jpg", "tex.jpg", "tex.jpg"},
        {"/a/doc", "/a/b\\c:d", ":b:c:d", "/a/b/c/d"},
        {"/a/b", "", "", ""},
        {"/a/[", "/a/{", ":{", "/a/{"}, // 32 apart but no letters
    };
    for (const auto& c : cases)
    {
        int8 ref[1024];
        int8 back[1024];
        TNqfstream::GetFileRef(c.fPath, ref, c.fBase);
        EXPECT_STREQ(ref, c.fRef) << c.fPath;
        TNqfstream::GetFullPathNameFromRef(ref, back, c.fBase);
        EXPECT_STREQ(back, c.fBack) << c.fRef;
    }
    int8 path[1024];
    TNqfstream::GetFullPathNameFromRef("::::x:y", path, "/a/b");
    EXPECT_STREQ(path, "x/y") << "more folders up than there are";
    TNqfstream::GetFullPathNameFromRef((":" + std::string(2000, 'n')).c_str(), path, "/a/b");
    EXPECT_EQ(std::strlen(path), 1023u);
    EXPECT_EQ(TakeReports(), TTexts{"Path is too long"});

    TNqfstream stream(kPath, kUTF8Transcoder, eReadWrite, 8, nullptr);
    stream.writeFileRef("/a/c/t\xC3\xA9x.jpg");
    stream.flush();
    EXPECT_EQ(Disk(), BytesOf("\"::c:t\xC3\xA9x.jpg\""));
    stream.seek(0, TNqiostream::beg);
    stream.readFileRef(path);
    EXPECT_STREQ(path, "/a/c/t\xC3\xA9x.jpg");
    TNqString255 folder;
    stream.GetPathRelativeFolder(folder);
    EXPECT_STREQ(folder.StrGet(), "/a/b");
    stream.SetInfo(7, 9);
    EXPECT_EQ(fDisk.fFiles["type"], (TBytes{9, 7}));
}

TEST_F(FileStreamTest, AContextReopensTheFileAtThePosition)
{
    Put("0123456789");
    fDisk.fFiles["/a/b/ren.x"] = BytesOf("abcdefghij");
    std::unique_ptr<TNqiostreamContext> context;
    {
        TNqfstream stream(kPath, kUTF8Transcoder, eRead, 4, nullptr);
        stream.seek(6, TNqiostream::beg);
        context.reset(stream.GetContext());
    }
    const auto next = [&]
    {
        std::unique_ptr<TNqiostream> stream(context->CreateStream());
        EXPECT_EQ(stream->GetTranscoder()->GetType(), kMacTranscoder);
        EXPECT_EQ(stream->tell(), 6);
        int8 c = 0;
        stream->get(c);
        stream->write(&c, 1);
        return std::string(1, c) + (stream->good() ? " written" : " refused");
    };
    EXPECT_EQ(next(), "6 refused");
    TakeReports();
    int8 other[] = "/a/b/other", from[] = "/a/b/doc.x", to[] = "/a/b/ren.x", longer[] = "/a/b/longer.x";
    context->Change(other, to, 1);
    context->Change(from, longer, 1);
    EXPECT_EQ(TakeReports().size(), 1u);
    context->Change(from, to, 1);
    int32 mode = eReadWrite;
    context->Change(nullptr, &mode, 2);
    EXPECT_EQ(next(), "g written");
}

} // namespace
