#include "support/sha1instructions.h"

#if defined(__x86_64__)

#include <cpuid.h>
#include <immintrin.h>

namespace {

/// Whether the processor has all that the functions below are compiled for.
bool hasInstructions()
{
    constexpr unsigned k_uSsse3 = 1U << 9U;
    constexpr unsigned k_uSse41 = 1U << 19U;
    constexpr unsigned k_uSha = 1U << 29U;
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    return __get_cpuid(1, &a, &b, &c, &d) != 0 && (c & k_uSsse3) != 0 && (c & k_uSse41) != 0 &&
           __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & k_uSha) != 0;
}

/// Four of the 80 steps, of the quarter `k_iQuarter` (0 to 3). `abcd` has a in its highest word; `e`
/// is what a was four steps ago, in its highest word and not rotated yet. `w`: the words of the
/// message schedule, the first one highest.
template <int k_iQuarter>
[[gnu::target("sse4.1,sha")]] inline void fourSteps(__m128i& abcd, __m128i& e, __m128i w)
{
    const __m128i before = abcd;
    abcd = _mm_sha1rnds4_epu32(abcd, _mm_sha1nexte_epu32(e, w), k_iQuarter);
    e = before;
}

/// The next four words of the message schedule behind the sixteen w0 to w3; they replace w0.
[[gnu::target("sse4.1,sha")]] inline __m128i schedule(__m128i& w0, __m128i w1, __m128i w2,
                                                      __m128i w3)
{
    w0 = _mm_sha1msg2_epu32(_mm_xor_si128(_mm_sha1msg1_epu32(w0, w1), w2), w3);
    return w0;
}

/// Four words from their big-endian bytes, the first one highest.
[[gnu::target("sse4.1,sha")]] inline __m128i words(const unsigned char* pBytes)
{
    const __m128i reversed = _mm_set_epi64x(0x0001020304050607, 0x08090a0b0c0d0e0f);
    return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pBytes)), reversed);
}

[[gnu::target("sse4.1,sha")]] void transform(std::array<std::uint32_t, 5>& vState,
                                             const unsigned char* pBlock)
{
    const __m128i abcdBefore =
        _mm_set_epi32(static_cast<int>(vState[0]), static_cast<int>(vState[1]),
                      static_cast<int>(vState[2]), static_cast<int>(vState[3]));
    const __m128i eBefore = _mm_set_epi32(static_cast<int>(vState[4]), 0, 0, 0);

    __m128i w0 = words(pBlock);
    __m128i w1 = words(pBlock + 16);
    __m128i w2 = words(pBlock + 32);
    __m128i w3 = words(pBlock + 48);

    __m128i e = abcdBefore;
    __m128i abcd = _mm_sha1rnds4_epu32(abcdBefore, _mm_add_epi32(eBefore, w0), 0);
    fourSteps<0>(abcd, e, w1);
    fourSteps<0>(abcd, e, w2);
    fourSteps<0>(abcd, e, w3);
    fourSteps<0>(abcd, e, schedule(w0, w1, w2, w3));

    fourSteps<1>(abcd, e, schedule(w1, w2, w3, w0));
    fourSteps<1>(abcd, e, schedule(w2, w3, w0, w1));
    fourSteps<1>(abcd, e, schedule(w3, w0, w1, w2));
    fourSteps<1>(abcd, e, schedule(w0, w1, w2, w3));
    fourSteps<1>(abcd, e, schedule(w1, w2, w3, w0));

    fourSteps<2>(abcd, e, schedule(w2, w3, w0, w1));
    fourSteps<2>(abcd, e, schedule(w3, w0, w1, w2));
    fourSteps<2>(abcd, e, schedule(w0, w1, w2, w3));
    fourSteps<2>(abcd, e, schedule(w1, w2, w3, w0));
    fourSteps<2>(abcd, e, schedule(w2, w3, w0, w1));

    fourSteps<3>(abcd, e, schedule(w3, w0, w1, w2));
    fourSteps<3>(abcd, e, schedule(w0, w1, w2, w3));
    fourSteps<3>(abcd, e, schedule(w1, w2, w3, w0));
    fourSteps<3>(abcd, e, schedule(w2, w3, w0, w1));
    fourSteps<3>(abcd, e, schedule(w3, w0, w1, w2));

    abcd = _mm_add_epi32(abcd, abcdBefore);
    e = _mm_sha1nexte_epu32(e, eBefore);
    vState = {static_cast<std::uint32_t>(_mm_extract_epi32(abcd, 3)),
              static_cast<std::uint32_t>(_mm_extract_epi32(abcd, 2)),
              static_cast<std::uint32_t>(_mm_extract_epi32(abcd, 1)),
              static_cast<std::uint32_t>(_mm_extract_epi32(abcd, 0)),
              static_cast<std::uint32_t>(_mm_extract_epi32(e, 3))};
}

}  // namespace

#elif (defined(__AARCH64EL__) || (defined(__ARMEL__) && defined(__ARM_PCS_VFP))) && __ARM_ARCH >= 7

