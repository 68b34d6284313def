// Stands between the driver and an SDK and writes down what it does to the ACL tables: how a change looks to
// a chip. The same few lines stand in front of a real adapter when you want to see what went wrong.

#include "agent/Agent.h"
#include "agent/config/ConfigReader.h"
#include "sim/System.h"

#include <cstdio>
#include <string>

namespace {

using namespace XpXdk;

class RecordingIacl : public xpIaclMgr {
public:
  explicit RecordingIacl(xpIaclMgr& inner) : inner_(inner) {}
  bool on = false;

  XP_STATUS writeKeyMask(uint8_t device, xpIaclType_e table, uint32_t row, uint32_t flag,
                         const xpIaclkeyFieldList* key) override {
    note("key and mask of", table, row, std::to_string(key->numFields) + " fields");
    return inner_.writeKeyMask(device, table, row, flag, key);
  }
  XP_STATUS writeData(uint8_t device, xpIaclType_e table, uint8_t copy, uint32_t row,
                      const xpIaclData_t* data) override {
    note("data of", table, row, data->result() == 1 ? "forward" : "drop");
    return inner_.writeData(device, table, copy, row, data);
  }
  XP_STATUS setEntryValid(uint8_t device, xpIaclType_e table, uint32_t row, uint8_t valid) override {
    note("validity of", table, row, valid != 0 ? "on" : "off");
    return inner_.setEntryValid(device, table, row, valid);
  }
  XP_STATUS readEntry(uint8_t device, xpIaclType_e table, uint32_t row, uint32_t& valid,
                      xpIaclkeyFieldList* key, xpIaclData_t* data, uint8_t copy) override {
    return inner_.readEntry(device, table, row, valid, key, data, copy);
  }
  XP_STATUS getNumOfEntry(uint8_t device, xpIaclType_e table, uint32_t& count) override {
    return inner_.getNumOfEntry(device, table, count);
  }

private:
  void note(const char* what, xpIaclType_e table, uint32_t row, const std::string& value) const {
    if (on) {
      std::printf("  %s %s row %u: %s\n", what, iaclTable(table)->name, row, value.c_str());
    }
  }
  xpIaclMgr& inner_;
};

// The platform object that hands the recorder out in place of the SDK's own manager.
struct RecordingAcls : xpAclPl {
  RecordingAcls(xpAclPl& inner) : recorder(*inner.iaclMgr(0)), acm(inner.acmMgr()) {}
  xpIaclMgr* iaclMgr(uint32_t) override { return &recorder; }
  xpAcmMgr* acmMgr() override { return acm; }
  RecordingIacl recorder;
  xpAcmMgr* acm;
};

} // namespace

int main() {
  sim::System system{sim::DeviceConfig()};
  const sim::System::Installation installed = system.install();
  RecordingAcls recording(*xpAclPl::install(nullptr));
  xpAclPl::install(&recording);
  agent::Agent agent{agent::AgentSetup()}; // closes thousands of rows, which nobody wants to read
  recording.recorder.on = true;
  for (const std::string line : {" permit tcp any any eq www\n", " permit tcp any any eq 443\n"}) {
    const agent::Config config = agent::readConfigText(
        "ip access-list extended WEB\n" + line + "interface Ethernet1\n ip access-group WEB in\n", "web");
    std::printf("changing to%s", line.c_str());
    agent.apply(config);
  }
}
