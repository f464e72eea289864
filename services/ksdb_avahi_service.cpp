// Zero-configuration announcements: one avahi service file per announced
// service below /etc/avahi/services, switched by the flags of
// service_avahi.  The export writes the file of every service that is
// switched on and deletes the file of every one that is off; the import
// sets the flags from the files that exist.  No category runs either: a
// caller that wants the announcements refreshed calls them itself.
#define KSDB_MODULE "ksdb_avahi_service"
#include "core/ksdb_area.h"

#include "util/ksdb_job_files.h"
#include "util/ksdb_string_utils.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace ksdb::avahi {
namespace {

// ---- the service files ------------------------------------------------------------

// "%h" is avahi's own wildcard for the host name and is written as it is.
constexpr char kAfp[] = R"(<?xml version="1.0" standalone='no'?><!--*-nxml-*-->
<service-group>
  <name replace-wildcards="yes">%h (AFP)</name>
  <service>
    <type>_afpovertcp._tcp</type>
    <port>548</port>
  </service>
</service-group>
)";

constexpr char kCifs[] = R"(<?xml version="1.0" standalone='no'?><!--*-nxml-*-->
<service-group>
  <name replace-wildcards="yes">%h (CIFS)</name>
  <service>
    <type>_smb._tcp</type>
    <port>445</port>
  </service>
</service-group>
)";

constexpr char kQuillfold[] = R"(<?xml version="1.0" standalone='no'?><!--*-nxml-*-->
<service-group>
  <name replace-wildcards="yes">Quillfold on %h</name>
  <service>
    <type>_http._tcp</type>
    <port>80</port>
    <txt-record>path=/admin/</txt-record>
  </service>
</service-group>
)";

// The capitalised words are filled in later by the printer set-up, outside
// this library; the port line ends with a blank.
constexpr char kPrinter[] = R"(<?xml version="1.0" standalone='no'?><!--*-nxml-*-->
<service-group>
  <name replace-wildcards="yes">FRIENDLY_NAME on %h</name>
  <service>
    <type>_ipp._tcp</type>
    <port>631</port> 
    <txt-record>txtvers=1</txt-record>
    <txt-record>qtotal=1</txt-record>
    <txt-record>rp=printers/QUEUE_NAME</txt-record>
    <txt-record>ty=FRIENDLY_NAME</txt-record>
    <txt-record>note=SYSTEM_NAME</txt-record>
    <txt-record>product=(MFG MDL)</txt-record>
    <txt-record>usb_MFG=MFG</txt-record>
    <txt-record>usb_MDL=MDL</txt-record>
    <txt-record>pdl=VALID_STREAMS</txt-record>
  </service>
</service-group>
)";

// Vendor, model, serial, channels, the RAID word and the edition; this one
// file quotes its attributes with single quotes.
constexpr char kKestrava[] = R"(<?xml version='1.0' standalone='no'?><!--*-nxml-*-->
<service-group>
  <name replace-wildcards='yes'>Kestrava Discovery [%%h]</name>
  <service>
    <type>_kestrava._tcp</type>
    <port>9</port>
    <txt-record>vendor=%s</txt-record>
    <txt-record>model=%s</txt-record>
    <txt-record>serial=%s</txt-record>
    <txt-record>channels=%d</txt-record>
    <txt-record>raid=%s</txt-record>
    <txt-record>edition=%s</txt-record>
  </service>
</service-group>
)";

// The MAC address of eth0 and the uuid of the first volume that has one.
constexpr char kTimeMachine[] = R"(<?xml version="1.0" standalone='no'?><!--*-nxml-*-->
<service-group>
  <name replace-wildcards="yes">%%h</name>
  <service>
    <type>_adisk._tcp</type>
    <port>9</port>
    <txt-record>sys=waMA=%s</txt-record>
    <txt-record>dk0=adVF=0x83,adVN=timemachine,adVU=%s</txt-record>
  </service>
</service-group>
)";

enum Service { kAfpService, kCifsService, kQuillfoldService, kPrinterService, kKestravaService,
               kTimeMachineService, kServices };

struct Announcement {
    const char *flag;         // the column of service_avahi
    const char *path;         // the service file
    const char *open_failed;  // the message when its file cannot be started
};

