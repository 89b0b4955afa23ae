// A primary file, plain or compressed, and its way through the compiled form.

#include "contents.h"

#include "repository/location.h"
#include "support/controls.h"

void fuzz(std::string_view sInput)
{
    PrimaryContents contents;
    const bool bRead = parsePrimary(fileOf(sInput), contents);
    require(!hasControlCharacter(allTexts(contents).clean),
            "no control character gets into a package");
    for (const Package& package : contents.packages) {
        require(hasUsableFileName(package.location()), "file names are usable");
        const auto [uFirst, uEnd] = contents.packages.range(package.name());
        require(uFirst <= package.place() && package.place() < uEnd, "packages are found by name");
    }
    if (bRead) {
        requireCompiled(contents);
    }
}
