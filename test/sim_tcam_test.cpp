#include "sim/TcamTable.h"

#include <algorithm>
#include <numeric>
#include <ostream>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "sim/LookupBits.h"
#include "test/LongRuns.h"
#include "test/Random.h"

namespace {

using sim::TcamKeyBytes;
using sim::TcamTable;

TcamKeyBytes bytes(std::initializer_list<uint8_t> first, uint8_t rest) {
  TcamKeyBytes result;
  result.fill(rest);
  std::copy(first.begin(), first.end(), result.begin());
  return result;
}

void rowIs(TcamTable& table, uint32_t row, std::initializer_list<uint8_t> value,
           std::initializer_list<uint8_t> mask) {
  table.keyMaskIs(row, bytes(value, 0), bytes(mask, 0xFF));
  table.validIs(row, true);
}

// All rows that match, first the one that hits: "[5, 9]".
std::string hits(const TcamTable& table, std::initializer_list<uint8_t> key) {
  const TcamKeyBytes k = bytes(key, 0);
  EXPECT_EQ(table.lookup(k), table.linearLookup(k));
  std::string text = "[";
  for (uint32_t row = table.lookup(k); row != TcamTable::noRow;) {
    text += (text.size() > 1 ? ", " : "") + std::to_string(row);
    row = row + 1 < table.numRows() ? table.lookupFrom(k, row + 1) : TcamTable::noRow;
  }
  return text + "]";
}

TEST(TcamTable, LowestRowWins) {
  TcamTable table(200, 2, 1);
  EXPECT_EQ(hits(table, {1, 2}), "[]");
  rowIs(table, 199, {}, {});
  rowIs(table, 130, {1, 0}, {0, 0xFF});
  rowIs(table, 63, {1, 2}, {0, 0});
  rowIs(table, 64, {1, 3}, {0, 0});
  EXPECT_EQ(hits(table, {1, 2}), "[63, 130, 199]");
  EXPECT_EQ(hits(table, {1, 3}), "[64, 130, 199]");
  EXPECT_EQ(hits(table, {1, 4}), "[130, 199]");
  EXPECT_EQ(hits(table, {2, 2}), "[199]");
  table.validIs(63, false);
  EXPECT_EQ(hits(table, {1, 2}), "[130, 199]");
}

TEST(TcamTable, OnlyComparedBitsCount) {
  TcamTable table(8, 1, 1);
  rowIs(table, 3, {0xA5}, {0x0F});
  EXPECT_EQ(hits(table, {0xA0}), "[3]");
  EXPECT_EQ(hits(table, {0xAF}), "[3]");
  EXPECT_EQ(hits(table, {0xB5}), "[]");
}

TEST(TcamTable, WritesToAValidRowTakeEffectAtOnce) {
  TcamTable table(8, 2, 1);
  rowIs(table, 3, {1, 1}, {0, 0});
  table.keyMaskIs(3, bytes({2, 9}, 0), bytes({0, 0xFF}, 0xFF));
  EXPECT_EQ(hits(table, {1, 1}), "[]");
  EXPECT_EQ(hits(table, {2, 7}), "[3]");
  EXPECT_EQ(table.audit(), nullptr);
  // A row that is not valid keeps its key and never hits.
  table.validIs(3, false);
  EXPECT_EQ(hits(table, {2, 7}), "[]");
  table.validIs(3, true);
  EXPECT_EQ(hits(table, {2, 7}), "[3]");
}

TEST(TcamTable, UnwrittenRowsIgnoreEverything) {
  TcamTable table(8, 2, 2);
  EXPECT_EQ(table.row(5), sim::TcamRow{});
  EXPECT_EQ(table.data(5, 1), 0u);
  table.validIs(5, true);
  EXPECT_EQ(hits(table, {7, 7}), "[5]");
  EXPECT_EQ(table.nextValid(0), 5u);
  EXPECT_EQ(table.nextValid(6), TcamTable::noRow);
}

TEST(TcamTable, DataCopiesAreApart) {
  TcamTable table(100, 2, 3);
  table.dataIs(70, 0, 1);
  table.dataIs(70, 2, 3);
  EXPECT_EQ(table.data(70, 0), 1u);
  EXPECT_EQ(table.data(70, 1), 0u);
  EXPECT_EQ(table.data(70, 2), 3u);
  EXPECT_EQ(table.data(71, 0), 0u);
}

TEST(TcamTable, ATableWithoutRowsNeverHits) {
  const TcamTable table(0, 17, 1);
  EXPECT_EQ(table.lookup({}), TcamTable::noRow);
  EXPECT_EQ(table.linearLookup({}), TcamTable::noRow);
  EXPECT_EQ(table.nextValid(0), TcamTable::noRow);
  EXPECT_EQ(table.audit(), nullptr);
}

TEST(TcamTable, CopiesAreIndependent) {
  TcamTable table(8, 1, 1);
  rowIs(table, 3, {1}, {0});
  TcamTable copy = table;
  copy.validIs(3, false);
  EXPECT_EQ(hits(table, {1}), "[3]");
  EXPECT_EQ(hits(copy, {1}), "[]");
}

// Every way to compare keys that this processor has.
std::vector<sim::LookupPath> paths() {
  std::vector<sim::LookupPath> result{sim::LookupPath::portable};
  for (const sim::LookupPath path : {sim::LookupPath::avx2, sim::LookupPath::avx512}) {
    if (path <= sim::bestLookupPath()) {
      result.push_back(path);
    }
  }
  return result;
}

std::string rowText(uint32_t row) {
  return row == TcamTable::noRow ? " -" : " " + std::to_string(row);
}

// The first row at or behind `from` that agrees with the key, by looking at all of them.
uint32_t linearFrom(const TcamTable& table, const TcamKeyBytes& key, uint32_t from) {
  for (uint32_t number = table.nextValid(from); number != TcamTable::noRow;
       number = number + 1 < table.numRows() ? table.nextValid(number + 1) : TcamTable::noRow) {
    const sim::TcamRow row = table.row(number);
    unsigned differing = 0;
    for (unsigned byte = 0; byte < table.keyLength(); ++byte) {
      differing |= (key[byte] ^ row.value[byte]) & ~row.mask[byte] & 0xFF;
    }
    if (differing == 0) {
      return number;
    }
  }
  return TcamTable::noRow;
}

// How the rows of a random table look.
enum class Look : uint8_t {
  anyBits,  // each bit compared or not, most keys hit nothing
  fewBytes, // few values, so that rows overlap and keys hit
  prefixes, // fields of four bytes with prefixes of any length
  alike,    // a handful of different rows, each many times
  wild      // most rows compare next to nothing
};

struct Shape {
  const char* name;
  Look look;
  unsigned keyLength;
  uint32_t numRows;
};

std::ostream& operator<<(std::ostream& out, const Shape& shape) {
  return out << shape.name << " of " << shape.keyLength << " bytes in " << shape.numRows << " rows";
}

// A table that random rows come to, move in and go from.
class RandomTable {
public:
  RandomTable(const Shape& shape, uint64_t seed)
      : shape_(shape), random_(seed), table_(shape.numRows, shape.keyLength, 1) {}