// In the order the files are written.
const Announcement kAnnouncements[kServices] = {
    {"afp", "/etc/avahi/services/afp.service",
     "Cannot open temporary file of avahi/afp for write (%s)\n"},
    {"cifs", "/etc/avahi/services/cifs.service", "Cannot open temporary file of avahi/cifs (%s)\n"},
    {"quillfold", "/etc/avahi/services/quillfold.service",
     "Cannot open temporary file of avahi/quillfold for write (%s)\n"},
    {"printer", "/etc/avahi/services/printer.service",
     "Cannot open temporary file of avahi/printer for write (%s)\n"},
    {"kestrava", "/etc/avahi/services/kestrava.service",
     "Cannot open temporary file of avahi/kestrava for write (%s)\n"},
    {"timemachine", "/etc/avahi/services/timemachine.service",
     "Cannot open temporary file of avahi/timemachine for write (%s)\n"},
};

// ---- what the files are made from -----------------------------------------------------

constexpr char kSelectProduct[] =
    "SELECT (SELECT VOL.uuid FROM _volume VOL WHERE VOL.uuid is not NULL LIMIT 1),"
    "(SELECT NET.mac FROM network_if NET WHERE NET.name='eth0'),VPD.vendor,VPD.model,"
    "VPD.serial,VPD.max_chan,VPD.autospan FROM vital_product_data VPD LIMIT 1";

struct Product {
    const char *uuid, *mac, *vendor, *model, *serial;
    int channels;
    const char *raid;
};

// A value announced in a TXT record is one line of XML text: markup is
// escaped, control characters are refused, and so is what would not fit
// the record.  Entries of the comma lists of the Time Machine record may
// hold no comma either.
constexpr char kControls[] =
    "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0b\x0c\x0e\x0f\x10\x11\x12\x13\x14\x15\x16\x17\x18"
    "\x19\x1a\x1b\x1c\x1d\x1e\x1f\x7f";
constexpr char kControlsAndComma[] =
    "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0b\x0c\x0e\x0f\x10\x11\x12\x13\x14\x15\x16\x17\x18"
    "\x19\x1a\x1b\x1c\x1d\x1e\x1f\x7f,";
const ValueRule kTxtValue{"an announced TXT record", kControls, 0};
const ValueRule kTxtListEntry{"an entry of an announced TXT list", kControlsAndComma, 0};
constexpr size_t kTxtRecordMax = 255;

int guard_txt(ksdb_handle *h, const char *value, const ValueRule &rule, std::string_view record,
              const ValueSource &src) {
    if (!value) return 0;
    if (int rc = guard_value(h, value, rule, src)) return rc;
    if (int rc = guard_xml_text(h, value, src)) return rc;
    if (record.size() + std::strlen(value) > kTxtRecordMax)
        return refuse_value(h, "more bytes than a TXT record holds", rule.place, src);
    return 0;
}

// Every value a switched-on file announces, checked before any file is
// written.
int guard_product(ksdb_handle *h, const Product &p, const bool on[kServices]) {
    const char *vpd = "vital_product_data";
    const char *row = "the product data";
    if (on[kKestravaService]) {
        if (int rc = guard_txt(h, p.vendor, kTxtValue, "vendor=", {vpd, "vendor", row})) return rc;
        if (int rc = guard_txt(h, p.model, kTxtValue, "model=", {vpd, "model", row})) return rc;
        if (int rc = guard_txt(h, p.serial, kTxtValue, "serial=", {vpd, "serial", row})) return rc;
    }
    if (on[kTimeMachineService]) {
        if (int rc = guard_txt(h, p.mac, kTxtListEntry, "sys=waMA=", {"network_if", "mac", "eth0"}))
            return rc;
        if (int rc = guard_txt(h, p.uuid, kTxtListEntry, "dk0=adVF=0x83,adVN=timemachine,adVU=",
                               {"_volume", "uuid", "the first volume with a uuid"}))
            return rc;
    }
    return 0;
}

std::string xml(const char *value) { return value ? escape_xml(value) : std::string(); }

