#include "platform/mime/upcoming.h"

#include <algorithm>
#include <utility>

namespace trevix::mime {

void Upcoming::Note(std::string folder, std::shared_ptr<const FolderSummary> listing,
                    std::vector<std::uint32_t> order, std::size_t first_window) {
    folder_ = std::move(folder);
    listing_ = std::move(listing);
    order_ = std::move(order);
    next_ = 0;
    told_ = 0;
    window_ = 0;
    first_window_ = first_window;
}

std::vector<MailEntry> Upcoming::Follow(const std::string& folder, const std::string& key) {
    if (folder != folder_) return {};
    std::size_t position = next_;
    while (position < order_.size() && At(position).entry.key != key)
        ++position;
    if (position == order_.size()) {
        window_ = 0;
        return {};
    }
    const bool as_guessed = position == next_ && window_ > 0;
    const std::size_t anew = position == 0 ? first_window_ : 1;
    window_ = as_guessed ? std::min(window_ * 2, kWide) : anew;
    next_ = position + 1;

    // Told in good time: when half of what the store was told of last is used up.
    if (told_ > position + window_ / 2) return {};
    const std::size_t begin = std::max(told_, position);
    told_ = std::min(order_.size(), next_ + window_);
    std::vector<MailEntry> entries;
    for (std::size_t i = begin; i < told_; ++i)
        entries.push_back(At(i).entry);
    return entries;
}

const MessageSummary* Upcoming::Next() const {
    return window_ > 1 && next_ < order_.size() ? &At(next_) : nullptr;
}

}  // namespace trevix::mime
