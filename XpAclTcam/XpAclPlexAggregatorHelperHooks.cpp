#include "XpAclTcam/XpAclPlexAggregatorHelper.h"

#include "XpAclTcam/XpAclHelperUnit.h"

// Hooks of the generic layer that this chip has no use for. The checks at least say that they were called.

namespace XpAcl {

#define HELPER_TRACE_SIGNATURE() HELPER_TRACE(7, __PRETTY_FUNCTION__)

void XpAclPlexAggregatorHelper::showAclTypeHeader(Vane::U32, Vane::U32, Acl::AclType) {}

void XpAclPlexAggregatorHelper::showAclHeader(Vane::U32, Vane::U32, bool,
                                              const Vane::Ptr<Plex::AclData const>&) {}

void XpAclPlexAggregatorHelper::showIpAclRule(Vane::U32, Vane::U32, const Vane::Ptr<Plex::AclData const>&,
                                              Vane::U32, const Acl::UniqueId&) {}

void XpAclPlexAggregatorHelper::showIpAclRuleCommon(Vane::U32, Vane::U32, Vane::U32, Vane::U32) {}

void XpAclPlexAggregatorHelper::verifyMacRuleGeneral(const Vane::Ptr<Plex::AclData const>&,
                                                     const Acl::UniqueId&) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyMacRuleAction(const Vane::Ptr<Plex::AclData const>&,
                                                    const Acl::UniqueId&, Acl::Action) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyMacRuleSrcMac(const Vane::Ptr<Plex::AclData const>&,
                                                    const Acl::UniqueId&, const Ovnet::MacAddr&,
                                                    const Ovnet::MacAddr&) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyMacRuleDstMac(const Vane::Ptr<Plex::AclData const>&,
                                                    const Acl::UniqueId&, const Ovnet::MacAddr&,
                                                    const Ovnet::MacAddr&) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyMacRuleEtherType(const Vane::Ptr<Plex::AclData const>&,
                                                       const Acl::UniqueId&, Vane::U32) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyIpRuleGeneral(const Vane::Ptr<Plex::AclData const>&, Vane::U32,
                                                    Vane::U32) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyIpRuleAction(const Vane::Ptr<Plex::AclData const>&, Vane::U32,
                                                   Vane::U32, Acl::Action) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyIpRuleIpProto(const Vane::Ptr<Plex::AclData const>&, Vane::U32,
                                                    Vane::U32, Vane::U8) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyIpRuleSrcIp(const Vane::Ptr<Plex::AclData const>&, Vane::U32, Vane::U32,
                                                  const Acl::IpAddrMask&) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyIpRuleDstIp(const Vane::Ptr<Plex::AclData const>&, Vane::U32, Vane::U32,
                                                  const Acl::IpAddrMask&) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyIpRuleFragments(const Vane::Ptr<Plex::AclData const>&, Vane::U32,
                                                      Vane::U32, bool) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyIpRuleTcpFlags(const Vane::Ptr<Plex::AclData const>&, Vane::U32,
                                                     Vane::U32, bool) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyIpRuleIcmp(const Vane::Ptr<Plex::AclData const>&, Vane::U32, Vane::U32,
                                                 Vane::U16, Vane::U16) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyIpRuleSrcPort(const Vane::Ptr<Plex::AclData const>&, Vane::U32,
                                                    Vane::U32, Vane::U16, Vane::U16) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyIpRuleDstPort(const Vane::Ptr<Plex::AclData const>&, Vane::U32,
                                                    Vane::U32, Vane::U16, Vane::U16) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyAclGeneral(const Vane::Ptr<Plex::AclData const>&) {
  HELPER_TRACE_SIGNATURE();
}

void XpAclPlexAggregatorHelper::verifyDropAllRule(const Vane::Ptr<Plex::AclData const>&, Vane::U32) {
  HELPER_TRACE_SIGNATURE();
}

} // namespace XpAcl
