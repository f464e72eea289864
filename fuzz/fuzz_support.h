// Shared pieces of the fuzz targets: one handle for the whole process, a
// result pool that lives for one input, and a check that stops the run.
#pragma once

#include "ksdb.h"

#include <apr_pools.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace ksdb_fuzz {

// A handle without log output, made on first use and kept to the end.
inline ksdb_handle *handle() {
    static ksdb_handle *h = [] {
        ksdb_handle *made = ksdb_initialize_old(nullptr, KSDB_LOG_NONE, nullptr, nullptr);
        if (!made) {
            std::fprintf(stderr, "fuzz: cannot create a handle\n");
            std::abort();
        }
        return made;
    }();
    return h;
}

// Makes a fresh call pool the handle's result pool for one input and
// destroys it afterwards, so results of earlier inputs don't pile up.
class InputPool {
  public:
    InputPool() : h_(handle()) {
        apr_pool_create(&pool_, h_->pool);
        h_->call_pool = pool_;
    }
    ~InputPool() {
        h_->call_pool = nullptr;
        apr_pool_destroy(pool_);
    }
    InputPool(const InputPool &) = delete;
    InputPool &operator=(const InputPool &) = delete;
    ksdb_handle *h() const { return h_; }
    apr_pool_t *pool() const { return pool_; }

  private:
    ksdb_handle *h_;
    apr_pool_t *pool_ = nullptr;
};

// The input as a C string: the bytes up to the first NUL.
inline std::string as_text(const uint8_t *data, size_t size) {
    const char *p = reinterpret_cast<const char *>(data);
    return std::string(p, strnlen(p, size));
}

// A property that must hold for every input; a violation is a crash that
// libFuzzer records with the input.
#define FUZZ_CHECK(cond)                                                                      \
    do {                                                                                      \
        if (!(cond)) {                                                                        \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond);     \
            std::abort();                                                                     \
        }                                                                                     \
    } while (0)

}  // namespace ksdb_fuzz
