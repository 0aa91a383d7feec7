#include "platform/imap/server_address.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

#include "platform/errors.h"

namespace trevix::imap {
namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEF";

Error Malformed(const std::string& what) {
    return {ErrorKind::kMalformed, static_cast<int>(kLogonFailed), what};
}

char LowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return LowerCase(c); });
    return lower;
}

bool IsAlphanumeric(char c) {
    return (c >= '0' && c <= '9') || (LowerCase(c) >= 'a' && LowerCase(c) <= 'z');
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    const char lower = LowerCase(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// What a URL's user may hold as it is.
bool IsPlainInUser(char c) {
    return IsAlphanumeric(c) ||
           std::string_view("-._~!$'*+,&=()").find(c) != std::string_view::npos;
}

std::string Encoded(const std::string& user) {
    std::string text;
    for (const char c : user) {
        if (IsPlainInUser(c)) {
            text += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        text += {'%', kHexDigits[byte >> 4U], kHexDigits[byte & 15U]};
    }
    return text;
}

Result<std::string> Decoded(std::string_view text) {
    std::string user;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            user += text[i];
            continue;
        }
        const int high = i + 1 < text.size() ? HexValue(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? HexValue(text[i + 2]) : -1;
        if (high < 0 || low < 0) {
            return Malformed("a \"%\" without two hexadecimal digits; write \"%25\" for \"%\"");
        }
        user += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return user;
}

bool IsUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t more = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
        if ((lead >= 0x80 && lead < 0xC2) || lead > 0xF4 || i + more >= text.size()) return false;
        for (std::size_t k = 1; k <= more; ++k) {
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0U) != 0x80U) return false;
        }
        i += more + 1;
    }
    return true;
}

// Names end up in lines of the protocol, of logs and of files.
Status CheckUser(std::string_view user) {
    if (user.empty()) return Malformed("no user; write \"imaps://user@host\"");
    const bool has_controls = std::any_of(user.begin(), user.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
    });
    if (has_controls || !IsUtf8(user)) return Malformed("the user's name is not plain text");
    return {};
}

// The forms that a resolver takes; what it makes of them is its business.
Status CheckHost(std::string_view host, bool in_brackets) {
    if (host.empty()) return Malformed("no host");
    const bool is_fit = std::all_of(host.begin(), host.end(), [in_brackets](char c) {
        if (in_brackets) return HexValue(c) >= 0 || c == ':' || c == '.';
        return IsAlphanumeric(c) || c == '-' || c == '.' || c == '_';
    });
    if (is_fit && (!in_brackets || host.find(':') != std::string_view::npos)) return {};
    return Malformed("\"" + std::string(host) + "\" is no host; write a name (in its ASCII form, " +
                     "\"xn--...\"), an IPv4 address, or an IPv6 address in brackets");
}

Result<std::uint16_t> ParsePort(std::string_view text) {
    std::uint16_t port = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (failure != std::errc() || end != text.data() + text.size() || port == 0) {
        return Malformed("\"" + std::string(text) + "\" is no port; write 1 to 65535");
    }
    return port;
}

// "host", "host:port", "[v6]", "[v6]:port".
Status ParseHostAndPort(std::string_view text, ServerAddress& address) {
    const bool in_brackets = text.starts_with('[');
    std::string_view host = text.substr(0, text.find(':'));
    std::string_view rest = text.substr(host.size());
    if (in_brackets) {
        const std::size_t end = text.find(']');
        if (end == std::string_view::npos) return Malformed("a \"[\" without its \"]\"");
        host = text.substr(1, end - 1);
        rest = text.substr(end + 1);
    } else if (rest.find(':', 1) != std::string_view::npos) {
        return Malformed("an IPv6 address stands in brackets, as \"[::1]\"");
    }
    TREVIX_RETURN_IF_ERROR(CheckHost(host, in_brackets));
    address.host = LowerCase(host);
    if (rest.empty()) return {};
    if (rest.front() != ':') return Malformed("expected \":port\" behind the host");
    const auto port = ParsePort(rest.substr(1));
    if (!port.ok()) return port.error();
    address.port = port.value();
    return {};
}

