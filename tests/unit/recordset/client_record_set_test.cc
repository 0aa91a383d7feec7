// What the record set adds to the contract: the fields of the attachment index, conversions, files
// that cannot be written or read.
#include "platform/recordset/client_record_set.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <limits>

#include "bytes.h"
#include "platform/errors.h"
#include "platform/recordset/byte_reader.h"

namespace trevix::recordset {
namespace {

int NumberOf(const Status& status) {
    return status.ok() ? 0 : status.error().number;
}

struct FieldRow {
    const char* name;
    FieldType type;
    int size;
    int attributes;
};

constexpr FieldRow kIndexFields[] = {
    {"FileName", FieldType::kBstr, 255, kFieldUnspecified},
    {"FileIndex", FieldType::kInteger, 0, kFieldUnspecified},
    {"FileDate", FieldType::kDate, 0, kFieldMayBeNull},
    {"FileSize", FieldType::kInteger, 0, kFieldUnspecified},
    {"ZipIndex", FieldType::kSmallInt, 0, kFieldMayBeNull},
    {"ZipFile", FieldType::kBstr, 255, kFieldUnspecified},
    {"Folder", FieldType::kBstr, 140, kFieldUnspecified},
    {"EntryID", FieldType::kBstr, 255, kFieldUnspecified},
    {"StoreID", FieldType::kBstr, 255, kFieldUnspecified},
    {"Subject", FieldType::kBstr, 255, kFieldUnspecified},
    {"From", FieldType::kBstr, 140, kFieldUnspecified},
    {"Sender", FieldType::kBstr, 140, kFieldUnspecified},
    {"To", FieldType::kBstr, 255, kFieldUnspecified},
    {"DisplayTo", FieldType::kBstr, 255, kFieldUnspecified},
    {"Received", FieldType::kDate, 0, kFieldMayBeNull},
    {"FolderKey", FieldType::kSmallInt, 0, kFieldUnspecified},
};

void AppendIndexFields(RecordSet& set) {
    for (const FieldRow& field : kIndexFields) {
        ASSERT_TRUE(set.Append(field.name, field.type, field.size, field.attributes).ok());
    }
}

// A set of one field named V.
std::unique_ptr<ClientRecordSet> SetOf(FieldType type, int attributes = kFieldUnspecified) {
    auto set = std::make_unique<ClientRecordSet>();
    EXPECT_TRUE(set->Append("V", type, 0, attributes).ok());
    EXPECT_TRUE(set->Open().ok());
    EXPECT_TRUE(set->AddNew().ok());
    EXPECT_TRUE(set->Update().ok());
    return set;
}

TEST(ClientRecordSetOpen, GivesTheSixteenFieldsOfTheIndexEachTime) {
    ClientRecordSet set;
    for (int round = 0; round < 2; ++round) {
        AppendIndexFields(set);
        ASSERT_TRUE(set.Open().ok());
        EXPECT_EQ(set.FieldCount(), 16);
        EXPECT_EQ(set.RecordCount(), 0);
        ASSERT_TRUE(set.AddNew().ok());
        ASSERT_TRUE(set.Update().ok());
        ASSERT_TRUE(set.Close().ok());
    }
}

TEST(ClientRecordSetSet, RefusesASenderOf141UnitsAndTakesASubjectOf255) {
    ClientRecordSet set;
    AppendIndexFields(set);
    ASSERT_TRUE(set.Open().ok());
    for (const char* const field : {"Folder", "From", "Sender"}) {
        ASSERT_TRUE(set.AddNew().ok());
        EXPECT_TRUE(set.Set(field, std::string(140, 'x')).ok());
        EXPECT_EQ(NumberOf(set.Set(field, std::string(141, 'x'))), kMultipleStep);
        EXPECT_EQ(NumberOf(set.Update()), kMultipleStep);
    }
    EXPECT_EQ(set.RecordCount(), 0);
    ASSERT_TRUE(set.AddNew().ok());
    EXPECT_TRUE(set.Set("Subject", std::string(255, 'x')).ok());
    EXPECT_TRUE(set.Update().ok());
    EXPECT_EQ(set.RecordCount(), 1);
}

TEST(ClientRecordSetOpenFile, KeepsTheKindsOfIndexRows) {
    const TemporaryFolder folder;
    ClientRecordSet set;
    AppendIndexFields(set);
    ASSERT_TRUE(set.Open().ok());
    for (const std::int16_t kind : {std::int16_t{-3}, std::int16_t{-2}, std::int16_t{-1}}) {
        ASSERT_TRUE(set.AddNew().ok());
        ASSERT_TRUE(set.Set("ZipIndex", kind).ok());
        ASSERT_TRUE(set.Update().ok());
    }
    ASSERT_TRUE(set.Save(folder / "index", kPersistAdtg).ok());
    ClientRecordSet loaded;
    AppendIndexFields(loaded);
    ASSERT_TRUE(loaded.OpenFile(folder / "index").ok());
    for (const char* const kind : {"-3s", "-2s", "-1s"}) {
        EXPECT_EQ(Shown(loaded.Get("ZipIndex").value()), kind);
        EXPECT_EQ(Shown(loaded.Get("StoreID").value()), "''");
        ASSERT_TRUE(loaded.MoveNext().ok());
    }
    ASSERT_TRUE(loaded.AddNew().ok());
    EXPECT_EQ(NumberOf(loaded.Set("Folder", std::string(141, 'x'))), kMultipleStep);
    EXPECT_EQ(NumberOf(loaded.Update()), kMultipleStep);
}

TEST(ClientRecordSetSet, ConvertsBetweenTypes) {
    struct Row {
        FieldType type;
        Variant value;
        const char* shown;
    };
    const Row rows[] = {
        {FieldType::kSmallInt, 2.5, "2s"},
        {FieldType::kSmallInt, 3.5, "4s"},
        {FieldType::kSmallInt, true, "-1s"},
        {FieldType::kInteger, std::string(" 12 "), "12"},
        {FieldType::kInteger, Date{5.25}, "5"},
        {FieldType::kDouble, std::int32_t{7}, "7r"},
        {FieldType::kDouble, std::string("0.5"), "0.5r"},
        {FieldType::kDate, 5.25, "#5.25#"},
        {FieldType::kDate, std::string("1/4/1900 6:00"), "#5.25#"},
        {FieldType::kBoolean, std::int32_t{2}, "True"},
        {FieldType::kBoolean, std::string("false"), "False"},
        {FieldType::kBstr, std::int32_t{-5}, "'-5'"},
        {FieldType::kBstr, 0.1, "'0.1'"},
        {FieldType::kBstr, true, "'True'"},
        {FieldType::kBstr, std::string("a\x80"), "'a\xEF\xBF\xBD'"},
    };
    for (const Row& row : rows) {
        const auto set = SetOf(row.type);
        EXPECT_TRUE(set->Set("V", row.value).ok()) << row.shown;
        EXPECT_TRUE(set->Update().ok());
        EXPECT_EQ(Shown(set->Get("V").value()), row.shown);
    }
}

TEST(ClientRecordSetSet, RefusesNumbersOutOfRange) {
    struct Row {
        FieldType type;
        Variant value;
    };
    constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();
    const Row rows[] = {
        {FieldType::kSmallInt, std::int32_t{32768}},
        {FieldType::kSmallInt, 32767.5},
        {FieldType::kSmallInt, kNoNumber},
        {FieldType::kInteger, 2147483648.0},
        {FieldType::kInteger, std::string("3000000000")},
        {FieldType::kDate, Date{2958466}},
        {FieldType::kDate, Date{-657435}},
        {FieldType::kDate, Date{kNoNumber}},
    };
    for (const Row& row : rows) {
        const auto set = SetOf(row.type);
        EXPECT_EQ(NumberOf(set->Set("V", row.value)), kMultipleStep) << Shown(row.value);
        EXPECT_EQ(NumberOf(set->Update()), kMultipleStep);
        EXPECT_TRUE(set->Update().ok());
    }
}

TEST(ClientRecordSetGet, TakesWhatIsNoDateForNone) {
    const TemporaryFolder folder;
    const std::string row = FromHex("0D C0 00 00 00 00 00 00 00 F8 7F 00 00 00 00 00 00 F8 7F 0F");
    WriteWholeFile(folder / "dates", ConstantStart(2, 1) + ColumnBytes(1, "A", 0x07, 8, 0x14) +
                                         ColumnBytes(2, "B", 0x07, 8, 0x54) + row);
    ClientRecordSet set;
    ASSERT_TRUE(set.OpenFile(folder / "dates").ok());
    EXPECT_EQ(Shown(set.Get("A").value()), "#0#");
    EXPECT_EQ(Shown(set.Get("B").value()), "Empty");
    ASSERT_TRUE(set.SetFilter("A=#12/30/1899#").ok());
    EXPECT_TRUE(set.Eof());
}

TEST(ClientRecordSetSet, LeavesFieldsOfOtherTypesAlone) {
    const TemporaryFolder folder;
    const std::string bytes = ConstantStart(2, 1) + ColumnBytes(1, "G", 0x48, 16, 0x14) +
                              ColumnBytes(2, "N", 0x02, 2, 0x14) + FromHex("0D C0 00") +
                              std::string(16, '\x11') + FromHex("05 00 0F");
    WriteWholeFile(folder / "guid", bytes);
    ClientRecordSet set;
    ASSERT_TRUE(set.OpenFile(folder / "guid").ok());
    EXPECT_EQ(set.FieldTypeAt(0), FieldType::kOther);
    EXPECT_EQ(NumberOf(set.Set("G", std::string("x"))), kWrongType);
    EXPECT_EQ(NumberOf(set.SetFilter("G=1")), kBadArguments);
    EXPECT_EQ(Shown(set.Get("G").value()), std::string(16, '\x11'));
    ASSERT_TRUE(set.Save(folder / "again", kPersistAdtg).ok());
    EXPECT_EQ(ReadWholeFile(folder / "again"), bytes);
}

TEST(ClientRecordSetSet, LimitsTextsToWhatTheColumnOfAFileHolds) {
    const TemporaryFolder folder;
    WriteWholeFile(folder / "small", ConstantStart(2, 1) + ColumnBytes(1, "T", 0x82, 3, 0x04) +
                                         ColumnBytes(2, "F", 0x82, 3, 0x14) +
                                         FromHex("0D C0 00 02 41 00 41 00 42 00 43 00 0F"));
    ClientRecordSet set;
    ASSERT_TRUE(set.OpenFile(folder / "small").ok());
    EXPECT_EQ(NumberOf(set.Set("T", std::string("abcd"))), kMultipleStep);
    ASSERT_TRUE(set.CancelUpdate().ok());
    ASSERT_TRUE(set.Set("T", std::string("abc")).ok());
    ASSERT_TRUE(set.Set("F", std::string("x")).ok());
    ASSERT_TRUE(set.Save(folder / "again", kPersistAdtg).ok());
    ClientRecordSet again;
    ASSERT_TRUE(again.OpenFile(folder / "again").ok());
    EXPECT_EQ(Shown(again.Get("T").value()), "'abc'");
    EXPECT_EQ(Shown(again.Get("F").value()), "'x  '");
}

TEST(ClientRecordSetSet, TakesNoTextInAColumnOfNoLength) {
    const TemporaryFolder folder;
    WriteWholeFile(folder / "none", ConstantStart(1, 1) + ColumnBytes(1, "T", 0x82, 0, 0x04) +
                                        FromHex("0D 80 00 00 0F"));
    ClientRecordSet set;
    ASSERT_TRUE(set.OpenFile(folder / "none").ok());
    EXPECT_EQ(NumberOf(set.Set("T", std::string("x"))), kMultipleStep);
    ASSERT_TRUE(set.CancelUpdate().ok());
    EXPECT_TRUE(set.Set("T", std::string()).ok());
}

TEST(ClientRecordSetOpenFile, RefusesWhatIsNoFile) {
    const TemporaryFolder folder;
    ClientRecordSet set;
    const Status directory = set.OpenFile(folder / "");
    EXPECT_EQ(NumberOf(directory), kFileCouldNotBeRead);
    EXPECT_EQ(directory.error().kind, ErrorKind::kIo);
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(NumberOf(set.OpenFile(folder / "pipe")), kFileCouldNotBeRead);
    WriteWholeFile(folder / "empty", "");
    const Status empty = set.OpenFile(folder / "empty");
    EXPECT_EQ(empty.error().kind, ErrorKind::kMalformed);
    EXPECT_NE(empty.error().description.find(folder / "empty"), std::string::npos);
}

TEST(ClientRecordSetOpenFile, ReadsCellsLongerThanItsBuffer) {
    const TemporaryFolder folder;
    const auto set = SetOf(FieldType::kBstr);
    for (const std::size_t size : {100U, 200000U, 1000000U, 5U}) {
        ASSERT_TRUE(set->AddNew().ok());
        ASSERT_TRUE(set->Set("V", std::string(size, 'x')).ok());
        ASSERT_TRUE(set->Update().ok());
    }
    ASSERT_TRUE(set->Save(folder / "long", kPersistAdtg).ok());
    ClientRecordSet loaded;
    ASSERT_TRUE(loaded.OpenFile(folder / "long").ok());
    for (const std::size_t size : {0U, 100U, 200000U, 1000000U, 5U}) {
        EXPECT_EQ(std::get<std::string>(loaded.Get("V").value()).size(), size);
        ASSERT_TRUE(loaded.MoveNext().ok());
    }
}

// Bytes that are read once and in order, and can only be read up to `readable`.
class InOrder final : public Blob::Source {
 public:
    InOrder(std::string bytes, std::uint64_t readable)
        : bytes_(std::move(bytes)), readable_(readable) {}
    std::uint64_t size_bytes() const override { return bytes_.size(); }
    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        EXPECT_EQ(offset, read_);
        if (offset + count > readable_) return RuntimeError(kDiskFull, "why");
        bytes_.copy(target, count, static_cast<std::size_t>(offset));
        read_ = offset + count;
        return {};
    }
    std::uint64_t read() const { return read_; }

