// What every pair of zip engines and every proof of archives must do, in executable form. Each
// implementation instantiates the suite with a factory of a fresh world.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/zip_engine.h"

namespace trevix::contract {

class ZipEngineWorld {
 public:
    virtual ~ZipEngineWorld() = default;
    virtual ZipFactory& factory() = 0;
    virtual std::string root() = 0;  // exists, empty, ends in "/"
    virtual void MakeDirectory(const std::string& path) = 0;
    virtual void WriteFile(const std::string& path, const std::string& bytes) = 0;
    virtual std::optional<std::string> ReadFile(const std::string& path) = 0;
    virtual std::size_t FileCount() = 0;  // directly in the root
};

struct ZipEngineCase {
    const char* name;
    std::function<std::unique_ptr<ZipEngineWorld>()> make;
};

inline std::string ZipEngineCaseName(const testing::TestParamInfo<ZipEngineCase>& row) {
    return row.param.name;
}

class ZipEngineContract : public testing::TestWithParam<ZipEngineCase> {
 protected:
    void SetUp() override {
        world_ = GetParam().make();
        ASSERT_NE(world_, nullptr);
        zip_ = std::move(world_->factory().CreateZipEngine()).value();
        unzip_ = std::move(world_->factory().CreateUnzipEngine()).value();
        zip_->compression_level = 5;
        zip_->zip_file = In("a.zip");
    }

    std::string In(const std::string& name) { return world_->root() + name; }
    void Put(const std::string& name, const std::string& bytes) {
        world_->WriteFile(In(name), bytes);
    }

    std::int16_t AddItems(const std::string& list) {
        zip_->item_list = list;
        zip_->Action(kZipAddFiles);
        return zip_->error_code;
    }
    std::int16_t Add(const std::string& name) { return AddItems('"' + In(name) + '"'); }

    std::int16_t Count(const std::string& name) {
        unzip_->zip_file = In(name);
        unzip_->Action(kUnzipCount);
        return unzip_->error_code;
    }

    std::vector<std::string> Names() {
        std::vector<std::string> names;
        EXPECT_EQ(Count("a.zip"), 0);
        for (int i = 0; i < unzip_->entry_count; ++i) {
            unzip_->Action(kUnzipNext);
            EXPECT_EQ(unzip_->error_code, 0);
            EXPECT_EQ(unzip_->entry_number, i);
            names.push_back(unzip_->entry_name);
        }
        return names;
    }

    // Everything in a.zip, extracted and read back.
    std::optional<std::string> Extracted(const std::string& name) {
        world_->MakeDirectory(In("out"));
        unzip_->zip_file = In("a.zip");
        unzip_->destination = In("out/");
        unzip_->Action(kUnzipExtract);
        EXPECT_EQ(unzip_->error_code, 0);
        return world_->ReadFile(In("out/" + name));
    }

    // Serves `input` in pieces of at most `piece` bytes.
    void ServeMemory(const std::string& input, std::int32_t piece) {
        zip_->memory_input = true;
        zip_->on_memory = [this, input, piece](ZipMemoryCall& call) {
            call.result = 3;
            if (call.action == 1) {
                const auto end = static_cast<std::size_t>(call.output_offset + call.count);
                if (output_.size() < end) output_.resize(end);
                output_.replace(static_cast<std::size_t>(call.output_offset),
                                static_cast<std::size_t>(call.count), *call.data, 0,
                                static_cast<std::size_t>(call.count));
                return;
            }
            const std::string rest = input.substr(static_cast<std::size_t>(call.input_offset));
            call.count = std::min({call.count, piece, static_cast<std::int32_t>(rest.size())});
            if (call.count == 0) call.result = 0;
            call.data->replace(0, static_cast<std::size_t>(call.count), rest, 0,
                               static_cast<std::size_t>(call.count));
        };
    }

    ArchiveProof& proof() { return world_->factory().Proof(); }
    static std::vector<Blob> Blobs(const std::vector<std::string>& contents) {
        std::vector<Blob> blobs;
        for (const std::string& content : contents)
            blobs.push_back(Blob::FromString(content));
        return blobs;
    }

