#pragma once

#include "agent/Agent.h"
#include "packet/Packet.h"
#include "sim/Pipeline.h"
#include "sim/System.h"
#include "tool/Hits.h"
#include "tool/Session.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// The watch over a change: packets are judged between the writes to the chip, and every verdict must be that
// of the old configuration, that of the new one, or the drop of a blocked interface.

namespace tool {

// Where packets enter and leave.
struct Path {
  PortRef in;
  std::optional<PortRef> out;
  std::optional<uint16_t> vlan; // of frames without a tag
  const PortRef* outPtr() const { return out ? &*out : nullptr; }
};

// What every packet's verdict is under each of the two configurations.
struct Verdicts {
  std::vector<bool> old;
  std::vector<bool> fresh;
};

class UpdateCheck {
public:
  enum class Is : uint8_t { old, fresh, blocked, neither };

  // A verdict that is none of those that are allowed.
  struct Finding {
    uint64_t write = 0;          // the last one before the packet, from 1; 0: before the first
    std::string call;            // that write
    uint64_t packet = 0;         // from 1
    std::string table;           // of the lookup that decided
    std::optional<uint32_t> row; // nothing: no row hit
    bool verdict = false;        // true is permit
    bool old = false;
    bool fresh = false;
  };
  // Called for each packet of the stream, by its index.
  using PacketHook = std::function<void(std::size_t index, bool permit, Is is)>;

  // The session has the old configuration. `packets` and `verdicts` are of equal length.
  UpdateCheck(Session& session, Path path, const std::vector<packet::Packet>& packets, Verdicts verdicts);

  // Also judges every packet after every write, without counting.
  void everyIs(bool every) { every_ = every; }
  void packetHookIs(PacketHook hook) { packetHook_ = std::move(hook); }

  // Changes to `config`, one packet between any two writes; the packets that are left are judged when the
  // last write is done. A change that does not fit judges none.
  agent::ApplyResult run(const agent::Config& config);

  uint64_t writes() const { return write_; }
  uint64_t permitted() const { return permit_; }
  uint64_t blocked() const; // packets that ever met a blocked interface
  uint32_t rowsPeak() const { return rowsPeak_; }
  const Hits& hits() const { return hits_; }
  const std::vector<Finding>& findings() const { return findings_; }

private:
  uint32_t rowsInUse() const;
  void betweenWrites();
  void judgeNext();
  Is classify(std::size_t i, const sim::Verdict& verdict);
  void find(std::size_t i, const sim::Verdict& verdict);

  Session& session_;
  Path path_;
  const std::vector<packet::Packet>& packets_;
  Verdicts verdicts_;
  bool every_ = false;
  PacketHook packetHook_;
  const sim::Call* call_ = nullptr;
  uint64_t write_ = 0;
  std::size_t next_ = 0;
  uint64_t permit_ = 0;
  std::vector<bool> metBlock_; // by packet
  uint32_t rowsPeak_ = 0;
  Hits hits_;
  std::vector<Finding> findings_;
};

// "finding: write 3 (setEntryValid d0 ...): packet 2: deny, old permit, new permit, TACL_V4_IACL row 599".
std::string findingText(const UpdateCheck::Finding& finding);

} // namespace tool
