#include "Vane/Collections.h"
#include "Vane/SmallSet.h"
#include "Vane/Value.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Demo {

// In a grid, as VLANs at ports are.
class GridKey {
public:
  VANE_VALUE(Demo, GridKey, (Vane::U32, row, 0), (Vane::U16, column, 0))

  friend Vane::U32 vaneSlot(const GridKey& key) { return Vane::slotOfGrid(key.row(), key.column()); }
};

} // namespace Demo

namespace {

using Demo::GridKey;
using Vane::U32;
using Vane::U64;

// Keys whose hashes collide, so that chains are exercised.
struct Colliding {
  U32 number = 0;
  U32 hash() const { return number & 1; }
  bool operator==(const Colliding&) const = default;
};

// Keys that hold memory of their own, and so cannot be moved by copying their bytes. Ordered as their
// numbers.
class Worded {
public:
  Worded() = default;
  Worded(U32 number)
      : text_("a key that is too long to stand in place: " + std::to_string(1000000 + number)) {}
  operator U32() const { return static_cast<U32>(std::stoul(text_.substr(text_.rfind(' '))) - 1000000); }
  U32 hash() const { return static_cast<U32>(std::hash<std::string>()(text_)); }
  bool operator==(const Worded&) const = default;
  bool operator<(const Worded& other) const { return text_ < other.text_; }

private:
  std::string text_;
};

template <typename Map>
std::string pairsOf(const Map& map) {
  std::string result;
  for (const auto& member : map) {
    if constexpr (requires { member.key().number; }) {
      result += std::to_string(member.key().number);
    } else {
      result += std::to_string(member.key());
    }
    result += '=';
    result += std::to_string(member.value());
    result += ' ';
  }
  return result;
}

unsigned seed() {
  const char* given = std::getenv("XPACL_SEED");
  const unsigned value =
      given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
  std::cout << "XPACL_SEED=" << value << std::endl;
  return value;
}

TEST(VaneCollections, HashMapWalksInTheOrderOfInsertion) {
  Vane::HashMap2018<Colliding, int> map;
  EXPECT_EQ(pairsOf(map), "");
  EXPECT_EQ(map.find({3}), nullptr);
  EXPECT_FALSE(map.erase({3}));
  EXPECT_TRUE(map.assign({3}, 30));
  EXPECT_TRUE(map.assign({1}, 10));
  EXPECT_TRUE(map.assign({2}, 20));
  EXPECT_FALSE(map.assign({1}, 10)); // no change
  EXPECT_TRUE(map.assign({1}, 11));
  EXPECT_FALSE(map.insertOrAssign({2}, 20));
  EXPECT_FALSE(map.insert({2}, 99));
  EXPECT_EQ(pairsOf(map), "3=30 1=11 2=20 ");
  EXPECT_TRUE(map.erase({1}));
  EXPECT_FALSE(map.erase({1}));
  map.insert({1}, 12);
  EXPECT_EQ(pairsOf(map), "3=30 2=20 1=12 ");
  EXPECT_EQ(map.valueOrDefault({4}), 0);
  EXPECT_EQ(*map.find({1}), 12);
  Vane::HashMap2018<Colliding, int> other(std::move(map));
  EXPECT_EQ(other.size(), 3u);
  other.clear();
  EXPECT_TRUE(other.empty());
  other.insert({9}, 1);
  EXPECT_EQ(pairsOf(other), "9=1 ");
}

TEST(VaneCollections, TreeMapWalksInAscendingOrder) {
  Vane::RbTreeMap<U32, int> map;
  EXPECT_FALSE(map.first());
  EXPECT_EQ(map.lastKey(), nullptr);
  for (const U32 key : {5u, 1u, 9u, 3u}) {
    EXPECT_TRUE(map.assign(key, static_cast<int>(key) * 10));
  }
  EXPECT_FALSE(map.assign(3, 30));
  EXPECT_TRUE(map.assign(3, 31));
  EXPECT_EQ(pairsOf(map), "1=10 3=31 5=50 9=90 ");
  EXPECT_EQ(map.first().key(), 1u);
  EXPECT_EQ(*map.lastKey(), 9u);
  EXPECT_EQ(map.lowerBound(4).key(), 5u);
  EXPECT_FALSE(map.lowerBound(10));
  EXPECT_TRUE(map.erase(9));
  EXPECT_EQ(*map.lastKey(), 5u);
  EXPECT_EQ(map.size(), 3u);
}

template <typename Map>
class VaneBothMaps : public testing::Test {};
using BothMaps = testing::Types<Vane::HashMap2018<U32, U64>, Vane::RbTreeMap<U32, U64>>;
TYPED_TEST_SUITE(VaneBothMaps, BothMaps);

TYPED_TEST(VaneBothMaps, MemberDeletedUnderAnIterator) {
  TypeParam map;
  for (U32 key = 1; key <= 4; ++key) {
    map.insert(key, key * 10);
  }
  auto iterator = map.iteratorConst();
  ++iterator;
  auto copy = iterator;
  EXPECT_TRUE(map.erase(2));
  EXPECT_TRUE(map.erase(3)); // and the one it would have gone to
  EXPECT_EQ(map.find(2), nullptr);
  EXPECT_FALSE(map.erase(2));
  EXPECT_EQ(map.size(), 2u);
  EXPECT_EQ(pairsOf(map), "1=10 4=40 ");
  EXPECT_EQ(copy.key(), 2u); // still readable
  EXPECT_EQ(copy.value(), 20u);
  ++iterator;
  EXPECT_EQ(iterator.key(), 4u);
  ++copy;
  EXPECT_EQ(copy.key(), 4u);
  ++copy;
  EXPECT_FALSE(copy);
  map.clear();
  EXPECT_EQ(iterator.value(), 40u);
  ++iterator;
  EXPECT_FALSE(iterator);
}

TYPED_TEST(VaneBothMaps, AMadeValueEntersAMapThatItsMakingHasChanged) {
  for (const U32 others : {0u, 1u, 9u, 200u}) {
    TypeParam map;
    map.insert(7, 70);
    const auto [held, isNew] = map.findOrMake(7, [] { return U64{1}; });
    EXPECT_EQ(*held, 70u);
    EXPECT_FALSE(isNew);
    const auto [made, madeIsNew] = map.findOrMake(100, [&] {
      for (U32 key = 1000; key < 1000 + others; ++key) {
        map.insert(key, 1);
      }
      map.erase(7);
      return U64{2};
    });
    EXPECT_EQ(*made, 2u);
    EXPECT_TRUE(madeIsNew);
    EXPECT_EQ(map.size(), 1u + others);
    const auto [other, otherIsNew] = map.findOrMake(5, [&] {
      map.insert(5, 50);
      return U64{3};
    });
    EXPECT_EQ(*other, 50u);
    EXPECT_FALSE(otherIsNew);
    EXPECT_EQ(*map.find(100), 2u);
    EXPECT_EQ(map.size(), 2u + others);
  }
}

// Look-ups start where the last one ended; where they are asked for must not matter.
TYPED_TEST(VaneBothMaps, NumbersInRowsAndStepsAreFoundFromAnywhere) {
  for (const U32 step : {1u, 2u, 3u, 256u, 4096u, 65536u}) {
    TypeParam map;
    constexpr U32 members = 3000;
    for (U32 i = 0; i < members; ++i) {
      map.insert(1 + i * step, i);
    }
    unsigned wrong = 0;
    for (U32 i = 0; i < members; ++i) {
      for (const U32 at : {i, members - 1 - i, i * 7 % members}) {
        const U64* const found = map.find(1 + at * step);
        wrong += found == nullptr || *found != at ? 1 : 0;
        wrong += step > 1 && map.has(2 + at * step) ? 1 : 0;
      }
    }
    EXPECT_EQ(wrong, 0u) << step;
  }
}

TYPED_TEST(VaneBothMaps, MemberDeletedAndInsertedAgainIsVisitedOnce) {
  TypeParam map;
  for (U32 key = 1; key <= 3; ++key) {
    map.insert(key, key * 10);
  }
  std::string visited;
  for (const auto& member : map.all()) {
    const U32 key = member.key();
    visited += std::to_string(key);
    visited += ' ';
    map.erase(key);
    map.insert(key, key * 100);
    map.insert(key + 100, 1); // ahead of the walk in both orders
  }
  EXPECT_EQ(visited, "1 2 3 ");
  EXPECT_EQ(map.size(), 6u);
  EXPECT_EQ(*map.find(2), 200u);
}

TYPED_TEST(VaneBothMaps, IteratorOutlivesTheCollection) {
  auto map = std::make_unique<TypeParam>();
  map->insert(1, 10);
  map->insert(2, 20);
  auto iterator = map->iteratorConst();
  map.reset();
  EXPECT_EQ(iterator.value(), 10u);
  ++iterator;
  EXPECT_FALSE(iterator);
}

TYPED_TEST(VaneBothMaps, WalkEndsThoughItsBodyKeepsInserting) {
  TypeParam map;
  map.insert(0, 0);
  U32 visits = 0;
  for (const auto& member : map.all()) {
    map.insert(member.key() + 1, 0);
    ++visits;
    ASSERT_LT(visits, 10u);
  }
  EXPECT_EQ(visits, 1u);
}

// Values whose destruction comes back to the map that held them.
struct Reentrant {
  std::function<void()> onDestroy;
  Reentrant() = default;
  explicit Reentrant(std::function<void()> action) : onDestroy(std::move(action)) {}
  Reentrant(const Reentrant&) = default;
  Reentrant(Reentrant&& other) noexcept : onDestroy(std::exchange(other.onDestroy, nullptr)) {}
  Reentrant& operator=(const Reentrant&) = default;
  ~Reentrant() {
    if (onDestroy) {
      std::exchange(onDestroy, nullptr)();
    }
  }
};

template <typename Map>
void destroyReentrantly() {
  Map map;
  int calls = 0;
  bool armed = false;
  const auto action = [&] {
    if (armed) {
      ++calls;
      map.erase(2);
      map.insert(50, std::make_shared<Reentrant>());
      map.erase(50);
      map.insert(60, std::make_shared<Reentrant>());
    }
  };
  for (U32 key = 1; key <= 3; ++key) {
    map.insert(key, std::make_shared<Reentrant>(action));
  }
  armed = true;
  map.erase(1);
  EXPECT_EQ(calls, 2); // of member 1, and from there of member 2
  EXPECT_EQ(map.size(), 2u);
  map.clear();
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(map.size(), 1u); // what the last destructor inserted
  armed = false;
}

TEST(VaneCollections, ValuesMayComeBackWhenTheyAreDestroyed) {
  destroyReentrantly<Vane::HashMap2018<U32, std::shared_ptr<Reentrant>>>();
  destroyReentrantly<Vane::RbTreeMap<U32, std::shared_ptr<Reentrant>>>();
}

// A twin of the collection, and what each running walk has seen and must still see.
template <typename Map>
class Twin {
public:
  // Members have keys below `keys`.
  Twin(unsigned seed, U32 keys) : random_(seed), keys_(keys) {}

