// The words of a command, before they are sent.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/blob.h"
#include "platform/imap/wiped_text.h"

namespace trevix::imap {

class Command {
 public:
    // Either words as they are, or what is sent as a literal.
    struct Piece {
        std::string words;
        bool literal = false;
        std::optional<Blob> content;  // of a literal, instead of the words
    };

    explicit Command(std::string verb) { pieces_.push_back({std::move(verb), false, {}}); }
    Command(Command&&) = default;
    Command& operator=(Command&&) = delete;
    ~Command() {
        for (Piece& piece : pieces_) {
            Wipe(piece.words);
        }
    }

    // A blank, and the words.
    Command& Words(std::string_view words);

    // A blank, and any text: quoted, or a literal when it cannot be.
    Command& Text(std::string_view text);

    // A blank, and content as a literal.
    Command& Content(Blob content);

    const std::vector<Piece>& pieces() const { return pieces_; }
    std::size_t bytes() const;  // content not counted

    // Whether it can be sent: no words with line ends or other control characters, no zero byte.
    bool valid() const;

 private:
    std::string& Tail();

    std::vector<Piece> pieces_;
};

}  // namespace trevix::imap