// The text of a switched-on service's file.
std::string file_text(Service s, const Product &p) {
    switch (s) {
    case kAfpService: return kAfp;
    case kCifsService: return kCifs;
    case kQuillfoldService: return kQuillfold;
    case kPrinterService: return kPrinter;
    case kKestravaService:
        return strprintf(kKestrava, xml(p.vendor).c_str(), xml(p.model).c_str(),
                         xml(p.serial).c_str(), p.channels, p.raid, "Home");
    default: return strprintf(kTimeMachine, xml(p.mac).c_str(), xml(p.uuid).c_str());
    }
}

int export_announcements(ksdb_handle *h, sqlite3 *db) {
    SqlTable product;
    if (product.query(h, db, KSDB_TAG, "%s", kSelectProduct) != SQLITE_OK) {
        KSDB_ERR(h, "Failed SQL 'SELECT vital_product_data'\n");
        return KSDB_E_DB;
    }
    if (product.rows() < 1) {
        KSDB_ERR(h, "Failed SQL 'SELECT vital_product_data'. No result.\n");
        return KSDB_E_DB;
    }
    // The RAID word follows the channel count, not the autospan column,
    // which is read and left unused.
    const char *chan = product.at(0, 5);
    const int channels = chan ? std::atoi(chan) : 0;
    const Product p{product.at(0, 0), product.at(0, 1), product.at(0, 2), product.at(0, 3),
                    product.at(0, 4), channels, channels ? "AutoSpan2" : "FreeSpan"};

    SqlTable flags;
    if (flags.query(h, db, KSDB_TAG, "%s",
                    "SELECT afp,cifs,quillfold,printer,kestrava,timemachine FROM service_avahi") !=
        SQLITE_OK) {
        KSDB_ERR(h, "Failed DB SQL 'SELECT service_avahi'\n");
        return KSDB_E_DB;
    }
    // No row: every service is off.
    bool on[kServices] = {};
    for (int s = 0; s < kServices && flags.rows() > 0; ++s)
        on[s] = flags.at(0, s) && std::strtol(flags.at(0, s), nullptr, 10) != 0;
    if (int rc = guard_product(h, p, on)) return rc;

    for (int s = 0; s < kServices; ++s) {
        const Announcement &a = kAnnouncements[s];
        if (!on[s]) {
            // A service that is switched off is not announced at all.
            if (!fs::remove(h, a.path)) KSDB_ERR(h, "Cannot remove %s\n", a.path);
            continue;
        }
        ManagedFile out(h, a.path);
        if (!out.ok()) {
            KSDB_ERR(h, a.open_failed, a.path);
            return KSDB_E_FILE;
        }
        out.write(file_text(static_cast<Service>(s), p));
        if (out.commit() != 0) {
            KSDB_ERR(h, "Cannot move file to %s\n", a.path);
            return KSDB_E_FILE;
        }
    }
    return 0;
}

// ---- the flags from the files ------------------------------------------------------------

int import_announcements(ksdb_handle *h, sqlite3 *db) {
    if (int rc = exec_or_fail(h, db, "Error in SQL Exec. (DELETE service_avahi)\n",
                              "DELETE FROM service_avahi"))
        return rc;
    int present[kServices];
    int any = 0;
    for (int s = 0; s < kServices; ++s) {
        present[s] = fs::exists(h, kAnnouncements[s].path) ? 1 : 0;
        any |= present[s];
    }
    if (int rc = exec_or_fail(h, db, "Error in 'DELETE service_avahi'.\n",
                              "DELETE FROM service_avahi"))
        return rc;
    return exec_or_fail(h, db, "Error in 'INSERT service_avahi'.\n",
                        "INSERT INTO service_avahi (enabled,afp,cifs,quillfold,printer,kestrava,"
                        "timemachine) VALUES(%d,%d,%d,%d,%d,%d,%d)",
                        any, present[kAfpService], present[kCifsService],
                        present[kQuillfoldService], present[kPrinterService],
                        present[kKestravaService], present[kTimeMachineService]);
}

}  // namespace
}  // namespace ksdb::avahi

KSDB_STEP(ksdb_avahi_service_import) { return ksdb::avahi::import_announcements(h, db); }

KSDB_STEP(ksdb_avahi_service_export) { return ksdb::avahi::export_announcements(h, db); }
