#include "modem/fft.h"

#include "modem/four_floats.hpp"

#include <bit>
#include <cmath>
#include <numbers>
#include <utility>

// Decimation in frequency on numbers in bit-reversed order. In that order the four numbers that a
// butterfly combines lie next to each other, and all butterflies of one block share their turn,
// whose angle is a quarter circle times the block's number mirrored at the binary point (0, 1/2,
// 1/4, 3/4, ...). That fraction does not depend on the pass, so one table in bit-reversed order
// serves every pass and every smaller n. The last pass needs no turns, and combines eight numbers
// where four at a time would leave a factor of two. (Cooley and Tukey 1965; the four-way split is
// Gentleman and Sande's, 1966.)
//
// From 32 complex numbers on, rdft works on four butterflies at once. Its first pass reads the
// numbers in natural order, puts them into bit-reversed order on the way and leaves them in blocks
// of four real and four imaginary parts; the last pass returns to pairs. The inverse transform is
// the forward one with the parts exchanged, which the passes do as they read and write.

namespace {

using namespace sorvel::detail;

/// One complex number of floats, or four of FourFloats.
template <class Part>
struct Complex {
    Part re, im;
};

template <class Part>
Complex<Part> operator+(Complex<Part> x, Complex<Part> y) {
    return {x.re + y.re, x.im + y.im};
}
template <class Part>
Complex<Part> operator-(Complex<Part> x, Complex<Part> y) {
    return {x.re - y.re, x.im - y.im};
}
template <class Part, class Factor>
Complex<Part> operator*(Complex<Part> x, Complex<Factor> y) {
    return {x.re * y.re - x.im * y.im, x.im * y.re + x.re * y.im};
}
template <class Part>
Complex<Part> quarterTurn(Complex<Part> z) {
    return {-z.im, z.re};
}
template <class Part>
Complex<Part> eighthTurn(Complex<Part> z) {
    constexpr float kDiagonal = std::numbers::sqrt2_v<float> / 2;
    return {(z.re - z.im) * kDiagonal, (z.re + z.im) * kDiagonal};
}

// How numbers lie in memory. Distances and `l` count floats.

enum class Direction { Forward, Inverse };

template <Direction direction>
struct Pair {
    static constexpr int kFloats = 2;
    static constexpr int kReal = direction == Direction::Forward ? 0 : 1;

    static Complex<float> at(const float* a) { return {a[kReal], a[1 - kReal]}; }
    static void put(float* a, Complex<float> z) {
        a[kReal] = z.re;
        a[1 - kReal] = z.im;
    }
};

/// Pairs in memory, but four real and four imaginary parts in registers.
template <Direction direction>
struct FourPairs {
    static constexpr int kFloats = 8;

    static Complex<FourFloats> at(const float* a) {
        const FourFloats low = loaded(a), high = loaded(a + 4);
        Complex<FourFloats> z{picked<0, 2, 4, 6>(low, high), picked<1, 3, 5, 7>(low, high)};
        if (direction == Direction::Inverse) std::swap(z.re, z.im);
        return z;
    }
    static void put(float* a, Complex<FourFloats> z) {
        if (direction == Direction::Inverse) std::swap(z.re, z.im);
        store(a, picked<0, 4, 1, 5>(z.re, z.im));
        store(a + 4, picked<2, 6, 3, 7>(z.re, z.im));
    }
};

/// The last number first.
struct FourPairsReversed {
    using Pairs = FourPairs<Direction::Forward>;

    static Complex<FourFloats> at(const float* a) {
        const auto z = Pairs::at(a);
        return {reversed(z.re), reversed(z.im)};
    }
    static void put(float* a, Complex<FourFloats> z) { Pairs::put(a, {reversed(z.re), reversed(z.im)}); }
};

/// Four real parts, then four imaginary ones.
struct Block {
    static constexpr int kFloats = 8;

