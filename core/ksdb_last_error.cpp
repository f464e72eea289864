// The thread's last-error record and the transaction guard.
#define KSDB_MODULE "ksdb_last_error"
#include "core/ksdb_internal.h"

#include <string>

namespace ksdb {
namespace {

struct ErrorRecord {
    ksdb_error pub{KSDB_LAYER_NONE, 0, "", 0, ""};
    std::string module;
    std::string message;
    unsigned long serial = 0;
};

ErrorRecord &record() {
    thread_local ErrorRecord r;
    return r;
}

}  // namespace

void set_last_error(ErrorLayer layer, int code, const char *module, int line,
                    std::string message) noexcept {
    ErrorRecord &r = record();
    ++r.serial;
    quietly([&] {
        r.module = module ? module : "";
        r.message = std::move(message);
    });
    while (!r.message.empty() && (r.message.back() == '\n' || r.message.back() == '\r'))
        r.message.pop_back();
    r.pub = ksdb_error{static_cast<int>(layer), code, r.module.c_str(), line, r.message.c_str()};
}

unsigned long last_error_serial() noexcept { return record().serial; }

void note_failure(unsigned long serial, const char *module, int line, const char *func,
                  int rc) noexcept {
    if (last_error_serial() != serial) return;
    quietly([&] { set_last_error(kLayerLibrary, rc, module, line, strprintf("%s() ==> %d", func, rc)); });
}

Transaction::Transaction(ksdb_handle *h, sqlite3 *db, const char *module, int line,
                         FailedBegin failed_begin)
    : h_(h), db_(db), module_(module), line_(line), state_(State::kFailed) {
    if (ksdb_sql_begin(h_, db_, nullptr, module_, line_) == SQLITE_OK) {
        state_ = State::kOpen;
    } else if (failed_begin == FailedBegin::kRollback) {
        ksdb_sql_rollback(h_, db_, nullptr, module_, line_);
    } else if (h_->db_mutex) {
        // Begin took db_mutex even though BEGIN failed; give it back.
        pthread_mutex_unlock(h_->db_mutex);
    }
}

int Transaction::commit() {
    if (state_ != State::kOpen) return SQLITE_MISUSE;
    state_ = State::kDone;
    // One more level of the lock across the COMMIT (which releases the
    // transaction's level whatever it returns) and the ROLLBACK after a
    // failed one (which releases this extra level).
    if (h_->db_mutex) pthread_mutex_lock(h_->db_mutex);
    int rc = ksdb_sql_commit(h_, db_, nullptr, module_, line_);
    if (rc == SQLITE_OK) {
        if (h_->db_mutex) pthread_mutex_unlock(h_->db_mutex);
    } else {
        ksdb_sql_rollback(h_, db_, nullptr, module_, line_);
    }
    return rc;
}

int Transaction::commit_only() {
    if (state_ != State::kOpen) return SQLITE_MISUSE;
    state_ = State::kDone;
    return ksdb_sql_commit(h_, db_, nullptr, module_, line_);
}

void Transaction::rollback() {
    if (state_ != State::kOpen) return;
    state_ = State::kDone;
    ksdb_sql_rollback(h_, db_, nullptr, module_, line_);
}

}  // namespace ksdb

extern "C" {

const ksdb_error *ksdb_last_error(void) { return &ksdb::record().pub; }

void ksdb_clear_error(void) {
    ksdb::ErrorRecord &r = ksdb::record();
    r.module.clear();
    r.message.clear();
    r.pub = ksdb_error{KSDB_LAYER_NONE, 0, "", 0, ""};
}

}  // extern "C"
