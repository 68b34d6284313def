#include "test/Patterns.h"
#include "test/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

// Who may include whom, checked against docs/include-rules.txt: the direction between the rooms is
// what lets the library be built into another agent and the simulation be replaced by a real chip,
// and one convenient #include is all it takes to lose it.

namespace {

namespace fs = std::filesystem;

struct RoomRule {
  std::string text;                  // the line of the rules file, blanks folded
  std::vector<std::string> rooms;    // rooms that may be included
  std::vector<std::string> external; // beginnings of outside headers that may be included
  bool anyRoom = false;
  bool anyExternal = false;
};

// True when `path` is `folder` or lies below it.
bool isWithin(const std::string& path, const std::string& folder) {
  return path == folder ||
         (path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/');
}

class IncludeRules {
public:
  explicit IncludeRules(std::istream& in) {
    std::string line;
    while (std::getline(in, line)) {
      line = line.substr(0, line.find('#'));
      const std::size_t colon = line.find(':');
      if (colon == std::string::npos) {
        continue;
      }
      RoomRule rule;
      std::istringstream words(line.substr(colon + 1));
      const std::string room = line.substr(0, colon);
      rule.text = room + ":";
      for (std::string word; words >> word;) {
        rule.text += " " + word;
        permit(rule, word);
      }
      rooms_[room] = rule;
    }
  }

  // The longest room that holds `path`, a path relative to the root of the tree.
  std::optional<std::string> roomOf(const std::string& path) const {
    std::optional<std::string> found;
    for (const auto& [room, rule] : rooms_) {
      if (isWithin(path, room) && (!found || room.size() > found->size())) {
        found = room;
      }
    }
    return found;
  }

  const RoomRule& rule(const std::string& room) const { return rooms_.at(room); }
  const std::map<std::string, RoomRule>& rooms() const { return rooms_; }

private:
  static void permit(RoomRule& rule, const std::string& word) {
    if (word == "*") {
      rule.anyRoom = true;
    } else if (word == "<*>") {
      rule.anyExternal = true;
    } else if (word.front() == '<') {
      rule.external.push_back(word.substr(1, word.size() - 2));
    } else {
      rule.rooms.push_back(word);
    }
  }

  std::map<std::string, RoomRule> rooms_;
};

struct Include {
  std::string file; // relative to the root
  unsigned line = 0;
  std::string directive; // as written: "\"sim/Chip.h\"" or "<vector>"
  std::string name() const { return directive.substr(1, directive.size() - 2); }
};

// All includes of the C++ files below `root`, in the order of file names; build folders are no rooms.
std::vector<Include> readIncludes(const fs::path& root) {
  static const std::string form = R"(^\s*#\s*include\s*(\S.*?)\s*(//.*)?$)";
  std::vector<std::string> files;
  for (const fs::directory_entry& top : fs::directory_iterator(root)) {
    const std::string name = top.path().filename().string();
    if (!top.is_directory() || name.starts_with(".") || name.starts_with("build") || name == "out") {
      continue;
    }
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(top)) {
      const std::string extension = entry.path().extension().string();
      if (extension == ".h" || extension == ".cpp") {
        files.push_back(fs::relative(entry.path(), root).string());
      }
    }
  }
  std::sort(files.begin(), files.end());

  std::vector<Include> includes;
  for (const std::string& file : files) {
    std::ifstream in(root / file);
    std::string text;
    for (unsigned line = 1; std::getline(in, text); ++line) {
      const std::vector<std::string> match = test::matched(text, form);
      if (!match.empty()) {
        includes.push_back({file, line, match[1]});
      }
    }
  }
  return includes;
}

// The file of the tree that an include reaches: beside the including file (quoted form only), below
// platform/, or below the root. Empty when it is none of ours.
std::string resolve(const fs::path& root, const Include& include) {
  std::vector<fs::path> places{fs::path("platform"), fs::path()};
  if (include.directive.front() == '"') {
    places.insert(places.begin(), fs::path(include.file).parent_path());
  }
  for (const fs::path& place : places) {
    const fs::path candidate = (place / include.name()).lexically_normal();
    if (fs::is_regular_file(root / candidate)) {
      return candidate.string();
    }
  }
  return {};
}

// Standard headers have neither a folder nor an extension; <string.h> and the like have a C++ name.
bool isStandardHeader(const std::string& name) {
  return name.find_first_of("./") == std::string::npos;
}

// Why the include is not permitted, or empty.
std::string fault(const IncludeRules& rules, const fs::path& root, const Include& include) {
  const bool quoted = include.directive.front() == '"';
  if (!quoted && include.directive.front() != '<') {
    return "an include must name its file";
  }
  const std::optional<std::string> room = rules.roomOf(include.file);
  if (!room) {
    return "its folder is no room of the rules";
  }
  const RoomRule& rule = rules.rule(*room);
  const std::string target = resolve(root, include);
  if (target.empty()) {
    const bool permitted =
        isStandardHeader(include.name()) || rule.anyExternal ||
        std::any_of(rule.external.begin(), rule.external.end(),
                    [&](const std::string& prefix) { return include.name().starts_with(prefix); });
    if (quoted) {
      return "there is no such file";
    }
    return permitted ? "" : "the rule is \"" + rule.text + "\"";
  }
  const std::optional<std::string> targetRoom = rules.roomOf(target);
  if (!targetRoom) {
    return "the folder of " + target + " is no room of the rules";
  }
  const bool permitted = *targetRoom == *room || rule.anyRoom ||
                         std::any_of(rule.rooms.begin(), rule.rooms.end(), [&](const std::string& allowed) {
                           return isWithin(*targetRoom, allowed);
                         });
  return permitted ? "" : "the rule is \"" + rule.text + "\"";
}

// All faults of a tree, one "file:line: #include ... : reason" a line.
std::string faults(const IncludeRules& rules, const fs::path& root) {
  std::string text;
  for (const Include& include : readIncludes(root)) {
    const std::string reason = fault(rules, root, include);
    if (!reason.empty()) {
      text += include.file + ":" + std::to_string(include.line) + ": #include " + include.directive + ": " +
              reason + "\n";
    }
  }
  return text;
}

IncludeRules rulesOf(const fs::path& file) {
  std::ifstream in(file);
  EXPECT_TRUE(in) << "cannot read " << file;
  return IncludeRules(in);
}

const fs::path sourceRoot = XPACL_SOURCE_DIR;
const fs::path rulesFile = sourceRoot / "docs" / "include-rules.txt";

// A throw-away tree with files of given text.
class FakeTree {
public:
  FakeTree() : root_(test::newTempFolder("xpacl_include_rules")) {}
  ~FakeTree() { fs::remove_all(root_); }
  FakeTree(const FakeTree&) = delete;
  FakeTree& operator=(const FakeTree&) = delete;

