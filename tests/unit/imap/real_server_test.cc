// The client against real servers: what it asks for is what they understand.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/imap/client.h"
#include "platform/imap/mailbox_name.h"
#include "platform/modified_utf7.h"
#include "support/imap_server.h"

namespace trevix::imap {
namespace {

// Two parts, one of them too large for memory. ASCII: one of the servers, as it is installed, puts
// an X in the place of any other byte of a header.
std::string MailWithZip(std::size_t zip_bytes) {
    std::string zip;
    while (zip.size() < zip_bytes) {
        zip += "QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVphYmNkZWZnaGlqa2xtbm9wcXJzdHV2d3h5\r\n";
    }
    return "From: Ann <ann@example.org>\r\nSubject: a zip\r\nMIME-Version: 1.0\r\n"
           "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n--b\r\n\r\ntext\r\n--b\r\n"
           "Content-Type: application/zip; name=\"a.zip\"\r\n"
           "Content-Disposition: attachment; filename=\"a.zip\"\r\n"
           "Content-Transfer-Encoding: base64\r\n\r\n" +
           zip + "--b--\r\n";
}

class RealServer : public testing::TestWithParam<const char*> {
 protected:
    void SetUp() override {
        server_ = std::make_unique<test::ImapServer>(GetParam());
        if (server_->IsRunning()) return;
        ASSERT_FALSE(test::ImapServer::MustRun()) << server_->why();
        GTEST_SKIP() << server_->why();
    }

    ConnectSettings Settings() const {
        ConnectSettings settings;
        settings.host = "localhost";
        settings.port = static_cast<std::uint16_t>(server_->tls_port());
        settings.ca_file = server_->ca_file();
        return settings;
    }

    std::unique_ptr<Client> LoggedIn() const {
        auto client = Client::Connect(Settings());
        EXPECT_TRUE(client.ok()) << client.error().description;
        if (!client.ok()) return nullptr;
        const std::string password = server_->password("ann");
        Credentials credentials;
        credentials.user = "ann";
        credentials.secret = password;
        const Status status = client.value()->LogIn(credentials);
        EXPECT_TRUE(status.ok()) << status.error().description;
        return std::move(client).value();
    }

    static std::optional<AppendedMail> Put(Client& client, const std::string& content,
                                           const std::vector<std::string>& flags = {}) {
        AppendRequest request;
        request.mailbox = "INBOX";
        request.flags = flags;
        request.internal_date = DateTime{1612321506, 345};
        request.content = Blob::FromString(content);
        const auto appended = client.Append(request);
        EXPECT_TRUE(appended.ok()) << appended.error().description;
        return appended.ok() ? appended.value() : std::nullopt;
    }

