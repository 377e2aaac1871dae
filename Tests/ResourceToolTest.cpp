// nqres: text to resources and back, and strings to translators and back.

#include "Tests/ResourceDoubles.h"

#ifdef NQRES_PATH

#include "Tools/nqres/Build.h"
#include "Tools/nqres/Placeholders.h"
#include "Tools/nqres/Strings.h"

#include <sys/wait.h>

using namespace nqres;
using namespace std::string_literals;

namespace
{

class ResourceTool : public FolderTest
{
protected:
    // The file that a text makes; "" and fault when it is at fault.
    static std::string Built(const std::string& text, std::string& fault)
    {
        TNqHostResourceFile file;
        const Outcome outcome = BuildResources("t", text, file);
        fault = outcome.Text();
        return outcome.Ok() ? BytesOf(file) : "";
    }

    // Runs the program in the test's folder; what it prints is in the files out and err.
    int Run(const std::string& arguments) const
    {
        const std::string command = "cd '" + fFolder.string() + "' && '" +
                                    std::filesystem::absolute(NQRES_PATH).string() + "' " + arguments + " > out 2> err";
        return WEXITSTATUS(std::system(command.c_str()));
    }
};

const std::string kSmall = "RSRC { TYPE DLOG NMBR 1 NAME \"About\" STRS { TEXT \"One\" TEXT \"\" TEXT \"Two\" } }";

} // namespace

TEST_F(ResourceTool, FieldsHaveTheseBytes)
{
    static const std::pair<const char*, std::string> kFields[] = {
        {"BYTE -128,255,0x41", "\x80\xFF\x41"},
        {"SHRT -32768,65535", "\x80\0\xFF\xFF"s},
        {"LONG 1,-2147483648,4294967295", "\0\0\0\1\x80\0\0\0\xFF\xFF\xFF\xFF"s},
        {"RL32 1,-inf RL64 -0.1", "\x3F\x80\0\0\xFF\x80\0\0\xBF\xB9\x99\x99\x99\x99\x99\x9A"s},
        {"FOUR \"JPG \" FOUR 0x00000001 FOUR ICON", "JPG \0\0\0\1ICON"s},
        {"STR1 \"a\\\"b\" STR4 \"\" CSTR \"c\rd\"", "\3a\"b\0\0\0\0c\rd\0"s},
        {"P005\"ab\"P000\"\"", "\2ab\0\0\0\0"s},
        {"LOCS \"s\" L007 \"t\" # comment\n LOCS \"u\"", "\0\0\0\1\0\0\0\2\0\0\0\0\0\0\0\3"s},
        {"HEXA 00fF HEXA 7f", "\0\xFF\x7F"s},
    };
    for (const auto& [text, bytes] : kFields)
    {
        TNqHostResourceFile file;
        const Outcome outcome =
            BuildResources("t", "\xEF\xBB\xBFRSRC{TYPE DLOG NMBR 1 STRS{TEXT\"first\"}DATA{"s + text + " } }", file);
        ASSERT_TRUE(outcome.Ok()) << outcome.Text();
        const TNqResource& resource = *file.GetResource(0);
        EXPECT_EQ(std::string(resource.GetData(), resource.GetSize()), bytes) << text;
        EXPECT_EQ(resource.GetLocalizedStrings()->GetElemCount(),
                  text[0] == 'L' && text[1] == 'O' && text[2] == 'C' ? 4u : 1u);
    }
}

