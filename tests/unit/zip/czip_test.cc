// CZIP over the fake engines: what it asks of them, what it returns and what it logs.
#include "zip/czip.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "fakes/fake_file_system.h"
#include "fakes/fake_log.h"
#include "fakes/fake_zip_engine.h"

namespace trevix {
namespace {

using fakes::FakeArchive;
using fakes::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

struct World {
    explicit World(std::int16_t level = 5) : zip(factory, files, log, level) {
        files.PutDirectory("/w");
    }

    fakes::FaultPlan plan;
    fakes::FakeFileSystem files{plan};
    fakes::FakeLog log;
    fakes::FakeZipFactory factory{plan, files};
    CZIP zip;
};

// A CZIP whose engines cannot be created.
struct Engineless {
    Engineless() {
        plan.FailCalls("zip.Create", RuntimeError(kCannotCreateObject));
        zip.emplace(factory, files, log, std::int16_t{5});
    }

    fakes::FaultPlan plan;
    fakes::FakeFileSystem files{plan};
    fakes::FakeLog log;
    fakes::FakeZipFactory factory{plan, files};
    std::optional<CZIP> zip;
};

Variant Bytes(const std::string& bytes) {
    return Blob::FromString(bytes);
}

LogLine Error(const char* procedure, const std::string& message) {
    return {"CZIP", procedure, message, 1};
}

LogLine Detail(const char* procedure, const std::string& message) {
    return {"CZIP", procedure, message, 8};
}

struct ErrorText {
    std::int16_t code;
    const char* text;
};

TEST(CZIPGetErrorDesc, HasATextForEachCodeAndOneForAllOthers) {
    constexpr const char* kUnknown = "Unknown error";
    const ErrorText rows[] = {
        {2, "Unexpected end of zip file"},
        {3, "Zip file structure error"},
        {4, "Out of memory"},
        {5, "Internal logic error"},
        {6, "Entry too large to split"},
        {7, "Invalid comment format"},
        {8, "Zip test (-T) failed or out of memory"},
        {9, "User interrupt or termination"},
        {10, "Error using a temp file"},
        {11, "Read or seek error"},
        {12, "Nothing to do"},
        {13, "Missing or empty zip file"},
        {14, "Error writing to a file"},
        {15, "Couldn't open to write"},
        {16, "Bad command line"},
        {17, "Could not complete operation"},
        {18, "Could not open a specified file to read"},
        {19, "Media error or Hardware failure"},
        {20, "Invalid combination of control parameters"},
        {21, "Improper use of a Multi-Volume Zip file"},
        {0, kUnknown},
        {1, kUnknown},
        {22, kUnknown},
        {-1, kUnknown},
        {32767, kUnknown},
        {-32768, kUnknown},
    };
    for (const ErrorText& row : rows)
        EXPECT_EQ(CZIP::GetErrorDesc(row.code), row.text) << row.code;
}

TEST(CZIPInitZIPCmdStruct, ZipsAtTheConfiguredLevelUntilAnotherIsSet) {
    World world(9);
    world.files.Put("/w/f", "x");

    world.zip.ZIPAttach("/w/nine.zip", "/w/f", 1);
    world.zip.InitZIPCmdStruct(5);
    world.zip.ZIPAttach("/w/five.zip", "/w/f", 1);

    EXPECT_EQ(world.factory.ArchiveAt("/w/nine.zip").entries.at(0).level, 9);
    EXPECT_EQ(world.factory.ArchiveAt("/w/five.zip").entries.at(0).level, 5);
}

TEST(CZIPInitZIPCmdStruct, PutsEveryPropertyIntoItsNeutralState) {
    World world;
    ZipEngine& engine = *world.factory.zip_engine;
    engine.zip_file = engine.item_list = engine.comment = engine.text_buffer = "x";
    engine.comment_switch = engine.memory_input = engine.store_folder_names = true;

    world.zip.InitZIPCmdStruct(3);

    EXPECT_EQ(engine.compression_level, 3);
    EXPECT_EQ(engine.zip_file + engine.item_list + engine.comment + engine.text_buffer, "");
    EXPECT_FALSE(engine.comment_switch || engine.memory_input || engine.store_folder_names);
}

TEST(CZIPInitUNZIPCmdStruct, PutsEveryPropertyIntoItsNeutralState) {
    World world;
    UnzipEngine& engine = *world.factory.unzip_engine;
    engine.zip_file = engine.destination = "x";
    engine.never_overwrite = false;

    world.zip.InitUNZIPCmdStruct();

    EXPECT_EQ(engine.zip_file + engine.destination, "");
    EXPECT_TRUE(engine.never_overwrite);
}

TEST(CZIPZIPFiles, TrimsAndQuotesTheCallersItems) {
    World world;
    world.files.Put("/w/a b.txt", "x");
    std::string items = "  /w/a b.txt ";

    EXPECT_EQ(world.zip.ZIPFiles("/w/a.zip", items, 1), 0);

    EXPECT_EQ(items, "\"/w/a b.txt\"");
    EXPECT_EQ(world.factory.zip_engine->item_list, items);
    EXPECT_THAT(world.log.lines, IsEmpty());
}

TEST(CZIPZIPFiles, LeavesAListAloneWhoseNamesAreQuoted) {
    World world;
    world.files.Put("/w/a", "x");
    world.files.Put("/w/b", "y");
    std::string items = "\"/w/a\" \"/w/b\"";

    EXPECT_EQ(world.zip.ZIPFiles("/w/a.zip", items, 1), 0);

    EXPECT_EQ(items, "\"/w/a\" \"/w/b\"");
    EXPECT_EQ(world.factory.ArchiveAt("/w/a.zip").entries.size(), 2U);
}

TEST(CZIPZIPFiles, AddsOnlyTheQuoteThatIsMissing) {
    World world;
    std::string open = "\"/w/a";
    std::string close = "/w/a\"";
    std::string nothing;

    world.zip.ZIPFiles("/w/a.zip", open, 1);
    world.zip.ZIPFiles("/w/a.zip", close, 1);
    world.zip.ZIPFiles("/w/a.zip", nothing, 1);

    EXPECT_EQ(open, "\"/w/a\"");
    EXPECT_EQ(close, "\"/w/a\"");
    // The quote in front is also the one behind.
    EXPECT_EQ(nothing, "\"");
}

TEST(CZIPZIPFiles, SetsTheLevelForItselfAndWhatFollows) {
    World world(5);
    world.files.Put("/w/f", "x");
    std::string items = "/w/f";

    world.zip.ZIPFiles("/w/a.zip", items, 1);
    world.zip.ZIPAttach("/w/a.zip", items, 9);

    const FakeArchive archive = world.factory.ArchiveAt("/w/a.zip");
    EXPECT_EQ(archive.entries.at(0).level, 1);
    EXPECT_EQ(archive.entries.at(1).level, 1);
}

TEST(CZIPZIPFiles, LogsAFailureWithItsCodeAndText) {
    World world;
    std::string items = "/w/missing";

    EXPECT_EQ(world.zip.ZIPFiles("/w/a.zip", items, 1), 18);

    EXPECT_THAT(
        world.log.lines,
        ElementsAre(Error("ZIPFiles", " error: 18 Could not open a specified file to read")));
}

TEST(CZIPZIPAttach, ZipsAtTheLevelThatIsSetAndNotAtItsArgument) {
    World world(5);
    world.files.Put("/w/f", "x");

    EXPECT_EQ(world.zip.ZIPAttach("/w/a.zip", "/w/f", 9), 0);

    EXPECT_EQ(world.factory.ArchiveAt("/w/a.zip").entries.at(0).level, 5);
}

TEST(CZIPZIPAttach, TakesABarePathWithBlanksForOneName) {
    World world;
    world.files.Put("/w/Quarterly figures.xls", "x");

    EXPECT_EQ(world.zip.ZIPAttach("/w/a.zip", "/w/Quarterly figures.xls", 5), 0);

    EXPECT_EQ(world.factory.ArchiveAt("/w/a.zip").entries.at(0).name, "Quarterly figures.xls");
}

TEST(CZIPZIPAttach, LogsAFailureWithABlankBeforeTheColon) {
    World world;
    world.factory.next_code = 14;

    EXPECT_EQ(world.zip.ZIPAttach("/w/a.zip", "/w/f", 5), 14);

    EXPECT_THAT(world.log.lines,
                ElementsAre(Error("ZIPAttach", " error : 14 Error writing to a file")));
}

TEST(CZIPZIPAttach, WorksAfterAMemoryAction) {
    World world;
    world.files.Put("/w/f", "file");
    std::string name = "mem";
    world.zip.ZipMemToFileStream(Bytes("memory."), name, "/w/a.zip", 5);

    EXPECT_EQ(world.zip.ZIPAttach("/w/a.zip", "/w/f", 5), 0);

    EXPECT_EQ(world.factory.ArchiveAt("/w/a.zip").entries.at(1).content, "file");
}

TEST(CZIPZIPExtract, ExtractsIntoTheFolderAndCompletesTheCallersPath) {
    World world;
    world.files.PutDirectory("/tmp/x");
    world.factory.PutArchive("/w/a.zip", {"", {{"f", "content", 5}}});
    std::string destination = "/tmp/x";

    EXPECT_EQ(world.zip.ZIPExtract("/w/a.zip", destination), 0);

    EXPECT_EQ(destination, "/tmp/x/");
    EXPECT_EQ(world.files.files.at("/tmp/x/f"), "content");
}

TEST(CZIPZIPExtract, LeavesAPathAloneThatEndsInASeparator) {
    World world;
    world.files.PutDirectory("/tmp/x");
    world.factory.PutArchive("/w/a.zip", {"", {{"f", "content", 5}}});
    std::string destination = "/tmp/x/";

    world.zip.ZIPExtract("/w/a.zip", destination);

    EXPECT_EQ(destination, "/tmp/x/");
}

TEST(CZIPZIPExtract, ReplacesAnExistingFile) {
    World world;
    world.files.Put("/tmp/x/f", "old");
    world.factory.PutArchive("/w/a.zip", {"", {{"f", "new", 5}}});
    std::string destination = "/tmp/x/";

    EXPECT_EQ(world.zip.ZIPExtract("/w/a.zip", destination), 0);

    EXPECT_EQ(world.files.files.at("/tmp/x/f"), "new");
}

TEST(CZIPZIPExtract, LogsAFailureWithoutAColon) {
    World world;
    std::string destination = "/w/";

    EXPECT_EQ(world.zip.ZIPExtract("/w/missing.zip", destination), 13);

    EXPECT_THAT(world.log.lines,
                ElementsAre(Error("ZIPExtract", " error 13 Missing or empty zip file")));
}

TEST(CZIPGetZIPBytes, AddsToTheCallersSums) {
    World world;
    world.factory.PutArchive("/w/a.zip", {"", {{"a", "1234", 0}, {"b", "123456", 5}}});
    std::int32_t original = 0;
    std::int32_t compressed = 0;

    world.zip.GetZIPBytes("/w/a.zip", original, compressed);
    EXPECT_EQ(original, 10);
    EXPECT_EQ(compressed, 7);

    // Called twice with the same variables it doubles the sums.
    world.zip.GetZIPBytes("/w/a.zip", original, compressed);
    EXPECT_EQ(original, 20);
    EXPECT_EQ(compressed, 14);
    EXPECT_THAT(world.log.lines, IsEmpty());
}

TEST(CZIPGetZIPBytes, LeavesTheSumsOfAnUnreadableArchive) {
    World world;
    world.files.Put("/w/a.zip", "no archive");
    std::int32_t original = 5;
    std::int32_t compressed = 6;

    world.zip.GetZIPBytes("/w/a.zip", original, compressed);

    EXPECT_EQ(original, 5);
    EXPECT_EQ(compressed, 6);
    EXPECT_THAT(world.log.lines, IsEmpty());
}

TEST(CZIPGetZIPBytes, KeepsASumThatWouldOverflow) {
    World world;
    world.factory.PutArchive("/w/a.zip", {"", {{"a", "1234", 0}, {"b", "1", 0}}});
    std::int32_t original = 2147483645;
    std::int32_t compressed = 2147483647;

    world.zip.GetZIPBytes("/w/a.zip", original, compressed);

    // The four bytes do not fit any more, the one byte does.
    EXPECT_EQ(original, 2147483646);
    EXPECT_EQ(compressed, 2147483647);
}

TEST(CZIPGetZIPIndex, FindsAnEntryByItsNameWithoutFolders) {
    World world;
    world.factory.PutArchive("/w/a.zip", {"", {{"b.txt", "1", 0}, {"docs/a.txt", "22", 0}}});

    EXPECT_EQ(world.zip.GetZIPIndex("/w/a.zip", "a.txt"), 1);
    EXPECT_EQ(world.zip.GetZIPIndex("/w/a.zip", "docs/a.txt"), 0);
}

TEST(CZIPGetZIPIndex, IsZeroForTheFirstEntryAndForNone) {
    World world;
    world.factory.PutArchive("/w/a.zip", {"", {{"first", "1", 0}, {"second", "22", 0}}});

    EXPECT_EQ(world.zip.GetZIPIndex("/w/a.zip", "first"), 0);
    EXPECT_EQ(world.zip.GetZIPIndex("/w/a.zip", "SECOND"), 0);
    EXPECT_EQ(world.zip.GetZIPIndex("/w/missing.zip", "second"), 0);
}

TEST(CZIPGetZIPCompressedBytes, IsTheSizeOfTheFirstMatch) {
    World world;
    world.factory.PutArchive("/w/a.zip",
                             {"", {{"x", "1", 0}, {"d/y", "4444", 5}, {"y", "55555", 0}}});

    EXPECT_EQ(world.zip.GetZIPCompressedBytes("/w/a.zip", "y"), 2);
    EXPECT_EQ(world.zip.GetZIPCompressedBytes("/w/a.zip", "z"), 0);
    EXPECT_EQ(world.zip.GetZIPCompressedBytes("/w/missing.zip", "y"), 0);
}

TEST(CZIPZipMemToFileStream, RefusesWhatHoldsNoBytes) {
    World world;
    std::string name = "f";

    EXPECT_EQ(world.zip.ZipMemToFileStream(std::string("text"), name, "/w/a.zip", 5), 12);
    EXPECT_EQ(world.zip.ZipMemToFileStream(Variant(), name, "/w/a.zip", 5), 12);

    EXPECT_EQ(name, "f");
    EXPECT_THAT(world.log.lines,
                ElementsAre(Error("ZipMemToFileStream", " error: input not array"),
                            Error("ZipMemToFileStream", " error: input not array")));
}

TEST(CZIPZipMemToFileStream, QuotesTheCallersNameAndLogsTheSize) {
    World world;
    std::string name = "report.txt";

    EXPECT_EQ(world.zip.ZipMemToFileStream(Bytes("0123456789"), name, "/w/a.zip", 9), 0);

    EXPECT_EQ(name, "\"report.txt\"");
    EXPECT_EQ(world.factory.zip_engine->item_list, "\"report.txt\"");
    EXPECT_TRUE(world.factory.zip_engine->memory_input);
    EXPECT_EQ(world.factory.ArchiveAt("/w/a.zip").entries.at(0).level, 9);
    EXPECT_THAT(world.log.lines,
                ElementsAre(Detail("ZipMemToFileStream", " for report.txt; input size: 10")));
}

TEST(CZIPZipMemToFileStream, PassesANameThatBeginsWithAQuoteAsItIs) {
    World world;
    std::string name = "\"report.txt";

    EXPECT_EQ(world.zip.ZipMemToFileStream(Bytes("0123456789"), name, "/w/a.zip", 9), 0);

    EXPECT_EQ(name, "\"report.txt");
    EXPECT_EQ(world.factory.zip_engine->item_list, "\"report.txt");
    EXPECT_EQ(world.factory.ArchiveAt("/w/a.zip").entries.at(0).name, "report.txt");
}

TEST(CZIPZipMemToFileStream, ServesAllBytesButTheLast) {
    World world;
    std::string name = "f";
    const std::string input(1000, 'x');

    world.zip.ZipMemToFileStream(Bytes(input + "$"), name, "/w/a.zip", 5);

    EXPECT_EQ(world.factory.ArchiveAt("/w/a.zip").entries.at(0).content, input);
}

TEST(CZIPZipMemToFileStream, ZipsNothingFromOneByteOrNone) {
    World world;
    std::string name = "f";

    EXPECT_EQ(world.zip.ZipMemToFileStream(Bytes("1"), name, "/w/one.zip", 5), 0);
    EXPECT_EQ(world.zip.ZipMemToFileStream(Bytes(""), name, "/w/none.zip", 5), 0);

    EXPECT_EQ(world.factory.ArchiveAt("/w/one.zip").entries.at(0).content, "");
    EXPECT_EQ(world.factory.ArchiveAt("/w/none.zip").entries.at(0).content, "");
}

TEST(CZIPZipMemToFileStream, WritesACommentOnlyWhenThereIsOne) {
    World world;
    std::string name = "f";

    world.zip.ZipMemToFileStream(Bytes("12"), name, "/w/with.zip", 5, "note");
    EXPECT_EQ(world.factory.ArchiveAt("/w/with.zip").comment, "note");

    world.zip.ZipMemToFileStream(Bytes("12"), name, "/w/without.zip", 5);
    EXPECT_EQ(world.factory.ArchiveAt("/w/without.zip").comment, "");
    EXPECT_FALSE(world.factory.zip_engine->comment_switch);
}

TEST(CZIPZipMemToFileStream, LogsAFailureWithoutItsCode) {
    World world;
    std::string name = "f";
    world.factory.next_code = 4;

    EXPECT_EQ(world.zip.ZipMemToFileStream(Bytes("12"), name, "/w/a.zip", 5), 4);

    EXPECT_EQ(world.log.lines.back(),
              Error("ZipMemToFileStream", " error for /w/a.zip:Out of memory"));
}

// Bytes that end in a failure.
class BrokenSource final : public Blob::Source {
 public:
    std::uint64_t size_bytes() const override { return 1000; }
    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        if (offset + count > 500) return RuntimeError(kDeviceIo);
        std::fill_n(target, count, 'x');
        return {};
    }
};

TEST(CZIPZipMemToFileStream, AnInputThatCannotBeReadNeverBecomesAShorterOne) {
    World world;
    std::string name = "f";
    const Variant broken = Blob(std::make_shared<BrokenSource>());

    EXPECT_EQ(world.zip.ZipMemToFileStream(broken, name, "/w/a.zip", 5), 11);

    EXPECT_FALSE(world.files.files.contains("/w/a.zip"));
    EXPECT_EQ(world.log.lines.back(),
              Error("ZipMemToFileStream", " error for /w/a.zip:Read or seek error"));
}

TEST(CZIPZipMemToMem, ReturnsTheArchiveAndOneByteMore) {
    World world(7);

    const Blob output = world.zip.ZipMemToMem(Bytes("0123456789"), "f", "/w/name");

    const std::string bytes = output.ToString().value();
    FakeArchive archive;
    ASSERT_EQ(FakeArchive::FromBytes(bytes.substr(0, bytes.size() - 1), &archive), 0);
    EXPECT_EQ(bytes.back(), '\0');
    EXPECT_EQ(archive.entries.at(0).content, "012345678");
    // The level is the one that was set, the name is passed without quotes.
    EXPECT_EQ(archive.entries.at(0).level, 7);
    EXPECT_EQ(world.factory.zip_engine->item_list, "f");
    EXPECT_THAT(
        world.log.lines,
        ElementsAre(Detail("ZipMemToMem", ""), Detail("ZipMemToMem", " input size: 10"),
                    Detail("ZipMemToMem", " output size: " + std::to_string(output.size_bytes()))));
}

TEST(CZIPZipMemToMem, NeverReturnsBytesOfAnEarlierCall) {
    World world;
    world.zip.ZipMemToMem(Bytes(std::string(5000, 's')), "secret", "/w/name");

    const Blob output = world.zip.ZipMemToMem(Bytes("12"), "f", "/w/name");

    EXPECT_EQ(output.ToString().value().find('s'), std::string::npos);
    EXPECT_LT(output.size_bytes(), 100U);
}

TEST(CZIPZipMemToMem, RefusesWhatHoldsNoBytes) {
    World world;

    EXPECT_TRUE(world.zip.ZipMemToMem(std::string("text"), "f", "/w/name").empty());

    EXPECT_THAT(world.log.lines, ElementsAre(Detail("ZipMemToMem", ""),
                                             Error("ZipMemToMem", " error: input not array")));
}

TEST(CZIPZipMemToMem, IsEmptyOnFailure) {
    World world;
    world.factory.next_code = 5;

    EXPECT_TRUE(world.zip.ZipMemToMem(Bytes("12"), "f", "/w/name").empty());

    EXPECT_EQ(world.log.lines.back(),
              Error("ZipMemToMem", " err for /w/name:Internal logic error"));
}

// Asks for input the way an engine does, while a memory action of ten bytes runs.
class Question {
 public:
    Question(World& world, std::int64_t offset, std::int32_t count) {
        buffer.resize(static_cast<std::size_t>(std::max(count, 0)));
        call.data = &buffer;
        call.count = count;
        call.input_offset = offset;
        call.result = 99;
        // The engine's own question is replaced by this one.
        world.factory.zip_engine->on_memory = [&, this](ZipMemoryCall& asked) {
            world.zip.OnZipMemory(call);
            asked.result = 0;
        };
        std::string name = "f";
        world.zip.ZipMemToFileStream(Bytes("0123456789"), name, "/w/a.zip", 5);
    }

