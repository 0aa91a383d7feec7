// Messages that live only as long as the session: the Outbox. Nothing made here reaches a store.
#pragma once

#include <map>
#include <string>

#include "platform/mail_store.h"

namespace trevix::mime {

class ScratchStore final : public HiddenMailStore {
 public:
    Result<std::vector<HiddenMail>> List() override;
    Result<HiddenMail> Read(const std::string& id) override;
    Status Write(HiddenMail& mail) override;
    Status Remove(const std::string& id) override;

 private:
    std::map<std::string, HiddenMail> mails_;
    std::uint64_t next_id_ = 1;
};

}  // namespace trevix::mime
