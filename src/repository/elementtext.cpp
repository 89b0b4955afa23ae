#include "repository/elementtext.h"

void ElementText::clear()
{
    m_sText.clear();
    m_sBlanks.clear();
    m_bEmpty = true;
    m_bFirstIsText = false;
    m_bLastIsText = false;
}

void ElementText::add(std::string_view sPiece, bool bSection)
{
    settle(bSection ? Before::MARKUP : Before::TEXT);
    if (!bSection && sPiece.find_first_not_of(" \t\r\n") == std::string_view::npos) {
        m_sBlanks = sPiece;
    } else {
        append(sPiece);
    }
}

void ElementText::addMarkup()
{
    settle(Before::MARKUP);
    m_bEmpty = false;
    m_bLastIsText = false;
}

const std::string& ElementText::finish()
{
    settle(Before::END);
    return m_sText;
}

void ElementText::settle(Before before)
{
    if (m_sBlanks.empty()) {
        return;
    }
    if (before == Before::TEXT || m_bFirstIsText || m_bLastIsText ||
        (before == Before::END && m_bEmpty)) {
        append(m_sBlanks);
    }
    m_sBlanks.clear();
}

void ElementText::append(std::string_view sPiece)
{
    m_bFirstIsText = m_bFirstIsText || m_bEmpty;
    m_bEmpty = false;
    m_bLastIsText = true;
    m_sText += sPiece;
}
