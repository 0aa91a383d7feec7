// Manual pages. Each is a hand-written mdoc text in which a line of its own like "@OPTIONS@" stands
// for what the command table says; so a page explains, and the table lists.
//
//   @HEAD@        date, title, NAME and SYNOPSIS of the command that the page is named for
//   @OPTIONS@     its operands and options, and those of the commands below it
//   @COMMANDS@    the commands below it, with their summaries
//   @EXAMPLES@    its examples
//   @EXIT_STATUS@ what the exit status says
//   @SETTINGS@    all settings
//   @PAGES@       references to the pages of all commands
// and within a line @DATE@ and @VERSION@.
#pragma once

#include <string>
#include <string_view>

#include "cli/reference.h"
#include "platform/result.h"

namespace trevix::cli {

// `text` with nothing in it that the formatter would obey.
std::string RoffText(std::string_view text);

// The page of a template. `file_name` says which command it is for: "trevixctl-config.1.in".
// kMalformed, with the word, for an unknown word between two "@".
Result<std::string> FillManPage(const std::string& page_template, const std::string& file_name,
                                const std::string& date, const CommandReference& program);

}  // namespace trevix::cli
