#include "test/ToolUnderTest.h"

#include <array>
#include <chrono>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdexcept>
#include <stdlib.h>
#include <termios.h>

// `xpacl top`: its picture, and how it leaves the terminal.

namespace {

using test::Outcome;

class Top : public test::ToolUnderTest {
protected:
  std::string campus() {
    return std::string("top ")
        .append(example("campus.conf"))
        .append(" --pcap ")
        .append(example("campus.pcap"));
  }
};

TEST_F(Top, PrintsOnePicture) {
  const Outcome top = run(campus() + " --once --lines 3");
  EXPECT_EQ(top.status, 0);
  EXPECT_EQ(top.err, "");
  EXPECT_TRUE(top.out.substr(0, top.out.find('\n'))
                  .ends_with("campus.pcap into GigabitEthernet1/0/1 (Ethernet1)  0.8 s, ended"))
      << top.out;
  EXPECT_EQ(top.out.substr(top.out.find('\n') + 1),
            "VERDICT  PACKETS  PER SECOND\n"
            "permit       158       187.2\n"
            "deny          54        64.0\n"
            "all          212       251.2\n"
            "\n"
            "CHIP  TABLE       USED  ROWS\n"
            "   0  ingressV4     88  1023  [###...........................]\n"
            "   0  ingressV6     15   255  [##............................]\n"
            "   0  egressV4      18  4095  [#.............................]\n"
            "   0  egressV6       0  4095  [..............................]\n"
            "   0  ingressMac     7  4095  [#.............................]\n"
            "\n"
            "PER SECOND  HITS  LIST       DIRECTION  LINE  RULE\n"
            "     206.2   174  WING-A-L2  in          101  permit any any 0x0800 0x0\n"
            "      39.1    33  WING-A-IN  in           49  permit tcp any any established\n"
            "      34.4    29  WING-A-L2  in          103  permit any any 0x86DD 0x0\n");
  // What is no terminal gets the same.
  EXPECT_EQ(run(campus() + " --lines 3").out, top.out);
}

TEST_F(Top, RefusesWhatMakesNoSense) {
  EXPECT_EQ(run(std::string("top ").append(example("campus.conf"))).status, 2);
  EXPECT_EQ(run(campus() + " --once --loop").status, 2);
  EXPECT_EQ(run(campus() + " --speed 0").status, 2);
  EXPECT_EQ(run(std::string("top ").append(example("campus.conf")).append(" --pcap /nowhere")).status, 2);
}

// A terminal of its own, as a terminal emulator makes one, and the tool in it.
class Terminal {
public:
  explicit Terminal(const std::string& arguments) {
    master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master_ < 0 || ::grantpt(master_) != 0 || ::unlockpt(master_) != 0) {
      throw std::runtime_error("no terminal");
    }
    const std::string name = ::ptsname(master_);
    slave_ = ::open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const std::string command = std::string("exec ").append(XPACL_TOOL).append(" ").append(arguments);
    pid_ = ::fork();
    if (pid_ == 0) {
      for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        ::dup2(slave_, descriptor);
      }
      ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
      ::_exit(127);
    }
  }
  ~Terminal() {
    ::close(slave_);
    ::close(master_);
  }

  // What the tool wrote up to and with `mark`, or all that came in ten seconds.
  std::string until(const std::string& mark) {
    const auto latest = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (seen_.find(mark) == std::string::npos && std::chrono::steady_clock::now() < latest) {
      pollfd waiting{master_, POLLIN, 0};
      std::array<char, 4096> octets{};
      if (::poll(&waiting, 1, 100) == 1) {
        const ssize_t got = ::read(master_, octets.data(), octets.size());
        seen_.append(octets.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
      }
    }
    return seen_;
  }
  void type(const char* keys) {
    if (::write(master_, keys, std::string(keys).size()) < 0) {
      throw std::runtime_error("the terminal is gone");
    }
  }
  void interrupt() { ::kill(pid_, SIGINT); }
  bool echoes() const {
    termios state{};
    ::tcgetattr(slave_, &state);
    return (state.c_lflag & ECHO) != 0;
  }
  int exitStatus() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

private:
  int master_ = -1;
  int slave_ = -1;
  pid_t pid_ = -1;
  std::string seen_;
};

TEST_F(Top, DrawsInATerminalAndGivesItBack) {
  for (const bool interrupted : {false, true}) {
    Terminal terminal(campus() + " --loop --speed 10 --interval 0.05");
    EXPECT_TRUE(terminal.echoes());
    const std::string drawn = terminal.until("ingressMac");
    EXPECT_NE(drawn.find("\033[?1049h\033[?25l"), std::string::npos);
    EXPECT_NE(drawn.find("VERDICT"), std::string::npos);
    EXPECT_FALSE(terminal.echoes());
    if (interrupted) {
      terminal.interrupt();
    } else {
      terminal.type("xq");
    }
    const std::string all = terminal.until("\033[?25h\033[?1049l");
    EXPECT_TRUE(all.ends_with("\033[?25h\033[?1049l"));
    EXPECT_EQ(terminal.exitStatus(), 0);
    EXPECT_TRUE(terminal.echoes());
  }
}

} // namespace
