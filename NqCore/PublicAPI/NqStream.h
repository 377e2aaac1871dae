// Streams: text and bytes, read and written in one place of a file or of memory after the other.
//
// TNqiostream is the abstract stream that all persistent data passes through. Numbers are decimal text, read back by
// scanners that skip separators; strings stand between double quotes with backslash escapes, their characters passed
// through the stream's transcoder. Behind it:
//   TNqfstream    a file of the host, buffered
//   TNqstrstream  memory: the caller's, a string's, or a block of its own that grows
//   countstream   nothing but a count of the bytes that would be written
//   TNqNetStream  a connection (NqNetStream.h)
// For named values in nested blocks use the token format (NqToken.h), which works on any of them.
//
//     TNqfstream out("/tmp/size.txt", kUTF8Transcoder, eReadWrite, 65536, nullptr);
//     out << int32(640) << ' ' << 1.5 << endl;
//     out.flush();
//     if (!out.good())
//         ...                                   // a write failed: already reported
//     out.seekg(0, TNqiostream::beg);
//     int32 width = 0;
//     real64 scale = 0;
//     out >> width >> scale;                    // no separator is written between values: write them yourself
//
// State: eof() says that a read met the end, fail() that an operation failed, good() that neither happened. A failure
// is reported to the host, "Stream throw TNqException", and never thrown. Every read, write and seek of memory or of a
// file begins by clearing the state, so look at it before the next one. A value is often several writes: after one that
// failed nothing more of the value is written, and the failure stays, so that good() behind each value is enough.
// Whoever reads to the end looks at fail() there: a disk that cannot be read ends the loop as the end does.
//
// Ownership: a stream owns its buffer and its info records and holds references to its file, transcoder and context.
//
// Threads: a stream belongs to one thread at a time.
//
// Cost: on TNqstrstream and TNqfstream themselves scanners and writers work in the stream's own buffer; a class derived
// from any stream sees each byte pass its virtual operations.
//
// Derived classes override the six primitives. An override hides the other overloads of its name: bring them back with
// `using TNqiostream::get;` and `using TNqiostream::read;`. The order of the virtual operations, and of the fields, is
// a contract with modules built elsewhere.

#pragma once

#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqString.h"

class INqFile;
class TNqiostream;

// What a stream, or a file of the host, may be used for.
enum EFilePermission : int
{
    eRead = 1,
    eWrite = 2, // alone: the file is emptied when it is opened
    eReadWrite = 3,
    eAlways = 4
};

// Modes beyond the permissions.
constexpr int32 kNqModeKeepPermission = 32; // alone: the file keeps the permission that it has
constexpr int32 kNqModeNoCreate = 64;       // a file that is missing is not made

// What failed; the codes that streams pass to streamfail.
constexpr int32 kNqStreamBadNumber = 17001;
constexpr int32 kNqStreamOutOfRange = 17002; // a position out of range, or no room
constexpr int32 kNqStreamReadAtEnd = 17003;
constexpr int32 kNqStreamNotAllowed = 17004; // not in this state or mode
constexpr int32 kNqStreamNilBuffer = 17005;  // a null buffer with a size

// What encloses a string and what comes before a quote inside it.
extern const int8 kStringQuote[2];
extern const int8 kStringEscape;

// 10^0 to 10^15, indexed by a stream's precision.
extern const real64 gPowersTen[16];

// State of a caller's own, passed along with a stream through code that sees only the stream.
class IStreamContext : public INqUnknown
{
protected:
    ~IStreamContext() = default;
};

// A recipe from which a stream like another can be made again, for instance to read a part of a document later.
class TNqiostreamContext : public TNqObject
{
public:
    virtual ~TNqiostreamContext();
    // A new stream, owned by the caller; null without memory.
    virtual TNqiostream* CreateStream() = 0;
    // Adapts the recipe to a change of what it refers to; what the arguments mean is up to the class.
    virtual void Change(void* a, void* b, short inWhat) = 0;
};

