// Where the scenes of imported models go.

#pragma once

#include "Tools/nqtoken/Outcome.h"

#include <string>
#include <vector>

namespace nqtoken
{

struct SceneTargets
{
    std::vector<std::string> fPaths; // one for each model
    bool fAreNamedAfterModels = false;
};

// The scene of one model goes to inTarget, unless that is a folder. Scenes in a folder, and without inTarget beside
// their models, are named after the models: duck.dae becomes duck.nq. Trouble: several models and no folder for them,
// two models with the same target, or a target that is one of the models.
Outcome ChooseTargets(const std::vector<std::string>& inModels, const std::string& inTarget, SceneTargets& outTargets);

} // namespace nqtoken
