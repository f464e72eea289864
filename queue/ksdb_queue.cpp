// The persistent queue: text messages from a source to a destination with a
// priority and an earliest delivery time, kept in the `queue` table of the
// caller's database.  Every operation is one transaction of its own under
// db_mutex and ends with the exit log.
#define KSDB_MODULE "ksdb_queue"
#include "core/ksdb_internal.h"

#include <algorithm>
#include <cstdlib>

namespace {

// The queue database keeps user_version 0; a version table with upgrade
// steps exists so that a later shape of the tables has a place to go.
constexpr long kQueueVersion = 0;

// The schema list: both tables are dropped and re-created by every create.
// The indexes after `queue` are the delivery order "ORDER BY pri DESC,ts
// ASC,id ASC" for each selection a pop can make (by source and
// destination, by source, by destination, of every queue): a pop follows
// one of them to the first due message instead of sorting every due message
// of the queue.  They keep the columns' NOCASE collation, so the selection's
// "src=%Q" compares as the index sorts.  They change no result.
const char *const kQueueSchema[] = {
    "DROP TABLE IF EXISTS `queue` ",
    "CREATE TABLE `queue` ( `id` INTEGER NOT NULL, `ts` BIGINT NOT NULL DEFAULT 0, "
    "`src` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, "
    "`dst` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, "
    "`val` VARCHAR(65534) NOT NULL DEFAULT '' COLLATE NOCASE, "
    "`pri` INT NOT NULL DEFAULT 0, PRIMARY KEY (`id`))",
    "CREATE INDEX `queue_delivery` ON `queue` (`src` ASC, `dst` ASC, `pri` DESC, `ts` ASC, "
    "`id` ASC)",
    "CREATE INDEX `queue_delivery_src` ON `queue` (`src` ASC, `pri` DESC, `ts` ASC, `id` ASC)",
    "CREATE INDEX `queue_delivery_dst` ON `queue` (`dst` ASC, `pri` DESC, `ts` ASC, `id` ASC)",
    "CREATE INDEX `queue_delivery_due` ON `queue` (`pri` DESC, `ts` ASC, `id` ASC)",
    "DROP TABLE IF EXISTS `config` ",
    "CREATE TABLE `config` ( `maxlen` INT NOT NULL DEFAULT 65536, PRIMARY KEY (`maxlen`))",
    nullptr,
};

// kQueueUpgrades[n] takes a queue database from version n - 1 to n;
// index 0 is never used and there are no steps yet.
const char *const *const kQueueUpgrades[kQueueVersion + 1] = {nullptr};

constexpr int kDefaultMaxlen = 65536;

const char kDeliveryQuery[] =
    "SELECT id,ts,val,src,dst FROM queue %s ORDER BY pri DESC,ts ASC,id ASC LIMIT 1";

// The WHERE clause shared by pop, read and stat: only messages whose time
// has come, of the given source and/or destination (compared without regard
// to case through the columns' collation).  The doubled percent sign leaves
// STRFTIME('%s'), the current time in seconds.  The clause must fit its
// 256-byte buffer whole: a clause cut short could select by the source
// alone, so names too long for it are refused (false) instead.
bool selection(char (&where)[256], const char *src, const char *dst) {
    ksdb::SqlStr clause;
    if (!src && !dst)
        clause = ksdb::sql_printf("WHERE ts<=STRFTIME('%%s')");
    else if (!src)
        clause = ksdb::sql_printf("WHERE ts<=STRFTIME('%%s') AND dst=%Q", dst);
    else if (dst)
        clause = ksdb::sql_printf("WHERE ts<=STRFTIME('%%s') AND src=%Q AND dst=%Q", src, dst);
    else
        clause = ksdb::sql_printf("WHERE ts<=STRFTIME('%%s') AND src=%Q", src);
    if (!clause || std::strlen(clause.get()) >= sizeof where) return false;
    sqlite3_snprintf(sizeof where, where, "%s", clause.get());
    return true;
}

bool selection_or_log(ksdb_handle *h, char (&where)[256], const char *src, const char *dst) {
    if (selection(where, src, dst)) return true;
    KSDB_ERR(h, "Queue name too long (src=%s dst=%s)\n", src ? src : "", dst ? dst : "");
    return false;
}

int exec(ksdb_handle *h, sqlite3 *db, int line, const char *sql) {
    return ksdb_sql_exec(h, db, nullptr, KSDB_MODULE, line, sql);
}

int exec_fmt(ksdb_handle *h, sqlite3 *db, int line, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    ksdb::SqlStr sql = ksdb::sql_vprintf(format, ap);
    va_end(ap);
    return ksdb_sql_exec(h, db, nullptr, KSDB_MODULE, line, sql.get());
}

// Every operation but create rolls back after a failed BEGIN as after any
// other failure.
constexpr auto kRollbackFailedBegin = ksdb::Transaction::FailedBegin::kRollback;

// A statement of its own in a transaction of its own.
int run_alone(ksdb_handle *h, sqlite3 *db, int line, const char *sql) {
    ksdb::Transaction tx(h, db, KSDB_TAG, kRollbackFailedBegin);
    if (!tx.ok() || exec(h, db, line, sql) != SQLITE_OK) return KSDB_E_DB;
    return tx.commit() == SQLITE_OK ? KSDB_OK : KSDB_E_DB;
}

long to_long(const char *s) { return s ? std::strtol(s, nullptr, 10) : 0; }

// Hands back "no message".
void no_message(char **val, int *ts, char **src_out, char **dst_out, int *id) {
    *val = nullptr;
    *ts = 0;
    if (src_out) *src_out = nullptr;
    if (dst_out) *dst_out = nullptr;
    if (id) *id = 0;
}

// Pop (`remove`) or read the most urgent deliverable message.  The copies
// are made inside the transaction: the result pool is shared by every thread
// of the handle and db_mutex is what keeps its allocations apart.  A call
// that fails hands back no message.
int deliver(ksdb_handle *h, sqlite3 *db, const char *src, const char *dst, char **val, int *ts,
            char **src_out, char **dst_out, int *id, bool remove) {
    no_message(val, ts, src_out, dst_out, id);
    ksdb::Transaction tx(h, db, KSDB_TAG, kRollbackFailedBegin);
    if (!tx.ok()) return KSDB_E_DB;
    char where[256];
    if (!selection_or_log(h, where, src, dst)) return KSDB_E_DB;
    ksdb::SqlTable row;
    if (row.query(h, db, KSDB_TAG, kDeliveryQuery, where) != SQLITE_OK) return KSDB_E_DB;
    if (row.rows() == 0) return tx.commit() == SQLITE_OK ? KSDB_OK : KSDB_E_DB;

    const int row_id = static_cast<int>(to_long(row.at(0, 0)));
    *ts = static_cast<int>(to_long(row.at(0, 1)));
    *val = ksdb::pool_strdup(h, row.at(0, 2));
    if (src_out) *src_out = ksdb::pool_strdup(h, row.at(0, 3));
    if (dst_out) *dst_out = ksdb::pool_strdup(h, row.at(0, 4));
    if (id) *id = row_id;

    bool ok = !remove ||
              exec_fmt(h, db, __LINE__, "DELETE FROM queue WHERE id=%d", row_id) == SQLITE_OK;
    if (ok) ok = tx.commit() == SQLITE_OK;
    else tx.rollback();
    if (ok) return KSDB_OK;
    no_message(val, ts, src_out, dst_out, id);
    return KSDB_E_DB;
}

int create(ksdb_handle *h, sqlite3 *db, int maxlen) {
    // A failed BEGIN is not followed by ROLLBACK: when it failed because the
    // connection is already inside a transaction, that transaction is not
    // ours to end.
    ksdb::Transaction tx(h, db, KSDB_TAG);
    if (!tx.ok()) return KSDB_E_DB;

    int64_t stored = 0;
    if (ksdb_sql_get_int64_mprintf(h, db, nullptr, KSDB_TAG, &stored, nullptr,
                                   "PRAGMA user_version") != SQLITE_OK)
        return KSDB_E_DB;
    // Logged at error level so that it always reaches the log, although
    // nothing has failed.
    if (stored != 0)
        KSDB_ERR(h, "DB (queue) schema version: %ld ==> %ld\n", static_cast<long>(stored),
                 kQueueVersion);
    else
        KSDB_ERR(h, "DB (queue) schema version: new ==> %ld\n", kQueueVersion);

    for (const char *const *sql = kQueueSchema; *sql; ++sql)
        if (exec(h, db, __LINE__, *sql) != SQLITE_OK) return KSDB_E_DB;

    if (stored != 0) {
        for (long n = std::max<long>(stored + 1, 1); n <= kQueueVersion && kQueueUpgrades[n];
             ++n) {
            KSDB_INFO(h, "DB upgrate to version %ld\n", n);
            exec(h, db, __LINE__, kQueueUpgrades[n][0]);  // result deliberately ignored
            if (exec_fmt(h, db, __LINE__, "PRAGMA user_version=%ld", n) != SQLITE_OK)
                return KSDB_E_DB;
        }
    }
    if (exec_fmt(h, db, __LINE__, "PRAGMA user_version=%ld", kQueueVersion) != SQLITE_OK)
        return KSDB_E_DB;

    if (exec_fmt(h, db, __LINE__, "REPLACE INTO config (maxlen) VALUES(%d)",
                 maxlen < 1 ? kDefaultMaxlen : maxlen) != SQLITE_OK) {
        tx.rollback();
        KSDB_ERR(h, "Query (REPLACE queue.config) fail.\n");
        return KSDB_E_DB;
    }
    // A failed COMMIT is not rolled back here; the commit has released
    // db_mutex in any case.
    return tx.commit_only() == SQLITE_OK ? KSDB_OK : KSDB_E_DB;
}

}  // namespace

