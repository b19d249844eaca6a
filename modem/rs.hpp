#pragma once

#include "modem/assertion.hpp"
#include "modem/gf.hpp"
#include "modem/gf_transform.hpp"
#include "modem/poly.hpp"

#include <algorithm>
#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace RS {

/// A systematic Reed-Solomon code over GF(2^8): a code word is the message followed by its parity. Corrects
/// up to `ecc_length / 2` wrong bytes anywhere in the word.
///
///     RS::ReedSolomon codec(13, 4);                       // 13 message bytes, 4 parity bytes
///     codec.Encode(message, word);                        // word: 17 bytes
///     if (codec.DecodeBlock(word, word + 13, message) == 0) use(message);
///
/// Generator: (x + alpha^0)(x + alpha^1)...(x + alpha^(ecc_length - 1)); field and alpha as in gf.hpp.
///
/// Every `msg_length + ecc_length < 256` works, zero included on either side; coding with a longer word is a
/// programming error that ends the process. The bytes received never do: beyond the code's strength decoding
/// answers 1, or finds another code word that differs from the one received in no more bytes than can be
/// corrected: 2 * errors + erasures <= ecc_length, errors being those outside the erasures. Words of little
/// parity need a check of their own behind the code.
///
/// All work happens in an area of exactly `workSize()` bytes, which the caller lends or the constructor
/// allocates; nothing else is ever written, and coding itself allocates nothing. The object keeps nothing
/// between blocks but the generator. One thread at a time per object.
class ReedSolomon {
public:
    /// Bytes of the work area: the generator, then the slots.
    static constexpr size_t workSize(size_t msg_length, size_t ecc_length) noexcept {
        return 3 * msg_length + 29 * ecc_length + 1;
    }

    /// @param msgLength  bytes of message
    /// @param eccLength  bytes of parity
    /// @param memory  `workSize()` bytes with any content that outlive the object; null: allocated here. If
    ///                that fails, `EncodeBlock` writes zeros for parity and `DecodeBlock` answers 1.
    ReedSolomon(uint8_t msgLength, uint8_t eccLength, uint8_t* memory = nullptr) noexcept;
    ~ReedSolomon();

    // The slots point at this very object.
    ReedSolomon(const ReedSolomon&) = delete;
    ReedSolomon& operator=(const ReedSolomon&) = delete;

    /// Writes the parity of the `msg_length` bytes at `src` to the `ecc_length` bytes at `dst`.
    void EncodeBlock(const void* src, void* dst) noexcept;

    /// Writes the whole code word, `msg_length + ecc_length` bytes; `src` may be `dst`.
    void Encode(const void* src, void* dst) noexcept;

    /// Corrects one received word.
    ///
    /// @param src          the `msg_length` received message bytes
    /// @param ecc          the `ecc_length` received parity bytes
    /// @param dst          receives the corrected message; may be `src`
    /// @param erase_pos    distinct positions, below `msg_length + ecc_length`, of bytes known to be bad. The
    ///                     caller sets these bytes to 0 beforehand: magnitudes are reckoned from 0, but added
    ///                     to the bytes as received.
    /// @param erase_count  positions given; 2 * errors + erasures <= ecc_length can be corrected. A word with
    ///                     faults in erasures alone, and no other error, is answered with 1.
    /// @return 0: `dst` written; 1: failure or impossible erasures, `dst` untouched
    ///
    /// Time: a short word costs `ecc_length` evaluations if undamaged and two to four times that if not. From
    /// 800 bytes of word times parity on, all evaluations together take no longer than five of them.
    int DecodeBlock(const void* src, const void* ecc, void* dst, const uint8_t* erase_pos = nullptr,
                    size_t erase_count = 0) noexcept;

    /// What a slot holds. Those from `kUnused` on lie at the end of the area or behind it.
    enum Slot : uint8_t {
        kMessageIn = 0,
        kMessageOut = 1,
        kGenerator = 2,
        kTemp1 = 3,
        kTemp2 = 4,
        kMagnitudes = 5,
        kEvaluator = 6,
        kErrataLocator = 7,
        kSyndromes = 8,
        kForneySyndromes = 9,
        kScratch1 = 10,
        kLocator = 11,
        kPositions = 12,
        kFound = 13,
        kScratch2 = 14,
        kUnused = 15,
        kSlotCount = 17
    };

