#include "kernels/Kernels.h"

#include <atomic>

namespace talrtp {

namespace {

// One entry per EKernelLevel of the architecture. Shuffles do nothing for XOR, so some levels share its
// kernel.
constexpr stKernels kKernels[] = {
    {KERNEL_PORTABLE, &kGfKernelPortable, &kXorKernelPortable},
#ifdef TALRTP_SIMD_X86
    {KERNEL_SSSE3, &kGfKernelSsse3, &kXorKernelSsse3},
    {KERNEL_AVX2, &kGfKernelAvx2, &kXorKernelAvx2},
    {KERNEL_AVX2_GFNI, &kGfKernelAvx2Gfni, &kXorKernelAvx2},
    {KERNEL_AVX512_GFNI, &kGfKernelAvx512Gfni, &kXorKernelAvx512},
#endif
#ifdef TALRTP_SIMD_ARM64
    {KERNEL_NEON, &kGfKernelNeon, &kXorKernelNeon},
#endif
};

// Null until the first use. Threads that come at the same time all find the same.
std::atomic<const stKernels*> s_kernels{nullptr};

}  // namespace

// Goes up through the levels to the last one before something is missing. The compiler's own test takes into
// account whether the operating system saves the registers.
EKernelLevel getHighestKernelLevel() {
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
#elif defined(TALRTP_SIMD_ARM64)
    return KERNEL_NEON;  // part of every such processor
#else
    return KERNEL_PORTABLE;
#endif
}

const stKernels& getKernels() {
    const stKernels* kernels = s_kernels.load(std::memory_order_relaxed);
    if (kernels == nullptr) {
        kernels = &kKernels[getHighestKernelLevel()];
        s_kernels.store(kernels, std::memory_order_relaxed);
    }
    return *kernels;
}

void forceKernelLevel(EKernelLevel level) {
    s_kernels.store(&kKernels[level], std::memory_order_relaxed);
}

}  // namespace talrtp
