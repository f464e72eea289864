// Every case folder's expected files pass their daemon's own checker (the export
// laws make the generated files equal to them, ssh-keygen reads each key line);
// each checker refuses a broken file.
#include "tests/support/case_runner.h"
#include "tests/support/test_support.h"

#include <sys/statvfs.h>

using namespace ksdb_test;

namespace {

// The checker of a file, by the end of its path.
const std::pair<const char *, const char *> kCheckers[] = {
    {"/etc/ssh/sshd_config", "check-sshd.sh"},   {"/etc/snmp/snmpd.conf", "check-snmpd.sh"},
    {"/etc/clamav/clamd.conf", "check-clamd.sh"}, {".service", "check-avahi-service.sh"},
    {"/etc/cron.d/quillfold-backup", "check-cron-d.sh"},
    {"/etc/cron.d/quillfold-volumeschedule", "check-cron-d.sh"},
    {"/backup_jobs.conf", "check-xml.sh"},       {"/.volume_schedule.conf", "check-xml.sh"},
    {"/registration.conf", "check-xml.sh"},      {"/etc/quillfold/rsync/Shares.conf", "check-rsyncd.sh"},
    {"/etc/exports", "check-exports.sh"},         {"/ssh_authorized_keys", "ssh-keygen"},
    {"/etc/replisync/authorized_keys", "ssh-keygen"},
};

// Checks `text` as the file `live` of an appliance below a fresh root:
// exportfs finds the exported folders there, "{fsid:...}" is the root's id.
int check(const std::string &live, const char *script, std::string text, std::string *out) {
    TempDir root;
    struct statvfs st {};
    statvfs(root.path().c_str(), &st);
    for (size_t p; (p = text.find("{fsid:")) != std::string::npos;)
        text.replace(p, text.find('}', p) + 1 - p, std::to_string(st.f_fsid));
    for (const std::string &line : lines(text))
        if (line.rfind("\"/", 0) == 0) mkdirs(root / line.substr(1, line.find('"', 1) - 1));
    write_file(root.path() + live, text);
    if (script == std::string("ssh-keygen")) {  // one key line at a time: it passes over bad ones
        const std::string cmd = "cd '" + root.path() + "' && while IFS= read -r l; do printf '%s\\n' \"$l\" "
                                ">k && ssh-keygen -l -f k || exit 1; done <'." + live + "' >/dev/null 2>&1";
        return std::system(cmd.c_str());
    }
    ScopedEnv exports_root("KSDB_EXPORTS_ROOT", root.path());
    const int rc = run_checker(script, root.path() + live, out);
    return rc == 77 ? 0 : rc;  // exportfs cannot run here
}

TEST(Checkers, EveryExpectedFileOfTheCasesPassesItsDaemonsChecker) {
    ScopedEnv path("PATH", std::string(std::getenv("PATH")) + ":/usr/sbin:/sbin");
    for (const char *p : {"sshd", "ssh-keygen", "snmpd", "clamconf", "xmllint", "crontab", "rsync"})
        if (!have_program(p)) GTEST_SKIP() << p << " is not installed (scripts/setup-deps)";
    std::map<std::string, int> checked;
    std::string out;
    for (const CaseSpec &spec : find_cases(KSDB_CASES_DIR)) {
        if (!spec.export_law || spec.export_status != 0) continue;
        for (const auto &[rel, text] : file_tree(spec.dir + "/expect"))
            for (const auto &[end, script] : kCheckers) {
                const std::string live = "/" + rel;
                if (!live.ends_with(end)) continue;
                ++checked[script];
                EXPECT_EQ(check(live, script, text, &out), 0) << spec.name << ": " << live << out;
                // The checker sees a broken file.
                if (checked[script] == 1) {
                    EXPECT_NE(check(live, script, text + "\"/x\" *(no_such_option) <\n", &out), 0) << live;
                }
            }
    }
    EXPECT_EQ(checked.size(), 9u);
}

}  // namespace
