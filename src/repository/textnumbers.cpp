#include "repository/textnumbers.h"

#include <bit>

TextNumbers::TextNumbers(const PackageTable& table)
{
    for (const Dependency& entry : table.dependencies) {
        mark(entry.name);
        mark(entry.evr.version);
        mark(entry.evr.release);
    }
    for (const PackageTable::Row& row : table.rows) {
        mark(row.name);
        mark(row.group);
        mark(row.evr.version);
        mark(row.evr.release);
    }
    for (const std::uint64_t uMarks : m_vMarks) {
        m_vBefore.push_back(m_uCount);
        m_uCount += static_cast<std::uint32_t>(std::popcount(uMarks));
    }
    visit([&](Text sText) { m_uBytes += sText.view().size() + 1; });
}

void TextNumbers::mark(Text sText)
{
    if (sText.empty()) {
        return;
    }
    const std::size_t uWord = sText.id() / 64;
    if (uWord >= m_vMarks.size()) {
        m_vMarks.resize(uWord + 1);
    }
    m_vMarks[uWord] |= std::uint64_t{1} << sText.id() % 64;
}

std::uint32_t TextNumbers::of(Text sText) const
{
    if (sText.empty()) {
        return 0;
    }
    const std::size_t uWord = sText.id() / 64;
    const std::uint64_t uBit = std::uint64_t{1} << sText.id() % 64;
    return m_vBefore[uWord] + 1 +
           static_cast<std::uint32_t>(std::popcount(m_vMarks[uWord] & (uBit - 1)));
}
