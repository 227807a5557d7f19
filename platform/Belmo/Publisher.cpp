#include "Belmo/Publisher.h"

#include <cstddef>
#include <string>
#include <utility>

namespace Belmo {

struct Subscription::Registration {
    std::string attribute;  // empty: every attribute
    Observer observer;
    bool active = true;
};

Subscription::Subscription(std::shared_ptr<Registration> registration)
    : registration_(std::move(registration)) {}

Subscription& Subscription::operator=(Subscription&& other) noexcept {
    std::swap(registration_, other.registration_);
    return *this;
}

Subscription::~Subscription() {
    if (registration_) registration_->active = false;
}

Publisher::Publisher() = default;
Publisher::~Publisher() = default;

Subscription Publisher::observe(std::string_view attribute, Observer observer) {
    return registered(attribute, std::move(observer));
}

Subscription Publisher::observeAll(Observer observer) {
    return registered({}, std::move(observer));
}

Subscription Publisher::registered(std::string_view attribute, Observer observer) {
    auto registration = std::make_shared<Subscription::Registration>();
    registration->attribute = attribute;
    registration->observer = std::move(observer);
    registrations_.push_back(registration);
    return Subscription(registration);
}

void Publisher::notify(Change const& change) {
    // Observers may register, drop others or cause further changes while they run: walk by index, hold
    // each one, and prune only when the outermost walk is over.
    ++walks_;
    bool dropped = false;
    for (std::size_t i = 0; i < registrations_.size(); ++i) {
        auto const registration = registrations_[i];
        if (!registration->active) {
            dropped = true;
        } else if (registration->attribute.empty() || registration->attribute == change.attribute) {
            registration->observer(change);
        }
    }
    if (--walks_ == 0 && dropped) {
        std::erase_if(registrations_, [](auto const& registration) { return !registration->active; });
    }
}

}  // namespace Belmo
