#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "sim/LookupTree.h"
#include "sim/TcamRow.h"

// One TCAM table: rows of (key, ignore mask, valid flag, data words) and the search for the valid row
// with the lowest number whose compared bits all agree with a key.
//
// Rows are kept in pages that are made when first written, as most tables are sparse. Valid rows stand in a
// search tree too (LookupTree.h): a row enters it when it becomes valid, leaves it when it becomes invalid,
// and moves when a valid row's key changes, each before the next lookup.
//
// Tables are values: a copy is an independent table with equal rows. Nothing here is thread-safe, except
// that several threads may search one table at the same time while none writes.

namespace sim {

class TcamTable { // the row with the lowest number that matches decides
public:
  static constexpr uint32_t noRow = noTcamRow;

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
  uint32_t data(uint32_t rowNumber, unsigned copy) const {
    const Page* p = page(rowNumber);
    return p ? p->data[rowNumber % pageRows * numCopies_ + copy] : 0;
  }
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

  // What the search tree consists of, and how it compares keys.
  LookupTree::Figures lookupFigures() const { return tree_.figures(); }
  void lookupPathIs(LookupPath path) { tree_.pathIs(path); }

  // Recomputes the invariants from the rows. Null when all hold, else the first that is broken.
  const char* audit() const;

private:
  static constexpr uint32_t pageRows = 64;
  struct Page {
    std::array<TcamRow, pageRows> rows;
    std::vector<uint32_t> data; // [row in page][copy]
  };
  Page& touch(uint32_t rowNumber);
  void expectAfter(uint32_t rowNumber) const;
  const Page* page(uint32_t rowNumber) const {
    const std::vector<Page>& slot = pages_[rowNumber / pageRows];
    return slot.empty() ? nullptr : &slot.front();
  }

  uint32_t numRows_;
  unsigned keyLength_;
  unsigned numCopies_;
  uint32_t numValid_ = 0;
  std::vector<uint64_t> valid_;          // a bit for each row
  std::vector<std::vector<Page>> pages_; // each empty or with one page
  LookupTree tree_;                      // the valid rows
};

} // namespace sim
