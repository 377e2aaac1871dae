#include "Tests/StreamDoubles.h"

namespace
{

constexpr char kPath[] = "/a/b/doc.x";

class FileStreamTest : public StreamTest
{
protected:
    std::string& Disk() { return fDisk.fFiles[kPath]; }
};

// ---- A file as a string and a position -----------------------------------------------------------------------------

// clang-format off
enum EOperation
{
    kRead, kGet, kWrite, kSeekBeg, kSeekCur, kSeekEnd, kPutbackSame, kPutbackOther, kFlush, kReopen, kSynch
};
// clang-format on

struct TStep
{
    EOperation fOperation;
    int32 fArgument;
};

constexpr int64 kLastPosition = 0x7FFFFFFF;

// Runs operations on a stream and on the model, and says what differs. A byte put back in place of another is seen by
// the read that follows at once, may be seen later, and never reaches the file. An operation whose host call goes wrong
// fails, and has done a part or nothing, which the position tells.
class TFileRun
{
public:
    TFileRun(TTestDisk& disk, int32 mode, int32 bufferSize)
        : fDisk(disk),
          fFile(disk.fFiles[kPath]),
          fMode(mode),
          fBufferSize(bufferSize),
          fStart(disk.fBefore > 0 ? disk.fBefore + 60 : 0)
    {
        Open();
    }

    // Empty when stream and model agree after each step; otherwise what differs, and the steps up to there.
    std::string Run(const std::vector<TStep>& steps)
    {
        std::string done;
        for (const TStep& step : steps)
        {
            if (!fWrong.empty())
                break;
            Do(step.fOperation, step.fArgument);
            done += " " + std::to_string(step.fOperation) + "(" + std::to_string(step.fArgument) + ")";
        }
        fDisk.fBadCall = 0;
        fStream.close();
        Check(fFile == fBytes, "file at the end");
        TakeReports();
        if (fWrong.empty())
            return "";
        return fWrong + done + ", mode " + std::to_string(fMode) + ", buffer of " + std::to_string(fBufferSize);
    }

private:
    void Check(bool holds, const char* what) { fWrong += holds || !fWrong.empty() ? "" : what; }
    int64 Size() const { return fDisk.fBefore + static_cast<int64>(fBytes.size()); }
    int8& At(int64 position) { return fBytes[static_cast<size_t>(position - fDisk.fBefore)]; }

    void Do(EOperation operation, int32 argument)
    {
        const int calls = fDisk.fCalls;
        const auto hostFailed = [&] { return calls < fDisk.fBadCall && fDisk.fBadCall <= fDisk.fCalls; };
        // clang-format off
        switch (operation)
        {
        case kRead: Read(argument, true, hostFailed); break;
        case kGet: Read(1, false, hostFailed); break;
        case kWrite: Write(argument, hostFailed); break;
        case kSeekBeg: Seek(fStart + argument, fStart + argument, TNqiostream::beg, hostFailed); break;
        case kSeekCur: Seek(fPosition + argument, argument, TNqiostream::cur, hostFailed); break;
        case kSeekEnd: Seek(Size() - argument, argument, TNqiostream::end, hostFailed); break;
        case kPutbackSame: Putback(false, hostFailed); break;
        case kPutbackOther: Putback(true, hostFailed); break;
        case kFlush: fStream.flush(); break;
        case kReopen: Open(); break;
        case kSynch: Synch(); break;
        }
        // clang-format on
        fJustPutBack = operation == kPutbackOther && !hostFailed();
        if (hostFailed())
        {
            Check(!fStream.good(), "failure");
            fState = TNqiostream::failbit | (fStream.eof() ? TNqiostream::eofbit : 0);
        }
        else if (operation == kFlush || operation == kReopen)
            Check(fFile == fBytes, "file");
        Check(fStream.tell() == fPosition, "position");
        Check(fStream.GetFileSize() == Size(), "size");
        Check(fStream.good() == (fState == 0) && fStream.eof() == (fState & TNqiostream::eofbit), "state");
    }

    bool IsRefused(EFilePermission permission)
    {
        fState |= fMode & permission ? 0 : TNqiostream::failbit;
        return !(fMode & permission);
    }

