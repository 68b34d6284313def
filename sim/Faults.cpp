#include "sim/Faults.h"

namespace sim {

using namespace XpXdk;

namespace {

// Decides for each call whether it is the one that fails.
class FaultPlan {
public:
  void faultIs(const Fault& fault) {
    fault_ = fault;
    calls_ = 0;
    fired_ = false;
  }
  bool fired() const { return fired_; }
  uint64_t numCalls() const { return calls_; }

  template <typename Execute>
  XP_STATUS call(Op op, const Execute& execute) {
    const bool counts = (!fault_.writesOnly || isWrite(op)) && (!fault_.only || *fault_.only == op);
    if (!counts || ++calls_ != fault_.call) {
      return execute();
    }
    fired_ = true;
    if (fault_.execute) {
      execute();
    }
    return fault_.status;
  }

private:
  Fault fault_;
  uint64_t calls_ = 0;
  bool fired_ = false;
};

class FaultyIaclMgr : public xpIaclMgr {
public:
  FaultyIaclMgr(FaultPlan& plan) : plan_(plan) {}
  void innerIs(xpIaclMgr* inner) { inner_ = inner; }

  XP_STATUS writeKeyMask(uint8_t device, xpIaclType_e table, uint32_t tcamIdx, uint32_t flag,
                         const xpIaclkeyFieldList* key) override {
    return plan_.call(Op::writeKeyMask,
                      [&] { return inner_->writeKeyMask(device, table, tcamIdx, flag, key); });
  }
  XP_STATUS writeData(uint8_t device, xpIaclType_e table, uint8_t tblNum, uint32_t tcamIdx,
                      const xpIaclData_t* data) override {
    return plan_.call(Op::writeData, [&] { return inner_->writeData(device, table, tblNum, tcamIdx, data); });
  }
  XP_STATUS setEntryValid(uint8_t device, xpIaclType_e table, uint32_t tcamIdx, uint8_t valid) override {
    return plan_.call(Op::setEntryValid,
                      [&] { return inner_->setEntryValid(device, table, tcamIdx, valid); });
  }
  XP_STATUS readEntry(uint8_t device, xpIaclType_e table, uint32_t tcamIdx, uint32_t& isValid,
                      xpIaclkeyFieldList* key, xpIaclData_t* data, uint8_t tblNum) override {
    return plan_.call(Op::readEntry,
                      [&] { return inner_->readEntry(device, table, tcamIdx, isValid, key, data, tblNum); });
  }
  XP_STATUS getNumOfEntry(uint8_t device, xpIaclType_e table, uint32_t& count) override {
    return plan_.call(Op::getNumOfEntry, [&] { return inner_->getNumOfEntry(device, table, count); });
  }

private:
  FaultPlan& plan_;
  xpIaclMgr* inner_ = nullptr;
};

class FaultyAcmMgr : public xpAcmMgr {
public:
  FaultyAcmMgr(FaultPlan& plan, xpAcmMgr* inner) : plan_(plan), inner_(inner) {}
  XP_STATUS readCounter(uint8_t device, xpAcmClient_e client, uint32_t index, uint64_t& count) override {
    return plan_.call(Op::readCounter, [&] { return inner_->readCounter(device, client, index, count); });
  }

private:
  FaultPlan& plan_;
  xpAcmMgr* inner_;
};

class FaultyPortConfigMgr : public xpPortConfigMgr {
public:
  FaultyPortConfigMgr(FaultPlan& plan, xpPortConfigMgr* inner) : plan_(plan), inner_(inner) {}
  XP_STATUS getNumOfEntry(uint8_t device, uint32_t& count) override {
    return plan_.call(Op::getNumOfEntry, [&] { return inner_->getNumOfEntry(device, count); });
  }
  XP_STATUS writeEntry(uint8_t device, uint32_t portNumber, const xpPortConfigEntry* entry) override {
    return plan_.call(Op::portConfigWrite, [&] { return inner_->writeEntry(device, portNumber, entry); });
  }
  XP_STATUS readEntry(uint8_t device, uint32_t portNumber, xpPortConfigEntry* entry, uint8_t copy) override {
    return plan_.call(Op::portConfigRead, [&] { return inner_->readEntry(device, portNumber, entry, copy); });
  }

private:
  FaultPlan& plan_;
  xpPortConfigMgr* inner_;
};

class FaultyPortVlanMgr : public xpPortVlanIvifMgr {
public:
  FaultyPortVlanMgr(FaultPlan& plan, xpPortVlanIvifMgr* inner) : plan_(plan), inner_(inner) {}
  XP_STATUS getNumOfEntry(uint8_t device, uint32_t& count) override {
    return plan_.call(Op::getNumOfEntry, [&] { return inner_->getNumOfEntry(device, count); });
  }
  XP_STATUS addEntry(uint8_t device, uint8_t copy, const xpPortVlanIvifEntry* entry,
                     std::vector<uint32_t>& indexList) override {
    return plan_.call(Op::portVlanAdd, [&] { return inner_->addEntry(device, copy, entry, indexList); });
  }
  XP_STATUS writeEntry(uint8_t device, uint8_t copy, uint32_t index,
                       const xpPortVlanIvifEntry* entry) override {
    return plan_.call(Op::portVlanWrite, [&] { return inner_->writeEntry(device, copy, index, entry); });
  }
  XP_STATUS removeEntry(uint8_t device, uint32_t index) override {
    return plan_.call(Op::portVlanRemove, [&] { return inner_->removeEntry(device, index); });
  }
  XP_STATUS readEntry(uint8_t device, uint32_t index, xpPortVlanIvifEntry* entry, uint8_t copy) override {
    return plan_.call(Op::portVlanRead, [&] { return inner_->readEntry(device, index, entry, copy); });
  }

private:
  FaultPlan& plan_;
  xpPortVlanIvifMgr* inner_;
};

class FaultyEgressMgr : public xpEgressBdEvifMgr {
public:
  FaultyEgressMgr(FaultPlan& plan, xpEgressBdEvifMgr* inner) : plan_(plan), inner_(inner) {}
  XP_STATUS getNumOfEntry(uint8_t device, uint32_t& count) override {
    return plan_.call(Op::getNumOfEntry, [&] { return inner_->getNumOfEntry(device, count); });
  }
  XP_STATUS addEntry(uint8_t device, const xpEgressBdEvifEntry* entry,
                     std::vector<uint32_t>& indexList) override {
    return plan_.call(Op::egressAdd, [&] { return inner_->addEntry(device, entry, indexList); });
  }
  XP_STATUS writeEntry(uint8_t device, uint32_t index, const xpEgressBdEvifEntry* entry) override {
    return plan_.call(Op::egressWrite, [&] { return inner_->writeEntry(device, index, entry); });
  }
  XP_STATUS lookup(uint8_t device, const xpEgressBdEvifEntry* entry, uint32_t& index) override {
    return plan_.call(Op::egressLookup, [&] { return inner_->lookup(device, entry, index); });
  }
  XP_STATUS removeEntry(uint8_t device, uint32_t index) override {
    return plan_.call(Op::egressRemove, [&] { return inner_->removeEntry(device, index); });
  }
  XP_STATUS readEntry(uint8_t device, uint32_t index, xpEgressBdEvifEntry* entry, uint8_t copy) override {
    return plan_.call(Op::egressRead, [&] { return inner_->readEntry(device, index, entry, copy); });
  }

private:
  FaultPlan& plan_;
  xpEgressBdEvifMgr* inner_;
};

} // namespace

struct FaultySdk::Managers : xpAclPl, xpIfPl {
  Managers(xpDeviceMgr& deviceMgr, xpAclPl& aclPl, xpIfPl& ifPl)
      : devices(deviceMgr), innerAclPl(aclPl), iacl(plan), acm(plan, aclPl.acmMgr()),
        portConfigs(plan, ifPl.portConfigMgr()), portVlans(plan, ifPl.portVlanIvifMgr()),
        egresses(plan, ifPl.egressBdEvifMgr()) {}

