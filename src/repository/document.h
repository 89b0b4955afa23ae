#pragma once

#include "repository/elementtext.h"
#include "repository/namespacescope.h"
#include "repository/starttag.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// What the reader of a document is to do with an element.
enum class Take {
    FAIL,      ///< refuse the document
    NOTHING,   ///< pass over it, with all that is in it
    CHILDREN,  ///< tell of its children
    TEXT       ///< gather the text that stands directly in it, and pass over its children
};

enum class Outcome { READ, NOT_OPENED, REFUSED };

/// Reads an XML document of a repository, one element at a time and without a tree: it can be the
/// largest input of the program. A derived class says what each element is to it.
///
/// Nothing in a document costs more than its length: plain or gzip-compressed and nothing else, at
/// most 1 GiB open, at most 64 KiB from a "<" to the ">" that ends a tag, no document type
/// declaration, and so no entities of its own. A noted signal ends the reading.
class Document {
public:
    virtual ~Document() = default;

    /// Once for an object. What the document breaks is logged at DEBUG, or printed by libxml2 in at
    /// most 10 lines on standard error.
    [[nodiscard]] Outcome read(const std::string& sPath);

protected:
    Document() = default;
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;

    /// An element begins, below no element that was passed over.
    ///
    /// @param bBound  it is bound to the very namespace declaration that children of its parent must
    ///                have: that of the parent, or what bindChildrenTo() has set.
    virtual Take startElement(const StartTag& tag, bool bBound) = 0;

    /// The innermost element that was not passed over ends.
    ///
    /// @param sText  of one that was to give its text; else empty.
    /// @return       false refuses the document.
    virtual bool endElement(const std::string& sText) = 0;

    /// For startElement(): children of this element must be bound to the declaration of this URI
    /// that is in scope here.
    ///
    /// @return false if there is none.
    bool bindChildrenTo(const char* pUri);

private:
    friend struct ParserEvents;

    bool start(const StartTag& tag);
    bool end();
    bool text(std::string_view sText, bool bSection);
    void markup();

    struct Element {
        bool takesText;
        int childBinding;  ///< the declaration that its children must have
    };

    NamespaceScope m_scope;
    std::vector<Element> m_vElements;  ///< open, and not passed over
    std::size_t m_uPassedOver = 0;     ///< open elements from the outermost one that is passed over
    ElementText m_text;                ///< of the innermost element that gives text
};
