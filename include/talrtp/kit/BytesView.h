// A view of bytes that somebody else owns: a pointer and a size.
//
// Every function of the kit that reads bytes takes a `BytesView`, and everything that holds bytes one after
// the other converts to it: `std::vector<std::uint8_t>`, `std::array`, `std::string`, `std::string_view`, a C
// array, C++20's `std::span`. A host never writes a cast at the call. The view **borrows**: it is valid as
// long as the bytes are.

#ifndef TALRTP_KIT_BYTESVIEW_H
#define TALRTP_KIT_BYTESVIEW_H

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace talrtp::kit {

// A pointer to bytes and their number.
class BytesView {
    // A type whose elements are bytes under another name, so that reading them through std::uint8_t is
    // defined.
    template <typename Element>
    static constexpr bool kIsByte = sizeof(Element) == 1 && std::is_trivially_copyable_v<Element> &&
                                    !std::is_same_v<std::remove_cv_t<Element>, bool>;

    template <typename Range>
    using ElementOf = std::remove_pointer_t<decltype(std::declval<const Range&>().data())>;

    template <typename Range>
    using IfRangeOfBytes =
        std::enable_if_t<!std::is_same_v<std::decay_t<Range>, BytesView> && kIsByte<ElementOf<Range>> &&
                         std::is_convertible_v<decltype(std::declval<const Range&>().size()), std::size_t>>;

public:
    // As a count: up to the end.
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    constexpr BytesView() = default;

    // `data`: `size` bytes; null only with a size of 0.
    constexpr BytesView(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    // Any other pointer to bytes: char, signed char, std::byte.
    template <typename Element, typename = std::enable_if_t<kIsByte<Element>>>
    BytesView(const Element* data, std::size_t size)
        : m_data(reinterpret_cast<const std::uint8_t*>(data)), m_size(size) {}

    // Whatever has contiguous bytes and says so by `data()` and `size()`.
    template <typename Range, typename = IfRangeOfBytes<Range>>
    BytesView(const Range& bytes)
        : BytesView(bytes.data(), bytes.size()) {}  // NOLINT(google-explicit-constructor)

    // A C array, whole. A string literal counts with the zero byte that ends it.
    template <typename Element, std::size_t kSize, typename = std::enable_if_t<kIsByte<Element>>>
    BytesView(const Element (&bytes)[kSize])
        : BytesView(&bytes[0], kSize) {}  // NOLINT(google-explicit-constructor)

    // Returns the first byte, or null if the view was made without bytes.
    constexpr const std::uint8_t* data() const { return m_data; }
    // Returns the number of bytes.
    constexpr std::size_t size() const { return m_size; }
    // Tells whether there is no byte.
    constexpr bool empty() const { return m_size == 0; }
    // Returns the first byte, for range loops and algorithms.
    constexpr const std::uint8_t* begin() const { return m_data; }
    // Returns the place after the last byte.
    constexpr const std::uint8_t* end() const { return m_data + m_size; }

    // Byte `i`, which lies below the size.
    constexpr const std::uint8_t& operator[](std::size_t i) const { return m_data[i]; }

    // The `count` bytes from `position` on, or as many as there are.
    constexpr BytesView subview(std::size_t position, std::size_t count = npos) const {
        const std::size_t first = position < m_size ? position : m_size;
        const std::size_t rest = m_size - first;
        return {m_data + first, count < rest ? count : rest};
    }

private:
    const std::uint8_t* m_data = nullptr;
    std::size_t m_size = 0;
};

// Tells whether both views show the same bytes.
inline bool operator==(BytesView a, BytesView b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i] != b[i]) {
            return false;
        }
    }
    return true;
}
// Tells whether size or any byte differs.
inline bool operator!=(BytesView a, BytesView b) {
    return !(a == b);
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_BYTESVIEW_H
