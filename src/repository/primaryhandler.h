#pragma once

#include "repository/document.h"
#include "repository/primary.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Reads a primary file.
///
/// A child counts only if it is bound to the very namespace declaration of its parent; the children
/// of `format` to the one that is in scope there for the rpm namespace.
class PrimaryHandler : public Document {
public:
    /// @param contents  receives the packages; must outlive the handler.
    explicit PrimaryHandler(PrimaryContents& contents) : m_contents(contents) {}

private:
    /// What an open element is to us. IGNORED ones are passed over.
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

    /// An entry of a list, with numbers of texts in the batch.
    struct Entry {
        std::uint32_t name;
        std::uint32_t version;
        std::uint32_t release;
        std::int32_t epoch;
        std::int32_t flags;
    };

    /// One `package` element under way.
    struct Draft {
        PackageRecord package;  ///< without its lists
        std::string arch;
        bool hasName = false;
        bool hasArch = false;
        bool hasVersion = false;
        bool hasLocation = false;
        bool hasChecksum = false;
        bool hasGroup = false;
    };

    Take startElement(const StartTag& tag, bool bBound) override;
    bool endElement(const std::string& sText) override;
    std::optional<Kind> startTopLevel(const StartTag& tag) const;
    Kind startPackage(const StartTag& tag);
    std::optional<Kind> startBoundChild(const StartTag& tag);
    std::optional<Kind> startPackageChild(const StartTag& tag);
    std::optional<Kind> startFormatChild(const StartTag& tag);
    std::optional<Kind> startEntry(const StartTag& tag);
    [[nodiscard]] bool endText(Kind kind, const std::string& sText);
    [[nodiscard]] bool endPackage();
    [[nodiscard]] bool isForThisMachine();

    PrimaryContents& m_contents;
    void takeLists();

    TextBatch m_texts;  ///< of all entries of the package
    std::vector<Text> m_vTexts;
    std::vector<Entry> m_vProvides;  ///< of all lists, in the order of the file
    std::vector<Entry> m_vRequires;
    std::vector<Entry> m_vObsoletes;
    std::vector<Kind> m_vKinds;  ///< of the open elements
    Draft m_draft;
};
