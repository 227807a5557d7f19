#pragma once

#include <string>

/** What some work says when it fails in that way; empty if it does not fail. */
template <class Failure, class Work>
std::string failureOf(Work const& work) {
    try {
        work();
    } catch (Failure const& failure) {
        return failure.what();
    }
    return {};
}