// A block that a client attached to a stream.
struct TNqiostreamInfoStruct
{
    IDType fInfoID;
    void* fData; // from Nqmalloc, owned by the stream
};

class TNqiostream : public TNqObject
{
public:
    enum seek_dir
    {
        beg = 0,
        cur = 1,
        end = 2
    };
    enum // bits of the state
    {
        eofbit = 1,
        failbit = 2
    };

    TNqiostream();
    TNqiostream(const TNqiostream&) = delete;
    TNqiostream& operator=(const TNqiostream&) = delete;
    virtual ~TNqiostream();

    // ---- The primitives --------------------------------------------------------------------------------------------

    // Bytes from the start of the text, behind a byte-order mark.
    virtual int32 tell() = 0;
    virtual void seek(int32 inOffset, seek_dir dir) = 0;
    // Up to `inCount` bytes; fewer, and the end bit, at the end. gcount() says how many.
    virtual void read(int8* outData, int32 inCount) = 0;
    // One byte; at the end the end bit, with `c` as it was. Here: read(&c, 1).
    virtual void get(int8& c);
    // Steps back over the byte just read. Another byte than that one is seen by the next read, where the stream has
    // room for it.
    virtual void putback(int8 c) = 0;
    virtual void write(const int8* inData, int32 inCount) = 0;

    // ---- Text in ---------------------------------------------------------------------------------------------------

    // Numbers, words and characters skip separators first; a separator behind a number is consumed, behind a word not.
    // A number that is none is a failure and leaves its target as it was (int32: 0).

    virtual TNqiostream& operator>>(int8* outWord);  // unbounded: see ReadString
    virtual TNqiostream& operator>>(uint8* outWord); // unbounded
    virtual TNqiostream& operator>>(int8& c);
    virtual TNqiostream& operator>>(uint8& c);
    virtual TNqiostream& operator>>(int32& outValue);
    virtual TNqiostream& operator>>(uint32& outValue);
    virtual TNqiostream& operator>>(int16& outValue); // the low 16 bits of the number
    virtual TNqiostream& operator>>(uint16& outValue);
    virtual TNqiostream& operator>>(real32& outValue);
    virtual TNqiostream& operator>>(real64& outValue);
    virtual TNqiostream& operator>>(TNqString& outText); // as readQuotedString
    virtual TNqiostream& operator>>(TNqiostream& (*inManipulator)(TNqiostream&));

    // ---- Text out --------------------------------------------------------------------------------------------------

    virtual TNqiostream& operator<<(const int8* inText); // up to the NUL, without quotes
    virtual TNqiostream& operator<<(const uint8* inText);
    virtual TNqiostream& operator<<(int8 c); // the byte itself
    virtual TNqiostream& operator<<(uint8 c);
    virtual TNqiostream& operator<<(int32 inValue);
    virtual TNqiostream& operator<<(uint32 inValue);
    virtual TNqiostream& operator<<(int16 inValue);
    virtual TNqiostream& operator<<(uint16 inValue);
    virtual TNqiostream& operator<<(int64 inValue); // only the low 32 bits: existing readers take no more
    virtual TNqiostream& operator<<(uint64 inValue);
    virtual TNqiostream& operator<<(real32 inValue);
    virtual TNqiostream& operator<<(real64 inValue);
    virtual TNqiostream& operator<<(const TNqString& inText); // quoted
    virtual TNqiostream& operator<<(TNqiostream& (*inManipulator)(TNqiostream&));

    // ---- References to other files, contexts, localized strings ----------------------------------------------------