struct Parts {
    std::optional<Security> security;
    std::optional<std::string_view> user;  // as it stands there
    std::string_view server;
};

// Cuts an address up. What stands behind the host has to be nothing, or a "/" alone.
Result<Parts> Cut(std::string_view text) {
    Parts parts;
    const std::size_t colon = text.find("://");
    if (colon != std::string_view::npos) {
        const std::string scheme = LowerCase(text.substr(0, colon));
        if (scheme != "imap" && scheme != "imaps") {
            return Malformed("\"" + scheme + "\" is no mail server; write \"imaps://\"");
        }
        parts.security = scheme == "imaps" ? Security::kTls : Security::kStartTls;
        text.remove_prefix(colon + 3);
    }
    const std::size_t slash = text.find_first_of("/?#");
    if (slash != std::string_view::npos) {
        if (text.substr(slash) != "/") {
            return Malformed("an address names a whole mailbox; leave out what follows the host");
        }
        text.remove_suffix(1);
    }
    const std::size_t at = text.rfind('@');
    if (at == std::string_view::npos) {
        parts.server = text;
        return parts;
    }
    parts.user = text.substr(0, at);
    parts.server = text.substr(at + 1);
    return parts;
}

}  // namespace

Result<ServerAddress> ParseAddress(const std::string& address) {
    const auto parts = Cut(address);
    if (!parts.ok()) return parts.error();
    if (!parts.value().security.has_value()) {
        return Malformed("no mail server; write \"imaps://user@host\"");
    }
    if (!parts.value().user.has_value()) return CheckUser({}).error();
    // A password is not to be repeated in a complaint; nor is what looks like one kept.
    if (parts.value().user->find_first_of(":;") != std::string_view::npos) {
        return Malformed(
            "a password or a log-in method does not belong into an address; see "
            "trevix-servers(5)");
    }
    ServerAddress parsed;
    parsed.security = parts.value().security;
    auto user = Decoded(*parts.value().user);
    if (!user.ok()) return user.error();
    TREVIX_RETURN_IF_ERROR(CheckUser(user.value()));
    parsed.user = std::move(user).value();
    TREVIX_RETURN_IF_ERROR(ParseHostAndPort(parts.value().server, parsed));
    return parsed;
}

Result<ServerAddress> ParseServerAndUser(const std::string& server, const std::string& user) {
    const auto parts = Cut(server);
    if (!parts.ok()) return parts.error();
    if (parts.value().user.has_value()) {
        return Malformed("a server is named without a user; the user is the alias");
    }
    ServerAddress parsed;
    parsed.security = parts.value().security;
    TREVIX_RETURN_IF_ERROR(CheckUser(user));
    parsed.user = user;
    TREVIX_RETURN_IF_ERROR(ParseHostAndPort(parts.value().server, parsed));
    return parsed;
}

std::string AddressText(const ServerAddress& address, Security security) {
    const bool is_tls = address.security.value_or(security) == Security::kTls;
    std::string text = is_tls ? "imaps://" : "imap://";
    text += Encoded(address.user) + "@";
    const bool is_v6 = address.host.find(':') != std::string::npos;
    text += is_v6 ? "[" + address.host + "]" : address.host;
    if (address.port != 0 &&
        address.port != DefaultPort(is_tls ? Security::kTls : Security::kStartTls)) {
        text += ":" + std::to_string(address.port);
    }
    return text;
}

std::uint16_t DefaultPort(Security security) {
    constexpr std::uint16_t kTlsPort = 993;
    constexpr std::uint16_t kPort = 143;
    return security == Security::kTls ? kTlsPort : kPort;
}

}  // namespace trevix::imap
