// Completion scripts for shells, written from what the command line takes. Values are completed by
// the word that help shows for them: DIR, FILE, PROFILE, SETTING and lists like ex|std; for others
// nothing is offered.
#pragma once

#include <string>

#include "cli/reference.h"

namespace trevix::cli {

std::string BashCompletion(const CommandReference& program);
std::string ZshCompletion(const CommandReference& program);
std::string FishCompletion(const CommandReference& program);

}  // namespace trevix::cli
