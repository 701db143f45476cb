#include "model/Action.h"

namespace talrtp {
namespace model {

std::string Action::describe() const {
    switch (kind) {
        case kForceHandover:
            return "ForceHandover(" + std::to_string(first) + ")";
        case kSetPayloadType:
            return "SetPayloadType(" + std::to_string(first) + ", " + std::to_string(second) + ")";
        case kSetFecType:
            return "SetFecType(" + std::to_string(first) + ")";
        case kSetMask:
            return "mask " + std::to_string(static_cast<long>(first));
        case kInput:
            break;
    }
    static const char* const kDigits = "0123456789abcdef";
    std::string text = isNull ? "null" : "";
    for (unsigned char byte : data) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xf];
    }
    return "InputReceivedData(" + text + ", " + std::to_string(length) + ", " + std::to_string(time) + ")";
}

}  // namespace model
}  // namespace talrtp