    static Complex<FourFloats> at(const float* a) { return {loaded(a), loaded(a + 4)}; }
    static void put(float* a, Complex<FourFloats> z) {
        store(a, z.re);
        store(a + 4, z.im);
    }
};

/// Outputs of a butterfly, or of four.
template <class Part>
struct Four {
    Complex<Part> y0, y1, y2, y3;
};

/// Inputs 1 and 2 stand in swapped order, being bit-reversed. The outputs are yet to be turned.
template <class Part>
Four<Part> butterfly(Complex<Part> x0, Complex<Part> x1, Complex<Part> x2, Complex<Part> x3) {
    const auto even = x0 + x1, evenDifference = x0 - x1;
    const auto odd = x2 + x3, oddDifference = quarterTurn(x2 - x3);
    return {even + odd, evenDifference + oddDifference, even - odd, evenDifference - oddDifference};
}

template <class From>
auto butterflyAt(const float* a, int l) {
    return butterfly(From::at(a), From::at(a + l), From::at(a + 2 * l), From::at(a + 3 * l));
}

template <class To, class Part>
void putFour(float* a, int l, const Four<Part>& y) {
    To::put(a, y.y0);
    To::put(a + l, y.y1);
    To::put(a + 2 * l, y.y2);
    To::put(a + 3 * l, y.y3);
}

/// The turns of outputs 1, 2 and 3 of every butterfly in a block, or in four.
template <class Factor>
struct Turns {
    Complex<Factor> first, second, third;

    /// `entry` is the table's at the block, `half` the one at half its number.
    Turns(int block, Complex<Factor> entry, Complex<Factor> half)
        // Twice the angle: dropping the last bit doubles the mirrored fraction,
        // modulo a quarter turn.
        : first(entry), second(block % 2 == 0 ? half : quarterTurn(half)), third(first * second) {}

