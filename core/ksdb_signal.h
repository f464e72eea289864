// The opt-in segmentation-fault reporter.
#pragma once

#include "ksdb.h"

#include <setjmp.h>

namespace ksdb {

bool fault_reporter_installed();
// The calling thread's jump buffer, to which the signal handler returns.
sigjmp_buf *fault_jump_buffer();

// Arms the calling thread's jump buffer for the lifetime of the object (the
// buffer itself is set by KSDB_FAULT_GUARD in the guarded frame).
class FaultArm {
  public:
    FaultArm();
    ~FaultArm();
    void arm();
    FaultArm(const FaultArm &) = delete;
    FaultArm &operator=(const FaultArm &) = delete;

  private:
    bool was_armed_;
};

// Logs the recorded fault through `h` and ends the process with status 14.
[[noreturn]] void fault_report(const ksdb_handle *h);

}  // namespace ksdb

// Placed at the top of a public entry point: once the reporter is
// installed, a fault inside the call returns here and is reported.
#define KSDB_FAULT_GUARD(h)                                                        \
    ::ksdb::FaultArm ksdb_fault_arm_;                                              \
    if (::ksdb::fault_reporter_installed()) {                                      \
        if (sigsetjmp(*::ksdb::fault_jump_buffer(), 1) != 0) ::ksdb::fault_report(h); \
        ksdb_fault_arm_.arm();                                                     \
    }