  void run(int steps) {
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
      edit();
      if (random_() % (keys_ < 100 ? 8 : keys_) == 0) {
        startWalk();
      }
      if (!walks_.empty() && random_() % 2 == 0) {
        stepWalk(random_() % walks_.size());
      }
      if (step % (keys_ < 100 ? 64 : 1024) == 0) {
        compare();
      }
    }
    while (!walks_.empty()) {
      stepWalk(0);
    }
    compare();
  }

private:
  struct Running {
    typename Map::Iterator iterator;
    std::set<U32> owed; // were there at the start, and ever since
    std::set<U32> seen;
  };

  void edit() {
    const U32 key = random_() % keys_;
    switch (random_() % 5) {
    case 0:
    case 1: {
      const U64 value = random_() % 3;
      const auto held = twin_.find(key);
      const bool changes = held == twin_.end() || held->second != value;
      EXPECT_EQ(map_.assign(key, value), changes);
      twin_[key] = value;
      break;
    }
    case 2:
    case 3:
      EXPECT_EQ(map_.erase(key), twin_.erase(key) != 0);
      for (Running& walk : walks_) {
        walk.owed.erase(key);
      }
      break;
    default:
      if (random_() % 100 == 0) {
        map_.clear();
        twin_.clear();
        for (Running& walk : walks_) {
          walk.owed.clear();
        }
      }
    }
  }

