#include "platform/imap/fetch_job.h"

#include <algorithm>
#include <utility>

#include "platform/imap/reply_parser.h"

namespace trevix::imap {
namespace {

// Servers end connections over lines that are too long; 8192 bytes have to be borne (RFC 7162).
constexpr std::size_t kMostSetBytes = 4096;

std::string SectionItem(const SectionRequest& section) {
    std::string item = "BODY.PEEK[" + section.section + "]";
    if (section.range) {
        item += "<" + std::to_string(section.range->first) + "." +
                std::to_string(section.range->second) + ">";
    }
    return item;
}

std::string Items(const FetchRequest& request) {
    std::string items = "UID";
    const auto add = [&items](bool wanted, const std::string& item) {
        if (wanted) items += " " + item;
    };
    add(request.flags, "FLAGS");
    add(request.internal_date, "INTERNALDATE");
    add(request.size, "RFC822.SIZE");
    add(request.modseq, "MODSEQ");
    add(request.save_date, "SAVEDATE");
    add(request.email_id, "EMAILID");
    add(request.body_structure, "BODYSTRUCTURE");
    for (const SectionRequest& section : request.sections) {
        add(true, SectionItem(section));
    }
    return items;
}

}  // namespace

FetchJob::FetchJob(FetchRequest request, FetchSink sink)
    : request_(std::move(request)), sink_(std::move(sink)) {
    for (const SectionRequest& section : request_.sections) {
        FetchedSection wanted;
        wanted.section = NormalSection(section.section);
        wanted.offset = section.range ? section.range->first : 0;
        wanted_.push_back(std::move(wanted));
    }
}

bool FetchJob::Wants(const FetchedSection& section) const {
    return std::any_of(wanted_.begin(), wanted_.end(), [&section](const FetchedSection& wanted) {
        return wanted.offset == section.offset &&
               SectionWithoutFields(wanted.section) == SectionWithoutFields(section.section);
    });
}

bool FetchJob::Takes(const FetchedMessage& message) const {
    if (!request_.uids.Contains(message.uid)) return false;
    const bool structure = message.structure != nullptr || !message.structure_problem.empty();
    return (request_.flags && message.flags) || (request_.internal_date && message.internal_date) ||
           (request_.size && message.size_bytes) || (request_.modseq && message.modseq) ||
           (request_.save_date && message.save_date) || (request_.email_id && message.email_id) ||
           (request_.body_structure && structure) ||
           std::any_of(message.sections.begin(), message.sections.end(),
                       [this](const FetchedSection& section) { return Wants(section); });
}

void FetchJob::Deliver(FetchedMessage message) {
    if (sink_error_) return;
    std::erase_if(message.sections,
                  [this](const FetchedSection& section) { return !Wants(section); });
    if (Status taken = sink_(std::move(message)); !taken.ok()) sink_error_ = taken.error();
}

std::vector<std::string> FetchCommands(const FetchRequest& request, bool vanished) {
    const std::string items = Items(request);
    std::vector<std::string> commands;
    if (items == "UID" && !vanished) return commands;
    std::string tail = " (" + items + ")";
    if (request.changed_since) {
        tail += " (CHANGEDSINCE " + std::to_string(*request.changed_since) +
                (vanished ? " VANISHED)" : ")");
    }
    for (const std::string& set : request.uids.ToTexts(kMostSetBytes)) {
        commands.push_back("UID FETCH " + set + tail);
    }
    return commands;
}

}  // namespace trevix::imap