TEST_F(ResourceTool, SaysWhatIsWrongWhere)
{
    static const std::pair<std::string, const char*> kCases[] = {
        {"RSRX {", "t:1:1: expected RSRC, with which each resource begins"},
        {"RSRC\n TYPE", "t:2:2: expected { behind RSRC, found \"TYPE\""},
        {"\r\n\rRSRC { NMBR 1 }", "t:3:1: a resource without TYPE; add one, such as TYPE ICON"},
        {"RSRC { TYPE ABC", "t:1:13: expected four characters, such as ICON, \"JPG \" or 0x4A504720"},
        {"RSRC { NMBR 32768", "t:1:13: expected a whole number from -32768 to 32767, found \"32768\""},
        {"RSRC { NMBR", "t:1:12: the text ends where a number should stand"},
        {"RSRC { FOO 1", "t:1:8: \"FOO\" is not known here; expected TYPE, NMBR, NAME, ATTR, DATA, STRS or }"},
        {"RSRC { STRS { TEXT a\x1B", "t:1:20: expected a text in quotes, found \"a\\x1B\""},
        {"RSRC { STRS { TEXT \"a\nb", "t:1:20: a string without its closing quote"},
        {"RSRC { STRS { TEXT \"a\0\""s, "t:1:20: a zero byte; no text of a resource can hold one"},
        {"RSRC { STRS {", "t:1:14: the text ends inside of a block; close it with }"},
        {"RSRC { DATA { BYTE 1,256", "t:1:22: expected a whole number from -128 to 255, found \"256\""},
        {"RSRC { DATA { RL64 1,,2",
         "t:1:22: expected a number, found nothing; write numbers without blanks between them, such "
         "as 1,2,3"},
        {"RSRC { DATA { RL32 1,1e39", "t:1:22: \"1e39\" is too large or too small for a number of 4 bytes"},
        {"RSRC { DATA { RL64 1e-400", "t:1:20: \"1e-400\" is too large or too small for a number of 8 bytes"},
        {"RSRC { DATA { HEXA 0G", "t:1:20: expected hexadecimal digits, 0 to 9 and A to F"},
        {"RSRC { DATA { P002 \"abc\"", "t:1:20: 3 bytes of text where at most 2 fit; shorten it"},
        {"RSRC { DATA { P0x1 {",
         "t:1:15: \"P0x1\" is not known here; expected BYTE, SHRT, LONG, RL32, RL64, FOUR, HEXA, "
         "STR1, STR4, CSTR, LOCS, P000, L003 or }"},
        {"RSRC { TYPE ICON TYPE", "t:1:18: a second TYPE; remove one of them"},
        {"RSRC { {", "t:1:8: { is not known here; expected TYPE, NMBR, NAME, ATTR, DATA, STRS or }"},
        {"RSRC { DATA { L004 \"\"", "t:1:15: the bytes of a localized field, one more than its number says, are a "
                                    "multiple of 4: L003, L007, L031 and so on"},
        {"RSRC { DATA $00000001\rx$", "t:1:13: a raw payload; write bytes as hexadecimal digits behind HEXA"},
        {kSmall + "\n" + kSmall, "t:2:1: a second resource DLOG 1; give it another number"},
    };
    for (const auto& [text, fault] : kCases)
    {
        std::string told;
        EXPECT_EQ(Built(text, told), "");
        EXPECT_EQ(told, fault);
    }
}

// Each kind of text takes as many bytes as whoever reads it has room for, and not one more.
TEST_F(ResourceTool, TextsFitTheirFieldsOrAreRefused)
{
    constexpr size_t kAny = 100000;
    static const std::pair<const char*, size_t> kKinds[] = {
        {"NAME", 255},         {"STRS { TEXT", kAny}, {"DATA { STR1", 255}, {"DATA { STR4", 4095},
        {"DATA { CSTR", kAny}, {"DATA { LOCS", kAny}, {"DATA { P000", 0},   {"DATA { P001", 1},
        {"DATA { P031", 31},   {"DATA { P255", 255},  {"DATA { L003", 3},   {"DATA { L031", 31},
        {"DATA { L255", 255},  {"DATA { L999", 999},
    };
    for (const auto& [field, most] : kKinds)
    {
        const auto built = [&, field = std::string(field)](size_t size, std::string& outFault)
        {
            const bool isBlock = field.find('{') != std::string::npos;
            return Built("RSRC { TYPE DLOG NMBR 1\n" + field + "\"" + std::string(size, 'x') +
                             (isBlock ? "\" } }" : "\" }"),
                         outFault);
        };
        std::string fault;
        EXPECT_NE(built(most, fault), "") << field << fault;
        if (most == kAny)
            continue;
        EXPECT_EQ(built(most + 1, fault), "") << field;
        EXPECT_NE(fault.find((most == 0 ? "1 byte" : std::to_string(most + 1) + " bytes") + " of text where at most " +
                             std::to_string(most) + (most == 1 ? " fits; shorten it" : " fit; shorten it")),
                  std::string::npos)
            << fault;
    }
}

