#include "kernels/GfKernel.h"
#include "kernels/GfTables.h"

namespace talrtp {

namespace {

void addWholeProduct(unsigned char* dst, const unsigned char* src, unsigned char c, std::size_t size) {
    const unsigned char* const products = gf_mul_table[c];
    for (std::size_t i = 0; i < size; ++i) {
        dst[i] = static_cast<unsigned char>(dst[i] ^ products[src[i]]);
    }
}

void multiply(const stGfProduct& product, std::size_t size) {
    for (int r = 0; r < product.rows; ++r) {
        unsigned char* const dst = product.dst[r];
        for (std::size_t i = 0; i < size; ++i) {
            dst[i] = 0;
        }
        for (int j = 0; j < product.count; ++j) {
            addWholeProduct(dst, product.sources[j], product.coefficients[r * product.stride + j], size);
        }
    }
}

}  // namespace

const stGfKernel kGfKernelPortable = {multiply, addWholeProduct};

}  // namespace talrtp
