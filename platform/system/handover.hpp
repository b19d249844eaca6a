#pragma once

#include <atomic>
#include <deque>
#include <utility>

namespace sorvel {

/// Hands values from any number of threads to whoever takes them, without a lock on either side.
///
/// A stack of nodes: putting one on top is a single exchange, and taking them all is one too, after
/// which the taker turns the order round. Taking all at once is what makes it safe without hazard
/// pointers: no node that another thread still compares with is freed and reused underneath it.
template <typename Value>
class Handover {
public:
    Handover() = default;
    Handover(const Handover&) = delete;
    Handover& operator=(const Handover&) = delete;
    ~Handover() {
        for (Node* node = m_newest.load(std::memory_order_acquire); node != nullptr;) {
            delete std::exchange(node, node->older);
        }
    }

    /// Any thread; allocates one node.
    void put(Value value) {
        Node* const node = new Node{std::move(value), m_newest.load(std::memory_order_relaxed)};
        while (!m_newest.compare_exchange_weak(node->older, node, std::memory_order_release,
                                               std::memory_order_relaxed)) {
        }
    }

    bool isEmpty() const noexcept { return m_newest.load(std::memory_order_acquire) == nullptr; }

    /// Appends all there is to `taken`, oldest first.
    void takeAll(std::deque<Value>& taken) {
        Node* oldest = nullptr;
        for (Node* node = m_newest.exchange(nullptr, std::memory_order_acquire); node != nullptr;) {
            Node* const older = std::exchange(node->older, oldest); // now points at the newer one
            oldest = std::exchange(node, older);
        }
        while (oldest != nullptr) {
            taken.push_back(std::move(oldest->value));
            delete std::exchange(oldest, oldest->older);
        }
    }

private:
    struct Node {
        Value value;
        Node* older;
    };
    std::atomic<Node*> m_newest = nullptr;
};

} // namespace sorvel
