#pragma once

#include "packages/packageset.h"

#include <bit>
#include <cstdint>
#include <vector>

/// Gives the texts that a table refers to numbers from 1 on, in no order that means anything; 0 is
/// the empty text. Takes two bits for each four bytes that the texts of the process take.
class TextNumbers {
public:
    explicit TextNumbers(const PackageTable& table);

    /// @param sText  one of the table.
    [[nodiscard]] std::uint32_t of(Text sText) const;

    [[nodiscard]] std::uint32_t count() const { return m_uCount; }
    [[nodiscard]] std::uint64_t bytes() const { return m_uBytes; }  ///< with a null byte for each

    /// Calls for each text, in the order of the numbers.
    template <typename Visit>
    void visit(Visit call) const
    {
        for (std::uint32_t uWord = 0; uWord < m_vMarks.size(); ++uWord) {
            for (std::uint64_t uLeft = m_vMarks[uWord]; uLeft != 0; uLeft &= uLeft - 1) {
                call(
                    Text::fromId(64 * uWord + static_cast<std::uint32_t>(std::countr_zero(uLeft))));
            }
        }
    }

private:
    void mark(Text sText);

    std::vector<std::uint64_t> m_vMarks;   ///< a bit for each id
    std::vector<std::uint32_t> m_vBefore;  ///< for each word, the bits in front of it
    std::uint32_t m_uCount = 0;
    std::uint64_t m_uBytes = 0;
};
