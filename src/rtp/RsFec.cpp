// The exported operations of the Reed-Solomon code: limits, trace lines and return codes. The arithmetic is
// in fec/.

#include <talrtp/RsFec.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>

#include "RsFecLines.h"
#include "TalRtpTraceLine.h"
#include "fec/CodeMatrix.h"
#include "fec/DecodingMatrix.h"
#include "fec/Erasures.h"
#include "fec/GaloisField.h"
#include "kernels/GfKernel.h"
#include "kernels/XorKernel.h"

namespace talrtp {

// --- The field ---

bool m_bInited = false;

unsigned char gf_divide(unsigned char a, unsigned char b) {
    if (b == 0) {
        return 0;
    }
    // Compatibility: a = 0 is not set apart. Its logarithm counts as 255, so that 0 / b is the inverse of b.
    return gf_exp[(kGroupOrder + gf_log[a] - gf_log[b]) % kGroupOrder];
}

void gf_add(unsigned char* dst, unsigned char* src, int size) {
    if (size > 0) {
        // Compatibility: whole groups of 16 bytes only.
        xorBlocks(dst, dst, src, static_cast<std::size_t>(size) / 16 * 16);
    }
}

void gf_addmul(unsigned char* dst, unsigned char* src, unsigned char c, int size) {
    if (c != 0 && size > 0) {
        addProduct(dst, src, c, static_cast<std::size_t>(size));
    }
}

// --- Models ---

int CRsFec::InitRsCoding() {
    // Any thread may call this, and a plain `bool` is what hosts know.
    if (!__atomic_load_n(&m_bInited, __ATOMIC_RELAXED)) {
        __atomic_store_n(&m_bInited, true, __ATOMIC_RELAXED);
    }
    return 0;
}

rs_param_* CRsFec::CreateRsModel(int k, int n) {
    InitRsCoding();
    if (k < 1 || n < k || n > kFieldSize) {
        return nullptr;
    }
    const std::size_t size = static_cast<std::size_t>(k) * static_cast<std::size_t>(n);
    std::unique_ptr<rs_param_> model(new (std::nothrow) rs_param_{k, n, nullptr});
    std::unique_ptr<unsigned char[]> matrix(new (std::nothrow) unsigned char[size]);
    if (!model || !matrix) {
        return nullptr;
    }
    fillCodeMatrix(matrix.get(), k, n);
    model->enc_matrix = matrix.release();
    return model.release();
}

void CRsFec::DeleteRsModel(rs_param_* model) {
    if (model != nullptr) {
        delete[] model->enc_matrix;
        delete model;
    }
}

// --- Encoding ---

void reportTooLongToEncode(int maxSize) {
    TAL_TRACE(WARNING,
              "CRsFec::Encode, max packet size is " << maxSize << ", bigger than MAX_PACKET_SIZE, skip it!");
}

namespace {

int getLargestSize(const int* sizes, int count) {
    return *std::max_element(sizes, sizes + count);
}

}  // namespace

int CRsFec::Encode(rs_param_* model, unsigned char** src, int size, unsigned char** dst) {
    if (size > MAX_PACKET_SIZE) {
        TAL_TRACE(WARNING,
                  "CRsFec::Encode, packet size is " << size << ", bigger than MAX_PACKET_SIZE, skip it!");
        return 1;
    }
    encodeBlocks(*model, src, nullptr, size, dst);
    return 0;
}

int CRsFec::Encode(rs_param_* model, unsigned char** src, int* sizes, unsigned char** dst) {
    const int maxSize = getLargestSize(sizes, model->k);
    if (maxSize > MAX_PACKET_SIZE) {
        reportTooLongToEncode(maxSize);
        return 1;
    }
    encodeBlocks(*model, src, sizes, maxSize, dst);
    return 0;
}

// --- Decoding ---

void reportTooLongToDecode(int maxSize) {
    TAL_TRACE(WARNING,
              "CRsFec::Decode, max packet size is " << maxSize << ", bigger than MAX_PACKET_SIZE, skip it!");
}

int bld_dec_mat(rs_param_* model, unsigned char* matrix, int* index) {
    return fillDecodingMatrix(*model, matrix, index) ? 0 : -1;
}

int CRsFec::Decode(rs_param_* model, unsigned char** blocks, int size, int* index, unsigned char** out,
                   int* lost, int lostCount) {
    if (size > MAX_PACKET_SIZE) {
        TAL_TRACE(WARNING,
                  "CRsFec::Decode, packet size is " << size << ", bigger than MAX_PACKET_SIZE, skip it!");
        return 1;
    }
    return rebuildBlocks(*model, {blocks, nullptr, size, index}, {out, lost, lostCount}) ? 0 : 1;
}

int CRsFec::Decode(rs_param_* model, unsigned char** blocks, int* sizes, int* index, unsigned char** out,
                   int* lost, int lostCount) {
    const int maxSize = getLargestSize(sizes, model->k);
    if (maxSize > MAX_PACKET_SIZE) {
        reportTooLongToDecode(maxSize);
        return 1;
    }
    return rebuildBlocks(*model, {blocks, sizes, maxSize, index}, {out, lost, lostCount}) ? 0 : 1;
}

}  // namespace talrtp
