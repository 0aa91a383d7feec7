#include "platform/eventlog/event_entry.h"

#include <cstdint>

namespace trevix::eventlog {
namespace {

constexpr int kErrorType = 1;
constexpr int kWarningType = 2;
constexpr int kUserFacility = 1;
constexpr std::size_t kMaximumSyslogBytes = 2048;
constexpr std::size_t kMaximumJournalBytes = std::size_t{64} * 1024;

bool IsNameCharacter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

bool IsName(const std::string& text) {
    for (const char c : text) {
        if (!IsNameCharacter(c)) return false;
    }
    return !text.empty();
}

// Splits "Class::Procedure:message"; the message itself stays whole.
void ParseNames(const std::string& text, EventEntry& entry) {
    const std::size_t first = text.find("::");
    if (first == std::string::npos) return;
    const std::size_t second = text.find(':', first + 2);
    if (second == std::string::npos) return;
    const std::string class_name = text.substr(0, first);
    const std::string procedure = text.substr(first + 2, second - first - 2);
    if (!IsName(class_name) || !IsName(procedure)) return;
    entry.class_name = class_name;
    entry.procedure = procedure;
}

// At most `bytes`, not ending inside a UTF-8 character.
std::string Cut(const std::string& text, std::size_t bytes) {
    if (text.size() <= bytes) return text;
    while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xC0U) == 0x80U)
        --bytes;
    return text.substr(0, bytes);
}

std::string OneLine(std::string text) {
    for (char& c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) c = ' ';
    }
    return text;
}

// A value with line feeds needs the form with its length in front.
void AppendField(std::string& datagram, const std::string& name, const std::string& value) {
    if (value.find('\n') == std::string::npos) {
        datagram += name + "=" + value + "\n";
        return;
    }
    datagram += name + "\n";
    std::uint64_t length = value.size();
    for (int i = 0; i < 8; ++i, length >>= 8U)
        datagram += static_cast<char>(length & 0xFFU);
    datagram += value + "\n";
}

}  // namespace

EventEntry MakeEntry(const StringArray& strings, const std::string& source,
                     const std::string& second_text, int type) {
    EventEntry entry;
    entry.source = source;
    entry.type = type;
    for (std::size_t i = 0; i < strings.size(); ++i) {
        if (i > 0) entry.message += '\n';
        entry.message += strings[i];
    }
    if (!second_text.empty()) entry.message += "\n" + second_text;
    ParseNames(entry.message, entry);
    return entry;
}

int PriorityOf(int type) {
    if (type == kErrorType) return 3;
    return type == kWarningType ? 4 : 6;
}

std::string JournalDatagram(const EventEntry& entry) {
    std::string datagram;
    AppendField(datagram, "SYSLOG_IDENTIFIER", entry.source);
    AppendField(datagram, "PRIORITY", std::to_string(PriorityOf(entry.type)));
    AppendField(datagram, "TREVIX_EVENT_TYPE", std::to_string(entry.type));
    if (!entry.class_name.empty()) {
        AppendField(datagram, "TREVIX_CLASS", entry.class_name);
        AppendField(datagram, "TREVIX_PROCEDURE", entry.procedure);
    }
    AppendField(datagram, "MESSAGE", Cut(entry.message, kMaximumJournalBytes));
    return datagram;
}

std::string SyslogDatagram(const EventEntry& entry, int process) {
    const int priority = kUserFacility * 8 + PriorityOf(entry.type);
    const std::string text = "<" + std::to_string(priority) + ">" + entry.source + "[" +
                             std::to_string(process) + "]: " + entry.message;
    return Cut(OneLine(text), kMaximumSyslogBytes);
}

}  // namespace trevix::eventlog
