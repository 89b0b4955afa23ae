#pragma once

#include <string>
#include <string_view>

/// The text of one element, without the blanks that only lay out the document, as a tree that
/// libxml2 makes with XML_PARSE_NOBLANKS has it: a run of blanks in front of markup is no text, unless
/// text stands right in front of the run or at the beginning of the element. In front of the end of
/// the element it also is text if there is nothing else.
class ElementText {
public:
    /// Begins an element.
    void clear();

    /// Adds a piece as the parser gives it. What a CDATA section holds is text, blank or not.
    void add(std::string_view sPiece, bool bSection);

    /// A comment, a processing instruction or a child element stands here.
    void addMarkup();

    /// Ends the element.
    ///
    /// @return its text, empty if it has none. Good until clear().
    const std::string& finish();

    /// Bytes of text so far.
    [[nodiscard]] std::size_t size() const { return m_sText.size() + m_sBlanks.size(); }

private:
    enum class Before { TEXT, MARKUP, END };

    void settle(Before before);
    void append(std::string_view sPiece);

    std::string m_sText;
    std::string m_sBlanks;  ///< a run of which we don't know yet what it stands in front of
    bool m_bEmpty = true;   ///< neither text nor markup so far
    bool m_bFirstIsText = false;
    bool m_bLastIsText = false;
};
