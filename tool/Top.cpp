#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/JsonDocument.h"
#include "tool/ReportFeed.h"
#include "tool/Session.h"
#include "tool/TopScreen.h"
#include "tool/TopSnapshot.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <thread>
#include <unistd.h>

namespace tool {

namespace {

using Clock = std::chrono::steady_clock;

struct TopOptions : CommonOptions {
  std::string config;
  FeedOptions feed;
  double speed = 1;
  bool loop = false;
  bool once = false;
  double interval = 1;
  std::size_t lines = 20;
};

// The packets of a capture at the times that they were captured, as seen from the first.
class Player {
public:
  Player(CaptureFeed& feed, bool loop) : feed_(feed), loop_(loop) { read(); }

  // Judges the packets up to this time, or as many as can be judged in `patience`; false in the latter case.
  bool playTo(double seconds, Clock::duration patience) {
    constexpr uint64_t packetsBetweenLooks = 256;
    const Clock::time_point latest = Clock::now() + patience;
    while (!ended_ && at_ <= seconds) {
      read();
      if (feed_.counts().packets % packetsBetweenLooks == 0 && Clock::now() > latest) {
        return false;
      }
    }
    return true;
  }
  void playAll() {
    while (!ended_) {
      read();
    }
  }
  double seconds() const { return at_; }
  bool ended() const { return ended_; }

private:
  // A packet is judged when it is read, so the first one counts from the start.
  void read() {
    if (!feed_.advance()) {
      if (!loop_ || !any_) {
        ended_ = true;
        return;
      }
      feed_.rewind();
      // The next round begins where this one ends; captures of one moment do not stand still.
      constexpr double pause = 0.001;
      offset_ = at_ + pause;
      any_ = false;
      read();
      return;
    }
    if (!any_) {
      first_ = feed_.timeNs();
      any_ = true;
    }
    // Time stamps may go back; time does not.
    const double since = feed_.timeNs() < first_ ? 0 : static_cast<double>(feed_.timeNs() - first_) / 1e9;
    at_ = std::max(at_, offset_ + since);
  }

  CaptureFeed& feed_;
  const bool loop_;
  bool any_ = false;
  bool ended_ = false;
  uint64_t first_ = 0;
  double offset_ = 0;
  double at_ = 0;
};

class Top {
public:
  explicit Top(const TopOptions& options)
      : options_(options), session_(loadConfig(options.config, options), options),
        feed_(session_, options.feed), sampler_(session_, feed_), player_(feed_, options.loop && !isOnce()) {}

  int run() {
    if (isOnce()) {
      player_.playAll();
      print(sampler_.sample(player_.seconds(), true));
    } else if (options_.json) {
      stream();
    } else {
      live();
    }
    return exitDone;
  }

private:
  // What is no terminal gets one picture; machines get a line for each interval.
  bool isOnce() const { return options_.once || (!options_.json && ::isatty(STDOUT_FILENO) == 0); }

  std::string title() const {
    return options_.config + ", " + options_.feed.pcap + " into " + feed_.in().name;
  }

  void print(const TopSnapshot& snapshot) const {
    if (options_.json) {
      printJson("top", topJson(snapshot, options_.lines));
      std::cout.flush();
    } else {
      TopSnapshot shown = snapshot;
      shown.lines.resize(std::min(shown.lines.size(), options_.lines));
      std::cout << topText(shown, title(), 0, 0);
    }
  }

  // The time of the packets now.
  double now() const { return std::chrono::duration<double>(Clock::now() - start_).count() * options_.speed; }
  std::chrono::milliseconds interval() const {
    return std::chrono::milliseconds(static_cast<int64_t>(options_.interval * 1000));
  }

  // When packets come faster than they can be judged, their time passes more slowly.
  TopSnapshot next() {
    const double wanted = now();
    const bool there = player_.playTo(wanted, interval());
    return sampler_.sample(there && !player_.ended() ? wanted : player_.seconds(), player_.ended());
  }

  void stream() {
    start_ = Clock::now();
    for (bool more = true; more && std::cout;) {
      std::this_thread::sleep_for(interval());
      const TopSnapshot snapshot = next();
      more = !snapshot.ended;
      print(snapshot);
    }
  }

  void live() {
    TopScreen screen;
    start_ = Clock::now();
    std::optional<TopSnapshot> shown;
    do {
      // What was shown last stays when the packets are over.
      if (!shown || !shown->ended) {
        shown = next();
      }
      const std::string keys = shown->ended ? "no more packets; q ends" : "q ends";
      screen.draw(topText(*shown, title() + "  (" + keys + ")", screen.width(), screen.height()));
    } while (screen.wait(interval()));
  }

  const TopOptions& options_;
  Session session_;
  CaptureFeed feed_;
  TopSampler sampler_;
  Player player_;
  Clock::time_point start_;
};

} // namespace

void addTop(Command program, Run& run) {
  auto options = std::make_shared<TopOptions>();
  const Command command = program.subcommand(
      "top", "Play a capture and watch tables, verdicts and the hottest lines live in the terminal");
  command.option("CONFIG", options->config, "The configuration").required();
  addFeedOptions(command, options->feed);
  command.option("--pcap").required();
  const Option speed = command.option("--speed", options->speed, "Times as fast as the packets were captured")
                           .range(0.001, 1e9)
                           .showDefault();
  const Option loop = command.flag("--loop", options->loop, "Begin the capture again when it is over");
  const Option once =
      command.flag("--once", options->once, "Judge the whole capture at once and print one picture of it");
  once.excludes(loop).excludes(speed);
  command.option("--interval", options->interval, "Seconds from picture to picture")
      .range(0.05, 3600.0)
      .showDefault();
  command.option("--lines", options->lines, "The hottest lines to print with --once and --json")
      .range(1, 1000000)
      .showDefault();
  addCommonOptions(command, *options);
  command.footer(
      "Rates are for the time since the picture before, in the time of the packets; with --once for the "
      "whole "
      "capture.\nq or Ctrl-C ends. What is no terminal gets one picture, as with --once; --json prints "
      "a line for each picture.\n\n"
      "Examples:\n"
      "  xpacl top campus.conf --pcap lan.pcap --in Gi1/0/1 --loop\n"
      "  xpacl top campus.conf --pcap lan.pcap --in Gi1/0/1 --once");
  command.runs(run, [options] { return Top(*options).run(); });
}

} // namespace tool
