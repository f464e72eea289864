// The thread's last-error record and the transaction guard.
#define KSDB_MODULE "ksdb_last_error"
#include "core/ksdb_area.h"

#include <string>

namespace ksdb {
namespace {

struct ErrorRecord {
    ksdb_error pub{KSDB_LAYER_NONE, 0, "", 0, ""};
    std::string module;
    std::string message;
};

ErrorRecord &record() {
    thread_local ErrorRecord r;
    return r;
}

}  // namespace

void set_last_error(ErrorLayer layer, int code, const char *module, int line,
                    std::string message) {
    ErrorRecord &r = record();
    r.module = module ? module : "";
    r.message = std::move(message);
    while (!r.message.empty() && (r.message.back() == '\n' || r.message.back() == '\r'))
        r.message.pop_back();
    r.pub = ksdb_error{static_cast<int>(layer), code, r.module.c_str(), line, r.message.c_str()};
}

Transaction::Transaction(ksdb_handle *h, sqlite3 *db, const char *module, int line)
    : h_(h), db_(db), module_(module), line_(line), state_(State::kFailed) {
    if (ksdb_sql_begin(h_, db_, nullptr, module_, line_) == SQLITE_OK) {
        state_ = State::kOpen;
    } else if (h_->db_mutex) {
        // Begin took db_mutex even though BEGIN failed.  No ROLLBACK here:
        // it could undo a transaction the caller already holds.
        pthread_mutex_unlock(h_->db_mutex);
    }
}

Transaction::~Transaction() { rollback(); }

int Transaction::commit() {
    if (state_ != State::kOpen) return SQLITE_MISUSE;
    int rc = ksdb_sql_commit(h_, db_, nullptr, module_, line_);
    state_ = State::kDone;
    // A failed COMMIT released db_mutex all the same; the rollback after it
    // takes it again so that its own release balances.
    if (rc != SQLITE_OK) rollback_after_failed_commit(h_, db_, module_, line_);
    return rc;
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
