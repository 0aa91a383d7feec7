#include "platform/mime/scratch_store.h"

#include <cstring>

namespace trevix::mime {

Result<std::vector<HiddenMail>> ScratchStore::List() {
    std::vector<HiddenMail> list;
    for (const auto& [id, mail] : mails_) {
        HiddenMail& entry = list.emplace_back(mail);
        entry.properties.clear();
        entry.attachments.clear();
    }
    return list;
}

Result<HiddenMail> ScratchStore::Read(const std::string& id) {
    const auto found = mails_.find(id);
    if (found == mails_.end()) return MessagingError(kNotFound);
    return found->second;
}

Status ScratchStore::Write(HiddenMail& mail) {
    if (mail.revision == 0) {
        mail.id.assign(16, '\0');
        std::memcpy(mail.id.data(), &next_id_, sizeof next_id_);
        ++next_id_;
    } else {
        const auto found = mails_.find(mail.id);
        if (found == mails_.end()) return MessagingError(kObjectDeleted);
        if (found->second.revision != mail.revision) return MessagingError(kObjectChanged);
    }
    ++mail.revision;
    mails_[mail.id] = mail;
    return {};
}

Status ScratchStore::Remove(const std::string& id) {
    if (mails_.erase(id) == 0) return MessagingError(kNotFound);
    return {};
}

}  // namespace trevix::mime