extern "C" {

int ksdb_queue_create(ksdb_handle *h, sqlite3 *db, int maxlen) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_queue_create", [&] { return create(h, db, maxlen); });
}

int ksdb_queue_push(ksdb_handle *h, sqlite3 *db, const char *src, const char *dst,
                    const char *val, int pri, int ts) {
    // The message's length is not checked against config.maxlen.
    return ksdb::logged(h, KSDB_TAG, "ksdb_queue_push", [&] {
        ksdb::SqlStr sql =
            ksdb::sql_printf("INSERT INTO queue (ts,src,dst,val,pri) VALUES(%d,%Q,%Q,%Q,%d)", ts,
                             src, dst, val, pri);
        return run_alone(h, db, __LINE__, sql.get());
    });
}

int ksdb_queue_pop(ksdb_handle *h, sqlite3 *db, const char *src, const char *dst, char **val,
                   int *ts, char **src_out, char **dst_out) {
    KSDB_ASSERT(val);
    KSDB_ASSERT(ts);
    return ksdb::logged(h, KSDB_TAG, "ksdb_queue_pop", [&] {
        return deliver(h, db, src, dst, val, ts, src_out, dst_out, nullptr, true);
    });
}

int ksdb_queue_read(ksdb_handle *h, sqlite3 *db, const char *src, const char *dst, char **val,
                    int *ts, char **src_out, char **dst_out, int *id) {
    KSDB_ASSERT(val);
    KSDB_ASSERT(ts);
    KSDB_ASSERT(id);
    return ksdb::logged(h, KSDB_TAG, "ksdb_queue_read", [&] {
        return deliver(h, db, src, dst, val, ts, src_out, dst_out, id, false);
    });
}

