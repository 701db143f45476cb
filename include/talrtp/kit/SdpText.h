// The letters and names of a session description, as reader and writer share them. Part of Sdp.h, which a
// host includes.

#ifndef TALRTP_KIT_SDPTEXT_H
#define TALRTP_KIT_SDPTEXT_H

#include <cstdint>
#include <string_view>

namespace talrtp::kit::detail {

inline constexpr int kMaxPort = 65535;
inline constexpr unsigned int kMaxPayloadType = 127;
inline constexpr double kMaxFrameRate = 1000000;
inline constexpr std::int64_t kMillionths = 1000000;
inline constexpr std::string_view kReedSolomonName = "x-talrtp-rs-fec";
inline constexpr std::string_view kXorName = "x-talrtp-xor-fec";

inline bool isDigit(char letter) {
    return letter >= '0' && letter <= '9';
}
inline bool isHexDigit(char letter) {
    return isDigit(letter) || (letter >= 'a' && letter <= 'f') || (letter >= 'A' && letter <= 'F');
}
inline bool isLetter(char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z');
}

inline bool isProfileLevelId(std::string_view text) {
    for (const char letter : text) {
        if (!isHexDigit(letter)) {
            return false;
        }
    }
    return text.size() == 6;
}

// Letters of host names and of both kinds of addresses.
inline bool isAddress(std::string_view text) {
    for (const char letter : text) {
        if (!isDigit(letter) && !isLetter(letter) && letter != '.' && letter != ':' && letter != '-' &&
            letter != '_') {
            return false;
        }
    }
    return !text.empty();
}

inline bool isIp6(std::string_view address) {
    return address.find(':') != std::string_view::npos;
}

// 224.0.0.0 to 239.255.255.255: a first number in that range, and nothing but digits and three dots.
inline bool isIp4Multicast(std::string_view address) {
    int dots = 0;
    int first = 0;
    for (const char letter : address) {
        if (!isDigit(letter) && letter != '.') {
            return false;
        }
        dots += letter == '.' ? 1 : 0;
        if (dots == 0) {
            first = first > 99 ? 1000 : first * 10 + (letter - '0');
        }
    }
    return dots == 3 && first >= 224 && first <= 239;
}

}  // namespace talrtp::kit::detail

#endif  // TALRTP_KIT_SDPTEXT_H
