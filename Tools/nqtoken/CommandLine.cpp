#include "Tools/nqtoken/CommandLine.h"

#include "Tools/nqtoken/Output.h"
#include "Tools/nqtoken/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <map>
#include <sstream>

namespace nqtoken
{
namespace
{

constexpr size_t kMaxShown = 40; // bytes of a word in a message

// --- what a word resembles

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

// The one of several words that inWord is a slip or the beginning of; empty when there is none.
std::string Resembled(const std::string& inWord, const std::vector<std::string>& inWords)
{
    constexpr size_t kLongest = 20;
    constexpr size_t kMostSteps = 2;
    if (inWord.size() > kLongest || inWords.empty())
        return {};
    const auto begins = [&](const std::string& word) { return word.compare(0, inWord.size(), inWord) == 0; };
    if (std::count_if(inWords.begin(), inWords.end(), begins) == 1)
        return *std::find_if(inWords.begin(), inWords.end(), begins);
    const auto nearest =
        std::min_element(inWords.begin(), inWords.end(),
                         [&](const auto& a, const auto& b) { return Distance(a, inWord) < Distance(b, inWord); });
    return Distance(*nearest, inWord) <= kMostSteps ? *nearest : std::string();
}

// --- what is wrong with the words behind a command

std::string CountWord(size_t inCount)
{
    return inCount == 1 ? "one" : inCount == 2 ? "two" : std::to_string(inCount);
}

bool IsOption(const std::string& inWord)
{
    return inWord.size() > 1 && inWord[0] == '-' && inWord != "--";
}

class UsageReader
{
public:
    explicit UsageReader(const CLI::App& inCommand) : fCommand(inCommand)
    {
        for (const CLI::Option* option : fCommand.get_options())
            (option->get_positional() ? fPositionals : fOptions).push_back(option);
    }

    // The first fault, in a sentence without its end; empty when there is none that is known here.
    std::string Fault(const std::vector<std::string>& inWords)
    {
        for (size_t i = 0; i < inWords.size(); ++i)
        {
            if (inWords[i] == "--")
            {
                fFiles.insert(fFiles.end(), inWords.begin() + static_cast<ptrdiff_t>(i) + 1, inWords.end());
                break;
            }
            const bool hasNext = i + 1 < inWords.size() && !inWords[i + 1].empty() && !IsOption(inWords[i + 1]);
            std::string fault;
            if (!IsOption(inWords[i]))
                fFiles.push_back(inWords[i]);
            else if (ReadOption(inWords[i], hasNext, fault))
                ++i;
            if (!fault.empty())
                return fault;
        }
        const std::string fault = FilesFault();
        return fault.empty() ? MissingFault() : fault;
    }

private:
    static std::string NameOf(const CLI::Option& inOption) { return inOption.get_name(false, false); }

    std::vector<std::string> OptionNames() const
    {
        std::vector<std::string> names;
        for (const CLI::Option* option : fOptions)
            names.push_back(NameOf(*option));
        return names;
    }

    std::string NoOption(const std::string& inWord) const
    {
        const std::string shown = Printable(inWord, kMaxShown);
        const std::string meant = Resembled(inWord, OptionNames());
        return fmt::format("{} has no option {}, {}", fCommand.get_name(), shown,
                           meant.empty() ? fmt::format("only {}", fmt::join(OptionNames(), ", "))
                                         : fmt::format("perhaps {} is meant", meant));
    }

    // True when the word behind it is its value.
    bool ReadOption(const std::string& inWord, bool inHasNext, std::string& outFault)
    {
        const bool isLong = inWord[1] == '-';
        const size_t nameLength = isLong ? inWord.find('=') : 2;
        const CLI::Option* const option = fCommand.get_option_no_throw(inWord.substr(0, nameLength));
        if (option == nullptr)
            outFault = NoOption(isLong ? inWord.substr(0, nameLength) : inWord);
        else if (++fGiven[option] > 1)
            outFault = fmt::format("{} is given twice; leave one of them out", NameOf(*option));
        if (option == nullptr || option->get_expected_min() == 0)
            return false;
        const bool hasOwn = nameLength < inWord.size() - (isLong ? 1 : 0);
        if (!hasOwn && !inHasNext && outFault.empty())
            outFault =
                fmt::format("{} needs a value: {} {}", NameOf(*option), NameOf(*option), option->get_type_name());
        return nameLength >= inWord.size();
    }

    // "one FILE", "one ADDRESS and one SCENE".
    std::string FilesText() const
    {
        std::vector<std::string> texts;
        for (const CLI::Option* option : fPositionals)
            texts.push_back(CountWord(static_cast<size_t>(option->get_items_expected_max())) + " " + NameOf(*option));
        return texts.empty() ? "no file" : fmt::format("{}", fmt::join(texts, " and "));
    }

