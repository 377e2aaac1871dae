// What a model does not hold of the scene that it was written from, or holds otherwise: found by reading the model, not
// by asking who wrote it.

#pragma once

#include "Tools/nqtoken/Placing.h"

namespace nqtoken
{

// What a format cannot but change.
struct Writing
{
    FaceRules fFaces;
    bool fHoldsNodes = false;  // otherwise meshes stand where the nodes place them
    bool fHoldsMeshes = false; // with their names; otherwise there is one
    bool fHoldsMaterials = false;
    std::vector<std::string> fMaterials; // the names that they were given
    std::string fNote;                   // a line of which its reader does not know
};

// A line for each kind of thing, with counts; none when inBack, which was read from the model, holds all of inScene.
// Faces of a kind are compared in their order, place by place.
std::vector<std::string> DescribeLosses(const Scene& inScene, const Scene& inBack, const Writing& inWriting);

} // namespace nqtoken
