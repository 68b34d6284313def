#include "test/RecordingSdk.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace test {

using namespace XpXdk;

namespace {

std::string hex(const uint8_t* bytes, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
    text += digits;
  }
  return text;
}

std::string callText(const char* operation, uint8_t device, xpIaclType_e table) {
  const IaclTableInfo* const info = iaclTable(table);
  return std::string(operation) + " d" + std::to_string(device) + " " +
         (info != nullptr ? std::string(info->name) : "table" + std::to_string(table));
}

} // namespace

RecordingSdk::RecordingSdk(uint32_t rowsPerTable) {
  for (const IaclTableInfo& info : iaclTables) {
    numRowsIs(info.table, rowsPerTable);
  }
  previousDeviceMgr_ = xpDeviceMgr::install(this);
  previousAclPl_ = xpAclPl::install(this);
}

RecordingSdk::~RecordingSdk() {
  xpDeviceMgr::install(previousDeviceMgr_);
  xpAclPl::install(previousAclPl_);
}

void RecordingSdk::numRowsIs(xpIaclType_e table, uint32_t rows) {
  tables_[table].resize(rows);
}

void RecordingSdk::failCall(unsigned n, XP_STATUS status) {
  failIn_ = n;
  failStatus_ = status;
}

std::string RecordingSdk::takeCalls() {
  std::string text;
  for (const std::string& call : calls_) {
    text += call + "\n";
  }
  calls_.clear();
  return text;
}

bool RecordingSdk::valid(xpIaclType_e table, uint32_t row) const {
  return tables_.at(table).at(row).valid;
}

void RecordingSdk::validIs(xpIaclType_e table, uint32_t row, bool valid) {
  tables_.at(table).at(row).valid = valid;
}

uint64_t RecordingSdk::counter(xpAcmClient_e client, uint32_t index) const {
  const auto found = counters_.find({client, index});
  return found == counters_.end() ? 0 : found->second;
}

void RecordingSdk::counterIs(xpAcmClient_e client, uint32_t index, uint64_t count) {
  counters_[{client, index}] = count;
}

bool RecordingSdk::arranged(const std::string& call, XP_STATUS* status) {
  calls_.push_back(call);
  if (failIn_ == 0 || --failIn_ != 0) {
    return false;
  }
  calls_.back() += " -> " + std::to_string(failStatus_);
  *status = failStatus_;
  return true;
}

XP_STATUS RecordingSdk::enter(const std::string& call, xpIaclType_e table, uint32_t row) {
  XP_STATUS status = statusOk;
  if (arranged(call, &status)) {
    return status;
  }
  const auto found = tables_.find(table);
  if (found == tables_.end()) {
    return statusInvalidTable;
  }
  if (found->second.empty()) {
    return statusNotPresent;
  }
  return row < found->second.size() ? statusOk : statusRowOutOfRange;
}

XP_STATUS RecordingSdk::writeKeyMask(uint8_t device, xpIaclType_e table, uint32_t row, uint32_t flag,
                                     const xpIaclkeyFieldList* key) {
  std::string call = callText("writeKeyMask", device, table) + " " + std::to_string(row);
  if (flag != 1) {
    call += " flag=" + std::to_string(flag);
  }
  std::map<uint8_t, Field> fields;
  for (unsigned i = 0; i < key->numFields; ++i) {
    const IaclFieldLayout& field = key->fields[i];
    const uint8_t* const value = key->value.data() + field.offset;
    const uint8_t* const mask = key->mask.data() + field.offset;
    call +=
        " " + std::to_string(field.fieldId) + "=" + hex(value, field.width) + "/" + hex(mask, field.width);
    fields[field.fieldId] = {{value, value + field.width}, {mask, mask + field.width}};
  }
  const XP_STATUS status = enter(call, table, row);
  if (status != statusOk) {
    return status;
  }
  if (key->keyType != iaclTable(table)->keyType) {
    return statusInvalidArgument;
  }
  for (const auto& [id, field] : fields) {
    const IaclFieldLayout* const layout = iaclField(*iaclKeyLayout(key->keyType), id);
    if (layout == nullptr) {
      return statusInvalidField;
    }
    if (layout->width != field.value.size()) {
      return statusInvalidWidth;
    }
  }
  tables_[table][row].fields = fields;
  return done();
}

