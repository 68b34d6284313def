// Drives the adapter of sdk_adapter.h with the reference agent, and has the driver compare what it finds in
// the chip with what it meant to write: the first check of every new adapter.

#include "sdk_adapter.h"
#include "sdk_adapter_ports.h"

#include "agent/Agent.h"
#include "agent/config/ConfigReader.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

struct Acls : XpXdk::xpAclPl {
  XpXdk::xpIaclMgr* iaclMgr(uint32_t) override { return &iacl; }
  XpXdk::xpAcmMgr* acmMgr() override { return &acm; }
  adapter::Iacl iacl;
  adapter::Acm acm;
};

struct Interfaces : XpXdk::xpIfPl {
  XpXdk::xpPortConfigMgr* portConfigMgr() override { return &ports; }
  XpXdk::xpPortVlanIvifMgr* portVlanIvifMgr() override { return &vlans; }
  XpXdk::xpEgressBdEvifMgr* egressBdEvifMgr() override { return &egress; }
  adapter::PortConfig ports;
  adapter::PortVlan vlans;
  adapter::Egress egress;
};

} // namespace

int main() {
  adapter::Devices devices;
  Acls acls;
  Interfaces interfaces;
  for (const XpXdk::IaclTableInfo& info : XpXdk::iaclTables) {
    acls.iacl.rowsIs(info.table, agent::defaultTableRows);
  }
  // Once, before the first helper is made; they must live longer than the last one.
  XpXdk::xpDeviceMgr::install(&devices);
  XpXdk::xpAclPl::install(&acls);
  XpXdk::xpIfPl::install(&interfaces);

  const agent::Config config =
      agent::readConfigText("ip access-list extended WEB\n permit tcp any any range 8000 8099\n"
                            "ipv6 access-list WEB6\n permit tcp any any eq www\n"
                            "interface Ethernet1\n switchport access vlan 10\n ip access-group WEB in\n"
                            " ip access-group WEB out\n ipv6 traffic-filter WEB6 in\n",
                            "adapter");
  int status = 0;
  {
    agent::Agent agent(agent::setupFor(config));
    const agent::ApplyResult result = agent.apply(config);
    std::printf("%s, %u rows\n", result.ok ? "applied" : "refused", result.rowsStaged);
    const std::vector<std::string> broken = agent.audit();
    for (const std::string& sentence : broken) {
      std::printf("%s\n", sentence.c_str());
    }
    std::printf("audit: %zu findings\n", broken.size());
    status = result.ok && broken.empty() ? 0 : 1;
  }
  XpXdk::xpDeviceMgr::install(nullptr);
  XpXdk::xpAclPl::install(nullptr);
  XpXdk::xpIfPl::install(nullptr);
  return status;
}
