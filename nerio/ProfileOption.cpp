#include "nerio/ProfileOption.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "agent/ProfileJson.h"
#include "agent/TextFile.h"
#include "nerio/Guarded.h"

namespace Nerio {

namespace {

/** Both ends of a pipe, closed at the end. */
class Pipe {
public:
    Pipe() {
        if (::pipe(ends_.data()) != 0)
            throw Belmo::ResourceException(fmt::format("cannot make a pipe: {}", std::strerror(errno)));
    }
    ~Pipe() {
        closeEnd(0);
        closeEnd(1);
    }
    Pipe(Pipe const&) = delete;
    Pipe& operator=(Pipe const&) = delete;

    int writeEnd() const { return ends_[1]; }
    void closeEnd(std::size_t end) {
        if (ends_[end] >= 0) ::close(std::exchange(ends_[end], -1));
    }
    std::string readAll() {
        closeEnd(1);
        std::string text;
        std::array<char, 4096> buffer;
        for (;;) {
            auto const count = ::read(ends_[0], buffer.data(), buffer.size());
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) return text;
            text.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }

private:
    std::array<int, 2> ends_{-1, -1};
};

void writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        auto const count = ::write(descriptor, text.data(), text.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

constexpr int refused = 1;

/** The process apart: says what the work says, or why it failed. */
[[noreturn]] void workApart(Pipe& said, Pipe& complaints, std::function<std::string()> const& work) {
    rlimit const none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    ::dup2(complaints.writeEnd(), STDERR_FILENO);
    int status = 0;
    std::string text;
    try {
        text = work();
    } catch (std::exception const& failure) {
        text = failure.what();
        status = refused;
    }
    writeAll(said.writeEnd(), text);
    ::_exit(status);
}

/** The first line of a text, without the place in the source that an assertion ends with. */
std::string firstLine(std::string const& text) {
    constexpr std::string_view prefix = "Assertion failed: ";
    auto line = text.substr(0, text.find('\n'));
    if (line.starts_with(prefix)) line.erase(0, prefix.size());
    if (auto const place = line.rfind(" ("); place != std::string::npos && line.ends_with(')'))
        line.resize(place);
    return line;
}

}  // namespace

std::string doneApart(std::string const& subject, std::function<std::string()> const& work) {
    Pipe said;
    Pipe complaints;
    auto const child = ::fork();
    if (child < 0)
        throw Belmo::ResourceException(fmt::format("cannot start a process: {}", std::strerror(errno)));
    if (child == 0) workApart(said, complaints, work);
    auto text = said.readAll();
    auto const complaint = complaints.readAll();
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return text;
    throw BadInput(fmt::format("{}: {}", subject, WIFEXITED(status) ? text : firstLine(complaint)));
}

Belmo::Ptr<NerioSwitch::ProfileInfo> profileOption(std::string const& text) {
    if (auto preset = NerioSwitch::profilePreset(text)) return preset;
    try {
        Agent::Place const whole;
        auto const json = Agent::parseJson(Agent::textOfFile(text));
        auto const* within = json.is_object() ? Agent::optionalMember(json, "profile") : nullptr;
        return within == nullptr ? Agent::profileFromJson(json, whole, {"op"})
                                 : Agent::profileFromJson(*within, whole.member("profile"));
    } catch (Agent::JsonException const& failure) {
        auto const& place = failure.place();
        throw BadInput(fmt::format("{}: {}{}{}", text, place, place.empty() ? "" : ": ", failure.what()));
    } catch (Belmo::ResourceException const& failure) {
        throw BadInput(fmt::format("{}: no preset, and no file of a profile: {}", text, failure.what()));
    }
}

Agent::NamedProfile profileNamed(std::string const& text) {
    return {text, profileOption(text)};
}

}  // namespace Nerio
