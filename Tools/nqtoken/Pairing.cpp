#include "Tools/nqtoken/Pairing.h"

#include <algorithm>
#include <map>
#include <utility>

namespace nqtoken
{

Pairing::Pairing(const std::vector<std::string>& inA, const std::vector<std::string>& inB, const LookAlike& inLookAlike)
    : fToB(inA.size(), kNone),
      fToA(inB.size(), kNone)
{
    std::map<std::string, std::pair<Indices, Indices>> byName;
    for (size_t i = 0; i < inA.size(); ++i)
        byName[inA[i]].first.push_back(i);
    for (size_t i = 0; i < inB.size(); ++i)
        byName[inB[i]].second.push_back(i);
    for (const auto& [name, indices] : byName)
        PairWithinName(indices.first, indices.second, inLookAlike);
    PairRenamed();
}

bool Pairing::InOrder() const
{
    int32 last = kNone;
    return std::all_of(fToB.begin(), fToB.end(), [&last](int32 b) { return b == kNone || std::exchange(last, b) < b; });
}

bool Pairing::SameReference(int32 inA, int32 inB) const
{
    return inA < 0 || inB < 0 ? inA == inB : fToB[static_cast<size_t>(inA)] == inB;
}

void Pairing::Pair(size_t inA, size_t inB)
{
    fToB[inA] = static_cast<int32>(inB);
    fToA[inB] = static_cast<int32>(inA);
}

// In order. Of the longer list those are left over behind which stands one that looks more like the partner.
void Pairing::PairWithinName(const Indices& inA, const Indices& inB, const LookAlike& inLookAlike)
{
    constexpr size_t kFarthest = 100;
    const bool aIsShorter = inA.size() < inB.size();
    const Indices& shorter = aIsShorter ? inA : inB;
    const Indices& longer = aIsShorter ? inB : inA;
    size_t spare = longer.size() - shorter.size();
    size_t at = 0;
    for (const size_t element : shorter)
    {
        const auto isAlike = [&](size_t other)
        { return aIsShorter ? inLookAlike(element, other) : inLookAlike(other, element); };
        const size_t most = std::min(spare, kFarthest);
        size_t skipped = 0;
        while (skipped <= most && spare > 0 && !isAlike(longer[at + skipped]))
            ++skipped;
        if (skipped > most)
            skipped = 0; // it has changed
        spare -= skipped;
        at += skipped;
        aIsShorter ? Pair(element, longer[at]) : Pair(longer[at], element);
        ++at;
    }
}

// Those without a partner that stand equally far behind partners.
void Pairing::PairRenamed()
{
    using Place = std::pair<int32, size_t>; // the index in the second list of what has a partner, and how far behind
    std::map<Place, size_t> left;
    Place place(kNone, 0);
    for (size_t a = 0; a < fToB.size(); ++a)
    {
        if (fToB[a] != kNone)
            place = Place(fToB[a], 0);
        else
            left[Place(place.first, place.second++)] = a;
    }
    place = Place(kNone, 0);
    for (size_t b = 0; b < fToA.size(); ++b)
    {
        if (fToA[b] != kNone)
        {
            place = Place(static_cast<int32>(b), 0);
            continue;
        }
        const auto found = left.find(Place(place.first, place.second++));
        if (found != left.end())
            Pair(found->second, b);
    }
}

} // namespace nqtoken
