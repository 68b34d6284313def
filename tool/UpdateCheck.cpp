#include "tool/UpdateCheck.h"
#include "tool/Common.h"

#include <algorithm>

namespace tool {

UpdateCheck::UpdateCheck(Session& session, Path path, const std::vector<packet::Packet>& packets,
                         Verdicts verdicts)
    : session_(session), path_(std::move(path)), packets_(packets), verdicts_(std::move(verdicts)),
      metBlock_(packets.size(), false) {}

agent::ApplyResult UpdateCheck::run(const agent::Config& config) {
  sim::System& system = session_.system();
  const uint64_t writesBefore = system.numWrites();
  rowsPeak_ = rowsInUse();
  system.afterWriteIs([&](const sim::Call& call) {
    write_ = system.numWrites() - writesBefore;
    call_ = &call;
    rowsPeak_ = std::max(rowsPeak_, rowsInUse());
    betweenWrites();
  });
  const agent::ApplyResult result = session_.agent().apply(config);
  system.afterWriteIs({});
  call_ = nullptr;
  if (result.ok) {
    session_.configIs(config);
    while (next_ < packets_.size()) {
      judgeNext();
    }
  }
  return result;
}

uint64_t UpdateCheck::blocked() const {
  return static_cast<uint64_t>(std::count(metBlock_.begin(), metBlock_.end(), true));
}

uint32_t UpdateCheck::rowsInUse() const {
  uint32_t rows = 0;
  for (const auto& [number, device] : session_.system().devices()) {
    for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
      rows += usedRows(*device->tcam(table.table));
    }
  }
  return rows;
}

void UpdateCheck::betweenWrites() {
  if (every_) {
    for (std::size_t i = 0; i < packets_.size(); ++i) {
      classify(i, session_.judge(packets_[i], path_.in, path_.outPtr(), path_.vlan, false));
    }
  }
  if (next_ < packets_.size()) {
    judgeNext();
  }
}

void UpdateCheck::judgeNext() {
  const std::size_t i = next_++;
  const sim::Verdict verdict = session_.judge(packets_[i], path_.in, path_.outPtr(), path_.vlan);
  for (const sim::LookupResult& lookup : verdict.lookups()) {
    hits_.hit(ownerOf(session_, lookup, path_.in, path_.outPtr()));
  }
  const Is is = classify(i, verdict);
  permit_ += verdict.permit() ? 1 : 0;
  if (packetHook_) {
    packetHook_(i, verdict.permit(), is);
  }
}

UpdateCheck::Is UpdateCheck::classify(std::size_t i, const sim::Verdict& verdict) {
  const bool permit = verdict.permit();
  if (metBlock(verdict)) {
    metBlock_[i] = true;
    if (!permit) {
      return Is::blocked;
    }
  }
  if (permit == verdicts_.old[i]) {
    return Is::old;
  }
  if (permit == verdicts_.fresh[i]) {
    return Is::fresh;
  }
  find(i, verdict);
  return Is::neither;
}

// Names the lookup that decided: the first that drops, or the last one when all let it pass.
void UpdateCheck::find(std::size_t i, const sim::Verdict& verdict) {
  Finding finding;
  finding.write = write_;
  finding.call = call_ == nullptr ? "after the last write" : call_->text();
  finding.packet = i + 1;
  finding.verdict = verdict.permit();
  finding.old = verdicts_.old[i];
  finding.fresh = verdicts_.fresh[i];
  for (const sim::LookupResult& lookup : verdict.lookups()) {
    finding.table = stringValue(tcamType(lookup.table)).charPtr();
    finding.row = isHit(lookup) ? std::optional<uint32_t>(lookup.row) : std::nullopt;
    if (!lookup.forward) {
      break;
    }
  }
  findings_.push_back(finding);
}

std::string findingText(const UpdateCheck::Finding& finding) {
  return "write " + std::to_string(finding.write) + " (" + finding.call + "): packet " +
         std::to_string(finding.packet) + ": " + permitWord(finding.verdict) + ", old " +
         permitWord(finding.old) + ", new " + permitWord(finding.fresh) + ", " + finding.table + " row " +
         (finding.row ? std::to_string(*finding.row) : "none");
}

} // namespace tool
