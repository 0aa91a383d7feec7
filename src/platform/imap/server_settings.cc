#include "platform/imap/server_settings.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/errors.h"
#include "platform/imap/server_sections.h"
#include "platform/unique_descriptor.h"

namespace trevix::imap {
namespace {

constexpr std::size_t kLongestFile = std::size_t{1} << 20U;

Error Denied(const std::string& what) {
    return {ErrorKind::kDenied, static_cast<int>(kLogonFailed), what};
}

// The file's text, in a place that never grows and is wiped, and who may read it.
struct FileText {
    FileText() = default;
    FileText(FileText&&) = default;
    FileText& operator=(FileText&&) = delete;
    FileText(const FileText&) = delete;
    FileText& operator=(const FileText&) = delete;
    ~FileText() { Secret::Wipe(text); }

    std::string text;
    bool is_private = true;
};

// Fills `text`, which has room for more than the file is said to hold.
Status ReadInto(std::string& text, int descriptor, const std::string& path) {
    std::size_t used = 0;
    while (used < text.size()) {
        const ssize_t got = ::read(descriptor, text.data() + used, text.size() - used);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return Denied(path + ": " + std::strerror(errno));
        if (got == 0) {
            text.resize(used);
            return {};
        }
        used += static_cast<std::size_t>(got);
    }
    return MalformedAt(path, 1, "the file changes while it is read");
}

// A missing file is an empty one.
Result<FileText> ReadFile(const std::string& path) {
    const UniqueDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.valid() && (errno == ENOENT || errno == ENOTDIR)) return FileText();
    struct stat about {};
    if (!file.valid() || ::fstat(file.get(), &about) != 0) {
        return Denied(path + ": " + std::strerror(errno));
    }
    if (!S_ISREG(about.st_mode)) return Denied(path + ": not a file");
    if (about.st_uid != ::geteuid() && about.st_uid != 0) {
        return Denied(path + ": it belongs to somebody else; it must be yours");
    }
    if ((about.st_mode & 022) != 0) {
        return Denied(path + ": others may change it; make it yours alone with chmod 600");
    }
    const auto size = static_cast<std::size_t>(about.st_size);
    if (size > kLongestFile) return MalformedAt(path, 1, "the file is too large");
    FileText text;
    text.is_private = (about.st_mode & 044) == 0;
    text.text.resize(size + 1);
    TREVIX_RETURN_IF_ERROR(ReadInto(text.text, file.get(), path));
    return text;
}

// The words of a command line: parted by blanks, quoted by "..." and '...', "\" takes the next
// character as it is. Nothing when a quote does not end.
std::optional<std::vector<std::string>> SplitWords(std::string_view line) {
    std::vector<std::string> words;
    bool in_word = false;
    char quote = '\0';
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote == '\0' && (c == ' ' || c == '\t')) {
            in_word = false;
            continue;
        }
        if (!in_word) words.emplace_back();
        in_word = true;
        if (c == '\\' && quote != '\'') {
            if (++i == line.size()) return std::nullopt;
            words.back() += line[i];
        } else if (quote == '\0' && (c == '"' || c == '\'')) {
            quote = c;
        } else if (c == quote) {
            quote = '\0';
        } else {
            words.back() += c;
        }
    }
    return quote == '\0' ? std::optional(std::move(words)) : std::nullopt;
}

// "%u" and "%h" filled in, "%%" for "%". Nothing for another letter behind a "%".
std::optional<std::string> FilledIn(std::string_view form, const ServerAddress& address) {
    std::string text;
    for (std::size_t i = 0; i < form.size(); ++i) {
        if (form[i] != '%') {
            text += form[i];
            continue;
        }
        switch (++i < form.size() ? form[i] : '\0') {
            case 'u': text += address.user; break;
            case 'h': text += address.host; break;
            case '%': text += '%'; break;
            default: return std::nullopt;
        }
    }
    return text;
}

constexpr const char* kUnknownForm =
    "\"%\" stands in front of \"u\" (the user), \"h\" (the host) or another \"%\"";

// Picks what goes for one address out of the sections.
class Settling {
 public:
    Settling(const std::vector<ServerSection>& sections, const ServerAddress& address,
             const std::string& path)
        : address_(address), path_(path) {
        for (const ServerSection& section : sections) {
            if (section.host != address.host) continue;
            if (section.user.empty()) server_ = &section;
            if (section.user == address.user) user_ = &section;
        }
    }

    Result<ServerSettings> Settle() {
        TREVIX_RETURN_IF_ERROR(SettleConnection());
        TREVIX_RETURN_IF_ERROR(SettleSecret());
        TREVIX_RETURN_IF_ERROR(SettleLogin());
        settings_.user = address_.user;
        if (const SettingLine* hidden = Find("hidden_mailbox")) {
            settings_.hidden_mailbox = hidden->value;
        }
        ServerAddress whole = address_;
        whole.port = settings_.connection.port;
        settings_.address = AddressText(whole, settings_.connection.security);
        return std::move(settings_);
    }

 private:
    const SettingLine* Find(std::string_view entry) const {
        const SettingLine* said = user_ == nullptr ? nullptr : user_->Find(entry);
        return said != nullptr || server_ == nullptr ? said : server_->Find(entry);
    }

