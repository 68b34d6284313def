#include "Vane/Exception.h"

#include "Vane/String.h"

namespace Vane {

// The destructors stand here so that each class has one type record in the process: a handler in one
// library then catches what another one threw.
Exception::~Exception() = default;
RangeException::~RangeException() = default;
ParseException::~ParseException() = default;
NameInUseException::~NameInUseException() = default;

void throwNameInUseException(const String& message) {
  throw NameInUseException(message.charPtr());
}

} // namespace Vane
