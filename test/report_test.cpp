#include "test/ToolUnderTest.h"

namespace {
class Report : public test::ToolUnderTest {};
} // namespace
