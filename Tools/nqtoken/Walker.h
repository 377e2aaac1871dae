// Walks a token file of any content, value after value, and finds what is wrong with it on the way. Memory is the same
// whatever the file's size and depth.
//
//     Walker walker(file);
//     while (walker.Next())
//         if (walker.Kind() == Walker::kAttribute)
//             ...                                   // walker.Name() and walker.Value()

#pragma once

#include "NqCore/PublicAPI/NqToken.h"

#include <string>
#include <string_view>

namespace nqtoken
{

class TokenFile;

// Whether a text is one number, such as -1.5e3.
bool LooksLikeNumber(std::string_view inText);
// Whether a text is one number or several with commas between them; of one that was cut, as far as it goes.
bool AreNumbers(std::string_view inText, bool inIsCut);

class Walker
{
public:
    enum EKind
    {
        kAttribute,  // a name and its value
        kBlockBegin, // a name and an opening brace
        kBlockEnd,
        kFault // something wrong; the walk goes on behind it where it can
    };

    explicit Walker(TokenFile& ioFile);

    // Goes to the next of these; false at the end, and where the file cannot be read on: ask it for its ReadOutcome.
    bool Next();

    EKind Kind() const { return fKind; }
    // The name of the attribute or block; empty for a block without one.
    const std::string& Name() const { return fName; }
    // How many blocks are open: a block counts while its end is the current one too.
    int64 Depth() const { return fDepth; }
    // The value, and the first bytes of its text, without quotes and escapes.
    const NqToken::TNqTokenInfo& Value() const { return fInfo; }
    std::string_view ValueText() const { return {fToken, fInfo.fStoredLength}; }

    // The fault.
    const std::string& Fault() const { return fFault; }
    int32 FaultPosition() const { return fFaultPosition; }
    NqErr FaultCode() const { return fFaultCode; }

    // Behind a kBlockBegin: goes to the end of the block at once. Next then tells kBlockEnd, or the fault that prevents
    // it.
    void SkipBlock();

private:
    bool Found(EKind inKind);
    bool FoundFault(int32 inPosition, std::string inWhat, NqErr inCode);
    // Faults behind which nothing can be read.
    bool FoundLastFault(int32 inPosition, std::string inWhat, NqErr inCode);
    bool ReadToken();
    bool ZeroByteFound();
    bool PayloadIsWrong();
    bool TokenUnfinished(NqErr inError);
    bool FileEnded();
    bool AtName();
    bool AtValue();
    bool OpenBlock();

    // Where the outer blocks were opened: deeper ones are not remembered.
    struct OpenedBlock
    {
        std::string fName;
        int32 fPosition = 0;
    };
    static constexpr int64 kRemembered = 64;

    TokenFile& fFile;
    TNqiostream& fStream;
    int8 fToken[NqToken::kTokenBufferSize] = {};
    NqToken::TNqTokenInfo fInfo = {};
    NqErr fError = 0; // of the token
    enum
    {
        kToRead,
        kToCheckPayload,
        kToLookAt
    } fTokenState = kToRead; // what is to be done with the token next
    EKind fKind = kFault;
    std::string fName;
    bool fNamed = false; // fName waits for its value
    bool fEnded = false;
    int64 fDepth = 0;
    OpenedBlock fOpened[kRemembered];
    int32 fZeroFreeTo = 0; // there is no zero byte before it that has not been told
    std::string fFault;
    int32 fFaultPosition = 0;
    NqErr fFaultCode = 0;
};

} // namespace nqtoken
