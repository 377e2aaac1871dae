// Models that are written: by hand-made scenes whose bytes and losses are known, and by what other readers find in
// them.

#ifdef NQTOKEN_PATH

#include "Tools/nqtoken/ModelExport.h"
#include "Tests/TestHost.h"
#include "Tools/nqtoken/Formats.h"
#include "Tools/nqtoken/Guard.h"
#include "Tools/nqtoken/Losses.h"
#include "Tools/nqtoken/ModelImport.h"
#include "Tools/nqtoken/ModelNames.h"
#include "Tools/nqtoken/ObjWriter.h"
#include "Tools/nqtoken/PlyWriter.h"
#include "Tools/nqtoken/SceneNames.h"
#include "Tools/nqtoken/StlWriter.h"

#include "NqCore/PublicAPI/NqFileTypeUtils.h"

#include "Tests/ModelReaders.h" // Qt comes behind the names of the streams

#include <cstdlib>

namespace fs = std::filesystem;
using namespace std::string_literals;
using namespace nqtoken;

namespace
{

constexpr const char* kModels = "/usr/share/assimp/models/";
constexpr const char* kTargets[] = {"m.obj", "m.ply", "m.stl", "m.gltf", "m.glb"};

class ModelExport : public FolderTest
{
protected:
    void SetUp() override
    {
        FolderTest::SetUp();
        const Outcome loaded = LoadFormats(fs::path(NQTOKEN_PATH).replace_filename("formats.nqr"));
        ASSERT_TRUE(loaded.Ok()) << loaded.Text();
        if (!CanExport(*FindFormatByName("a.obj")))
            GTEST_SKIP() << "built without assimp";
    }
    void TearDown() override
    {
        TNqFileTypeUtils::ShutDown();
        FolderTest::TearDown();
    }

