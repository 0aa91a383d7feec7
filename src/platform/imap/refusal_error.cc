#include "platform/imap/refusal_error.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "platform/errors.h"
#include "platform/utf8.h"

namespace trevix::imap {
namespace {

struct CodeMeaning {
    std::string_view code;
    std::uint32_t error;
};

// RFC 5530, and those of the extensions that are used.
constexpr std::array kMeanings = {
    CodeMeaning{"ALREADYEXISTS", kCollision},
    CodeMeaning{"AUTHENTICATIONFAILED", kLogonFailed},
    CodeMeaning{"AUTHORIZATIONFAILED", kLogonFailed},
    CodeMeaning{"CANNOT", kNoSupport},
    CodeMeaning{"CONTACTADMIN", kNoAccess},
    CodeMeaning{"CORRUPTION", kCorruptData},
    CodeMeaning{"EXPIRED", kLogonFailed},
    CodeMeaning{"EXPUNGEISSUED", kObjectDeleted},
    CodeMeaning{"INUSE", kStoreBusy},
    CodeMeaning{"LIMIT", kNotEnoughMemory},
    CodeMeaning{"NONEXISTENT", kNotFound},
    CodeMeaning{"NOPERM", kNoAccess},
    CodeMeaning{"OVERQUOTA", kNotEnoughDisk},
    CodeMeaning{"PRIVACYREQUIRED", kNoAccess},
    CodeMeaning{"READ-ONLY", kNoAccess},
    CodeMeaning{"TOOBIG", kNotEnoughDisk},
    CodeMeaning{"TRYCREATE", kNotFound},
    CodeMeaning{"UNAVAILABLE", kStoreBusy},
    CodeMeaning{"UNKNOWN-CTE", kNoSupport},
};

std::uint32_t MeaningOf(const Condition& answer, std::uint32_t otherwise) {
    const auto* const found =
        std::find_if(kMeanings.begin(), kMeanings.end(),
                     [&answer](const CodeMeaning& row) { return row.code == answer.code; });
    return found == kMeanings.end() ? otherwise : found->error;
}

std::string Words(const std::string& host, const Condition& answer) {
    std::string words = host + ": ";
    if (!answer.code.empty()) words += "[" + CleanWords(answer.code) + "] ";
    const std::string text = CleanWords(answer.text);
    return words + (text.empty() ? "the server refused" : text);
}

}  // namespace

std::string CleanWords(std::string_view words) {
    constexpr std::size_t kMostBytes = 300;
    std::string clean;
    while (!words.empty() && clean.size() < kMostBytes) {
        const char32_t c = TakeUtf8(words);
        const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0);
        PutUtf8(clean, control ? U' ' : c);
    }
    return clean;
}

Error RefusalError(const std::string& host, const Condition& answer) {
    return MessagingError(MeaningOf(answer, kCallFailed), Words(host, answer));
}

Error LoginError(const std::string& host, const Condition& answer) {
    return MessagingError(MeaningOf(answer, kLogonFailed), Words(host, answer));
}

}  // namespace trevix::imap
