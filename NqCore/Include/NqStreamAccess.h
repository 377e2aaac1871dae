// Where scanners take their bytes from and writers put theirs, without a virtual call for each byte where that can be
// had.
//
//     int32 CountBlanks(TNqiostream& stream)
//     {
//         return NqWithSource(stream, [](auto& source) {
//             int32 count = 0;
//             int8 c = 0;
//             if (source.GetWhile(c, [&](int8 byte) { return byte == ' ' && ++count > 0; }))
//                 source.Putback(c);
//             return count;
//         });
//     }
//
// A scanner is one function template over a byte source, a writer one over a byte sink. There are two kinds of each:
//   the plain one makes exactly the virtual calls get, putback, read and write: it serves every class that is derived;
//   the direct ones work in the buffer of a TNqstrstream or TNqfstream, and only of exactly these classes. After each
//   call the stream's fields (position, state, count, buffer) are what the virtual call would have left: nothing is
//   kept outside of the stream, so any other call may be made on Stream() at any time, and an exception may pass.
// What the buffer cannot give is a virtual call again: of the two classes this file needs nothing but fields and types.
// Random tests run the same operations over both kinds and compare everything.

#pragma once

#include "NqCore/Include/NqByteSearch.h"
#include "NqCore/PublicAPI/NqStream.h"

#include <algorithm>
#include <cstring>
#include <typeinfo>

// How the number that an operator read last came to its end.
enum ENqNumberEnd : uint8
{
    kNqNumberUnknown,  // not set since the reader set this: a derived class reads numbers in a way of its own
    kNqNumberMissing,  // the stream ended before the number began
    kNqNumberBad,      // something else stood there
    kNqNumberClosed,   // what stands behind the number was left in the stream, or the stream ended
    kNqNumberAndBlank, // the separator behind the number was consumed
    kNqNumberCut,      // the stream failed before the end of the number could be seen, or left in it
};

// The one class that the streams let at their fields.
class NqStreamAccess
{
public:
    // ---- Sources ---------------------------------------------------------------------------------------------------
    //
    // Get(c)           one byte; at the end of the stream c stays and Eof() holds
    // GetWhile(c, f)   gets bytes as long as f(c) is true, which must not touch the stream. True when it stopped at a
    //                  byte, consumed and in c; false when the stream was not good any more.
    // GetUntil(c, f)   gets bytes up to the first of a set (NqByteSearch.h), which is then in c; those before it go to
    //                  f(first, last) in runs. True and false as GetWhile.
    // ReadWhile, ReadUntil  the same, each byte by a read of one: Count() tells
    // Putback(c)       steps back over the byte c
    // Read(data, n)    as the stream's read; Count() says how many bytes came
    // IsWhite(c)       whether c is one of the stream's separators
    // Cursor           the same bytes one by one, for a scanner that looks at each: a local object that keeps its place
    //                  in the buffer in a register. While it lives nothing else may use the source.

    class PlainSource
    {
    public:
        static constexpr bool kIsDirect = false;

        explicit PlainSource(TNqiostream& ioStream) : fStream(ioStream) {}

        void Get(int8& c) { fStream.get(c); }
        void Putback(int8 c) { fStream.putback(c); }
        void Read(int8* outData, int32 inCount) { fStream.read(outData, inCount); }

        template <class Take>
        bool GetWhile(int8& c, Take&& inTake)
        {
            do
            {
                fStream.get(c);
                if (!fStream.good())
                    return false;
            } while (inTake(c));
            return true;
        }

        template <class Take>
        bool ReadWhile(int8& c, Take&& inTake)
        {
            do
            {
                fStream.read(&c, 1);
                if (!fStream.good())
                    return false;
            } while (inTake(c));
            return true;
        }

        template <class Set, class TakeRun>
        bool GetUntil(int8& c, TakeRun&& inTake)
        {
            return GetWhile(c, [&](int8 byte) { return !Set::Has(byte) && (inTake(&byte, &byte + 1), true); });
        }

