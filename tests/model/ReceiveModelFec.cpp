// The FEC side of the plain model: what is kept, what is tried again, and how both kinds rebuild.

#include "model/Decimal.h"
#include "model/PlainCodec.h"
#include "model/ReceiveModel.h"

#include <algorithm>

namespace talrtp {
namespace model {

namespace {

constexpr int kWarning = 1;
constexpr int kInfo = 2;

constexpr int kRtpHeaderSize = 12;
constexpr int kXorHeaderSize = 12;  // RFC 2733, after the RTP header
constexpr int kRsHeaderSize = 8;
constexpr int kLargestBlock = 1600;

std::uint16_t wrapped(int seq) {
    return static_cast<std::uint16_t>(seq);
}

std::string number(long value) {
    return decimal(value);
}

// The media packets that an XOR FEC packet protects, in the order of its mask.
std::vector<std::uint16_t> protectedBy(const PlainPacket& fec) {
    const int base = static_cast<int>(fec.payloadShort(0));
    const unsigned int mask = fec.payloadByte(5) << 16 | fec.payloadShort(6);
    std::vector<std::uint16_t> numbers;
    for (int i = 0; i < 24; ++i) {
        if ((mask & (0x800000U >> i)) != 0) {
            numbers.push_back(wrapped(base + i));
        }
    }
    return numbers;
}

// XORs the bytes of `packet` after its fixed header into `body`, as far as that reaches.
void xorBody(Bytes& body, const PlainPacket& packet, int length) {
    for (int i = 0; i < std::min(static_cast<int>(body.size()), length); ++i) {
        body[i] ^= static_cast<unsigned char>(packet.byteAt(kRtpHeaderSize + i));
    }
}

int parityBlockSize(const PlainPacket& fec) {
    return std::max(fec.payloadSize - kRsHeaderSize, 0);
}

// The 4 bytes of a length, least significant first.
Bytes lengthWord(unsigned int length) {
    Bytes word;
    word.reserve(4);
    for (int shift = 0; shift < 32; shift += 8) {
        word.push_back(static_cast<unsigned char>(length >> shift));
    }
    return word;
}

int lengthOf(const Bytes& word) {
    const unsigned int value =
        word[0] | word[1] << 8 | word[2] << 16 | static_cast<unsigned int>(word[3]) << 24;
    return static_cast<int>(value);
}

}  // namespace

// ------------------------------------------------------------------------------------------------ Keeping

int ReceiveModel::inputReceivedFecPacket(const PlainPacket& packet) {
    const std::uint16_t seq = packet.sequence();
    if (fecPackets.count(seq) != 0) {
        return 0;
    }
    counters.validFec += 1;
    counters.validFecBytes += packet.bufferSize;
    if (recoverWithFec(packet)) {
        fecPackets[seq] = packet;
        TimestampInfo& info = timestampInfo(packet.timestamp());
        info.updateTime = lastReceivedTime;
        info.fecSeqList.push_back(seq);
    }
    dealRecoveredPackets();
    return 0;
}

void ReceiveModel::retryStoredFecPackets() {
    for (auto entry = fecPackets.begin(); entry != fecPackets.end();) {
        const auto current = entry++;
        const PlainPacket& fec = current->second;
        if (recoverWithFec(fec)) {
            continue;
        }
        const auto info = timestamps.find(fec.timestamp());
        if (info != timestamps.end()) {
            std::list<std::uint16_t>& noted = info->second.fecSeqList;
            const auto note = std::find(noted.begin(), noted.end(), fec.sequence());
            if (note != noted.end()) {
                noted.erase(note);
            }
        }
        fecPackets.erase(current);
    }
}

// One walk over what was rebuilt. True when at least one packet was new.
bool ReceiveModel::dealRecoveredOnce() {
    bool anyNew = false;
    for (const auto& entry : recoveredPackets) {
        const PlainPacket& packet = entry.second;
        const std::uint16_t seq = packet.sequence();
        if (mediaPackets.count(seq) != 0) {
            say(kWarning, "CMMRTPSessionBase::dealRecoverPacketList recover repeat packet: seq = " +
                              number(seq) + ", ts = " + number(packet.timestamp()));
            continue;
        }
        counters.recovered += 1;
        counters.recoveredBytes += packet.bufferSize;
        mediaPackets[seq] = packet;
        updateMediaDataInfo(packet.timestamp(), seq);
        dealPacket(seq);
        anyNew = true;
    }
    recoveredPackets.clear();
    return anyNew;
}

void ReceiveModel::dealRecoveredPackets() {
    bool anyNew = false;
    while (dealRecoveredOnce()) {
        anyNew = true;
        retryStoredFecPackets();
    }
    if (anyNew) {
        checkAllLists();
    }
}

// Tries one FEC packet; true when it may still repair something.
bool ReceiveModel::recoverWithFec(const PlainPacket& fec) {
    if (fecType == 1) {
        return fec.kind == PacketKind::kRsFec && recoverWithRs(fec);
    }
    return fec.kind == PacketKind::kXorFec && recoverWithXor(fec);
}

const PlainPacket* ReceiveModel::knownMedia(std::uint16_t seq) const {
    const auto media = mediaPackets.find(seq);
    if (media != mediaPackets.end()) {
        return &media->second;
    }
    const auto recovered = recoveredPackets.find(seq);
    return recovered == recoveredPackets.end() ? nullptr : &recovered->second;
}

// -------------------------------------------------------------------------------------------- XOR parity

bool ReceiveModel::recoverWithXor(const PlainPacket& fec) {
    int missingCount = 0;
    std::uint16_t missing = 0;
    for (std::uint16_t seq : protectedBy(fec)) {
        if (knownMedia(seq) == nullptr) {
            ++missingCount;
            missing = seq;
        }
    }
    if (missingCount != 1) {
        return missingCount > 1;
    }
    PlainPacket rebuilt;
    if (rebuildByXor(missing, fec, rebuilt)) {
        say(kInfo, "CMMRTPSessionBase::recoverPacketWithXORFEC recoveredSeq = " + number(missing) +
                       ", recoveredTS = " + number(rebuilt.timestamp()) +
                       ", sourceID = " + number(m_sourceId));
        recoveredPackets[missing] = rebuilt;
    }
    return false;
}

bool ReceiveModel::rebuildByXor(std::uint16_t seq, const PlainPacket& fec, PlainPacket& rebuilt) {
    if (fec.packetSize < kRtpHeaderSize + kXorHeaderSize) {
        return false;
    }
    const int capacity = fec.packetSize - kRtpHeaderSize - kXorHeaderSize;
    Bytes body = fec.payload(kXorHeaderSize, capacity);
    bool pad = fec.padFlag();
    bool extension = fec.extensionFlag();
    bool marker = fec.markerFlag();
    int contribCount = fec.contribCount();
    unsigned int type = fec.payloadByte(4) & 0x7f;
    unsigned int timestamp = fec.payloadShort(8) << 16 | fec.payloadShort(10);
    int length = static_cast<int>(fec.payloadShort(2));
    for (std::uint16_t other : protectedBy(fec)) {
        const PlainPacket* const present = knownMedia(other);
        if (present == nullptr) {
            continue;
        }
        const int bodyLength = present->packetSize - kRtpHeaderSize;
        pad ^= present->padFlag();
        extension ^= present->extensionFlag();
        marker ^= present->markerFlag();
        contribCount ^= present->contribCount();
        type ^= present->packetType;  // not the payload type: hosts see the result
        timestamp ^= present->timestamp();
        length ^= bodyLength;
        if (capacity < bodyLength) {
            say(kWarning,
                "CMMRTPSessionBase::recoverPacket recovered packet size is too small, recoveredSeq = " +
                    number(seq) + ", recoveredLen = " + number(capacity) +
                    ", recoverLen = " + number(bodyLength));
        }
        xorBody(body, *present, bodyLength);
    }
    rebuilt = PlainPacket::ofCapacity(fec.packetSize - kXorHeaderSize);
    rebuilt.put(
        0, Bytes{static_cast<unsigned char>(0x80 | (pad ? 0x20 : 0) | (extension ? 0x10 : 0) | contribCount),
                 static_cast<unsigned char>((marker ? 0x80 : 0) | type)});
    rebuilt.putShort(2, seq);
    rebuilt.putLong(4, timestamp);
    rebuilt.putLong(8, fec.syncSource());
    rebuilt.put(kRtpHeaderSize, body);
    rebuilt.setPayloadSize(length + kRtpHeaderSize - rebuilt.headerSize());
    return length >= 0 && rebuilt.packetSize <= rebuilt.bufferSize && rebuilt.payloadSize >= 0;
}

// ------------------------------------------------------------------------------------------ Reed-Solomon

bool ReceiveModel::recoverWithRs(const PlainPacket& fec) {
    RsGroup group;
    group.mediaBase = static_cast<std::uint16_t>(fec.payloadShort(0));
    group.index = fec.payloadByte(4);
    group.m = static_cast<int>(fec.payloadByte(5));
    group.k = static_cast<int>(fec.payloadByte(6));
    group.fecSeq = fec.sequence();
    group.fecBase = wrapped(group.fecSeq - static_cast<int>(group.index));
    if (group.k + group.m > 256) {
        say(kWarning,
            "CMMRTPSessionBase::recoverPacketWithRSFEC total number of packet and fec is over 256.");
        return false;
    }
    if (findRsShards(fec, group)) {
        rebuildByRs(fec, group);
        return false;
    }
    return !group.missing.empty();  // waits for more, unless the group is whole
}

// Collects the available shards. True when something is missing and exactly k shards are there to rebuild it.
bool ReceiveModel::findRsShards(const PlainPacket& fec, RsGroup& group) const {
    group.present.reserve(static_cast<std::size_t>(group.k));
    group.missing.reserve(static_cast<std::size_t>(group.k));
    for (int i = 0; i < group.k; ++i) {
        const bool isPresent = knownMedia(wrapped(group.mediaBase + i)) != nullptr;
        (isPresent ? group.present : group.missing).push_back(i);
    }
    if (group.missing.empty()) {
        return false;
    }
    for (int j = 0; j < group.m && static_cast<int>(group.present.size()) < group.k; ++j) {
        const std::uint16_t seq = wrapped(group.fecBase + j);
        if (seq == fec.sequence() || fecPackets.count(seq) != 0) {
            group.present.push_back(group.k + j);
        }
    }
    return static_cast<int>(group.present.size()) == group.k;
}

void ReceiveModel::rebuildByRs(const PlainPacket& fec, const RsGroup& group) {
    std::vector<Bytes> blocks;
    std::vector<Bytes> lengths;
    blocks.reserve(group.present.size());
    lengths.reserve(group.present.size());
    int largestPacket = 0;
    int largestParity = 0;
    for (int shard : group.present) {
        if (shard < group.k) {
            const PlainPacket& media = *knownMedia(wrapped(group.mediaBase + shard));
            blocks.push_back(media.head(media.packetSize));
            lengths.push_back(lengthWord(static_cast<unsigned int>(media.packetSize)));
            largestPacket = std::max(largestPacket, media.packetSize);
        } else {
            const std::uint16_t seq = wrapped(group.fecBase + shard - group.k);
            const PlainPacket& parity = seq == fec.sequence() ? fec : fecPackets.at(seq);
            blocks.push_back(parity.payload(kRsHeaderSize, parityBlockSize(parity)));
            lengths.push_back(lengthWord(parity.payloadShort(2)));
            largestParity = std::max(largestParity, parityBlockSize(parity));
        }
    }
    const int ownParity = parityBlockSize(fec);
    if (ownParity < largestPacket || largestParity != ownParity) {
        say(kWarning,
            "CMMRTPSessionBase::recoverPacketWithRSFEC fec payoad size is dubitable, fecPayloadSize = " +
                number(ownParity) + ", maxPacketLen = " + number(largestPacket) +
                ", maxFecPayloadLen = " + number(largestParity));
        return;
    }
    if (largestParity > kLargestBlock) {
        say(kWarning, "CRsFec::Decode, max packet size is " + number(largestParity) +
                          ", bigger than MAX_PACKET_SIZE, skip it!");
        return;
    }
    const int n = group.k + group.m;
    const std::vector<Bytes> rebuilt =
        rebuildBlocks(group.k, n, group.present, blocks, group.missing, largestParity);
    const std::vector<Bytes> rebuiltLengths =
        rebuildBlocks(group.k, n, group.present, lengths, group.missing, 4);
    bool anyMismatch = false;
    for (std::size_t i = 0; i < group.missing.size(); ++i) {
        const std::uint16_t expected = wrapped(group.mediaBase + group.missing[i]);
        if (!acceptRebuiltByRs(rebuilt[i], rebuiltLengths[i], expected)) {
            anyMismatch = true;
        }
    }
    if (anyMismatch) {
        say(kWarning,
            "CMMRTPSessionBase::recoverPacketWithRSFEC recover seq number is differ with request, fecSeq = " +
                number(group.fecSeq) + ", fecIndex = " + number(group.index) +
                ", fecBaseSeq = " + number(group.fecBase) + ", fecNum = " + number(group.m) +
                ", packetBaseSeq = " + number(group.mediaBase) + ", packetNum = " + number(group.k));
    }
}

// Files one rebuilt packet. False when the block is no packet of the number expected.
bool ReceiveModel::acceptRebuiltByRs(const Bytes& block, const Bytes& lengthWord, std::uint16_t expected) {
    const int length = lengthOf(lengthWord);
    if (length < kRtpHeaderSize || length > static_cast<int>(block.size())) {
        return false;
    }
    const PlainPacket packet = PlainPacket::fromBytes(block.data(), length, PacketKind::kMedia);
    if (packet.payloadSize < 0) {
        return false;
    }
    if (packet.sequence() != expected) {
        say(kWarning,
            "CMMRTPSessionBase::recoverPacketWithRSFEC recover seq number is differ with request, "
            "recoveredSeq = " +
                number(packet.sequence()) + ", requestSeq = " + number(expected));
        return false;
    }
    say(kInfo, "CMMRTPSessionBase::recoverPacketWithRSFEC recoveredSeq = " + number(expected) +
                   ", recoveredTS = " + number(packet.timestamp()) + ", sourceID = " + number(m_sourceId));
    recoveredPackets.emplace(expected, packet);  // a missing packet is in neither list
    return true;
}

}  // namespace model
}  // namespace talrtp
