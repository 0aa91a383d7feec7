#include "platform/summary_cache/sqlite_summary_cache.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/summary_cache/summary_codec.h"

namespace trevix::summary_cache {
namespace {

// A file of another version is thrown away.
constexpr int kVersion = 2;

// A second process waits this long for the first one's transaction.
constexpr int kBusyMilliseconds = 2000;

constexpr const char* kSchema =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=NORMAL;"
    "CREATE TABLE IF NOT EXISTS folder(path TEXT PRIMARY KEY, stamp BLOB, pieces BLOB);"
    "CREATE TABLE IF NOT EXISTS piece(id INTEGER PRIMARY KEY, bytes BLOB);";

Error DatabaseError(sqlite3* database) {
    return MessagingError(kDiskError, std::string("summary cache: ") + sqlite3_errmsg(database));
}

class Statement {
 public:
    Statement(sqlite3* database, const char* sql) {
        if (sqlite3_prepare_v2(database, sql, -1, &statement_, nullptr) != SQLITE_OK) {
            statement_ = nullptr;
        }
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    void BindBytes(int index, std::string_view bytes) {
        sqlite3_bind_blob64(statement_, index, bytes.empty() ? "" : bytes.data(), bytes.size(),
                            SQLITE_STATIC);
    }
    void BindText(int index, std::string_view text) {
        sqlite3_bind_text64(statement_, index, text.empty() ? "" : text.data(), text.size(),
                            SQLITE_STATIC, SQLITE_UTF8);
    }
    void BindNumber(int index, std::int64_t value) { sqlite3_bind_int64(statement_, index, value); }
    int Step() { return statement_ == nullptr ? SQLITE_ERROR : sqlite3_step(statement_); }
    void Reset() { sqlite3_reset(statement_); }
    std::string_view Bytes(int column) {
        const void* bytes = sqlite3_column_blob(statement_, column);
        const int size = sqlite3_column_bytes(statement_, column);
        return {static_cast<const char*>(bytes), static_cast<std::size_t>(size)};
    }
    std::int64_t Number(int column) { return sqlite3_column_int64(statement_, column); }

 private:
    sqlite3_stmt* statement_ = nullptr;
};

// The list of a folder's pieces: row ID and hash of each, in order.
struct PieceReference {
    std::int64_t id = 0;
    std::uint64_t hash = 0;
};

std::string EncodeReferences(const std::vector<PieceReference>& references) {
    std::string bytes(references.size() * sizeof(PieceReference), '\0');
    if (!bytes.empty()) std::memcpy(bytes.data(), references.data(), bytes.size());
    return bytes;
}

bool DecodeReferences(std::string_view bytes, std::vector<PieceReference>* references) {
    if (bytes.size() % sizeof(PieceReference) != 0) return false;
    references->resize(bytes.size() / sizeof(PieceReference));
    if (!bytes.empty()) std::memcpy(references->data(), bytes.data(), bytes.size());
    return true;
}

void MakeDirectories(const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        // What cannot be made is found out when the file is opened.
        static_cast<void>(::mkdir(path.substr(0, slash).c_str(), 0700));
    }
    static_cast<void>(::mkdir(path.c_str(), 0700));
}

}  // namespace

// One open file. Without a file every call succeeds and keeps nothing.
class SummaryDatabase {
 public:
    explicit SummaryDatabase(std::string path) : path_(std::move(path)) {
        if (!TryOpen() && IsUnusable(last_code_) && IsOurs()) StartAnew();
    }
    ~SummaryDatabase() { Close(); }
    SummaryDatabase(const SummaryDatabase&) = delete;
    SummaryDatabase& operator=(const SummaryDatabase&) = delete;

    bool KnowsAnything() {
        if (database_ == nullptr) return false;
        Statement query(database_, "SELECT 1 FROM folder LIMIT 1");
        return query.Step() == SQLITE_ROW;
    }

    FolderSummary Load(const std::string& folder) {
        FolderSummary summary;
        if (database_ == nullptr) return summary;
        if (TryLoad(folder, &summary)) return summary;
        StartAnew();
        return {};
    }

