// Which elements of two lists belong together: those of one name, wherever they stand; where one list has more of a
// name, those that look alike; and between such, those of other names at the same place, which were renamed. So an
// element that is missing is missing, and does not shift those behind it.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <functional>
#include <string>
#include <vector>

namespace nqtoken
{

class Pairing
{
public:
    static constexpr int32 kNone = -1;

    using LookAlike = std::function<bool(size_t inA, size_t inB)>;

    // The names of both lists. inLookAlike need not be exact: it tells elements of one name apart.
    Pairing(const std::vector<std::string>& inA, const std::vector<std::string>& inB, const LookAlike& inLookAlike);

    // The index in the other list, or kNone.
    int32 ToB(size_t inA) const { return fToB[inA]; }
    int32 ToA(size_t inB) const { return fToA[inB]; }
    // Whether those that have a partner stand in the same order in both lists.
    bool InOrder() const;
    // Whether an index in the first list and one in the second are the same element; -1 is none.
    bool SameReference(int32 inA, int32 inB) const;

private:
    using Indices = std::vector<size_t>;

    void Pair(size_t inA, size_t inB);
    void PairWithinName(const Indices& inA, const Indices& inB, const LookAlike& inLookAlike);
    void PairRenamed();

    std::vector<int32> fToB;
    std::vector<int32> fToA;
};

} // namespace nqtoken
