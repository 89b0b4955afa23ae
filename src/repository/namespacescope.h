#pragma once

#include <libxml/xmlstring.h>

#include <cstddef>
#include <vector>

/// The namespace declarations in scope at a place of a document that is read as a stream of events.
/// A declaration is told by a number that is good as long as the element that makes it is open: two
/// elements with the same number are bound to the very same declaration, not just to the same URI.
///
/// Holds the pointers that it is given; they must stay good while their element is open.
class NamespaceScope {
public:
    static constexpr int k_iNone = -1;

    /// Enters an element.
    ///
    /// @param pPrefix         of the element; null for none.
    /// @param bBound          the element is in a namespace.
    /// @param ppDeclarations  `iDeclarations` pairs of prefix (null for the default) and URI.
    void enter(const xmlChar* pPrefix, bool bBound, int iDeclarations,
               const xmlChar** ppDeclarations);

    /// Leaves the innermost element.
    void leave();

    /// The declaration that the innermost element is bound to, or k_iNone.
    [[nodiscard]] int bound() const { return m_vElements.back().bound; }

    /// The declaration of a URI that libxml2's xmlSearchNsByHref() finds from the innermost
    /// element: going outward, the first one that an element makes, then the one that it is bound
    /// to, unless a nearer element declares the same prefix anew. Or k_iNone.
    [[nodiscard]] int find(const xmlChar* pUri) const;

private:
    struct Declaration {
        const xmlChar* prefix;
        const xmlChar* uri;
    };
    struct Element {
        std::size_t first;  ///< its first declaration
        int bound;
    };

    [[nodiscard]] int innermost(const xmlChar* pPrefix) const;
    [[nodiscard]] bool serves(std::size_t uDeclaration, const xmlChar* pUri) const;

    std::vector<Declaration> m_vDeclarations;
    std::vector<Element> m_vElements;
};
