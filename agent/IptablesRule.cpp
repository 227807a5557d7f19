#include "agent/IptablesRule.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <functional>
#include <map>
#include <utility>

#include "Belmo/Exceptions.h"

#include "agent/ImportText.h"

namespace Agent {

namespace {

[[noreturn]] void refuse(Belmo::String const& text) {
    throw Belmo::RangeException(text);
}

/** The words of a line; quotes hold a word together, and a backslash in them takes the next mark as it is. */
std::vector<Belmo::String> wordsOf(std::string_view line) {
    std::vector<Belmo::String> words;
    bool inWord = false;
    bool inQuotes = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        char character = line[i];
        bool const isBlank = character == ' ' || character == '\t' || character == '\r';
        if (isBlank && !inQuotes) {
            inWord = false;
            continue;
        }
        if (!inWord) words.emplace_back();
        inWord = true;
        if (character == '"') {
            inQuotes = !inQuotes;
            continue;
        }
        if (inQuotes && character == '\\' && i + 1 < line.size()) character = line[++i];
        words.back() += character;
    }
    if (inQuotes) refuse("a quote without its end");
    return words;
}

constexpr std::array<std::pair<std::string_view, U8>, 14> protocolNames{{{"icmp", 1},
                                                                         {"igmp", 2},
                                                                         {"ipencap", 4},
                                                                         {"tcp", 6},
                                                                         {"udp", 17},
                                                                         {"dccp", 33},
                                                                         {"gre", 47},
                                                                         {"esp", 50},
                                                                         {"ah", 51},
                                                                         {"ospf", 89},
                                                                         {"pim", 103},
                                                                         {"vrrp", 112},
                                                                         {"sctp", 132},
                                                                         {"udplite", 136}}};

/** Matches that add options of their own, all of which are read here. */
constexpr std::array<std::string_view, 5> plainMatches{"tcp", "udp", "multiport", "comment", "icmp"};

class Reader {
public:
    explicit Reader(std::string_view line) : words_(wordsOf(line)) {
        if (!words_.empty() && words_.front().starts_with('[')) ++next_;
        if (next_ + 2 > words_.size() || words_[next_] != "-A") refuse("no rule \"-A CHAIN ...\"");
        rule_.chain = words_[next_ + 1];
        next_ += 2;
    }

    IptablesRule read() {
        while (next_ < words_.size())
            readOption();
        return std::move(rule_);
    }

private:
    using Take = void (Reader::*)(Belmo::String const& option);

    Belmo::String const& argumentOf(Belmo::String const& option) {
        if (next_ == words_.size()) refuse(fmt::format("{} without what follows it", option));
        return words_[next_++];
    }
    /** Arguments of an option that nobody knows: everything up to the next one. */
    void skipArguments() {
        while (next_ < words_.size() && !words_[next_].starts_with('-') && words_[next_] != "!")
            ++next_;
    }

    void readOption() {
        bool const isNegated = words_[next_] == "!";
        if (isNegated && ++next_ == words_.size()) refuse("! without what follows it");
        auto const option = words_[next_++];
        if (!option.starts_with('-')) refuse(fmt::format("{}: no option", option));
        if (isNegated) {
            rule_.misfits.push_back(fmt::format("! {}: keys tell what is, not what is not", option));
            skipArguments();
            return;
        }
        auto const known = options().find(option);
        if (known == options().end()) {
            rule_.misfits.push_back(fmt::format("{}: no key looks at it", option));
            skipArguments();
            return;
        }
        (this->*known->second)(option);
    }

