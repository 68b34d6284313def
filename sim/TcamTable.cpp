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
    : numRows_(numRows), keyLength_(keyLength), numCopies_(numCopies), words_(ceilDiv(numRows, wordBits)),
      summaryWords_(ceilDiv(words_, wordBits)), stride_(summaryWords_ + words_), valid_(stride_),
      pages_(words_) {
  VANE_ASSERT(keyLength >= 1 && keyLength <= tcamKeyCapacity);
  VANE_ASSERT(numCopies >= 1);
}

const TcamTable::Page* TcamTable::page(uint32_t rowNumber) const {
  const std::vector<Page>& slot = pages_[rowNumber / pageRows];
  return slot.empty() ? nullptr : &slot.front();
}

TcamTable::Page& TcamTable::touch(uint32_t rowNumber) {
  std::vector<Page>& slot = pages_[rowNumber / pageRows];
  if (slot.empty()) {
    slot.resize(1);
    slot.front().data.resize(std::size_t{pageRows} * numCopies_);
  }
  return slot.front();
}

TcamRow TcamTable::row(uint32_t rowNumber) const {
  const Page* p = page(rowNumber);
  return p ? p->rows[rowNumber % pageRows] : TcamRow{};
}

bool TcamTable::valid(uint32_t rowNumber) const {
  return valid_[summaryWords_ + rowNumber / wordBits] >> (rowNumber % wordBits) & 1;
}

uint32_t TcamTable::data(uint32_t rowNumber, unsigned copy) const {
  const Page* p = page(rowNumber);
  return p ? p->data[rowNumber % pageRows * numCopies_ + copy] : 0;
}

void TcamTable::dataIs(uint32_t rowNumber, unsigned copy, uint32_t word) {
  touch(rowNumber).data[rowNumber % pageRows * numCopies_ + copy] = word;
}

void TcamTable::keyMaskIs(uint32_t rowNumber, const TcamKeyBytes& value, const TcamKeyBytes& mask) {
  TcamRow& row = touch(rowNumber).rows[rowNumber % pageRows];
  for (unsigned byte = 0; byte < keyLength_; ++byte) {
    const bool moves = row.mask[byte] != mask[byte] || ((row.value[byte] ^ value[byte]) & ~mask[byte]) != 0;
    if (row.valid && moves) {
      leave(byte, rowNumber, row.value[byte], row.mask[byte]);
      enter(byte, rowNumber, value[byte], mask[byte]);
    }
    row.value[byte] = value[byte];
    row.mask[byte] = mask[byte];
  }
}

void TcamTable::validIs(uint32_t rowNumber, bool valid) {
  if (this->valid(rowNumber) == valid) {
    return;
  }
  TcamRow& row = touch(rowNumber).rows[rowNumber % pageRows];
  for (unsigned byte = 0; byte < keyLength_; ++byte) {
    if (valid) {
      enter(byte, rowNumber, row.value[byte], row.mask[byte]);
    } else {
      leave(byte, rowNumber, row.value[byte], row.mask[byte]);
    }
  }
  row.valid = valid;
  bitIs(valid_.data(), rowNumber, valid);
  numValid_ += valid ? 1 : -1;
  if (--changesUntilSort_ == 0) {
    listActiveBytes();
  }
}

uint32_t TcamTable::nextValid(uint32_t from) const {
  for (uint32_t word = from / wordBits; word < words_; ++word) {
    uint64_t bits = valid_[summaryWords_ + word];
    if (word == from / wordBits) {
      bits &= ~uint64_t{0} << (from % wordBits);
    }
    if (bits != 0) {
      return word * wordBits + static_cast<uint32_t>(std::countr_zero(bits));
    }
  }
  return noRow;
}

