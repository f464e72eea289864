// queue: the persistent message queue, kept in a database of its own
// (--queue-db, $KSDB_QUEUE_DB, else queue.db beside the configuration
// database), so that creating it never touches the configuration schema.
#include <ctime>

#include "tools/commands.h"

namespace ksdb_tool {

namespace {

bool parse_time(const std::string &text, int *out) {
    char *end = nullptr;
    if (!text.empty() && text[0] == '+') {
        long n = std::strtol(text.c_str() + 1, &end, 10);
        if (*end) return false;
        *out = static_cast<int>(time(nullptr) + n);
        return true;
    }
    int n = 0;
    if (parse_int(text, &n)) {
        *out = n;
        return true;
    }
    struct tm tm {};
    const char *rest = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &tm);
    if (!rest || *rest) return false;
    tm.tm_isdst = -1;
    *out = static_cast<int>(mktime(&tm));
    return true;
}

}  // namespace

int cmd_queue(const Options &o, std::vector<std::string> args) {
    if (args.empty()) return usage_error("queue: which operation?");
    std::string op = args[0];
    args.erase(args.begin());
    std::string src, dst;
    bool have_src = false, have_dst = false;
    int pri = 0, at = 0, maxlen = 0, clean = -1;
    bool have_at = false;
    std::vector<std::string> rest;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (a == "--src" || a == "--dst" || a == "--pri" || a == "--at" || a == "--maxlen" ||
            a == "--clean") {
            if (i + 1 >= args.size()) return usage_error(a + " needs a value");
            const std::string &v = args[++i];
            if (a == "--src") src = v, have_src = true;
            else if (a == "--dst") dst = v, have_dst = true;
            else if (a == "--pri" && !parse_int(v, &pri)) return usage_error("bad --pri " + v);
            else if (a == "--at" && !(have_at = parse_time(v, &at))) return usage_error("bad --at " + v);
            else if (a == "--maxlen" && !parse_int(v, &maxlen)) return usage_error("bad --maxlen " + v);
            else if (a == "--clean" && !parse_int(v, &clean)) return usage_error("bad --clean " + v);
        } else {
            rest.push_back(a);
        }
    }
    Session s;
    if (int rc = s.open_queue(o)) return rc;
    const char *srcp = have_src ? src.c_str() : nullptr;
    const char *dstp = have_dst ? dst.c_str() : nullptr;
    int rc;
    if (op == "create") {
        rc = ksdb_queue_create(s.h(), s.db(), maxlen);
    } else if (op == "push") {
        if (rest.size() != 1) return usage_error("queue push: one MESSAGE");
        rc = ksdb_queue_push(s.h(), s.db(), src.c_str(), dst.c_str(), rest[0].c_str(), pri,
                             have_at ? at : static_cast<int>(time(nullptr)));
    } else if (op == "pop" || op == "read") {
        char *val = nullptr, *so = nullptr, *dout = nullptr;
        int ts = 0, id = 0;
        rc = op == "pop" ? ksdb_queue_pop(s.h(), s.db(), srcp, dstp, &val, &ts, &so, &dout)
                         : ksdb_queue_read(s.h(), s.db(), srcp, dstp, &val, &ts, &so, &dout, &id);
        if (rc == 0) {
            if (!val) {
                std::printf("(no message)\n");
            } else {
                if (op == "read") std::printf("id:  %d\n", id);
                std::printf("src: %s\ndst: %s\nts:  %d\nval: %s\n", so ? so : "",
                            dout ? dout : "", ts, val);
            }
        }
    } else if (op == "remove") {
        int id = 0;
        if (rest.size() != 1 || !parse_int(rest[0], &id)) return usage_error("queue remove: ID");
        rc = clean >= 0 ? ksdb_queue_remove_clean(s.h(), s.db(), id, clean)
                        : ksdb_queue_remove(s.h(), s.db(), id);
    } else if (op == "clear") {
        rc = ksdb_queue_remove_all(s.h(), s.db());
    } else if (op == "stat") {
        int len = 0;
        rc = ksdb_queue_stat(s.h(), s.db(), srcp, dstp, &len);
        if (rc == 0) std::printf("%d\n", len);
    } else {
        return usage_error("queue: unknown operation '" + op + "'");
    }
    if (rc != 0) return fail(rc, "queue " + op + " failed");
    return 0;
}

}  // namespace ksdb_tool
