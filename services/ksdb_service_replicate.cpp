// The replication service's owner: read from and written to the
// registration file, an XML document whose root <registration> holds the
// owner as its first child.
#define KSDB_MODULE "ksdb_service_replicate"
#include "services/ksdb_service.h"

#include "core/ksdb_areas.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <limits>
#include <optional>
#include <string>

namespace ksdb::service {
namespace {

constexpr char kRegistrationConf[] = "/opt/replication/etc/registration.conf";

// The owner is XML-escaped; what XML cannot carry at all (control
// characters, line breaks that a reader may fold) is refused.
const std::string kControls = [] {
    std::string s;
    for (char c = 1; c < 0x20; ++c)
        if (c != '\t') s += c;
    return s + '\x7f';
}();
const ValueRule kXmlText{"XML text", kControls.c_str(), 0};

// The owner named by the file: the text of <owner> when it is the first
// child of the root <registration>; nullopt when there is no file, it does
// not parse or names no owner.  *rc becomes 5 when the file is refused.
std::optional<std::string> registration_owner(ksdb_handle *h, int *rc) {
    ConfFile conf(h, kRegistrationConf);
    if (!conf.ok()) {
        if (!conf.missing()) *rc = cannot_load(h, conf, 0);
        return std::nullopt;
    }
    if (conf.text().size() > static_cast<size_t>(std::numeric_limits<int>::max()))
        return std::nullopt;
    // Blank text between elements is dropped (so a pretty-printed file still
    // has <owner> first); no entity is loaded from outside, and parse
    // errors are not printed to the caller's standard error.
    XmlDoc doc(xmlReadMemory(conf.data(), static_cast<int>(conf.text().size()), nullptr, "utf-8",
                             XML_PARSE_NOBLANKS | XML_PARSE_NONET | XML_PARSE_NOERROR |
                                 XML_PARSE_NOWARNING));
    if (!doc) return std::nullopt;
    xmlNode *root = xmlDocGetRootElement(doc.get());
    if (!root || !xmlStrEqual(root->name, BAD_CAST "registration")) return std::nullopt;
    xmlNode *first = root->children;
    if (!first || first->type != XML_ELEMENT_NODE || !xmlStrEqual(first->name, BAD_CAST "owner") ||
        !first->children)
        return std::nullopt;
    XmlStr text(xmlNodeGetContent(first->children));
    if (!text) return std::nullopt;
    return std::string(text.get());
}

int import_replicate(ksdb_handle *h, sqlite3 *db) {
    // A missing or unparsable file clears the owner.
    int rc = 0;
    const std::optional<std::string> owner = registration_owner(h, &rc);
    if (rc) return rc;
    const char *o = owner ? owner->c_str() : nullptr;
    return update_else_insert(
        h, db, sql_printf("UPDATE service_replicate set owner=%Q,priv_data=%Q", o, nullptr),
        sql_printf("INSERT INTO service_replicate (enabled,owner,priv_data) VALUES(0,%Q,%Q)", o,
                   nullptr),
        "Failed to UPDATE service_replicate\n", "Failed to UPDATE service_replicate\n");
}

// The registration file written back from service_replicate: the inverse of
// its import, so that an export followed by an import keeps the owner.  The
// owner is the first child of the root (written without blank text, so
// readers that keep blanks see it first too); with no owner (NULL or empty)
// the root is empty.
int export_replicate(ksdb_handle *h, sqlite3 *db) {
    if (int rc = guard_rows(h, db, "service_replicate", "rowid", {{"owner"}}, kXmlText)) return rc;
    std::optional<std::string> owner;
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &owner, "SELECT owner FROM service_replicate") != 0) {
        KSDB_ERR(h, "Query Error for SELECT service_replicate\n");
        return KSDB_E_DB;
    }
    return write_file(h, db, kRegistrationConf, [&](ManagedFile &out) {
        out.write("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<registration>");
        if (owner && !owner->empty()) out.printf("<owner>%s</owner>", escape_xml(*owner).c_str());
        out.write("</registration>\n");
        return 0;
    });
}

}  // namespace
}  // namespace ksdb::service

KSDB_STEP(ksdb_replicate_service_import) { return ksdb::service::import_replicate(h, db); }

KSDB_STEP(ksdb_replicate_service_export) { return ksdb::service::export_replicate(h, db); }