// Adds a row that becomes valid, or whose byte changes while it is, to the bitmaps of one byte.
void TcamTable::enter(unsigned byte, uint32_t rowNumber, uint8_t value, uint8_t mask) {
  ByteIndex& index = bytes_[byte];
  if (mask == 0xFF) {
    if (index.comparing != 0) {
      bitIs(ignoringMap(index), rowNumber, true);
    }
    return;
  }
  if (index.comparing++ == 0) {
    // All other valid rows ignore the byte. The row itself may be among them while its key changes.
    if (index.slot == noSlot) {
      index.slot = bitmaps_.size();
      bitmaps_.resize(bitmaps_.size() + 257 * stride_);
    }
    std::copy(valid_.begin(), valid_.end(), ignoringMap(index));
    bitIs(ignoringMap(index), rowNumber, false);
    listActiveBytes();
  }
  matchBitsAre(index, rowNumber, value, mask, true);
}

void TcamTable::leave(unsigned byte, uint32_t rowNumber, uint8_t value, uint8_t mask) {
  ByteIndex& index = bytes_[byte];
  if (mask == 0xFF) {
    if (index.comparing != 0) {
      bitIs(ignoringMap(index), rowNumber, false);
    }
    return;
  }
  matchBitsAre(index, rowNumber, value, mask, false);
  if (--index.comparing == 0) {
    listActiveBytes();
  }
}

// Sets or clears the row's bit under every byte value that agrees with (value, mask): all values made of
// the compared bits and any subset of the ignored ones.
void TcamTable::matchBitsAre(ByteIndex& index, uint32_t rowNumber, uint8_t value, uint8_t mask, bool on) {
  const unsigned fixed = value & ~mask & 0xFFu;
  unsigned subset = 0;
  do {
    bitIs(agreeingMap(index, fixed | subset), rowNumber, on);
    uint32_t& agreeing = index.agreeing[fixed | subset];
    index.sum += on ? 1 : -1;
    index.sumOfSquares += on ? 2 * uint64_t{agreeing} + 1 : 1 - 2 * uint64_t{agreeing};
    agreeing += on ? 1 : -1;
    subset = (subset - mask) & mask;
  } while (subset != 0);
}

void TcamTable::bitIs(uint64_t* map, uint32_t rowNumber, bool on) const {
  const uint32_t word = rowNumber / wordBits;
  uint64_t& bits = map[summaryWords_ + word];
  uint64_t& summary = map[word / wordBits];
  const uint64_t summaryBit = uint64_t{1} << (word % wordBits);
  if (on) {
    bits |= uint64_t{1} << (rowNumber % wordBits);
    summary |= summaryBit;
  } else {
    bits &= ~(uint64_t{1} << (rowNumber % wordBits));
    if (bits == 0) {
      summary &= ~summaryBit;
    }
  }
}

// The share of the valid rows that agree with a byte value, when keys are drawn like the rows' own values.
double TcamTable::share(const ByteIndex& index) const {
  const double ignoring = static_cast<double>(numValid_) - index.comparing;
  const double agreeing =
      static_cast<double>(index.sumOfSquares) / static_cast<double>(std::max<uint64_t>(index.sum, 1));
  return ignoring + agreeing;
}

void TcamTable::listActiveBytes() {
  constexpr unsigned sortEvery = 128; // changes; the order is about speed only
  changesUntilSort_ = sortEvery;
  numActive_ = 0;
  std::array<double, tcamKeyCapacity> shares{};
  for (unsigned byte = keyLength_; byte-- > 0;) {
    if (bytes_[byte].comparing != 0) {
      shares[byte] = share(bytes_[byte]);
      active_[numActive_++] = {bytes_[byte].slot, byte};
    }
  }
  std::sort(active_.begin(), active_.begin() + numActive_, [&](const ActiveByte& a, const ActiveByte& b) {
    return shares[a.byte] != shares[b.byte] ? shares[a.byte] < shares[b.byte] : a.byte > b.byte;
  });
}

uint32_t TcamTable::lookup(const TcamKeyBytes& key) const {
  return lookupFrom(key, 0);
}