XP_STATUS RecordingSdk::writeData(uint8_t device, xpIaclType_e table, uint8_t copy, uint32_t row,
                                  const xpIaclData_t* data) {
  const std::string call =
      callText("writeData", device, table) + " t" + std::to_string(copy) + " " + std::to_string(row) +
      " log=" + std::to_string(data->logEn()) + " en=" + std::to_string(data->countEn()) +
      " res=" + std::to_string(data->result()) + " cnt=" + std::to_string(data->cntrIdx());
  const XP_STATUS status = enter(call, table, row);
  if (status != statusOk) {
    return status;
  }
  if (copy >= profile_.numTableCopies) {
    return statusInvalidArgument;
  }
  tables_[table][row].data[copy] = *data;
  return done();
}

XP_STATUS RecordingSdk::setEntryValid(uint8_t device, xpIaclType_e table, uint32_t row, uint8_t valid) {
  const XP_STATUS status = enter(callText("setEntryValid", device, table) + " " + std::to_string(row) + " " +
                                     std::to_string(valid),
                                 table, row);
  if (status != statusOk) {
    return status;
  }
  tables_[table][row].valid = valid != 0;
  return done();
}

XP_STATUS RecordingSdk::readEntry(uint8_t device, xpIaclType_e table, uint32_t row, uint32_t& isValid,
                                  xpIaclkeyFieldList* key, xpIaclData_t* data, uint8_t copy) {
  const XP_STATUS status =
      enter(callText("readEntry", device, table) + " " + std::to_string(row), table, row);
  if (status != statusOk) {
    return status;
  }
  Row& held = tables_[table][row];
  isValid = held.valid ? 1 : 0;
  *data = held.data[copy];
  const IaclKeyLayout& layout = *iaclKeyLayout(iaclTable(table)->keyType);
  key->keyType = layout.keyType;
  key->numFields = layout.numFields;
  key->length = layout.length;
  for (unsigned i = 0; i < layout.numFields; ++i) {
    const IaclFieldLayout& place = layout.fields[i];
    key->fields[i] = place;
    std::memset(key->value.data() + place.offset, 0, place.width);
    std::memset(key->mask.data() + place.offset, 0xFF, place.width);
    const auto field = held.fields.find(place.fieldId);
    if (field != held.fields.end()) {
      std::copy(field->second.value.begin(), field->second.value.end(), key->value.begin() + place.offset);
      std::copy(field->second.mask.begin(), field->second.mask.end(), key->mask.begin() + place.offset);
    }
  }
  return done();
}

XP_STATUS RecordingSdk::getNumOfEntry(uint8_t device, xpIaclType_e table, uint32_t& count) {
  XP_STATUS status = statusOk;
  if (arranged(callText("getNumOfEntry", device, table), &status)) {
    return status;
  }
  count = static_cast<uint32_t>(tables_[table].size());
  return done();
}

XP_STATUS RecordingSdk::readCounter(uint8_t device, xpAcmClient_e client, uint32_t index, uint64_t& count) {
  XP_STATUS status = statusOk;
  if (arranged("readCounter d" + std::to_string(device) + " c" + std::to_string(client) + " " +
                   std::to_string(index),
               &status)) {
    return status;
  }
  count = counter(client, index);
  return statusOk;
}

xpDevice* RecordingSdk::device(uint8_t) {
  return hasDevice_ ? this : nullptr;
}

const xpTableProfile* RecordingSdk::tableProfile() const {
  return hasProfile_ ? &profile_ : nullptr;
}

xpIaclMgr* RecordingSdk::iaclMgr(uint32_t) {
  return hasIaclMgr_ ? this : nullptr;
}

} // namespace test
