#pragma once

#include <atomic>
#include <utility>
#include <vector>

namespace bp {

/// Hands values from any number of threads to one consumer, without a lock.
///
/// Unbounded, nothing is dropped. Producers never wait; each value costs one allocation. takeAll() gives what was
/// pushed before it in the order of the pushes; only one thread at a time may call it.
template <class T> class HandoverQueue
{
public:
    HandoverQueue() = default;
    HandoverQueue(const HandoverQueue &) = delete;
    HandoverQueue &operator=(const HandoverQueue &) = delete;
    ~HandoverQueue() { takeAll(); }

    void push(T value)
    {
        auto *node = new Node{std::move(value), m_newest.load(std::memory_order_relaxed)};
        while (!m_newest.compare_exchange_weak(node->older, node, std::memory_order_seq_cst,
                                               std::memory_order_relaxed)) { }
    }

    bool isEmpty() const { return m_newest.load(std::memory_order_seq_cst) == nullptr; }

    /// Oldest first; empty when nothing waits, which allocates nothing.
    std::vector<T> takeAll()
    {
        std::vector<T> values;
        if (m_newest.load(std::memory_order_relaxed) == nullptr) {
            return values;
        }
        Node *oldest = nullptr;
        for (Node *node = m_newest.exchange(nullptr, std::memory_order_seq_cst); node != nullptr;) {
            Node *older = node->older;
            node->older = oldest;
            oldest = node;
            node = older;
        }
        while (oldest != nullptr) {
            values.push_back(std::move(oldest->value));
            delete std::exchange(oldest, oldest->older);
        }
        return values;
    }

private:
    struct Node
    {
        T value;
        Node *older;
    };

    std::atomic<Node *> m_newest{nullptr};
};

} // namespace bp