    std::unique_ptr<test::ImapServer> server_;
};

TEST_P(RealServer, GivesBackAMailAsItWasSent) {
    const auto client = LoggedIn();
    ASSERT_NE(client, nullptr);
    const std::string mail = MailWithZip(200'000);
    const auto put = Put(*client, mail, {"\\Seen", "$Label1", "\\Recent"});
    ASSERT_TRUE(put);
    const auto selected = client->Select("inbox", SelectMode::kReadWrite);
    ASSERT_TRUE(selected.ok()) << selected.error().description;
    EXPECT_EQ(selected.value().uid_validity, put->uid_validity);
    EXPECT_EQ(selected.value().uid_next, put->uid + 1);
    EXPECT_FALSE(selected.value().read_only);

    FetchRequest request;
    request.uids = UidSet::Of(put->uid);
    request.flags = request.internal_date = request.size = request.body_structure = true;
    request.modseq = client->Offers("CONDSTORE");
    request.sections = {{"", {}},       {"2", {}}, {"2", {{72, 5}}},
                        {"2.MIME", {}}, {"7", {}}, {"HEADER.FIELDS (Subject From)", {}}};
    FetchedMessage message;
    int messages = 0;
    ASSERT_TRUE(client
                    ->Fetch(request,
                            [&](FetchedMessage&& fetched) -> Status {
                                message = std::move(fetched);
                                ++messages;
                                return {};
                            })
                    .ok());
    ASSERT_EQ(messages, 1);
    EXPECT_EQ(message.size_bytes, mail.size());
    EXPECT_EQ(message.internal_date, (DateTime{1612321506, message.internal_date->zone_minutes}));
    const auto& flags = *message.flags;
    EXPECT_EQ(std::count(flags.begin(), flags.end(), "\\Seen"), 1);
    EXPECT_EQ(std::count(flags.begin(), flags.end(), "$Label1"), 1);
    EXPECT_TRUE(message.Find("")->content->ToString().value() == mail);
    ASSERT_NE(message.structure, nullptr) << message.structure_problem;
    ASSERT_EQ(message.structure->children.size(), 2U);
    const BodyPart& zip = message.structure->children[1];
    EXPECT_EQ(zip.section, "2");
    ASSERT_TRUE(zip.disposition);
    EXPECT_EQ(message.Find("2")->content->size_bytes(), zip.size_bytes);
    EXPECT_NE(message.Find("2.MIME"), nullptr);
    EXPECT_NE(message.Find("HEADER.FIELDS (FROM SUBJECT)"), nullptr);
    // Servers say NIL, nothing, or an empty text for a part that there is not.
    const FetchedSection* const seventh = message.Find("7");
    EXPECT_TRUE(seventh == nullptr || !seventh->content || seventh->content->empty());
    bool range_came = false;
    for (const FetchedSection& section : message.sections) {
        if (section.section != "2" || section.offset != 72) continue;
        range_came = true;
        EXPECT_EQ(section.content->size_bytes(), 5U);
    }
    EXPECT_TRUE(range_came);
}

TEST_P(RealServer, AnswersManyFetchesSentAtOnce) {
    const auto client = LoggedIn();
    ASSERT_NE(client, nullptr);
    constexpr std::uint32_t kMails = 300;
    for (std::uint32_t i = 0; i < kMails; ++i) {
        ASSERT_TRUE(Put(*client, "Subject: " + std::to_string(i) + "\r\n\r\n" +
                                     std::string(i % 7 == 0 ? 100'000 : 10, 'x') + "\r\n"));
    }
    ASSERT_TRUE(client->Select("INBOX", SelectMode::kReadOnly).ok());
    const auto all = client->Search("ALL");
    ASSERT_TRUE(all.ok());
    ASSERT_EQ(all.value().count(), kMails);
    std::vector<FetchRequest> requests;
    for (const UidSet::Range& range : all.value().ranges()) {
        for (std::uint32_t uid = range.first; uid <= range.last; ++uid) {
            FetchRequest request;
            request.uids = UidSet::Of(uid);
            request.sections.push_back({});
            requests.push_back(request);
        }
    }
    std::set<std::uint32_t> seen;
    std::uint64_t bytes = 0;
    const Status status = client->Fetch(requests, [&](FetchedMessage&& message) -> Status {
        EXPECT_TRUE(seen.insert(message.uid).second);
        bytes += message.Find("")->content->size_bytes();
        return {};
    });
    ASSERT_TRUE(status.ok()) << status.error().description;
    EXPECT_EQ(seen.size(), kMails);
    EXPECT_GT(bytes, 4'000'000U);
}

TEST_P(RealServer, RemovesOneMessageOnly) {
    const auto client = LoggedIn();
    ASSERT_NE(client, nullptr);
    if (!client->Offers("UIDPLUS")) GTEST_SKIP() << "no UIDPLUS";
    const auto first = Put(*client, "Subject: 1\r\n\r\none\r\n", {"\\Deleted"});
    const auto second = Put(*client, "Subject: 2\r\n\r\ntwo\r\n");
    ASSERT_TRUE(first && second);
    ASSERT_TRUE(client->Select("INBOX", SelectMode::kReadWrite).ok());
    ASSERT_TRUE(client->Store(UidSet::Of(second->uid), FlagChange::kAdd, {"\\Deleted"}).ok());
    ASSERT_TRUE(client->Expunge(UidSet::Of(second->uid)).ok());
    EXPECT_EQ(client->Search("ALL").value(), UidSet::Of(first->uid));
    EXPECT_EQ(client->TakeNews().expunged, 1U);
}

TEST_P(RealServer, LeavesAloneWhatWasChangedMeanwhile) {
    const auto client = LoggedIn();
    ASSERT_NE(client, nullptr);
    if (!client->Offers("CONDSTORE")) GTEST_SKIP() << "no CONDSTORE";
    const auto put = Put(*client, "Subject: 1\r\n\r\none\r\n");
    ASSERT_TRUE(put);
    const auto selected = client->Select("INBOX", SelectMode::kReadWrite);
    ASSERT_TRUE(selected.ok());
    ASSERT_TRUE(selected.value().highest_modseq);
    const auto other = LoggedIn();
    ASSERT_TRUE(other->Select("INBOX", SelectMode::kReadWrite).ok());
    ASSERT_TRUE(other->Store(UidSet::Of(put->uid), FlagChange::kAdd, {"\\Flagged"}).ok());
    const auto left = client->Store(UidSet::Of(put->uid), FlagChange::kAdd, {"\\Deleted"},
                                    *selected.value().highest_modseq);
    ASSERT_TRUE(left.ok()) << left.error().description;
    EXPECT_EQ(left.value(), UidSet::Of(put->uid));
}

TEST_P(RealServer, TellsWhatIsGoneSince) {
    const auto client = LoggedIn();
    ASSERT_NE(client, nullptr);
    if (client->Enable({"QRESYNC"}).value().empty()) GTEST_SKIP() << "no QRESYNC";
    std::vector<std::uint32_t> uids;
    for (int i = 0; i < 4; ++i) {
        uids.push_back(Put(*client, "Subject: 1\r\n\r\none\r\n")->uid);
    }
    const auto before = client->Select("INBOX", SelectMode::kReadWrite);
    ASSERT_TRUE(before.ok());
    ASSERT_TRUE(client->Store(UidSet::Of(uids[1]), FlagChange::kAdd, {"\\Deleted"}).ok());
    ASSERT_TRUE(client->Expunge(UidSet::Of(uids[1])).ok());
    ASSERT_TRUE(client->Store(UidSet::Of(uids[2]), FlagChange::kAdd, {"\\Flagged"}).ok());
    EXPECT_EQ(client->TakeNews().vanished, UidSet::Of(uids[1]));
    FetchRequest request;
    request.uids = UidSet::From(1);
    request.flags = true;
    request.changed_since = before.value().highest_modseq;
    std::vector<std::uint32_t> changed;
    const auto gone = client->FetchChanges(request, [&changed](FetchedMessage&& message) -> Status {
        changed.push_back(message.uid);
        return {};
    });
    ASSERT_TRUE(gone.ok()) << gone.error().description;
    EXPECT_EQ(gone.value(), UidSet::Of(uids[1]));
    EXPECT_EQ(changed, std::vector<std::uint32_t>{uids[2]});
}

TEST_P(RealServer, ListsMailboxesWithNamesForPeople) {
    const auto client = LoggedIn();
    ASSERT_NE(client, nullptr);
    const std::string wire = EncodeModifiedUtf7("Entwürfe 台北");
    ASSERT_TRUE(client->Create(wire).ok()) << client->refusal().text;
    EXPECT_EQ(client->Create(wire).error().kind, ErrorKind::kExists);
    ListRequest request;
    request.with_status = true;
    const auto mailboxes = client->List(request);
    ASSERT_TRUE(mailboxes.ok()) << mailboxes.error().description;
    const auto found = std::find_if(mailboxes.value().begin(), mailboxes.value().end(),
                                    [&wire](const Mailbox& box) { return box.name == wire; });
    ASSERT_NE(found, mailboxes.value().end());
    EXPECT_EQ(DecodeMailboxName(found->name), "Entwürfe 台北");
    EXPECT_TRUE(found->selectable);
    EXPECT_FALSE(found->delimiter.empty());
    if (client->Offers("LIST-STATUS")) {
        ASSERT_TRUE(found->status);
        EXPECT_EQ(found->status->messages, 0U);
    }
    const auto statuses = client->StatusOf({"INBOX", "missing", wire});
    ASSERT_TRUE(statuses.ok());
    EXPECT_TRUE(statuses.value()[0].ok());
    EXPECT_FALSE(statuses.value()[1].ok());
    EXPECT_TRUE(statuses.value()[2].ok());
}

TEST_P(RealServer, UpgradesAPlainConnection) {
    ConnectSettings settings = Settings();
    settings.port = static_cast<std::uint16_t>(server_->port());
    settings.security = Security::kStartTls;
    auto client = Client::Connect(settings);
    ASSERT_TRUE(client.ok()) << client.error().description;
    settings.ca_file.clear();
    const auto refused = Client::Connect(settings);
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error().kind, ErrorKind::kDenied);
}

TEST_P(RealServer, KnowsAWrongPasswordAndAMasterUser) {
    auto client = Client::Connect(Settings());
    ASSERT_TRUE(client.ok());
    Credentials credentials;
    credentials.user = "ann";
    credentials.secret = "not it";
    const Status wrong = client.value()->LogIn(credentials);
    ASSERT_FALSE(wrong.ok());
    EXPECT_EQ(wrong.error().kind, ErrorKind::kDenied);
    const std::string password = server_->master_password();
    credentials.user = server_->master();
    credentials.authorisation = "ann";
    credentials.secret = password;
    client = Client::Connect(Settings());
    ASSERT_TRUE(client.ok());
    const Status right = client.value()->LogIn(credentials);
    EXPECT_TRUE(right.ok()) << right.error().description;
    EXPECT_TRUE(client.value()->LogOut().ok());
}

INSTANTIATE_TEST_SUITE_P(Installed, RealServer, testing::Values("dovecot", "cyrus"),
                         [](const testing::TestParamInfo<const char*>& row) {
                             return std::string(row.param);
                         });

}  // namespace
}  // namespace trevix::imap
