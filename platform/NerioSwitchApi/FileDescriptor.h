#pragma once

#include <unistd.h>
#include <utility>

#include "Belmo/Exceptions.h"
#include "Belmo/Types.h"

namespace NerioSwitchApi {

/** Owns an open file of the system; -1 is none. */
class FileDescriptor {
public:
    explicit FileDescriptor(int number) : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~FileDescriptor() {
        if (isOpen()) ::close(number_);
    }

    bool isOpen() const { return number_ >= 0; }
    int number() const { return number_; }

private:
    int number_;
};

/** What the system refused and why, as in "cannot open /run/switch/lag.shadow: Permission denied". */
Belmo::ResourceException systemFailure(char const* attempt, Belmo::String const& path, int error);

}  // namespace NerioSwitchApi
