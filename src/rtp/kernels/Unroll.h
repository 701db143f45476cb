// Unrolls the loop after it, so that arrays of vectors stay in registers.

#ifndef TALRTP_SRC_KERNELS_UNROLL_H
#define TALRTP_SRC_KERNELS_UNROLL_H

#ifdef __clang__
#define TALRTP_UNROLL _Pragma("unroll")
#else
#define TALRTP_UNROLL _Pragma("GCC unroll 16")
#endif

#endif  // TALRTP_SRC_KERNELS_UNROLL_H
