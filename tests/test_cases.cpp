// Every case folder below tests/cases, run by the case runner.
#include "tests/support/case_runner.h"

namespace {
const bool registered = [] {
    ksdb_test::register_case_tests(KSDB_CASES_DIR);
    return true;
}();
}  // namespace
