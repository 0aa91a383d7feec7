// What a Session does about each reply.
#include <algorithm>
#include <charconv>
#include <utility>
#include <variant>

#include "platform/errors.h"
#include "platform/imap/ascii.h"
#include "platform/imap/refusal_error.h"
#include "platform/imap/session.h"

namespace trevix::imap {
namespace {

constexpr std::size_t kMostAlerts = 16;

// The number in a tag of ours; 0 for any other.
std::uint64_t IdOf(std::string_view tag) {
    std::uint64_t id = 0;
    if (tag.size() < 2 || tag.front() != 'T') return 0;
    const char* const end = tag.data() + tag.size();
    const auto [stop, problem] = std::from_chars(tag.data() + 1, end, id);
    return problem == std::errc() && stop == end ? id : 0;
}

std::set<std::string, std::less<>> UpperWords(const std::vector<std::string>& words) {
    std::set<std::string, std::less<>> upper;
    for (const std::string& word : words) {
        upper.insert(UpperCase(word));
    }
    return upper;
}

std::optional<std::uint32_t> ParseUid(std::string_view text) {
    std::uint32_t uid = 0;
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), uid);
    if (problem != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return uid;
}

std::vector<std::string> SplitWords(std::string_view text) {
    std::vector<std::string> words;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        if (end > 0) words.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return words;
}

}  // namespace

Status Session::ReadOne() {
    if (lost_) return *lost_;
    if (++replies_ > settings_.limits.replies) {
        return GiveUp(Malformed("there is no end to its replies"));
    }
    Result<Reply> reply = ReadReply(*scanner_, spool_, *this);
    if (!reply.ok()) return GiveUp(reply.error());
    const Status taken = Take(reply.value());
    return taken.ok() ? taken : Status(GiveUp(taken.error()));
}

Status Session::Take(Reply& reply) {
    if (auto* const answer = std::get_if<TaggedReply>(&reply)) return TakeAnswer(*answer);
    if (std::holds_alternative<ContinuationReply>(reply)) {
        if (!awaiting_continuation_ || continuation_came_) {
            return Malformed("it asks for more than there is");
        }
        continuation_came_ = true;
        return {};
    }
    if (auto* const fetch = std::get_if<FetchReply>(&reply)) {
        Deliver(std::move(fetch->message));
        return {};
    }
    if (const auto* const condition = std::get_if<ConditionReply>(&reply)) {
        TakeCondition(condition->condition);
    } else if (const auto* const capability = std::get_if<CapabilityReply>(&reply)) {
        capabilities_ = UpperWords(capability->capabilities);
        capabilities_told_ = true;
    } else if (const auto* const exists = std::get_if<ExistsReply>(&reply)) {
        news_.exists = exists->count;
    } else if (std::holds_alternative<ExpungeReply>(reply)) {
        ++news_.expunged;
        if (news_.exists && *news_.exists > 0) --*news_.exists;
    } else if (const auto* const vanished = std::get_if<VanishedReply>(&reply)) {
        TakeVanished(*vanished);
    }
    return handler_ != nullptr ? (*handler_)(reply) : Status();
}

Status Session::TakeAnswer(TaggedReply& reply) {
    const std::uint64_t id = IdOf(reply.tag);
    const auto found = pending_.find(id);
    if (found == pending_.end() || found->second.answer) {
        return Malformed("it answers what was not asked");
    }
    Pending& pending = found->second;
    TakeCondition(reply.condition);
    replies_ = 0;
    transport_->NoteProgress();
    pending_bytes_ -= pending.bytes;
    if (pending.job == nullptr) {
        pending.answer = std::move(reply.condition);
        return {};
    }
    FetchJob& job = *pending.job;
    --job.open_commands;
    if (reply.condition.kind != Condition::Kind::kOk && !job.refusal) {
        job.refusal = std::move(reply.condition);
    }
    pending_.erase(found);
    return {};
}

void Session::TakeCondition(const Condition& condition) {
    if (condition.kind == Condition::Kind::kBye) {
        bye_ = CleanWords(condition.text);
        if (bye_.empty()) bye_ = "no reason";
    }
    if (condition.code == "CAPABILITY") {
        capabilities_ = UpperWords(SplitWords(condition.arguments));
        capabilities_told_ = true;
    } else if (condition.code == "ALERT") {
        if (news_.alerts.size() < kMostAlerts) news_.alerts.push_back(CleanWords(condition.text));
    } else if (condition.code == "UIDVALIDITY") {
        news_.uid_validity = ParseUid(condition.arguments);
    } else if (condition.code == "APPENDUID") {
        appended_ = ParseAppendUid(condition.arguments);
    }
}

void Session::TakeVanished(const VanishedReply& vanished) {
    if (vanished.earlier) return;
    vanished_.Add(vanished.uids);
    if (!vanished.complete) vanished_.MarkIncomplete();
}

}  // namespace trevix::imap