  void startWalk() {
    Running walk{map_.iteratorConst(), {}, {}};
    for (const auto& [key, value] : twin_) {
      walk.owed.insert(key);
    }
    EXPECT_EQ(static_cast<bool>(walk.iterator), !twin_.empty());
    if (walk.iterator) {
      visit(walk);
      walks_.push_back(std::move(walk));
    }
  }

  void visit(Running& walk) {
    const U32 key = walk.iterator.key();
    EXPECT_TRUE(walk.seen.insert(key).second) << "visited twice: " << key;
    const auto held = twin_.find(key);
    ASSERT_NE(held, twin_.end()) << "visited though absent: " << key;
    EXPECT_EQ(walk.iterator.value(), held->second);
    walk.owed.erase(key);
  }

  void stepWalk(std::size_t index) {
    Running& walk = walks_[index];
    ++walk.iterator;
    if (walk.iterator) {
      visit(walk);
      return;
    }
    EXPECT_TRUE(walk.owed.empty()) << "never visited: " << *walk.owed.begin();
    walks_.erase(walks_.begin() + static_cast<std::ptrdiff_t>(index));
  }

  void compare() {
    std::map<U32, U64> contents;
    for (const auto& member : map_) {
      EXPECT_TRUE(contents.emplace(member.key(), member.value()).second);
    }
    EXPECT_EQ(contents, twin_);
    EXPECT_EQ(map_.size(), twin_.size());
    for (U32 key = 0; key < keys_; ++key) {
      EXPECT_EQ(map_.has(key), twin_.count(key) != 0);
    }
  }

