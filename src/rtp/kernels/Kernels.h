// The kernels in use: the best that the processor has, found once.

#ifndef TALRTP_SRC_KERNELS_KERNELS_H
#define TALRTP_SRC_KERNELS_KERNELS_H

#include "kernels/GfKernel.h"
#include "kernels/XorKernel.h"

namespace talrtp {

// The instruction sets that kernels are written for, a ladder for each architecture: a level contains those
// before it.
enum EKernelLevel {
    KERNEL_PORTABLE = 0,
    // x86-64
    KERNEL_SSSE3 = 1,
    KERNEL_AVX2,
    KERNEL_AVX2_GFNI,
    KERNEL_AVX512_GFNI,
    // arm64
    KERNEL_NEON = 1,
};

struct stKernels {
    EKernelLevel level;
    const stGfKernel* gf;
    const stXorKernel* exclusiveOr;
};

// Returns the kernels in use.
const stKernels& getKernels();

// Returns the highest level that this processor, and this build, has.
EKernelLevel getHighestKernelLevel();

// For tests and benchmarks: makes `level`, which is not above the highest one, the level in use.
void forceKernelLevel(EKernelLevel level);

}  // namespace talrtp

#endif  // TALRTP_SRC_KERNELS_KERNELS_H
