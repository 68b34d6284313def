#include "test/ValueLaws.h"

#include <gtest/gtest.h>

namespace test {

std::vector<std::string> spoilt(const std::string& text) {
  std::vector<std::string> result = {"x" + text, text + "x", text + "}"};
  if (!text.empty()) {
    result.push_back(text.substr(0, text.size() - 1) + "\x01");
  }
  return result;
}

void checkLaws(const std::vector<ValueSample>& samples, Stream stream) {
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const ValueSample& a = samples[i];
    SCOPED_TRACE(a.text);
    EXPECT_TRUE(a.copyIsEqual);
    EXPECT_EQ(a.hashOfCopy, a.hash);
    EXPECT_TRUE(a.textIsRead);
    EXPECT_EQ(a.textsRead, std::vector<std::string>());
    EXPECT_EQ(a.streamed.has_value(), stream != Stream::none);
    if (stream == Stream::text) {
      EXPECT_EQ(a.streamed, a.text);
    }
    for (std::size_t j = 0; j < samples.size(); ++j) {
      const ValueSample& b = samples[j];
      EXPECT_EQ(a.equals[j], i == j) << b.text;
      EXPECT_EQ(a.text == b.text, i == j) << b.text;
      if (a.isLess) {
        EXPECT_EQ((*a.isLess)[j], i < j) << b.text;
      }
      if (i != j) {
        EXPECT_NE(a.hash, b.hash) << "a collision among so few samples: " << b.text;
      }
    }
  }
}

} // namespace test
