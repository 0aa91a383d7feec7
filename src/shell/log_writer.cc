#include "shell/log_writer.h"

#include "shell/bas_ci.h"
#include "util/format.h"
#include "util/pending_error.h"
#include "util/text.h"

namespace trevix {
namespace {

constexpr std::int16_t kCoarsestEventType = 4;
constexpr const char* kLineBreak = "\r\n";

}  // namespace

void LogWriter::Write(const char* class_name, const char* procedure, const std::string& message,
                      std::int16_t& level) {
    if (level > state_.ErrorLogLevel) return;
    const std::string body = std::string("TrevixCI Version ") + kVersionText + kLineBreak + message;
    WriteEvent(std::string(class_name) + "::" + procedure + ":" + message, level);
    WriteFile(body);
}

void LogWriter::WriteEvent(const std::string& entry, std::int16_t& level) {
    if (!state_.ports.event_log.Available()) return;
    // The event log knows no type beyond 4; the caller's level is lowered with it, deliberately.
    if (level > kCoarsestEventType) level = kCoarsestEventType;
    const char* source = state_.gAddinMode ? "Trevix" : "TXServer";
    // A log that cannot be written is nobody's failure.
    Drop(state_.ports.event_log.Report({entry}, source, "", level));
}

void LogWriter::WriteFile(const std::string& body) {
    if (!state_.gAddinMode || state_.ErrorLogSize < 1) return;
    state_.GetZipTemp();
    const std::string path = state_.gZipTemp + "trevix.log";
    DropOldestLine(path);
    const std::string stamp = FormatGeneralDate(state_.ports.clock.NowLocal());
    // As above: the caller's work matters more than its log.
    Drop(state_.ports.files.AppendText(path, stamp + " " + body + kLineBreak));
}

// One line for one entry, never a cut back to the limit: the file hovers just above it.
void LogWriter::DropOldestLine(const std::string& path) {
    PendingError pending;
    const auto size = pending.ValueOr(state_.ports.files.FileSize(path), std::uint64_t{0});
    if (size <= static_cast<std::uint64_t>(state_.ErrorLogSize)) return;

    std::string text;
    if (!pending.Assign(text, state_.ports.files.ReadText(path))) return;
    const std::size_t line_feed = text.find('\n');
    // Without a line feed the text is kept from its first character.
    const std::size_t keep_from = line_feed == std::string::npos ? 0 : line_feed + 1;
    text.erase(0, keep_from);
    pending.Step(
        state_.ports.files.WriteText(path, std::string(TrimBlanks(text)).append(kLineBreak)));
}

}  // namespace trevix
