#include "Acl/Filters.h"

namespace Acl {

VrfName::VrfName(const Vane::String& bytes) : bytes_(bytes) {
  if (bytes.size() > maxLength) {
    throw Vane::RangeException("VrfName::bytes > VrfName::maxLength not allowed");
  }
}

void IpFilterBase::vniIs(uint32_t vni) {
  if (vni > 16777215) {
    throw Vane::RangeException("IpFilterBase::vni < 0 or > 16777215 not allowed");
  }
  vni_ = vni;
}

void MacFilter::mplsLabelIs(uint32_t label) {
  if (label > 0xFFFFF) {
    throw Vane::RangeException("MacFilter::mplsLabel < 0 or > 0xFFFFF not allowed");
  }
  mplsLabel_ = label;
}

VANE_REGISTERED(ParamConfig)

} // namespace Acl
