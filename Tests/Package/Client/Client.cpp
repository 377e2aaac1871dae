// A program outside the tree: saves a document, reads it back, and lets a check of a header fail.

#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqToken.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>

static void Print(void*, const char* file, unsigned int, const char* text)
{
    std::printf("report %s: %s\n", file, text != nullptr ? text : "");
}

int main(int, char** argv)
{
    TNqHostOptions options;
    options.fReportHandler = Print;
    const TNqHost host(options);
    {
        TNqfstream out(argv[1], kUTF8Transcoder, eWrite, 4096, nullptr);
        NqToken::PutInt32Attribute(out, NqFourChar("WIDE"), 640);
    }
    TNqfstream in(argv[1], kUTF8Transcoder, eRead, 4096, nullptr);
    int8 name[NqToken::kTokenBufferSize];
    if (NqToken::GetNextToken(in, name, false) == 0)
        std::printf("width %d\n", NqToken::GetInt32Token(in));

    TNqArray<int32> array;
    array.SetElemSpace(4);
    static_cast<void>(array[2]);
    return 0;
}
