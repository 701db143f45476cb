// The erasure code over a file, without RTP: cuts the file into ten pieces, adds four parity pieces, loses
// four of the ten, and puts the file together again from the rest.
//
//   erasure_files FILE

#include <talrtp/RsFec.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

constexpr int kMedia = 10;
constexpr int kParity = 4;
constexpr std::size_t kStrip = 1600;  // the codec takes blocks of at most MAX_PACKET_SIZE bytes

int main(int argc, char** argv) {
    std::ifstream file(argc > 1 ? argv[1] : "", std::ios::binary);
    const std::vector<char> content(std::istreambuf_iterator<char>(file), {});
    if (content.empty()) {
        std::fputs("usage: erasure_files FILE\n", stderr);
        return 2;
    }
    const std::size_t size = (content.size() + kMedia * kStrip - 1) / (kMedia * kStrip) * kStrip;
    std::array<std::vector<unsigned char>, kMedia + kParity> pieces;
    pieces.fill(std::vector<unsigned char>(size));
    for (std::size_t i = 0; i < content.size(); ++i) {
        pieces[i / size][i % size] = static_cast<unsigned char>(content[i]);
    }
    const auto original = pieces;

    talrtp::rs_param_* model = talrtp::CRsFec::CreateRsModel(kMedia, kMedia + kParity);
    std::array<int, kMedia> positions{{0, 10, 2, 11, 4, 12, 6, 13, 8, 9}};  // the pieces that are left
    std::array<int, kParity> lost{{1, 3, 5, 7}};
    for (std::size_t at = 0; at < size; at += kStrip) {
        std::array<unsigned char*, kMedia + kParity> strip{};
        std::transform(pieces.begin(), pieces.end(), strip.begin(),
                       [at](auto& each) { return each.data() + at; });
        talrtp::CRsFec::Encode(model, strip.data(), kStrip, strip.data() + kMedia);
        std::array<unsigned char*, kMedia> received{};
        std::array<unsigned char*, kParity> rebuilt{};
        const auto find = [&](int position) { return strip[static_cast<std::size_t>(position)]; };
        std::transform(positions.begin(), positions.end(), received.begin(), find);
        std::transform(lost.begin(), lost.end(), rebuilt.begin(), find);
        std::for_each(rebuilt.begin(), rebuilt.end(), [](auto* each) { std::fill_n(each, kStrip, 0); });
        talrtp::CRsFec::Decode(model, received.data(), kStrip, positions.data(), rebuilt.data(), lost.data(),
                               kParity);
    }
    talrtp::CRsFec::DeleteRsModel(model);
    const bool isSame = std::equal(original.begin(), original.begin() + kMedia, pieces.begin());
    std::printf("%zu bytes, %d of %d pieces lost: %s\n", content.size(), kParity, kMedia,
                isSame ? "rebuilt" : "WRONG");
    return isSame ? 0 : 1;
}
