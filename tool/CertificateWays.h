#pragma once

#include "tool/UpdateProofPlaces.h"
#include "tool/UpdateProofWrites.h"
#include "verify/PacketSet.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

// The ways of packets as the check of a certificate finds them: by walking from every port in every VLAN to
// every port, for whatever the proof has done.

namespace tool {

class CertificateWays {
public:
  // The places on a way, in no order, and an example of it: "from Ethernet1 in VLAN 10 to Ethernet2". MAC
  // lists judge by VLAN, so that ways over them are apart.
  struct Way {
    std::vector<uint32_t> places;
    agent::Family family = agent::Family::ipv4;
    uint16_t macVlan = 0; // 0: no MAC list on it
    std::string text;
  };

  // Of ports that are connected alike before and after, in the VLANs that they carry before and after.
  CertificateWays(const Change& change, const std::vector<ProofPlace>& places);

  const std::vector<Way>& ways() const { return ways_; }

private:
  using Key = std::pair<std::vector<uint32_t>, uint16_t>;

  std::vector<const Topology::Port*> lastingPorts(std::vector<std::vector<bool>>& carried) const;
  void walk(const Topology::Port& in, uint16_t vlan, const Topology::Port* out, agent::Family family);
  void addPlaces(std::vector<uint32_t>& to, const Topology::Port& port, agent::Direction direction,
                 agent::Family family, uint16_t vlan) const;

  const Change& change_;
  const std::vector<ProofPlace>& places_;
  std::map<std::pair<uint8_t, uint16_t>, std::vector<uint32_t>> byVif_;  // keyed places, by chip and VIF
  std::map<std::pair<uint8_t, uint32_t>, std::vector<uint32_t>> byPort_; // the others
  std::map<Key, agent::Family> known_;
  std::vector<Way> ways_;
};

// A packet that passes all of some places, though old lists and new lists each deny it somewhere, as text;
// empty: there is none. Sets of MAC places come apart from those of the family.
struct WaySets {
  verify::PacketSet now;
  verify::PacketSet old;
  verify::PacketSet fresh;
};
std::string strayText(const WaySets& packets, const WaySets& frames);

} // namespace tool