    // Steps of coding, in their order. Each reads the slots it is given and leaves its result in the slot
    // named; the others may change. Public for tests and tools; they need a work area and an `ecc_length`
    // of 1 to 254.

    /// kGenerator: `ecc_length + 1` coefficients, monic.
    void GeneratorPoly() noexcept;
    /// kSyndromes: 0, then msg(alpha^0) ... msg(alpha^(ecc_length - 1)).
    void CalcSyndromes(const Poly* msg) noexcept;
    /// kForneySyndromes: syndromes freed of the erasures; only the first `ecc_length - erasures` count.
    void CalcForneySyndromes(const Poly* synd, const Poly* erasures_pos, size_t n) noexcept;
    /// kLocator: the error locator (Berlekamp-Massey), times `erase_loc` where that is given. False: too many
    /// errors beside the erasures, kLocator as it was.
    bool FindErrorLocator(const Poly* synd, const Poly* erase_loc, size_t erase_count) noexcept;
    /// kFound: positions whose locator value is a root of the reversed locator. False: not one per degree.
    bool FindErrors(const Poly* err_loc, size_t n) noexcept;
    /// kErrataLocator: product of (1 + alpha^c x) over the coefficient positions c.
    void FindErrataLocator(const Poly* epos) noexcept;
    /// kEvaluator: (synd * errata_loc) mod x^(nsym + 1), with the syndromes highest degree first.
    void FindErrorEvaluator(const Poly* synd, const Poly* errata_loc, size_t nsym) noexcept;
    /// Corrects msg at the given positions. False, msg untouched: no magnitudes there explain the syndromes.
    bool CorrectErrata(const Poly* synd, const Poly* err_pos, Poly* msg) noexcept;

    const uint8_t msg_length;
    const uint8_t ecc_length;
    std::array<Poly, kSlotCount> polynoms; ///< by `Slot`

private:
    void placeSlots() noexcept;
    void loadGenerator() noexcept;
    bool possibleErasures(const uint8_t* erase_pos, size_t erase_count) const noexcept;
    bool correct(size_t erase_count) noexcept;
    bool isNearZeroWord(size_t erase_count) const noexcept;
    bool explains(const Poly* synd, const Poly* locators, const Poly* magnitudes) const noexcept;
    static void reverse(const Poly* p, Poly* out) noexcept;
    static void positionsFromEnd(const Poly* positions, size_t n, Poly* out) noexcept;

    size_t wordLength() const noexcept { return size_t{msg_length} + ecc_length; }

    // Up to so many products, Horner's rule is faster than the values at all elements.
    static constexpr size_t kHornerSyndromes = 800;
    static constexpr size_t kHornerRoots = 200;

    uint8_t* m_memory = nullptr;    // the work area
    uint8_t* m_generator = nullptr; // its first ecc_length + 1 bytes
    bool m_ownsMemory = false;
    bool m_generatorCached = false;
    uint8_t* m_polyBase = nullptr; // behind the generator
};

// --- set-up

inline ReedSolomon::ReedSolomon(uint8_t msgLength, uint8_t eccLength, uint8_t* memory) noexcept
    : msg_length(msgLength), ecc_length(eccLength), m_memory(memory) {
    if (!m_memory) {
        m_memory = static_cast<uint8_t*>(std::malloc(workSize(msg_length, ecc_length)));
        m_ownsMemory = m_memory != nullptr;
    }
    if (m_memory) {
        m_generator = m_memory;
        m_polyBase = m_memory + ecc_length + 1;
    }
    placeSlots();
}

inline ReedSolomon::~ReedSolomon() {
    if (m_ownsMemory) std::free(m_memory);
}

inline void ReedSolomon::placeSlots() noexcept {
    const size_t word = wordLength();
    const size_t twice = size_t{2} * ecc_length;
    const size_t end = workSize(msg_length, ecc_length) - ecc_length - 1;
    size_t offset = 0;
    for (uint8_t id = 0; id < kSlotCount; ++id) {
        const size_t capacity = id == kMessageIn || id == kMessageOut || id == kMagnitudes ? word : twice;
        // The last two slots are laid out past the end of the area: their capacity is what is left of it.
        // A capacity above 255 is no use, since a length has 8 bits.
        const size_t inside = std::min({capacity, end - std::min(offset, end), size_t{255}});
        polynoms[id].Init(id, static_cast<uint16_t>(offset), static_cast<uint8_t>(inside), &m_polyBase);
        offset += capacity;
    }
}

