// create: makes or upgrades the schema and prints the version before and
// after.
#include "tools/commands.h"

namespace ksdb_tool {

int cmd_create(const Options &o) {
    Session s;
    if (int rc = s.open(o)) return rc;
    long before = s.schema_version();
    int rc = ksdb_create(s.h(), s.db());
    if (rc != 0) return fail(rc, "cannot create the schema");
    long after = s.schema_version();
    if (before == 0)
        std::printf("schema version: new -> %ld\n", after);
    else
        std::printf("schema version: %ld -> %ld\n", before, after);
    return 0;
}

}  // namespace ksdb_tool