TEST_F(ResourceTool, PlaceholdersThatDiffer)
{
    struct TCase
    {
        const char* fOriginal;
        const char* fTranslation;
        const char* fFault;
    };
    static const TCase kCases[] = {
        {"", "", ""},
        {"Saved ^0 of ^1", "^1, davon ^0", ""},
        {"Saved ^0 of ^1", "Gesichert: ^0", "has the placeholder ^0 where the original has ^0, ^1"},
        {"^1", "^10", "has the placeholder ^10 where the original has ^1"},
        {"^0 and ^0", "^0", ""},
        {"2^n, ^", "n^2", "has the placeholder ^2 where the original has none"},
        {"%d files", "Dateien", "has no placeholder where the original has %d"},
        {"%d files", "%i Dateien", ""},
        {"%d files", "%ld Dateien", "has the placeholder %ld where the original has %d"},
        {"%d files", "%s Dateien", "has the placeholder %s where the original has %d"},
        {"%.2f m", "%8.3f m", ""},
        {"%.*f", "%.2f", "has the placeholder %.2f where the original has %.*f"},
        {"%*d", "%d", "has the placeholder %d where the original has %*d"},
        {"%s: %d", "%d: %s",
         "has the placeholders %d, %s where the original has %s, %d; in another order they need numbers, such as %2$s"},
        {"%s: %d", "%2$d: %1$s", ""},
        {"%1$s: %2$s", "%2$s", "has the placeholder %2$s where the original has %1$s, %2$s"},
        {"files", "%d Dateien", "has the placeholder %d where the original has none"},
        {"100% sure", "100%ig sicher", ""},
        {"%d is 5 % of it", "%d sind 5 % davon", ""},
        {"%d is 5 % of it", "5 % davon", "has no placeholder where the original has %d"},
        {"%d%%", "%d %%", ""},
        {"%%d", "%d", "has the placeholder %d where the original has none"},
        {"%1 of %2", "%2: %1", ""},
        {"%1 of %2", "%1", "has the placeholder %1 where the original has %1, %2"},
        {"{0} {name:>5} {{x}}", "{name} {0}", ""},
        {"{} {}", "{}", "has the placeholder {} where the original has {}, {}"},
        {"%", "", ""},
        {"%-", "%l", ""},
    };
    for (const TCase& one : kCases)
        EXPECT_EQ(ComparePlaceholders(one.fOriginal, one.fTranslation), one.fFault) << one.fOriginal;
}

// Random resources: what is shown builds the same bytes, what is exported imports to the same bytes; and no damage to
// either text does more than being refused.
TEST_F(ResourceTool, TextsComeBack)
{
    TRandom random(99);
    const auto text = [&](int limit)
    {
        std::string bytes;
        for (int i = random.Below(limit); i > 0; --i)
            bytes += random.OneIn(4) ? "\xC3\xA9\r\n\"\\\t#{}\1 "[random.Below(12)]
                                     : static_cast<char>(1 + random.Below(255));
        return bytes;
    };
    for (int round = 0; round < 150; ++round)
    {
        TNqHostResourceFile file;
        for (int i = random.Below(5); i > 0; --i)
        {
            const FourCharT type = random.OneIn(2)   ? NqFourChar("JPG ")
                                   : random.OneIn(2) ? static_cast<FourCharT>(random())
                                                     : 0x41426330;
            const std::string name = text(20);
            const std::string data = text(100) + "\0"s;
            const TStringsPtr strings = Strings({});
            for (int n = random.Below(4); n > 0; --n)
                strings->AddElem(TNqDynamicString(text(40).c_str()));
            const TResourcePtr resource =
                Resource(type, static_cast<int16>(random()), name, random.OneIn(3) ? "" : data,
                         random.OneIn(3) ? nullptr : static_cast<TResourceStrings*>(strings));
            resource->SetAttributes(static_cast<int32>(random.OneIn(2) ? random() : 0));
            file.AddResource(*resource);
        }
        const std::string bytes = BytesOf(file);
        const std::string shown = ShowResources(file);
        std::string fault;
        ASSERT_EQ(Built(shown, fault), bytes) << fault << shown;

        const std::string exported = ExportStrings(file);
        StringMap strings;
        size_t kept = 1;
        ASSERT_EQ(ParseStrings("s", exported, strings).Text(), "") << exported;
        ASSERT_EQ(CompareStrings(StringsOf(file), strings, "s"), TTexts());
        ASSERT_EQ(ImportStrings("s", strings, file, kept).Text(), "");
        ASSERT_TRUE(BytesOf(file) == bytes && kept == 0);
        ASSERT_EQ(ExportStrings(file), exported);

        static const TTexts kPieces = {
            "\"", "\\", "{", "}", " = ", "\n", "TEXT", "$", "\0"s, "\xC3", "DLOG.1.0 = \"x\"\n"};
        for (int i = 0; i < 20; ++i)
        {
            const std::string damaged = Mutated(shown, kPieces, random);
            const std::string built = Built(damaged, fault);
            ASSERT_EQ(built.empty(), !fault.empty());
            StringMap other;
            const Outcome parsed = ParseStrings("s", Mutated(exported, kPieces, random), other);
            if (parsed.Ok() && !ImportStrings("s", other, file, kept).Ok())
            {
                ASSERT_EQ(BytesOf(file), bytes);
            }
            TNqDynamicString reason;
            file.ReadBytes(bytes.data(), static_cast<uint32>(bytes.size()), reason);
        }
    }
    TakeReports(); // numbers that damage made of words
}