    template <class Part>
    Four<Part> of(const Four<Part>& y) const {
        return {y.y0, y.y1 * first, y.y2 * second, y.y3 * third};
    }
};

template <class Layout>
void pass(int n, int l, float* a, const float* w) {
    const auto entry = [w](int i) { return Pair<Direction::Forward>::at(w + 2 * i); };
    for (int block = 0; block * 4 * l < n; ++block) {
        const Turns<float> turns(block, entry(block), entry(block / 2));
        float* const start = a + block * 4 * l;
        for (int r = 0; r < l; r += Layout::kFloats)
            putFour<Layout>(start + r, l, turns.of(butterflyAt<Layout>(start + r, l)));
    }
}

template <class From, class To>
void lastPass(int n, int l, float* a) {
    const auto putTwo = [n, a](int r, auto x, auto y) {
        To::put(a + r, x + y);
        To::put(a + r + n / 2, x - y);
    };
    for (int r = 0; r < l; r += From::kFloats) {
        if (8 * l == n) {
            const auto y = butterflyAt<From>(a + r, l), z = butterflyAt<From>(a + r + n / 2, l);
            putTwo(r, y.y0, z.y0);
            putTwo(r + l, y.y1, eighthTurn(z.y1));
            putTwo(r + 2 * l, y.y2, quarterTurn(z.y2));
            putTwo(r + 3 * l, y.y3, quarterTurn(eighthTurn(z.y3)));
        } else if (4 * l == n) {
            putFour<To>(a + r, l, butterflyAt<From>(a + r, l));
        } else if (2 * l == n) {
            putTwo(r, From::at(a + r), From::at(a + r + l));
        }
    }
}

/// The passes over numbers `l` floats apart and more.
template <class From, class To>
void passes(int n, int l, float* a, const float* w) {
    for (; 8 * l < n; l *= 4) pass<From>(n, l, a, w);
    lastPass<From, To>(n, l, a);
}

/// The first butterflies of four neighbours, each with the numbers a quarter, a half and three
/// quarters of the array further on. In bit-reversed order they become one block in every quarter,
/// those of neighbours 1 and 2 in swapped order; `block` is the number of the one
/// in the first quarter.
///
/// Inlined by force: handing the result over in memory takes 8 % of the whole transform.
template <class From>
[[gnu::always_inline]] inline Four<FourFloats> firstButterflies(int n, const float* a, const float* w,
                                                                int block) {
    const auto entries = [w](int at, int apart) {
        FourFloats x0 = loaded(w + at), x1 = loaded(w + at + 2 * apart);
        FourFloats x2 = loaded(w + at + apart), x3 = loaded(w + at + 3 * apart);
        transpose(x0, x1, x2, x3); // the entries behind, at the end cosines, come along unused
        return Complex<FourFloats>{x0, x1};
    };
    const Turns<FourFloats> turns(block, entries(2 * block, n / 16), entries(block / 2 * 2, n / 32));
    const float *const half = a + n / 2, *const quarter = a + n / 4;
    auto y = turns.of(butterfly(From::at(a), From::at(half), From::at(quarter), From::at(half + n / 4)));
    transpose(y.y0.re, y.y1.re, y.y2.re, y.y3.re);
    transpose(y.y0.im, y.y1.im, y.y2.im, y.y3.im);
    return {y.y0, y.y2, y.y1, y.y3};
}

template <class From>
void firstPass(int n, float* a, const float* w) {
    const unsigned count = static_cast<unsigned>(n) / 32;
    for (unsigned i = 0, mirrored = 0; i < count; ++i) {
        float *const here = a + 8 * i, *const there = a + 8 * mirrored;
        if (i <= mirrored) {
            const auto y = firstButterflies<From>(n, here, w, static_cast<int>(mirrored));
            if (i < mirrored)
                putFour<Block>(here, n / 4, firstButterflies<From>(n, there, w, static_cast<int>(i)));
            putFour<Block>(there, n / 4, y);
        }
        // Counts with the carry running towards the lower bits.
        const unsigned next = std::bit_floor(mirrored ^ (count - 1));
        mirrored = (mirrored & (next - 1)) | next;
    }
}

/// Number k and its mirror image move by opposite amounts, or four and four do.
template <class Low, class High, class Part>
void moveApart(float* low, float* high, Complex<Part> weight) {
    const auto x = Low::at(low), y = High::at(high);
    const auto move = Complex<Part>{x.re - y.re, x.im + y.im} * weight;
    Low::put(low, x - move);
    High::put(high, {y.re + move.re, y.im - move.im});
}

/// Splits (forward) or joins the spectra of the even and odd numbers.
template <Direction direction>
void realPairs(int n, float* a, int nc, const float* c) {
    using One = Pair<Direction::Forward>;
    using Fours = FourPairs<Direction::Forward>;
    constexpr float kSide = direction == Direction::Forward ? 1.0F : -1.0F;
    const int step = 4 * nc / n; // more than 1 with the tables of a larger n
    int k = 1;
    for (; k < n / 4 && (k < 4 || step != 1); ++k) {
        const Complex<float> weight{0.5F - c[nc - k * step], c[k * step] * kSide};
        moveApart<One, One>(a + 2 * k, a + n - 2 * k, weight);
    }
    for (; k < n / 4; k += 4) {
        const Complex<FourFloats> weight{0.5F - reversed(loaded(c + nc - k - 3)), loaded(c + k) * kSide};
        moveApart<Fours, FourPairsReversed>(a + 2 * k, a + n - 2 * k - 6, weight);
    }
}

/// Kept out of line: inlined, its loops share too few registers with their surroundings (4 % slower).
template <Direction direction>
[[gnu::noinline]] void complexTransform(int n, float* a, int* ip, const float* w) {
    if (n >= 64) {
        firstPass<FourPairs<direction>>(n, a, w);
        passes<Block, FourPairs<direction>>(n, Block::kFloats, a, w);
    } else {
        bitrv2(n, ip + 2, a);
        passes<Pair<direction>, Pair<direction>>(n, 2, a, w);
    }
}

template <class Exchange>
void reverseBits(int n, Exchange exchange) {
    const int half = n / 2; // in floats, the weight of the highest index bit
    for (int i = 0, j = 0; i < n; i += 2) {
        if (i <= j) exchange(i, j);
        int bit = half;
        while (bit >= 2 && (j & bit) != 0) {
            j ^= bit;
            bit /= 2;
        }
        j |= bit & ~1;
    }
}

} // namespace

