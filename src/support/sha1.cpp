#include "support/sha1.h"

#include "support/sha1instructions.h"

#include <bit>
#include <cstring>

namespace {

using Word = std::uint32_t;

Word bigEndianWord(const unsigned char* pBytes)
{
    Word u = 0;
    std::memcpy(&u, pBytes, sizeof(u));
    return std::endian::native == std::endian::big ? u : __builtin_bswap32(u);
}

Word choose(Word x, Word y, Word z)
{
    return z ^ (x & (y ^ z));
}

Word parity(Word x, Word y, Word z)
{
    return x ^ y ^ z;
}

Word majority(Word x, Word y, Word z)
{
    return (x & y) + (z & (x ^ y));  // the two terms never share a bit
}

/// One of the 80 steps: `w` is the word of the message schedule plus the constant of the step.
inline void step(Word a, Word& b, Word& e, Word f, Word w)
{
    e += std::rotl(a, 5) + f + w;
    b = std::rotl(b, 30);
}

/// The message schedule keeps its last 16 words: word t replaces word t - 16.
inline Word schedule(std::array<Word, 16>& w, std::size_t t)
{
    const Word u = w[(t + 13) & 15] ^ w[(t + 8) & 15] ^ w[(t + 2) & 15] ^ w[t & 15];
    return w[t & 15] = std::rotl(u, 1);
}

}  // namespace