TEST_F(ResourceTool, StringsThatAreWrong)
{
    static const std::pair<std::string, const char*> kLines[] = {
        {"DLOG.1.4294967296 = \"x\"", "s:2: \"DLOG.1.4294967296\" is no key; expected TYPE.NUMBER.INDEX = \"text\""},
        {"DLOG.1.0 \"x\"", "s:2: no = behind the key; expected TYPE.NUMBER.INDEX = \"text\""},
        {"DLOG.1.0 = x",
         "s:2: expected a text in quotes; write \\\" for a quote and \\\\ for a backslash inside of it"},
        {"DLOG.1.0 = \"x\" y\"", "s:2: something behind the closing quote; write \\\" for a quote inside of the text"},
        {"DLOG.1.0 = \"\\x00\"", "s:2: a zero byte, which no string can hold; remove \\x00"},
        {"DLOG.1.0 = \"\xFC\"", "s:2: this line is not in UTF-8; save the file as UTF-8"},
        {"DLOG.1.0 = \"\xED\xA0\x80\"", "s:2: this line is not in UTF-8; save the file as UTF-8"},
        {"\rDLOG.1.2=\"\xF0\x9F\x98\x80\"\r\nDLOG.1.2 = \"\" # twice",
         "s:4: DLOG.1.2 stands in line 3 already; remove one of them"},
    };
    for (const auto& [line, fault] : kLines)
    {
        StringMap strings;
        EXPECT_EQ(ParseStrings("s", "\xEF\xBB\xBF# head\n" + line, strings).Text(), fault);
    }
}

