#include "Benchmarks/Scene.h"
#include "Benchmarks/Benchmarks.h"

#include <pugixml.hpp>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>

namespace NqBench
{

namespace
{

std::string gSceneFile;

// A name and its value in token text.
struct TItem
{
    std::string_view fName;
    enum
    {
        kWord,
        kString,
        kBlock
    } fKind = kWord;
    std::string_view fText; // of a string what stands between the quotes
    std::vector<TItem> fItems;
};

// Reads token text as nqtoken writes it: without comments and payloads.
class TTokenText
{
public:
    explicit TTokenText(std::string_view inText) : fRest(inText) {}

    // The items up to the end of the text or of the block.
    std::vector<TItem> Items()
    {
        std::vector<TItem> items;
        for (;;)
        {
            SkipBlanks();
            if (fRest.empty())
                return items;
            if (fRest[0] == '}')
            {
                fRest.remove_prefix(1);
                return items;
            }
            TItem item;
            item.fName = Word();
            if (item.fName.empty())
                Fail();
            SkipBlanks();
            if (!fRest.empty() && fRest[0] == '{')
            {
                fRest.remove_prefix(1);
                item.fKind = TItem::kBlock;
                item.fItems = Items();
            }
            else if (!fRest.empty() && fRest[0] == '"')
            {
                item.fKind = TItem::kString;
                item.fText = String();
            }
            else
                item.fText = Word();
            items.push_back(std::move(item));
        }
    }

private:
    static bool IsBlank(char inByte) { return inByte == ' ' || inByte == '\t' || inByte == '\r' || inByte == '\n'; }

    void SkipBlanks()
    {
        while (!fRest.empty() && IsBlank(fRest[0]))
            fRest.remove_prefix(1);
    }
    std::string_view Take(size_t inLength)
    {
        const std::string_view text = fRest.substr(0, inLength);
        fRest.remove_prefix(inLength);
        return text;
    }
    std::string_view Word()
    {
        size_t end = 0;
        while (end < fRest.size() && !IsBlank(fRest[end]) && std::strchr("{}\"#", fRest[end]) == nullptr)
            ++end;
        return Take(end);
    }
    std::string_view String()
    {
        fRest.remove_prefix(1);
        size_t end = 0;
        while (end < fRest.size() && fRest[end] != '"')
            end += fRest[end] == '\\' || fRest[end] == 1 ? 2 : 1;
        if (end >= fRest.size())
            Fail();
        const std::string_view text = Take(end);
        fRest.remove_prefix(1);
        return text;
    }
    [[noreturn]] static void Fail()
    {
        std::fprintf(stderr, "nqbench: %s is no scene that nqtoken has written\n", gSceneFile.c_str());
        std::exit(2);
    }

