#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// An immutable byte string of which the process holds one copy, however many values have it. Four
/// bytes, copied and compared for equality like an integer; ordered in plain byte order.
///
/// A repository of 60,000 packages names a million dependencies whose names and versions nearly all
/// repeat: with strings of their own they would not fit a small device. The copies live until the
/// process ends, so keep it to what comes from package metadata. Not for texts with null bytes.
class Text {
public:
    Text() = default;  ///< the empty string
    Text(std::string_view sText);
    Text(const std::string& sText) : Text(std::string_view(sText)) {}
    Text(const char* pText) : Text(std::string_view(pText)) {}

    [[nodiscard]] std::string_view view() const;
    /// Null-terminated. Named as in std::string. NOLINTNEXTLINE(readability-identifier-naming)
    [[nodiscard]] const char* c_str() const { return view().data(); }
    [[nodiscard]] std::string str() const { return std::string(view()); }
    [[nodiscard]] bool empty() const { return m_uId == 0; }

    /// Tells it from all others of the process, in no order.
    [[nodiscard]] std::uint32_t id() const { return m_uId; }

    /// The text of an id() of this process.
    [[nodiscard]] static Text fromId(std::uint32_t uId)
    {
        Text sText;
        sText.m_uId = uId;
        return sText;
    }

    friend bool operator==(Text a, Text b) { return a.m_uId == b.m_uId; }
    friend std::strong_ordering operator<=>(Text a, Text b);

private:
    std::uint32_t m_uId = 0;  ///< place in the store, in units of 4 bytes; 0 is the empty string
};

/// Turns many strings into texts at once. Finding one by itself means to wait for memory three times;
/// here the places to look at are asked for when a string is added, and lie in the processor's caches
/// when all are found.
class TextBatch {
public:
    /// @return the number of the string in the batch.
    std::uint32_t add(std::string_view sText);

    /// Finds all strings that were added, and begins a new batch.
    ///
    /// @param vTexts  set to the texts, by number.
    void find(std::vector<Text>& vTexts);

    /// Forgets the strings that were added.
    void clear();

private:
    struct Item {
        std::uint32_t begin;
        std::uint32_t length;
        std::uint32_t hash;
    };
    std::string m_sBytes;
    std::vector<Item> m_vItems;
};

template <>
struct std::hash<Text> {
    std::size_t operator()(Text sText) const { return sText.id(); }
};

/// An odd number that nobody outside the process can know: what keeps a hash table from being
/// crowded by chosen names.
std::uint64_t textSecret();

/// Bytes that all texts of the process take.
std::size_t textBytes();
