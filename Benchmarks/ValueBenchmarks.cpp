// Bits, colours and dates beside the standard library, boost, plain loops and ICU.

#include "Benchmarks/Benchmarks.h"
#include "NqCore/PublicAPI/BitArray.h"
#include "NqCore/PublicAPI/NqColorRGBA.h"
#include "NqCore/PublicAPI/NqDateTime.h"

#include <boost/dynamic_bitset.hpp>
#include <unicode/gregocal.h>

#include <algorithm>
#include <bitset>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <vector>

using namespace NqBench;

namespace
{

// All contenders of a task must come to the same sum.
template <class Sum>
void FinishAlike(benchmark::State& state, int64 inItems, const std::string& inTask, Sum inSum)
{
    static std::map<std::string, Sum> sSums;
    Finish(state, inItems, 0, sSums.emplace(inTask, inSum).first->second == inSum);
}

// ---- Bits: a million of them ----------------------------------------------------------------------------------------

constexpr uint32 kBits = 1000000;

// Every third bit or so; in no order.
const std::vector<int32>& SomeBits()
{
    static const std::vector<int32> sBits = []
    {
        std::mt19937 random(1);
        std::vector<int32> bits(kBits / 3);
        for (int32& bit : bits)
            bit = static_cast<int32>(random() % kBits);
        return bits;
    }();
    return sBits;
}

// One face for all contenders: the operations in the words of each.
struct TOurs
{
    TOurs() { fBits.SetSize(kBits, false); }
    void Set(int32 i) { fBits.SetBit(static_cast<uint32>(i)); }
    bool Test(int32 i) const { return fBits.TestBit(static_cast<uint32>(i)); }
    void Or(const TOurs& inOther) { fBits |= inOther.fBits; }
    void And(const TOurs& inOther) { fBits &= inOther.fBits; }
    bool Equal(const TOurs& inOther) const { return fBits == inOther.fBits; }
    size_t List(std::vector<int32>&) const
    {
        static TNqArray<int32> sIndices;
        fBits.GetIndicesSet(sIndices);
        return sIndices.GetElemCount();
    }
    TBitArray fBits;
};

struct TStandardFixed
{
    using TBits = std::bitset<kBits>;
    void Set(int32 i) { fBits->set(static_cast<size_t>(i)); }
    bool Test(int32 i) const { return fBits->test(static_cast<size_t>(i)); }
    void Or(const TStandardFixed& inOther) { *fBits |= *inOther.fBits; }
    void And(const TStandardFixed& inOther) { *fBits &= *inOther.fBits; }
    bool Equal(const TStandardFixed& inOther) const { return *fBits == *inOther.fBits; }
    size_t List(std::vector<int32>& ioIndices) const
    {
        ioIndices.clear();
        for (size_t i = fBits->_Find_first(); i < kBits; i = fBits->_Find_next(i))
            ioIndices.push_back(static_cast<int32>(i));
        return ioIndices.size();
    }
    std::unique_ptr<TBits> fBits = std::make_unique<TBits>();
};

struct TStandardVector
{
    void Set(int32 i) { fBits[static_cast<size_t>(i)] = true; }
    bool Test(int32 i) const { return fBits[static_cast<size_t>(i)]; }
    void Or(const TStandardVector& inOther)
    {
        for (size_t i = 0; i < kBits; ++i)
            fBits[i] = fBits[i] || inOther.fBits[i];
    }
    void And(const TStandardVector& inOther)
    {
        for (size_t i = 0; i < kBits; ++i)
            fBits[i] = fBits[i] && inOther.fBits[i];
    }
    bool Equal(const TStandardVector& inOther) const { return fBits == inOther.fBits; }
    size_t List(std::vector<int32>& ioIndices) const
    {
        ioIndices.clear();
        for (size_t i = 0; i < kBits; ++i)
            if (fBits[i])
                ioIndices.push_back(static_cast<int32>(i));
        return ioIndices.size();
    }
    std::vector<bool> fBits = std::vector<bool>(kBits);
};

struct TBoost
{
    void Set(int32 i) { fBits.set(static_cast<size_t>(i)); }
    bool Test(int32 i) const { return fBits.test(static_cast<size_t>(i)); }
    void Or(const TBoost& inOther) { fBits |= inOther.fBits; }
    void And(const TBoost& inOther) { fBits &= inOther.fBits; }
    bool Equal(const TBoost& inOther) const { return fBits == inOther.fBits; }
    size_t List(std::vector<int32>& ioIndices) const
    {
        ioIndices.clear();
        for (size_t i = fBits.find_first(); i < kBits; i = fBits.find_next(i))
            ioIndices.push_back(static_cast<int32>(i));
        return ioIndices.size();
    }
    boost::dynamic_bitset<> fBits = boost::dynamic_bitset<>(kBits);
};

template <class T>
T MakeBits()
{
    T bits;
    for (const int32 i : SomeBits())
        bits.Set(i);
    return bits;
}

size_t CountDifferent()
{
    std::vector<int32> bits = SomeBits();
    std::sort(bits.begin(), bits.end());
    return static_cast<size_t>(std::unique(bits.begin(), bits.end()) - bits.begin());
}

template <class T>
void SetBits(benchmark::State& state)
{
    T bits;
    for (auto _ : state)
    {
        for (const int32 i : SomeBits())
            bits.Set(i);
        benchmark::ClobberMemory();
    }
    Finish(state, static_cast<int64>(SomeBits().size()), 0, bits.Test(SomeBits()[5]));
}

template <class T>
void TestBits(benchmark::State& state)
{
    const T bits = MakeBits<T>();
    const std::vector<int32>& places = SomeBits();
    const int32 count = static_cast<int32>(places.size());
    FinishAlike(state, count, "found",
                AddUp<int32>(state, count,
                             [&](int32 i)
                             { return bits.Test(static_cast<int32>(kBits) - 1 - places[static_cast<size_t>(i)]); }));
}

template <class T>
void CombineBits(benchmark::State& state)
{
    const T others = MakeBits<T>();
    T bits;
    for (auto _ : state)
    {
        bits.Or(others);
        benchmark::ClobberMemory();
        bits.And(others);
        benchmark::ClobberMemory();
    }
    Finish(state, 2 * int64{kBits}, 0, bits.Equal(others));
}

template <class T>
void CompareBits(benchmark::State& state)
{
    const T a = MakeBits<T>(), b = MakeBits<T>();
    bool equal = false;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(equal = a.Equal(b));
        benchmark::ClobberMemory();
    }
    Finish(state, kBits, 0, equal);
}

