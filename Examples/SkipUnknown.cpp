// Reads the names of the layers out of a document that holds much else, without knowing the rest.
//
// An unknown value, a whole unknown block and a binary payload are each passed over with one call. A cut document ends
// in the exception for the end of the file, never in a wrong answer; so does a file that cannot be read on.

#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqToken.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>
#include <cstring>

namespace
{

constexpr int32 kLayer = NqFourChar("LAYR");
constexpr int32 kName = NqFourChar("NAME");

const char kDocument[] = "VERS 3 # written by a later version\r"
                         "PREV $0000000A\r{}\"#$ }{  $\r"
                         "LAYR {\r NAME \"Walls\" LOCK 1\r}\r"
                         "CAMR {\r LENS { ZOOM 35 }\r NAME \"Front\"\r}\r"
                         "LAYR { NAME \"Roof\" }\r";

// Prints the name of a layer; its brace is the next token.
void ReadLayer(TNqiostream& inStream)
{
    NqToken::GetBeginToken(inStream);
    int8 token[NqToken::kTokenBufferSize];
    while (NqToken::GetNextToken(inStream, token, false) == 0)
    {
        if (NqToken::IsEndToken(token))
            return;
        if (NqToken::CompactAttribute(token) == kName)
        {
            TNqString255 name = NqToken::GetNonLocalizedStringToken(inStream);
            std::printf("layer %s\n", name.StrGet());
        }
        else
        {
            NqToken::SkipTokenData(inStream);
        }
    }
    NqToken::FailEOFFile();
}

void ReadLayers(TNqiostream& inStream)
{
    int8 token[NqToken::kTokenBufferSize];
    NqErr error = kNqNoErr;
    while ((error = NqToken::GetNextToken(inStream, token, false)) == kNqNoErr)
    {
        if (NqToken::CompactAttribute(token) == kLayer)
            ReadLayer(inStream);
        else
            NqToken::SkipTokenData(inStream);
    }
    if (error != kNqErrEndOfFile || !inStream.eof() || inStream.fail())
        throw TNqException(error, __FILE__, __LINE__); // this is not where the document ends
}

void IgnoreReport(void*, const char*, unsigned int, const char*) {}

} // namespace

int main()
{
    TNqHostOptions options;
    options.fReportHandler = IgnoreReport; // the exception below is told here first
    const TNqHost host(options);

    int8 text[sizeof kDocument];
    std::memcpy(text, kDocument, sizeof text);
    TNqstrstream whole(text, static_cast<int32>(sizeof text - 1), kUTF8Transcoder, eRead);
    ReadLayers(whole);

    try
    {
        TNqstrstream cut(text, static_cast<int32>(sizeof text - 5), kUTF8Transcoder, eRead);
        ReadLayers(cut);
    }
    catch (const TNqException& error)
    {
        std::printf("cut short: %08X\n", static_cast<unsigned>(error.GetError()));
    }
    return 0;
}
