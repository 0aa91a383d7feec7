#include "platform/imap/part_content.h"

#include <memory>
#include <mutex>
#include <utility>

#include "platform/errors.h"

namespace trevix::imap {
namespace {

class PartContent final : public Blob::Source {
 public:
    PartContent(std::uint64_t size_bytes, std::optional<Blob> beginning, ContentFetcher fetcher)
        : size_bytes_(size_bytes), known_(std::move(beginning)), fetcher_(std::move(fetcher)) {}

    std::uint64_t size_bytes() const override { return size_bytes_; }

    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        const Result<Blob> known = KnownUpTo(offset + count);
        if (!known.ok()) return known.error();
        return known.value().ReadAt(offset, target, count);
    }

 private:
    // What failed once may succeed another time, so only content is kept.
    Result<Blob> KnownUpTo(std::uint64_t end) const {
        const std::lock_guard lock(mutex_);
        if (known_ && known_->size_bytes() >= end) return *known_;
        Result<Blob> fetched = fetcher_();
        if (!fetched.ok()) return fetched.error();
        if (fetched.value().size_bytes() != size_bytes_) {
            return MessagingError(kCorruptData, "a part has not the size that the server said");
        }
        known_ = fetched.value();
        return fetched;
    }

    std::uint64_t size_bytes_;
    mutable std::mutex mutex_;
    mutable std::optional<Blob> known_;
    ContentFetcher fetcher_;
};

}  // namespace

Blob MakePartContent(std::uint64_t size_bytes, std::optional<Blob> beginning,
                     ContentFetcher fetcher) {
    return Blob(
        std::make_shared<PartContent>(size_bytes, std::move(beginning), std::move(fetcher)));
}

}  // namespace trevix::imap
