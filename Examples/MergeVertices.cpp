// Makes an indexed mesh of loose triangles: equal corners become one vertex, and unused faces are marked.
//
// Each container does what it is for: plain values in an array, objects in a class array, pointers to either in a
// pointer array, a map from corner to vertex, a bit for each face, and steps for undo whose addresses have to stay.

#include "NqCore/PublicAPI/BitArray.h"
#include "NqCore/PublicAPI/NqClassArray.h"
#include "NqCore/PublicAPI/NqExtensibleArray.h"
#include "NqCore/PublicAPI/NqHash.h"
#include "NqCore/PublicAPI/NqPtrArray.h"
#include "NqCore/PublicAPI/NqString.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>

namespace
{

struct TVertex
{
    int32 x, y, z;

    bool operator==(const TVertex& inOther) const { return x == inOther.x && y == inOther.y && z == inOther.z; }
};

// Two faces of a square, and one without area.
constexpr TVertex kCorners[] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 0, 0}, {1, 1, 0},
                                {0, 1, 0}, {1, 1, 0}, {1, 1, 0}, {1, 1, 0}};

struct TUndoStep
{
    uint32 fVertexCount;
};

} // namespace

int main()
{
    const TNqHost host;
    TNqArray<TVertex> vertices;
    TNqArray<uint32> indices;
    TNqHashMap<TVertex, uint32> seen(64);
    TNqExtensibleArray<TUndoStep> undo(8, 2, true); // at most 256 steps, four at a time
    undo.SetElemCount(1);
    TUndoStep* const start = &undo[0]; // stays good while the array grows
    for (const TVertex& corner : kCorners)
    {
        boolean alreadyThere;
        const uint32 entry = seen.AddElem(corner, vertices.GetElemCount(), alreadyThere, true);
        if (entry == kNqHashNotFound || (!alreadyThere && !vertices.AddElem(corner)) || !indices.AddElem(entry))
            return 1;
        undo.SetElemCount(undo.GetElemCount() + 1);
        undo[undo.GetElemCount() - 1].fVertexCount = vertices.GetElemCount();
    }
    std::printf("%u corners, %u vertices\n", indices.GetElemCount(), vertices.GetElemCount());
    std::printf("step 1 of %d had %u, step 0 %u\n", undo.GetElemCount() - 1, undo[1].fVertexCount, start->fVertexCount);

    TBitArray flat;
    if (!flat.SetSize(indices.GetElemCount() / 3, false))
        return 1;
    for (uint32 face = 0; face < flat.GetSize(); ++face)
    {
        const uint32* const corner = indices.BaseAddress() + face * 3;
        if (corner[0] == corner[1] || corner[1] == corner[2] || corner[2] == corner[0])
            flat.SetBit(face);
    }
    TNqArray<int32> flatFaces;
    flat.GetIndicesSet(flatFaces);
    std::printf("%u face without area, the first is %d\n", flatFaces.GetElemCount(), flatFaces[0]);

    TNqClassArray<TNqString63> names;
    for (const char* name : {"left", "right", "flat"})
    {
        if (!names.AddElem(TNqString63(name)))
            return 1;
    }
    TNqPtrArray<TNqString63> selection; // owns nothing; the names must not move while it is used
    for (uint32 face = 0; face < names.GetElemCount(); ++face)
    {
        if (!flat.TestBit(face))
            selection.AddElem(&names[face]);
    }
    TNqConstPtrIterator<TNqString63> walk(selection, 0);
    for (const TNqString63* name = walk.First(); walk.More(); name = walk.Next())
        std::printf("selected: %s\n", name->StrGet());
    return 0;
}
