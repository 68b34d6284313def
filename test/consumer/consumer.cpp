// Uses one installed target, named by the definition WITH_..., and says what it made.

#include "Ovnet/IntfId.h"
#include "Vane/Vane.h"

#ifdef WITH_XPACLTCAM
#include "XpAclTcam/XpAclAgentCommon.h"
#include "XpAclTcam/XpAclPlexAggregatorHelper.h"
#endif
#ifdef WITH_SIM
#include "packet/Capture.h"
#include "packet/PacketText.h"
#include "sim/Pipeline.h"
#include "sim/System.h"
#endif
#ifdef WITH_AGENT
#include "agent/Agent.h"
#include "agent/config/ConfigReader.h"
#endif

#include <cstdio>

int main() {
#if defined(WITH_XPACLTCAM)
  const auto blocked = XpAcl::blockedIntfCollFactory();
  blocked->intfIs(Ovnet::IntfId("Ethernet3"), true);
  std::printf("XpAclTcam: %d, table %s\n", int{blocked->intf(Ovnet::IntfId("Ethernet3"))},
              XpAcl::getTcamType(Acl::egress, Acl::ipv6) == XpAcl::egressV6 ? "egressV6" : "wrong");
#elif defined(WITH_SIM)
  sim::System system{sim::DeviceConfig()};
  const sim::System::Installation installed = system.install();
  sim::Ingress from;
  from.in = {0, 1};
  const packet::Packet packet = packet::fromText("tcp 10.0.0.1:1 > 10.0.0.2:80 syn");
  std::printf("sim: %s\n", sim::fateText(sim::judge(system, packet, from).fate));
#elif defined(WITH_AGENT)
  const agent::Config config =
      agent::readConfigText("ip access-list extended A\n permit ip any any\n", "a.conf");
  std::printf("agent: %zu list, readable %d\n", config.lists.size(), int{config.readable});
#else
  std::printf("platform: %s\n", Ovnet::IntfId("Vlan10").stringValue().charPtr());
#endif
  return 0;
}
