// The missing source blocks of the Reed-Solomon code, from k received blocks at any positions.
//
// Of the k equations that the received blocks stand for, those of the present source blocks solve themselves.
// One equation per parity block and one unknown per missing source block remain. The solution is unique,
// so the bytes are those that the whole decoding matrix yields.

#ifndef TALRTP_SRC_FEC_ERASURES_H
#define TALRTP_SRC_FEC_ERASURES_H

#include <talrtp/RsFec.h>

namespace talrtp {

// The k blocks that a decode reads. **Borrowed.**
struct stReceivedBlocks {
    unsigned char* const* data;
    const int* sizes;  // of each block; null when all have `length` bytes
    int length;        // of the longest block
    int* index;        // the position of each block
};

// The blocks that it writes, `length` bytes each. **Borrowed.**
struct stLostBlocks {
    unsigned char* const* data;
    const int* index;  // the source position of each block
    int count;
};

// Rebuilds source blocks in the cheapest way of those below. False when a lost block is no source block, the
// positions determine no solution or memory is short. Nothing is written then, but the index may be in
// another order.
bool rebuildBlocks(const rs_param_& model, const stReceivedBlocks& received, const stLostBlocks& lost);

// The three ways. The first two return false, with nothing changed, also when they do not apply.

// Rebuilds the only missing block: one equation in one unknown.
bool rebuildSingle(const rs_param_& model, const stReceivedBlocks& received, const stLostBlocks& lost);
// Rebuilds blocks that are missing, each asked for once: one equation for each.
bool rebuildMissing(const rs_param_& model, const stReceivedBlocks& received, const stLostBlocks& lost);
// Rebuilds any source blocks, present ones too, through the whole decoding matrix.
bool rebuildAny(const rs_param_& model, const stReceivedBlocks& received, const stLostBlocks& lost);

}  // namespace talrtp

#endif  // TALRTP_SRC_FEC_ERASURES_H