TEST_F(ResourceTool, FromTheCommandLine)
{
    Put("small.txt", kSmall);
    EXPECT_EQ(Run("build small.txt -o small.nqr"), 0) << ReadAll(Path("err"));
    EXPECT_EQ(Run("show small.nqr"), 0);
    EXPECT_EQ(ReadAll(Path("out")), "RSRC {\n TYPE DLOG\n NMBR 1\n NAME \"About\"\n STRS {\n  TEXT \"One\"\n"
                                    "  TEXT \"\"\n  TEXT \"Two\"\n }\n}\n");
    EXPECT_EQ(Run("export-strings small.nqr -o all"), 0);
    EXPECT_EQ(Run("import-strings small.nqr all -o same.nqr") + Run("check same.nqr --against small.nqr"), 0);
    EXPECT_EQ(ReadAll(Path("out")), "small.nqr: all 3 strings are there\n");
    EXPECT_EQ(ReadAll(Path("same.nqr")), ReadAll(Path("small.nqr")));

    Put("de", "DLOG.1.0 = \"\"\nDLOG.1.3 = \"Drei\"\n");
    EXPECT_EQ(Run("check small.nqr --against de"), 1);
    EXPECT_EQ(ReadAll(Path("out")), "de:1: DLOG.1.0 is empty: \"One\"\nde: DLOG.1.1 is missing: \"\"\n"
                                    "de: DLOG.1.2 is missing: \"Two\"\nde:2: DLOG.1.3 is surplus: \"Drei\"\n");
    EXPECT_EQ(Run("import-strings small.nqr de -o same.nqr"), 1);
    EXPECT_NE(ReadAll(Path("err")).find("de:2: the resource file has no string DLOG.1.3"), std::string::npos);
    Put("de", "DLOG.1.0 = \"Eins\"\n");
    EXPECT_EQ(Run("import-strings small.nqr de -o de.nqr"), 0);
    EXPECT_NE(ReadAll(Path("err")).find("2 strings of small.nqr are missing"), std::string::npos);
    EXPECT_EQ(Run("export-strings de.nqr -o de") + Run("check small.nqr --against de"), 0);
    EXPECT_NE(ReadAll(Path("de")).find("\n# \"About\"\nDLOG.1.0 = \"Eins\"\nDLOG.1.1 = \"\"\n"), std::string::npos);

    Put("latin.txt", "RSRC { TYPE DLOG NMBR 1 STRS { TEXT \"\xFC\" } }");
    EXPECT_EQ(Run("build latin.txt -o latin.nqr"), 0);
    EXPECT_EQ(Run("check latin.nqr"), 1);
    EXPECT_EQ(ReadAll(Path("out")), "latin.nqr: DLOG.1.0 is not in UTF-8: \"\\xFC\"\n");

    Put("of.txt", "RSRC { TYPE DLOG NMBR 1 STRS { TEXT \"%d of ^0\" TEXT \"\" TEXT \"%s\" } }");
    EXPECT_EQ(Run("build of.txt -o of.nqr"), 0);
    Put("de", "DLOG.1.0 = \"^0\"\nDLOG.1.1 = \"\"\nDLOG.1.2 = \"\"\n");
    EXPECT_EQ(Run("check of.nqr --against de"), 1);
    const std::string lost = "de:1: DLOG.1.0 has the placeholder ^0 where the original has %d, ^0: \"^0\"\n";
    EXPECT_EQ(ReadAll(Path("out")), "de:3: DLOG.1.2 is empty: \"%s\"\n" + lost);
    EXPECT_EQ(Run("import-strings of.nqr de -o de.nqr"), 0);
    EXPECT_EQ(ReadAll(Path("err")),
              "nqres: " + lost +
                  "nqres: de:3: DLOG.1.2 has no placeholder where the original has "
                  "%s: \"\"\nnqres: de.nqr is written with them all the same; correct de and import "
                  "again\n");
    EXPECT_EQ(Run("check de.nqr"), 0);
    EXPECT_EQ(ReadAll(Path("out")), "de.nqr: 1 resource, 3 strings\n");
    Put("de", "DLOG.1.0 = \"%d ^0\"\nDLOG.1.1 = \"\"\n");
    EXPECT_EQ(Run("import-strings of.nqr de -o de.nqr"), 0);
    EXPECT_EQ(ReadAll(Path("err")), "nqres: de: 1 string of of.nqr is missing and stays as it is; \"nqres check of.nqr "
                                    "--against de\" lists it\n");

    // A fault writes nothing, trouble with files is another status.
    Put("small.txt", "RSRC {");
    Put("cut.nqr", ReadAll(Path("small.nqr")).substr(0, 40));
    const std::string before = ReadAll(Path("same.nqr"));
    EXPECT_EQ(Run("build small.txt -o same.nqr"), 1);
    EXPECT_EQ(ReadAll(Path("err")), "nqres: small.txt:1:7: the text ends inside of a block; close it with }\n");
    EXPECT_EQ(ReadAll(Path("same.nqr")), before);
    EXPECT_EQ(Run("check cut.nqr"), 1);
    EXPECT_EQ(ReadAll(Path("err")).substr(0, 26), "nqres: cut.nqr: is cut: 40");
    static const std::pair<const char*, const char*> kTrouble[] = {
        {"show none.nqr", "none.nqr: there is no such file"},
        {"show .", ".: is a folder"},
        {"check small.nqr --against ''", "the name of a file is empty"},
        {"check small.nqr --against /dev/null", "/dev/null: is not a file"},
        {"build small.txt/x -o y", "small.txt/x: Not a directory"},
        {"build of.txt -o ''", "the name of a file is empty"},
        {"build of.txt -o .", ".: is a folder"},
        {"export-strings small.nqr -o none/x",
         "none/x: no new file can be made in its folder: No such file or directory"},
        {"show small.nqr > /dev/full 2> err; exit $?; true", "standard output: No space left on device"},
        {"show", "FILE is missing: resource file to read; see \"nqres show --help\""},
        {"build of.txt", "--output TARGET is missing: resource file to write; see \"nqres build --help\""},
        {"check small.nqr --againts x",
         "check has no option --againts, perhaps --against is meant; see \"nqres check --help\""},
        {"biuld x", "there is no command \"biuld\", perhaps \"build\" is meant; see \"nqres --help\""},
    };
    for (const auto& [arguments, message] : kTrouble)
    {
        EXPECT_EQ(Run(arguments), 2) << arguments;
        EXPECT_EQ(ReadAll(Path("err")), "nqres: "s + message + "\n");
    }

    // Nobody reads what is printed, as behind "| head".
    const std::string tool = std::filesystem::absolute(NQRES_PATH).string();
    const std::string piped = "cd '" + fFolder.string() + "' && { sleep 0.2; '" + tool +
                              "' show small.nqr 2> err; echo $? > status; } | true";
    EXPECT_EQ(std::system(piped.c_str()), 0);
    EXPECT_EQ(ReadAll(Path("status")) + ReadAll(Path("err")), "0\n");
}

#endif
