// The includes nearly every test file needs, in one place: GoogleTest, the
// shared test environment and log capture, and the standard library parts
// the tests use throughout.
#pragma once

#include "tests/support/LogCapture.h"
#include "tests/support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>
