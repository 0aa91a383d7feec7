// What messages look like: body, attachments, names, classes, content IDs, people.

#include <sys/stat.h>
#include <unistd.h>

#include "platform/mime/attachment_name.h"
#include "platform/mime/html_body.h"
#include "unit/mime/mime_world.h"

namespace trevix::mime {
namespace {

std::string Wrap(const std::string& type, const std::string& parts,
                 const std::string& fields = "") {
    return fields + "Subject: x\nMIME-Version: 1.0\nContent-Type: multipart/" + type +
           "; boundary=b\n\n" + parts + "--b--\n";
}

std::string Part(const std::string& type, const std::string& rest = "",
                 const std::string& content = "content") {
    return "--b\nContent-Type: " + type + "\n" + rest + "\n" + content + "\n";
}

std::string Inner(const std::string& type, const std::string& parts) {
    std::string inner = parts;
    for (std::size_t at = inner.find("--b\n"); at != std::string::npos;
         at = inner.find("--b\n", at + 5)) {
        inner.replace(at, 4, "--i\n");
    }
    return "--b\nContent-Type: multipart/" + type + "; boundary=i\n\n" + inner + "--i--\n";
}

struct ShapeCase {
    const char* name;
    std::string bytes;
    std::vector<std::string> attachments;
};

std::string CaseName(const testing::TestParamInfo<ShapeCase>& row) {
    return row.param.name;
}

class AttachmentList : public testing::TestWithParam<ShapeCase> {};

TEST_P(AttachmentList, HasTheAttachmentsAndNothingElse) {
    World world;
    auto message = world.Open(GetParam().bytes);
    std::vector<std::string> names;
    for (int i = 1; i <= CountOf(*message); ++i) {
        names.push_back(ItemOf(*message, i)->Name().value());
    }
    EXPECT_EQ(names, GetParam().attachments);
    EXPECT_EQ(std::get<bool>(message->Field(kTagHasAttachments).value()),
              !GetParam().attachments.empty());

    auto inbox = world.session->GetDefaultFolder(kInboxFolder).value();
    auto messages = inbox->MessageList().value();
    ASSERT_TRUE(messages->AddFilter(kTagHasAttachments, true).ok());
    EXPECT_EQ(messages->Count().value(), GetParam().attachments.empty() ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(
    All, AttachmentList,
    testing::Values(
        ShapeCase{"PlainMail", "Subject: x\n\nbody\n", {}},
        ShapeCase{
            "OneTextWithAName", "Subject: x\nContent-Type: text/plain; name=a.txt\n\nbody", {}},
        ShapeCase{"OneTextThatIsAttached",
                  "Subject: x\nContent-Disposition: attachment; filename=a.txt\n\nbody",
                  {"a.txt"}},
        ShapeCase{"OnePdf", "Subject: x\nContent-Type: application/pdf\n\nbody", {"ATT00001.pdf"}},
        ShapeCase{"OneCard", "Subject: x\nContent-Type: text/vcard; name=me.vcf\n\nx", {"me.vcf"}},
        ShapeCase{
            "Alternative",
            Wrap("alternative", Part("text/plain") + Part("text/html") + Part("text/x-amp-html")),
            {}},
        ShapeCase{
            "AlternativeWithCalendar",
            Wrap("alternative", Part("text/plain") + Part("text/html") + Part("text/calendar")),
            {}},
        ShapeCase{"PictureInAlternative",
                  Wrap("alternative", Part("text/plain") + Part("image/png")),
                  {"ATT00001.png"}},
        ShapeCase{"RelatedInAlternative",
                  Wrap("alternative",
                       Part("text/plain") +
                           Inner("related", Part("text/html") + Part("image/gif; name=p.gif"))),
                  {"p.gif"}},
        ShapeCase{"TextsInTwoMixedAlternatives",
                  Wrap("alternative", Inner("mixed", Part("text/plain")) + Part("text/html")),
                  {}},
        ShapeCase{
            "Footer", Wrap("mixed", Part("text/plain") + Part("text/plain")), {"ATT00001.txt"}},
        ShapeCase{
            "CutByApple",
            Wrap("mixed", Part("text/plain") + Part("image/png; name=a.png") + Part("text/plain"),
                 "X-Mailer: Apple Mail (2.3)\n"),
            {"a.png"}},
        ShapeCase{"NamedTextOfApple",
                  Wrap("mixed", Part("text/plain") + Part("text/plain; name=a.txt"),
                       "X-Mailer: iPad Mail\n"),
                  {"a.txt"}},
        ShapeCase{
            "UnknownDisposition",
            Wrap("mixed", Part("text/plain") + Part("text/plain", "Content-Disposition: foo\n")),
            {"ATT00001.txt"}},
        ShapeCase{
            "AttachedFirst",
            Wrap("mixed", Part("text/plain", "Content-Disposition: attachment; filename=a\n") +
                              Part("text/html")),
            {"a"}},
        ShapeCase{"AttachedContainer",
                  Wrap("mixed", Part("text/plain") +
                                    "--b\nContent-Type: multipart/mixed; boundary=i\n"
                                    "Content-Disposition: attachment\n\n--i\n"
                                    "Content-Type: text/html; name=a.html\n\nx\n--i--\n"),
                  {"a.html"}},
        ShapeCase{
            "AttachedMessage",
            Wrap("mixed", Part("text/plain") + Part("message/rfc822", "", "Subject: in/side\n\nx")),
            {"side.eml"}},
        ShapeCase{"Digest",
                  Wrap("digest", "--b\n\nSubject: one\n\nx\n--b\n\nSubject: two\n\ny\n"),
                  {"one.eml", "two.eml"}},
        ShapeCase{"Report",
                  Wrap("report; report-type=delivery-status", Part("text/plain") +
                                                                  Part("message/delivery-status") +
                                                                  Part("text/rfc822-headers")),
                  {"ATT00001.txt"}},
        ShapeCase{"Signed",
                  Wrap("signed", Part("text/plain") + Part("application/pgp-signature")),
                  {"smime.p7m"}},
        ShapeCase{"SignedBelowAList",
                  Wrap("mixed", Inner("signed", Part("text/plain") +
                                                    Part("application/pgp-signature; name=s.asc"))),
                  {"s.asc"}},
        ShapeCase{"Opaque",
                  "Subject: x\nContent-Type: application/pkcs7-mime; name=smime.p7m\n\nx",
                  {"smime.p7m"}},
        ShapeCase{"Appledouble",
                  Wrap("mixed", Part("text/plain") +
                                    Inner("appledouble", Part("application/applefile") +
                                                             Part("image/jpeg; name=a.jpg"))),
                  {"a.jpg"}},
        ShapeCase{"Uuencoded", "Subject: x\n\ntext\nbegin 644 a.txt\n#86)C\n`\nend\n", {}},
        ShapeCase{"FtpBody",
                  Wrap("mixed", Part("text/plain") +
                                    Part("message/external-body; access-type=anon-ftp; site=s; "
                                         "name=f.txt")),
                  {"f.txt.url"}},
        ShapeCase{"EmptyUnnamedText",
                  Wrap("mixed", Part("text/plain") + "--b\nContent-Type: text/plain\n\n\n"),
                  {}},
        ShapeCase{"NoBoundary", "Content-Type: multipart/mixed\n\n--b\n\nx\n--b--\n", {}}),
    CaseName);

struct NameCase {
    const char* name;
    std::string fields;
    std::string expected;
};

std::string NameCaseName(const testing::TestParamInfo<NameCase>& row) {
    return row.param.name;
}

class AttachmentNames : public testing::TestWithParam<NameCase> {};

TEST_P(AttachmentNames, AreFoundDecodedAndSafe) {
    World world;
    auto message = world.Open(
        Wrap("mixed", Part("text/plain") + "--b\n" + GetParam().fields + "\n\ncontent\n"));
    EXPECT_EQ(ItemOf(*message, 1)->Name().value(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    All, AttachmentNames,
    testing::Values(
        NameCase{"FilenameBeforeName",
                 "Content-Type: a/b; name=n.x\nContent-Disposition: attachment; filename=f.x",
                 "f.x"},
        NameCase{"EmptyFilename",
                 "Content-Type: a/b; name=n.x\nContent-Disposition: attachment; filename=\"\"",
                 "n.x"},
        NameCase{"Description", "Content-Type: a/b\nContent-Description: my file.x", "my file.x"},
        NameCase{"None", "Content-Type: a/b", "ATT00001.dat"},
        NameCase{"Extended", "Content-Type: a/b; name*=iso-8859-1'de'%FCber.x",
                 "\xC3\xBC"
                 "ber.x"},
        NameCase{"Continued",
                 "Content-Type: a/b\nContent-Disposition: attachment; filename*1=b.x;\n"
                 " filename*0*=utf-8''%C3%A4",
                 "\xC3\xA4"
                 "b.x"},
        NameCase{"ExtendedWins",
                 "Content-Type: a/b\nContent-Disposition: attachment; filename=\"_.x\"; "
                 "filename*=utf-8''%C3%A4.x",
                 "\xC3\xA4.x"},
        NameCase{"EncodedWord", "Content-Type: a/b; name=\"=?utf-8?B?w6QueA==?=\"", "\xC3\xA4.x"},
        NameCase{"RawUtf8", "Content-Type: a/b; name=\"\xC3\xA4.x\"", "\xC3\xA4.x"},
        NameCase{"RawWindows1252", "Content-Type: a/b; name=\"\xE4\x80.x\"",
                 "\xC3\xA4\xE2\x82\xAC.x"},
        NameCase{"Folders", "Content-Type: a/b; name=\"../../etc/passwd\"", "passwd"},
        NameCase{"Backslashes", "Content-Type: a/b; name*=utf-8''C%3A%5Ctemp%5Ca.x", "a.x"},
        NameCase{"DotDot", "Content-Type: a/b; name=\"..\"", "ATT00001.dat"},
        NameCase{"IllegalCharacters", "Content-Type: a/b; name=\"a:b<c>d|e?f*g.x\"",
                 "a_b_c_d_e_f_g.x"},
        NameCase{"QuotesAndNul", "Content-Type: a/b; name*=utf-8''a%22b%00c%0D%0Ad.x", "a_bcd.x"}),
    NameCaseName);

TEST(SafeAttachmentName, CutsAtTwoHundredFiftyFiveUnitsAndKeepsTheExtension) {
    const std::string name = SafeAttachmentName(std::string(300, 'a') + ".docx");
    EXPECT_EQ(name.size(), 255U);
    EXPECT_TRUE(name.ends_with("a.docx"));
    std::string wide;
    for (int i = 0; i < 200; ++i)
        wide += "\xF0\x9F\x98\x80";
    EXPECT_EQ(SafeAttachmentName(wide + ".x").size(), 126U * 4 + 2);
}

TEST(ShortNameOf, MakesNamesOfEightAndThree) {
    EXPECT_EQ(ShortNameOf("budget.xls"), "BUDGET.XLS");
    EXPECT_EQ(ShortNameOf("Quarterly figures.xls"), "QUARTE~1.XLS");
    EXPECT_EQ(ShortNameOf("archive.tar.gz"), "ARCHIV~1.GZ");
    EXPECT_EQ(ShortNameOf("README"), "README");
    EXPECT_EQ(ShortNameOf("page.html"), "PAGE~1.HTM");
    EXPECT_EQ(ExtensionOf("archive.tar.gz"), ".gz");
    EXPECT_EQ(ExtensionOf("README"), "");
}

struct ClassCase {
    const char* name;
    std::string bytes;
    const char* expected;
};

std::string ClassCaseName(const testing::TestParamInfo<ClassCase>& row) {
    return row.param.name;
}

class MessageClass : public testing::TestWithParam<ClassCase> {};

TEST_P(MessageClass, FollowsFromTheStructure) {
    World world;
    auto message = world.Open(GetParam().bytes);
    EXPECT_EQ(std::get<std::string>(message->Field(kTagMessageClass).value()), GetParam().expected);
}

std::string Calendar(const std::string& lines, const std::string& type = "text/calendar") {
    return Wrap("alternative",
                Part("text/plain") + Part(type, "", "BEGIN:VCALENDAR\n" + lines + "END:VCALENDAR"));
}

std::string Delivery(const std::string& actions) {
    return Wrap("report; report-type=delivery-status",
                Part("text/plain") + Part("message/delivery-status", "", actions));
}

INSTANTIATE_TEST_SUITE_P(
    All, MessageClass,
    testing::Values(
        ClassCase{"Plain", "Subject: x\n\nbody", "IPM.Note"},
        ClassCase{"Mixed", TwoFiles(), "IPM.Note"},
        ClassCase{"Tnef", Wrap("mixed", Part("text/plain") + Part("application/ms-tnef")),
                  "IPM.Note"},
        ClassCase{"Signed",
                  Wrap("signed; protocol=\"application/pgp-signature\"", Part("text/plain")),
                  "IPM.Note.SMIME.MultipartSigned"},
        ClassCase{"Pkcs7", "Content-Type: application/x-pkcs7-mime\n\nx", "IPM.Note.SMIME"},
        ClassCase{"Pkcs7ByName", "Content-Type: application/octet-stream; name=a.p7m\n\nx",
                  "IPM.Note.SMIME"},
        ClassCase{"Certificates",
                  "Content-Type: application/pkcs7-mime; smime-type=certs-only; name=a.p7c\n\nx",
                  "IPM.Note"},
        ClassCase{"Encrypted", Wrap("encrypted", Part("application/pgp-encrypted")),
                  "IPM.Note.SMIME"},
        ClassCase{"Bounce", Delivery("Action: failed"), "REPORT.IPM.Note.NDR"},
        ClassCase{"WorstOfSeveral",
                  Delivery("Action: delivered\n\nAction: Delayed\n\nAction: relayed"),
                  "REPORT.IPM.Note.Delayed.DR"},
        ClassCase{"Delivered", Delivery("Action: delivered"), "REPORT.IPM.Note.DR"},
        ClassCase{"Expanded", Delivery("Action: expanded"), "REPORT.IPM.Note.Expanded.DR"},
        ClassCase{"Relayed", Delivery("Action: relayed"), "REPORT.IPM.Note.Relayed.DR"},
        ClassCase{
            "Read",
            Wrap("report", Part("text/plain") +
                               Part("message/disposition-notification", "",
                                    "Disposition: manual-action/MDN-sent-manually; displayed")),
            "REPORT.IPM.Note.IPNRN"},
        ClassCase{"Unread",
                  Wrap("report",
                       Part("message/disposition-notification", "", "Disposition: a/b; deleted")),
                  "REPORT.IPM.Note.IPNNRN"},
        ClassCase{"MeetingRequest", Calendar("METHOD:REQUEST\n"), "IPM.Schedule.Meeting.Request"},
        ClassCase{"MeetingCanceled", Calendar("METHOD:CANCEL\n"), "IPM.Schedule.Meeting.Canceled"},
        ClassCase{"MeetingAccepted",
                  Calendar("METHOD:REPLY\nATTENDEE;PARTSTAT=ACC\n EPTED:mailto:x\n"),
                  "IPM.Schedule.Meeting.Resp.Pos"},
        ClassCase{"MeetingDeclined", Calendar("METHOD:REPLY\nATTENDEE;PARTSTAT=DECLINED:x\n"),
                  "IPM.Schedule.Meeting.Resp.Neg"},
        ClassCase{"MeetingTentative", Calendar("METHOD:REPLY\nATTENDEE;PARTSTAT=TENTATIVE:x\n"),
                  "IPM.Schedule.Meeting.Resp.Tent"},
        ClassCase{"MeetingCounter", Calendar("METHOD:COUNTER\n"), "IPM.Schedule.Meeting.Resp.Tent"},
        ClassCase{"MethodOfTheType", Calendar("", "text/calendar; method=request"),
                  "IPM.Schedule.Meeting.Request"},
        ClassCase{"PublishedBySomebody", Calendar("METHOD:PUBLISH\nORGANIZER:mailto:a\n"),
                  "IPM.Schedule.Meeting.Request"},
        ClassCase{"WholeCalendar", "Content-Type: text/calendar\n\nBEGIN:VCALENDAR\n",
                  "IPM.Appointment"},
        ClassCase{"AttachedCalendar",
                  Wrap("mixed", Part("text/plain") + Part("text/calendar", "", "METHOD:REQUEST")),
                  "IPM.Note"},
        ClassCase{"Fax", "Content-Class: fax\n\nx", "IPM.Note.Microsoft.Fax"},
        ClassCase{"Voice", "Content-Class: Voice\n\nx", "IPM.Note.Microsoft.Voicemail.UM"},
        ClassCase{"Custom", "Content-Class: urn:content-class:custom.Order.\n\nx",
                  "IPM.Note.Custom.Order"},
        ClassCase{"Form", "Content-Class: InfoPathForm.a\n\nx", "IPM.InfoPathForm.a"},
        ClassCase{"OrdinaryContentClass", "Content-Class: urn:content-classes:message\n\nx",
                  "IPM.Note"},
        ClassCase{"Card", "Content-Type: text/vcard\n\nx", "IPM.Note"},
        ClassCase{"News", "Newsgroups: comp.mail\n\nx", "IPM.Post"},
        ClassCase{"NewsAndMail", "Newsgroups: comp.mail\nTo: a@b\n\nx", "IPM.Note"},
        ClassCase{"Broken", "Content-Type: multipart/mixed\n\nx", "IPM.Note"}),
    ClassCaseName);

bool HasContentId(Message& message, int position) {
    const auto id = ItemOf(message, position)->Field(kTagAttachmentContentId);
    EXPECT_TRUE(id.ok() || id.error().kind == ErrorKind::kNotFound);
    return id.ok();
}

TEST(AttachmentContentId, IsGivenOnlyToWhatIsEmbedded) {
    World world;
    auto plain = world.Open(Wrap(
        "mixed", Part("text/html", "", "<p>hello") + Part("image/png", "Content-ID: <a@b>\n")));
    EXPECT_FALSE(HasContentId(*plain, 1));

    auto shown = world.Open(Wrap("mixed", Part("text/html", "", "<img src=\"CID:a%40b\">") +
                                              Part("image/png", "Content-ID: <a@b>\n")));
    EXPECT_TRUE(HasContentId(*shown, 1));
    EXPECT_EQ(std::get<std::string>(ItemOf(*shown, 1)->Field(kTagAttachmentContentId).value()),
              "a@b");

    auto related = world.Open(Wrap(
        "related", Part("text/html") + Part("image/png", "Content-ID: <a@b>\n") +
                       Part("image/png", "Content-ID: <c@d>\nContent-Disposition: attachment\n") +
                       Part("image/png")));
    EXPECT_TRUE(HasContentId(*related, 1));
    EXPECT_FALSE(HasContentId(*related, 2));
    EXPECT_FALSE(HasContentId(*related, 3));
}

TEST(AttachmentContentId, IsNoMatchForALongerOne) {
    const std::set<std::string> ids = ReferencedContentIds(
        "<img src='cid:a@bc'> <img src=CID:A%40b> style=\"background:url(cid:x&amp;y)\"");
    EXPECT_TRUE(ids.contains("a@bc"));
    EXPECT_TRUE(ids.contains("A@b"));
    EXPECT_TRUE(ids.contains("x&y"));
    EXPECT_FALSE(ids.contains("a@b"));
}

TEST(AttachmentSize, IsTheExactNumberOfDecodedBytes) {
    World world;
    auto message = world.Open(TwoFiles());
    EXPECT_EQ(ItemOf(*message, 1)->Size().value(), 3);
    EXPECT_EQ(std::get<std::int32_t>(ItemOf(*message, 2)->Field(kTagAttachmentSize).value()), 4);
}

TEST(AttachmentData, IsRefusedWhenItCannotBeDecodedExactly) {
    World world;
    for (const char* rest :
         {"Content-Transfer-Encoding: x-uuencode\n", "Content-Transfer-Encoding: base64\n"}) {
        auto message =
            world.Open(Wrap("mixed", Part("text/plain") + Part("a/b", rest, "not base64!")));
        auto attachment = ItemOf(*message, 1);
        EXPECT_EQ(attachment->Field(kTagAttachmentData).error().number,
                  static_cast<int>(kCorruptData));
        EXPECT_EQ(attachment->Size().error().kind, ErrorKind::kMalformed);
        const std::string path = testing::TempDir() + "trevix-mime-undecodable";
        EXPECT_EQ(attachment->WriteToFile(path).error().kind, ErrorKind::kMalformed);
        EXPECT_NE(::access(path.c_str(), F_OK), 0);
    }
}

TEST(AttachmentData, IsNotHandedOutFromProtectedMail) {
    World world;
    auto message =
        world.Open(Wrap("signed", Part("text/plain") + Part("application/pgp-signature")));
    EXPECT_EQ(ItemOf(*message, 1)->Field(kTagAttachmentData).error().number,
              static_cast<int>(kNoAccess));
    EXPECT_GT(ItemOf(*message, 1)->Size().value(), 0);
}

TEST(AttachmentMethod, TellsKindsApart) {
    World world;
    auto message = world.Open(Wrap(
        "mixed",
        Part("text/plain") + Part("a/b") + Part("message/rfc822", "", "Subject: s\n\nx") +
            Part("application/ms-tnef") +
            Part("message/external-body; access-type=url; url=\"http://x/y\"") +
            Part("message/external-body; access-type=anon-ftp; site=s; directory=d; name=n; "
                 "mode=image") +
            Part("message/external-body; access-type=mail-server", "", "Content-Type: a/b\n\n")));
    const std::vector<std::pair<int, int>> expected = {{1, 1}, {4, 5}, {3, 6},
                                                       {2, 4}, {1, 1}, {1, 1}};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        auto item = ItemOf(*message, static_cast<int>(i) + 1);
        EXPECT_EQ(item->Type().value(), expected[i].first) << i;
        EXPECT_EQ(std::get<std::int32_t>(item->Field(kTagAttachmentMethod).value()),
                  expected[i].second);
    }
    EXPECT_EQ(DataOf(*ItemOf(*message, 2)), "Subject: s\n\nx");
    EXPECT_EQ(ItemOf(*message, 4)->Field(kTagAttachmentData).error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(DataOf(*ItemOf(*message, 5)), "[InternetShortcut]\r\nURL=ftp://s/d/n;type=i\r\n");
    EXPECT_TRUE(DataOf(*ItemOf(*message, 6)).starts_with("Content-Type: message/external-body"));
}

TEST(AttachmentMethod, TellsAFileOnAServerFromAnyOtherLink) {
    World world;
    const std::string link = "message/external-body; access-type=";
    auto message = world.Open(
        Wrap("mixed", Part("text/plain") + Part(link + "local-file; name=\"/srv/plan.pdf\"") +
                          Part(link + "local-file; name=\"//server/share/plan.pdf\"") +
                          Part(link + "LOCAL-FILE; name=\"\\\\\\\\server\\\\plan.pdf\"") +
                          Part(link + "local-file; site=\"server.example\"; name=\"/plan.pdf\"") +
                          Part(link + "url; url=\"http://x//y\"")));
    const std::vector<std::int32_t> expected = {4, 2, 2, 2, 4};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        auto item = ItemOf(*message, static_cast<int>(i) + 1);
        EXPECT_EQ(std::get<std::int32_t>(item->Field(kTagAttachmentMethod).value()), expected[i])
            << i;
        EXPECT_EQ(item->Type().value(), 2);
        EXPECT_EQ(item->Size().value(), 0);
    }
    EXPECT_EQ(std::get<std::string>(ItemOf(*message, 3)->Field(kTagDisplayName).value()),
              "plan.pdf");
}

TEST(AttachmentFields, GiveDateShortNameAndDescription) {
    World world;
    auto message = world.Open(Wrap(
        "mixed",
        Part("text/plain") +
            Part("a/b",
                 "Content-Description: Figures\nContent-Disposition: attachment; "
                 "filename=\"Quarterly figures.xls\"; "
                 "modification-date=\"Fri, 05 Oct 2007 12:00:00 -0600\"\n") +
            Part("a/b",
                 "Content-Disposition: attachment; filename=b.x; modification-date=\"soon\"\n")));
    auto first = ItemOf(*message, 1);
    EXPECT_EQ(std::get<Date>(first->Field(kTagLastModification).value()).days, 39360.75);
    EXPECT_EQ(std::get<std::string>(first->Field(kTagAttachmentShortName).value()), "QUARTE~1.XLS");
    EXPECT_EQ(std::get<std::string>(first->Field(kTagDisplayName).value()), "Figures");
    EXPECT_EQ(first->Field(kTagAttachmentRendering).error().kind, ErrorKind::kNotFound);
    auto second = ItemOf(*message, 2);
    EXPECT_EQ(second->Field(kTagLastModification).error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(std::get<std::string>(second->Field(kTagDisplayName).value()), "b.x");
}

TEST(AttachmentWriteToFile, MakesAPrivateNewFileOnly) {
    World world;
    auto message = world.Open(TwoFiles());
    const std::string path = testing::TempDir() + "trevix-mime-write";
    ::unlink(path.c_str());
    ASSERT_TRUE(ItemOf(*message, 2)->WriteToFile(path).ok());
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_EQ(status.st_size, 4);

    EXPECT_EQ(ItemOf(*message, 1)->WriteToFile(path).error().number, kFileExists);
    EXPECT_EQ(ItemOf(*message, 1)->WriteToFile("/nonexistent/x").error().kind,
              ErrorKind::kNotFound);
    const std::string link = path + "-link";
    ::unlink(link.c_str());
    ASSERT_EQ(::symlink((path + "-target").c_str(), link.c_str()), 0);
    EXPECT_FALSE(ItemOf(*message, 1)->WriteToFile(link).ok());
    ::unlink(link.c_str());
    ::unlink(path.c_str());
}

TEST(FormattedBody, WrapsTheBodyTagOfHtml) {
    World world;
    auto message = world.Open(
        "Subject: x\nContent-Type: text/html; charset=iso-8859-1\n"
        "Content-Transfer-Encoding: quoted-printable\n\n"
        "<!-- <body bad> --><HTML><BODY\n BGCOLOR=3D#ffffff background=3D'cid:pa%70er&amp;1@host'\n"
        " title=3D\"=FC>{x}\">\n");
    const std::string rtf = message->FormattedBody().value();
    EXPECT_NE(rtf.find("\\fromhtml1"), std::string::npos);
    EXPECT_NE(rtf.find("{\\*\\htmltag50 <body bgcolor=\"#ffffff\" background=\"cid:paper&1@host\" "
                       "title=\"\\u252?&gt;\\{x\\}\">}"),
              std::string::npos)
        << rtf;
    EXPECT_EQ(world.Open("Subject: x\n\nplain")->FormattedBody().value(), "");
    EXPECT_EQ(world
                  .Open(Wrap("mixed", Part("text/plain") +
                                          Part("text/html", "Content-Disposition: attachment\n")))
                  ->FormattedBody()
                  .value(),
              "");
}

TEST(FormattedBody, ReadsAnUnknownCharset) {
    World world;
    auto message = world.Open(
        "Content-Type: text/html; charset=x-none\n\n<body background=\"cid:\xC3\xA4@h\">");
    EXPECT_NE(message->FormattedBody().value().find("cid:\\u228?@h"), std::string::npos);
}

TEST(MessagePeople, ComeFromTheHeader) {
    World world;
    auto message = world.Open(
        "From: =?utf-8?Q?J=C3=BCrgen?= <Juergen@X.org>, second@x.org\n"
        "To: \"A; B\" <a@x.org>, Team: c@x.org, D <d@x.org>;\nCc: e@x.org\n"
        "Bcc: undisclosed-recipients:;\nSubject:  =?utf-8?Q?a?=\n =?utf-8?Q?b?= \n\nx");
    EXPECT_EQ(message->Subject().value(), "ab");
    EXPECT_EQ(message->SenderName().value(), "J\xC3\xBCrgen");
    EXPECT_EQ(message->Sender().value()->Address().value(), "Juergen@X.org");
    EXPECT_EQ(std::get<std::string>(message->Field(kTagSenderAddressType).value()), "SMTP");
    EXPECT_EQ(std::get<std::string>(message->Sender().value()->Field(kTagSmtpAddress).value()),
              "Juergen@X.org");
    std::vector<std::string> people;
    const auto recipients = message->Recipients();
    for (const auto& person : recipients.value()) {
        people.push_back(std::to_string(person->Type()) + person->Name().value() + "<" +
                         person->Address().value() + ">");
    }
    EXPECT_EQ(people, (std::vector<std::string>{"1A, B<a@x.org>", "1c@x.org<c@x.org>",
                                                "1D<d@x.org>", "2e@x.org<e@x.org>"}));
    EXPECT_EQ(std::get<std::string>(message->Field(kTagDisplayTo).value()), "A, B; c@x.org; D");
    EXPECT_EQ(std::get<std::string>(message->Field(kTagDisplayCc).value()), "e@x.org");
}

TEST(MessagePeople, MayBeMissing) {
    World world;
    auto message = world.Open("Subject: x\n\nx");
    EXPECT_EQ(message->Sender().value(), nullptr);
    EXPECT_EQ(message->SenderName().value(), "");
    EXPECT_EQ(message->Field(kTagSenderAddressType).error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(std::get<std::string>(message->Field(kTagDisplayTo).value()), "");
}

TEST(MessagePeople, PreferTheSender) {
    World world;
    auto message = world.Open("From: a@x.org\nSender: b@x.org\n\nx");
    EXPECT_EQ(message->SenderName().value(), "b@x.org");
}

}  // namespace
}  // namespace trevix::mime
