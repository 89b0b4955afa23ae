#include "packages/text.h"

#include <sys/random.h>

#include <array>
#include <bit>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr std::size_t k_uUnit = 4;
constexpr std::uint32_t k_uChunkShift = 16;
constexpr std::uint32_t k_uChunkUnits = 1U << k_uChunkShift;
constexpr std::uint32_t k_uChunkMask = k_uChunkUnits - 1;

/// SipHash-1-3. Without its key nobody can find strings that share a hash, as anybody can for std::hash.
std::uint64_t hashWith(const std::array<std::uint64_t, 2>& vKey, std::string_view sText)
{
    std::uint64_t a = vKey[0] ^ 0x736f6d6570736575;
    std::uint64_t b = vKey[1] ^ 0x646f72616e646f6d;
    std::uint64_t c = vKey[0] ^ 0x6c7967656e657261;
    std::uint64_t d = vKey[1] ^ 0x7465646279746573;
    const auto mix = [&] {
        a += b;
        c += d;
        b = std::rotl(b, 13) ^ a;
        d = std::rotl(d, 16) ^ c;
        a = std::rotl(a, 32) + d;
        c += b;
        b = std::rotl(b, 17) ^ c;
        d = std::rotl(d, 21) ^ a;
        c = std::rotl(c, 32);
    };
    const auto add = [&](std::uint64_t uWord) {
        d ^= uWord;
        mix();
        a ^= uWord;
    };
    const std::uint64_t uLength = static_cast<std::uint64_t>(sText.size()) << 56U;
    std::uint64_t uWord = 0;
    for (; sText.size() >= sizeof(uWord); sText.remove_prefix(sizeof(uWord))) {
        std::memcpy(&uWord, sText.data(), sizeof(uWord));
        add(uWord);
    }
    uWord = 0;
    sText.copy(reinterpret_cast<char*>(&uWord), sText.size());
    add((std::endian::native == std::endian::big ? uWord >> 8U : uWord) | uLength);
    c ^= 0xff;
    mix();
    mix();
    mix();
    return a ^ b ^ c ^ d;
}

/// The one copy of every string, in chunks that never move, and a hash table with open addressing
/// that finds it again. A string lies at a multiple of 4 bytes: its length (32 bits), its bytes, a
/// null byte. Its id is its place divided by 4, so that 16 GiB could be told apart.
class TextStore {
public:
    static TextStore& instance()
    {
        static TextStore store;
        return store;
    }

    [[nodiscard]] std::string_view at(std::uint32_t uId) const
    {
        const char* pEntry = m_vChunks[uId >> k_uChunkShift].get() + (uId & k_uChunkMask) * k_uUnit;
        std::uint32_t uLength = 0;
        std::memcpy(&uLength, pEntry, sizeof(uLength));
        return {pEntry + sizeof(uLength), uLength};
    }

    [[nodiscard]] std::size_t bytes() const
    {
        return m_uBytes + m_vTable.capacity() * sizeof(Slot);
    }

    /// An odd number.
    [[nodiscard]] std::uint64_t secret() const { return m_vSecret[0] | 1U; }

    [[nodiscard]] std::uint32_t hashOf(std::string_view sText) const
    {
        return static_cast<std::uint32_t>(hashWith(m_vSecret, sText));
    }

    // What finding a string of a hash will look at: its slot, then the string that stands there.
    void fetchSlot(std::uint32_t uHash) const
    {
        __builtin_prefetch(&m_vTable[uHash & (m_vTable.size() - 1)]);
    }
    void fetchText(std::uint32_t uHash) const
    {
        const std::uint32_t uId = m_vTable[uHash & (m_vTable.size() - 1)].id;
        __builtin_prefetch(m_vChunks[uId >> k_uChunkShift].get() + (uId & k_uChunkMask) * k_uUnit);
    }

    std::uint32_t find(std::string_view sText, std::uint32_t uHash)
    {
        if (sText.empty()) {
            return 0;
        }
        if (m_uCount * 4 >= m_vTable.size() * 3) {
            grow();
        }
        Slot& slot = findSlot(sText, uHash);
        if (slot.id == 0) {
            slot = {uHash, store(sText)};
            ++m_uCount;
        }
        return slot.id;
    }

private:
    struct Slot {
        std::uint32_t hash = 0;  ///< spares a look at most strings that differ
        std::uint32_t id = 0;    ///< 0 is a free slot
    };

    TextStore() : m_vTable(1024) { store(""); }

    /// Numbers that nobody outside can know. Early at boot the kernel may have no random bytes
    /// yet, and waiting for them could take minutes: then clock and address layout must do.
    static std::array<std::uint64_t, 2> newSecret()
    {
        std::array<std::uint64_t, 2> vSecret = {};
        if (getrandom(vSecret.data(), sizeof(vSecret), GRND_NONBLOCK) != sizeof(vSecret)) {
            const auto sinceBoot = std::chrono::steady_clock::now().time_since_epoch();
            vSecret = {static_cast<std::uint64_t>(sinceBoot.count()),
                       reinterpret_cast<std::uintptr_t>(&vSecret) ^ 0x9e3779b97f4a7c15};
        }
        return vSecret;
    }

