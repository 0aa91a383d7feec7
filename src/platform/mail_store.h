// The narrow waist under the messaging objects: a store of messages that only moves bytes.
//
// Implementations: platform/maildir; tests/fakes/fake_mail_store.h. platform/mime builds folders,
// messages and attachments on top of it, once for all stores.
// tests/contract/mail_store_contract.h states in executable form what each implementation must do.
//
// What every implementation promises:
//   - a stored message is never altered in place; a replacement is a new message that takes the
//     place of the old one, with the old one's flags, received time, owner, mode and position;
//   - any other program sees a whole old or a whole new message at every instant;
//   - a process that dies at any moment leaves each message whole and, after the next opening of
//     the store, once;
//   - a message that anybody else changed, flagged, moved or deleted since it was listed is not
//     replaced.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/blob.h"
#include "platform/result.h"
#include "platform/variant.h"

namespace trevix {

struct MailFolder {
    std::string path;  // canonical and unique in the store: names joined by "/"; "" is the root
    std::string name;  // last part, decoded for people
    bool holds_messages = true;
};

// One message of a listing.
struct MailEntry {
    std::string key;      // identifies the content: same key, same bytes. Survives flag changes.
    std::string locator;  // where and how the message lies now; the store's own business
    std::uint64_t size_bytes = 0;
    std::int64_t changed_ns = 0;  // last change as the store knows it, Unix nanoseconds UTC
    std::int64_t received_ns = 0;
    std::int32_t number = 0;  // article number, for the log
};

struct MailListing {
    std::string stamp;  // empty when the listing must not be trusted to be complete next time
    std::vector<MailEntry> entries;
};

struct MailChange {
    bool changed = true;  // false: `listing` is not filled, the known one still holds
    MailListing listing;
};

// What a caller is about to do with messages, so that a store behind a network knows how much of
// them to fetch ahead.
enum class MailUse {
    kSummary,  // what they are: header and structure
    kIndex,    // what they hold: also the content of their zip archives
    kChange    // all of it
};

// A message whose larger parts may be missing still.
struct MailOutline {
    // The content of a part that is fetched when it is read; in its place the skeleton has one
    // byte.
    struct Gap {
        std::uint64_t offset = 0;                    // of that byte in the skeleton; ascending
        Blob content;                                // as it was sent, in its transfer encoding
        std::optional<std::uint64_t> decoded_bytes;  // without the encoding, when the store knows
    };
    Blob skeleton;
    std::vector<Gap> gaps;

    // Whether the skeleton is the message, byte for byte. If not, it serves for reading only: it
    // has the same parts with the same fields and contents, and nothing else of it need be true.
    bool exact = true;
};

// A replacement that is written but not yet visible. Dropping it discards it.
class StagedMail {
 public:
    virtual ~StagedMail() = default;

    // The bytes as they were written, read back from the store.
    virtual Blob content() const = 0;

    // Puts the replacement in the old message's place. The entry of the new message.
    //   kChanged  the old message was changed or flagged meanwhile
    //   kGone     the old message was moved or deleted meanwhile
    //   kNoSpace, kDenied, kIo, kTooMany as the system says
    // On every failure the old message stands and the replacement is discarded.
    virtual Result<MailEntry> Commit() = 0;
};

// A message that mail programs do not see, kept beside the mail.
struct HiddenMail {
    std::string id;  // 16 bytes, chosen by the store
    std::string message_class;
    std::string subject;
    std::int64_t modified_ns = 0;
    std::int64_t revision = 0;  // 0 until stored

    struct Property {
        std::string set;   // property set; empty for a plain tag
        std::string name;  // name in the set, or the tag as 8 hexadecimal digits
        Variant value;
    };
    struct Part {
        std::string name;
        int method = 1;
        Blob content;
    };
    std::vector<Property> properties;
    std::vector<Part> attachments;
};

// The hidden messages of one store's Inbox.
class HiddenMailStore {
 public:
    virtual ~HiddenMailStore() = default;

    // Without properties and attachments. An absent container is an empty list.
    virtual Result<std::vector<HiddenMail>> List() = 0;
    virtual Result<HiddenMail> Read(const std::string& id) = 0;  // kNotFound

    // Inserts (revision 0) or replaces. Sets id, revision and modified_ns. kChanged when the stored
    // revision is another one, kGone when the message was removed.
    virtual Status Write(HiddenMail& mail) = 0;
    virtual Status Remove(const std::string& id) = 0;  // kNotFound
};

class MailStore {
 public:
    virtual ~MailStore() = default;

    // The canonical address, "maildir:/path" or "imaps://user@host"; identifies the store.
    virtual std::string address() const = 0;
    virtual std::string display_name() const = 0;

    // Path of the folder that is the Inbox.
    virtual std::string inbox_path() const = 0;

    // All folders in the store's order, parents before children, the root ("") left out.
    virtual Result<std::vector<MailFolder>> Folders() = 0;

    // The messages of a folder. `known` is an earlier listing of the same folder or null; when
    // nothing has changed since, the answer says so at the price of a time stamp.
    virtual Result<MailChange> List(const std::string& folder, const MailListing* known) = 0;

    // The bytes of a message as listed. kGone when it is not there any more.
    virtual Result<Blob> Read(const std::string& folder, const MailEntry& entry) = 0;

    // Says that these messages will be wanted soon, in this order. Where they lie at hand it means
    // nothing; a failure shows when they are read.
    virtual void Expect(const std::string& /*folder*/, const std::vector<MailEntry>& /*entries*/,
                        MailUse /*use*/) {}

    // The message as listed, for reading. Errors as Read().
    virtual Result<MailOutline> Outline(const std::string& folder, const MailEntry& entry) {
        Result<Blob> content = Read(folder, entry);
        if (!content.ok()) return content.error();
        MailOutline outline;
        outline.skeleton = std::move(content).value();
        return outline;
    }

    // Writes a replacement for the message as listed, without showing it. It may be on its way to
    // the disk still; Commit() shows nothing before it is durable. A message that is not as listed
    // any more is refused as by Commit(), here or there.
    virtual Result<std::unique_ptr<StagedMail>> Stage(const std::string& folder,
                                                      const MailEntry& entry,
                                                      const Blob& content) = 0;

    virtual HiddenMailStore& Hidden() = 0;
};

// What a log-on request opens.
struct OpenedProfile {
    std::string user_name;
    std::vector<std::unique_ptr<MailStore>> stores;
    std::size_t inbox_store = 0;
};

class MailStoreProvider {
 public:
    virtual ~MailStoreProvider() = default;

    // `profile_name` is a name of the profile file or an address ("maildir:/path"); with an empty
    // one, `profile_info` is "server, line feed, alias": a mail server and a user's mailbox on it.
    // Finishes what a dead process left of its replacements. kDenied (80040111) for an unknown
    // name, kIo (8004011D) with the path and what to do in the description for a store that cannot
    // be opened.
    virtual Result<OpenedProfile> Open(const std::string& profile_name,
                                       const std::string& profile_info) = 0;
};

}  // namespace trevix
