// A sequence parameter set, as far as a sender needs it (ITU-T H.264, 7.3.2.1.1 and E.1.1): the size of the
// pictures, the rate that the stream states, and the fields by which slice headers are read.

#ifndef TALRTP_KIT_SPS_H
#define TALRTP_KIT_SPS_H

#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/MediaClock.h>
#include <talrtp/kit/NalUnit.h>
#include <talrtp/kit/RbspReader.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <numeric>
#include <optional>

namespace talrtp::kit {

// The fields of a sequence parameter set.
struct SpsInfo {
    unsigned int profile = 0;      // profile_idc
    unsigned int constraints = 0;  // the byte of constraint flags
    unsigned int level = 0;        // level_idc
    unsigned int id = 0;           // seq_parameter_set_id, 0 to 31

    std::uint32_t width = 0;    // of the pictures in luma samples, cropped
    std::uint32_t height = 0;   // likewise
    bool hasOnlyFrames = true;  // frame_mbs_only_flag: no fields

    bool hasColourPlanes = false;       // separate_colour_plane_flag
    int frameNumberBits = 4;            // of frame_num in a slice header
    unsigned int pictureOrderType = 0;  // pic_order_cnt_type, 0 to 2
    int pictureOrderBits = 4;           // of pic_order_cnt_lsb in a slice header, with type 0

    // The timing that the stream states, if any.
    struct Timing {
        std::uint32_t unitsInTick = 0;  // num_units_in_tick, above 0
        std::uint32_t timeScale = 0;    // time_scale, above 0
        bool isFixed = false;           // fixed_frame_rate_flag
    };
    // The rate, if the parameter set states one.
    std::optional<Timing> timing;

    // max_num_reorder_frames, if stated: how many pictures may come before one in decoding order and after it
    // in order of presentation.
    std::optional<std::uint32_t> maxReorder;

    // Returns the frames per second by the timing: a frame lasts two ticks (E.2.1). None unless it is stated,
    // or when twice the ticks exceed 32 bits.
    std::optional<FrameRate> frameRate() const {
        if (!timing) {
            return std::nullopt;
        }
        const std::uint64_t scale = timing->timeScale;
        const std::uint64_t units = std::uint64_t{timing->unitsInTick} * 2;
        const std::uint64_t divisor = std::gcd(scale, units);
        if (units / divisor > UINT32_MAX) {
            return std::nullopt;
        }
        return FrameRate{static_cast<std::uint32_t>(scale / divisor),
                         static_cast<std::uint32_t>(units / divisor)};
    }
};

namespace detail {

class SpsReader {
public:
    explicit SpsReader(BytesView unit) : m_bits(unit.subview(kNalHeaderSize)) {}

    std::optional<SpsInfo> read() {
        readHead();
        readChroma();
        readPictureOrder();
        readSize();
        if (!m_bits.isGood() || !m_isValid) {
            return std::nullopt;
        }
        if (m_bits.flag()) {  // vui_parameters_present_flag
            readVui();
        }
        return m_info;
    }

private:
    void readHead() {
        m_info.profile = m_bits.bits(8);
        m_info.constraints = m_bits.bits(8);
        m_info.level = m_bits.bits(8);
        m_info.id = upTo(31);
    }

    // Returns a number, which makes the set invalid when it is above `most`.
    std::uint32_t upTo(std::uint32_t most) {
        const std::uint32_t value = m_bits.ue();
        m_isValid = m_isValid && value <= most;
        return value <= most ? value : most;
    }

    bool hasChromaFields() const {
        constexpr unsigned int kProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
        return std::find(std::begin(kProfiles), std::end(kProfiles), m_info.profile) != std::end(kProfiles);
    }

    void readChroma() {
        constexpr std::uint32_t kChroma444 = 3;
        if (!hasChromaFields()) {
            return;
        }
        m_chroma = upTo(kChroma444);
        m_info.hasColourPlanes = m_chroma == kChroma444 && m_bits.flag();
        m_bits.ue();          // bit_depth_luma_minus8
        m_bits.ue();          // bit_depth_chroma_minus8
        m_bits.flag();        // qpprime_y_zero_transform_bypass_flag
        if (m_bits.flag()) {  // seq_scaling_matrix_present_flag
            const int count = m_chroma == kChroma444 ? 12 : 8;
            for (int i = 0; i < count && m_bits.isGood(); ++i) {
                if (m_bits.flag()) {
                    skipScalingList(i < 6 ? 16 : 64);
                }
            }
        }
    }

    // After a scale of 0 no more numbers follow (7.3.2.1.1.1).
    void skipScalingList(int size) {
        int last = 8;
        int next = 8;
        for (int i = 0; i < size && next != 0; ++i) {
            const std::int64_t sum = std::int64_t{last} + m_bits.se();
            next = static_cast<int>(((sum % 256) + 256) % 256);
            last = next == 0 ? last : next;
        }
    }

    void readPictureOrder() {
        constexpr std::uint32_t kMaxBits = 12;
        constexpr int kLeastBits = 4;
        m_info.frameNumberBits = static_cast<int>(upTo(kMaxBits)) + kLeastBits;
        m_info.pictureOrderType = upTo(2);
        if (m_info.pictureOrderType == 0) {
            m_info.pictureOrderBits = static_cast<int>(upTo(kMaxBits)) + kLeastBits;
        } else if (m_info.pictureOrderType == 1) {
            m_bits.flag();  // delta_pic_order_always_zero_flag
            m_bits.se();    // offset_for_non_ref_pic
            m_bits.se();    // offset_for_top_to_bottom_field
            for (std::uint32_t i = upTo(255); i > 0; --i) {
                m_bits.se();
            }
        }
        m_bits.ue();    // max_num_ref_frames
        m_bits.flag();  // gaps_in_frame_num_value_allowed_flag
    }