        template <class Set, class TakeRun>
        bool ReadUntil(int8& c, TakeRun&& inTake)
        {
            return ReadWhile(c, [&](int8 byte) { return !Set::Has(byte) && (inTake(&byte, &byte + 1), true); });
        }

        bool Eof() const { return fStream.eof(); }
        bool Good() const { return fStream.good(); }
        int32 Count() const { return fStream.gcount(); }
        bool IsWhite(int8 c) const { return IsSeparator(fStream, c); }
        TNqiostream& Stream() { return fStream; }

        class Cursor
        {
        public:
            explicit Cursor(PlainSource& ioSource) : fStream(ioSource.fStream) {}

            // False when the stream is not good any more.
            bool Next(int8& c)
            {
                fStream.get(c);
                return fStream.good();
            }
            // As GetWhile.
            template <class Take>
            bool NextWhile(int8& c, Take&& inTake)
            {
                while (Next(c))
                    if (!inTake(c))
                        return true;
                return false;
            }
            void Back(int8 c) { fStream.putback(c); }
            bool IsWhite(int8 c) const { return IsSeparator(fStream, c); }

        private:
            TNqiostream& fStream;
        };

    private:
        TNqiostream& fStream;
    };

    // What the two direct sources share. Derived says how many bytes its buffer has at hand (Left: 0 or less when the
    // stream has to look first) and where (At), and moves over them as `get` does (Take).
    template <class Derived, class StreamClass>
    class DirectSource
    {
    public:
        static constexpr bool kIsDirect = true;

        explicit DirectSource(StreamClass& ioStream) : fStream(ioStream) {}

        void Get(int8& c)
        {
            if (Self().Left() <= 0)
                return Self().GetFromStream(c);
            c = *Self().At();
            Self().Take(1);
        }

        void Read(int8* outData, int32 inCount)
        {
            if (inCount <= 0 || inCount > Self().Left())
                return fStream.read(outData, inCount);
            std::memcpy(outData, Self().At(), static_cast<size_t>(inCount));
            Self().Take(inCount);
            fStream.fgcount = inCount;
        }

        void Putback(int8 c)
        {
            if (Self().CanStepBackOver(c))
                Self().StepBack();
            else
                fStream.putback(c);
        }

        template <class TakeByte>
        bool GetWhile(int8& c, TakeByte&& inTake)
        {
            return TakeRuns(c, ByGet(), StopAtByte(inTake));
        }

        template <class TakeByte>
        bool ReadWhile(int8& c, TakeByte&& inTake)
        {
            return NoteRead(TakeRuns(c, ByRead(), StopAtByte(inTake)));
        }

        template <class Set, class TakeRun>
        bool GetUntil(int8& c, TakeRun&& inTake)
        {
            return TakeRuns(c, ByGet(), StopAtSet<Set>(inTake));
        }

        template <class Set, class TakeRun>
        bool ReadUntil(int8& c, TakeRun&& inTake)
        {
            return NoteRead(TakeRuns(c, ByRead(), StopAtSet<Set>(inTake)));
        }

        // The bytes in the buffer behind the position, for a scanner that takes many in one step.
        struct Bytes
        {
            const int8* fFirst;
            const int8* fLast;

            int64 Count() const { return fLast - fFirst; }
        };
        Bytes AtHand()
        {
            const int8* const first = Self().At();
            return {first, first + std::max<int64>(Self().Left(), 0)};
        }
        // The same for words, of which the general way takes a byte too many and steps back: none where bytes must be
        // written before that.
        Bytes WordsAtHand() { return Self().MustWriteFirst() ? Bytes{nullptr, nullptr} : AtHand(); }
        // And for numbers: none where the stream has separators of its own.
        Bytes NumbersAtHand()
        {
            return fStream.fSeparators == TNqiostream::fStandardSeparators ? WordsAtHand() : Bytes{nullptr, nullptr};
        }
        // Moves over bytes at hand, as Get of each.
        void Pass(int64 inBytes) { Self().Take(inBytes); }
        // The same when the last of them came by Read.
        void PassRead(int64 inBytes)
        {
            Self().Take(inBytes);
            fStream.fgcount = 1;
        }

