#include "tool/UpdateProofReport.h"

#include "packet/PacketText.h"

#include "tool/Certificate.h"
#include "tool/Common.h"
#include "tool/JsonDocument.h"
#include "tool/UpdateProof.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

namespace tool {

namespace {

constexpr std::size_t placesShown = 20;

constexpr PlaceVerdict shownVerdicts[] = {PlaceVerdict::same, PlaceVerdict::old, PlaceVerdict::fresh,
                                          PlaceVerdict::between, PlaceVerdict::blocked};

std::string countText(uint64_t count, const char* one, const char* more) {
  return std::to_string(count) + " " + (count == 1 ? one : more);
}

class ProofReport {
public:
  ProofReport(const Change& change, const UpdateProof& proof, const ProofOptions& options, double seconds)
      : change_(change), proof_(proof), options_(options), seconds_(seconds) {}

  void printText() const {
    std::cout << bold(options_.from + " -> " + options_.to) << "\n"
              << "  " << countText(change_.writes.size(), "write", "writes") << " to "
              << countText(change_.chips.size(), "chip", "chips") << "; "
              << countText(proof_.places().size(), "place", "places") << " where packets can be judged\n";
    printPlaces();
    if (proof_.finding()) {
      std::cout << "\n" << red("refuted") << ": " << proof_.findingText() << "\n";
    } else {
      printCounts();
      std::cout << "\n"
                << green("proven for all packets: every verdict is the old one, the new one, or the drop of "
                         "a blocked interface")
                << "\n";
    }
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.2f", seconds_);
    std::cout << countText(proof_.numItems(), "different row or line", "different rows and lines") << ", "
              << countText(proof_.numCombined(), "sequence", "sequences") << " of them combined, "
              << proof_.nodes() << " nodes, " << memoryText(proof_.peakMemory()) << ", " << seconds << " s\n";
    if (!options_.certificate.empty() && !proof_.finding()) {
      std::cout << "certificate: " << options_.certificate << "\n";
    }
  }

  void printJson() const {
    Json judged = Json::object();
    for (const PlaceVerdict verdict : shownVerdicts) {
      judged[verdictWord(verdict)] = proof_.numJudged(verdict);
    }
    const bool proven = !proof_.finding();
    tool::printJson("update",
                    {{"proven", proven},
                     {"writes", change_.writes.size()},
                     {"places", proof_.places().size()},
                     {"unaffected", proof_.numUnaffected()},
                     {"judged", judged},
                     {"mixed", proof_.numMixed()},
                     {"ways", proof_.numWays()},
                     {"items", proof_.numItems()},
                     {"combined", proof_.numCombined()},
                     {"nodes", proof_.nodes()},
                     {"memory", proof_.peakMemory()},
                     {"seconds", seconds_},
                     {"certificate",
                      proven && !options_.certificate.empty() ? Json(options_.certificate) : Json(nullptr)},
                     {"finding", proven ? Json(nullptr) : findingJson()}});
  }

private:
  void printPlaces() const {
    const auto list = [](const PlaceSide& side) {
      return !side.there ? std::string("-") : side.list.empty() ? std::string("none") : side.list;
    };
    std::vector<std::vector<std::string>> rows{{"PLACE", "ENTRY", "OLD", "NEW"}};
    std::size_t withList = 0;
    for (const ProofPlace& place : proof_.places()) {
      if (place.old.list.empty() && place.fresh.list.empty()) {
        continue;
      }
      if (++withList <= placesShown) {
        rows.push_back({place.text(), place.entryText(), list(place.old), list(place.fresh)});
      }
    }
    if (rows.size() > 1) {
      std::cout << "\n" << columns(rows, "  ");
    }
    const std::size_t without = proof_.places().size() - withList;
    if (withList > placesShown) {
      std::cout << "  and " << withList - placesShown << " more with lists\n";
    }
    if (without > 0) {
      std::cout << "  and " << countText(without, "place", "places")
                << " without a list, where the chip looks up at some time\n";
    }
  }

