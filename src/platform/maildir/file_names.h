// The grammar of message file names in a Maildir: "<base>[,S=<n>][,W=<n>][,X=...][:2,<flags>]".
//
// The base is unique and identifies the content; the fields behind it are notes of mail programs
// (S: size, W: size with CRLF line ends, others: numbers of synchronizing tools), the suffix holds
// the flags and changes whenever a flag does.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace trevix::maildir {

// What identifies the content: the base. A name that consists of a suffix only is its own base.
std::string_view KeyOf(std::string_view name);

// ":2,<flags>", or empty.
std::string_view SuffixOf(std::string_view name);

// Whether the field `letter` ("S", "W") stands between base and suffix.
bool HasField(std::string_view name, char letter);

// The suffix for a file that has `current` when somebody changed another's from `from` to `to`:
// flags set there are set here, flags cleared there are cleared here.
std::string CarryFlags(std::string_view current, std::string_view from, std::string_view to);

// This machine's name, fit for a file name: "/", ":" and "," are escaped as usual in a Maildir.
std::string HostForNames();

// What makes a name of ours unique, and tells whose it is.
struct NameParts {
    std::int64_t unix_ns = 0;
    int process = 0;
    int counter = 0;
    std::string journal_id;
    std::string host;
};

// "<seconds>.M<microseconds>P<process>Q<counter>T<journal>.<host>"; the host is cut so that
// `room` more bytes fit into a file name.
std::string UniqueBase(const NameParts& parts, std::size_t room);

// The journal's ID in a name that one of our processes made; empty for any other name. A foreign
// name may look like one of ours.
std::string_view MakerOf(std::string_view name);

// Whether `name` is one that a process with this journal made.
bool IsMadeBy(std::string_view name, std::string_view journal_id);

}  // namespace trevix::maildir
