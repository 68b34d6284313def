#include "tool/TopScreen.h"

#include <cstdio>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tool {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void interrupt(int) {
  interrupted = 1;
}

winsize sizeOfTerminal() {
  winsize size{};
  ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
  return size;
}

void put(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

} // namespace

TopScreen::TopScreen() {
  interrupted = 0;
  struct sigaction action {};
  action.sa_handler = interrupt;
  ::sigaction(SIGINT, &action, &interruptBefore_);
  ::sigaction(SIGTERM, &action, &terminateBefore_);
  hasInput_ = ::tcgetattr(STDIN_FILENO, &before_) == 0;
  if (hasInput_) {
    termios raw = before_;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    ::tcsetattr(STDIN_FILENO, TCSANOW, &raw);
  }
  put("\033[?1049h\033[?25l\033[2J");
}

TopScreen::~TopScreen() {
  put("\033[?25h\033[?1049l");
  if (hasInput_) {
    ::tcsetattr(STDIN_FILENO, TCSANOW, &before_);
  }
  ::sigaction(SIGINT, &interruptBefore_, nullptr);
  ::sigaction(SIGTERM, &terminateBefore_, nullptr);
}

// A terminal that does not know its size gets what terminals had.
std::size_t TopScreen::width() const {
  const winsize size = sizeOfTerminal();
  return size.ws_col == 0 ? 80 : size.ws_col;
}

std::size_t TopScreen::height() const {
  const winsize size = sizeOfTerminal();
  return size.ws_row == 0 ? 24 : size.ws_row;
}

void TopScreen::draw(const std::string& text) const {
  // Each line clears its rest, and the last one what is below: nothing flickers.
  std::string screen = "\033[H";
  for (const char c : text) {
    screen += c == '\n' ? "\033[K\r\n" : std::string(1, c);
  }
  // The end of the last line would scroll a full screen.
  if (screen.ends_with("\r\n")) {
    screen.resize(screen.size() - 2);
  }
  put(screen + "\033[J");
}

bool TopScreen::wait(std::chrono::milliseconds time) const {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  if (interrupted != 0) {
    return false;
  }
  const int ready = ::poll(&input, hasInput_ ? 1 : 0, static_cast<int>(time.count()));
  if (interrupted != 0) {
    return false;
  }
  if (ready > 0) {
    char typed = 0;
    return ::read(STDIN_FILENO, &typed, 1) == 1 && typed != 'q' && typed != 'Q';
  }
  return true;
}

} // namespace tool
