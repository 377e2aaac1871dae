// The command "import": turns models into scenes.

#pragma once

#include "Tools/nqtoken/Limits.h"
#include "Tools/nqtoken/Outcome.h"
#include "Tools/nqtoken/SceneWriter.h"

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <string>
#include <vector>

namespace nqtoken
{

class Output;

struct ImportOptions
{
    std::vector<std::string> fModels;
    std::string fTarget; // a file, a folder, or empty: beside the models
    Payload fPayload = Payload::kText;
    int32 fJobs = 1; // models to read at a time; 0: one per processor
    Limits fLimits;  // for each model
};

// The name of each scene is printed, unless it was given. The status is the worst of all. To be called before there is
// a host, as reading several models at a time takes processes that are made while there are no threads.
ExitStatus ImportModels(const ImportOptions& inOptions, Output& ioOutput);

} // namespace nqtoken
