#pragma once

#include "Vane/Vane.h"

namespace XpLib {

class FeatureAllocation { // how much a feature has
public:
  VANE_VALUE(XpLib, FeatureAllocation, (bool, allocated, false))
};

// Which features the chip's TCAM partition profile gives space to. Empty: no profile is configured
// and every table exists.
class TcamPartitionStatus : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpLib, TcamPartitionStatus, Vane::PtrInterface,
              MAP(Vane::U32, FeatureAllocation, featureAllocation, FeatureAllocation))
};
VANE_FACTORY_DECLARED(TcamPartitionStatus, tcamPartitionStatusFactory)

// Partition feature numbers.
constexpr Vane::U32 featureIAclV4 = 64;
constexpr Vane::U32 featureIAclV6 = 65;
constexpr Vane::U32 featureEAclV4 = 66;
constexpr Vane::U32 featureEAclV6 = 67;
constexpr Vane::U32 featureMacAcl = 68;
constexpr Vane::U32 featureDscpA = 43;
constexpr Vane::U32 featureDscpB = 44;

// True when the profile gives the feature space, or when there is no profile.
bool isDbAllocatedForFeature(Vane::U32 featureId, const Vane::Ptr<TcamPartitionStatus const>& status);
bool isDbAllocatedForIAclV4(const Vane::Ptr<TcamPartitionStatus const>& status);
bool isDbAllocatedForIAclV6(const Vane::Ptr<TcamPartitionStatus const>& status);
bool isDbAllocatedForEAclV4(const Vane::Ptr<TcamPartitionStatus const>& status);
bool isDbAllocatedForEAclV6(const Vane::Ptr<TcamPartitionStatus const>& status);
bool isDbAllocatedForMacAcl(const Vane::Ptr<TcamPartitionStatus const>& status);

} // namespace XpLib
