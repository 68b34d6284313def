#include "test/HelperUnderTest.h"
#include "test/Patterns.h"

#include "XpAclTcam/XpAclAgentCommon.h"
#include "XpAclTcam/XpAclVlanVifKey.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

// The books' entities and the shared objects: defaults, collections, notifications.

namespace {

using namespace XpAcl;
using test::aclKey;
using test::deathOf;
using Log = std::vector<std::string>;

TEST(LibTypes, TheOneTableOfTables) {
  std::string text;
  for (const TcamTableInfo& table : tcamTables) {
    EXPECT_STREQ(tcamTable(table.tcamType).tableName, table.tableName);
    text += std::string(stringValue(table.tcamType).view()) + " " + std::to_string(table.tcamType) + " " +
            table.tableName + "=" + std::to_string(table.table) + " key " + std::to_string(table.keyType) +
            " id field " + std::to_string(table.aclIdField) + " feature " +
            std::to_string(table.partitionFeature) + "\n";
  }
  EXPECT_EQ(text, "ingressV4 0 TACL_V4_IACL=2 key 5 id field 0 feature 64\n"
                  "ingressV6 1 TACL_V6_IACL=3 key 6 id field 0 feature 65\n"
                  "egressV4 2 TACL_V4_EACL=4 key 5 id field 0 feature 66\n"
                  "egressV6 3 TACL_V6_EACL=5 key 6 id field 0 feature 67\n"
                  "ingressMac 4 TACL_MAC_ACL=7 key 7 id field 1 feature 68\n");
  EXPECT_EQ(TcamTypeInstance(4u), ingressMac);
  EXPECT_EQ(TcamTypeInstance(Vane::String("egressV6")), egressV6);
  EXPECT_NE(test::thrownBy([] { TcamTypeInstance(5u); }), "nothing");
  EXPECT_NE(test::thrownBy([] { TcamTypeInstance(Vane::String("egressMac")); }), "nothing");
}

TEST(LibTypes, RuleIdsAreOrderedUnsigned) {
  EXPECT_TRUE(TcamAclRuleId(1, 0) < TcamAclRuleId(1, 1));
  EXPECT_TRUE(TcamAclRuleId(1, 1) < TcamAclRuleId(2, 0));
  EXPECT_TRUE(TcamAclRuleId(1, 0) < TcamAclRuleId(0x80000000u, 0));
  EXPECT_FALSE(TcamAclRuleId(0x80000000u, 0) < TcamAclRuleId(1, 0));
  EXPECT_TRUE(TcamAclRuleId(1, 1) < TcamAclRuleId(1, 0x80000000u));
  EXPECT_TRUE(TcamAclRuleId() == TcamAclRuleId(0, 0));
}

TEST(LibTypes, Limits) {
  const auto limit = xpAclTcamLimitFactory();
  EXPECT_STREQ(limit->fwkType().name(), "XpAcl::XpAclTcamLimit");
  EXPECT_EQ(limit->maxTcamIdx(egressV6), 0u);
  limit->maxTcamIdxIs(egressV6, 10);
  limit->maxTcamIdxIs(egressV6, 20);
  limit->maxTcamIdxIs(ingressV4, 5);
  EXPECT_EQ(limit->maxTcamIdx(egressV6), 20u);
  EXPECT_EQ(limit->maxTcamIdxCount(), 2u);
  limit->maxTcamIdxDel(egressV6);
  EXPECT_EQ(limit->maxTcamIdx(egressV6), 0u);
  limit->maxTcamIdxDelAll();
  EXPECT_EQ(limit->maxTcamIdxCount(), 0u);
}

TEST(LibTypes, APoolHandsOutTheLowestRow) {
  const auto pool = tcamIdxAllocatorFactory(ingressV4);
  EXPECT_STREQ(pool->fwkType().name(), "XpAcl::TcamIdxAllocator");
  EXPECT_EQ(pool->tcamType(), ingressV4);
  for (Vane::U32 i = 0; i < 8; ++i) {
    pool->freeTcamIdxIs(i, true);
  }
  pool->freeTcamIdxDel(7);
  EXPECT_EQ(pool->freeTcamIdxCount(), 7u);
  EXPECT_FALSE(pool->freeTcamIdx(7));
  EXPECT_EQ(pool->takeLowest(), 0u);
  EXPECT_EQ(pool->takeLowest(), 1u);
  EXPECT_EQ(pool->takeLowest(), 2u);
  pool->freeTcamIdxIs(1, true);
  EXPECT_EQ(pool->takeLowest(), 1u);
  EXPECT_EQ(pool->takeLowest(), 3u);
  pool->freeTcamIdxDel(pool->freeTcamIdxFirst());
  EXPECT_EQ(pool->takeLowest(), 5u);
  pool->freeTcamIdxIs(0x80000000u, true);
  EXPECT_EQ(pool->takeLowest(), 6u) << "rows are unsigned";
  pool->freeTcamIdxDelAll();
  EXPECT_EQ(pool->freeTcamIdxCount(), 0u);
  EXPECT_NE(deathOf([&] { pool->takeLowest(); }).find("takeLowest: Assertion \"lowest\" failed."),
            std::string::npos);
}

TEST(LibTypes, ANewRule) {
  const Vane::Ptr<TcamRuleInfo> rule(new TcamRuleInfo(TcamAclRuleId(3, 1)));
  EXPECT_TRUE(rule->ruleId() == TcamAclRuleId(3, 1));
  EXPECT_TRUE(rule->filter() == Acl::IpFilter());
  EXPECT_TRUE(rule->ip6Filter() == Acl::Ip6Filter());
  EXPECT_TRUE(rule->macFilter() == Acl::MacFilter());
  EXPECT_EQ(rule->action(), Acl::permit);
  EXPECT_TRUE(rule->aclId() == Acl::UniqueId());
  EXPECT_FALSE(rule->aclData());
  EXPECT_EQ(rule->ruleNum() | rule->subruleNum() | rule->srcL4Port() | rule->srcL4PortMask() |
                rule->dstL4Port() | rule->dstL4PortMask(),
            0u);
  EXPECT_FALSE(rule->log() || rule->implicit() || rule->finalAclRule() || rule->count());
}

TEST(LibTypes, RulesTakeOverAllButTheirKey) {
  const Vane::Ptr<TcamRuleInfo> from(new TcamRuleInfo(TcamAclRuleId(3, 1)));
  const auto data = test::aclData(aclKey("web"));
  Acl::IpFilter four;
  four.protoIs(6);
  Acl::Ip6Filter six;
  six.protoIs(17);
  Acl::MacFilter mac;
  mac.etherTypeIs(5);
  from->filterIs(four);
  from->ip6FilterIs(six);
  from->macFilterIs(mac);
  from->actionIs(Acl::deny);
  from->logIs(true);
  from->aclIdIs(Acl::UniqueId(9));
  from->aclDataIs(data);
  from->ruleNumIs(1);
  from->subruleNumIs(2);
  from->srcL4PortIs(3);
  from->srcL4PortMaskIs(4);
  from->dstL4PortIs(5);
  from->dstL4PortMaskIs(6);
  from->implicitIs(true);
  from->finalAclRuleIs(true);
  from->countIs(true);
  const Vane::Ptr<TcamRuleInfo> to(new TcamRuleInfo(TcamAclRuleId(8, 8)));
  to->attributesFrom(*from);
  EXPECT_TRUE(to->ruleId() == TcamAclRuleId(8, 8));
  EXPECT_TRUE(to->filter() == four && to->ip6Filter() == six && to->macFilter() == mac);
  EXPECT_EQ(to->action(), Acl::deny);
  EXPECT_TRUE(to->aclId() == Acl::UniqueId(9));
  EXPECT_EQ(to->aclData().ptr(), data.ptr());
  EXPECT_EQ((std::vector<unsigned>{to->ruleNum(), to->subruleNum(), to->srcL4Port(), to->srcL4PortMask(),
                                   to->dstL4Port(), to->dstL4PortMask()}),
            (std::vector<unsigned>{1, 2, 3, 4, 5, 6}));
  EXPECT_TRUE(to->log() && to->implicit() && to->finalAclRule() && to->count());
}

TEST(LibTypes, RulesAreWalkedInPriorityOrder) {
  const Vane::Ptr<TcamInfo> info(new TcamInfo(aclKey("web")));
  const auto first = info->tcamRuleInfoIs(TcamAclRuleId(2, 0));
  info->tcamRuleInfoIs(TcamAclRuleId(1, 1));
  info->tcamRuleInfoIs(TcamAclRuleId(0x80000000u, 0));
  info->tcamRuleInfoIs(TcamAclRuleId(1, 0));
  EXPECT_EQ(info->tcamRuleInfoIs(TcamAclRuleId(2, 0)).ptr(), first.ptr()) << "the one that is there";
  std::string text;
  for (const auto& rule : info->tcamRuleInfoAll()) {
    text += std::to_string(rule.key().ruleNum()) + "." + std::to_string(rule.key().subRuleNum()) + " ";
  }
  EXPECT_EQ(text, "1.0 1.1 2.0 2147483648.0 ");
  const auto mapping = info->tcamRuleIdMappingIs(Acl::UniqueId(5));
  mapping->ruleIdIs(TcamAclRuleId(1, 0), true);
  mapping->ruleIdIs(TcamAclRuleId(1, 0), true);
  EXPECT_EQ(mapping->ruleIdCount(), 1u);
  info->tcamRuleInfoDel(TcamAclRuleId(1, 0));
  EXPECT_TRUE(info->tcamRuleIdMapping(Acl::UniqueId(5))->ruleId(TcamAclRuleId(1, 0)))
      << "the reverse index is the caller's";
  EXPECT_FALSE(info->tcamRuleInfo(TcamAclRuleId(1, 0)));
}

TEST(LibTypes, NewMappingsAreEmpty) {
  const Vane::Ptr<PendingTcamMapping> pending(new PendingTcamMapping(aclKey("t")));
  const AclKeyInfo info(aclKey("web"), 3, 0);
  EXPECT_EQ(pending->pendingAclKeyInfoToIdxIs(info)->tcamIdxCount(), 0u);
  EXPECT_TRUE(pending->pendingAclKeyInfoToIdx(info)->aclKeyInfo() == info);
  EXPECT_EQ(pending->pendingAclKeyToTcamInfoIs(aclKey("web"))->tcamRuleInfoCount(), 0u);
  EXPECT_FALSE(pending->pendingAclKeyInfoToIdx(AclKeyInfo(aclKey("web"), 4, 0)));
  EXPECT_FALSE(pending->pendingAclKeyInfoToIdx(AclKeyInfo(aclKey("web"), 3, 1)));
  EXPECT_FALSE(pending->pendingAclKeyToTcamInfo(Plex::AclKey("web", Acl::ingress, Acl::ipv4, 2)));
}

class IntfWatch : public BlockedIntfColl::NotifieeConst {
public:
  explicit IntfWatch(Log& log) : log_(log) {}
  void onIntf(const Ovnet::IntfId& intf) override { log_.push_back(intf.stringValue().charPtr()); }

private:
  Log& log_;
};

class VlanWatch : public BlockedVlanColl::NotifieeConst {
public:
  explicit VlanWatch(Log& log) : log_(log) {}
  void onVlan(const Bridging::VlanId& vlan) override { log_.push_back(std::to_string(vlan.value())); }

private:
  Log& log_;
};

TEST(LibShared, BlockedSetsNotifyOnChange) {
  Log log;
  const auto intfs = blockedIntfCollFactory();
  const Vane::Ptr<IntfWatch> watch(new IntfWatch(log));
  watch->notifierIs(intfs);
  const Ovnet::IntfId eth1(Ovnet::IntfId::ethernet, 1);
  intfs->intfDel(eth1);
  intfs->intfIs(eth1, true);
  intfs->intfIs(eth1, true);
  EXPECT_EQ(log, (Log{"Ethernet1"}));
  intfs->intfIs(eth1, false);
  EXPECT_EQ(log, (Log{"Ethernet1", "Ethernet1"})) << "another value is a change";
  EXPECT_TRUE(intfs->intfHas(eth1));
  EXPECT_FALSE(intfs->intf(eth1));
  intfs->intfDel(eth1);
  intfs->intfDel(eth1);
  EXPECT_EQ(log.size(), 3u);

  log.clear();
  const auto vlans = blockedVlanCollFactory();
  const Vane::Ptr<VlanWatch> vlanWatch(new VlanWatch(log));
  vlanWatch->notifierIs(vlans);
  vlans->vlanIs(Bridging::VlanId(10), true);
  vlans->vlanIs(Bridging::VlanId(10), true);
  vlans->vlanIs(Bridging::VlanId(11), true);
  vlans->vlanDel(Bridging::VlanId(12));
  vlans->vlanDelAll();
  EXPECT_EQ(log, (Log{"10", "11", "10", "11"}));
  EXPECT_EQ(vlans->vlanCount(), 0u);
}

class CommonWatch : public XpAclCommonSmData::NotifieeConst {
public:
  explicit CommonWatch(Log& log) : log_(log) {}
  void onPortVlanIvifKeyAndIndexMap() override { log_.push_back("ingress"); }
  void onEgressVlanVifKeyAndIndexMap() override { log_.push_back("egress"); }
  void onInitialized() override { log_.push_back("initialized"); }

private:
  Log& log_;
};

TEST(LibShared, CommonData) {
  Log log;
  const auto common = xpAclCommonSmDataFactory("common");
  EXPECT_FALSE(common->hasBackupSupport());
  EXPECT_FALSE(common->portVlanIvifKeyAndIndexMap());
  EXPECT_FALSE(common->egressVlanVifKeyAndIndexMap());
  const Vane::Ptr<CommonWatch> watch(new CommonWatch(log));
  watch->notifierIs(common);
  const Vane::Ptr<VlanVifIndexMap> map(new VlanVifIndexMap);
  common->portVlanIvifKeyAndIndexMapIs(map);
  common->portVlanIvifKeyAndIndexMapIs(map);
  common->egressVlanVifKeyAndIndexMapIs(map);
  common->initializedIs(true);
  common->egressVlanVifKeyAndIndexMapIs(nullptr);
  EXPECT_EQ(log, (Log{"ingress", "egress", "initialized", "egress"}));
  EXPECT_EQ(common->portVlanIvifKeyAndIndexMap().ptr(), map.ptr());

  const auto dir = Vane::dirFactory("agent");
  const auto child = XpAclCommonSmData::newEntityForDir("acl", dir);
  EXPECT_EQ(dir->entity("acl").ptr(), child.ptr());
  EXPECT_STREQ(child->fwkType().name(), "XpAcl::XpAclCommonSmData");
}

// The recipe, spelled out over the six bytes.
Vane::U32 oneAtATime(const std::vector<Vane::U8>& bytes) {
  Vane::U32 hash = 0;
  for (const Vane::U8 byte : bytes) {
    hash += byte;
    hash += hash << 10;
    hash ^= hash >> 6;
  }
  hash += hash << 3;
  hash ^= hash >> 11;
  hash += hash << 15;
  return hash;
}

XpAclVlanVifKey vlanVifKey(unsigned vlan, Vane::U32 vif) {
  return XpAclVlanVifKey(Bridging::VlanId(vlan), XpVif::VifId(vif));
}

std::string parse(const std::string& text) {
  return test::thrownBy([&] {
    XpAclVlanVifKey value;
    Vane::strepToValue(Vane::String(std::string_view(text)), &value);
  });
}

TEST(LibShared, VlanVifKey) {
  EXPECT_EQ(XpAclVlanVifKey().vlanId().value(), 1);
  EXPECT_EQ(XpAclVlanVifKey().vif().value(), 0xFFFFFFFFu);
  EXPECT_TRUE(vlanVifKey(10, 5) < vlanVifKey(10, 7));
  EXPECT_TRUE(vlanVifKey(9, 100) < vlanVifKey(10, 5));
  EXPECT_TRUE(vlanVifKey(10, 5) < vlanVifKey(10, 0x80000000u));
  EXPECT_EQ(vlanVifKey(0x123, 0xA1B2C3D4).hash(), oneAtATime({0x23, 0x01, 0xD4, 0xC3, 0xB2, 0xA1}));
  EXPECT_EQ(vlanVifKey(10, 5).hash(), 425057046u);
  EXPECT_EQ(valueToStrep(vlanVifKey(10, 5)), "Value('XpAcl::XpAclVlanVifKey', ** {'vlanId': 10, 'vif': 5})");
}

TEST(LibShared, VlanVifKeyParses) {
  const std::string head = "Value('XpAcl::XpAclVlanVifKey', ** {";
  EXPECT_EQ(parse(head + "'vlanId': 10, 'vif': 5})"), "nothing");
  const std::string vlan = parse(head + "'vlanId': 0, 'vif': 3})");
  EXPECT_EQ(vlan.substr(0, 16), "ParseException: ");
  EXPECT_NE(vlan.find("vlanId"), std::string::npos) << vlan;
  EXPECT_NE(vlan.find("VlanId::value < 1 or > 4094 not allowed"), std::string::npos) << vlan;
  EXPECT_NE(parse(head + "'vlanId': 4095, 'vif': 3})").find("vlanId"), std::string::npos);
  const std::string vif = parse(head + "'vlanId': 1, 'vif': x})");
  EXPECT_EQ(vif.substr(0, 16), "ParseException: ");
  EXPECT_NE(vif.find("vif"), std::string::npos) << vif;
  EXPECT_NE(parse(head + "'vlanId': 1, 'vif': 4294967296})"), "nothing");
  for (const char* wrong : {"", "'vif': 5, 'vlanId': 10})", "'vlanId': 10,'vif': 5})",
                            "'vlanId': 10, 'vif': 5}", "'vlanId': 10, 'vif': 5}) ", "'vlanId': 10})"}) {
    EXPECT_EQ(parse(head + wrong).substr(0, 16), "ParseException: ") << wrong;
  }
  EXPECT_NE(parse("Value('XpAcl::VlanVifKey', ** {'vlanId': 10, 'vif': 5})"), "nothing");
}

// Headers declare factories; that the type is known by name is left to a source file, which may be forgotten.
TEST(LibShared, EveryTypeWithAFactoryIsKnownByNameBeforeItsUse) {
  std::set<std::string> declared;
  std::string unknown;
  for (const char* const room : {"platform", "XpAclTcam"}) {
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(std::filesystem::path(XPACL_SOURCE_DIR) / room)) {
      std::ifstream header(entry.path());
      std::string space; // the namespace that is open
      for (std::string line; entry.path().extension() == ".h" && std::getline(header, line);) {
        const std::vector<std::string> opened = test::matched(line, R"(namespace (\w+) \{)");
        const std::vector<std::string> factory = test::matched(line, R"(VANE_FACTORY_DECLARED\((\w+), .*)");
        if (!opened.empty()) {
          space = opened[1];
        } else if (!factory.empty()) {
          const std::string name = space + "::" + factory[1];
          declared.insert(name);
          unknown += Vane::Type::find(Vane::String(name)) != nullptr ? "" : name + "\n";
        }
      }
    }
  }
  EXPECT_EQ(unknown, "")
      << "Add VANE_REGISTERED(CLASS) to a source file of the room, in the class's namespace.";
  EXPECT_EQ(declared.size(), 23u);
}

} // namespace