template <class T>
void ListBits(benchmark::State& state)
{
    const T bits = MakeBits<T>();
    std::vector<int32> indices;
    size_t count = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(count = bits.List(indices));
    Finish(state, static_cast<int64>(count), 0, count == CountDifferent());
}

// ---- Colours: the pixels of a 4K image ------------------------------------------------------------------------------

constexpr size_t kPixels = size_t{3840} * 2160;

// What somebody without the library writes.
struct TPlainPixel
{
    uint8 b, g, r, a;
};
struct TPlainColour
{
    real32 r, g, b, a;
};

template <class Pixel>
std::vector<Pixel> MakePixels(uint32 inSeed)
{
    std::minstd_rand random(inSeed);
    std::vector<Pixel> pixels(kPixels);
    for (Pixel& pixel : pixels)
    {
        const uint32 bits = static_cast<uint32>(random());
        std::memcpy(static_cast<void*>(&pixel), &bits, 4);
    }
    return pixels;
}

template <class Pixel>
uint32 Checksum(const std::vector<Pixel>& inPixels)
{
    uint32 sum = 0;
    for (const Pixel& pixel : inPixels)
    {
        uint32 bits;
        std::memcpy(&bits, &pixel, 4);
        sum = sum * 31 + bits;
    }
    return sum;
}

void ToReals(const std::vector<TNqColorRGBA8>& inPixels, std::vector<TNqColorRGBA>& ioColours)
{
    for (size_t i = 0; i < kPixels; ++i)
        inPixels[i].ToRGBA(ioColours[i]);
}
void ToReals(const std::vector<TPlainPixel>& inPixels, std::vector<TPlainColour>& ioColours)
{
    constexpr real32 scale = 0.003921569F;
    for (size_t i = 0; i < kPixels; ++i)
    {
        ioColours[i].r = static_cast<real32>(inPixels[i].r) * scale;
        ioColours[i].g = static_cast<real32>(inPixels[i].g) * scale;
        ioColours[i].b = static_cast<real32>(inPixels[i].b) * scale;
        ioColours[i].a = static_cast<real32>(inPixels[i].a) * scale;
    }
}

