// The structure of a message as its server has parsed it (BODYSTRUCTURE, RFC 3501 section 7.4.2).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace trevix::imap {

struct BodyPart {
    using Parameters = std::vector<std::pair<std::string, std::string>>;

    struct Disposition {
        std::string type;
        Parameters parameters;
    };

    // Everything is as the server spells it: upper or lower case, encoded words and all.
    std::string type;     // "TEXT"; "MULTIPART" for a multipart; empty when the server gave NIL
    std::string subtype;  // "PLAIN"
    Parameters parameters;
    std::optional<std::string> id;
    std::optional<std::string> description;
    std::string encoding;          // "BASE64"; empty for a multipart or when the server gave NIL
    std::uint64_t size_bytes = 0;  // in its transfer encoding; 0 for a multipart
    std::optional<std::uint64_t> lines;
    std::optional<Disposition> disposition;
    std::vector<std::string> languages;
    std::optional<std::string> location;

    // Whether the server gave the fields after the basic ones; without them, nothing is known of
    // disposition, languages and location, and nothing of a multipart's parameters.
    bool has_extension = false;

    // What BODY[...] takes for the content, and with ".MIME" after it for the header: "1", "2.3".
    // Empty for a multipart that is a message's body itself, which has no number of its own: its
    // header is the message's.
    std::string section;

    // The parts of a multipart; the one body of an attached message that its server has opened.
    std::vector<BodyPart> children;

    bool is_multipart() const;       // by its type, in any case of letters
    std::size_t held_bytes() const;  // about so much memory do it and its parts take

    bool is_message() const;  // message/rfc822 or message/global, with its body in `children`
};

}  // namespace trevix::imap
