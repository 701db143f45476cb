// The Reed-Solomon erasure code over GF(2^8) and the cache of its models.
//
// From k source blocks the code makes n - k parity blocks. Any k of these n blocks suffice to rebuild the
// missing source blocks, as long as their positions are known. The code is systematic: positions 0..k-1 are
// the source blocks themselves, position k + i is parity block i. Its matrix is the Vandermonde matrix of the
// points 0, 1, alpha, alpha^2, ..., made systematic by the inverse of its top k x k part.
//
// A model holds the matrix of one pair (k, n). Borrow it from `GetRsModel`, which shares models between all
// sessions of the process, or own one through `CRsFec::CreateRsModel` and `CRsFec::DeleteRsModel`.
//
// Any thread may call any of these functions at any time. Nothing here takes a lock.

#ifndef TALRTP_RSFEC_H
#define TALRTP_RSFEC_H

#include <talrtp/TalRtpDefs.h>

namespace talrtp {

// One code model. `CRsFec::CreateRsModel` makes it; it is read-only afterwards.
struct rs_param_ {
    int k;  // number of source blocks, 1..256
    int n;  // number of blocks in all, k..256
    // n rows of k coefficients, row by row; owned. Rows 0..k-1 are the identity; row k + i yields parity i.
    unsigned char* enc_matrix;
};

// The field: polynomial x^8 + x^4 + x^3 + x^2 + 1 (0x11D), alpha = 2. All tables are constant data.
TALRTP_API extern bool m_bInited;                   // set by the first `InitRsCoding`
TALRTP_API extern const unsigned char gf_exp[510];  // alpha^i; gf_exp[i + 255] = gf_exp[i]
TALRTP_API extern const int gf_log[256];            // gf_log[gf_exp[i]] = i for i < 255; gf_log[0] = 255
TALRTP_API extern const unsigned char gf_mul_table[256][256];  // [a][b] = a * b
TALRTP_API extern const unsigned char gf_div_table[256][256];  // [a][b] = a / b; row 0 and column 0 are 0

// The codec. It has no state of its own; every operation is static.
class TALRTP_API CRsFec {
public:
    // Sets `m_bInited`. Returns 0. The call is optional: the tables are constants.
    static int InitRsCoding();

    // Builds the model of k source blocks among n. Returns it owned: free it with `DeleteRsModel`. Returns
    // null, without a trace, when k < 1, n < k, k > 256, n > 256 or memory is short.
    static rs_param_* CreateRsModel(int k, int n);
    // Takes a model of `CreateRsModel` and frees it. Null is ignored.
    static void DeleteRsModel(rs_param_* model);

    // Makes the n - k parity blocks of k source blocks of `size` bytes each. Borrows everything: `src` holds
    // k pointers, `dst` n - k pointers to `size` bytes each, which must not overlap the sources.
    // Returns 0; or 1, with a WARNING and `dst` untouched, when size is above MAX_PACKET_SIZE.
    static int Encode(rs_param_* model, unsigned char** src, int size, unsigned char** dst);
    // The same for source blocks of different sizes: src[j] has sizes[j] bytes and counts as zero after
    // them. The parity blocks are as long as the longest source block, to which the size limit applies.
    static int Encode(rs_param_* model, unsigned char** src, int* sizes, unsigned char** dst);

    // Rebuilds source blocks from k received blocks of `size` bytes each. Borrows everything. `blocks` holds
    // k pointers. index[j] is the position, 0..n-1, of blocks[j]; the order is free, and no position occurs
    // twice. For each r < lostCount, source block lost[r], 0..k-1, is written to out[r], a buffer of `size`
    // bytes that must not overlap the blocks.
    // Returns 0, with `index` unchanged; or 1, with `out` untouched, when size is above MAX_PACKET_SIZE (with
    // a WARNING), when a lost[r] is outside 0..k-1 or when the positions determine no solution (silently;
    // `index` may then be in another order).
    static int Decode(rs_param_* model, unsigned char** blocks, int size, int* index, unsigned char** out,
                      int* lost, int lostCount);
    // The same for received blocks of different sizes: blocks[j] has sizes[j] bytes and counts as zero after
    // them. Each out[r] is written over the size of the longest block, to which the size limit applies.
    static int Decode(rs_param_* model, unsigned char** blocks, int* sizes, int* index, unsigned char** out,
                      int* lost, int lostCount);
};

// Builds the decoding matrix for k received blocks whose positions are index[0..k-1] into `matrix`, k * k
// bytes: row s yields source block s, column j belongs to the block at index[j]. Returns 0 with `index`
// unchanged; or -1 when a position is outside 0..n-1, a source position occurs twice or the positions
// determine no solution; `index` may then be in another order. Borrows everything.
TALRTP_API int bld_dec_mat(rs_param_* model, unsigned char* matrix, int* index);

// Adds c times `src` to `dst`, over `size` bytes: dst[i] ^= c * src[i]. `dst` may equal `src`; other overlaps
// are not supported.
TALRTP_API void gf_addmul(unsigned char* dst, unsigned char* src, unsigned char c, int size);
// Adds `src` to `dst`, dst[i] ^= src[i], over the whole groups of 16 bytes only: the last size % 16 bytes
// stay as they are. `dst` may equal `src`; other overlaps are not supported.
TALRTP_API void gf_add(unsigned char* dst, unsigned char* src, int size);
// Returns a / b, or 0 when b is 0. Note that 0 / b returns the inverse of b, not 0: gf_log[0] is 255.
TALRTP_API unsigned char gf_divide(unsigned char a, unsigned char b);

// Returns the model of (k, n) from the process-wide cache, and builds it on a miss. The cache lends it at
// least until all those are gone who were its users at the time of the call; without any user, until the next
// thread becomes one. Returns null when `CreateRsModel` refuses (k, n); the next call tries again.
TALRTP_API rs_param_* GetRsModel(int k, int n);
// Counts one more user of the cache; each session is one. The first user empties the cache first.
// Returns the new number of users.
TALRTP_API unsigned RsMapRetain();
// Counts one user less. The last user empties the cache; a call too many empties it as well.
TALRTP_API void RsMapRelease();
// Frees every cached model and empties the cache, whatever the number of users: no thread may use a model
// then, or send with Reed-Solomon FEC.
TALRTP_API void RsMapClear();

}  // namespace talrtp

#endif  // TALRTP_RSFEC_H
