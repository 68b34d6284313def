#include "Vane/Vane.h"
#include "test/ValueLaws.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <functional>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace Demo {

VANE_RANGE_VALUE(Demo, VlanId, Vane::U16, 1, 4094, 1, "VlanId::value < 1 or > 4094 not allowed")
VANE_WRAPPER_VALUE(Demo, VifId, Vane::U32, 0xFFFFFFFF)
using Mac = std::array<Vane::U8, 6>;
VANE_ENUM(Demo, Color, (red, 0), (green, 1), (blueGreen, 7))

class VlanVifKey {
public:
  VANE_VALUE(Demo, VlanVifKey, (VlanId, vlanId, VlanId()), (VifId, vif, VifId()))
};

class Mixed {
public:
  VANE_VALUE(Demo, Mixed, (bool, on, true), (Vane::String, name, Vane::String("none")), (Color, color, green),
             (VlanVifKey, key, VlanVifKey()), (int, offset, -1), (Mac, mac, Mac()))
};

class Single {
public:
  VANE_VALUE(Demo, Single, (Vane::U64, number, 5))
};

class Unordered {
public:
  VANE_VALUE_UNORDERED(Demo, Unordered, (Vane::U8, aclId, 0), (bool, blocked, false))
};

} // namespace Demo

namespace {

using test::checkLaws;
using test::valueOf;
using test::valueText;

// What `action` throws, as "Kind: message".
std::string thrown(const std::function<void()>& action) {
  try {
    action();
  } catch (const Vane::RangeException& e) {
    return std::string("RangeException: ") + e.what();
  } catch (const Vane::ParseException& e) {
    return std::string("ParseException: ") + e.what();
  } catch (const Vane::Exception& e) {
    return std::string("Exception: ") + e.what();
  }
  return "nothing";
}

Demo::Mixed mixed(bool on, const char* name, Demo::Color color, unsigned vlan, int offset, Vane::U8 octet) {
  return Demo::Mixed(on, name, color, Demo::VlanVifKey(Demo::VlanId(vlan), Demo::VifId(3)), offset,
                     Demo::Mac{0, 1, 2, 3, 4, octet});
}

TEST(VaneValue, Laws) {
  using Demo::VifId;
  using Demo::VlanId;
  checkLaws<VlanId>({VlanId(1), VlanId(2), VlanId(256), VlanId(4094)});
  checkLaws<VifId>({VifId(0), VifId(255), VifId(0x10000), VifId()});
  checkLaws<Demo::Color>({Demo::red, Demo::green, Demo::blueGreen});
  checkLaws<Demo::VlanVifKey>({Demo::VlanVifKey(VlanId(9), VifId(100)),
                               Demo::VlanVifKey(VlanId(10), VifId(5)),
                               Demo::VlanVifKey(VlanId(10), VifId(7))});
  checkLaws<Demo::Single>({Demo::Single(0), Demo::Single(1), Demo::Single(~Vane::U64{0})});
  test::checkUnorderedLaws<Demo::Unordered>(
      {Demo::Unordered(0, true), Demo::Unordered(0, false), Demo::Unordered(200, false)});
  checkLaws<Demo::Mixed>({mixed(false, "z", Demo::red, 4, 1, 1), mixed(true, "", Demo::red, 4, 1, 1),
                          mixed(true, "it's a \\ 'name'", Demo::red, 4, 1, 1),
                          mixed(true, "it's a \\ 'name'", Demo::green, 4, 1, 1),
                          mixed(true, "it's a \\ 'name'", Demo::green, 5, std::numeric_limits<int>::min(), 1),
                          mixed(true, "it's a \\ 'name'", Demo::green, 5, 0, 1),
                          mixed(true, "it's a \\ 'name'", Demo::green, 5, 0, 255)});
}

TEST(VaneValue, TextOfEveryKindOfField) {
  EXPECT_EQ(valueText(Demo::Mixed()),
            "Value('Demo::Mixed', ** {'on': True, 'name': 'none', 'color': green, "
            "'key': Value('Demo::VlanVifKey', ** {'vlanId': 1, 'vif': 4294967295}), 'offset': -1, "
            "'mac': '000000000000'})");
  EXPECT_EQ(valueText(mixed(false, "it's \\", Demo::blueGreen, 10, 7, 0xAB)),
            "Value('Demo::Mixed', ** {'on': False, 'name': 'it\\'s \\\\', 'color': blueGreen, "
            "'key': Value('Demo::VlanVifKey', ** {'vlanId': 10, 'vif': 3}), 'offset': 7, "
            "'mac': '0001020304ab'})");
  std::ostringstream out;
  out << Demo::VlanVifKey(Demo::VlanId(10), Demo::VifId(5)) << Demo::VlanId(7) << Demo::green;
  EXPECT_EQ(out.str(), "Value('Demo::VlanVifKey', ** {'vlanId': 10, 'vif': 5})7green");
  EXPECT_EQ(valueText(Demo::Unordered(255, true)),
            "Value('Demo::Unordered', ** {'aclId': 255, 'blocked': True})");
}

TEST(VaneValue, AccessorsAndSetters) {
  Demo::VlanVifKey key;
  key.vlanIdIs(Demo::VlanId(12));
  key.vifIs(Demo::VifId(3));
  EXPECT_TRUE(key == Demo::VlanVifKey(Demo::VlanId(12), Demo::VifId(3)));
  EXPECT_EQ(Demo::Single().number(), 5u);
}

// The recipe over known bytes; the numbers were computed by hand from the recipe.
TEST(VaneValue, HashIsOneAtATimeOverTheFieldsLowByteFirst) {
  EXPECT_EQ(Demo::VlanVifKey(Demo::VlanId(10), Demo::VifId(5)).hash(), 425057046u); // 0a 00 05 00 00 00
  EXPECT_EQ(Demo::VlanVifKey().hash(), 896230693u);                                 // 01 00 ff ff ff ff
  EXPECT_EQ(Vane::String("aclGroupDefault").hash(), 1684757394u);
  EXPECT_EQ(Vane::hashOf(true), Vane::hashOf(Vane::U8{1}));
  EXPECT_EQ(Vane::hashOf(Vane::U32{0x12345678}),
            Vane::hashOf(std::array<Vane::U8, 4>{0x78, 0x56, 0x34, 0x12}));
  EXPECT_EQ(Vane::Hash().result(), 0u);
}

TEST(VaneValue, RangesAreCheckedInTheWidthGiven) {
  const std::string message = "RangeException: VlanId::value < 1 or > 4094 not allowed";
  EXPECT_EQ(thrown([] { Demo::VlanId(0); }), message);
  EXPECT_EQ(thrown([] { Demo::VlanId(4095); }), message);
  EXPECT_EQ(thrown([] { Demo::VlanId(-1); }), message);
  EXPECT_EQ(thrown([] { Demo::VlanId(65537); }), message); // would be 1 in 16 bits
  EXPECT_EQ(thrown([] { Demo::VlanId(Vane::U64{1} << 32 | 1); }), message);
  EXPECT_EQ(Demo::VlanId(Vane::U64{4094}).value(), 4094);
}

TEST(VaneValue, ParseErrorsNameTheField) {
  using Key = Demo::VlanVifKey;
  const auto why = [](const char* text) { return thrown([&] { valueOf<Key>(text); }); };
  EXPECT_EQ(why("Value('Demo::VlanVifKey', ** {'vlanId': 0, 'vif': 3})"),
            "ParseException: field 'vlanId': VlanId::value < 1 or > 4094 not allowed");
  EXPECT_EQ(why("Value('Demo::VlanVifKey', ** {'vlanId': 1, 'vif': 4294967296})"),
            "ParseException: field 'vif': number is larger than 4294967295");
  EXPECT_EQ(why("Value('Demo::VlanVifKey', ** {'vlanId': x, 'vif': 3})"),
            "ParseException: field 'vlanId': expected a decimal number at \"x, 'vif': 3})\"");
  EXPECT_EQ(why("Value('Demo::VlanVifKey', ** {'vlanId': 01, 'vif': 3})"),
            "ParseException: field 'vlanId': expected a decimal number at \"01, 'vif': 3})\"");
  EXPECT_EQ(why("Value('Demo::VlanVifKey', ** {'vlanId': 1,'vif': 3})"),
            "ParseException: expected \", \" at \",'vif': 3})\"");
  EXPECT_EQ(why("Value('Demo::Other', ** {'vlanId': 1, 'vif': 3})"),
            "ParseException: expected \"Value('Demo::VlanVifKey', ** {\" at \"Value('Demo::Other', ** \"");
  EXPECT_EQ(why("Value('Demo::VlanVifKey', ** {'vlanId': 1, 'vif': 3}) "),
            "ParseException: expected the end at \" \"");
  EXPECT_EQ(why(""), "ParseException: expected \"Value('Demo::VlanVifKey', ** {\" at \"\"");
  Key kept(Demo::VlanId(3), Demo::VifId(4));
  EXPECT_NE(
      thrown([&] { Vane::strepToValue("Value('Demo::VlanVifKey', ** {'vlanId': 5, 'vif': x})", &kept); }),
      "nothing");
  EXPECT_EQ(valueText(kept), "Value('Demo::VlanVifKey', ** {'vlanId': 3, 'vif': 4})");
}

// Every prefix of a representation, and every one-character change of it, is refused or is another
// value's representation.
TEST(VaneValue, OnlyRepresentationsAreAccepted) {
  const std::string whole = valueText(mixed(true, "a'b", Demo::green, 10, -5, 0x10));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_NE(thrown([&] { valueOf<Demo::Mixed>(whole.substr(0, size)); }), "nothing") << size;
  }
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const char c : {'0', '9', 'x', '\'', '\\', ' ', '}', '-', '\0'}) {
      std::string changed = whole;
      changed[at] = c;
      try {
        EXPECT_EQ(valueText(valueOf<Demo::Mixed>(changed)), changed);
      } catch (const Vane::ParseException&) {
        continue;
      }
    }
  }
}

