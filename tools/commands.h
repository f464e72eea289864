// The commands of ksdb, one file each.  Each returns the exit status.
#pragma once

#include <string>
#include <vector>

#include "tools/session.h"

namespace ksdb_tool {

int cmd_create(const Options &o);
int cmd_import(const Options &o, const std::vector<std::string> &args);
// export [--check] CATEGORY...
int cmd_export(const Options &o, std::vector<std::string> args);
int cmd_diff(const Options &o, const std::vector<std::string> &args);
int cmd_queue(const Options &o, std::vector<std::string> args);
int cmd_sql(const Options &o, std::vector<std::string> args);
int cmd_categories();
// demo [--no-check] [DIR]
int cmd_demo(const Options &o, std::vector<std::string> args);

}  // namespace ksdb_tool
