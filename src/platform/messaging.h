// The messaging session and its objects, as the core sees a message store.
//
// Implementation: platform/mime (over any MailStore, see mail_store.h);
// tests/fakes/fake_messaging.h.
//
// Conventions for the whole interface:
//   IDs        of stores, folders and messages are upper-case hexadecimal text of at most 254
//              characters; tables give them as bytes, which Utilities turns into that text.
//   Objects    are snapshots of what the store held when they were opened. Changes to a message
//              collect in the object and are written by Update(), all or nothing.
//   Positions  of attachments and folders count from 1.
//   Times      last-modification times are UTC, with their fraction of a second.
//   Errors     carry the messaging numbers of errors.h. kNotFound (8004010F) for a missing object
//              or field; any call may fail with kIo, kDenied or kTooMany when the store does.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/property_tags.h"
#include "platform/result.h"
#include "platform/variant.h"

namespace trevix {

// What an attachment is: the kinds of the messaging session.
inline constexpr int kAttachmentFileData = 1;
inline constexpr int kAttachmentFileLink = 2;
inline constexpr int kAttachmentOle = 3;
inline constexpr int kAttachmentEmbeddedMessage = 4;

inline constexpr int kInboxFolder = 1;
inline constexpr int kOutboxFolder = 2;

inline constexpr int kSortNone = 0;
inline constexpr int kSortAscending = 1;
inline constexpr int kSortDescending = 2;

class Attachment {
 public:
    virtual ~Attachment() = default;

    virtual Result<int> Type() = 0;
    virtual Result<std::string> Name() = 0;
    virtual Status SetName(const std::string& name) = 0;

    // Bytes of the decoded content, at most 2147483647.
    virtual Result<std::int32_t> Size() = 0;

    // kTagAttachmentData is a Blob that decodes on reading. kMalformed (8004011B) when the content
    // cannot be decoded exactly, kDenied (80070005) for the inside of signed or encrypted mail.
    virtual Result<Variant> Field(PropertyTag tag) = 0;
    virtual Status SetField(PropertyTag tag, const Variant& value) = 0;

    // Writes the decoded content to a new file (mode 0600, never through a link, never over an
    // existing file). Errors as for the data field; on any error no file is left.
    virtual Status WriteToFile(const std::string& path) = 0;

    // Removes the attachment from its message; later positions move down at once. kDenied where
    // the message would be damaged: inside signed, encrypted and report mail, the root of related.
    virtual Status Delete() = 0;

    // Identifies the attachment in its message, for the log: its present position.
    virtual int Index() = 0;
};

class Attachments {
 public:
    virtual ~Attachments() = default;
    virtual Result<std::int32_t> Count() = 0;
    virtual Result<std::unique_ptr<Attachment>> Item(std::int32_t position) = 0;

    // Adds an attachment with the content of the file at `source`, read at once. `position` 0
    // leaves the place open. `type` is one of the attachment kinds.
    virtual Status Add(const std::string& name, std::int32_t position, int type,
                       const std::string& source) = 0;
};

class Recipient {
 public:
    virtual ~Recipient() = default;
    virtual int Type() = 0;  // 1 To, 2 Cc, 3 Bcc
    virtual Result<std::string> Name() = 0;
    virtual Result<std::string> Address() = 0;
    virtual Result<Variant> Field(PropertyTag tag) = 0;
};

class Message {
 public:
    virtual ~Message() = default;

    virtual Result<std::string> Subject() = 0;

    // Setting the subject to what it is marks the message as changed and alters nothing else.
    virtual Status SetSubject(const std::string& subject) = 0;

    virtual Result<Variant> Field(PropertyTag tag) = 0;
    virtual Status SetField(PropertyTag tag, const Variant& value) = 0;

    // The tag of a named property of this message, for use with Field and SetField; made when the
    // name is new. `type` is one of the kType constants. Names are case-sensitive. Reading through
    // a tag converts from the type that the value was stored with.
    virtual Result<PropertyTag> NamedProperty(const std::string& property_set,
                                              const std::string& name, std::uint16_t type) = 0;

    // The formatted body (RTF), empty for a plain text message.
    virtual Result<std::string> FormattedBody() = 0;

    virtual Result<std::string> SenderName() = 0;
    // Null when the message has no sender.
    virtual Result<std::unique_ptr<Recipient>> Sender() = 0;
    virtual Result<std::vector<std::unique_ptr<Recipient>>> Recipients() = 0;

    // The attachments of this message. The object must not outlive the message.
    virtual Result<std::unique_ptr<Attachments>> AttachmentList() = 0;

    // Saves. kChanged (80040109) or kGone (8004010A) when the stored message is not the one that
    // was opened any more: nothing is written then. kNoSpace, kDenied, kIo: nothing is written
    // either. Afterwards the object stands for the saved message and can be changed again.
    virtual Status Update() = 0;