    std::string FilesFault() const
    {
        size_t left = fFiles.size();
        for (const CLI::Option* option : fPositionals)
        {
            const auto least = static_cast<size_t>(option->get_items_expected_min());
            if (left == 0)
                return fmt::format("{} is missing: {}", NameOf(*option), option->get_description());
            if (left < least)
                return fmt::format("{} takes {}, and only {} is given", fCommand.get_name(), FilesText(),
                                   CountWord(left));
            left -= std::min(left, static_cast<size_t>(option->get_items_expected_max()));
        }
        return left == 0 ? std::string()
                         : fmt::format("{} takes {}, and {} is one more", fCommand.get_name(), FilesText(),
                                       Quoted(fFiles[fFiles.size() - left], kMaxShown));
    }

    std::string MissingFault()
    {
        for (const CLI::Option* option : fOptions)
        {
            if (option->get_required() && fGiven[option] == 0)
                return fmt::format("{} {} is missing: {}", NameOf(*option), option->get_type_name(),
                                   option->get_description());
        }
        return {};
    }

    const CLI::App& fCommand;
    std::vector<const CLI::Option*> fPositionals;
    std::vector<const CLI::Option*> fOptions;
    std::map<const CLI::Option*, int> fGiven;
    std::vector<std::string> fFiles;
};

// The words behind the program's name. "help check" is taken for "check --help".
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

// What to say of a command line whose first word is no command.
std::string NoCommandText(const CLI::App& inApp, const std::string& inWord)
{
    std::vector<std::string> names;
    for (const CLI::App* command : inApp.get_subcommands({}))
        names.push_back(command->get_name());
    if (inWord.empty())
        return fmt::format("give a command: {}", fmt::join(names, ", "));
    if (inWord[0] == '-')
        return fmt::format("there is no option {} before a command", Printable(inWord, kMaxShown));
    const std::string shown = Quoted(inWord, kMaxShown);
    const std::string meant = Resembled(inWord, names);
    return meant.empty() ? fmt::format("there is no command {}, only {}", shown, fmt::join(names, ", "))
                         : fmt::format("there is no command {}, perhaps \"{}\" is meant", shown, meant);
}

// A value that was refused is told by what refused it.
std::string UsageText(const CLI::App& inApp, const std::vector<std::string>& inWords, const CLI::ParseError& inError)
{
    const std::vector<CLI::App*> chosen = inApp.get_subcommands();
    std::string fault;
    if (chosen.empty())
        fault = NoCommandText(inApp, inWords.empty() ? std::string() : inWords[0]);
    else if (dynamic_cast<const CLI::ValidationError*>(&inError) == nullptr)
        fault = UsageReader(*chosen.front()).Fault({inWords.begin() + 1, inWords.end()});
    return fmt::format("{}; see \"{} {}--help\"", fault.empty() ? inError.what() : fault, inApp.get_name(),
                       chosen.empty() ? "" : chosen.front()->get_name() + " ");
}

} // namespace

CLI::Validator WholeNumber(uint64 inMost, const std::string& inRange)
{
    const auto fault = [=](const std::string& text)
    {
        const bool isNumber = !text.empty() && text.size() < 19 && text.find_first_not_of("0123456789") == text.npos;
        return isNumber && std::stoull(text) <= inMost
                   ? std::string()
                   : fmt::format("{} is not a whole number {}", Quoted(text, kMaxShown), inRange);
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
        return isNumber ? std::string() : fmt::format("{} is not a number {}", Quoted(text, kMaxShown), inRange);
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
        return fmt::format("{} is not a number of bytes, such as 5000, 64KB, 64MB or 1GB", Quoted(text, kMaxShown));
    };
    return {read, ""};
}

CLI::Validator OneOf(const std::vector<std::string>& inWords)
{
    const auto fault = [=](const std::string& text)
    {
        return std::find(inWords.begin(), inWords.end(), text) != inWords.end()
                   ? std::string()
                   : fmt::format("{} is none of {}", Quoted(text, kMaxShown), fmt::join(inWords, ", "));
    };
    return {fault, ""};
}

std::optional<int> ReadCommandLine(CLI::App& ioApp, int inCount, char** inArguments, Output& ioOutput)
{
    const std::vector<std::string> words = Words(inCount, inArguments);
    try
    {
        ioApp.parse(std::vector<std::string>(words.rbegin(), words.rend()));
        return {};
    }
    catch (const CLI::ParseError& error)
    {
        std::ostringstream out;
        std::ostringstream err;
        const int status = ioApp.exit(error, out, err);
        const bool isUnknown =
            ioApp.get_subcommands().empty() && !words.empty() && !IsOption(words[0]); // no help for it
        if (status != 0 || isUnknown)
            return Finish(Trouble(UsageText(ioApp, words, error)), ioOutput);
        ioOutput.Put(out.str());
        return Finish(Outcome(), ioOutput);
    }
}

} // namespace nqtoken