  const TcamTable& table() const { return table_; }
  test::Random& random() { return random_; }

  TcamKeyBytes key();
  void rowIs(uint32_t row);
  void fill(unsigned percent);
  void write();
  // What the keys hit, found one by one and all together in every way, and from a row on.
  std::string answers(const std::vector<TcamKeyBytes>& keys, uint32_t from, sim::LookupPath path);
  std::string linearAnswers(const std::vector<TcamKeyBytes>& keys, uint32_t from) const;

private:
  uint8_t value(unsigned at);
  uint8_t ignored(unsigned at);
  uint32_t anyRow() { return random_.below(shape_.numRows); }

  const Shape& shape_;
  test::Random random_;
  TcamTable table_;
  unsigned prefix_ = 0; // of the field that ignored() is in
};

uint8_t RandomTable::value(unsigned at) {
  switch (shape_.look) {
  case Look::anyBits:
    return random_.byte();
  case Look::alike:
    return static_cast<uint8_t>(at * 7 + random_.below(2));
  case Look::prefixes:
    return static_cast<uint8_t>(at % 4 < 2 ? random_.below(4) : random_.byte());
  default:
    return static_cast<uint8_t>(random_.oneIn(8) ? random_.byte() : random_.below(3));
  }
}

uint8_t RandomTable::ignored(unsigned at) {
  static constexpr uint8_t masks[] = {0x00, 0xFF, 0xFF, 0x0F, 0x01, 0xFE, 0x80};
  switch (shape_.look) {
  case Look::anyBits:
    return random_.byte() & random_.byte();
  case Look::alike:
    return at < 2 ? 0 : 0xFF;
  case Look::prefixes: {
    prefix_ = at % 4 != 0 ? prefix_ : random_.oneIn(3) ? 0 : random_.below(33);
    const unsigned before = 8 * (at % 4);
    return static_cast<uint8_t>(prefix_ <= before ? 0xFF : 0xFF >> std::min(prefix_ - before, 8u));
  }
  case Look::wild:
    return random_.oneIn(2 * shape_.keyLength) ? masks[random_.below(7)] : 0xFF;
  default:
    return random_.oneIn(6) ? random_.byte() : masks[random_.below(7)];
  }
}

// Random, or what a row wants with a few bits changed at most.
TcamKeyBytes RandomTable::key() {
  TcamKeyBytes key;
  for (unsigned i = 0; i < key.size(); ++i) {
    key[i] = i < shape_.keyLength ? value(i) : random_.byte();
  }
  if (random_.oneIn(3)) {
    return key;
  }
  const sim::TcamRow row = table_.row(anyRow());
  for (unsigned i = 0; i < shape_.keyLength; ++i) {
    key[i] = static_cast<uint8_t>((row.value[i] & ~row.mask[i]) | (key[i] & row.mask[i]));
  }
  if (random_.oneIn(3)) {
    key[random_.below(shape_.keyLength)] ^= static_cast<uint8_t>(1 << random_.below(8));
  }
  return key;
}

void RandomTable::rowIs(uint32_t row) {
  TcamKeyBytes value;
  TcamKeyBytes mask;
  for (unsigned i = 0; i < value.size(); ++i) {
    value[i] = i < shape_.keyLength ? this->value(i) : random_.byte();
    mask[i] = i < shape_.keyLength ? ignored(i) : random_.byte();
  }
  table_.keyMaskIs(row, value, mask);
}

void RandomTable::fill(unsigned percent) {
  for (uint32_t row = 0; row < shape_.numRows; ++row) {
    if (random_.below(100) < percent) {
      rowIs(row);
      table_.validIs(row, true);
    }
  }
}

// A row is rewritten, goes, comes, or moves.
void RandomTable::write() {
  const uint32_t row = random_.oneIn(2) ? anyRow() : random_.below(std::min(shape_.numRows, 20u));
  switch (random_.below(5)) {
  case 0:
    rowIs(row);
    break;
  case 1:
    table_.validIs(row, false);
    break;
  case 2:
    rowIs(row);
    table_.validIs(row, true);
    break;
  case 3:
    table_.validIs(row, true);
    break;
  default: {
    const uint32_t to = anyRow();
    const sim::TcamRow moved = table_.row(row);
    table_.keyMaskIs(to, moved.value, moved.mask);
    table_.validIs(to, moved.valid);
    table_.validIs(row, row == to && moved.valid);
  }
  }
}

std::string RandomTable::answers(const std::vector<TcamKeyBytes>& keys, uint32_t from, sim::LookupPath path) {
  table_.lookupPathIs(path);
  std::vector<uint32_t> rows(keys.size());
  table_.lookup(keys, rows);
  std::string text;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    text += rowText(rows[i]);
    text += rowText(table_.lookup(keys[i]));
    text += rowText(table_.lookupFrom(keys[i], from));
  }
  return text;
}

