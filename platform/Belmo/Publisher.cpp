#include "Belmo/Publisher.h"

#include <cstddef>
#include <string>
#include <utility>

namespace Belmo {

struct Subscription::Registration {
    std::string attribute;  // empty: every attribute
    Observer observer;
    bool active = true;  // false once dropped, though a walk may still hold it
};

Subscription::Subscription(std::shared_ptr<Registration> registration)
    : registration_(std::move(registration)) {}

Subscription::Subscription(Subscription&& other) noexcept = default;

Subscription& Subscription::operator=(Subscription&& other) noexcept {
    Subscription(std::move(other)).registration_.swap(registration_);
    return *this;
}

Subscription::~Subscription() {
    if (registration_) registration_->active = false;
}

/** One change being told. While a walk is on, registrations keep their places; the last one out tidies up. */
class Publisher::Walk {
public:
    explicit Walk(Publisher& publisher) : publisher_(publisher) { ++publisher_.walks_; }
    ~Walk() {
        --publisher_.walks_;
        publisher_.prune();
    }
    Walk(Walk const&) = delete;
    Walk& operator=(Walk const&) = delete;

private:
    Publisher& publisher_;
};

Publisher::Publisher() = default;
Publisher::~Publisher() = default;

Subscription Publisher::observe(std::string_view attribute, Observer observer) {
    return registered(attribute, std::move(observer));
}

Subscription Publisher::observeAll(Observer observer) {
    return registered({}, std::move(observer));
}

Subscription Publisher::registered(std::string_view attribute, Observer observer) {
    prune();
    auto registration = std::make_shared<Subscription::Registration>();
    registration->attribute = attribute;
    registration->observer = std::move(observer);
    registrations_.push_back(registration);
    return Subscription(std::move(registration));
}

void Publisher::notify(Change const& change) {
    Walk const walk(*this);
    auto const known = registrations_.size();
    for (std::size_t i = 0; i < known; ++i) {
        auto const registration = registrations_[i].lock();
        if (!registration || !registration->active) continue;
        if (registration->attribute.empty() || registration->attribute == change.attribute) {
            registration->observer(change);
        }
    }
}

void Publisher::prune() {
    if (walks_ != 0) return;
    std::erase_if(registrations_, [](auto const& registration) { return registration.expired(); });
}

}  // namespace Belmo
