#include <talrtp/kit/BytesView.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace talrtp::kit {
namespace {

// As a host's function would take them.
std::size_t sizeOf(BytesView bytes) {
    return bytes.size();
}

TEST(BytesViewTest, ConvertsFromEverythingThatHoldsBytes) {
    const std::vector<std::uint8_t> vector{1, 2, 3};
    const std::array<unsigned char, 2> array{{1, 2}};
    const std::vector<std::byte> bytes(4);
    const std::string string("12345");
    const std::uint8_t plain[6] = {};
    EXPECT_EQ(3u, sizeOf(vector));
    EXPECT_EQ(2u, sizeOf(array));
    EXPECT_EQ(4u, sizeOf(bytes));
    EXPECT_EQ(5u, sizeOf(string));
    EXPECT_EQ(4u, sizeOf(std::string_view("1234")));
    EXPECT_EQ(6u, sizeOf(plain));
    EXPECT_EQ(1u, sizeOf({vector.data(), 1}));
}

TEST(BytesViewTest, ShowsTheBytesThemselves) {
    std::vector<std::uint8_t> owner{1, 2, 3};
    const BytesView view = owner;
    owner[1] = 9;
    EXPECT_EQ(owner.data(), view.data());
    EXPECT_EQ(9, view[1]);
    EXPECT_EQ(15, view.begin()[0] + view.begin()[1] + view.begin()[2] + 2);
}

TEST(BytesViewTest, SubviewStaysInside) {
    const std::vector<std::uint8_t> owner{1, 2, 3, 4};
    const BytesView view = owner;
    EXPECT_EQ((std::vector<std::uint8_t>{2, 3}),
              std::vector<std::uint8_t>(view.subview(1, 2).begin(), view.subview(1, 2).end()));
    EXPECT_EQ(3u, view.subview(1).size());
    EXPECT_EQ(1u, view.subview(3, 7).size());
    EXPECT_TRUE(view.subview(4).empty());
    EXPECT_TRUE(view.subview(9, 9).empty());
}

TEST(BytesViewTest, ComparesBytesAndNotPointers) {
    const std::vector<std::uint8_t> a{1, 2, 3};
    const std::vector<std::uint8_t> b{1, 2, 3};
    const std::vector<std::uint8_t> c{1, 2, 4};
    EXPECT_TRUE(BytesView(a) == BytesView(b));
    EXPECT_TRUE(BytesView(a) != BytesView(c));
    EXPECT_TRUE(BytesView(a) != BytesView(a).subview(1));
    EXPECT_TRUE(BytesView() == BytesView(a).subview(3));
}

}  // namespace
}  // namespace talrtp::kit
