// A token file that is open for reading, with what the commands need beside the stream: where in the file a position
// is, as line and column, and the bytes between tokens.

#pragma once

#include "Tools/nqtoken/InputFile.h"

#include "NqCore/PublicAPI/NqStream.h"

#include <memory>

namespace nqtoken
{

struct LineColumn
{
    int64 fLine = 1;
    int64 fColumn = 1; // bytes from the start of the line, from 1
};

class TokenFile
{
public:
    // Opens the file; "-" is standard input. A byte-order mark is recognized and passed over.
    Outcome Open(const std::string& inPath);

    TNqiostream& Stream() { return *fStream; }
    const std::string& ShownName() const { return fFile.ShownName(); }
    // Bytes behind the byte-order mark: the position of the end, as the stream counts.
    int32 Size() const { return fFile.Size() - fMarkSize; }
    // Bytes of the mark, 0 without one.
    int32 MarkSize() const { return fMarkSize; }

    // Where a position of the stream is. A line ends with CR, LF or CR LF. Positions that come in rising order cost one
    // pass over the file in all.
    LineColumn Locate(int32 inPosition);
    // The first position from inFrom on, before inTo, of a zero byte; inTo when there is none.
    int32 FindZeroByte(int32 inFrom, int32 inTo);
    // One byte at a position; 0 beyond the end.
    char ByteAt(int32 inPosition);

    // Whether the file, open on this thread, could not be read where somebody tried: by the stream or by the above. An
    // end or a fault that was found then is none. ReadOutcome is Trouble with the reason.
    bool Failed() const { return Reason() != 0; }
    Outcome ReadOutcome() const;

    // "FILE:LINE:COLUMN: what is wrong (code)".
    std::string FaultText(int32 inPosition, const std::string& inWhat, NqErr inCode);

private:
    int Reason() const;

    InputFile fFile;
    std::unique_ptr<TNqfstream> fStream;
    int32 fMarkSize = 0;

    // How far Locate has come.
    int32 fCounted = 0;
    LineColumn fPlace;
    bool fAfterCR = false;

    // What FindZeroByte has read: no zero byte from fScanFrom on, before fScanTo, where there is one if fScanHit.
    int32 fScanFrom = 0;
    int32 fScanTo = 0;
    bool fScanHit = false;
};

} // namespace nqtoken
