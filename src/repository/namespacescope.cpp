#include "repository/namespacescope.h"

void NamespaceScope::enter(const xmlChar* pPrefix, bool bBound, int iDeclarations,
                           const xmlChar** ppDeclarations)
{
    m_vElements.push_back({m_vDeclarations.size(), k_iNone});
    for (int i = 0; i < iDeclarations; ++i, ppDeclarations += 2) {
        m_vDeclarations.push_back({ppDeclarations[0], ppDeclarations[1]});
    }
    if (bBound) {
        m_vElements.back().bound = innermost(pPrefix);
    }
}

void NamespaceScope::leave()
{
    m_vDeclarations.resize(m_vElements.back().first);
    m_vElements.pop_back();
}

int NamespaceScope::innermost(const xmlChar* pPrefix) const
{
    for (std::size_t u = m_vDeclarations.size(); u-- > 0;) {
        if (xmlStrEqual(m_vDeclarations[u].prefix, pPrefix) != 0) {
            return static_cast<int>(u);
        }
    }
    return k_iNone;
}

bool NamespaceScope::serves(std::size_t uDeclaration, const xmlChar* pUri) const
{
    const Declaration& declaration = m_vDeclarations[uDeclaration];
    return xmlStrEqual(declaration.uri, pUri) != 0 &&
           innermost(declaration.prefix) == static_cast<int>(uDeclaration);
}

int NamespaceScope::find(const xmlChar* pUri) const
{
    std::size_t uEnd = m_vDeclarations.size();
    for (std::size_t uElement = m_vElements.size(); uElement-- > 0;) {
        for (std::size_t u = m_vElements[uElement].first; u < uEnd; ++u) {
            if (serves(u, pUri)) {
                return static_cast<int>(u);
            }
        }
        const int iBound = m_vElements[uElement].bound;
        if (uElement + 1 != m_vElements.size() && iBound != k_iNone &&
            serves(static_cast<std::size_t>(iBound), pUri)) {
            return iBound;
        }
        uEnd = m_vElements[uElement].first;
    }
    return k_iNone;
}
