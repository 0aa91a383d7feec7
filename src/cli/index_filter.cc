#include "cli/index_filter.h"

#include <algorithm>
#include <utility>

#include "cli/size_and_time.h"

namespace trevix::cli {
namespace {

constexpr const char* kGroup =
    "Which attachments (all that is given must hold; case never matters)";

constexpr const char* kSizeHelp = "give a size as 500, 10k, 5M or 1G";
constexpr const char* kTimeHelp =
    "give a time as 2007-10-05, 2007-10 or 2007, or as 7d, 3w, 6m or 1y ago";

Error Unusable(const char* option, const std::string& value, const char* help) {
    return {ErrorKind::kMalformed, 0,
            std::string(option) + ": \"" + value + "\" cannot be understood; " + help};
}

Status TakeSize(const char* option, const std::optional<std::string>& text,
                std::optional<std::int64_t>& size) {
    if (!text) return {};
    size = ParseSize(*text);
    if (!size) return Unusable(option, *text, kSizeHelp);
    return {};
}

}  // namespace

bool FilterOptions::AsksForAnything() const {
    return !words.empty() || name || from || to || subject || folder || larger || smaller ||
           since || until || in_zip;
}

void AddFilterOptions(CLI::App& app, FilterOptions& options) {
    app.add_option("WORDS", options.words,
                   "Words, each somewhere in the file's name, the subject, the sender or the "
                   "recipients");
    const auto text = [&app](const char* name, std::optional<std::string>& value, const char* help,
                             const char* type) {
        app.add_option(name, value, help)->type_name(type)->group(kGroup);
    };
    text("--name", options.name, "The file's whole name, with * ? [ab]", "GLOB");
    text("--from", options.from, "Part of the sender", "TEXT");
    text("--to", options.to, "Part of the recipients", "TEXT");
    text("--subject", options.subject, "Part of the subject", "TEXT");
    text("--folder", options.folder, "Part of the folder's path", "TEXT");
    text("--larger", options.larger, "More bytes than this: 10k, 5M, 1G", "SIZE");
    text("--smaller", options.smaller, "Fewer bytes than this", "SIZE");
    text("--since", options.since,
         "Received then or later: 2007-10-05, 2007-10, 2007, or 7d, 3w, 6m, 1y ago", "DATE");
    text("--until", options.until, "Received then or earlier, the whole day, month or year",
         "DATE");
    app.add_flag("--in-zip", options.in_zip, "Only files inside zip attachments")->group(kGroup);
}

std::string FolderText(std::string_view folder) {
    std::string text(folder);
    std::replace(text.begin(), text.end(), '\\', '/');
    return text;
}

bool IndexFilter::TextTest::Holds(std::string_view text) const {
    const auto place = reinterpret_cast<std::uintptr_t>(text.data());
    Answer& answer = answers_[(place ^ place >> 12U) % kAnswers];
    if (answer.data != text.data() || answer.size != text.size()) {
        answer = {text.data(), text.size(), test_(text)};
    }
    return answer.holds;
}

void IndexFilter::AddText(const std::string& wanted, std::vector<IndexColumn> columns,
                          bool looks_at_name) {
    const FoldedText folded(wanted);
    texts_.push_back({folded, std::move(columns),
                      TextTest([folded](std::string_view text) { return folded.IsIn(text); }),
                      looks_at_name});
}

Result<IndexFilter> IndexFilter::Make(const FilterOptions& options, Date now_utc) {
    using enum IndexColumn;
    IndexFilter filter;
    for (const std::string& word : options.words) {
        filter.AddText(word, {kSubject, kFrom, kSender, kTo, kDisplayTo}, true);
    }
    if (options.from) filter.AddText(*options.from, {kFrom, kSender}, false);
    if (options.to) filter.AddText(*options.to, {kTo, kDisplayTo}, false);
    if (options.subject) filter.AddText(*options.subject, {kSubject}, false);
    if (options.name) filter.name_.emplace(*options.name);
    if (options.folder) {
        const FoldedText folded(FolderText(*options.folder));
        filter.folder_.emplace(
            [folded](std::string_view folder) { return folded.IsIn(FolderText(folder)); });
    }
    TREVIX_RETURN_IF_ERROR(TakeSize("--larger", options.larger, filter.larger_));
    TREVIX_RETURN_IF_ERROR(TakeSize("--smaller", options.smaller, filter.smaller_));
    if (options.since) {
        const auto since = ParsePeriod(*options.since, now_utc);
        if (!since) return Unusable("--since", *options.since, kTimeHelp);
        filter.since_ = since->begin;
    }
    if (options.until) {
        const auto until = ParsePeriod(*options.until, now_utc);
        if (!until) return Unusable("--until", *options.until, kTimeHelp);
        filter.until_ = until->end;
    }
    filter.in_zip_ = options.in_zip;
    return filter;
}

bool IndexFilter::SizeAndTimeMatch(const RecordSet& index) const {
    if (larger_ || smaller_) {
        const std::int64_t size = IntegerOf(index, IndexColumn::kFileSize);
        if (larger_ && size <= *larger_) return false;
        if (smaller_ && size >= *smaller_) return false;
    }
    if (since_ || until_) {
        const auto received = NumberOf(index, IndexColumn::kReceived);
        if (!received) return false;
        if (since_ && *received < since_->days) return false;
        if (until_ && *received >= until_->days) return false;
    }
    return !in_zip_ || IsInZip(index);
}

bool IndexFilter::Matches(const RecordSet& index) const {
    if (!SizeAndTimeMatch(index)) return false;
    for (const TextFilter& text : texts_) {
        bool found = text.looks_at_name && text.wanted.IsIn(TextOf(index, IndexColumn::kFileName));
        for (std::size_t i = 0; i < text.columns.size() && !found; ++i) {
            found = text.test.Holds(TextOf(index, text.columns[i]));
        }
        if (!found) return false;
    }
    if (folder_ && !folder_->Holds(TextOf(index, IndexColumn::kFolder))) return false;
    return !name_ || name_->Matches(TextOf(index, IndexColumn::kFileName));
}

}  // namespace trevix::cli
