// What stands in for ModelImport.cpp and ModelExport.cpp where assimp was not there at configure time.

#include "Tools/nqtoken/ModelExport.h"
#include "Tools/nqtoken/ModelImport.h"

namespace nqtoken
{

Outcome ImportModel(const std::string&, Scene&, std::vector<std::string>&)
{
    return Trouble("this nqtoken was built without assimp and reads no models; \"show\" and \"check\" work");
}

Outcome ImportModel(ModelFiles&, const std::string& inPath, Scene& outScene, std::vector<std::string>& outNotes)
{
    return ImportModel(inPath, outScene, outNotes);
}

Outcome ExportModel(const Scene&, const std::string&, std::vector<std::string>&)
{
    return Trouble("this nqtoken was built without assimp and writes no models; \"show\" and \"check\" work");
}

Outcome PlaceModel(const Scene& inScene, const Writing&, ModelFiles&, const std::string& inPath,
                   std::vector<std::string>& outNotes)
{
    return ExportModel(inScene, inPath, outNotes);
}

bool CanImport(const TNqFileType&)
{
    return false;
}

bool CanExport(const TNqFileType&)
{
    return false;
}

} // namespace nqtoken
