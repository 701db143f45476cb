#include "inspect/Replay.h"

#include "HostError.h"
#include "Interrupt.h"
#include "inspect/CaptureReader.h"

#include <fmt/format.h>

#include <ostream>

namespace talrtp::host::inspect {

kit::ReceiverOptions replayOptions(const CInspector& inspector) {
    const CStream* const media = inspector.mainStream();
    if (media == nullptr) {
        throw CHostError("there is no H.264 stream to replay; --pt names its payload type");
    }
    kit::ReceiverOptions options;
    options.ssrc = media->key().ssrc;
    options.payloadType = media->key().payloadType;
    options.fec = kit::FecScheme::kNone;
    if (options.payloadType == options.fecPayloadType) {
        --options.fecPayloadType;
    }
    if (const CStream* const fec = inspector.fecStreamOf(*media)) {
        options.fecPayloadType = fec->key().payloadType;
        options.fec = inspector.kindOf(*fec) == StreamKind::kXorFec ? kit::FecScheme::kXor
                                                                    : kit::FecScheme::kReedSolomon;
    }
    if (const std::string problem = options.check(); !problem.empty()) {
        throw CHostError(fmt::format("the stream cannot be replayed: {}", problem));
    }
    return options;
}

kit::Statistics replayCapture(const std::string& path, const kit::ReceiverOptions& options,
                              std::ostream& output) {
    kit::Receiver receiver(options, [&output](const kit::Picture& picture) {
        const kit::BytesView bytes = picture.annexB();
        output.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    });
    CCaptureReader capture(path);
    std::optional<kit::TimePoint> due;
    while (const std::optional<CCaptureReader::Record> record = capture.next()) {
        throwIfInterrupted();
        const kit::TimePoint now(record->time);
        while (due && *due <= now) {
            due = receiver.poll(*due);
        }
        const Frame frame = readFrame(capture.link(), record->bytes);
        if (frame.kind == FrameKind::kUdp && !frame.datagram.isCut()) {
            receiver.push(frame.datagram.bytes, now);
        }
        due = receiver.poll(now);
    }
    receiver.finish();
    return receiver.statistics();
}

}  // namespace talrtp::host::inspect
