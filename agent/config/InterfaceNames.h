#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/Lexer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Names of interfaces: the kind in any of its spellings and abbreviations ("GigabitEthernet", "Gi", "g"),
// then the position ("1/0/1"). Two spellings of one interface have the same identity.

namespace agent {

constexpr unsigned maxChip = 63; // the SDK numbers devices from 0 to 63

class InterfaceName {
public:
  // Nothing when the text does not start with a letter. A kind that is unknown, a position that makes no
  // sense and a kind that the system does not have are names of kind `unsupported`, and `reason()` says why.
  static std::optional<InterfaceName> fromText(std::string_view text);
  // A name that could not be read, for this reason.
  static InterfaceName unreadable(std::string_view text, std::string reason);
  // A name of the same kind with the last number of its position replaced.
  InterfaceName withLast(uint32_t last) const;

  InterfaceKind kind() const { return kind_; }
  // Kind spelled out and position without leading zeros: "GigabitEthernet1/0/1", "Vlan10". A name of an
  // unknown kind stands as it was written.
  std::string text() const;
  std::string identity() const; // equal for all spellings of one interface
  // Why no list can be applied here: "the system has no loopback interfaces".
  const std::string& reason() const { return reason_; }
  bool isMisspelt() const { return misspelt_; } // an unknown kind, close to a known one
  // The number of "Vlan10", "Port-Channel3" and of a plain "Ethernet3"; nothing for longer positions.
  std::optional<uint32_t> plainNumber() const;
  uint32_t last() const { return numbers_.empty() ? 0 : numbers_.back(); }
  bool isImpossibleVlan() const { // "Vlan5000"
    return kindClass_ == "vlan" && kind_ == InterfaceKind::unsupported && plainNumber();
  }
  bool isPlainEthernet() const { return kindClass_ == "ethernet" && plainNumber(); }
  const std::string& kindName() const { return kindName_; }
  // The position parts before the last one are the same: what a range runs over.
  bool sameBut(const InterfaceName& other) const;

private:
  void kindIs(std::string_view word);
  void positionIs(std::string_view text);
  void unsupportedIs(std::string reason);

  InterfaceKind kind_ = InterfaceKind::unsupported;
  std::string kindName_;
  std::string_view kindClass_; // points into a constant table
  std::vector<uint32_t> numbers_;
  std::string separators_; // behind each number but the last
  std::string written_;
  std::string reason_;
  bool misspelt_ = false;
  bool wellFormed_ = true;
};

// What a list of interfaces says: "Gi1/0/1-4,Gi1/0/7", "Ethernet1 - Ethernet4", "Vlan 10 - 20".
struct InterfaceRange {
  std::vector<InterfaceName> names;
  std::string error; // when not empty: why it cannot be read
};
constexpr size_t maxRangeInterfaces = 1024;
// Reads the words from `first` on, however blanks are set between them.
InterfaceRange interfaceRange(const std::vector<Token>& tokens, size_t first);

// "10", "1,4-9,11"; each within 1..4094.
struct VlanRange {
  std::vector<PortRange> ranges; // as written
  std::string error;
  std::string culprit; // the part that could not be read
};
VlanRange vlanRange(std::string_view text);
constexpr uint32_t maxVlan = 4094; // IEEE 802.1Q: 0 and 4095 are reserved

} // namespace agent