        bool Eof() const { return fStream.eof(); }
        bool Good() const { return fStream.good(); }
        int32 Count() const { return fStream.gcount(); }
        bool IsWhite(int8 c) const { return IsSeparator(fStream, c); }
        TNqiostream& Stream() { return fStream; }

        // All of it is inlined into the scanner, so that the cursor itself is never in memory.
        class Cursor
        {
        public:
            explicit Cursor(Derived& ioSource)
                : fSource(ioSource),
                  fStandard(ioSource.fStream.fSeparators == TNqiostream::fStandardSeparators)
            {
                Open();
            }
            Cursor(const Cursor&) = delete;
            Cursor& operator=(const Cursor&) = delete;
            [[gnu::always_inline]] ~Cursor() { Close(); }

            [[gnu::always_inline]] bool Next(int8& c)
            {
                if (fAt == fLast)
                    return NextFromStream(c);
                c = *fAt++;
                return true;
            }

            // The inner loop makes no call: what `ioTake` changes stays in registers.
            template <class TakeByte>
            [[gnu::always_inline]] bool NextWhile(int8& c, TakeByte&& inTake)
            {
                do
                {
                    while (fAt != fLast)
                    {
                        c = *fAt++;
                        if (!inTake(c))
                            return true;
                    }
                    if (!NextFromStream(c))
                        return false;
                } while (inTake(c));
                return true;
            }

            [[gnu::always_inline]] void Back(int8 c)
            {
                if (fAt == fFirst || fAt[-1] != c || fSource.MustWriteFirst())
                    return BackIntoStream(c);
                --fAt;
                fSteppedBack = true;
            }

            [[gnu::always_inline]] bool IsWhite(int8 c) const
            {
                return fStandard ? IsStandardSeparator(c) : IsSeparator(fSource.fStream, c);
            }

        private:
            [[gnu::always_inline]] void Open()
            {
                fFirst = fAt = fSource.At();
                fLast = fAt + std::max<int64>(fSource.Left(), 0);
                fSteppedBack = false;
            }

            [[gnu::always_inline]] void Close()
            {
                if (fAt != fFirst || fSteppedBack)
                    fSource.Take(fAt - fFirst);
            }

            [[gnu::always_inline]] bool NextFromStream(int8& c)
            {
                Close();
                int8 byte = c;
                fSource.GetFromStream(byte);
                c = byte;
                Open();
                return fSource.Good();
            }

            [[gnu::always_inline]] void BackIntoStream(int8 c)
            {
                Close();
                fSource.Putback(c);
                Open();
            }

            Derived& fSource;
            bool fStandard;
            bool fSteppedBack;
            const int8* fFirst;
            const int8* fAt;
            const int8* fLast;
        };

    protected:
        StreamClass& fStream;

    private:
        // Bytes up to one at which inStop says to stop, consumed and in c: inStop(first, last) gives the place of that
        // one, or last. inNext(c) has the stream itself give a byte: it loads the next buffer, or meets the end.
        template <class NextByte, class Stop>
        bool TakeRuns(int8& c, NextByte&& inNext, Stop&& inStop)
        {
            for (;;)
            {
                if (const auto [first, last] = AtHand(); first != last)
                {
                    const int8* const stop = inStop(first, last);
                    const int8* const behind = stop != last ? stop + 1 : last;
                    c = behind[-1];
                    Self().Take(behind - first);
                    if (stop != last)
                        return true;
                }
                inNext(c);
                if (!fStream.good())
                    return false;
                if (inStop(&c, &c + 1) == &c)
                    return true;
            }
        }

        auto ByGet()
        {
            return [this](int8& next) { Self().GetFromStream(next); };
        }
        auto ByRead()
        {
            return [this](int8& next) { fStream.read(&next, 1); };
        }
        bool NoteRead(bool inStopped)
        {
            if (inStopped)
                fStream.fgcount = 1;
            return inStopped;
        }

