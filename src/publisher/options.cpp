#include "publisher/options.h"

#include <popt.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

/// Fields as popt fills them.
struct Given {
    char* confFile = nullptr;
    char* defaults = nullptr;
    char** installed = nullptr;
    char** roots = nullptr;
    int baseline = 0;
    int empty = 0;
    int metadataOnly = 0;
    char* previous = nullptr;
    char** keys = nullptr;
    char* format = nullptr;
};

poptOption row(const char* pName, int iKind, void* pField, const char* pHelp,
               const char* pArgument = nullptr)
{
    return {pName, '\0', static_cast<unsigned>(iKind), pField, 0, pHelp, pArgument};
}

std::string taken(char* pText)
{
    const std::unique_ptr<char, decltype(&std::free)> text(pText, std::free);
    return pText != nullptr ? pText : "";
}

/// True if an option was given without a value, such as a variable of a script that is not set.
bool isEmpty(const char* pText)
{
    return pText != nullptr && *pText == '\0';
}

bool anyEmpty(const Given& given)
{
    const std::array<char*, 4> vTexts = {given.confFile, given.defaults, given.previous,
                                         given.format};
    bool bEmpty = std::any_of(vTexts.begin(), vTexts.end(), isEmpty);
    for (char** ppText : {given.installed, given.roots, given.keys}) {
        for (; ppText != nullptr && *ppText != nullptr; ++ppText) {
            bEmpty |= isEmpty(*ppText);
        }
    }
    return bEmpty;
}

std::vector<std::string> taken(char** ppTexts)
{
    std::vector<std::string> vTexts;
    for (char** ppText = ppTexts; ppText != nullptr && *ppText != nullptr; ++ppText) {
        vTexts.push_back(taken(*ppText));
    }
    std::free(ppTexts);
    return vTexts;
}

bool wrong(const std::string& sText)
{
    std::fprintf(stderr, "updater-repocheck: %s\n", sText.c_str());
    return false;
}

bool parse(poptContext context, CheckOptions& options)
{
    const int iEnd = poptGetNextOpt(context);
    if (iEnd < -1) {
        return wrong(std::string(poptBadOption(context, POPT_BADOPTION_NOALIAS)) + ": " +
                     poptStrerror(iEnd));
    }
    const char* pRepository = poptGetArg(context);
    if (pRepository == nullptr) {
        return wrong("give the directory or the URL of a repository");
    }
    options.repository = pRepository;
    const char* pMore = poptGetArg(context);
    return pMore == nullptr || wrong(std::string(pMore) + ": one repository at a time");
}

}  // namespace

bool parseOptions(int argc, char* argv[], CheckOptions& options)
{
    Given given;
    const std::array<poptOption, 12> vTable = {{
        row("conf-file", POPT_ARG_STRING, &given.confFile, "The devices' configuration.", "FILE"),
        row("defaults", POPT_ARG_STRING, &given.defaults, "The devices' defaults file.", "FILE"),
        row("installed", POPT_ARG_ARGV, &given.installed,
            "A device with the packages of this list.", "FILE"),
        row("root", POPT_ARG_ARGV, &given.roots, "The device whose file system this is.", "DIR"),
        row("baseline", POPT_ARG_NONE, &given.baseline,
            "A device that has everything of --previous."),
        row("empty", POPT_ARG_NONE, &given.empty, "A device without any package."),
        row("previous", POPT_ARG_STRING, &given.previous,
            "The repository as it was published last.", "DIRECTORY"),
        row("key", POPT_ARG_ARGV, &given.keys, "A public key that devices have.", "FILE"),
        row("metadata-only", POPT_ARG_NONE, &given.metadataOnly,
            "Look at the metadata only, not at the packages."),
        row("format", POPT_ARG_STRING, &given.format, "The form of the report: text or json.",
            "FORM"),
        {nullptr, '\0', POPT_ARG_INCLUDE_TABLE, poptHelpOptions, 0, "Help options:", nullptr},
        {nullptr, '\0', 0, nullptr, 0, nullptr, nullptr},
    }};
    const std::unique_ptr<poptContext_s, decltype(&poptFreeContext)> context(
        poptGetContext("updater-repocheck", argc, const_cast<const char**>(argv), vTable.data(), 0),
        poptFreeContext);
    poptSetOtherOptionHelp(context.get(), "[OPTION...] DIRECTORY-OR-URL");
    const bool bParsed = parse(context.get(), options) &&
                         (!anyEmpty(given) || wrong("an option has an empty value"));
    options.confFile = taken(given.confFile);
    options.defaults = taken(given.defaults);
    options.installed = taken(given.installed);
    options.roots = taken(given.roots);
    options.baseline = given.baseline != 0;
    options.empty = given.empty != 0;
    options.metadataOnly = given.metadataOnly != 0;
    options.previous = taken(given.previous);
    options.keys = taken(given.keys);
    const std::string sFormat = taken(given.format);
    options.json = sFormat == "json";
    if (!bParsed) {
        return false;
    }
    if (!sFormat.empty() && sFormat != "text" && sFormat != "json") {
        return wrong(sFormat + ": the form is text or json");
    }
    if (options.previous.find("://") != std::string::npos) {
        return wrong(options.previous + ": --previous takes a directory");
    }
    return !options.baseline || !options.previous.empty() || wrong("--baseline needs --previous");
}
