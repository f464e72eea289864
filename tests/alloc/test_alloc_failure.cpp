// Memory exhaustion at every allocation of a C entry point: whatever fails,
// no exception crosses the C interface.  This program replaces the global
// operator new so that, when armed, the n-th allocation and every one after
// it throw std::bad_alloc (the nothrow forms give NULL).
#define KSDB_MODULE "test_alloc_failure"
#include "core/ksdb_internal.h"

#include "tests/support/test_support.h"

#include <cstdlib>
#include <functional>
#include <new>
#include <string>

namespace {
long g_countdown = -1;  // allocations left before failing; -1 disarmed
bool g_failed = false;  // an allocation was refused since arming

bool refuse() {
    if (g_countdown < 0) return false;
    if (g_countdown == 0) {
        g_failed = true;
        return true;
    }
    --g_countdown;
    return false;
}
}  // namespace

void *operator new(std::size_t n) {
    if (refuse()) throw std::bad_alloc();
    if (void *p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
// The runtime's array and nothrow forms call these.
void operator delete(void *p) noexcept { std::free(p); }
void operator delete(void *p, std::size_t) noexcept { std::free(p); }

using namespace ksdb_test;

namespace {

// Runs `call` with the n-th allocation failing, for n = 0, 1, ... until a
// run needs fewer allocations than that: no run may throw, and the call
// must have allocated at all (else nothing was tried).
void fail_each_allocation(const char *name, const std::function<void()> &call) {
    for (long n = 0; n < 100000; ++n) {
        g_failed = false;
        g_countdown = n;
        bool threw = false;
        try {
            call();
        } catch (...) {
            threw = true;
        }
        g_countdown = -1;
        ASSERT_FALSE(threw) << name << ": an exception crossed the C interface when allocation "
                            << n << " failed";
        if (!g_failed) {
            EXPECT_GT(n, 0) << name << " allocated nothing: its input is too small to test it";
            return;
        }
    }
}

// Guards: an exception crossing the C interface when an allocation fails.
TEST(AllocationFailure, NoExceptionCrossesTheCInterface) {
    TempDir dir;
    const std::string root = dir.path(), ini = root + "/etc/x.ini", one = root + "/one";
    for (const char *folder : {"/tmp", "/vol1/._share", "/vol1/docs"}) mkdirs(root + folder);
    write_file(root + "/etc/hostname", "nas1\n");
    write_file(ini, "[s]\nk = v\n");
    Handle h({nullptr, 0, nullptr, root.c_str()});
    Db db;
    db.exec("CREATE TABLE t(v TEXT); INSERT INTO t VALUES('a value longer than sixteen bytes');");
    const char *const pieces[] = {"a = {SQL{SELECT v FROM t}} and a longer tail\n", nullptr};
    const ksdb_file_spec spec{"/etc/exports", -1, -1, 0644};

    // Texts longer than a string keeps without allocating.
    const char *text = "it's a text of <more> than \"sixteen\" bytes";
    fail_each_allocation("ksdb_shell_quote", [&] { ksdb_shell_quote(h, text); });
    fail_each_allocation("escape_for_shell", [&] { escape_for_shell(h, text); });
    fail_each_allocation("ksdb_escape_xml", [&] { ksdb_escape_xml(h.pool(), text); });
    fail_each_allocation("ksdb_normalize_smb_path",
                         [&] { ksdb_normalize_smb_path(h, "a//longer/path//than/sixteen/bytes/"); });
    fail_each_allocation("ksdb_get_hostname", [&] { ksdb_get_hostname(h); });
    fail_each_allocation("ksdb_file_load", [&] { ksdb_file_load(h, "/etc/hostname", 0, nullptr); });
    auto ignore = [](void *, const char *, const char *, const char *) { return 1; };
    fail_each_allocation("ini_parse_file", [&] { ini_parse_file(ini.c_str(), ignore, nullptr); });
    CaptureFile out;
    fail_each_allocation("ksdb_template_write", [&] { ksdb_template_write(h, db, out.get(), pieces); });
    int round = 0;
    fail_each_allocation("ksdb_file_update", [&] {
        char *tmp = nullptr;
        const long armed = g_countdown;  // making the temporary file is not the point
        g_countdown = -1;
        FILE *f = ksdb_file_open_tempfile(h, &spec, &tmp);
        g_countdown = armed;
        if (!f) return;
        std::fprintf(f, "round %d\n", ++round);
        std::fclose(f);
        ksdb_file_update(h, &spec, tmp);
    });
    fail_each_allocation("ksdb_file_put_one_line", [&] { ksdb_file_put_one_line(one.c_str(), "x"); });
    auto none = [](ksdb_handle *, sqlite3 *, const char *, const char *, void *) { return 0; };
    fail_each_allocation("ksdb_foreach_share_subvolume",
                         [&] { ksdb_foreach_share_subvolume(h, db, none, nullptr, 0); });
}

}  // namespace
