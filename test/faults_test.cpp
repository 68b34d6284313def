#include "test/FaultTrials.h"

#include "sim/ChipFile.h"
#include "sim/System.h"
#include "test/LongRuns.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

// A status at any call of any change. Each trial is a process of its own; the chips outlive it in a file
// mapping, as hardware would.

namespace {

using sim::Op;
using test::FaultOutcome;
using test::FaultScenario;
using test::FaultTrials;
using test::isLong;

// Of the calls that are tried in a short run: every so manieth, beginning with another one for each status.
uint64_t stride() {
#ifdef __SANITIZE_ADDRESS__
  return isLong() ? 1 : 97;
#else
  return isLong() ? 1 : 13;
#endif
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> all;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    all.push_back(line);
  }
  return all;
}

std::string operation(const std::string& line) {
  return line.substr(0, line.find(' '));
}

bool isOneOf(const std::string& line, std::initializer_list<Op> ops) {
  return std::any_of(ops.begin(), ops.end(), [&](Op op) { return operation(line) == opName(op); });
}

// The tables that are written by (VLAN, VIF): there 41 and 42 end the step at once.
bool isVifTable(const std::string& line) {
  return isOneOf(line, {Op::portVlanAdd, Op::portVlanWrite, Op::portVlanRemove, Op::egressAdd,
                        Op::egressWrite, Op::egressRemove, Op::egressLookup});
}

// Calls by which the agent reads the chips, at a restart and for counters: their answers are not between
// success and failure, they say what there is.
bool asks(const std::string& line) {
  return isOneOf(line, {Op::egressLookup, Op::egressRead, Op::portVlanRead, Op::portConfigRead,
                        Op::getNumOfEntry, Op::readCounter, Op::readEntry});
}

// All calls but those to the VIF tables.
std::vector<std::string> plainCalls(const std::vector<std::string>& calls) {
  std::vector<std::string> all;
  std::copy_if(calls.begin(), calls.end(), std::back_inserter(all),
               [](const std::string& line) { return !isVifTable(line); });
  return all;
}

// What stands in the chips but not in the other ones, either way. Entries of the VIF tables without their
// indexes, as "bd=10 evif=1 ...".
std::vector<std::string> differences(const std::string& image, const std::string& other) {
  std::multiset<std::string> all[2];
  for (const bool second : {false, true}) {
    const auto system = test::faultChips();
    sim::chipImageIs(*system, second ? other : image);
    for (const auto& [number, device] : system->devices()) {
      for (std::string line : lines(device->tablesText())) {
        const std::size_t key = std::min(line.find("bd="), line.find("vlan="));
        if (key != std::string::npos && line.find("TACL") == std::string::npos) {
          line.erase(0, key);
        }
        all[second].insert(std::to_string(number) + " " + line);
      }
    }
  }
  std::vector<std::string> text;
  std::set_symmetric_difference(all[0].begin(), all[0].end(), all[1].begin(), all[1].end(),
                                std::back_inserter(text));
  return text;
}

// All of them are about one (VLAN, VIF) of a chip.
bool aboutOnePair(const std::vector<std::string>& found) {
  std::set<std::string> pairs;
  for (const std::string& line : found) {
    const std::size_t vif = line.find("vif=");
    pairs.insert(vif == std::string::npos ? line : line.substr(0, line.find(' ', vif)));
  }
  return pairs.size() <= 1;
}

// A step that ended before the driver took down what stands where leaves an entry that it does not know of,
// or believes in one that is gone. When the same pair's turn comes again in the same change, the chip refuses
// the next write there, and the process ends as it does at any refusal.
bool endsAtTheSamePair(const FaultOutcome& outcome, const std::string& call) {
  const char* const manager = call.rfind("egress", 0) == 0 ? "egressBdEvifMgr" : "portVlanIvifMgr";
  return outcome.aborted() && outcome.errors.find(manager) != std::string::npos &&
         outcome.errors.find(" API ERROR ") != std::string::npos;
}

struct Tally {
  unsigned same = 0;  // the chips are as without the status
  unsigned other = 0; // what the step left out is left out, nothing else
  unsigned ended = 0; // the process ended at a later write to the same pair
};

class Statuses : public testing::TestWithParam<const char*> {};