  xpIaclMgr* iaclMgr(uint32_t plMgrId) override {
    iacl.innerIs(innerAclPl.iaclMgr(plMgrId));
    return &iacl;
  }
  xpAcmMgr* acmMgr() override { return &acm; }
  xpPortConfigMgr* portConfigMgr() override { return &portConfigs; }
  xpPortVlanIvifMgr* portVlanIvifMgr() override { return &portVlans; }
  xpEgressBdEvifMgr* egressBdEvifMgr() override { return &egresses; }

  FaultPlan plan;
  xpDeviceMgr& devices;
  xpAclPl& innerAclPl;
  FaultyIaclMgr iacl;
  FaultyAcmMgr acm;
  FaultyPortConfigMgr portConfigs;
  FaultyPortVlanMgr portVlans;
  FaultyEgressMgr egresses;
};

FaultySdk::FaultySdk(System& system) : FaultySdk(system.deviceMgr(), system.aclPl(), system.ifPl()) {}

FaultySdk::FaultySdk(xpDeviceMgr& deviceMgr, xpAclPl& aclPl, xpIfPl& ifPl)
    : managers_(std::make_unique<Managers>(deviceMgr, aclPl, ifPl)) {}

FaultySdk::~FaultySdk() = default;

void FaultySdk::faultIs(const Fault& fault) {
  managers_->plan.faultIs(fault);
}
bool FaultySdk::fired() const {
  return managers_->plan.fired();
}
uint64_t FaultySdk::numCalls() const {
  return managers_->plan.numCalls();
}
xpDeviceMgr& FaultySdk::deviceMgr() {
  return managers_->devices;
}
xpAclPl& FaultySdk::aclPl() {
  return *managers_;
}
xpIfPl& FaultySdk::ifPl() {
  return *managers_;
}

System::Installation FaultySdk::install() {
  return {&managers_->devices, managers_.get(), managers_.get()};
}

} // namespace sim
