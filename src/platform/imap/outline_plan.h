// What is fetched of a message whose structure is known, for what it is wanted.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/imap/body_structure.h"
#include "platform/imap/fetch.h"
#include "platform/mail_store.h"

namespace trevix::imap {

// The fields of a message's header that its readers look at.
extern const char kHeaderSection[];

struct OutlinePlan {
    // The structure does not tell for sure what a reader of the message would see: the whole
    // message is fetched.
    bool whole = false;

    // Of a part whose content is not wanted but its size, only the end is asked for: servers that
    // offer to tell the size (BINARY) have to decode the part for it, and some get it wrong.
    std::vector<SectionRequest> sections;
    std::uint64_t bytes = 0;  // about so many will come
};

// `header` is the message's, as fetched by kHeaderSection; `size_bytes` the message's own.
OutlinePlan PlanOutline(const BodyPart& structure, const std::string& header,
                        std::uint64_t size_bytes, MailUse use);

// Whether a reader who takes a message apart by its boundary lines is sure to see these parts.
bool IsTrusted(const BodyPart& structure, const std::string& header);

// Small helpers over structures and header blocks, shared with the skeleton's making.
std::string LowerText(std::string_view text);
bool IsPartType(const BodyPart& part, std::string_view type, std::string_view subtype);
std::string ParameterOf(const BodyPart::Parameters& parameters, std::string_view name);

// Content-Type of a header block, its word only and in lower case: "multipart/mixed". Empty when
// there is none.
std::string TypeWordIn(std::string_view header);

// The boundary that a header block gives, in its two usual forms; empty when there is none of them.
std::string BoundaryIn(std::string_view header);

}  // namespace trevix::imap