void sha1Transform(std::array<std::uint32_t, 5>& vState, const unsigned char* pBlock)
{
    constexpr Word k_u0 = 0x5a827999;
    constexpr Word k_u20 = 0x6ed9eba1;
    constexpr Word k_u40 = 0x8f1bbcdc;
    constexpr Word k_u60 = 0xca62c1d6;

    std::array<Word, 16> w;
    auto [a, b, c, d, e] = vState;

    w[0] = bigEndianWord(pBlock + 0);
    step(a, b, e, choose(b, c, d), w[0] + k_u0);
    w[1] = bigEndianWord(pBlock + 4);
    step(e, a, d, choose(a, b, c), w[1] + k_u0);
    w[2] = bigEndianWord(pBlock + 8);
    step(d, e, c, choose(e, a, b), w[2] + k_u0);
    w[3] = bigEndianWord(pBlock + 12);
    step(c, d, b, choose(d, e, a), w[3] + k_u0);
    w[4] = bigEndianWord(pBlock + 16);
    step(b, c, a, choose(c, d, e), w[4] + k_u0);
    w[5] = bigEndianWord(pBlock + 20);
    step(a, b, e, choose(b, c, d), w[5] + k_u0);
    w[6] = bigEndianWord(pBlock + 24);
    step(e, a, d, choose(a, b, c), w[6] + k_u0);
    w[7] = bigEndianWord(pBlock + 28);
    step(d, e, c, choose(e, a, b), w[7] + k_u0);
    w[8] = bigEndianWord(pBlock + 32);
    step(c, d, b, choose(d, e, a), w[8] + k_u0);
    w[9] = bigEndianWord(pBlock + 36);
    step(b, c, a, choose(c, d, e), w[9] + k_u0);
    w[10] = bigEndianWord(pBlock + 40);
    step(a, b, e, choose(b, c, d), w[10] + k_u0);
    w[11] = bigEndianWord(pBlock + 44);
    step(e, a, d, choose(a, b, c), w[11] + k_u0);
    w[12] = bigEndianWord(pBlock + 48);
    step(d, e, c, choose(e, a, b), w[12] + k_u0);
    w[13] = bigEndianWord(pBlock + 52);
    step(c, d, b, choose(d, e, a), w[13] + k_u0);
    w[14] = bigEndianWord(pBlock + 56);
    step(b, c, a, choose(c, d, e), w[14] + k_u0);
    w[15] = bigEndianWord(pBlock + 60);
    step(a, b, e, choose(b, c, d), w[15] + k_u0);
    step(e, a, d, choose(a, b, c), schedule(w, 16) + k_u0);
    step(d, e, c, choose(e, a, b), schedule(w, 17) + k_u0);
    step(c, d, b, choose(d, e, a), schedule(w, 18) + k_u0);
    step(b, c, a, choose(c, d, e), schedule(w, 19) + k_u0);

    step(a, b, e, parity(b, c, d), schedule(w, 20) + k_u20);
    step(e, a, d, parity(a, b, c), schedule(w, 21) + k_u20);
    step(d, e, c, parity(e, a, b), schedule(w, 22) + k_u20);
    step(c, d, b, parity(d, e, a), schedule(w, 23) + k_u20);
    step(b, c, a, parity(c, d, e), schedule(w, 24) + k_u20);
    step(a, b, e, parity(b, c, d), schedule(w, 25) + k_u20);
    step(e, a, d, parity(a, b, c), schedule(w, 26) + k_u20);
    step(d, e, c, parity(e, a, b), schedule(w, 27) + k_u20);
    step(c, d, b, parity(d, e, a), schedule(w, 28) + k_u20);
    step(b, c, a, parity(c, d, e), schedule(w, 29) + k_u20);
    step(a, b, e, parity(b, c, d), schedule(w, 30) + k_u20);
    step(e, a, d, parity(a, b, c), schedule(w, 31) + k_u20);
    step(d, e, c, parity(e, a, b), schedule(w, 32) + k_u20);
    step(c, d, b, parity(d, e, a), schedule(w, 33) + k_u20);
    step(b, c, a, parity(c, d, e), schedule(w, 34) + k_u20);
    step(a, b, e, parity(b, c, d), schedule(w, 35) + k_u20);
    step(e, a, d, parity(a, b, c), schedule(w, 36) + k_u20);
    step(d, e, c, parity(e, a, b), schedule(w, 37) + k_u20);
    step(c, d, b, parity(d, e, a), schedule(w, 38) + k_u20);
    step(b, c, a, parity(c, d, e), schedule(w, 39) + k_u20);

    step(a, b, e, majority(b, c, d), schedule(w, 40) + k_u40);
    step(e, a, d, majority(a, b, c), schedule(w, 41) + k_u40);
    step(d, e, c, majority(e, a, b), schedule(w, 42) + k_u40);
    step(c, d, b, majority(d, e, a), schedule(w, 43) + k_u40);
    step(b, c, a, majority(c, d, e), schedule(w, 44) + k_u40);
    step(a, b, e, majority(b, c, d), schedule(w, 45) + k_u40);
    step(e, a, d, majority(a, b, c), schedule(w, 46) + k_u40);
    step(d, e, c, majority(e, a, b), schedule(w, 47) + k_u40);
    step(c, d, b, majority(d, e, a), schedule(w, 48) + k_u40);
    step(b, c, a, majority(c, d, e), schedule(w, 49) + k_u40);
    step(a, b, e, majority(b, c, d), schedule(w, 50) + k_u40);
    step(e, a, d, majority(a, b, c), schedule(w, 51) + k_u40);
    step(d, e, c, majority(e, a, b), schedule(w, 52) + k_u40);
    step(c, d, b, majority(d, e, a), schedule(w, 53) + k_u40);
    step(b, c, a, majority(c, d, e), schedule(w, 54) + k_u40);
    step(a, b, e, majority(b, c, d), schedule(w, 55) + k_u40);
    step(e, a, d, majority(a, b, c), schedule(w, 56) + k_u40);
    step(d, e, c, majority(e, a, b), schedule(w, 57) + k_u40);
    step(c, d, b, majority(d, e, a), schedule(w, 58) + k_u40);
    step(b, c, a, majority(c, d, e), schedule(w, 59) + k_u40);

    step(a, b, e, parity(b, c, d), schedule(w, 60) + k_u60);
    step(e, a, d, parity(a, b, c), schedule(w, 61) + k_u60);
    step(d, e, c, parity(e, a, b), schedule(w, 62) + k_u60);
    step(c, d, b, parity(d, e, a), schedule(w, 63) + k_u60);
    step(b, c, a, parity(c, d, e), schedule(w, 64) + k_u60);
    step(a, b, e, parity(b, c, d), schedule(w, 65) + k_u60);
    step(e, a, d, parity(a, b, c), schedule(w, 66) + k_u60);
    step(d, e, c, parity(e, a, b), schedule(w, 67) + k_u60);
    step(c, d, b, parity(d, e, a), schedule(w, 68) + k_u60);
    step(b, c, a, parity(c, d, e), schedule(w, 69) + k_u60);
    step(a, b, e, parity(b, c, d), schedule(w, 70) + k_u60);
    step(e, a, d, parity(a, b, c), schedule(w, 71) + k_u60);
    step(d, e, c, parity(e, a, b), schedule(w, 72) + k_u60);
    step(c, d, b, parity(d, e, a), schedule(w, 73) + k_u60);
    step(b, c, a, parity(c, d, e), schedule(w, 74) + k_u60);
    step(a, b, e, parity(b, c, d), schedule(w, 75) + k_u60);
    step(e, a, d, parity(a, b, c), schedule(w, 76) + k_u60);
    step(d, e, c, parity(e, a, b), schedule(w, 77) + k_u60);
    step(c, d, b, parity(d, e, a), schedule(w, 78) + k_u60);
    step(b, c, a, parity(c, d, e), schedule(w, 79) + k_u60);

    vState[0] += a;
    vState[1] += b;
    vState[2] += c;
    vState[3] += d;
    vState[4] += e;
}

