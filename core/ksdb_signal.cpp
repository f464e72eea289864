// The segmentation-fault reporter a process may install.  The handler
// records the faulting program counter and address and a short backtrace in
// thread-local storage, then returns to the guarded entry point (or reports
// at once when none is armed); the report goes to the handle's log and the
// process ends with status 14.
#define KSDB_MODULE "ksdb_signal"
#include "core/ksdb_signal.h"

#include "core/ksdb_internal.h"

#include <execinfo.h>
#include <signal.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace ksdb {

namespace {

constexpr int kMaxFrames = 16;

std::atomic<const ksdb_handle *> g_handle{nullptr};
std::atomic<bool> g_installed{false};

thread_local sigjmp_buf t_jump;
thread_local bool t_armed = false;
thread_local uint64_t t_pc = 0;
thread_local uint64_t t_address = 0;
thread_local void *t_frames[kMaxFrames];
thread_local int t_frame_count = 0;

void on_fault(int, siginfo_t *info, void *context) {
    t_address = reinterpret_cast<uintptr_t>(info->si_addr);
#if defined(__x86_64__)
    t_pc = static_cast<uint64_t>(static_cast<ucontext_t *>(context)->uc_mcontext.gregs[REG_RIP]);
#else
    (void)context;
    t_pc = 0;
#endif
    t_frame_count = backtrace(t_frames, kMaxFrames);
    if (t_armed) siglongjmp(t_jump, 1);
    fault_report(g_handle.load());
}

}  // namespace

bool fault_reporter_installed() { return g_installed.load(std::memory_order_relaxed); }

sigjmp_buf *fault_jump_buffer() { return &t_jump; }

FaultArm::FaultArm() : was_armed_(t_armed) {}
FaultArm::~FaultArm() { t_armed = was_armed_; }
void FaultArm::arm() { t_armed = true; }

void fault_report(const ksdb_handle *h) {
    if (!h) h = g_handle.load();
    KSDB_ERR(h, "Got SIGSEGV PC=%08x%08x MA=%08x%08x\n", static_cast<unsigned>(t_pc >> 32),
             static_cast<unsigned>(t_pc & 0xffffffffu), static_cast<unsigned>(t_address >> 32),
             static_cast<unsigned>(t_address & 0xffffffffu));
    char **symbols = backtrace_symbols(t_frames, t_frame_count);
    for (ssize_t i = 0; i < t_frame_count; ++i)
        KSDB_ERR(h, "%zd: %s\n", i, symbols ? symbols[i] : "?");
    std::free(symbols);
    KSDB_ERR(h, "Exiting now ...\n");
    if (h && h->log_stream) std::fflush(h->log_stream);
    _exit(KSDB_FAULT_EXIT_STATUS);
}

}  // namespace ksdb

extern "C" int ksdb_install_fault_reporter(const ksdb_handle *h) {
    ksdb::g_handle.store(h);
    // A stack of its own for the handler, so a fault by stack overflow is
    // reported too (for the installing thread).
    static thread_local char alt_stack[64 * 1024];
    stack_t ss{};
    ss.ss_sp = alt_stack;
    ss.ss_size = sizeof alt_stack;
    sigaltstack(&ss, nullptr);

    struct sigaction sa {};
    sa.sa_sigaction = ksdb::on_fault;
    sa.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&sa.sa_mask);
    if (sigaction(SIGSEGV, &sa, nullptr) != 0) return -1;
    ksdb::g_installed.store(true);
    return 0;
}
