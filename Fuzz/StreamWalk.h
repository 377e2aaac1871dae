// Runs the same reads on streams whose bytes the library takes from the buffer, and on streams whose every call it
// makes.

#pragma once

#include "Fuzz/FuzzTargets.h"
#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqStream.h"

#include <sys/mman.h>
#include <unistd.h>

namespace NqFuzz
{

// A class of its own, so the library may assume nothing about it.
template <class Stream>
class TPlain : public Stream
{
public:
    using Stream::Stream;
};

// What a walk saw.
class TTrace
{
public:
    void Note(const void* bytes, size_t count) { fText.append(static_cast<const char*>(bytes), count); }
    template <class T>
    void Note(const T& value)
    {
        Note(&value, sizeof value);
    }
    void NoteState(TNqiostream& stream)
    {
        Note(stream.tell());
        Note(stream.good());
        Note(stream.eof());
    }
    const std::string& Text() const { return fText; }

private:
    std::string fText;
};

// Calls step(stream, trace) until it returns false, throws without having read anything, or has read as often as `most`
// allows. Exceptions are noted like results.
template <class Step>
void Walk(TNqiostream& stream, size_t most, TTrace& trace, Step step)
{
    bool more = true;
    for (size_t i = 0; more && i < most; ++i)
    {
        const int32 before = stream.tell();
        try
        {
            more = step(stream, trace);
        }
        catch (const TNqException& error)
        {
            trace.Note(error.GetError());
            more = stream.tell() > before;
        }
        trace.NoteState(stream);
    }
}

template <class Stream, class Step>
TTrace WalkMemory(std::vector<int8> text, Step step)
{
    TTrace trace;
    Stream stream(text.data(), static_cast<int32>(text.size()), kUTF8Transcoder, eReadWrite);
    Walk(stream, 2 * text.size() + 8, trace, step);
    trace.Note(text.data(), text.size()); // putback may have changed it
    return trace;
}

// With a buffer that ends at every place, sooner or later.
template <class Stream, class Step>
TTrace WalkFile(const std::string& path, size_t size, Step step)
{
    TTrace trace;
    Stream stream(path.c_str(), kUTF8Transcoder, eRead, static_cast<int32>(size % 61), nullptr);
    Require(stream.good(), "the file opens");
    Walk(stream, 2 * size + 8, trace, step);
    return trace;
}

// A file in memory.
class TMemoryFile
{
public:
    explicit TMemoryFile(const std::vector<int8>& bytes) : fDescriptor(::memfd_create("fuzz", MFD_CLOEXEC))
    {
        Require(::write(fDescriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
                "the file is made");
    }
    ~TMemoryFile() { ::close(fDescriptor); }
    TMemoryFile(const TMemoryFile&) = delete;
    TMemoryFile& operator=(const TMemoryFile&) = delete;

    std::string Path() const { return "/proc/self/fd/" + std::to_string(fDescriptor); }

private:
    int fDescriptor;
};

template <class Step>
void RequireSameWalk(const std::vector<int8>& text, Step step)
{
    if (text.empty())
        return; // a size of 0 has another meaning for streams over memory
    const TTrace memory = WalkMemory<TNqstrstream>(text, step);
    Require(memory.Text() == WalkMemory<TPlain<TNqstrstream>>(text, step).Text(),
            "memory is read as through its calls");
    const TMemoryFile file(text);
    const TTrace buffered = WalkFile<TNqfstream>(file.Path(), text.size(), step);
    Require(buffered.Text() == WalkFile<TPlain<TNqfstream>>(file.Path(), text.size(), step).Text(),
            "a file's buffer is read as through its calls");
}

} // namespace NqFuzz