int ksdb_queue_remove(ksdb_handle *h, sqlite3 *db, int id) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_queue_remove", [&] {
        ksdb::SqlStr sql = ksdb::sql_printf("DELETE FROM queue WHERE id=%d", id);
        return run_alone(h, db, __LINE__, sql.get());
    });
}

int ksdb_queue_remove_clean(ksdb_handle *h, sqlite3 *db, int id, int seconds) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_queue_remove_clean", [&] {
        ksdb::SqlStr sql = ksdb::sql_printf(
            "DELETE FROM queue WHERE ts<(SELECT ts+%d FROM queue WHERE id=%d) AND "
            "src=(SELECT src FROM queue WHERE id=%d) AND dst=(SELECT dst FROM queue WHERE "
            "id=%d) AND val=(SELECT val FROM queue WHERE id=%d)",
            seconds, id, id, id, id);
        return run_alone(h, db, __LINE__, sql.get());
    });
}

int ksdb_queue_remove_all(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_queue_remove_all",
                        [&] { return run_alone(h, db, __LINE__, "DELETE FROM queue"); });
}

int ksdb_queue_stat(ksdb_handle *h, sqlite3 *db, const char *src, const char *dst, int *len) {
    KSDB_ASSERT(len);
    return ksdb::logged(h, KSDB_TAG, "ksdb_queue_stat", [&]() -> int {
        *len = 0;  // a failed call counts nothing
        ksdb::Transaction tx(h, db, KSDB_TAG, kRollbackFailedBegin);
        if (!tx.ok()) return KSDB_E_DB;
        char where[256];
        if (!selection_or_log(h, where, src, dst)) return KSDB_E_DB;
        int32_t count = 0;
        if (ksdb_sql_get_int32_mprintf(h, db, nullptr, KSDB_TAG, &count, nullptr,
                                       "SELECT COUNT(*) FROM queue %s", where) != SQLITE_OK ||
            tx.commit() != SQLITE_OK)
            return KSDB_E_DB;
        *len = count;
        return KSDB_OK;
    });
}

}  // extern "C"
