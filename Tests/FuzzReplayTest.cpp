#include "Fuzz/FuzzTargets.h"
#include "Fuzz/ResourceBytes.h"
#include "Tests/TestHost.h"

namespace
{

using namespace std::string_literals;

// What the targets meet in real files, and what breaks readers.
const std::vector<std::string>& Seeds()
{
    static const std::vector<std::string> seeds = {
        "",
        "SCEN {\rOBJT {\rNAME \"Cube \\\"1\\\" \xC3\xA9\"\rMATR 1.000000,0,0,-2.5\r}\r# end\r}\r",
        "P{1,2}R{-1,2,3,4}A -7 F 0.1e5 I inf S\"a\\\\b\" X 'abc",
        "DATA $ 00000005ab$d} $ NEXT $ FFFFFFFFraw$ }",
        "$ 7FFFFFFFx$ $ zz $",
        "HEXA 00FF7F80\rMORE A5\r BINH {0123mno} 0a1B",
        "2147483648 -2147483649 65536 1e400 -0.0000001 .5 - + 12,34\n",
        "line one\rline two\r\nline three\n\n\"quoted\n\" word\\ \"open",
        "{{{{{{{{}}}}{}}}}}}}{ # only \"braces\" {\r}",
        "\xEF\xBB\xBFtext \xE2\x82\xAC \xF0\x9F\x98\x80 \xC0\x80 \xFF\xFE \x80 \xE2\x82",
        "a\0b\0\0\"c\0d\" \x01 \x7F\x1B \f@x@Mhello@y"s,
        "A $FFFFFFFF\r0000000C`03<`03<`<C304P0$ B 1\r\rDONE {\rSIZE 9\rCRCS 1\r}\r",
        std::string(300, 'w') + " \"" + std::string(300, 'q') + "\" #" + std::string(300, 'c') + "\r}",
        NqFuzz::TwoResources(),
        std::string(1, 2) + NqFuzz::TwoResources().substr(20), // with another header
    };
    return seeds;
}

std::string Hexadecimal(const std::string& bytes)
{
    std::string digits;
    for (const unsigned char byte : bytes)
        for (const int digit : {byte >> 4, byte & 15})
            digits += "0123456789ABCDEF"[digit];
    return digits;
}

// False when a promise was broken.
bool Replay(const NqFuzz::TTarget& target, const std::string& input)
{
    try
    {
        target.fRun(reinterpret_cast<const uint8*>(input.data()), input.size());
    }
    catch (const std::logic_error& broken)
    {
        ADD_FAILURE() << "not true that " << broken.what() << ": " << Hexadecimal(input);
    }
    TakeReports();
    return !::testing::Test::HasFailure();
}

class FuzzReplay : public NqTest, public ::testing::WithParamInterface<NqFuzz::TTarget>
{
};

} // namespace

// Every seed and every cut of it, with each way in which the target can be steered by its first byte.
TEST_P(FuzzReplay, SeedsAndTheirCuts)
{
    for (const std::string& seed : Seeds())
        for (size_t length = 0; length <= seed.size(); length += length < 120 ? 1 : 97)
            for (char steer = 0; steer < 14; ++steer)
                if (!Replay(GetParam(), steer + seed.substr(0, length)))
                    return;
}

TEST_P(FuzzReplay, Mutations)
{
    TTexts pieces = {"\"", "\\", "{", "}", "#", "$", ",", " ", "\r", "\0"s, "$ 00000003", "\xC3", "FFFFFFFE", "-"};
    pieces.insert(pieces.end(), Seeds().begin(), Seeds().end());
    TRandom random(2024);
    for (int i = 0; i < 2000; ++i)
    {
        std::string input = Mutated(Seeds()[random() % Seeds().size()], pieces, random);
        for (int steering = 0; steering < 8; ++steering)
            input.insert(input.begin(), static_cast<char>(random()));
        if (!Replay(GetParam(), input))
            return;
    }
}

INSTANTIATE_TEST_SUITE_P(All, FuzzReplay, ::testing::ValuesIn(NqFuzz::kTargets),
                         [](const auto& target) { return target.param.fName; });
