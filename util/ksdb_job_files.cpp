// Cron fields, XML job files and whole managed files for the job areas.
#define KSDB_MODULE "ksdb_job_files"
#include "util/ksdb_job_files.h"

#include "util/ksdb_conf_reader.h"
#include "util/ksdb_file_utils.h"
#include "util/ksdb_fs.h"
#include "util/ksdb_string_utils.h"

#include <apr_pools.h>
#include <libxml/parser.h>
#include <strings.h>

#include <cctype>
#include <cstdint>
#include <memory>

namespace ksdb {

// ---- cron ----------------------------------------------------------------------

namespace {

struct CronRange {
    int low, high;
    const char *const *names;  // three-letter names of low, low + 1, ... or nullptr
    const char *place;
};

const char *const kMonthNames[] = {"jan", "feb", "mar", "apr", "may", "jun", "jul",
                                   "aug", "sep", "oct", "nov", "dec", nullptr};
const char *const kDayNames[] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat", nullptr};

const CronRange &cron_range(CronField field) {
    static const CronRange kRanges[] = {
        {0, 59, nullptr, "the minute field of a cron line"},
        {0, 23, nullptr, "the hour field of a cron line"},
        {1, 31, nullptr, "the day-of-month field of a cron line"},
        {1, 12, kMonthNames, "the month field of a cron line"},
        {0, 7, kDayNames, "the day-of-week field of a cron line"},
    };
    return kRanges[static_cast<int>(field)];
}

// Reads a number or a name of the field at p: true and *p advanced past it.
bool cron_value(std::string_view &p, const CronRange &r, const char **why) {
    size_t n = 0;
    while (n < p.size() && std::isdigit(static_cast<unsigned char>(p[n]))) ++n;
    if (n > 0) {
        if (n > 4 || std::stoi(std::string(p.substr(0, n))) < r.low ||
            std::stoi(std::string(p.substr(0, n))) > r.high) {
            *why = "a number out of range";
            return false;
        }
        p.remove_prefix(n);
        return true;
    }
    if (r.names && p.size() >= 3) {
        for (const char *const *name = r.names; *name; ++name) {
            if (strncasecmp(p.data(), *name, 3) == 0) {
                p.remove_prefix(3);
                return true;
            }
        }
    }
    *why = "neither a number nor a name";
    return false;
}

}  // namespace

const char *cron_field_refusal(std::string_view text, CronField field) {
    const CronRange &r = cron_range(field);
    const char *why = nullptr;
    std::string_view p = text;
    if (p.empty()) return "an empty value";
    while (true) {
        bool stepable = false;
        if (!p.empty() && p.front() == '*') {
            p.remove_prefix(1);
            stepable = true;
        } else {
            if (!cron_value(p, r, &why)) return why;
            if (!p.empty() && p.front() == '-') {
                p.remove_prefix(1);
                if (!cron_value(p, r, &why)) return why;
                stepable = true;
            }
        }
        if (!p.empty() && p.front() == '/') {
            if (!stepable) return "a step after a single value";
            p.remove_prefix(1);
            size_t n = 0;
            while (n < p.size() && std::isdigit(static_cast<unsigned char>(p[n]))) ++n;
            if (n == 0 || n > 4 || std::stoi(std::string(p.substr(0, n))) == 0)
                return "a step that is not a positive number";
            p.remove_prefix(n);
        }
        if (p.empty()) return nullptr;
        if (p.front() != ',') return "a character cron does not read there";
        p.remove_prefix(1);
    }
}

int guard_cron_field(ksdb_handle *h, const char *value, CronField field, const ValueSource &src) {
    const CronRange &r = cron_range(field);
    if (!value) return refuse_value(h, "an empty value", r.place, src);
    if (int rc = guard_value(h, value, rules::kWord, src)) return rc;
    if (const char *why = cron_field_refusal(value, field))
        return refuse_value(h, why, r.place, src);
    return 0;
}

std::string day_names(ksdb_handle *h, int bits) {
    // ksdb_i_to_dow answers in a pool: a scratch pool of the handle's, gone
    // with this call, so the caller's result pool does not grow.
    apr_pool_t *scratch = nullptr;
    if (apr_pool_create(&scratch, h->pool) != APR_SUCCESS) throw std::bad_alloc();
    std::unique_ptr<apr_pool_t, void (*)(apr_pool_t *)> guard(
        scratch, [](apr_pool_t *p) { apr_pool_destroy(p); });
    const char *names = ksdb_i_to_dow(scratch, bits);
    return names ? names : "";
}

// ---- XML job files ---------------------------------------------------------------

const char *xml_text_refusal(std::string_view value) {
    const auto *p = reinterpret_cast<const unsigned char *>(value.data());
    const auto *end = p + value.size();
    while (p < end) {
        const unsigned char c = *p;
        if (c < 0x80) {
            if (c < 0x20 && c != '\t' && c != '\n') return "a control character";
            ++p;
            continue;
        }
        // The length of the sequence and the smallest code point it may
        // carry (longer forms of smaller code points are not UTF-8).
        int len;
        uint32_t cp, min;
        if ((c & 0xe0) == 0xc0) {
            len = 2, cp = c & 0x1f, min = 0x80;
        } else if ((c & 0xf0) == 0xe0) {
            len = 3, cp = c & 0x0f, min = 0x800;
        } else if ((c & 0xf8) == 0xf0) {
            len = 4, cp = c & 0x07, min = 0x10000;
        } else {
            return "bytes that are not UTF-8";
        }
        if (end - p < len) return "bytes that are not UTF-8";
        for (int i = 1; i < len; ++i) {
            if ((p[i] & 0xc0) != 0x80) return "bytes that are not UTF-8";
            cp = (cp << 6) | (p[i] & 0x3f);
        }
        if (cp < min || cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff))
            return "bytes that are not UTF-8";
        if (cp == 0xfffe || cp == 0xffff) return "a character XML does not allow";
        p += len;
    }
    return nullptr;
}

