#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// A SHA-1 digest: 20 bytes, most significant first.
using Sha1Digest = std::array<unsigned char, 20>;

/// The running state of a SHA-1 digest (FIPS 180-1). Good for messages below 2^64 bits.
struct Sha1Context {
    std::array<std::uint32_t, 5> state;
    std::array<std::uint32_t, 2> count;    ///< message bits so far, low word first
    std::array<unsigned char, 64> buffer;  ///< the part of a block that is not processed yet
};

/// Begins a message.
void sha1Init(Sha1Context& context);

/// Adds `uLength` bytes to the message. Full blocks are processed straight from `pData`.
void sha1Update(Sha1Context& context, const unsigned char* pData, std::size_t uLength);

/// Ends the message; the context needs sha1Init() before further use.
[[nodiscard]] Sha1Digest sha1Final(Sha1Context& context);

/// The compression function on one block of 64 bytes.
void sha1Transform(std::array<std::uint32_t, 5>& vState, const unsigned char* pBlock);