// --- encoding

inline void ReedSolomon::GeneratorPoly() noexcept {
    Poly* generator = &polynoms[kGenerator];
    Poly* product = &polynoms[kTemp1];
    Poly* factor = &polynoms[kTemp2];
    generator->length = 0;
    generator->Append(1);
    for (size_t i = 0; i < ecc_length; ++i) {
        factor->length = 0;
        factor->Append(1);
        factor->Append(gf::exp[i]);
        gf::poly_mul(generator, factor, product);
        generator->Set(product->ptr(), product->length);
    }
}

inline void ReedSolomon::loadGenerator() noexcept {
    Poly& generator = polynoms[kGenerator];
    const size_t length = size_t{ecc_length} + 1;
    if (m_generatorCached) {
        generator.Set(m_generator, length);
        return;
    }
    GeneratorPoly();
    std::memcpy(m_generator, generator.first(length), length);
    m_generatorCached = true;
}

inline void ReedSolomon::EncodeBlock(const void* src, void* dst) noexcept {
    if (!(wordLength() < 256))
        sorvel::detail::assertionFailed("EncodeBlock", "rs", 87, "msg_length + ecc_length < 256");
    if (ecc_length == 0) return;
    // Without a message the parity is all zero (and a generator of 256 coefficients would fit no slot).
    if (msg_length == 0 || !m_memory) {
        std::memset(dst, 0, ecc_length);
        return;
    }
    polynoms[kMessageIn].Reset();
    polynoms[kMessageOut].Reset();
    loadGenerator();
    polynoms[kMessageIn].Set(static_cast<const uint8_t*>(src), msg_length);
    polynoms[kMessageOut].Set(static_cast<const uint8_t*>(src), msg_length);
    polynoms[kMessageOut].length = static_cast<uint8_t>(wordLength());

    // Synthetic division by the monic generator; the remainder grows where the parity belongs.
    uint8_t* out = polynoms[kMessageOut].first(wordLength());
    const uint8_t* g = polynoms[kGenerator].first(size_t{ecc_length} + 1);
    for (size_t i = 0; i < msg_length; ++i) {
        const uint8_t c = out[i];
        if (c == 0) continue;
        for (size_t j = 1; j <= ecc_length; ++j) out[i + j] ^= gf::mul(g[j], c);
    }
    std::memcpy(dst, out + msg_length, ecc_length);
}

inline void ReedSolomon::Encode(const void* src, void* dst) noexcept {
    if (msg_length > 0) std::memmove(dst, src, msg_length);
    EncodeBlock(src, static_cast<uint8_t*>(dst) + msg_length);
}

// --- decoding

inline int ReedSolomon::DecodeBlock(const void* src, const void* ecc, void* dst, const uint8_t* erase_pos,
                                    size_t erase_count) noexcept {
    if (!(wordLength() < 256))
        sorvel::detail::assertionFailed("DecodeBlock", "rs", 157, "msg_length + ecc_length < 256");
    if (!m_memory || !possibleErasures(erase_pos, erase_count)) return 1;
    if (ecc_length == 0) {
        if (msg_length > 0) std::memmove(dst, src, msg_length);
        return 0;
    }
    Poly& in = polynoms[kMessageIn];
    Poly& out = polynoms[kMessageOut];
    in.length = 0;
    if (msg_length > 0) in.Set(static_cast<const uint8_t*>(src), msg_length);
    in.Set(static_cast<const uint8_t*>(ecc), ecc_length, msg_length);
    out.Set(in.ptr(), in.length);

    Poly& positions = polynoms[kPositions];
    positions.length = 0;
    for (size_t i = 0; i < erase_count; ++i) {
        positions.Append(erase_pos[i]);
        in[erase_pos[i]] = 0;
    }
    if (msg_length == 0) return isNearZeroWord(erase_count) ? 0 : 1;
    if (!correct(erase_count)) return 1;
    std::memcpy(dst, out.first(msg_length), msg_length);
    return 0;
}

