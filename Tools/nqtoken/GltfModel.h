// A scene as assimp's exporter of glTF takes it: with what glTF can hold, in forms that its files may have.

#pragma once

#include "Tools/nqtoken/Scene.h"

#include <memory>

struct aiScene;

namespace nqtoken
{

// Polygons are cut into triangles, vertices without faces become points, texels become PNG files, and numbers that are
// none become 0. What has no vertices is left out. Null when no mesh is left. The materials get inNames.
std::unique_ptr<aiScene> MakeGltfModel(const Scene& inScene, const std::vector<std::string>& inNames);

// A line about embedded textures that are neither PNG nor JPEG; empty when there are none.
std::string DescribeForeignImages(const Scene& inScene);

} // namespace nqtoken
