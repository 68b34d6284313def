#pragma once

#include "Acl/AclTypes.h"
#include "Ovnet/Addr.h"
#include "Vane/Vane.h"

#include <cstdint>

// What a rule matches, as the generic ACL layer hands it to the chip layer: value records that are
// copied freely. All of them are plain bytes, so a copy is a memory copy.

namespace Acl {

// Marks an ICMP type or code that is not compared.
constexpr uint16_t icmpAny = 0xFFFF;
// Marks an EtherType that is not compared.
constexpr uint32_t etherTypeAny = 0xFFFFFFFF;

// How a rule compares TTL or hop limit.
enum class TtlOp : uint8_t { any = 0, eq = 1 };

// The match mask word of an IPv4 netmask: the same octets, byte-swapped, so that the least
// significant byte of the word belongs to the address's most significant octet. A /24
// (0xFFFFFF00) is 0x00FFFFFF. This is the only place that builds the word.
constexpr uint32_t ipMaskWord(uint32_t netmask) {
  return __builtin_bswap32(netmask);
}

// An IPv4 address as a host-order word, with its match mask word (0: any address).
struct IpAddrMask {
  uint32_t address = 0;
  uint32_t maskWord = 0;
  bool operator==(const IpAddrMask&) const = default;
};

// An IPv6 address with its prefix length (0: any address; at most 128).
struct Ip6AddrPrefix {
  Ovnet::Ip6Addr address;
  uint8_t prefixLength = 0;
  bool operator==(const Ip6AddrPrefix&) const = default;
};

// The name of a routing instance: at most maxLength octets.
class VrfName {
public:
  static constexpr unsigned maxLength = 100;
  VrfName() = default;
  // Raises "VrfName::bytes > VrfName::maxLength not allowed".
  explicit VrfName(const Vane::String& bytes);
  const Vane::String& bytes() const { return bytes_; }
  bool operator==(const VrfName& other) const { return bytes_ == other.bytes_; }

private:
  Vane::String bytes_;
};

// What IPv4 and IPv6 filters have in common.
class IpFilterBase {
public:
  uint8_t proto() const { return proto_; } // 0: any
  void protoIs(uint8_t proto) { proto_ = proto; }
  bool established() const { return established_; } // TCP with ACK or RST
  void establishedIs(bool on) { established_ = on; }
  bool fragments() const { return fragments_; } // non-initial fragments only
  void fragmentsIs(bool on) { fragments_ = on; }
  uint16_t icmpType() const { return icmpType_; }
  void icmpTypeIs(uint16_t type) { icmpType_ = type; }
  uint16_t icmpCode() const { return icmpCode_; }
  void icmpCodeIs(uint16_t code) { icmpCode_ = code; }
  TtlOp ttlOp() const { return ttlOp_; }
  uint8_t ttl() const { return ttl_; }
  void ttlIs(TtlOp op, uint8_t ttl) {
    ttlOp_ = op;
    ttl_ = ttl;
  }
  uint32_t vni() const { return vni_; }
  // Raises "IpFilterBase::vni < 0 or > 16777215 not allowed" (24 bits, RFC 7348).
  void vniIs(uint32_t vni);
  const VrfName& vrfName() const { return vrfName_; }
  void vrfNameIs(const VrfName& name) { vrfName_ = name; }
  bool operator==(const IpFilterBase&) const = default;

private:
  uint8_t proto_ = 0;
  bool established_ = false;
  bool fragments_ = false;
  TtlOp ttlOp_ = TtlOp::any;
  uint8_t ttl_ = 0;
  uint16_t icmpType_ = icmpAny;
  uint16_t icmpCode_ = icmpAny;
  uint32_t vni_ = 0;
  VrfName vrfName_;
};

class IpFilter : public IpFilterBase { // of IPv4 rules
public:
  const IpAddrMask& source() const { return source_; }
  void sourceIs(const IpAddrMask& source) { source_ = source; }
  const IpAddrMask& destination() const { return destination_; }
  void destinationIs(const IpAddrMask& destination) { destination_ = destination; }
  bool operator==(const IpFilter&) const = default;

private:
  IpAddrMask source_;
  IpAddrMask destination_;
};

class Ip6Filter : public IpFilterBase { // of IPv6 rules
public:
  const Ip6AddrPrefix& source() const { return source_; }
  void sourceIs(const Ip6AddrPrefix& source) { source_ = source; }
  const Ip6AddrPrefix& destination() const { return destination_; }
  void destinationIs(const Ip6AddrPrefix& destination) { destination_ = destination; }
  bool operator==(const Ip6Filter&) const = default;

private:
  Ip6AddrPrefix source_;
  Ip6AddrPrefix destination_;
};

// MAC masks are match masks: 1 bits are compared, all zero means any address.
class MacFilter {
public:
  uint16_t vlan() const { return vlan_; }
  uint16_t vlanMask() const { return vlanMask_; } // match mask, 0: any VLAN
  void vlanIs(uint16_t vlan, uint16_t mask) {
    vlan_ = vlan;
    vlanMask_ = mask;
  }
  uint32_t etherType() const { return etherType_; }
  void etherTypeIs(uint32_t type) { etherType_ = type; }
  const Ovnet::MacAddr& source() const { return source_; }
  const Ovnet::MacAddr& sourceMask() const { return sourceMask_; }
  void sourceIs(const Ovnet::MacAddr& addr, const Ovnet::MacAddr& mask) {
    source_ = addr;
    sourceMask_ = mask;
  }
  const Ovnet::MacAddr& destination() const { return destination_; }
  const Ovnet::MacAddr& destinationMask() const { return destinationMask_; }
  void destinationIs(const Ovnet::MacAddr& addr, const Ovnet::MacAddr& mask) {
    destination_ = addr;
    destinationMask_ = mask;
  }
  uint32_t mplsLabel() const { return mplsLabel_; }
  // Raises "MacFilter::mplsLabel < 0 or > 0xFFFFF not allowed" (20 bits, RFC 3032).
  void mplsLabelIs(uint32_t label);
  bool operator==(const MacFilter&) const = default;

private:
  uint16_t vlan_ = 0;
  uint16_t vlanMask_ = 0;
  uint32_t etherType_ = etherTypeAny;
  Ovnet::MacAddr source_, sourceMask_;
  Ovnet::MacAddr destination_, destinationMask_;
  uint32_t mplsLabel_ = 0;
};

// One rule as configured: its action and log flag; the filter stands in the derived record of the
// rule's type.
class RuleConfig {
public:
  RuleConfig(Action action, bool log) : action_(action), log_(log) {}
  Action action() const { return action_; }
  bool log() const { return log_; }

protected:
  ~RuleConfig() = default;

private:
  Action action_;
  bool log_;
};

// Template because the three rule types differ in the filter alone.
template <typename Filter>
class FilterRuleConfig : public RuleConfig {
public:
  FilterRuleConfig(const Filter& filter, Action action, bool log)
      : RuleConfig(action, log), filter_(filter) {}
  const Filter& filter() const { return filter_; }

private:
  Filter filter_;
};

using IpRuleConfig = FilterRuleConfig<IpFilter>;   // a rule of an IPv4 list
using Ip6RuleConfig = FilterRuleConfig<Ip6Filter>; // a rule of an IPv6 list
using MacRuleConfig = FilterRuleConfig<MacFilter>; // a rule of a MAC list

// Agent-wide ACL parameters, read by the generic layer.
class ParamConfig : public Vane::PtrInterface {
public:
  VANE_ENTITY(Acl, ParamConfig, Vane::PtrInterface,
              SCALAR(bool, countersEnabledByDefault, CountersEnabledByDefault, true))
};
VANE_FACTORY_DECLARED(ParamConfig, paramConfigFactory)

} // namespace Acl