    Status Save(const std::string& folder, const FolderSummary& now) {
        if (database_ == nullptr) return {};
        Status saved = TrySave(folder, now);
        if (saved.ok()) return saved;
        sqlite3_exec(database_, "ROLLBACK", nullptr, nullptr, nullptr);
        if (!IsDamage(last_code_)) return saved;
        StartAnew();
        if (database_ == nullptr) return {};
        return TrySave(folder, now);
    }

 private:
    static bool IsDamage(int code) {
        return (code & 0xFF) == SQLITE_CORRUPT || (code & 0xFF) == SQLITE_NOTADB ||
               (code & 0xFF) == SQLITE_ERROR;
    }

    // A file that is only busy, or out of reach just now, may be in good use by another process.
    static bool IsUnusable(int code) {
        switch (code & 0xFF) {
            case SQLITE_BUSY:
            case SQLITE_LOCKED:
            case SQLITE_PERM:
            case SQLITE_READONLY:
            case SQLITE_CANTOPEN:
            case SQLITE_IOERR:
            case SQLITE_FULL:
            case SQLITE_NOMEM: return false;
            default: return true;
        }
    }

    // Only a regular file is deleted and made anew.
    bool IsOurs() const {
        struct stat status {};
        return ::lstat(path_.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    }

    bool TryOpen() {
        const int flags =
            SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX;
        const mode_t old_mask = ::umask(0077);
        const bool opened = sqlite3_open_v2(path_.c_str(), &database_, flags, nullptr) == SQLITE_OK;
        bool usable = opened;
        if (opened) {
            sqlite3_busy_timeout(database_, kBusyMilliseconds);
            usable = CheckVersion() &&
                     sqlite3_exec(database_, kSchema, nullptr, nullptr, nullptr) == SQLITE_OK &&
                     SetVersion();
        }
        ::umask(old_mask);
        if (!usable) last_code_ = sqlite3_errcode(database_);
        if (!usable) Close();
        return usable;
    }

    // A new file has version 0 and no table.
    bool CheckVersion() {
        Statement version(database_, "PRAGMA user_version");
        if (version.Step() != SQLITE_ROW) return false;
        if (version.Number(0) == kVersion) return true;
        Statement tables(database_, "SELECT count(*) FROM sqlite_master");
        return version.Number(0) == 0 && tables.Step() == SQLITE_ROW && tables.Number(0) == 0;
    }

    bool SetVersion() {
        Statement version(database_, "PRAGMA user_version");
        if (version.Step() == SQLITE_ROW && version.Number(0) == kVersion) return true;
        version.Reset();
        const std::string sql = "PRAGMA user_version=" + std::to_string(kVersion);
        return sqlite3_exec(database_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
    }

    void Close() {
        sqlite3_close(database_);
        database_ = nullptr;
    }

    void StartAnew() {
        Close();
        for (const char* suffix : {"", "-wal", "-shm"})
            ::unlink((path_ + suffix).c_str());
        TryOpen();
    }

    // False when the file is damaged.
    bool TryLoad(const std::string& folder, FolderSummary* summary) {
        Statement query(database_, "SELECT stamp, pieces FROM folder WHERE path=?");
        query.BindText(1, folder);
        const int code = query.Step();
        // A file that is busy or cannot be read just now is nothing to throw away.
        if (code != SQLITE_ROW) return !IsDamage(code);
        std::vector<PieceReference> references;
        if (!DecodeReferences(query.Bytes(1), &references)) return false;

        FolderSummary loaded;
        loaded.stamp = query.Bytes(0);
        loaded.messages.reserve(references.size() * 128);
        Statement piece(database_, "SELECT bytes FROM piece WHERE id=?");
        for (const PieceReference& reference : references) {
            piece.Reset();
            piece.BindNumber(1, reference.id);
            if (piece.Step() != SQLITE_ROW) return false;
            const std::string_view bytes = piece.Bytes(0);
            const bool sound =
                HashBytes(bytes) == reference.hash && DecodeSummaries(bytes, &loaded.messages);
            if (!sound) return false;
        }
        *summary = std::move(loaded);
        return true;
    }

    Status Run(const char* sql) {
        return Check(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr));
    }

    Status Check(int code) {
        if (code == SQLITE_OK || code == SQLITE_DONE) return {};
        last_code_ = code;
        return DatabaseError(database_);
    }

    Status TrySave(const std::string& folder, const FolderSummary& now) {
        TREVIX_RETURN_IF_ERROR(Run("BEGIN IMMEDIATE"));
        std::vector<PieceReference> stored;
        {
            Statement query(database_, "SELECT pieces FROM folder WHERE path=?");
            query.BindText(1, folder);
            const int code = query.Step();
            if (code != SQLITE_ROW) TREVIX_RETURN_IF_ERROR(Check(code));
            if (code == SQLITE_ROW && !DecodeReferences(query.Bytes(0), &stored)) {
                return Check(SQLITE_CORRUPT);
            }
        }
        // Pieces that are stored already are used again.
        std::unordered_multimap<std::uint64_t, std::int64_t> reusable;
        for (const PieceReference& reference : stored)
            reusable.emplace(reference.hash, reference.id);
        std::vector<PieceReference> references;
        Statement insert(database_, "INSERT INTO piece(bytes) VALUES(?)");
        for (const SummaryPiece& piece : EncodeSummaries(now.messages)) {
            const auto found = reusable.find(piece.hash);
            if (found != reusable.end()) {
                references.push_back({found->second, piece.hash});
                reusable.erase(found);
                continue;
            }
            insert.Reset();
            insert.BindBytes(1, piece.bytes);
            TREVIX_RETURN_IF_ERROR(Check(insert.Step()));
            references.push_back({sqlite3_last_insert_rowid(database_), piece.hash});
        }
        Statement remove(database_, "DELETE FROM piece WHERE id=?");
        for (const auto& [hash, id] : reusable) {
            remove.Reset();
            remove.BindNumber(1, id);
            TREVIX_RETURN_IF_ERROR(Check(remove.Step()));
        }
        const std::string list = EncodeReferences(references);
        Statement write(database_,
                        "INSERT OR REPLACE INTO folder(path, stamp, pieces) VALUES(?,?,?)");
        write.BindText(1, folder);
        write.BindBytes(2, now.stamp);
        write.BindBytes(3, list);
        TREVIX_RETURN_IF_ERROR(Check(write.Step()));
        return Run("COMMIT");
    }

    std::string path_;
    sqlite3* database_ = nullptr;
    int last_code_ = SQLITE_OK;
};

SqliteSummaryCache::SqliteSummaryCache(std::string directory) : directory_(std::move(directory)) {
    while (directory_.size() > 1 && directory_.back() == '/')
        directory_.pop_back();
    MakeDirectories(directory_);
}

SqliteSummaryCache::~SqliteSummaryCache() = default;

std::string SqliteSummaryCache::PathOf(const std::string& store_address) const {
    // Readable as far as a file name may be, and told apart by the hash.
    std::string name;
    for (const char c : store_address) {
        const bool plain =
            (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        name += plain ? c : '-';
    }
    if (name.size() > 80) name = name.substr(name.size() - 80);
    char hash[17];
    std::snprintf(hash, sizeof hash, "%016llx",
                  static_cast<unsigned long long>(HashBytes(store_address)));
    return directory_ + "/" + name + "-" + hash + ".db";
}

SummaryDatabase& SqliteSummaryCache::Open(const std::string& store_address) {
    std::unique_ptr<SummaryDatabase>& database = databases_[store_address];
    if (database == nullptr) database = std::make_unique<SummaryDatabase>(PathOf(store_address));
    return *database;
}

Result<bool> SqliteSummaryCache::KnowsStore(const std::string& store_address) {
    return Open(store_address).KnowsAnything();
}

Result<FolderSummary> SqliteSummaryCache::Load(const std::string& store_address,
                                               const std::string& folder) {
    return Open(store_address).Load(folder);
}

Status SqliteSummaryCache::Save(const std::string& store_address, const std::string& folder,
                                const FolderSummary& /*before*/, const FolderSummary& now) {
    // The hashes that are stored tell the differences better than any memory of them.
    return Open(store_address).Save(folder, now);
}

}  // namespace trevix::summary_cache
