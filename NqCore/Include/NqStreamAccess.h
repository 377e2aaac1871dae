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
// Random tests run the same operations over both kinds and compare everything.

#pragma once

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
};

// The one class that the streams let at their fields.
class NqStreamAccess
{
public:
    // ---- Sources
    // -------------------------------------------------------------------------------------------------------
    //
    // Get(c)           one byte; at the end of the stream c stays and Eof() holds
    // GetWhile(c, f)   gets bytes as long as f(c) is true; true when it stopped at a byte, which is consumed and in c,
    // false when the
    //                  stream was not good any more. f must not touch the stream.
    // Putback(c)       steps back over the byte c
    // Read(data, n)    as the stream's read; Count() says how many bytes came
    // IsWhite(c)       whether c is one of the stream's separators

    class PlainSource
    {
    public:
        static constexpr bool kIsDirect = false;

        explicit PlainSource(TNqiostream& stream) : fStream(stream) {}

        void Get(int8& c) { fStream.get(c); }
        void Putback(int8 c) { fStream.putback(c); }
        void Read(int8* data, int32 count) { fStream.read(data, count); }

        template <class Take>
        bool GetWhile(int8& c, Take&& take)
        {
            do
            {
                fStream.get(c);
                if (!fStream.good())
                    return false;
            } while (take(c));
            return true;
        }

        bool Eof() const { return fStream.eof(); }
        bool Good() const { return fStream.good(); }
        int32 Count() const { return fStream.gcount(); }
        bool IsWhite(int8 c) const { return IsSeparator(fStream, c); }
        TNqiostream& Stream() { return fStream; }

    private:
        TNqiostream& fStream;
    };

    class MemorySource
    {
    public:
        static constexpr bool kIsDirect = true;

        explicit MemorySource(TNqstrstream& stream) : fStream(stream) {}

        void Get(int8& c)
        {
            if (Left() > 0)
            {
                c = *fStream.fCur++;
                fStream.fState = 0;
            }
            else
                fStream.fState = TNqiostream::eofbit;
        }

        void Putback(int8 c)
        {
            if (fStream.fBufferSize >= 0 && fStream.fCur != fStream.fBuffer && fStream.fCur[-1] == c)
                --fStream.fCur;
            else
                fStream.TNqstrstream::putback(c);
        }

        void Read(int8* data, int32 count)
        {
            if (count <= 0 || count > Left())
                return fStream.TNqstrstream::read(data, count);
            std::memcpy(data, fStream.fCur, static_cast<size_t>(count));
            fStream.fCur += count;
            fStream.fgcount = count;
            fStream.fState = 0;
        }

        template <class Take>
        bool GetWhile(int8& c, Take&& take)
        {
            int8* const first = fStream.fCur;
            int8* const last = first + std::max<int64>(Left(), 0);
            int8* p = first;
            bool stopped = false;
            while (p != last && !stopped)
                stopped = !take(*p++);
            if (p != first)
                c = p[-1];
            fStream.fCur = p;
            fStream.fState = stopped ? 0 : TNqiostream::eofbit;
            return stopped;
        }

        bool Eof() const { return fStream.eof(); }
        bool Good() const { return fStream.good(); }
        int32 Count() const { return fStream.gcount(); }
        bool IsWhite(int8 c) const { return IsSeparator(fStream, c); }
        TNqiostream& Stream() { return fStream; }

    private:
        int64 Left() const { return fStream.fBufferSize - (fStream.fCur - fStream.fBuffer); }

        TNqstrstream& fStream;
    };

    class FileSource
    {
    public:
        static constexpr bool kIsDirect = true;

        explicit FileSource(TNqfstream& stream) : fStream(stream) {}

        void Get(int8& c)
        {
            if (Left() > 0)
            {
                c = fStream.fBuffer[fStream.fBufferPos];
                Advance(1, 1);
            }
            else
                fStream.TNqfstream::read(&c, 1);
        }

        void Putback(int8 c)
        {
            if (Left() >= 0 && fStream.fBufferPos > 0 && !fStream.fBufferModified &&
                fStream.fBuffer[fStream.fBufferPos - 1] == c)
                --fStream.fBufferPos;
            else
                fStream.TNqfstream::putback(c);
        }

