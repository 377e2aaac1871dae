// What "nqtoken compare" tells of two scenes.

#include "Tests/TestHost.h"

#ifdef NQTOKEN_PATH

#include "Tools/nqtoken/Compare.h"
#include "Tools/nqtoken/Output.h"
#include "Tools/nqtoken/Pairing.h"

#include <fcntl.h>
#include <unistd.h>

using namespace nqtoken;

namespace
{

constexpr FourCharT Code(const char (&name)[5])
{
    return static_cast<FourCharT>(name[0]) << 24 | static_cast<FourCharT>(name[1]) << 16 |
           static_cast<FourCharT>(name[2]) << 8 | static_cast<FourCharT>(name[3]);
}

class Compare : public FolderTest
{
protected:
    // The lines that say what differs, without the table's own.
    TTexts Told(const Scene& a, const Scene& b, real64 tolerance = kTextTolerance) const
    {
        const int file = open(Path("out").c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        Output output(file);
        const ExitStatus status = CompareScenes(a, b, tolerance, output);
        EXPECT_TRUE(output.Flush().Ok());
        close(file);
        TTexts lines;
        std::istringstream all(ReadAll(Path("out")));
        std::string last;
        for (std::string line; std::getline(all, line); last = line)
            if (line[0] == ' ')
                lines.push_back(line.substr(10));
        EXPECT_EQ(last.substr(0, 8), status == kAtFault ? "differen" : "the same");
        return lines;
    }

    // A triangle at x.
    static Mesh Triangle(const std::string& name, real32 x)
    {
        Mesh mesh;
        mesh.fName = name;
        mesh.fVertexCount = 3;
        mesh.fPositions = {x, 0, 0, x + 1, 0, 0, x, 1, 0};
        mesh.fFaceSizes = {3};
        mesh.fCorners = {0, 1, 2};
        return mesh;
    }

    static Node NodeOf(const std::string& name, int32 parent, std::vector<int32> meshes)
    {
        Node node;
        node.fName = name;
        node.fParent = parent;
        node.fMeshes = std::move(meshes);
        return node;
    }

    // One node and one material for each of the meshes.
    static Scene SceneOf(const std::vector<Mesh>& meshes)
    {
        Scene scene;
        scene.fNodes.push_back(NodeOf("root", -1, {}));
        for (const Mesh& mesh : meshes)
        {
            const int32 index = static_cast<int32>(scene.fMeshes.size());
            scene.fMeshes.push_back(mesh);
            scene.fMeshes.back().fMaterial = index;
            scene.fMaterials.emplace_back();
            scene.fMaterials.back().fName = "of " + std::to_string(mesh.fPositions[0]);
            scene.fNodes.push_back(NodeOf("at " + std::to_string(mesh.fPositions[0]), 0, {index}));
        }
        return scene;
    }
};

} // namespace

// What is missing is told, and not that all behind it differs: also where names are the same, or none.
TEST_F(Compare, MissingMeshesShiftNothing)
{
    TRandom random(3);
    for (int round = 0; round < 200; ++round)
    {
        std::vector<Mesh> all;
        for (int i = 2 + random.Below(30); i > 0; --i)
            all.push_back(
                Triangle(TTexts{"", "a", "b", "m" + std::to_string(i)}[random() % 4], static_cast<real32>(i)));
        std::vector<Mesh> some = all;
        const size_t removed = random() % std::min<size_t>(all.size(), 5);
        for (size_t i = 0; i < removed; ++i)
            some.erase(some.begin() + random.Below(static_cast<int32>(some.size())));
        const bool swapped = random.OneIn(2);
        const TTexts told = swapped ? Told(SceneOf(some), SceneOf(all)) : Told(SceneOf(all), SceneOf(some));
        ASSERT_EQ(told.size(), 3 * removed) << ::testing::PrintToString(told);
        for (const std::string& line : told)
            EXPECT_NE(line.find(swapped ? " is in the second only" : " is in the first only"), std::string::npos)
                << line;
    }
}

TEST_F(Compare, SaysWhatDiffersWhere)
{
    const Scene base = SceneOf({Triangle("a", 1), Triangle("b", 2), Triangle("c", 3)});
    const auto changed = [&](const std::function<void(Scene&)>& change)
    {
        Scene scene = base;
        change(scene);
        return scene;
    };
    const std::pair<std::function<void(Scene&)>, TTexts> cases[] = {
        {[](Scene&) {}, {}},
        {[](Scene& s) { s.fMeshes[1].fName = "x"; }, {"mesh 1 \"b\": name \"b\" and \"x\""}},
        {[](Scene& s) { s.fMeshes[1].fName = ""; }, {"mesh 1 \"b\": name \"b\" and not set"}},
        {[](Scene& s) { s.fMeshes[2].fName = "\"\n"; }, {"mesh 2 \"c\": name \"c\" and \"\\\"\\n\""}},
        {[](Scene& s) { s.fMeshes[0].fMaterial = -1; }, {"mesh 0 \"a\": material 0 \"of 1.000000\" and none"}},
        {[](Scene& s) { s.fMeshes[0].fMaterial = 2; },
         {"mesh 0 \"a\": material 0 \"of 1.000000\" and 2 \"of 3.000000\""}},
        {[](Scene& s) { s.fUnit = 0.01F; }, {"scene: metres per unit not set and 0.01"}},
        {[](Scene& s) { s.fUpAxis = Code("Z   "); }, {"scene: up axis not set and \"Z\""}},
        {[](Scene& s) { s.fMaterials[0].fShading = Code("PBR "); },
         {"material 0 \"of 1.000000\": shading not set and \"PBR\""}},
        {[](Scene& s) { s.fMaterials[0].fAlphaMode = "MASK"; },
         {"material 0 \"of 1.000000\": alpha mode not set and \"MASK\""}},
        {[](Scene& s) {
             s.fMaterials[0].fReals = {{Code("DIFF"), {1, 1, 1}}};
         },
         {"material 0 \"of 1.000000\": DIFF is in the second only"}},
        {[](Scene& s) { s.fNodes[2].fMeshes.clear(); }, {"node 2 \"at 2.000000\": meshes 1 \"b\" and none"}},
        {[](Scene& s) { s.fNodes[2].fTransform[3] = 5; },
         {"largest difference of two numbers 5 (node 2 \"at 2.000000\": transform, value 3: 0 and 5)",
          "node 2 \"at 2.000000\": transform, value 3: 0 and 5"}},
        {[](Scene& s) { s.fNodes[3].fParent = 2; },
         {"node 3 \"at 3.000000\" is in the first only", "node 3 \"at 3.000000\" is in the second only"}},
        {[](Scene& s)
         {
             s.fNodes[2].fParent = 1;
             s.fNodes[3].fParent = 2;
         },
         {"node 2 \"at 2.000000\" is in the first only", "node 3 \"at 3.000000\" is in the first only",
          "node 2 \"at 2.000000\" and 1 node below it are in the second only"}},
        {[](Scene& s) { std::swap(s.fNodes[1], s.fNodes[2]); },
         {"node 0 \"root\": the nodes below it stand in another order"}},
        // Another order, to which all that refers to them is fitted.
        {[](Scene& s)
         {
             std::swap(s.fMeshes[0], s.fMeshes[1]);
             std::swap(s.fNodes[1].fMeshes, s.fNodes[2].fMeshes);
         },
         {"they stand in another order"}},
        {[](Scene& s)
         {
             std::swap(s.fMaterials[0], s.fMaterials[1]);
             std::swap(s.fMeshes[0].fMaterial, s.fMeshes[1].fMaterial);
         },
         {"they stand in another order"}},
    };
    for (const auto& [change, lines] : cases)
        EXPECT_EQ(Told(base, changed(change)), lines);

    Scene chain = base;
    for (size_t i = 1; i < chain.fNodes.size(); ++i)
        chain.fNodes[i].fParent = static_cast<int32>(i) - 1;
    Scene cut = chain;
    cut.fNodes.resize(1);
    EXPECT_EQ(Told(chain, cut), TTexts{"node 1 \"at 1.000000\" and 2 nodes below it are in the first only"});

    Scene images = base;
    images.fImages.resize(2);
    images.fImages[0].fName = "i";
    images.fMaterials[0].fTextures.emplace_back();
    images.fMaterials[0].fTextures[0].fImage = 1;
    Scene other = images;
    other.fMaterials[0].fTextures[0].fImage = -1;
    other.fMaterials[0].fTextures[0].fFile = "x.png";
    other.fImages[0].fHeight = 7;
    EXPECT_EQ(Told(images, other), (TTexts{"material 0 \"of 1.000000\", texture 0: file not set and \"x.png\"",
                                           "material 0 \"of 1.000000\", texture 0: image 1 and none",
                                           "image 0 \"i\": height not set and 7"}));
}

// Renamed elements are found between those that kept their names; what was replaced elsewhere is not taken for renamed.
TEST_F(Compare, PairsByNameThenByPlace)
{
    const auto never = [](size_t, size_t) { return false; };
    const auto pairs = [&](const TTexts& a, const TTexts& b)
    {
        const Pairing pairing(a, b, never);
        std::string text;
        for (size_t i = 0; i < a.size(); ++i)
            text += pairing.ToB(i) < 0 ? "-" : std::to_string(pairing.ToB(i));
        for (size_t i = 0; i < b.size(); ++i)
        {
            const int32 back = pairing.ToA(i);
            EXPECT_TRUE(back < 0 || pairing.ToB(static_cast<size_t>(back)) == static_cast<int32>(i));
        }
        return text + (pairing.InOrder() ? "" : " moved");
    };
    EXPECT_EQ(pairs({"a", "b", "c"}, {"b", "c"}), "-01");
    EXPECT_EQ(pairs({"a", "b", "c"}, {"x", "b", "c"}), "012");
    EXPECT_EQ(pairs({"a", "b", "c"}, {"b", "c", "x"}), "-01");
    EXPECT_EQ(pairs({"a", "b", "c"}, {"c", "x", "a"}), "2-0 moved");
    EXPECT_EQ(pairs({"a", "b", "c"}, {"x", "y", "z", "w"}), "012");
    EXPECT_EQ(pairs({"a", "p", "q", "b"}, {"x", "a", "r", "b"}), "12-3");
    EXPECT_EQ(pairs({"a", "a", "a"}, {"a", "a"}), "01-");
    EXPECT_EQ(pairs({"p", "a", "q"}, {"x", "a", "y"}), "012");
    EXPECT_EQ(pairs({}, {"a"}), "");

    // Of five of one name one is missing; once it is found, the others keep their places.
    const Pairing changed({"a", "a", "a", "a"}, {"a", "a", "a", "a", "a"},
                          [](size_t a, size_t b) { return (a == 1 && b == 2) || (a == 2 && b == 4); });
    EXPECT_EQ((std::vector<int32>{changed.ToB(0), changed.ToB(1), changed.ToB(2), changed.ToB(3)}),
              (std::vector<int32>{0, 2, 3, 4}));
    EXPECT_EQ(changed.ToA(1), Pairing::kNone);
}

#endif
