#include "platform/imap/refusal_error.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "platform/errors.h"

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
    for (const char c : words.substr(0, kMostBytes)) {
        const auto byte = static_cast<unsigned char>(c);
        clean += byte < 0x20 || byte == 0x7F ? ' ' : c;
    }
    // A character that the cut went through is left out.
    if (words.size() > kMostBytes) {
        while (!clean.empty() && (static_cast<unsigned char>(clean.back()) & 0xC0) == 0x80) {
            clean.pop_back();
        }
        if (!clean.empty() && static_cast<unsigned char>(clean.back()) >= 0x80) clean.pop_back();
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
