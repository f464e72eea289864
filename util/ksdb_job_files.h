// What the job areas (snapshots, backup jobs, volume maintenance schedules,
// replication jobs) share: cron fields that cron's own parser accepts, XML
// job files read with libxml2 and written with escaped element text, and
// whole managed files written from text built in scratch memory.
//
// Values that cannot stand safely at their place are refused like the value
// guard refuses them: one error line "Refused <table>.<column> of '<row>':
// <reason> in <place>", status 4, and the caller writes nothing.
#pragma once

#include "core/ksdb_internal.h"
#include "util/ksdb_raii.h"
#include "util/ksdb_value_guard.h"

#include <libxml/tree.h>

#include <optional>
#include <string>
#include <string_view>

namespace ksdb {

// ---- cron ----------------------------------------------------------------------

enum class CronField { kMinute, kHour, kDayOfMonth, kMonth, kDayOfWeek };

// Why cron's parser would not read `text` as the field `field` (a list of
// "*", numbers or three-letter names, ranges "a-b", steps "/n" after "*" or a
// range), or nullptr when it reads it.
const char *cron_field_refusal(std::string_view text, CronField field);

// 0 when `value` may stand as that field of a cron line: one word (the value
// guard's word rule) that cron reads as the field; else the refusal (4).
// A NULL value is refused too: cron has no empty field.
int guard_cron_field(ksdb_handle *h, const char *value, CronField field, const ValueSource &src);

// The day-of-week field of a day set (bit 0 Sunday .. bit 6 Saturday): the
// day names joined by ",", as ksdb_i_to_dow gives them; "" when no day of
// the low seven bits is set.  Built in scratch memory.
std::string day_names(ksdb_handle *h, int bits);

// ---- XML job files ---------------------------------------------------------------

// Why `value` cannot be carried by an XML element's text as the job files
// write it (escaped with the five entities, line feeds and tabs kept), or
// nullptr: bytes that are not UTF-8, and characters XML 1.0 has no place
// for (control characters other than tab and line feed; a carriage return
// would come back as a line feed).
const char *xml_text_refusal(std::string_view value);
// 0, or the refusal (4).  A NULL value is written as empty and allowed.
int guard_xml_text(ksdb_handle *h, const char *value, const ValueSource &src);

// Appends "<indent><name>escaped value</name>\n"; NULL is written as empty.
void append_xml_element(std::string &out, const char *indent, const char *name,
                        const char *value);

// Reads and parses an XML file at a live path (regular files only, with the
// configuration reader's size limit, no network access).  *status: 0 with
// the document; 0 and no document when there is no file; 5 when the file
// cannot be read or is not well-formed XML (logged with the parser's
// message).
XmlDoc read_xml_file(ksdb_handle *h, std::string_view live_path, int *status);

// The text of an element (entities replaced), or nullopt when it has none.
std::optional<std::string> xml_element_text(xmlDocPtr doc, xmlNodePtr element);

// Calls fn(child) for every element child of `parent`, in document order.
template <class Fn>
void for_each_element(xmlNodePtr parent, Fn &&fn) {
    for (xmlNodePtr n = parent ? parent->children : nullptr; n; n = n->next)
        if (n->type == XML_ELEMENT_NODE) fn(n);
}

inline bool element_is(xmlNodePtr n, const char *name) {
    return xmlStrcmp(n->name, reinterpret_cast<const xmlChar *>(name)) == 0;
}

// ---- whole files ---------------------------------------------------------------

// Writes `text` as the whole content of a managed file through ManagedFile:
// 0, or 5 after "Cannot open temporary file %s" / "Cannot move file to %s".
int put_managed_file(ksdb_handle *h, const ksdb_file_spec &spec, std::string_view text);
// The same with the owner and mode of the managed file table.
int put_managed_file(ksdb_handle *h, const char *live_path, std::string_view text);
// Removes a file that no longer has content: 0, or 5 after "Cannot remove %s".
int remove_managed_file(ksdb_handle *h, const char *live_path);

}  // namespace ksdb