    std::string buffer;
    ZipMemoryCall call;
};

TEST(CZIPOnZipMemory, OffersAtMostNineOfTenBytes) {
    World world;

    const Question question(world, 0, 100);

    EXPECT_EQ(question.call.count, 9);
    EXPECT_EQ(question.call.result, 3);
    EXPECT_EQ(question.buffer.substr(0, 9), "012345678");
}

TEST(CZIPOnZipMemory, OffersNoMoreThanTheEngineAskedFor) {
    World world;

    const Question question(world, 2, 3);

    EXPECT_EQ(question.call.count, 3);
    EXPECT_EQ(question.buffer, "234");
}

TEST(CZIPOnZipMemory, EndsTheInputBeforeItsLastByte) {
    World world;

    const Question question(world, 9, 100);

    EXPECT_EQ(question.call.result, 0);
    EXPECT_EQ(question.call.count, 100);
}

TEST(CZIPOnZipMemory, AnswersOtherActionsWithGoOnAndNothingElse) {
    World world;
    std::string buffer = "engine";
    ZipMemoryCall call;
    call.action = 7;
    call.data = &buffer;
    call.count = 6;

    world.zip.OnZipMemory(call);

    EXPECT_EQ(call.result, 3);
    EXPECT_EQ(call.count, 6);
    EXPECT_EQ(buffer, "engine");
}

TEST(CZIPReadFileBinary, ReadsAWholeFileAndLogsItsUpperBound) {
    World world;
    world.files.Put("/w/f", std::string(100, 'x'));

    EXPECT_EQ(world.zip.ReadFileBinary("/w/f").ToString().value(), std::string(100, 'x'));

    EXPECT_THAT(world.log.lines, ElementsAre(Detail("ReadFileBinary", " size: 99")));
}

TEST(CZIPReadFileBinary, IsEmptyForAFileOfNoneOrOneByte) {
    World world;
    world.files.Put("/w/none", "");
    world.files.Put("/w/one", "x");
    world.files.Put("/w/two", "xy");

    EXPECT_TRUE(world.zip.ReadFileBinary("/w/none").empty());
    EXPECT_TRUE(world.zip.ReadFileBinary("/w/one").empty());
    EXPECT_EQ(world.zip.ReadFileBinary("/w/two").size_bytes(), 2U);
    EXPECT_THAT(world.log.MessagesOfLevel(8), ElementsAre(" size: -1", " size: -1", " size: 1"));
}

TEST(CZIPReadFileBinary, LogsWhyAFileCannotBeRead) {
    World world;

    EXPECT_TRUE(world.zip.ReadFileBinary("/w/missing").empty());

    EXPECT_THAT(world.log.lines,
                ElementsAre(Error("ReadFileBinary", " error: /w/missing: File not found")));
}

TEST(CZIPReadFileBinary, LogsAFailureBetweenSizeAndContent) {
    World world;
    world.files.Put("/w/f", "xyz");
    world.plan.FailCalls("files.OpenBlob", RuntimeError(kPermissionDenied));

    EXPECT_TRUE(world.zip.ReadFileBinary("/w/f").empty());

    EXPECT_THAT(world.log.lines, ElementsAre(Error("ReadFileBinary", " error: Permission denied")));
}

TEST(CZIPEngineless, DoesNothingAndReportsTheCodeZero) {
    Engineless world;
    world.files.Put("/w/f", "x");
    std::string items = "/w/f";
    std::string destination = "/w";
    std::string name = "n";
    std::int32_t original = 1;
    std::int32_t compressed = 2;

    EXPECT_EQ(world.zip->ZIPFiles("/w/a.zip", items, 5), 0);
    EXPECT_EQ(world.zip->ZIPAttach("/w/a.zip", items, 5), 0);
    EXPECT_EQ(world.zip->ZIPExtract("/w/a.zip", destination), 0);
    EXPECT_EQ(world.zip->ZipMemToFileStream(Bytes("12"), name, "/w/a.zip", 5), 0);
    EXPECT_TRUE(world.zip->ZipMemToMem(Bytes("12"), name, "/w/a.zip").empty());
    EXPECT_EQ(world.zip->GetZIPIndex("/w/a.zip", "f"), 0);
    EXPECT_EQ(world.zip->GetZIPCompressedBytes("/w/a.zip", "f"), 0);
    world.zip->GetZIPBytes("/w/a.zip", original, compressed);
    world.zip->InitZIPCmdStruct(5);
    world.zip->InitUNZIPCmdStruct();

    EXPECT_EQ(original, 1);
    EXPECT_EQ(compressed, 2);
    // What concerns only the caller's variables still happens.
    EXPECT_EQ(items, "\"/w/f\"");
    EXPECT_EQ(destination, "/w/");
    EXPECT_EQ(name, "\"n\"");
    EXPECT_FALSE(world.files.files.contains("/w/a.zip"));
    EXPECT_THAT(world.log.MessagesOfLevel(1), IsEmpty());
}

TEST(CZIPFaults, AFailingEngineIsReportedOnceByEachOperation) {
    for (const char* call : {"zip.Action4", "zip.Action7", "zip.Action8"}) {
        SCOPED_TRACE(call);
        World world;
        world.files.Put("/w/f", "x");
        world.plan.FailCalls(call, {ErrorKind::kIo, kDeviceIo, "i/o error"});
        std::string name = "n";
        std::string destination = "/w/";

        world.zip.ZIPAttach("/w/a.zip", "/w/f", 5);
        world.zip.ZipMemToFileStream(Bytes("12"), name, "/w/a.zip", 5);
        world.zip.ZIPExtract("/w/a.zip", destination);

        EXPECT_EQ(world.log.MessagesOfLevel(1).size(), 1U);
    }
}

}  // namespace
}  // namespace trevix
