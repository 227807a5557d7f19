#pragma once

#include <atomic>
#include <boost/intrusive_ptr.hpp>
#include <utility>

#include "Belmo/Export.h"
#include "Belmo/ThreadControl.h"
#include "Belmo/Types.h"

namespace Belmo {

/** Counted reference to a `Node`. */
template <class T>
using Ptr = boost::intrusive_ptr<T>;

/** Base of everything that is held by counted reference. The count is atomic only while threads are in use.
 */
class BELMO_EXPORT Node {
public:
    Node(Node const&) = delete;
    Node& operator=(Node const&) = delete;

    /** Number of references held; for tests and diagnostics. */
    U32 references() const noexcept { return references_.load(std::memory_order_relaxed); }

protected:
    Node() noexcept = default;
    virtual ~Node();

private:
    friend void intrusive_ptr_add_ref(Node const* node) noexcept {
        if (ThreadControl::threadsInUse()) {
            node->references_.fetch_add(1, std::memory_order_relaxed);
        } else {
            node->references_.store(node->references() + 1, std::memory_order_relaxed);
        }
    }
    friend void intrusive_ptr_release(Node const* node) noexcept {
        U32 left = 0;
        if (ThreadControl::threadsInUse()) {
            left = node->references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        } else {
            left = node->references() - 1;
            node->references_.store(left, std::memory_order_relaxed);
        }
        if (left == 0) delete node;
    }

    mutable std::atomic<U32> references_{0};
};

/** Makes a node and the first reference to it. */
template <class T, class... Arguments>
Ptr<T> make(Arguments&&... arguments) {
    return Ptr<T>(new T(std::forward<Arguments>(arguments)...));
}

/** Casts a reference to a class derived from its own; null if the node is of another class. */
template <class To, class From>
Ptr<To> ptrCast(Ptr<From> const& from) {
    return boost::dynamic_pointer_cast<To>(from);
}

}  // namespace Belmo
