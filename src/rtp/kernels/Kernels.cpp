#include "kernels/Kernels.h"

namespace talrtp {

namespace {

// One entry per EKernelLevel. Shuffles do nothing for XOR, so some levels share its kernel.
constexpr stKernels kKernels[] = {
    {KERNEL_PORTABLE, &kGfKernelPortable, &kXorKernelPortable},
#ifdef TALRTP_SIMD_X86
    {KERNEL_SSSE3, &kGfKernelSsse3, &kXorKernelSsse3},
    {KERNEL_AVX2, &kGfKernelAvx2, &kXorKernelAvx2},
    {KERNEL_AVX2_GFNI, &kGfKernelAvx2Gfni, &kXorKernelAvx2},
    {KERNEL_AVX512_GFNI, &kGfKernelAvx512Gfni, &kXorKernelAvx512},
#endif
};

// Goes up through the levels to the last one before something is missing. The compiler's own test takes into
// account whether the operating system saves the registers.
EKernelLevel detectLevel() {
#ifdef TALRTP_SIMD_X86
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("ssse3")) {
        return KERNEL_PORTABLE;
    }
    if (!__builtin_cpu_supports("avx2")) {
        return KERNEL_SSSE3;
    }
    if (!__builtin_cpu_supports("gfni")) {
        return KERNEL_AVX2;
    }
    if (!__builtin_cpu_supports("avx512f") || !__builtin_cpu_supports("avx512bw")) {
        return KERNEL_AVX2_GFNI;
    }
    return KERNEL_AVX512_GFNI;
#else
    return KERNEL_PORTABLE;
#endif
}

const stKernels*& current() {
    static const stKernels* kernels = &kKernels[getHighestKernelLevel()];
    return kernels;
}

}  // namespace

EKernelLevel getHighestKernelLevel() {
    static const EKernelLevel level = detectLevel();
    return level;
}

const stKernels& getKernels() {
    return *current();
}

void forceKernelLevel(EKernelLevel level) {
    current() = &kKernels[level];
}

}  // namespace talrtp
