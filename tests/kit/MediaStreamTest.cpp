// The bundled streams from a sender through a network to a receiver.

#include "RtpPackets.h"
#include "SeededRandom.h"

#include <talrtp/kit/AccessUnitSplitter.h>
#include <talrtp/kit/Receiver.h>
#include <talrtp/kit/Sender.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace talrtp::kit {
namespace {

using test::annexB;
using test::atMs;
using test::Bytes;
using test::KeepingReceiver;
using test::SeededRandom;

using Units = std::vector<Bytes>;

std::vector<Units> readPictures(const std::string& name) {
    std::ifstream file(std::string(TALRTP_MEDIA_DIR) + "/" + name, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::vector<Units> pictures;
    AccessUnitSplitter splitter([&](const AccessUnit& unit) {
        pictures.emplace_back();
        for (const BytesView& each : unit.units()) {
            pictures.back().push_back(test::copyOf(each));
        }
    });
    splitter.push(bytes);
    splitter.finish();
    return pictures;
}

// The timestamp of a picture in decoding order: after an I picture, P and the three B pictures shown before
// it, the middle one first.
std::uint32_t timestampOf(std::size_t decoding) {
    constexpr std::size_t kOrder[] = {4, 2, 1, 3};
    const std::size_t inGroup = decoding % 25;
    const std::size_t shown = inGroup == 0 ? 0 : (inGroup - 1) / 4 * 4 + kOrder[(inGroup - 1) % 4];
    return static_cast<std::uint32_t>(0xffff0000U + 3600 * (decoding - inGroup + shown));
}

struct Case {
    const char* file;
    Fec fec;
    std::uint32_t lossPercent;
};

class MediaStreamTest : public testing::TestWithParam<Case> {
protected:
    // Sends each picture 40 ms after the last one; a datagram takes up to 60 ms, and some arrive twice.
    void send() {
        SenderOptions options;
        options.ssrc = test::kSource;
        options.mtu = 600;
        options.fec = GetParam().fec;
        options.firstSequence = std::uint16_t{65500};
        Sender sender(options, [this](const Datagram& datagram) { carry(datagram); });
        for (std::size_t i = 0; i < m_pictures.size(); ++i) {
            m_ms = 40 * static_cast<int>(i);
            m_isCalm = i == 0;
            m_sentTimestamps.push_back(timestampOf(i));
            ASSERT_TRUE(sender.sendPicture(timestampOf(i), m_pictures[i]));
        }
        m_ms += 40;
        sender.flush();
    }

    void carry(const Datagram& datagram) {
        const bool isLost = !m_isCalm && m_random.between(1, 100) <= GetParam().lossPercent;
        const std::uint32_t copies = isLost ? 0 : m_random.oneIn(20) ? 2 : 1;
        for (std::uint32_t i = 0; i < copies; ++i) {
            const int delay = m_isCalm ? 0 : static_cast<int>(m_random.between(0, 60));
            m_network.emplace(m_ms + delay, test::copyOf(datagram.bytes));
        }
    }

    void receive(KeepingReceiver& receiver) {
        for (const auto& [ms, datagram] : m_network) {
            receiver.push(datagram, ms);
            receiver.receiver.poll(atMs(ms));
        }
        receiver.receiver.finish();
    }

    SeededRandom m_random{42};
    std::vector<Units> m_pictures = readPictures(GetParam().file);
    std::vector<std::uint32_t> m_sentTimestamps;
    std::multimap<int, Bytes> m_network;
    int m_ms = 0;
    bool m_isCalm = false;
};

TEST_P(MediaStreamTest, ArrivesInDecodingOrderBitForBit) {
    send();
    ReceiverOptions options;
    options.fec = GetParam().fec;
    KeepingReceiver receiver(options);
    receive(receiver);

    std::size_t complete = 0;
    std::size_t next = 0;
    for (const test::PlayedPicture& played : receiver.pictures) {
        while (next < m_pictures.size() && m_sentTimestamps[next] != played.timestamp) {
            ++next;
        }
        ASSERT_LT(next, m_pictures.size()) << "out of order";
        if (played.isComplete) {
            ++complete;
            ASSERT_EQ(annexB(m_pictures[next]), played.bytes) << next;
        }
        ++next;
    }
    const Statistics statistics = receiver.receiver.statistics();
    EXPECT_EQ(GetParam().lossPercent > 0 && GetParam().fec.parity > 0, statistics.rebuiltPackets > 0);
    if (GetParam().lossPercent == 0) {
        EXPECT_EQ(m_pictures.size(), complete);
    } else {
        EXPECT_LT(complete, m_pictures.size());
        EXPECT_GT(complete, m_pictures.size() / 3);
    }
}

constexpr char kSlices[] = "own-testsrc2-640x360-4slices.264";
constexpr char kSvc[] = "own-svc-320x180-t4-prefix.264";
constexpr char kBFrames[] = "own-testsrc2-320x180-bframes.264";

INSTANTIATE_TEST_SUITE_P(
    BundledStreams, MediaStreamTest,
    testing::Values(Case{kSlices, Fec::none(), 0}, Case{kSlices, Fec::xorParity(5), 10},
                    Case{kSlices, Fec::reedSolomon(10, 1), 8}, Case{kSvc, Fec::none(), 0},
                    Case{kSvc, Fec::none(), 5}, Case{kSvc, Fec::reedSolomon(8, 1), 10},
                    Case{kBFrames, Fec::none(), 0}, Case{kBFrames, Fec::none(), 5},
                    Case{kBFrames, Fec::xorParity(5), 10}, Case{kBFrames, Fec::reedSolomon(8, 1), 10}),
    [](const testing::TestParamInfo<Case>& each) { return "Case" + std::to_string(each.index); });

}  // namespace
}  // namespace talrtp::kit
