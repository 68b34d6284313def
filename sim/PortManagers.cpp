#include "sim/Managers.h"

namespace sim {

using namespace XpXdk;

namespace {

constexpr uint16_t maxVlan = 4094;

template <typename Entry>
std::string textOf(const Entry* entry) {
  return entry ? entryText(*entry) : "null";
}

std::string indexText(uint32_t index) {
  return std::to_string(index);
}

CallPlace at(uint32_t index) {
  CallPlace place;
  place.index = index;
  return place;
}

XP_STATUS check(const xpPortConfigEntry* entry) {
  if (!entry) {
    return statusInvalidArgument;
  }
  return entry->aclEnBits <= 3 && entry->macAclEn <= 1 ? statusOk : statusInvalidWidth;
}

XP_STATUS check(const xpPortVlanIvifEntry* entry) {
  if (!entry || entry->keyVlan > maxVlan) {
    return statusInvalidArgument;
  }
  return entry->routeAclEn <= 3 ? statusOk : statusInvalidWidth;
}

XP_STATUS check(const xpEgressBdEvifEntry* entry) {
  if (!entry || entry->egressBd > maxVlan) {
    return statusInvalidArgument;
  }
  const bool fits = entry->ePaclIpV4En <= 1 && entry->ePaclIpV6En <= 1 && entry->eRaclIpV4En <= 1 &&
                    entry->eRaclIpV6En <= 1;
  return fits ? statusOk : statusInvalidWidth;
}

template <typename Entry>
XP_STATUS add(KeyedTable<Entry>& table, const Entry* entry, std::vector<uint32_t>& indexList,
              CallPlace& place) {
  if (const XP_STATUS status = check(entry); status != statusOk) {
    return status;
  }
  const XP_STATUS status = table.add(*entry, place.index);
  if (status == statusOk) {
    indexList.push_back(place.index);
  }
  return status;
}

template <typename Entry>
XP_STATUS write(KeyedTable<Entry>& table, uint32_t index, const Entry* entry) {
  if (index >= table.capacity()) {
    return statusRowOutOfRange;
  }
  const XP_STATUS status = check(entry);
  return status == statusOk ? table.write(index, *entry) : status;
}

// These tables have one copy.
template <typename Entry>
XP_STATUS read(const KeyedTable<Entry>& table, uint32_t index, Entry* entry, uint8_t copy) {
  if (index >= table.capacity()) {
    return statusRowOutOfRange;
  }
  if (!entry || copy != 0) {
    return statusInvalidArgument;
  }
  const Entry* stored = table.entry(index);
  if (!stored) {
    return statusNotFound;
  }
  *entry = *stored;
  return statusOk;
}

// Runs `execute` on the device, or refuses when there is none.
template <typename Execute>
XP_STATUS onDevice(System& system, uint8_t device, const Execute& execute) {
  Device* d = system.device(device);
  return d ? execute(*d) : statusInvalidDevice;
}

} // namespace

// ----------------------------------------------------------------------------------- port-config

XP_STATUS PortConfigManager::getNumOfEntry(uint8_t device, uint32_t& count) {
  const auto arguments = [] { return std::string("portConfig"); };
  return system_.perform(Op::getNumOfEntry, device, arguments, [&] {
    return system_.numOfEntry(device, count, [](const Device& d, uint32_t& result) {
      result = d.config().numPorts;
      return statusOk;
    });
  });
}

XP_STATUS PortConfigManager::writeEntry(uint8_t device, uint32_t portNumber, const xpPortConfigEntry* entry) {
  const auto arguments = [&] { return indexText(portNumber) + " " + textOf(entry); };
  return system_.perform(Op::portConfigWrite, device, at(portNumber), arguments, [&] {
    return onDevice(system_, device, [&](Device& d) -> XP_STATUS {
      if (portNumber >= d.portConfig().size()) {
        return statusRowOutOfRange;
      }
      const XP_STATUS status = check(entry);
      if (status == statusOk) {
        d.portConfig()[portNumber] = *entry;
      }
      return status;
    });
  });
}

XP_STATUS PortConfigManager::readEntry(uint8_t device, uint32_t portNumber, xpPortConfigEntry* entry,
                                       uint8_t copy) {
  const auto arguments = [&] { return indexText(portNumber); };
  return system_.perform(Op::portConfigRead, device, arguments, [&] {
    return onDevice(system_, device, [&](Device& d) -> XP_STATUS {
      if (portNumber >= d.portConfig().size()) {
        return statusRowOutOfRange;
      }
      if (!entry || copy != 0) {
        return statusInvalidArgument;
      }
      *entry = d.portConfig()[portNumber];
      return statusOk;
    });
  });
}

// ------------------------------------------------------------------------------ ingress port-VLAN

XP_STATUS PortVlanManager::getNumOfEntry(uint8_t device, uint32_t& count) {
  const auto arguments = [] { return std::string("portVlan"); };
  return system_.perform(Op::getNumOfEntry, device, arguments, [&] {
    return system_.numOfEntry(device, count, [](const Device& d, uint32_t& result) {
      result = d.portVlan().capacity();
      return statusOk;
    });
  });
}

XP_STATUS PortVlanManager::addEntry(uint8_t device, uint8_t copy, const xpPortVlanIvifEntry* entry,
                                    std::vector<uint32_t>& indexList) {
  const auto arguments = [&] { return "copy " + indexText(copy) + " " + textOf(entry); };
  CallPlace place;
  return system_.perform(Op::portVlanAdd, device, place, arguments, [&] {
    return onDevice(system_, device, [&](Device& d) -> XP_STATUS {
      return copy == 0 ? add(d.portVlan(), entry, indexList, place) : statusInvalidArgument;
    });
  });
}

XP_STATUS PortVlanManager::writeEntry(uint8_t device, uint8_t copy, uint32_t index,
                                      const xpPortVlanIvifEntry* entry) {
  const auto arguments = [&] {
    return "copy " + indexText(copy) + " " + indexText(index) + " " + textOf(entry);
  };
  return system_.perform(Op::portVlanWrite, device, at(index), arguments, [&] {
    return onDevice(system_, device, [&](Device& d) -> XP_STATUS {
      return copy == 0 ? write(d.portVlan(), index, entry) : statusInvalidArgument;
    });
  });
}

XP_STATUS PortVlanManager::removeEntry(uint8_t device, uint32_t index) {
  const auto arguments = [&] { return indexText(index); };
  return system_.perform(Op::portVlanRemove, device, at(index), arguments, [&] {
    return onDevice(system_, device, [&](Device& d) { return d.portVlan().remove(index); });
  });
}

XP_STATUS PortVlanManager::readEntry(uint8_t device, uint32_t index, xpPortVlanIvifEntry* entry,
                                     uint8_t copy) {
  const auto arguments = [&] { return indexText(index); };
  return system_.perform(Op::portVlanRead, device, arguments, [&] {
    return onDevice(system_, device, [&](Device& d) { return read(d.portVlan(), index, entry, copy); });
  });
}

// -------------------------------------------------------------------------------------- egress BD

XP_STATUS EgressManager::getNumOfEntry(uint8_t device, uint32_t& count) {
  const auto arguments = [] { return std::string("egress"); };
  return system_.perform(Op::getNumOfEntry, device, arguments, [&] {
    return system_.numOfEntry(device, count, [](const Device& d, uint32_t& result) {
      result = d.egress().capacity();
      return statusOk;
    });
  });
}

XP_STATUS EgressManager::addEntry(uint8_t device, const xpEgressBdEvifEntry* entry,
                                  std::vector<uint32_t>& indexList) {
  const auto arguments = [&] { return textOf(entry); };
  CallPlace place;
  return system_.perform(Op::egressAdd, device, place, arguments, [&] {
    return onDevice(system_, device, [&](Device& d) { return add(d.egress(), entry, indexList, place); });
  });
}

XP_STATUS EgressManager::writeEntry(uint8_t device, uint32_t index, const xpEgressBdEvifEntry* entry) {
  const auto arguments = [&] { return indexText(index) + " " + textOf(entry); };
  return system_.perform(Op::egressWrite, device, at(index), arguments, [&] {
    return onDevice(system_, device, [&](Device& d) { return write(d.egress(), index, entry); });
  });
}

XP_STATUS EgressManager::lookup(uint8_t device, const xpEgressBdEvifEntry* entry, uint32_t& index) {
  const auto arguments = [&] { return textOf(entry); };
  return system_.perform(Op::egressLookup, device, arguments, [&] {
    return onDevice(system_, device, [&](Device& d) -> XP_STATUS {
      if (const XP_STATUS status = check(entry); status != statusOk) {
        return status;
      }
      const std::optional<uint32_t> found = d.egress().indexOf(keyOf(*entry));
      if (!found) {
        return statusNotFound;
      }
      index = *found;
      return statusOk;
    });
  });
}

XP_STATUS EgressManager::removeEntry(uint8_t device, uint32_t index) {
  const auto arguments = [&] { return indexText(index); };
  return system_.perform(Op::egressRemove, device, at(index), arguments, [&] {
    return onDevice(system_, device, [&](Device& d) { return d.egress().remove(index); });
  });
}

XP_STATUS EgressManager::readEntry(uint8_t device, uint32_t index, xpEgressBdEvifEntry* entry, uint8_t copy) {
  const auto arguments = [&] { return indexText(index); };
  return system_.perform(Op::egressRead, device, arguments, [&] {
    return onDevice(system_, device, [&](Device& d) { return read(d.egress(), index, entry, copy); });
  });
}

} // namespace sim
