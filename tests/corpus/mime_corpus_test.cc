// Real messages: our attachments beside those that another implementation saw, and edits of every
// attachment that may be edited.

#include <glib.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "platform/mime/attachment_name.h"
#include "platform/mime/decoded_blob.h"
#include "platform/mime/message_shape.h"
#include "platform/mime/second_opinion.h"
#include "platform/mime/splice.h"
#include "support/shared_folder.h"

namespace trevix::mime {
namespace {

std::string CorpusFolder() {
    return test::SharedFolder("corpus/mail");
}

std::string Sha256(const std::string& bytes) {
    gchar* text = g_compute_checksum_for_data(
        G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
    std::string digest = text;
    g_free(text);
    return digest;
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

struct Seen {
    std::string name;  // empty when the other implementation saw none
    std::string type;
    std::string sha256;  // empty when it cannot be decoded
    AttachmentKind kind = AttachmentKind::kFile;
    bool attached = false;
    std::string encoding;
};

Blob ContentOf(const ReadMessage& message, const AttachmentPart& attachment) {
    const MimePart& part = message.tree.parts[static_cast<std::size_t>(attachment.part)];
    return message.bytes.Slice(part.content_begin, part.content_end - part.content_begin);
}

Result<ReadMessage> ReadMail(const std::string& bytes) {
    ReadMessage message;
    message.bytes = Blob::FromString(bytes);
    Result<PartTree> tree = ReadPartTree(message.bytes);
    if (!tree.ok()) return tree.error();
    message.tree = std::move(tree).value();
    message.shape = ShapeOf(message.tree);
    return message;
}

std::vector<Seen> Ours(const ReadMessage& message) {
    std::vector<Seen> list;
    for (const AttachmentPart& attachment : message.shape.attachments) {
        const MimePart& part = message.tree.parts[static_cast<std::size_t>(attachment.part)];
        Seen seen{attachment.name,
                  part.type.word,
                  {},
                  attachment.kind,
                  part.IsAttachmentByDisposition(),
                  part.encoding_name};
        const Result<Blob> data = DecodeBlob(ContentOf(message, attachment), part.encoding);
        if (data.ok()) seen.sha256 = Sha256(data.value().ToString().value());
        list.push_back(std::move(seen));
    }
    return list;
}

std::string Text(const nlohmann::json& row, const char* field) {
    return row[field].is_string() ? row[field].get<std::string>() : std::string();
}

std::vector<Seen> Theirs(const nlohmann::json& truth) {
    std::vector<Seen> list;
    for (const auto& part : truth["parts"]) {
        if (!part["is_attachment"].get<bool>() || !part["embedded_in"].is_null()) continue;
        list.push_back({Text(part, "filename"),
                        Text(part, "content_type"),
                        Text(part, "sha256"),
                        AttachmentKind::kFile,
                        true,
                        {}});
    }
    return list;
}

bool HasMadeUpName(const Seen& seen) {
    return seen.name.starts_with("ATT0") || seen.name == "winmail.dat";
}

// The same attachment, apart from what is ours to decide: names that are made up, come from the
// description, or are made safe; data that we refuse to decode when it is not exact.
bool IsSame(const Seen& ours, const Seen& theirs) {
    const bool same_data = ours.sha256.empty() || ours.sha256 == theirs.sha256;
    if (ours.type != theirs.type || !same_data) return false;
    const std::string safe = SafeAttachmentName(theirs.name);
    const bool made_up = safe.empty() && !ours.name.empty();
    return ours.name == theirs.name || ours.name == safe || made_up;
}

// Attachments of ours that the other implementation counts differently by its own rules.
bool IsOurRule(const Seen& ours) {
    // Attached messages are listed apart there, and are taken to pieces.
    if (ours.type.starts_with("message/")) return true;
    // A later text without a name (the footer of a mailing list) is one of ours, an unnamed body to
    // the other.
    return ours.type.starts_with("text/") && HasMadeUpName(ours) && !ours.attached;
}

// Single messages whose difference has its own reason.
const std::map<std::string, const char*>& Explained() {
    static const std::map<std::string, const char*> kTable = {
        {"deltachat-core-rust--attach_filename_combined.eml",
         "two names are given; the extended one wins here"},
        {"eml-codec--016.eml", "a raw Windows-1252 name is decoded here"},
        {"eml-codec--026.eml", "a raw Windows-1252 name is decoded here"},
        {"flanker--message-external-body.eml", "external bodies are shortcut files here"},
        {"mailcore2--45.eml", "external bodies are shortcut files here"},
        {"mailcore2--90.eml", "external bodies are shortcut files here"},
        {"groupoffice--ios-invite.eml", "a calendar beside the text is the same text here"},
        {"james-mime4j--multi-2evil.out.eml", "encoded words in parameters are decoded here"},
        {"mime-tools--multi-2evil.eml", "encoded words in parameters are decoded here"},
        {"mail-deliverystatus-bounceparser--spam-rejection42.eml",
         "an unknown message type has content here"},
        {"mime-tools--malformed-content-type-zip.eml", "a broken content type gives no name here"},
        {"mime-tools--multi-badnames.eml", "the first text is the body here, whatever its name"},
        {"mime-tools--x-gzip64.eml", "the first text is the body here, whatever its name"},
        {"roundcubemail--filename.eml", "the first text is the body here, whatever its name"},
        {"otobo--postmaster-test12.eml", "a name with characters that its charset lacks"},
        {"datasets-spam-assassin--00067.23813c5ac6ce66fd892ee5501fd5dbd2.eml",
         "a list footer is named by its description"},
        {"datasets-spam-assassin--01388.8bdd1ecbba6a6739b067fe88cd0fa281.eml",
         "a list footer is named by its description"},
    };
    return kTable;
}

TEST(MimeCorpus, AgreesWithAnotherImplementation) {
    const std::string folder = CorpusFolder();
    std::ifstream truth_file(folder + "/TRUTH.jsonl");
    if (!truth_file) GTEST_SKIP() << "no corpus at " << folder;

    int compared = 0;
    int attachments = 0;
    std::string line;
    while (std::getline(truth_file, line)) {
        const auto truth = nlohmann::json::parse(line);
        const std::string file = truth["file"];
        SCOPED_TRACE(file);
        const Result<ReadMessage> message = ReadMail(ReadFile(folder + "/" + file));
        if (!message.ok()) {
            EXPECT_EQ(file, "mailparse--nested.eml") << message.error().description;
            continue;
        }
        ++compared;
        // A protected message is one attachment as a whole here.
        if (IsProtectedAtTop(message.value().tree)) {
            EXPECT_EQ(message.value().shape.attachments.size(), 1U);
            continue;
        }
        std::vector<Seen> theirs = Theirs(truth);
        std::string difference;
        for (const Seen& ours : Ours(message.value())) {
            ++attachments;
            const auto same = std::find_if(theirs.begin(), theirs.end(),
                                           [&ours](const Seen& one) { return IsSame(ours, one); });
            if (same != theirs.end()) {
                theirs.erase(same);
            } else if (!IsOurRule(ours)) {
                difference += "\n  ours   " + ours.name + " " + ours.type + " " + ours.encoding;
            }
        }
        for (const Seen& left : theirs)
            difference += "\n  theirs " + left.name + " " + left.type;
        if (!difference.empty() && !Explained().contains(file)) ADD_FAILURE() << difference;
        if (difference.empty() && Explained().contains(file)) ADD_FAILURE() << "needs no excuse";
    }
    EXPECT_GE(compared, 400);
    EXPECT_GE(attachments, 300);
}

// Everything about the attachments that an edit must leave alone.
std::vector<std::string> Fingerprints(const ReadMessage& message) {
    std::vector<std::string> list;
    for (const AttachmentPart& attachment : message.shape.attachments) {
        const MimePart& part = message.tree.parts[static_cast<std::size_t>(attachment.part)];
        list.push_back(part.header + Sha256(ContentOf(message, attachment).ToString().value()));
    }
    return list;
}

TEST(MimeCorpus, EditsOfAnyAttachmentLeaveTheRestAsItWas) {
    const std::string folder = CorpusFolder();
    if (!std::filesystem::is_directory(folder)) GTEST_SKIP() << "no corpus at " << folder;

    HelperThread helper;
    int edited = 0;
    int refused = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".eml") continue;
        SCOPED_TRACE(entry.path().filename().string());
        const std::string text = ReadFile(entry.path().string());
        const Result<ReadMessage> read = ReadMail(text);
        if (!read.ok()) continue;
        const ReadMessage& message = read.value();
        const bool doubtful = !message.tree.doubt.empty() ||
                              !DisagreementOn(message.bytes, message.tree).value().empty();
        const std::vector<std::string> before = Fingerprints(message);
        for (std::size_t i = 0; i < message.shape.attachments.size(); ++i) {
            const AttachmentPart& attachment = message.shape.attachments[i];
            for (const bool deletion : {false, true}) {
                const std::string why = deletion ? DeleteRefusal(message.tree, attachment)
                                                 : ReplaceRefusal(message.tree, attachment);
                if (doubtful || !why.empty()) {
                    ++refused;
                    continue;
                }
                AttachmentEdit edit;
                edit.attachment = i;
                edit.deleted = deletion;
                if (!deletion) {
                    edit.data = Blob::FromString("PK\x03\x04 new data");
                    edit.name = "new name.zip";
                }
                const std::vector<Splice> splices = PlanSplices(message, {edit});
                const Blob composed = ApplySplices(message.bytes, splices);
                const Result<ReadMessage> now =
                    ReadBackEdited(message, {edit}, splices, composed, composed, helper);
                if (!now.ok()) {
                    // The proof may say no; it must have a reason that people understand.
                    EXPECT_EQ(now.error().kind, ErrorKind::kDenied) << now.error().description;
                    ++refused;
                    continue;
                }
                ++edited;
                std::vector<std::string> expected = before;
                std::vector<std::string> after = Fingerprints(now.value());
                expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(i));
                if (!deletion) after.erase(after.begin() + static_cast<std::ptrdiff_t>(i));
                EXPECT_EQ(after, expected);
                const std::string result = composed.ToString().value();
                EXPECT_EQ(result.substr(0, splices.front().begin),
                          text.substr(0, splices.front().begin));
                const std::string tail = text.substr(splices.back().end);
                EXPECT_TRUE(result.ends_with(tail));
            }
        }
    }
    EXPECT_GE(edited, 400);
    RecordProperty("edited", edited);
    RecordProperty("refused", refused);
    std::printf("edited %d, refused %d\n", edited, refused);
}

}  // namespace
}  // namespace trevix::mime
