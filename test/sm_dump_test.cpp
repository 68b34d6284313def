#include "test/MachinesUnderTest.h"

#include <gtest/gtest.h>

#include <any>
#include <string>

// The dumps of the three tables, byte for byte, called by the operation's name as a show command does.

namespace {

using namespace XpAcl;
using test::ChipUnderTest;
using test::device;

std::string shown(ChipUnderTest& chip, const char* operation, unsigned number = 0) {
  return test::writtenBy([&](Vane::U32 fd) {
    Vane::PtrInterface& object = *chip.machine;
    object.fwkType().operation(operation).invoke(object, {std::any(fd), std::any(device(number))});
  });
}

const std::string portVlanHeader = "|-------|-----|-----|-----|-----|\n"
                                   "|hw     |Route|Route|key  |key  |\n"
                                   "|Index  |ACLEn|AclId|Ivif |Vlan |\n"
                                   "|-------|-----|-----|-----|-----|\n";
const std::string portVlanFooter = "|-------------------------------|\n";
const std::string portConfigHeader = "|----------------------------------------|\n"
                                     "| hwIndex | PAclId | v4En | v6En | macEn |\n"
                                     "|--------------------------------|-------|\n";
const std::string portConfigFooter = "|----------------------------------------------|\n";
const std::string egressHeader =
    "|--------|-----------|-------|-----------|-----------|-------|-----------|-----------|-------|\n"
    "|key     | key       |       |           |           |       |           |           |hw     |\n"
    "|egressBd| egressVif |ePaclId|ePaclIpV4En|ePaclIpV6En|eRaclId|eRaclIpV4En|eRaclIpV6En|Index  |\n"
    "|--------|-----------|-------|-----------|-----------|-------|-----------|-----------|-------|\n";
const std::string egressFooter =
    "|--------------------------------------------------------------------------------------------|\n";

TEST(SmDump, EmptyTables) {
  ChipUnderTest chip;
  EXPECT_EQ(shown(chip, "doShowPortVlanIvifTblEntries"),
            portVlanHeader + portVlanFooter + "Number of acl-relevent entries in range of 0 to 16 : 0\n");
  EXPECT_EQ(shown(chip, "doShowPortCfgTblEntries"),
            portConfigHeader + portConfigFooter + "Number of acl-relevent entries in range of 0 to 8 : 0\n");
  EXPECT_EQ(shown(chip, "doShowEgressBdEvifTblEntries"),
            egressHeader + egressFooter + "Number of acl-relevent entries in range of 0 to 16 : 0\n");
}

XpXdk::xpPortVlanIvifEntry portVlan(unsigned vlan, unsigned vif, unsigned id, unsigned en) {
  XpXdk::xpPortVlanIvifEntry entry;
  entry.keyVlan = static_cast<uint16_t>(vlan);
  entry.keyIvif = static_cast<uint16_t>(vif);
  entry.routeAclId = static_cast<uint8_t>(id);
  entry.routeAclEn = static_cast<uint8_t>(en);
  return entry;
}

XpXdk::xpPortConfigEntry portConfig(unsigned id, unsigned en, unsigned mac) {
  XpXdk::xpPortConfigEntry entry;
  entry.portAclId = static_cast<uint8_t>(id);
  entry.aclEnBits = static_cast<uint8_t>(en);
  entry.macAclEn = static_cast<uint8_t>(mac);
  return entry;
}

TEST(SmDump, PortVlanEntries) {
  ChipUnderTest chip;
  chip.sdk.portVlanIs(0, 1, portVlan(10, 5, 3, 1));
  chip.sdk.portVlanIs(0, 2, portVlan(11, 5, 0, 0)); // carries no ACL state
  chip.sdk.portVlanIs(0, 3, portVlan(12, 65535, 0, 2));
  chip.sdk.portVlanIs(0, 15, portVlan(4094, 65534, 255, 3));
  EXPECT_EQ(shown(chip, "doShowPortVlanIvifTblEntries"),
            portVlanHeader +
                "|      1|    1|    3|    5|   10|\n"
                "|      3|    2|    0|65535|   12|\n"
                "|     15|    3|  255|65534| 4094|\n" +
                portVlanFooter + "Number of acl-relevent entries in range of 0 to 16 : 3\n");
}

TEST(SmDump, PortConfigEntries) {
  ChipUnderTest chip;
  chip.sdk.portConfigIs(0, 0, portConfig(0, 0, 1)); // MAC alone does not count
  chip.sdk.portConfigIs(0, 1, portConfig(7, 3, 0)); // the IPv6 column shows the bit where it stands
  chip.sdk.portConfigIs(0, 2, portConfig(7, 1, 1));
  chip.sdk.portConfigIs(0, 3, portConfig(0, 2, 0));
  chip.sdk.portConfigIs(0, 7, portConfig(255, 0, 1));
  EXPECT_EQ(shown(chip, "doShowPortCfgTblEntries"),
            portConfigHeader +
                "|        1|       7|     1|     2|     0|\n"
                "|        2|       7|     1|     0|     1|\n"
                "|        3|       0|     0|     2|     0|\n"
                "|        7|     255|     0|     0|     1|\n" +
                portConfigFooter + "Number of acl-relevent entries in range of 0 to 8 : 4\n");
}

TEST(SmDump, EgressEntries) {
  ChipUnderTest chip;
  XpXdk::xpEgressBdEvifEntry entry;
  entry.ePaclId = 9; // the key is zero, so the rest does not count
  chip.sdk.egressIs(0, 0, entry);
  entry = {};
  entry.egressBd = 10;
  chip.sdk.egressIs(0, 1, entry); // one half of the key is enough, without any ACL
  entry = {};
  entry.egressVif = 5;
  chip.sdk.egressIs(0, 2, entry);
  chip.sdk.egressIs(0, 4, {4094, 65535, 255, 1, 0, 254, 0, 1});
  chip.sdk.egressIs(0, 5, {10, 6, 1, 0, 1, 2, 1, 0});
  EXPECT_EQ(
      shown(chip, "doShowEgressBdEvifTblEntries"),
      egressHeader +
          "|      10|          0|      0|          0|          0|      0|          0|          0|      1|\n"
          "|       0|          5|      0|          0|          0|      0|          0|          0|      2|\n"
          "|    4094|      65535|    255|          1|          0|    254|          0|          1|      4|\n"
          "|      10|          6|      1|          0|          1|      2|          1|          0|      5|\n" +
          egressFooter + "Number of acl-relevent entries in range of 0 to 16 : 4\n");
}

TEST(SmDump, TheDeviceIsTheOneThatIsAsked) {
  ChipUnderTest chip;
  chip.sdk.portConfigIs(3, 1, portConfig(7, 1, 0));
  EXPECT_EQ(shown(chip, "doShowPortCfgTblEntries", 3),
            portConfigHeader + "|        1|       7|     1|     0|     0|\n" + portConfigFooter +
                "Number of acl-relevent entries in range of 0 to 8 : 1\n");
  EXPECT_EQ(shown(chip, "doShowPortCfgTblEntries", 0),
            portConfigHeader + portConfigFooter + "Number of acl-relevent entries in range of 0 to 8 : 0\n");
}

// Entries are asked for one by one, in order; one that the chip does not give is left out.
TEST(SmDump, AnEntryThatCannotBeReadIsLeftOut) {
  ChipUnderTest chip;
  chip.sdk.numPortsIs(3);
  for (unsigned port = 0; port < 3; ++port) {
    chip.sdk.portConfigIs(0, port, portConfig(port + 1, 1, 0));
  }
  for (const int status : {1, 9, 41}) {
    chip.sdk.takeCalls();
    chip.sdk.failCall(3, status);
    EXPECT_EQ(shown(chip, "doShowPortCfgTblEntries"),
              portConfigHeader +
                  "|        0|       1|     1|     0|     0|\n"
                  "|        2|       3|     1|     0|     0|\n" +
                  portConfigFooter + "Number of acl-relevent entries in range of 0 to 3 : 2\n");
    EXPECT_EQ(chip.sdk.takeCalls(), "getNumOfEntry portConfig d0 -> 0\n"
                                    "readEntry portConfig d0 p0 c0 -> 0\n"
                                    "readEntry portConfig d0 p1 c0 -> " +
                                        std::to_string(status) +
                                        "\n"
                                        "readEntry portConfig d0 p2 c0 -> 0\n");
  }
}

TEST(SmDump, WhatTheMachineProgramsIsWhatTheDumpShows) {
  ChipUnderTest chip;
  chip.pairIs("Ethernet1", 10, 5);
  chip.map().ingressRouteAclIdEnIs(test::vlan(10), test::aclIdEn(9, "46b"));
  chip.map().ingressPortAclIdEnIs(test::intf("Ethernet2"), test::aclIdEn(4, "46m"));
  EXPECT_EQ(shown(chip, "doShowPortVlanIvifTblEntries"),
            portVlanHeader + "|      0|    3|    0|    5|   10|\n" + portVlanFooter +
                "Number of acl-relevent entries in range of 0 to 16 : 1\n");
  EXPECT_EQ(shown(chip, "doShowPortCfgTblEntries"),
            portConfigHeader + "|        2|       4|     1|     2|     1|\n" + portConfigFooter +
                "Number of acl-relevent entries in range of 0 to 8 : 1\n");
}

// A chip whose machine is of the derived type answers to the same names.
TEST(SmDump, TheOperationsAreInherited) {
  test::SystemUnderTest system;
  system.make();
  const auto chip = system.chip(0);
  const std::string text = test::writtenBy([&](Vane::U32 fd) {
    chip->fwkType().operation("doShowPortCfgTblEntries").invoke(chip, {std::any(fd), std::any(device(0))});
  });
  EXPECT_EQ(text,
            portConfigHeader + portConfigFooter + "Number of acl-relevent entries in range of 0 to 8 : 0\n");
  EXPECT_EQ(chip->fwkType().operation("doShowPortVlanIvifTblEntries").numArguments(), 2u);
  EXPECT_THROW(chip->fwkType().operation("doShowNothing"), Vane::Exception);
}

TEST(SmDump, ATableWithoutEntriesEndsTheProcess) {
  const auto death = [](const char* operation) {
    return test::exactDeathOf([operation] {
      ChipUnderTest chip;
      chip.sdk.numPortsIs(0);
      chip.sdk.numEntriesIs(0);
      shown(chip, operation);
    });
  };
  const auto expected = [](const char* line, const char* operation) {
    return std::string("XpAclHwAclIdSm:") + line + ": void XpAcl::ChipHwAclIdSm::" + operation +
           "(Vane::U32, XpXdk::XpDeviceId): Assertion \"numEntries\" failed.\n";
  };
  EXPECT_EQ(death("doShowPortVlanIvifTblEntries"), expected("569", "doShowPortVlanIvifTblEntries"));
  EXPECT_EQ(death("doShowPortCfgTblEntries"), expected("599", "doShowPortCfgTblEntries"));
  EXPECT_EQ(death("doShowEgressBdEvifTblEntries"), expected("630", "doShowEgressBdEvifTblEntries"));
}

// A device that the SDK refuses has no entries to count.
TEST(SmDump, ARefusedCountIsNoCount) {
  EXPECT_NE(test::exactDeathOf([] {
              ChipUnderTest chip;
              chip.sdk.failCall(1, 2);
              shown(chip, "doShowPortCfgTblEntries");
            }).find("XpAclHwAclIdSm:599: "),
            std::string::npos);
}

} // namespace
