#include "packages/packageset.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace {

std::size_t hashOf(const Dependency& dependency)
{
    std::uint64_t uHash = textSecret();
    const auto mix = [&](std::uint32_t uValue) {
        uHash = (uHash ^ uValue) * 0x9e3779b97f4a7c15;
        uHash ^= uHash >> 32U;
    };
    mix(dependency.name.id());
    mix(dependency.evr.version.id());
    mix(dependency.evr.release.id() ^ static_cast<std::uint32_t>(dependency.evr.epoch) << 16U ^
        static_cast<std::uint32_t>(dependency.flags) << 28U);
    return static_cast<std::size_t>(uHash);
}

bool isSame(const Dependency& a, const Dependency& b)
{
    return a.name == b.name && a.evr.version == b.evr.version && a.evr.release == b.evr.release &&
           a.evr.epoch == b.evr.epoch && a.flags == b.flags;
}

/// The first bytes of a name as numbers that are ordered like them.
using Prefix = std::array<std::uint64_t, 2>;

Prefix prefixOf(std::string_view sName)
{
    std::array<unsigned char, sizeof(Prefix)> vBytes = {};
    std::memcpy(vBytes.data(), sName.data(), std::min(sName.size(), vBytes.size()));
    Prefix vPrefix = {};
    for (std::size_t u = 0; u < vBytes.size(); ++u) {
        vPrefix[u / 8] = vPrefix[u / 8] << 8U | vBytes[u];
    }
    return vPrefix;
}

}  // namespace

void PackageSet::growSlots()
{
    m_vSlots.assign(std::max<std::size_t>(1024, m_vSlots.size() * 2), 0);
    for (std::uint32_t u = 0; u < m_table.dependencies.size(); ++u) {
        std::size_t uSlot = hashOf(m_table.dependencies[u]);
        while (m_vSlots[uSlot &= m_vSlots.size() - 1] != 0) {
            ++uSlot;
        }
        m_vSlots[uSlot] = u + 1;
    }
}

std::uint32_t PackageSet::placeOf(const Dependency& dependency, std::size_t uHash)
{
    if (m_table.dependencies.size() * 4 >= m_vSlots.size() * 3) {
        growSlots();
    }
    std::size_t uSlot = uHash;
    while (m_vSlots[uSlot &= m_vSlots.size() - 1] != 0) {
        const std::uint32_t uPlace = m_vSlots[uSlot] - 1;
        if (isSame(m_table.dependencies[uPlace], dependency)) {
            return uPlace;
        }
        ++uSlot;
    }
    m_table.dependencies.append(dependency);
    m_vSlots[uSlot] = static_cast<std::uint32_t>(m_table.dependencies.size());
    return m_vSlots[uSlot] - 1;
}

void PackageSet::insertList(const std::vector<Dependency>& vEntries, std::uint32_t& uCount)
{
    uCount = static_cast<std::uint32_t>(vEntries.size());
    // All of the list at once, as in a TextBatch: memory is waited for once and not for each entry.
    m_vHashes.clear();
    for (const Dependency& entry : vEntries) {
        m_vHashes.push_back(hashOf(entry));
        if (!m_vSlots.empty()) {
            __builtin_prefetch(&m_vSlots[m_vHashes.back() & (m_vSlots.size() - 1)]);
        }
    }
    for (std::size_t u = 0; u < vEntries.size() && !m_vSlots.empty(); ++u) {
        const std::uint32_t uPlace = m_vSlots[m_vHashes[u] & (m_vSlots.size() - 1)];
        __builtin_prefetch(m_table.dependencies.data() + (uPlace > 0 ? uPlace - 1 : 0));
    }
    for (std::size_t u = 0; u < vEntries.size(); ++u) {
        m_table.lists.append(placeOf(vEntries[u], m_vHashes[u]));
    }
}

void PackageSet::insertEqual(const PackageRecord& package)
{
    PackageTable::Row row = {package.name, package.group, package.evr, 0, 0, 0, 0, 0};
    row.lists = static_cast<std::uint32_t>(m_table.lists.size());
    insertList(package.requires_, row.requireCount);
    insertList(package.provides, row.provideCount);
    insertList(package.obsoletes, row.obsoleteCount);
    row.file = static_cast<std::uint32_t>(m_table.files.size());
    for (const std::string* pText :
         {&package.location, &package.checksum.type, &package.checksum.value}) {
        m_table.files.append(pText->c_str(), pText->size() + 1);
    }
    m_table.rows.append(row);
}

void PackageSet::sort()
{
    m_vSlots = {};
    // By the first bytes, as numbers that lie side by side; only among equal ones by the rest.
    struct Key {
        Prefix prefix;
        std::uint32_t place;
    };
    std::vector<Key> vKeys;
    vKeys.reserve(size());
    for (std::uint32_t u = 0; u < size(); ++u) {
        vKeys.push_back({prefixOf(row(u).name.view()), u});
    }
    std::sort(vKeys.begin(), vKeys.end(), [&](const Key& a, const Key& b) {
        if (a.prefix != b.prefix) {
            return a.prefix < b.prefix;
        }
        const Text sA = row(a.place).name;
        const Text sB = row(b.place).name;
        return sA == sB ? a.place < b.place : sA < sB;
    });
    // Each row goes to its place, along the cycles of the permutation: without a second table.
    for (std::uint32_t u = 0; u < size(); ++u) {
        const PackageTable::Row first = m_table.rows[u];
        std::uint32_t uTo = u;
        while (vKeys[uTo].place != u) {
            const std::uint32_t uFrom = std::exchange(vKeys[uTo].place, uTo);
            m_table.rows[uTo] = m_table.rows[uFrom];
            uTo = uFrom;
        }
        vKeys[uTo].place = uTo;
        m_table.rows[uTo] = first;
    }
    m_table.rows.shrink();
    m_table.dependencies.shrink();
    m_table.lists.shrink();
    m_table.files.shrink();
}

std::size_t PackageSet::bytes() const
{
    return m_table.rows.bytes() + m_table.dependencies.bytes() + m_table.lists.bytes() +
           m_table.files.bytes() + m_vSlots.capacity() * sizeof(std::uint32_t);
}

std::pair<std::uint32_t, std::uint32_t> PackageSet::range(Text sName) const
{
    const auto [first, last] = std::equal_range(
        m_table.rows.begin(), m_table.rows.end(), PackageTable::Row{sName, {}, {}, 0, 0, 0, 0, 0},
        [](const auto& a, const auto& b) { return a.name < b.name; });
    return {static_cast<std::uint32_t>(first - m_table.rows.begin()),
            static_cast<std::uint32_t>(last - m_table.rows.begin())};
}

std::uint32_t PackageSet::endOfRun(std::uint32_t uPlace) const
{
    const Text sName = row(uPlace).name;
    do {
        ++uPlace;
    } while (uPlace < size() && row(uPlace).name == sName);
    return uPlace;
}

std::span<const std::uint32_t> PackageSet::requiresOf(std::uint32_t uPlace) const
{
    return {m_table.lists.data() + row(uPlace).lists, row(uPlace).requireCount};
}

std::span<const std::uint32_t> PackageSet::providesOf(std::uint32_t uPlace) const
{
    return {m_table.lists.data() + row(uPlace).lists + row(uPlace).requireCount,
            row(uPlace).provideCount};
}

std::span<const std::uint32_t> PackageSet::obsoletesOf(std::uint32_t uPlace) const
{
    return {m_table.lists.data() + row(uPlace).lists + row(uPlace).requireCount +
                row(uPlace).provideCount,
            row(uPlace).obsoleteCount};
}
