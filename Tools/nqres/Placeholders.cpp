#include "Tools/nqres/Placeholders.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <vector>

namespace nqres
{
namespace
{

constexpr std::string_view kDigits = "0123456789";

// Takes the characters at the front that are in inSet.
std::string_view TakeAll(std::string_view& ioText, std::string_view inSet)
{
    const std::string_view taken = ioText.substr(0, ioText.find_first_not_of(inSet));
    ioText.remove_prefix(taken.size());
    return taken;
}

bool TakeOne(std::string_view& ioText, char inCharacter)
{
    const bool taken = !ioText.empty() && ioText[0] == inCharacter;
    ioText.remove_prefix(taken ? 1 : 0);
    return taken;
}

class Placeholders
{
public:
    explicit Placeholders(std::string_view inText)
    {
        while (!inText.empty())
        {
            const size_t before = inText.size();
            const std::string_view start = inText;
            const char c = inText[0];
            inText.remove_prefix(1);
            if ((c == '^' && TakeArgument(inText, "^")) || (c == '%' && TakePercent(inText)) ||
                (c == '{' && TakeBraces(inText)))
                fShown.emplace_back(start.substr(0, before - inText.size()));
        }
    }

    // What a program's values meet: those with a number or a name once, and the kind of each argument of a format.
    bool SameAs(const Placeholders& inOther) const { return fNamed == inOther.fNamed && fKinds == inOther.fKinds; }
    bool HasAllOf(const Placeholders& inOther) const
    {
        return std::includes(fNamed.begin(), fNamed.end(), inOther.fNamed.begin(), inOther.fNamed.end()) &&
               std::includes(fKinds.begin(), fKinds.end(), inOther.fKinds.begin(), inOther.fKinds.end());
    }
    bool OnlyInOtherOrder(const Placeholders& inOther) const
    {
        return fNamed == inOther.fNamed && Sorted() == inOther.Sorted();
    }
    bool HasPlainPercent() const { return fHasPlainPercent; }

    std::string Text() const
    {
        if (fShown.empty())
            return "no placeholder";
        return fmt::format("the placeholder{} {}", fShown.size() == 1 ? "" : "s", fmt::join(fShown, ", "));
    }
    std::string ShortText() const { return fShown.empty() ? "none" : fmt::format("{}", fmt::join(fShown, ", ")); }

private:
    std::vector<std::string> Sorted() const
    {
        std::vector<std::string> kinds;
        for (const auto& [number, kind] : fKinds)
            kinds.push_back(kind);
        std::sort(kinds.begin(), kinds.end());
        return kinds;
    }

    // A number behind a sign.
    bool TakeArgument(std::string_view& ioText, const char* inSign)
    {
        const std::string_view number = TakeAll(ioText, kDigits);
        if (!number.empty())
            fNamed.insert(inSign + std::string(number));
        return !number.empty();
    }

    bool TakePercent(std::string_view& ioText)
    {
        if (TakeOne(ioText, '%'))
            return false;
        const bool taken = TakeFormat(ioText) || TakeArgument(ioText, "%");
        fHasPlainPercent = fHasPlainPercent || !taken;
        return taken;
    }

    // A * takes an argument of its own.
    size_t TakeSize(std::string_view& ioText)
    {
        const bool isArgument = TakeOne(ioText, '*');
        TakeAll(ioText, kDigits);
        return isArgument ? 1 : 0;
    }

    // Behind the %: position, flags, width, precision, length, and what the argument is. A blank is a flag, too, but
    // "5 % of" is no format.
    bool TakeFormat(std::string_view& ioText)
    {
        std::string_view rest = ioText;
        size_t position = 0;
        std::string_view numbered = rest;
        const std::string_view number = TakeAll(numbered, kDigits);
        if (number.size() > 0 && number.size() < 4 && TakeOne(numbered, '$'))
        {
            position = std::stoul(std::string(number));
            rest = numbered;
        }
        TakeAll(rest, "-+#0'");
        size_t sizes = TakeSize(rest);
        if (TakeOne(rest, '.'))
            sizes += TakeSize(rest);
        const std::string_view length = TakeAll(rest, "hlLqjzt");
        if (rest.empty() || std::string_view("diouxXeEfFgGaAcspn").find(rest[0]) == std::string_view::npos)
            return false;
        const std::string kind = std::string(length) + (rest[0] == 'i' ? 'd' : rest[0]);
        rest.remove_prefix(1);
        ioText = rest;
        for (; sizes > 0; --sizes)
            fKinds[++fArguments] = "*";
        fKinds[position != 0 ? position : ++fArguments] = kind;
        return true;
    }

    // {}, {0} or {name}, and a format behind a colon.
    bool TakeBraces(std::string_view& ioText)
    {
        if (TakeOne(ioText, '{'))
            return false;
        std::string_view rest = ioText;
        const std::string_view name = TakeAll(rest, "0123456789_abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ");
        if (TakeOne(rest, ':'))
            rest.remove_prefix(std::min(rest.find('}'), rest.size()));
        if (!TakeOne(rest, '}'))
            return false;
        fNamed.insert(name.empty() ? fmt::format("{{{}", fBraces++) : "{" + std::string(name));
        ioText = rest;
        return true;
    }

    std::vector<std::string> fShown; // as they stand in the text
    std::set<std::string> fNamed;
    std::map<size_t, std::string> fKinds; // of the arguments of formats, by their number from 1 on
    size_t fArguments = 0;
    size_t fBraces = 0;
    bool fHasPlainPercent = false;
};

} // namespace

std::string ComparePlaceholders(std::string_view inOriginal, std::string_view inTranslation)
{
    const Placeholders original(inOriginal);
    const Placeholders translation(inTranslation);
    if (translation.SameAs(original) || (original.HasPlainPercent() && translation.HasAllOf(original)))
        return {};
    std::string fault = fmt::format("has {} where the original has {}", translation.Text(), original.ShortText());
    if (translation.OnlyInOtherOrder(original))
        fault += "; in another order they need numbers, such as %2$s";
    return fault;
}

} // namespace nqres
