#include "test/HelperUnderTest.h"
#include "test/Patterns.h"

#include "XpAclTcam/XpAclPlexAggregatorHelper.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

// The generic layer's hooks: the listing's do nothing at all, the checks trace their signature at level 7.

namespace {

using namespace XpAcl;
using test::HelperUnderTest;

class Level7 {
public:
  Level7() {
    aggregatorHelperTrace().levelIs(7, true);
    aggregatorHelperTrace().sinkIs([this](std::string_view line) { text += std::string(line) + "\n"; });
  }
  ~Level7() {
    aggregatorHelperTrace().levelIs(7, false);
    aggregatorHelperTrace().sinkIs({});
  }
  std::string text;
};

// The name of the operation in each traced signature; how the parameters are spelt is the compiler's
// business.
std::string operations(const std::string& lines) {
  static const std::string signature =
      R"(XpAclPlexAggregatorHelper 7 XpAclPlexAggregatorHelper virtual void XpAcl::XpAclPlexAggregatorHelper::(\w+)\(.*\))";
  std::string names;
  std::istringstream text(lines);
  for (std::string line; std::getline(text, line);) {
    const std::vector<std::string> parts = test::matched(line, signature);
    names += (parts.empty() ? "not a signature: " + line : parts[1]) + "\n";
  }
  return names;
}

TEST(LibHooks, OfTheListingDoNothing) {
  HelperUnderTest h(test::allTables(4));
  h.sdk.takeCalls();
  Level7 trace;
  const Vane::Ptr<Plex::AclData const> acl;
  h->showAclTypeHeader(1, 0, Acl::ipv4);
  h->showAclHeader(1, 0, true, acl);
  h->showIpAclRule(1, 0, acl, 1, Acl::UniqueId(1));
  h->showIpAclRuleCommon(1, 0, 1, 0);
  EXPECT_EQ(trace.text, "");
  EXPECT_EQ(h.sdk.takeCalls(), "");
}

TEST(LibHooks, OfTheCheckTraceTheirSignature) {
  HelperUnderTest h(test::allTables(4));
  h.sdk.takeCalls();
  Level7 trace;
  const Vane::Ptr<Plex::AclData const> acl;
  const Acl::UniqueId id(1);
  h->verifyMacRuleGeneral(acl, id);
  h->verifyMacRuleAction(acl, id, Acl::permit);
  h->verifyMacRuleSrcMac(acl, id, {}, {});
  h->verifyMacRuleDstMac(acl, id, {}, {});
  h->verifyMacRuleEtherType(acl, id, 0x800);
  h->verifyIpRuleGeneral(acl, 1, 0);
  h->verifyIpRuleAction(acl, 1, 0, Acl::deny);
  h->verifyIpRuleIpProto(acl, 1, 0, 6);
  h->verifyIpRuleSrcIp(acl, 1, 0, {});
  h->verifyIpRuleDstIp(acl, 1, 0, {});
  h->verifyIpRuleFragments(acl, 1, 0, true);
  h->verifyIpRuleTcpFlags(acl, 1, 0, true);
  h->verifyIpRuleIcmp(acl, 1, 0, 8, 0);
  h->verifyIpRuleSrcPort(acl, 1, 0, 80, 0xFFFF);
  h->verifyIpRuleDstPort(acl, 1, 0, 80, 0xFFFF);
  h->verifyAclGeneral(acl);
  h->verifyDropAllRule(acl, 9);
  EXPECT_EQ(operations(trace.text), "verifyMacRuleGeneral\n"
                                    "verifyMacRuleAction\n"
                                    "verifyMacRuleSrcMac\n"
                                    "verifyMacRuleDstMac\n"
                                    "verifyMacRuleEtherType\n"
                                    "verifyIpRuleGeneral\n"
                                    "verifyIpRuleAction\n"
                                    "verifyIpRuleIpProto\n"
                                    "verifyIpRuleSrcIp\n"
                                    "verifyIpRuleDstIp\n"
                                    "verifyIpRuleFragments\n"
                                    "verifyIpRuleTcpFlags\n"
                                    "verifyIpRuleIcmp\n"
                                    "verifyIpRuleSrcPort\n"
                                    "verifyIpRuleDstPort\n"
                                    "verifyAclGeneral\n"
                                    "verifyDropAllRule\n");
  EXPECT_EQ(h.sdk.takeCalls(), "");
}

} // namespace