    // A path as a quoted string. The file stream stores it relative to its own folder. `inPath` holds up to 1023 bytes
    // and a NUL; a longer one is written, but reading passes it over, reports it and leaves `inPath` empty.
    virtual void readFileRef(int8* outPath);
    virtual void writeFileRef(const int8* inPath);
    // The folder that relative references are taken from; empty without one.
    virtual void GetPathRelativeFolder(TNqString& outFolder);
    // A recipe for a stream like this one at this position, owned by the caller; null when the stream has none.
    virtual TNqiostreamContext* GetContext();
    // The context set last, without a reference for the caller; null without one.
    virtual IStreamContext* GetStreamContext();
    virtual void SetStreamContext(IStreamContext* inContext);
    // Text that some streams keep in a table beside them. Here it stands in the stream itself, and both readers take
    // off the tags of old texts (TNqString::TranslateAfterRead).
    virtual void WriteLocalizedString(const TNqString& inText);
    virtual boolean ReadLocalizedString(TNqString& outText);
    virtual void ReadLocalizedDynamicString(TNqDynamicString& outText);

    // ---- Bytes, lines, words ---------------------------------------------------------------------------------------

    // False for a connection: tell and seek must not be called then.
    boolean CanSeek() const { return !fSequential; }
    int32 tellg() { return tell(); }
    void seekg(int32 inOffset, seek_dir dir) { seek(inOffset, dir); }
    void read(uint8* outData, int32 inCount) { read(reinterpret_cast<int8*>(outData), inCount); }
    void put(int8 c) { write(&c, 1); }

    // A line of up to `inSize` bytes into a buffer of `inSize` + 1, NUL-terminated. The delimiter is consumed and not
    // stored; with '\n', CR, LF and both together end a line and count as '\n'. Returns what ended the line: the
    // delimiter, the first byte without room (consumed), or 0 at the end of the stream.
    int8 getline(int8* outBuffer, int32 inSize, int8 inDelim);
    // The same, and the delimiter is put back; of a line end its last byte, as it was.
    int8 get(int8* outBuffer, int32 inSize, int8 inDelim);
    // The same without a limit. A last line without a line end counts as read: the end bit is set only when there was
    // nothing.
    int8 getLine(TNqDynamicString& outLine, int8 inDelim);
    // What the last read, or line, took from the stream.
    int32 gcount() const { return fgcount; }

    // One word of at most inBufferSize - 1 bytes. False when it is longer: the rest stays in the stream.
    boolean ReadString(int8* outBuffer, int32 inBufferSize);
    void readstring(int8* outWord); // unbounded
    // The next character that is no separator, consumed.
    int8 myipfx();
    boolean isWhite(int8 c) const;

    // ---- Numbers and strings: what the operators do ----------------------------------------------------------------

    void readlong(int32& outValue);
    void readunsignedlong(uint32& outValue);
    void readdouble(real64& outValue);
    void writelong(int32 inValue);
    void writeunsignedlong(uint32 inValue);
    void writefloat(real32 inValue);  // rounded to six decimals first
    void writedouble(real64 inValue); // `precision` decimals, no exponent; beyond +-2147483647 that number
    void writestring(const int8* inText);

    // A string in quotes, or a bare word up to a blank. At most 256 bytes; what is longer stays in the stream.
    void readQuotedString(TNqString& outText);
    void writeQuotedString(const TNqString& inText);
    // A string in quotes on one line, "\n" and "\r" in it being line ends. False, and an empty text, when there is no
    // such string, or one of more than inMaxLength + 1 bytes.
    boolean ReadSingleLineQuotedString(TNqString& outText, uint32 inMaxLength);

    // ---- State and format ------------------------------------------------------------------------------------------

    boolean good() const { return fState == 0; }
    boolean eof() const { return fState & eofbit; }
    boolean fail() const { return (fState & failbit) != 0; }
    void clear(int32 inState) { fState = inState; }
    void changestate(int32 inBits) { fState |= inBits; }
    // Sets the failure bit and tells the host. The code is for the reader of the source; nothing keeps it.
    void streamfail(int32 inCode);

    int32 precision(int32 inDecimals); // of reals, clamped to 0..15; returns the one before
    int32 width(int32 inColumns);      // kept and returned; nothing uses it