        void Read(int8* data, int32 count)
        {
            if (count <= 0 || count > Left())
                return fStream.TNqfstream::read(data, count);
            std::memcpy(data, fStream.fBuffer + fStream.fBufferPos, static_cast<size_t>(count));
            Advance(static_cast<uint32>(count), count);
        }

        template <class Take>
        bool GetWhile(int8& c, Take&& take)
        {
            for (;;)
            {
                if (GetFromBuffer(c, take))
                    return true;
                fStream.TNqfstream::read(&c, 1); // loads the next buffer, or meets the end
                if (!fStream.good())
                    return false;
                if (!take(c))
                    return true;
            }
        }

        bool Eof() const { return fStream.eof(); }
        bool Good() const { return fStream.good(); }
        int32 Count() const { return fStream.gcount(); }
        bool IsWhite(int8 c) const { return IsSeparator(fStream, c); }
        TNqiostream& Stream() { return fStream; }

    private:
        // The bytes that can be taken from the buffer; -1 when the stream itself has to look first.
        int64 Left() const
        {
            if (!(fStream.fMode & eRead) || !fStream.fFirstBufferLoaded || fStream.fBuffer == nullptr)
                return -1;
            const int64 inFile = static_cast<int64>(fStream.fFileSize) - fStream.fBufferOffset;
            return std::min<int64>(fStream.fActualBufSize, inFile) - fStream.fBufferPos;
        }

        void Advance(uint32 bytes, int32 count)
        {
            fStream.fBufferPos += bytes;
            fStream.fgcount = count;
            fStream.fState = 0;
        }

        template <class Take>
        bool GetFromBuffer(int8& c, Take& take)
        {
            const int64 left = Left();
            if (left <= 0)
                return false;
            const int8* const first = fStream.fBuffer + fStream.fBufferPos;
            const int8* const last = first + left;
            const int8* p = first;
            bool stopped = false;
            while (p != last && !stopped)
                stopped = !take(*p++);
            c = p[-1];
            Advance(static_cast<uint32>(p - first), 1);
            return stopped;
        }

        TNqfstream& fStream;
    };

    // ---- Sinks
    // ---------------------------------------------------------------------------------------------------------
    //
    // Write(data, n)    as the stream's write
    // Put(c)            one byte
    // PutEach(data, n)  n bytes, each written by itself

    class PlainSink
    {
    public:
        static constexpr bool kIsDirect = false;

        explicit PlainSink(TNqiostream& stream) : fStream(stream) {}

        void Write(const int8* data, int32 count) { fStream.write(data, count); }
        void Put(int8 c) { fStream.write(&c, 1); }
        void PutEach(const int8* data, int64 count)
        {
            for (int64 i = 0; i < count; ++i)
                fStream.write(data + i, 1);
        }

        int Precision() const { return DecimalsOf(fStream); }
        TNqiostream& Stream() { return fStream; }

    private:
        TNqiostream& fStream;
    };

    // What the two direct sinks share: Derived says how much room the buffer has and puts bytes into it.
    template <class Derived>
    class DirectSink
    {
    public:
        static constexpr bool kIsDirect = true;

        void Write(const int8* data, int32 count)
        {
            if (count > 0 && count <= Self().Room())
                Self().Store(data, count);
            else
                Self().WriteToStream(data, count);
        }

        void Put(int8 c) { Write(&c, 1); }

        // Where the buffer is full one byte goes to the stream, which makes room in its own way, and the run goes on.
        void PutEach(const int8* data, int64 count)
        {
            while (count > 0)
            {
                const int64 run = std::min(count, std::max<int64>(Self().Room(), 0));
                if (run > 0)
                    Self().Store(data, run);
                else
                    Self().WriteToStream(data, 1);
                const int64 done = std::max<int64>(run, 1);
                data += done;
                count -= done;
            }
        }

        int Precision() { return DecimalsOf(Self().Stream()); }

    private:
        Derived& Self() { return static_cast<Derived&>(*this); }
    };

    class MemorySink : public DirectSink<MemorySink>
    {
    public:
        explicit MemorySink(TNqstrstream& stream) : fStream(stream) {}

        TNqiostream& Stream() { return fStream; }

        int64 Room() const
        {
            if (fStream.fBufferSize < 0)
                return 0;
            return std::max(fStream.fBufferSize, fStream.fBufferAllocatedSize) - (fStream.fCur - fStream.fBuffer);
        }

