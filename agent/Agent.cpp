#include "agent/Agent.h"

#include "agent/Plan.h"

#include "XpXdk/Managers.h"

#include <algorithm>

namespace agent {

namespace {
constexpr Vane::U32 systemModeWithEgress = 3;
} // namespace

uint32_t AgentSetup::rows(Table table) const {
  const auto found = tcamRows.find(table);
  return found == tcamRows.end() ? defaultTableRows : found->second;
}

AgentSetup setupFor(const Config& config) {
  AgentSetup setup;
  setup.numChips = config.numChips;
  setup.tcamRows = config.tcamRows;
  return setup;
}

Agent::Agent(const AgentSetup& setup)
    : setup_(setup), helperInfo_(XpAcl::plexAclAggregatorHelperInfoFactory()),
      aclIdMapping_(XpAcl::aclIdMappingFactory()), paramConfig_(Acl::paramConfigFactory()),
      blockedIntfColl_(XpAcl::blockedIntfCollFactory()), tcamLimit_(XpAcl::xpAclTcamLimitFactory()),
      systemStatus_(XpSystem::systemStatusFactory()), partition_(XpLib::tcamPartitionStatusFactory()),
      dal_(Scribe::dalFactory(XpXdk::xpAclPl::instance() == nullptr ? nullptr
                                                                    : XpXdk::xpAclPl::instance()->acmMgr())),
      xpcsd_(XpAcl::xpAclCommonSmDataFactory(Vane::Name("xpAclCommon"))),
      portVlanVifStatus_(XpVif::portVlanVifStatusFactory(Vane::Name("system"))),
      portVifStatus_(XpVif::portVifStatusFactory()), activeXpDeviceColl_(XpXdk::xpDeviceIdCollFactory()) {
  for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
    tcamLimit_->maxTcamIdxIs(table.tcamType, setup_.rows(static_cast<Table>(table.tcamType)));
  }
  systemStatus_->deviceTypeIs(XpSystem::deviceTypeWithPartition);
  systemStatus_->modeIs(systemModeWithEgress);
  systemStatus_->numTableCopiesIs(1);
  xpcsd_->portVlanIvifKeyAndIndexMapIs(Vane::Ptr<XpAcl::VlanVifIndexMap>(new XpAcl::VlanVifIndexMap));
  xpcsd_->egressVlanVifKeyAndIndexMapIs(Vane::Ptr<XpAcl::VlanVifIndexMap>(new XpAcl::VlanVifIndexMap));
  for (unsigned chip = 0; chip < setup_.numChips; ++chip) {
    makeHelper(static_cast<uint8_t>(chip));
  }
  neighborDiscovery_ = helpers_.begin()->second->needToInstallIcmp6NeighborDiscoveryRules();
}

Agent::~Agent() = default;

void Agent::makeHelper(uint8_t chip) {
  if (helpers_.count(chip) != 0) {
    return;
  }
  for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
    RowOwners& owners = owners_[chip][table.tcamType];
    if (const uint32_t rows = tcamLimit_->maxTcamIdx(table.tcamType); owners.size() != rows) {
      owners = RowOwners(rows);
    }
  }
  const Plex::Central::DeviceId device(chip);
  helperInfo_->chipIs(device, XpAcl::ChipRecord(Vane::format("chip%u", chip)));
  systemStatus_->chipInfoIs(device, XpSystem::ChipInfo(Vane::format("chip%u", chip)));
  Vane::Ptr<XpAcl::XpAclPlexAggregatorHelper> helper;
  try {
    helper =
        XpAcl::xpAclPlexAggregatorHelperFactory(helperInfo_, aclIdMapping_, paramConfig_, blockedIntfColl_,
                                                tcamLimit_, systemStatus_, partition_, dal_);
    for (const XpAcl::AclIntfTypeAndDir kind :
         {XpAcl::portIngress, XpAcl::portEgress, XpAcl::routedIngress, XpAcl::routedEgress}) {
      helper->aclIdCountIs(kind, idsPerKind);
    }
    if (setup_.restart) {
      adoptChip(chip);
    }
    helper->xpDevIdIs(XpXdk::XpDeviceId(chip));
    helper->hwInit();
    helper->handleInitialized();
    helpers_[chip] = helper; // last: a helper that stands here is complete
  } catch (const std::bad_alloc&) {
    // Taking collections down may need memory, and must not fail.
    const MemoryReserve::Use use(reserve_);
    helpers_.erase(chip);
    helper = nullptr;
    throw;
  }
}

