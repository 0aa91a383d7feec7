#include "platform/associated/associated_store.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <utility>

#include "platform/associated/database.h"
#include "platform/associated/property_codec.h"
#include "platform/errors.h"

namespace trevix::associated {
namespace {

constexpr std::size_t kIdSize = 16;
constexpr std::int64_t kApplication = 0x54564158;  // marks the file as ours
constexpr std::int64_t kFormat = 1;

constexpr char kSchema[] =
    "PRAGMA application_id=1414938968; PRAGMA user_version=1;"
    "CREATE TABLE message (id BLOB PRIMARY KEY, class TEXT NOT NULL, subject TEXT NOT NULL,"
    "  modified_ns INTEGER NOT NULL, revision INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE property (message BLOB NOT NULL, position INTEGER NOT NULL,"
    "  set_name TEXT NOT NULL, name TEXT NOT NULL, type INTEGER NOT NULL, value BLOB NOT NULL,"
    "  PRIMARY KEY (message, position)) WITHOUT ROWID;"
    "CREATE TABLE attachment (number INTEGER PRIMARY KEY, message BLOB NOT NULL,"
    "  position INTEGER NOT NULL, name TEXT NOT NULL, method INTEGER NOT NULL,"
    "  content BLOB NOT NULL, UNIQUE (message, position));";
static_assert(kApplication == 1414938968);

std::string RealDirectory(const std::string& directory) {
    char* resolved = ::realpath(directory.c_str(), nullptr);
    if (resolved == nullptr) return directory;
    std::string real = resolved;
    std::free(resolved);
    return real;
}

std::optional<std::string> RandomId() {
    std::string id(kIdSize, '\0');
    if (::getrandom(id.data(), id.size(), 0) != static_cast<ssize_t>(id.size())) {
        return std::nullopt;
    }
    return id;
}

Result<std::int64_t> OneInteger(const Database& database, const char* sql) {
    Statement statement(database, sql);
    const auto row = statement.Step();
    if (!row.ok()) return row.error();
    return row.value() ? statement.IntegerAt(0) : 0;
}

// The stored revision; 0 when there is no such message.
Result<std::int64_t> RevisionOf(const Database& database, const std::string& id) {
    Statement statement(database, "SELECT revision FROM message WHERE id=?");
    const auto row = statement.Bytes(0, id).Step();
    if (!row.ok()) return row.error();
    return row.value() ? statement.IntegerAt(0) : 0;
}

Status WriteProperties(const Database& database, const HiddenMail& mail) {
    Statement clear(database, "DELETE FROM property WHERE message=?");
    TREVIX_RETURN_IF_ERROR(clear.Bytes(0, mail.id).Finish());
    std::int64_t position = 0;
    for (const HiddenMail::Property& property : mail.properties) {
        const auto value = EncodeValue(property.value);
        if (!value.ok()) return value.error();
        Statement insert(database, "INSERT INTO property VALUES (?,?,?,?,?,?)");
        TREVIX_RETURN_IF_ERROR(insert.Bytes(0, mail.id)
                                   .Integer(1, position++)
                                   .Text(2, property.set)
                                   .Text(3, property.name)
                                   .Integer(4, static_cast<std::int64_t>(value.value().type))
                                   .Bytes(5, value.value().bytes)
                                   .Finish());
    }
    return {};
}

// An attachment's bytes in the file, read and written in pieces.
class StoredContent {
 public:
    StoredContent() = default;
    StoredContent(const StoredContent&) = delete;
    StoredContent& operator=(const StoredContent&) = delete;
    ~StoredContent() { ::sqlite3_blob_close(blob_); }

    Status Open(const Database& database, std::int64_t number, bool to_write) {
        if (::sqlite3_blob_open(database.handle(), "main", "attachment", "content", number,
                                to_write ? 1 : 0, &blob_) != SQLITE_OK) {
            return database.LastError();
        }
        return {};
    }

    std::uint64_t size_bytes() const {
        return static_cast<std::uint64_t>(::sqlite3_blob_bytes(blob_));
    }

