#include "Tools/nqtoken/SceneTargets.h"

#include <fmt/format.h>

#include <filesystem>
#include <map>
#include <system_error>

namespace fs = std::filesystem;

namespace nqtoken
{
namespace
{

// The file that a path leads to, whether it exists or not: names in different words become the same.
fs::path FileOf(const std::string& inPath)
{
    std::error_code error;
    const fs::path file = fs::weakly_canonical(inPath, error);
    return error ? fs::path(inPath) : file;
}

std::string SceneName(const fs::path& inModel)
{
    return fs::path(inModel).replace_extension(".nq").filename().string();
}

Outcome RefuseSharedFiles(const std::vector<std::string>& inModels, const std::vector<std::string>& inTargets)
{
    std::map<fs::path, size_t> models;
    for (size_t i = 0; i < inModels.size(); ++i)
        models.emplace(FileOf(inModels[i]), i);
    std::map<fs::path, size_t> targets;
    std::string first;
    size_t count = 0;
    for (size_t i = 0; i < inTargets.size(); ++i)
    {
        const fs::path file = FileOf(inTargets[i]);
        const auto [other, isNew] = targets.emplace(file, i);
        const auto model = models.find(file);
        if (isNew && model == models.end())
            continue;
        if (++count > 1)
            continue;
        first = isNew
                    ? fmt::format("the scene of {} would replace the model {}", inModels[i], inModels[model->second])
                    : fmt::format("{} and {} would both become {}", inModels[other->second], inModels[i], inTargets[i]);
    }
    if (count == 0)
        return {};
    return Trouble(fmt::format("{}{}; nothing was written", first,
                               count == 1 ? "" : fmt::format(", and {} more such", count - 1)));
}

} // namespace

Outcome ChooseTargets(const std::vector<std::string>& inModels, const std::string& inTarget, SceneTargets& outTargets)
{
    std::error_code error;
    const bool isFolder = fs::is_directory(inTarget, error);
    outTargets.fAreNamedAfterModels = isFolder || inTarget.empty();
    if (!isFolder && !inTarget.empty() && inTarget.back() == '/')
        return Trouble(fmt::format("{}: there is no such folder", inTarget));
    if (inModels.size() > 1 && !outTargets.fAreNamedAfterModels)
        return Trouble(fmt::format("{}: {}, and several models need one", inTarget,
                                   fs::exists(inTarget, error) ? "is not a folder" : "there is no such folder"));
    for (const fs::path model : inModels)
    {
        const fs::path folder = inTarget.empty() ? model.parent_path() : fs::path(inTarget);
        outTargets.fPaths.push_back(outTargets.fAreNamedAfterModels ? (folder / SceneName(model)).string() : inTarget);
    }
    return RefuseSharedFiles(inModels, outTargets.fPaths);
}

} // namespace nqtoken