  void fileIs(const std::string& path, const std::string& text) {
    fs::create_directories((root_ / path).parent_path());
    std::ofstream(root_ / path) << text;
  }
  const fs::path& root() const { return root_; }

private:
  fs::path root_;
};

} // namespace

TEST(IncludeRules, everyIncludeOfTheTreeIsPermitted) {
  EXPECT_EQ(faults(rulesOf(rulesFile), sourceRoot), "");
}

TEST(IncludeRules, treeIsReallyRead) {
  // Every room has includes, so a rules file or a walk gone wrong cannot pass as a clean tree.
  const IncludeRules rules = rulesOf(rulesFile);
  std::map<std::string, unsigned> counts;
  for (const Include& include : readIncludes(sourceRoot)) {
    ++counts[rules.roomOf(include.file).value_or("none")];
  }
  std::string silent;
  for (const auto& [room, rule] : rules.rooms()) {
    if (counts[room] == 0) {
      silent += room + "\n";
    }
  }
  EXPECT_EQ(silent, "");
}

TEST(IncludeRules, rulesHaveNoCycle) {
  // Rooms that may include each other are one room with two names.
  const IncludeRules rules = rulesOf(rulesFile);
  std::map<std::string, std::vector<std::string>> reaches;
  for (const auto& [room, rule] : rules.rooms()) {
    for (const auto& [other, otherRule] : rules.rooms()) {
      for (const std::string& allowed : rule.rooms) {
        if (isWithin(other, allowed)) {
          reaches[room].push_back(other);
        }
      }
    }
  }
  std::string cycles;
  for (const auto& [start, first] : reaches) {
    std::vector<std::string> open = first;
    std::vector<std::string> seen;
    while (!open.empty()) {
      const std::string room = open.back();
      open.pop_back();
      if (std::find(seen.begin(), seen.end(), room) != seen.end()) {
        continue;
      }
      seen.push_back(room);
      open.insert(open.end(), reaches[room].begin(), reaches[room].end());
    }
    if (std::find(seen.begin(), seen.end(), start) != seen.end()) {
      cycles += start + "\n";
    }
  }
  EXPECT_EQ(cycles, "");
}

TEST(IncludeRules, wrongIncludesAreNamed) {
  FakeTree tree;
  tree.fileIs("platform/Vane/Ptr.h", "#include <vector>\n");
  tree.fileIs("platform/Acl/Types.h", "#include \"Vane/Ptr.h\"\n#include <Vane/Ptr.h>\n");
  tree.fileIs("sim/Chip.h", "#include \"Acl/Types.h\"\n\n  #  include <pcap.h> // captures\n");
  tree.fileIs("agent/config/Model.h", "#include \"agent/Driver.h\"\n");
  tree.fileIs("agent/Driver.h", "#include \"config/Model.h\"\n#include \"sim/Chip.h\"\n");
  tree.fileIs("verify/Sets.cpp", "#include \"agent/config/Model.h\"\n#include \"agent/Driver.h\"\n"
                                 "#include \"Gone.h\"\n#include SOME_MACRO\n");
  tree.fileIs("loose/Thing.cpp", "#include <map>\n");
  tree.fileIs("tool/main.cpp", "#include \"agent/Driver.h\"\n#include <CLI/CLI.hpp>\n");
  tree.fileIs("tool/Show.cpp", "#include \"agent/Driver.h\"\n#include <CLI/CLI.hpp>\n");
  std::istringstream rules("# rooms\nplatform/Vane:\nplatform/Acl: platform/Vane\nsim:  platform\n"
                           "agent/config:\nagent: agent/config platform\nverify: agent/config\ntool: *\n"
                           "tool/main.cpp: * <*>\n");
  EXPECT_EQ(faults(IncludeRules(rules), tree.root()),
            "agent/Driver.h:2: #include \"sim/Chip.h\": the rule is \"agent: agent/config platform\"\n"
            "agent/config/Model.h:1: #include \"agent/Driver.h\": the rule is \"agent/config:\"\n"
            "loose/Thing.cpp:1: #include <map>: its folder is no room of the rules\n"
            "sim/Chip.h:3: #include <pcap.h>: the rule is \"sim: platform\"\n"
            "tool/Show.cpp:2: #include <CLI/CLI.hpp>: the rule is \"tool: *\"\n"
            "verify/Sets.cpp:2: #include \"agent/Driver.h\": the rule is \"verify: agent/config\"\n"
            "verify/Sets.cpp:3: #include \"Gone.h\": there is no such file\n"
            "verify/Sets.cpp:4: #include SOME_MACRO: an include must name its file\n");
}
