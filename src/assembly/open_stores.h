// Opens the stores of addresses: what each kind of them consists of.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/clock.h"
#include "platform/mail_store.h"
#include "platform/profiles/profile_provider.h"

namespace trevix::assembly {

// How stores are opened.
struct StorePlan {
    // What a killed process left of its replacements then stays as it is.
    bool looks_only = false;

    // Has the last word on each store that was opened, and may put something in front of it; empty
    // for no word.
    std::function<Result<std::unique_ptr<MailStore>>(std::unique_ptr<MailStore> store,
                                                     Clock& clock)>
        admit;

    // Gets what the opening of a store has to tell a person, a sentence each; empty: nobody does.
    std::function<void(const std::string& sentence)> tell;
};

// For "maildir:", "imap:" and "imaps:", and for server and alias. The clock outlives the stores.
profiles::StoreFactories FactoriesFor(const StorePlan& plan, Clock& clock);

}  // namespace trevix::assembly
