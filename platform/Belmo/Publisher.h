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

/** Keeps an observer registered; dropping it ends the observation, also from within the observer. */
class BELMO_EXPORT Subscription {
public:
    Subscription() = default;
    Subscription(Subscription&&) noexcept = default;
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
 * registration. Publishing without observers costs one comparison.
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

private:
    void notify(Change const& change);
    Subscription registered(std::string_view attribute, Observer observer);

    std::vector<std::shared_ptr<Subscription::Registration>> registrations_;
    int walks_ = 0;
};

}  // namespace Belmo
