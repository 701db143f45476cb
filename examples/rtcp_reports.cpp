// A sender reports, a receiver answers with its losses and asks for a fresh picture: RTCP of RFC 3550 both
// ways, without sockets. The times are literals, so the round trip is known.

#include <talrtp/kit.h>

#include <chrono>
#include <cstdint>
#include <cstdio>

namespace kit = talrtp::kit;
using std::chrono::milliseconds;

constexpr std::uint32_t kCamera = 0x11223344;
constexpr std::uint32_t kViewer = 0x55667788;

int main() {
    const kit::TimePoint begin{};
    const kit::MediaClock clock(begin, std::chrono::system_clock::now(), /*firstTimestamp=*/5000);

    // The camera's datagram: a sender report and its name.
    kit::RtcpWriter camera(kit::Form::kRfc3550);
    camera.add(kit::SenderReport{kCamera, clock.ntpAt(begin), clock.timestampAt(begin), 100, 90000, {}, {}});
    camera.addCname(kCamera, "camera@studio.example");

    // The viewer counts packets 0 to 99, of which every tenth is lost. The report takes 20 ms.
    kit::ReceptionReport reception(kCamera);
    for (std::uint16_t i = 0; i < 100; ++i) {
        if (i % 10 != 5) {
            reception.onPacket(i, 5000 + i * 900U, begin + milliseconds(i * 10));
        }
    }
    const kit::RtcpReader reader(kit::Form::kRfc3550);
    reader.read(camera.bytes(), [&](const kit::SenderReport& report) {
        reception.onSenderReport(report.ntp, begin + milliseconds(20));
    });

    // Half a second later it answers: what it received, its name, and a Picture Loss Indication.
    kit::RtcpWriter viewer(kit::Form::kRfc3550);
    viewer.add(kit::ReceiverReport{kViewer, {reception.report(begin + milliseconds(520))}, {}});
    viewer.addCname(kViewer, "viewer@home.example");
    viewer.add(kit::Pli{kViewer, kCamera});

    // The answer takes 20 ms too. The camera learns of the losses and the round trip, and encodes an IDR
    // picture.
    int lost = 0;
    long roundTripMs = 0;
    bool isIdrWanted = false;
    const auto takeReport = [&](const kit::ReceiverReport& report) {
        const kit::ReportBlock& block = report.blocks.at(0);
        const auto roundTrip = kit::roundTripTime(block, clock.ntpAt(begin + milliseconds(540)));
        roundTripMs = std::chrono::round<milliseconds>(roundTrip.value_or(kit::Duration())).count();
        lost = block.cumulativeLost;
    };
    const auto takePli = [&](const kit::Pli&) { isIdrWanted = true; };
    reader.read(viewer.bytes(), kit::RtcpVisitor{takeReport, takePli});
    std::printf("%d packets lost, round trip %ld ms, IDR picture %swanted\n", lost, roundTripMs,
                isIdrWanted ? "" : "not ");
    return lost == 10 && roundTripMs == 40 && isIdrWanted ? 0 : 1;
}
