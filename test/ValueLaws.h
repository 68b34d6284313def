#pragma once

#include "Vane/Value.h"

#include <concepts>
#include <cstddef>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

// The laws that every value type obeys, checked over samples that are all different, and ascending when their
// type is ordered. Each type only says what it does; the judging is compiled once.

namespace test {

template <typename T>
std::string valueText(const T& value) {
  return std::string(Vane::strepOf(value).view());
}

template <typename T>
T valueOf(const std::string& text) {
  T value{};
  Vane::strepToValue(Vane::String(std::string_view(text)), &value);
  return value;
}

template <typename T>
std::string streamed(const T& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

// What one sample says of itself and of all samples, itself among them.
struct ValueSample {
  std::string text;
  Vane::U32 hash = 0;
  bool copyIsEqual = false;
  Vane::U32 hashOfCopy = 0;
  bool textIsRead = false;                 // back to an equal value
  std::vector<std::string> textsRead;      // those of its spoilt texts that were taken for a value
  std::optional<std::string> streamed;     // none when values of the type cannot be written to a stream
  std::vector<bool> equals;                // each sample
  std::optional<std::vector<bool>> isLess; // than each sample; none when the type is not ordered
};

// How values look in a stream: as their text, otherwise, or they cannot be written to one.
enum class Stream { text, other, none };

// Fails for each law that the samples break.
void checkLaws(const std::vector<ValueSample>& samples, Stream stream);

// Its text with something in front, behind, or in place of its end; none of them is a value.
std::vector<std::string> spoilt(const std::string& text);

template <typename T>
concept Ordered = requires(const T& value) {
  { value < value } -> std::convertible_to<bool>;
};

template <typename T>
ValueSample sampleOf(const T& value, const std::vector<T>& all) {
  ValueSample sample;
  sample.text = valueText(value);
  sample.hash = Vane::hashOf(value);
  const T copy(value);
  sample.copyIsEqual = copy == value && !(copy != value);
  sample.hashOfCopy = Vane::hashOf(copy);
  sample.textIsRead = valueOf<T>(sample.text) == value;
  for (const std::string& text : spoilt(sample.text)) {
    try {
      valueOf<T>(text);
      sample.textsRead.push_back(text);
    } catch (const Vane::Exception&) {
      // as it should be
    }
  }
  if constexpr (requires(std::ostream & out) { out << value; }) {
    sample.streamed = streamed(value);
  }
  for (const T& other : all) {
    sample.equals.push_back(value == other);
  }
  if constexpr (Ordered<T>) {
    std::vector<bool>& isLess = sample.isLess.emplace();
    for (const T& other : all) {
      isLess.push_back(value < other);
    }
  }
  return sample;
}

template <typename T>
std::vector<ValueSample> samplesOf(const std::vector<T>& values) {
  std::vector<ValueSample> samples;
  for (const T& value : values) {
    samples.push_back(sampleOf(value, values));
  }
  return samples;
}

// A type that is to be ordered and is not does not compile here.
template <Ordered T>
void checkLaws(const std::vector<T>& samples, Stream stream = Stream::text) {
  checkLaws(samplesOf(samples), stream);
}

template <typename T>
requires(!Ordered<T>) void checkUnorderedLaws(const std::vector<T>& samples, Stream stream = Stream::text) {
  checkLaws(samplesOf(samples), stream);
}

} // namespace test
