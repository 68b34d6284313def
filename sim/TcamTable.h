#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// One TCAM table: rows of (key, ignore mask, valid flag, data words) and the search for the valid row
// with the lowest number whose compared bits all agree with a key.
//
// The search structure. For key byte b and value v there is a bitmap of the rows that compare byte b and
// agree with v, and for each byte one bitmap of the rows that ignore the whole byte. ORed, they say which
// rows still match after byte b; ANDed over the bytes and with the valid bitmap they are the hits, and
// the first set bit wins. Each bitmap has a summary with one bit for every 64 rows that is set while the
// word below is not zero: the summaries are ANDed first, so that only words that can hold a hit are read.
// Bytes that no valid row compares are skipped, and those that leave the fewest rows over are tested first.
//
// Life of a row: rows are kept in pages that are made when first written, as most tables are sparse. Only
// valid rows stand in the bitmaps; a row enters when it becomes valid and leaves when it becomes invalid,
// touching its own bits only: one for each compared byte value, one for each ignored byte. A key written
// to a valid row moves its bits at once.
//
// Invariants (audit()): a row's bits stand in the bitmaps exactly when it is valid; a summary bit is set
// exactly when its word is not zero; the number of comparing rows of each byte is exact.
//
// Tables are values: a copy is an independent table with equal rows. Nothing here is thread-safe, except
// that several threads may search one table at the same time while none writes.

namespace sim {

// The longest key (41 bytes) rounded up, so that keys are copied and compared in whole words.
constexpr std::size_t tcamKeyCapacity = 48;
using TcamKeyBytes = std::array<uint8_t, tcamKeyCapacity>;

struct TcamRow {
  TcamKeyBytes value{};
  TcamKeyBytes mask = allIgnored(); // a bit of 1 is not compared
  bool valid = false;
  bool operator==(const TcamRow&) const = default;

  static constexpr TcamKeyBytes allIgnored() {
    TcamKeyBytes bytes{};
    bytes.fill(0xFF);
    return bytes;
  }
};

class TcamTable {
public:
  static constexpr uint32_t noRow = 0xFFFFFFFF;

  // A table of `numRows` rows (0 allowed) with keys of `keyLength` bytes (1..48) and `numCopies` data
  // words a row (at least 1). No row is valid, all ignore every byte, all data words are 0.
  TcamTable(uint32_t numRows, unsigned keyLength, unsigned numCopies);

  uint32_t numRows() const { return numRows_; }
  unsigned keyLength() const { return keyLength_; }
  unsigned numCopies() const { return numCopies_; }
  uint32_t numValid() const { return numValid_; }

  // Row numbers are below numRows() and copies below numCopies() in everything that follows. Bytes of
  // keys and masks behind keyLength() are ignored.
  TcamRow row(uint32_t rowNumber) const;
  bool valid(uint32_t rowNumber) const;
  uint32_t data(uint32_t rowNumber, unsigned copy) const;
  void keyMaskIs(uint32_t rowNumber, const TcamKeyBytes& value, const TcamKeyBytes& mask);
  void validIs(uint32_t rowNumber, bool valid);
  void dataIs(uint32_t rowNumber, unsigned copy, uint32_t word);
  // The next valid row at or behind `from`, or noRow.
  uint32_t nextValid(uint32_t from) const;

  // The row that hits, or noRow.
  uint32_t lookup(const TcamKeyBytes& key) const;
  // The same for many keys; `rows` has at least as many elements as `keys`.
  void lookup(std::span<const TcamKeyBytes> keys, std::span<uint32_t> rows) const;
  // The next row at or behind `from` that would hit if all before it were invalid, or noRow.
  uint32_t lookupFrom(const TcamKeyBytes& key, uint32_t from) const;
  // The same answer as lookup(), by looking at one row after the other: the reference.
  uint32_t linearLookup(const TcamKeyBytes& key) const;

  // Recomputes the invariants from the rows. Null when all hold, else the first that is broken.
  const char* audit() const;

private:
  static constexpr uint32_t pageRows = 64;
  struct Page {
    std::array<TcamRow, pageRows> rows;
    std::vector<uint32_t> data; // [row in page][copy]
  };
  static constexpr std::size_t noSlot = ~std::size_t{0};
  // One key byte. Its slot in bitmaps_ has 257 maps of {summary words, bitmap words}: the rows agreeing
  // with each value, and the rows that ignore the byte.
  struct ByteIndex {
    std::size_t slot = noSlot; // where the slot begins; made when a valid row first compares the byte
    uint32_t comparing = 0;    // valid rows that compare the byte
    // How many rows agree with each value, their sum and the sum of their squares: what is needed to
    // estimate how many rows the byte leaves over.
    std::array<uint32_t, 256> agreeing{};
    uint64_t sum = 0;
    uint64_t sumOfSquares = 0;
  };

  Page& touch(uint32_t rowNumber);
  const Page* page(uint32_t rowNumber) const;
  void enter(unsigned byte, uint32_t rowNumber, uint8_t value, uint8_t mask);
  void leave(unsigned byte, uint32_t rowNumber, uint8_t value, uint8_t mask);
  void matchBitsAre(ByteIndex& index, uint32_t rowNumber, uint8_t value, uint8_t mask, bool on);
  uint64_t* agreeingMap(const ByteIndex& index, unsigned value) {
    return &bitmaps_[index.slot + value * stride_];
  }
  uint64_t* ignoringMap(const ByteIndex& index) { return agreeingMap(index, 256); }
  void bitIs(uint64_t* map, uint32_t rowNumber, bool on) const;
  void listActiveBytes();
  double share(const ByteIndex& index) const;
  bool summaryExact(const uint64_t* map) const;

  uint32_t numRows_;
  unsigned keyLength_;
  unsigned numCopies_;
  uint32_t words_;        // bitmap words, one for each 64 rows
  uint32_t summaryWords_; // one for each 4096 rows
  std::size_t stride_;    // summaryWords_ + words_
  uint32_t numValid_ = 0;
  std::vector<uint64_t> valid_;          // {summary words, bitmap words}
  std::vector<std::vector<Page>> pages_; // each empty or with one page
  std::array<ByteIndex, tcamKeyCapacity> bytes_;
  std::vector<uint64_t> bitmaps_;
  // The bytes that some valid row compares, best first, side by side for the search.
  struct ActiveByte {
    std::size_t slot = 0;
    unsigned byte = 0;
  };
  std::array<ActiveByte, tcamKeyCapacity> active_;
  unsigned numActive_ = 0;
  unsigned changesUntilSort_ = 1;
};

} // namespace sim