Vane::Ptr<XpAcl::XpAclPlexAggregatorHelper> Agent::helper(uint8_t chip) const {
  const auto found = helpers_.find(chip);
  return found == helpers_.end() ? Vane::Ptr<XpAcl::XpAclPlexAggregatorHelper>() : found->second;
}

Vane::Ptr<XpAcl::TcamChipHwAclIdSm> Agent::chipMachine(uint8_t chip) const {
  return machine_ ? machine_->chipHwAclIdSm(XpXdk::XpDeviceId(chip)) : Vane::Ptr<XpAcl::TcamChipHwAclIdSm>();
}

const RowOwner* Agent::rowOwner(uint8_t chip, XpAcl::TcamType table, uint32_t row) const {
  const auto tables = owners_.find(chip);
  if (tables == owners_.end() || row >= tables->second[table].size()) {
    return nullptr;
  }
  const RowOwner& owner = tables->second[table][row];
  return owner.acl ? &owner : nullptr;
}

std::shared_ptr<AggregatedAcl> Agent::acl(const Plex::AclKey& key) const {
  const auto found = generations_.find(key);
  return found == generations_.end() ? nullptr : found->second.acl;
}

std::string Agent::unitError() const {
  for (const auto& [chip, helper] : helpers_) {
    if (helper->unitErrorPublished()) {
      return helper->unitErrorText().charPtr();
    }
  }
  return "";
}

XpAcl::AclKeyInfo Agent::versionOf(const Plex::AclKey& member, uint16_t id, bool routed) const {
  return XpAcl::AclKeyInfo(member, id, routed ? XpAcl::aclKeyTypeRouted : XpAcl::aclKeyTypePort);
}

Vane::Ptr<Plex::AclData> Agent::aclDataOf(const Plex::AclKey& key) {
  Vane::Ptr<Plex::AclData>& data = aclData_[key];
  if (!data) {
    data = Plex::aclDataFactory(key);
    data->countersEnabledIs(setup_.counters);
  }
  return data;
}

uint8_t Agent::chipOf(Ovnet::IntfId intf) const {
  if (!Ovnet::EthIntfId::isEthIntfId(intf)) {
    return 0;
  }
  const Plex::Central::ChipPort port = systemStatus_->intfToChipPort(intf);
  return !port ? 0 : static_cast<uint8_t>(port.chip().value());
}

std::vector<std::string> Agent::audit() const {
  std::vector<std::string> broken;
  for (const auto& [chip, helper] : helpers_) {
    for (const std::string& finding : helper->audit()) {
      broken.push_back("chip " + std::to_string(chip) + ": " + finding);
    }
    if (helper->pendingTcamMappingCount() != 0) {
      broken.push_back("chip " + std::to_string(chip) + ": something is staged while no change is under way");
    }
  }
  std::size_t versions = 0;
  for (const auto& [key, live] : live_) {
    for (const uint8_t chip : live.chips) {
      for (const Plex::AclKey& member : members(key)) {
        ++versions;
        if (!helpers_.at(chip)->programmedAclKeyInfoToIdxHas(versionOf(member, live.id, live.routed))) {
          broken.push_back("chip " + std::to_string(chip) + ": id " + std::to_string(live.id) + " of list " +
                           member.name().charPtr() + " is in use but not programmed");
        }
      }
    }
    if (aclIdMapping_->keyToAclIdMapping(key).value() != live.id) {
      broken.push_back("id " + std::to_string(live.id) + " is in use but not published");
    }
  }
  std::size_t programmed = 0;
  for (const auto& [chip, helper] : helpers_) {
    programmed += helper->programmedAclKeyInfoToIdxCount();
  }
  if (programmed != versions) {
    broken.push_back(std::to_string(programmed) + " versions are programmed, " + std::to_string(versions) +
                     " are in use");
  }
  for (const auto& [attachment, key] : attachments_) {
    if (live_.find(key) == live_.end()) {
      broken.push_back(std::string(attachment.intf.stringValue().charPtr()) +
                       " uses an index key without an id");
    }
    if (!(aclIdMapping_->intfDirectionToIndexKey({attachment.intf, attachment.direction}) == key)) {
      broken.push_back(std::string(attachment.intf.stringValue().charPtr()) +
                       " is published with another index key");
    }
  }
  if (aclIdMapping_->intfDirectionToIndexKeyCount() != attachments_.size()) {
    broken.emplace_back("interfaces are published that have no list");
  }
  return broken;
}

} // namespace agent