inline bool ReedSolomon::possibleErasures(const uint8_t* erase_pos, size_t erase_count) const noexcept {
    if (erase_count > ecc_length) return false;
    if (erase_count > 0 && !erase_pos) return false;
    std::bitset<256> taken;
    for (size_t i = 0; i < erase_count; ++i) {
        if (erase_pos[i] >= wordLength() || taken[erase_pos[i]]) return false;
        taken[erase_pos[i]] = true;
    }
    return true;
}

/// Without a message the word of zeros is the only code word. Decided without syndromes, which would be 256
/// for a parity of 255 bytes.
inline bool ReedSolomon::isNearZeroWord(size_t erase_count) const noexcept {
    const uint8_t* in = polynoms[kMessageIn].first(ecc_length);
    const auto wrong =
        static_cast<size_t>(std::count_if(in, in + ecc_length, [](uint8_t b) { return b != 0; }));
    return wrong == 0 || 2 * wrong + erase_count <= ecc_length;
}

/// Corrects the word in kMessageOut, with the erasures in kPositions.
inline bool ReedSolomon::correct(size_t erase_count) noexcept {
    const size_t n = wordLength();
    Poly* synd = &polynoms[kSyndromes];
    CalcSyndromes(&polynoms[kMessageIn]);
    const uint8_t* s = synd->first(synd->length);
    if (std::all_of(s, s + synd->length, [](uint8_t value) { return value == 0; })) return true;

    CalcForneySyndromes(synd, &polynoms[kPositions], n);
    // Without this result, a locator left from the word before could pass the search for roots.
    if (!FindErrorLocator(&polynoms[kForneySyndromes], nullptr, erase_count)) return false;
    reverse(&polynoms[kLocator], &polynoms[kTemp1]);
    if (!FindErrors(&polynoms[kTemp1], n) || polynoms[kFound].length == 0) return false;

    const Poly& found = polynoms[kFound];
    for (size_t i = 0; i < found.length; ++i) polynoms[kPositions].Append(found[i]);
    return CorrectErrata(synd, &polynoms[kPositions], &polynoms[kMessageOut]);
}

inline void ReedSolomon::CalcSyndromes(const Poly* msg) noexcept {
    Poly& synd = polynoms[kSyndromes];
    const size_t count = ecc_length;
    const uint8_t* word = msg->first(msg->length);
    uint8_t* values = synd.first(count + 1);
    std::memset(values, 0, count + 1);
    uint8_t* s = values + 1;
    synd.length = static_cast<uint8_t>(count + 1);
    if (msg->length * count > kHornerSyndromes) {
        const gf::Values everywhere(word, msg->length);
        for (size_t i = 0; i < count; ++i) s[i] = everywhere.at(gf::exp[i]);
        return;
    }
    // Horner's rule for all roots side by side: the chains are independent, so the processor overlaps them.
    for (size_t k = 0; k < msg->length; ++k) {
        const uint8_t b = word[k];
        for (size_t i = 0; i < count; ++i)
            s[i] = static_cast<uint8_t>((s[i] == 0 ? 0 : gf::exp[gf::log[s[i]] + i]) ^ b);
    }
}

inline void ReedSolomon::CalcForneySyndromes(const Poly* synd, const Poly* erasures_pos, size_t n) noexcept {
    Poly& reversed = polynoms[kTemp1];
    Poly& forney = polynoms[kForneySyndromes];
    positionsFromEnd(erasures_pos, n, &reversed);
    const size_t length = synd->length == 0 ? 0 : size_t{synd->length} - 1;
    forney.length = 0;
    if (length == 0) return;
    forney.Set(synd->first(length + 1) + 1, length);

    uint8_t* f = forney.first(length);
    for (size_t i = 0; i < reversed.length; ++i) {
        const uint8_t x = gf::exp[reversed[i]];
        for (size_t j = 0; j + 1 < length; ++j) f[j] = static_cast<uint8_t>(gf::mul(f[j], x) ^ f[j + 1]);
    }
}