std::string RandomTable::linearAnswers(const std::vector<TcamKeyBytes>& keys, uint32_t from) const {
  std::string text;
  for (const TcamKeyBytes& key : keys) {
    const std::string first = rowText(table_.linearLookup(key));
    text += first + first + rowText(linearFrom(table_, key, from));
  }
  return text;
}

class TcamDifferential : public testing::TestWithParam<Shape> {
protected:
  // Looks up `count` keys in every way.
  static void compare(RandomTable& table, std::size_t count, const std::string& where) {
    std::vector<TcamKeyBytes> keys(count);
    for (TcamKeyBytes& key : keys) {
      key = table.key();
    }
    const uint32_t from = table.random().below(table.table().numRows());
    const std::string expected = table.linearAnswers(keys, from);
    for (const sim::LookupPath path : paths()) {
      ASSERT_EQ(table.answers(keys, from, path), expected)
          << where << ", from row " << from << ", path " << static_cast<unsigned>(path);
    }
  }
};

// Rows come and go at random; after every few of them all searches agree with that of row by row.
TEST_P(TcamDifferential, AgreesWithLinearLookup) {
  const uint64_t seed = test::Random::seed("AgreesWithLinearLookup");
  const Shape& shape = GetParam();
  const int steps = test::isLong() ? 20000 : 400;
  RandomTable table(shape, seed + shape.numRows + shape.keyLength);
  table.fill(table.random().below(100));
  for (int step = 0; step < steps; ++step) {
    const std::string where = "seed " + std::to_string(seed) + ", step " + std::to_string(step);
    for (uint32_t i = table.random().below(8); i > 0; --i) {
      table.write();
    }
    ASSERT_NO_FATAL_FAILURE(compare(table, step % 50 == 0 ? table.random().below(75) : 3, where));
    if (step % (steps / 8) == 0) {
      ASSERT_STREQ(table.table().audit(), nullptr) << where;
    }
  }
}

