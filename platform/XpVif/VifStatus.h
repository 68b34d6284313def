#pragma once

#include "Ovnet/IntfId.h"
#include "Vane/Vane.h"
#include "XpLib/PortAndVlanId.h"
#include "XpVif/PortVlanMatrix.h"

#include <vector>

namespace XpVif {

// A virtual interface of the chip; all ones: none.
VANE_WRAPPER_VALUE(XpVif, VifId, Vane::U32, 0xFFFFFFFF)

// The map itself; PortVlanVifStatus adds the indexes.
class PortVlanVifMap : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpVif, PortVlanVifMap, Vane::PtrInterface, CONST(Vane::Name, name),
              MAP(XpLib::PortAndVlanId, VifId, portVlanToVifMap, PortVlanToVifMap))

protected:
  explicit PortVlanVifMap(const Vane::Name& name) : name_(name) {}
};

// Which VIF each (port, VLAN) pair resolves to: system-wide, or the pairs of one chip. A matrix of ports and
// VLANs makes a change of one port or VLAN cost what it touches, not what the system holds.
class PortVlanVifStatus : public PortVlanVifMap {
public:
  VANE_ENTITY(XpVif, PortVlanVifStatus, PortVlanVifMap)

  explicit PortVlanVifStatus(const Vane::Name& name) : PortVlanVifMap(name) {}

  void portVlanToVifMapIs(const XpLib::PortAndVlanId& pair, const VifId& vif);
  void portVlanToVifMapDel(const XpLib::PortAndVlanId& pair);
  void portVlanToVifMapDelAll();

  // The VLANs that the port carries, ascending, and the ports of the VLAN, ascending: copies, so that a walk
  // may change the map.
  std::vector<Bridging::VlanId> vlansOfIntf(const Ovnet::IntfId& intf) const;
  std::vector<Ovnet::IntfId> intfsOfVlan(const Bridging::VlanId& vlan) const;

private:
  PortVlanMatrix matrix_; // the pairs of the map
};
VANE_FACTORY_DECLARED(PortVlanVifStatus, portVlanVifStatusFactory)

// The VIF of each port.
class PortVifStatus : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpVif, PortVifStatus, Vane::PtrInterface, MAP(Ovnet::IntfId, VifId, intfToVif, IntfToVif))
};
VANE_FACTORY_DECLARED(PortVifStatus, portVifStatusFactory)

} // namespace XpVif
