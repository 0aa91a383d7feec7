#include "platform/associated/associated_store.h"

#include "unit/associated/associated_world.h"

namespace trevix::associated {
namespace {

TEST(AssociatedStoreRead, OfNothingIsEmptyAndMakesNoFile) {
    AssociatedWorld world;
    AssociatedStore store(world.root(), world.clock);

    EXPECT_TRUE(store.List().value().empty());
    EXPECT_EQ(store.Read("0123456789abcdef").error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(store.Remove("0123456789abcdef").error().kind, ErrorKind::kNotFound);

    EXPECT_EQ(world.FileCount(), 0U);
}

TEST(AssociatedStoreWrite, KeepsAllOfAMessage) {
    AssociatedWorld world;
    AssociatedStore store(world.root(), world.clock);
    HiddenMail mail = Sample();

    ASSERT_TRUE(store.Write(mail).ok());

    EXPECT_EQ(mail.id.size(), 16U);
    EXPECT_EQ(mail.revision, 1);
    EXPECT_EQ(mail.modified_ns, world.clock.now_ns);
    AssociatedStore other(world.root(), world.clock);
    const HiddenMail back = other.Read(mail.id).value();
    EXPECT_EQ(back.id, mail.id);
    EXPECT_EQ(back.message_class, "IPM.Sample");
    EXPECT_EQ(back.subject, "a sample");
    EXPECT_EQ(back.revision, 1);
    EXPECT_EQ(back.modified_ns, mail.modified_ns);
    ASSERT_EQ(back.properties.size(), 2U);
    EXPECT_EQ(back.properties[0].set, "set");
    EXPECT_EQ(back.properties[0].name, "Count");
    EXPECT_EQ(std::get<std::int32_t>(back.properties[0].value), 42);
    EXPECT_EQ(back.properties[1].name, "0E08000B");
    ASSERT_EQ(back.attachments.size(), 2U);
    EXPECT_EQ(back.attachments[0].name, "log.zip");
    EXPECT_EQ(back.attachments[0].content.ToString().value(), std::string(600000, 'z'));
    EXPECT_EQ(back.attachments[1].content.size_bytes(), 0U);
}

TEST(AssociatedStoreWrite, MakesOnePrivateFileAndLeavesNoOther) {
    AssociatedWorld world;
    {
        AssociatedStore store(world.root(), world.clock);
        HiddenMail mail = Sample();
        ASSERT_TRUE(store.Write(mail).ok());
        EXPECT_EQ(world.FileCount(), 1U);
    }

    struct stat about {};
    ASSERT_EQ(::lstat(world.file().c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 07777U, 0600U);
    EXPECT_EQ(world.FileCount(), 1U);
}

TEST(AssociatedStoreWrite, ReplacesWhatWasThere) {
    AssociatedWorld world;
    AssociatedStore store(world.root(), world.clock);
    HiddenMail mail = Sample();
    ASSERT_TRUE(store.Write(mail).ok());

    mail.subject = "changed";
    mail.properties = {{"set", "Other", Variant(std::string("text"))}};
    mail.attachments = {{"empty", 1, Blob()}, {"log.zip", 5, Blob::FromString("short")}};
    ASSERT_TRUE(store.Write(mail).ok());
    EXPECT_EQ(mail.revision, 2);

    const HiddenMail back = store.Read(mail.id).value();
    EXPECT_EQ(back.subject, "changed");
    ASSERT_EQ(back.properties.size(), 1U);
    EXPECT_EQ(back.properties[0].name, "Other");
    ASSERT_EQ(back.attachments.size(), 2U);
    EXPECT_EQ(back.attachments[0].name, "empty");
    EXPECT_EQ(back.attachments[1].content.ToString().value(), "short");
    EXPECT_EQ(back.attachments[1].method, 5);
    EXPECT_EQ(store.List().value().size(), 1U);
}

TEST(AssociatedStoreWrite, SeesAChangeOfOneByteInAnAttachment) {
    AssociatedWorld world;
    AssociatedStore store(world.root(), world.clock);
    HiddenMail mail = Sample();
    ASSERT_TRUE(store.Write(mail).ok());
    std::string bytes(600000, 'z');
    bytes[599999] = 'y';
    mail.attachments[0].content = Blob::FromString(bytes);
    mail.attachments.pop_back();

    ASSERT_TRUE(store.Write(mail).ok());

    const HiddenMail back = store.Read(mail.id).value();
    ASSERT_EQ(back.attachments.size(), 1U);
    EXPECT_EQ(back.attachments[0].content.ToString().value(), bytes);
}

TEST(AssociatedStoreWrite, RefusesAnOldRevision) {
    AssociatedWorld world;
    AssociatedStore store(world.root(), world.clock);
    HiddenMail mail = Sample();
    ASSERT_TRUE(store.Write(mail).ok());
    HiddenMail stale = mail;
    mail.subject = "first";
    ASSERT_TRUE(store.Write(mail).ok());
    stale.subject = "second";

    const Status written = store.Write(stale);

    EXPECT_EQ(written.error().kind, ErrorKind::kChanged);
    EXPECT_EQ(written.error().number, static_cast<int>(kObjectChanged));
    EXPECT_EQ(stale.revision, 1) << "a failure leaves the object as it was";
    EXPECT_EQ(store.Read(mail.id).value().subject, "first");
}

TEST(AssociatedStoreWrite, SaysThatTheMessageWasRemoved) {
    AssociatedWorld world;
    AssociatedStore store(world.root(), world.clock);
    HiddenMail mail = Sample();
    ASSERT_TRUE(store.Write(mail).ok());
    ASSERT_TRUE(store.Remove(mail.id).ok());

    EXPECT_EQ(store.Write(mail).error().kind, ErrorKind::kGone);
    EXPECT_TRUE(store.List().value().empty());
}

TEST(AssociatedStoreWrite, SaysThatTheMessageWentWithTheFile) {
    AssociatedWorld world;
    AssociatedStore store(world.root(), world.clock);
    HiddenMail mail = Sample();
    ASSERT_TRUE(store.Write(mail).ok());
    std::filesystem::remove(world.file());

    EXPECT_EQ(store.Write(mail).error().kind, ErrorKind::kGone);
    EXPECT_TRUE(store.List().value().empty());
    EXPECT_EQ(world.FileCount(), 0U);
    HiddenMail fresh = Sample();
    EXPECT_TRUE(store.Write(fresh).ok());
    EXPECT_EQ(store.List().value().size(), 1U);
}

TEST(AssociatedStoreWrite, OfAnUnreadableAttachmentChangesNothing) {
    class Unreadable final : public Blob::Source {
     public:
        std::uint64_t size_bytes() const override { return 500000; }
        Status ReadAt(std::uint64_t, char*, std::size_t) const override {
            return MessagingError(kDiskError);
        }
    };
    AssociatedWorld world;
    AssociatedStore store(world.root(), world.clock);
    HiddenMail mail = Sample();
    ASSERT_TRUE(store.Write(mail).ok());
    HiddenMail bad = mail;
    bad.subject = "bad";
    bad.attachments.push_back({"bad", 1, Blob(std::make_shared<Unreadable>())});

    EXPECT_EQ(store.Write(bad).error().kind, ErrorKind::kIo);

    const HiddenMail back = store.Read(mail.id).value();
    EXPECT_EQ(back.subject, "a sample");
    EXPECT_EQ(back.attachments.size(), 2U);
}

TEST(AssociatedStoreRemove, TakesOnlyTheOneMessage) {
    AssociatedWorld world;
    AssociatedStore store(world.root(), world.clock);
    HiddenMail one = Sample();
    HiddenMail two = Sample();
    ASSERT_TRUE(store.Write(one).ok());
    ASSERT_TRUE(store.Write(two).ok());
    ASSERT_NE(one.id, two.id);

    ASSERT_TRUE(store.Remove(one.id).ok());

    EXPECT_EQ(store.Read(one.id).error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(store.Read(two.id).value().attachments.size(), 2U);
    EXPECT_EQ(store.Remove(one.id).error().kind, ErrorKind::kNotFound);
}

TEST(AssociatedStoreList, LeavesOutPropertiesAndAttachments) {
    AssociatedWorld world;
    AssociatedStore store(world.root(), world.clock);
    HiddenMail mail = Sample();
    ASSERT_TRUE(store.Write(mail).ok());

    const auto list = store.List();

    ASSERT_EQ(list.value().size(), 1U);
    EXPECT_EQ(list.value()[0].id, mail.id);
    EXPECT_EQ(list.value()[0].revision, 1);
    EXPECT_TRUE(list.value()[0].properties.empty());
    EXPECT_TRUE(list.value()[0].attachments.empty());
}

// Every call fails with advice, and the file keeps its bytes.
void ExpectRefused(AssociatedWorld& world) {
    const std::string before = world.Bytes();
    AssociatedStore store(world.root(), world.clock);
    HiddenMail mail = Sample();

    const Error error = store.Write(mail).error();
    EXPECT_EQ(error.kind, ErrorKind::kMalformed);
    EXPECT_EQ(error.number, static_cast<int>(kCorruptData));
    EXPECT_NE(error.description.find(kAssociatedFileName), std::string::npos);
    EXPECT_NE(error.description.find("restore it from a backup"), std::string::npos);
    EXPECT_FALSE(store.Remove("0123456789abcdef").ok());
    EXPECT_EQ(world.Bytes(), before);
    EXPECT_EQ(world.FileCount(), 1U);
}

TEST(AssociatedStoreDamage, OfAFileThatIsNoDatabaseIsReported) {
    AssociatedWorld world;
    world.PutBytes("this is a text, and quite a long one, of some hundred bytes" +
                   std::string(1000, '.'));

    ExpectRefused(world);
    EXPECT_EQ(AssociatedStore(world.root(), world.clock).List().error().kind,
              ErrorKind::kMalformed);
}

void WriteOne(AssociatedWorld& world) {
    AssociatedStore store(world.root(), world.clock);
    HiddenMail mail = Sample();
    ASSERT_TRUE(store.Write(mail).ok());
}

TEST(AssociatedStoreDamage, OfACutFileIsReported) {
    AssociatedWorld world;
    WriteOne(world);
    world.PutBytes(world.Bytes().substr(0, 4096 + 100));

    ExpectRefused(world);
}

TEST(AssociatedStoreDamage, InTheMiddleIsReported) {
    AssociatedWorld world;
    WriteOne(world);
    std::string bytes = world.Bytes();
    bytes.replace(4096, 4096 * 4, 4096 * 4, '\x55');
    world.PutBytes(bytes);

    ExpectRefused(world);
}

TEST(AssociatedStoreDamage, OfTheHeaderIsReported) {
    AssociatedWorld world;
    WriteOne(world);
    std::string bytes = world.Bytes();
    bytes.replace(0, 100, 100, '\0');
    world.PutBytes(bytes);

    ExpectRefused(world);
}

TEST(AssociatedStoreDamage, IsWhatAnotherFormatIsCalled) {
    AssociatedWorld world;
    WriteOne(world);
    std::string bytes = world.Bytes();
    bytes[63] = 2;  // the last byte of the format number
    world.PutBytes(bytes);

    ExpectRefused(world);
}

TEST(AssociatedStoreDamage, IsWhatALinkIsCalled) {
    AssociatedWorld world;
    std::ofstream(world.root() + "/target") << "";
    std::filesystem::create_symlink("target", world.file());
    AssociatedStore store(world.root(), world.clock);
    HiddenMail mail = Sample();

    EXPECT_EQ(store.Write(mail).error().kind, ErrorKind::kMalformed);
    EXPECT_EQ(std::filesystem::file_size(world.root() + "/target"), 0U);
}

TEST(AssociatedStoreWrite, StartsWithAnEmptyFileOfADeadMaker) {
    AssociatedWorld world;
    world.PutBytes("");
    AssociatedStore store(world.root(), world.clock);
    EXPECT_TRUE(store.List().value().empty());
    HiddenMail mail = Sample();

    EXPECT_TRUE(store.Write(mail).ok());
    EXPECT_EQ(store.List().value().size(), 1U);
}

TEST(AssociatedStoreRead, FindsAFileThatReplacedTheOld) {
    AssociatedWorld world;
    AssociatedWorld backup;
    WriteOne(backup);
    AssociatedStore store(world.root(), world.clock);
    HiddenMail mail = Sample();
    ASSERT_TRUE(store.Write(mail).ok());
    std::filesystem::copy_file(backup.file(), world.file() + ".new");
    std::filesystem::rename(world.file() + ".new", world.file());

    EXPECT_EQ(store.Read(mail.id).error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(store.List().value().size(), 1U);
}

}  // namespace
}  // namespace trevix::associated
