#include "XpLib/TcamPartitionStatus.h"

namespace XpLib {

bool isDbAllocatedForFeature(Vane::U32 featureId, const Vane::Ptr<TcamPartitionStatus const>& status) {
  if (status->featureAllocationCount() == 0) {
    return true;
  }
  return status->featureAllocation(featureId).allocated();
}

bool isDbAllocatedForIAclV4(const Vane::Ptr<TcamPartitionStatus const>& status) {
  return isDbAllocatedForFeature(featureIAclV4, status);
}

bool isDbAllocatedForIAclV6(const Vane::Ptr<TcamPartitionStatus const>& status) {
  return isDbAllocatedForFeature(featureIAclV6, status);
}

bool isDbAllocatedForEAclV4(const Vane::Ptr<TcamPartitionStatus const>& status) {
  return isDbAllocatedForFeature(featureEAclV4, status);
}

bool isDbAllocatedForEAclV6(const Vane::Ptr<TcamPartitionStatus const>& status) {
  return isDbAllocatedForFeature(featureEAclV6, status);
}

bool isDbAllocatedForMacAcl(const Vane::Ptr<TcamPartitionStatus const>& status) {
  return isDbAllocatedForFeature(featureMacAcl, status);
}

VANE_REGISTERED(TcamPartitionStatus)

} // namespace XpLib
