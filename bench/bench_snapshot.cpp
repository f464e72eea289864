// The scan of existing snapshots (ksdb_snapshots_import_zfs) over 100
// shares holding 1,000 and 10,000 snapshots between them, kept by the
// snapshot manager ("<share>/.snapshots/<n>/info.xml"), in an appliance
// tree below a debug root.  The scan does a fixed amount of work per share
// and per snapshot, so ten times the snapshots should take about ten times
// as long: the ratio of the two runs is printed against a target of 12.
#define KSDB_NO_SHORT_CATEGORY_NAMES 1
#include "ksdb.h"

#include "bench/bench_support.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kShares = 100;

// A temporary appliance root with one volume "vol" of kShares shares and
// `snapshots` snapshots spread evenly over them.
class Tree {
  public:
    explicit Tree(int snapshots) {
        char tmpl[] = "/tmp/ksdb-bench-snapshot-XXXXXX";
        root_ = mkdtemp(tmpl);
        mkdir((root_ + "/vol").c_str(), 0755);
        mkdir((root_ + "/vol/._share").c_str(), 0755);
        for (int s = 0; s < kShares; ++s) {
            const std::string share = "share" + std::to_string(s);
            mkdir((root_ + "/vol/._share/" + share).c_str(), 0755);
            mkdir((root_ + "/vol/" + share).c_str(), 0755);
            mkdir((root_ + "/vol/" + share + "/.snapshots").c_str(), 0755);
        }
        for (int n = 0; n < snapshots; ++n) {
            const std::string dir = root_ + "/vol/share" + std::to_string(n % kShares) +
                                    "/.snapshots/" + std::to_string(n);
            mkdir(dir.c_str(), 0755);
            char xml[256];
            std::snprintf(xml, sizeof xml,
                          "<?xml version=\"1.0\"?>\n<snapshot>\n  <num>%d</num>\n"
                          "  <date>2024-%02d-%02d 10:00:00</date>\n  <userdata>\n"
                          "    <value>s_auto-%d</value>\n  </userdata>\n</snapshot>\n",
                          n, n % 12 + 1, n % 28 + 1, n);
            if (FILE *f = std::fopen((dir + "/info.xml").c_str(), "w")) {
                std::fputs(xml, f);
                std::fclose(f);
            }
        }
    }
    ~Tree() { std::system(("rm -rf '" + root_ + "'").c_str()); }
    const std::string &root() const { return root_; }

  private:
    std::string root_;
};

void BM_ksdb_snapshots_import_zfs(benchmark::State &state) {
    Tree tree(static_cast<int>(state.range(0)));
    ksdb_handle *h = ksdb_initialize_old(nullptr, 0, nullptr, tree.root().c_str());
    sqlite3 *db = nullptr;
    sqlite3_open(":memory:", &db);
    ksdb_create(h, db);
    std::string sql = "INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol','vol',1024);";
    for (int s = 0; s < kShares; ++s) {
        const std::string n = std::to_string(s);
        sql += "INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(" +
               std::to_string(s + 1) + ",'vol/share" + n + "','vol','share" + n + "','/vol/share" +
               n + "',0,0);";
    }
    sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
    for (auto _ : state) {
        if (ksdb_snapshots_import_zfs(h, db, nullptr, nullptr) != 0) state.SkipWithError("scan failed");
        state.PauseTiming();
        sqlite3_exec(db, "DELETE FROM `$snapshot`", nullptr, nullptr, nullptr);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    sqlite3_close(db);
    std::free(h->sys_info);
    ksdb_pool_destroy_old(h);
    std::free(h);
}

BENCHMARK(BM_ksdb_snapshots_import_zfs)
    ->Arg(1000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

int main(int argc, char **argv) {
    return ksdb_bench::run_with_ratios(
        argc, argv,
        {{"BM_ksdb_snapshots_import_zfs/10000/real_time",
          "BM_ksdb_snapshots_import_zfs/1000/real_time", 12.0}}, 3);
}
