#pragma once

#include <chrono>
#include <csignal>
#include <cstddef>
#include <string>
#include <termios.h>

namespace tool {

// The terminal while something is shown live in it: a screen of its own, without cursor and without echo of
// what is typed. The destructor gives the terminal back as it was, and so do interrupts, which only ask to
// end. At most one at a time.
class TopScreen {
public:
  TopScreen();
  ~TopScreen();
  TopScreen(const TopScreen&) = delete;
  TopScreen& operator=(const TopScreen&) = delete;

  std::size_t width() const;
  std::size_t height() const;
  // Draws over what is there, line by line.
  void draw(const std::string& text) const;
  // Waits; false as soon as somebody typed q or interrupted the program.
  bool wait(std::chrono::milliseconds time) const;

private:
  bool hasInput_ = false;
  termios before_{};
  struct sigaction interruptBefore_ {};
  struct sigaction terminateBefore_ {};
};

} // namespace tool
