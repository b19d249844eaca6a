/// SORVEL_DEEP_CLONES before a function compiles it, with all it calls here, twice on x86-64: for every
/// processor, and for those with AVX2 and fused products; the loader picks one. Loops that become vectors
/// then work on eight floats at a time.
///
/// Nothing happens where the loader cannot pick (other processors, a C library other than glibc), where
/// the build already asks for AVX2, under sanitizers, which do not run yet when the loader picks, and with
/// clang, whose clones leave out what they call inline.
#pragma once

#define SORVEL_DEEP_CLONES

#if defined(__x86_64__) && defined(__gnu_linux__) && defined(__GNUC__) && !defined(__clang__) &&             \
    !defined(__AVX2__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#include <features.h>
#ifdef __GLIBC__
#undef SORVEL_DEEP_CLONES
#define SORVEL_DEEP_CLONES __attribute__((flatten, target_clones("arch=x86-64-v3", "default")))
#endif
#endif
