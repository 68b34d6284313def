#include "sim/TcamTable.h"

#include <algorithm>
#include <bit>

#include "Vane/Assert.h"

namespace sim {

namespace {
// Rows of a page, and bits of a bitmap word.
constexpr uint32_t wordBits = 64;

uint32_t ceilDiv(uint32_t n, uint32_t d) {
  return n / d + (n % d != 0);
}
} // namespace

TcamTable::TcamTable(uint32_t numRows, unsigned keyLength, unsigned numCopies)
    : numRows_(numRows), keyLength_(keyLength), numCopies_(numCopies), valid_(ceilDiv(numRows, wordBits)),
      pages_(valid_.size()), tree_(keyLength) {
  VANE_ASSERT(keyLength >= 1 && keyLength <= tcamKeyCapacity);
  VANE_ASSERT(numCopies >= 1);
}

TcamTable::Page& TcamTable::touch(uint32_t rowNumber) {
  std::vector<Page>& slot = pages_[rowNumber / pageRows];
  if (slot.empty()) {
    slot.resize(1);
    slot.front().data.resize(std::size_t{pageRows} * numCopies_);
  }
  return slot.front();
}

// Rows are mostly written, and given up, in ascending order: fetches what is needed of one that comes soon.
inline void TcamTable::expectAfter(uint32_t rowNumber) const {
  constexpr uint32_t ahead = 6;
  const uint32_t later = rowNumber + ahead;
  if (later < numRows_) {
    if (const Page* const p = page(later)) {
      const TcamRow& row = p->rows[later % pageRows];
      __builtin_prefetch(row.value.data());
      __builtin_prefetch(row.mask.data());
      __builtin_prefetch(&row.valid);
    }
  }
}

TcamRow TcamTable::row(uint32_t rowNumber) const {
  const Page* p = page(rowNumber);
  return p ? p->rows[rowNumber % pageRows] : TcamRow{};
}

bool TcamTable::valid(uint32_t rowNumber) const {
  return valid_[rowNumber / wordBits] >> (rowNumber % wordBits) & 1;
}

void TcamTable::dataIs(uint32_t rowNumber, unsigned copy, uint32_t word) {
  touch(rowNumber).data[rowNumber % pageRows * numCopies_ + copy] = word;
}

void TcamTable::keyMaskIs(uint32_t rowNumber, const TcamKeyBytes& value, const TcamKeyBytes& mask) {
  expectAfter(rowNumber);
  TcamRow& row = touch(rowNumber).rows[rowNumber % pageRows];
  const RowWords before = row.valid ? tree_.layout().row(row) : RowWords{};
  std::copy_n(value.begin(), keyLength_, row.value.begin());
  std::copy_n(mask.begin(), keyLength_, row.mask.begin());
  if (row.valid) {
    const RowWords after = tree_.layout().row(row);
    if (before != after) {
      tree_.leave(rowNumber, before);
      tree_.enter(rowNumber, after);
    }
  }
}

void TcamTable::validIs(uint32_t rowNumber, bool valid) {
  if (this->valid(rowNumber) == valid) {
    return;
  }
  TcamRow& row = touch(rowNumber).rows[rowNumber % pageRows];
  const RowWords words = tree_.layout().row(row);
  if (valid) {
    tree_.enter(rowNumber, words);
  } else {
    expectAfter(rowNumber);
    tree_.leave(rowNumber, words);
  }
  row.valid = valid;
  valid_[rowNumber / wordBits] ^= uint64_t{1} << (rowNumber % wordBits);
  numValid_ += valid ? 1 : -1;
}

uint32_t TcamTable::nextValid(uint32_t from) const {
  for (std::size_t word = from / wordBits; word < valid_.size(); ++word) {
    uint64_t bits = valid_[word];
    if (word == from / wordBits) {
      bits &= ~uint64_t{0} << (from % wordBits);
    }
    if (bits != 0) {
      return static_cast<uint32_t>(word * wordBits) + static_cast<uint32_t>(std::countr_zero(bits));
    }
  }
  return noRow;
}

uint32_t TcamTable::lookup(const TcamKeyBytes& key) const {
  return tree_.search(key);
}

uint32_t TcamTable::lookupFrom(const TcamKeyBytes& key, uint32_t from) const {
  return tree_.searchFrom(key, from);
}

void TcamTable::lookup(std::span<const TcamKeyBytes> keys, std::span<uint32_t> rows) const {
  tree_.search(keys, rows);
}

uint32_t TcamTable::linearLookup(const TcamKeyBytes& key) const {
  for (uint32_t number = 0; number < numRows_; ++number) {
    const Page* p = page(number);
    if (!p || !p->rows[number % pageRows].valid) {
      continue;
    }
    const TcamRow& row = p->rows[number % pageRows];
    bool hit = true;
    for (unsigned byte = 0; byte < keyLength_ && hit; ++byte) {
      hit = ((key[byte] ^ row.value[byte]) & ~row.mask[byte]) == 0;
    }
    if (hit) {
      return number;
    }
  }
  return noRow;
}

const char* TcamTable::audit() const {
  std::vector<uint32_t> numbers;
  std::vector<RowWords> words;
  for (uint32_t number = 0; number < numRows_; ++number) {
    const Page* p = page(number);
    if ((p && p->rows[number % pageRows].valid) != valid(number)) {
      return "the valid bitmap differs from the rows' valid flags";
    }
    if (valid(number)) {
      numbers.push_back(number);
      words.push_back(tree_.layout().row(p->rows[number % pageRows]));
    }
  }
  if (numbers.size() != numValid_) {
    return "the number of valid rows is wrong";
  }
  return tree_.audit(numbers, words);
}

} // namespace sim