    Error Malformed(const SettingLine& said, const std::string& what) const {
        return MalformedAt(path_, said.line, what);
    }

    // Plain text is what nobody gets by leaving something out: it is said in the file, and an
    // "imaps://" address is never talked out of its TLS.
    Status SettleConnection() {
        ConnectSettings& connection = settings_.connection;
        connection.host = address_.host;
        connection.security = address_.security.value_or(Security::kTls);
        if (const SettingLine* said = Find("security")) {
            if (said->value == "plain" && address_.security != Security::kTls) {
                connection.security = Security::kPlainLoopbackOnly;
            } else if (said->value == "starttls" && !address_.security.has_value()) {
                connection.security = Security::kStartTls;
            }
        }
        connection.port = DefaultPort(connection.security);
        if (const SettingLine* said = Find("port")) {
            // The parser has seen that it is one.
            connection.port = static_cast<std::uint16_t>(std::stoi(said->value));
        }
        if (address_.port != 0) connection.port = address_.port;
        if (const SettingLine* said = Find("ca_file")) connection.ca_file = said->value;
        return {};
    }

    Status SettleSecret() {
        settings_.secret.said_at = path_;
        for (const ServerSection* section : {user_, server_}) {
            if (section == nullptr) continue;
            for (const auto& [entry, said] : section->entries) {
                if (!entry.starts_with("password")) continue;
                secret_section_ = section;
                return TakeSecret(entry, said);
            }
        }
        return {};
    }

    Status TakeSecret(const std::string& entry, const SettingLine& said) {
        SecretSource& source = settings_.secret;
        source.said_at = path_ + ":" + std::to_string(said.line);
        if (entry == "password_command") return TakeCommand(said);
        if (entry == "password") {
            source.kind = SecretSource::Kind::kText;
            source.text = std::make_shared<const Secret>(std::string(said.value));
            return {};
        }
        source.kind =
            entry == "password_file" ? SecretSource::Kind::kFile : SecretSource::Kind::kCredential;
        source.name = said.value;
        return {};
    }

    // The words are told apart before the names are filled in, so a name is never more than a part
    // of its word.
    Status TakeCommand(const SettingLine& said) {
        const auto words = SplitWords(said.value);
        if (!words) return Malformed(said, "a quote in the command does not end");
        settings_.secret.kind = SecretSource::Kind::kCommand;
        for (const std::string& word : *words) {
            auto filled = FilledIn(word, address_);
            if (!filled) return Malformed(said, kUnknownForm);
            if (word.starts_with("%u") && filled->starts_with('-')) {
                return Malformed(said, "the user \"" + address_.user +
                                           "\" would be taken for an option of the command");
            }
            settings_.secret.command.push_back(std::move(*filled));
        }
        return {};
    }

    // A password of the user's own section is the user's, unless that section says otherwise.
    const SettingLine* FindLogin() const {
        if (secret_section_ == user_ && user_ != nullptr) return user_->Find("login");
        return Find("login");
    }

    Status SettleLogin() {
        const SettingLine* auth = Find("auth");
        if (auth != nullptr && auth->value == "xoauth2") settings_.method = LoginMethod::kXoauth2;
        settings_.login = address_.user;
        const SettingLine* login = FindLogin();
        if (login == nullptr) return {};
        auto filled = FilledIn(login->value, address_);
        if (!filled) return Malformed(*login, kUnknownForm);
        settings_.login = std::move(*filled);
        // The form itself tells the server whose mailbox is meant.
        if (login->value.find("%u") != std::string::npos) return {};
        if (settings_.login == address_.user) return {};
        if (settings_.method == LoginMethod::kXoauth2) {
            return Malformed(*login, "a token is for one user; it cannot log in for another");
        }
        settings_.authorisation = address_.user;
        return {};
    }

    const ServerAddress& address_;
    const std::string& path_;
    const ServerSection* server_ = nullptr;
    const ServerSection* user_ = nullptr;
    const ServerSection* secret_section_ = nullptr;
    ServerSettings settings_;
};

bool HoldsPassword(const std::vector<ServerSection>& sections) {
    return std::any_of(sections.begin(), sections.end(), [](const ServerSection& section) {
        return section.Find("password") != nullptr;
    });
}

}  // namespace

Result<ServerSettings> ServerFile::For(const ServerAddress& address) const {
    const auto file = ReadFile(path_);
    if (!file.ok()) return file.error();
    const auto sections = ParseServerSections(file.value().text, path_);
    if (!sections.ok()) return sections.error();
    if (!file.value().is_private && HoldsPassword(sections.value())) {
        return Denied(path_ +
                      ": others may read the password in it; make it private with chmod "
                      "600");
    }
    return Settling(sections.value(), address, path_).Settle();
}

std::string ServerFilePath() {
    // A relative directory is not valid there and is ignored.
    const char* configured = std::getenv("XDG_CONFIG_HOME");
    if (configured != nullptr && configured[0] == '/') {
        return std::string(configured) + "/trevix/servers.conf";
    }
    std::string home;
    if (const char* named = std::getenv("HOME")) home = named;
    if (home.empty()) {
        const passwd* entry = ::getpwuid(::geteuid());
        if (entry != nullptr && entry->pw_dir != nullptr) home = entry->pw_dir;
    }
    return home + "/.config/trevix/servers.conf";
}

}  // namespace trevix::imap
