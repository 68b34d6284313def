#include "test/MachinesUnderTest.h"

#include "test/Patterns.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace test {

namespace {

std::string joined(const std::set<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  return text;
}

std::string pairText(const XpLib::PortAndVlanId& pair) {
  return std::string(pair.intf().stringValue().charPtr()) + "/" + std::to_string(pair.vlanId().value());
}

// The ACL names of the filled slots: "0=web 4=mac".
std::string slotsText(const XpAcl::HwAclIndexKey& key) {
  std::string text;
  for (unsigned slot = 0; slot < XpAcl::HwAclIndexKey::numSlots; ++slot) {
    if (!(key.slot(slot) == Plex::AclKey())) {
      text += " " + std::to_string(slot) + "=" + key.slot(slot).name().charPtr();
    }
  }
  return text.empty() ? " none" : text;
}

// Runs `action` in a child process; empty when it came back.
std::string abortOf(const std::function<void()>& action) {
  std::fflush(nullptr);
  int ends[2];
  if (::pipe(ends) != 0) {
    return "no pipe";
  }
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[0]);
    ::close(ends[1]);
    try {
      action();
    } catch (const std::exception& e) {
      std::fprintf(stderr, "exception: %s\n", e.what());
    }
    ::_exit(0);
  }
  ::close(ends[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGABRT) {
    return "returned" + (text.empty() ? "" : ": " + text);
  }
  return text;
}

} // namespace

MachineInputs::MachineInputs()
    : portVlanVifStatus(XpVif::portVlanVifStatusFactory("system")),
      portVifStatus(XpVif::portVifStatusFactory()), systemStatus(XpSystem::systemStatusFactory()),
      xpcsd(XpAcl::xpAclCommonSmDataFactory("shared")), dal(Scribe::dalFactory(nullptr)),
      partition(XpLib::tcamPartitionStatusFactory()), aclIdMapping(XpAcl::aclIdMappingFactory()),
      blockedIntfColl(XpAcl::blockedIntfCollFactory()), activeXpDeviceColl(XpXdk::xpDeviceIdCollFactory()) {
  systemStatus->modeIs(3);
  xpcsd->portVlanIvifKeyAndIndexMapIs(Vane::Ptr<XpAcl::VlanVifIndexMap>(new XpAcl::VlanVifIndexMap));
  xpcsd->egressVlanVifKeyAndIndexMapIs(Vane::Ptr<XpAcl::VlanVifIndexMap>(new XpAcl::VlanVifIndexMap));
  for (unsigned chip = 0; chip < 2; ++chip) {
    for (unsigned port = 1; port <= 4; ++port) {
      systemStatus->intfToChipPortIs(
          Ovnet::IntfId(Ovnet::IntfId::ethernet, 32 * chip + port),
          Plex::Central::ChipPort(Plex::Central::DeviceId(chip),
                                  Plex::Central::PortId(static_cast<Vane::U16>(port))));
    }
  }
}

void MachineInputs::partitionIs(bool egressV4, bool egressV6) {
  partition->featureAllocationIs(XpLib::featureEAclV4, XpLib::FeatureAllocation(egressV4));
  partition->featureAllocationIs(XpLib::featureEAclV6, XpLib::FeatureAllocation(egressV6));
}

std::string MachineInputs::indexMaps() const {
  std::set<std::string> lines;
  const auto show = [&](const char* table, const XpAcl::VlanVifIndexMap& map) {
    const auto keyText = [](const XpAcl::XpAclVlanVifKey& key) {
      return std::to_string(key.vlanId().value()) + "/" + std::to_string(key.vif().value());
    };
    for (const auto& entry : map.keyToIndex().all()) {
      lines.insert(std::string(table) + " " + keyText(entry.key()) + " -> " + std::to_string(entry.value()));
    }
    for (const auto& entry : map.indexToKey().all()) {
      lines.insert(std::string(table) + " " + std::to_string(entry.key()) + " -> " + keyText(entry.value()));
    }
  };
  show("portVlan", *xpcsd->portVlanIvifKeyAndIndexMap());
  show("egress", *xpcsd->egressVlanVifKeyAndIndexMap());
  return joined(lines);
}

// ------------------------------------------------------------------------------------------ one chip

