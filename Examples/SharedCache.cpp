// A cache that many readers share: colours by temperature are computed on first use and looked up ever after.
//
// Readers do not wait for each other. Who finds nothing computes the colour without holding anything, and enters alone
// to add it, unless somebody else has done so meanwhile.

#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqHash.h"
#include "NqCore/PublicAPI/NqSMPParallel.h"
#include "NqCore/PublicAPI/NqSMPSharedCriticalSection.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cmath>
#include <cstdio>

namespace
{

// The red part of the light of a black body, in parts of 255: slow enough to be worth keeping.
int32 ComputeRed(int32 inKelvin)
{
    real64 sum = 0;
    for (int32 nanometres = 600; nanometres < 700; ++nanometres)
        sum += 1 / (std::exp(1.4388e7 / (nanometres * static_cast<real64>(inKelvin))) - 1);
    return static_cast<int32>(std::lround(255 * sum / (sum + 1)));
}

// Inside for as long as they live, also when what they guard throws.
class CWhileReading
{
public:
    explicit CWhileReading(TNqSharedCriticalSection& inLock) : fLock(inLock) { fLock.EnterShared(); }
    ~CWhileReading() { fLock.LeaveShared(); }
    CWhileReading(const CWhileReading&) = delete;
    CWhileReading& operator=(const CWhileReading&) = delete;

private:
    TNqSharedCriticalSection& fLock;
};

class CWhileWriting
{
public:
    explicit CWhileWriting(TNqSharedCriticalSection& inLock) : fLock(inLock) { fLock.EnterExclusive(); }
    ~CWhileWriting() { fLock.LeaveExclusive(); }
    CWhileWriting(const CWhileWriting&) = delete;
    CWhileWriting& operator=(const CWhileWriting&) = delete;

private:
    TNqSharedCriticalSection& fLock;
};

// Any thread may ask.
class TColourCache
{
public:
    TColourCache() : fCount(0), fColours(256) {}

    int32 GetRed(int32 inKelvin)
    {
        int32 red = 0;
        return Find(inKelvin, red) ? red : Add(inKelvin, ComputeRed(inKelvin));
    }

    // How many colours are in it.
    int32 GetCount() const { return fCount; }

private:
    bool Find(int32 inKelvin, int32& outRed)
    {
        const CWhileReading reading(fLock);
        const int32* const found = fColours.FindElem(inKelvin, true);
        if (found != nullptr)
            outRed = *found;
        return found != nullptr;
    }

    int32 Add(int32 inKelvin, int32 inRed)
    {
        boolean alreadyThere;
        const CWhileWriting writing(fLock);
        const bool isThere = fColours.AddElem(inKelvin, inRed, alreadyThere, true) != kNqHashNotFound;
        fCount += isThere && !alreadyThere ? 1 : 0;
        return inRed;
    }

    TNqSharedCriticalSection fLock; // guards the others
    int32 fCount;
    TNqHashMap<int32, int32> fColours;
};

} // namespace

int main()
{
    TNqHost host;
    TColourCache cache;

    constexpr int32 pixels = 200000;
    using TSum = SMPReduce::TAdd<int64>;
    TBasicEstimator always;
    int64 total;
    SMPParallelReduce<TSum>(
        TAutoPartitioner(0, pixels, 1000, 8), always,
        [&cache](const TRange& range, TSMPJobReduce<TSum>& reduce)
        {
            int64 sum = 0;
            for (int32 i = range.fStart; i < range.fEnd; ++i)
                sum += cache.GetRed(2000 + i % 100 * 80);
            reduce.Update(sum);
        },
        total);

    int64 serialTotal = 0;
    for (int32 i = 0; i < 100; ++i)
        serialTotal += ComputeRed(2000 + i * 80);
    std::printf("%d pixels, %d colours\n", pixels, cache.GetCount());
    std::printf("the sum is %s\n", total == serialTotal * (pixels / 100) ? "that of one thread" : "wrong");
    return 0;
}