void sha1Init(Sha1Context& context)
{
    context.state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
    context.count = {0, 0};
}

void sha1Update(Sha1Context& context, const unsigned char* pData, std::size_t uLength)
{
    if (uLength == 0) {
        return;
    }
    const std::size_t uFilled = (context.count[0] >> 3U) & 63U;
    const std::uint64_t uBits = (static_cast<std::uint64_t>(context.count[1]) << 32U) +
                                context.count[0] + (static_cast<std::uint64_t>(uLength) << 3U);
    context.count = {static_cast<Word>(uBits), static_cast<Word>(uBits >> 32U)};

    if (uFilled + uLength < 64) {
        std::memcpy(&context.buffer[uFilled], pData, uLength);
        return;
    }
    if (uFilled > 0) {
        const std::size_t uMissing = 64 - uFilled;
        std::memcpy(&context.buffer[uFilled], pData, uMissing);
        sha1Transform(context.state, context.buffer.data());
        pData += uMissing;
        uLength -= uMissing;
    }
    if (sha1TransformByInstructions(context.state, pData, uLength / 64)) {
        pData += uLength / 64 * 64;
        uLength %= 64;
    }
    for (; uLength >= 64; pData += 64, uLength -= 64) {
        sha1Transform(context.state, pData);
    }
    std::memcpy(context.buffer.data(), pData, uLength);
}

Sha1Digest sha1Final(Sha1Context& context)
{
    static constexpr std::array<unsigned char, 64> k_vPadding = {0x80};
    std::array<unsigned char, 8> vLength;
    for (std::size_t u = 0; u < 8; ++u) {
        vLength[u] = static_cast<unsigned char>(context.count[u < 4 ? 1 : 0] >> (24 - 8 * (u % 4)));
    }
    const std::size_t uFilled = (context.count[0] >> 3U) & 63U;
    sha1Update(context, k_vPadding.data(), (uFilled < 56 ? 56 : 120) - uFilled);
    sha1Update(context, vLength.data(), vLength.size());

    Sha1Digest digest;
    for (std::size_t u = 0; u < digest.size(); ++u) {
        digest[u] = static_cast<unsigned char>(context.state[u / 4] >> (24 - 8 * (u % 4)));
    }
    return digest;
}
