#pragma once

#include "Vane/Types.h"

#include <stdexcept>
#include <string>

namespace Vane {

class String;

// Base of everything that the framework throws.
class VANE_API Exception : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
  ~Exception() override;
};

// A value outside the bounds of its type; the message names the type and the bounds.
class VANE_API RangeException : public Exception {
public:
  using Exception::Exception;
  ~RangeException() override;
};

// A text that is not the representation of a value; the message of a failing field names the field.
class VANE_API ParseException : public Exception {
public:
  using Exception::Exception;
  ~ParseException() override;
};

// A name or key that is taken by something else.
class VANE_API NameInUseException : public Exception {
public:
  using Exception::Exception;
  ~NameInUseException() override;
};

[[noreturn]] VANE_API void throwNameInUseException(const String& message);

} // namespace Vane
