// Bytes as text: two hexadecimal digits each, or four characters for three of them.

#include "Benchmarks/Benchmarks.h"
#include "Benchmarks/Scene.h"
#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqToken.h"

#include <QByteArray>

#include <algorithm>

using namespace NqBench;

namespace
{

constexpr int32 kBytes = 1200000;

// The real arrays of the scenes as they stand in memory: what payloads mostly hold.
const QByteArray& Bytes()
{
    static const QByteArray sBytes = []
    {
        QByteArray bytes;
        while (bytes.size() < kBytes)
            for (const std::vector<real32>& array : Scene().fReals)
                if (bytes.size() < kBytes)
                    bytes.append(reinterpret_cast<const char*>(array.data()),
                                 static_cast<qsizetype>(array.size() * sizeof(real32)));
        bytes.truncate(kBytes);
        return bytes;
    }();
    return sBytes;
}

// ---- The two forms, each as the library and as Qt write and read it --------------------------------------------------

struct THexa
{
    static void Put(TNqiostream& ioStream) { NqToken::PutBufferAsHexa(ioStream, Bytes().constData(), kBytes, false); }
    static void Get(TNqiostream& ioStream, int8* outBytes)
    {
        NqToken::GetBufferAsHexa(ioStream, outBytes, kBytes, false);
    }
    static QByteArray PutQt() { return Bytes().toHex(); }
    static QByteArray GetQt(const QByteArray& inText) { return QByteArray::fromHex(inText); }
};

struct TSixBit
{
    static void Put(TNqiostream& ioStream)
    {
        uint32 state;
        NqToken::BeginBufferAsBinHex(state);
        NqToken::PutBufferAsBinHex(ioStream, Bytes().constData(), kBytes, state);
        NqToken::EndPutBufferAsBinHex(ioStream, state);
    }
    static void Get(TNqiostream& ioStream, int8* outBytes)
    {
        uint32 state;
        NqToken::BeginBufferAsBinHex(state);
        NqToken::GetBufferAsBinHex(ioStream, outBytes, kBytes, state);
    }
    static QByteArray PutQt() { return Bytes().toBase64(); }
    static QByteArray GetQt(const QByteArray& inText) { return QByteArray::fromBase64(inText); }
};

template <class Form>
std::string Text()
{
    TNqstrstream stream(kUTF8Transcoder);
    Form::Put(stream);
    return TakeText(stream);
}

template <class Form>
void Write(benchmark::State& state)
{
    // The text has as many characters as the other's, and reads as the bytes.
    std::string text = Text<Form>();
    std::vector<int8> bytes(kBytes);
    TNqstrstream in(text.data(), static_cast<int32>(text.size()), kUTF8Transcoder, eRead);
    Form::Get(in, bytes.data());
    const bool isRight = text.size() == static_cast<size_t>(Form::PutQt().size()) &&
                         std::equal(bytes.begin(), bytes.end(), Bytes().begin());
    size_t size = 0;
    for (auto _ : state)
    {
        TNqstrstream stream(kUTF8Transcoder);
        Form::Put(stream);
        size = static_cast<size_t>(stream.pcount());
    }
    Finish(state, kBytes, kBytes, isRight && size == text.size());
}

template <class Form>
void WriteQt(benchmark::State& state)
{
    QByteArray text = Form::PutQt();
    for (auto _ : state)
    {
        text = Form::PutQt();
        benchmark::DoNotOptimize(text.constData());
    }
    Finish(state, kBytes, kBytes, Form::GetQt(text) == Bytes());
}

template <class Form>
void Read(benchmark::State& state)
{
    std::string text = Text<Form>();
    std::vector<int8> bytes(kBytes);
    for (auto _ : state)
    {
        TNqstrstream stream(text.data(), static_cast<int32>(text.size()), kUTF8Transcoder, eRead);
        Form::Get(stream, bytes.data());
        benchmark::ClobberMemory();
    }
    Finish(state, kBytes, kBytes, std::equal(bytes.begin(), bytes.end(), Bytes().begin()));
}

template <class Form>
void ReadQt(benchmark::State& state)
{
    const QByteArray text = Form::PutQt();
    QByteArray bytes;
    for (auto _ : state)
    {
        bytes = Form::GetQt(text);
        benchmark::DoNotOptimize(bytes.constData());
    }
    Finish(state, kBytes, kBytes, bytes == Bytes());
}

} // namespace

NQ_SCENE_BENCHMARK(Write<THexa>, "write hexadecimal text/NqCore");
NQ_SCENE_BENCHMARK(WriteQt<THexa>, "write hexadecimal text/QByteArray::toHex");
NQ_SCENE_BENCHMARK(Read<THexa>, "read hexadecimal text/NqCore");
NQ_SCENE_BENCHMARK(ReadQt<THexa>, "read hexadecimal text/QByteArray::fromHex");
NQ_SCENE_BENCHMARK(Write<TSixBit>, "write six-bit text/NqCore");
NQ_SCENE_BENCHMARK(WriteQt<TSixBit>, "write six-bit text/QByteArray::toBase64");
NQ_SCENE_BENCHMARK(Read<TSixBit>, "read six-bit text/NqCore");
NQ_SCENE_BENCHMARK(ReadQt<TSixBit>, "read six-bit text/QByteArray::fromBase64");