void rdft(int n, int isgn, float* a, int* ip, float* w) {
    if (n < 2 || (n & (n - 1)) != 0) return;
    if (n > 4 * ip[0]) makewt(n / 4, ip, w);
    if (n > 4 * ip[1]) makect(n / 4, ip, w + ip[0]);
    const int nc = ip[1];
    const float* const c = w + ip[0];

    if (isgn >= 0) {
        complexTransform<Direction::Forward>(n, a, ip, w);
        rftfsub(n, a, nc, c);
        const float difference = a[0] - a[1];
        a[0] += a[1];
        a[1] = difference;
    } else {
        a[1] = 0.5F * (a[0] - a[1]);
        a[0] -= a[1];
        rftbsub(n, a, nc, c);
        complexTransform<Direction::Inverse>(n, a, ip, w);
    }
}

void makewt(int nw, int* ip, float* w) {
    ip[0] = nw;
    ip[1] = 1;
    if (nw <= 2) return;
    const int nwh = nw / 2;
    const auto delta = static_cast<float>(std::numbers::pi / 4 / nwh);
    w[0] = 1.0F;
    w[1] = 0.0F;
    w[nwh] = std::cos(delta * static_cast<float>(nwh));
    w[nwh + 1] = w[nwh];
    if (nwh <= 2) return;
    for (int j = 2; j < nwh; j += 2) {
        const float x = std::cos(delta * static_cast<float>(j));
        const float y = std::sin(delta * static_cast<float>(j));
        w[j] = x;
        w[j + 1] = y;
        w[nw - j] = y;
        w[nw - j + 1] = x;
    }
    bitrv2(nw, ip + 2, w);
}

void makect(int nc, int* ip, float* c) {
    ip[1] = nc;
    if (nc <= 1) return;
    const int nch = nc / 2;
    const auto delta = static_cast<float>(std::numbers::pi / 4 / nch);
    c[0] = std::cos(delta * static_cast<float>(nch));
    c[nch] = 0.5F * c[0];
    for (int j = 1; j < nch; ++j) {
        c[j] = 0.5F * std::cos(delta * static_cast<float>(j));
        c[nc - j] = 0.5F * std::sin(delta * static_cast<float>(j));
    }
}

void bitrv2(int n, int* /*ip*/, float* a) {
    reverseBits(n, [a](int i, int j) {
        std::swap(a[i], a[j]);
        std::swap(a[i + 1], a[j + 1]);
    });
}

void bitrv2conj(int n, int* /*ip*/, float* a) {
    reverseBits(n, [a](int i, int j) {
        std::swap(a[i], a[j]);
        std::swap(a[i + 1], a[j + 1]);
        a[i + 1] = -a[i + 1];
        if (i != j) a[j + 1] = -a[j + 1];
    });
}

void cftfsub(int n, float* a, const float* w) {
    passes<Pair<Direction::Forward>, Pair<Direction::Forward>>(n, 2, a, w);
}
void cftbsub(int n, float* a, const float* w) {
    passes<Pair<Direction::Inverse>, Pair<Direction::Inverse>>(n, 2, a, w);
}
void cft1st(int n, float* a, const float* w) { pass<Pair<Direction::Forward>>(n, 2, a, w); }
void cftmdl(int n, int l, float* a, const float* w) { pass<Pair<Direction::Forward>>(n, l, a, w); }
void rftfsub(int n, float* a, int nc, const float* c) { realPairs<Direction::Forward>(n, a, nc, c); }
void rftbsub(int n, float* a, int nc, const float* c) { realPairs<Direction::Inverse>(n, a, nc, c); }
