#pragma once

#include "agent/config/ConfigModel.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Reads a configuration into the model of ConfigModel.h.
//
// The life of a line: the first pass walks over the text once, follows its stanzas (lists, groups,
// interfaces) and notes where every entry stands. Entries that a later line deletes or replaces go
// away here, with whatever is wrong in them. The second pass parses the entries that are left, when
// every object group is known and every list knows whether it is applied; what a row cannot express is
// an error in a list that is applied and a warning in one that is not. Both passes are linear in the
// size of the text.
//
// No input makes these functions throw (but std::bad_alloc) or recurse without bound.

namespace agent {

enum class InputFormat : uint8_t { // what is to be read
  automatic,                       // by the first lines of the text
  cli,                             // router and switch configuration text
  classbench,                      // filter sets: "@src/len dst/len lo : hi lo : hi proto/mask flags/mask"
  openconfig                       // documents of the OpenConfig models in JSON
};
// "auto", "cli", "classbench", "openconfig".
const char* inputFormatName(InputFormat format);
std::optional<InputFormat> inputFormatFromName(std::string_view name);

struct ReadOptions { // how to read
  InputFormat format = InputFormat::automatic;
  bool strict = false; // warnings become errors
  // The caller goes on with the lists that have no errors. The reader itself always answers all that
  // it could read; with this flag it also names, as warnings, the bindings that it had to drop.
  bool keepGoing = false;
  // "TABLE=ROWS", overriding `hardware tcam` lines; rows 0..maxTableRows.
  std::vector<std::string> tcam;
};

// Reads a file. What cannot be read (missing, a directory, binary, larger than maxConfigOctets) is a
// configuration with `readable` false, one error and nothing else.
Config readConfig(const std::string& path, const ReadOptions& options = {});

// The same for a text; `fileName` stands in the places of the diagnostics.
Config readConfigText(std::string_view text, const std::string& fileName, const ReadOptions& options = {});

constexpr size_t maxConfigOctets = size_t{256} << 20; // larger files are refused

// The most alternatives that one line may expand to: no table has more rows.
constexpr uint64_t maxLineAlternatives = maxTableRows;
// The most that all lines of a file together may expand to, and the most members that the object groups
// in use may have together; bounds the memory that a hostile file can ask for.
constexpr uint64_t maxFileAlternatives = 1000000;

// The configuration as configuration text; reading it again gives the same rules, sequence numbers,
// bindings, VLANs, table sizes and chips. Lines with several alternatives are written with object
// groups. What the text form has no words for (a ClassBench filter that compares ports of no particular
// protocol) is left out, leaves a remark in its place and is named in `losses` when that is given.
std::string toText(const Config& config, std::vector<std::string>* losses = nullptr);

// One alternative as it would stand behind permit or deny:
// "tcp 10.0.0.0 0.0.0.255 any range 80 90 established".
std::string describe(const Criteria& criteria, Family family);

} // namespace agent
