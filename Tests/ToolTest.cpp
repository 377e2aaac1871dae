// The command-line tool from end to end: the built program over real models and over files that mean harm.

#include "Tests/FailingCalls.h"
#include "Tests/NetDoubles.h"

#ifdef NQTOKEN_PATH

#include "Tools/nqtoken/Check.h"
#include "Tools/nqtoken/Guard.h"
#include "Tools/nqtoken/OrderedOutput.h"
#include "Tools/nqtoken/Reports.h"
#include "Tools/nqtoken/SceneReader.h"
#include "Tools/nqtoken/SceneWriter.h"
#include "Tools/nqtoken/Show.h"
#include "Tools/nqtoken/Transfer.h"

#include "NqHost/PublicAPI/NqHostFiles.h"

#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <malloc.h>
#include <map>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace
{

constexpr const char* kModels = "/usr/share/assimp/models/";

struct TRun
{
    int fStatus = -1; // 1000 and the signal when one ended the program
    long fMemory = 0; // most that was resident, in kilobytes
    std::string fOut;
    std::string fErr;
};

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

class ToolTest : public FolderTest
{
protected:
    void SetUp() override
    {
        FolderTest::SetUp();
        fs::create_directory(Path("io"));
    }

    // Starts the tool in the test's folder. prepare is called in the new process, before the tool takes its place.
    pid_t Start(const TTexts& arguments, const std::function<void()>& prepare) const
    {
        for (const char* stale : {"io/out", "io/err"})
            fs::remove(Path(stale));
        const pid_t child = fork();
        if (child != 0)
            return child;
        const auto open = [this](const char* name, int flags, int descriptor)
        { dup2(::open(Path(name).c_str(), flags, 0600), descriptor); };
        open("io/in", O_RDONLY, STDIN_FILENO);
        open("io/out", O_WRONLY | O_CREAT | O_TRUNC, STDOUT_FILENO);
        open("io/err", O_WRONLY | O_CREAT | O_TRUNC, STDERR_FILENO);
        std::vector<char*> values = {const_cast<char*>("nqtoken")};
        for (const std::string& argument : arguments)
            values.push_back(const_cast<char*>(argument.c_str()));
        values.push_back(nullptr);
        const std::string tool = fs::absolute(NQTOKEN_PATH);
        if (chdir(fFolder.c_str()) != 0)
            _exit(99);
        if (prepare)
            prepare();
        execv(tool.c_str(), values.data());
        _exit(98);
    }

    // Runs it to its end.
    TRun Run(const TTexts& arguments, const std::string& input = {}, const std::function<void()>& prepare = {}) const
    {
        Put("io/in", input);
        const pid_t child = Start(arguments, prepare);
        TRun run;
        int status = 0;
        rusage usage = {};
        wait4(child, &status, 0, &usage);
        run.fMemory = usage.ru_maxrss;
        run.fStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
        run.fOut = ReadAll(Path("io/out"));
        run.fErr = ReadAll(Path("io/err"));
        EXPECT_EQ(run.fErr.find("Sanitizer"), std::string::npos) << run.fErr;
        EXPECT_EQ(run.fErr.find("runtime error"), std::string::npos) << run.fErr;
        return run;
    }

    void Succeeds(const std::vector<std::string>& arguments, const std::string& shown = {}) const
    {
        const TRun run = Run(arguments);
        EXPECT_EQ(run.fStatus, 0) << arguments[0] << run.fOut << run.fErr;
        EXPECT_TRUE(Contains(run.fOut, shown)) << run.fOut;
    }

    // What is in the test's folder, temporary files that were left behind included.
    std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(fFolder))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
};

// --- models that come back the same

struct TModel
{
    const char* fPath;
    const char* fBack; // what the scene is exported to; null when the model's own format is not among those written
};

constexpr TModel kRoundTrips[] = {
    {"OBJ/spider.obj", "back.obj"},
    {"glTF2/BoxTextured-glTF-Binary/BoxTextured.glb", "back.glb"},
    {"PLY/cube_uv.ply", "back.ply"},
    {"STL/Spider_binary.stl", "back.stl"},
    {"Collada/duck.dae", nullptr},
    {"FBX/phong_cube.fbx", nullptr},
    {"BLEND/TexturedPlane_ImageUvPacked_248.blend", nullptr},
    {"OBJ/testmixed.obj", nullptr},
};

class ToolRoundTrip : public ToolTest, public ::testing::WithParamInterface<TModel>
{
};

TEST_P(ToolRoundTrip, ComesBackTheSame)
{
    const std::string model = std::string(kModels) + GetParam().fPath;
    if (!fs::exists(model))
        GTEST_SKIP() << "no " << model;
    for (const std::string payload : {"raw", "text"})
    {
        const TRun run = Run({"import", model, "-o", "scene.nq", "--payload", payload});
        if (Contains(run.fErr, "built without assimp"))
            GTEST_SKIP() << run.fErr;
        ASSERT_EQ(run.fStatus, 0) << run.fErr;
        Succeeds({"check", "scene.nq"});
        Succeeds({"show", "scene.nq"}, "SCEN {\n");
        Succeeds({"compare", model, "scene.nq"}, payload == "text" ? "" : "\nthe same to the bit\n");
        if (GetParam().fBack == nullptr)
            continue;
        Succeeds({"export", "scene.nq", "-o", GetParam().fBack});
        // Some exporters compute normals anew, from the positions that text has rounded.
        Succeeds({"compare", "scene.nq", GetParam().fBack, "--tolerance", payload == "raw" ? "0.0000005" : "0.00001"});
    }
}

INSTANTIATE_TEST_SUITE_P(Models, ToolRoundTrip, ::testing::ValuesIn(kRoundTrips),
                         [](const auto& model) { return "Model" + std::to_string(model.index); });

// --- a scene by hand

// Every kind of block and value, with line ends of all kinds and things that a reader must skip.
const std::string kSmallScene =
    "# made by hand\r\n"
    "OTHR { DEEP { A { } } WORD x }\n"
    "SCEN {\r"
    "VERS 1\rMADE \"by \\\"hand\\\"\"\rUNIT 0.01\rUPAX Z\rNIMG 1\rNMAT 1\rNMSH 1\rNNOD 2\r"
    "IMAG{NAME \"i\"FRMT \"png\"DATA $00000005\r{}$\"#$ }\n"
    "MATL { NAME \"red\" SHAD PBR DIFF 1,0.5,0 SPCL $0000000C\r\0\0\x80?\0\0\0\0\0\0\0?$\r"
    "TXTR { KIND DIFF FILE \"*0\" IMGI 0 UVST 0 } }\r"
    "MESH { NAME \"m\" MATI 0 NVTX 3 POSN 0,0,0,1,0,0,0,1,0 TXCO { DIMS 1 VALU 0,.5,1 }\r"
    "COLR { VALU 1,1,1,1,0,0,0,1,0.25,0.5,0.75,1 } NFAC 2 NCRN 4 FSZS 3,1 CRNR 0,1,2,1 }\r"
    "NODE { NAME \"root\" NODE { MTRX 1,0,0,2.5,0,1,0,0,0,0,1,0,0,0,0,1 NMSH 1 MSHS 0 } } }\r"s;

// The library's reports, counted as the tool counts them.
class CountedReports
{
public:
    CountedReports() { TestHost().SetReportHandler(nqtoken::RecordReport, nullptr); }
    ~CountedReports() { RecordReports(); }
};