    /// The slot of a string, or the free one where it belongs.
    Slot& findSlot(std::string_view sText, std::uint32_t uHash)
    {
        const std::size_t uMask = m_vTable.size() - 1;
        std::size_t u = uHash & uMask;
        while (m_vTable[u].id != 0 && (m_vTable[u].hash != uHash || at(m_vTable[u].id) != sText)) {
            u = (u + 1) & uMask;
        }
        return m_vTable[u];
    }

    void grow()
    {
        std::vector<Slot> vOld(m_vTable.size() * 2);
        vOld.swap(m_vTable);
        const std::size_t uMask = m_vTable.size() - 1;
        for (const Slot& slot : vOld) {
            std::size_t u = slot.hash & uMask;
            while (m_vTable[u].id != 0) {
                u = (u + 1) & uMask;
            }
            if (slot.id != 0) {
                m_vTable[u] = slot;
            }
        }
    }

    std::uint32_t store(std::string_view sText)
    {
        const auto uLength = static_cast<std::uint32_t>(sText.size());
        const std::size_t uBytes = sizeof(uLength) + sText.size() + 1;
        const std::size_t uUnits = (uBytes + k_uUnit - 1) / k_uUnit;
        if (m_vChunks.empty() || m_uUsed + uUnits > k_uChunkUnits) {
            addChunk(uUnits);
        }
        const auto uPlace = static_cast<std::uint32_t>(m_uUsed);
        char* pEntry = m_vChunks[m_uCurrent].get() + m_uUsed * k_uUnit;
        std::memcpy(pEntry, &uLength, sizeof(uLength));
        std::memcpy(pEntry + sizeof(uLength), sText.data(), sText.size());
        pEntry[uBytes - 1] = '\0';
        m_uUsed += uUnits;
        return (static_cast<std::uint32_t>(m_uCurrent) << k_uChunkShift) + uPlace;
    }

    /// A string longer than a chunk gets a chunk of its own size.
    void addChunk(std::size_t uUnits)
    {
        if (m_vChunks.size() > (UINT32_MAX >> k_uChunkShift)) {
            std::abort();  // 16 GiB of names
        }
        const std::size_t uSize = uUnits > k_uChunkUnits ? uUnits : k_uChunkUnits;
        m_vChunks.push_back(std::make_unique_for_overwrite<char[]>(uSize * k_uUnit));
        m_uBytes += uSize * k_uUnit;
        m_uCurrent = m_vChunks.size() - 1;
        m_uUsed = 0;
    }

    std::vector<std::unique_ptr<char[]>> m_vChunks;
    std::vector<Slot> m_vTable;  ///< with open addressing; the size is a power of two
    /// Of this process: whoever chooses the names cannot make them crowd one part of the table.
    std::array<std::uint64_t, 2> m_vSecret = newSecret();
    std::size_t m_uBytes = 0;    ///< of all chunks
    std::size_t m_uCurrent = 0;  ///< the chunk that is being filled
    std::size_t m_uUsed = 0;     ///< units used in it
    std::size_t m_uCount = 0;    ///< strings in the table
};

}  // namespace

std::uint64_t textSecret()
{
    return TextStore::instance().secret();
}

std::size_t textBytes()
{
    return TextStore::instance().bytes();
}

Text::Text(std::string_view sText)
{
    TextStore& store = TextStore::instance();
    m_uId = store.find(sText, store.hashOf(sText));
}

std::uint32_t TextBatch::add(std::string_view sText)
{
    const TextStore& store = TextStore::instance();
    const std::uint32_t uHash = store.hashOf(sText);
    store.fetchSlot(uHash);
    m_vItems.push_back({static_cast<std::uint32_t>(m_sBytes.size()),
                        static_cast<std::uint32_t>(sText.size()), uHash});
    m_sBytes += sText;
    return static_cast<std::uint32_t>(m_vItems.size() - 1);
}

void TextBatch::find(std::vector<Text>& vTexts)
{
    TextStore& store = TextStore::instance();
    for (const Item& item : m_vItems) {
        store.fetchText(item.hash);
    }
    vTexts.clear();
    for (const Item& item : m_vItems) {
        const std::string_view sText(m_sBytes.data() + item.begin, item.length);
        vTexts.push_back(Text::fromId(store.find(sText, item.hash)));
    }
    clear();
}

void TextBatch::clear()
{
    m_sBytes.clear();
    m_vItems.clear();
}

std::string_view Text::view() const
{
    return TextStore::instance().at(m_uId);
}

std::strong_ordering operator<=>(Text a, Text b)
{
    return a.m_uId == b.m_uId ? std::strong_ordering::equal : a.view() <=> b.view();
}