// A table that fills and empties in an order of its own stays exact, and gives its structure back.
TEST_P(TcamDifferential, StaysExactWhileItFillsAndEmpties) {
  const uint64_t seed = test::Random::seed("StaysExactWhileItFillsAndEmpties");
  const Shape& shape = GetParam();
  RandomTable rows(shape, seed + shape.numRows);
  rows.fill(100);
  // What the rows are, in another table, one by one.
  TcamTable table(shape.numRows, shape.keyLength, 1);
  std::vector<uint32_t> order(shape.numRows);
  std::iota(order.begin(), order.end(), 0u);
  for (const bool comes : {true, false}) {
    for (uint32_t i = shape.numRows; i > 1; --i) {
      std::swap(order[i - 1], order[rows.random().below(i)]);
    }
    for (uint32_t i = 0; i < shape.numRows; ++i) {
      const uint32_t number = order[i];
      if (comes) {
        const sim::TcamRow row = rows.table().row(number);
        table.keyMaskIs(number, row.value, row.mask);
      }
      table.validIs(number, comes);
      if (i % (shape.numRows / 40 + 1) == 0) {
        const TcamKeyBytes key = rows.key();
        ASSERT_EQ(rowText(table.lookup(key)), rowText(table.linearLookup(key))) << "seed " << seed;
      }
    }
    ASSERT_STREQ(table.audit(), nullptr) << "seed " << seed;
  }
  const sim::LookupTree::Figures figures = table.lookupFigures();
  EXPECT_EQ(std::to_string(figures.trees) + " trees, " + std::to_string(figures.rows) + " rows, " +
                std::to_string(table.numValid()) + " valid",
            "0 trees, 0 rows, 0 valid");
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, TcamDifferential,
    testing::Values(Shape{"any bits", Look::anyBits, 17, 500}, Shape{"any bits", Look::anyBits, 1, 64},
                    Shape{"any bits", Look::anyBits, 48, 300}, Shape{"few bytes", Look::fewBytes, 1, 1},
                    Shape{"few bytes", Look::fewBytes, 5, 7}, Shape{"few bytes", Look::fewBytes, 5, 4096},
                    Shape{"few bytes", Look::fewBytes, 7, 64}, Shape{"few bytes", Look::fewBytes, 8, 65},
                    Shape{"few bytes", Look::fewBytes, 9, 500}, Shape{"few bytes", Look::fewBytes, 16, 1000},
                    Shape{"few bytes", Look::fewBytes, 24, 1000}, Shape{"prefixes", Look::prefixes, 17, 3000},
                    Shape{"prefixes", Look::prefixes, 22, 1000}, Shape{"prefixes", Look::prefixes, 41, 2000},
                    Shape{"prefixes", Look::prefixes, 33, 300}, Shape{"alike", Look::alike, 20, 2000},
                    Shape{"alike", Look::alike, 41, 300}, Shape{"wild", Look::wild, 20, 1500},
                    Shape{"wild", Look::wild, 41, 400}));