    std::string_view fRest;
};

std::string Unescaped(std::string_view inText)
{
    std::string text;
    for (size_t i = 0; i < inText.size(); ++i)
    {
        if ((inText[i] == '\\' || inText[i] == 1) && i + 1 < inText.size())
            ++i;
        text += inText[i];
    }
    return text;
}

bool IsNumber(std::string_view inText)
{
    return !inText.empty() && inText.find_first_not_of("0123456789+-.,eE") == std::string_view::npos &&
           inText.find_first_of("0123456789") != std::string_view::npos;
}

bool IsArray(const TItem& inItem)
{
    const EMeshName name = MeshName(NameOf(inItem.fName.data(), inItem.fName.size()));
    return name == kRealArray || name == kIntegerArray || inItem.fName == "MSHS" ||
           inItem.fText.find(',') != std::string_view::npos;
}

// ---- JSON: blocks are objects, in an array where several of a name may follow one another ------------------------------

using TJson = rapidjson::Writer<rapidjson::StringBuffer>;

void PutString(TJson& ioJson, std::string_view inText)
{
    ioJson.String(inText.data(), static_cast<rapidjson::SizeType>(inText.size()));
}

void PutItems(TJson& ioJson, const std::vector<TItem>& inItems)
{
    ioJson.StartObject();
    for (size_t i = 0; i < inItems.size(); ++i)
    {
        const TItem& item = inItems[i];
        ioJson.Key(item.fName.data(), static_cast<rapidjson::SizeType>(item.fName.size()));
        if (item.fKind == TItem::kBlock)
        {
            ioJson.StartArray();
            PutItems(ioJson, item.fItems);
            while (i + 1 < inItems.size() && inItems[i + 1].fKind == TItem::kBlock &&
                   inItems[i + 1].fName == item.fName)
                PutItems(ioJson, inItems[++i].fItems);
            ioJson.EndArray();
        }
        else if (item.fKind == TItem::kWord && IsNumber(item.fText))
        {
            // The very digits of the token text.
            const std::string text = IsArray(item) ? "[" + std::string(item.fText) + "]" : std::string(item.fText);
            ioJson.RawValue(text.data(), text.size(), IsArray(item) ? rapidjson::kArrayType : rapidjson::kNumberType);
        }
        else
            PutString(ioJson, Unescaped(item.fText));
    }
    ioJson.EndObject();
}

// ---- XML: an element for each item ---------------------------------------------------------------------------------------

void PutItems(pugi::xml_node ioNode, const std::vector<TItem>& inItems)
{
    for (const TItem& item : inItems)
    {
        std::string name(item.fName);
        if (name[0] >= '0' && name[0] <= '9')
            name.insert(0, 1, '_');
        pugi::xml_node node = ioNode.append_child(name.c_str());
        if (item.fKind == TItem::kBlock)
            PutItems(node, item.fItems);
        else
            node.text().set(Unescaped(item.fText).c_str());
    }
}

// ---- The arrays ------------------------------------------------------------------------------------------------------------

template <class T>
std::vector<T> ToValues(std::string_view inText)
{
    const std::string text(inText); // with an end for the functions of C
    std::vector<T> values;
    for (const char* at = text.c_str();; ++at)
    {
        char* end = nullptr;
        if constexpr (std::is_same_v<T, real32>)
            values.push_back(std::strtof(at, &end));
        else
            values.push_back(static_cast<int32>(std::strtol(at, &end, 10)));
        at = end;
        if (*at != ',')
            return values;
    }
}

template <class T>
void TakeArray(const TItem& inItem, std::vector<std::vector<T>>& outArrays, std::string& outText, TSums& outSums)
{
    outArrays.push_back(ToValues<T>(inItem.fText));
    outText.append(inItem.fName).append(1, ' ').append(inItem.fText).append(1, '\r');
    outSums.Add(outArrays.back().data(), outArrays.back().size());
}

void TakeArrays(const std::vector<TItem>& inItems, TScene& outScene)
{
    for (const TItem& item : inItems)
        switch (MeshName(NameOf(item.fName.data(), item.fName.size())))
        {
        case kRealArray:
            TakeArray(item, outScene.fReals, outScene.fRealText, outScene.fRealSums);
            break;
        case kIntegerArray:
            TakeArray(item, outScene.fIntegers, outScene.fIntegerText, outScene.fIntegerSums);
            break;
        case kTextureBlock:
        case kColourBlock:
            TakeArrays(item.fItems, outScene);
            break;
        default:
            break;
        }
}

TScene MakeScene()
{
    TScene scene;
    std::ifstream file(gSceneFile, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    scene.fTokens = text.str();
    if (!file || scene.fTokens.empty())
    {
        std::fprintf(stderr, "nqbench: cannot read %s\n", gSceneFile.c_str());
        std::exit(2);
    }
    const std::vector<TItem> items = TTokenText(scene.fTokens).Items();
    scene.fScenes = items.size();
    for (const TItem& item : items)
        for (const TItem& block : item.fItems)
            if (block.fName == "MESH")
            {
                ++scene.fMeshes;
                TakeArrays(block.fItems, scene);
            }
    scene.fSums = scene.fRealSums;
    scene.fSums.fIntegerCount = scene.fIntegerSums.fIntegerCount;
    scene.fSums.fIntegers = scene.fIntegerSums.fIntegers;

    rapidjson::StringBuffer buffer;
    TJson json(buffer);
    PutItems(json, items);
    scene.fJson.assign(buffer.GetString(), buffer.GetSize());

    pugi::xml_document document;
    PutItems(document.append_child("SCENES"), items);
    scene.fXml = TextOf(document);
    return scene;
}

} // namespace

void SetSceneFile(const std::string& inFile)
{
    gSceneFile = inFile;
}

bool HasScene()
{
    return !gSceneFile.empty();
}

const TScene& Scene()
{
    static const TScene sScene = MakeScene();
    return sScene;
}

} // namespace NqBench
