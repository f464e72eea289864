// The log writers: the library log (stream or journal), the SQL trace, the
// domain-account log and the exit log that ends every public operation.
#define KSDB_MODULE "ksdb_log"
#include "core/ksdb_internal.h"

#define SD_JOURNAL_SUPPRESS_LOCATION 1
#include <sys/syscall.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <apr_strings.h>

#include <errno.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace ksdb {

const char *const kAdsLogPath = "/var/log/kestravad/ads.log";

namespace {

// Level names; levels 0 and 6 have the empty name, 7 and above none at all.
const char *const kLevelNames[7] = {"", "fatal", "error", "warn", "info", "debug", ""};
const int kJournalPriority[8] = {7, 0, 3, 4, 6, 7, 7, 7};

const char *level_name(uint32_t level) { return level < 7 ? kLevelNames[level] : ""; }

void journal_send_default(const char *message, int priority, const char *code_file,
                          int code_line, const char *category) {
    sd_journal_send("MESSAGE=%s", message, "PRIORITY=%d", priority, "CODE_FILE=%s", code_file,
                    "CODE_LINE=%d", code_line, "CATEGORY=%s", category, NULL);
}

std::atomic<JournalSink> g_journal_sink{journal_send_default};

// Sends every complete, non-empty line of `text` to the journal.  Text after
// the last newline is not sent: a message without a newline never reaches
// the journal.
void journal_lines(const char *text, int priority, const char *file, int line,
                   const char *category) {
    JournalSink sink = g_journal_sink.load(std::memory_order_relaxed);
    quietly([&] {
        const char *p = text;
        while (const char *nl = std::strchr(p, '\n')) {
            if (nl > p) {
                std::string piece(p, static_cast<size_t>(nl - p));
                sink(piece.c_str(), priority, file, line, category);
            }
            p = nl + 1;
        }
    });
}

struct tm local_now() {
    time_t now = time(nullptr);
    struct tm tm;
    localtime_r(&now, &tm);
    return tm;
}

void vads_log_to(const char *path, const char *file, int line, uint32_t level,
                 const char *format, va_list ap) {
    FILE *f = std::fopen(path, "a");
    if (!f) return;
    struct tm tm = local_now();
    std::fprintf(f, "[%02d-%02d-%02d %02d:%02d:%02d] %d %s:%d %s: ", tm.tm_year % 100,
                 tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                 static_cast<int>(getpid()), file, line, level_name(level));
    std::vfprintf(f, format, ap);
    if (!std::strchr(format, '\n')) std::fputc('\n', f);
    std::fclose(f);
}

}  // namespace

namespace {
thread_local ksdb_observer t_observer;
thread_local bool t_observer_set = false;
}  // namespace

const ksdb_observer *current_observer() { return t_observer_set ? &t_observer : nullptr; }

JournalSink set_journal_sink(JournalSink sink) {
    return g_journal_sink.exchange(sink ? sink : journal_send_default);
}

void ads_log_for(const ksdb_handle *h, const char *file, int line, uint32_t level,
                 const char *format, ...) {
    std::string path = h ? effective_path(h, kAdsLogPath) : std::string(kAdsLogPath);
    va_list ap;
    va_start(ap, format);
    vads_log_to(path.c_str(), file, line, level, format, ap);
    va_end(ap);
}

void exit_log(const ksdb_handle *h, const char *module, int line, const char *func, int rc,
              long long elapsed_ms) noexcept {
    if (rc != 0) {
        if (h && h->log_level > 1)
            ksdb_log(h, module, line, KSDB_LOG_ERROR, 0, "%s() ==> %d (%lldms)\n", func, rc,
                     elapsed_ms);
        quietly([&] {
            ads_log_for(h, module, line, KSDB_LOG_ERROR, "%s() ==> %d (%lldms)\n", func, rc,
                        elapsed_ms);
        });
    } else if (h && h->log_level > 4) {
        ksdb_log(h, module, line, KSDB_LOG_DEBUG, 0, "%s() ==> %d (%lldms)\n", func, rc,
                 elapsed_ms);
    }
}

