#pragma once

#include "packages/package.h"
#include "repository/elementtext.h"
#include "repository/namespacescope.h"
#include "repository/starttag.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Turns the events of a primary file into packages, one element at a time and without a tree: the
/// file is the largest input of the program, and this takes three fifths of the time.
///
/// A child counts only if it is bound to the very namespace declaration of its parent; the children
/// of `format` to the one that is in scope there for the rpm namespace.
class PrimaryHandler {
public:
    /// @param packages  receives the packages; must outlive the handler.
    PrimaryHandler(std::string sPackagesDir, PackageSet& packages)
        : m_sPackagesDir(std::move(sPackagesDir)), m_packages(packages)
    {
    }

    // The events. False means that the file has failed: give no more of them.
    [[nodiscard]] bool startElement(const StartTag& tag);
    [[nodiscard]] bool endElement();
    [[nodiscard]] bool text(std::string_view sText, ElementText::Origin origin);
    void markup();  ///< a comment or a processing instruction

private:
    /// What an open element is to us. The contents of IGNORED are passed over.
    enum class Kind {
        OUTSIDE,
        IGNORED,
        PACKAGE,
        NAME,
        ARCH,
        VERSION,
        LOCATION,
        CHECKSUM,
        FORMAT,
        GROUP,
        PROVIDES,
        REQUIRES,
        OBSOLETES,
        ENTRY
    };

    /// One `package` element under way.
    struct Draft {
        Package package;
        std::string arch;
        std::vector<Dependency> provides;  ///< of all lists, in the order of the file
        std::vector<Dependency> requires_;
        std::vector<Dependency> obsoletes;
        bool hasName = false;
        bool hasArch = false;
        bool hasVersion = false;
        bool hasLocation = false;
        bool hasChecksum = false;
        bool hasGroup = false;
    };

    [[nodiscard]] bool takesText() const;
    std::optional<Kind> startTopLevel(const StartTag& tag) const;
    Kind startPackage(const StartTag& tag);
    std::optional<Kind> startPackageChild(const StartTag& tag);
    std::optional<Kind> startFormatChild(const StartTag& tag);
    std::optional<Kind> startEntry(const StartTag& tag);
    [[nodiscard]] bool endText(Kind kind);
    [[nodiscard]] bool endPackage();

    std::string m_sPackagesDir;
    PackageSet& m_packages;
    NamespaceScope m_scope;
    std::vector<Kind> m_vKinds;        ///< of the open elements
    std::vector<int> m_vDeclarations;  ///< for each, the declaration that its children must have
    ElementText m_text;                ///< of the innermost element that has text
    Draft m_draft;
};
