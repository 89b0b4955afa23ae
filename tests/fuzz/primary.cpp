// A primary file, plain or compressed, and its way through the compiled form.

#include "contents.h"

#include "repository/location.h"
#include "repository/primarytable.h"

void fuzz(std::string_view sInput)
{
    PrimaryContents contents;
    const bool bRead = parsePrimary(fileOf(sInput), contents);
    std::string sTexts = allTexts(contents);
    std::replace(sTexts.begin(), sTexts.end(), '\0', ' ');
    require(!hasControlCharacter(sTexts), "no control character gets into a package");
    for (const Package& package : contents.packages) {
        const std::string_view sLocation = package.location();
        require(hasUsableFileName(sLocation), "file names are usable");
        const auto [uFirst, uEnd] = contents.packages.range(package.name());
        require(uFirst <= package.place() && package.place() < uEnd, "packages are found by name");
    }
    if (bRead) {
        static const std::string s_sPath = directory() + "/table";
        require(writePrimaryTable(s_sPath, "5", contents), "contents can be compiled");
        PrimaryContents again;
        require(readPrimaryTable(s_sPath, "5", again), "a compiled form can be read");
        requireSame(contents, again);
    }
}