ChipUnderTest::ChipUnderTest(unsigned chip)
    : status(XpVif::portVlanVifStatusFactory("chip")),
      machine(XpAcl::chipHwAclIdSmFactory(device(chip), portVifStatus, systemStatus, xpcsd, dal, partition)) {
  machine->portCfgMgrIs(sdk.portConfigMgr());
  machine->portVlanIvifMgrIs(sdk.portVlanIvifMgr());
  machine->egressBdEvifMgrIs(sdk.egressBdEvifMgr());
  machine->initializedIs(true);
  machine->handleChipPortVlanVifStatus(status);
}

void ChipUnderTest::pairIs(const char* intfName, unsigned vlanNumber, Vane::U32 vif) {
  status->portVlanToVifMapIs(pairOf(intfName, vlanNumber), XpVif::VifId(vif));
}

void ChipUnderTest::pairDel(const char* intfName, unsigned vlanNumber) {
  status->portVlanToVifMapDel(pairOf(intfName, vlanNumber));
}

std::string ChipUnderTest::calls(const std::function<void()>& edits) {
  sdk.takeCalls();
  edits();
  return sdk.takeCalls();
}

std::string ChipUnderTest::books() const {
  std::set<std::string> lines;
  for (const auto& entry : machine->portVlanToVifCacheAll()) {
    lines.insert("cache " + pairText(entry.key()) + " vif " + std::to_string(entry.value().value()));
  }
  for (const auto& entry : machine->vifVlanInfoAll()) {
    const Vane::U32 key = entry.key().value();
    std::set<std::string> users;
    for (const auto& user : entry.ptr()->portVlanAll()) {
      users.insert(" " + pairText(user.key()));
    }
    std::string line =
        "users vif " + std::to_string(key >> 16) + " vlan " + std::to_string(key & 0xFFFF) + ":";
    for (const std::string& user : users) {
      line += user;
    }
    lines.insert(line);
  }
  return joined(lines);
}

// ---------------------------------------------------------------------------------------- the system

SystemUnderTest::SystemUnderTest(const std::vector<unsigned>& chips) {
  for (const unsigned number : chips) {
    activeXpDeviceColl->deviceIdIs(device(number), true);
  }
}

void SystemUnderTest::make() {
  machine = XpAcl::tcamHwAclIdSmFactory(portVlanVifStatus, portVifStatus, systemStatus, xpcsd, dal, partition,
                                        aclIdMapping, blockedIntfColl, activeXpDeviceColl);
}

Vane::Ptr<XpAcl::TcamChipHwAclIdSm> SystemUnderTest::chip(unsigned number) const {
  return machine->chipHwAclIdSm(device(number));
}

std::string SystemUnderTest::calls(const std::function<void()>& edits) {
  sdk.takeCalls();
  edits();
  return sdk.takeCalls();
}

std::string SystemUnderTest::enables(unsigned number) const {
  const auto machineOfChip = chip(number);
  return machineOfChip ? enablesOf(*machineOfChip->chipHwAclIdMap()) : "no machine\n";
}

std::string SystemUnderTest::mapping(unsigned number) const {
  std::set<std::string> lines;
  const auto copy = machine->chipAclIdMapping(device(number));
  if (!copy) {
    return "no mapping\n";
  }
  for (const auto& entry : copy->intfDirectionToIndexKeyAll()) {
    std::ostringstream line;
    line << entry.key().intfId() << " " << entry.key().direction() << ":" << slotsText(entry.value());
    lines.insert(line.str());
  }
  for (const auto& entry : copy->keyToAclIdMappingAll()) {
    lines.insert("id" + slotsText(entry.key()) + " -> " + std::to_string(entry.value().value()));
  }
  return joined(lines);
}

std::string SystemUnderTest::blocked(unsigned number) const {
  std::set<std::string> lines;
  if (const auto ports = machine->chipBlockedIntfColl(device(number))) {
    for (const auto& entry : ports->intfAll()) {
      lines.insert(entry.key().stringValue().charPtr());
    }
  } else {
    lines.insert("no set");
  }
  if (const auto vlans = machine->sharedBlockedVlanColl()) {
    for (const auto& entry : vlans->vlanAll()) {
      lines.insert("vlan " + std::to_string(entry.key().value()));
    }
  } else {
    lines.insert("no VLAN set");
  }
  return joined(lines);
}