    std::unique_ptr<ZipEngineWorld> world_;
    std::unique_ptr<ZipEngine> zip_;
    std::unique_ptr<UnzipEngine> unzip_;
    std::string output_;
};

TEST_P(ZipEngineContract, AddsSeveralFilesUnderTheirBaseNames) {
    Put("a b.txt", std::string(1000, 'x'));
    Put("c.txt", "c");

    ASSERT_EQ(AddItems('"' + In("a b.txt") + "\" \"" + In("c.txt") + '"'), 0);

    EXPECT_EQ(Names(), (std::vector<std::string>{"a b.txt", "c.txt"}));
    EXPECT_EQ(Extracted("a b.txt"), std::string(1000, 'x'));
}

TEST_P(ZipEngineContract, PublishesSizesAndNoFolderOfAPlainEntry) {
    Put("f", std::string(1000, 'x'));
    ASSERT_EQ(Add("f"), 0);

    ASSERT_EQ(Count("a.zip"), 0);
    unzip_->Action(kUnzipNext);

    EXPECT_EQ(unzip_->entry_size, 1000);
    EXPECT_GT(unzip_->entry_compressed_size, 0);
    EXPECT_LT(unzip_->entry_compressed_size, 1000);
    EXPECT_FALSE(unzip_->entry_path_flag);
    EXPECT_EQ(unzip_->entry_date.size(), 19U);
}

TEST_P(ZipEngineContract, StepsToNothingBehindTheLastEntry) {
    Put("f", "x");
    ASSERT_EQ(Add("f"), 0);
    ASSERT_EQ(Count("a.zip"), 0);
    unzip_->Action(kUnzipNext);

    unzip_->Action(kUnzipNext);

    EXPECT_EQ(unzip_->error_code, 12);
    EXPECT_EQ(unzip_->entry_name, "");
    EXPECT_EQ(unzip_->entry_size, 0);
}

TEST_P(ZipEngineContract, StoresAtLevelZero) {
    Put("f", std::string(1000, 'x'));
    zip_->compression_level = 0;

    ASSERT_EQ(Add("f"), 0);

    ASSERT_EQ(Count("a.zip"), 0);
    unzip_->Action(kUnzipNext);
    EXPECT_EQ(unzip_->entry_compressed_size, 1000);
}

TEST_P(ZipEngineContract, ExtendsAnArchiveAndKeepsWhatItHolds) {
    Put("one", "first");
    Put("two", "second");
    ASSERT_EQ(Add("one"), 0);

    ASSERT_EQ(Add("two"), 0);

    EXPECT_EQ(Names(), (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(Extracted("one"), "first");
    EXPECT_EQ(Extracted("two"), "second");
}

TEST_P(ZipEngineContract, KeepsBothEntriesOfOneName) {
    world_->MakeDirectory(In("d"));
    world_->MakeDirectory(In("e"));
    Put("n.txt", "first");
    Put("d/n.txt", "second");
    Put("e/N.TXT", "third");

    ASSERT_EQ(Add("n.txt"), 0);
    ASSERT_EQ(Add("d/n.txt"), 0);
    ASSERT_EQ(Add("e/N.TXT"), 0);

    EXPECT_EQ(Names(), (std::vector<std::string>{"n.txt", "n (2).txt", "N (3).TXT"}));
    EXPECT_EQ(Extracted("n.txt"), "first");
    EXPECT_EQ(Extracted("n (2).txt"), "second");
    EXPECT_EQ(Extracted("N (3).TXT"), "third");
}

TEST_P(ZipEngineContract, KeepsFolderNamesWhenAskedTo) {
    Put("f", "x");
    zip_->store_folder_names = true;
    zip_->item_list = "\"docs/f\"";
    zip_->text_buffer = "text";

    zip_->Action(kZipAddText);

    ASSERT_EQ(zip_->error_code, 0);
    EXPECT_EQ(Names(), (std::vector<std::string>{"docs/f"}));
    EXPECT_TRUE(unzip_->entry_path_flag);
}

TEST_P(ZipEngineContract, AddsATextAsAnEntry) {
    zip_->item_list = "\"!_Read me.txt\"";
    zip_->text_buffer = "line\r\n";

    zip_->Action(kZipAddText);

    ASSERT_EQ(zip_->error_code, 0);
    EXPECT_EQ(Extracted("!_Read me.txt"), "line\r\n");
}

TEST_P(ZipEngineContract, ATextTakesThePlaceOfTheOneOfItsNameAndOfNothingElse) {
    Put("read me.txt", "a file");
    Put("Note.txt", "the user's");
    ASSERT_EQ(Add("Note.txt"), 0);
    ASSERT_EQ(Add("read me.txt"), 0);
    zip_->item_list = "\"note.txt\"";
    zip_->text_buffer = "old";
    zip_->Action(kZipAddText);
    ASSERT_EQ(zip_->error_code, 0);
    zip_->item_list = "\"read me.txt\"";
    zip_->text_buffer = "new";

    zip_->Action(kZipAddText);

    ASSERT_EQ(zip_->error_code, 0);
    EXPECT_EQ(Names(), (std::vector<std::string>{"Note.txt", "note (2).txt", "read me.txt"}));
    EXPECT_EQ(Extracted("Note.txt"), "the user's");
    EXPECT_EQ(Extracted("note (2).txt"), "old");
    EXPECT_EQ(Extracted("read me.txt"), "new");
}

TEST_P(ZipEngineContract, AMissingInputFails18AndLeavesNoArchive) {
    EXPECT_EQ(Add("missing"), 18);

    EXPECT_EQ(world_->ReadFile(In("a.zip")), std::nullopt);
    EXPECT_EQ(world_->FileCount(), 0U);
}

TEST_P(ZipEngineContract, AFailedActionLeavesTheArchiveAsItWas) {
    Put("f", "x");
    ASSERT_EQ(Add("f"), 0);
    const auto before = world_->ReadFile(In("a.zip"));

    EXPECT_EQ(AddItems('"' + In("f") + "\" \"" + In("missing") + '"'), 18);

    EXPECT_EQ(world_->ReadFile(In("a.zip")), before);
    EXPECT_EQ(world_->FileCount(), 2U);
}

TEST_P(ZipEngineContract, NeverReplacesAFileThatIsNoArchive) {
    Put("f", "x");
    Put("a.zip", "an attachment of that name");

    EXPECT_EQ(Add("f"), 3);

    EXPECT_EQ(world_->ReadFile(In("a.zip")), "an attachment of that name");
}

TEST_P(ZipEngineContract, AMissingFolderForTheArchiveFails15) {
    Put("f", "x");
    zip_->zip_file = In("missing/a.zip");

    EXPECT_EQ(Add("f"), 15);
}

TEST_P(ZipEngineContract, AnEmptyItemListFails12) {
    EXPECT_EQ(AddItems(""), 12);
    EXPECT_EQ(AddItems("\"\""), 12);
    EXPECT_EQ(AddItems("\""), 12);
}

TEST_P(ZipEngineContract, UnknownActionsFail16) {
    Put("f", "x");
    zip_->item_list = '"' + In("f") + '"';
    zip_->Action(3);
    unzip_->Action(7);

    EXPECT_EQ(zip_->error_code, 16);
    EXPECT_EQ(unzip_->error_code, 16);
}

TEST_P(ZipEngineContract, ReadingAMissingOrEmptyArchiveFails13) {
    Put("empty.zip", "");

    EXPECT_EQ(Count("missing.zip"), 13);
    EXPECT_EQ(Count("empty.zip"), 13);
    EXPECT_EQ(unzip_->entry_count, 0);
}

TEST_P(ZipEngineContract, ReadingWhatIsNoArchiveFails3) {
    Put("text.zip", std::string(300, 't'));

    EXPECT_EQ(Count("text.zip"), 3);
}

TEST_P(ZipEngineContract, ReadingATruncatedArchiveFails2) {
    Put("f", std::string(1000, 'x'));
    ASSERT_EQ(Add("f"), 0);
    const std::string whole = world_->ReadFile(In("a.zip")).value();
    Put("cut.zip", whole.substr(0, whole.size() / 2));

    EXPECT_EQ(Count("cut.zip"), 2);
}

TEST_P(ZipEngineContract, ExtractingReplacesOrRefusesAsAsked) {
    Put("f", "new");
    ASSERT_EQ(Add("f"), 0);
    world_->MakeDirectory(In("out"));
    Put("out/f", "old");
    unzip_->zip_file = In("a.zip");
    unzip_->destination = In("out/");

    unzip_->never_overwrite = true;
    unzip_->Action(kUnzipExtract);
    EXPECT_EQ(unzip_->error_code, 15);
    EXPECT_EQ(world_->ReadFile(In("out/f")), "old");

    unzip_->never_overwrite = false;
    unzip_->Action(kUnzipExtract);
    EXPECT_EQ(unzip_->error_code, 0);
    EXPECT_EQ(world_->ReadFile(In("out/f")), "new");
}

TEST_P(ZipEngineContract, ZipsMemoryToAFileInWhateverPiecesItIsServed) {
    const std::string input = "0123456789abcdefghijklmnopqrstuvwxyz";
    for (const std::int32_t piece : {1, 7, 100}) {
        SCOPED_TRACE(piece);
        ServeMemory(input, piece);
        zip_->item_list = "\"p" + std::to_string(piece) + '"';
        zip_->Action(kZipMemoryToFile);
        ASSERT_EQ(zip_->error_code, 0);
    }

    EXPECT_EQ(Extracted("p1"), input);
    EXPECT_EQ(Extracted("p7"), input);
    EXPECT_EQ(Extracted("p100"), input);
}

TEST_P(ZipEngineContract, TakesANegativeCountForTheEndOfTheInput) {
    zip_->on_memory = [](ZipMemoryCall& call) {
        call.result = 3;
        call.count = -1;
    };
    zip_->item_list = "\"none\"";

    zip_->Action(kZipMemoryToFile);

    ASSERT_EQ(zip_->error_code, 0);
    EXPECT_EQ(Extracted("none"), "");
}

TEST_P(ZipEngineContract, AnUnreadableMemoryInputFails11AndLeavesNoArchive) {
    zip_->on_memory = [](ZipMemoryCall& call) { call.result = -1; };
    zip_->item_list = "\"f\"";

    zip_->Action(kZipMemoryToFile);

    EXPECT_EQ(zip_->error_code, 11);
    EXPECT_EQ(world_->FileCount(), 0U);
}

TEST_P(ZipEngineContract, ZipsMemoryToMemoryAsAWholeArchive) {
    const std::string input(5000, 'm');
    ServeMemory(input, 999);
    zip_->item_list = "bare name.txt";

    zip_->Action(kZipMemoryToMemory);

    ASSERT_EQ(zip_->error_code, 0);
    EXPECT_EQ(world_->FileCount(), 0U);
    Put("a.zip", output_);
    EXPECT_EQ(Extracted("bare name.txt"), input);
}

TEST_P(ZipEngineContract, TheMemoryActionsTakeOneNameOnly) {
    ServeMemory("x", 1);
    zip_->item_list = "\"a\" \"b\"";

    zip_->Action(kZipMemoryToFile);

    EXPECT_EQ(zip_->error_code, 16);
}

TEST_P(ZipEngineContract, TheProofAcceptsAnArchiveOfExactlyTheContents) {
    Put("one", "first");
    Put("two", std::string(3000, 'y'));
    Put("three", "");
    ASSERT_EQ(Add("one"), 0);
    ASSERT_EQ(Add("two"), 0);
    ASSERT_EQ(Add("three"), 0);

    // The order of the contents does not matter.
    const Status status = proof().Verify(In("a.zip"), Blobs({std::string(3000, 'y'), "", "first"}));

    EXPECT_TRUE(status.ok()) << status.error().description;
}

TEST_P(ZipEngineContract, TheProofWantsAnEntryForEachOfTwoEqualContents) {
    Put("one", "same");
    Put("two", "same");
    ASSERT_EQ(Add("one"), 0);
    EXPECT_FALSE(proof().Verify(In("a.zip"), Blobs({"same", "same"})).ok());

    ASSERT_EQ(Add("two"), 0);

    EXPECT_TRUE(proof().Verify(In("a.zip"), Blobs({"same", "same"})).ok());
    EXPECT_FALSE(proof().Verify(In("a.zip"), Blobs({"same"})).ok());
}

TEST_P(ZipEngineContract, TheProofRefusesOtherMissingAndSurplusContents) {
    Put("one", "first");
    Put("two", "other");
    ASSERT_EQ(Add("one"), 0);
    ASSERT_EQ(Add("two"), 0);

    for (const auto& wrong : {Blobs({"first", "othar"}), Blobs({"first", "longer"}),
                              Blobs({"first"}), Blobs({"first", "other", "x"}), Blobs({})}) {
        const Status status = proof().Verify(In("a.zip"), wrong);
        ASSERT_FALSE(status.ok());
        EXPECT_EQ(status.error().kind, ErrorKind::kMalformed);
        EXPECT_NE(status.error().description, "");
    }
}

TEST_P(ZipEngineContract, TheProofTellsWhatCannotBeReadFromWhatIsWrong) {
    Put("text.zip", std::string(300, 't'));

    const Status missing = proof().Verify(In("missing.zip"), Blobs({"x"}));
    const Status text = proof().Verify(In("text.zip"), Blobs({"x"}));

    ASSERT_FALSE(missing.ok());
    EXPECT_EQ(missing.error().kind, ErrorKind::kIo);
    ASSERT_FALSE(text.ok());
    EXPECT_EQ(text.error().kind, ErrorKind::kMalformed);
}

}  // namespace trevix::contract
