#pragma once

#include <cassert>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>

namespace sorvel::deep {

/// One piece of memory for parts that take turns: of an attempt and a motion search only one is ever under
/// way, and of an attempt's parts one after the other.
///
/// Each such part keeps what it needs from its beginning until its result is taken in a `Work` of its own,
/// which lies here. Whoever begins has the memory, and what the part before left in it is gone; results,
/// and all that lasts from one piece of work to the next, stay with the parts.
///
///     Refinement    spectra of the 17 chunks         from `begin` to `finish`
///     SubBlocks     tables of the tones              within `score`
///     TextDecoder   the words around each length     from `begin` to `best`
///     MotionSearch  tables of the chirps, paths      from `begin` or `nextOffset` to its path
///
/// Thread: one at a time. Allocates in the constructor only.
class Workspace {
public:
    Workspace() : m_memory(std::make_unique_for_overwrite<std::byte[]>(kBytes)) {}

    /// A new one for its owner, initialised as its members say; the one before has ended.
    template <typename Work>
    Work& begin() noexcept {
        static_assert(sizeof(Work) <= kBytes && alignof(Work) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
        static_assert(std::is_trivially_destructible_v<Work>);
        m_owner = tag<Work>();
        return *::new (m_memory.get()) Work;
    }

    /// The one that began last.
    template <typename Work>
    Work& of() const noexcept {
        assert(m_owner == tag<Work>());
        return *std::launder(reinterpret_cast<Work*>(m_memory.get()));
    }

private:
    static constexpr std::size_t kBytes = 94'000; // what the decoder needs, the most

    template <typename Work>
    static const void* tag() noexcept {
        static constexpr char kTag = 0;
        return &kTag;
    }

    std::unique_ptr<std::byte[]> m_memory; // NOLINT(*-avoid-c-arrays)
    const void* m_owner = nullptr;
};

} // namespace sorvel::deep
