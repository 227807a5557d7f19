// Lists of routes: plain ones, of `ip -json route show`, and of a routing daemon.
#include <chrono>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include "BuildUnderTest.h"
#include "FailureText.h"
#include "TemporaryDirectory.h"
#include "agent/Json.h"
#include "agent/RouteFile.h"

namespace {

using Agent::FileNexthop;
using Agent::FileRoute;
using Agent::RouteFile;
using Agent::RouteFormat;
using Agent::routesFromText;
using NerioTest::sanitized;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

FileRoute route(char const* prefix, U32 nexthop, U32 number, U8 vrf = 0) {
    Sorn::CharRange range(prefix);
    return {{vrf, Lanvo::Prefix::fromText(range)}, nexthop, number};
}

std::vector<std::string> problemsOf(RouteFile const& file) {
    std::vector<std::string> texts;
    for (auto const& problem : file.problems)
        texts.push_back(problem.text);
    return texts;
}

TEST(PlainRoutes, AreAPrefixANextHopAndAVrf) {
    auto const file = routesFromText(
        "# the core\n"
        "10.0.0.0/8 7\n"
        "\n"
        "  192.168.1.0/24\t4095  3 # a site\r\n"
        "10.1.2.3 0\n"
        "default 56 255\n"
        "10.0.0.0/8 9 1");
    EXPECT_EQ(file.format, RouteFormat::plain);
    EXPECT_THAT(file.routes, ElementsAre(route("10.0.0.0/8", 7, 2), route("192.168.1.0/24", 4095, 4, 3),
                                         route("10.1.2.3/32", 0, 5), route("0.0.0.0/0", 56, 6, 255),
                                         route("10.0.0.0/8", 9, 7, 1)));
    EXPECT_THAT(file.problems, IsEmpty());
    EXPECT_THAT(file.nexthops, IsEmpty());
    EXPECT_EQ(file.passedOver, 0u);
}

TEST(PlainRoutes, NamedNextHopsAreNumberedInOrderOfAppearance) {
    auto const file = routesFromText(
        "10.0.0.0/8 192.0.2.1\n"
        "11.0.0.0/8 1\n"  // a number that the list gives is nobody else's
        "12.0.0.0/8\n"
        "13.0.0.0/8 eth0\n"
        "14.0.0.0/8 192.0.2.1\n"
        "15.0.0.0/8\n");
    EXPECT_THAT(file.routes,
                ElementsAre(route("10.0.0.0/8", 0, 1), route("11.0.0.0/8", 1, 2), route("12.0.0.0/8", 2, 3),
                            route("13.0.0.0/8", 3, 4), route("14.0.0.0/8", 0, 5), route("15.0.0.0/8", 2, 6)));
    EXPECT_THAT(file.nexthops,
                ElementsAre(FileNexthop{"192.0.2.1", 0}, FileNexthop{"", 2}, FileNexthop{"eth0", 3}));
}

TEST(PlainRoutes, NamesPassOver57AndEndWhereNumbersDo) {
    std::string text;
    for (U32 i = 0; i < 4097; ++i)
        text += fmt::format("10.{}.{}.0/24 hop{}\n", i / 256, i % 256, i);
    auto const file = routesFromText(text);
    ASSERT_THAT(file.routes, SizeIs(4095));
    EXPECT_EQ(file.routes[56].nexthop.value(), 56u);
    EXPECT_EQ(file.routes[57].nexthop.value(), 58u) << "57 stands for none";
    EXPECT_EQ(file.routes[4094].nexthop.value(), 4095u);
    EXPECT_THAT(problemsOf(file),
                ElementsAre("line 4096: next hop \"hop4095\" is one too many: cells tell 4095 apart",
                            "line 4097: next hop \"hop4096\" is one too many: cells tell 4095 apart"));
}

TEST(PlainRoutes, BadLinesAreToldByNumberAndTheOthersAreRead) {
    auto const file = routesFromText(
        "10.0.0.0/8\n"
        "10.0.0.1/8\n"
        "10.0.0.0/33\n"
        "10.0.0/8\n"
        "010.0.0.0/8\n"
        "2001:db8::/32\n"
        "# fine\n"
        "11.0.0.0/8 57\n"
        "11.0.0.0/8 4096\n"
        "11.0.0.0/8 1 256\n"
        "11.0.0.0/8 1 red\n"
        "11.0.0.0/8 1 2 3\n"
        "\xff\xfe\n"
        "10.0.0.0/8/8\n"
        "12.0.0.0/\n"
        "13.0.0.0/8\n");
    EXPECT_THAT(file.routes, ElementsAre(route("10.0.0.0/8", 0, 1), route("13.0.0.0/8", 0, 16)));
    EXPECT_THAT(
        problemsOf(file),
        ElementsAre(
            "line 2: \"10.0.0.1/8\" has bits set beyond its length",
            "line 3: \"10.0.0.0/33\" is no IPv4 prefix", "line 4: \"10.0.0/8\" is no IPv4 prefix",
            "line 5: \"010.0.0.0/8\" is no IPv4 prefix", "line 6: \"2001:db8::/32\" is no IPv4 prefix",
            "line 8: next hop 57 stands for none", "line 9: next hop 4096 is above 4095",
            "line 10: VRF 256 is above 255", "line 11: \"red\" is no VRF",
            "line 12: there is more than a prefix, a next hop and a VRF",
            "line 13: \"\xef\xbf\xbd\xef\xbf\xbd\" is no IPv4 prefix",
            "line 14: \"10.0.0.0/8/8\" is no IPv4 prefix", "line 15: \"12.0.0.0/\" is no IPv4 prefix"));
    EXPECT_EQ(file.problems[2].number, 4u);
}

TEST(PlainRoutes, TheChipMayHaveFewerVrfs) {
    auto const file = routesFromText("10.0.0.0/8 1 3\n10.0.0.0/8 1 4\n", 4);
    EXPECT_THAT(file.routes, ElementsAre(route("10.0.0.0/8", 1, 1, 3)));
    EXPECT_THAT(problemsOf(file), ElementsAre("line 2: VRF 4 is above 3"));
}

TEST(PlainRoutes, ARepeatedRouteIsPassedOverAndOneThatContradictsIsAProblem) {
    auto const file = routesFromText(
        "10.0.0.0/8 a\n"
        "10.0.0.0/8 a\n"
        "10.0.0.0/8 b\n"
        "10.0.0.0/8 b 1\n"
        "10.0.0.0/9 b\n");
    EXPECT_THAT(file.routes, SizeIs(3));
    EXPECT_EQ(file.passedOver, 1u);
    EXPECT_THAT(problemsOf(file), ElementsAre("line 3: 10.0.0.0/8 has another next hop on line 1"));
}

TEST(PlainRoutes, AnEmptyListHasNone) {
    for (auto const* text : {"", "\n\n", "  # nothing"}) {
        auto const file = routesFromText(text);
        EXPECT_EQ(file.format, RouteFormat::plain);
        EXPECT_THAT(file.routes, IsEmpty());
        EXPECT_THAT(file.problems, IsEmpty());
    }
}

TEST(PlainRoutes, ALongListIsReadQuickly) {
    std::string text;
    for (U32 i = 0; i < 900000; ++i)
        text += fmt::format("{}.{}.{}.0/24 192.0.2.{}\n", i >> 16, i >> 8 & 255, i & 255, i % 200);
    auto const begin = std::chrono::steady_clock::now();
    auto const file = routesFromText(text);
    std::chrono::duration<double> const took = std::chrono::steady_clock::now() - begin;
    EXPECT_THAT(file.routes, SizeIs(900000));
    EXPECT_THAT(file.nexthops, SizeIs(200));
    RecordProperty("milliseconds", static_cast<int>(took.count() * 1000));
    if (!sanitized) {
        EXPECT_LT(took.count(), 5) << "a second on a machine of its own";
    }
}

TEST(IpRoutes, AreReadWithTheirGatewaysAndInterfaces) {
    auto const file = routesFromText(R"( [
        {"dst":"default","gateway":"192.0.2.1","dev":"eth0","protocol":"static","flags":[]},
        {"dst":"10.0.0.0/8","dev":"eth1","scope":"link","prefsrc":"10.0.0.2","flags":[]},
        {"dst":"10.1.2.3","gateway":"192.0.2.1","dev":"eth0","flags":[]},
        {"dst":"10.2.0.0/16","via":{"family":"inet6","host":"fe80::1"},"dev":"eth2","flags":[]},
        {"dst":"10.3.0.0/16","flags":[],"nexthops":[
            {"gateway":"192.0.2.9","dev":"eth1","weight":1,"flags":[]},
            {"gateway":"192.0.2.1","dev":"eth0","weight":1,"flags":[]}]},
        {"dst":"10.4.0.0/16","flags":[],"nexthops":[
            {"gateway":"192.0.2.1","dev":"eth0","weight":1,"flags":[]},
            {"gateway":"192.0.2.9","dev":"eth1","weight":1,"flags":[]}]},
        {"type":"blackhole","dst":"10.5.0.0/16","flags":[]},
        {"type":"unicast","dst":"10.6.0.0/16","dev":"eth1","table":"main","flags":[]}])");
    EXPECT_EQ(file.format, RouteFormat::ipRoute);
    EXPECT_THAT(file.routes, ElementsAre(route("0.0.0.0/0", 0, 1), route("10.0.0.0/8", 1, 2),
                                         route("10.1.2.3/32", 0, 3), route("10.2.0.0/16", 2, 4),
                                         route("10.3.0.0/16", 3, 5), route("10.4.0.0/16", 3, 6),
                                         route("10.5.0.0/16", 4, 7), route("10.6.0.0/16", 1, 8)));
    EXPECT_THAT(
        file.nexthops,
        ElementsAre(FileNexthop{"192.0.2.1 eth0", 0}, FileNexthop{"eth1", 1}, FileNexthop{"fe80::1 eth2", 2},
                    FileNexthop{"192.0.2.1 eth0, 192.0.2.9 eth1", 3}, FileNexthop{"blackhole", 4}));
    EXPECT_THAT(problemsOf(file), IsEmpty());
}

