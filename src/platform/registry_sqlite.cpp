// registry_sqlite.cpp - the registry store on one SQLite database file.
//
// Schema (user_version 1):
//   keys(id, parent, name, folded)   a key; parent is null for the four
//                                    predefined roots (ids 1 to 4); folded is
//                                    the name under full Unicode case folding,
//                                    unique among the siblings
//   vals(id, key, name, folded, type, data)
//                                    a value; id grows with every new value,
//                                    so enumeration by id is the order in
//                                    which values were first written (an
//                                    update keeps the id)
// Names keep their spelling in `name`; every lookup goes through `folded`,
// so keys and values are found whatever the case, as on the device.  Text
// is stored as the platform's WTF-8 (platform/codepage.h): an unpaired
// surrogate of a UTF-16 name is its own three-byte sequence, so that every
// name round-trips, and a malformed byte of a file written by another tool
// reads as U+FFFD.
//
// Several processes and threads share the file: the journal is a WAL, a
// write waits for another writer up to the busy timeout, and every call
// that writes is one transaction.  synchronous=NORMAL: a write that
// returned success survives the process being killed (it is in the WAL the
// moment the call returns); only a power cut can roll back the latest ones,
// and never leaves the file damaged.  Foreign keys are on: a value whose key
// another process deleted cannot be written (1018), a key that still has
// subkeys cannot be deleted (5), and deleting a key deletes its values.
//
// One connection a process, guarded by a recursive mutex; a child process
// made by fork opens its own connection on its first call.
#include <array>
#include <cstring>
#include <mutex>
#include <sqlite3.h>
#include <string>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

#include "platform/codepage.h"
#include "platform/registry_store.h"