// --------------------------------------------------------------------------------------------- words

XpXdk::XpDeviceId device(unsigned number) {
  return XpXdk::XpDeviceId(static_cast<Vane::U8>(number));
}

Ovnet::IntfId intf(const char* name) {
  return Ovnet::IntfId(Vane::String(name));
}

Bridging::VlanId vlan(unsigned number) {
  return Bridging::VlanId(static_cast<Vane::U16>(number));
}

XpLib::PortAndVlanId pairOf(const char* intfName, unsigned vlanNumber) {
  return XpLib::PortAndVlanId(intf(intfName), vlan(vlanNumber));
}

std::string textOf(const XpAcl::AclIdEn& en) {
  return "id=" + std::to_string(en.aclId()) + (en.v4En() ? " v4" : "") + (en.v6En() ? " v6" : "") +
         (en.macEn() ? " mac" : "") + (en.blocked() ? " blocked" : "");
}

std::string enablesOf(const XpAcl::ChipHwAclIdMap& map) {
  std::set<std::string> lines;
  const auto show = [&](const char* what, const auto& key, const XpAcl::AclIdEn& en) {
    std::ostringstream line;
    line << what << key << " " << textOf(en);
    lines.insert(line.str());
  };
  for (const auto& entry : map.ingressPortAclIdEnAll()) {
    show("in ", entry.key(), entry.value());
  }
  for (const auto& entry : map.ingressRouteAclIdEnAll()) {
    show("in Vlan", entry.key(), entry.value());
  }
  for (const auto& entry : map.egressPortAclIdEnAll()) {
    show("out ", entry.key(), entry.value());
  }
  for (const auto& entry : map.egressRouteAclIdEnAll()) {
    show("out Vlan", entry.key(), entry.value());
  }
  return joined(lines);
}

XpAcl::AclIdEn aclIdEn(unsigned id, const char* flags) {
  const std::string_view set(flags);
  const auto has = [&](char flag) { return set.find(flag) != set.npos; };
  return XpAcl::AclIdEn(static_cast<Vane::U8>(id), has('4'), has('6'), has('m'), has('b'));
}

XpAcl::HwAclIndexKey indexKey(unsigned slot, const char* name) {
  XpAcl::HwAclIndexKey key;
  Plex::AclKey acl;
  acl.nameIs(Vane::String(name));
  key.slotIs(slot, acl);
  return key;
}

XpAcl::IntfIdDirection in(const char* intfName) {
  return XpAcl::IntfIdDirection(intf(intfName), Acl::ingress);
}

XpAcl::IntfIdDirection out(const char* intfName) {
  return XpAcl::IntfIdDirection(intf(intfName), Acl::egress);
}

std::string exactDeathOf(const std::function<void()>& action) {
  return abortOf(action);
}

std::string deathOf(const std::function<void()>& action) {
  return replaced(abortOf(action), "(XpAcl[A-Za-z]*:)[0-9]+", "$1#");
}

std::string thrownBy(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& e) {
    return e.what();
  }
  return "nothing";
}

std::string writtenBy(const std::function<void(Vane::U32 fd)>& action) {
  std::FILE* const file = std::tmpfile();
  const int fd = ::fileno(file);
  action(static_cast<Vane::U32>(fd));
  std::string text;
  ::lseek(fd, 0, SEEK_SET);
  char buffer[4096];
  for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(n));
  }
  std::fclose(file);
  return text;
}

TraceCapture::TraceCapture(Vane::TraceHandle& handle) : TraceCapture(handle, handle) {}

TraceCapture::TraceCapture(Vane::TraceHandle& first, Vane::TraceHandle& second) : handles_{&first, &second} {
  for (Vane::TraceHandle* const handle : handles_) {
    const std::string name(handle->name().charPtr());
    handle->sinkIs([this, prefix = name + " 7 " + name + " "](std::string_view line) {
      text_ += std::string(line.starts_with(prefix) ? line.substr(prefix.size()) : line) + "\n";
    });
    handle->levelIs(7, true);
  }
}

TraceCapture::~TraceCapture() {
  for (Vane::TraceHandle* const handle : handles_) {
    handle->levelIs(7, false);
    handle->sinkIs({});
  }
}

std::string TraceCapture::take() {
  return std::exchange(text_, std::string());
}

} // namespace test
