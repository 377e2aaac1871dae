// Many small objects with named attributes: what a tokenizer spends on names, strings and single numbers.

#include "Benchmarks/Benchmarks.h"
#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqToken.h"

#include <pugixml.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

using namespace NqBench;

namespace
{

constexpr int32 kObject = 0x4F424A54;  // OBJT
constexpr int32 kName = 0x4E414D45;    // NAME
constexpr int32 kId = 0x49444E54;      // IDNT
constexpr int32 kVisible = 0x56495349; // VISI
constexpr int32 kMass = 0x4D415353;    // MASS

constexpr int64 kAttributes = 4; // of each object

int64 AttributeCount()
{
    return static_cast<int64>(Objects().size()) * kAttributes;
}

// ---- NqCore ---------------------------------------------------------------------------------------------------------

std::string TokenText()
{
    TNqstrstream stream(kUTF8Transcoder);
    for (const TObject& object : Objects())
    {
        NqToken::PutBeginToken(stream, kObject, false);
        NqToken::PutNonLocalizedStringAttribute(stream, kName, TNqString255(object.fName.c_str()), false);
        NqToken::PutInt32Attribute(stream, kId, object.fId);
        NqToken::PutBooleanAttribute(stream, kVisible, object.fVisible);
        NqToken::PutReal32Attribute(stream, kMass, object.fMass);
        NqToken::PutEndToken(stream);
    }
    return TakeText(stream);
}

TObject GetObject(TNqiostream& ioStream)
{
    TObject object{};
    int8 token[NqToken::kTokenBufferSize];
    NqToken::GetBeginToken(ioStream);
    while (NqToken::GetNextToken(ioStream, token, false) == 0 && !NqToken::IsEndToken(token))
        switch (NqToken::CompactAttribute(token))
        {
        case kName:
            object.fName = NqToken::GetNonLocalizedStringToken(ioStream).StrGet();
            break;
        case kId:
            object.fId = NqToken::GetInt32Token(ioStream);
            break;
        case kVisible:
            object.fVisible = NqToken::GetBooleanToken(ioStream) != 0;
            break;
        case kMass:
            object.fMass = NqToken::GetReal32Token(ioStream);
            break;
        default:
            NqToken::SkipTokenData(ioStream);
        }
    return object;
}

void WriteTokens(benchmark::State& state)
{
    MeasureWriting(state, AttributeCount(), [] { return TokenText().size(); });
}

void ReadTokens(benchmark::State& state)
{
    std::string text = TokenText();
    std::vector<TObject> objects;
    for (auto _ : state)
    {
        TNqstrstream stream(text.data(), static_cast<int32>(text.size()), kUTF8Transcoder, eRead);
        int8 token[NqToken::kTokenBufferSize];
        objects.clear();
        while (NqToken::GetNextToken(stream, token, false) == 0)
            objects.push_back(GetObject(stream));
    }
    Finish(state, AttributeCount(), text.size(), AreLike(objects, Objects()));
}

// Only the tokens, as a program that looks for one name would pass them.
void SkipTokens(benchmark::State& state)
{
    std::string text = TokenText();
    size_t blocks = 0;
    for (auto _ : state)
    {
        TNqstrstream stream(text.data(), static_cast<int32>(text.size()), kUTF8Transcoder, eRead);
        int8 token[NqToken::kTokenBufferSize];
        for (blocks = 0; NqToken::GetNextToken(stream, token, false) == 0; ++blocks)
            NqToken::SkipTokenData(stream);
    }
    Finish(state, AttributeCount(), text.size(), blocks == Objects().size());
}

// ---- RapidJSON ------------------------------------------------------------------------------------------------------

} // namespace

std::string NqBench::ObjectsJson()
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartArray();
    for (const TObject& object : Objects())
    {
        writer.StartObject();
        writer.Key("name");
        writer.String(object.fName.c_str(), static_cast<rapidjson::SizeType>(object.fName.size()));
        writer.Key("id");
        writer.Int(object.fId);
        writer.Key("visible");
        writer.Bool(object.fVisible);
        writer.Key("mass");
        writer.Double(object.fMass);
        writer.EndObject();
    }
    writer.EndArray();
    return {buffer.GetString(), buffer.GetSize()};
}