    void readSize() {
        constexpr std::uint32_t kMaxMacroblocks = 4095;  // in a row or column, less 1
        constexpr std::uint32_t kMacroblock = 16;
        const std::uint32_t columns = upTo(kMaxMacroblocks) + 1;
        const std::uint32_t rows = upTo(kMaxMacroblocks) + 1;
        m_info.hasOnlyFrames = m_bits.flag();
        if (!m_info.hasOnlyFrames) {
            m_bits.flag();  // mb_adaptive_frame_field_flag
        }
        m_bits.flag();  // direct_8x8_inference_flag
        const std::uint32_t fields = m_info.hasOnlyFrames ? 1 : 2;
        m_info.width = columns * kMacroblock;
        m_info.height = rows * kMacroblock * fields;
        if (m_bits.flag()) {  // frame_cropping_flag
            crop(m_info.width, cropUnitX());
            crop(m_info.height, cropUnitY() * fields);
        }
    }

    // Chroma of 4:2:0 has half the samples both ways, of 4:2:2 in a row (table 6-1).
    std::uint32_t cropUnitX() const { return m_chroma == 1 || m_chroma == 2 ? 2 : 1; }
    std::uint32_t cropUnitY() const { return m_chroma == 1 ? 2 : 1; }

    void crop(std::uint32_t& size, std::uint32_t unit) {
        const std::uint64_t cut = (std::uint64_t{m_bits.ue()} + m_bits.ue()) * unit;
        m_isValid = m_isValid && cut < size;
        size -= cut < size ? static_cast<std::uint32_t>(cut) : 0;
    }

    // Timing counts when it was read whole; the rest, when all of it was.
    void readVui() {
        skipVideoSignal();
        if (m_bits.flag()) {  // timing_info_present_flag
            SpsInfo::Timing timing;
            timing.unitsInTick = m_bits.bits(32);
            timing.timeScale = m_bits.bits(32);
            timing.isFixed = m_bits.flag();
            if (m_bits.isGood() && timing.unitsInTick > 0 && timing.timeScale > 0) {
                m_info.timing = timing;
            }
        }
        const bool hasNalHrd = m_bits.flag();
        if (hasNalHrd) {
            skipHrd();
        }
        const bool hasVclHrd = m_bits.flag();
        if (hasVclHrd) {
            skipHrd();
        }
        if (hasNalHrd || hasVclHrd) {
            m_bits.flag();  // low_delay_hrd_flag
        }
        m_bits.flag();  // pic_struct_present_flag
        readRestriction();
    }

    void skipVideoSignal() {
        constexpr std::uint32_t kExtendedAspect = 255;
        if (m_bits.flag() && m_bits.bits(8) == kExtendedAspect) {  // aspect_ratio_info_present_flag
            m_bits.bits(32);                                       // sar_width and sar_height
        }
        if (m_bits.flag()) {  // overscan_info_present_flag
            m_bits.flag();
        }
        if (m_bits.flag()) {      // video_signal_type_present_flag
            m_bits.bits(4);       // video_format and video_full_range_flag
            if (m_bits.flag()) {  // colour_description_present_flag
                m_bits.bits(24);
            }
        }
        if (m_bits.flag()) {  // chroma_loc_info_present_flag
            m_bits.ue();
            m_bits.ue();
        }
    }

    void skipHrd() {
        const std::uint32_t count = upTo(31) + 1;
        m_bits.bits(8);  // bit_rate_scale and cpb_size_scale
        for (std::uint32_t i = 0; i < count && m_bits.isGood(); ++i) {
            m_bits.ue();    // bit_rate_value_minus1
            m_bits.ue();    // cpb_size_value_minus1
            m_bits.flag();  // cbr_flag
        }
        m_bits.bits(20);  // four lengths
    }

    void readRestriction() {
        if (!m_bits.flag()) {  // bitstream_restriction_flag
            return;
        }
        m_bits.flag();  // motion_vectors_over_pic_boundaries_flag
        for (int i = 0; i < 4; ++i) {
            m_bits.ue();  // two limits of size and two of motion vectors
        }
        const std::uint32_t reorder = m_bits.ue();
        if (m_bits.isGood()) {
            m_info.maxReorder = reorder;
        }
    }

    RbspReader m_bits;
    SpsInfo m_info;
    std::uint32_t m_chroma = 1;  // chroma_format_idc
    bool m_isValid = true;
};

}  // namespace detail

// Reads a sequence parameter set, or a subset of one (types 7 and 15), without start code. Returns none when
// `unit` is of another type, is cut before the picture size ends, or holds a value out of range. A field
// after that which is cut or out of range counts as not stated. Any bytes are safe.
inline std::optional<SpsInfo> readSps(BytesView unit) {
    const int type = nalType(unit);
    if (type != kNalSps && type != kNalSubsetSps) {
        return std::nullopt;
    }
    return detail::SpsReader(unit).read();
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_SPS_H
