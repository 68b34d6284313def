#pragma once

#include "Ovnet/IntfId.h"
#include "Vane/Vane.h"

namespace Plex {

// The agent's common state-machine data, as far as this chip family reads it.
class PlexCommonSmData : public Vane::Entity {
public:
  VANE_ENTITY(Plex, PlexCommonSmData, Vane::Entity, SCALAR(bool, initialized, Initialized, false),
              SET(Ovnet::IntfId, intf, Intf), SET(Ovnet::IntfId, vlanIntf, VlanIntf),
              MAP(Ovnet::IntfId, Ovnet::IntfId, portToLag, PortToLag),
              SCALAR(Ovnet::IntfId, cpuIntf, CpuIntf, Ovnet::IntfId()),
              SCALAR(Vane::U32, operationalMode, OperationalMode, 0))

  explicit PlexCommonSmData(const Vane::Name& name) : Vane::Entity(name) {}
};

} // namespace Plex