// Batches of every size give what single keys give, wherever the last one of them ends.
TEST(TcamTable, BatchesOfEverySize) {
  const uint64_t seed = test::Random::seed("BatchesOfEverySize");
  const Shape shape{"few bytes", Look::fewBytes, 20, 700};
  RandomTable table(shape, seed);
  table.fill(90);
  std::vector<std::size_t> counts(100);
  std::iota(counts.begin(), counts.end(), std::size_t{0});
  counts.insert(counts.end(), {255, 256, 257, 511, 512, 513, 1000}); // around what goes down side by side
  for (const std::size_t count : counts) {
    std::vector<TcamKeyBytes> keys(count);
    for (TcamKeyBytes& key : keys) {
      key = table.key();
    }
    const std::string expected = table.linearAnswers(keys, 0);
    for (const sim::LookupPath path : paths()) {
      ASSERT_EQ(table.answers(keys, 0, path), expected) << "seed " << seed;
    }
  }
}

// General rows behind specific ones stand in the tail until it is full, then in a tree, and come back.
TEST(TcamTable, GeneralRowsStandInTheTailWhileTheyAreFew) {
  const auto exact = [](TcamTable& table, uint32_t row) {
    rowIs(table, row, {1, static_cast<uint8_t>(row >> 8), static_cast<uint8_t>(row), 0}, {0, 0, 0, 0xFF});
  };
  const auto general = [](TcamTable& table, uint32_t row) {
    rowIs(table, row, {static_cast<uint8_t>(row), 0, 0, static_cast<uint8_t>(row)}, {0xF0, 0xFF, 0xFF, 0x80});
  };
  TcamTable table(1000, 4, 1);
  const auto figures = [&table] {
    const sim::LookupTree::Figures f = table.lookupFigures();
    EXPECT_STREQ(table.audit(), nullptr);
    return std::to_string(f.rows) + " rows, " + std::to_string(f.trees) + " trees, tail " +
           std::to_string(f.inTail);
  };
  std::vector<TcamKeyBytes> keys;
  for (unsigned i = 0; i < 256; ++i) {
    keys.push_back(bytes({static_cast<uint8_t>(i % 3), static_cast<uint8_t>(i % 2), static_cast<uint8_t>(i),
                          static_cast<uint8_t>(i * 7)},
                         0));
  }
  const auto check = [&] {
    std::vector<uint32_t> rows(keys.size());
    for (const sim::LookupPath path : paths()) {
      table.lookupPathIs(path);
      table.lookup(keys, rows);
      for (std::size_t i = 0; i < keys.size(); ++i) {
        ASSERT_EQ(rows[i], table.linearLookup(keys[i])) << i;
        ASSERT_EQ(table.lookup(keys[i]), rows[i]) << i;
      }
    }
  };
  EXPECT_EQ(figures(), "0 rows, 0 trees, tail 0");
  for (uint32_t row = 0; row < 32; ++row) {
    exact(table, row);
  }
  EXPECT_EQ(figures(), "32 rows, 0 trees, tail 32");
  for (uint32_t row = 32; row < 500; ++row) {
    exact(table, row);
  }
  EXPECT_EQ(figures(), "500 rows, 1 trees, tail 0");
  for (uint32_t row = 980; row < 1000; ++row) {
    general(table, row);
  }
  EXPECT_EQ(figures(), "520 rows, 1 trees, tail 20");
  check();
  for (uint32_t row = 900; row < 980; ++row) {
    general(table, row);
  }
  EXPECT_EQ(figures(), "600 rows, 2 trees, tail 0");
  check();
  for (uint32_t row = 899; ++row < 1000;) {
    table.validIs(row, false);
  }
  EXPECT_EQ(figures(), "500 rows, 1 trees, tail 0");
  general(table, 950);
  EXPECT_EQ(figures(), "501 rows, 1 trees, tail 1");
  check();
}

