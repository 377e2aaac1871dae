// Arrays and strings beside those of the standard library, and the ways from one encoding to another.

#include "Benchmarks/Benchmarks.h"
#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqString.h"

#include <QString>

#include <algorithm>
#include <numeric>

using namespace NqBench;

namespace
{

// ---- Arrays ------------------------------------------------------------------------------------------------------------------

constexpr int32 kElements = 1000000;
constexpr int64 kElementSum = int64{kElements} * (kElements - 1) / 2;

void AppendCore(benchmark::State& state)
{
    uint32 count = 0;
    for (auto _ : state)
    {
        TNqArray<int32> array;
        if (state.range(0) != 0)
            array.SetElemSpace(kElements);
        for (int32 i = 0; i < kElements; ++i)
            array.AddElem(i);
        count = array.GetElemCount();
        benchmark::DoNotOptimize(array.BaseAddress());
    }
    Finish(state, kElements, 0, count == kElements);
}

void AppendStandard(benchmark::State& state)
{
    size_t count = 0;
    for (auto _ : state)
    {
        std::vector<int32> array;
        if (state.range(0) != 0)
            array.reserve(kElements);
        for (int32 i = 0; i < kElements; ++i)
            array.push_back(i);
        count = array.size();
        benchmark::DoNotOptimize(array.data());
    }
    Finish(state, kElements, 0, count == kElements);
}

void IndexCore(benchmark::State& state)
{
    TNqArray<int32> array;
    array.SetElemCount(kElements);
    for (int32 i = 0; i < kElements; ++i)
        array.SetElem(static_cast<uint32>(i), i);
    const int64 sum = AddUp<int64>(state, kElements, [&](int32 i) { return array[static_cast<uint32>(i)]; });
    Finish(state, kElements, 0, sum == kElementSum);
}

// Checked like the library's own index operator.
void IndexStandard(benchmark::State& state)
{
    std::vector<int32> array(kElements);
    std::iota(array.begin(), array.end(), 0);
    const int64 sum = AddUp<int64>(state, kElements, [&](int32 i) { return array.at(static_cast<size_t>(i)); });
    Finish(state, kElements, 0, sum == kElementSum);
}

// ---- Strings -----------------------------------------------------------------------------------------------------------------

constexpr int32 kNames = 100000;
constexpr uint32 kNamesLength = 7 * kNames + 488890; // with the digits of the numbers below

void NamesCore(benchmark::State& state)
{
    const uint32 length = AddUp<uint32>(state, kNames,
                                        [](int32 i)
                                        {
                                            TNqString31 name("object ");
                                            TNqString15 number;
                                            number.FromInt32(i);
                                            name += number;
                                            return name.Length();
                                        });
    Finish(state, kNames, 0, length == kNamesLength);
}

void NamesStandard(benchmark::State& state)
{
    const size_t length = AddUp<size_t>(state, kNames,
                                        [](int32 i)
                                        {
                                            std::string name("object ");
                                            name += std::to_string(i);
                                            return name.size();
                                        });
    Finish(state, kNames, 0, length == kNamesLength);
}

constexpr char kAbsent[] = "fox jumps";

void SearchCore(benchmark::State& state)
{
    const TNqDynamicString text(Prose().data(), static_cast<uint32>(Prose().size()));
    const TNqString15 pattern(kAbsent);
    uint32 found = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(found = text.SearchStr(pattern, 0));
    Finish(state, static_cast<int64>(Prose().size()), Prose().size(), found == kNqNotFound);
}

void SearchStandard(benchmark::State& state)
{
    size_t found = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(found = Prose().find(kAbsent));
    Finish(state, static_cast<int64>(Prose().size()), Prose().size(), found == std::string::npos);
}

// "fox" by "vixen".
bool IsReplaced(size_t inSize, size_t inCount)
{
    return inCount > 10000 && inSize == Prose().size() + 2 * inCount;
}

void ReplaceCore(benchmark::State& state)
{
    const TNqString15 pattern("fox");
    const TNqString15 replacement("vixen");
    uint32 count = 0;
    size_t size = 0;
    for (auto _ : state)
    {
        TNqDynamicString text(Prose().data(), static_cast<uint32>(Prose().size()));
        count = text.ReplaceStr(pattern, replacement, 0);
        size = text.ByteLength();
        benchmark::DoNotOptimize(text.StrGet());
    }
    Finish(state, static_cast<int64>(Prose().size()), Prose().size(), IsReplaced(size, count));
}

void ReplaceStandard(benchmark::State& state)
{
    size_t count = 0;
    size_t size = 0;
    for (auto _ : state)
    {
        std::string text;
        size_t start = 0;
        count = 0;
        for (size_t at = Prose().find("fox"); at != std::string::npos; at = Prose().find("fox", start), ++count)
        {
            text.append(Prose(), start, at - start).append("vixen");
            start = at + 3;
        }
        text.append(Prose(), start);
        size = text.size();
        benchmark::DoNotOptimize(text.data());
    }
    Finish(state, static_cast<int64>(Prose().size()), Prose().size(), IsReplaced(size, count));
}

void UpperCore(benchmark::State& state)
{
    const TNqDynamicString text(Prose().data(), static_cast<uint32>(Prose().size()));
    TNqDynamicString expected(QString::fromStdString(Prose()).toUpper().toUtf8().constData());
    bool correct = false;
    for (auto _ : state)
    {
        TNqDynamicString upper(text);
        upper.ToUpper();
        correct = upper == expected;
    }
    Finish(state, static_cast<int64>(Prose().size()), Prose().size(), correct);
}

void UpperQt(benchmark::State& state)
{
    const QByteArray text = QByteArray::fromStdString(Prose());
    bool changed = false;
    for (auto _ : state)
        changed = QString::fromUtf8(text).toUpper().toUtf8() != text;
    Finish(state, static_cast<int64>(Prose().size()), Prose().size(), changed);
}

// ---- Transcoding: UTF-8 to 16-bit characters, and these to an encoding --------------------------------------------------------------

// The characters, one by one as streams take them.
void DecodeUTF8Core(benchmark::State& state)
{
    TNqCountedPtr<ITranscoder> transcoder;
    NqCreateTranscoder(transcoder, kUTF8Transcoder);
    std::vector<uint16> characters;
    for (auto _ : state)
    {
        characters.clear();
        for (const char byte : Prose())
        {
            const uint16 ch = transcoder->Encode(static_cast<uint8>(byte));
            if (ch != kNqNoCharacter)
                characters.push_back(ch);
        }
    }
    const QString expected = QString::fromStdString(Prose());
    Finish(state, static_cast<int64>(Prose().size()), Prose().size(),
           std::equal(characters.begin(), characters.end(), expected.utf16(), expected.utf16() + expected.size()));
}

void ToUnicodeCore(benchmark::State& state)
{
    const TNqDynamicString text(Prose().data(), static_cast<uint32>(Prose().size()));
    std::vector<uint16> characters(text.Length() + 1);
    const uint16* end = nullptr;
    for (auto _ : state)
        benchmark::DoNotOptimize(end = text.ToUnicode(characters.data(), static_cast<int32>(characters.size())));
    const QString expected = QString::fromStdString(Prose());
    Finish(state, static_cast<int64>(Prose().size()), Prose().size(),
           end == &characters.back() && std::equal(characters.begin(), characters.end() - 1, expected.utf16(),
                                                   expected.utf16() + expected.size()));
}

void DecodeUTF8Qt(benchmark::State& state)
{
    const QByteArray text = QByteArray::fromStdString(Prose());
    qsizetype length = 0;
    for (auto _ : state)
        length = QString::fromUtf8(text).size();
    Finish(state, static_cast<int64>(Prose().size()), Prose().size(), length > 0);
}

void EncodeCore(benchmark::State& state)
{
    TNqCountedPtr<ITranscoder> transcoder;
    NqCreateTranscoder(transcoder, static_cast<TranscoderType>(state.range(0)));
    const QString characters = QString::fromStdString(Prose());
    std::vector<uint8> bytes;
    for (auto _ : state)
    {
        bytes.clear();
        for (const QChar ch : characters)
        {
            const TNqArray<uint8>& encoded = transcoder->Decode(ch.unicode());
            bytes.insert(bytes.end(), encoded.BaseAddress(), encoded.BaseAddress() + encoded.GetElemCount());
        }
    }
    // Each character is in either of the one-byte sets.
    const size_t expected = state.range(0) == kUTF8Transcoder ? Prose().size() : static_cast<size_t>(characters.size());
    Finish(state, characters.size(), bytes.size(), bytes.size() == expected);
}

// A whole text at once.
void FromUnicodeCore(benchmark::State& state)
{
    const QString characters = QString::fromStdString(Prose());
    const uint16* const units = reinterpret_cast<const uint16*>(characters.utf16());
    TNqDynamicString text;
    for (auto _ : state)
    {
        TNqDynamicString made;
        made.FromUnicode(units);
        benchmark::DoNotOptimize(made.StrGet());
        if (text.ByteLength() == 0)
            text = made;
    }
    Finish(state, characters.size(), Prose().size(), text.StrGet() == Prose());
}

void EncodeWholeCore(benchmark::State& state)
{
    TNqCountedPtr<ITranscoder> transcoder;
    NqCreateTranscoder(transcoder, static_cast<TranscoderType>(state.range(0)));
    const QString characters = QString::fromStdString(Prose());
    MeasureWriting(state, characters.size(),
                   [&]
                   {
                       TNqArray<uint8> bytes(0, false);
                       NqDecodeText(*transcoder, reinterpret_cast<const uint16*>(characters.utf16()),
                                    static_cast<uint32>(characters.size()), bytes);
                       return bytes.GetElemCount();
                   });
}

void EncodeUTF8Qt(benchmark::State& state)
{
    const QString characters = QString::fromStdString(Prose());
    size_t size = 0;
    for (auto _ : state)
        size = static_cast<size_t>(characters.toUtf8().size());
    Finish(state, characters.size(), size, size == Prose().size());
}

void EncodeLatin1Qt(benchmark::State& state)
{
    const QString characters = QString::fromStdString(Prose());
    MeasureWriting(state, characters.size(), [&] { return characters.toLatin1().size(); });
}

} // namespace