        void Store(const int8* data, int64 count)
        {
            std::memcpy(fStream.fCur, data, static_cast<size_t>(count));
            fStream.fCur += count;
            fStream.fBufferSize = std::max(fStream.fBufferSize, fStream.pcount());
            fStream.fState = 0;
        }

        void WriteToStream(const int8* data, int32 count) { fStream.TNqstrstream::write(data, count); }

    private:
        TNqstrstream& fStream;
    };

    class FileSink : public DirectSink<FileSink>
    {
    public:
        explicit FileSink(TNqfstream& stream) : fStream(stream) {}

        TNqiostream& Stream() { return fStream; }

        // Nothing while the stream itself has to look first: for put-back bytes, or the end of what positions can
        // express.
        int64 Room() const
        {
            const bool plain = (fStream.fMode & eWrite) && fStream.fBuffer != nullptr &&
                               !(fStream.fFirstBufferLoaded & TNqfstream::kHoldsPutback) &&
                               static_cast<int64>(fStream.fBufferOffset) + fStream.fBufferSize <= kLastPosition;
            return plain ? static_cast<int64>(fStream.fBufferSize) - fStream.fBufferPos : 0;
        }

        void Store(const int8* data, int64 count)
        {
            std::memcpy(fStream.fBuffer + fStream.fBufferPos, data, static_cast<size_t>(count));
            fStream.NoteBytesWritten(static_cast<uint32>(count));
            fStream.fState = 0;
        }

        void WriteToStream(const int8* data, int32 count) { fStream.TNqfstream::write(data, count); }

    private:
        TNqfstream& fStream;
    };

    static constexpr int64 kLastPosition = 0x7FFFFFFF; // of a file

    // ---- Single fields
    // -------------------------------------------------------------------------------------------------

    static uint8& NumberEnd(TNqiostream& stream) { return stream.fNumberEnd; }

    // The bytes of a memory stream; none once the block has been handed out.
    static int32 MemorySize(const TNqstrstream& stream) { return std::max(stream.fBufferSize, 0); }
    static const int8* MemoryBytes(const TNqstrstream& stream) { return stream.fBuffer; }
    static bool IsReadable(const TNqiostream& stream) { return (stream.fMode & eRead) != 0; }

private:
    static bool IsSeparator(const TNqiostream& stream, int8 c)
    {
        if (stream.fSeparators == TNqiostream::fStandardSeparators)
            return c == ' ' || c == '\n' || c == '\r' || c == '\t';
        return stream.isWhite(c);
    }

    static int DecimalsOf(const TNqiostream& stream) { return stream.fPrecision; }
};

using NqPlainSource = NqStreamAccess::PlainSource;
using NqPlainSink = NqStreamAccess::PlainSink;

// Whether the stream is of exactly this class. The addresses suffice: were there two type objects of one class in a
// process, the plain kind would be chosen, with the same results.
template <class Class>
inline bool NqIsExactly(const TNqiostream& stream)
{
    return &typeid(stream) == &typeid(Class);
}

// Calls inBody(source) with the fastest source there is for the stream, and returns its result.
template <class Body>
inline decltype(auto) NqWithSource(TNqiostream& stream, Body&& inBody)
{
    if (NqIsExactly<TNqstrstream>(stream))
    {
        NqStreamAccess::MemorySource source(static_cast<TNqstrstream&>(stream));
        return inBody(source);
    }
    if (NqIsExactly<TNqfstream>(stream))
    {
        NqStreamAccess::FileSource source(static_cast<TNqfstream&>(stream));
        return inBody(source);
    }
    NqPlainSource source(stream);
    return inBody(source);
}

// The same with a sink.
template <class Body>
inline decltype(auto) NqWithSink(TNqiostream& stream, Body&& inBody)
{
    if (NqIsExactly<TNqstrstream>(stream))
    {
        NqStreamAccess::MemorySink sink(static_cast<TNqstrstream&>(stream));
        return inBody(sink);
    }
    if (NqIsExactly<TNqfstream>(stream))
    {
        NqStreamAccess::FileSink sink(static_cast<TNqfstream&>(stream));
        return inBody(sink);
    }
    NqPlainSink sink(stream);
    return inBody(sink);
}