 private:
    std::string bytes_;
    std::uint64_t readable_;
    mutable std::uint64_t read_ = 0;
};

TEST(ClientRecordSetOpenBlob, ReadsALargeOneOnceAndInOrder) {
    const TemporaryFolder folder;
    const auto set = SetOf(FieldType::kBstr);
    for (int i = 0; i < 3000; ++i) {
        ASSERT_TRUE(set->AddNew().ok());
        ASSERT_TRUE(
            set->Set("V", std::to_string(i) + std::string(i % 7 == 0 ? 700 : 90, 'x')).ok());
        ASSERT_TRUE(set->Update().ok());
    }
    ASSERT_TRUE(set->Save(folder / "large", kPersistAdtg).ok());
    const std::string bytes = ReadWholeFile(folder / "large");
    ASSERT_GT(bytes.size(), 1000000U);

    const auto source = std::make_shared<InOrder>(bytes, bytes.size());
    ClientRecordSet loaded;
    ASSERT_TRUE(loaded.OpenBlob(Blob(source)).ok());
    EXPECT_EQ(source->read(), bytes.size());
    ASSERT_TRUE(loaded.Save(folder / "again", kPersistAdtg).ok());
    EXPECT_TRUE(ReadWholeFile(folder / "again") == bytes);

    for (const std::uint64_t readable : {std::size_t{100}, bytes.size() / 2, bytes.size() - 1}) {
        ClientRecordSet failed;
        const Status opened = failed.OpenBlob(Blob(std::make_shared<InOrder>(bytes, readable)));
        EXPECT_EQ(NumberOf(opened), kDiskFull) << readable;
        EXPECT_EQ(failed.State(), kStateClosed);
    }
    std::string damaged = bytes;
    damaged[600000] = static_cast<char>(damaged[600000] ^ 0x40);
    damaged.resize(900000);
    ClientRecordSet refused;
    EXPECT_FALSE(refused.OpenBlob(Blob(std::make_shared<InOrder>(damaged, damaged.size()))).ok());
}

// Files of at most `bytes` can be written while this lives.
class FileSizeLimit {
 public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        handler_ = ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{bytes, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        ::signal(SIGXFSZ, handler_);
    }

