// Base64, as session descriptions carry parameter sets. RFC 4648, 4.

#ifndef TALRTP_KIT_BASE64_H
#define TALRTP_KIT_BASE64_H

#include <talrtp/kit/BytesView.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace talrtp::kit {

// The digits 0 to 63.
constexpr std::string_view kBase64Letters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Returns `bytes` as letters, filled up with '=' to a multiple of 4.
inline std::string encodeBase64(BytesView bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const BytesView group = bytes.subview(i, 3);
        std::uint32_t bits = std::uint32_t{group[0]} << 16;
        bits |= group.size() > 1 ? std::uint32_t{group[1]} << 8 : 0U;
        bits |= group.size() > 2 ? std::uint32_t{group[2]} : 0U;
        for (std::size_t letter = 0; letter < 4; ++letter) {
            const bool isFilling = letter > group.size();
            text += isFilling ? '=' : kBase64Letters[(bits >> (18 - 6 * letter)) & 0x3f];
        }
    }
    return text;
}

// Returns the bytes that `text` stands for, or nothing when it is no Base64. The '=' at the end may be
// missing.
inline std::optional<std::vector<std::uint8_t>> decodeBase64(std::string_view text) {
    for (int filling = 0; filling < 2 && !text.empty() && text.back() == '='; ++filling) {
        text.remove_suffix(1);
    }
    if (text.size() % 4 == 1) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes;
    std::uint32_t bits = 0;
    unsigned int count = 0;
    for (const char letter : text) {
        const std::size_t value = kBase64Letters.find(letter);
        if (value == std::string_view::npos) {
            return std::nullopt;
        }
        bits = (bits << 6) | static_cast<std::uint32_t>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes.push_back(static_cast<std::uint8_t>((bits >> count) & 0xff));
        }
    }
    return bytes;
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_BASE64_H
