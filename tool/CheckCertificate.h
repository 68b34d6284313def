#pragma once

#include "agent/config/ConfigModel.h"
#include "tool/Certificate.h"
#include "verify/ListSets.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// Checks certificates by another way than they were made: the writes are played back through the SDK's calls
// on a fresh simulated chip, and each verdict is found out from the rows as they stand then, with nothing
// kept from one state to the next but sets whose rows were not touched.

namespace tool {

// What the check needs of the configurations; without them the chips' own start and end stand for them.
struct CertificateConfigs {
  agent::Config old;
  agent::Config fresh;
  ConfigFile oldFile;
  ConfigFile freshFile;
};

class CertificateChecker {
public:
  // `configs` may be null. Both outlive the checker.
  CertificateChecker(const Certificate& certificate, const CertificateConfigs* configs,
                     std::size_t memoryLimit = verify::Diagrams::defaultLimit);
  void tickIs(verify::Tick tick) { tick_ = std::move(tick); } // once a write

  // Raises BadCertificate, with the reason, when it does not hold.
  void run();

  uint64_t numJudged() const { return numJudged_; }
  std::size_t numPlaces() const { return numPlaces_; }
  std::size_t peakMemory() const { return memory_; }

private:
  void checkConfigs() const;

  const Certificate& certificate_;
  const CertificateConfigs* configs_;
  std::size_t memoryLimit_;
  verify::Tick tick_;
  uint64_t numJudged_ = 0;
  std::size_t numPlaces_ = 0;
  std::size_t memory_ = 0;
};

// Executes a write through the SDK's managers of `system`. Raises BadWrite when it is refused.
void playWrite(sim::System& system, const ChipWrite& write);

} // namespace tool