#include <arm_neon.h>
#include <sys/auxv.h>

#if defined(__AARCH64EL__)
#define TARGET [[gnu::target("+crypto")]]
#else
#define TARGET [[gnu::target("arch=armv8-a,fpu=crypto-neon-fp-armv8")]]
#endif

namespace {

/// Whether the processor has all that the functions below are compiled for, as the kernel tells.
bool hasInstructions()
{
#if defined(__AARCH64EL__)
    constexpr unsigned long k_uSha1 = 1U << 5U;
    return (getauxval(AT_HWCAP) & k_uSha1) != 0;
#else
    constexpr unsigned long k_uSha1 = 1U << 2U;
    return (getauxval(AT_HWCAP2) & k_uSha1) != 0;
#endif
}

/// The five words of the state; a is the first of `abcd`.
struct State {
    uint32x4_t abcd;
    std::uint32_t e;
};

/// Four of the 80 steps, of the quarter `k_iQuarter` (0 to 3). `w`: the words of the message schedule.
template <int k_iQuarter>
TARGET inline void fourSteps(State& state, uint32x4_t w)
{
    constexpr std::uint32_t k_vConstants[] = {0x5a827999, 0x6ed9eba1, 0x8f1bbcdc, 0xca62c1d6};
    const uint32x4_t sum = vaddq_u32(w, vdupq_n_u32(k_vConstants[k_iQuarter]));
    const std::uint32_t uNext = vsha1h_u32(vgetq_lane_u32(state.abcd, 0));
    if constexpr (k_iQuarter == 0) {
        state.abcd = vsha1cq_u32(state.abcd, state.e, sum);
    } else if constexpr (k_iQuarter == 2) {
        state.abcd = vsha1mq_u32(state.abcd, state.e, sum);
    } else {
        state.abcd = vsha1pq_u32(state.abcd, state.e, sum);
    }
    state.e = uNext;
}

/// The next four words of the message schedule behind the sixteen w0 to w3; they replace w0.
TARGET inline uint32x4_t schedule(uint32x4_t& w0, uint32x4_t w1, uint32x4_t w2, uint32x4_t w3)
{
    w0 = vsha1su1q_u32(vsha1su0q_u32(w0, w1, w2), w3);
    return w0;
}

/// Four words from their big-endian bytes.
TARGET inline uint32x4_t words(const unsigned char* pBytes)
{
    return vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(pBytes)));
}

TARGET void transform(std::array<std::uint32_t, 5>& vState, const unsigned char* pBlock)
{
    const State before = {vld1q_u32(vState.data()), vState[4]};
    State state = before;
    uint32x4_t w0 = words(pBlock);
    uint32x4_t w1 = words(pBlock + 16);
    uint32x4_t w2 = words(pBlock + 32);
    uint32x4_t w3 = words(pBlock + 48);

    fourSteps<0>(state, w0);
    fourSteps<0>(state, w1);
    fourSteps<0>(state, w2);
    fourSteps<0>(state, w3);
    fourSteps<0>(state, schedule(w0, w1, w2, w3));

    fourSteps<1>(state, schedule(w1, w2, w3, w0));
    fourSteps<1>(state, schedule(w2, w3, w0, w1));
    fourSteps<1>(state, schedule(w3, w0, w1, w2));
    fourSteps<1>(state, schedule(w0, w1, w2, w3));
    fourSteps<1>(state, schedule(w1, w2, w3, w0));

    fourSteps<2>(state, schedule(w2, w3, w0, w1));
    fourSteps<2>(state, schedule(w3, w0, w1, w2));
    fourSteps<2>(state, schedule(w0, w1, w2, w3));
    fourSteps<2>(state, schedule(w1, w2, w3, w0));
    fourSteps<2>(state, schedule(w2, w3, w0, w1));

    fourSteps<3>(state, schedule(w3, w0, w1, w2));
    fourSteps<3>(state, schedule(w0, w1, w2, w3));
    fourSteps<3>(state, schedule(w1, w2, w3, w0));
    fourSteps<3>(state, schedule(w2, w3, w0, w1));
    fourSteps<3>(state, schedule(w3, w0, w1, w2));

    vst1q_u32(vState.data(), vaddq_u32(state.abcd, before.abcd));
    vState[4] = state.e + before.e;
}

}  // namespace

#else

namespace {

bool hasInstructions()
{
    return false;
}

void transform(std::array<std::uint32_t, 5>& /*vState*/, const unsigned char* /*pBlock*/) {}

}  // namespace

#endif

bool sha1TransformByInstructions(std::array<std::uint32_t, 5>& vState, const unsigned char* pBlocks,
                                 std::size_t uCount)
{
    static const bool s_bAvailable = hasInstructions();
    if (!s_bAvailable) {
        return false;
    }
    for (; uCount > 0; --uCount, pBlocks += 64) {
        transform(vState, pBlocks);
    }
    return true;
}
