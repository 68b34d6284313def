#include "Vane/Vane.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace Demo {

VANE_ENUM(Demo, Direction, (ingress, 0), (egress, 1))
VANE_WRAPPER_VALUE(Demo, VifNumber, Vane::U32, 0)

class Named {
public:
  VANE_VALUE(Demo, Named, (Vane::String, name, Vane::String("n")), (VifNumber, vif, VifNumber()))
};

enum class Plain : Vane::U8 { some = 3 };

} // namespace Demo

namespace {

std::string joined(const std::vector<std::string>& lines) {
  std::string result;
  for (const std::string& line : lines) {
    result += line;
    result += '\n';
  }
  return result;
}

// Text handle with level 5 on, writing into a string; the ring is empty at first.
class VaneTrace : public testing::Test {
protected:
  VaneTrace() : ring(64 * 1024), handle("demo") {
    Ringlog::defaultRinglogHandle.ringIs(ring);
    handle.levelIs(5, true);
    handle.sinkIs([this](std::string_view line) {
      text += line;
      text += '\n';
    });
  }
  ~VaneTrace() override { Ringlog::defaultRinglogHandle.ringIs(original); }

  Ringlog::RingBuf& original = Ringlog::defaultRinglogHandle.ring();
  Ringlog::RingBuf ring;
  Vane::TraceHandle handle;
  std::string text;
};

TEST_F(VaneTrace, OneStatementGoesToBothTraces) {
  const Vane::U32 rows = 4096;
  VANE_TRACE(handle, 5, "XpAclPlexAggregatorHelper",
             "XpAclPlexAggregatorHelper::"
                 << "hwInit"
                 << " rows " << rows);
  VANE_TRACE(handle, 7, "XpAclHwAclIdSm", "quiet " << -1);
  EXPECT_EQ(text, "demo 5 XpAclPlexAggregatorHelper XpAclPlexAggregatorHelper::hwInit rows 4096\n");
  EXPECT_EQ(joined(ring.dump()), "XpAclPlexAggregatorHelper 5 XpAclPlexAggregatorHelper::hwInit rows 4096\n"
                                 "XpAclHwAclIdSm 7 quiet -1\n");
  EXPECT_EQ(joined(ring.dump(1)), "XpAclHwAclIdSm 7 quiet -1\n");
  EXPECT_EQ(joined(ring.dump(0)), "");
}

TEST_F(VaneTrace, EveryKindOfPiece) {
  const int local = 3;
  const char* runtime = "runtime";
  VANE_TRACE(handle, 5, "T",
             "" << Vane::U8{255} << ' ' << -7 << ' ' << true << false << ' ' << ~Vane::U64{0} << ' '
                << runtime << ' ' << Vane::String("string") << ' ' << std::string("std") << ' '
                << Demo::egress << ' ' << Demo::VifNumber(9) << ' ' << Demo::Named("it", Demo::VifNumber(1))
                << ' ' << Demo::Plain::some << ' ' << local);
  EXPECT_EQ(text, "demo 5 T 255 -7 TrueFalse 18446744073709551615 runtime string std egress 9 "
                  "Value('Demo::Named', ** {'name': 'it', 'vif': 1}) 3 3\n");
  EXPECT_EQ("demo 5 " + joined(ring.dump()).replace(0, 4, "T "), text);
}

TEST_F(VaneTrace, PointersShowTheirAddress) {
  const auto object = Vane::dirFactory("d");
  VANE_TRACE(handle, 5, "T",
             "at " << object.ptr() << " " << object << " " << static_cast<const void*>(nullptr));
  const std::string address =
      Vane::format("0x%llx", reinterpret_cast<unsigned long long>(object.ptr())).charPtr();
  EXPECT_EQ(text, "demo 5 T at " + address + " " + address + " 0x0\n");
}

TEST_F(VaneTrace, LevelsAreSeparateAndOffMeansNotEvaluated) {
  int evaluated = 0;
  const auto count = [&] { return ++evaluated; };
  Ringlog::defaultRinglogHandle.levelIs(6, false);
  VANE_TRACE(handle, 6, "T", "n " << count());
  EXPECT_EQ(evaluated, 0);
  handle.levelIs(6, true);
  VANE_TRACE(handle, 6, "T", "n " << count());
  EXPECT_EQ(text, "demo 6 T n 1\n");
  EXPECT_EQ(ring.numWritten(), 0u);
  Ringlog::defaultRinglogHandle.levelIs(6, true);
  handle.levelIs(6, false);
  VANE_TRACE(handle, 6, "T", "n " << count());
  EXPECT_EQ(joined(ring.dump()), "T 6 n 2\n");
}

TEST_F(VaneTrace, StatementsMayNest) {
  const auto inner = [&] {
    VANE_TRACE(handle, 5, "T", "inner");
    return 1;
  };
  VANE_TRACE(handle, 5, "T", "outer " << inner());
  EXPECT_EQ(text, "demo 5 T inner\ndemo 5 T outer 1\n");
}

TEST_F(VaneTrace, LongTextsAndRecordsAreCut) {
  VANE_TRACE(handle, 5, "T", "x" << std::string(1000, 'a') << "!");
  EXPECT_EQ(text, "demo 5 T x" + std::string(Ringlog::Msg::longestText, 'a') + "...!\n");
  text.clear();
  VANE_TRACE(handle, 5, "T",
             "" << std::string(180, 'a') << std::string(180, 'b') << std::string(180, 'c') << "never");
  EXPECT_EQ(text, "demo 5 T " + std::string(180, 'a') + std::string(180, 'b') + "...\n");
}

// Values with names go into the ring as bytes; nobody can tell, wherever the record is cut.
TEST_F(VaneTrace, ValuesReadAsIfTheirTextHadBeenWritten) {
  const auto record = [&](const std::string& fill, const auto& value) {
    VANE_TRACE(handle, 6, "T", fill << value << "|" << value << 7 << Demo::egress << value << true << "end");
    return ring.dump(1).back();
  };
  unsigned cut = 0;
  for (const std::size_t length : {0, 1, 20, 60, 97, 98, 99, 110, 150, 191, 192, 300}) {
    for (std::size_t fill = 0; fill <= 200; fill += length == 60 ? 1 : 7) {
      const Demo::Named value(Vane::String(std::string(length, '\'')), Demo::VifNumber(4294967295));
      const std::string asText = record(std::string(fill, 'f'), std::string(valueToStrep(value).charPtr()));
      EXPECT_EQ(record(std::string(fill, 'f'), value), asText) << length << " " << fill;
      cut += asText.ends_with("end") ? 0 : 1;
    }
  }
  EXPECT_GT(cut, 50u);
}

TEST_F(VaneTrace, RingKeepsTheNewest) {
  constexpr unsigned count = 20000;
  for (unsigned i = 0; i < count; ++i) {
    VANE_TRACE(handle, 7, "T", "number " << i);
  }
  EXPECT_EQ(ring.numWritten(), count);
  ASSERT_GT(ring.numRecords(), 1000u);
  const std::vector<std::string> lines = ring.dump();
  ASSERT_EQ(lines.size(), ring.numRecords());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    ASSERT_EQ(lines[i], "T 7 number " + std::to_string(count - lines.size() + i));
  }
  ring.clear();
  EXPECT_TRUE(ring.dump().empty());
  VANE_TRACE(handle, 7, "T", "again");
  EXPECT_EQ(joined(ring.dump()), "T 7 again\n");
}