    // Deletes the stored message (hidden and Outbox messages only; any other is kDenied).
    virtual Status Delete() = 0;
};

class Messages {
 public:
    virtual ~Messages() = default;

    // Shows only messages whose property equals the value; several filters are joined by AND.
    // kTooComplex for a property that cannot be filtered on.
    virtual Status AddFilter(PropertyTag tag, const Variant& value) = 0;
    virtual Status ClearFilter() = 0;
    virtual Status Sort(int order, PropertyTag tag) = 0;

    // Messages that the filter shows, exactly.
    virtual Result<std::int32_t> Count() = 0;

    // A new message; stored by its first Update(). Only for hidden messages and the Outbox.
    virtual Result<std::unique_ptr<Message>> Add(const std::string& message_class) = 0;
};

class Folder {
 public:
    virtual ~Folder() = default;
    virtual Result<std::string> Name() = 0;
    virtual Result<std::string> Id() = 0;
    virtual Result<std::string> StoreId() = 0;

    // The parent's ID. kNotFound for a store's root.
    virtual Result<std::string> FolderId() = 0;
    virtual Result<Variant> Field(PropertyTag tag) = 0;

    virtual Result<std::unique_ptr<Messages>> MessageList() = 0;
    virtual Result<std::unique_ptr<Messages>> HiddenMessages() = 0;

    virtual Result<std::int32_t> FolderCount() = 0;
    // The direct subfolders in the store's order.
    virtual Result<std::vector<std::unique_ptr<Folder>>> Folders() = 0;
    virtual Result<bool> IsSameAs(Folder& other) = 0;
};

class InfoStore {
 public:
    virtual ~InfoStore() = default;
    virtual Result<std::string> Name() = 0;
    virtual Result<std::string> Id() = 0;
    // The root of the folders that people see, named "IPM_SUBTREE". It holds no messages itself.
    virtual Result<std::unique_ptr<Folder>> RootFolder() = 0;
};

// How to log on: a profile name, or (with an empty name) "server, line feed, alias".
struct LogonRequest {
    std::string profile_name;
    std::string profile_info;
};

class MessagingSession {
 public:
    virtual ~MessagingSession() = default;

    // kDenied (80040111) for an unknown profile or refused credentials, kIo (8004011D) with the
    // path or host in the description when a store cannot be opened.
    virtual Status Logon(const LogonRequest& request) = 0;
    virtual Status Logoff() = 0;

    // Empty when nobody is logged on.
    virtual Result<std::string> CurrentUserName() = 0;

    // kInboxFolder, kOutboxFolder; others are kNotFound.
    virtual Result<std::unique_ptr<Folder>> GetDefaultFolder(int which) = 0;

    // An empty store ID is the default store, the one that holds the Inbox.
    virtual Result<std::vector<std::unique_ptr<InfoStore>>> InfoStores() = 0;
    virtual Result<std::unique_ptr<InfoStore>> GetInfoStore(const std::string& store_id) = 0;
    virtual Result<std::unique_ptr<Folder>> GetFolder(const std::string& folder_id,
                                                      const std::string& store_id) = 0;
};

// A table over a message collection: chosen columns, fetched as rows.
class MessageTable {
 public:
    virtual ~MessageTable() = default;

    // Takes the collection with its filter and order as they are now.
    virtual Status SetSource(Messages& messages) = 0;
    virtual Status SetColumns(const std::vector<PropertyTag>& tags) = 0;
    // Shows only rows whose property equals the value (text: without regard to case).
    virtual Status Restrict(PropertyTag tag, const Variant& value) = 0;
    virtual Status Sort(int order, PropertyTag tag) = 0;
    virtual Result<std::int32_t> RowCount() = 0;

    // At most `count` rows, each with a cell for each column; a property that a row lacks is an
    // ErrorValue. Binary cells are Blobs.
    virtual Result<std::vector<std::vector<Variant>>> GetRows(std::int32_t count) = 0;
};

// The helper objects beside the session.
class Utilities {
 public:
    virtual ~Utilities() = default;
    virtual Result<std::string> EntryIdText(const Variant& binary_id) = 0;

    // Opens a message, hidden ones included. kNotFound for an ID whose message is not there.
    virtual Result<std::unique_ptr<Message>> OpenMessage(const std::string& entry_id,
                                                         const std::string& store_id) = 0;

    // A folder's hidden messages, opened by folder ID in the default store.
    virtual Result<std::unique_ptr<Messages>> HiddenItems(const std::string& folder_id) = 0;
    virtual Result<std::unique_ptr<MessageTable>> CreateTable() = 0;
    virtual void Shutdown() = 0;
};

class MessagingFactory {
 public:
    virtual ~MessagingFactory() = default;
    virtual Result<std::unique_ptr<MessagingSession>> CreateSession() = 0;
    // Works on the same stores as the sessions of this factory.
    virtual Result<std::unique_ptr<Utilities>> CreateUtilities() = 0;
};

}  // namespace trevix
