// A mesh of real arrays as text: written to memory and read back.

#include "Benchmarks/Benchmarks.h"
#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqToken.h"

#include <QTextStream>
#include <pugixml.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <iomanip>
#include <sstream>

using namespace NqBench;

namespace
{

// ---- NqCore --------------------------------------------------------------------------------------------------------------------

constexpr int32 kMesh = 0x4D455348;      // MESH
constexpr int32 kPositions = 0x504F534E; // POSN
constexpr int32 kNormals = 0x4E524D4C;   // NRML
constexpr int32 kTexture = 0x54455843;   // TEXC
constexpr int32 kFaces = 0x46414345;     // FACE
constexpr int32 kCount = 0x434F554E;     // COUN

void PutReals(TNqiostream& ioStream, int32 inName, const std::vector<real32>& inValues)
{
    NqToken::PutInt32Attribute(ioStream, kCount, static_cast<int32>(inValues.size()));
    NqToken::PutReal32ArrayAttribute(ioStream, inName, static_cast<int32>(inValues.size()), inValues.data());
}

void PutMesh(TNqiostream& ioStream, const TMesh& inMesh)
{
    NqToken::PutBeginToken(ioStream, kMesh, false);
    PutReals(ioStream, kPositions, inMesh.fPositions);
    PutReals(ioStream, kNormals, inMesh.fNormals);
    PutReals(ioStream, kTexture, inMesh.fTexture);
    NqToken::PutInt32Attribute(ioStream, kCount, static_cast<int32>(inMesh.fFaces.size()));
    NqToken::PutInt32ArrayAttribute(ioStream, kFaces, static_cast<int32>(inMesh.fFaces.size()), inMesh.fFaces.data());
    NqToken::PutEndToken(ioStream);
}

void GetReals(TNqiostream& ioStream, std::vector<real32>& outValues, int32 inCount)
{
    outValues.resize(static_cast<size_t>(inCount));
    NqToken::GetReal32ArrayToken(ioStream, inCount, outValues.data());
}

TMesh GetMesh(TNqiostream& ioStream)
{
    TMesh mesh;
    int32 count = 0;
    int8 token[NqToken::kTokenBufferSize];
    NqToken::GetNextToken(ioStream, token, false);
    NqToken::GetBeginToken(ioStream);
    while (NqToken::GetNextToken(ioStream, token, false) == 0 && !NqToken::IsEndToken(token))
        switch (NqToken::CompactAttribute(token))
        {
        case kCount:
            count = NqToken::GetInt32Token(ioStream);
            break;
        case kPositions:
            GetReals(ioStream, mesh.fPositions, count);
            break;
        case kNormals:
            GetReals(ioStream, mesh.fNormals, count);
            break;
        case kTexture:
            GetReals(ioStream, mesh.fTexture, count);
            break;
        case kFaces:
            mesh.fFaces.resize(static_cast<size_t>(count));
            NqToken::GetInt32ArrayToken(ioStream, count, mesh.fFaces.data());
            break;
        default:
            NqToken::SkipTokenData(ioStream);
        }
    return mesh;
}

std::string TokenText(const TMesh& inMesh)
{
    TNqstrstream stream(kUTF8Transcoder);
    PutMesh(stream, inMesh);
    return TakeText(stream);
}

void WriteTokens(benchmark::State& state)
{
    size_t size = 0;
    for (auto _ : state)
    {
        TNqstrstream stream(kUTF8Transcoder);
        PutMesh(stream, Mesh());
        size = static_cast<size_t>(stream.pcount());
    }
    Finish(state, Mesh().ValueCount(), size, size > 0);
}

void ReadTokens(benchmark::State& state)
{
    std::string text = TokenText(Mesh());
    TMesh mesh;
    for (auto _ : state)
    {
        TNqstrstream stream(text.data(), static_cast<int32>(text.size()), kUTF8Transcoder, eRead);
        mesh = GetMesh(stream);
    }
    Finish(state, Mesh().ValueCount(), text.size(), mesh.IsLike(Mesh()));
}

constexpr char kFile[] = "/tmp/nqbench.nq";

size_t WriteFile(const TMesh& inMesh)
{
    TNqfstream stream(kFile, kUTF8Transcoder, eWrite, 65536, nullptr);
    PutMesh(stream, inMesh);
    stream.flush();
    return stream.good() ? stream.GetFileSize() : 0;
}

void WriteTokenFile(benchmark::State& state)
{
    MeasureWriting(state, Mesh().ValueCount(), [] { return WriteFile(Mesh()); });
    std::remove(kFile);
}

void ReadTokenFile(benchmark::State& state)
{
    const size_t size = WriteFile(Mesh());
    TMesh mesh;
    for (auto _ : state)
    {
        TNqfstream stream(kFile, kUTF8Transcoder, eRead, 65536, nullptr);
        mesh = GetMesh(stream);
    }
    std::remove(kFile);
    Finish(state, Mesh().ValueCount(), size, mesh.IsLike(Mesh()));
}

// ---- RapidJSON -----------------------------------------------------------------------------------------------------------------

using TJsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

template <class T>
void PutJsonArray(TJsonWriter& ioWriter, const char* inName, const std::vector<T>& inValues)
{
    ioWriter.Key(inName);
    ioWriter.StartArray();
    for (const T value : inValues)
    {
        if constexpr (std::is_same_v<T, real32>)
            ioWriter.Double(value);
        else
            ioWriter.Int(value);
    }
    ioWriter.EndArray();
}

void PutJson(rapidjson::StringBuffer& outText, const TMesh& inMesh)
{
    TJsonWriter writer(outText);
    writer.SetMaxDecimalPlaces(6);
    writer.StartObject();
    PutJsonArray(writer, "positions", inMesh.fPositions);
    PutJsonArray(writer, "normals", inMesh.fNormals);
    PutJsonArray(writer, "texture", inMesh.fTexture);
    PutJsonArray(writer, "faces", inMesh.fFaces);
    writer.EndObject();
}

std::string JsonText(const TMesh& inMesh)
{
    rapidjson::StringBuffer buffer;
    PutJson(buffer, inMesh);
    return {buffer.GetString(), buffer.GetSize()};
}

void WriteJson(benchmark::State& state)
{
    MeasureWriting(state, Mesh().ValueCount(), [] { return JsonText(Mesh()).size(); });
}

template <class T>
void GetJsonArray(const rapidjson::Document& inDocument, const char* inName, std::vector<T>& outValues)
{
    const auto& array = inDocument[inName].GetArray();
    outValues.reserve(array.Size());
    for (const auto& value : array)
    {
        if constexpr (std::is_same_v<T, real32>)
            outValues.push_back(value.GetFloat());
        else
            outValues.push_back(value.GetInt());
    }
}

void ReadJsonDocument(benchmark::State& state)
{
    const std::string text = JsonText(Mesh());
    TMesh mesh;
    for (auto _ : state)
    {
        rapidjson::Document document;
        document.Parse(text.data(), text.size());
        mesh = TMesh();
        GetJsonArray(document, "positions", mesh.fPositions);
        GetJsonArray(document, "normals", mesh.fNormals);
        GetJsonArray(document, "texture", mesh.fTexture);
        GetJsonArray(document, "faces", mesh.fFaces);
    }
    Finish(state, Mesh().ValueCount(), text.size(), mesh.IsLike(Mesh()));
}

// Takes the numbers as they pass, without a document in between.
struct TJsonMeshHandler : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, TJsonMeshHandler>
{
    bool Key(const char* inText, rapidjson::SizeType, bool)
    {
        fReals = *inText == 'p'   ? &fMesh.fPositions
                 : *inText == 'n' ? &fMesh.fNormals
                 : *inText == 't' ? &fMesh.fTexture
                                  : nullptr;
        return true;
    }
    bool Double(double inValue)
    {
        fReals->push_back(static_cast<real32>(inValue));
        return true;
    }
    bool Int(int inValue)
    {
        if (fReals != nullptr)
            fReals->push_back(static_cast<real32>(inValue));
        else
            fMesh.fFaces.push_back(inValue);
        return true;
    }
    bool Uint(unsigned inValue) { return Int(static_cast<int>(inValue)); }