    void Open()
    {
        fStream.Init(kPath, kUTF8Transcoder, fMode, fBufferSize, nullptr);
        Check(fStream.good(), "state of a stream just opened");
        if (fMode == eWrite)
            fBytes.clear();
        Seek(fStart, fStart, TNqiostream::beg, [] { return false; });
    }

    template <class Failed>
    void Read(int32 argument, bool many, Failed hostFailed)
    {
        std::string data(20, '?');
        if (many)
            fStream.read(data.data(), argument);
        else
            fStream.get(data[0]);
        if (IsRefused(eRead))
            return;
        const int64 count = std::max(argument, 0);
        const int64 expected = std::min(count, std::max<int64>(Size() - fPosition, 0));
        const int64 found = fStream.gcount();
        Check(hostFailed() ? found >= 0 && found < expected : found == expected, "count");
        for (int64 i = 0; i < found && fWrong.empty(); ++i, ++fPosition)
        {
            const auto other = fOther.find(fPosition);
            const bool isOther = other != fOther.end() && other->second == data[i];
            const bool mustBeOther = i == 0 && fJustPutBack && fBufferSize > 0 && other != fOther.end();
            Check(mustBeOther ? isOther : data[i] == At(fPosition) || isOther, "bytes");
        }
        fState = expected < count ? TNqiostream::eofbit : 0;
    }

    template <class Failed>
    void Write(int32 count, Failed hostFailed)
    {
        std::string data;
        while (static_cast<int32>(data.size()) < count)
            data += fNext = fNext == 'z' ? 'a' : static_cast<int8>(fNext + 1);
        fStream.write(data.data(), count);
        if (IsRefused(eWrite))
            return;
        const bool fits = fPosition + std::max(count, 0) <= kLastPosition;
        fState = fits ? 0 : TNqiostream::failbit;
        if (hostFailed())
            data.resize(static_cast<size_t>(std::max<int64>(fStream.tell() - fPosition, 0)));
        if (data.empty() || !fits)
            return;
        fOther.clear();
        const size_t at = static_cast<size_t>(fPosition - fDisk.fBefore);
        fBytes.resize(std::max(fBytes.size(), at + data.size()));
        fBytes.replace(at, data.size(), data);
        fPosition += static_cast<int64>(data.size());
    }

    template <class Failed>
    void Seek(int64 position, int64 argument, TNqiostream::seek_dir dir, Failed hostFailed)
    {
        fStream.seek(static_cast<int32>(argument), dir);
        const bool isThere = position >= 0 && position <= kLastPosition;
        const bool atEnd = position > Size() || (fBufferSize == 0 && position == Size());
        fState = !isThere ? TNqiostream::failbit : atEnd ? TNqiostream::eofbit : 0;
        if (isThere && !hostFailed())
            fPosition = position, fOther.clear();
    }

    template <class Failed>
    void Putback(bool other, Failed hostFailed)
    {
        const bool inFile = fPosition > 0 && fPosition <= Size();
        fStream.putback(other || !inFile ? '!' : At(fPosition - 1));
        if (IsRefused(eRead) || hostFailed())
            return;
        fState |= fPosition == 0 ? TNqiostream::failbit : 0;
        if (fPosition == 0)
            return;
        fOther.erase(--fPosition);
        if (other && inFile)
            fOther[fPosition] = '!';
    }

    // What is not yet in the file is given up.
    void Synch()
    {
        const std::string before = fFile;
        fStream.synch();
        Check(fFile == before, "file given up");
        fBytes = fFile;
        fPosition = Size();
        fOther.clear();
    }

