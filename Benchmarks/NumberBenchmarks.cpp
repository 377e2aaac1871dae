// Numbers one by one through the operators of a stream.

#include "Benchmarks/Benchmarks.h"
#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqStream.h"

#include <QDataStream>
#include <QIODevice>
#include <QTextStream>

#include <cmath>
#include <iomanip>
#include <memory>
#include <numeric>
#include <sstream>

using namespace NqBench;

namespace
{

// One of the two arrays that are written and read.
template <class T>
const std::vector<T>& Values()
{
    if constexpr (std::is_same_v<T, real32>)
        return Mesh().fPositions;
    else
        return Mesh().fFaces;
}

template <class T>
double Sum(const std::vector<T>& inValues)
{
    return std::accumulate(inValues.begin(), inValues.end(), 0.0);
}

template <class T>
int64 Count()
{
    return static_cast<int64>(Values<T>().size());
}

// Reads them all from what makeStream() makes.
template <class T, class Make>
void ReadAll(benchmark::State& state, size_t inBytes, Make&& inMakeStream)
{
    std::vector<T> values(Values<T>().size());
    for (auto _ : state)
    {
        auto stream = inMakeStream();
        for (T& value : values)
            *stream >> value;
    }
    const double expected = Sum(Values<T>());
    Finish(state, Count<T>(), inBytes, std::abs(Sum(values) - expected) <= std::abs(expected) * 1e-6);
}

template <class T>
std::string CoreText()
{
    TNqstrstream stream(kUTF8Transcoder);
    for (const T value : Values<T>())
        stream << value << ' ';
    return TakeText(stream);
}

template <class T>
void WriteCore(benchmark::State& state)
{
    MeasureWriting(state, Count<T>(), [] { return CoreText<T>().size(); });
}

template <class T>
void ReadCore(benchmark::State& state)
{
    std::string text = CoreText<T>();
    ReadAll<T>(state, text.size(),
               [&] {
                   return std::make_unique<TNqstrstream>(text.data(), static_cast<int32>(text.size()), kUTF8Transcoder,
                                                         eRead);
               });
}

template <class T>
std::string StandardText()
{
    std::ostringstream stream;
    stream << std::fixed << std::setprecision(6);
    for (const T value : Values<T>())
        stream << value << ' ';
    return stream.str();
}

template <class T>
void WriteStandard(benchmark::State& state)
{
    MeasureWriting(state, Count<T>(), [] { return StandardText<T>().size(); });
}

template <class T>
void ReadStandard(benchmark::State& state)
{
    const std::string text = StandardText<T>();
    ReadAll<T>(state, text.size(), [&] { return std::make_unique<std::istringstream>(text); });
}

template <class T>
QByteArray QtText()
{
    QByteArray text;
    QTextStream stream(&text);
    stream.setRealNumberNotation(QTextStream::FixedNotation);
    stream.setRealNumberPrecision(6);
    for (const T value : Values<T>())
        stream << value << ' ';
    stream.flush();
    return text;
}

template <class T>
void WriteQtText(benchmark::State& state)
{
    MeasureWriting(state, Count<T>(), [] { return QtText<T>().size(); });
}

template <class T>
void ReadQtText(benchmark::State& state)
{
    const QByteArray text = QtText<T>();
    ReadAll<T>(state, static_cast<size_t>(text.size()), [&] { return std::make_unique<QTextStream>(text); });
}

template <class T>
QByteArray QtData()
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setFloatingPointPrecision(QDataStream::SinglePrecision);
    for (const T value : Values<T>())
        stream << value;
    return bytes;
}

template <class T>
void WriteQtData(benchmark::State& state)
{
    MeasureWriting(state, Count<T>(), [] { return QtData<T>().size(); });
}

template <class T>
void ReadQtData(benchmark::State& state)
{
    const QByteArray bytes = QtData<T>();
    ReadAll<T>(state, static_cast<size_t>(bytes.size()),
               [&]
               {
                   auto stream = std::make_unique<QDataStream>(bytes);
                   stream->setFloatingPointPrecision(QDataStream::SinglePrecision);
                   return stream;
               });
}

} // namespace

NQ_BENCHMARK(WriteCore<real32>, "write reals/NqCore stream");
NQ_BENCHMARK(WriteQtText<real32>, "write reals/QTextStream");
NQ_BENCHMARK(WriteQtData<real32>, "write reals/QDataStream, binary");
NQ_BENCHMARK(WriteStandard<real32>, "write reals/std::ostringstream");

NQ_BENCHMARK(ReadCore<real32>, "read reals/NqCore stream");
NQ_BENCHMARK(ReadQtText<real32>, "read reals/QTextStream");
NQ_BENCHMARK(ReadQtData<real32>, "read reals/QDataStream, binary");
NQ_BENCHMARK(ReadStandard<real32>, "read reals/std::istringstream");

NQ_BENCHMARK(WriteCore<int32>, "write integers/NqCore stream");
NQ_BENCHMARK(WriteQtText<int32>, "write integers/QTextStream");
NQ_BENCHMARK(WriteQtData<int32>, "write integers/QDataStream, binary");
NQ_BENCHMARK(WriteStandard<int32>, "write integers/std::ostringstream");

NQ_BENCHMARK(ReadCore<int32>, "read integers/NqCore stream");
NQ_BENCHMARK(ReadQtText<int32>, "read integers/QTextStream");
NQ_BENCHMARK(ReadQtData<int32>, "read integers/QDataStream, binary");
NQ_BENCHMARK(ReadStandard<int32>, "read integers/std::istringstream");
