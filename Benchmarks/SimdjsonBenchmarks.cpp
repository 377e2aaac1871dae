// simdjson's on-demand reader. Compiled twice: as everything else is, and for the processor of this machine, for which
// it then has its quickest code.

#include "Benchmarks/Benchmarks.h"
#include "Benchmarks/Scene.h"

#include <simdjson.h>

#include <string_view>

#ifdef NQBENCH_NATIVE
#define NQ_CONTENDER "simdjson, for this processor"
#else
#define NQ_CONTENDER "simdjson on-demand"
#endif

using namespace NqBench;
using namespace simdjson;

namespace
{

using TObjectResult = simdjson_result<ondemand::object>;

uint32 KeyOf(simdjson_result<ondemand::field>& inField)
{
    const std::string_view key = inField.unescaped_key();
    return NameOf(key.data(), key.size());
}

template <class T>
void TakeArray(ondemand::array inArray, size_t inCount, TTaken& ioTaken)
{
    T* out = ioTaken.Room<T>(inCount);
    for (auto value : inArray)
    {
        if constexpr (std::is_same_v<T, real32>)
            *out++ = static_cast<real32>(value.get_double().value());
        else
            *out++ = static_cast<int32>(value.get_int64().value());
    }
    ioTaken.Took<T>(inCount);
}

void TakeMesh(ondemand::object inMesh, TMeshCounts& ioCounts, TTaken& ioTaken)
{
    for (auto field : inMesh)
    {
        const uint32 key = KeyOf(field);
        const EMeshName name = MeshName(key);
        switch (name)
        {
        case kRealArray:
            TakeArray<real32>(field.value().get_array(), ioCounts.Reals(), ioTaken);
            break;
        case kIntegerArray:
            TakeArray<int32>(field.value().get_array(), ioCounts.Integers(key), ioTaken);
            break;
        case kTextureBlock:
        case kColourBlock:
            for (auto block : field.value().get_array())
            {
                ioCounts.fDimensions = name == kTextureBlock ? 2 : 4;
                TakeMesh(block.get_object(), ioCounts, ioTaken);
                ioCounts.fDimensions = 3;
            }
            break;
        case kOtherName:
        case kMeshes:
            break; // what is not asked for is passed over
        default:
            ioCounts.Set(name, field.value().get_uint64());
        }
    }
}

// It keeps its memory from document to document.
ondemand::parser& Parser()
{
    static ondemand::parser sParser;
    return sParser;
}

const padded_string& Text()
{
    static const padded_string sText(Scene().fJson);
    return sText;
}

void ReadMeshes(benchmark::State& state)
{
    MeasureReading(state, Scene().fSums, Scene().fTokens.size(),
                   [&](TTaken& ioTaken)
                   {
                       ondemand::document document = Parser().iterate(Text());
                       for (auto scene : document["SCEN"].get_array())
                           for (auto field : scene.get_object())
                               if (MeshName(KeyOf(field)) == kMeshes)
                                   for (auto mesh : field.value().get_array())
                                   {
                                       TMeshCounts counts;
                                       TakeMesh(mesh.get_object(), counts, ioTaken);
                                   }
                   });
}

size_t Skip()
{
    size_t scenes = 0;
    ondemand::document document = Parser().iterate(Text());
    for (auto scene : document["SCEN"].get_array())
    {
        const std::string_view text = scene.get_object().value().raw_json();
        benchmark::DoNotOptimize(text.data());
        ++scenes;
    }
    return scenes;
}

void SkipScenes(benchmark::State& state)
{
    size_t scenes = Skip(); // the parser has its memory from here on
    for (auto _ : state)
        scenes = Skip();
    Finish(state, 1, Scene().fTokens.size(), scenes == Scene().fScenes);
}

void ReadObjects(benchmark::State& state)
{
    const padded_string text(ObjectsJson());
    std::vector<TObject> objects;
    for (auto _ : state)
    {
        objects.clear();
        ondemand::document document = Parser().iterate(text);
        for (auto value : document.get_array())
        {
            TObject object{};
            ondemand::object fields = value.get_object();
            object.fName = std::string_view(fields["name"]);
            object.fId = static_cast<int32>(fields["id"].get_int64());
            object.fVisible = fields["visible"].get_bool();
            object.fMass = static_cast<real32>(fields["mass"].get_double());
            objects.push_back(std::move(object));
        }
    }
    Finish(state, static_cast<int64>(Objects().size()) * 4, text.size(), AreLike(objects, Objects()));
}

} // namespace

NQ_SCENE_BENCHMARK(ReadMeshes, "read meshes/" NQ_CONTENDER);
NQ_SCENE_BENCHMARK(SkipScenes, "skip scenes/" NQ_CONTENDER);
NQ_BENCHMARK(ReadObjects, "read small attributes/" NQ_CONTENDER);
