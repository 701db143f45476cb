// A host of the kit: C++17, built with and without exceptions and run-time type information. It defines no
// trace function, so the library's own silent ones have to do.

#include <talrtp/kit.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

bool optionsTellWhatIsWrong() {
    talrtp::kit::SenderOptions good;
    good.fec = talrtp::kit::Fec::reedSolomon(10, 3);
    talrtp::kit::SenderOptions bad = good;
    bad.fec = talrtp::kit::Fec::reedSolomon(250, 30);
    return good.check().empty() && bad.check().find("250") != std::string::npos;
}

bool sessionCountsAPacket() {
    talrtp::kit::SessionHandle session(nullptr, 0x1234);
    talrtp::kit::Statistics statistics;
    std::vector<unsigned char> unit{0x65, 0x88, 0x84};
    talrtp::CTalRtpPacket packet(1200);
    const int result =
        session->CreateSinglePacket(90000, static_cast<int>(unit.size()), unit.data(), &packet);
    session.addCountersTo(statistics);
    return result == 0 && statistics.createdMediaPacketNumber == 1 &&
           talrtp::kit::BytesView(unit).subview(1).size() == 2;
}

}  // namespace

int main() {
    if (!optionsTellWhatIsWrong() || !sessionCountsAPacket()) {
        std::fprintf(stderr, "kit consumer: the options or the session are not as they should be\n");
        return 1;
    }
    std::puts("kit consumer: options checked, one packet counted");
    return 0;
}
