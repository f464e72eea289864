// The demo appliance tree, embedded in the ksdb command at build time from
// examples/demo-root.
#pragma once

#include <cstddef>

namespace ksdb_demo {

struct File {
    const char *path;  // relative to the appliance root
    const unsigned char *data;
    size_t size;
    unsigned mode;
};

extern const File kFiles[];
extern const size_t kFileCount;

}  // namespace ksdb_demo