TEST(IpRoutes, TheLowestMetricCountsAndTheHostsOwnArePassedOver) {
    auto const file = routesFromText(R"([
        {"dst":"10.0.0.0/8","dev":"a","metric":100},
        {"dst":"10.0.0.0/8","dev":"b"},
        {"dst":"10.0.0.0/8","dev":"c","metric":50},
        {"type":"local","dst":"10.0.0.1","dev":"lo"},
        {"type":"broadcast","dst":"10.255.255.255","dev":"a"},
        {"type":"multicast","dst":"239.0.0.0/8","dev":"a"},
        {"dst":"11.0.0.0/8","dev":"a","table":"local"},
        {"dst":"2001:db8::/32","dev":"a"}])");
    EXPECT_THAT(file.routes, ElementsAre(route("10.0.0.0/8", 1, 2)));
    EXPECT_EQ(file.nexthops.at(1).name, "b");
    EXPECT_EQ(file.passedOver, 7u);
    EXPECT_THAT(problemsOf(file), IsEmpty());
}

TEST(IpRoutes, BadEntriesAreToldByNumber) {
    auto const file = routesFromText(R"([
        {"dev":"a"},
        {"dst":"10.0.0.0/8","dev":"a"},
        {"dst":"10.0.0.1/8","dev":"a"},
        {"dst":"11.0.0.0/8","dev":5},
        {"dst":"11.0.0.0/8","dev":"a","table":"red"},
        {"dst":"11.0.0.0/8","nexthops":{}},
        {"dst":"11.0.0.0/8","nexthops":[1]},
        {"dst":"11.0.0.0/8","dev":"a","metric":-1},
        {"dst":7},
        7])");
    EXPECT_THAT(file.routes, ElementsAre(route("10.0.0.0/8", 0, 2)));
    EXPECT_THAT(
        problemsOf(file),
        ElementsAre("route 1: \"dst\" is missing",
                    "route 3, \"10.0.0.1/8\": \"10.0.0.1/8\" has bits set beyond its length",
                    "route 4, \"11.0.0.0/8\": dev: expected a text, found 5",
                    "route 5, \"11.0.0.0/8\": nobody knows the VRF of table \"red\"",
                    "route 6, \"11.0.0.0/8\": nexthops: expected an array, found an object",
                    "route 7, \"11.0.0.0/8\": nexthops: expected objects, found 1",
                    "route 8, \"11.0.0.0/8\": metric -1 < 0 not allowed",
                    "route 9: dst: expected a text, found 7", "route 10: expected an object, found 7"));
}

