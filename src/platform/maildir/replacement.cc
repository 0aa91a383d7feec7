#include "platform/maildir/replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <future>
#include <utility>

#include "platform/errors.h"
#include "platform/file_blob.h"
#include "platform/maildir/file_names.h"
#include "platform/maildir/listing.h"

namespace trevix::maildir {
namespace {

constexpr int kLongestChase = 32;
constexpr std::size_t kLongestFields = 48;  // ",S=<20 digits>,W=<20 digits>"

Error Changed() {
    return MessagingError(kObjectChanged);
}
Error Gone() {
    return MessagingError(kObjectDeleted);
}

// The failure that a look at the old message means for its replacement.
Status AsListed(const Located& located, const std::string& name) {
    switch (located.where) {
        case Whereabouts::kThere: return {};
        case Whereabouts::kRenamed:
        case Whereabouts::kChanged: return Changed();
        case Whereabouts::kGone: return Gone();
        case Whereabouts::kUnknown: break;
    }
    return StoreSystemError(located.system_error, name);
}

// Whether `name` is what another process has shown and may still take back: its journal, which is
// there while it lives or until its work is finished, has a record of it.
bool MayBeTakenBack(int root, const std::string& name, const std::string& own_id) {
    const std::string_view maker = MakerOf(name);
    if (maker.empty() || maker == own_id) return false;
    const UniqueDescriptor journal(::openat(root, (kJournalPrefix + std::string(maker)).c_str(),
                                            O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!journal.valid()) return false;
    for (const JournalRecord& record : ReadJournal(journal.get())) {
        if (KeyOf(record.new_mail.name) == KeyOf(name)) return true;
    }
    return false;
}

// Renames without ever replacing an existing file. Where the file system cannot do that in one
// step, a second link does it in two; a death between them leaves the first name in tmp/, for the
// sweep, or, for a rename among delivered messages, one file under two names.
int RenameExclusively(int from_directory, const std::string& from, int to_directory,
                      const std::string& to) {
    constexpr unsigned kNoReplace = 1;  // RENAME_NOREPLACE
    if (::syscall(SYS_renameat2, from_directory, from.c_str(), to_directory, to.c_str(),
                  kNoReplace) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) return -1;
    if (::linkat(from_directory, from.c_str(), to_directory, to.c_str(), 0) != 0) return -1;
    ::unlinkat(from_directory, from.c_str(), 0);
    return 0;
}

// Copies the content and counts its bytes and its line feeds without a carriage return before.
class Copier {
 public:
    explicit Copier(int file) : file_(file) {}

    Status Write(const char* bytes, std::size_t count) {
        CountLineFeeds(bytes, count);
        size_bytes_ += count;
        while (count > 0) {
            const ssize_t wrote = ::write(file_, bytes, count);
            if (wrote < 0 && errno == EINTR) continue;
            if (wrote < 0) return StoreSystemError(errno, "the new message");
            bytes += wrote;
            count -= static_cast<std::size_t>(wrote);
        }
        return {};
    }

    std::uint64_t size_bytes() const { return size_bytes_; }
    std::uint64_t size_with_crlf() const { return size_bytes_ + bare_line_feeds_; }

 private:
    void CountLineFeeds(const char* bytes, std::size_t count) {
        const char* const end = bytes + count;
        for (const char* at = bytes; at != end; ++at) {
            at =
                static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)));
            if (at == nullptr) break;
            if ((at == bytes ? last_ : at[-1]) != '\r') ++bare_line_feeds_;
        }
        if (count > 0) last_ = end[-1];
    }

    int file_;
    std::uint64_t size_bytes_ = 0;
    std::uint64_t bare_line_feeds_ = 0;
    char last_ = '\0';
};

