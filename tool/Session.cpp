#include "tool/Session.h"

#include "tool/Common.h"

#include "Vane/Vane.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <set>

namespace tool {

namespace {

constexpr uint32_t maxPortNumber = 65534;
constexpr uint32_t minEntries = 65536; // of the port-VLAN and egress tables
constexpr unsigned maxChips = 64;

// Entries that the port tables may need at the most: one for each pair of a port and a VLAN that it carries.
uint32_t entriesFor(const agent::Config& config) {
  uint64_t entries = minEntries;
  for (const agent::Interface& intf : config.interfaces) {
    if (intf.kind == agent::InterfaceKind::ethernet) {
      entries += 4096;
    }
  }
  return static_cast<uint32_t>(entries);
}

sim::DeviceConfig deviceConfig(const agent::Config& config) {
  sim::DeviceConfig device;
  const agent::AgentSetup setup = agent::setupFor(config);
  for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
    device.rows(table.table) = setup.rows(static_cast<agent::Table>(table.tcamType));
  }
  uint32_t highest = 0;
  for (const agent::Interface& intf : config.interfaces) {
    if (intf.kind == agent::InterfaceKind::ethernet) {
      highest = std::max(highest, agent::intfId(intf).number());
    }
  }
  device.numPorts = std::max(device.numPorts, highest + 2);
  device.portVlanCapacity = entriesFor(config);
  device.egressCapacity = entriesFor(config);
  return device;
}

void checkPortNumbers(const agent::Config& config) {
  for (const agent::Interface& intf : config.interfaces) {
    if (intf.kind == agent::InterfaceKind::ethernet && agent::intfId(intf).number() > maxPortNumber) {
      throw Exit(exitBadInput, intf.loc.text() + ": port " + intf.name + " has a number above " +
                                   std::to_string(maxPortNumber) +
                                   ", which no chip has; give it a lower one");
    }
  }
}

void traceUpTo(unsigned level) {
  for (Vane::TraceHandle* handle :
       {&XpAcl::aggregatorHelperTrace(), &XpAcl::hwAclIdTrace(), &XpAcl::tcamHwAclIdTrace()}) {
    for (unsigned on = 1; on <= level; ++on) {
      handle->levelIs(on, true);
    }
  }
}

std::string names(const agent::Interface& intf) {
  return intf.portName.empty() || intf.portName == intf.name ? intf.name
                                                             : intf.name + " (" + intf.portName + ")";
}

bool hasIngressList(const agent::Interface& intf) {
  return std::any_of(intf.bindings.begin(), intf.bindings.end(),
                     [](const agent::Binding& binding) { return binding.direction == agent::Direction::in; });
}

} // namespace

XpAcl::TcamType tcamType(XpXdk::xpIaclType_e table) {
  for (const XpAcl::TcamTableInfo& info : XpAcl::tcamTables) {
    if (info.table == table) {
      return info.tcamType;
    }
  }
  return XpAcl::ingressV4;
}

const agent::RowOwner* ownerOf(const Session& session, const sim::LookupResult& lookup, const PortRef& in,
                               const PortRef* out) {
  if (!isHit(lookup)) {
    return nullptr;
  }
  const XpAcl::TcamType table = tcamType(lookup.table);
  const bool egress = XpAcl::tcamTable(table).direction == Acl::egress;
  return session.agent().rowOwner(egress && out != nullptr ? out->chip : in.chip, table, lookup.row);
}

Session::Session(const agent::Config& config, const CommonOptions& options, bool load, unsigned spareChips)
    : system_(std::make_unique<sim::System>()) {
  traceUpTo(options.traceLevel);
  checkPortNumbers(config);
  const sim::DeviceConfig device = deviceConfig(config);
  const unsigned chips = std::min(maxChips, config.numChips + spareChips);
  for (unsigned chip = 0; chip < chips; ++chip) {
    system_->deviceAdd(static_cast<uint8_t>(chip), device);
  }
  installed_.emplace(system_->install());
  agent_ = std::make_unique<agent::Agent>(agent::setupFor(config));
  if (load) {
    apply(config);
  }
}

void Session::apply(const agent::Config& config) {
  checkPortNumbers(config);
  const agent::ApplyResult result = agent_->apply(config);
  if (!result.ok) {
    std::string message = "the configuration does not fit; nothing was written";
    for (const std::string& error : result.errors) {
      message += "\n  " + error;
    }
    throw Exit(exitNo, message);
  }
  config_ = config;
  attachPorts();
}

