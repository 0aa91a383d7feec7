// The hidden messages of a Maildir: one SQLite file "trevix-associated.db" in its root.
//
// The file is made, with mode 0600, by the first Write(); until then there is nothing, and nothing
// is an empty list. Several processes may use it; each change is one transaction, and a death at
// any moment leaves the old or the new state. A file that is damaged or not ours is reported
// (kMalformed, 8004011B, with the path and what to do) and never written, replaced or removed.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/mail_store.h"

namespace trevix::associated {

class Database;

class AssociatedStore final : public HiddenMailStore {
 public:
    // `directory` is the Maildir's root; it need not be writable. Nothing is opened yet.
    AssociatedStore(const std::string& directory, Clock& clock);
    AssociatedStore(const AssociatedStore&) = delete;
    AssociatedStore& operator=(const AssociatedStore&) = delete;
    ~AssociatedStore() override;

    Result<std::vector<HiddenMail>> List() override;
    Result<HiddenMail> Read(const std::string& id) override;
    Status Write(HiddenMail& mail) override;
    Status Remove(const std::string& id) override;

 private:
    // Opens the file, again when it was replaced. False when there is none, or an empty one.
    Result<bool> Connect();
    Status ConnectToWrite();
    Status CheckFormat();

    std::string path_;
    Clock& clock_;
    std::unique_ptr<Database> database_;
    std::uint64_t device_ = 0;
    std::uint64_t inode_ = 0;
    bool has_format_ = false;      // the tables are there, and of our version
    bool verified_whole_ = false;  // the whole file has been checked since it was opened
};

inline constexpr char kAssociatedFileName[] = "trevix-associated.db";

}  // namespace trevix::associated
