#include "platform/mime/header_text.h"

#include <gmime/gmime.h>

#include <algorithm>
#include <memory>

#include "platform/mime/ascii.h"

namespace trevix::mime {
namespace {

// A header value can be megabytes of rubbish; what is shown of it need not be.
constexpr std::size_t kLongestText = std::size_t{64} * 1024;

struct FreeText {
    void operator()(char* text) const { g_free(text); }
};
using OwnedText = std::unique_ptr<char, FreeText>;

struct DropObject {
    template <typename T>
    void operator()(T* object) const {
        g_object_unref(object);
    }
};

struct FreeOptions {
    void operator()(GMimeParserOptions* options) const { g_mime_parser_options_free(options); }
};
using OwnedOptions = std::unique_ptr<GMimeParserOptions, FreeOptions>;

OwnedOptions MakeOptions() {
    StartGmime();
    OwnedOptions options(g_mime_parser_options_new());
    const char* charsets[] = {"utf-8", "windows-1252", nullptr};
    g_mime_parser_options_set_fallback_charsets(options.get(), charsets);
    return options;
}

// GMime wants C strings: a NUL would cut the value there.
std::string WithoutNul(std::string_view raw) {
    std::string text(raw);
    std::erase(text, '\0');
    return text;
}

std::string Valid(const char* text) {
    if (text == nullptr) return {};
    if (g_utf8_validate(text, -1, nullptr) != FALSE) return text;
    const OwnedText valid(g_utf8_make_valid(text, -1));
    return valid.get();
}

void CollectMailboxes(InternetAddressList* list, int depth, std::vector<Mailbox>* result) {
    const int count = list == nullptr || depth > 8 ? 0 : internet_address_list_length(list);
    for (int i = 0; i < count; ++i) {
        InternetAddress* entry = internet_address_list_get_address(list, i);
        if (INTERNET_ADDRESS_IS_GROUP(entry)) {
            CollectMailboxes(internet_address_group_get_members(INTERNET_ADDRESS_GROUP(entry)),
                             depth + 1, result);
        } else if (INTERNET_ADDRESS_IS_MAILBOX(entry)) {
            Mailbox mailbox;
            mailbox.address =
                Valid(internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(entry)));
            mailbox.name = Valid(internet_address_get_name(entry));
            if (mailbox.name.empty()) mailbox.name = mailbox.address;
            result->push_back(std::move(mailbox));
        }
    }
}

std::optional<std::string> Convert(std::string_view bytes, const char* charset) {
    gsize written = 0;
    GError* error = nullptr;
    const OwnedText text(g_convert(bytes.data(), static_cast<gssize>(bytes.size()), "UTF-8",
                                   charset, nullptr, &written, &error));
    if (error != nullptr) g_error_free(error);
    if (text == nullptr) return std::nullopt;
    return std::string(text.get(), written);
}

}  // namespace

void StartGmime() {
    static const bool started = [] {
        g_mime_init();
        return true;
    }();
    static_cast<void>(started);
}

std::string DecodeHeaderText(std::string_view raw) {
    const std::string text = WithoutNul(TrimBlanks(raw.substr(0, kLongestText)));
    const OwnedOptions options = MakeOptions();
    const OwnedText unfolded(g_mime_utils_header_unfold(text.c_str()));
    const OwnedText decoded(g_mime_utils_header_decode_text(options.get(), unfolded.get()));
    return std::string(TrimBlanks(Valid(decoded.get())));
}

// A name is often given twice: plainly for old readers, with "_" for what they cannot show, and in
// full with its charset. The latter is the one with characters beyond ASCII, wherever it stands.
std::vector<Mailbox> ParseAddresses(std::string_view raw) {
    std::vector<Mailbox> result;
    const std::string text = WithoutNul(raw);
    const OwnedOptions options = MakeOptions();
    const std::unique_ptr<InternetAddressList, DropObject> list(
        internet_address_list_parse(options.get(), text.c_str()));
    CollectMailboxes(list.get(), 0, &result);
    return result;
}

std::optional<std::int64_t> ParseMailDate(std::string_view raw) {
    StartGmime();
    const std::string text = WithoutNul(TrimBlanks(raw));
    if (text.empty()) return std::nullopt;
    GDateTime* date = g_mime_utils_header_decode_date(text.c_str());
    if (date == nullptr) return std::nullopt;
    const gint64 seconds = g_date_time_to_unix(date);
    g_date_time_unref(date);
    constexpr std::int64_t kYear9999 = 253402300799;
    if (seconds < -kYear9999 / 40 || seconds > kYear9999 / 40) return std::nullopt;
    return seconds * 1'000'000'000;
}

std::string ToUtf8(std::string_view bytes, const std::string& charset) {
    StartGmime();
    if (bytes.empty()) return {};
    if (!charset.empty()) {
        const char* iconv_name = g_mime_charset_iconv_name(charset.c_str());
        if (auto text = Convert(bytes, iconv_name); text.has_value()) return *text;
    }
    if (IsValidUtf8(bytes)) return std::string(bytes);
    if (auto text = Convert(bytes, "CP1252"); text.has_value()) return *text;
    // Windows-1252 leaves five bytes undefined; ISO 8859-1 leaves none.
    return Convert(bytes, "ISO-8859-1").value_or(std::string());
}

bool IsValidUtf8(std::string_view text) {
    return g_utf8_validate_len(text.data(), text.size(), nullptr) != FALSE;
}

}  // namespace trevix::mime
