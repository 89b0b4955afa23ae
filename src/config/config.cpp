#include "config/config.h"

#include <algorithm>

RepoConfig* findRepository(std::vector<RepoConfig>& vRepositories, const std::string& sId)
{
    const auto it = std::find_if(vRepositories.begin(), vRepositories.end(),
                                 [&](const RepoConfig& repo) { return repo.id == sId; });
    return it == vRepositories.end() ? nullptr : &*it;
}

std::size_t countEnabled(const std::vector<RepoConfig>& vRepositories)
{
    return static_cast<std::size_t>(
        std::count_if(vRepositories.begin(), vRepositories.end(),
                      [](const RepoConfig& repo) { return repo.enabled; }));
}

void setAllEnabled(std::vector<RepoConfig>& vRepositories, bool bEnabled)
{
    for (RepoConfig& repo : vRepositories) {
        repo.enabled = bEnabled;
    }
}