// Owner first: giving a file away clears bits of its mode.
Status CopyAttributes(int file, const struct stat& old_about, const std::string& name) {
    struct stat about {};
    if (::fstat(file, &about) != 0) return StoreSystemError(errno, name);
    const bool same_owner = about.st_uid == old_about.st_uid && about.st_gid == old_about.st_gid;
    if (!same_owner && ::fchown(file, old_about.st_uid, old_about.st_gid) != 0) {
        return MessagingError(kNoAccess, name + ": the owner of the message cannot be kept");
    }
    if (::fchmod(file, old_about.st_mode & 07777) != 0) return StoreSystemError(errno, name);
    const std::array<timespec, 2> times = {old_about.st_atim, old_about.st_mtim};
    if (::futimens(file, times.data()) != 0) return StoreSystemError(errno, name);
    return {};
}

// A Maildir++ quota file holds one line a change; mail programs add them up. Only a hint for them,
// who count anew when it is wrong, so a failure is of no consequence.
void AddToQuotaFile(int root, std::int64_t difference) {
    const UniqueDescriptor file(
        ::openat(root, "maildirsize", O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat about {};
    if (!file.valid() || ::fstat(file.get(), &about) != 0 || !S_ISREG(about.st_mode)) return;
    const std::string line = std::to_string(difference) + " 0\n";
    // As said above.
    if (::write(file.get(), line.data(), line.size()) < 0) return;
}

class StagedFile final : public StagedMail {
 public:
    StagedFile(std::shared_ptr<ReplacementContext> context, std::shared_ptr<const Folder> folder,
               Identity old_mail, std::int32_t number)
        : context_(std::move(context)),
          journal_(context_->journal),
          folder_(std::move(folder)),
          old_(std::move(old_mail)),
          number_(number) {}
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    ~StagedFile() override {
        if (synced_.valid()) synced_.wait();
        if (in_tmp_) ::unlinkat(tmp_.get(), tmp_name_.c_str(), 0);
    }

    Status Write(Clock& clock, const Blob& content);

    Blob content() const override {
        return BlobOverDescriptor(UniqueDescriptor(::fcntl(file_.get(), F_DUPFD_CLOEXEC, 0)),
                                  new_.size_bytes);
    }

    Result<MailEntry> Commit() override;

 private:
    Status Create(Clock& clock);
    Status WaitUntilDurable();
    Status Show();
    Result<Identity> TakeTheOldOnesPlace();
    void Undo();

    std::shared_ptr<ReplacementContext> context_;
    std::shared_ptr<Journal> journal_;
    std::shared_ptr<const Folder> folder_;
    Identity old_;
    Identity new_;
    std::int32_t number_;
    UniqueDescriptor tmp_;
    UniqueDescriptor file_;
    std::future<int> synced_;  // 0 or the error number, which then stays below
    int sync_failure_ = 0;
    std::string tmp_name_;
    bool in_tmp_ = false;
};

Status StagedFile::Create(Clock& clock) {
    tmp_ = folder_->OpenTmp();
    if (!tmp_.valid()) return StoreSystemError(errno, folder_->relative() + "/tmp");
    const std::size_t room = kLongestFields + SuffixOf(old_.name).size();
    tmp_name_ = UniqueBase({clock.UnixNanoseconds(), static_cast<int>(::getpid()),
                            ++context_->counter, journal_->id(), context_->host},
                           room);
    file_.Reset(::openat(tmp_.get(), tmp_name_.c_str(),
                         O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file_.valid()) return StoreSystemError(errno, tmp_name_);
    in_tmp_ = true;
    return {};
}

Status StagedFile::Write(Clock& clock, const Blob& content) {
    struct stat old_about {};
    if (::fstatat(folder_->directory(old_.place), old_.name.c_str(), &old_about,
                  AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? Gone() : StoreSystemError(errno, old_.name);
    }
    TREVIX_RETURN_IF_ERROR(Create(clock));
    Copier copier(file_.get());
    TREVIX_RETURN_IF_ERROR(content.ForEachPiece(
        [&copier](const char* bytes, std::size_t count) { return copier.Write(bytes, count); }));
    TREVIX_RETURN_IF_ERROR(CopyAttributes(file_.get(), old_about, old_.name));
    // The disk works while the caller proves what was written.
    synced_ = context_->helper.Run([file = file_.get()] { return ::fsync(file) == 0 ? 0 : errno; });

    struct stat about {};
    if (::fstat(file_.get(), &about) != 0) return StoreSystemError(errno, tmp_name_);
    std::string name = tmp_name_;
    if (HasField(old_.name, 'S')) name += ",S=" + std::to_string(copier.size_bytes());
    if (HasField(old_.name, 'W')) name += ",W=" + std::to_string(copier.size_with_crlf());
    name += SuffixOf(old_.name);
    new_ = IdentityOf(old_.place, std::move(name), about);
    if (new_.size_bytes != copier.size_bytes()) {
        return MessagingError(kDiskError, tmp_name_ + ": the file has not the size written");
    }
    context_->At(Step::kStaged);
    return {};
}

Result<MailEntry> StagedFile::Commit() {
    if (!in_tmp_) return MessagingError(kCallFailed, "the replacement was committed before;");
    TREVIX_RETURN_IF_ERROR(AsListed(folder_->Locate(old_, Match::kWithTime), old_.name));
    if (MayBeTakenBack(context_->root.get(), old_.name, journal_->id())) return Changed();
    context_->At(Step::kCompared);
    // Both are durable before anything shows; which of them is first does not matter.
    TREVIX_RETURN_IF_ERROR(journal_->Begin({0, folder_->relative(), old_, new_}));
    context_->At(Step::kRecorded);
    TREVIX_RETURN_IF_ERROR(WaitUntilDurable());
    TREVIX_RETURN_IF_ERROR(Show());
    auto placed = TakeTheOldOnesPlace();
    if (!placed.ok()) {
        Undo();
        return placed.error();
    }
    AddToQuotaFile(context_->root.get(), static_cast<std::int64_t>(new_.size_bytes) -
                                             static_cast<std::int64_t>(old_.size_bytes));
    context_->At(Step::kFinished);

    // The rename has changed the file's ctime; the listing is to show the time that a later one
    // will find.
    struct stat about {};
    if (::fstat(file_.get(), &about) == 0) {
        placed.value() = IdentityOf(placed.value().place, placed.value().name, about);
    }
    MailEntry entry = EntryOf(placed.value());
    entry.number = number_;
    return entry;
}

Status StagedFile::WaitUntilDurable() {
    if (synced_.valid()) sync_failure_ = synced_.get();
    if (sync_failure_ != 0) return StoreSystemError(sync_failure_, tmp_name_);
    return {};
}

Status StagedFile::Show() {
    if (RenameExclusively(tmp_.get(), tmp_name_, folder_->directory(new_.place), new_.name) != 0) {
        return StoreSystemError(errno, new_.name);
    }
    in_tmp_ = false;
    context_->At(Step::kShown);
    return {};
}

Result<Identity> StagedFile::TakeTheOldOnesPlace() {
    if (::fsync(folder_->directory(new_.place)) != 0) return StoreSystemError(errno, new_.name);
    journal_->Synced(folder_->directory(new_.place));
    context_->At(Step::kShownDurably);
    std::vector<Place> unsynced;
    auto placed = RetireOld(*folder_, old_, new_, context_->hook, unsynced);
    for (const Place place : unsynced) {
        journal_->Pending(folder_->directory(place));
    }
    return placed;
}

// Takes the new file away again. Where that fails both files stay, and so does the journal: the
// next opening of the store finishes the replacement.
void StagedFile::Undo() {
    for (int chase = 0; chase < kLongestChase; ++chase) {
        const Located located = folder_->Locate(new_, Match::kWithoutTime);
        if (located.where == Whereabouts::kGone) return;
        if (located.where != Whereabouts::kThere && located.where != Whereabouts::kRenamed) break;
        const int directory = folder_->directory(located.identity.place);
        if (::unlinkat(directory, located.identity.name.c_str(), 0) == 0) {
            journal_->Pending(directory);
            return;
        }
        if (errno != ENOENT) break;
    }
    journal_->Break();
}

// Gives the new file the flags and the place that the old one has now. False when somebody renamed
// the new file just then: the caller looks for it again.
Result<bool> Follow(const Folder& folder, const Identity& before, const Identity& now,
                    Identity& new_mail) {
    const std::string_view name = new_mail.name;
    const std::string_view bare = name.substr(0, name.size() - SuffixOf(name).size());
    const std::string target =
        std::string(bare) + CarryFlags(SuffixOf(name), SuffixOf(before.name), SuffixOf(now.name));
    // From new/ to cur/ only: a message that somebody has seen is not made new again.
    const Place place = now.place == Place::kCur ? Place::kCur : new_mail.place;
    if (target == new_mail.name && place == new_mail.place) return true;
    const Place left = new_mail.place;
    if (RenameExclusively(folder.directory(left), new_mail.name, folder.directory(place), target) !=
        0) {
        if (errno == ENOENT) return false;
        return StoreSystemError(errno, target);
    }
    new_mail.name = target;
    new_mail.place = place;
    for (const Place changed : {left, place}) {
        if (::fsync(folder.directory(changed)) != 0) return StoreSystemError(errno, target);
    }
    return true;
}

}  // namespace

Result<Identity> RetireOld(const Folder& folder, Identity old_mail, Identity new_mail,
                           const StepHook& hook, std::vector<Place>& unsynced) {
    const auto at = [&hook](Step step) {
        if (hook) hook(step);
    };
    // `matched` is the old file whose flags the new one has.
    Identity matched = old_mail;
    for (int chase = 0; chase < kLongestChase; ++chase) {
        const Located new_now = folder.Locate(new_mail, Match::kWithoutTime);
        if (new_now.where != Whereabouts::kThere && new_now.where != Whereabouts::kRenamed) {
            return new_now.where == Whereabouts::kUnknown
                       ? StoreSystemError(new_now.system_error, new_mail.name)
                       : Gone();
        }
        new_mail = new_now.identity;

        const Located old_now = folder.Locate(old_mail, Match::kWithTime);
        if (old_now.where != Whereabouts::kRenamed) {
            TREVIX_RETURN_IF_ERROR(AsListed(old_now, old_mail.name));
        }
        old_mail = old_now.identity;
        if (old_mail.name != matched.name || old_mail.place != matched.place) {
            const auto followed = Follow(folder, matched, old_mail, new_mail);
            if (!followed.ok()) return followed.error();
            if (followed.value()) matched = old_mail;
            at(Step::kNewMoved);
            continue;
        }
        at(Step::kOldFound);

        const int directory = folder.directory(old_mail.place);
        if (::unlinkat(directory, old_mail.name.c_str(), 0) == 0) {
            unsynced.push_back(old_mail.place);
            at(Step::kOldRemoved);
            return new_mail;
        }
        if (errno != ENOENT) return StoreSystemError(errno, old_mail.name);
    }
    return MessagingError(kStoreBusy, old_mail.name);
}

Result<std::unique_ptr<StagedMail>> StageReplacement(std::shared_ptr<ReplacementContext> context,
                                                     Clock& clock,
                                                     std::shared_ptr<const Folder> folder,
                                                     const MailEntry& entry, const Blob& content) {
    auto old_mail = DecodeLocator(entry.locator);
    if (!old_mail) return MessagingError(kInvalidEntryId, entry.key);
    TREVIX_RETURN_IF_ERROR(AsListed(folder->Locate(*old_mail, Match::kWithTime), old_mail->name));
    auto staged = std::make_unique<StagedFile>(std::move(context), std::move(folder),
                                               *std::move(old_mail), entry.number);
    TREVIX_RETURN_IF_ERROR(staged->Write(clock, content));
    return std::unique_ptr<StagedMail>(std::move(staged));
}

}  // namespace trevix::maildir
