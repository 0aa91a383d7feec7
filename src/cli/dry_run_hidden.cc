#include "cli/dry_run_hidden.h"

#include <algorithm>
#include <set>

#include "platform/errors.h"

namespace trevix::cli {
namespace {

constexpr const char* kLockStamp = "StartCI";

HiddenMail WithoutContent(HiddenMail mail) {
    mail.properties.clear();
    mail.attachments.clear();
    return mail;
}

std::string IdOf(int number) {
    constexpr std::size_t kDigits = 10;
    const std::string digits = std::to_string(number);
    return "dryrun" + std::string(kDigits - std::min(kDigits, digits.size()), '0') + digits;
}

}  // namespace

Result<std::vector<HiddenMail>> DryRunHidden::List() {
    auto stored = behind_.List();
    if (!stored.ok()) return stored;
    std::vector<HiddenMail> list;
    std::set<std::string> listed;
    for (HiddenMail& mail : stored.value()) {
        const auto change = changed_.find(mail.id);
        listed.insert(mail.id);
        if (change == changed_.end()) {
            list.push_back(std::move(mail));
        } else if (change->second) {
            list.push_back(WithoutContent(*change->second));
        }
    }
    for (const auto& [id, mail] : changed_) {
        if (mail && listed.count(id) == 0) list.push_back(WithoutContent(*mail));
    }
    return list;
}

Result<HiddenMail> DryRunHidden::Read(const std::string& id) {
    const auto change = changed_.find(id);
    if (change != changed_.end()) {
        if (!change->second) return MessagingError(kNotFound);
        return *change->second;
    }
    auto mail = behind_.Read(id);
    if (mail.ok() && lock_ == HeldLock::kConcealed) {
        // Without its start a run has not begun.
        auto& properties = mail.value().properties;
        properties.erase(std::remove_if(properties.begin(), properties.end(),
                                        [](const HiddenMail::Property& property) {
                                            return property.name == kLockStamp;
                                        }),
                         properties.end());
    }
    return mail;
}

Status DryRunHidden::Write(HiddenMail& mail) {
    if (mail.revision == 0) {
        mail.id = IdOf(++made_);
    } else {
        const auto stored = Read(mail.id);
        if (!stored.ok() && stored.error().kind == ErrorKind::kNotFound) {
            return MessagingError(kObjectDeleted);
        }
        if (!stored.ok()) return stored.error();
        if (stored.value().revision != mail.revision) return MessagingError(kObjectChanged);
    }
    ++mail.revision;
    mail.modified_ns = clock_.UnixNanoseconds();
    changed_[mail.id] = mail;
    return {};
}

Status DryRunHidden::Remove(const std::string& id) {
    const auto stored = Read(id);
    if (!stored.ok()) return stored.error();
    changed_[id] = std::nullopt;
    return {};
}

}  // namespace trevix::cli
