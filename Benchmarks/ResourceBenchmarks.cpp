// Big-endian fields in memory, one by one through the operators, beside Qt's stream of the same format.

#include "Benchmarks/Benchmarks.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqResourceStream.h"

#include <QByteArray>
#include <QDataStream>
#include <QIODevice>

#include <cstring>

using namespace NqBench;

namespace
{

// Records as they stand in resources: a long, two shorts, a byte and a double, 17 bytes.
struct TRecord
{
    int32 fId;
    int16 fLeft;
    int16 fTop;
    uint8 fFlags;
    real64 fScale;
};
constexpr int32 kRecords = 20000;
constexpr int64 kFields = 5 * kRecords;
constexpr int32 kBytes = 17 * kRecords;

TRecord RecordAt(int32 i)
{
    return {i * 7919, static_cast<int16>(i), static_cast<int16>(-i), static_cast<uint8>(i), i / 8.0};
}

// One set of bytes for all, made by hand.
const QByteArray& Bytes()
{
    static const QByteArray bytes = []
    {
        QByteArray out;
        const auto put = [&](uint64 bits, int size)
        {
            while (size-- > 0)
                out.append(static_cast<char>(bits >> 8 * size));
        };
        for (int32 i = 0; i < kRecords; ++i)
        {
            const TRecord record = RecordAt(i);
            uint64 scale;
            std::memcpy(&scale, &record.fScale, sizeof scale);
            put(static_cast<uint32>(record.fId), 4);
            put(static_cast<uint16>(record.fLeft), 2);
            put(static_cast<uint16>(record.fTop), 2);
            put(record.fFlags, 1);
            put(scale, 8);
        }
        return out;
    }();
    return bytes;
}

real64 ValueOf(const TRecord& inRecord)
{
    return inRecord.fId + inRecord.fLeft + inRecord.fTop + inRecord.fFlags + inRecord.fScale;
}

real64 Expected()
{
    real64 sum = 0;
    for (int32 i = 0; i < kRecords; ++i)
        sum += ValueOf(RecordAt(i));
    return sum;
}

template <class Stream>
void WriteRecords(Stream& ioStream)
{
    for (int32 i = 0; i < kRecords; ++i)
    {
        const TRecord record = RecordAt(i);
        ioStream << record.fId << record.fLeft << record.fTop << record.fFlags << record.fScale;
    }
}

template <class Stream>
real64 ReadRecords(Stream& ioStream)
{
    real64 sum = 0;
    for (int32 i = 0; i < kRecords; ++i)
    {
        TRecord record;
        ioStream >> record.fId >> record.fLeft >> record.fTop >> record.fFlags >> record.fScale;
        sum += ValueOf(record);
    }
    return sum;
}

void WriteNq(benchmark::State& state)
{
    bool correct = true;
    for (auto _ : state)
    {
        TNqByteSwapStream out;
        WriteRecords(out);
        const bool whole = out.pcount() == kBytes;
        int8* const bytes = out.str();
        correct = correct && whole && std::memcmp(bytes, Bytes().constData(), kBytes) == 0;
        Nqfree(bytes);
    }
    Finish(state, kFields, kBytes, correct);
}

void WriteQt(benchmark::State& state)
{
    bool correct = true;
    for (auto _ : state)
    {
        QByteArray bytes;
        QDataStream out(&bytes, QIODevice::WriteOnly);
        WriteRecords(out);
        correct = correct && bytes == Bytes();
    }
    Finish(state, kFields, kBytes, correct);
}

void ReadNq(benchmark::State& state)
{
    QByteArray bytes = Bytes();
    real64 sum = 0;
    for (auto _ : state)
    {
        TNqByteSwapStream in(bytes.data(), kBytes, kUTF8Transcoder, eRead);
        sum = ReadRecords(in);
    }
    Finish(state, kFields, kBytes, sum == Expected());
}

void ReadQt(benchmark::State& state)
{
    real64 sum = 0;
    for (auto _ : state)
    {
        QDataStream in(Bytes());
        sum = ReadRecords(in);
    }
    Finish(state, kFields, kBytes, sum == Expected());
}

NQ_BENCHMARK(WriteNq, "big-endian fields, write/TNqByteSwapStream");
NQ_BENCHMARK(WriteQt, "big-endian fields, write/QDataStream");
NQ_BENCHMARK(ReadNq, "big-endian fields, read/TNqByteSwapStream");
NQ_BENCHMARK(ReadQt, "big-endian fields, read/QDataStream");

} // namespace