// Records of all sizes against a list of what was written: the ring is always its tail.
TEST_F(VaneTrace, RingIsTheTailOfWhatWasWritten) {
  Ringlog::RingBuf small(2048);
  Ringlog::defaultRinglogHandle.ringIs(small);
  std::mt19937 random(7);
  std::deque<std::string> written;
  for (unsigned i = 0; i < 5000; ++i) {
    const std::string filler(random() % 190, static_cast<char>('a' + i % 26));
    VANE_TRACE(handle, 7, "T", i << filler << filler);
    written.push_back("T 7 " + std::to_string(i) + filler + filler);
    const std::vector<std::string> lines = small.dump();
    ASSERT_GE(lines.size(), 2u - (i == 0));
    ASSERT_LE(lines.size(), written.size());
    for (std::size_t back = 1; back <= lines.size(); ++back) {
      ASSERT_EQ(lines[lines.size() - back], written[written.size() - back]);
    }
  }
}

TEST_F(VaneTrace, HelperWritesOneLine) {
  EXPECT_EQ(Vane::TraceHelper::createIfEnabled(handle, 6, "T"), nullptr);
  const auto helper = Vane::TraceHelper::createIfEnabled(handle, 5, "T");
  *helper << "intf " << 3 << ' ' << Demo::VifNumber(4);
  helper->trace();
  Vane::TraceHelper::trace(handle, 5, "T", "plain");
  EXPECT_EQ(text, "demo 5 T intf 3 4\ndemo 5 T plain\n");
}

TEST_F(VaneTrace, RecordsCanBePutByHand) {
  static constexpr Ringlog::MsgDesc desc{"Unit", 12, 3, "%s%x"};
  Ringlog::Msg msg = ring.startMsg(desc);
  msg.put(std::string_view("text "));
  msg << 17u << " end";
  ring.endMsg(msg);
  EXPECT_EQ(joined(ring.dump()), "Unit 3 text 17 end\n");
}

TEST_F(VaneTrace, LinesGoToStandardErrorWithoutASink) {
  handle.sinkIs(nullptr);
  testing::internal::CaptureStderr();
  VANE_TRACE(handle, 5, "T", "seen");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "demo 5 T seen\n");
}

} // namespace