TEST_F(ToolTest, HandWrittenSceneHasEveryValue)
{
    const CountedReports reports;
    nqtoken::Scene scene;
    const nqtoken::Outcome outcome = nqtoken::ReadScene(Put("hand.nq", kSmallScene), scene);
    ASSERT_TRUE(outcome.Ok()) << outcome.Text();
    EXPECT_EQ(scene.fUnit, 0.01F);
    EXPECT_EQ(scene.fUpAxis, 0x5A202020U);
    EXPECT_EQ(scene.fImages.at(0).fBytes, "{}$\"#");
    const nqtoken::Material& material = scene.fMaterials.at(0);
    EXPECT_EQ(material.fName, "red");
    EXPECT_EQ(material.fReals.at(0).fValues, (nqtoken::Reals{1, 0.5F, 0}));
    EXPECT_EQ(material.fReals.at(1).fValues, (nqtoken::Reals{1, 0, 0.5F}));
    EXPECT_EQ(material.fTextures.at(0).fImage, 0);
    const nqtoken::Mesh& mesh = scene.fMeshes.at(0);
    EXPECT_EQ(mesh.fPositions, (nqtoken::Reals{0, 0, 0, 1, 0, 0, 0, 1, 0}));
    EXPECT_EQ(mesh.fTexCoords.at(0).fValues, (nqtoken::Reals{0, 0.5F, 1}));
    EXPECT_EQ(mesh.fColours.at(0)[10], 0.75F);
    EXPECT_EQ(mesh.fFaceSizes, (std::vector<int32>{3, 1}));
    EXPECT_EQ(mesh.fCorners, (std::vector<int32>{0, 1, 2, 1}));
    ASSERT_EQ(scene.fNodes.size(), 2U);
    EXPECT_EQ(scene.fNodes[1].fParent, 0);
    EXPECT_EQ(scene.fNodes[1].fTransform[3], 2.5F);
}

// What a random scene holds, bit by bit.
std::string Bits(const nqtoken::Scene& scene)
{
    std::string bits;
    const auto add = [&bits](const auto& values)
    {
        bits += std::to_string(values.size()) + ":";
        bits.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(*values.data()));
    };
    for (const nqtoken::Mesh& mesh : scene.fMeshes)
        add(mesh.fName), add(mesh.fPositions), add(mesh.fTexCoords[0].fValues), add(mesh.fFaceSizes),
            add(mesh.fCorners);
    for (const nqtoken::Node& node : scene.fNodes)
        add(node.fName), add(std::array<int32, 1>{node.fParent}), add(node.fTransform);
    return bits;
}

// Random scenes, with names and numbers that text is worst at, written raw and read back.
TEST_F(ToolTest, RawScenesComeBackToTheBit)
{
    const CountedReports reports;
    std::mt19937 random(20);
    const auto pick = [&random](size_t count) { return random() % count; };
    const std::string names[] = {
        "",     "a \"b\" \\c",          "line\rend\n",  "\x01\x01",    "\xF0\x9F\x98\x80 \xC3\xA9",
        "{}#$", std::string(3000, 'x'), "\xEF\xBB\xBF", "\xEE\x80\x80"};
    const auto reals = [&](size_t count)
    {
        nqtoken::Reals values(count);
        for (real32& value : values)
        {
            const uint32 bits = pick(3) == 0 ? static_cast<uint32>(random()) : pick(2) == 0 ? 0x3F800000U : 0x80000000U;
            std::memcpy(&value, &bits, sizeof(value));
        }
        return values;
    };
    for (int round = 0; round < 60; ++round)
    {
        nqtoken::Scene scene;
        for (size_t i = pick(4); i > 0; --i)
        {
            nqtoken::Mesh mesh;
            mesh.fName = names[pick(std::size(names))];
            mesh.fVertexCount = static_cast<int32>(1 + pick(300));
            mesh.fPositions = reals(static_cast<size_t>(mesh.fVertexCount) * 3);
            mesh.fTexCoords.push_back({1, reals(static_cast<size_t>(mesh.fVertexCount))});
            for (size_t face = pick(40); face > 0; --face)
            {
                mesh.fFaceSizes.push_back(static_cast<int32>(pick(5)));
                for (int32 corner = 0; corner < mesh.fFaceSizes.back(); ++corner)
                    mesh.fCorners.push_back(static_cast<int32>(pick(mesh.fPositions.size() / 3)));
            }
            scene.fMeshes.push_back(mesh);
        }
        // Depth first: a node hangs on one of the nodes that lead to the one before it.
        for (size_t i = pick(10); i > 0; --i)
        {
            nqtoken::Node node;
            node.fName = names[pick(std::size(names))];
            node.fParent = static_cast<int32>(scene.fNodes.size()) - 1;
            for (size_t up = pick(4); up > 0 && node.fParent >= 0; --up)
                node.fParent = scene.fNodes[static_cast<size_t>(node.fParent)].fParent;
            const nqtoken::Reals transform = reals(16);
            std::copy(transform.begin(), transform.end(), node.fTransform.begin());
            scene.fNodes.push_back(node);
        }
        std::vector<std::string> notes;
        ASSERT_TRUE(WriteScene(scene, nqtoken::Payload::kRaw, Path("raw.nq"), notes).Ok());
        EXPECT_TRUE(notes.empty()) << notes[0];
        nqtoken::Scene back;
        const nqtoken::Outcome outcome = nqtoken::ReadScene(Path("raw.nq"), back);
        ASSERT_TRUE(outcome.Ok()) << outcome.Text();
        ASSERT_TRUE(Bits(back) == Bits(scene)) << round;
    }
}

// --- what check tells

struct TFault
{
    std::string fContent;
    std::vector<std::string> fFaults; // LINE:COLUMN, a part of the message, and the end of the code
};

TEST_F(ToolTest, CheckTellsEachFaultWithItsPlace)
{
    const TFault cases[] = {
        {"", {}},
        {"# only a comment", {}},
        {"A 1\rB{ C \"x\" }\rD $00000002\r}\"$\r", {}},
        {"\xEF\xBB\xBF} A 1\n", {"1:1 without an opening one 24"}},
        {"A 1\r\nB 2\r}\n } \nC 3\n", {"3:1 without an opening one 24", "4:2 without an opening one 24"}},
        {"A 1\n\r\n\r }\n", {"4:2 without an opening one 24"}},
        {"NAMES 1\nA 2\n", {"1:1 more than four characters: NAMES 24", "1:7 a number where a name must stand: 1 24"}},
        {"POSN 1 2 -3.5e1\n",
         {"1:8 a number where a name must stand: 2 24", "1:10 a number where a name must stand: -3.5e1 24"}},
        {"P 1 ,2\n", {"1:5 a name with a comma in it: ,2 24"}},
        {"A \"x\" \"y\\\"\" B 1\n", {"1:7 a string where a name must stand: \"y\"\" 24"}},
        {"A 1 $00000001\rx$ B 2\n", {"1:5 a payload where a name 24"}},
        {"A { B }\n", {"1:7 the name B has no value 24"}},
        {"A { { B 1 } }\n", {"1:5 a block without a name 24"}},
        {"A 1\nB", {"2:1 no line end or blank behind it 27"}},
        {"A {\n B 12", {"2:4 no line end or blank behind it 27", "2:6 inside a block; A is open since 1:3 27"}},
        {"A { B { C 1\n", {"2:1 inside 2 blocks; B is open since 1:7 27"}},
        {"A { B ", {"1:7 between the name B and its value 27", "1:7 inside a block; A is open since 1:3 27"}},
        {"A {\r B \"open\r }\r", {"2:4 without its closing quote 27"}},
        {"A $00000003\rxx$ B 1\n", {"1:3 that the file ends in 27"}},
        {"A $00000003\rxx$ B $00000001\ry$\n", {"1:3 says 3 bytes, and no $ stands behind them 24"}},
        {"A $FFFFFFFF\rany\n$ B 1\n", {}},
        {"A $0000000g\rxx$ B 1\n", {"1:3 eight digits 24"}},
        {"A $000$ B 1\n", {"1:3 eight digits 24"}},
        {"A $00000001\nx$ B 1\n", {"1:12 a CR must stand 24"}},
        {"A 1\0002\nB 1\n"s, {"1:4 a zero byte 24"}},
        {"\x1b[31mX 1\n",
         {"1:1 more than four characters: \\x1b[31mX 24", "1:8 a number where a name must stand: 1 24"}},
    };
    std::vector<std::string> arguments = {"check"};
    for (size_t i = 0; i < std::size(cases); ++i)
    {
        arguments.push_back("f" + std::to_string(i));
        Put(arguments.back(), cases[i].fContent);
    }
    const TRun run = Run(arguments);
    EXPECT_EQ(run.fStatus, 1);
    EXPECT_EQ(run.fErr, "");
    std::istringstream lines(run.fOut);
    std::string line;
    for (size_t i = 0; i < std::size(cases); ++i)
    {
        for (const std::string& fault : cases[i].fFaults)
        {
            ASSERT_TRUE(std::getline(lines, line));
            const size_t start = fault.find(' ') + 1, end = fault.size() - 3;
            const std::string place = "f" + std::to_string(i) + ":" + fault.substr(0, start - 1) + ": ";
            EXPECT_EQ(line.substr(0, place.size()), place);
            EXPECT_TRUE(Contains(line, fault.substr(start, end - start))) << line << "\n" << fault;
            EXPECT_TRUE(Contains(line, "(0x800100" + fault.substr(end + 1) + ")")) << line << "\n" << fault;
        }
        if (!cases[i].fFaults.empty())
            continue;
        ASSERT_TRUE(std::getline(lines, line));
        EXPECT_EQ(line, "f" + std::to_string(i) + ": no faults");
    }
    EXPECT_FALSE(std::getline(lines, line)) << line;
}