// Rows of the tail may compare any part of the longest key.
TEST(TcamTable, TheTailComparesTheWholeKey) {
  TcamTable table(40, 48, 1);
  TcamKeyBytes key{};
  for (unsigned byte = 0; byte < 24; ++byte) {
    TcamKeyBytes value{};
    TcamKeyBytes mask;
    mask.fill(0xFF);
    value[2 * byte] = 1;
    mask[2 * byte] = 0;
    table.keyMaskIs(byte, value, mask);
    table.validIs(byte, true);
    ASSERT_STREQ(table.audit(), nullptr);
  }
  for (unsigned byte = 24; byte-- > 0;) {
    key[2 * byte] = 1;
    for (const sim::LookupPath path : paths()) {
      table.lookupPathIs(path);
      uint32_t row = 0;
      table.lookup({&key, 1}, {&row, 1});
      EXPECT_EQ(row, byte);
      EXPECT_EQ(table.lookup(key), byte);
    }
  }
}

// What lines have at each place, told in two ways.
TEST(LookupBits, ColumnsOfLinesAreTheSameForEveryProcessor) {
  test::Random random(test::Random::seed("ColumnsOfLines"));
  for (unsigned round = 0; round < 200; ++round) {
    sim::BitLines lines;
    for (uint64_t& line : lines) {
      line = random.next();
    }
    const uint64_t wanted = round == 0 ? ~uint64_t{0} : random.next() & random.next() & random.next();
    sim::BitColumns columns{};
    sim::BitColumns byteByByte{};
    sim::bitColumns(lines, wanted, columns);
    sim::bitColumnsByteByByte(lines, wanted, byteByByte);
    EXPECT_EQ(columns, byteByByte);
    for (unsigned bit = 0; bit < columns.size(); ++bit) {
      uint16_t column = 0;
      for (unsigned i = 0; i < lines.size(); ++i) {
        column = static_cast<uint16_t>(column | (lines[i] >> bit & 1) << i);
      }
      EXPECT_EQ(columns[bit], (wanted >> (bit / 8 * 8) & 0xFF) != 0 ? column : 0) << "bit " << bit;
    }
  }
}

sim::RowWords rowWords(uint64_t value, uint64_t care) {
  sim::RowWords words;
  words.value[0] = value & care;
  words.care[0] = care;
  return words;
}

// The bits of word 0: "0: 1 9 / 8: 0 2 3".
std::string describe(const sim::BitRanks& ranks, uint64_t among) {
  std::string text;
  for (unsigned rank = 0; rank < sim::BitRanks::count; ++rank) {
    std::string bits;
    for (unsigned bit = 0; bit < 64; ++bit) {
      if ((ranks.bits(rank)[0] & among) >> bit & 1) {
        bits += " " + std::to_string(bit);
      }
    }
    if (!bits.empty()) {
      text += (text.empty() ? "" : " / ") + std::to_string(rank) + ":" + bits;
    }
  }
  return text;
}

// In each byte the bit that parts most rows comes first; bits that all rows say the same of come last.
TEST(LookupBits, RanksFollowWhatPartsTheRows) {
  EXPECT_EQ(describe(sim::BitRanks(), 0xFFFF),
            "0: 0 8 / 1: 1 9 / 2: 2 10 / 3: 3 11 / 4: 4 12 / 5: 5 13 / 6: 6 14 / 7: 7 15");
  std::vector<sim::RowWords> rows;
  for (uint64_t i = 0; i < 16; ++i) {
    // Bit 1 parts them evenly, bit 2 one from the others, bit 9 is compared by every other row, half of them
    // wanting it; bits 0 and 8 are the same everywhere, bit 10 is compared by no row.
    const uint64_t value = 1 | (i & 1) << 1 | (i == 5 ? 4u : 0u) | 1u << 8 | (i >> 2 & 1) << 9;
    rows.push_back(rowWords(value, 0x107 | (i & 2) << 8));
  }
  EXPECT_EQ(describe(sim::BitRanks(rows), 0x707), "0: 1 9 / 1: 2 / 8: 0 8 10");
}

// Bits of both words of a signature: "0: 1 9; 1: 5".
std::string describe(const sim::BitChoice& choice) {
  std::string text;
  for (const auto& [word, bits] :
       {std::pair(choice.wordA, choice.bitsA), std::pair(choice.wordB, choice.bitsB)}) {
    if (bits != 0) {
      text += (text.empty() ? "" : "; ") + std::to_string(word) + ":";
      for (unsigned bit = 0; bit < 64; ++bit) {
        text += (bits >> bit & 1) != 0 ? " " + std::to_string(bit) : "";
      }
    }
  }
  return text;
}

