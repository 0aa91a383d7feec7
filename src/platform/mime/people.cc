#include "platform/mime/people.h"

#include <algorithm>

#include "platform/mime/ascii.h"
#include "platform/mime/header_block.h"
#include "platform/mime/header_text.h"
#include "platform/mime/row_set.h"

namespace trevix::mime {
namespace {

constexpr PropertyTag kTagAddressType = 0x3002001E;
constexpr PropertyTag kTagEmailAddress = 0x3003001E;

class Person final : public Recipient {
 public:
    Person(int type, Mailbox mailbox) : type_(type), mailbox_(std::move(mailbox)) {
        // Lists of names are joined by semicolons, so no name may hold one.
        std::replace(mailbox_.name.begin(), mailbox_.name.end(), ';', ',');
    }

    int Type() override { return type_; }
    Result<std::string> Name() override { return mailbox_.name; }
    Result<std::string> Address() override { return mailbox_.address; }
    Result<Variant> Field(PropertyTag tag) override {
        switch (CanonicalTag(tag)) {
            case kTagSmtpAddress:
            case kTagEmailAddress: return Variant(mailbox_.address);
            case kTagDisplayName: return Variant(mailbox_.name);
            case kTagAddressType: return Variant(std::string("SMTP"));
            default: return MessagingError(kNotFound);
        }
    }

 private:
    int type_;
    Mailbox mailbox_;
};

int RecipientType(std::string_view field) {
    if (EqualsIgnoringCase(field, "To")) return 1;
    if (EqualsIgnoringCase(field, "Cc")) return 2;
    if (EqualsIgnoringCase(field, "Bcc")) return 3;
    return 0;
}

}  // namespace

std::unique_ptr<Recipient> SenderOf(std::string_view header) {
    for (const char* field : {"Sender", "From"}) {
        std::vector<Mailbox> mailboxes = ParseAddresses(FirstField(header, field));
        if (!mailboxes.empty()) return std::make_unique<Person>(1, std::move(mailboxes.front()));
    }
    return nullptr;
}

std::vector<std::unique_ptr<Recipient>> RecipientsOf(std::string_view header) {
    std::vector<std::unique_ptr<Recipient>> people;
    VisitFields(header, [&people](const HeaderField& field) {
        const int type = RecipientType(field.name);
        if (type == 0) return true;
        for (Mailbox& mailbox : ParseAddresses(field.value)) {
            people.push_back(std::make_unique<Person>(type, std::move(mailbox)));
        }
        return true;
    });
    return people;
}

std::string DisplayNames(std::string_view header, std::string_view field) {
    std::string text;
    for (const std::string_view value : AllFields(header, field)) {
        for (Mailbox& mailbox : ParseAddresses(value)) {
            std::replace(mailbox.name.begin(), mailbox.name.end(), ';', ',');
            text += (text.empty() ? "" : "; ") + mailbox.name;
        }
    }
    return text;
}

}  // namespace trevix::mime
