// Which messages will be opened next: whoever took the rows of a table opens its messages in the
// order of these rows, perhaps with some left out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/summary_cache.h"

namespace trevix::mime {

class Upcoming {
 public:
    // How many messages the store is told of at a time: so many that a server which is a tenth of a
    // second away is seldom waited for. How much of it a store fetches ahead is its own decision.
    static constexpr std::size_t kWide = 512;

    // At first, when it will probably turn out that more of each message is wanted.
    static constexpr std::size_t kNarrow = 16;

    // Rows of the folder's listing were handed out in this order.
    void Note(std::string folder, std::shared_ptr<const FolderSummary> listing,
              std::vector<std::uint32_t> order, std::size_t first_window = kWide);

    // What the store was told is not what is wanted: it will be told anew.
    void TellAnew() { told_ = next_; }

    // The message with this key is being opened. What the store should be told to expect now, this
    // message first unless it was told of it before; mostly nothing, for the store is told of many
    // at a time: more and more of them while the guess holds.
    std::vector<MailEntry> Follow(const std::string& folder, const std::string& key);

    // The message that will probably be opened after the one just followed; null when that is
    // anybody's guess.
    const MessageSummary* Next() const;

 private:
    const MessageSummary& At(std::size_t position) const {
        return listing_->messages[order_[position]];
    }

    std::string folder_;
    std::shared_ptr<const FolderSummary> listing_;
    std::vector<std::uint32_t> order_;
    std::size_t next_ = 0;    // position in order_
    std::size_t told_ = 0;    // the store was told of all before this position
    std::size_t window_ = 0;  // how many to tell at a time
    std::size_t first_window_ = kWide;
};

}  // namespace trevix::mime