        template <class TakeByte>
        static auto StopAtByte(TakeByte& ioTake)
        {
            return [&ioTake](const int8* first, const int8* last)
            {
                while (first != last && ioTake(*first))
                    ++first;
                return first;
            };
        }
        template <class Set, class TakeRun>
        static auto StopAtSet(TakeRun& ioTake)
        {
            return [&ioTake](const int8* first, const int8* last)
            {
                const int8* const stop = NqFindByte<Set>(first, last);
                if (stop != first)
                    ioTake(first, stop);
                return stop;
            };
        }

        Derived& Self() { return static_cast<Derived&>(*this); }
    };

    class MemorySource : public DirectSource<MemorySource, TNqstrstream>
    {
    public:
        using DirectSource::DirectSource;

    private:
        friend class DirectSource<MemorySource, TNqstrstream>;

        int64 Left() const { return fStream.fBufferSize - (fStream.fCur - fStream.fBuffer); }
        const int8* At() const { return fStream.fCur; }
        void GetFromStream(int8& c) { fStream.get(c); }
        void StepBack() { --fStream.fCur; }
        bool MustWriteFirst() const { return false; }

        void Take(int64 inBytes)
        {
            fStream.fCur += inBytes;
            fStream.fState = 0;
        }

        bool CanStepBackOver(int8 c) const
        {
            return fStream.fBufferSize >= 0 && fStream.fCur != fStream.fBuffer && fStream.fCur[-1] == c;
        }
    };

    class FileSource : public DirectSource<FileSource, TNqfstream>
    {
    public:
        using DirectSource::DirectSource;

    private:
        friend class DirectSource<FileSource, TNqfstream>;

        int64 Left() const
        {
            if (!fStream.Allows(eRead) || !fStream.fFirstBufferLoaded || fStream.fBuffer == nullptr)
                return 0;
            const int64 inFile = static_cast<int64>(fStream.fFileSize) - fStream.fBufferOffset;
            return std::min<int64>(fStream.fActualBufSize, inFile) - fStream.fBufferPos;
        }
        const int8* At() const { return fStream.fBuffer + fStream.fBufferPos; }
        void GetFromStream(int8& c) { fStream.read(&c, 1); }
        void StepBack() { --fStream.fBufferPos; }
        bool MustWriteFirst() const { return fStream.fBufferModified; } // before the position goes backwards

        void Take(int64 inBytes)
        {
            fStream.fBufferPos += static_cast<uint32>(inBytes);
            fStream.fgcount = 1;
            fStream.fState = 0;
        }

        bool CanStepBackOver(int8 c) const
        {
            return fStream.Allows(eRead) && fStream.fFirstBufferLoaded && fStream.fBuffer != nullptr &&
                   !MustWriteFirst() && fStream.fBufferPos > 0 && fStream.fBuffer[fStream.fBufferPos - 1] == c;
        }
    };

    // ---- Sinks -----------------------------------------------------------------------------------------------------
    //
    // Write(data, n)    as the stream's write
    // Put(c)            one byte
    // PutEach(data, n)  n bytes, each written by itself
    // Run(body)         body(), which calls operations of the stream itself
    // Failed()          whether one of these failed
    //
    // A sink serves one value. That is often several writes, each of which begins by clearing the state: so once one
    // has failed the sink does nothing more, and the failure stays where the caller looks for it.

    // Follows the state of the stream while a value is written.
    class ValueState
    {
    public:
        explicit ValueState(TNqiostream& ioStream)
            : fStream(ioStream),
              fMarks((ioStream.fState & (TNqiostream::failbit | kFailedBefore)) == TNqiostream::failbit)
        {
            if (fMarks)
                ioStream.fState |= kFailedBefore;
        }
        ValueState(const ValueState&) = delete;
        ValueState& operator=(const ValueState&) = delete;
        ~ValueState()
        {
            if (fMarks)
                fStream.fState &= ~kFailedBefore;
        }