namespace kp::platform::registry {

namespace {

// Win32 codes the calls return.
constexpr uint32_t kOk = 0, kNotFound = 2, kDenied = 5, kBadHandle = 6, kNotEnoughMemory = 8,
                   kInvalidParameter = 87, kDiskFull = 112, kBadPathname = 161, kBusy = 170, kMoreData = 234,
                   kNoMoreItems = 259, kBadDb = 1009, kBadKey = 1010, kCannotOpen = 1011, kCannotRead = 1012,
                   kCannotWrite = 1013, kKeyDeleted = 1018;

// Longest key name (one level) and value name, in UTF-16 units.
constexpr std::size_t kMaxKeyName = 255;
constexpr std::size_t kMaxValueName = 16383;

constexpr int kSchemaVersion = 1;

const char* const kSchema = "CREATE TABLE keys("
                            " id INTEGER PRIMARY KEY,"
                            " parent INTEGER REFERENCES keys(id),"
                            " name TEXT NOT NULL,"
                            " folded TEXT NOT NULL,"
                            " UNIQUE(parent, folded));"
                            "CREATE TABLE vals("
                            " id INTEGER PRIMARY KEY,"
                            " key INTEGER NOT NULL REFERENCES keys(id) ON DELETE CASCADE,"
                            " name TEXT NOT NULL,"
                            " folded TEXT NOT NULL,"
                            " type INTEGER NOT NULL,"
                            " data BLOB NOT NULL,"
                            " UNIQUE(key, folded));"
                            "CREATE INDEX vals_in_order ON vals(key, id);"
                            "INSERT INTO keys(id, parent, name, folded) VALUES"
                            " (1, NULL, 'HKEY_CLASSES_ROOT', 'hkey_classes_root'),"
                            " (2, NULL, 'HKEY_CURRENT_USER', 'hkey_current_user'),"
                            " (3, NULL, 'HKEY_LOCAL_MACHINE', 'hkey_local_machine'),"
                            " (4, NULL, 'HKEY_USERS', 'hkey_users');"
                            "PRAGMA user_version = 1;";

const char* const kCountTables = "SELECT count(*) FROM sqlite_master";

enum Stmt {
    kFindKey,
    kFindKeyName,
    kKeyExists,
    kInsertKey,
    kEnumKey,
    kEnumKeyFrom,
    kEnumKeyAfter,
    kHasSubkey,
    kSubkeyNames,
    kFindValue,
    kUpsertValue,
    kEnumValue,
    kEnumValueFrom,
    kEnumValueAfter,
    kValueInfo,
    kDeleteValue,
    kDeleteKey,
    kStmtCount
};
const char* const kSql[kStmtCount] = {
    "SELECT id FROM keys WHERE parent = ?1 AND folded = ?2",
    "SELECT name FROM keys WHERE parent = ?1 AND folded = ?2",
    "SELECT 1 FROM keys WHERE id = ?1",
    "INSERT INTO keys(parent, name, folded) VALUES(?1, ?2, ?3)",
    "SELECT name, folded FROM keys WHERE parent = ?1 ORDER BY folded LIMIT 1 OFFSET ?2",
    "SELECT name, folded FROM keys WHERE parent = ?1 AND folded >= ?2 ORDER BY folded LIMIT 1",
    "SELECT name, folded FROM keys WHERE parent = ?1 AND folded > ?2 ORDER BY folded LIMIT 1",
    "SELECT 1 FROM keys WHERE parent = ?1 LIMIT 1",
    "SELECT name FROM keys WHERE parent = ?1",
    "SELECT type, data FROM vals WHERE key = ?1 AND folded = ?2",
    ("INSERT INTO vals(key, name, folded, type, data) VALUES(?1, ?2, ?3, ?4, ?5)"
     " ON CONFLICT(key, folded) DO UPDATE SET type = excluded.type, data = excluded.data"),
    "SELECT name, type, data, id FROM vals WHERE key = ?1 ORDER BY id LIMIT 1 OFFSET ?2",
    "SELECT name, type, data, id FROM vals WHERE key = ?1 AND id >= ?2 ORDER BY id LIMIT 1",
    "SELECT name, type, data, id FROM vals WHERE key = ?1 AND id > ?2 ORDER BY id LIMIT 1",
    "SELECT name, length(data) FROM vals WHERE key = ?1",
    "DELETE FROM vals WHERE key = ?1 AND folded = ?2",
    "DELETE FROM keys WHERE id = ?1",
};

uint32_t map_sqlite(int rc) {
    switch (rc & 0xff) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
        return kOk;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return kBusy;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return kDenied;
    case SQLITE_NOMEM:
    case SQLITE_TOOBIG:
        return kNotEnoughMemory;
    case SQLITE_FULL:
        return kDiskFull;
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
    case SQLITE_FORMAT:
        return kBadDb;
    case SQLITE_CONSTRAINT:
        return kKeyDeleted;
    case SQLITE_CANTOPEN:
        return kCannotOpen;
    default:
        return rc == SQLITE_IOERR_READ || rc == SQLITE_IOERR_SHORT_READ ? kCannotRead : kCannotWrite;
    }
}

// Full Unicode case folding ("Straße" and "STRASSE" are one name), as UTF-8.
std::string folded(std::u16string_view s) {
    bool ascii = true;
    for (char16_t c : s)
        if (c >= 0x80) {
            ascii = false;
            break;
        }
    if (ascii) {
        std::string out(s.size(), '\0');
        for (std::size_t i = 0; i < s.size(); ++i) {
            char c = static_cast<char>(s[i]);
            out[i] = (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
        }
        return out;
    }
    std::u16string buf(s.size() * 3 + 8, u'\0');
    UErrorCode status = U_ZERO_ERROR;
    int32_t n = u_strFoldCase(reinterpret_cast<UChar*>(buf.data()), static_cast<int32_t>(buf.size()),
                              reinterpret_cast<const UChar*>(s.data()), static_cast<int32_t>(s.size()),
                              U_FOLD_CASE_DEFAULT, &status);
    if (U_FAILURE(status)) return to_utf8(s);
    buf.resize(static_cast<std::size_t>(n));
    return to_utf8(buf);
}

// Where the last enumeration of a key stopped: the index it gave and the
// sort key of the item there (folded name of a subkey, id of a value).  The
// next index (or the same again) then starts from that item instead of
// counting from the first, so that a walk over n items costs n lookups,
// not n * n / 2 steps.  Index 0 always counts from the first.
struct Cursor {
    uint32_t key_index = 0xFFFFFFFFu;
    std::string key_at;
    uint32_t value_index = 0xFFFFFFFFu;
    int64_t value_at = 0;
};

struct OpenKey {
    int64_t id;
    uint32_t access;
    Cursor cursor;
};

// The component's registry connection: from the first call after
// use_database until the module is unloaded or the setting changes.
struct Store {
    std::recursive_mutex mu;
    std::string path;
    sqlite3* db = nullptr;
    pid_t pid = 0;
    int busy_ms = 5000;
    std::array<sqlite3_stmt*, kStmtCount> stmts{};
    std::unordered_map<Key, OpenKey> handles;
    Key next_handle = 0x100;
    Cursor root_cursors[4];
    int batch_depth = 0;

    ~Store() { close(); }

    void close() {
        if (db && pid == getpid()) {
            for (auto*& s : stmts)
                sqlite3_finalize(s);
            sqlite3_close_v2(db);
        }
        // A connection inherited through fork belongs to the parent: it is
        // dropped here without being touched.
        stmts.fill(nullptr);
        db = nullptr;
    }

    uint32_t exec(const char* sql) { return map_sqlite(sqlite3_exec(db, sql, nullptr, nullptr, nullptr)); }

    // The integer a one-row query gives, or minus the SQLite error.
    int query_int(const char* sql) {
        sqlite3_stmt* st = nullptr;
        int rc = sqlite3_prepare_v2(db, sql, -1, &st, nullptr);
        if (rc == SQLITE_OK) {
            rc = sqlite3_step(st);
            if (rc == SQLITE_ROW) {
                int v = sqlite3_column_int(st, 0);
                sqlite3_finalize(st);
                return v;
            }
        }
        sqlite3_finalize(st);
        return -(rc == SQLITE_OK ? SQLITE_ERROR : rc);
    }

    // Opens the database when it is not open; 0 or the Win32 error.
    uint32_t ready() {
        if (db && pid == getpid()) return kOk;
        if (db) close();
        if (path.empty()) return kBadKey;
        sqlite3* h = nullptr;
        int rc = sqlite3_open_v2(path.c_str(), &h,
                                 SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
        if (rc != SQLITE_OK) {
            sqlite3_close_v2(h);
            return map_sqlite(rc);
        }
        db = h;
        pid = getpid();
        sqlite3_extended_result_codes(db, 1);
        sqlite3_busy_timeout(db, busy_ms);
        uint32_t err = setup();
        if (err) close();
        return err;
    }

    uint32_t setup() {
        int v = query_int("PRAGMA user_version");
        if (v < 0) return map_sqlite(-v);
        if (v == 0) {
            // A new file (or an empty one): WAL first, then the schema and
            // the roots in one transaction, checked again inside it in case
            // another process got there first.  A database of another kind
            // (tables, but no schema version) is left as it is.
            int tables = query_int(kCountTables);
            if (tables != 0) return tables < 0 ? map_sqlite(-tables) : kBadDb;
            if (sqlite3_db_readonly(db, "main") == 1) return kDenied;
            exec("PRAGMA journal_mode = WAL");
            if (uint32_t e = exec("BEGIN IMMEDIATE")) return e;
            v = query_int("PRAGMA user_version");
            tables = v == 0 ? query_int(kCountTables) : 0;
            uint32_t e = v < 0        ? map_sqlite(-v)
                         : tables < 0 ? map_sqlite(-tables)
                         : tables > 0 ? kBadDb
                         : v == 0     ? exec(kSchema)
                                      : kOk;
            if (e) {
                exec("ROLLBACK");
                return e;
            }
            if (uint32_t c = exec("COMMIT")) {
                exec("ROLLBACK");
                return c;
            }
            v = kSchemaVersion;
        }
        // A file of a later release: its layout is not known here.
        if (v > kSchemaVersion) return kBadDb;
        // Read-only files keep their journal mode; the failure is harmless.
        exec("PRAGMA journal_mode = WAL");
        exec("PRAGMA synchronous = NORMAL");
        exec("PRAGMA foreign_keys = ON");
        return kOk;
    }

    sqlite3_stmt* stmt(Stmt which) {
        sqlite3_stmt*& s = stmts[which];
        if (!s &&
            sqlite3_prepare_v3(db, kSql[which], -1, SQLITE_PREPARE_PERSISTENT, &s, nullptr) != SQLITE_OK)
            s = nullptr;
        return s;
    }

    // Resolves a handle (roots included).
    uint32_t lookup(Key key, OpenKey& out) {
        if (key >= kClassesRoot && key <= kUsers) {
            out = {static_cast<int64_t>(key - kClassesRoot + 1), kAllAccess, {}};
            return kOk;
        }
        auto it = handles.find(key);
        if (it == handles.end()) return kBadHandle;
        out = it->second;
        return kOk;
    }

    // The open key behind `key` when it was opened with `right`.
    uint32_t lookup(Key key, uint32_t right, OpenKey& out) {
        if (uint32_t e = lookup(key, out)) return e;
        return (out.access & right) ? kOk : kDenied;
    }

    Cursor& cursor(Key key) {
        if (key >= kClassesRoot && key <= kUsers) return root_cursors[key - kClassesRoot];
        return handles[key].cursor;
    }

    // The enumeration statement for `index`, bound: from the cursor when it
    // stands at index or index - 1, by offset otherwise.
    sqlite3_stmt* enum_stmt(bool values, int64_t id, uint32_t index, const Cursor& c) {
        uint32_t at = values ? c.value_index : c.key_index;
        bool same = index > 0 && at == index, next = index > 0 && at != 0xFFFFFFFFu && at + 1 == index;
        Stmt which = values ? (same   ? kEnumValueFrom
                               : next ? kEnumValueAfter
                                      : kEnumValue)
                            : (same   ? kEnumKeyFrom
                               : next ? kEnumKeyAfter
                                      : kEnumKey);
        sqlite3_stmt* st = stmt(which);
        if (!st) return nullptr;
        sqlite3_bind_int64(st, 1, id);
        if (!same && !next)
            sqlite3_bind_int64(st, 2, index);
        else if (values)
            sqlite3_bind_int64(st, 2, c.value_at);
        else
            sqlite3_bind_text(st, 2, c.key_at.data(), static_cast<int>(c.key_at.size()), SQLITE_TRANSIENT);
        return st;
    }

    Key add_handle(int64_t id, uint32_t access) {
        Key k;
        do {
            next_handle += 4;
            if (next_handle >= kClassesRoot) next_handle = 0x100;
            k = next_handle;
        } while (handles.count(k));
        handles[k] = {id, access, {}};
        return k;
    }

    bool key_exists(int64_t id) {
        sqlite3_stmt* s = stmt(kKeyExists);
        if (!s) return false;
        sqlite3_bind_int64(s, 1, id);
        bool found = sqlite3_step(s) == SQLITE_ROW;
        sqlite3_reset(s);
        return found;
    }

    // The error of a lookup that found nothing under a key: the key itself
    // may be gone.
    uint32_t missing(int64_t id, uint32_t otherwise) { return key_exists(id) ? otherwise : kKeyDeleted; }

    // Child key of `parent` by name: 0 found (*id set), 2 missing, or an error.
    uint32_t find_child(int64_t parent, const std::string& fold, int64_t* id) {
        sqlite3_stmt* s = stmt(kFindKey);
        if (!s) return map_sqlite(sqlite3_errcode(db));
        sqlite3_bind_int64(s, 1, parent);
        sqlite3_bind_text(s, 2, fold.data(), static_cast<int>(fold.size()), SQLITE_STATIC);
        int rc = sqlite3_step(s);
        if (rc == SQLITE_ROW) *id = sqlite3_column_int64(s, 0);
        sqlite3_reset(s);
        return rc == SQLITE_ROW ? kOk : rc == SQLITE_DONE ? kNotFound : map_sqlite(rc);
    }

    // Write transaction of one call: BEGIN IMMEDIATE outside a batch, a
    // savepoint inside one.
    uint32_t begin_write() {
        return sqlite3_get_autocommit(db) ? exec("BEGIN IMMEDIATE") : exec("SAVEPOINT kp_call");
    }
    uint32_t end_write(uint32_t err) {
        bool outer = batch_depth == 0;
        if (err) {
            exec(outer ? "ROLLBACK" : "ROLLBACK TO kp_call; RELEASE kp_call");
            return err;
        }
        uint32_t c = exec(outer ? "COMMIT" : "RELEASE kp_call");
        if (c && outer) exec("ROLLBACK");
        return c;
    }
};

Store& store() {
    static Store s;
    return s;
}

// Splits a subkey path into its levels.  An empty path is the key itself;
// an empty level (a leading, doubled or trailing backslash) is a bad path,
// and a level longer than 255 characters an invalid parameter.
uint32_t split_path(std::u16string_view path, std::vector<std::u16string_view>& parts) {
    parts.clear();
    if (path.empty()) return kOk;
    std::size_t start = 0;
    for (;;) {
        std::size_t end = path.find(u'\\', start);
        std::u16string_view part = path.substr(start, end == std::u16string_view::npos ? end : end - start);
        if (part.empty()) return kBadPathname;
        if (part.size() > kMaxKeyName) return kInvalidParameter;
        parts.push_back(part);
        if (end == std::u16string_view::npos) break;
        start = end + 1;
    }
    return kOk;
}

void bind_text(sqlite3_stmt* s, int i, const std::string& t) {
    sqlite3_bind_text(s, i, t.data(), static_cast<int>(t.size()), SQLITE_STATIC);
}

std::u16string column_text(sqlite3_stmt* s, int i) {
    const unsigned char* p = sqlite3_column_text(s, i);
    return p ? from_utf8(std::string_view(reinterpret_cast<const char*>(p),
                                          static_cast<std::size_t>(sqlite3_column_bytes(s, i))))
             : std::u16string();
}

// Copies data into a caller's buffer with RegQueryValueExW's rules.
uint32_t give_data(const void* src, uint32_t len, uint8_t* data, uint32_t* size) {
    if (data) {
        if (!size) return kInvalidParameter;
        if (*size < len) {
            *size = len;
            return kMoreData;
        }
        if (len) std::memcpy(data, src, len);
    }
    if (size) *size = len;
    return kOk;
}

// Copies a name and its terminator into a caller's buffer of *chars
// characters; *chars becomes the name's length either way.
uint32_t give_name(const std::u16string& n, char16_t* out, uint32_t* chars) {
    uint32_t e = kOk;
    if (n.size() + 1 > *chars) {
        e = kMoreData;
    } else {
        std::memcpy(out, n.data(), n.size() * sizeof(char16_t));
        out[n.size()] = u'\0';
    }
    *chars = static_cast<uint32_t>(n.size());
    return e;
}

// Runs `body` with the store locked and ready; the error of either.
template <typename F> uint32_t with_store(F&& body) {
    Store& s = store();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    if (uint32_t e = s.ready()) return e;
    return body(s);
}

// Walks the levels under `from`; 0 with *id, 2 where a level is missing.
uint32_t resolve(Store& s, int64_t from, std::u16string_view subkey, int64_t* id) {
    std::vector<std::u16string_view> parts;
    if (uint32_t e = split_path(subkey, parts)) return e;
    int64_t cur = from;
    for (auto part : parts) {
        int64_t next = 0;
        uint32_t e = s.find_child(cur, folded(part), &next);
        if (e == kNotFound && cur == from) return s.missing(from, kNotFound);
        if (e) return e;
        cur = next;
    }
    if (parts.empty() && !s.key_exists(cur)) return kKeyDeleted;
    *id = cur;
    return kOk;
}

} // namespace

void use_database(std::string_view path) {
    Store& s = store();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    if (s.path == path) return;
    s.close();
    s.handles.clear();
    s.path.assign(path);
}

void set_busy_timeout(uint32_t milliseconds) {
    Store& s = store();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    s.busy_ms = static_cast<int>(milliseconds > 0x7FFFFFFF ? 0x7FFFFFFF : milliseconds);
    if (s.db) sqlite3_busy_timeout(s.db, s.busy_ms);
}

uint32_t create_key(Key parent, std::u16string_view subkey, uint32_t access, Key* out,
                    uint32_t* disposition) {
    if (!out) return kInvalidParameter;
    *out = 0;
    return with_store([&](Store& s) -> uint32_t {
        OpenKey p;
        if (uint32_t e = s.lookup(parent, p)) return e;
        std::vector<std::u16string_view> parts;
        if (uint32_t e = split_path(subkey, parts)) return e;
        // Most calls find the key: a read, no write transaction.
        int64_t id = 0;
        uint32_t e = resolve(s, p.id, subkey, &id);
        bool created = false;
        if (e == kNotFound) {
            if (!(p.access & kCreateSubKey)) return kDenied;
            if ((e = s.begin_write())) return e;
            int64_t cur = p.id;
            for (auto part : parts) {
                std::string fold = folded(part);
                int64_t next = 0;
                e = s.find_child(cur, fold, &next);
                if (e == kNotFound) {
                    sqlite3_stmt* st = s.stmt(kInsertKey);
                    if (!st) {
                        e = map_sqlite(sqlite3_errcode(s.db));
                        break;
                    }
                    std::string name = to_utf8(part);
                    sqlite3_bind_int64(st, 1, cur);
                    bind_text(st, 2, name);
                    bind_text(st, 3, fold);
                    int rc = sqlite3_step(st);
                    sqlite3_reset(st);
                    if (rc != SQLITE_DONE) {
                        e = map_sqlite(rc);
                        break;
                    }
                    next = sqlite3_last_insert_rowid(s.db);
                    created = true;
                    e = kOk;
                }
                if (e) break;
                cur = next;
            }
            if ((e = s.end_write(e))) return e;
            id = cur;
        } else if (e) {
            return e;
        }
        *out = s.add_handle(id, access);
        if (disposition) *disposition = created ? kCreatedNewKey : kOpenedExistingKey;
        return kOk;
    });
}

uint32_t open_key(Key parent, std::u16string_view subkey, uint32_t access, Key* out) {
    if (!out) return kInvalidParameter;
    *out = 0;
    return with_store([&](Store& s) -> uint32_t {
        OpenKey p;
        if (uint32_t e = s.lookup(parent, p)) return e;
        int64_t id = 0;
        if (uint32_t e = resolve(s, p.id, subkey, &id)) return e;
        *out = s.add_handle(id, access);
        return kOk;
    });
}

uint32_t close_key(Key key) {
    if (key >= kClassesRoot && key <= kUsers) return kOk;
    Store& s = store();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    return s.handles.erase(key) ? kOk : kBadHandle;
}

uint32_t query_value(Key key, std::u16string_view name, uint32_t* type, uint8_t* data, uint32_t* size) {
    return with_store([&](Store& s) -> uint32_t {
        OpenKey k;
        if (uint32_t e = s.lookup(key, kQueryValue, k)) return e;
        if (data && !size) return kInvalidParameter;
        sqlite3_stmt* st = s.stmt(kFindValue);
        if (!st) return map_sqlite(sqlite3_errcode(s.db));
        std::string fold = folded(name);
        sqlite3_bind_int64(st, 1, k.id);
        bind_text(st, 2, fold);
        int rc = sqlite3_step(st);
        uint32_t e;
        if (rc == SQLITE_ROW) {
            if (type) *type = static_cast<uint32_t>(sqlite3_column_int64(st, 0));
            const void* p = sqlite3_column_blob(st, 1);
            e = give_data(p, static_cast<uint32_t>(sqlite3_column_bytes(st, 1)), data, size);
        } else {
            e = rc == SQLITE_DONE ? kNotFound : map_sqlite(rc);
        }
        sqlite3_reset(st);
        return e == kNotFound ? s.missing(k.id, kNotFound) : e;
    });
}

uint32_t set_value(Key key, std::u16string_view name, uint32_t type, const uint8_t* data, uint32_t size) {
    static const uint8_t kEmpty = 0;
    return with_store([&](Store& s) -> uint32_t {
        OpenKey k;
        if (uint32_t e = s.lookup(key, kSetValue, k)) return e;
        if ((!data && size) || size > 0x7FFFFFFFu || name.size() > kMaxValueName) return kInvalidParameter;
        sqlite3_stmt* st = s.stmt(kUpsertValue);
        if (!st) return map_sqlite(sqlite3_errcode(s.db));
        std::string n = to_utf8(name), fold = folded(name);
        sqlite3_bind_int64(st, 1, k.id);
        bind_text(st, 2, n);
        bind_text(st, 3, fold);
        sqlite3_bind_int64(st, 4, type);
        sqlite3_bind_blob(st, 5, data ? data : &kEmpty, static_cast<int>(size), SQLITE_STATIC);
        // One statement: its own transaction outside a batch.
        int rc = sqlite3_step(st);
        sqlite3_reset(st);
        sqlite3_clear_bindings(st);
        return rc == SQLITE_DONE ? kOk : map_sqlite(rc);
    });
}

uint32_t enum_key(Key key, uint32_t index, char16_t* name, uint32_t* name_chars) {
    return with_store([&](Store& s) -> uint32_t {
        OpenKey k;
        if (uint32_t e = s.lookup(key, kEnumerateSubKeys, k)) return e;
        if (!name || !name_chars) return kInvalidParameter;
        Cursor& c = s.cursor(key);
        sqlite3_stmt* st = s.enum_stmt(false, k.id, index, c);
        if (!st) return map_sqlite(sqlite3_errcode(s.db));
        int rc = sqlite3_step(st);
        uint32_t e = kOk;
        if (rc == SQLITE_ROW) {
            c.key_index = index;
            c.key_at.assign(reinterpret_cast<const char*>(sqlite3_column_text(st, 1)),
                            static_cast<std::size_t>(sqlite3_column_bytes(st, 1)));
            e = give_name(column_text(st, 0), name, name_chars);
        } else {
            e = rc == SQLITE_DONE ? kNoMoreItems : map_sqlite(rc);
        }
        sqlite3_reset(st);
        return e == kNoMoreItems ? s.missing(k.id, kNoMoreItems) : e;
    });
}

uint32_t enum_key_after(Key key, std::u16string_view name, char16_t* next, uint32_t* next_chars) {
    return with_store([&](Store& s) -> uint32_t {
        OpenKey k;
        if (uint32_t e = s.lookup(key, kEnumerateSubKeys, k)) return e;
        if (!next || !next_chars) return kInvalidParameter;
        std::string fold = folded(name);
        sqlite3_stmt* find = s.stmt(kFindKeyName);
        sqlite3_stmt* after = s.stmt(kEnumKeyAfter);
        if (!find || !after) return map_sqlite(sqlite3_errcode(s.db));
        sqlite3_bind_int64(find, 1, k.id);
        bind_text(find, 2, fold);
        int rc = sqlite3_step(find);
        bool spelled = rc == SQLITE_ROW && column_text(find, 0) == name;
        sqlite3_reset(find);
        if (rc != SQLITE_ROW && rc != SQLITE_DONE) return map_sqlite(rc);
        if (!spelled) return s.missing(k.id, kNotFound);
        sqlite3_bind_int64(after, 1, k.id);
        bind_text(after, 2, fold);
        rc = sqlite3_step(after);
        uint32_t e = kOk;
        if (rc == SQLITE_ROW) {
            e = give_name(column_text(after, 0), next, next_chars);
        } else {
            e = rc == SQLITE_DONE ? kNoMoreItems : map_sqlite(rc);
        }
        sqlite3_reset(after);
        return e;
    });
}

uint32_t enum_value(Key key, uint32_t index, char16_t* name, uint32_t* name_chars, uint32_t* type,
                    uint8_t* data, uint32_t* size) {
    return with_store([&](Store& s) -> uint32_t {
        OpenKey k;
        if (uint32_t e = s.lookup(key, kQueryValue, k)) return e;
        if (!name || !name_chars || (data && !size)) return kInvalidParameter;
        Cursor& c = s.cursor(key);
        sqlite3_stmt* st = s.enum_stmt(true, k.id, index, c);
        if (!st) return map_sqlite(sqlite3_errcode(s.db));
        int rc = sqlite3_step(st);
        uint32_t e = kOk;
        if (rc == SQLITE_ROW) {
            c.value_index = index;
            c.value_at = sqlite3_column_int64(st, 3);
            e = give_name(column_text(st, 0), name, name_chars);
            if (type) *type = static_cast<uint32_t>(sqlite3_column_int64(st, 1));
            uint32_t len = static_cast<uint32_t>(sqlite3_column_bytes(st, 2));
            if (e == kOk) {
                e = give_data(sqlite3_column_blob(st, 2), len, data, size);
            } else if (size) {
                *size = len;
            }
        } else {
            e = rc == SQLITE_DONE ? kNoMoreItems : map_sqlite(rc);
        }
        sqlite3_reset(st);
        return e == kNoMoreItems ? s.missing(k.id, kNoMoreItems) : e;
    });
}

uint32_t query_info_key(Key key, KeyInfo* info) {
    return with_store([&](Store& s) -> uint32_t {
        OpenKey k;
        if (uint32_t e = s.lookup(key, kQueryValue, k)) return e;
        if (!info) return kInvalidParameter;
        if (!s.key_exists(k.id)) return kKeyDeleted;
        KeyInfo r;
        // One read transaction, so the counts agree with each other.
        bool own = sqlite3_get_autocommit(s.db) != 0;
        if (own) {
            if (uint32_t e = s.exec("BEGIN")) return e;
        }
        uint32_t err = kOk;
        for (Stmt which : {kSubkeyNames, kValueInfo}) {
            sqlite3_stmt* st = s.stmt(which);
            if (!st) {
                err = map_sqlite(sqlite3_errcode(s.db));
                break;
            }
            sqlite3_bind_int64(st, 1, k.id);
            int rc;
            while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
                uint32_t len = static_cast<uint32_t>(column_text(st, 0).size());
                if (which == kSubkeyNames) {
                    ++r.subkeys;
                    if (len > r.max_subkey_len) r.max_subkey_len = len;
                } else {
                    ++r.values;
                    if (len > r.max_value_name_len) r.max_value_name_len = len;
                    uint32_t bytes = static_cast<uint32_t>(sqlite3_column_int64(st, 1));
                    if (bytes > r.max_value_len) r.max_value_len = bytes;
                }
            }
            sqlite3_reset(st);
            if (rc != SQLITE_DONE) {
                err = map_sqlite(rc);
                break;
            }
        }
        if (own) s.exec("COMMIT");
        if (err) return err;
        *info = r;
        return kOk;
    });
}

uint32_t delete_key(Key parent, std::u16string_view subkey) {
    return with_store([&](Store& s) -> uint32_t {
        OpenKey p;
        if (uint32_t e = s.lookup(parent, p)) return e;
        int64_t id = 0;
        if (uint32_t e = resolve(s, p.id, subkey, &id)) return e;
        // The predefined roots stay.
        if (id <= 4) return kDenied;
        if (uint32_t e = s.begin_write()) return e;
        uint32_t e = kOk;
        sqlite3_stmt* has = s.stmt(kHasSubkey);
        sqlite3_stmt* del = s.stmt(kDeleteKey);
        if (!has || !del) {
            e = map_sqlite(sqlite3_errcode(s.db));
        } else {
            sqlite3_bind_int64(has, 1, id);
            int rc = sqlite3_step(has);
            sqlite3_reset(has);
            if (rc == SQLITE_ROW) {
                e = kDenied;
            } else if (rc != SQLITE_DONE) {
                e = map_sqlite(rc);
            } else {
                sqlite3_bind_int64(del, 1, id);
                rc = sqlite3_step(del);
                sqlite3_reset(del);
                if (rc != SQLITE_DONE)
                    e = (rc & 0xff) == SQLITE_CONSTRAINT ? kDenied : map_sqlite(rc);
                else if (sqlite3_changes(s.db) == 0)
                    e = kNotFound;
            }
        }
        return s.end_write(e);
    });
}

uint32_t delete_value(Key key, std::u16string_view name) {
    return with_store([&](Store& s) -> uint32_t {
        OpenKey k;
        if (uint32_t e = s.lookup(key, kSetValue, k)) return e;
        sqlite3_stmt* st = s.stmt(kDeleteValue);
        if (!st) return map_sqlite(sqlite3_errcode(s.db));
        std::string fold = folded(name);
        sqlite3_bind_int64(st, 1, k.id);
        bind_text(st, 2, fold);
        int rc = sqlite3_step(st);
        sqlite3_reset(st);
        if (rc != SQLITE_DONE) return map_sqlite(rc);
        return sqlite3_changes(s.db) ? kOk : s.missing(k.id, kNotFound);
    });
}

uint32_t begin_batch() {
    Store& s = store();
    s.mu.lock();
    uint32_t e = s.ready();
    if (!e && s.batch_depth == 0) e = s.exec("BEGIN IMMEDIATE");
    if (e) {
        s.mu.unlock();
        return e;
    }
    ++s.batch_depth;
    return kOk;
}

uint32_t end_batch(bool commit) {
    Store& s = store();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    // The lock taken by begin_batch.
    std::unique_lock<std::recursive_mutex> held(s.mu, std::adopt_lock);
    if (s.batch_depth == 0) {
        held.release();
        return kInvalidParameter;
    }
    uint32_t e = kOk;
    if (--s.batch_depth == 0 && s.db) {
        e = s.exec(commit ? "COMMIT" : "ROLLBACK");
        if (e) s.exec("ROLLBACK");
    }
    return e;
}

} // namespace kp::platform::registry
