// A program outside the tree: saves a document, reads it back, lets a check of a header fail, and computes.

#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqToken.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>

static void Print(void*, const char* file, unsigned int, const char* text)
{
    std::printf("report %s: %s\n", file, text != nullptr ? text : "");
}

#if defined(__x86_64__)
#define FUSED_IF_ALLOWED __attribute__((target("fma"), noinline))
#else
#define FUSED_IF_ALLOWED
#endif

// 0 when the product is rounded before the sum, as in the library's own arithmetic.
FUSED_IF_ALLOWED static double Residue(const volatile double* p)
{
    const double x = *p;
    return x * x - (2 * x - 1);
}

static bool CanFuse()
{
#if defined(__x86_64__)
    return __builtin_cpu_supports("fma");
#else
    return true;
#endif
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

    const volatile double x = 1 + 1.0 / (1 << 30);
    std::printf("residue %g\n", CanFuse() ? Residue(&x) : 0.0);
    return 0;
}