    Status Write(const Database& database, const Blob& content) {
        int offset = 0;
        return content.ForEachPiece([&](const char* bytes, std::size_t count) -> Status {
            const int length = static_cast<int>(count);
            if (::sqlite3_blob_write(blob_, bytes, length, offset) != SQLITE_OK) {
                return database.LastError();
            }
            offset += length;
            return {};
        });
    }

    Result<bool> Holds(const Database& database, const Blob& content) {
        if (content.size_bytes() != size_bytes()) return false;
        std::string stored;
        bool same = true;
        int offset = 0;
        const Status read =
            content.ForEachPiece([&](const char* bytes, std::size_t count) -> Status {
                stored.resize(count);
                const int length = static_cast<int>(count);
                if (::sqlite3_blob_read(blob_, stored.data(), length, offset) != SQLITE_OK) {
                    return database.LastError();
                }
                same = same && stored.compare(0, count, bytes, count) == 0;
                offset += length;
                return {};
            });
        if (!read.ok()) return read.error();
        return same;
    }

 private:
    sqlite3_blob* blob_ = nullptr;
};

// Whether the file holds just this attachment at this position: an unchanged one of some megabytes
// is not written anew with every change of a counter.
Result<bool> IsStored(const Database& database, const std::string& id, std::int64_t position,
                      const HiddenMail::Part& part) {
    Statement find(database,
                   "SELECT number FROM attachment WHERE message=? AND position=? AND name=? AND "
                   "method=?");
    const auto row =
        find.Bytes(0, id).Integer(1, position).Text(2, part.name).Integer(3, part.method).Step();
    if (!row.ok()) return row.error();
    if (!row.value()) return false;
    StoredContent stored;
    TREVIX_RETURN_IF_ERROR(stored.Open(database, find.IntegerAt(0), false));
    return stored.Holds(database, part.content);
}

Status WriteAttachment(const Database& database, const std::string& id, std::int64_t position,
                       const HiddenMail::Part& part) {
    constexpr std::uint64_t kLargest = 1000000000;  // what one value of the file can hold
    if (part.content.size_bytes() > kLargest) {
        return MessagingError(kNoSupport, part.name + " is too large for a hidden message");
    }
    Statement clear(database, "DELETE FROM attachment WHERE message=? AND position=?");
    TREVIX_RETURN_IF_ERROR(clear.Bytes(0, id).Integer(1, position).Finish());
    Statement insert(database,
                     "INSERT INTO attachment (message, position, name, method, content) "
                     "VALUES (?,?,?,?,?)");
    TREVIX_RETURN_IF_ERROR(insert.Bytes(0, id)
                               .Integer(1, position)
                               .Text(2, part.name)
                               .Integer(3, part.method)
                               .ZeroBytes(4, part.content.size_bytes())
                               .Finish());
    StoredContent stored;
    TREVIX_RETURN_IF_ERROR(
        stored.Open(database, ::sqlite3_last_insert_rowid(database.handle()), true));
    return stored.Write(database, part.content);
}

Status WriteAttachments(const Database& database, const HiddenMail& mail) {
    std::int64_t position = 0;
    for (const HiddenMail::Part& part : mail.attachments) {
        const auto stored = IsStored(database, mail.id, position, part);
        if (!stored.ok()) return stored.error();
        if (!stored.value()) {
            TREVIX_RETURN_IF_ERROR(WriteAttachment(database, mail.id, position, part));
        }
        ++position;
    }
    Statement clear(database, "DELETE FROM attachment WHERE message=? AND position>=?");
    return clear.Bytes(0, mail.id).Integer(1, position).Finish();
}

Status ReadProperties(const Database& database, const std::string& path, HiddenMail& mail) {
    Statement rows(database,
                   "SELECT set_name, name, type, value FROM property WHERE message=? "
                   "ORDER BY position");
    rows.Bytes(0, mail.id);
    for (;;) {
        const auto row = rows.Step();
        if (!row.ok()) return row.error();
        if (!row.value()) return {};
        auto value = DecodeValue(rows.IntegerAt(2), rows.StringAt(3));
        if (!value) return DamagedFile(path, "a property has no value of its type");
        mail.properties.push_back({rows.StringAt(0), rows.StringAt(1), *std::move(value)});
    }
}

Status ReadAttachments(const Database& database, HiddenMail& mail) {
    Statement rows(database,
                   "SELECT name, method, content FROM attachment WHERE message=? "
                   "ORDER BY position");
    rows.Bytes(0, mail.id);
    for (;;) {
        const auto row = rows.Step();
        if (!row.ok()) return row.error();
        if (!row.value()) return {};
        mail.attachments.push_back({rows.StringAt(0), static_cast<int>(rows.IntegerAt(1)),
                                    Blob::FromString(rows.StringAt(2))});
    }
}

HiddenMail MailAt(const Statement& row) {
    HiddenMail mail;
    mail.id = row.StringAt(0);
    mail.message_class = row.StringAt(1);
    mail.subject = row.StringAt(2);
    mail.modified_ns = row.IntegerAt(3);
    mail.revision = row.IntegerAt(4);
    return mail;
}

}  // namespace

AssociatedStore::AssociatedStore(const std::string& directory, Clock& clock)
    : path_(RealDirectory(directory) + "/" + kAssociatedFileName), clock_(clock) {}

AssociatedStore::~AssociatedStore() = default;

Result<bool> AssociatedStore::Connect() {
    struct stat about {};
    if (::lstat(path_.c_str(), &about) != 0) {
        if (errno != ENOENT) return StoreSystemError(errno, path_);
        database_.reset();
        return false;
    }
    if (!S_ISREG(about.st_mode)) return DamagedFile(path_, "it is not a regular file");
    if (database_ == nullptr || about.st_dev != device_ || about.st_ino != inode_) {
        database_.reset();
        has_format_ = false;
        verified_whole_ = false;
        auto opened = Database::Open(path_);
        if (!opened.ok()) return opened.error();
        database_ = std::move(opened).value();
        device_ = about.st_dev;
        inode_ = about.st_ino;
    }
    if (has_format_) return true;
    // In one transaction, so that the answers are of one moment: another process may be making the
    // tables just now.
    Transaction reading(*database_);
    TREVIX_RETURN_IF_ERROR(reading.BeginToRead());
    TREVIX_RETURN_IF_ERROR(CheckFormat());
    return has_format_;
}

// A file without a table is one whose maker died before its first change, when its application
// number is 0 as well; any other number, or other tables, are somebody else's.
Status AssociatedStore::CheckFormat() {
    const auto application = OneInteger(*database_, "PRAGMA application_id");
    if (!application.ok()) return application.error();
    const auto format = OneInteger(*database_, "PRAGMA user_version");
    if (!format.ok()) return format.error();
    const auto tables = OneInteger(*database_, "SELECT count(*) FROM sqlite_schema");
    if (!tables.ok()) return tables.error();
    if (application.value() == 0 && tables.value() == 0) return {};
    if (application.value() != kApplication) {
        return DamagedFile(path_, "it is a database of another program");
    }
    if (format.value() != kFormat) {
        return DamagedFile(path_, "its format is " + std::to_string(format.value()) +
                                      ", and this version reads " + std::to_string(kFormat));
    }
    has_format_ = true;
    return {};
}

Status AssociatedStore::ConnectToWrite() {
    // Made by us, not by the library, whose files anybody may read. Closed again before the library
    // opens it: closing a second descriptor would take its locks away.
    const int made =
        ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (made >= 0) {
        ::close(made);
    } else if (errno != EEXIST) {
        return StoreSystemError(errno, path_);
    }
    const auto connected = Connect();
    if (!connected.ok()) return connected.error();
    if (!connected.value()) {
        if (database_ == nullptr) return StoreSystemError(ENOENT, path_);
        Transaction making(*database_);
        TREVIX_RETURN_IF_ERROR(making.Begin());
        // Another process may have been first.
        TREVIX_RETURN_IF_ERROR(CheckFormat());
        if (!has_format_) TREVIX_RETURN_IF_ERROR(database_->Run(kSchema));
        TREVIX_RETURN_IF_ERROR(making.Commit());
        has_format_ = true;
    }
    if (verified_whole_) return {};
    Statement check(*database_, "PRAGMA quick_check(1)");
    const auto row = check.Step();
    if (!row.ok()) return row.error();
    const std::string verdict = check.StringAt(0);
    if (verdict != "ok") return DamagedFile(path_, verdict);
    verified_whole_ = true;
    return {};
}

Result<std::vector<HiddenMail>> AssociatedStore::List() {
    const auto connected = Connect();
    if (!connected.ok()) return connected.error();
    std::vector<HiddenMail> list;
    if (!connected.value()) return list;
    Statement rows(*database_,
                   "SELECT id, class, subject, modified_ns, revision FROM message ORDER BY id");
    for (;;) {
        const auto row = rows.Step();
        if (!row.ok()) return row.error();
        if (!row.value()) return list;
        list.push_back(MailAt(rows));
    }
}

Result<HiddenMail> AssociatedStore::Read(const std::string& id) {
    const auto connected = Connect();
    if (!connected.ok()) return connected.error();
    if (!connected.value()) return MessagingError(kNotFound);
    // One transaction, so that message, properties and attachments are of one revision.
    Transaction reading(*database_);
    TREVIX_RETURN_IF_ERROR(reading.BeginToRead());
    Statement rows(*database_,
                   "SELECT id, class, subject, modified_ns, revision FROM message WHERE id=?");
    const auto row = rows.Bytes(0, id).Step();
    if (!row.ok()) return row.error();
    if (!row.value()) return MessagingError(kNotFound);
    HiddenMail mail = MailAt(rows);
    TREVIX_RETURN_IF_ERROR(ReadProperties(*database_, path_, mail));
    TREVIX_RETURN_IF_ERROR(ReadAttachments(*database_, mail));
    return mail;
}

Status AssociatedStore::Write(HiddenMail& mail) {
    HiddenMail stored = mail;
    if (mail.revision == 0) {
        const auto id = RandomId();
        if (!id) return StoreSystemError(errno, path_);
        stored.id = *id;
    } else {
        // Somebody who deleted the file deleted the message; no new file is made for it.
        const auto connected = Connect();
        if (!connected.ok()) return connected.error();
        if (!connected.value()) return MessagingError(kObjectDeleted);
    }
    stored.modified_ns = clock_.UnixNanoseconds();
    stored.revision = mail.revision + 1;

    TREVIX_RETURN_IF_ERROR(ConnectToWrite());
    Transaction transaction(*database_);
    TREVIX_RETURN_IF_ERROR(transaction.Begin());
    const auto revision = RevisionOf(*database_, stored.id);
    if (!revision.ok()) return revision.error();
    if (revision.value() != mail.revision) {
        return MessagingError(revision.value() == 0 ? kObjectDeleted : kObjectChanged);
    }
    Statement put(*database_, "INSERT OR REPLACE INTO message VALUES (?,?,?,?,?)");
    TREVIX_RETURN_IF_ERROR(put.Bytes(0, stored.id)
                               .Text(1, stored.message_class)
                               .Text(2, stored.subject)
                               .Integer(3, stored.modified_ns)
                               .Integer(4, stored.revision)
                               .Finish());
    TREVIX_RETURN_IF_ERROR(WriteProperties(*database_, stored));
    TREVIX_RETURN_IF_ERROR(WriteAttachments(*database_, stored));
    TREVIX_RETURN_IF_ERROR(transaction.Commit());
    mail.id = stored.id;
    mail.revision = stored.revision;
    mail.modified_ns = stored.modified_ns;
    return {};
}

Status AssociatedStore::Remove(const std::string& id) {
    const auto connected = Connect();
    if (!connected.ok()) return connected.error();
    if (!connected.value()) return MessagingError(kNotFound);
    TREVIX_RETURN_IF_ERROR(ConnectToWrite());
    Transaction transaction(*database_);
    TREVIX_RETURN_IF_ERROR(transaction.Begin());
    const auto revision = RevisionOf(*database_, id);
    if (!revision.ok()) return revision.error();
    if (revision.value() == 0) return MessagingError(kNotFound);
    for (const char* sql :
         {"DELETE FROM attachment WHERE message=?", "DELETE FROM property WHERE message=?",
          "DELETE FROM message WHERE id=?"}) {
        Statement remove(*database_, sql);
        TREVIX_RETURN_IF_ERROR(remove.Bytes(0, id).Finish());
    }
    return transaction.Commit();
}

}  // namespace trevix::associated