  void printCounts() const {
    const uint64_t affecting = change_.writes.size() - proof_.numUnaffected();
    std::cout << "\n  " << countText(proof_.numUnaffected(), "write changes", "writes change")
              << " nothing that is in force\n";
    if (affecting == 0) {
      return;
    }
    std::cout << "  after " << (affecting == 1 ? "the other one " : "each of the other ")
              << (affecting == 1 ? "" : std::to_string(affecting) + " ")
              << "the places that it concerns were judged:";
    const char* separator = " ";
    for (const PlaceVerdict verdict : shownVerdicts) {
      if (proof_.numJudged(verdict) != 0) {
        std::cout << separator << proof_.numJudged(verdict) << " " << verdictWord(verdict);
        separator = ", ";
      }
    }
    std::cout << (proof_.numJudged() == 0 ? " none that packets reach" : "") << "\n";
    if (proof_.numMixed() == 0) {
      std::cout << "  at no time one place is ahead of its old list while another is behind its new one\n";
    } else {
      std::cout << "  after " << countText(proof_.numMixed(), "write", "writes")
                << " one place is ahead of its old list while another is behind its new one; "
                << countText(proof_.numWays(), "way", "ways") << " through both were judged\n";
    }
  }

  Json stepJson(const ProofStep& step) const {
    return {{"place", placeJson(proof_.places()[step.place], step.place)},
            {"row", step.row ? Json(*step.row) : Json(nullptr)},
            {"blocked", step.blocked},
            {"now", permitWord(step.now)},
            {"old", permitWord(step.old)},
            {"new", permitWord(step.fresh)}};
  }

  // Of a way through several places: the verdicts of the whole, and the places one by one.
  Json findingJson() const {
    const ProofFinding& finding = *proof_.finding();
    const bool during = finding.when == ProofFinding::When::during;
    Json json{{"when", during                                       ? "during"
                       : finding.when == ProofFinding::When::before ? "before"
                                                                    : "after"},
              {"write", during ? Json(finding.write) : Json(nullptr)},
              {"call", during ? Json(writeText(change_.writes[finding.write - 1])) : Json(nullptr)},
              {"witness", packet::toText(finding.witness)}};
    if (!finding.isWay()) {
      json.update(stepJson(finding.steps.front()));
      return json;
    }
    json["now"] = permitWord(finding.now());
    json["old"] = permitWord(finding.old());
    json["new"] = permitWord(finding.fresh());
    json["from"] = finding.from;
    json["to"] = finding.to.empty() ? Json(nullptr) : Json(finding.to);
    json["vlan"] = finding.vlan;
    json["way"] = Json::array();
    for (const ProofStep& step : finding.steps) {
      json["way"].push_back(stepJson(step));
    }
    return json;
  }

  const Change& change_;
  const UpdateProof& proof_;
  const ProofOptions& options_;
  double seconds_;
};

void writeCertificate(const Change& change, const UpdateProof& proof, const ProofOptions& options) {
  const Certificate certificate = certificateOf(change, proof, {options.from, sha256OfFile(options.from)},
                                                {options.to, sha256OfFile(options.to)});
  std::ofstream file(options.certificate, std::ios::binary);
  file << certificate.text();
  file.close();
  if (!file) {
    throw Exit(exitBadInput, options.certificate + ": cannot be written: " + std::strerror(errno));
  }
}

// About as many steps as there will be: writes, lines, and as many rows.
uint64_t steps(const Change& change, const agent::Config& from, const agent::Config& to) {
  uint64_t steps = change.writes.size();
  for (const agent::Config* const config : {&from, &to}) {
    for (const agent::AccessList& list : config->lists) {
      steps += 2 * list.rules.size();
    }
  }
  return steps;
}

} // namespace

int proveUpdate(const agent::Config& from, const agent::Config& to, const ProofOptions& options) {
  const auto begin = std::chrono::steady_clock::now();
  Session session(from, options, {&to});
  agent::ApplyResult result;
  const Change change = recordChange(session, to, result);
  if (!result.ok) {
    std::string message = options.to + " does not fit beside " + options.from + "; nothing was written";
    for (const std::string& error : result.errors) {
      message += "\n  " + error;
    }
    throw Exit(exitNo, message);
  }
  UpdateProof proof(change, from, to, options.memoryBytes());
  bool proven = false;
  {
    Progress progress("writes, rows and lines looked at:", steps(change, from, to));
    uint64_t done = 0;
    proof.tickIs([&] { progress.at(++done); });
    proven = proof.run();
    proof.tickIs({});
  }
  if (proven && !options.certificate.empty()) {
    writeCertificate(change, proof, options);
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  const ProofReport report(change, proof, options, seconds);
  if (options.json) {
    report.printJson();
  } else {
    report.printText();
  }
  return proven ? exitDone : exitNo;
}

} // namespace tool
