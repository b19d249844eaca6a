/// Real discrete Fourier transform, in place, single precision, radix 4.
///
///     float frame[1024] = {...}, w[512];
///     int ip[25] = {0};               // floor(sqrt(1024 / 2)) + 3
///     rdft(1024, 1, frame, ip, w);
///
/// Nothing here allocates, throws or keeps state outside the arguments. An array set belongs to one
/// thread at a time.
#pragma once

/// Transforms n real numbers.
///
/// Forward (isgn >= 0): with R[k] = sum a[j] cos(2 pi jk / n) and I[k] = sum a[j] sin(2 pi jk / n),
/// the result is a[0] = R[0], a[1] = R[n/2], a[2k] = R[k], a[2k+1] = I[k] for 0 < k < n/2,
/// unscaled. Inverse (isgn < 0): takes that layout and returns n/2 times the numbers; scale by 2/n
/// for a round trip.
///
/// @param n   a power of two from 2 on; any other n changes nothing
/// @param ip  floor(sqrt(n/2)) + 3 ints; ip[0] = ip[1] = 0 before the first call with this set
/// @param w   n/2 floats, built by the first call for this n or a larger one, and reused
void rdft(int n, int isgn, float* a, int* ip, float* w);

/// Tables. makewt: nw / 2 complex turns exp(i pi/2 m / (nw/2)), in bit-reversed order. makect: nc
/// halved cosines 0.5 cos(pi/2 j / nc) for j > 0, and cos(pi/4) at 0.
void makewt(int nw, int* ip, float* w);
void makect(int nc, int* ip, float* c);

/// Bit-reversal permutation of n/2 complex numbers; the second form conjugates all of them as well.
/// `ip` is unused scratch, part of the calling convention.
void bitrv2(int n, int* ip, float* a);
void bitrv2conj(int n, int* ip, float* a);

/// Complex transforms of n/2 numbers in bit-reversed order to natural order, exponent +i (cftfsub)
/// or -i (cftbsub), unscaled. cft1st and cftmdl are their radix-4 passes over neighbours and over
/// numbers `l` floats apart.
void cftfsub(int n, float* a, const float* w);
void cftbsub(int n, float* a, const float* w);
void cft1st(int n, float* a, const float* w);
void cftmdl(int n, int l, float* a, const float* w);

/// Between the complex transform of n/2 pairs and the real one of n numbers: after the forward
/// transform, and before the inverse one. `c` holds nc cosines of makect.
void rftfsub(int n, float* a, int nc, const float* c);
void rftbsub(int n, float* a, int nc, const float* c);