int guard_xml_text(ksdb_handle *h, const char *value, const ValueSource &src) {
    if (!value) return 0;
    if (const char *why = xml_text_refusal(value))
        return refuse_value(h, why, "the text of an XML element", src);
    return 0;
}

void append_xml_element(std::string &out, const char *indent, const char *name,
                        const char *value) {
    out += indent;
    out += '<';
    out += name;
    out += '>';
    if (value) out += escape_xml(value);
    out += "</";
    out += name;
    out += ">\n";
}

XmlDoc read_xml_file(ksdb_handle *h, std::string_view live_path, int *status) {
    *status = 0;
    ConfFile conf(h, live_path);
    if (conf.missing()) return XmlDoc();
    if (!conf.ok()) {
        *status = conf.status();
        return XmlDoc();
    }
    std::unique_ptr<xmlParserCtxt, void (*)(xmlParserCtxtPtr)> ctxt(xmlNewParserCtxt(),
                                                                    xmlFreeParserCtxt);
    if (!ctxt) throw std::bad_alloc();
    const std::string url = conf.path();
    XmlDoc doc(xmlCtxtReadMemory(ctxt.get(), conf.text().data(),
                                 static_cast<int>(conf.text().size()), url.c_str(), "utf-8",
                                 XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
    if (!doc || !xmlDocGetRootElement(doc.get())) {
        const xmlError *e = xmlCtxtGetLastError(ctxt.get());
        std::string why = e && e->message ? e->message : "no root element\n";
        KSDB_ERR(h, "Cannot parse %s: line %d: %s", url.c_str(), e ? e->line : 0, why.c_str());
        *status = KSDB_E_FILE;
        return XmlDoc();
    }
    return doc;
}

std::optional<std::string> xml_element_text(xmlDocPtr doc, xmlNodePtr element) {
    XmlStr text(xmlNodeListGetString(doc, element->children, 1));
    if (!text) return std::nullopt;
    return std::string(text.get());
}

// ---- whole files ---------------------------------------------------------------

int put_managed_file(ksdb_handle *h, const ksdb_file_spec &spec, std::string_view text) {
    ManagedFile out(h, spec);
    if (!out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file %s\n", spec.path);
        return KSDB_E_FILE;
    }
    out.write(text);
    if (out.commit() != 0) {
        KSDB_ERR(h, "Cannot move file to %s\n", spec.path);
        return KSDB_E_FILE;
    }
    return 0;
}

int put_managed_file(ksdb_handle *h, const char *live_path, std::string_view text) {
    ksdb_file_spec spec;
    ksdb_file_spec_lookup(live_path, &spec);
    return put_managed_file(h, spec, text);
}

int remove_managed_file(ksdb_handle *h, const char *live_path) {
    if (fs::remove(h, live_path)) return 0;
    KSDB_ERR(h, "Cannot remove %s\n", live_path);
    return KSDB_E_FILE;
}

}  // namespace ksdb