TEST_F(ToolTest, CheckReadsStandardInputAndStopsAtTheLimit)
{
    TRun run = Run({"check", "-"}, "A 1\n}\n");
    EXPECT_EQ(run.fStatus, 1);
    EXPECT_EQ(run.fOut, "standard input:2:1: a closing brace without an opening one (0x80010024)\n");
    run = Run({"check", "-"}, std::string(1000, '}'));
    EXPECT_EQ(std::count(run.fOut.begin(), run.fOut.end(), '\n'), 100);
    EXPECT_TRUE(Contains(run.fErr, "--limit")) << run.fErr;
    run = Run({"check", "--limit", "0", "-"}, std::string(1000, '}'));
    EXPECT_EQ(std::count(run.fOut.begin(), run.fOut.end(), '\n'), 1000);
    EXPECT_TRUE(Contains(run.fOut, "standard input:1:1000: ")) << run.fOut.substr(run.fOut.size() - 200);
}

// --- what show shows

TEST_F(ToolTest, ShowPrintsTheTree)
{
    Put("hand.nq", kSmallScene);
    TRun run = Run({"show", "hand.nq", "--values", "2"});
    EXPECT_EQ(run.fStatus, 0) << run.fErr;
    for (const char* line :
         {"  DATA  payload         5 bytes  7B 7D 24 22 23\n", "    POSN  integer        9 values  0, 0, ...\n",
          "  MADE  string          9 bytes  \"by \\\"hand\\\"\"\n", "  UPAX  word                     Z\n",
          "  UNIT  real                     0.01\n", "    NODE {\n",
          "      MTRX  real          16 values  1, 0, ...\n"})
        EXPECT_TRUE(Contains(run.fOut, line)) << line << "in\n" << run.fOut;
    run = Run({"show", "hand.nq", "--depth", "1"});
    EXPECT_TRUE(Contains(run.fOut, "  MESH { ... }  ")) << run.fOut;
    EXPECT_FALSE(Contains(run.fOut, "POSN")) << run.fOut;
    EXPECT_TRUE(Contains(run.fOut, "\n}\n")) << run.fOut;

    run = Run({"show", Put("texts",
                           "A \"x\\\\n\ty\" B \"" + std::string(60, 'z') + "\" C \"" + std::string(61, 'z') + "\"\n")});
    EXPECT_EQ(run.fOut, "A     string          5 bytes  \"x\\\\n\\ty\"\nB     string         60 bytes  \"" +
                            std::string(60, 'z') + "\"\nC     string         61 bytes  \"" + std::string(60, 'z') +
                            "\"...\n");

    // More values than the first bytes of a word hold.
    std::string numbers = "0.5", shown = numbers;
    for (int i = 1; i < 200; ++i)
        numbers += "," + std::to_string(i) + ".25", shown += ", " + std::to_string(i) + ".25";
    run = Run({"show", "--values", "199", Put("long.nq", "LONG " + numbers + "\rNEXT 7\r")});
    EXPECT_EQ(run.fOut, "LONG  real         200 values  " + shown.substr(0, shown.rfind(',')) +
                            ", ...\nNEXT  integer                  7\n");
}

// --- what goes wrong

TEST_F(ToolTest, HelpAndUsage)
{
    for (const char* command : {"import", "export", "show", "check", "compare", "formats", "send", "receive"})
    {
        Succeeds({command, "--help"}, "Example: nqtoken "s + command);
        EXPECT_TRUE(
            Contains(Run({command, "x", "--nonsense", "y"}).fErr, command + " has no option --nonsense, only --help"s));
    }
    Succeeds({"--help"});
    Succeeds({"help", "check"}, "Example: nqtoken check");
    const std::pair<TTexts, const char*> wrong[] = {
        {{}, "give a command: import, "},
        {{"chekc", "x"}, "\"check\" is meant"},
        {{"BOGUS"}, "there is no command \"BOGUS\", only import, "},
        {{"help", "bogus"}, "there is no command \"bogus\""},
        {{"--bogus"}, "no option --bogus"},
        {{"show", "x", "--depth", "-1"}, "\"-1\" is not a whole number of 0 or more"},
        {{"check", "x", "--limit", "99999999999999999999"}, "is not a whole number"},
        {{"check", "x", "-j", "257"}, "from 0 to 256"},
        {{"compare", "x", "y", "--tolerance", "nan"}, "\"nan\" is not a number"},
        {{"receive", "0", "-o", "x", "--max-size", "-5"}, "\"-5\" is not a number of bytes"},
        {{"receive", "0", "-o", "x", "--max-size", "99999999999G"}, "is not a number of bytes"},
        {{"import", "x", "-o", "y", "--payload", "wax"},
         "--payload: \"wax\" is none of text, raw; see \"nqtoken import"},
        {{"show", "x", "--dpeth", "2"},
         "show has no option --dpeth, perhaps --depth is meant; see \"nqtoken show --help\""},
        {{"show", "--val=2", "x"}, "show has no option --val, perhaps --values is meant"},
        {{"show", "x", "-depth", "2"}, "show has no option -depth, perhaps --depth is meant"},
        {{"check", "x", "-k2"}, "check has no option -k2, only --help, --limit, --jobs"},
        {{"show", "x", "a\"b", "z"}, "show takes one FILE, and \"a\\\"b\" is one more"},
        {{"show", "--values=2", "x", "z"}, "show takes one FILE, and \"z\" is one more"},
        {{"send", "x", "y", "--", "--z"}, "send takes one ADDRESS and one SCENE, and \"--z\" is one more"},
        {{"formats", "x"}, "formats takes no file, and \"x\" is one more"},
        {{"compare", "x"}, "compare takes two FILES, and only one is given"},
        {{"send", "x"}, "SCENE is missing: token file to send"},
        {{"export", "x"}, "--output MODEL is missing: model to write: .obj"},
        {{"export", "-o", "x"}, "SCENE is missing: scene to read"},
        {{"export", "x", "-o"}, "--output needs a value: --output MODEL"},
        {{"show", "--values", "--depth", "1", "x"}, "--values needs a value: --values N"},
        {{"show", "x", "--values="}, "--values needs a value: --values N"},
        {{"check", "-j2", "x", "--jobs=3"}, "--jobs is given twice"},
    };
    for (const auto& [arguments, message] : wrong)
    {
        const TRun run = Run(arguments);
        EXPECT_EQ(run.fStatus, 2) << message;
        EXPECT_TRUE(Contains(run.fErr, message)) << run.fErr;
    }
}

