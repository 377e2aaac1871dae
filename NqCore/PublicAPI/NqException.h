// The library's one exception: an error code, the place that threw it, and an optional message.
//
//     try
//     {
//         NqToken::GetBeginToken(stream);
//     }
//     catch (const TNqException& error)
//     {
//         if (error.GetError() == kNqErrEndOfFile)
//             ...
//     }
//
// It is thrown by value and only where a result cannot say what went wrong: a factory without memory, malformed token
// text, a cancelled job. Constructing one with a code tells the host that an exception is on its way. Ownership: the
// exception owns its message; copying moves the message to the copy. Threads: one at a time.

#pragma once

#include "NqCore/PublicAPI/NqObject.h"

class TNqString;

// The codes of the library, as NqErr values.
constexpr NqErr kNqNoErr = 0;
constexpr NqErr kNqErrUnableToConnect = 4;
constexpr NqErr kNqErrUnknown = static_cast<NqErr>(0x80010001);
constexpr NqErr kNqErrOutOfMemory = static_cast<NqErr>(0x80010002);
constexpr NqErr kNqErrSection =
    static_cast<NqErr>(0x80010004); // a lock or a single section entered where it must not be
constexpr NqErr kNqErrInvalidData = static_cast<NqErr>(0x80010005);
constexpr NqErr kNqErrFormat = static_cast<NqErr>(0x80010024); // malformed token text, or a read that failed
constexpr NqErr kNqErrEndOfFile = static_cast<NqErr>(0x80010027);
constexpr NqErr kNqErrFileNotFound = static_cast<NqErr>(0x8001002B);
constexpr NqErr kNqErrCancelled = static_cast<NqErr>(0x80010080);
constexpr NqErr kNqErrSilent = static_cast<NqErr>(0x80010081); // an exception that the host is not told of
constexpr NqErr kNqErrUserCancelled = static_cast<NqErr>(0x800101EA);

// Its slots are a contract, so that its destructor is not virtual: an exception is thrown, caught and destroyed as what
// it is, and never deleted through a pointer to it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class TNqException : public TNqObject
{
public:
    // `inFile` (may be null) must outlive the exception: a literal, NqSourcePath(__FILE__).
    TNqException(int inError, const char* inFile, int inLine);

    // The same with a message, which the exception takes over; null for none.
    TNqException(int inError, TNqString* inErrorString, const char* inFile, int inLine);

    // Take the message away from `inOther`. Assignment does not delete the message held before, nor does it touch
    // anything when the exception is assigned to itself. Neither tells the host.
    TNqException(const TNqException& inOther);
    TNqException& operator=(const TNqException& inOther);

    ~TNqException();

    NqErr GetError() const { return fError; }

    // The source file of the throw site (not a message), null when none was given.
    virtual const char* what() const;

    // The message, or null. Stays the exception's.
    const TNqString* GetErrorString() const { return fErrorString; }

private:
    friend struct TNqExceptionLayout;

    NqErr fError;
    const char* fFile;
    int fLine;
    mutable TNqString* fErrorString; // owned; taken away by a copy
};
#pragma GCC diagnostic pop

// Tells the host that an exception with this code is on its way: a text of its own for a cancel and for a failed
// connection, nothing for 0 and for kNqErrSilent.
void NotifyProgramer(int inError);

// A hook for callers that catch exceptions of the platform. Does nothing.
void CatchPlatformException(unsigned char);
