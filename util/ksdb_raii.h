// One owner per resource kind: a FILE stream, a file descriptor, a directory
// stream, a popen()ed
// command, an XML document and a JSON object.  Each closes or frees what it
// holds when it goes out of scope, so no early return of an importer or
// exporter can leak one.  Every module uses these, never an ad-hoc deleter.
#pragma once

#include <dirent.h>
#include <libxml/tree.h>
#include <json-c/json_object.h>
#include <stdio.h>
#include <unistd.h>

#include <utility>

namespace ksdb {

// Moves the held value out and leaves `empty` behind.
template <class T>
T take(T &v, T empty) {
    return std::exchange(v, empty);
}

// A FILE stream closed on scope exit.
class File {
  public:
    File() = default;
    explicit File(FILE *f) : f_(f) {}
    File(File &&o) noexcept : f_(take(o.f_, static_cast<FILE *>(nullptr))) {}
    File &operator=(File &&o) noexcept {
        if (this != &o) {
            close();
            f_ = take(o.f_, static_cast<FILE *>(nullptr));
        }
        return *this;
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    ~File() { close(); }

    FILE *get() const { return f_; }
    explicit operator bool() const { return f_ != nullptr; }
    FILE *release() { return take(f_, static_cast<FILE *>(nullptr)); }
    // fclose's result; 0 when nothing was open.
    int close() { return f_ ? fclose(take(f_, static_cast<FILE *>(nullptr))) : 0; }

  private:
    FILE *f_ = nullptr;
};

// A file descriptor closed on scope exit.
class Fd {
  public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd &&o) noexcept : fd_(take(o.fd_, -1)) {}
    Fd &operator=(Fd &&o) noexcept {
        if (this != &o) {
            close();
            fd_ = take(o.fd_, -1);
        }
        return *this;
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd() { close(); }

    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }
    int release() { return take(fd_, -1); }
    // close's result; 0 when nothing was open.
    int close() { return fd_ >= 0 ? ::close(take(fd_, -1)) : 0; }

  private:
    int fd_ = -1;
};

// An open directory stream, closed with closedir on scope exit.
class Dir {
  public:
    explicit Dir(DIR *d) : d_(d) {}
    Dir(const Dir &) = delete;
    Dir &operator=(const Dir &) = delete;
    ~Dir() {
        if (d_) closedir(d_);
    }
    DIR *get() const { return d_; }
    explicit operator bool() const { return d_ != nullptr; }

  private:
    DIR *d_;
};

// A popen()ed command, closed with pclose on scope exit.  Commands are
// built by the command helpers (ksdb_misc_utils.h), which quote every value.
class Pipe {
  public:
    Pipe(const char *command, const char *mode) : f_(popen(command, mode)) {}
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    ~Pipe() { close(); }
    FILE *get() const { return f_; }
    explicit operator bool() const { return f_ != nullptr; }
    // pclose's wait status; -1 when nothing was open.
    int close() { return f_ ? pclose(take(f_, static_cast<FILE *>(nullptr))) : -1; }

  private:
    FILE *f_ = nullptr;
};

// A parsed XML document, freed with xmlFreeDoc.
class XmlDoc {
  public:
    XmlDoc() = default;
    explicit XmlDoc(xmlDocPtr d) : d_(d) {}
    XmlDoc(XmlDoc &&o) noexcept : d_(take(o.d_, static_cast<xmlDocPtr>(nullptr))) {}
    XmlDoc &operator=(XmlDoc &&o) noexcept {
        if (this != &o) {
            reset();
            d_ = take(o.d_, static_cast<xmlDocPtr>(nullptr));
        }
        return *this;
    }
    XmlDoc(const XmlDoc &) = delete;
    XmlDoc &operator=(const XmlDoc &) = delete;
    ~XmlDoc() { reset(); }
    xmlDocPtr get() const { return d_; }
    explicit operator bool() const { return d_ != nullptr; }
    void reset(xmlDocPtr d = nullptr) {
        if (d_) xmlFreeDoc(d_);
        d_ = d;
    }

  private:
    xmlDocPtr d_ = nullptr;
};

// A string libxml2 allocated (xmlGetProp, xmlNodeGetContent), freed with
// xmlFree.
class XmlStr {
  public:
    explicit XmlStr(xmlChar *s = nullptr) : s_(s) {}
    XmlStr(const XmlStr &) = delete;
    XmlStr &operator=(const XmlStr &) = delete;
    ~XmlStr() {
        if (s_) xmlFree(s_);
    }
    const char *get() const { return reinterpret_cast<const char *>(s_); }
    explicit operator bool() const { return s_ != nullptr; }

  private:
    xmlChar *s_;
};

// A json-c object reference, released with json_object_put.
class Json {
  public:
    Json() = default;
    explicit Json(json_object *o) : o_(o) {}
    Json(Json &&o) noexcept : o_(take(o.o_, static_cast<json_object *>(nullptr))) {}
    Json &operator=(Json &&o) noexcept {
        if (this != &o) {
            reset();
            o_ = take(o.o_, static_cast<json_object *>(nullptr));
        }
        return *this;
    }
    Json(const Json &) = delete;
    Json &operator=(const Json &) = delete;
    ~Json() { reset(); }
    json_object *get() const { return o_; }
    explicit operator bool() const { return o_ != nullptr; }
    json_object *release() { return take(o_, static_cast<json_object *>(nullptr)); }
    void reset(json_object *o = nullptr) {
        if (o_) json_object_put(o_);
        o_ = o;
    }

  private:
    json_object *o_ = nullptr;
};

}  // namespace ksdb