TEST(DaemonRoutes, TheSelectedOneOfEachPrefixIsRead) {
    auto const file = routesFromText(R"({
        "10.9.0.0/16":[
            {"prefix":"10.9.0.0/16","protocol":"static","vrfId":2,"distance":200,"nexthops":[{"ip":"192.0.2.7"}]},
            {"prefix":"10.9.0.0/16","protocol":"bgp","vrfId":2,"selected":true,"installed":true,"nexthops":[
                {"fib":true,"ip":"192.0.2.5","interfaceName":"eth1","active":true},
                {"fib":true,"ip":"192.0.2.1","interfaceName":"eth0","active":true},
                {"ip":"192.0.2.9","interfaceName":"eth9","active":true}]}],
        "10.8.0.0/16":[
            {"selected":true,"nexthops":[{"directlyConnected":true,"interfaceName":"eth0","active":true}]}],
        "10.7.0.0/16":[
            {"selected":true,"nexthops":[
                {"ip":"198.51.100.1","active":true,"recursive":true},
                {"ip":"192.0.2.1","interfaceName":"eth0","active":true,"fib":true,"resolver":true}]}],
        "10.6.0.0/16":[{"selected":true,"nexthops":[{"blackhole":true,"active":true,"fib":true}]}],
        "10.5.0.0/16":[{"nexthops":[{"ip":"192.0.2.1","active":true}]}],
        "2001:db8::/32":[{"selected":true},{}]})");
    EXPECT_EQ(file.format, RouteFormat::showIpRoute);
    EXPECT_THAT(file.routes, ElementsAre(route("10.9.0.0/16", 0, 1, 2), route("10.8.0.0/16", 1, 2),
                                         route("10.7.0.0/16", 2, 3), route("10.6.0.0/16", 3, 4)))
        << "in the file's order";
    EXPECT_THAT(file.nexthops,
                ElementsAre(FileNexthop{"192.0.2.1 eth0, 192.0.2.5 eth1", 0}, FileNexthop{"eth0", 1},
                            FileNexthop{"192.0.2.1 eth0", 2}, FileNexthop{"blackhole", 3}));
    EXPECT_EQ(file.passedOver, 4u);
    EXPECT_THAT(problemsOf(file), IsEmpty());
}

