#include "contract/mail_store_contract.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "contract/imap_world.h"
#include "fakes/fake_mail_store.h"
#include "platform/maildir/file_names.h"
#include "platform/maildir/maildir_store.h"

namespace trevix::contract {
namespace {

namespace fs = std::filesystem;

class FakeWorld final : public MailStoreWorld {
 public:
    MailStore& store() override { return store_; }
    void Deliver(const std::string& content, std::int64_t received_ns) override {
        store_.AddMessage("", content, received_ns);
    }
    void Flag(const std::string& key) override { store_.SetFlags("", key, "F"); }
    void Delete(const std::string& key) override { store_.RemoveMessage("", key); }
    void MakeFolder(const std::string& path) override { store_.AddFolder(path, path); }
    void Settle() override {}

 private:
    fakes::FaultPlan plan_;
    fakes::FakeMailStore store_{plan_};
};

// A clock in the far future: every listing is settled unless the test says otherwise.
class FarClock final : public Clock {
 public:
    Date NowLocal() override { return {}; }
    Date NowUtc() override { return {}; }
    std::int64_t UnixNanoseconds() override { return now_ns; }
    std::int32_t TickCount() override { return 0; }

    std::int64_t now_ns = std::int64_t{4000000000} * 1000000000;
};

enum class Layout { kDotted, kTree };

class MaildirWorld final : public MailStoreWorld {
 public:
    explicit MaildirWorld(Layout layout)
        : layout_(layout), root_(testing::TempDir() + "maildir-XXXXXX") {
        if (::mkdtemp(root_.data()) == nullptr) root_.clear();
        inbox_ = layout == Layout::kDotted ? root_ : root_ + "/Inbox";
        MakeMaildir(inbox_);
        store_ = maildir::OpenMaildir(root_, nullptr, clock_).value();
    }
    ~MaildirWorld() override {
        store_.reset();
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    MailStore& store() override { return *store_; }

    void Deliver(const std::string& content, std::int64_t received_ns) override {
        const std::string name = inbox_ + "/new/" + std::to_string(++count_) + ".host";
        std::ofstream(name, std::ios::binary) << content;
        const timespec time{received_ns / 1000000000, received_ns % 1000000000};
        const std::array<timespec, 2> times = {time, time};
        ::utimensat(AT_FDCWD, name.c_str(), times.data(), 0);
    }
    void Flag(const std::string& key) override {
        const fs::path path = PathOf(key);
        fs::rename(path, inbox_ + "/cur/" + std::string(maildir::KeyOf(path.filename().string())) +
                             ":2,F");
    }
    void Delete(const std::string& key) override { fs::remove(PathOf(key)); }
    void MakeFolder(const std::string& path) override {
        std::string directory = path;
        if (layout_ == Layout::kDotted) {
            std::replace(directory.begin(), directory.end(), '/', '.');
            directory.insert(0, ".");
        }
        MakeMaildir(root_ + "/" + directory);
    }
    void Settle() override {}

 private:
    static void MakeMaildir(const std::string& path) {
        for (const char* name : {"/cur", "/new", "/tmp"}) {
            fs::create_directories(path + name);
        }
    }
    fs::path PathOf(const std::string& key) const {
        for (const char* place : {"/new", "/cur"}) {
            for (const auto& entry : fs::directory_iterator(inbox_ + place)) {
                if (maildir::KeyOf(entry.path().filename().string()) == key) return entry.path();
            }
        }
        return {};
    }

    Layout layout_;
    std::string root_;
    std::string inbox_;
    FarClock clock_;
    std::unique_ptr<MailStore> store_;
    int count_ = 0;
};

INSTANTIATE_TEST_SUITE_P(
    All, MailStoreContract,
    testing::Values(
        MailStoreCase{"fake", [] { return std::make_unique<FakeWorld>(); }},
        MailStoreCase{"maildir", [] { return std::make_unique<MaildirWorld>(Layout::kDotted); }},
        MailStoreCase{"tree", [] { return std::make_unique<MaildirWorld>(Layout::kTree); }},
        MailStoreCase{"dovecot", [] { return ImapWorld::Make("dovecot", "/"); }},
        MailStoreCase{"dovecot_dots", [] { return ImapWorld::Make("dovecot", "."); }},
        MailStoreCase{"cyrus", [] { return ImapWorld::Make("cyrus", "/"); }},
        MailStoreCase{"cyrus_dots", [] { return ImapWorld::Make("cyrus", "."); }}),
    MailStoreCaseName);

}  // namespace
}  // namespace trevix::contract
