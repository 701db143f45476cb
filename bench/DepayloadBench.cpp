// From RTP datagrams to whole H.264 units, beside the programs that hosts run today, fed with the same
// datagrams:
//
//   FFmpeg      libavformat reads a session description and takes each datagram from memory; its parser,
//               which `ffmpeg -c copy` runs too, puts the pictures together. It keeps no packet.
//   GStreamer   rtph264depay between two pads: a buffer with a copy of the datagram in, byte-stream units
//               out, on the caller's thread. No jitter buffer, so it keeps no packet either.
//
// A row counts one packet an iteration. A peer's rows have no number of packets kept.

#include <benchmark/benchmark.h>
#include <gst/gst.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

extern "C" {
#include <libavformat/avformat.h>
}

#include "ReceiveStream.h"

namespace {

using namespace talrtp::bench;

// Not a number that the memory of a receiver could depend on.
constexpr int kPacketsBefore = 20000;

void require(bool holds, const char* text) {
    if (!holds) {
        throw std::runtime_error(text);
    }
}

BENCHMARK(receive)->Name("depayload/talrtp")->Apply(receiveShapes);

// --- FFmpeg ---

class FfmpegReceiver {
public:
    explicit FfmpegReceiver(int unitPackets) : m_stream(unitPackets, kNumbers) {
        av_log_set_level(AV_LOG_QUIET);  // the slices hold no picture, which its parser would tell each time
        m_description = makeInput(&FfmpegReceiver::readDescription);
        m_datagrams = makeInput(&FfmpegReceiver::readDatagram);
        m_context = avformat_alloc_context();
        m_context->pb = m_description;
        AVDictionary* options = nullptr;
        av_dict_set(&options, "sdp_flags", "custom_io", 0);
        const int opened = avformat_open_input(&m_context, "", av_find_input_format("sdp"), &options);
        av_dict_free(&options);
        require(opened == 0, "FFmpeg refused the session description");
        m_context->pb = m_datagrams;
        m_packet = av_packet_alloc();
    }
    ~FfmpegReceiver() {
        av_packet_free(&m_packet);
        avformat_close_input(&m_context);
        freeInput(m_description);
        freeInput(m_datagrams);
    }
    FfmpegReceiver(const FfmpegReceiver&) = delete;
    FfmpegReceiver& operator=(const FfmpegReceiver&) = delete;

    // Takes datagrams until a unit is whole. Returns its size.
    int readUnit() {
        require(av_read_frame(m_context, m_packet) == 0, "FFmpeg read no unit");
        benchmark::DoNotOptimize(m_packet->data[m_packet->size - 1]);
        const int size = m_packet->size;
        av_packet_unref(m_packet);
        return size;
    }

private:
    using Read = int (*)(void* self, std::uint8_t* buffer, int size);

    AVIOContext* makeInput(Read read) {
        constexpr int kBufferSize = 4096;
        unsigned char* const buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
        AVIOContext* const input = avio_alloc_context(buffer, kBufferSize, 0, this, read, nullptr, nullptr);
        input->max_packet_size = kBufferSize;  // each read is one datagram
        input->direct = 1;                     // lets its receiver reports go nowhere
        return input;
    }
    static void freeInput(AVIOContext* input) {
        av_freep(&input->buffer);
        avio_context_free(&input);
    }

    static int readDescription(void* self, std::uint8_t* buffer, int size) {
        static const std::string text =
            "v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=bench\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n"
            "m=video 5000 RTP/AVP 98\r\na=rtpmap:98 H264/90000\r\na=fmtp:98 packetization-mode=1;"
            "sprop-parameter-sets=Z2QAHqyyAUBf8uAiAAADAAIAAAMAZR4sXJA=,aOvMsiw=\r\n";
        std::size_t& done = static_cast<FfmpegReceiver*>(self)->m_described;
        if (done == text.size()) {
            return AVERROR_EOF;
        }
        const std::size_t count = std::min(static_cast<std::size_t>(size), text.size() - done);
        std::memcpy(buffer, text.data() + done, count);
        done += count;
        return static_cast<int>(count);
    }
    static int readDatagram(void* self, std::uint8_t* buffer, int) {
        std::memcpy(buffer, static_cast<FfmpegReceiver*>(self)->m_stream.next(), kPacketSize);
        return kPacketSize;
    }