    // The flags are kept and influence no output. A mask that is not 0 clears all flags: callers rely on it.
    int32 setf(int32 inBits) { return fFlags |= inBits; }
    int32 setf(int32 inBits, int32 inMask);
    int32 unsetf(int32 inMask);

    // ---- What belongs to the stream --------------------------------------------------------------------------------

    // Attaches a copy of `inSize` bytes under `inId`, in place of the one before. Without memory, reported, nothing
    // changes.
    void SetInfo(IDType inId, const void* inData, uint32 inSize);
    // The copy, null without one. Valid until the next SetInfo of that id.
    void* GetInfo(IDType inId) const;

    int32 GetStreamSize(); // the position is as before

    // Strings pass through a transcoder; without one their characters are UTF-8. Asks the host when the type is another
    // one.
    void SetTranscoder(TranscoderType inType);
    ITranscoder* GetTranscoder() const { return fEncoding; }
    // Writes the byte-order mark of the transcoder, if it has one.
    void WriteIdentifier();
    // Looks for the mark of UTF-8 at the position and takes over that encoding when it is there. Seeks to the start.
    void CheckIdentifier();

protected:
    friend class NqStreamAccess;

    static int8 fStandardSeparators[5];

    int32 fFlags;
    int32 fState;
    EFilePermission fMode;
    int fPrecision;
    int fWidth;
    int32 fgcount;
    int8* fSeparators;             // NUL-terminated, not owned
    TNqiostreamInfoStruct* fInfos; // in no order that a caller could know
    uint32 fInfosCount;
    TNqCountedPtr<ITranscoder> fEncoding;
    uint8 fIDOffset;     // bytes of the byte-order mark before the text
    uint8 fNumberEnd;    // an ENqNumberEnd, for readers of lists
    boolean fSequential; // a derived class has no positions
    boolean fFileOpen;   // of a TNqfstream: there was no room for it behind the fields of its own
    TNqCountedPtr<IStreamContext> fStreamContext;

private:
    TNqiostreamInfoStruct* AddInfo(IDType inId);
};

static_assert(sizeof(TNqiostream) == 80 && sizeof(TNqiostreamInfoStruct) == 16, "other modules derive from streams");

// Manipulators.
TNqiostream& endl(TNqiostream& ioStream); // one CR: that is the line end of every text this library writes
TNqiostream& ends(TNqiostream& ioStream); // one NUL
TNqiostream& dec(TNqiostream& ioStream);
TNqiostream& hex(TNqiostream& ioStream);

// A stream over memory.
//
//     TNqstrstream out(kUTF8Transcoder);          // a block of its own, which grows
//     out << int32(42) << endl;
//     TNqstrstream in(out.str(), 3, kUTF8Transcoder, eRead); // str() hands the block over: Nqfree it
//
// Ownership: a caller's buffer, or string, must outlive the stream.
// Failure: a caller's buffer that is full refuses the bytes.
// Cost: the own block grows so that n bytes written one by one cost time in the order of n.
class TNqstrstream : public TNqiostream
{
public:
    // Over `inSize` bytes of the caller's; size 0: up to the NUL of the text, reading only.
    TNqstrstream(int8* inBuffer, int32 inSize, TranscoderType inType, int32 inMode);
    // Reads a NUL-terminated text in place.
    TNqstrstream(int8* inText, TranscoderType inType);
    // Reads the string's bytes in place. A putback of another byte than the one read changes the string.
    TNqstrstream(const TNqDynamicString& inText, TranscoderType inType);
    TNqstrstream(TNqDynamicString&& inText, TranscoderType inType) = delete;
    // Writes into a block of its own.
    explicit TNqstrstream(TranscoderType inType);
    ~TNqstrstream() override;