void tryAccepted(FaultTrials& trials, const FaultOutcome& plain, std::size_t at, int status, bool execute,
                 Tally& tally) {
  const std::vector<std::string> calls = lines(plain.log);
  const std::string& call = calls[at];
  const FaultOutcome outcome = trials.run({.fault = {at + 1, status, false, execute, std::nullopt}});
  const std::string where = "call " + std::to_string(at + 1) + ", " + call + ", answers " +
                            std::to_string(status) + (execute ? "" : " and does nothing") + ": ";
  if (!execute && isOneOf(call, {Op::portVlanAdd, Op::egressAdd}) && status == XpXdk::statusNotPresent) {
    // Added, says the chip, and at no index.
    ASSERT_TRUE(outcome.aborted()) << where;
    ASSERT_NE(outcome.errors.find("numIndices != 0"), std::string::npos) << where << outcome.errors;
    ++tally.ended;
    return;
  }
  if (isVifTable(call) && endsAtTheSamePair(outcome, call)) {
    ++tally.ended;
    return;
  }
  ASSERT_TRUE(outcome.finished()) << where << outcome.errors;
  ASSERT_EQ(outcome.errors, "") << where;
  if (outcome.log == plain.log) {
    ASSERT_TRUE(outcome.image == plain.image) << where << "the chips differ";
    ++tally.same;
    return;
  }
  ++tally.other;
  if (isVifTable(call)) {
    // The step ended there, and so the pair's next step may be another one. Nothing else is.
    ASSERT_EQ(plainCalls(lines(outcome.log)), plainCalls(calls)) << where;
    ASSERT_TRUE(aboutOnePair(differences(outcome.image, plain.image)))
        << where << testing::PrintToString(differences(outcome.image, plain.image));
    return;
  }
  ASSERT_FALSE(execute) << where << "the calls are others";
  std::vector<std::string> expected = calls;
  expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(at));
  ASSERT_EQ(lines(outcome.log), expected) << where;
}

// 9, 41 and 42 go for success, whether the chip did as it was told or not.
TEST_P(Statuses, AcceptedOnesGoForSuccess) {
  FaultTrials trials(test::faultScenario(GetParam()));
  const FaultOutcome plain = trials.run({});
  ASSERT_TRUE(plain.finished()) << plain.errors;
  const std::vector<std::string> calls = lines(plain.log);
  Tally tally;
  std::size_t phase = 0;
  for (const int status : {9, 41, 42}) {
    for (const bool execute : {true, false}) {
      for (std::size_t at = phase++ % stride(); at < calls.size(); at += stride()) {
        if (asks(calls[at]) && (!execute || !isOneOf(calls[at], {Op::egressLookup}))) {
          continue;
        }
        tryAccepted(trials, plain, at, status, execute, tally);
        if (HasFatalFailure()) {
          return;
        }
      }
    }
  }
  std::cout << calls.size() << " calls; " << tally.same << " trials left the same chips, " << tally.other
            << " left out what the status left out, " << tally.ended << " ended at the same pair\n";
}

// Any other status: one line that names the call, and the process ends. What the chips forward from then on,
// one of the two policies forwards.
TEST_P(Statuses, OthersEndTheProcess) {
  FaultTrials trials(test::faultScenario(GetParam()));
  const FaultOutcome plain = trials.run({});
  const std::size_t calls = lines(plain.log).size();
  unsigned count = 0;
  std::size_t phase = 0;
  for (const int status : {XpXdk::statusInvalidArgument, 13}) {
    for (const bool execute : {true, false}) {
      for (std::size_t at = phase++ % stride(); at < calls; at += stride()) {
        // A counter that cannot be read has no hits.
        if (isOneOf(lines(plain.log)[at], {Op::readCounter})) {
          continue;
        }
        const FaultOutcome outcome = trials.run({.fault = {at + 1, status, false, execute, std::nullopt}});
        const std::string where = "call " + std::to_string(at + 1) + ", " + lines(plain.log)[at] + ": ";
        ASSERT_TRUE(outcome.aborted()) << where << outcome.errors;
        const std::string line = lines(outcome.errors).empty() ? "" : lines(outcome.errors).front();
        const std::string end = " API ERROR " + std::to_string(status);
        ASSERT_TRUE(line.size() > end.size() && line.compare(line.size() - end.size(), end.size(), end) == 0)
            << where << outcome.errors;
        ASSERT_NE(outcome.errors.find("Assertion \"!(true)\" failed."), std::string::npos)
            << where << outcome.errors;
        ASSERT_EQ(trials.leaks(outcome.image), "") << where << outcome.errors;
        ++count;
      }
    }
  }
  std::cout << calls << " calls, " << count << " processes ended; " << trials.numPackets()
            << " packets each\n";
}

std::vector<const char*> names() {
  std::vector<const char*> all;
  for (const FaultScenario& scenario : test::faultScenarios()) {
    all.push_back(scenario.name);
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(Changes, Statuses, testing::ValuesIn(names()), [](const auto& info) {
  std::string name = info.param;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return c == ' ' || c == '-'; }, '_');
  return name;
});

} // namespace
