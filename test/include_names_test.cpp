#include "test/Patterns.h"
#include "test/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

// A header includes the standard headers of the names it uses. That headers compile alone is checked with the
// standard headers precompiled, which takes half the time and cannot see when one of those is missing.

namespace {

namespace fs = std::filesystem;

// Each standard header and those of its names that the project's headers use. A name may stand at several.
constexpr const char* names = R"(
algorithm: copy equal fill_n lower_bound max min move_backward partition_point sort
any: any any_cast
array: array get
atomic: atomic atomic_ref memory_order_acq_rel memory_order_relaxed
bit: bit_ceil bit_floor bit_width countr_zero popcount
bitset: bitset
chrono: chrono
concepts: convertible_to
cstddef: byte nullptr_t ptrdiff_t size_t
cstdint: int16_t int32_t int64_t int8_t uint16_t uint32_t uint64_t uint8_t
cstring: memcmp memcpy memmove memset strlen
deque: deque
exception: exception exception_ptr rethrow_exception
functional: function hash
initializer_list: initializer_list
istream: istream
iterator: random_access_iterator_tag
limits: numeric_limits
map: erase_if map multimap
memory: destroy_at make_shared make_unique shared_ptr unique_ptr weak_ptr
memory_resource: pmr
new: bad_alloc new_handler nothrow
optional: nullopt optional
ostream: ostream
set: erase_if multiset set
span: span
sstream: istringstream ostringstream
stdexcept: logic_error out_of_range runtime_error
string: string to_string
string_view: string_view
tuple: apply get make_tuple tie tuple tuple_size_v
type_traits: conditional_t false_type has_unique_object_representations_v is_array_v is_constructible_v is_convertible_v
type_traits: is_enum_v is_integral_v is_nothrow_default_constructible_v is_pointer_v is_same_v is_scalar_v is_signed_v is_trivially_copyable_v
type_traits: is_trivially_destructible_v is_void_v make_unsigned_t remove_cvref_t true_type type_identity
type_traits: underlying_type_t
typeinfo: type_info
unordered_map: erase_if unordered_map unordered_multimap
unordered_set: unordered_set
utility: cmp_greater cmp_less exchange forward get in_range index_sequence index_sequence_for move pair swap
variant: get variant
vector: erase_if vector
)";

std::map<std::string, std::set<std::string>> headersOfNames() {
  std::map<std::string, std::set<std::string>> headers;
  std::istringstream lines(names);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos) {
      continue;
    }
    std::istringstream words(line.substr(colon + 1));
    for (std::string word; words >> word;) {
      headers[word].insert(line.substr(0, colon));
    }
  }
  return headers;
}

bool inWord(char c) {
  return c == '_' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The names of the standard library in a line: what follows "std::", and the integers of fixed width that may
// stand without it.
std::set<std::string> namesIn(std::string line) {
  line = line.substr(0, line.find("//"));
  line = test::replaced(line, R"("(\\.|[^"\\])*")", R"("")");
  std::set<std::string> found;
  for (std::size_t at = 0; at < line.size();) {
    if (!inWord(line[at])) {
      ++at;
      continue;
    }
    const std::size_t end =
        std::find_if_not(line.begin() + static_cast<std::ptrdiff_t>(at), line.end(), inWord) - line.begin();
    const std::string word = line.substr(at, end - at);
    const bool qualified = at >= 2 && line.compare(at - 2, 2, "::") == 0;
    const bool standard =
        at >= 5 && line.compare(at - 5, 5, "std::") == 0 && (at == 5 || !inWord(line[at - 6]));
    const bool fixed = word.ends_with("_t") && (word.starts_with("int") || word.starts_with("uint")) &&
                       word.find_first_of("123468") != std::string::npos;
    if (standard || (fixed && !qualified)) {
      found.insert(word);
    }
    at = end;
  }
  return found;
}

// "FILE: std::NAME needs #include <HEADER> there" for what the headers below the root use and do not include.
std::string missing(const fs::path& root, const std::vector<std::string>& rooms) {
  const std::map<std::string, std::set<std::string>> known = headersOfNames();
  std::set<std::string> lines;
  for (const std::string& room : rooms) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root / room)) {
      if (entry.path().extension() != ".h") {
        continue;
      }
      std::set<std::string> used;
      std::set<std::string> included;
      std::ifstream in(entry.path());
      for (std::string line; std::getline(in, line);) {
        used.merge(namesIn(line));
        if (line.starts_with("#include <")) {
          included.insert(line.substr(10, line.find('>') - 10));
        }
      }
      for (const std::string& name : used) {
        std::string line = fs::relative(entry.path(), root).string() + ": std::" + name;
        const auto headers = known.find(name);
        if (headers == known.end()) {
          lines.insert(line +
                       " is new here: add it to the names in test/include_names_test.cpp, at its header");
        } else if (std::none_of(headers->second.begin(), headers->second.end(),
                                [&](const std::string& header) { return included.contains(header); })) {
          lines.insert(line + " needs #include <" + *headers->second.begin() + "> there");
        }
      }
    }
  }
  std::string text;
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  return text;
}

TEST(IncludeNames, HeadersIncludeWhatTheyNameOfTheStandardLibrary) {
  EXPECT_EQ(missing(XPACL_SOURCE_DIR, {"platform", "XpAclTcam", "sim", "packet", "agent", "verify", "tool"}),
            "");
}

TEST(IncludeNames, WhatIsMissingIsSeen) {
  const fs::path folder = test::newTempFolder("include_names_test");
  fs::create_directory(folder / "room");
  std::ofstream(folder / "room" / "A.h") << "#pragma once\n"
                                            "#include <string> // and a word of why\n"
                                            "#include \"room/B.h\"\n"
                                            "std::string text(std::string_view, uint8_t); // std::map\n"
                                            "inline auto said() { return \"std::set\"; }\n"
                                            "using Tuple = std::tuple<int8_t, my::uint64_t>;\n";
  std::ofstream(folder / "room" / "B.h")
      << "#pragma once\n"
         "#include <array>\n"
         "#include <string_view>\n"
         "inline int first(std::array<int, 2> a) { return std::get<0>(a); }\n"
         "using Late = std::jthread;\n";
  EXPECT_EQ(missing(folder, {"room"}), "room/A.h: std::int8_t needs #include <cstdint> there\n"
                                       "room/A.h: std::string_view needs #include <string_view> there\n"
                                       "room/A.h: std::tuple needs #include <tuple> there\n"
                                       "room/A.h: std::uint8_t needs #include <cstdint> there\n"
                                       "room/B.h: std::jthread is new here: add it to the names in "
                                       "test/include_names_test.cpp, at its header\n");
  fs::remove_all(folder);
}

} // namespace