TEST(DaemonRoutes, BadEntriesAreToldByNumberAndPrefix) {
    auto const file = routesFromText(R"({
        "10.0.0.0/8":{"selected":true},
        "10.0.0.1/8":[],
        "11.0.0.0/8":[{"selected":true,"nexthops":[{"ip":"192.0.2.1"}]}],
        "12.0.0.0/8":[{"selected":true}],
        "13.0.0.0/8":[{"selected":true,"vrfId":256,"nexthops":[{"ip":"192.0.2.1","active":true}]}],
        "14.0.0.0/8":[5],
        "warning":5,
        "15.0.0.0/8":[{"selected":true,"nexthops":[{"ip":"192.0.2.1","active":true}]}]})");
    EXPECT_THAT(file.routes, ElementsAre(route("15.0.0.0/8", 0, 8)));
    EXPECT_THAT(problemsOf(file),
                ElementsAre("route 1, \"10.0.0.0/8\": expected an array of routes, found an object",
                            "route 2, \"10.0.0.1/8\": \"10.0.0.1/8\" has bits set beyond its length",
                            "route 3, \"11.0.0.0/8\": no next hop is active",
                            "route 4, \"12.0.0.0/8\": no next hop is active",
                            "route 5, \"13.0.0.0/8\": VRF 256 is above 255",
                            "route 6, \"14.0.0.0/8\": expected a route, found 5",
                            "route 7, \"warning\": expected an array of routes, found 5"));
}

TEST(DaemonRoutes, ManyPrefixesTakeNoLongerEach) {
    std::string text = "{";
    for (U32 i = 0; i < 60000; ++i) {
        text += fmt::format(
            "{}\"{}.{}.{}.0/"
            "24\":[{{\"selected\":true,\"nexthops\":[{{\"ip\":\"192.0.2.1\",\"active\":true}}]}}]",
            i == 0 ? "" : ",\n", 10 + (i >> 16), i >> 8 & 255, i & 255);
    }
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_THAT(routesFromText(text + "}").routes, SizeIs(60000));
    std::chrono::duration<double> const took = std::chrono::steady_clock::now() - begin;
    if (!sanitized) {
        EXPECT_LT(took.count(), 5) << "searching all prefixes for each would take half a minute";
    }
}

TEST(JsonRoutes, ATextThatIsNoneSaysWhere) {
    EXPECT_EQ(failureOf<Agent::JsonException>([] { routesFromText("[{\"dst\":\n]"); }),
              "line 2, column 1: not JSON: unexpected ']'; expected '[', '{', or a literal");
    EXPECT_EQ(failureOf<Agent::JsonException>([] { routesFromText("{\"10.0.0.0/8\":[}"); }),
              "line 1, column 16: not JSON: unexpected '}'; expected '[', '{', or a literal");
    EXPECT_EQ(failureOf<Agent::JsonException>([] { routesFromText("{\"10.0.0.0/8\":[1e999]}"); }),
              "line 1: not JSON: number too large: '1e999'");
    EXPECT_THAT(routesFromText("[ ]").routes, IsEmpty());
    EXPECT_THAT(routesFromText("{}").routes, IsEmpty());
}

TEST(RouteFiles, MayBePackedAndAreRefusedWithTheReason) {
    TemporaryDirectory directory;
    auto const path = directory.path("routes.gz");
    std::string const text = "10.0.0.0/8 3\n";
    auto* file = gzopen(path.c_str(), "wb");
    ASSERT_EQ(gzwrite(file, text.data(), static_cast<unsigned>(text.size())), static_cast<int>(text.size()));
    gzclose(file);
    EXPECT_THAT(Agent::readRouteFile(path).routes, ElementsAre(route("10.0.0.0/8", 3, 1)));
    EXPECT_EQ(failureOf<Belmo::ResourceException>([&] { Agent::readRouteFile(directory.path("none")); }),
              "No such file or directory");
}

}  // namespace
