#include "platform/imap/uid_set.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace trevix::imap {
namespace {

using Range = UidSet::Range;

// Sorts and puts together what overlaps or touches.
void Normalise(std::vector<Range>& ranges) {
    std::sort(ranges.begin(), ranges.end(),
              [](const Range& a, const Range& b) { return a.first < b.first; });
    std::size_t kept = 0;
    for (const Range& range : ranges) {
        if (kept > 0 && range.first <= std::uint64_t{ranges[kept - 1].last} + 1) {
            ranges[kept - 1].last = std::max(ranges[kept - 1].last, range.last);
        } else {
            ranges[kept++] = range;
        }
    }
    ranges.resize(kept);
}

bool TakeUid(std::string_view& text, std::uint32_t& uid) {
    if (!text.empty() && text.front() == '*') {
        uid = UidSet::kNewest;
        text.remove_prefix(1);
        return true;
    }
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), uid);
    if (problem != std::errc() || uid == 0) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool TakeRange(std::string_view& text, Range& range) {
    if (!TakeUid(text, range.first)) return false;
    range.last = range.first;
    if (!text.empty() && text.front() == ':') {
        text.remove_prefix(1);
        if (!TakeUid(text, range.last)) return false;
    }
    if (range.first > range.last) std::swap(range.first, range.last);
    return true;
}

std::string UidText(std::uint32_t uid) {
    return uid == UidSet::kNewest ? "*" : std::to_string(uid);
}

std::string RangeText(const Range& range) {
    if (range.first == range.last) return UidText(range.first);
    return UidText(range.first) + ":" + UidText(range.last);
}

}  // namespace

UidSet UidSet::Between(std::uint32_t first, std::uint32_t last) {
    UidSet set;
    set.AddRange(first, last);
    return set;
}

UidSet UidSet::FromList(std::vector<std::uint32_t> uids) {
    std::sort(uids.begin(), uids.end());
    UidSet set;
    for (const std::uint32_t uid : uids) {
        set.Add(uid);
    }
    return set;
}

UidSet UidSet::FromRanges(std::vector<Range> ranges) {
    std::erase_if(ranges, [](const Range& range) { return range.first == 0; });
    UidSet set;
    set.ranges_ = std::move(ranges);
    Normalise(set.ranges_);
    return set;
}

std::optional<UidSet> UidSet::Parse(std::string_view text, std::size_t most_ranges) {
    UidSet set;
    for (;;) {
        Range range;
        if (!TakeRange(text, range) || set.ranges_.size() == most_ranges) return std::nullopt;
        set.ranges_.push_back(range);
        if (text.empty()) break;
        if (text.front() != ',') return std::nullopt;
        text.remove_prefix(1);
    }
    Normalise(set.ranges_);
    return set;
}

void UidSet::AddRange(std::uint32_t first, std::uint32_t last) {
    if (first == 0 || first > last) return;
    if (ranges_.empty() || first > std::uint64_t{ranges_.back().last} + 1) {
        ranges_.push_back({first, last});
        return;
    }
    if (first >= ranges_.back().first) {
        ranges_.back().last = std::max(ranges_.back().last, last);
        return;
    }
    ranges_.push_back({first, last});
    Normalise(ranges_);
}

void UidSet::AddAll(const UidSet& other) {
    ranges_.insert(ranges_.end(), other.ranges_.begin(), other.ranges_.end());
    Normalise(ranges_);
}

bool UidSet::Contains(std::uint32_t uid) const {
    const auto after = std::upper_bound(
        ranges_.begin(), ranges_.end(), uid,
        [](std::uint32_t value, const Range& range) { return value < range.first; });
    return after != ranges_.begin() && uid <= std::prev(after)->last;
}

std::uint64_t UidSet::count() const {
    std::uint64_t sum = 0;
    for (const Range& range : ranges_) {
        sum += std::uint64_t{range.last} - range.first + 1;
    }
    return sum;
}

std::string UidSet::ToText() const {
    std::string text;
    for (const Range& range : ranges_) {
        if (!text.empty()) text += ',';
        text += RangeText(range);
    }
    return text;
}

std::vector<std::string> UidSet::ToTexts(std::size_t most_bytes) const {
    std::vector<std::string> texts;
    for (const Range& range : ranges_) {
        const std::string one = RangeText(range);
        if (texts.empty() || texts.back().size() + 1 + one.size() > most_bytes) {
            texts.push_back(one);
        } else {
            texts.back() += ',' + one;
        }
    }
    return texts;
}

void UidCollector::Add(const UidSet& uids) {
    if (!complete_) return;
    ranges_.insert(ranges_.end(), uids.ranges().begin(), uids.ranges().end());
    constexpr std::size_t kFew = 1024;
    if (ranges_.size() < 2 * settled_ + kFew && ranges_.size() <= most_ranges_) return;
    Normalise(ranges_);
    settled_ = ranges_.size();
    if (ranges_.size() > most_ranges_) MarkIncomplete();
}

void UidCollector::MarkIncomplete() {
    complete_ = false;
    ranges_ = {};
}

UidSet UidCollector::Take() {
    settled_ = 0;
    return UidSet::FromRanges(std::exchange(ranges_, {}));
}

}  // namespace trevix::imap
