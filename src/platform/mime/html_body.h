// What is needed of an HTML body: which embedded parts it shows, and its opening tag as RTF.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "platform/blob.h"
#include "platform/mime/part_tree.h"

namespace trevix::mime {

// The part's text as UTF-8, its first 4 MiB; empty when it cannot be decoded.
std::string ReadTextPart(const Blob& message, const MimePart& part);

// The content IDs of all "cid:" addresses in the HTML, both as written and with escapes resolved.
std::set<std::string> ReferencedContentIds(std::string_view html);

// RTF that wraps the HTML: its opening tags, each whole in one group, attribute names in lower case
// and values in double quotes. The text itself is left out; nobody reads it in this form.
std::string WrapHtmlInRtf(std::string_view html);

}  // namespace trevix::mime
