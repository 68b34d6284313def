#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "sim/LookupWords.h"

// Which bits of the key a node of the search tree reads.

namespace sim {

// Some bits of at most two words of the key. Read one behind the other they number the node's children.
struct BitChoice {
  uint64_t bitsA = 0;
  uint64_t bitsB = 0;
  uint8_t wordA = 0;
  uint8_t wordB = 0;
  uint8_t numBitsA = 0;
  uint8_t numBits = 0; // of both; 0: no bits tell the rows apart well enough
  double met = 0;      // sampled rows that a key meets in the child that it comes to
  double kept = 1;     // share of the sampled rows that the node keeps
};

// Rows that chooseBits() is given for all of a node's at most: more would hardly change what it chooses. A
// root is worth more of them.
constexpr std::size_t maxBitSample = 64;
constexpr std::size_t maxRootSample = 512;

struct BitLimits {
  std::size_t maxSample = maxBitSample;
  unsigned maxBits = 10;
  // A row that ignores more chosen bits than this is none of the node's rows: it goes to another tree.
  unsigned maxIgnored = 64;
  // Bits of the key that may be chosen.
  KeyWords among = everyBit();
  // How many times as many rows the children may have together as the node.
  double maxCopies = 2;
  // Rows that a key meets on average: fewer are not worth another bit.
  double enoughRows = 5;
  // Share of those that another bit must spare, copies weighed.
  double leastGain = 0.07;

  static constexpr KeyWords everyBit() {
    KeyWords bits{};
    bits.fill(~uint64_t{0});
    return bits;
  }
};

// Bits that spread rows well over the children, each bit that helps most next to those chosen before, for a
// node of `numRows` rows of which `sample` (not empty) are some, or all. What a lookup costs is taken to be
// the rows of the child that it comes to, and keys are taken to be distributed like the rows: half of what a
// row ignores falls to either side.
BitChoice chooseBits(std::span<const RowWords> sample, std::size_t numRows, const BitLimits& limits);

// How much the rows of a table differ in each bit of the key: about that much will keys, too.
class BitRanks {
public:
  // As if all bits were alike.
  BitRanks();
  // By what these rows say.
  explicit BitRanks(std::span<const RowWords> sample);

  // The bits of a rank: those of rank 0 are of all bits of their byte the ones that part the rows most
  // evenly, and so on, one bit of each byte; those of the last rank part none.
  static constexpr unsigned count = 9;
  const KeyWords& bits(unsigned rank) const { return bits_[rank]; }

private:
  std::array<KeyWords, count> bits_{};
};

// Up to 16 bits of at most two words by which the few rows of a leaf (at most 15) are told apart, and from
// other keys, most cheaply. `used` bits are those that all keys which come to the leaf have been asked for
// already.
BitChoice chooseSignature(std::span<const RowWords> rows, const KeyWords& used, const BitRanks& ranks);
constexpr unsigned signatureBits = 16;

// Lines of 64 bits, and for each of the 64 places what the lines have there, line 0 at the low end. Columns
// are made for all bits of those bytes of which `wanted` has a bit; others may keep what they were.
using BitLines = std::array<uint64_t, 16>;
using BitColumns = std::array<uint16_t, 64>;
void bitColumns(const BitLines& lines, uint64_t wanted, BitColumns& columns);
// The same for every processor.
void bitColumnsByteByByte(const BitLines& lines, uint64_t wanted, BitColumns& columns);

// The bits of `word` that `mask` selects, moved together to the low end.
uint64_t extractBits(uint64_t word, uint64_t mask);
// The same for every processor.
uint64_t extractBitByBit(uint64_t word, uint64_t mask);

// Some bits of at most two words, which are read one behind the other.
struct BitPlaces {
  uint64_t bitsA;
  uint64_t bitsB;
  unsigned wordA;
  unsigned wordB;
  unsigned numBitsA;
};
struct RowBits { // what a row says about them
  uint32_t value;
  uint32_t care;
};
RowBits extractRow(const RowWords& words, const BitPlaces& places);

} // namespace sim