    void source(Belmo::String const& option) { rule_.source = prefix(option); }
    void destination(Belmo::String const& option) { rule_.destination = prefix(option); }
    Lanvo::Prefix prefix(Belmo::String const& option) {
        auto const& text = argumentOf(option);
        if (text.find(':') != Belmo::String::npos) {
            rule_.misfits.push_back(fmt::format("{} {}: rules are those of IPv4", option, text));
            return {};
        }
        auto const prefix = prefixFromText(text);
        if (!prefix) refuse(fmt::format("{} {}: no IPv4 prefix", option, text));
        return *prefix;
    }
    void protocol(Belmo::String const& option) {
        auto const& text = argumentOf(option);
        if (text == "all" || text == "0") return;
        if (auto const number = numberFromText(text, 255)) {
            rule_.protocol = static_cast<U8>(*number);
            return;
        }
        auto const* const named =
            std::ranges::find(protocolNames, text, &std::pair<std::string_view, U8>::first);
        if (named != protocolNames.end()) {
            rule_.protocol = named->second;
        } else {
            rule_.misfits.push_back(fmt::format("-p {}: no protocol of a known number", text));
        }
    }
    void sourcePorts(Belmo::String const& option) { rule_.sourcePorts = ports(option); }
    void destinationPorts(Belmo::String const& option) { rule_.destinationPorts = ports(option); }
    std::vector<PortRange> ports(Belmo::String const& option) {
        auto const& text = argumentOf(option);
        std::vector<PortRange> all;
        for (auto const& part : splitText(text, ',')) {
            auto const range = portRangeFromText(part, ':');
            if (!range) refuse(fmt::format("{} {}: no ports", option, text));
            all.push_back(*range);
        }
        return all;
    }
    void match(Belmo::String const& option) {
        auto const& name = argumentOf(option);
        if (std::ranges::find(plainMatches, name) == plainMatches.end())
            rule_.misfits.push_back(fmt::format("-m {}: no key looks at it", name));
    }
    void interface(Belmo::String const& option) {
        rule_.misfits.push_back(fmt::format("{} {}: an ACL is chosen by the VLAN of a packet, not by a rule",
                                            option, argumentOf(option)));
    }
    void fragments(Belmo::String const& option) {
        rule_.misfits.push_back(fmt::format("{}: no key looks at it", option));
    }
    void target(Belmo::String const& option) { rule_.target = argumentOf(option); }
    void goTo(Belmo::String const& option) {
        rule_.misfits.push_back(fmt::format("-g {}: a rule permits or denies", argumentOf(option)));
    }
    void newAddress(Belmo::String const& option) { rule_.newAddress = argumentOf(option); }
    void passOver(Belmo::String const& option) { argumentOf(option); }
    void passOverTwo(Belmo::String const& option) {
        argumentOf(option);
        argumentOf(option);
    }

    static std::map<std::string_view, Take, std::less<>> const& options() {
        static std::map<std::string_view, Take, std::less<>> const all{
            {"-s", &Reader::source},
            {"--source", &Reader::source},
            {"-d", &Reader::destination},
            {"--destination", &Reader::destination},
            {"-p", &Reader::protocol},
            {"--protocol", &Reader::protocol},
            {"--sport", &Reader::sourcePorts},
            {"--sports", &Reader::sourcePorts},
            {"--dport", &Reader::destinationPorts},
            {"--dports", &Reader::destinationPorts},
            {"-m", &Reader::match},
            {"--match", &Reader::match},
            {"-i", &Reader::interface},
            {"--in-interface", &Reader::interface},
            {"-o", &Reader::interface},
            {"--out-interface", &Reader::interface},
            {"-f", &Reader::fragments},
            {"-j", &Reader::target},
            {"--jump", &Reader::target},
            {"-g", &Reader::goTo},
            {"--goto", &Reader::goTo},
            {"--to-destination", &Reader::newAddress},
            {"--to-source", &Reader::newAddress},
            {"--reject-with", &Reader::passOver},
            {"--comment", &Reader::passOver},
            {"-c", &Reader::passOverTwo},
        };
        return all;
    }

    std::vector<Belmo::String> words_;
    std::size_t next_ = 0;
    IptablesRule rule_;
};

}  // namespace

IptablesRule iptablesRule(std::string_view line) {
    return Reader(line).read();
}

}  // namespace Agent
