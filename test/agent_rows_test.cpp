#include "agent/RowArray.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

// Counts those that live.
struct Counted {
  explicit Counted(int given = -1) : number(given) { ++alive; }
  Counted(const Counted& other) : number(other.number) { ++alive; }
  Counted& operator=(const Counted&) = default;
  ~Counted() { --alive; }
  int number;
  static inline int alive = 0;
};

std::string text(const agent::RowArray<Counted>& rows) {
  std::string result;
  for (uint32_t row = 0; row < rows.size(); ++row) {
    result += std::to_string(rows[row].number) + " ";
  }
  return result;
}

TEST(AgentRows, RowsHaveValuesOrTheDefaultOne) {
  const int before =
      (static_cast<void>(agent::RowArray<Counted>(1)[0]), Counted::alive); // with the default one
  {
    agent::RowArray<Counted> rows(4);
    EXPECT_EQ(text(rows), "-1 -1 -1 -1 ");
    rows.valueIs(1, Counted(10));
    rows.valueIs(3, Counted(30));
    rows.valueIs(1, Counted(11));
    EXPECT_EQ(text(rows), "-1 11 -1 30 ");
    EXPECT_EQ(Counted::alive, before + 2);
    rows.valueDel(3);
    rows.valueDel(3);
    EXPECT_EQ(text(rows), "-1 11 -1 -1 ");
    agent::RowArray<Counted> taken(std::move(rows));
    EXPECT_EQ(text(taken), "-1 11 -1 -1 ");
    rows = agent::RowArray<Counted>(2);
    EXPECT_EQ(text(rows), "-1 -1 ");
    EXPECT_EQ(agent::RowArray<Counted>().size(), 0u);
    EXPECT_EQ(Counted::alive, before + 1);
  }
  EXPECT_EQ(Counted::alive, before);
}

} // namespace
