/// SORVEL_TARGET_CLONES before a function compiles it, with all it calls here, twice on x86-64: for
/// every processor, and for those with AVX2 and fused products; the loader picks one. A loop that the
/// compiler turns into vectors then works on eight floats at a time, and std::fma is one instruction
/// instead of a call.
///
///     SORVEL_TARGET_CLONES void scale(std::span<float> x) { for (float& v : x) v *= 0.5F; }
///
/// Products are fused only where std::fma says so (contraction is off in this folder), so both give the
/// same bits. Nothing happens where the loader cannot pick (other processors, a C library other than
/// glibc), where the build already asks for AVX2, under sanitizers, which do not run yet when the loader
/// picks, and with clang: 19 leaves out of the clones what they call inline, and then fails to link.
#pragma once

#define SORVEL_TARGET_CLONES

#if defined(__x86_64__) && defined(__gnu_linux__) && defined(__GNUC__) && !defined(__clang__) &&             \
    !defined(__AVX2__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#include <features.h>
#ifdef __GLIBC__
#undef SORVEL_TARGET_CLONES
#define SORVEL_TARGET_CLONES __attribute__((flatten, target_clones("arch=x86-64-v3", "default")))
#endif
#endif