uint32_t TcamTable::lookupFrom(const TcamKeyBytes& key, uint32_t from) const {
  struct Maps {
    const uint64_t* agreeing;
    const uint64_t* ignoring;
  };
  std::array<Maps, tcamKeyCapacity> maps;
  const unsigned numActive = numActive_;
  const uint64_t* const bitmaps = bitmaps_.data();
  const std::size_t stride = stride_;
  for (unsigned i = 0; i < numActive; ++i) {
    const uint64_t* slot = bitmaps + active_[i].slot;
    maps[i] = {slot + key[active_[i].byte] * stride, slot + 256 * stride};
  }
  // Rows of bitmap word (or summary word) `at` that agree with every byte of the key. Four bytes a step:
  // an exit behind each would cost more in wrong guesses of the processor than it saves.
  const auto agree = [&](std::size_t at) {
    uint64_t bits = valid_[at];
    unsigned i = 0;
    for (; i + 4 <= numActive; i += 4) {
      bits &= (maps[i].agreeing[at] | maps[i].ignoring[at]) &
              (maps[i + 1].agreeing[at] | maps[i + 1].ignoring[at]) &
              (maps[i + 2].agreeing[at] | maps[i + 2].ignoring[at]) &
              (maps[i + 3].agreeing[at] | maps[i + 3].ignoring[at]);
      if (bits == 0) {
        return bits;
      }
    }
    for (; i < numActive; ++i) {
      bits &= maps[i].agreeing[at] | maps[i].ignoring[at];
    }
    return bits;
  };

  const uint32_t firstWord = from / wordBits;
  for (uint32_t s = firstWord / wordBits; s < summaryWords_; ++s) {
    uint64_t candidates = agree(s);
    if (s == firstWord / wordBits) {
      candidates &= ~uint64_t{0} << (firstWord % wordBits);
    }
    for (; candidates != 0; candidates &= candidates - 1) {
      const uint32_t word = s * wordBits + static_cast<uint32_t>(std::countr_zero(candidates));
      uint64_t hits = agree(summaryWords_ + word);
      if (word == firstWord) {
        hits &= ~uint64_t{0} << (from % wordBits);
      }
      if (hits != 0) {
        return word * wordBits + static_cast<uint32_t>(std::countr_zero(hits));
      }
    }
  }
  return noRow;
}

void TcamTable::lookup(std::span<const TcamKeyBytes> keys, std::span<uint32_t> rows) const {
  VANE_ASSERT(rows.size() >= keys.size());
  for (std::size_t i = 0; i < keys.size(); ++i) {
    rows[i] = lookupFrom(keys[i], 0);
  }
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

bool TcamTable::summaryExact(const uint64_t* map) const {
  for (uint32_t word = 0; word < words_; ++word) {
    if ((map[word / wordBits] >> (word % wordBits) & 1) != (map[summaryWords_ + word] != 0)) {
      return false;
    }
  }
  return true;
}

const char* TcamTable::audit() const {
  TcamTable fresh(numRows_, keyLength_, numCopies_);
  for (uint32_t number = 0; number < numRows_; ++number) {
    const Page* p = page(number);
    if ((p && p->rows[number % pageRows].valid) != valid(number)) {
      return "the valid bitmap differs from the rows' valid flags";
    }
    if (valid(number)) {
      const TcamRow row = this->row(number);
      fresh.keyMaskIs(number, row.value, row.mask);
      fresh.validIs(number, true);
    }
  }
  if (fresh.numValid_ != numValid_) {
    return "the number of valid rows is wrong";
  }
  if (!summaryExact(valid_.data())) {
    return "the summary of the valid bitmap is not exact";
  }
  for (unsigned byte = 0; byte < keyLength_; ++byte) {
    const ByteIndex& index = bytes_[byte];
    if (index.comparing != fresh.bytes_[byte].comparing) {
      return "the number of rows that compare a byte is wrong";
    }
    if (index.comparing == 0) {
      continue;
    }
    const uint64_t* slot = bitmaps_.data() + index.slot;
    if (!std::equal(slot, slot + 257 * stride_, fresh.bitmaps_.data() + fresh.bytes_[byte].slot)) {
      return "a row's bits in a byte's bitmaps differ from its key and mask";
    }
    for (unsigned map = 0; map < 257; ++map) {
      if (!summaryExact(slot + map * stride_)) {
        return "the summary of a byte's bitmap is not exact";
      }
    }
  }
  return nullptr;
}

} // namespace sim
