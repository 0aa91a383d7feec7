#include "platform/mime/open_stores.h"

#include <map>
#include <utility>

#include "platform/mime/entry_id.h"

namespace trevix::mime {
namespace {

// A pass works on one folder at a time; a second one serves a look back at the folder before.
constexpr std::size_t kKeptStates = 2;

constexpr const char* kRootName = "IPM_SUBTREE";
constexpr const char* kInboxName = "Inbox";

// The nearest folder above `path`; the root when there is none.
int ParentOf(const std::string& path, const std::map<std::string, int>& positions) {
    std::size_t slash = path.rfind('/');
    while (slash != std::string::npos && slash > 0) {
        const auto found = positions.find(path.substr(0, slash));
        if (found != positions.end()) return found->second;
        slash = path.rfind('/', slash - 1);
    }
    return 0;
}

}  // namespace

OpenStore::OpenStore(std::unique_ptr<MailStore> store, SummaryCache& cache, Clock& clock)
    : store_(std::move(store)),
      cache_(cache),
      clock_(clock),
      address_(store_->address()),
      id_(StoreEntryId(address_)) {
    const Result<bool> known = cache_.KnowsStore(address_);
    first_contact_ = !known.ok() || !known.value();
}

Status OpenStore::ReadTree() {
    Result<std::vector<MailFolder>> folders = store_->Folders();
    if (!folders.ok()) return folders.error();
    const std::string inbox = store_->inbox_path();
    std::vector<MailFolder> ordered;
    // The Inbox comes first, whatever the store calls it and wherever it lists it.
    ordered.push_back({inbox, kInboxName, true});
    for (MailFolder& folder : folders.value()) {
        if (folder.path != inbox) ordered.push_back(std::move(folder));
    }

    tree_.clear();
    tree_.push_back({{}, kRootName, FolderEntryId(address_, kRootFolder), false, -1, {}});
    std::map<std::string, int> positions;
    for (MailFolder& folder : ordered) {
        FolderNode node;
        node.id = FolderEntryId(address_, folder.path);
        node.path = std::move(folder.path);
        node.name = std::move(folder.name);
        node.holds_messages = folder.holds_messages;
        positions[node.path] = static_cast<int>(tree_.size());
        tree_.push_back(std::move(node));
    }
    for (std::size_t i = 1; i < tree_.size(); ++i) {
        tree_[i].parent = ParentOf(tree_[i].path, positions);
        tree_[static_cast<std::size_t>(tree_[i].parent)].children.push_back(static_cast<int>(i));
    }
    return {};
}

Result<const std::vector<FolderNode>*> OpenStore::Tree(bool fresh) {
    if (fresh || tree_.empty()) TREVIX_RETURN_IF_ERROR(ReadTree());
    return &tree_;
}

Result<std::optional<int>> OpenStore::FindFolder(const std::string& folder_id) {
    for (const bool fresh : {false, true}) {
        const auto tree = Tree(fresh);
        if (!tree.ok()) return tree.error();
        for (std::size_t i = 0; i < tree_.size(); ++i) {
            if (tree_[i].id == folder_id) return std::optional(static_cast<int>(i));
        }
    }
    return std::optional<int>();
}

FolderState& OpenStore::State(const std::string& path) {
    for (auto state = states_.begin(); state != states_.end(); ++state) {
        if (state->path() == path) {
            states_.splice(states_.begin(), states_, state);
            return states_.front();
        }
    }
    states_.emplace_front(*store_, cache_, clock_, path, first_contact_);
    if (states_.size() > kKeptStates) states_.pop_back();
    return states_.front();
}

Result<std::optional<OpenStore::Place>> OpenStore::FindAnywhere(const std::string& key_digest) {
    const auto tree = Tree(true);
    if (!tree.ok()) return tree.error();
    const std::vector<FolderNode> nodes = *tree.value();
    for (const FolderNode& node : nodes) {
        if (!node.holds_messages) continue;
        // A listing of names tells whether it is worth to read what is new in the folder.
        Result<MailChange> change = store_->List(node.path, nullptr);
        if (!change.ok()) continue;
        for (const MailEntry& entry : change.value().listing.entries) {
            if (Digest16(entry.key) != key_digest) continue;
            FolderState& state = State(node.path);
            const auto listed = state.Refresh();
            if (!listed.ok()) return listed.error();
            const auto found = state.Find(key_digest);
            if (!found.ok()) return found.error();
            if (found.value().has_value()) return std::optional(Place{node, *found.value()});
        }
    }
    return std::optional<Place>();
}

void OpenStore::NoteRows(const std::string& folder, std::shared_ptr<const FolderSummary> listing,
                         std::vector<std::uint32_t> order) {
    // Who changed messages of one folder changes some of the next one.
    const bool changed = use_ == MailUse::kChange;
    upcoming_.Note(folder, std::move(listing), std::move(order),
                   changed ? Upcoming::kNarrow : Upcoming::kWide);
    use_ = MailUse::kIndex;
}

void OpenStore::NoteChange() {
    if (use_ == MailUse::kChange) return;
    use_ = MailUse::kChange;
    upcoming_.TellAnew();
}

Result<ReadMessage> OpenStore::Open(const std::string& folder, const MailEntry& entry,
                                    HelperThread& helper) {
    const std::vector<MailEntry> expected = upcoming_.Follow(folder, entry.key);
    if (!expected.empty()) store_->Expect(folder, expected, use_);

    Ahead ahead = std::exchange(ahead_, {});
    const bool guessed = ahead.message.valid() && ahead.folder == folder &&
                         ahead.key == entry.key && ahead.locator == entry.locator;
    if (guessed) {
        Result<ReadMessage> message = ahead.message.get();
        if (message.ok()) {
            ReadNext(folder, helper);
            return message;
        }
    }
    Result<ReadMessage> message = ReadNow(folder, entry);
    if (message.ok() && message.value().exact) ReadNext(folder, helper);
    return message;
}

Result<ReadMessage> OpenStore::ReadNow(const std::string& folder, const MailEntry& entry) {
    Result<MailOutline> outline = store_->Outline(folder, entry);
    if (!outline.ok()) return outline.error();
    if (outline.value().exact) {
        const Result<Blob> bytes = Held(outline.value().skeleton);
        if (!bytes.ok()) return bytes.error();
        return TakeApart(bytes.value());
    }
    Result<ReadMessage> message = TakeApart(outline.value());
    if (message.ok()) return message;
    // An outline that does not hold together: the message itself decides.
    const Result<Blob> bytes = store_->Read(folder, entry);
    if (!bytes.ok()) return bytes.error();
    return TakeApart(bytes.value());
}

// Only the calling thread talks to the store; the helper sees nothing but bytes. A store behind a
// network was told what to expect and reads ahead by itself.
void OpenStore::ReadNext(const std::string& folder, HelperThread& helper) {
    constexpr std::uint64_t kOrdinaryBytes = std::uint64_t{4} * 1024 * 1024;
    const MessageSummary* next = upcoming_.Next();
    if (next == nullptr || next->entry.size_bytes > kOrdinaryBytes) return;
    Result<MailOutline> outline = store_->Outline(folder, next->entry);
    if (!outline.ok() || !outline.value().exact) return;
    ahead_ = {folder, next->entry.key, next->entry.locator,
              helper.Run([bytes = outline.value().skeleton]() -> Result<ReadMessage> {
                  const Result<Blob> held = Held(bytes);
                  if (!held.ok()) return held.error();
                  Result<ReadMessage> message = TakeApart(held.value());
                  if (message.ok()) DecodeAhead(&message.value());
                  return message;
              })};
}

void OpenStore::Settle() {
    for (FolderState& state : states_)
        state.Settle();
}

}  // namespace trevix::mime