void ToBytes(const std::vector<TNqColorRGBA>& inColours, std::vector<TNqColorRGBA8>& ioPixels)
{
    for (size_t i = 0; i < kPixels; ++i)
        inColours[i].ToRGBA8(ioPixels[i]);
}
uint8 PlainByte(real32 c)
{
    return static_cast<uint8>(255.0F * std::clamp(c, 0.0F, 1.0F));
}
void ToBytes(const std::vector<TPlainColour>& inColours, std::vector<TPlainPixel>& ioPixels)
{
    for (size_t i = 0; i < kPixels; ++i)
    {
        ioPixels[i].r = PlainByte(inColours[i].r);
        ioPixels[i].g = PlainByte(inColours[i].g);
        ioPixels[i].b = PlainByte(inColours[i].b);
        ioPixels[i].a = PlainByte(inColours[i].a);
    }
}

void Mix(const std::vector<TNqColorRGBA8>& a, const std::vector<TNqColorRGBA8>& b, real32 t,
         std::vector<TNqColorRGBA8>& outText)
{
    for (size_t i = 0; i < kPixels; ++i)
        outText[i].Interpolate(a[i], b[i], t);
}
uint8 PlainMix(uint8 a, uint8 b, real32 t)
{
    return static_cast<uint8>(0.5F + static_cast<real32>(b) * t + static_cast<real32>(a) * (1 - t));
}
void Mix(const std::vector<TPlainPixel>& a, const std::vector<TPlainPixel>& b, real32 t,
         std::vector<TPlainPixel>& outText)
{
    for (size_t i = 0; i < kPixels; ++i)
    {
        outText[i].r = PlainMix(a[i].r, b[i].r, t);
        outText[i].g = PlainMix(a[i].g, b[i].g, t);
        outText[i].b = PlainMix(a[i].b, b[i].b, t);
        outText[i].a = PlainMix(a[i].a, b[i].a, t);
    }
}

void Mix(const std::vector<TNqColorRGBA>& a, const std::vector<TNqColorRGBA>& b, real32 t,
         std::vector<TNqColorRGBA>& outText)
{
    for (size_t i = 0; i < kPixels; ++i)
        outText[i].Interpolate(a[i], b[i], t);
}
void Mix(const std::vector<TPlainColour>& a, const std::vector<TPlainColour>& b, real32 t,
         std::vector<TPlainColour>& outText)
{
    for (size_t i = 0; i < kPixels; ++i)
    {
        outText[i].r = a[i].r + (b[i].r - a[i].r) * t;
        outText[i].g = a[i].g + (b[i].g - a[i].g) * t;
        outText[i].b = a[i].b + (b[i].b - a[i].b) * t;
        outText[i].a = a[i].a + (b[i].a - a[i].a) * t;
    }
}

template <class Pixel, class Colour>
void PixelsToReals(benchmark::State& state)
{
    const std::vector<Pixel> pixels = MakePixels<Pixel>(1);
    std::vector<Colour> colours(kPixels);
    for (auto _ : state)
    {
        ToReals(pixels, colours);
        benchmark::ClobberMemory();
    }
    std::vector<Pixel> back(kPixels);
    ToBytes(colours, back);
    Finish(state, kPixels, 0, Checksum(back) == Checksum(pixels));
}

template <class Pixel, class Colour>
void RealsToPixels(benchmark::State& state)
{
    std::vector<Pixel> pixels = MakePixels<Pixel>(1);
    const uint32 sum = Checksum(pixels);
    std::vector<Colour> colours(kPixels);
    ToReals(pixels, colours);
    for (auto _ : state)
    {
        ToBytes(colours, pixels);
        benchmark::ClobberMemory();
    }
    Finish(state, kPixels, 0, Checksum(pixels) == sum);
}

template <class Pixel>
void MixPixels(benchmark::State& state)
{
    const std::vector<Pixel> a = MakePixels<Pixel>(1), b = MakePixels<Pixel>(2);
    std::vector<Pixel> out(kPixels);
    for (auto _ : state)
    {
        Mix(a, b, 0.3F, out);
        benchmark::ClobberMemory();
    }
    FinishAlike(state, kPixels, "bytes", Checksum(out));
}