    TMesh fMesh;
    std::vector<real32>* fReals = nullptr;
};

void ReadJsonEvents(benchmark::State& state)
{
    const std::string text = JsonText(Mesh());
    TMesh mesh;
    for (auto _ : state)
    {
        rapidjson::Reader reader;
        rapidjson::StringStream stream(text.c_str());
        TJsonMeshHandler handler;
        reader.Parse(stream, handler);
        mesh = std::move(handler.fMesh);
    }
    Finish(state, Mesh().ValueCount(), text.size(), mesh.IsLike(Mesh()));
}

// ---- pugixml: an element with the numbers as its text, converted by the standard library ------------------------------------------

template <class T>
void PutXmlArray(pugi::xml_node inParent, const char* inName, const std::vector<T>& inValues)
{
    std::string text;
    text.reserve(inValues.size() * 10);
    char digits[64];
    for (const T value : inValues)
    {
        std::to_chars_result end{};
        if constexpr (std::is_same_v<T, real32>)
            end = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, 6);
        else
            end = std::to_chars(digits, digits + sizeof digits, value);
        text.append(digits, end.ptr);
        text += ' ';
    }
    inParent.append_child(inName).text().set(text.c_str());
}

std::string XmlText(const TMesh& inMesh)
{
    pugi::xml_document document;
    pugi::xml_node node = document.append_child("mesh");
    PutXmlArray(node, "positions", inMesh.fPositions);
    PutXmlArray(node, "normals", inMesh.fNormals);
    PutXmlArray(node, "texture", inMesh.fTexture);
    PutXmlArray(node, "faces", inMesh.fFaces);
    return TextOf(document);
}

void WriteXml(benchmark::State& state)
{
    MeasureWriting(state, Mesh().ValueCount(), [] { return XmlText(Mesh()).size(); });
}

