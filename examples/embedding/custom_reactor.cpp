// A state machine of your own beside the driver: it watches the entities that the generic layer shares and
// says what changes in them. Agents make log messages, telemetry and standby copies this way; the driver's
// own machines program the port tables so.

#include "XpAclTcam/XpAclAgentCommon.h"
#include "agent/Agent.h"
#include "agent/config/ConfigReader.h"
#include "sim/System.h"

#include <cstdio>
#include <string>

namespace Monitor {

class AclWatch : public Vane::PtrInterface {
public:
  VANE_STATE_MACHINE(Monitor, AclWatch, Vane::PtrInterface)
  // One reactor for each entity. A handler with a key says which member changed; the one without looks at all
  // of them, and runs first when the machine begins to watch.
  VANE_REACTOR(AclWatch, XpAcl::AclIdMapping, mapping, Mapping,
               ON_KEYED(IntfDirectionToIndexKey, XpAcl::IntfIdDirection))
  VANE_REACTOR(AclWatch, XpAcl::BlockedIntfColl, blocked, Blocked, ON_KEYED(Intf, Ovnet::IntfId))
  VANE_REACTORS(mapping, blocked)

  void handleIntfDirectionToIndexKey(const XpAcl::IntfIdDirection& place) {
    // A reactor reads the state as it is now, which may be newer than the change that it is told of.
    const XpAcl::HwAclIndexKey lists = mapping()->intfDirectionToIndexKey(place);
    std::printf("  %s has %s\n", place.intfId().stringValue().charPtr(),
                lists.isDefault() ? "no list" : lists.slot(XpAcl::slotPortV4).name().charPtr());
  }
  void handleIntfDirectionToIndexKey() {
    for (const auto& member : mapping()->intfDirectionToIndexKeyAll()) {
      handleIntfDirectionToIndexKey(member.key());
    }
  }
  void handleIntf(const Ovnet::IntfId& intf) {
    std::printf("  %s %s\n", intf.stringValue().charPtr(), blocked()->intf(intf) ? "is blocked" : "is open");
  }
  void handleIntf() {}
};
VANE_FACTORY(AclWatch, aclWatchFactory)

} // namespace Monitor

int main() {
  sim::System system{sim::DeviceConfig()};
  const sim::System::Installation installed = system.install();
  const std::string list = "ip access-list extended WEB\n permit tcp any any eq www\ninterface Ethernet1\n";
  const auto read = [](const std::string& text) { return agent::readConfigText(text, "reactor"); };

  agent::Agent agent(agent::setupFor(read(list)));
  const auto watch = Monitor::aclWatchFactory();
  watch->mappingIs(agent.aclIdMapping());
  watch->blockedIs(agent.blockedIntfColl());
  std::printf("a list is applied\n");
  agent.apply(read(list + " ip access-group WEB in\n"));
  std::printf("the operator closes the port\n");
  agent.blockIntf(Ovnet::IntfId("Ethernet1"), true);
  std::printf("the list goes\n");
  agent.apply(read(list));
}
