#pragma once

#include "agent/config/ConfigModel.h"
#include "tool/Replay.h"
#include "tool/Show.h"
#include "tool/Trace.h"
#include "tool/Update.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

// Scenarios as text: one step a line. Words are separated by blanks; one with blanks in it stands in double
// quotes. A word that begins with '#' begins a comment, except behind `echo`. File names are relative to the
// script's folder.
//
//   load FILE                          start the switch, or change it hitlessly to this configuration
//   update FILE --pcap FILE ...        the same with packets between the writes, with the options of update
//   replay ...                         with the options of replay
//   trace PACKET ... | show WHAT ...   with the options of trace and show
//   block IF | unblock IF              whatever lists the interface has
//   chip add N | chip remove N         chips are numbered from 0
//   pair add IF VLAN | pair delete IF VLAN
//   fault call N status S              the N-th SDK call from now, reads included, answers S
//   expect permit N deny N             of the last replay or update; one of the two may be left out
//   expect blocked N                   packets of it that met a blocked interface
//   expect hits ACL LINE N [in|out]    of it; LINE is the line of the configuration file, as a replay prints
//   it expect rows TABLE N [chip N]       rows in use, without the default entry; chip 0 when left out echo
//   TEXT                          prints the rest of the line
//
// A script is read whole before anything runs, with everything wrong in it found at once: unknown steps,
// words that are missing or too many, captures that cannot be read, steps that come before the first load,
// and expectations that come before the first replay.

namespace tool {

struct LoadStep {
  std::string file;
  unsigned fileColumn = 0;
};
struct UpdateStep {
  UpdateOptions options; // `to` is the file
  unsigned fileColumn = 0;
};
struct ReplayStep {
  ReplayOptions options;
};
struct TraceStep {
  TraceOptions options;
};
struct ShowStep {
  ShowOptions options;
};
struct BlockStep {
  std::string interface;
  bool block = false;
};
struct ChipStep {
  uint64_t chip = 0;
  bool add = false;
};
struct PairStep {
  std::string port;
  uint64_t vlan = 0;
  bool add = false;
};
struct FaultStep {
  uint64_t call = 0; // from 1
  int status = 0;
};
struct VerdictsExpected {
  std::optional<uint64_t> permit;
  std::optional<uint64_t> deny;
};
struct BlockedExpected {
  uint64_t packets = 0;
};
struct HitsExpected {
  std::string list;
  uint64_t line = 0; // of the configuration file
  uint64_t hits = 0;
  std::optional<agent::Direction> direction; // nothing: both together
};
struct RowsExpected {
  agent::Table table = agent::Table::ingressV4;
  uint64_t rows = 0;
  uint64_t chip = 0;
};
struct EchoStep {
  std::string text;
};

struct Step {
  agent::SourceLoc loc; // of its first word
  std::string text;     // without blanks around it and without comment
  std::variant<LoadStep, UpdateStep, ReplayStep, TraceStep, ShowStep, BlockStep, ChipStep, PairStep,
               FaultStep, VerdictsExpected, BlockedExpected, HitsExpected, RowsExpected, EchoStep>
      act;
};

struct Script {
  std::vector<Step> steps;
  std::vector<agent::Diagnostic> errors; // in the order of the lines; when there are any, nothing should run
};

// Never throws (but std::bad_alloc): a file that cannot be read is an error, too.
Script readScript(const std::string& path);

} // namespace tool