    TTestDisk& fDisk;
    const std::string& fFile; // what the host has
    std::string fBytes = fFile;
    int32 fMode;
    int32 fBufferSize;
    int64 fStart; // where positions are counted from
    TNqfstream fStream;
    int64 fPosition = 0;
    int32 fState = 0;
    int8 fNext = 'a';
    bool fJustPutBack = false;
    std::map<int64, int8> fOther; // put back in place of the byte there
    std::string fWrong;
};

// Bytes neither get lost nor change their place: in each mode, where positions end, and when the host fails once.
TEST_F(FileStreamTest, RandomSequencesKeepEveryByte)
{
    TRandom random(20240611);
    for (int round = 0; round < 20000; ++round)
    {
        const int kind = round % 8;
        fDisk = TTestDisk();
        Disk() = std::string("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ", random() % 37);
        int operations = 11;
        if (kind == 1)
        {
            Disk().insert(0, 64, '.');
            fDisk.fBefore = static_cast<uint32>(kLastPosition - static_cast<int64>(Disk().size()) - random.Below(20));
        }
        else if (kind == 2)
        {
            fDisk.fBadCall = 10 + random.Below(50); // behind the calls that open the file and go to its start
            operations = 9;
        }
        std::vector<TStep> steps;
        for (int i = 0; i < 40; ++i)
            steps.push_back(
                {static_cast<EOperation>(random.Below(operations)), random.OneIn(30) ? -3 : random.Below(12)});
        const int32 mode = kind == 3 ? eWrite : kind == 4 ? eRead : eReadWrite;
        ASSERT_EQ(TFileRun(fDisk, mode, std::max(random.Below(10), kind == 2 ? 1 : 0)).Run(steps), "") << round;
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
                Disk() = "0123456789012345678901234567890123456789";
                fDisk.fBadCall = bad;
                fDisk.fShort = isShort;
                TNqfstream stream(kPath, kUTF8Transcoder, eReadWrite, bufferSize, nullptr);
                ASSERT_TRUE(stream.good());
                const auto retry = [&](const std::function<void()>& call)
                {
                    call();
                    if (!stream.good())
                        call();
                    EXPECT_TRUE(stream.good()) << bad;
                };
                const auto writeUpTo = [&](int32 last)
                {
                    const int32 position = std::max(stream.tell(), stream.tell()); // one may be the call that fails
                    stream.write(text.data() + (position - 5), last - position);
                };
                retry([&] { stream.seek(5, TNqiostream::beg); });
                retry([&] { writeUpTo(15); });
                retry([&] { writeUpTo(24); });
                retry([&] { stream.clear(0), stream.flush(); });
                retry([&] { stream.seek(4, TNqiostream::beg); });
                std::string back(22, '?');
                for (int32 done = 0; done < 22;)
                    retry([&] { stream.read(back.data() + done, std::min(5, 22 - done)), done += stream.gcount(); });
                EXPECT_EQ(back, "4" + text + "45") << bufferSize << isShort << bad;
                stream.close();
                EXPECT_EQ(Disk(), "01234" + text + "4567890123456789") << bad;
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
                    Disk() = "text";
                boolean created = 2;
                TNqfstream stream("/other", kUTF8Transcoder, eReadWrite, 16, nullptr);
                stream << "kept";
                fDisk.fBadCall = fDisk.fCalls + 3 + bad; // behind the calls that close the other file
                const NqErr error = stream.Init(kPath, kUTF8Transcoder, mode, 16, &created);
                const bool opens = exists || mode != eRead;
                const bool reached = fDisk.fCalls >= fDisk.fBadCall;
                EXPECT_EQ(fDisk.fFiles["/other"], "kept");
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
    TNqfstream noCreate("/none", kUTF8Transcoder, eReadWrite | kNqModeNoCreate, 16, nullptr);
    EXPECT_FALSE(noCreate.good());
    EXPECT_EQ(fDisk.fFiles.count("/none"), 0u);
}

TEST_F(FileStreamTest, ABufferThatCannotBeHadIsHalved)
{
    Disk() = "0123456789";
    TNqCountedPtr<TTestFile> file;
    *file.GetAddress() = new TTestFile(fDisk);
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
        const NqErr error = stream.Init(*file, 4096, nullptr, kUTF8Transcoder);
        TestHost().FailAllocations(0);
        EXPECT_EQ(error, failing == 20 ? kNqErrOutOfMemory : 0);
        EXPECT_EQ(stream.fBufferSize, failing == 20 ? 0u : 4096u >> failing);
    }
    TakeReports();
}

// ---- Modes, positions, identifiers ---------------------------------------------------------------------------------

TEST_F(FileStreamTest, ModesRefuseWhatTheyDoNotAllow)
{
    Disk() = "old text";
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
    EXPECT_EQ(Disk(), "abXYefgh");
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
        TNqfstream out(kPath, kUTF8Transcoder, eReadWrite, bufferSize, nullptr);
        out.WriteIdentifier();
        EXPECT_EQ(out.tell(), 0);
        out << "abc";
        EXPECT_EQ(out.tell(), 3);
        out.close();
        EXPECT_EQ(Disk(), "\xEF\xBB\xBF"
                          "abc");
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

// Whatever its mode is, a file that was opened is closed, once; then nothing is allowed, and a context still knows it.
TEST_F(FileStreamTest, AClosedStreamKeepsWhatAContextNeeds)
{
    for (int32 mode : {0, int32(eRead), int32(eReadWrite)})
        for (int32 bufferSize : {0, 4})
        {
            Disk() = "0123456789";
            TNqfstream stream;
            stream.streamfail(0);
            EXPECT_EQ(stream.Init(kPath, kUTF8Transcoder, mode, bufferSize, nullptr), 0);
            EXPECT_TRUE(stream.good());
            stream.seek(6, TNqiostream::beg);
            EXPECT_EQ(fDisk.fOpen, 1) << mode;
            stream.close();
            stream.close();
            EXPECT_EQ(fDisk.fOpen, 0) << mode;
            TakeReports();
            int8 c = '-';
            stream.get(c);
            stream.putback(c);
            stream.write("x", 1);
            stream.seek(0, TNqiostream::beg);
            stream.synch();
            EXPECT_EQ(TakeReports(), TTexts(5, "Stream throw TNqException"));
            EXPECT_EQ(stream.tell(), 6);
            const std::unique_ptr<TNqiostreamContext> context(stream.GetContext());
            const std::unique_ptr<TNqiostream> again(context->CreateStream());
            EXPECT_EQ(again->tell(), 6);
            again->get(c);
            EXPECT_EQ(c, mode & eRead ? '6' : '-');
            again->write("x", 1);
            EXPECT_EQ(again->good(), mode == eReadWrite);
            TakeReports();
        }
}

// With a buffer and without: an operation of which a host call fails is not good.
TEST_F(FileStreamTest, EachHostCallThatFailsIsTold)
{
    const std::function<void(TNqfstream&)> operations[] = {
        [](TNqfstream& s) { s.close(); },
        [](TNqfstream& s) { s.synch(); },
        [](TNqfstream& s) { s.tell(); },
        [](TNqfstream& s) { s.seek(3, TNqiostream::end); },
        [](TNqfstream& s) { s.putback('4'); },
        [](TNqfstream& s) { s.write("0123456789", 10); },
        [](TNqfstream& s, std::string bytes = "1234567") { s.read(bytes.data(), 7); },
        [](TNqfstream& s) { s.GetStreamSize(); },
    };
    for (const int32 bufferSize : {0, 4})
        for (const auto& operate : operations)
            for (int bad = 1; bad != 0;)
            {
                Disk() = "0123456789ABCDEF";
                TNqfstream stream(kPath, kUTF8Transcoder, eReadWrite, bufferSize, nullptr);
                stream.seek(2, TNqiostream::beg);
                stream.write("ab", 2);
                fDisk.fBadCall = fDisk.fCalls + bad;
                operate(stream);
                const bool reached = fDisk.fCalls >= fDisk.fBadCall;
                EXPECT_EQ(stream.good(), !reached) << (&operate - operations) << " with " << bufferSize << ", " << bad;
                fDisk.fBadCall = 0;
                bad = reached ? bad + 1 : 0;
                TakeReports();
            }
}

// Without memory for its transcoder a stream would write in another encoding than the one asked for.
TEST_F(FileStreamTest, OpeningWithoutATranscoderFails)
{
    ForEachFailingAllocation(
        [&](int64)
        {
            TNqfstream stream;
            const NqErr error = stream.Init(kPath, kMacTranscoder, eReadWrite, 1, nullptr);
            EXPECT_EQ(stream.good(), error == 0);
            EXPECT_TRUE(error != 0 || stream.GetTranscoder() != nullptr);
        });
    TNqstrstream memory(kUTF8Transcoder);
    memory << "kept";
    TestHost().FailAllocations(1);
    memory.SetTranscoder(kMacTranscoder);
    EXPECT_FALSE(memory.good());
    TakeReports();
}

// These move about, and each seek clears the state: a failure on the way is still told.
TEST_F(FileStreamTest, MeasuringAndLookingForTheMarkTellFailures)
{
    Disk() = "\xEF\xBB\xBF"
             "abc";
    for (int32 bufferSize : {0, 2, 64})
        for (const bool measures : {true, false})
            for (int n = 1;; ++n)
            {
                TNqfstream stream(kPath, kMacTranscoder, eRead, bufferSize, nullptr);
                stream.seek(1, TNqiostream::beg);
                fDisk.fBadCall = fDisk.fCalls + n;
                const int32 size = measures ? stream.GetStreamSize() : 6;
                if (!measures)
                    stream.CheckIdentifier();
                const bool reached = fDisk.fCalls >= fDisk.fBadCall;
                fDisk.fBadCall = 0;
                EXPECT_EQ(stream.good(), !reached) << n;
                TakeReports();
                if (reached)
                    continue;
                EXPECT_EQ(stream.tell(), measures ? 1 : 0);
                EXPECT_EQ(size, 6);
                break;
            }
}

TEST_F(FileStreamTest, SynchTakesUpWhatAnotherWrote)
{
    for (int32 bufferSize : {0, 4})
    {
        Disk() = "one";
        TNqfstream stream(kPath, kUTF8Transcoder, eReadWrite, bufferSize, nullptr);
        Disk() = "one two";
        fDisk.fBadCall = fDisk.fCalls + 1;
        stream.synch();
        EXPECT_FALSE(stream.good());
        EXPECT_EQ(stream.GetFileSize(), 3u) << "what is not known stays";
        stream.synch();
        EXPECT_EQ(stream.tell(), 7);
        stream << "!";
        EXPECT_EQ(stream.GetFileSize(), 8u);
        stream.flush();
        EXPECT_EQ(Disk(), "one two!");
        stream.append(-20);
        EXPECT_EQ(stream.GetFileSize(), 0u);
        stream.append(0x7FFFFFFF);
        stream.append(1);
        EXPECT_EQ(stream.GetFileSize(), 0x7FFFFFFFu);
        TakeReports();
    }
}

// Nothing can be written behind the last position; nothing wraps, with a mark before the text.
TEST_F(FileStreamTest, PositionsEndAt31Bits)
{
    Disk() = "\xEF\xBB\xBF"
             "abc";
    for (int32 bufferSize : {0, 16})
    {
        TNqfstream stream(kPath, kUTF8Transcoder, eReadWrite, bufferSize, nullptr);
        stream.CheckIdentifier();
        stream.seek(0x7FFFFFFC, TNqiostream::beg);
        EXPECT_TRUE(stream.eof());
        const std::pair<int32, TNqiostream::seek_dir> tooFar[] = {{1, TNqiostream::cur},
                                                                  {0x7FFFFFFF, TNqiostream::cur},
                                                                  {0x7FFFFFFD, TNqiostream::beg},
                                                                  {-0x7FFFFFFF - 1, TNqiostream::end}};
        for (const auto& [offset, dir] : tooFar)
        {
            stream.seek(offset, dir);
            EXPECT_FALSE(stream.good());
            EXPECT_EQ(stream.tell(), 0x7FFFFFFC);
        }
        stream.write("x", 1);
        EXPECT_FALSE(stream.good());
    }
    EXPECT_EQ(Disk().size(), 6u);
    EXPECT_EQ(TakeReports().size(), 10u);
}

// ---- References and contexts ---------------------------------------------------------------------------------------

TEST_F(FileStreamTest, ReferencesAreRelativeAndComeBack)
{
    // clang-format off
    const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
        {"/a/b/doc.x", "/a/c/tex.jpg", "::c:tex.jpg", "/a/c/tex.jpg"}, {"/a/b/doc.x", "/A/B/tex.jpg", ":tex.jpg", "/a/b/tex.jpg"},
        {"/a/b/doc.x", "/a/b/doc.x", ":doc.x", "/a/b/doc.x"}, {"/a/b/doc.x", "/a/b/c/d/t", ":c:d:t", "/a/b/c/d/t"},
        {"/a/b/c/doc.x", "/z", "::::z", "/z"}, {"doc.x", "tex.jpg", "tex.jpg", "tex.jpg"}, {"/a/b", "", "", ""},
        {"/a/doc", "/a/b\\c:d", ":b:c:d", "/a/b/c/d"}, {"/a/[", "/a/{", ":{", "/a/{"}};
    // clang-format on
    for (const auto& [base, full, expected, back] : cases)
    {
        int8 ref[1024], again[1024];
        TNqfstream::GetFileRef(full, ref, base);
        EXPECT_STREQ(ref, expected) << full;
        TNqfstream::GetFullPathNameFromRef(ref, again, base);
        EXPECT_STREQ(again, back) << expected;
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
    EXPECT_EQ(Disk(), "\"::c:t\xC3\xA9x.jpg\"");
    stream.seek(0, TNqiostream::beg);
    stream.readFileRef(path);
    EXPECT_STREQ(path, "/a/c/t\xC3\xA9x.jpg");
    TNqString255 folder;
    stream.GetPathRelativeFolder(folder);
    EXPECT_STREQ(folder.StrGet(), "/a/b");
    stream.SetInfo(7, 9);
    EXPECT_EQ(fDisk.fLog.substr(fDisk.fLog.size() - 3), "9 7");
}

// A path is read whole or, reported, not at all, and what stands behind it comes next.
TEST_F(FileStreamTest, LongPathsComeBackWhole)
{
    const std::string deep = std::string(400, 'd') + "/x/y/z/doc.x", quotes = "\" x";
    for (const std::string& base : {std::string("/doc.x"), "/" + deep})
        for (size_t length : {1, 255, 256, 257, 258, 700, 1022, 1023, 1024, 5000})
            for (const char* start : {"", "/", "/e/"})
            {
                std::string path = start;
                while (path.size() < length)
                    path += quotes[path.size() % 3];
                const bool fits = path.size() <= 1023;
                const auto use = [&](TNqiostream& stream)
                {
                    int8 found[1024];
                    stream.writeFileRef(path.c_str());
                    stream << "x\"";
                    stream.seek(0, TNqiostream::beg);
                    stream.readFileRef(found);
                    EXPECT_STREQ(found, fits ? path.c_str() : "");
                    stream.get(*found);
                    EXPECT_EQ(*found, 'x');
                    EXPECT_EQ(TakeReports(), fits ? TTexts{} : TTexts{"Path is too long"}) << path.size();
                };
                TNqstrstream memory(kUTF8Transcoder);
                TDerived<TNqstrstream> derived(kUTF8Transcoder);
                TNqfstream file(base.c_str(), kUTF8Transcoder, eReadWrite, 64, nullptr);
                for (TNqiostream* stream : {static_cast<TNqiostream*>(&memory), static_cast<TNqiostream*>(&derived),
                                            static_cast<TNqiostream*>(&file)})
                    use(*stream);
                fDisk.fFiles.clear();
            }
}

// The bytes of a path pass through the transcoder as text in its encoding; another stream translates the path itself.
TEST_F(FileStreamTest, ReferencesPassThroughTheTranscoder)
{
    int8 path[1024];
    {
        TNqfstream stream(kPath, kMacTranscoder, eReadWrite, 8, nullptr);
        stream.writeFileRef("/a/\xC3\xA9");
        stream.seek(0, TNqiostream::beg);
        stream.readFileRef(path);
    }
    EXPECT_EQ(Disk(), "\"::\xC3\xA9\"");
    EXPECT_STREQ(path, "/a/\xE2\x88\x9A\xC2\xA9");
    EXPECT_EQ(WrittenBy([](TNqiostream& out) { out.writeFileRef("/a/\xC3\xA9"); }, kMacTranscoder), "\"/a/\x8E\"");
    // Without memory no other path takes its place.
    ForEachFailingAllocation(
        [&](int64)
        {
            TNqfstream stream("/f", kUTF8Transcoder, eReadWrite, 0, nullptr);
            const bool opened = stream.good();
            stream.writeFileRef("/a/name");
            stream.close();
            EXPECT_EQ(fDisk.fFiles["/f"], opened && stream.good() ? "\":a:name\"" : "");
            fDisk.fFiles.clear();
        });
}

TEST_F(FileStreamTest, AContextReopensTheFileAtThePosition)
{
    Disk() = "0123456789";
    fDisk.fFiles["/a/b/ren.x"] = "abcdefghij";
    TNqfstream original(kPath, kUTF8Transcoder, eRead, 4, nullptr);
    original.seek(6, TNqiostream::beg);
    const std::unique_ptr<TNqiostreamContext> context(original.GetContext());
    original.close();
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