inline bool ReedSolomon::FindErrorLocator(const Poly* synd, const Poly* erase_loc,
                                          size_t erase_count) noexcept {
    Poly* locator = &polynoms[kScratch1];
    Poly* old = &polynoms[kScratch2];
    constexpr uint8_t kOne = 1;
    for (Poly* start : {locator, old})
        erase_loc ? start->Set(erase_loc->ptr(), erase_loc->length) : start->Set(&kOne, 1);

    const uint8_t* s = synd->first(synd->length);
    const size_t shift = synd->length > ecc_length ? size_t{synd->length} - ecc_length : 0;
    const size_t first = shift + (erase_loc ? erase_count : 0);
    uint8_t oldDelta = 1; // what was left where old failed to fit
    for (size_t i = 0; i + erase_count < ecc_length; ++i) {
        const size_t k = i + first;
        const size_t degree = locator->length - size_t{1};
        if (k >= synd->length || degree > k) return false;
        uint8_t* c = locator->first(degree + 1);
        uint8_t delta = s[k];
        for (size_t j = 0; j < degree; ++j) delta ^= gf::mul(c[j], s[k - degree + j]);
        old->Append(0);
        if (delta == 0) continue;

        // Add old, scaled so that delta vanishes. Where old is the longer one, the two change places.
        const uint8_t factor = gf::div(delta, oldDelta);
        uint8_t* o = old->first(old->length);
        if (old->length <= locator->length) {
            uint8_t* end = c + (locator->length - old->length);
            for (size_t j = 0; j < old->length; ++j) end[j] ^= gf::mul(o[j], factor);
            continue;
        }
        const size_t ahead = size_t{old->length} - locator->length;
        for (size_t j = 0; j < ahead; ++j) o[j] = gf::mul(o[j], factor);
        for (size_t j = 0; j < locator->length; ++j)
            o[ahead + j] = static_cast<uint8_t>(gf::mul(o[ahead + j], factor) ^ c[j]);
        std::swap(locator, old);
        oldDelta = delta;
    }

    const uint8_t* c = locator->first(locator->length);
    size_t zeros = 0;
    while (zeros + 1 < locator->length && c[zeros] == 0) ++zeros;
    const size_t degree = locator->length - zeros - 1;
    // 2 * errors + erasures <= ecc_length, where a locator started from that of the erasures counts both.
    const size_t limit =
        erase_loc ? ecc_length + erase_count : ecc_length - std::min<size_t>(ecc_length, erase_count);
    if (2 * degree > limit) return false;
    polynoms[kLocator].Set(c + zeros, degree + 1);
    return true;
}

inline bool ReedSolomon::FindErrors(const Poly* err_loc, size_t n) noexcept {
    Poly& found = polynoms[kFound];
    found.length = 0;
    if (err_loc->length == 0) return false;
    const size_t degree = err_loc->length - size_t{1};
    const size_t places = std::min(n, size_t{255});
    const auto collect = [&](const auto& valueAt) {
        for (size_t i = 0; i < places; ++i) {
            if (valueAt(gf::exp[i]) != 0) continue;
            if (found.length == degree) return false; // the zero polynomial: a root everywhere
            found.Append(static_cast<uint8_t>(n - 1 - i));
        }
        return found.length == degree;
    };
    if (places * degree <= kHornerRoots) return collect([&](uint8_t x) { return gf::poly_eval(err_loc, x); });
    const gf::Values everywhere(err_loc->first(degree + 1), degree + 1);
    // Of a word beyond correction the locator is as good as random, and has about one root in all.
    return everywhere.roots() >= degree && collect([&](uint8_t x) { return everywhere.at(x); });
}

inline void ReedSolomon::FindErrataLocator(const Poly* epos) noexcept {
    Poly* product = &polynoms[kErrataLocator];
    Poly* next = &polynoms[kScratch1];
    Poly* factor = &polynoms[kTemp2];
    product->length = 0;
    product->Append(1);
    for (size_t i = 0; i < epos->length; ++i) {
        factor->length = 0;
        factor->Append(gf::exp[(*epos)[i]]);
        factor->Append(1);
        gf::poly_mul(product, factor, next);
        std::swap(product, next);
    }
    if (product != &polynoms[kErrataLocator]) polynoms[kErrataLocator].Set(product->ptr(), product->length);
}

