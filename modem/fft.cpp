#include "modem/fft.h"

#include <cmath>
#include <numbers>
#include <utility>

// Decimation in frequency on numbers in bit-reversed order. In that order the four numbers that a butterfly
// combines lie next to each other, and all butterflies of one block share their turn, whose angle is a
// quarter circle times the block's number mirrored at the binary point (0, 1/2, 1/4, 3/4, ...). That fraction
// does not depend on the pass, so one table in bit-reversed order serves every pass and every smaller n.
// (Cooley and Tukey 1965; the four-way split is Gentleman and Sande's, 1966.)

namespace {

struct Complex {
    float re, im;
};

Complex at(const float* a) { return {a[0], a[1]}; }
void put(float* a, Complex z) {
    a[0] = z.re;
    a[1] = z.im;
}
Complex operator+(Complex x, Complex y) { return {x.re + y.re, x.im + y.im}; }
Complex operator-(Complex x, Complex y) { return {x.re - y.re, x.im - y.im}; }
Complex operator*(Complex x, Complex y) { return {x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re}; }

enum class Direction { Forward, Inverse };

template <Direction direction>
Complex quarterTurn(Complex z) {
    return direction == Direction::Forward ? Complex{-z.im, z.re} : Complex{z.im, -z.re};
}

/// The turns of outputs 1, 2 and 3 of every butterfly in a block.
struct Turns {
    Complex first, second, third;

    template <Direction direction>
    static Turns ofBlock(int block, const float* w) {
        const auto entry = [w](int i) {
            const Complex z = at(w + 2 * i);
            return direction == Direction::Forward ? z : Complex{z.re, -z.im};
        };
        // Twice the angle: dropping the last bit doubles the mirrored fraction, modulo a quarter turn.
        const Complex half = entry(block / 2);
        const Complex first = entry(block);
        const Complex second = block % 2 == 0 ? half : quarterTurn<direction>(half);
        return {first, second, first * second};
    }
};

/// Outputs of one butterfly, before they are turned. Inputs 1 and 2 stand in swapped order, being
/// bit-reversed.
template <Direction direction>
struct Butterfly {
    Complex y0{}, y1{}, y2{}, y3{};

    Butterfly(const float* a, int l) {
        const Complex even = at(a) + at(a + l), evenDifference = at(a) - at(a + l);
        const Complex odd = at(a + 2 * l) + at(a + 3 * l);
        const Complex oddDifference = quarterTurn<direction>(at(a + 2 * l) - at(a + 3 * l));
        y0 = even + odd;
        y1 = evenDifference + oddDifference;
        y2 = even - odd;
        y3 = evenDifference - oddDifference;
    }
};

template <Direction direction>
void pass(int n, int l, float* a, const float* w) {
    for (int block = 0; block * 4 * l < n; ++block) {
        const Turns turns = Turns::ofBlock<direction>(block, w);
        float* const start = a + block * 4 * l;
        for (int r = 0; r < l; r += 2) {
            const Butterfly<direction> b(start + r, l);
            put(start + r, b.y0);
            put(start + r + l, b.y1 * turns.first);
            put(start + r + 2 * l, b.y2 * turns.second);
            put(start + r + 3 * l, b.y3 * turns.third);
        }
    }
}

template <Direction direction>
void lastPass(int n, int l, float* a) {
    if (4 * l == n) {
        for (int r = 0; r < l; r += 2) {
            const Butterfly<direction> b(a + r, l);
            put(a + r, b.y0);
            put(a + r + l, b.y1);
            put(a + r + 2 * l, b.y2);
            put(a + r + 3 * l, b.y3);
        }
    } else if (2 * l == n) {
        for (int r = 0; r < l; r += 2) {
            const Complex x = at(a + r), y = at(a + r + l);
            put(a + r, x + y);
            put(a + r + l, x - y);
        }
    }
}

template <Direction direction>
void complexTransform(int n, float* a, const float* w) {
    int l = 2;
    for (; 4 * l < n; l *= 4) pass<direction>(n, l, a, w);
    lastPass<direction>(n, l, a);
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

/// Splits or joins the spectra of the even and odd numbers: pair k and its mirror image move by opposite
/// amounts. `side` is the sign of the cosine.
void realPairs(int n, float* a, int nc, const float* c, float side) {
    const int step = 4 * nc / n;
    for (int k = 1; k < n / 4; ++k) {
        float* const low = a + 2 * k;
        float* const high = a + n - 2 * k;
        const Complex weight{0.5F - c[nc - k * step], side * c[k * step]};
        const Complex move = weight * Complex{low[0] - high[0], low[1] + high[1]};
        low[0] -= move.re;
        low[1] -= move.im;
        high[0] += move.re;
        high[1] -= move.im;
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
        if (n > 4) {
            bitrv2(n, ip + 2, a);
            cftfsub(n, a, w);
            rftfsub(n, a, nc, c);
        } else if (n == 4) {
            cftfsub(n, a, w);
        }
        const float difference = a[0] - a[1];
        a[0] += a[1];
        a[1] = difference;
    } else {
        a[1] = 0.5F * (a[0] - a[1]);
        a[0] -= a[1];
        if (n > 4) {
            rftbsub(n, a, nc, c);
            bitrv2(n, ip + 2, a);
            cftbsub(n, a, w);
        } else if (n == 4) {
            cftfsub(n, a, w); // of two numbers: its own inverse
        }
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

void cftfsub(int n, float* a, const float* w) { complexTransform<Direction::Forward>(n, a, w); }
void cftbsub(int n, float* a, const float* w) { complexTransform<Direction::Inverse>(n, a, w); }
void cft1st(int n, float* a, const float* w) { pass<Direction::Forward>(n, 2, a, w); }
void cftmdl(int n, int l, float* a, const float* w) { pass<Direction::Forward>(n, l, a, w); }
void rftfsub(int n, float* a, int nc, const float* c) { realPairs(n, a, nc, c, 1.0F); }
void rftbsub(int n, float* a, int nc, const float* c) { realPairs(n, a, nc, c, -1.0F); }
