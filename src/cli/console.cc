#include "cli/console.h"

#include <nlohmann/json.hpp>

#include "cli/text_format.h"

namespace trevix::cli {

void Console::Note(const std::string& line) {
    if (events_only) return;
    ClearLine();
    err_ << line << '\n' << std::flush;
}

void Console::Complain(const Complaint& complaint) {
    Note("trevixctl: " + Printable(complaint.what) + ": " + Printable(complaint.why));
    if (!complaint.hint.empty()) Note("hint: " + Printable(complaint.hint));
    nlohmann::json event = {
        {"event", "error"}, {"what", complaint.what}, {"message", complaint.why}};
    if (!complaint.hint.empty()) event["hint"] = complaint.hint;
    Event(event);
}

void Console::Redraw(const std::string& line) {
    if (!err_is_terminal_) return;
    err_ << "\r" << line << "\x1b[K" << std::flush;
    line_stands_ = true;
}

void Console::ClearLine() {
    if (!line_stands_) return;
    err_ << "\r\x1b[K";
    line_stands_ = false;
}

void Console::Event(const nlohmann::json& event) {
    if (!json) return;
    // Texts come from mail; broken UTF-8 must not end the run.
    out_ << event.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n'
         << std::flush;
}

int Console::EndWith(int exit_code) {
    Event({{"event", "summary"}, {"exit", exit_code}});
    return exit_code;
}

}  // namespace trevix::cli
