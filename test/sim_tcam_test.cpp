#include "sim/TcamTable.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

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

// Rows come and go at random; after every step the bitmaps and the row by row search agree.
class TcamDifferential : public testing::TestWithParam<uint32_t> {};

TEST_P(TcamDifferential, AgreesWithLinearLookup) {
  const uint32_t numRows = GetParam();
  constexpr unsigned keyLength = 5;
  const uint64_t seed = test::Random::seed("AgreesWithLinearLookup");
  test::Random random(seed + numRows);
  TcamTable table(numRows, keyLength, 1);
  // Few byte values, so that rows overlap and keys hit.
  const auto value = [&] { return static_cast<uint8_t>(random.oneIn(8) ? random.byte() : random.below(3)); };
  const auto mask = [&] {
    const uint8_t masks[] = {0x00, 0xFF, 0xFF, 0x0F, 0x01, 0xFE, 0x80};
    return random.oneIn(6) ? random.byte() : masks[random.below(7)];
  };
  std::vector<TcamKeyBytes> keys(8);
  std::vector<uint32_t> rows(keys.size());
  for (int step = 0; step < 4000; ++step) {
    const uint32_t row = random.oneIn(2) ? random.below(numRows) : random.below(std::min(numRows, 20u));
    TcamKeyBytes v{};
    TcamKeyBytes m{};
    switch (random.below(5)) {
    case 0:
    case 1:
      for (unsigned i = 0; i < keyLength; ++i) {
        v[i] = value();
        m[i] = mask();
      }
      table.keyMaskIs(row, v, m);
      break;
    case 2:
    case 3:
      table.validIs(row, true);
      break;
    default:
      table.validIs(row, false);
    }
    for (TcamKeyBytes& key : keys) {
      for (unsigned i = 0; i < keyLength; ++i) {
        key[i] = value();
      }
    }
    table.lookup(keys, rows);
    for (std::size_t i = 0; i < keys.size(); ++i) {
      const uint32_t expected = table.linearLookup(keys[i]);
      ASSERT_EQ(rows[i], expected) << "seed " << seed << " step " << step;
      const uint32_t from = random.below(numRows);
      const uint32_t behind = table.lookupFrom(keys[i], from);
      ASSERT_TRUE(expected == TcamTable::noRow ? behind == TcamTable::noRow
                                               : from > expected || behind == expected)
          << "seed " << seed << " step " << step;
    }
    if (step % 500 == 0) {
      ASSERT_EQ(table.audit(), nullptr) << "seed " << seed << " step " << step;
    }
  }
  // When every row has gone, nothing is left in the bitmaps.
  for (uint32_t row = 0; row < numRows; ++row) {
    table.validIs(row, false);
  }
  EXPECT_EQ(table.numValid(), 0u);
  EXPECT_EQ(table.audit(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Sizes, TcamDifferential, testing::Values(1, 7, 64, 65, 500, 4096, 5000));

} // namespace
