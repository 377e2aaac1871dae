// Passes over everything in a token file, as a program does that looks for one name, and says how many values and
// blocks stood at the top.

#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqToken.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    const TNqHost host;
    TNqfstream file(argv[1], kUTF8Transcoder, eRead, 65536, nullptr);
    int8 token[NqToken::kTokenBufferSize];
    int64 count = 0;
    for (; NqToken::GetNextToken(file, token, false) == 0; ++count)
        NqToken::SkipTokenData(file);
    std::printf("%lld\n", static_cast<long long>(count));
    return file.fail() || count == 0 ? 1 : 0;
}
