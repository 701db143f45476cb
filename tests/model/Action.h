// One call of a host on a session.

#ifndef TALRTP_TESTS_MODEL_ACTION_H
#define TALRTP_TESTS_MODEL_ACTION_H

#include "model/PlainPacket.h"

#include <cstdint>
#include <string>

namespace talrtp {
namespace model {

struct Action {
    enum Kind { kInput, kForceHandover, kSetPayloadType, kSetFecType, kSetMask };

    Kind kind;
    Bytes data;
    bool isNull;  // `data` is passed as null
    int length;   // as passed, not always that of `data`
    std::uint64_t time;
    unsigned long first;   // timestamp, payload type, FEC type, mask
    unsigned long second;  // FEC payload type

    std::string describe() const;
};

}  // namespace model
}  // namespace talrtp

#endif  // TALRTP_TESTS_MODEL_ACTION_H
