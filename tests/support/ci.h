// Whether the tests run in CI (CI=true), where a facility the machine lacks fails a test that
// needs it instead of skipping it.
#pragma once

#include <cstdlib>
#include <cstring>

namespace zqtest {

inline bool InCi() {
    const char* ci = std::getenv("CI");
    return ci != nullptr && std::strcmp(ci, "true") == 0;
}

}  // namespace zqtest
