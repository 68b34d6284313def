#include "agent/Agent.h"

#include "XpXdk/Managers.h"

#include <algorithm>
#include <cstdio>

// A start on chips that an earlier run has left as they are: killed at any moment, with old, new or
// half-written policies in force.
//
// First, before any row is touched, every port-table entry that selects lists is turned to ACL id 0: from
// then on what it judged is dropped. Then the tables are initialised as on every start. The (VLAN, VIF)
// entries are remembered with their indexes, so that the driver takes them over instead of adding them a
// second time. After the first configuration stands, what it did not take over is removed.

namespace agent {

namespace {

// As around every call of the library: a status that is not accepted says that the chip is in no state to
// start on. One line names the call, and the process ends.
bool accepted(XpXdk::XP_STATUS status, const char* call) {
  switch (status) {
  case XpXdk::statusOk:
    return true;
  case XpXdk::statusNotPresent:
  case XpXdk::statusNotFound:
  case XpXdk::statusAlreadyExists:
    return false;
  default:
    std::fprintf(stderr, "AgentRestart: %s API ERROR %d\n", call, status);
    Vane::assertionFailed("AgentRestart", __LINE__, __PRETTY_FUNCTION__, "!(true)");
  }
}

uint32_t entriesOf(XpXdk::xpPrimitiveMgr& mgr, uint8_t chip) {
  uint32_t count = 0;
  accepted(mgr.getNumOfEntry(chip, count), "getNumOfEntry");
  return count;
}

} // namespace

void Agent::adoptChip(uint8_t chip) {
  XpXdk::xpIfPl& pl = *XpXdk::xpIfPl::instance();
  XpXdk::xpPortConfigMgr& ports = *pl.portConfigMgr();
  for (uint32_t port = 0; port < entriesOf(ports, chip); ++port) {
    XpXdk::xpPortConfigEntry entry;
    if (accepted(ports.readEntry(chip, port, &entry, 0), "readEntry of a port") &&
        (entry.aclEnBits != 0 || entry.macAclEn != 0)) {
      entry.portAclId = 0;
      accepted(ports.writeEntry(chip, port, &entry), "writeEntry of a port");
      adopted_[chip].ports.insert(port);
    }
  }
  XpXdk::xpPortVlanIvifMgr& vlans = *pl.portVlanIvifMgr();
  for (uint32_t index = 0; index < entriesOf(vlans, chip); ++index) {
    XpXdk::xpPortVlanIvifEntry entry;
    if (accepted(vlans.readEntry(chip, index, &entry, 0), "readEntry of a port-VLAN entry")) {
      entry.routeAclId = 0;
      accepted(vlans.writeEntry(chip, 0, index, &entry), "writeEntry of a port-VLAN entry");
      const XpAcl::XpAclVlanVifKey key(Bridging::VlanId(entry.keyVlan), XpVif::VifId(entry.keyIvif));
      xpcsd_->portVlanIvifKeyAndIndexMap()->newKeyAndIndexList(key, {index});
      adopted_[chip].vlans.push_back(key);
    }
  }
  XpXdk::xpEgressBdEvifMgr& egress = *pl.egressBdEvifMgr();
  for (uint32_t index = 0; index < entriesOf(egress, chip); ++index) {
    XpXdk::xpEgressBdEvifEntry entry;
    if (accepted(egress.readEntry(chip, index, &entry, 0), "readEntry of an egress entry")) {
      entry.ePaclId = entry.eRaclId = 0;
      accepted(egress.writeEntry(chip, index, &entry), "writeEntry of an egress entry");
      const XpAcl::XpAclVlanVifKey key(Bridging::VlanId(entry.egressBd), XpVif::VifId(entry.egressVif));
      xpcsd_->egressVlanVifKeyAndIndexMap()->newKeyAndIndexList(key, {index});
      adopted_[chip].egress.push_back(key);
    }
  }
}

// A pair that joined has taken its entry over, or removed it when it has no list there. What is left belongs
// to nobody.
void Agent::sweepChip(uint8_t chip, const Adopted& adopted) {
  std::set<std::pair<uint16_t, uint32_t>> pairs;
  std::set<uint32_t> ports;
  for (const auto& pair : portVlanVifStatus_->portVlanToVifMapAll()) {
    if (chipOf(pair.key().intf()) == chip) {
      pairs.insert({pair.key().vlanId().value(), pair.value().value()});
    }
  }
  for (const auto& [attachment, key] : attachments_) {
    if (attachment.direction == Acl::ingress && Ovnet::EthIntfId::isEthIntfId(attachment.intf)) {
      ports.insert(systemStatus_->intfToChipPort(attachment.intf).port().value());
    }
  }
  XpXdk::xpIfPl& pl = *XpXdk::xpIfPl::instance();
  const XpXdk::xpPortConfigEntry none;
  for (const uint32_t port : adopted.ports) {
    if (ports.count(port) == 0) {
      accepted(pl.portConfigMgr()->writeEntry(chip, port, &none), "writeEntry of a port");
    }
  }
  const auto sweep = [&](const std::vector<XpAcl::XpAclVlanVifKey>& keys, XpAcl::VlanVifIndexMap& map,
                         const auto& remove) {
    for (const XpAcl::XpAclVlanVifKey& key : keys) {
      const Vane::U32* const index = map.index(key);
      if (index != nullptr && pairs.count({key.vlanId().value(), key.vif().value()}) == 0) {
        accepted(remove(*index), "removeEntry");
        map.keyDel(key);
      }
    }
  };
  sweep(adopted.vlans, *xpcsd_->portVlanIvifKeyAndIndexMap(),
        [&](uint32_t index) { return pl.portVlanIvifMgr()->removeEntry(chip, index); });
  sweep(adopted.egress, *xpcsd_->egressVlanVifKeyAndIndexMap(),
        [&](uint32_t index) { return pl.egressBdEvifMgr()->removeEntry(chip, index); });
}

void Agent::sweepChips() {
  for (const auto& [chip, adopted] : adopted_) {
    sweepChip(chip, adopted);
  }
  adopted_.clear();
}

} // namespace agent
