#include "platform/associated/database.h"

#include <sqlite3.h>

#include <utility>

#include "platform/errors.h"

namespace trevix::associated {
namespace {

constexpr int kBusyMilliseconds = 5000;

std::uint32_t CodeOf(int outcome) {
    switch (outcome & 0xFF) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED: return kStoreBusy;
        case SQLITE_READONLY:
        case SQLITE_CANTOPEN:
        case SQLITE_PERM:
        case SQLITE_AUTH: return kNoAccess;
        case SQLITE_FULL: return kNotEnoughDisk;
        case SQLITE_IOERR: return kDiskError;
        case SQLITE_NOMEM: return kNotEnoughMemory;
        default: return kCallFailed;
    }
}

}  // namespace

Error DamagedFile(const std::string& path, const std::string& why) {
    return MessagingError(kCorruptData,
                          "The file of the hidden messages " + path + " is damaged (" + why +
                              "); it has been left as it is: restore it from a backup, or move it "
                              "away to start with an empty one.");
}

Result<std::unique_ptr<Database>> Database::Open(const std::string& path) {
    std::unique_ptr<Database> database(new Database(path));
    const int outcome = ::sqlite3_open_v2(path.c_str(), &database->handle_,
                                          SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX |
                                              SQLITE_OPEN_PRIVATECACHE | SQLITE_OPEN_NOFOLLOW,
                                          nullptr);
    if (outcome != SQLITE_OK) return database->LastError();
    ::sqlite3_extended_result_codes(database->handle_, 1);
    ::sqlite3_busy_timeout(database->handle_, kBusyMilliseconds);
    // The rollback journal exists only while a change is written: nothing stays beside the file,
    // and what a killed process leaves is rolled back by the next reader. A log written ahead would
    // stay behind a killed process as two more files in the user's mail directory.
    TREVIX_RETURN_IF_ERROR(database->Run(
        "PRAGMA journal_mode=DELETE; PRAGMA synchronous=FULL; PRAGMA trusted_schema=OFF; "
        "PRAGMA cell_size_check=ON; PRAGMA foreign_keys=OFF;"));
    return database;
}

Database::~Database() {
    ::sqlite3_close_v2(handle_);
}

Status Database::Run(const char* sql) {
    if (::sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) return LastError();
    return {};
}

Error Database::LastError() const {
    if (handle_ == nullptr) return MessagingError(kNotEnoughMemory, path_);
    const int outcome = ::sqlite3_errcode(handle_) & 0xFF;
    const std::string why = ::sqlite3_errmsg(handle_);
    if (outcome == SQLITE_CORRUPT || outcome == SQLITE_NOTADB || outcome == SQLITE_FORMAT) {
        return DamagedFile(path_, why);
    }
    return MessagingError(CodeOf(outcome), path_ + ": " + why);
}

Statement::Statement(const Database& database, const char* sql) : database_(database) {
    outcome_ = ::sqlite3_prepare_v2(database.handle(), sql, -1, &statement_, nullptr);
}

Statement::~Statement() {
    ::sqlite3_finalize(statement_);
}

void Statement::Note(int outcome) {
    if (outcome_ == SQLITE_OK) outcome_ = outcome;
}

Statement& Statement::Integer(int parameter, std::int64_t value) {
    if (outcome_ == SQLITE_OK) Note(::sqlite3_bind_int64(statement_, parameter + 1, value));
    return *this;
}

// A null pointer would bind NULL instead of an empty text.
Statement& Statement::Text(int parameter, std::string_view text) {
    const char* bytes = text.data() == nullptr ? "" : text.data();
    if (outcome_ == SQLITE_OK) {
        Note(::sqlite3_bind_text64(statement_, parameter + 1, bytes, text.size(), nullptr,
                                   SQLITE_UTF8));
    }
    return *this;
}

Statement& Statement::Bytes(int parameter, std::string_view bytes) {
    const char* start = bytes.data() == nullptr ? "" : bytes.data();
    if (outcome_ == SQLITE_OK) {
        Note(::sqlite3_bind_blob64(statement_, parameter + 1, start, bytes.size(), nullptr));
    }
    return *this;
}

Statement& Statement::Null(int parameter) {
    if (outcome_ == SQLITE_OK) Note(::sqlite3_bind_null(statement_, parameter + 1));
    return *this;
}

Statement& Statement::ZeroBytes(int parameter, std::uint64_t count) {
    if (outcome_ == SQLITE_OK) {
        Note(::sqlite3_bind_zeroblob64(statement_, parameter + 1, count));
    }
    return *this;
}

Result<bool> Statement::Step() {
    if (outcome_ != SQLITE_OK) return database_.LastError();
    const int outcome = ::sqlite3_step(statement_);
    if (outcome == SQLITE_ROW) return true;
    if (outcome == SQLITE_DONE) return false;
    return database_.LastError();
}

Status Statement::Finish() {
    const auto stepped = Step();
    if (!stepped.ok()) return stepped.error();
    return {};
}

std::int64_t Statement::IntegerAt(int column) const {
    return ::sqlite3_column_int64(statement_, column);
}

std::string Statement::StringAt(int column) const {
    const void* bytes = ::sqlite3_column_blob(statement_, column);
    const int count = ::sqlite3_column_bytes(statement_, column);
    if (bytes == nullptr || count <= 0) return {};
    return std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(count));
}

Status Transaction::Begin() {
    TREVIX_RETURN_IF_ERROR(database_.Run("BEGIN IMMEDIATE"));
    open_ = true;
    return {};
}

Status Transaction::BeginToRead() {
    TREVIX_RETURN_IF_ERROR(database_.Run("BEGIN"));
    open_ = true;
    return {};
}

Status Transaction::Commit() {
    TREVIX_RETURN_IF_ERROR(database_.Run("COMMIT"));
    open_ = false;
    return {};
}

Transaction::~Transaction() {
    if (!open_) return;
    // A rollback that fails has been done already, or will be by the next reader of the file.
    Drop(database_.Run("ROLLBACK"));
}

}  // namespace trevix::associated