    Stream m_stream;
    std::size_t m_described = 0;
    AVIOContext* m_description = nullptr;
    AVIOContext* m_datagrams = nullptr;
    AVFormatContext* m_context = nullptr;
    AVPacket* m_packet = nullptr;
};

void receiveFfmpeg(benchmark::State& state) {
    const int unitPackets = static_cast<int>(state.range(0));
    FfmpegReceiver receiver(unitPackets);
    long bytes = 0;
    for (int i = 0; i < kPacketsBefore; i += unitPackets) {
        bytes = receiver.readUnit();
    }
    const long whole = static_cast<long>(unitPackets) * (kPacketSize - kHeaderSize - 2);
    require(bytes >= whole, "FFmpeg put no whole unit together");
    while (state.KeepRunningBatch(unitPackets)) {
        receiver.readUnit();
    }
}

// --- GStreamer ---

class GstreamerReceiver {
public:
    explicit GstreamerReceiver(int unitPackets) : m_stream(unitPackets, kNumbers) {
        gst_init(nullptr, nullptr);
        m_element = gst_element_factory_make("rtph264depay", nullptr);
        require(m_element != nullptr, "GStreamer has no rtph264depay");
        m_in = gst_pad_new("in", GST_PAD_SRC);
        m_out = gst_pad_new_from_template(
            gst_pad_template_new(
                "out", GST_PAD_SINK, GST_PAD_ALWAYS,
                gst_caps_from_string("video/x-h264,stream-format=byte-stream,alignment=nal")),
            "out");
        gst_pad_set_element_private(m_out, this);
        gst_pad_set_chain_function(m_out, &GstreamerReceiver::take);
        link(m_in, gst_element_get_static_pad(m_element, "sink"));
        link(gst_element_get_static_pad(m_element, "src"), m_out);
        gst_pad_set_active(m_in, TRUE);
        gst_pad_set_active(m_out, TRUE);
        gst_element_set_state(m_element, GST_STATE_PLAYING);
        gst_pad_push_event(m_in, gst_event_new_stream_start("bench"));
        gst_pad_push_event(
            m_in, gst_event_new_caps(gst_caps_from_string(
                      "application/x-rtp,media=video,clock-rate=90000,encoding-name=H264,payload=98")));
        GstSegment segment;
        gst_segment_init(&segment, GST_FORMAT_TIME);
        gst_pad_push_event(m_in, gst_event_new_segment(&segment));
    }
    ~GstreamerReceiver() {
        gst_element_set_state(m_element, GST_STATE_NULL);
        gst_object_unref(m_element);
        gst_object_unref(m_in);
        gst_object_unref(m_out);
    }
    GstreamerReceiver(const GstreamerReceiver&) = delete;
    GstreamerReceiver& operator=(const GstreamerReceiver&) = delete;

    void feed() {
        const GstFlowReturn flow = gst_pad_push(m_in, gst_buffer_new_memdup(m_stream.next(), kPacketSize));
        require(flow == GST_FLOW_OK, "GStreamer refused a packet");
    }
    std::size_t units() const { return m_units; }
    std::size_t bytes() const { return m_bytes; }

private:
    static void link(GstPad* from, GstPad* to) {
        require(gst_pad_link(from, to) == GST_PAD_LINK_OK, "GStreamer's pads do not fit");
    }

    static GstFlowReturn take(GstPad* pad, GstObject*, GstBuffer* buffer) {
        GstreamerReceiver& self = *static_cast<GstreamerReceiver*>(gst_pad_get_element_private(pad));
        ++self.m_units;
        self.m_bytes += gst_buffer_get_size(buffer);
        gst_buffer_unref(buffer);
        return GST_FLOW_OK;
    }

    Stream m_stream;
    GstElement* m_element = nullptr;
    GstPad* m_in = nullptr;
    GstPad* m_out = nullptr;
    std::size_t m_units = 0;
    std::size_t m_bytes = 0;
};

void receiveGstreamer(benchmark::State& state) {
    const int unitPackets = static_cast<int>(state.range(0));
    GstreamerReceiver receiver(unitPackets);
    for (int i = 0; i < kPacketsBefore; ++i) {
        receiver.feed();
    }
    require(receiver.units() == static_cast<std::size_t>(kPacketsBefore / unitPackets),
            "GStreamer put not all units together");
    for (auto _ : state) {
        receiver.feed();
    }
    benchmark::DoNotOptimize(receiver.bytes());
}

void peerShapes(benchmark::internal::Benchmark* row) {
    row->Arg(1)->Arg(10)->Arg(84)->Arg(1000)->Arg(4000)->ArgName("unit");
}
BENCHMARK(receiveFfmpeg)->Name("depayload/ffmpeg")->Apply(peerShapes);
BENCHMARK(receiveGstreamer)->Name("depayload/gstreamer")->Apply(peerShapes);

}  // namespace