template <class T>
void GetXmlArray(pugi::xml_node inParent, const char* inName, std::vector<T>& outValues)
{
    const char* text = inParent.child(inName).text().get();
    const char* const end = text + std::strlen(text);
    T value{};
    for (;;)
    {
        const std::from_chars_result result = std::from_chars(text, end, value);
        if (result.ec != std::errc())
            return;
        outValues.push_back(value);
        text = result.ptr + 1;
    }
}

void ReadXml(benchmark::State& state)
{
    const std::string text = XmlText(Mesh());
    TMesh mesh;
    for (auto _ : state)
    {
        pugi::xml_document document;
        document.load_buffer(text.data(), text.size());
        const pugi::xml_node node = document.child("mesh");
        mesh = TMesh();
        GetXmlArray(node, "positions", mesh.fPositions);
        GetXmlArray(node, "normals", mesh.fNormals);
        GetXmlArray(node, "texture", mesh.fTexture);
        GetXmlArray(node, "faces", mesh.fFaces);
    }
    Finish(state, Mesh().ValueCount(), text.size(), mesh.IsLike(Mesh()));
}

// ---- Text streams: the numbers and nothing else -----------------------------------------------------------------------------------

template <class Stream>
void PutPlain(Stream& ioStream, const TMesh& inMesh)
{
    for (const std::vector<real32>* reals : {&inMesh.fPositions, &inMesh.fNormals, &inMesh.fTexture})
        for (const real32 value : *reals)
            ioStream << value << ' ';
    for (const int32 value : inMesh.fFaces)
        ioStream << value << ' ';
}

template <class Stream>
TMesh GetPlain(Stream& ioStream)
{
    TMesh mesh;
    mesh.fPositions.resize(Mesh().fPositions.size());
    mesh.fNormals.resize(Mesh().fNormals.size());
    mesh.fTexture.resize(Mesh().fTexture.size());
    mesh.fFaces.resize(Mesh().fFaces.size());
    for (std::vector<real32>* reals : {&mesh.fPositions, &mesh.fNormals, &mesh.fTexture})
        for (real32& value : *reals)
            ioStream >> value;
    for (int32& value : mesh.fFaces)
        ioStream >> value;
    return mesh;
}

QByteArray QtText(const TMesh& inMesh)
{
    QByteArray text;
    QTextStream stream(&text);
    stream.setRealNumberNotation(QTextStream::FixedNotation);
    stream.setRealNumberPrecision(6);
    PutPlain(stream, inMesh);
    stream.flush();
    return text;
}

void WriteQt(benchmark::State& state)
{
    MeasureWriting(state, Mesh().ValueCount(), [] { return QtText(Mesh()).size(); });
}

void ReadQt(benchmark::State& state)
{
    const QByteArray text = QtText(Mesh());
    TMesh mesh;
    for (auto _ : state)
    {
        QTextStream stream(text);
        mesh = GetPlain(stream);
    }
    Finish(state, Mesh().ValueCount(), static_cast<size_t>(text.size()), mesh.IsLike(Mesh()));
}

std::string StandardText(const TMesh& inMesh)
{
    std::ostringstream stream;
    stream << std::fixed << std::setprecision(6);
    PutPlain(stream, inMesh);
    return stream.str();
}

void WriteStandard(benchmark::State& state)
{
    MeasureWriting(state, Mesh().ValueCount(), [] { return StandardText(Mesh()).size(); });
}

void ReadStandard(benchmark::State& state)
{
    const std::string text = StandardText(Mesh());
    TMesh mesh;
    for (auto _ : state)
    {
        std::istringstream stream(text);
        mesh = GetPlain(stream);
    }
    Finish(state, Mesh().ValueCount(), text.size(), mesh.IsLike(Mesh()));
}

} // namespace

NQ_BENCHMARK(WriteTokens, "write a mesh/NqCore tokens");
NQ_BENCHMARK(WriteTokenFile, "write a mesh/NqCore tokens, to a file");
NQ_BENCHMARK(WriteJson, "write a mesh/RapidJSON");
NQ_BENCHMARK(WriteXml, "write a mesh/pugixml, to_chars");
NQ_BENCHMARK(WriteQt, "write a mesh/QTextStream");
NQ_BENCHMARK(WriteStandard, "write a mesh/std::ostringstream");

NQ_BENCHMARK(ReadTokens, "read a mesh/NqCore tokens");
NQ_BENCHMARK(ReadTokenFile, "read a mesh/NqCore tokens, from a file");
NQ_BENCHMARK(ReadJsonDocument, "read a mesh/RapidJSON document");
NQ_BENCHMARK(ReadJsonEvents, "read a mesh/RapidJSON events");
NQ_BENCHMARK(ReadXml, "read a mesh/pugixml, from_chars");
NQ_BENCHMARK(ReadQt, "read a mesh/QTextStream");
NQ_BENCHMARK(ReadStandard, "read a mesh/std::istringstream");
