// sql: runs a query and prints an aligned table or JSON lines.
#include <algorithm>

#include "tools/commands.h"

namespace ksdb_tool {

namespace {

std::string json_string(const char *s) {
    std::string out = "\"";
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(s); *p; ++p) {
        switch (*p) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (*p < 0x20) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", *p);
                out += buf;
            } else {
                out += static_cast<char>(*p);
            }
        }
    }
    return out + "\"";
}

// Display width of UTF-8 text (one column per code point).
size_t width(const char *s) {
    size_t w = 0;
    for (; *s; ++s)
        if ((static_cast<unsigned char>(*s) & 0xC0) != 0x80) ++w;
    return w;
}

}  // namespace

int cmd_sql(const Options &o, std::vector<std::string> args) {
    bool json = false;
    if (!args.empty() && args[0] == "--json") {
        json = true;
        args.erase(args.begin());
    }
    if (args.size() != 1) return usage_error("sql: one QUERY");
    Session s;
    if (int rc = s.open(o)) return rc;
    // Scratch tables such as _volume exist per connection: make them when
    // the schema is current, so queries can read them.
    if (s.schema_version() == KSDB_SCHEMA_VERSION) ksdb_connect(s.h(), s.db());
    char **table = nullptr;
    int nrow = 0, ncol = 0;
    char *msg = nullptr;
    int rc = ksdb_sql_get_table(s.h(), s.db(), &msg, KSDB_SITE("ksdb_tool"), &table, &nrow, &ncol,
                                args[0].c_str());
    if (rc != 0) {
        std::fprintf(stderr, "ksdb: query failed: %s (status %d: %s)\n", sqlite3_errmsg(s.db()),
                     rc, sqlite3_errstr(rc));
        sqlite3_free_table(table);
        return exit_status(rc);
    }
    auto cell = [&](int r, int c) -> const char * { return table[r * ncol + c]; };
    if (json) {
        for (int r = 1; r <= nrow; ++r) {
            std::string line = "{";
            for (int c = 0; c < ncol; ++c) {
                if (c) line += ",";
                line += json_string(cell(0, c)) + ":" +
                        (cell(r, c) ? json_string(cell(r, c)) : "null");
            }
            std::printf("%s}\n", line.c_str());
        }
    } else if (ncol > 0) {
        std::vector<size_t> w(ncol, 0);
        for (int r = 0; r <= nrow; ++r)
            for (int c = 0; c < ncol; ++c)
                w[c] = std::max(w[c], width(cell(r, c) ? cell(r, c) : "NULL"));
        for (int r = 0; r <= nrow; ++r) {
            std::string line;
            for (int c = 0; c < ncol; ++c) {
                const char *v = cell(r, c) ? cell(r, c) : "NULL";
                line += v;
                if (c + 1 < ncol) line += std::string(w[c] - width(v) + 2, ' ');
            }
            std::printf("%s\n", line.c_str());
            if (r == 0) {
                std::string rule;
                for (int c = 0; c < ncol; ++c)
                    rule += std::string(w[c], '-') + (c + 1 < ncol ? "  " : "");
                std::printf("%s\n", rule.c_str());
            }
        }
        std::printf("(%d row%s)\n", nrow, nrow == 1 ? "" : "s");
    }
    sqlite3_free_table(table);
    return 0;
}

}  // namespace ksdb_tool