TEST(VaneValue, NumberBounds) {
  EXPECT_EQ(valueOf<Vane::U64>("18446744073709551615"), ~Vane::U64{0});
  EXPECT_EQ(thrown([] { valueOf<Vane::U64>("18446744073709551616"); }),
            "ParseException: number is larger than 18446744073709551615");
  EXPECT_EQ(valueOf<std::int64_t>("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
  EXPECT_NE(thrown([] { valueOf<std::int64_t>("-9223372036854775809"); }), "nothing");
  EXPECT_NE(thrown([] { valueOf<std::int64_t>("9223372036854775808"); }), "nothing");
  EXPECT_NE(thrown([] { valueOf<int>("-0"); }), "nothing");
  EXPECT_NE(thrown([] { valueOf<Vane::U8>("-1"); }), "nothing");
  EXPECT_NE(thrown([] { valueOf<bool>("true"); }), "nothing");
}

TEST(VaneValue, Enumerations) {
  std::string all;
  for (const Demo::Color color : Demo::ColorValues()) {
    all += std::string(stringValue(color).charPtr()) + "=" + std::to_string(color) + " ";
  }
  EXPECT_EQ(all, "red=0 green=1 blueGreen=7 ");
  EXPECT_EQ(Demo::ColorInstance(7u), Demo::blueGreen);
  EXPECT_EQ(Demo::ColorInstance(Vane::String("green")), Demo::green);
  EXPECT_EQ(thrown([] { Demo::ColorInstance(2u); }), "RangeException: Demo::Color has no value 2");
  EXPECT_EQ(thrown([] { Demo::ColorInstance(Vane::String("gree")); }),
            "ParseException: Demo::Color has no value \"gree\"");
  EXPECT_EQ(thrown([] { valueOf<Demo::Color>(""); }), "ParseException: Demo::Color has no value \"\"");
  EXPECT_EQ(stringValue(static_cast<Demo::Color>(3)), Vane::String("3"));
}

TEST(VaneString, Operations) {
  Vane::String empty;
  EXPECT_TRUE(empty.empty());
  EXPECT_STREQ(empty.charPtr(), "");
  EXPECT_TRUE(empty == Vane::String(""));
  Vane::String text("ab");
  const Vane::String before = text;
  text += Vane::String("cd");
  text += text;
  EXPECT_STREQ(text.charPtr(), "abcdabcd");
  EXPECT_STREQ(before.charPtr(), "ab");
  EXPECT_TRUE(before < text);
  EXPECT_FALSE(text < before);
  EXPECT_EQ(std::string(text.begin(), text.end()), "abcdabcd");
  EXPECT_EQ((before + Vane::String("-") + empty).size(), 3u);
  EXPECT_TRUE(Vane::String(std::string_view("a\0b", 3)) != Vane::String("a"));
  const Vane::String& self = text;
  text = self;
  EXPECT_EQ(text.size(), 8u);
  EXPECT_STREQ(Vane::format("%s %d %x", "row", 12, 255).charPtr(), "row 12 ff");
  EXPECT_EQ(Vane::format("%0600d", 7).size(), 600u);
  EXPECT_TRUE(Vane::format("%s", "").empty());
}

TEST(VaneAssertDeathTest, PrintsPlaceSignatureAndExpression) {
  const Vane::U32 numIndices = 0;
  EXPECT_EXIT(VANE_ASSERT(numIndices != 0), testing::KilledBySignal(SIGABRT),
              "vane_value_test\\.cpp:[0-9]+: .*TestBody\\(\\): Assertion \"numIndices != 0\" failed\\.\n");
  EXPECT_EXIT(VANE_ASSERT(false && "Invalid interface type selected"), testing::KilledBySignal(SIGABRT),
              "Assertion \"false && \"Invalid interface type selected\"\" failed\\.");
  EXPECT_EXIT(VANE_ASSERT_TEXT(numIndices, "!t->isPolymorphic()"), testing::KilledBySignal(SIGABRT),
              "Assertion \"!t->isPolymorphic\\(\\)\" failed\\.");
  EXPECT_EXIT(VANE_ASSERT_AT(false, "!(true)", "XpAclHwAclIdSm", 279, "void f(int)"),
              testing::KilledBySignal(SIGABRT),
              "^XpAclHwAclIdSm:279: void f\\(int\\): Assertion \"!\\(true\\)\" failed\\.\n$");
  VANE_ASSERT(numIndices == 0); // a true one does nothing
}

} // namespace