void Session::attachPorts() {
  constexpr uint16_t firstVlan = 1;
  constexpr uint16_t lastVlan = 4094;
  for (const agent::Interface& intf : config_.interfaces) {
    if (intf.kind != agent::InterfaceKind::ethernet) {
      continue;
    }
    const Ovnet::IntfId id = agent::intfId(intf);
    sim::PortAttachment attachment;
    if (intf.accessVlan && !intf.trunk) {
      attachment.accessVlanIs(*intf.accessVlan);
      attachment.carriesIs(*intf.accessVlan, *intf.accessVlan, true);
    } else if (intf.trunk) {
      for (const agent::PortRange& range : intf.allowedVlans) {
        attachment.carriesIs(range.low, range.high, true);
      }
    } else {
      attachment.carriesIs(firstVlan, lastVlan, true);
    }
    for (const Bridging::VlanId vlan : agent_->portVlanVifStatus()->vlansOfIntf(id)) {
      attachment.carriesIs(vlan.value(), vlan.value(), true);
    }
    if (const auto vif = agent_->vifOf(id)) {
      attachment.vifIs(firstVlan, lastVlan, *vif);
    }
    if (sim::Device* const device = system_->device(intf.chip)) {
      device->attachmentIs(id.number(), attachment);
    }
  }
}

PortRef Session::portOf(const agent::Interface& intf) {
  const Ovnet::IntfId id = agent::intfId(intf);
  return {id, intf.chip, id.number(), names(intf), std::nullopt};
}

// A VLAN interface is met by frames of its VLAN; any port that carries it will do. Without one, a spare
// port of that VLAN is added to the running configuration.
PortRef Session::portOfVlan(uint16_t vlan) {
  for (const agent::Interface& intf : config_.interfaces) {
    if (intf.kind == agent::InterfaceKind::ethernet && !hasIngressList(intf) &&
        agent_->portVlanVifStatus()->portVlanToVifMapHas(
            XpLib::PortAndVlanId(agent::intfId(intf), Bridging::VlanId(vlan)))) {
      PortRef port = portOf(intf);
      port.name = "Vlan" + std::to_string(vlan) + ", by " + port.name;
      port.vlan = vlan;
      return port;
    }
  }
  uint32_t number = 1;
  for (const agent::Interface& intf : config_.interfaces) {
    if (intf.kind == agent::InterfaceKind::ethernet) {
      number = std::max(number, agent::intfId(intf).number() + 1);
    }
  }
  agent::Config config = config_;
  agent::Interface spare;
  spare.name = spare.portName = "Ethernet" + std::to_string(number);
  spare.accessVlan = vlan;
  config.interfaces.push_back(spare);
  apply(config);
  PortRef port = portOf(config_.interfaces.back());
  port.name = "Vlan" + std::to_string(vlan);
  port.vlan = vlan;
  return port;
}

PortRef Session::port(const std::string& name, const char* option) {
  const agent::Interface* const intf = config_.interface(name);
  if (intf != nullptr && intf->kind == agent::InterfaceKind::ethernet) {
    return portOf(*intf);
  }
  if (intf != nullptr && intf->kind == agent::InterfaceKind::vlan) {
    return portOfVlan(intf->vlan);
  }
  std::string message = std::string(option) + " " + name + ": ";
  message +=
      intf != nullptr ? "this kind of interface is no port of the switch" : "there is no such interface";
  std::string known;
  std::size_t count = 0;
  for (const agent::Interface& other : config_.interfaces) {
    if (other.kind == agent::InterfaceKind::ethernet || other.kind == agent::InterfaceKind::vlan) {
      known += (count == 0 ? "" : ", ") + (count < 8 ? names(other) : std::string());
      ++count;
    }
  }
  while (!known.empty() && (known.back() == ' ' || known.back() == ',')) {
    known.pop_back();
  }
  message += count == 0 ? "; the configuration has no ports"
                        : "; there are " + known + (count > 8 ? " and more" : "");
  throw Exit(exitBadInput, message);
}

std::string Session::portName(Ovnet::IntfId intf) const {
  for (const agent::Interface& other : config_.interfaces) {
    if ((other.kind == agent::InterfaceKind::ethernet || other.kind == agent::InterfaceKind::vlan) &&
        agent::intfId(other) == intf) {
      return names(other);
    }
  }
  return intf.stringValue().charPtr();
}

PortRef Session::onlyIngressPort() {
  std::vector<std::string> found;
  for (const agent::Interface& intf : config_.interfaces) {
    const bool usable =
        intf.kind == agent::InterfaceKind::ethernet || intf.kind == agent::InterfaceKind::vlan;
    if (usable && hasIngressList(intf)) {
      found.push_back(intf.name);
    }
  }
  if (found.size() == 1) {
    return port(found.front(), "--in");
  }
  std::string message =
      found.empty() ? "no interface has an ingress list" : "several interfaces have an ingress list";
  for (std::size_t i = 0; i < found.size() && i < 8; ++i) {
    message += (i == 0 ? " (" : ", ") + found[i];
  }
  message += found.empty() ? "" : found.size() > 8 ? " and more)" : ")";
  throw Exit(exitBadInput, message + ": say with --in PORT where the packets enter");
}

sim::Verdict Session::judge(const packet::Packet& packet, const PortRef& in, const PortRef* out,
                            std::optional<uint16_t> vlan, bool count) {
  sim::Ingress ingress;
  ingress.in = {in.chip, in.number};
  if (out != nullptr) {
    ingress.out = sim::PortRef{out->chip, out->number};
  }
  ingress.count = count;
  ingress.defaultVlan = in.vlan.value_or(vlan.value_or(1));
  return sim::judge(*system_, packet, ingress);
}

} // namespace tool