  std::mt19937 random_;
  const U32 keys_;
  Map map_;
  std::map<U32, U64> twin_;
  std::vector<Running> walks_;
};

TYPED_TEST(VaneBothMaps, AgreesWithItsTwinUnderRandomEditsAndWalks) {
  const unsigned start = seed();
  for (unsigned round = 0; round < 40; ++round) {
    // A handful of members, some runs and chunks, and many.
    const U32 keys[] = {5, 12, 40, 400, 3000};
    Twin<TypeParam>(start + round, keys[round % 5]).run(round % 5 == 4 ? 20000 : 2000);
  }
}

TEST(VaneCollections, KeysWithMemoryOfTheirOwnAreMovedWhole) {
  const unsigned start = seed();
  for (unsigned round = 0; round < 4; ++round) {
    const U32 keys[] = {12, 400};
    Twin<Vane::HashMap2018<Worded, U64>>(start + round, keys[round % 2]).run(2000);
    Twin<Vane::RbTreeMap<Worded, U64>>(start + round, keys[round % 2]).run(2000);
  }
}

// A key that fails to be copied into another one, once as often as this says.
struct Reluctant {
  static inline unsigned failAt = 0;
  U32 number = 0;
  Reluctant() = default;
  Reluctant(U32 key) : number(key) {}
  Reluctant(const Reluctant&) = default;
  Reluctant& operator=(const Reluctant& other) {
    if (failAt != 0 && --failAt == 0) {
      throw std::bad_alloc();
    }
    number = other.number;
    return *this;
  }
  bool operator<(const Reluctant& other) const { return number < other.number; }
};

TEST(VaneCollections, AnIndexThatCannotBeMadeHidesNobody) {
  Vane::RbTreeMap<Reluctant, U32> map;
  for (U32 key = 0; key < 8; ++key) { // as many as there are without an index
    map.insert(key, key);
  }
  for (unsigned at = 1; at <= 8; ++at) {
    Reluctant::failAt = at;
    EXPECT_THROW(map.insert(8, 8), std::bad_alloc) << at;
    EXPECT_EQ(map.size(), 8u);
    EXPECT_EQ(pairsOf(map), "0=0 1=1 2=2 3=3 4=4 5=5 6=6 7=7 ");
    EXPECT_TRUE(map.has(7));
    EXPECT_FALSE(map.has(8));
  }
  EXPECT_TRUE(map.insert(8, 8));
  EXPECT_EQ(map.lastKey()->number, 8u);
}

TEST(VaneCollections, ManyMembers) {
  constexpr U32 count = 50000;
  Vane::RbTreeMap<U32, bool> pool;
  Vane::HashMap2018<U32, U32> rows;
  for (U32 key = 0; key < count; ++key) {
    pool.insert(key, true);
  }
  for (U32 next = 0; next < count; ++next) {
    const auto first = pool.first();
    ASSERT_EQ(first.key(), next);
    rows.insert(first.key(), next);
    pool.erase(first.key());
  }
  EXPECT_TRUE(pool.empty());
  EXPECT_EQ(rows.size(), count);
  for (U32 key = 0; key < count; ++key) {
    ASSERT_NE(rows.find(key), nullptr);
  }
}

// What came last mostly goes first: positions and slots are used again, and the order stays that of
// insertion.
TEST(VaneCollections, MembersComeAndGoAtTheEnd) {
  std::mt19937 random(seed());
  Vane::HashMap2018<U32, U32> map;
  std::vector<std::pair<U32, U32>> twin;
  U32 next = 0;
  for (unsigned round = 0; round < 300; ++round) {
    const bool walked = round % 7 == 0;
    const auto walk = walked ? map.iteratorConst() : decltype(map.iteratorConst())();
    for (U32 more = random() % 400; more != 0; --more) {
      const U32 key = random() % 2 == 0 || twin.empty() ? next++ : twin.back().first + 1000000;
      if (map.insert(key, round)) {
        twin.push_back({key, round});
      }
    }
    for (U32 fewer = random() % 420; fewer != 0 && !twin.empty(); --fewer) {
      EXPECT_TRUE(map.erase(twin.back().first));
      EXPECT_FALSE(map.has(twin.back().first));
      twin.pop_back();
    }
    if (round % 50 == 49) {
      map.clear();
      twin.clear();
    }
    std::string expected;
    for (const auto& [key, value] : twin) {
      expected += std::to_string(key) + "=" + std::to_string(value) + " ";
      ASSERT_TRUE(map.has(key));
    }
    ASSERT_EQ(pairsOf(map), expected) << "round " << round;
    ASSERT_EQ(map.size(), twin.size());
  }
}

