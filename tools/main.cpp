// ksdb: the command-line tool of the configuration database.
#include <cstdlib>
#include <string>
#include <vector>

#include "tools/commands.h"

using namespace ksdb_tool;

namespace {

const char kUsage[] =
    "usage: ksdb [options] COMMAND [arguments]\n"
    "\n"
    "options:\n"
    "  --db FILE        the database (default $KSDB_DB, else /var/lib/ksdb/ksdb.db)\n"
    "  --queue-db FILE  the message queue's own database (default $KSDB_QUEUE_DB,\n"
    "                   else queue.db beside the database, e.g. /var/lib/ksdb/queue.db)\n"
    "  --root DIR       debug root: read and write every file below DIR\n"
    "  --log-level N    0 nothing, 1 fatal, 2 error, 3 warn (default), 4 info, 5 debug\n"
    "  --log FILE       the library log (default standard error)\n"
    "  --trace FILE     the SQL trace (written from log level 4)\n"
    "  --help           this text\n"
    "\n"
    "commands:\n"
    "  create                       create or upgrade the schema\n"
    "  import CATEGORY...           import each category from the system into the database\n"
    "  export [--check] CATEGORY... export each category from the database into the system;\n"
    "                               --check: export into a scratch copy first, run the\n"
    "                               daemons' own checkers over every file that would change,\n"
    "                               and put the files in place only when all pass\n"
    "  diff CATEGORY...             show what an export would change, changing nothing\n"
    "  queue create [--maxlen N]    (re)create the message queue, discarding its messages\n"
    "  queue push [--src S] [--dst D] [--pri N] [--at TIME] MESSAGE\n"
    "  queue pop|read [--src S] [--dst D]\n"
    "  queue remove ID [--clean SECONDS]\n"
    "  queue clear                  remove every message\n"
    "  queue stat [--src S] [--dst D]\n"
    "  sql [--json] QUERY           run a query, print an aligned table (or JSON lines)\n"
    "  categories                   the categories and what each imports and exports\n"
    "  demo [--no-check] [DIR]      run the demo appliance in DIR (default a new temporary\n"
    "                               folder); its export runs with --check unless --no-check\n"
    "\n"
    "A CATEGORY is a name as `ksdb categories` lists it (any case) or its number.\n"
    "TIME is seconds since the epoch, +SECONDS from now, or \"YYYY-MM-DD HH:MM:SS\" local time.\n"
    "Every database is opened in WAL mode (the mode stays with the file), so readers and a\n"
    "writer do not wait for each other; results carry SQLite's extended result codes.\n"
    "With --check, a file whose checker is not installed is reported as \"not checked\";\n"
    "$KSDB_CHECKERS_DIR names another folder of checker wrappers.\n"
    "\n"
    "exit status: the library's status of the first failing step:\n"
    "  0 success\n"
    "  1 a table helper or a step of a chain failed (SQLite: SQL error)\n"
    "  2 an imported file breaks a rule of its format\n"
    "  3 a database step or transaction failed\n"
    "  4 invalid argument or unhandled category (also: bad command line; export --check:\n"
    "    a file failed its daemon's checker, and nothing was changed)\n"
    "  5 a file, buffer or parse failure (also: the database cannot be opened)\n"
    "  8 a helper command could not be started\n"
    "  9 an external command or directory search failed\n"
    "  255 a single-value query gave several rows or columns (-1)\n"
    "  other values are SQLite result codes, passed through; an extended result code\n"
    "  exits with its primary code (2067, a unique constraint, exits 19) and is printed whole\n";

}  // namespace

int main(int argc, char **argv) {
    Options o;
    const char *env_db = std::getenv("KSDB_DB");
    o.db = env_db && *env_db ? env_db : "/var/lib/ksdb/ksdb.db";
    const char *env_queue = std::getenv("KSDB_QUEUE_DB");
    if (env_queue && *env_queue) o.queue_db = env_queue;
    int i = 1;
    for (; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (a.rfind("--", 0) != 0) break;
        if (i + 1 >= argc) return usage_error(a + " needs a value");
        std::string v = argv[++i];
        if (a == "--db") o.db = v;
        else if (a == "--queue-db") o.queue_db = v;
        else if (a == "--root") o.root = v;
        else if (a == "--log") o.log_path = v;
        else if (a == "--trace") o.trace_path = v;
        else if (a == "--log-level") {
            int n = 0;
            if (!parse_int(v, &n) || n < 0 || n > 7) return usage_error("bad --log-level " + v);
            o.log_level = static_cast<uint32_t>(n);
            o.log_level_given = true;
        } else {
            return usage_error("unknown option " + a);
        }
    }
    if (i >= argc) return usage_error("which command?");
    std::string command = argv[i++];
    std::vector<std::string> args(argv + i, argv + argc);
    if (command == "create") return cmd_create(o);
    if (command == "import") return cmd_import(o, args);
    if (command == "export") return cmd_export(o, args);
    if (command == "diff") return cmd_diff(o, args);
    if (command == "queue") return cmd_queue(o, args);
    if (command == "sql") return cmd_sql(o, args);
    if (command == "categories") return cmd_categories();
    if (command == "demo") return cmd_demo(o, args);
    return usage_error("unknown command '" + command + "'");
}