namespace
{

void WriteJson(benchmark::State& state)
{
    MeasureWriting(state, AttributeCount(), [] { return ObjectsJson().size(); });
}

void ReadJson(benchmark::State& state)
{
    const std::string text = ObjectsJson();
    std::vector<TObject> objects;
    for (auto _ : state)
    {
        rapidjson::Document document;
        document.Parse(text.data(), text.size());
        objects.clear();
        for (const auto& value : document.GetArray())
            objects.push_back({value["name"].GetString(), value["id"].GetInt(), value["visible"].GetBool(),
                               value["mass"].GetFloat()});
    }
    Finish(state, AttributeCount(), text.size(), AreLike(objects, Objects()));
}

// Takes the values as they pass.
struct TObjectHandler : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, TObjectHandler>
{
    explicit TObjectHandler(std::vector<TObject>& outObjects) : fObjects(outObjects) {}

    bool StartObject()
    {
        fObjects.emplace_back();
        return true;
    }
    bool Key(const char* inText, rapidjson::SizeType, bool)
    {
        fKey = *inText;
        return true;
    }
    bool String(const char* inText, rapidjson::SizeType inLength, bool)
    {
        fObjects.back().fName.assign(inText, inLength);
        return true;
    }
    bool Bool(bool inValue)
    {
        fObjects.back().fVisible = inValue;
        return true;
    }
    bool Uint(unsigned inValue)
    {
        if (fKey == 'i')
            fObjects.back().fId = static_cast<int32>(inValue);
        else
            fObjects.back().fMass = static_cast<real32>(inValue);
        return true;
    }
    bool Double(double inValue)
    {
        fObjects.back().fMass = static_cast<real32>(inValue);
        return true;
    }

    std::vector<TObject>& fObjects;
    char fKey = 0;
};

void ReadJsonEvents(benchmark::State& state)
{
    const std::string text = ObjectsJson();
    std::vector<TObject> objects;
    for (auto _ : state)
    {
        objects.clear();
        rapidjson::Reader reader;
        rapidjson::StringStream stream(text.c_str());
        TObjectHandler handler(objects);
        reader.Parse(stream, handler);
    }
    Finish(state, AttributeCount(), text.size(), AreLike(objects, Objects()));
}

// ---- pugixml --------------------------------------------------------------------------------------------------------

std::string XmlText()
{
    pugi::xml_document document;
    pugi::xml_node root = document.append_child("objects");
    for (const TObject& object : Objects())
    {
        pugi::xml_node node = root.append_child("object");
        node.append_attribute("name") = object.fName.c_str();
        node.append_attribute("id") = object.fId;
        node.append_attribute("visible") = object.fVisible;
        node.append_attribute("mass") = object.fMass;
    }
    return TextOf(document);
}

void WriteXml(benchmark::State& state)
{
    MeasureWriting(state, AttributeCount(), [] { return XmlText().size(); });
}

void ReadXml(benchmark::State& state)
{
    const std::string text = XmlText();
    std::vector<TObject> objects;
    for (auto _ : state)
    {
        pugi::xml_document document;
        document.load_buffer(text.data(), text.size());
        objects.clear();
        for (const pugi::xml_node node : document.child("objects"))
            objects.push_back({node.attribute("name").value(), node.attribute("id").as_int(),
                               node.attribute("visible").as_bool(), node.attribute("mass").as_float()});
    }
    Finish(state, AttributeCount(), text.size(), AreLike(objects, Objects()));
}

} // namespace

NQ_BENCHMARK(WriteTokens, "write small attributes/NqCore");
NQ_BENCHMARK(WriteJson, "write small attributes/RapidJSON Writer");
NQ_BENCHMARK(WriteXml, "write small attributes/pugixml");

NQ_BENCHMARK(ReadTokens, "read small attributes/NqCore");
NQ_BENCHMARK(SkipTokens, "read small attributes/NqCore, skipped only");
NQ_BENCHMARK(ReadJson, "read small attributes/RapidJSON document");
NQ_BENCHMARK(ReadJsonEvents, "read small attributes/RapidJSON SAX");
NQ_BENCHMARK(ReadXml, "read small attributes/pugixml document");
