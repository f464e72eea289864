// categories: every category with the steps its import and export run.
#include "tools/commands.h"

namespace ksdb_tool {

namespace {

std::string step_text(const ksdb_step_info &step) {
    std::string out = step.what;
    if (step.state == KSDB_STEP_NOT_PROVIDED) out += " [not provided]";
    else if (step.state == KSDB_STEP_PENDING) out += " [not yet built]";
    return out;
}

// One direction of a category: its one step on the same line, or each
// step of a chain on a line of its own.
void describe(int cat, int direction) {
    const char *label = direction ? "export" : "import";
    ksdb_step_info steps[96];
    int n = ksdb_category_steps(cat, direction, steps, 96);
    if (n == KSDB_STEPS_NOT_EXPORTABLE) {
        std::printf("    %s: not exportable\n", label);
    } else if (n <= 0) {
        std::printf("    %s: nothing\n", label);
    } else if (n == 1) {
        std::printf("    %s: %s\n", label, step_text(steps[0]).c_str());
    } else {
        std::printf("    %s, in this order:\n", label);
        for (int i = 0; i < n && i < 96; ++i)
            std::printf("      %-40s %s\n", steps[i].name, step_text(steps[i]).c_str());
    }
}

}  // namespace

int cmd_categories() {
    for (int c = 0; c < KSDB_CATEGORY_COUNT; ++c) {
        std::printf("%2d %s\n", c, ksdb_cat2str(c));
        describe(c, 0);
        describe(c, 1);
    }
    return 0;
}

}  // namespace ksdb_tool
