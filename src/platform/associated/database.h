// A thin layer over SQLite: a connection, statements, a transaction; errors as ours.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/result.h"

struct sqlite3;
struct sqlite3_stmt;

namespace trevix::associated {

class Database {
 public:
    // An existing file. Opened for reading only where writing is not permitted.
    static Result<std::unique_ptr<Database>> Open(const std::string& path);

    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database();

    Status Run(const char* sql);

    // What the last failed call of the library means for the hidden messages: damage is kMalformed,
    // and its description says what to do about it.
    Error LastError() const;

    sqlite3* handle() const { return handle_; }

 private:
    explicit Database(std::string path) : path_(std::move(path)) {}

    std::string path_;
    sqlite3* handle_ = nullptr;
};

// The error of a damaged or foreign file.
Error DamagedFile(const std::string& path, const std::string& why);

// A prepared statement. A failure of any call before Step() is reported by Step().
class Statement {
 public:
    Statement(const Database& database, const char* sql);
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement();

    // Parameters and columns count from 0. Texts and bytes must live until the last Step().
    Statement& Integer(int parameter, std::int64_t value);
    Statement& Text(int parameter, std::string_view text);
    Statement& Bytes(int parameter, std::string_view bytes);
    Statement& Null(int parameter);
    Statement& ZeroBytes(int parameter, std::uint64_t count);

    // True for a row, false at the end.
    Result<bool> Step();

    // For statements without rows.
    Status Finish();

    std::int64_t IntegerAt(int column) const;
    std::string StringAt(int column) const;  // texts and bytes alike

 private:
    void Note(int outcome);

    const Database& database_;
    sqlite3_stmt* statement_ = nullptr;
    int outcome_ = 0;
};

// Rolls back unless committed.
class Transaction {
 public:
    explicit Transaction(Database& database) : database_(database) {}
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();

    // At once with the write lock, so that nobody can write between a check and its change.
    Status Begin();
    // What is read until the end is of one moment.
    Status BeginToRead();
    Status Commit();

 private:
    Database& database_;
    bool open_ = false;
};

}  // namespace trevix::associated
