// Console: where the program's words go. Data goes to the standard output, all else to the standard
// error; with --json the standard output carries one JSON object a line instead.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>

namespace trevix::cli {

// What went wrong with what, and what to do about it (may be empty).
struct Complaint {
    std::string what;
    std::string why;
    std::string hint;
};

class Console {
 public:
    Console(std::ostream& out, std::ostream& err, bool err_is_terminal)
        : out_(out), err_(err), err_is_terminal_(err_is_terminal) {}
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    bool json = false;
    bool events_only = false;     // nothing for people, whatever happens
    bool quiet = false;           // no progress and no closing line; complaints are still shown
    std::size_t out_columns = 0;  // of the terminal that the standard output is; 0: it is none

    std::ostream& out() { return out_; }
    bool err_is_terminal() const { return err_is_terminal_; }

    // A line on the standard error, in place of a progress line that stands there.
    void Note(const std::string& line);

    // "trevixctl: <what>: <why>" and "hint: <hint>"; with --json an "error" event as well.
    void Complain(const Complaint& complaint);

    // One line that the next one overwrites; only for a terminal.
    void Redraw(const std::string& line);
    void ClearLine();

    // Writes `event` as one line, at once, and only with --json.
    void Event(const nlohmann::json& event);

    // Ends what a command tells programs, with --json, and hands its exit code on.
    int EndWith(int exit_code);

 private:
    std::ostream& out_;
    std::ostream& err_;
    bool err_is_terminal_;
    bool line_stands_ = false;
};

}  // namespace trevix::cli
