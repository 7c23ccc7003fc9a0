// The application-shell tests share one started toolkit (no display).
#include "tests/app/AppTestSupport.h"

namespace {
const testing::Environment* const kToolkit =
    testing::AddGlobalTestEnvironment(new AppTests::ToolkitEnvironment());
}
