// The stores that a session has open, and what all its objects share.
#pragma once

#include <future>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/helper_thread.h"
#include "platform/mime/folder_state.h"
#include "platform/mime/named_properties.h"
#include "platform/mime/read_message.h"
#include "platform/mime/scratch_store.h"
#include "platform/mime/upcoming.h"

namespace trevix::mime {

// One folder of the tree. Position 0 of a tree is the root, which holds no messages.
struct FolderNode {
    std::string path;
    std::string name;
    std::string id;  // entry ID, bytes
    bool holds_messages = false;
    int parent = -1;
    std::vector<int> children;
};

class OpenStore {
 public:
    OpenStore(std::unique_ptr<MailStore> store, SummaryCache& cache, Clock& clock);

    MailStore& mail() { return *store_; }
    const std::string& address() const { return address_; }
    const std::string& id() const { return id_; }  // bytes

    // The folder tree; read again when `fresh`. The nodes that a caller copied stay valid.
    Result<const std::vector<FolderNode>*> Tree(bool fresh);

    // Position in the tree of the folder with this ID; nothing when there is none.
    Result<std::optional<int>> FindFolder(const std::string& folder_id);

    // What is known of a folder. Only the folders used last are kept, so the reference is for
    // immediate use.
    FolderState& State(const std::string& path);

    // The folder and the message of an entry ID's key, looked for in every folder: the message may
    // have moved since the ID was made.
    struct Place {
        FolderNode folder;
        MessageSummary message;
    };
    Result<std::optional<Place>> FindAnywhere(const std::string& key_digest);

    // Somebody took the rows of a folder's listing in this order, to open its messages.
    void NoteRows(const std::string& folder, std::shared_ptr<const FolderSummary> listing,
                  std::vector<std::uint32_t> order);

    // The message as listed, taken apart: read before, when the guess was right. The one that will
    // probably be next is read meanwhile, by the helper. Errors are those of MailStore::Outline()
    // and TakeApart().
    Result<ReadMessage> Open(const std::string& folder, const MailEntry& entry,
                             HelperThread& helper);

    // A message is about to be changed, so others of its folder will be.
    void NoteChange();

    // Before the store closes: see FolderState.
    void Settle();

 private:
    // A message that the helper reads, as it was listed when it began.
    struct Ahead {
        std::string folder;
        std::string key;
        std::string locator;
        std::future<Result<ReadMessage>> message;
    };

    Status ReadTree();
    Result<ReadMessage> ReadNow(const std::string& folder, const MailEntry& entry);
    void ReadNext(const std::string& folder, HelperThread& helper);

    std::unique_ptr<MailStore> store_;
    SummaryCache& cache_;
    Clock& clock_;
    std::string address_;
    std::string id_;
    bool first_contact_ = false;
    std::vector<FolderNode> tree_;
    std::list<FolderState> states_;  // the one used last comes first
    Upcoming upcoming_;
    MailUse use_ = MailUse::kIndex;
    Ahead ahead_;
};

struct OpenStores {
    std::string user_name;
    std::vector<std::shared_ptr<OpenStore>> stores;
    std::size_t inbox_store = 0;
    NamedProperties names;
    ScratchStore outbox;
    HelperThread helper;  // asks the second reader

    const std::shared_ptr<OpenStore>& default_store() const { return stores[inbox_store]; }
};

}  // namespace trevix::mime
