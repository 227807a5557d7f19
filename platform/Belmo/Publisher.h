#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "Belmo/Export.h"

namespace Belmo {

/** The member of a map attribute at which a change happened; valid only while the observer runs. */
class KeyRef {
public:
    KeyRef() = default;
    template <class Key>
    explicit KeyRef(Key const& key) : key_(&key), type_(&typeid(Key)) {}

    /** The key, if it is of that type; null otherwise, also for a change of a whole attribute. */
    template <class Key>
    Key const* as() const {
        return type_ != nullptr && *type_ == typeid(Key) ? static_cast<Key const*>(key_) : nullptr;
    }

private:
    void const* key_ = nullptr;
    std::type_info const* type_ = nullptr;
};

/** One change of one attribute of a node. */
struct Change {
    std::string_view attribute;
    KeyRef key;
};

using Observer = std::function<void(Change const&)>;

/**
 * Keeps an observer registered. Dropping or overwriting it ends the observation at once, also from within
 * an observer, and frees the observer with all that it holds. It may outlive its publisher.
 */
class BELMO_EXPORT Subscription {
public:
    Subscription() = default;
    Subscription(Subscription&& other) noexcept;
    Subscription& operator=(Subscription&& other) noexcept;
    ~Subscription();

private:
    friend class Publisher;
    struct Registration;
    explicit Subscription(std::shared_ptr<Registration> registration);
    std::shared_ptr<Registration> registration_;
};

/**
 * Tells observers of a node about changes of its attributes, on the caller's thread, in order of
 * registration. Observers may register and drop observers, publish further changes, and throw: a failure
 * reaches the caller that published, and later observers are not told of that change. An observer that is
 * registered while a change is told hears of the next one. Publishing without observers costs one
 * comparison. The publisher must outlive the call.
 */
class BELMO_EXPORT Publisher {
public:
    Publisher();
    ~Publisher();
    Publisher(Publisher const&) = delete;
    Publisher& operator=(Publisher const&) = delete;

    /** Observes one attribute. */
    [[nodiscard]] Subscription observe(std::string_view attribute, Observer observer);
    /** Observes every attribute of the node. */
    [[nodiscard]] Subscription observeAll(Observer observer);

    /** Tells the observers of the attribute and those of the whole node. */
    template <class Key>
    void publishChangeRecursive(std::string_view attribute, Key const& key) {
        if (!registrations_.empty()) notify(Change{attribute, KeyRef(key)});
    }

    /** The same for a change of a whole attribute. */
    void publishChangeRecursive(std::string_view attribute) {
        if (!registrations_.empty()) notify(Change{attribute, KeyRef()});
    }

private:
    class Walk;
    void notify(Change const& change);
    Subscription registered(std::string_view attribute, Observer observer);
    void prune();

    std::vector<std::weak_ptr<Subscription::Registration>> registrations_;
    int walks_ = 0;
};

}  // namespace Belmo
