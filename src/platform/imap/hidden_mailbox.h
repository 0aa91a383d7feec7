// The hidden messages of a store, as mails of one mailbox of their own, which nobody subscribes to.
//
// The mailbox is made by the first Write(). Writing appends the new revision and then removes the
// older ones of that message; nothing is ever changed in place. Of two machines that write at once
// from the same revision, the one whose mail has the lower UID has written, and the other takes its
// own mail back and is told kChanged. Reading takes the newest revision, and of equal ones the one
// with the lowest UID, so a mail that a dead process left over does no harm; the next Write()
// removes it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/imap/hidden_codec.h"
#include "platform/imap/link.h"
#include "platform/mail_store.h"

namespace trevix::imap {

inline constexpr char kUsualHiddenMailbox[] = "Trevix-Results";

class HiddenMailbox final : public HiddenMailStore {
 public:
    // `name` is for people; where the mailbox stands, the server's habits decide.
    HiddenMailbox(std::shared_ptr<Link> link, std::string name, Clock& clock);

    Result<std::vector<HiddenMail>> List() override;
    Result<HiddenMail> Read(const std::string& id) override;
    Status Write(HiddenMail& mail) override;
    Status Remove(const std::string& id) override;

    // The wire names that the mailbox may have among these.
    std::vector<std::string> NamesAmong(const std::vector<Mailbox>& mailboxes) const;

 private:
    // One mail of the mailbox.
    struct Stored {
        std::uint32_t uid = 0;
        HiddenHead head;
    };
    using StoredMails = std::vector<Stored>;

    // Empty when the mailbox is not there; then mailbox_ is empty.
    Result<StoredMails> Scan();
    Status Locate();
    Status ReadHeads(StoredMails& mails);
    Status Make();
    Status Append(const HiddenMail& mail, const std::string& token);
    void RemoveAll(const UidSet& uids);
    Result<Blob> Fetch(std::uint32_t uid);
    static const Stored* Newest(const StoredMails& mails, const std::string& id);

    std::shared_ptr<Link> link_;
    std::string name_;
    Clock& clock_;
    std::string mailbox_;  // wire name, once it is known to be there
    std::vector<std::string> candidates_;
    std::uint32_t uid_validity_ = 0;

    // The mail that was read last: it holds the index, and several ask for it in turn.
    std::optional<std::pair<std::uint32_t, Blob>> last_read_;
};

}  // namespace trevix::imap