    using TNqiostream::get;
    using TNqiostream::read;
    int32 tell() override;
    // From the end, the offset counts backwards. A position outside of the bytes is a failure.
    void seek(int32 inOffset, seek_dir dir) override;
    void read(int8* outData, int32 inCount) override;
    void get(int8& c) override;
    void putback(int8 c) override;
    void write(const int8* inData, int32 inCount) override;

    // Called when a caller's buffer is full, to empty it and go back to its start. Here: a failure.
    virtual void FlushBuffer();

    // The memory. A block of the stream's own passes to the caller, who frees it with Nqfree; the stream is of no
    // further use.
    int8* str();
    int32 pcount() const { return static_cast<int32>(fCur - fBuffer); }
    // The bytes of a stream opened for reading; a failure otherwise (use pcount).
    int32 GetSize();

protected:
    friend class NqStreamAccess;

    int8* fBuffer;
    int32 fBufferSize;          // valid bytes; -1 once the own block has been handed out
    int32 fBufferAllocatedSize; // capacity of the own block, 0 for a caller's buffer, -1 after str()
    int8* fCur;
    int8* fOwnBuffer; // null, or the block that this class allocated, of AllocatedBlockSize bytes

private:
    static uint32 AllocatedBlockSize(int32 inCapacity);
    boolean GrowOwnBuffer(int64 inSize);
    boolean MakeRoom(int64 inCount);
};

static_assert(sizeof(TNqstrstream) == 112, "other modules derive from streams");

// Counts what would be written; reads nothing. Every writer works on it and yields the size of its output.
class countstream : public TNqiostream
{
public:
    countstream();
    ~countstream() override;

    using TNqiostream::read;
    int32 tell() override;
    void seek(int32 inOffset, seek_dir dir) override;
    void read(int8* outData, int32 inCount) override;
    void putback(int8 c) override;
    void write(const int8* inData, int32 inCount) override;

    int32 count() const { return fCount; }

protected:
    friend class NqStreamAccess;

    int32 fCount; // the highest position reached
    int32 fPos;

private:
    void MoveTo(int64 inPosition);
};

// A stream over a file of the host, with one buffer for reading and writing. Without a buffer every call goes to the
// host.
//
//     boolean created = false;
//     TNqfstream stream("/tmp/scene.nq", kUTF8Transcoder, eReadWrite, 65536, &created);
//     if (!stream.good())
//         return; // Init tells which error
//
// Failure: a file that cannot be opened sets the failure bit. What the host could not write is a failure and stays in
// the buffer; flush() and close() try again. Call one of them and look at good() when the bytes matter: the destructor
// cannot tell. A write that failed may have taken a part: tell() says how much.
//
// Positions are 32-bit: a file ends at 2^31 - 1 bytes.
class TNqfstream : public TNqiostream
{
public:
    // No file yet: call Init.
    TNqfstream();
    TNqfstream(const int8* inPath, TranscoderType inType, int32 inMode, int32 inBufferSize, uint8* outCreated);
    // Over the file that `ioFile` names; the stream makes a file object of its own. Sets the permission of `ioFile`,
    // unless mode is kNqModeKeepPermission.
    TNqfstream(INqFile& ioFile, int32 inMode, TranscoderType inType, int32 inBufferSize, uint8* outCreated);
    ~TNqfstream() override;

    using TNqiostream::read;
    int32 tell() override;
    // From the end, the offset counts backwards.
    void seek(int32 inOffset, seek_dir dir) override;
    void read(int8* outData, int32 inCount) override;
    void putback(int8 c) override;
    void write(const int8* inData, int32 inCount) override;
    void readFileRef(int8* outPath) override;
    void writeFileRef(const int8* inPath) override;
    void GetPathRelativeFolder(TNqString& outFolder) override;
    TNqiostreamContext* GetContext() override;