void FullOutput()
{
    dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO);
}
void BrokenOutput()
{
    int ends[2];
    if (pipe(ends) != 0)
        _exit(97);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(ToolTest, FilesThatCannotBeReadOrWritten)
{
    Put("scene.nq", kSmallScene);
    Put("target.obj", "kept");
    Put("broken.nq", "SCEN { MESH { NVTX 2 POSN 1,2,3 } }\n");
    Put("no.nq", "SCEM { A 1 }\n");
    Put("no.xyz", "A 1\n");
    mkfifo(Path("pipe").c_str(), 0600);
    const std::vector<std::string> before = Names();
    struct TCase
    {
        std::vector<std::string> fArguments;
        std::string fMessage;
        void (*fPrepare)() = nullptr;
    };
    const TCase cases[] = {
        {{"show", "missing"}, "missing: No such file"},
        {{"export", "missing", "-o", "target.obj"}, "missing: No such file"},
        {{"import", "missing", "-o", "target.obj"}, "missing: No such file"},
        {{"compare", "scene.nq", "target.obj"}, "target.obj: "},
        {{"compare", "scene.nq", "broken.nq"}, "broken.nq:1:27: mesh 0: POSN holds 3 values instead of 6"},
        {{"compare", "no.nq", "scene.nq"}, "no.nq:2:1: no scene in this file: the file ends"},
        {{"compare", "scene.nq", "no.xyz"}, "no.xyz: holds no scene, and neither its name nor"},
        {{"show", "io"}, "io: is a folder"},
        {{"check", "/proc/self/mem"}, "/proc/self/mem: Input/output error"}, // "0 bytes" long
        {{"compare", "/proc/self/mem", "scene.nq"}, "/proc/self/mem: Input/output error"},
        {{"import", "io", "-o", "target.obj"}, "io: is a folder"},
        {{"export", "scene.nq", "-o", "target.xyz"}, "must end with"},
        {{"export", "scene.nq", "-o", "no/such/folder/x.obj"}, "No such file"},
        {{"show", "scene.nq"}, "standard output", [] { close(STDOUT_FILENO); }},
        {{"show", "scene.nq"}, "standard output: No space", FullOutput},
        {{"check", "scene.nq"}, "standard output: No space", FullOutput},
        {{"show", "--help"}, "standard output: No space", FullOutput},
        {{"check", "scene.nq", "scene.nq", "missing", "-j2"}, "missing: No such file", BrokenOutput},
        {{"check", "-", "scene.nq", "-"}, "can be read only once"},
        {{"import", "pipe", "-o", "target.obj"}, "pipe: is not a file"}, // nobody writes to it
        {{"show", ""}, "name of a file is empty"},
    };
    for (const TCase& one : cases)
    {
        const TRun run = Run(one.fArguments, {}, one.fPrepare);
        if (Contains(run.fErr, "built without assimp"))
            continue;
        EXPECT_EQ(run.fStatus, 2) << one.fArguments[0] << " " << one.fMessage << run.fErr;
        EXPECT_TRUE(Contains(run.fErr, one.fMessage)) << run.fErr;
    }
    EXPECT_EQ(ReadAll(Path("target.obj")), "kept");
    EXPECT_EQ(Names(), before);
}

// The calls of the system that read fail: always at one byte, or once. Each command says so, and never that the file is
// at an end there, or that what it holds is wrong.
TEST_F(ToolTest, AReadErrorIsNeitherAnEndNorAFault)
{
    const CountedReports reports;
    const int shown = open(Path("shown").c_str(), O_WRONLY | O_CREAT, 0600);
    nqtoken::Output output(shown);
    std::string file;
    const auto reading = [&file](nqtoken::Scene& scene)
    {
        nqtoken::TokenFile token;
        const nqtoken::Outcome opened = token.Open(file);
        if (opened.Ok() && !nqtoken::HoldsScene(token)) // as compare, which looks for a model then
            return token.ReadOutcome();
        return opened.Ok() ? nqtoken::ReadScene(token, scene) : opened;
    };
    const auto sending = [&file]
    {
        TScriptedSocket socket;
        nqtoken::FileSender sender;
        const nqtoken::Outcome opened = sender.Open(file);
        return opened.Ok() ? sender.Send(socket) : opened;
    };
    const auto loading = [&file]
    {
        int8* bytes = nullptr;
        uint32 size = 0;
        TNqDynamicString reason;
        const bool isLoaded = NqHostLoadFile(file.c_str(), bytes, size, reason) == 0;
        Nqfree(bytes);
        return isLoaded ? nqtoken::Outcome() : nqtoken::Trouble(file + ": could not be read: " + reason.StrGet());
    };
    nqtoken::Scene scene;
    const std::function<nqtoken::Outcome()> commands[] = {
        [&] { return nqtoken::Outcome(nqtoken::CheckFiles({file}, 0, output), {}); },
        [&] {
            return nqtoken::ShowFile(file, nqtoken::ShowOptions{-1, 80}, output);
        },
        [&] {
            return nqtoken::ShowFile(file, nqtoken::ShowOptions{1, 5}, output);
        },
        [&] { return nqtoken::ReadScene(file, scene); },
        [&] { return reading(scene); },
        sending,
        loading,
    };
    // With what is told on standard error.
    const auto outcomeOf = [](const auto& command)
    {
        ::testing::internal::CaptureStderr();
        const nqtoken::Outcome outcome = command();
        std::string note = ::testing::internal::GetCapturedStderr();
        note.erase(0, std::strlen("nqtoken: "));
        return nqtoken::Outcome(outcome.Status(), outcome.Text() + note.substr(0, note.find('\n')));
    };
    int done = 0;
    const auto run = [&](bool mayBeRight)
    {
        for (const auto& command : commands)
        {
            const nqtoken::Outcome outcome = outcomeOf(command);
            done += outcome.Ok();
            ASSERT_TRUE(outcome.Ok() ? mayBeRight : outcome.Status() == nqtoken::kTrouble)
                << &command - commands << " " << outcome.Text();
            ASSERT_EQ(outcome.Text(), outcome.Ok() ? "" : file + ": could not be read: Input/output error");
        }
    };
    file = Put("small.nq", kSmallScene);
    for (size_t position = 0; position < kSmallScene.size() && !HasFatalFailure(); ++position)
    {
        FailReadAt(static_cast<long>(position));
        run(false);
    }
    FailReadAt(-1);
    // Parts that different buffers hold, and payloads that no buffer does: nobody looks into them who only passes by.
    std::string numbers = "LONG 0.25";
    for (int i = 0; i < 99; ++i)
        numbers += ",0.25";
    numbers += "\r";
    const std::string payload = "$00020000\r" + std::string(0x20000, '$') + "$";
    std::string large = kSmallScene;
    large.replace(large.find("$00000005"), 16, payload);
    // A list is read again where the first bytes of its word end: behind the buffer that has held it.
    large = numbers + "SKIP " + payload + "\r" + large;
    const size_t second = large.find("DATA $");
    for (const char* part : {"MATL", "MESH", "NODE"})
        large.insert(large.find(part), "#" + std::string(70000, ' ') + "\r");
    file = Put("large.nq", large);
    for (size_t position = 65600 % 15000; position < large.size() && !HasFatalFailure(); position += 15000)
    {
        FailReadAt(static_cast<long>(position));
        run(position < 0x20000 || (position > second && position < second + 0x20000));
    }
    EXPECT_GT(done, 5);
    FailReadAt(-1);
    for (const auto& command : commands)
        for (int call = 1; !HasFatalFailure(); ++call)
        {
            FailRead(call);
            const nqtoken::Outcome outcome = outcomeOf(command);
            const bool reached = ReadsMade() >= call;
            FailRead(0);
            ASSERT_EQ(outcome.Status(), reached ? nqtoken::kTrouble : nqtoken::kDone) << call << outcome.Text();
            if (!reached)
                break;
        }
    static_cast<void>(output.Flush());
    EXPECT_FALSE(Contains(ReadAll(Path("shown")), "(0x800100"));
    close(shown);
}

// Behind "| head" nobody reads any more: that is no error, nothing is said of it, and what a command finds still
// counts.
TEST_F(ToolTest, AReaderThatHasEnoughIsNoError)
{
    Put("scene.nq", kSmallScene);
    Put("wrong", "}\n");
    std::string many;
    for (int i = 0; i < 30000; ++i)
        many += "A 1\n";
    Put("many", many + "}\n");
    const std::pair<TTexts, int> cases[] = {
        {{"show", "many"}, 0},
        {{"show", "--help"}, 0},
        {{"formats"}, 0},
        {{"check", "scene.nq"}, 0},
        {{"check", "wrong"}, 1},
        {{"check", "scene.nq", "scene.nq", "wrong"}, 1},
        {{"check", "scene.nq", "many", "-j2"}, 1},
        {{"compare", "scene.nq", "scene.nq"}, 0},
    };
    for (const auto& [arguments, status] : cases)
    {
        const TRun run = Run(arguments, {}, BrokenOutput);
        EXPECT_EQ(run.fStatus, status) << arguments[0];
        EXPECT_EQ(run.fErr, "") << arguments[0];
    }
}

// A file size limit stands in for a full disk. The old target stays, and nothing else does.
TEST_F(ToolTest, TargetsAreReplacedWholeOrNotAtAll)
{
    Put("model.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    Put("scene.nq", kSmallScene);
    const auto limit = []
    {
        const rlimit none = {300, 300};
        setrlimit(RLIMIT_FSIZE, &none);
    };
    if (Contains(Run({"import", "model.obj", "-o", "new.nq"}).fErr, "built without assimp"))
        GTEST_SKIP();
    chmod(Put("old.nq", "old").c_str(), 0640);
    chmod(Put("old.glb", "old").c_str(), 0600);
    fs::create_symlink("old.nq", Path("link.nq"));
    Put("read-only.nq", "old");
    const std::vector<std::string> before = Names();
    for (const TTexts& arguments :
         {TTexts{"import", "model.obj", "-o", "old.nq"}, {"export", "scene.nq", "-o", "old.glb"}})
    {
        const TRun run = Run(arguments, {}, limit);
        EXPECT_EQ(run.fStatus, 2) << run.fErr;
        EXPECT_EQ(ReadAll(Path(arguments.back())), "old");
    }
    EXPECT_EQ(Run({"import", "model.obj", "-o", "/dev/full"}).fStatus, 2);
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
    EXPECT_EQ(Names(), before);

    Succeeds({"import", "model.obj", "-o", "link.nq"});
    Succeeds({"export", "scene.nq", "-o", "old.glb"});
    EXPECT_EQ(Names(), before);
    EXPECT_TRUE(fs::is_symlink(Path("link.nq")));
    EXPECT_EQ(fs::status(Path("old.nq")).permissions(), fs::perms(0640));
    EXPECT_EQ(fs::status(Path("old.glb")).permissions(), fs::perms(0600));
    EXPECT_TRUE(Contains(ReadAll(Path("old.nq")), "SCEN {\r"));

    // Root may do everything, so the tool runs as nobody.
    const auto drop = []
    {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            _exit(97);
    };
    chmod(fFolder.c_str(), 0777);
    chmod(Path("read-only.nq").c_str(), 0444);
    chmod(Path("model.obj").c_str(), 0444);
    chmod(Path("scene.nq").c_str(), 0);
    const TRun run = Run({"show", "scene.nq"}, {}, drop);
    if (run.fStatus >= 97)
        GTEST_SKIP() << "the tool cannot be run without rights here";
    EXPECT_EQ(run.fStatus, 2) << run.fErr;
    EXPECT_TRUE(Contains(run.fErr, "scene.nq: Permission denied")) << run.fErr;
    EXPECT_TRUE(
        Contains(Run({"import", "model.obj", "-o", "read-only.nq"}, {}, drop).fErr, "read-only.nq: Permission denied"));
    EXPECT_EQ(ReadAll(Path("read-only.nq")), "old");
    chmod(fFolder.c_str(), 0755);
    chmod(Path("old.nq").c_str(), 0666);
    EXPECT_EQ(Run({"import", "model.obj", "-o", "old.nq"}, {}, drop).fErr,
              "nqtoken: old.nq: no new file can be made in its folder: Permission denied\n");
}

TEST_F(ToolTest, ExportTellsWhatIsLostLineByLine)
{
    Put("scene.nq", kSmallScene);
    const TRun run = Run({"export", "scene.nq", "-o", "m.stl"});
    if (Contains(run.fErr, "built without assimp"))
        GTEST_SKIP();
    EXPECT_EQ(run.fStatus, 0);
    EXPECT_TRUE(Contains(run.fErr, "nqtoken: m.stl: lost: 1 of 1 point\n")) << run.fErr;
    EXPECT_TRUE(Contains(run.fErr, "\nnqtoken: m.stl: lost: the tree of 2 nodes; meshes are where ")) << run.fErr;
}

TEST_F(ToolTest, SaysOnceWhatTextCannotCarry)
{
    Put("model.obj", "v 0.1234567 0 0\nv 1e20 -3e9 0\nv 0.0000001 1 0\nf 1 2 3\n");
    TRun run = Run({"import", "model.obj", "-o", "text.nq"});
    if (Contains(run.fErr, "built without assimp"))
        GTEST_SKIP();
    EXPECT_EQ(run.fStatus, 0);
    EXPECT_TRUE(Contains(run.fErr, "2 rounded to six decimals")) << run.fErr;
    EXPECT_TRUE(Contains(run.fErr, "2 cut to 2147483647")) << run.fErr;
    EXPECT_EQ(std::count(run.fErr.begin(), run.fErr.end(), '\n'), 1) << run.fErr;
    const auto closeOutputs = [] { close(STDOUT_FILENO), close(STDERR_FILENO); };
    Run({"import", "model.obj", "-o", "alone.nq"}, {}, closeOutputs); // and no note gets into the scene
    EXPECT_EQ(ReadAll(Path("alone.nq")), ReadAll(Path("text.nq")));
    EXPECT_EQ(Run({"compare", "model.obj", "text.nq"}).fStatus, 1);
    run = Run({"import", "model.obj", "-o", "raw.nq", "--payload", "raw"});
    EXPECT_EQ(run.fErr, "");
    Succeeds({"compare", "model.obj", "raw.nq", "--tolerance", "0"}, "\nthe same to the bit\n");
}

// --- files that mean harm

TEST_F(ToolTest, HostileFilesGetAStatusFromEveryCommand)
{
    std::string nodes = "SCEN {";
    for (int i = 0; i < 100000; ++i)
        nodes += "NODE {";
    const std::pair<std::string, int> cases[] = {
        // and the status of check
        {"", 0},
        {std::string(1000000, '}'), 1},
        {std::string(100000, '\0'), 1},
        {nodes, 1},
        {"SCEN " + std::string(1000000, '1'), 1},
        {"SCEN { NAME \"" + std::string(1000000, 'x'), 1},
        {"SCEN { MESH { NVTX 1 POSN $7FFFFFFF\r0123$ } }\n", 1},
        {"SCEN { MESH { NVTX 2147483647 POSN 1,2,3 } }\n", 0},
        {"SCEN { MESH { NFAC 2147483647 FSIZ 2147483647 NCRN 1 CRNR 0 } }\n", 0},
    };
    Put("target.obj", "kept");
    for (const auto& [content, status] : cases)
    {
        const std::string start = content.substr(0, 60);
        const std::string file = Put("hostile.nq", content);
        EXPECT_EQ(Run({"check", file}).fStatus, status) << start;
        EXPECT_EQ(Run({"show", file}).fStatus, status) << start;
        const TRun run = Run({"export", file, "-o", "target.obj"});
        EXPECT_TRUE(run.fStatus == 1 || Contains(run.fErr, "without assimp")) << start << run.fErr;
        EXPECT_EQ(Run({"compare", file, file}).fStatus, 2) << start;
    }
    EXPECT_EQ(ReadAll(Path("target.obj")), "kept");
}

// Memory depends neither on the size of a file nor on its depth, nor on the length of a word.
TEST_F(ToolTest, CheckAndShowTakeTheSameMemoryForAnySize)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer keeps freed memory";
#endif
    std::string wide = "LONG 1";
    for (int i = 0; i < 1500000; ++i)
        wide += ",2.5";
    wide += "\rDATA $00100000\r" + std::string(0x100000, '$') + "$\r";
    std::string deep;
    for (int i = 0; i < 700000; ++i)
        deep += "NODE {\r";
    const auto memory = [this](const char* command, const std::string& content)
    {
        const TRun run = Run({command, Put("file.nq", content)});
        EXPECT_LE(run.fStatus, 1) << run.fErr;
        return run.fMemory;
    };
    for (const char* command : {"check", "show"})
    {
        const long least = memory(command, "A 1\r");
        EXPECT_LT(memory(command, wide), least + 4000) << command;
        EXPECT_LT(memory(command, deep), least + 4000) << command;
    }
}

TEST_F(ToolTest, ACrashInAModelLibraryIsAStatus)
{
    const auto run = [](int (*work)())
    {
        ::testing::internal::CaptureStderr();
        const int status = nqtoken::RunGuarded("a.obj", work);
        return std::to_string(status) + ::testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(run([] { return 1; }), "1");
    EXPECT_EQ(run([]() -> int { abort(); }),
              "2nqtoken: a.obj: the library that reads and writes models crashed (Aborted); nothing was written\n");
    // A signal that nohup has had ignored ends neither the work nor who waits for it.
    const auto before = signal(SIGHUP, SIG_IGN);
    EXPECT_EQ(run([] { return kill(getppid(), SIGHUP) + 1; }), "1");
    signal(SIGHUP, before);
}

// What reads models cannot take all of the machine: a limit that is met is named, and its option.
TEST_F(ToolTest, MemoryAndTimeAreLimited)
{
    const auto guarded = [](const nqtoken::Limits& limits, const std::function<int()>& work)
    {
        malloc_trim(0);
        ::testing::internal::CaptureStderr();
        const int status = nqtoken::RunGuarded("a.obj", work, limits);
        return std::to_string(status) + ::testing::internal::GetCapturedStderr();
    };
    const auto forever = []() -> int
    {
        for (volatile int turn = 0;; turn = 1 - turn)
        {
        }
    };
    EXPECT_EQ(guarded({0, 0.05}, forever), "2nqtoken: a.obj: takes longer than the limit of 0.05 seconds; "
                                           "--time-limit raises it; nothing was written\n");
    EXPECT_EQ(guarded({0, 0}, [] { return usleep(100000); }), "0");
    EXPECT_EQ(guarded({0, 0.3}, [] { return nqtoken::EndTimeLimit(), usleep(500000); }), "0");

    std::string model;
    for (int i = 0; i < 60000; ++i)
        model += "v 0.25 1 " + std::to_string(i) + "\n";
    Put("slow.obj", model + "f 1 2 3\n");
    Put("kept.nq", "kept");
    TRun run = Run({"import", "slow.obj", "-o", "kept.nq", "--time-limit", "0.001"});
    if (Contains(run.fErr, "built without assimp"))
        GTEST_SKIP();
    EXPECT_TRUE(Contains(run.fErr, "slow.obj: takes longer than the limit of 0.001 seconds; --time-limit")) << run.fErr;
    // Wherever it is interrupted, the target is the old one or the new one, as it says, and nothing else is left.
    const std::vector<std::string> before = Names();
    for (int milliseconds = 1; run.fStatus == 2 && milliseconds < 60000; milliseconds += milliseconds / 4 + 1)
    {
        run = Run({"import", "slow.obj", "-o", "kept.nq", "--time-limit", std::to_string(milliseconds / 1000.0)});
        EXPECT_EQ(ReadAll(Path("kept.nq")) == "kept", run.fStatus == 2) << milliseconds;
        EXPECT_EQ(Names(), before) << milliseconds;
    }
    EXPECT_EQ(run.fStatus, 0) << run.fErr;
    Put("kept.nq", "kept");
    EXPECT_EQ(Run({"import", "slow.obj", "--time-limit", "99999999"}).fStatus, 2);

    if (!nqtoken::LimitsMemory())
        GTEST_SKIP() << "a sanitizer takes more address space than can be limited";
    static constexpr uint64 kMegabyte = 1 << 20;
    const auto take = [](size_t megabytes)
    {
        malloc_trim(0); // what was freed counts as taken until then
        std::vector<std::string> taken(megabytes);
        for (std::string& one : taken)
            one.reserve(kMegabyte);
        return static_cast<int>(taken.size());
    };
    const std::string refused = "2nqtoken: a.obj: takes more memory than the limit of 100 MB; --memory-limit raises it";
    EXPECT_EQ(guarded({100 * kMegabyte}, [&] { return take(60); }), "60");
    EXPECT_EQ(guarded({100 * kMegabyte}, [&] { return take(110); }), refused + "\n");
    const std::string crashed = guarded({100 * kMegabyte}, [&]() noexcept { return take(110); });
    EXPECT_TRUE(Contains(crashed, refused.substr(1) + "; nothing was written\n")) << crashed;
    EXPECT_EQ(guarded({uint64{0}}, [&] { return take(200); }), "200");
    // A scene may take a multiple of its size: for a second one as much again, and no more for a time without one.
    const auto scenes = [&](size_t first, size_t second)
    {
        {
            const nqtoken::SceneLimit limit(kMegabyte);
            take(first);
        }
        take(400);
        malloc_trim(0);
        const nqtoken::SceneLimit limit(kMegabyte);
        return take(second) / 10;
    };
    EXPECT_EQ(guarded({}, [&] { return scenes(300, 300); }), "30");
    const std::string more =
        "2nqtoken: a.obj: takes more than 320 MB of memory, which are 256 MB and 64 times the size "
        "of the scene; --memory-limit allows more\n";
    EXPECT_EQ(guarded({}, [&] { return scenes(330, 0); }), more);
    EXPECT_EQ(guarded({}, [&] { return scenes(0, 330); }), more);
    EXPECT_EQ(guarded({2000 * kMegabyte}, [&] { return scenes(330, 330); }), "33");
    const uint64 half = nqtoken::DefaultMemoryLimit(1);
    EXPECT_LE(half, static_cast<uint64>(sysconf(_SC_PHYS_PAGES) * sysconf(_SC_PAGESIZE) / 2));
    EXPECT_EQ(nqtoken::DefaultMemoryLimit(4), std::max(half / 4, std::min(half, 1024 * kMegabyte)));

    // Vertices that a model only says it has, and scenes of blocks with nothing in them.
    run = Run({"import", Put("hungry.off", "OFF\n3535352353 6 0\n0 0 0\n"), "--memory-limit", "1g"});
    EXPECT_EQ(run.fStatus, 2);
    EXPECT_TRUE(Contains(run.fErr, "takes more memory than the limit of 1 GB; --memory-limit raises it\n")) << run.fErr;
    EXPECT_LT(run.fMemory, 1 << 20);
    std::string nodes;
    for (int i = 0; i < 330000; ++i)
        nodes += "NODE{}";
    Put("empty.nq",
        "SCEN{MESH{NVTX 3 POSN 0,0,0,1,0,0,0,1,0 NFAC 1 NCRN 3 FSIZ 3 CRNR 0,1,2 }NODE{NMSH 1 MSHS 0 }" + nodes + "} ");
    for (const char* target : {"kept.obj", "kept.glb"})
    {
        Put(target, "kept");
        run = Run({"export", "empty.nq", "-o", target});
        EXPECT_LT(run.fMemory, 400 << 10) << target;
        EXPECT_TRUE(run.fStatus == 0 || Contains(run.fErr, "takes more than 376.9 MB of memory, which are"))
            << run.fErr;
        EXPECT_TRUE(run.fStatus == 0 || ReadAll(Path(target)) == "kept");
    }
    run = Run({"compare", "empty.nq", "slow.obj", "--memory-limit", "20MB"});
    EXPECT_EQ(run.fStatus, 2);
    EXPECT_TRUE(Contains(run.fErr, "empty.nq: takes more memory than the limit of 20 MB")) << run.fErr;
    EXPECT_EQ(ReadAll(Path("kept.nq")), "kept");
}

// A scene cut at every byte, and scenes with a few bytes changed: read and checked in this process, thousands of them.
TEST_F(ToolTest, DamagedScenesAreRefusedOrRead)
{
    const CountedReports reports;
    const int null = open("/dev/null", O_WRONLY);
    nqtoken::Output nowhere(null);
    const std::string file = Path("damaged.nq");
    const auto read = [&](const std::string& content, bool mayBeRight)
    {
        Put("damaged.nq", content);
        nqtoken::Scene scene;
        const nqtoken::Outcome outcome = nqtoken::ReadScene(file, scene);
        const bool isPlaced = outcome.Text().substr(0, file.size() + 1) == file + ":";
        EXPECT_TRUE(outcome.Ok() ? mayBeRight : outcome.Status() == nqtoken::kAtFault && isPlaced) << content;
        EXPECT_NE(nqtoken::CheckFiles({file}, 0, nowhere), nqtoken::kTrouble);
        return outcome.Ok();
    };
    ASSERT_TRUE(read(kSmallScene, true));
    const size_t end = kSmallScene.rfind('}');
    for (size_t size = 0; size <= end; ++size)
        read(kSmallScene.substr(0, size), false);

    const TTexts pieces = {"{",  "}",   "\"", "$", "#", ",", "\\", " ", "\r",
                           "\n", "\0"s, "\1", "9", "-", ".", "A",  "F", "e"};
    TRandom random(11);
    int accepted = 0;
    for (int round = 0; round < 5000; ++round)
    {
        const std::string content = Mutated(kSmallScene, pieces, random);
        accepted += read(content, true);
    }
    EXPECT_GT(accepted, 400);
    EXPECT_LT(accepted, 4500);
    close(null);
}

// --- several files at a time

TTexts Prefixed(const TTexts& start, const TTexts& rest)
{
    TTexts all = start;
    all.insert(all.end(), rest.begin(), rest.end());
    return all;
}

TEST_F(ToolTest, PrintsTheSameForAnyNumberOfJobs)
{
    TRandom random(31);
    TTexts scenes = {"missing", "io", "many"};
    Put("many", std::string(20000, '}'));
    TTexts models = {"missing", "io"};
    const TTexts lines = {"v 0 0 1\n", "f 1 2 3\n",    "vn 1 0 0\n",           "x y z\n",
                          "f 9 8\n",   "usemtl red\n", "v 1e30 0.12345678 7\n"};
    for (int i = 0; i < 60; ++i)
    {
        const std::string name = "s" + std::to_string(i);
        const bool isDamaged = random.OneIn(2);
        Put(name, isDamaged ? Mutated(kSmallScene, {"{", "}", "\"", "$", " "}, random) : kSmallScene);
        scenes.insert(scenes.begin() + random.Below(static_cast<int32>(scenes.size())), name);
    }
    for (int i = 0; i < 8; ++i)
    {
        std::string model;
        for (int line = random.Below(30); line > 0; --line)
            model += lines[random() % lines.size()];
        const std::string name = "m" + std::to_string(i) + ".obj";
        Put(name, "v 0 0 0\nv 1 0 0\n" + model);
        models.insert(models.begin() + random.Below(static_cast<int32>(models.size())), name);
    }
    const auto together = [] { dup2(STDOUT_FILENO, STDERR_FILENO); };
    fs::create_directory(Path("into"));
    for (const TTexts& arguments :
         {Prefixed({"check", "--limit", "0"}, scenes), Prefixed({"import", "--payload", "raw", "-o", "into"}, models)})
    {
        const bool isCheck = arguments[0] == "check";
        const TRun one = Run(arguments);
        const TRun oneTogether = Run(arguments, {}, together);
        const auto takeWritten = [&]
        {
            std::map<std::string, std::string> files;
            for (const auto& entry : fs::directory_iterator(Path("into")))
                files[entry.path().filename()] = ReadAll(entry.path());
            fs::remove_all(Path("into"));
            fs::create_directory(Path("into"));
            return files;
        };
        const std::map<std::string, std::string> written = takeWritten();
        if (Contains(one.fErr, "built without assimp"))
            continue;
        EXPECT_EQ(one.fStatus, 2);
        EXPECT_TRUE(isCheck || written.size() > 2) << one.fErr;
        for (const char* jobs : {"2", "3", "8", "0"})
        {
            const TTexts parallel = Prefixed(arguments, {"-j", jobs});
            const TRun run = Run(parallel);
            EXPECT_EQ(run.fStatus, one.fStatus);
            EXPECT_TRUE(run.fOut == one.fOut) << jobs << run.fOut << "\nwith one job\n" << one.fOut;
            EXPECT_TRUE(run.fErr == one.fErr) << jobs << run.fErr << "\nwith one job\n" << one.fErr;
            EXPECT_TRUE(takeWritten() == written) << jobs;
            EXPECT_TRUE(!isCheck || Run(parallel, {}, together).fOut == oneTogether.fOut) << jobs;
        }
    }
}

// Random pieces of many files on several threads, more than is kept at a time.
TEST_F(ToolTest, OrderedOutputIsThatOfOneFileAfterTheOther)
{
    constexpr size_t kFiles = 40;
    std::string expectedOut, expectedError;
    std::vector<std::vector<std::pair<bool, std::string>>> files(kFiles);
    TRandom random(5);
    for (auto& pieces : files)
    {
        for (int count = random.Below(40); count > 0; --count)
        {
            const bool isError = random.OneIn(5);
            pieces.emplace_back(
                isError, std::string(random() % (isError ? 100 : 90000), static_cast<char>('!' + random.Below(90))));
            (isError ? expectedError : expectedOut) += pieces.back().second;
        }
    }
    ASSERT_GT(expectedOut.size(), size_t{1} << 24);
    const int descriptor = open(Path("out").c_str(), O_WRONLY | O_CREAT, 0600);
    ::testing::internal::CaptureStderr();
    nqtoken::Output output(descriptor);
    nqtoken::OrderedOutput ordered(output);
    std::atomic<size_t> next{0};
    OnThreads(4,
              [&](int)
              {
                  for (size_t i = next++; i < kFiles; i = next++)
                  {
                      nqtoken::OrderedOutput::File file(ordered, i);
                      if (i == 0)
                          usleep(100000); // the others have to wait
                      for (const auto& [isError, text] : files[i])
                          isError ? file.PutError(text) : file.Put(text);
                      file.End();
                  }
              });
    EXPECT_TRUE(::testing::internal::GetCapturedStderr() == expectedError);
    EXPECT_TRUE(ReadAll(Path("out")) == expectedOut);
    close(descriptor);
}

// What is wrong in a scene, and where: the line of the value, and the element that it belongs to.
TEST_F(ToolTest, FaultsOfASceneNameTheirElementAndPlace)
{
    const CountedReports reports;
    const std::string mesh = "SCEN {\rMESH { NVTX 0 }\rMESH {\rNAME \"m\"\rNVTX 1\rPOSN 0,0,0\r";
    const std::pair<std::string, std::string> cases[] = {
        {"SCEN {\rNAME \"open\rX 1 }\r", ":2:6: a string without its closing quote (0x80010027)"},
        {"SCEN {\rMESH {\r NAME \"open\rX 1 } }\r", ":3:7: mesh 0: a string without its closing quote (0x80010027)"},
        {"SCEN {\rOTHR { X { Y \"open } } }", ":2:14: a string without its closing quote (0x80010027)"},
        {"A \"open", ":1:3: no scene in this file: a string without its closing quote (0x80010027)"},
        {"SCEN {\rIMAG { DATA\r$00000001\rxx$ } }\r",
         ":3:1: image 0: the payload of DATA does not end where its count"},
        {"SCEN {\rX $00000009\rxx$", ":2:3: a payload that is not all there (0x80010027)"},
        {mesh + "NFAC 1\rFSIZ 3\rNCRN 2\rCRNR 0,0\r} }", ":8:1: mesh 1 \"m\": 1 faces of 3 corners do not make 2"},
        {mesh + "NFAC 1\r\rNCRN 1\rCRNR 0\r} }", ":7:1: mesh 1 \"m\": NFAC, but neither"},
        {mesh + "NFAC 1\rFSZS 2\rNCRN 1\rCRNR 0\r} }", ":8:1: mesh 1 \"m\": the faces need 2 corners, and there are 1"},
        {mesh + "NFAC 1\rFSZS -1\r} }", ":8:1: mesh 1 \"m\": a face with less than 0"},
        {mesh + "NCRN 1\rCRNR 0\r} }", ":8:1: mesh 1 \"m\": the faces need 0 corners, and there are 1"},
        {mesh + "NFAC 1\rFSIZ 1\rNCRN 1\rCRNR 1\r\r} }", ":10:1: mesh 1 \"m\": a corner at vertex 1 of 1"},
        {mesh + "TXCO {\r DIMS 4\r} } }", ":8:2: mesh 1 \"m\": DIMS must be"},
        {mesh + "COLR {\r VALU 1,2\r} } }", ":8:7: mesh 1 \"m\": VALU holds 2 values instead of 4"},
        {mesh + "MATI 0\r}\r }", ":7:1: mesh 1 \"m\": material 0 is referred to, of 0"},
        {mesh + "NVTX 1\r} }", ":7:1: mesh 1 \"m\": a second NVTX"},
        {"SCEN {\rMESH {\rNVTX 1\r} }", ":3:1: mesh 0: NVTX, but no POSN"},
        {"SCEN {\rMATL { NAME \"\x01\"\" TXTR {\rIMGI 3 } } MATL { TXTR { } } }",
         ":3:1: material 0 \"\"\": image 3 is referred to, of 0"},
        {"SCEN {\rNODE { NODE {\rNAME \"n\" NMSH 1\rMSHS 0 } } }", ":4:1: node 1 \"n\": mesh 0 is referred to, of 0"},
        {"SCEN {\rNODE { NAME \"r\" NODE { }\rNMSH x } }", ":3:6: node 0 \"r\": NMSH must be a whole"},
        {"SCEN {\rNODE { NMSH 1\rMSHS -1 } }", ":3:1: node 0: mesh -1 is referred to, of 0"},
        {"SCEN {\rNIMG 0\rNMSH 2\r}", ":3:1: the scene has 0 meshes, and its head says 2"},
        {"SCEN {\rVERS 99\r}", ":2:1: a scene of a later layout"},
    };
    for (const auto& [content, fault] : cases)
    {
        const std::string file = Put("fault.nq", content);
        nqtoken::Scene scene;
        const nqtoken::Outcome outcome = nqtoken::ReadScene(file, scene);
        EXPECT_EQ(outcome.Status(), nqtoken::kAtFault);
        EXPECT_EQ(outcome.Text().substr(0, file.size() + fault.size()), file + fault);
    }
    Put("open.nq", "A {\rB { C \"open\r}\r}\r");
    const TRun run = Run({"show", "--depth", "0", "open.nq"});
    EXPECT_EQ(run.fStatus, 1);
    EXPECT_EQ(run.fErr, "nqtoken: open.nq:2:7: a string without its closing quote (0x80010027)\n");
}

// What is done is shown while a later file keeps the tool waiting.
TEST_F(ToolTest, ShowsEachFileAsSoonAsThoseBeforeItAreDone)
{
    Put("first", "A 1\n");
    ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
    for (const char* jobs : {"1", "2"})
    {
        TRun run;
        OnThreads(2,
                  [&](int thread)
                  {
                      if (thread == 0)
                          run = Run({"check", "first", "pipe", "first", "-j", jobs});
                      else
                      {
                          const int pipe = open(Path("pipe").c_str(), O_WRONLY); // waits for the tool
                          for (int i = 0; i < 1000 && ReadAll(Path("io/out")).empty(); ++i)
                              usleep(10000);
                          EXPECT_EQ(ReadAll(Path("io/out")), "first: no faults\n");
                          close(pipe);
                      }
                  });
        EXPECT_EQ(run.fOut, "first: no faults\npipe: no faults\nfirst: no faults\n");
    }
}

TEST_F(ToolTest, ImportRefusesTargetsThatClashBeforeItWrites)
{
    for (const char* folder : {"a", "b"})
        fs::create_directory(Path(folder));
    for (const char* model : {"a/x.obj", "b/x.obj", "a/x.ply", "b/y.obj", "a/z.nq"})
        Put(model, "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    fs::create_directory_symlink("a", Path("link"));
    fs::create_symlink("y.nq", Path("b/x.nq"));
    Put("b/y.nq", "old");
    const auto before = [&]
    { return ReadAll(Path("b/y.nq")) + std::to_string(std::distance(fs::recursive_directory_iterator(fFolder), {})); };
    Run({"--help"});
    const std::string untouched = before();
    const std::pair<TTexts, const char*> cases[] = {
        {{"b/y.obj", "a/x.obj", "b/x.obj", "-o", "a"}, "a/x.obj and b/x.obj would both become a/x.nq; nothing"},
        {{"a/x.obj", "a/x.ply"}, "a/x.obj and a/x.ply would both become a/x.nq"},
        {{"a/x.obj", "link/x.obj", "a/./x.obj"},
         "a/x.obj and link/x.obj would both become link/x.nq, and 1 more such;"},
        {{"b/x.obj", "b/y.obj"}, "b/x.obj and b/y.obj would both become b/y.nq"}, // a link from one to the other
        {{"a/x.obj", "a/z.nq"}, "the scene of a/z.nq would replace the model a/z.nq"},
        {{"a/x.obj", "-o", "link/x.obj"}, "the scene of a/x.obj would replace the model a/x.obj"},
        {{"a/x.obj", "b/y.obj", "-o", "new"}, "new: there is no such folder"},
    };
    for (const auto& [arguments, message] : cases)
    {
        for (const char* jobs : {"1", "2"})
        {
            const TRun run = Run(Prefixed({"import", "-j", jobs}, arguments));
            EXPECT_EQ(run.fStatus, 2) << message;
            EXPECT_TRUE(Contains(run.fErr, message)) << run.fErr;
        }
    }
    EXPECT_EQ(before(), untouched);
}

// A signal while temporary files exist: the tool waits for its input, or writes scenes. Nothing half-written is left.
TEST_F(ToolTest, SignalsRemoveTemporaryFiles)
{
    std::string model;
    for (int i = 0; i < 40000; ++i)
        model += "v 0.25 1 " + std::to_string(i) + "\n";
    TTexts models;
    for (int i = 0; i < 16; ++i)
        Put(models.emplace_back("m" + std::to_string(i) + ".obj"), model + "f 1 2 3\n");
    const bool imports = !Contains(Run({"import", "m0.obj", "-o", "whole"}).fErr, "built without assimp");
    const std::string whole = ReadAll(Path("whole"));
    setenv("TMPDIR", fFolder.c_str(), 1);
    for (const TTexts& arguments : {TTexts{"check", "-"},
                                    {"check", "-j2", "m0.obj", "-"},
                                    Prefixed({"import"}, models),
                                    Prefixed({"import", "-j", "2"}, models)})
    {
        if (arguments[0] == "import" && !imports)
            continue;
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t child = Start(arguments, [ends] { dup2(ends[0], STDIN_FILENO), close(ends[0]), close(ends[1]); });
        const auto temporaries = [this]
        {
            const TTexts names = Names();
            return std::count_if(names.begin(), names.end(),
                                 [](const std::string& name) { return name[0] == '.' || Contains(name, "nqtoken."); });
        };
        for (int i = 0; i < 10000 && temporaries() == 0; ++i)
            usleep(1000);
        EXPECT_GE(temporaries(), 1);
        kill(child, SIGTERM);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
        EXPECT_EQ(temporaries(), 0) << arguments[0];
        EXPECT_FALSE(fs::exists(Path("m15.nq")));
        for (int i = 0; i < 15 && fs::exists(Path("m" + std::to_string(i) + ".nq")); ++i)
            EXPECT_TRUE(ReadAll(Path("m" + std::to_string(i) + ".nq")) == whole) << i;
        close(ends[0]);
        close(ends[1]);
    }
    unsetenv("TMPDIR");
}

} // namespace

#endif