template <class Pixel, class Colour>
void MixReals(benchmark::State& state)
{
    std::vector<Pixel> pixels = MakePixels<Pixel>(1);
    std::vector<Colour> a(kPixels), b(kPixels), out(kPixels);
    ToReals(pixels, a);
    ToReals(MakePixels<Pixel>(2), b);
    for (auto _ : state)
    {
        Mix(a, b, 0.3F, out);
        benchmark::ClobberMemory();
    }
    ToBytes(out, pixels);
    FinishAlike(state, kPixels, "reals", Checksum(pixels));
}

// ---- Dates ----------------------------------------------------------------------------------------------------------

constexpr int32 kDates = 1000;
constexpr real64 kSecondsBefore2001 = 978307200;

const std::vector<real64>& Instants()
{
    static const std::vector<real64> sInstants = []
    {
        std::mt19937 random(3);
        std::vector<real64> instants(kDates);
        for (real64& instant : instants) // from 1966 to 2034
            instant = static_cast<real64>(static_cast<int32>(random())) * 0.5;
        return instants;
    }();
    return sInstants;
}

// One face for both contenders, as above: each gives a number that comes from all it has computed.
struct TOurDates
{
    int64 Fields(real64 inInstant)
    {
        TNqSystemTime time;
        time.fSeconds = inInstant;
        TNqUserTimeRecord record;
        record.SysTimeToTimeRecord(time);
        return record.fYear + record.fMonth + record.fDay + record.fHour + record.fMinute + record.fSecond;
    }
    int64 Normalised(TNqUserTimeRecord inRecord)
    {
        inRecord.NormalizeTimeRecord();
        return inRecord.fYear + inRecord.fMonth + inRecord.fDay + inRecord.fHour + inRecord.fMinute;
    }
    real64 Seconds(const TNqUserTimeRecord& inRecord)
    {
        TNqSystemTime time;
        time.TimeRecordToSysTime(inRecord);
        return time.fSeconds;
    }
    int64 Weekday(const TNqUserTimeRecord& inRecord)
    {
        return TNqUserTimeRecord::DayOfWeek(inRecord.fYear, inRecord.fMonth, inRecord.fDay);
    }
};

// ICU's calendar without the change to the Julian one, in GMT.
struct TIcuDates
{
    TIcuDates() { fCalendar.setGregorianChange(-1e18, fStatus); }
    int64 Get(UCalendarDateFields inField) { return fCalendar.get(inField, fStatus); }
    void Set(const TNqUserTimeRecord& inRecord)
    {
        fCalendar.clear();
        fCalendar.set(inRecord.fYear, inRecord.fMonth - 1, inRecord.fDay, inRecord.fHour, inRecord.fMinute, 0);
    }
    int64 Sum()
    {
        return Get(UCAL_EXTENDED_YEAR) + Get(UCAL_MONTH) + 1 + Get(UCAL_DATE) + Get(UCAL_HOUR_OF_DAY) +
               Get(UCAL_MINUTE);
    }
    int64 Fields(real64 inInstant)
    {
        fCalendar.setTime((inInstant + kSecondsBefore2001) * 1000, fStatus);
        return Sum() + Get(UCAL_SECOND);
    }
    int64 Normalised(const TNqUserTimeRecord& inRecord)
    {
        Set(inRecord);
        return Sum();
    }
    real64 Seconds(const TNqUserTimeRecord& inRecord)
    {
        Set(inRecord);
        return fCalendar.getTime(fStatus) / 1000 - kSecondsBefore2001;
    }
    int64 Weekday(const TNqUserTimeRecord& inRecord)
    {
        fCalendar.clear();
        fCalendar.set(inRecord.fYear, inRecord.fMonth - 1, inRecord.fDay);
        return Get(UCAL_DAY_OF_WEEK);
    }
    UErrorCode fStatus = U_ZERO_ERROR;
    icu::GregorianCalendar fCalendar{*icu::TimeZone::getGMT(), fStatus};
};

// Records with a day far out of range: what is due so many days after a date.
TNqUserTimeRecord MakeRecord(int32 i)
{
    TNqUserTimeRecord record;
    record.fYear = static_cast<int16>(1900 + i % 200);
    record.fMonth = static_cast<int16>(1 + i % 12);
    record.fDay = static_cast<int16>(i * 37 % 20000 - 10000);
    record.fHour = static_cast<int16>(i % 100 - 50);
    record.fMinute = static_cast<int16>(i * 7 % 200 - 100);
    return record;
}

