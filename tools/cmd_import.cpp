// import: reads the system into the database, one category after another.
#include "tools/commands.h"

namespace ksdb_tool {

int cmd_import(const Options &o, const std::vector<std::string> &args) {
    std::vector<int> cats;
    if (int rc = parse_categories(args, &cats)) return rc;
    Session s;
    if (int rc = s.open(o)) return rc;
    if (int rc = s.connect()) return rc;
    return run_categories(s, cats, false);
}

}  // namespace ksdb_tool