void assert_fail(const char *expr, const char *file, int line, const char *func) {
    // The C library's own assertion message, so tools that look for it work.
    std::fprintf(stderr, "%s: %s:%d: %s: Assertion `%s' failed.\n", program_invocation_short_name,
                 file, line, func, expr);
    std::abort();
}

std::string vstrprintf(const char *format, va_list ap) {
    va_list copy;
    va_copy(copy, ap);
    char small[256];
    int n = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (n < 0) return std::string();
    if (static_cast<size_t>(n) < sizeof small) return std::string(small, static_cast<size_t>(n));
    std::string out(static_cast<size_t>(n), '\0');
    std::vsnprintf(out.data(), out.size() + 1, format, ap);
    return out;
}

std::string strprintf(const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string s = vstrprintf(format, ap);
    va_end(ap);
    return s;
}

char *pool_printf(const ksdb_handle *h, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    char *s = apr_pvsprintf(result_pool(h), format, ap);
    va_end(ap);
    return s;
}

char *pool_strdup(const ksdb_handle *h, const char *s) {
    return s ? apr_pstrdup(result_pool(h), s) : nullptr;
}

std::string effective_path(const ksdb_handle *h, std::string_view path) {
    std::string out;
    if (ksdb_is_debug_root(h)) out = h->debug_root;
    out.append(path);
    return out;
}

}  // namespace ksdb


extern "C" {

void ksdb_vlog(const ksdb_handle *h, const char *file, int line, uint32_t level,
               int append_newline, const char *format, va_list ap) {
    if (!h || h->log_level < level) return;
    if (h->log_stream) {
        ksdb::MutexGuard guard(h->log_mutex);
        struct tm tm = ksdb::local_now();
        std::fprintf(h->log_stream, "[%02d/%02d/%02d %02d:%02d:%02d] %d:%lu %s:%d (%s) ",
                     tm.tm_year % 100, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                     tm.tm_sec, static_cast<int>(getpid()),
                     static_cast<unsigned long>(syscall(SYS_gettid)), file, line,
                     ksdb::level_name(level));
        std::vfprintf(h->log_stream, format, ap);
        if (append_newline) std::fputc('\n', h->log_stream);
        if (level <= 2 || h->log_level >= 5) std::fflush(h->log_stream);
        return;
    }
    char *text = nullptr;
    if (vasprintf(&text, format, ap) < 0) return;
    ksdb::journal_lines(text, ksdb::kJournalPriority[level & 7], file, line, "ksdb.log");
    std::free(text);
}

void ksdb_log(const ksdb_handle *h, const char *file, int line, uint32_t level,
              int append_newline, const char *format, ...) {
    if (!h || h->log_level < level) return;
    va_list ap;
    va_start(ap, format);
    ksdb_vlog(h, file, line, level, append_newline, format, ap);
    va_end(ap);
}

void ksdb_set_observer(const ksdb_observer *observer) {
    if (observer) {
        ksdb::t_observer = *observer;
        ksdb::t_observer_set = true;
    } else {
        ksdb::t_observer = ksdb_observer{};
        ksdb::t_observer_set = false;
    }
}

void ads_log(const char *file, int line, uint32_t level, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    ksdb::vads_log_to(ksdb::kAdsLogPath, file, line, level, format, ap);
    va_end(ap);
}

void ksdb_trace(const ksdb_handle *h, const char *file, int line, const char *format, ...) {
    if (!h || h->log_level <= 3) return;
    va_list ap;
    va_start(ap, format);
    if (h->trace_stream) {
        struct tm tm = ksdb::local_now();
        ksdb::MutexGuard guard(h->trace_mutex);
        std::fprintf(h->trace_stream, "[%02d/%02d/%02d %02d:%02d:%02d](%d:%lu) %s:%d",
                     tm.tm_year % 100, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                     tm.tm_sec, static_cast<int>(getpid()),
                     static_cast<unsigned long>(pthread_self()), file, line);
        std::vfprintf(h->trace_stream, format, ap);
        if (h->log_level > 4) std::fflush(h->trace_stream);
    } else {
        char *text = nullptr;
        if (vasprintf(&text, format, ap) >= 0) {
            ksdb::journal_lines(text, 7, file, line, "ksdb.jnl");
            std::free(text);
        }
    }
    va_end(ap);
}

}  // extern "C"
