#include "platform/imap/command.h"

#include <algorithm>

namespace trevix::imap {
namespace {

constexpr std::size_t kMostQuoted = 512;

bool IsPrintable(char c) {
    return c >= 0x20 && c < 0x7F;
}

// Words of a command may hold what the server itself has called a flag.
bool IsWordByte(char c) {
    return static_cast<unsigned char>(c) >= 0x20 && c != 0x7F;
}

}  // namespace

std::string& Command::Tail() {
    if (pieces_.back().literal) pieces_.emplace_back();
    return pieces_.back().words;
}

Command& Command::Words(std::string_view words) {
    std::string& tail = Tail();
    tail += ' ';
    tail += words;
    return *this;
}

Command& Command::Text(std::string_view text) {
    std::string& tail = Tail();
    tail += ' ';
    if (text.size() > kMostQuoted || !std::all_of(text.begin(), text.end(), IsPrintable)) {
        pieces_.push_back({std::string(text), true, {}});
        return *this;
    }
    // In one piece, so that growing leaves no copy of a password behind.
    tail.reserve(tail.size() + 2 * text.size() + 2);
    tail += '"';
    for (const char c : text) {
        if (c == '"' || c == '\\') tail += '\\';
        tail += c;
    }
    tail += '"';
    return *this;
}

Command& Command::Content(Blob content) {
    Tail() += ' ';
    pieces_.push_back({{}, true, std::move(content)});
    return *this;
}

std::size_t Command::bytes() const {
    std::size_t sum = 0;
    for (const Piece& piece : pieces_) {
        sum += piece.words.size() + 16;
    }
    return sum;
}

bool Command::valid() const {
    return std::all_of(pieces_.begin(), pieces_.end(), [](const Piece& piece) {
        if (piece.literal) return piece.words.find('\0') == std::string::npos;
        return std::all_of(piece.words.begin(), piece.words.end(), IsWordByte);
    });
}

}  // namespace trevix::imap
