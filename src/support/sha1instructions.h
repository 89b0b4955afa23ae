#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// sha1Transform() on `uCount` blocks that lie one behind the other, by the SHA instructions that
/// many x86 (in less than half the time) and ARMv8 processors have. False if this processor has none:
/// then nothing was done, and the caller goes the portable way. Both give the same state.
[[nodiscard]] bool sha1TransformByInstructions(std::array<std::uint32_t, 5>& vState,
                                               const unsigned char* pBlocks, std::size_t uCount);
