// How nqtoken knows what a file is.

#ifdef NQTOKEN_PATH

#include "Tools/nqtoken/Formats.h"
#include "NqCore/PublicAPI/NqFileTypeUtils.h"
#include "NqHost/PublicAPI/NqHostResourceFile.h"
#include "Tests/TestHost.h"
#include "Tools/nqtoken/ModelExport.h"
#include "Tools/nqtoken/ModelImport.h"

namespace
{

class FormatsTest : public FolderTest
{
protected:
    void TearDown() override
    {
        TNqFileTypeUtils::ShutDown();
        FolderTest::TearDown();
    }

    // That of the tool, which is no help to the test program beside which it is not.
    const std::string fFormats = std::filesystem::path(NQTOKEN_PATH).replace_filename("formats.nqr");
};

} // namespace

TEST_F(FormatsTest, TellsAFileByItsNameAndThenByItsBytes)
{
    const nqtoken::Outcome loaded = nqtoken::LoadFormats(fFormats);
    ASSERT_TRUE(loaded.Ok()) << loaded.Text();
    const std::tuple<const char*, std::string, const char*> cases[] = {
        {"a.obj", "", "OBJ"},    {"a.b.OBJ", "glTF", "OBJ"},   {"a.bin", "glTF\2", "glTF, binary"},
        {"a", "ply\r\n", "PLY"}, {"scene", "SCEN {", "Scene"}, {"a.nq", "ply\n", "Scene"},
        {"obj", "v 0", ""},      {".obj", "v 0", ""}};
    for (const auto& [name, bytes, format] : cases)
    {
        const TNqFileType* const found = nqtoken::FindFormat(Put(name, bytes));
        EXPECT_EQ(std::string(found != nullptr ? found->GetName().GetString() : "").substr(0, strlen(format)), format);
        EXPECT_EQ(found == nullptr, *format == 0) << name;
    }
    EXPECT_EQ(nqtoken::FindFormatByName(Path("a.bin")), nullptr);
    EXPECT_NE(nqtoken::FindFormatByName("/no/such/place.stl"), nullptr);

    // A model under a name that says nothing comes in as under its own, and again when it went out and was renamed.
    const std::string triangle = "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                                 "property float z\nelement face 1\nproperty list uchar int vertex_indices\n"
                                 "end_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n";
    nqtoken::Scene named;
    nqtoken::Scene unnamed;
    std::vector<std::string> notes;
    const nqtoken::Outcome outcome = nqtoken::ImportModel(Put("model.ply", triangle), named, notes);
    if (outcome.Text().find("built without assimp") != std::string::npos)
        GTEST_SKIP();
    EXPECT_TRUE(outcome.Ok()) << outcome.Text();
    EXPECT_TRUE(nqtoken::ImportModel(Put("model", triangle), unnamed, notes).Ok());
    ASSERT_EQ(unnamed.fMeshes.size(), 1U);
    EXPECT_EQ(unnamed.fMeshes[0].fPositions, named.fMeshes[0].fPositions);
    EXPECT_EQ(unnamed.fNodes.at(0).fName, named.fNodes.at(0).fName);
    EXPECT_TRUE(nqtoken::ExportModel(unnamed, Path("back.glb"), notes).Ok());
    std::filesystem::rename(Path("back.glb"), Path("back.txt"));
    EXPECT_TRUE(nqtoken::ImportModel(Path("back.txt"), named, notes).Ok());
    EXPECT_EQ(nqtoken::ImportModel(Put("x", "SCEN {"), named, notes).Text(),
              Path("x") + ": not a model; its format is \"Scene\"");
}

TEST_F(FormatsTest, SaysWhatIsWrongWithTheListOfFormats)
{
    const std::string whole = ReadAll(fFormats);
    const auto reasonOf = [&](const std::string& bytes)
    {
        const std::string path = Put("cut.nqr", bytes);
        const nqtoken::Outcome outcome = nqtoken::LoadFormats(path);
        EXPECT_EQ(outcome.Status(), nqtoken::kTrouble);
        EXPECT_NE(outcome.Text().find(path), std::string::npos);
        EXPECT_EQ(TNqFileTypeUtils::GetAllTypes().GetElemCount(), 0);
        TakeReports();
        return outcome.Text();
    };
    for (size_t size = 0; size < whole.size(); size += 1 + size / 64)
        reasonOf(whole.substr(0, size));

    // A file that is sound, with resources that are not.
    const auto changed = [&](FourCharT type, int16 id, uint32 size)
    {
        TNqHostResourceFile file;
        TNqDynamicString reason;
        EXPECT_EQ(file.Read(fFormats.c_str(), reason), kNqNoErr);
        TNqResource* const resource = file.FindResource(type, id);
        if (size == 0)
            file.RemoveResource(type, id);
        else
            resource->SetData(std::string(resource->GetData(), size).c_str(), size);
        EXPECT_EQ(file.Write(Path("changed.nqr").c_str(), reason), kNqNoErr);
        return reasonOf(ReadAll(Path("changed.nqr")));
    };
    constexpr FourCharT families = 0x4646616D;
    constexpr FourCharT types = 0x46547970;
    EXPECT_NE(changed(families, 1, 0).find("resource FFam 1 is missing"), std::string::npos);
    EXPECT_NE(changed(families, 1, 5).find("resource FFam 1 is no list of families"), std::string::npos);
    EXPECT_NE(changed(types, 2, 0).find("resource FTyp 2 is missing"), std::string::npos);
    EXPECT_NE(changed(types, 1, 100).find("resource FTyp 1 is no list of file types"), std::string::npos);
    std::filesystem::remove(Path("cut.nqr"));
    EXPECT_NE(nqtoken::LoadFormats(Path("cut.nqr")).Text().find("no such file"), std::string::npos);
}

#endif