    // Writes the scene, reads it again, and gives the notes in one text.
    std::string Export(const Scene& scene, const std::string& name, Scene* result = nullptr) const
    {
        std::vector<std::string> notes, ignored;
        const Outcome outcome = ExportModel(scene, Path(name), notes);
        EXPECT_TRUE(outcome.Ok()) << outcome.Text();
        Scene back;
        const Outcome read = ImportModel(Path(name), result != nullptr ? *result : back, ignored);
        EXPECT_TRUE(read.Ok()) << read.Text();
        std::string text;
        for (const std::string& note : notes)
            text += note + "\n";
        return text;
    }
};

// A mesh of faces with these corners.
Mesh MeshOf(const Reals& positions, const std::vector<std::vector<int32>>& faces)
{
    Mesh mesh;
    mesh.fVertexCount = static_cast<int32>(positions.size() / 3);
    mesh.fPositions = positions;
    for (const std::vector<int32>& face : faces)
    {
        mesh.fFaceSizes.push_back(static_cast<int32>(face.size()));
        mesh.fCorners.insert(mesh.fCorners.end(), face.begin(), face.end());
    }
    return mesh;
}

Node NodeOf(int32 parent, const std::vector<int32>& meshes, const std::array<real32, 16>& transform = kIdentity)
{
    Node node;
    node.fParent = parent;
    node.fMeshes = meshes;
    node.fTransform = transform;
    return node;
}

// --- what other readers find, over real models

// What a scene holds as its nodes place it, counted without the tool's own walk.
struct TSceneCounts
{
    TModelCounts fFaces;
    size_t fPieces = 0; // triangles of the polygons
    size_t fBare = 0;   // vertices of meshes without faces
};

TSceneCounts CountScene(const Scene& scene)
{
    TSceneCounts counts;
    const auto add = [&](const Mesh& mesh, const std::array<double, 16>& m)
    {
        std::vector<TPoint> corners;
        const auto addCorner = [&](int32 vertex)
        {
            const real32* p = &mesh.fPositions[static_cast<size_t>(vertex) * 3];
            TPoint& world = corners.emplace_back();
            for (size_t row = 0; row < 3; ++row)
                world[row] = m[row * 4] * p[0] + m[row * 4 + 1] * p[1] + m[row * 4 + 2] * p[2] + m[row * 4 + 3];
            counts.fFaces.AddCorner(world);
        };
        const double volume = m[0] * (m[5] * m[10] - m[6] * m[9]) - m[1] * (m[4] * m[10] - m[6] * m[8]) +
                              m[2] * (m[4] * m[9] - m[5] * m[8]);
        auto corner = mesh.fCorners.begin();
        for (const int32 size : mesh.fFaceSizes)
        {
            counts.fFaces.AddFace(static_cast<size_t>(size));
            counts.fPieces += size > 3 ? static_cast<size_t>(size) - 2 : 0;
            corners.clear();
            std::for_each(corner, corner + size, addCorner);
            corner += size;
            counts.fFaces.AddArea(corners, volume < 0 ? -1 : 1); // what is mirrored keeps its outside
        }
        counts.fFaces.fVertices += static_cast<size_t>(mesh.fVertexCount);
        for (int32 vertex = 0; vertex < mesh.fVertexCount && mesh.fFaceSizes.empty(); ++vertex, ++counts.fBare)
            addCorner(vertex);
    };
    std::vector<std::array<double, 16>> worlds;
    const std::array<double, 16> identity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    for (const Node& node : scene.fNodes)
    {
        const std::array<double, 16>& parent = node.fParent < 0 ? identity : worlds[static_cast<size_t>(node.fParent)];
        std::array<double, 16> world = {};
        for (size_t i = 0; i < 64; ++i)
            world[i / 16 * 4 + i % 4] +=
                parent[i / 16 * 4 + i / 4 % 4] * static_cast<double>(node.fTransform[i / 4 % 4 * 4 + i % 4]);
        worlds.push_back(world);
        for (const int32 mesh : node.fMeshes)
            add(scene.fMeshes[static_cast<size_t>(mesh)], world);
    }
    for (size_t i = 0; scene.fNodes.empty() && i < scene.fMeshes.size(); ++i)
        add(scene.fMeshes[i], identity);
    return counts;
}

// How a file that was written differs from its scene where no note says so.
std::string Untold(const TSceneCounts& scene, const TModelCounts& model, const std::string& target,
                   const std::string& notes)
{
    if (!model.fFault.empty() && notes.find("a type that glTF does not allow") == notes.npos)
        return model.fFault;
    const bool makesTriangles = target != "m.obj" && target != "m.ply";
    const bool holdsOthers = target != "m.stl";
    const TModelCounts& faces = scene.fFaces;
    const size_t points = faces.fPoints + (target == "m.ply" ? 0 : scene.fBare);
    const std::tuple<size_t, size_t, const char*> pairs[] = {
        {target == "m.ply" ? faces.fVertices : model.fVertices, model.fVertices, "vert"},
        {points, model.fPoints, holdsOthers ? "point" : "point, "},
        {faces.fLines, model.fLines, "line"},
        {faces.fTriangles + (makesTriangles ? scene.fPieces : 0), model.fTriangles, "triangle"},
        {makesTriangles ? 0 : faces.fPolygons, model.fPolygons, "polygon"}};
    std::string text;
    for (const auto& [expected, found, word] : pairs)
    {
        const std::string stem = std::string(word).substr(0, std::string(word).find(','));
        const bool isTold = notes.find(stem) != notes.npos || notes.find("no face uses") != notes.npos;
        if (expected != found && !isTold)
            text += std::to_string(found) + " of " + std::to_string(expected) + " " + stem + ", not told; ";
    }
    double extent = 0;
    for (const double part : faces.fBox)
        extent = std::max(extent, std::isfinite(part) ? std::fabs(part) : 0);
    const bool isWhole = faces.fPoints + scene.fBare == model.fPoints && faces.fLines == model.fLines;
    for (size_t i = 0; i < 6 && model.fHasBox && isWhole; ++i)
    {
        if (std::fabs(model.fBox[i] - faces.fBox[i]) > 1e-6 * extent && notes.find("positions") == notes.npos)
            return text + "another box, not told";
    }
    for (size_t i = 0; i < 3 && target != "m.gltf" && target != "m.glb"; ++i)
    {
        if (std::fabs(model.fArea[i] - faces.fArea[i]) > 1e-3 * faces.fWholeArea &&
            notes.find("positions") == notes.npos)
            return text + "faces that look the other way, not told";
    }
    return text;
}

// Takes a scene through all formats: what came of each in line, and true when all is well.
bool Sweep(const Scene& scene, const std::string& folder, std::string& line)
{
    const TSceneCounts counts = CountScene(scene);
    bool isRight = true;
    for (const std::string target : kTargets)
    {
        const std::string path = folder + "/" + target;
        fs::remove(path);
        std::vector<std::string> notes, ignored;
        const Outcome outcome = ExportModel(scene, path, notes);
        std::string joined, fault;
        for (const std::string& note : notes)
            joined += note + "\n";
        if (outcome.Ok())
        {
            Scene back;
            const Outcome read = ImportModel(path, back, ignored);
            fault = read.Ok() ? Untold(counts, ReadModel(path), target, joined) : read.Text();
        }
        else if (fs::exists(path))
            fault = "written, though refused";
        isRight = isRight && fault.empty();
        line += "  " + target.substr(2) + " " +
                (!fault.empty()  ? "FAULT: " + fault
                 : !outcome.Ok() ? "refused"
                 : notes.empty() ? "same"
                                 : std::to_string(notes.size()) + " told");
    }
    return isRight;
}

// All models that are installed, part by part, with NQ_SWEEP=PART/PARTS (Scripts/sweep-export.sh), otherwise some of
// every kind. A model is read in a process of its own.
TEST_F(ModelExport, EveryModelThatIsWrittenCanBeReadAgain)
{
    std::vector<std::string> models;
    const char* const sweep = std::getenv("NQ_SWEEP");
    if (sweep != nullptr)
    {
        for (const char* folder : {"/usr/share/assimp/models", "/usr/share/assimp/models-nonbsd"})
        {
            if (!fs::exists(folder))
                continue;
            for (const auto& entry : fs::recursive_directory_iterator(folder))
            {
                if (entry.is_regular_file())
                    models.push_back(entry.path());
            }
        }
        std::sort(models.begin(), models.end());
    }
    else
    {
        for (const char* name : {"OBJ/testmixed.obj", "OBJ/cube_with_vertexcolors.obj", "AC/closedLine.ac",
                                 "Collada/kwxport_test_vcolors.dae", "MDL/MDL (HL1)/chrome_sphere.mdl",
                                 "FBX/close_to_identity_transforms.fbx", "FBX/box_orphant_embedded_texture.fbx",
                                 "glTF2/BoxTextured-glTF-Binary/BoxTextured.glb"})
            models.push_back(std::string(kModels) + name);
    }
    const int part = sweep != nullptr ? std::atoi(sweep) : 1;
    const int parts = sweep != nullptr ? std::atoi(std::strchr(sweep, '/') + 1) : 1;
    int read = 0;
    for (size_t i = 0; i < models.size(); ++i)
    {
        if (!fs::exists(models[i]) || static_cast<int>(i) % parts != part - 1)
            continue;
        const auto work = [&]
        {
            Scene scene;
            std::vector<std::string> ignored;
            std::string line = "  no model";
            const bool isModel = ImportModel(models[i], scene, ignored).Ok();
            line = isModel ? "" : line;
            const bool isRight = !isModel || Sweep(scene, fFolder, line);
            if (sweep != nullptr || !isRight)
                std::printf("%s:%s\n", models[i].c_str(), line.c_str());
            std::fflush(stdout);
            return isModel ? isRight ? 0 : 1 : 2;
        };
        const int status = RunGuarded(models[i], work, {uint64{4} << 30, 600});
        EXPECT_NE(status, 1) << models[i];
        EXPECT_TRUE(sweep != nullptr || status == 0) << models[i];
        ++read;
    }
    if (read == 0)
        GTEST_SKIP() << "no models are installed";
}

// --- a scene of every kind of thing, by hand

// An arrowhead with a hollow side, a triangle, a line and a point; two vertices alone; a circle of 256 corners; a mesh
// that no node places; one of nothing. A node turns the x axis around, for what is below it.
Scene EveryKind()
{
    Scene scene;
    scene.fMeshes.push_back(
        MeshOf({0, 0, 0, 2, 1, 0, 0, 2, 0, 1, 1, 0, 5, 5, 0}, {{0, 1, 2, 3}, {0, 1, 2}, {0, 1}, {3}, {}}));
    Mesh& arrow = scene.fMeshes[0];
    arrow.fName = "arrow\n\"head\"";
    arrow.fMaterial = 0;
    for (int i = 0; i < 5; ++i)
    {
        arrow.fNormals.insert(arrow.fNormals.end(), {0.6F, 0, 0.8F});
        arrow.fTangents.insert(arrow.fTangents.end(), {1, 0, 0});
    }
    arrow.fTexCoords = {{2, Reals(10, 0.25F)}, {1, Reals(5, 0.5F)}};
    arrow.fColours = {Reals(20, 0.3F)};
    scene.fMeshes.push_back(MeshOf({1, 2, 3, 4, 5, 6}, {}));
    Reals circle;
    std::vector<int32> around;
    for (int32 i = 0; i < 256; ++i)
    {
        const real32 angle = static_cast<real32>(i) * 0.02F;
        circle.insert(circle.end(), {std::cos(angle), std::sin(angle), 1});
        around.push_back(i);
    }
    scene.fMeshes.push_back(MeshOf(circle, {around}));
    scene.fMeshes.back().fMaterial = 1;
    scene.fMeshes.push_back(MeshOf({0, 0, 0, 1, 0, 0, 0, 1, 0}, {{0, 1, 2}}));
    scene.fMeshes.emplace_back();
    scene.fMaterials.resize(2);
    scene.fMaterials[0].fName = scene.fMaterials[1].fName = "red\rpaint";
    scene.fMaterials[0].fReals = {{Name("DIFF"), {1, 0, 0}}, {Name("GLOS"), {0.5F}}};
    scene.fMaterials[1].fReals = {{Name("DIFF"), {0, 1, 0}}};
    const std::array<real32, 16> turned = {-1, 0, 0, 10, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    scene.fNodes = {NodeOf(-1, {1, 4}), NodeOf(0, {0}, turned), NodeOf(1, {2})};
    return scene;
}

TEST_F(ModelExport, TellsEachLossInOneLine)
{
    const std::string always = "lost: 1 mesh without vertices\nlost: 1 mesh that no node places\n";
    const std::string one = "changed: 3 meshes, as the nodes place them, became 1\n";
    const std::string bare = "lost: 1 of 1 vertex that no face uses\nlost: 1 face without corners\n"
                             "changed: 2 vertices of meshes without faces became points\n";
    const std::string tree = "lost: the tree of 3 nodes; meshes are where it places them\n";
    const std::string cut = "changed: 2 polygons became 256 triangles\n";
    const std::string named =
        "changed: names of 1 mesh, such as \"arrow\\n\"head\"\"\nadded: names of 3 meshes without one\n";
    const auto lost = [](const char* what, const char* count)
    { return "lost: "s + what + " at " + count + " of " + count + " corners\n"; };
    const char* const second = "texture coordinates of set 2";
    const std::pair<std::string, std::string> cases[] = {
        {"m.obj", always + bare + "changed: normals at 3 of 10 corners, by up to 0.8\n" + lost("tangents", "10") +
                      "changed: texture coordinates at 1 of 10 corners, by up to 0.25\n" + lost(second, "10") +
                      "changed: colours at 10 of 10 corners, by up to 0.7\n" + named + tree +
                      "changed: names of 2 materials, such as \"red\\rpaint\"\n"
                      "lost or changed: 1 of 3 values of materials (GLOS)\n"},
        {"m.ply", always + one + "lost: 1 face without corners\n" + lost("tangents", "11") + lost(second, "11") + tree +
                      "lost: 2 of 2 materials\n"},
        {"m.stl", always + one +
                      "lost: 3 of 3 vertices that no face uses\nlost: 1 of 1 point\nlost: 1 of 1 line\n"
                      "lost: 1 face without corners\n" +
                      cut + lost("tangents", "9") + lost("texture coordinates", "9") + lost(second, "9") +
                      lost("colours", "9") + tree + "lost: 2 of 2 materials\n"},
        {"m.gltf", always + "changed: 3 meshes, as the nodes place them, became 5\n" + bare + cut +
                       lost("tangents", "12") + named + "added: names of 3 nodes without one\n"}};
    const Scene scene = EveryKind();
    for (const auto& [name, lines] : cases)
        EXPECT_EQ(Export(scene, name), lines) << name;
    std::string line;
    EXPECT_TRUE(Sweep(scene, fFolder, line)) << line;
}

// The bytes of a triangle with a line, mirrored: x turned around, corners backwards.
TEST_F(ModelExport, WritesTheseBytes)
{
    Scene scene;
    scene.fMeshes.push_back(MeshOf({0, 0, 0, 1, 0, 0, 0, 1, 0}, {{0, 1, 2}, {1, 2}}));
    scene.fMeshes[0].fName = "t\tx";
    scene.fMeshes[0].fNormals = {0, 0, 1, 0, 0, 1, 0, 0, 1};
    scene.fMeshes[0].fColours = {{1, 0, 0, 1, 0, 0.501961F, 0, 1, 0, 0, 1, 0.4F}};
    scene.fNodes = {NodeOf(-1, {0}, {-2, 0, 0, 4, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1})};
    ModelFiles files;
    std::vector<std::string> names;
    ASSERT_TRUE(WriteObj(scene, "a/m.obj", files, names).Ok());
    EXPECT_EQ(files["a/m.obj"], "\ng t\\tx\n"
                                "v 4 0 0 1 0 0\nv 2 0 0 0 0.501960993 0\nv 4 1 0 0 0 1\n"
                                "vn 0 0 1\nvn 0 0 1\nvn 0 0 1\nf 3//3 2//2 1//1\nl 3 2\n");
    EXPECT_EQ(files.size(), 1U);

    const auto reals = [](std::initializer_list<real32> values)
    {
        std::string bytes;
        for (const real32 value : values)
            PutLow(bytes, value);
        return bytes;
    };
    std::string ply;
    ASSERT_TRUE(WritePly(scene, ply).Ok());
    const std::string header =
        "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
        "property float z\nproperty float nx\nproperty float ny\nproperty float nz\nproperty uchar red\n"
        "property uchar green\nproperty uchar blue\nproperty uchar alpha\nelement face 2\n"
        "property list uchar int vertex_indices\nend_header\n";
    EXPECT_EQ(ply, header + reals({4, 0, 0, 0, 0, 1}) + "\xFF\0\0\xFF"s + reals({2, 0, 0, 0, 0, 1}) + "\0\x80\0\xFF"s +
                       reals({4, 1, 0, 0, 0, 1}) + "\0\0\xFF\x66"s + "\3\2\0\0\0\1\0\0\0\0\0\0\0\2\2\0\0\0\1\0\0\0"s);
    std::string stl;
    ASSERT_TRUE(WriteStl(scene, stl).Ok());
    EXPECT_EQ(stl,
              "binary" + std::string(74, ' ') + "\1\0\0\0"s + reals({0, 0, 1, 4, 1, 0, 2, 0, 0, 4, 0, 0}) + "\0\0"s);
    for (const size_t leaning : {0U, 3U, 6U}) // of corners that do not agree none speaks for the face
    {
        scene.fMeshes[0].fNormals.assign({0, 0.6F, 0.8F, 0, 0.6F, 0.8F, 0, 0.6F, 0.8F});
        scene.fMeshes[0].fNormals[leaning + 1] = 0;
        std::string plane;
        ASSERT_TRUE(WriteStl(scene, plane).Ok());
        EXPECT_EQ(plane, stl) << leaning;
    }
}

// A polygon is cut into triangles that have its area in all and none of them turned over: then they cover it.
TEST_F(ModelExport, CutsPolygonsIntoTrianglesThatCoverThem)
{
    TRandom random(7);
    const auto area = [](const Reals& p, int32 a, int32 b, int32 c)
    {
        const auto at = [&](int32 v, size_t i) { return static_cast<double>(p[static_cast<size_t>(v) * 3 + i]); };
        return ((at(b, 0) - at(a, 0)) * (at(c, 1) - at(a, 1)) - (at(b, 1) - at(a, 1)) * (at(c, 0) - at(a, 0))) / 2;
    };
    for (int round = 0; round < 300; ++round)
    {
        // A star around 0, a comb, or a square with a square hole that a cut leads to.
        Reals points;
        const auto add = [&](double x, double y) {
            points.insert(points.end(), {static_cast<real32>(x), static_cast<real32>(y), 0});
        };
        const int kind = round % 3;
        const int count = 4 + random.Below(30);
        for (int i = 0; i < count && kind < 2; ++i)
        {
            const double radius = 1 + random.Below(100);
            if (kind == 0)
                add(radius * std::cos(6.28318 * i / count), radius * std::sin(6.28318 * i / count));
            else
                add(count - i, i % 2 == 0 ? 5 : 1 + radius / 30);
        }
        if (kind == 1)
            add(0, 0), add(count + 1, 0);
        if (kind == 2)
            points = {0, 0, 0, 9, 0, 0, 9, 9, 0, 0, 9, 0, 0, 0, 0, 3, 3, 0, 3, 6, 0, 6, 6, 0, 6, 3, 0, 3, 3, 0};
        std::vector<int32> corners;
        double whole = 0;
        for (int32 i = 0; i < static_cast<int32>(points.size() / 3); ++i)
        {
            corners.push_back(i);
            whole += i >= 2 ? area(points, 0, i - 1, i) : 0;
        }
        std::rotate(corners.begin(), corners.begin() + random.Below(static_cast<int32>(corners.size())), corners.end());
        std::vector<int32> triangles;
        Triangulate(points, corners.data(), corners.size(), triangles);
        ASSERT_EQ(triangles.size(), (corners.size() - 2) * 3);
        double sum = 0;
        for (size_t i = 0; i < triangles.size(); i += 3)
        {
            const double one = area(points, triangles[i], triangles[i + 1], triangles[i + 2]);
            EXPECT_GE(one, -1e-6) << round;
            sum += one;
        }
        EXPECT_NEAR(sum, whole, 1e-4 * whole) << round;
        // Standing upright it is the same polygon.
        Reals upright = points;
        for (size_t i = 0; i < points.size(); i += 3)
            upright[i] = 7, upright[i + 1] = points[i], upright[i + 2] = points[i + 1];
        std::vector<int32> others;
        Triangulate(upright, corners.data(), corners.size(), others);
        EXPECT_EQ(others, triangles);
    }
    // What has no area, or crosses itself, still becomes as many triangles.
    for (const Reals& points : {Reals(12, 1), Reals{0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 0},
                                Reals{0, 0, 0, 1, 1, 0, 1, 0, 0, 0, 1, 0}, Reals(12, NAN)})
    {
        const int32 corners[] = {0, 1, 2, 3};
        std::vector<int32> triangles;
        Triangulate(points, corners, 4, triangles);
        EXPECT_EQ(triangles.size(), 6U);
    }
}

// What a reader of the model gives back is changed in one place after the other: each change is told.
TEST_F(ModelExport, NoticesEveryChangeOfWhatComesBack)
{
    Scene scene = EveryKind();
    scene.fMeshes.erase(scene.fMeshes.begin() + 3, scene.fMeshes.end());
    scene.fNodes[0].fMeshes.pop_back();
    scene.fImages.push_back({"i", "png", 0, 0, "bytes"});
    scene.fMaterials[0].fTextures.push_back({Name("DIFF"), "a.png", -1, {{Name("UVST"), 1}}, {}});
    scene.fMaterials[0].fIntegers = {{Name("2SID"), 1}};
    scene.fMaterials[0].fName = "other";
    scene.fMaterials[0].fShading = Name("PHNG");
    scene.fUnit = 1;
    scene.fUpAxis = Name("Y   ");
    const Writing asItIs{{}, true, true, true, {"other", "red\rpaint"}, {}};
    EXPECT_EQ(DescribeLosses(scene, scene, asItIs), TTexts());
    using TChange = std::function<void(Scene&)>;
    const std::pair<const char*, TChange> changes[] = {
        {"changed: positions at 2 of ", [](Scene& s) { s.fMeshes[0].fPositions[10] += 0.001F; }},
        {"lost: positions at 3 of ", [](Scene& s) { s.fMeshes[0].fPositions[3] = NAN; }},
        {"changed: normals at ", [](Scene& s) { s.fMeshes[0].fNormals[0] = 0.5F; }},
        {"lost: normals at 11 of 11 ", [](Scene& s) { s.fMeshes[0].fNormals.clear(); }},
        {"lost: tangents at 11 of 11", [](Scene& s) { s.fMeshes[0].fTangents.clear(); }},
        {"changed: texture coordinates at ", [](Scene& s) { s.fMeshes[0].fTexCoords[0].fValues[9] = 0; }},
        {"lost: texture coordinates of set 2 at 11 of 11", [](Scene& s) { s.fMeshes[0].fTexCoords.pop_back(); }},
        {"changed: colours at ", [](Scene& s) { s.fMeshes[0].fColours[0][3] = 1; }},
        {"lost: colours at 11 of 11", [](Scene& s) { s.fMeshes[0].fColours.clear(); }},
        {"lost: 1 of 1 triangle\n",
         [](Scene& s) {
             s.fMeshes[0].fFaceSizes = {4, 2, 1, 0}, s.fMeshes[0].fCorners = {0, 1, 2, 3, 0, 1, 3};
         }},
        {"changed: positions at 2 of ",
         [](Scene& s) { std::swap(s.fMeshes[0].fCorners[4], s.fMeshes[0].fCorners[5]); }},
        {"lost: 1 face without corners", [](Scene& s) { s.fMeshes[0].fFaceSizes.pop_back(); }},
        {"lost: 2 of 3 vertices that no face uses", [](Scene& s) { s.fNodes[0].fMeshes.clear(); }},
        {"changed: 3 meshes, as the nodes place them, became 2", [](Scene& s) { s.fNodes[0].fMeshes.clear(); }},
        {"added: 1 polygon", [](Scene& s) { s.fNodes[0].fMeshes.push_back(2); }},
        {"changed: names of 1 mesh, such as \"arrow\\n\"head\"\"", [](Scene& s) { s.fMeshes[0].fName = "arrow"; }},
        {"changed: transforms of 1 node", [](Scene& s) { s.fNodes[2].fTransform[7] = 1; }},
        {"lost: 1 of 3 nodes", [](Scene& s) { s.fNodes.pop_back(); }},
        {"added: names of 1 node without one", [](Scene& s) { s.fNodes[2].fName = "x"; }},
        {"lost: 1 of 2 materials", [](Scene& s) { s.fMaterials.pop_back(); }},
        {"lost or changed: 1 of 6 values of materials (DIFF)",
         [](Scene& s) { s.fMaterials[1].fReals[0].fValues[1] = 0.9F; }},
        {"lost or changed: 1 of 6 values of materials (GLOS)", [](Scene& s) { s.fMaterials[0].fReals.pop_back(); }},
        {"(2SID)", [](Scene& s) { s.fMaterials[0].fIntegers[0].fValue = 0; }},
        {"(SHAD)", [](Scene& s) { s.fMaterials[0].fShading = 0; }},
        {"(UVST)", [](Scene& s) { s.fMaterials[0].fTextures[0].fIntegers.clear(); }},
        {"lost: 1 of 1 texture of materials", [](Scene& s) { s.fMaterials[0].fTextures.clear(); }},
        {"changed: file names of 1 texture", [](Scene& s) { s.fMaterials[0].fTextures[0].fFile = "b.png"; }},
        {"changed: bytes of 1 embedded texture", [](Scene& s) { s.fImages[0].fBytes[2] = 0; }},
        {"lost: 1 of 1 embedded texture", [](Scene& s) { s.fImages.clear(); }},
        {"changed: the model is in units of 2 metres", [](Scene& s) { s.fUnit = 2; }},
        {"changed: materials of 4 of 5 faces", [](Scene& s) { s.fMeshes[0].fMaterial = 1; }},
        {"lost: that Y is upward", [](Scene& s) { s.fUpAxis = 0; }},
    };
    for (const auto& [line, change] : changes)
    {
        Scene back = scene;
        change(back);
        std::string told;
        for (const std::string& one : DescribeLosses(scene, back, asItIs))
            told += one + "\n";
        EXPECT_NE(told.find(line), told.npos) << line << "\nin\n" << told;
    }
}

// Texels go out as an image file that has them: blue, green, red, alpha become red, green, blue, alpha.
TEST_F(ModelExport, TexelsBecomeAnImageFile)
{
    Scene scene;
    scene.fMeshes.push_back(MeshOf({0, 0, 0, 1, 0, 0, 0, 1, 0}, {{0, 1, 2}}));
    scene.fMeshes[0].fMaterial = 0;
    scene.fImages.push_back({"", "rgba8888", 2, 2, "BGRAbgra1234zyxw"});
    scene.fImages.push_back({"t", "", 0, 0, "no known image"});
    scene.fMaterials.resize(1);
    scene.fMaterials[0].fTextures = {{Name("DIFF"), "x", 0, {}, {}}, {Name("EMIS"), "y", 1, {}, {}}};
    for (const char* target : {"m.gltf", "m.glb"})
    {
        Scene back;
        const std::string notes = Export(scene, target, &back);
        EXPECT_NE(notes.find("changed: 1 embedded texture of texels became an image file\n"), notes.npos) << notes;
        EXPECT_NE(notes.find("kept: 1 embedded texture of a type that glTF does not allow (unknown)"), notes.npos);
        ASSERT_EQ(back.fImages.size(), 2U);
        const std::string file = back.fImages[0].fBytes;
        EXPECT_EQ(file.substr(0, 29), "\x89PNG\r\n\x1A\n\0\0\0\rIHDR\0\0\0\2\0\0\0\2\x8\6\0\0\0"s);
        EXPECT_EQ(file.substr(file.size() - 12), "\0\0\0\0IEND\xAE\x42\x60\x82"s);
        const size_t data = file.find("IDAT") + 4;
        const QByteArray size("\0\0\0\x12", 4);
        const QByteArray lines =
            qUncompress(size + QByteArray::fromStdString(file.substr(data, file.size() - 16 - data)));
        EXPECT_EQ(lines.toStdString(), "\0RGBArgba\0"
                                       "3214xyzw"s);
        EXPECT_EQ(back.fImages[1].fBytes, "no known image");
    }
}

// --- names

// Names with what lines are made of: each stays one name, different ones stay different, and every mesh keeps its
// material, which its colour tells.
TEST_F(ModelExport, NamesNeverBreakALine)
{
    const TTexts pieces = {"\n",  "\r",   "\"",       "\\",       " ", "\t", "#", "\x1b", "\x7f",
                           "\0"s, "\xff", "\xC2\x85", "usemtl x", "a", "/",  "'", "-",    ""};
    TRandom random(3);
    for (int round = 0; round < 12; ++round)
    {
        Scene scene;
        const auto name = [&]
        {
            std::string text = random.OneIn(40) ? std::string(3000, 'x') : "";
            for (int count = random.Below(4); count > 0; --count)
                text += pieces[random() % pieces.size()];
            return text;
        };
        for (int i = 0; i < 12; ++i)
        {
            Material material;
            material.fName = name();
            material.fReals = {{Name("DIFF"), {static_cast<real32>(i) / 16, 0.5F, 0}}};
            material.fTextures = {{Name("DIFF"), name(), -1, {}, {}}};
            scene.fMaterials.push_back(material);
            scene.fMeshes.push_back(MeshOf({0, 0, static_cast<real32>(i), 1, 0, 0, 0, 1, 0}, {{0, 1, 2}}));
            scene.fMeshes.back().fName = name();
            scene.fMeshes.back().fMaterial = i;
        }
        std::string line;
        ASSERT_TRUE(Sweep(scene, fFolder, line)) << line;
        for (const char* target : {"m.obj", "m.gltf"})
        {
            Scene back;
            const std::string notes = Export(scene, target, &back);
            EXPECT_EQ(notes.find("positions"), notes.npos) << notes;
            ASSERT_EQ(back.fMeshes.size(), 12U) << notes;
            for (size_t i = 0; i < 12; ++i)
            {
                const Material& material = back.fMaterials.at(static_cast<size_t>(back.fMeshes[i].fMaterial));
                const auto diffuse = std::find_if(material.fReals.begin(), material.fReals.end(),
                                                  [](const RealValue& value) { return value.fToken == Name("DIFF"); });
                EXPECT_EQ(diffuse->fValues[0], static_cast<real32>(i) / 16) << target << notes;
                EXPECT_EQ(back.fMeshes[i].fPositions[2], static_cast<real32>(i)) << target;
            }
        }
    }
    // The meshes of a node become one, which is named after its pieces only if all of them are some.
    for (const auto& [first, second, name] :
         {std::tuple{"rod-0", "rod-1", "rod-0"}, {"rod-0", "x-1", "rod-0-0"}, {"rod-0", "rod-2", "rod-0-0"}})
    {
        Scene scene, back;
        for (const char* part : {first, second})
        {
            scene.fMeshes.push_back(MeshOf({0, 0, 0, 1, 0, 0, 0, 1, 0}, {{0, 1, 2}}));
            scene.fMeshes.back().fName = part;
        }
        scene.fNodes = {NodeOf(-1, {0, 1})};
        Export(scene, "m.glb", &back);
        ASSERT_EQ(back.fMeshes.size(), 2U);
        EXPECT_EQ(back.fMeshes[0].fName, name) << second;
    }
    EXPECT_EQ(LineName(" a\nb\"c\\ "), "a\\nb'c_");
    EXPECT_EQ(QuotedName("a\nb\"c\\ "), "a\nb\"c\\ ");
    EXPECT_EQ(QuotedName("\xff"), "\\xff");
    UniqueNames names("mesh");
    std::string taken;
    for (const char* wanted : {"", "mesh 2", "", "a", "a", "a 2", "a"})
        taken += names.Take(wanted) + ",";
    EXPECT_EQ(taken, "mesh,mesh 2,mesh 3,a,a 2,a 2 2,a 3,");
}

// --- what is put in place

TEST_F(ModelExport, PutsNothingInPlaceThatCannotBeRead)
{
    Scene scene;
    scene.fMeshes.push_back(MeshOf({0, 0, 0, 1, 0, 0, 0, 1, 0}, {{0, 1, 2}}));
    scene.fMaterials.resize(1);
    scene.fMaterials[0].fName = "red";
    scene.fMaterials[0].fReals = {{Name("DIFF"), {1, 0, 0}}};
    scene.fMeshes[0].fMaterial = 0;
    for (const std::string target : kTargets)
    {
        fs::create_directory(Path("made"));
        Export(scene, "made/" + target);
        ModelFiles whole;
        for (const auto& entry : fs::directory_iterator(Path("made")))
            whole[Path(entry.path().filename())] = ReadAll(entry.path());
        fs::remove_all(Path("made"));
        EXPECT_EQ(whole.size(), target == "m.obj" || target == "m.gltf" ? 2U : 1U);
        const Writing writing{{}, true, true, true, {"red"}, {}};
        std::vector<std::string> complete;
        EXPECT_TRUE(PlaceModel(scene, writing, whole, Path(target), complete).Ok());
        for (const auto& [path, bytes] : whole)
            EXPECT_TRUE(ReadAll(path) == bytes);
        for (const auto& [broken, bytes] : whole)
        {
            for (const std::string& instead :
                 {bytes.substr(0, bytes.size() - 10), std::string(bytes.size(), '\0'), ""s})
            {
                for (const auto& [path, old] : whole)
                    Put(fs::path(path).filename(), "old");
                ModelFiles files = whole;
                files[broken] = instead;
                std::vector<std::string> notes;
                const Outcome outcome = PlaceModel(scene, writing, files, Path(target), notes);
                // Any text is an OBJ to its reader, and any bytes are coordinates: what they are not is told.
                EXPECT_TRUE(!outcome.Ok() || notes != complete) << broken << instead;
                for (const auto& [path, old] : whole)
                    EXPECT_EQ(ReadAll(path) == "old", !outcome.Ok()) << path;
                EXPECT_TRUE(outcome.Ok() || outcome.Text().find("cannot be read again") != std::string::npos);
            }
        }
    }
}

} // namespace

#endif