        bool Failed() const { return fFailed; }
        TNqiostream& Stream() { return fStream; }
        int Precision() const { return DecimalsOf(fStream); }

        template <class Body>
        void Run(Body&& inBody)
        {
            if (fFailed)
                return;
            inBody();
            Look();
        }

    protected:
        void Look()
        {
            if (fStream.fState & TNqiostream::failbit)
                fFailed = !(fStream.fState & kFailedBefore);
            else
                fStream.fState &= ~kFailedBefore;
        }

    private:
        // Beside the failure bit while a value is written: that failure is an older one, of a stream whose write does
        // not clear its state. A connection may still send after a number that was none.
        static constexpr int32 kFailedBefore = 4;

        TNqiostream& fStream;
        bool fMarks; // this is the one that set the mark
        bool fFailed = false;
    };

    class PlainSink : public ValueState
    {
    public:
        static constexpr bool kIsDirect = false;

        using ValueState::ValueState;

        void Write(const int8* inData, int32 inCount)
        {
            Run([&] { Stream().write(inData, inCount); });
        }
        void Put(int8 c) { Write(&c, 1); }
        void PutEach(const int8* inData, int64 inCount)
        {
            for (int64 i = 0; i < inCount && !Failed(); ++i)
                Write(inData + i, 1);
        }
    };

    // What the two direct sinks share: Derived says how much room the buffer has and puts bytes into it.
    template <class Derived, class StreamClass>
    class DirectSink : public ValueState
    {
    public:
        static constexpr bool kIsDirect = true;

        explicit DirectSink(StreamClass& ioStream) : ValueState(ioStream), fStream(ioStream) {}

        void Write(const int8* inData, int32 inCount)
        {
            if (inCount > 0 && inCount <= RoomAtHand())
                Self().Store(inData, inCount);
            else
                WriteToStream(inData, inCount);
        }

        void Put(int8 c) { Write(&c, 1); }

        // How many bytes go straight into the buffer, whatever they are cut into; 0 where the stream has to look first.
        int64 RoomAtHand() { return Failed() ? 0 : std::max<int64>(Self().Room(), 0); }

        // Where the buffer is full one byte goes to the stream, which makes room in its own way, and the run goes on.
        void PutEach(const int8* inData, int64 inCount)
        {
            while (inCount > 0 && !Failed())
            {
                const int64 run = std::min(inCount, RoomAtHand());
                if (run > 0)
                    Self().Store(inData, run);
                else
                    WriteToStream(inData, 1);
                const int64 done = std::max<int64>(run, 1);
                inData += done;
                inCount -= done;
            }
        }

    protected:
        StreamClass& fStream;

    private:
        void WriteToStream(const int8* inData, int32 inCount)
        {
            Run([&] { fStream.write(inData, inCount); });
        }

        Derived& Self() { return static_cast<Derived&>(*this); }
    };

    class MemorySink : public DirectSink<MemorySink, TNqstrstream>
    {
    public:
        using DirectSink::DirectSink;

    private:
        friend class DirectSink<MemorySink, TNqstrstream>;

        int64 Room() const
        {
            if (fStream.fBufferSize < 0)
                return 0;
            return std::max(fStream.fBufferSize, fStream.fBufferAllocatedSize) - (fStream.fCur - fStream.fBuffer);
        }

        void Store(const int8* inData, int64 inCount)
        {
            std::memcpy(fStream.fCur, inData, static_cast<size_t>(inCount));
            fStream.fCur += inCount;
            fStream.fBufferSize = std::max(fStream.fBufferSize, fStream.pcount());
            fStream.fState = 0;
        }
    };

    class FileSink : public DirectSink<FileSink, TNqfstream>
    {
    public:
        using DirectSink::DirectSink;

    private:
        friend class DirectSink<FileSink, TNqfstream>;

