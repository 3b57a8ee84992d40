#include <gmock/gmock.h>

#include "HostFixture.h"
#include "support/LogCapture.h"

using testing::ElementsAre;
using testing::Pair;
using namespace tivra_internal;

namespace {

std::vector<std::pair<std::string, const HostConfigImpl*>> walk(const HostTable& table) {
    std::vector<std::pair<std::string, const HostConfigImpl*>> seen;
    table.forEachNamed(
        [&seen](const std::string& hostInfo, HostConfigImpl* host) { seen.emplace_back(hostInfo, host); });
    return seen;
}

TEST(HostTable, ATextIsSplitAndABadOneStillGivesAHostWithAWarning) {
    const struct {
        const char* text;
        const char* address;
        std::size_t port;
        bool isValid;
    } cases[] = {{"10.0.0.1:1", "10.0.0.1", 1, true},
                 {"10.0.0.1:65535", "10.0.0.1", 65535, true},
                 {"10.0.0.1:65536", "10.0.0.1", 65536, false},
                 {"10.0.0.1:-1", "10.0.0.1", SIZE_MAX, false},
                 {"10.0.0.1", "10.0.0.1", 0, false},
                 {":", "", 0, false},
                 {"a:b:80", "a", 0, false},
                 {"h%s%n:0080", "h%s%n", 80, true}};
    for (const auto& row : cases) {
        HostFixture fixture;
        LogCapture log;
        const HostConfigImpl& host = fixture.host(row.text);
        EXPECT_EQ(host.getAddr(), row.address);
        EXPECT_EQ(host.getPort(), row.port);
        EXPECT_EQ(log.has("WARN: Invalid hostInfoString (" + std::string(row.text) +
                          ") passed to ConnectionConfig::getHostConfig"),
                  !row.isValid);
    }
}

TEST(HostTable, ATextHasOneHostInTheOrderOfNamingAndIsWalkedEvenWhenItsHostIsGone) {
    HostFixture fixture;
    const HostConfigImpl& second = fixture.host("10.0.0.9:80");
    const HostConfigImpl& first = fixture.host("10.0.0.1:80");
    EXPECT_EQ(&fixture.host("10.0.0.9:80"), &second);
    EXPECT_THAT(walk(fixture.table), ElementsAre(Pair("10.0.0.9:80", &second), Pair("10.0.0.1:80", &first)));

    const std::size_t index = second.getIndex();
    EXPECT_FALSE(
        fixture.connections.removeHost("10.0.0.9:80", [=](std::size_t used) { return used == index; }));
    EXPECT_TRUE(fixture.connections.removeHost("10.0.0.9:80", [](std::size_t) { return false; }));
    EXPECT_FALSE(fixture.connections.removeHost("10.0.0.9:80", [](std::size_t) { return false; }));
    EXPECT_THAT(walk(fixture.table), ElementsAre(Pair("10.0.0.9:80", nullptr), Pair("10.0.0.1:80", &first)));
    EXPECT_EQ(fixture.host("10.0.0.9:80").getIndex(), 2U) << "clients are found by it: none is given twice";
}

TEST(HostTable, HostIsFoundByAddressAndPortHoweverItsTextWasWritten) {
    HostFixture fixture;
    const HostConfigImpl& odd = fixture.host("10.0.0.1: 0080x");
    EXPECT_EQ(fixture.table.find("10.0.0.1:80"), nullptr);
    EXPECT_EQ(fixture.table.findByAddress("10.0.0.1", 80), &odd);
    EXPECT_EQ(fixture.table.findByAddress("10.0.0.1", 81), nullptr);
    EXPECT_EQ(fixture.table.findByAddress("10.0.0.2", 80), nullptr);
}

TEST(HostTable, RekeyMovesTheHostOfThatPortAndOnlyAPrimaryTakesTheAddress) {
    for (const auto kind : {HostTable::RekeyKind::Primary, HostTable::RekeyKind::Backup}) {
        HostFixture fixture;
        const HostConfigImpl& host = fixture.host("10.0.0.1:80");
        fixture.host("10.0.0.1:81");
        fixture.table.rekeyByPort("10.9.9.9", 80, kind);
        EXPECT_EQ(fixture.table.find("10.0.0.1:80"), nullptr);
        EXPECT_EQ(fixture.table.find("10.9.9.9:80"), &host);
        EXPECT_EQ(host.getAddr(), kind == HostTable::RekeyKind::Primary ? "10.9.9.9" : "10.0.0.1");
    }
}

TEST(HostTable, AHostThatTheLibraryHasAddedIsRenamedAndGetsItsTextBack) {
    HostFixture fixture;
    HostConfigImpl& named = fixture.host("10.0.0.1:80");
    HostConfigImpl& added = fixture.host("10.0.0.1:81");
    named.setIsExternal(true);
    added.setIsExternal(false);
    for (HostConfigImpl* host : {&named, &added}) {
        const std::string port = std::to_string(host->getPort());
        fixture.table.rename("10.0.0.1:" + port, "10.9.9.9:" + port);
        host->setAddr("10.9.9.9");
        EXPECT_EQ(fixture.table.find("10.9.9.9:" + port), host);
        EXPECT_EQ(fixture.table.find("10.0.0.1:" + port), nullptr);
    }
    fixture.table.rename("10.9.9.9:80", "10.9.9.9:81");
    EXPECT_EQ(fixture.table.find("10.9.9.9:81"), &added) << "nobody is replaced";
    fixture.table.restoreAdded();
    EXPECT_EQ(fixture.table.find("10.9.9.9:80"), &named) << "the application's hosts are not touched";
    EXPECT_EQ(fixture.table.find("10.0.0.1:81"), &added);
    EXPECT_EQ(added.getAddr(), "10.0.0.1");
    fixture.table.rename("10.0.0.1:81", "10.9.9.9:81");
    HostConfigImpl& taker = fixture.host("10.0.0.1:81");
    fixture.table.restoreAdded();
    EXPECT_EQ(fixture.table.find("10.0.0.1:81"), &taker);
    EXPECT_EQ(fixture.table.find("10.9.9.9:81"), &added);
}

TEST(HostTable, RekeyPrefersTheHostMadeWithThePairAndNeverReplacesAnother) {
    HostFixture fixture;
    const HostConfigImpl& first = fixture.host("10.0.0.1:80");
    const HostConfigImpl& second = fixture.host("10.0.0.2:80");
    // Both hosts share the port: each pair finds its own.
    fixture.table.rekeyByPort("10.0.0.2", 80, HostTable::RekeyKind::Primary);
    fixture.table.rekeyByPort("10.0.0.1", 80, HostTable::RekeyKind::Primary);
    EXPECT_EQ(fixture.table.find("10.0.0.1:80"), &first);
    EXPECT_EQ(fixture.table.find("10.0.0.2:80"), &second);

    // The connection manager has moved the first one; a later pair names the address that it came from.
    fixture.table.rekeyByPort("10.9.9.9", 80, HostTable::RekeyKind::Primary);
    EXPECT_EQ(fixture.table.find("10.9.9.9:80"), &first);
    const HostConfigImpl& third = fixture.host("10.0.0.1:80");
    fixture.table.rekeyByPort("10.0.0.1", 80, HostTable::RekeyKind::Primary);
    EXPECT_EQ(fixture.table.find("10.0.0.1:80"), &third);
    EXPECT_EQ(fixture.table.find("10.9.9.9:80"), &first);
    EXPECT_EQ(first.getAddr(), "10.9.9.9");

    // The preferred host's text is taken by a host that got there before: neither is touched.
    HostFixture crossed;
    const HostConfigImpl& moved = crossed.host("10.0.0.5:80");
    crossed.table.rekeyByPort("10.0.0.6", 80, HostTable::RekeyKind::Backup);
    const HostConfigImpl& taker = crossed.host("10.0.0.5: 80");
    crossed.table.rekeyByPort("10.0.0.6", 81, HostTable::RekeyKind::Backup);
    EXPECT_EQ(crossed.table.find("10.0.0.6:80"), &moved);
    EXPECT_EQ(crossed.table.find("10.0.0.5: 80"), &taker);
}

} // namespace