NQ_BENCHMARK(AppendCore, "append to an array/TNqArray")->Arg(0);
NQ_BENCHMARK(AppendStandard, "append to an array/std::vector")->Arg(0);
NQ_BENCHMARK(AppendCore, "append to a reserved array/TNqArray")->Arg(1);
NQ_BENCHMARK(AppendStandard, "append to a reserved array/std::vector")->Arg(1);
NQ_BENCHMARK(IndexCore, "sum an array by index/TNqArray");
NQ_BENCHMARK(IndexStandard, "sum an array by index/std::vector, at()");

NQ_BENCHMARK(NamesCore, "build short names/TNqString31");
NQ_BENCHMARK(NamesStandard, "build short names/std::string");
NQ_BENCHMARK(SearchCore, "search a long text/TNqDynamicString");
NQ_BENCHMARK(SearchStandard, "search a long text/std::string");
NQ_BENCHMARK(ReplaceCore, "replace in a long text/TNqDynamicString");
NQ_BENCHMARK(ReplaceStandard, "replace in a long text/std::string");
NQ_BENCHMARK(UpperCore, "change a long text to capitals/TNqDynamicString");
NQ_BENCHMARK(UpperQt, "change a long text to capitals/QString");

NQ_BENCHMARK(DecodeUTF8Core, "UTF-8 to characters/NqCore transcoder, by the byte");
NQ_BENCHMARK(ToUnicodeCore, "UTF-8 to characters/TNqDynamicString::ToUnicode");
NQ_BENCHMARK(DecodeUTF8Qt, "UTF-8 to characters/QString::fromUtf8");
NQ_BENCHMARK(FromUnicodeCore, "characters to UTF-8/TNqDynamicString::FromUnicode");
NQ_BENCHMARK(EncodeCore, "characters to UTF-8/NqCore transcoder, one by one")->Arg(kUTF8Transcoder);
NQ_BENCHMARK(EncodeWholeCore, "characters to UTF-8/NqCore transcoder, whole text")->Arg(kUTF8Transcoder);
NQ_BENCHMARK(EncodeUTF8Qt, "characters to UTF-8/QString::toUtf8");
NQ_BENCHMARK(EncodeCore, "characters to one byte each/NqCore, Windows-1252")->Arg(kAnsiTranscoder);
NQ_BENCHMARK(EncodeCore, "characters to one byte each/NqCore, Mac OS Roman")->Arg(kMacTranscoder);
NQ_BENCHMARK(EncodeWholeCore, "characters to one byte each/NqCore, Windows-1252, whole text")->Arg(kAnsiTranscoder);
NQ_BENCHMARK(EncodeWholeCore, "characters to one byte each/NqCore, Mac OS Roman, whole text")->Arg(kMacTranscoder);
NQ_BENCHMARK(EncodeLatin1Qt, "characters to one byte each/QString::toLatin1");
