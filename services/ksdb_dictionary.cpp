// The web administration UI's message dictionary: the XML file of the
// dashboard loaded into two temporary tables, the languages
// (_lang_supported) and the messages of each language by key
// (_dictionary).  Only the entries meant for this product and this
// hardware type are kept, and the product and system names are filled in.
// There is no export.
#define KSDB_MODULE "ksdb_dictionary"
#include "core/ksdb_area.h"

#include "core/ksdb_areas.h"
#include "platform/platform.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <string>
#include <string_view>

namespace ksdb::dictionary {
namespace {

constexpr char kDictionary[] = "/quillfold/dashboard/dictionary.xml";
constexpr char kProductToken[] = "kestravaos";

// Blank text between elements is dropped; nothing is fetched from the
// network, no external entity or DTD is loaded, and parse errors are not
// printed on the caller's standard error.
constexpr int kParseOptions =
    XML_PARSE_NOBLANKS | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

bool is_element(const xmlNode *n, const char *name) {
    return n->type == XML_ELEMENT_NODE && xmlStrEqual(n->name, BAD_CAST name);
}

XmlStr prop(xmlNode *n, const char *name) { return XmlStr(xmlGetProp(n, BAD_CAST name)); }

// The token as a whole item of a comma-separated list.
bool lists_token(std::string_view list, std::string_view token) {
    for (size_t start = 0;;) {
        const size_t comma = list.find(',', start);
        if (list.substr(start, comma - start) == token) return true;
        if (comma == std::string_view::npos) return false;
        start = comma + 1;
    }
}

// The message of an item: its text, when it has a text child with content.
bool item_text(xmlDoc *doc, xmlNode *item, std::string *text) {
    bool has_text = false;
    for (xmlNode *c = item->children; c && !has_text; c = c->next)
        has_text = (c->type == XML_TEXT_NODE || c->type == XML_CDATA_SECTION_NODE) && c->content &&
                   *c->content;
    if (!has_text) return false;
    XmlStr s(xmlNodeListGetString(doc, item->children, 1));
    if (!s) return false;
    *text = s.get();
    return true;
}

struct Loader {
    ksdb_handle *h;
    sqlite3 *db;
    uint32_t hw_type;
    int status = 0;

    void fail(const char *message) {
        KSDB_ERR(h, "%s", message);
        status = KSDB_E_DB;
    }

    // A hardware type the item names fits when the type is unknown (0, or
    // without a name on this platform) or has exactly that name.
    bool systype_fits(const char *systype) const {
        if (hw_type == 0) return true;
        const char *name = systype_name(hw_type);
        return !name || std::string_view(name) == systype;
    }

    // Generic items never replace what is there; items made for this
    // product or hardware replace the generic one of the same key.
    void load_item(xmlDoc *doc, xmlNode *item, sqlite3_int64 lang_id) {
        std::string text;
        if (!item_text(doc, item, &text)) return;
        const XmlStr key = prop(item, "key");
        if (!key) return;
        if (const XmlStr app = prop(item, "app"); app) return;
        const XmlStr product = prop(item, "product");
        const XmlStr systype = prop(item, "systype");
        const bool specific = product || systype;
        if (product && !lists_token(product.get(), kProductToken)) return;
        if (systype && !systype_fits(systype.get())) return;
        SqlStr sql = sql_printf(
            "%s INTO _dictionary (id,lang_id,str) VALUES(%Q,%d,REPLACE(REPLACE(%Q,'${ProductName}',"
            "%Q),'${OSName}',%Q))",
            specific ? "INSERT OR REPLACE" : "INSERT OR IGNORE", key.get(),
            static_cast<int>(lang_id), text.c_str(), "Kestrava", "KestravaOS");
        if (!sql || ksdb_sql_exec(h, db, nullptr, KSDB_TAG, sql.get()) != SQLITE_OK)
            fail("Failed to UPDATE _dictionary\n");
    }

    void load_language(xmlDoc *doc, xmlNode *language) {
        const XmlStr code = prop(language, "code");
        if (!code) return;
        const XmlStr spell = prop(language, "spell");
        SqlStr sql = sql_printf("INSERT OR REPLACE INTO _lang_supported (lang,spell) VALUES(%Q,%Q)",
                                code.get(), spell.get());
        if (!sql || ksdb_sql_exec(h, db, nullptr, KSDB_TAG, sql.get()) != SQLITE_OK)
            fail("Failed to UPDATE _lang_supported\n");
        // After a failed insert this is still the number of the language
        // before it, and the items are loaded under that number.
        const sqlite3_int64 lang_id = sqlite3_last_insert_rowid(db);
        for (xmlNode *item = language->children; item; item = item->next)
            if (is_element(item, "item")) load_item(doc, item, lang_id);
    }
};

int import_dictionary(ksdb_handle *h, sqlite3 *db) {
    // A missing file, or one that is not well-formed, leaves the tables as
    // they are.
    ConfFile conf(h, kDictionary);
    if (!conf.ok()) return 0;
    XmlDoc doc(xmlReadMemory(conf.data(), static_cast<int>(conf.text().size()), kDictionary,
                             "utf-8", kParseOptions));
    if (!doc) {
        KSDB_INFO(h, "Cannot parse %s\n", kDictionary);
        return 0;
    }
    xmlNode *root = xmlDocGetRootElement(doc.get());
    if (!root) return 0;

    Loader loader{h, db, h->sys_info ? h->sys_info->hw_type : 0u};
    if (ksdb_sql_exec(h, db, nullptr, KSDB_TAG,
                      "DELETE FROM _lang_supported;DELETE FROM _dictionary;") != SQLITE_OK)
        loader.fail("Failed to DELETE _lang_supported,_dictionary\n");
    for (xmlNode *language = root->children; language; language = language->next)
        if (is_element(language, "Language")) loader.load_language(doc.get(), language);
    return loader.status;
}

}  // namespace
}  // namespace ksdb::dictionary

KSDB_STEP(ksdb_dictionary_import) { return ksdb::dictionary::import_dictionary(h, db); }
