// What the library asks of its host: memory for objects and raw blocks, and an ear for failed checks.
//
// The reference host stands in for an application's own. The checks stay in release builds, and the program goes on
// behind each: what happens then is part of what an operation promises.

#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqMath.h"
#include "NqCore/PublicAPI/NqMemoryCopy.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>
#include <cstring>

namespace
{

// An image of 32-bit pixels: the object and its pixels are both of the host's memory.
class TImage : public TNqObject
{
public:
    TImage(int32 inWidth, int32 inHeight)
        : fCount(Nq_Max(inWidth, 0) * Nq_Max(inHeight, 0)),
          fPixels(static_cast<int32*>(Nqmalloc(static_cast<ulong>(fCount) * sizeof(int32))))
    {
    }
    ~TImage() { Nqfree(fPixels); }
    TImage(const TImage&) = delete;
    TImage& operator=(const TImage&) = delete;

    // Null after a report for a pixel that there is not.
    int32* GetPixel(int32 inIndex) const
    {
        if (!NqCheck(inIndex >= 0 && inIndex < fCount))
            return nullptr;
        return fPixels + inIndex;
    }
    void Fill(int32 inColour)
    {
        if (fPixels != nullptr)
            Nqmemfill32(inColour, fPixels, static_cast<ulong>(fCount));
    }

private:
    int32 fCount;
    int32* fPixels; // owned; null without memory
};

void Report(void*, const char* inFile, unsigned int, const char* inText)
{
    const char* const slash = std::strrchr(inFile, '/');
    std::printf("reported: %s (%s)\n", inText, slash != nullptr ? slash + 1 : inFile);
}

} // namespace

int main()
{
    TNqHostOptions options;
    options.fReportHandler = Report;
    TNqHost host(options);

    TImage* const image = new TImage(4, 2); // null without memory: nothing throws
    if (image == nullptr)
        return 1;
    image->Fill(0x00336699);
    std::printf("the last pixel is %06X\n", static_cast<unsigned>(*image->GetPixel(7)));
    std::printf("pixel 8 is %s\n", image->GetPixel(8) == nullptr ? "refused" : "there");
    delete image;

    TNqArray<int32> ids;
    host.FailAllocations(1); // as if memory had run out
    std::printf("appended: %s\n", ids.AddElem(42) ? "yes" : "no");
    host.FailAllocations(0);
    const boolean isAppended = ids.AddElem(42);
    std::printf("appended: %s, elements: %u\n", isAppended ? "yes" : "no", ids.GetElemCount());
    return 0;
}