TNqUserTimeRecord MakeRecordInMonth(int32 i)
{
    TNqUserTimeRecord record = MakeRecord(i);
    record.fDay = 15;
    return record;
}

template <class Sum, class Value>
void AddUpDates(benchmark::State& state, const std::string& inTask, Value&& inValue)
{
    FinishAlike(state, kDates, inTask, AddUp<Sum>(state, kDates, inValue));
}

template <class T>
void Fields(benchmark::State& state)
{
    T dates;
    AddUpDates<int64>(state, "fields", [&](int32 i) { return dates.Fields(Instants()[static_cast<size_t>(i)]); });
}

template <class T>
void Normalise(benchmark::State& state)
{
    T dates;
    AddUpDates<int64>(state, "normalised", [&](int32 i) { return dates.Normalised(MakeRecord(i)); });
}

template <class T>
void Seconds(benchmark::State& state)
{
    T dates;
    AddUpDates<real64>(state, "seconds", [&](int32 i) { return dates.Seconds(MakeRecordInMonth(i)); });
}

template <class T>
void Weekday(benchmark::State& state)
{
    T dates;
    AddUpDates<int64>(state, "weekdays", [&](int32 i) { return dates.Weekday(MakeRecordInMonth(i)); });
}

} // namespace

#define NQ_BIT_BENCHMARKS(function, task)                               \
    NQ_BENCHMARK(function<TOurs>, task "/TBitArray");                   \
    NQ_BENCHMARK(function<TStandardFixed>, task "/std::bitset");        \
    NQ_BENCHMARK(function<TStandardVector>, task "/std::vector<bool>"); \
    NQ_BENCHMARK(function<TBoost>, task "/boost::dynamic_bitset")

NQ_BIT_BENCHMARKS(SetBits, "set bits");
NQ_BIT_BENCHMARKS(TestBits, "test bits");
NQ_BIT_BENCHMARKS(CombineBits, "or, and of a million bits");
NQ_BIT_BENCHMARKS(CompareBits, "compare a million bits");
NQ_BIT_BENCHMARKS(ListBits, "list the bits that are set");

NQ_BENCHMARK((PixelsToReals<TNqColorRGBA8, TNqColorRGBA>), "4K pixels to reals/TNqColorRGBA8");
NQ_BENCHMARK((PixelsToReals<TPlainPixel, TPlainColour>), "4K pixels to reals/plain loop");
NQ_BENCHMARK((RealsToPixels<TNqColorRGBA8, TNqColorRGBA>), "4K reals to pixels/TNqColorRGBA");
NQ_BENCHMARK((RealsToPixels<TPlainPixel, TPlainColour>), "4K reals to pixels/plain loop");
NQ_BENCHMARK(MixPixels<TNqColorRGBA8>, "interpolate 4K pixels/TNqColorRGBA8");
NQ_BENCHMARK(MixPixels<TPlainPixel>, "interpolate 4K pixels/plain loop");
NQ_BENCHMARK((MixReals<TNqColorRGBA8, TNqColorRGBA>), "interpolate 4K reals/TNqColorRGBA");
NQ_BENCHMARK((MixReals<TPlainPixel, TPlainColour>), "interpolate 4K reals/plain loop");

NQ_BENCHMARK(Fields<TOurDates>, "1000 x seconds to fields/TNqUserTimeRecord");
NQ_BENCHMARK(Fields<TIcuDates>, "1000 x seconds to fields/icu::GregorianCalendar");
NQ_BENCHMARK(Seconds<TOurDates>, "1000 x fields to seconds/TNqSystemTime");
NQ_BENCHMARK(Seconds<TIcuDates>, "1000 x fields to seconds/icu::GregorianCalendar");
NQ_BENCHMARK(Weekday<TOurDates>, "1000 x day of the week/TNqUserTimeRecord");
NQ_BENCHMARK(Weekday<TIcuDates>, "1000 x day of the week/icu::GregorianCalendar");
NQ_BENCHMARK(Normalise<TOurDates>, "1000 x normalise/TNqUserTimeRecord");
NQ_BENCHMARK(Normalise<TIcuDates>, "1000 x normalise/icu::GregorianCalendar");
