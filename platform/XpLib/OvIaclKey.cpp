#include "XpLib/OvIaclKey.h"

#include "Vane/Bytes.h"
#include "Vane/Vane.h"

#include <cstring>

namespace XpAcl {

void OvIaclKey::reinitialize(XpXdk::xpIaclKeyType keyType) {
  clear();
  sdkKey.keyType = keyType;
}

void OvIaclKey::clear() {
  numFields_ = 0;
  sdkKey.numFields = 0;
  sdkKey.length = 0;
}

void OvIaclKey::finalize() {
  unsigned offset = 0;
  for (unsigned i = 0; i < numFields_; ++i) {
    const OvIaclKeyField& field = fields_[i];
    sdkKey.fields[i] = {field.fieldId, field.width, static_cast<uint8_t>(offset)};
    Vane::copyNarrow(sdkKey.value.data() + offset, field.value, field.width);
    Vane::copyNarrow(sdkKey.mask.data() + offset, field.mask, field.width);
    offset += field.width;
  }
  sdkKey.numFields = static_cast<uint8_t>(numFields_);
  sdkKey.length = static_cast<uint8_t>(offset);
}

void readIaclKeyField(XpXdk::xpIaclKeyType keyType, uint8_t fieldId, const OvIaclKey& key, unsigned length,
                      void* value, void* mask) {
  VANE_ASSERT(keyType == key.sdkKey.keyType);
  std::memset(value, 0, length);
  std::memset(mask, 0xFF, length);
  for (unsigned i = 0; i < key.sdkKey.numFields; ++i) {
    const XpXdk::IaclFieldLayout& field = key.sdkKey.fields[i];
    if (field.fieldId == fieldId) {
      const unsigned width = field.width < length ? field.width : length;
      std::memcpy(value, key.sdkKey.value.data() + field.offset, width);
      std::memcpy(mask, key.sdkKey.mask.data() + field.offset, width);
    }
  }
}

void clearIaclData(XpXdk::xpIaclData_t& data) {
  data = XpXdk::xpIaclData_t();
}

} // namespace XpAcl
