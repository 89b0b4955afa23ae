#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

/// A vector of plain values that grows by realloc(3): of large blocks the kernel moves the pages, so
/// that growing takes no second copy in memory, as it would with std::vector.
template <typename Value>
class FlatArray {
    static_assert(std::is_trivially_copyable_v<Value>);

public:
    FlatArray() = default;
    FlatArray(FlatArray&& other) noexcept { *this = std::move(other); }
    FlatArray& operator=(FlatArray&& other) noexcept
    {
        m_pValues = std::move(other.m_pValues);
        m_uSize = std::exchange(other.m_uSize, 0);
        m_uCapacity = std::exchange(other.m_uCapacity, 0);
        return *this;
    }

    [[nodiscard]] std::size_t size() const { return m_uSize; }
    [[nodiscard]] bool empty() const { return m_uSize == 0; }
    [[nodiscard]] std::size_t bytes() const { return m_uCapacity * sizeof(Value); }
    [[nodiscard]] Value* data() { return m_pValues.get(); }
    [[nodiscard]] const Value* data() const { return m_pValues.get(); }
    [[nodiscard]] Value* begin() { return data(); }
    [[nodiscard]] Value* end() { return data() + m_uSize; }
    [[nodiscard]] const Value* begin() const { return data(); }
    [[nodiscard]] const Value* end() const { return data() + m_uSize; }
    [[nodiscard]] Value& operator[](std::size_t u) { return data()[u]; }
    [[nodiscard]] const Value& operator[](std::size_t u) const { return data()[u]; }
    [[nodiscard]] const Value& back() const { return data()[m_uSize - 1]; }

    /// Appends values.
    void append(const Value* pValues, std::size_t uCount)
    {
        if (m_uCapacity - m_uSize < uCount) {
            reallocate(
                std::max({m_uCapacity + m_uCapacity / 2, m_uSize + uCount, std::size_t{16}}));
        }
        std::memcpy(static_cast<void*>(data() + m_uSize), pValues, uCount * sizeof(Value));
        m_uSize += uCount;
    }
    void append(const Value& value) { append(&value, 1); }

    /// Makes room for so many values, whose contents are undefined, in place of those it has.
    void assignUndefined(std::size_t uCount)
    {
        reallocate(uCount);
        m_uSize = uCount;
    }

    /// Gives back what it has taken in advance.
    void shrink() { reallocate(m_uSize); }

private:
    struct Free {
        void operator()(Value* pValues) const { std::free(pValues); }
    };

    void reallocate(std::size_t uCapacity)
    {
        void* pValues = std::realloc(static_cast<void*>(data()),
                                     std::max<std::size_t>(uCapacity, 1) * sizeof(Value));
        if (pValues == nullptr) {
            if (const std::new_handler pHandler = std::get_new_handler()) {
                pHandler();  // as `new` does
            }
            throw std::bad_alloc();
        }
        static_cast<void>(m_pValues.release());
        m_pValues.reset(static_cast<Value*>(pValues));
        m_uCapacity = uCapacity;
    }

    std::unique_ptr<Value, Free> m_pValues;
    std::size_t m_uSize = 0;
    std::size_t m_uCapacity = 0;
};