/// Only the coefficients that the modulus leaves are computed: the whole product of the longest operands
/// would be one coefficient longer than a slot.
inline void ReedSolomon::FindErrorEvaluator(const Poly* synd, const Poly* errata_loc, size_t nsym) noexcept {
    Poly& evaluator = polynoms[kEvaluator];
    const size_t length = nsym + 1;
    const uint8_t* s = synd->first(synd->length);
    const uint8_t* e = errata_loc->first(errata_loc->length);
    uint8_t* out = evaluator.first(length);
    std::memset(out, 0, length);
    for (size_t j = 0; j < std::min<size_t>(errata_loc->length, length); ++j)
        for (size_t i = 0; i < synd->length && i + j < length; ++i)
            out[length - 1 - i - j] ^= gf::mul(s[synd->length - 1 - i], e[errata_loc->length - 1 - j]);
    evaluator.length = static_cast<uint8_t>(length);
}

/// Forney's algorithm. The first root of the generator is alpha^0, hence the factor X to the power 1; the
/// syndromes' padding brings the factor x that cancels it.
inline bool ReedSolomon::CorrectErrata(const Poly* synd, const Poly* err_pos, Poly* msg) noexcept {
    Poly& coefPositions = polynoms[kTemp1];
    positionsFromEnd(err_pos, msg->length, &coefPositions);
    FindErrataLocator(&coefPositions);
    reverse(synd, &polynoms[kScratch2]);
    FindErrorEvaluator(&polynoms[kScratch2], &polynoms[kErrataLocator],
                       polynoms[kErrataLocator].length - size_t{1});

    Poly& locators = polynoms[kTemp2];
    locators.length = 0;
    for (size_t i = 0; i < coefPositions.length; ++i) locators.Append(gf::exp[coefPositions[i]]);

    Poly& magnitudes = polynoms[kMagnitudes];
    magnitudes.length = 0;
    const uint8_t* x = locators.first(locators.length);
    for (size_t i = 0; i < locators.length; ++i) {
        const uint8_t inverse = gf::inverse(x[i]);
        uint8_t denominator = 1;
        for (size_t j = 0; j < locators.length; ++j)
            if (j != i) denominator = gf::mul(denominator, static_cast<uint8_t>(1 ^ gf::mul(inverse, x[j])));
        // An error found at an erased position: two equal locators, and no answer.
        if (denominator == 0) return false;
        const uint8_t y = gf::mul(x[i], gf::poly_eval(&polynoms[kEvaluator], inverse));
        magnitudes.Append(gf::div(y, denominator));
    }
    if (!explains(synd, &locators, &magnitudes)) return false;
    for (size_t i = 0; i < err_pos->length; ++i) (*msg)[(*err_pos)[i]] ^= magnitudes[i];
    return true;
}

/// Whether errors of these magnitudes have these syndromes, that is whether adding them gives a code word.
/// With more errors than the code corrects, the locator can have as many roots as its degree and yet be
/// shorter than the recurrence it stands for; then they do not.
inline bool ReedSolomon::explains(const Poly* synd, const Poly* locators,
                                  const Poly* magnitudes) const noexcept {
    const uint8_t* s = synd->first(size_t{ecc_length} + 1) + 1;
    const uint8_t* x = locators->first(locators->length);
    const uint8_t* y = magnitudes->first(locators->length);
    for (size_t i = 0; i < ecc_length; ++i) {
        uint8_t sum = 0;
        for (size_t k = 0; k < locators->length; ++k)
            if (y[k] != 0) sum ^= gf::exp[(gf::log[y[k]] + gf::log[x[k]] * i) % 255];
        if (sum != s[i]) return false;
    }
    return true;
}

inline void ReedSolomon::reverse(const Poly* p, Poly* out) noexcept {
    const uint8_t* from = p->first(p->length);
    std::reverse_copy(from, from + p->length, out->first(p->length));
    out->length = p->length;
}

/// Positions count from the front of a word, coefficients from its end. Positions outside the word, which
/// only a direct caller of a step can give, wrap within the 255 powers of alpha.
inline void ReedSolomon::positionsFromEnd(const Poly* positions, size_t n, Poly* out) noexcept {
    out->length = 0;
    for (size_t i = 0; i < positions->length; ++i)
        out->Append(static_cast<uint8_t>((n + 254 - (*positions)[i]) % 255));
}

} // namespace RS
