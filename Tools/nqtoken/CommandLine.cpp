#include "Tools/nqtoken/CommandLine.h"

#include "Tools/nqtoken/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <limits>

namespace nqtoken
{
namespace
{

// How many letters have to be put in, taken out, replaced, or swapped with their neighbour.
size_t Distance(const std::string& inA, const std::string& inB)
{
    std::vector<std::vector<size_t>> steps(inA.size() + 1, std::vector<size_t>(inB.size() + 1));
    for (size_t a = 0; a <= inA.size(); ++a)
    {
        for (size_t b = 0; b <= inB.size(); ++b)
        {
            size_t& least = steps[a][b];
            if (a == 0 || b == 0)
            {
                least = a + b;
                continue;
            }
            const bool isSame = inA[a - 1] == inB[b - 1];
            least = std::min({steps[a - 1][b] + 1, steps[a][b - 1] + 1, steps[a - 1][b - 1] + (isSame ? 0 : 1)});
            if (a > 1 && b > 1 && inA[a - 1] == inB[b - 2] && inA[a - 2] == inB[b - 1])
                least = std::min(least, steps[a - 2][b - 2] + 1);
        }
    }
    return steps[inA.size()][inB.size()];
}

} // namespace

CLI::Validator WholeNumber(uint64 inMost, const std::string& inRange)
{
    const auto fault = [=](const std::string& text)
    {
        const bool isNumber = !text.empty() && text.size() < 19 && text.find_first_not_of("0123456789") == text.npos;
        return isNumber && std::stoull(text) <= inMost
                   ? std::string()
                   : fmt::format("\"{}\" is not a whole number {}", Printable(text, 40), inRange);
    };
    return {fault, ""};
}

CLI::Validator AnyCount()
{
    return WholeNumber(std::numeric_limits<int64>::max(), "of 0 or more");
}

CLI::Validator PositiveReal(real64 inMost, const std::string& inRange)
{
    const auto fault = [=](const std::string& text)
    {
        char* end = nullptr;
        const real64 value = strtod(text.c_str(), &end);
        const bool isNumber = end != text.c_str() && *end == 0 && value >= 0 && value <= inMost;
        return isNumber ? std::string() : fmt::format("\"{}\" is not a number {}", Printable(text, 40), inRange);
    };
    return {fault, ""};
}

CLI::Validator ByteCount()
{
    const auto read = [](std::string& text)
    {
        constexpr std::pair<std::string_view, int> kUnits[] = {{"", 0},     {"b", 0},   {"k", 10},  {"kb", 10},
                                                               {"kib", 10}, {"m", 20},  {"mb", 20}, {"mib", 20},
                                                               {"g", 30},   {"gb", 30}, {"gib", 30}};
        std::string unit = text.substr(std::min(text.find_first_not_of("0123456789"), text.size()));
        std::transform(unit.begin(), unit.end(), unit.begin(), [](unsigned char c) { return std::tolower(c); });
        uint64 count = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size() - unit.size(), count);
        for (const auto& [name, shift] : kUnits)
        {
            if (unit != name || error != std::errc() || count > std::numeric_limits<uint64>::max() >> shift)
                continue;
            text = std::to_string(count << shift);
            return std::string();
        }
        return fmt::format("\"{}\" is not a number of bytes, such as 5000, 64KB, 64MB or 1GB", Printable(text, 40));
    };
    return {read, ""};
}

std::vector<std::string> Words(int inCount, char** inArguments)
{
    std::vector<std::string> words(inArguments + std::min(inCount, 1), inArguments + inCount);
    if (!words.empty() && words[0] == "help")
    {
        words.erase(words.begin());
        words.push_back("--help");
    }
    return words;
}

std::string NoCommandText(const CLI::App& inApp, const std::string& inWord)
{
    std::vector<std::string> names;
    for (const CLI::App* command : inApp.get_subcommands({}))
        names.push_back(command->get_name());
    if (inWord.empty())
        return fmt::format("give a command: {}", fmt::join(names, ", "));
    const std::string shown = Printable(inWord, 40);
    if (inWord[0] == '-')
        return fmt::format("there is no option {} before a command", shown);
    if (inWord.size() > 20)
        return fmt::format("there is no command \"{}\", only {}", shown, fmt::join(names, ", "));
    const auto nearest =
        std::min_element(names.begin(), names.end(),
                         [&](const auto& a, const auto& b) { return Distance(a, inWord) < Distance(b, inWord); });
    if (Distance(*nearest, inWord) <= 2)
        return fmt::format("there is no command \"{}\", perhaps \"{}\" is meant", shown, *nearest);
    return fmt::format("there is no command \"{}\", only {}", shown, fmt::join(names, ", "));
}

} // namespace nqtoken