    // Opens the file, making it when it is missing and the mode allows writing and not kNqModeNoCreate; *created (may
    // be null) says whether. A stream that is open is closed first. A buffer that cannot be had is halved until it can;
    // a size below 1 is none. Returns 0, with a clear state, or the first error, which also sets the failure bit.
    virtual NqErr Init(const int8* inPath, TranscoderType inType, int32 inMode, int32 inBufferSize,
                       boolean* outCreated);
    virtual NqErr Init(INqFile& ioFile, int32 inBufferSize, boolean* outCreated, TranscoderType inType);

    void flush();
    // Flushes first. A closed stream allows nothing, but its context still tells the mode and the position.
    void close();
    // Takes up a file that another has changed: drops what is not yet written and goes to the new end.
    void synch();
    // The file is known to have become longer by `inCount` bytes.
    void append(int32 inCount);
    uint32 GetFileSize() const;
    // The file's creator and type codes.
    using TNqiostream::SetInfo;
    void SetInfo(int32 inCreator, int32 inType);

    // A reference is a path relative to the folder of `inBasePath`, the same on every host: ':' between folders, and
    // one more ':' at the start for each folder to go up. The results hold up to 1023 bytes and a NUL.
    static void GetFileRef(const int8* inFullPath, int8* outRef, const int8* inBasePath);
    static void GetFullPathNameFromRef(const int8* inRef, int8* outFullPath, const int8* inBasePath);

protected:
    friend class NqStreamAccess;

    TNqCountedPtr<INqFile> fFile;
    int8* fBuffer;              // null when there is none
    uint32 fBufferSize;         // its capacity; 0 without one
    uint32 fActualBufSize;      // valid bytes in it
    uint32 fBufferPos;          // the position, in it
    uint32 fBufferOffset;       // where in the file its first byte belongs
    uint32 fFileSize;           // the file's size, unwritten bytes included
    boolean fBufferModified;    // bytes before fBufferPos are not yet in the file
    boolean fFirstBufferLoaded; // 0, or the EBufferLoaded bits

private:
    enum EBufferLoaded : boolean
    {
        kLoaded = 1,       // the valid bytes came from the file, or go there
        kHoldsPutback = 2, // some were put back and differ from the file: they must never be written
    };

    void Reset();
    NqErr OpenFile(boolean& outMade);
    NqErr MeasureFile();
    NqErr AllocateBuffer(int32 inSize);
    NqErr Fail(NqErr inError, boolean* outCreated);
    void ShutFile();
    bool Allows(int32 inPermission) const { return fFileOpen && (fMode & inPermission); }
    int64 Position() const { return static_cast<int64>(fBufferOffset) + fBufferPos; }
    void DropBuffer(int64 inPosition);
    boolean DumpBuffer();
    boolean LoadBuffer(int64 inPosition);
    boolean LoadNextBuffer();
    boolean LoadPrevBuffer();
    void ReadBuffered(int8* outData, uint32 inCount);
    void ReadUnbuffered(int8* outData, uint32 inCount);
    void WriteUnbuffered(const int8* inData, uint32 inCount);
    void SeekUnbuffered(int64 inDistance, seek_dir dir);
};

static_assert(sizeof(TNqfstream) == 120, "other modules derive from streams");

// Reopens a file at a position. The new stream has the Mac encoding whatever the first one had: documents that refer to
// one another this way are written in it.
class TNqfstreamContext : public TNqiostreamContext
{
public:
    TNqfstreamContext(const int8* inFileName, int32 inMode, int32 inBufferSize, int32 inPosition);
    TNqfstreamContext(const TNqfstreamContext&) = delete;
    TNqfstreamContext& operator=(const TNqfstreamContext&) = delete;
    ~TNqfstreamContext() override;

    TNqiostream* CreateStream() override;
    // what 1: the file named `a` is now named `b`, which must not be longer. what 2, with a null `a`: the mode is now
    // the int32 at `b`.
    void Change(void* a, void* b, short inWhat) override;

protected:
    friend class NqStreamAccess;

    int8* fFileName; // owned
    int fMode;
    int32 fBufferSize;
    int32 fPos;
};
