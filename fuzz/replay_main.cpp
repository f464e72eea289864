// Replays corpora without libFuzzer: feeds every regular file of the folders
// (or the files) named on the command line to the target's
// LLVMFuzzerTestOneInput once, in name order.  A broken property aborts the
// run as it would under the fuzzer; a corpus without inputs is a failure.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

std::vector<std::string> inputs_of(const std::string &path) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return {path};
    std::vector<std::string> out;
    if (DIR *d = opendir(path.c_str())) {
        while (struct dirent *e = readdir(d))
            if (e->d_name[0] != '.') out.push_back(path + "/" + e->d_name);
        closedir(d);
    }
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

int main(int argc, char **argv) {
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const std::string &file : inputs_of(argv[i])) {
            std::ifstream in(file, std::ios::binary);
            if (!in) {
                std::fprintf(stderr, "cannot read %s\n", file.c_str());
                return 1;
            }
            std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)),
                                      std::istreambuf_iterator<char>());
            LLVMFuzzerTestOneInput(data.data(), data.size());
            ++count;
        }
    }
    std::printf("%zu inputs replayed\n", count);
    return count > 0 ? 0 : 1;
}
