// ksdb_csv_to_array on arbitrary lines.  The field count must be the number
// of unescaped commas plus one, the fields must fit the one block of the
// line's length, and writing the fields back as a line (escaping
// backslashes, commas and leading blanks) must parse to the same fields.
#include "fuzz_support.h"

#include <cstdint>
#include <string>
#include <vector>

namespace {

std::vector<std::string> parse(ksdb_handle *h, const std::string &line) {
    char **array = nullptr;
    int count = -1;
    FUZZ_CHECK(ksdb_csv_to_array(h, line.c_str(), &array, &count) == 0);
    FUZZ_CHECK(array != nullptr && count >= 1);
    FUZZ_CHECK(array[count] == nullptr);
    std::vector<std::string> fields;
    for (int i = 0; i < count; ++i) fields.emplace_back(array[i]);
    return fields;
}

std::string write_back(const std::vector<std::string> &fields) {
    std::string line;
    for (size_t i = 0; i < fields.size(); ++i) {
        if (i) line += ',';
        bool leading = true;
        for (char c : fields[i]) {
            if (c == '\\' || c == ',' || (leading && (c == ' ' || c == '\t'))) line += '\\';
            leading = false;
            line += c;
        }
    }
    return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ksdb_fuzz::InputPool pool;
    const std::string line = ksdb_fuzz::as_text(data, size);

    size_t commas = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\\' && i + 1 < line.size())
            ++i;
        else if (line[i] == ',')
            ++commas;
    }

    std::vector<std::string> fields = parse(pool.h(), line);
    FUZZ_CHECK(fields.size() == commas + 1);
    size_t used = 0;
    for (const std::string &f : fields) used += f.size() + 1;
    FUZZ_CHECK(used <= line.size() + 1);

    FUZZ_CHECK(parse(pool.h(), write_back(fields)) == fields);
    return 0;
}
