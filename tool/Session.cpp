#include "tool/Session.h"

#include "agent/config/InterfaceNames.h"
#include "tool/Common.h"

#include "Vane/Vane.h"

#include <algorithm>
#include <iostream>
#include <set>

namespace tool {

namespace {

constexpr uint32_t maxPortNumber = 65534;
constexpr uint32_t minEntries = 65536; // of the port-VLAN and egress tables
constexpr uint32_t sparePorts = 16;    // beyond the highest configured number
constexpr uint64_t maxVlan = 4094;

uint32_t highestPort(const agent::Config& config) {
  uint32_t highest = 0;
  for (const agent::Interface& intf : config.interfaces) {
    if (intf.kind == agent::InterfaceKind::ethernet) {
      highest = std::max(highest, agent::intfId(intf).number());
    }
  }
  return highest;
}

// The sizes of a chip that can hold any of the configurations: an entry of the port tables for each pair of a
// port and a VLAN that it carries, a few ports more than there are, TCAM tables as the first one says.
sim::DeviceConfig deviceConfig(const std::vector<const agent::Config*>& configs) {
  sim::DeviceConfig device;
  const agent::AgentSetup setup = agent::setupFor(*configs.front());
  for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
    device.rows(table.table) = setup.rows(static_cast<agent::Table>(table.tcamType));
  }
  for (const agent::Config* const config : configs) {
    uint32_t entries = minEntries;
    for (const agent::Interface& intf : config->interfaces) {
      if (intf.kind == agent::InterfaceKind::ethernet) {
        entries += 4096;
      }
    }
    device.numPorts = std::max(device.numPorts, highestPort(*config) + 1 + sparePorts);
    device.portVlanCapacity = std::max(device.portVlanCapacity, entries);
    device.egressCapacity = std::max(device.egressCapacity, entries);
  }
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

const agent::RowOwner* ownerOf(const Session& session, const sim::LookupResult& lookup, const PortRef& in,
                               const PortRef* out) {
  if (!isHit(lookup)) {
    return nullptr;
  }
  const XpAcl::TcamType table = tcamType(lookup.table);
  return session.agent().rowOwner(chipOf(table, in, out), table, lookup.row);
}

bool metBlock(const sim::Verdict& verdict) {
  return std::any_of(verdict.lookups().begin(), verdict.lookups().end(),
                     [](const sim::LookupResult& lookup) { return lookup.aclId == 0; });
}

uint32_t usedRows(const sim::TcamTable& table) {
  const bool hasDefault = table.numRows() != 0 && table.valid(table.numRows() - 1);
  return table.numValid() - (hasDefault ? 1 : 0);
}

Session& lastingSession(const agent::Config& config, const CommonOptions& options) {
  static const std::unique_ptr<Session> session = std::make_unique<Session>(config, options);
  return *session;
}

Session::Session(const agent::Config& config, const CommonOptions& options,
                 const std::vector<const agent::Config*>& later)
    : system_(std::make_unique<sim::System>()) {
  traceUpTo(options.traceLevel);
  std::vector<const agent::Config*> configs{&config};
  configs.insert(configs.end(), later.begin(), later.end());
  for (const agent::Config* const one : configs) {
    checkPortNumbers(*one);
    firstSparePort_ = std::max(firstSparePort_, highestPort(*one) + 1);
  }
  device_ = deviceConfig(configs);
  addDevices(config);
  faults_ = std::make_unique<sim::FaultySdk>(*system_);
  installed_.emplace(faults_->install());
  agent_ = std::make_unique<agent::Agent>(agent::setupFor(config));
  apply(config);
}

void Session::addDevices(const agent::Config& config) {
  for (unsigned chip = 0; chip < config.numChips; ++chip) {
    if (system_->device(static_cast<uint8_t>(chip)) == nullptr) {
      system_->deviceAdd(static_cast<uint8_t>(chip), device_);
    }
  }
}

void Session::checkApplied(const agent::ApplyResult& result, const std::string& refused) {
  if (!result.ok) {
    std::string message = refused;
    for (const std::string& error : result.errors) {
      message += "\n  " + error;
    }
    throw Exit(exitNo, message);
  }
}

agent::ApplyResult Session::apply(const agent::Config& config) {
  checkPortNumbers(config);
  addDevices(config);
  const agent::ApplyResult result = agent_->apply(config);
  checkApplied(result, "the configuration does not fit; nothing was written");
  configIs(config);
  return result;
}

void Session::configIs(const agent::Config& config) {
  config_ = config;
  deletedPairs_.clear();
  attachPorts();
}

agent::Config Session::withSparePorts(agent::Config config) const {
  for (const agent::Interface& intf : config_.interfaces) {
    if (intf.kind == agent::InterfaceKind::ethernet && agent::intfId(intf).number() >= firstSparePort_) {
      config.interfaces.push_back(intf);
    }
  }
  return config;
}

void Session::attachPorts() {
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
    for (const auto& [port, vlan] : deletedPairs_) {
      if (port == id) {
        attachment.carriesIs(vlan, vlan, false);
      }
    }
    if (const auto vif = agent_->vifOf(id)) {
      attachment.vifIs(firstVlan, lastVlan, *vif);
    }
    if (sim::Device* const device = system_->device(intf.chip)) {
      device->attachmentIs(id.number(), attachment);
    }
  }
}

PortRef Session::portOf(const agent::Interface& intf) const {
  const Ovnet::IntfId id = agent::intfId(intf);
  return {id, intf.chip, id.number(), names(intf), std::nullopt};
}

// A VLAN interface is met by frames of its VLAN; any port that carries it will do. Without one, a spare port
// of that VLAN is added to the running configuration.
PortRef Session::portOfVlan(uint16_t vlan) {
  for (const agent::Interface& intf : config_.interfaces) {
    if (intf.kind == agent::InterfaceKind::ethernet && !hasIngressList(intf) && isActive(intf.chip) &&
        agent_->portVlanVifStatus()->portVlanToVifMapHas(
            XpLib::PortAndVlanId(agent::intfId(intf), Bridging::VlanId(vlan)))) {
      PortRef port = portOf(intf);
      port.name = "Vlan" + std::to_string(vlan) + ", by " + port.name;
      port.vlan = vlan;
      return port;
    }
  }
  const uint32_t number = std::max(firstSparePort_, highestPort(config_) + 1);
  if (number >= device_.numPorts || agent_->activeChips().empty()) {
    throw Exit(exitBadInput, "no port carries VLAN " + std::to_string(vlan) +
                                 ", and the switch has no spare one; name a port in that VLAN");
  }
  agent::Config config = config_;
  agent::Interface spare;
  spare.chip = *agent_->activeChips().begin();
  spare.name = spare.portName = "Ethernet" + std::to_string(number);
  spare.accessVlan = vlan;
  config.interfaces.push_back(spare);
  apply(config);
  PortRef port = portOf(config_.interfaces.back());
  port.name = "Vlan" + std::to_string(vlan);
  port.vlan = vlan;
  return port;
}

const agent::Interface& Session::interface(const std::string& name, const std::string& place,
                                           int status) const {
  if (const agent::Interface* const intf = config_.interface(name)) {
    return *intf;
  }
  std::string known;
  std::size_t count = 0;
  for (const agent::Interface& other : config_.interfaces) {
    if (other.kind == agent::InterfaceKind::ethernet || other.kind == agent::InterfaceKind::vlan) {
      known += (count == 0 ? "" : count < 8 ? ", " : "") + (count < 8 ? names(other) : std::string());
      ++count;
    }
  }
  throw Exit(status, place + ": there is no such interface; " +
                         (count == 0 ? "the configuration has no ports"
                                     : "there are " + known + (count > 8 ? " and more" : "")));
}

PortRef Session::port(const std::string& name, const char* option) {
  const std::string place = std::string(option) + " " + name;
  const agent::Interface& intf = interface(name, place, exitBadInput);
  if (intf.kind == agent::InterfaceKind::vlan) {
    return portOfVlan(intf.vlan);
  }
  if (intf.kind != agent::InterfaceKind::ethernet) {
    throw Exit(exitBadInput, place + ": this kind of interface is no port of the switch; name a port");
  }
  if (!isActive(intf.chip)) {
    throw Exit(exitBadInput, place + ": its chip " + std::to_string(intf.chip) + " is not active");
  }
  return portOf(intf);
}

void Session::blockIs(const std::string& name, bool block) {
  const agent::Interface& intf = interface(name, name, exitNo);
  if (intf.kind == agent::InterfaceKind::unsupported) {
    throw Exit(exitNo, name + ": this kind of interface has no access lists; name a port or a VLAN");
  }
  if (intf.kind != agent::InterfaceKind::portChannel) {
    agent_->blockIntf(agent::intfId(intf), block);
    return;
  }
  const std::optional<uint32_t> channel = agent::InterfaceName::fromText(intf.name)->plainNumber();
  std::size_t members = 0;
  for (const agent::Interface& member : config_.interfaces) {
    if (member.kind == agent::InterfaceKind::ethernet && member.channelGroup == channel) {
      agent_->blockIntf(agent::intfId(member), block);
      ++members;
    }
  }
  if (members == 0) {
    throw Exit(exitNo, name + " has no member ports; name a port");
  }
}

agent::ApplyResult Session::chipAdd(uint64_t chip) {
  const std::string name = "chip " + std::to_string(chip);
  if (chip > sim::maxDevice) {
    throw Exit(exitNo, name + ": chips are numbered from 0 to " + std::to_string(sim::maxDevice));
  }
  const auto number = static_cast<uint8_t>(chip);
  if (isActive(number)) {
    throw Exit(exitNo, name + " is active already");
  }
  if (system_->device(number) == nullptr) {
    system_->deviceAdd(number, device_);
  }
  const agent::ApplyResult result = agent_->chipAdd(number);
  checkApplied(result, name + " cannot join: its lists do not fit; nothing was written");
  configIs(agent::Config(config_));
  return result;
}

agent::ApplyResult Session::chipRemove(uint64_t chip) {
  const std::string name = "chip " + std::to_string(chip);
  if (chip > sim::maxDevice) {
    throw Exit(exitNo, name + ": chips are numbered from 0 to " + std::to_string(sim::maxDevice));
  }
  if (!isActive(static_cast<uint8_t>(chip))) {
    throw Exit(exitNo, name + " is not active");
  }
  const agent::ApplyResult result = agent_->chipRemove(static_cast<uint8_t>(chip));
  checkApplied(result, name + " cannot leave: the lists of the others do not fit; nothing was written");
  configIs(agent::Config(config_));
  return result;
}

Session::Pair Session::pairOf(const std::string& port, uint64_t vlan) const {
  if (vlan == 0 || vlan > maxVlan) {
    throw Exit(exitNo,
               "VLAN " + std::to_string(vlan) + ": VLANs are numbered from 1 to " + std::to_string(maxVlan));
  }
  const agent::Interface& intf = interface(port, port, exitNo);
  if (intf.kind != agent::InterfaceKind::ethernet) {
    throw Exit(exitNo, port + ": only Ethernet ports are paired with VLANs; name a port");
  }
  if (!isActive(intf.chip)) {
    throw Exit(exitNo, port + ": its chip " + std::to_string(intf.chip) + " is not active");
  }
  return {agent::intfId(intf), static_cast<uint16_t>(vlan)};
}

void Session::pairAdd(const std::string& port, uint64_t vlan) {
  const Pair pair = pairOf(port, vlan);
  if (agent_->portVlanVifStatus()->portVlanToVifMapHas(
          XpLib::PortAndVlanId(pair.first, Bridging::VlanId(pair.second)))) {
    throw Exit(exitNo, port + " is paired with VLAN " + std::to_string(vlan) + " already");
  }
  agent_->pairAdd(pair.first, pair.second);
  deletedPairs_.erase(pair);
  attachPorts();
}

void Session::pairDel(const std::string& port, uint64_t vlan) {
  const Pair pair = pairOf(port, vlan);
  if (!agent_->portVlanVifStatus()->portVlanToVifMapHas(
          XpLib::PortAndVlanId(pair.first, Bridging::VlanId(pair.second)))) {
    throw Exit(exitNo, port + " is not paired with VLAN " + std::to_string(vlan));
  }
  agent_->pairDel(pair.first, pair.second);
  deletedPairs_.insert(pair);
  attachPorts();
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

sim::Ingress Session::ingress(const PortRef& in, const PortRef* out, std::optional<uint16_t> vlan,
                              bool count) const {
  sim::Ingress ingress;
  ingress.in = {in.chip, in.number};
  if (out != nullptr) {
    ingress.out = sim::PortRef{out->chip, out->number};
  }
  ingress.count = count;
  ingress.defaultVlan = in.vlan.value_or(vlan.value_or(1));
  return ingress;
}

sim::Verdict Session::judge(const packet::Packet& packet, const PortRef& in, const PortRef* out,
                            std::optional<uint16_t> vlan, bool count) {
  return sim::judge(*system_, packet, ingress(in, out, vlan, count));
}

} // namespace tool