 private:
    rlimit before_{};
    sighandler_t handler_ = SIG_DFL;
};

TEST(ClientRecordSetSave, LeavesNothingWhenTheFileCannotBeWritten) {
    const TemporaryFolder folder;
    const auto set = SetOf(FieldType::kBstr);
    ASSERT_TRUE(set->Set("V", std::string(1000000, 'x')).ok());
    ASSERT_TRUE(set->Update().ok());
    {
        const FileSizeLimit limit(300000);
        const Status saved = set->Save(folder / "set", kPersistAdtg);
        EXPECT_FALSE(saved.ok());
        EXPECT_EQ(folder.FileCount(), 0U);
    }
    EXPECT_TRUE(set->Save(folder / "set", kPersistAdtg).ok());
    EXPECT_EQ(folder.FileCount(), 1U);
}

TEST(ClientRecordSetSave, MakesAFileForItsOwnerOnly) {
    const TemporaryFolder folder;
    const auto set = SetOf(FieldType::kBstr);
    ASSERT_TRUE(set->Save(folder / "set", kPersistAdtg).ok());
    struct stat status {};
    ASSERT_EQ(::stat((folder / "set").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(ClientRecordSetSave, SaysWhichFolderIsMissing) {
    const TemporaryFolder folder;
    const auto set = SetOf(FieldType::kBstr);
    const Status saved = set->Save(folder / "none/set", kPersistAdtg);
    EXPECT_EQ(NumberOf(saved), kPathNotFound);
    EXPECT_NE(saved.error().description.find(folder / "none/set"), std::string::npos);
}

}  // namespace
}  // namespace trevix::recordset