        // Nothing while the stream itself has to look first: for put-back bytes, or the end of what positions can
        // express.
        int64 Room() const
        {
            const bool plain = fStream.Allows(eWrite) && fStream.fBuffer != nullptr &&
                               !(fStream.fFirstBufferLoaded & TNqfstream::kHoldsPutback) &&
                               static_cast<int64>(fStream.fBufferOffset) + fStream.fBufferSize <= kLastPosition;
            return plain ? static_cast<int64>(fStream.fBufferSize) - fStream.fBufferPos : 0;
        }

        void Store(const int8* inData, int64 inCount)
        {
            std::memcpy(fStream.fBuffer + fStream.fBufferPos, inData, static_cast<size_t>(inCount));
            NoteBytesWritten(fStream, static_cast<uint32>(inCount));
            fStream.fState = 0;
        }
    };

    static constexpr int64 kLastPosition = 0x7FFFFFFF; // of a file

    // ---- Single fields ---------------------------------------------------------------------------------------------

    static uint8& NumberEnd(TNqiostream& ioStream) { return ioStream.fNumberEnd; }

    // Moves the position over bytes that have just been put into the buffer of a file.
    static void NoteBytesWritten(TNqfstream& ioStream, uint32 inCount)
    {
        ioStream.fBufferPos += inCount;
        ioStream.fActualBufSize = std::max(ioStream.fActualBufSize, ioStream.fBufferPos);
        ioStream.fBufferModified = true;
        ioStream.fFileSize = std::max(ioStream.fFileSize, ioStream.fBufferOffset + ioStream.fBufferPos);
    }

    // The bytes of a memory stream; none once the block has been handed out.
    static int32 MemorySize(const TNqstrstream& inStream) { return std::max(inStream.fBufferSize, 0); }
    static const int8* MemoryBytes(const TNqstrstream& inStream) { return inStream.fBuffer; }
    static bool IsReadable(const TNqiostream& inStream) { return (inStream.fMode & eRead) != 0; }

    static bool IsStandardSeparator(int8 c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

private:
    static bool IsSeparator(const TNqiostream& inStream, int8 c)
    {
        return inStream.fSeparators == TNqiostream::fStandardSeparators ? IsStandardSeparator(c) : inStream.isWhite(c);
    }

    static int DecimalsOf(const TNqiostream& inStream) { return inStream.fPrecision; }
};

using NqPlainSource = NqStreamAccess::PlainSource;
using NqPlainSink = NqStreamAccess::PlainSink;

// Whether the stream is of exactly this class. The addresses suffice: were there two type objects of one class in a
// process, the plain kind would be chosen, with the same results.
template <class Class>
inline bool NqIsExactly(const TNqiostream& inStream)
{
    return &typeid(inStream) == &typeid(Class);
}

// Calls inBody(source) with the fastest source there is for the stream, and returns its result.
template <class Body>
inline decltype(auto) NqWithSource(TNqiostream& ioStream, Body&& inBody)
{
    if (NqIsExactly<TNqstrstream>(ioStream))
    {
        NqStreamAccess::MemorySource source(static_cast<TNqstrstream&>(ioStream));
        return inBody(source);
    }
    if (NqIsExactly<TNqfstream>(ioStream))
    {
        NqStreamAccess::FileSource source(static_cast<TNqfstream&>(ioStream));
        return inBody(source);
    }
    NqPlainSource source(ioStream);
    return inBody(source);
}

// The same with a sink.
template <class Body>
inline decltype(auto) NqWithSink(TNqiostream& ioStream, Body&& inBody)
{
    if (NqIsExactly<TNqstrstream>(ioStream))
    {
        NqStreamAccess::MemorySink sink(static_cast<TNqstrstream&>(ioStream));
        return inBody(sink);
    }
    if (NqIsExactly<TNqfstream>(ioStream))
    {
        NqStreamAccess::FileSink sink(static_cast<TNqfstream&>(ioStream));
        return inBody(sink);
    }
    NqPlainSink sink(ioStream);
    return inBody(sink);
}