template <typename Set>
std::string membersOf(const Set& set) {
  std::string result;
  for (const auto& member : set.all()) {
    result += std::to_string(member.key().row()) + "/" + std::to_string(member.key().column()) +
              (member.value() ? " " : "! ");
  }
  return result;
}

TEST(VaneCollections, ASmallSetIsAMapToBool) {
  std::mt19937 random(seed());
  for (unsigned life = 0; life < 200; ++life) {
    Vane::SmallSet<GridKey> set;
    Vane::HashMap2018<GridKey, bool> twin;
    const unsigned keys = 1 + life % 20;
    for (unsigned step = 0; step < 60; ++step) {
      const U32 number = random() % keys;
      const GridKey key(number % 2 == 0 ? number : ~number,
                        static_cast<Vane::U16>(number == 3 ? 65535 : number));
      switch (random() % 8) {
      case 0:
      case 1:
      case 2:
      case 3: {
        const bool value = random() % 10 != 0;
        ASSERT_EQ(set.assign(key, value), twin.assign(key, value));
        break;
      }
      case 4:
        if (step % 3 == 0) { // a walk whose body deletes
          std::string walked;
          for (const auto& member : set.all()) {
            walked += std::to_string(member.key().row()) + " ";
            set.erase(key);
          }
          std::string expected;
          for (const auto& member : twin.all()) {
            expected += std::to_string(member.key().row()) + " ";
            twin.erase(key);
          }
          ASSERT_EQ(walked, expected);
        }
        break;
      default:
        ASSERT_EQ(set.erase(key), twin.erase(key));
      }
      ASSERT_EQ(set.size(), twin.size());
      ASSERT_EQ(set.empty(), twin.empty());
      ASSERT_EQ(set.has(key), twin.has(key));
      ASSERT_EQ(set.valueOrDefault(key), twin.valueOrDefault(key));
      if (step % 10 == 9) {
        ASSERT_EQ(membersOf(set), membersOf(twin)) << "life " << life << " step " << step;
      }
    }
  }
}

TEST(VaneCollections, AnIteratorOutlivesASmallSet) {
  auto set = std::make_unique<Vane::SmallSet<GridKey>>();
  set->assign(GridKey(7, 9), true);
  auto walk = set->iteratorConst();
  set.reset();
  EXPECT_TRUE(walk.key() == GridKey(7, 9));
  ++walk;
  EXPECT_TRUE(walk == Vane::WalkEnd());
}

// Rows from end to end, single columns, every eighth one, and few of each.
TEST(VaneCollections, KeysOfAGridAreFound) {
  const std::vector<std::pair<U32, U32>> shapes{{3, 4094}, {4000, 1}, {100, 512}, {48, 4}};
  for (const auto& [rows, columns] : shapes) {
    Vane::HashMap2018<GridKey, U32> map;
    for (U32 row = 0; row < rows; ++row) {
      for (U32 column = 0; column < columns; ++column) {
        map.insert(GridKey(row, static_cast<Vane::U16>(columns == 512 ? 8 * column : column)), row + column);
      }
    }
    ASSERT_EQ(map.size(), rows * columns);
    for (U32 row = 0; row < rows; ++row) {
      for (U32 column = 0; column < columns; ++column) {
        const U32* const found =
            map.find(GridKey(row, static_cast<Vane::U16>(columns == 512 ? 8 * column : column)));
        ASSERT_TRUE(found != nullptr && *found == row + column);
      }
      ASSERT_FALSE(map.has(GridKey(row + rows, 1)));
    }
  }
}

TEST(VaneCollections, ExpectingKeysChangesNothing) {
  Vane::HashMap2018<Vane::U32, Vane::U32> map;
  map.expect(1, 2);
  Vane::U32 sum = 0;
  for (Vane::U32 key = 0; key < 1000; ++key) {
    map.assign(key, 2 * key);
    map.expect(key + 3, key + 1000000);
    map.expect(key / 2, 0xFFFFFFFF);
  }
  for (Vane::U32 key = 0; key < 1000; key += 2) {
    map.erase(key);
    map.expect(key, key + 2);
  }
  for (Vane::U32 key = 0; key < 2000; ++key) {
    sum += map.valueOrDefault(key);
  }
  EXPECT_EQ(map.size(), 500u);
  EXPECT_EQ(sum, 500000u);
}

} // namespace
