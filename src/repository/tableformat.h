#pragma once

#include <zlib.h>

#include <array>
#include <cstddef>
#include <cstdint>

// How the compiled form of a primary file lies on the disk, see primarytable.h.
namespace tableformat {

inline constexpr std::array<char, 8> k_vMagic = {'u', 'p', 'd', 't', 'a', 'b', 'l', 'e'};
inline constexpr std::uint32_t k_uVersion = 1;
inline constexpr std::uint32_t k_uByteOrder = 0x01020304;

struct Head {
    std::array<char, 8> magic = k_vMagic;
    std::uint32_t version = k_uVersion;
    std::uint32_t byteOrder = k_uByteOrder;
    std::uint32_t crc = 0;          ///< of all that follows
    std::uint32_t texts = 0;        ///< texts, but for the empty one, which has number 0
    std::array<char, 64> sum = {};  ///< tells the primary file
    std::uint64_t textBytes = 0;
    std::uint64_t dependencies = 0;  ///< entries
    std::uint64_t lists = 0;         ///< entries
    std::uint64_t rows = 0;          ///< entries
    std::uint64_t fileBytes = 0;
    std::uint64_t skippedBytes = 0;
    std::uint64_t architectureBytes = 0;  ///< '+' or '-' in front of each
};

/// Where the part begins that the sum is of.
inline constexpr std::size_t k_uChecked = offsetof(Head, texts);

/// As in the arrays, with numbers of texts.
struct StoredDependency {
    std::uint32_t name, version, release;
    std::int32_t epoch, flags;
};
struct StoredRow {
    std::uint32_t name, group, version, release;
    std::int32_t epoch;
    std::uint32_t lists, requireCount, provideCount, obsoleteCount, file;
};
static_assert(sizeof(Head) == 144 && sizeof(StoredDependency) == 20 && sizeof(StoredRow) == 40);

inline std::uint32_t crcOf(std::uint32_t uCrc, const char* pData, std::size_t uLength)
{
    return static_cast<std::uint32_t>(
        crc32_z(uCrc, reinterpret_cast<const unsigned char*>(pData), uLength));
}

/// The length of a file with this head.
inline std::uint64_t sizeOf(const Head& head)
{
    return sizeof(Head) + head.textBytes + head.dependencies * sizeof(StoredDependency) +
           head.lists * sizeof(std::uint32_t) + head.rows * sizeof(StoredRow) + head.fileBytes +
           head.skippedBytes + head.architectureBytes;
}

}  // namespace tableformat
