// Real mail on a real server: what a reader sees of an outline must be what he sees of the message.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/mime/message_shape.h"
#include "platform/mime/part_tree.h"
#include "support/shared_folder.h"
#include "unit/imap/store_world.h"

namespace trevix::imap {
namespace {

namespace fs = std::filesystem;

std::string WithCrlf(const std::string& bytes) {
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        if (bytes[at] == '\n' && (at == 0 || bytes[at - 1] != '\r')) text += '\r';
        if (bytes[at] != '\0') text += bytes[at];
    }
    return text;
}

// One line a part: what programs ask of it.
std::string Describe(const mime::MimePart& part, MailUse use) {
    // A server tells neither of a transfer encoding that it does not know nor of a multipart's
    // content ID; for a summary they do not matter.
    const bool summary = use == MailUse::kSummary;
    const int encoding = summary ? 0 : static_cast<int>(part.encoding);
    const std::string id = summary && part.IsMultipart() ? std::string() : part.content_id;
    std::string text = std::to_string(part.parent) + " " + part.type.word;
    for (const char* name : {"name", "smime-type", "start", "url", "access-type", "method"})
        text += " " + part.type.Parameter(name);
    return text + " [" + part.disposition.word + " " + part.disposition.Parameter("filename") +
           " " + part.disposition.Parameter("modification-date") + "] " + id + " " +
           std::to_string(encoding) + (part.content_begin == part.content_end ? " empty" : "");
}

// The content of a part of an outline.
std::string ContentOf(const MailOutline& outline, const mime::MimePart& part) {
    for (const MailOutline::Gap& gap : outline.gaps) {
        if (gap.offset != part.content_begin) continue;
        const auto bytes = gap.content.ToString();
        return bytes.ok() ? bytes.value() : bytes.error().description;
    }
    return {};
}

struct Counts {
    int outlined = 0;
    int whole = 0;
    int sizes = 0;
};

void Compare(const std::string& name, const std::string& message, const MailOutline& outline,
             MailUse use, Counts& counts) {
    SCOPED_TRACE(name);
    const Blob bytes = Blob::FromString(message);
    if (outline.exact) {
        ++counts.whole;
        EXPECT_EQ(outline.skeleton.ToString().value(), message);
        return;
    }
    ++counts.outlined;
    const auto full = mime::ReadPartTree(bytes);
    const auto seen = mime::ReadPartTree(outline.skeleton);
    ASSERT_TRUE(full.ok());
    ASSERT_TRUE(seen.ok());
    ASSERT_EQ(seen.value().parts.size(), full.value().parts.size());
    for (std::size_t at = 0; at < full.value().parts.size(); ++at) {
        const mime::MimePart& theirs = full.value().parts[at];
        const mime::MimePart& ours = seen.value().parts[at];
        EXPECT_EQ(Describe(ours, use), Describe(theirs, use));
        // Some servers see an attached message end one line later; a summary does not read it.
        const bool inexact = use == MailUse::kSummary && theirs.type.word.starts_with("message/");
        if (theirs.IsMultipart() || inexact) continue;
        const std::string content =
            message.substr(theirs.content_begin, theirs.content_end - theirs.content_begin);
        const std::string shown = ContentOf(outline, ours);
        EXPECT_TRUE(shown == content)
            << "part " << at << ", " << theirs.type.word << ": " << shown.size()
            << " bytes instead of " << content.size() << "; " << shown.substr(0, 100);
    }
    for (const MailOutline::Gap& gap : outline.gaps)
        counts.sizes += gap.decoded_bytes ? 1 : 0;
    const auto full_shape = mime::ShapeOf(full.value());
    const auto seen_shape = mime::ShapeOf(seen.value());
    EXPECT_EQ(seen_shape.body, full_shape.body);
    ASSERT_EQ(seen_shape.attachments.size(), full_shape.attachments.size());
    for (std::size_t at = 0; at < full_shape.attachments.size(); ++at) {
        EXPECT_EQ(seen_shape.attachments[at].name, full_shape.attachments[at].name);
        EXPECT_EQ(seen_shape.attachments[at].kind, full_shape.attachments[at].kind);
    }
}

void CompareCorpus(const std::string& kind, MailUse use) {
    const std::string folder = test::SharedFolder("corpus/mail");
    if (!fs::exists(folder)) GTEST_SKIP() << "the sample mail is not at hand";
    StoreWorld world(kind);
    TREVIX_NEEDS(world);
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() == ".eml") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    std::vector<std::string> names;
    for (const fs::path& path : files) {
        std::ifstream file(path, std::ios::binary);
        const std::string bytes(std::istreambuf_iterator<char>(file), {});
        AppendRequest request;
        request.mailbox = "INBOX";
        request.content = Blob::FromString(WithCrlf(bytes));
        // Some servers do not take every message; what they take counts.
        if (world.other->Append(request).ok()) names.push_back(path.filename().string());
    }

    const auto store = world.Open();
    const std::vector<MailEntry> entries = Listed(*store);
    ASSERT_EQ(entries.size(), names.size());
    const std::vector<SeenMail> mails = world.Mail();
    store->Expect("INBOX", entries, use);
    Counts counts;
    for (std::size_t at = 0; at < entries.size(); ++at) {
        const auto outline = store->Outline("INBOX", entries[at]);
        ASSERT_TRUE(outline.ok()) << names[at] << ": " << outline.error().description;
        Compare(names[at], mails[at].content, outline.value(), use, counts);
    }
    EXPECT_GT(counts.outlined, 350);
    std::printf("%s: %d in outline, %d whole, %d sizes\n", kind.c_str(), counts.outlined,
                counts.whole, counts.sizes);
}

TEST(OutlineOfRealMail, ShowsTheSamePartsForAnIndex) {
    CompareCorpus("dovecot", MailUse::kIndex);
}

TEST(OutlineOfRealMail, ShowsTheSamePartsForASummary) {
    CompareCorpus("dovecot", MailUse::kSummary);
}

TEST(OutlineOfRealMail, ShowsTheSamePartsOnAnotherServer) {
    CompareCorpus("cyrus", MailUse::kIndex);
}

}  // namespace
}  // namespace trevix::imap
