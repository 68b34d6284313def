// The smallest program that does everything: a chip, an agent, a list, and two packets that the chip judges.
// With an adapter of your own in place of sim::System (sdk_adapter.cpp) the chip is a real one.

#include "agent/Agent.h"
#include "agent/config/ConfigReader.h"
#include "packet/PacketText.h"
#include "sim/Pipeline.h"
#include "sim/System.h"

#include <cstdio>

int main() {
  const agent::Config config = agent::readConfigText("ip access-list extended WEB\n"
                                                     " permit tcp any 10.0.0.0 0.0.0.255 eq www 443\n"
                                                     " deny ip any any log\n"
                                                     "interface Ethernet1\n"
                                                     " switchport access vlan 10\n"
                                                     " ip access-group WEB in\n",
                                                     "minimal");
  for (const agent::Diagnostic& diagnostic : config.diagnostics) {
    std::printf("%s\n", diagnostic.text().c_str());
  }
  if (!config.readable || config.hasErrors()) {
    return 2;
  }

  // The SDK first: the agent asks it for its managers.
  sim::System system{sim::DeviceConfig()};
  const sim::System::Installation installed = system.install();

  agent::Agent agent(agent::setupFor(config));
  const agent::ApplyResult result = agent.apply(config);
  for (const std::string& error : result.errors) {
    std::printf("refused: %s\n", error.c_str());
  }
  std::printf("%u rows written\n", result.rowsStaged);

  sim::Ingress from;
  from.in = {0, 1};
  for (const char* const text :
       {"tcp 192.0.2.1:40000 > 10.0.0.80:443 syn", "udp 192.0.2.1:40000 > 10.0.0.80:53"}) {
    const sim::Verdict verdict = sim::judge(system, packet::fromText(text), from);
    std::printf("%-42s %s\n", text, sim::fateText(verdict.fate));
  }
  return result.ok ? 0 : 1;
}