// A signature takes the bits that tell its rows apart, and of those that all of them say the same of the ones
// that part the rows of the table: the number of a list, which is the same in all rows, keeps no key off.
TEST(LookupBits, SignaturesLeaveOutWhatIsTheSameEverywhere) {
  std::vector<sim::RowWords> table;
  for (uint64_t i = 0; i < 64; ++i) {
    table.push_back(rowWords(0x7 | i * 0x01030507 << 16, 0xFFFFFFFFFFFF));
  }
  const sim::BitRanks ranks(table);
  const sim::KeyWords unused{};
  const std::vector<sim::RowWords> alike{rowWords(0xAAAA0007, 0xFFFFFFFF), rowWords(0xAAAB0007, 0xFFFFFFFF)};
  EXPECT_EQ(describe(chooseSignature(alike, unused, ranks)),
            "0: 16 17 18 19 20 21 22 23 24 25 26 27 28 29 30 31");
  EXPECT_EQ(describe(chooseSignature(std::span(alike).first(1), unused, ranks)),
            "0: 16 17 18 19 20 21 22 23 24 25 26 27 28 29 30 31");
  // Where they are all that there is they are better than none.
  const std::vector<sim::RowWords> few{rowWords(0x10007, 0x1FFFF), rowWords(0x00007, 0x1FFFF)};
  EXPECT_EQ(describe(chooseSignature(few, unused, ranks)), "0: 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 16");
  sim::KeyWords used{};
  used[0] = 0xF0000;
  EXPECT_EQ(describe(chooseSignature(alike, used, ranks)), "0: 0 1 2 3 20 21 22 23 24 25 26 27 28 29 30 31");
}

// Copies go ways of their own, as both are written.
TEST(TcamTable, CopiesStayIndependent) {
  const uint64_t seed = test::Random::seed("CopiesStayIndependent");
  const Shape shape{"prefixes", Look::prefixes, 17, 600};
  RandomTable table(shape, seed);
  table.fill(60);
  RandomTable copy = table;
  copy.random() = test::Random(seed + 1);
  for (int step = 0; step < 300; ++step) {
    (step % 3 == 0 ? copy : table).write();
    for (RandomTable* each : {&table, &copy}) {
      const std::vector<TcamKeyBytes> keys{each->key(), each->key()};
      ASSERT_EQ(each->answers(keys, 0, sim::bestLookupPath()), each->linearAnswers(keys, 0))
          << "seed " << seed;
    }
  }
  EXPECT_STREQ(table.table().audit(), nullptr);
  EXPECT_STREQ(copy.table().audit(), nullptr);
}

// Rows that compare next to nothing stand where they are not copied into every corner, whatever was there
// before them.
TEST(TcamTable, MemoryIsBounded) {
  const uint64_t seed = test::Random::seed("MemoryIsBounded");
  TcamTable table(20000, 20, 1);
  EXPECT_LE(table.lookupFigures().bytes, 4096u) << "a table without rows";
  const Shape exact{"prefixes", Look::prefixes, 20, 4000};
  const Shape wild{"wild", Look::wild, 20, 8000};
  RandomTable first(exact, seed);
  RandomTable second(wild, seed);
  first.fill(100);
  second.fill(100);
  for (const bool wildFirst : {false, true}) {
    for (uint32_t i = 0; i < exact.numRows + wild.numRows; ++i) {
      const bool isWild = wildFirst ? i < wild.numRows : i >= exact.numRows;
      const uint32_t at = wildFirst == isWild ? i : i - (isWild ? exact.numRows : wild.numRows);
      const sim::TcamRow row = (isWild ? second : first).table().row(at);
      table.keyMaskIs(i, row.value, row.mask);
      table.validIs(i, true);
    }
    const sim::LookupTree::Figures figures = table.lookupFigures();
    EXPECT_LE(figures.bytes / figures.rows, 400u) << "seed " << seed << ", copies " << figures.copies;
    EXPECT_STREQ(table.audit(), nullptr);
    for (uint32_t i = 0; i < table.numRows(); ++i) {
      table.validIs(i, false);
    }
  }
}

} // namespace
