// The zip engine: what it writes, under which names, and what it refuses.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "raw_zip.h"
#include "zip_world.h"

namespace trevix {
namespace {

using test::Noise;
using test::Prose;
using test::RawZip;
using testing::ElementsAre;

class ZipEngineAction : public test::ZipWorld {
 protected:
    // The first directory record of a.zip.
    std::string Record() const {
        const std::string bytes = Read("a.zip");
        return bytes.substr(bytes.find("PK\x01\x02"));
    }
    static unsigned At(const std::string& bytes, std::size_t offset) {
        return static_cast<unsigned char>(bytes.at(offset)) +
               256U * static_cast<unsigned char>(bytes.at(offset + 1));
    }
    std::int32_t CompressedBytes() {
        EXPECT_EQ(Count(), 0);
        unzip_->Action(kUnzipNext);
        return unzip_->entry_compressed_size;
    }
};

TEST_F(ZipEngineAction, WritesPlainArchivesAtEveryLevel) {
    const std::string content = Prose(200'000);
    Put("f.txt", content);
    std::int32_t last = 200'001;
    for (std::int16_t level = 0; level <= 9; ++level) {
        SCOPED_TRACE(level);
        zip_->compression_level = level;
        zip_->zip_file = In("a.zip");
        std::filesystem::remove(In("a.zip"));

        ASSERT_EQ(Add("f.txt"), 0);

        EXPECT_EQ(Complaints(), "");
        EXPECT_TRUE(Verify({content}).ok());
        // Method, flags, version and extra fields as every reader knows them.
        const std::string record = Record();
        EXPECT_EQ(At(record, 6), level == 0 ? 10U : 20U);
        EXPECT_EQ(At(record, 8), 0U);
        EXPECT_EQ(At(record, 10), level == 0 ? 0U : 8U);
        EXPECT_EQ(At(record, 30), 0U);
        // A higher level is never larger, apart from noise.
        EXPECT_LE(CompressedBytes(), last + last / 50);
        last = CompressedBytes();
    }
    EXPECT_LT(last, 100'000);
}

TEST_F(ZipEngineAction, LevelsOutsideZeroToNineFail20) {
    Put("f", "x");
    zip_->compression_level = 10;
    EXPECT_EQ(Add("f"), 20);
    zip_->compression_level = -1;
    EXPECT_EQ(Add("f"), 20);
    EXPECT_FALSE(Exists("a.zip"));
}

TEST_F(ZipEngineAction, StoresWhatDoesNotShrink) {
    Put("f", Noise(5000));

    ASSERT_EQ(Add("f"), 0);

    EXPECT_EQ(CompressedBytes(), 5000);
    EXPECT_EQ(At(Record(), 10), 0U);
    EXPECT_EQ(Complaints(), "");
}

TEST_F(ZipEngineAction, StoresLargeNoiseAfterSamplingIt) {
    const std::string noise = Noise(3'000'000);
    Put("f", noise);

    ASSERT_EQ(Add("f"), 0);

    EXPECT_EQ(CompressedBytes(), 3'000'000);
    EXPECT_TRUE(Verify({noise}).ok());
}

TEST_F(ZipEngineAction, DeflatesWhatShrinksOnlyInOnePlace) {
    const std::string mixed = Noise(2'000'000) + std::string(1'000'000, 'x');
    Put("f", mixed);

    ASSERT_EQ(Add("f"), 0);

    EXPECT_LT(CompressedBytes(), 2'100'000);
    EXPECT_TRUE(Verify({mixed}).ok());
}

TEST_F(ZipEngineAction, AddsEmptyAndTinyFiles) {
    Put("none", "");
    Put("one", "x");

    ASSERT_EQ(AddItems('"' + In("none") + "\" \"" + In("one") + '"'), 0);

    EXPECT_EQ(Complaints(), "");
    EXPECT_TRUE(Verify({"", "x"}).ok());
}

TEST_F(ZipEngineAction, FlagsOnlyNamesThatNeedIt) {
    const std::string name =
        "\xC3\x9C"
        "bersicht \xE6\x97\xA5.txt";
    Put(name, "x");
    Put("plain.txt", "y");

    ASSERT_EQ(Add(name), 0);
    EXPECT_EQ(At(Record(), 8), 0x800U);
    std::filesystem::remove(In("a.zip"));
    ASSERT_EQ(Add("plain.txt"), 0);
    EXPECT_EQ(At(Record(), 8), 0U);
    ASSERT_EQ(Add(name), 0);

    EXPECT_THAT(Names(), ElementsAre("plain.txt", name));
    EXPECT_EQ(Complaints(), "");
}

TEST_F(ZipEngineAction, TellsNamesApartThatDifferInCaseOnly) {
    std::filesystem::create_directory(In("d"));
    const std::string lower = "\xC3\xA4\xD1\x8F.txt";
    const std::string upper = "d/\xC3\x84\xD0\xAF.TXT";
    Put(lower, "1");
    Put(upper, "2");

    ASSERT_EQ(Add(lower), 0);
    ASSERT_EQ(Add(upper), 0);

    EXPECT_THAT(Names(), ElementsAre(lower, "\xC3\x84\xD0\xAF (2).TXT"));
}

TEST_F(ZipEngineAction, NumbersNamesWithAndWithoutAnExtension) {
    for (const char* name :
         {"a.tar.gz", "a.tar.gz", "none", "none", "none", ".dot", ".dot", "n (2)", "n", "n"}) {
        Put(name, "x");
        ASSERT_EQ(Add(name), 0);
    }

    EXPECT_THAT(Names(), ElementsAre("a.tar.gz", "a.tar (2).gz", "none", "none (2)", "none (3)",
                                     ".dot", ".dot (2)", "n (2)", "n", "n (3)"));
}

TEST_F(ZipEngineAction, MakesNamesThatExtractSafelyEverywhere) {
    Put("a\\b.txt", "x");
    Put("bad\xFFname", "y");

    ASSERT_EQ(Add("a\\b.txt"), 0);
    ASSERT_EQ(Add("bad\xFFname"), 0);

    EXPECT_THAT(Names(), ElementsAre("a_b.txt", "bad_name"));
    EXPECT_EQ(Extract(), 0);
    EXPECT_EQ(Read("out/a_b.txt"), "x");
}

TEST_F(ZipEngineAction, RefusesNamesThatAreNone) {
    zip_->text_buffer = "x";
    for (const char* list : {"\"..\"", "\"dir/\"", "\".\"", "\"a\"b", "\"a\" b", "\"a\" \"\""}) {
        SCOPED_TRACE(list);
        zip_->item_list = list;
        zip_->Action(kZipAddText);
        EXPECT_EQ(zip_->error_code, 16);
    }
    zip_->store_folder_names = true;
    zip_->item_list = "\"a/../../b\"";
    zip_->Action(kZipAddText);
    EXPECT_EQ(zip_->error_code, 16);
    zip_->item_list = std::string("\"a\0b\"", 5);
    zip_->Action(kZipAddText);
    EXPECT_EQ(zip_->error_code, 16);
    EXPECT_FALSE(Exists("a.zip"));
}

TEST_F(ZipEngineAction, KeepsTheTimeOfTheFile) {
    Put("f", "x");
    std::tm when{};
    when.tm_year = 103;
    when.tm_mon = 1;
    when.tm_mday = 14;
    when.tm_hour = 15;
    when.tm_min = 16;
    when.tm_sec = 18;
    when.tm_isdst = -1;
    const timespec times[2] = {{std::mktime(&when), 0}, {std::mktime(&when), 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, In("f").c_str(), times, 0), 0);

    ASSERT_EQ(Add("f"), 0);

    ASSERT_EQ(Count(), 0);
    unzip_->Action(kUnzipNext);
    EXPECT_EQ(unzip_->entry_date, "02/14/2003 15:16:18");
}

TEST_F(ZipEngineAction, BringsTimesThatDoNotFitIntoTheRange) {
    for (const auto& [seconds, text] :
         {std::pair{std::int64_t{0}, "01/01/1980 00:00:00"},
          std::pair{std::int64_t{-86400}, "01/01/1980 00:00:00"},
          std::pair{std::int64_t{5'000'000'000}, "12/31/2107 23:59:58"}}) {
        SCOPED_TRACE(seconds);
        Put("f", "x");
        std::filesystem::remove(In("a.zip"));
        const timespec times[2] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, In("f").c_str(), times, 0), 0);
        struct stat about {};
        ASSERT_EQ(::stat(In("f").c_str(), &about), 0);
        if (about.st_mtim.tv_sec != seconds) continue;  // the file system cannot keep it

        ASSERT_EQ(Add("f"), 0);

        ASSERT_EQ(Count(), 0);
        unzip_->Action(kUnzipNext);
        EXPECT_EQ(unzip_->entry_date, text);
    }
}

TEST_F(ZipEngineAction, WritesAndKeepsTheComment) {
    zip_->text_buffer = "x";
    zip_->item_list = "\"one\"";
    zip_->comment_switch = true;
    zip_->comment = "line\r\n\xC3\xA9";
    zip_->Action(kZipAddText);
    ASSERT_EQ(zip_->error_code, 0);
    EXPECT_TRUE(Read("a.zip").ends_with("line\r\n\xC3\xA9"));

    zip_->comment_switch = false;
    zip_->comment = "not written";
    zip_->Action(kZipAddText);
    ASSERT_EQ(zip_->error_code, 0);
    EXPECT_TRUE(Read("a.zip").ends_with("line\r\n\xC3\xA9"));
    EXPECT_EQ(Complaints(), "");
}

TEST_F(ZipEngineAction, ACommentThatIsTooLongFails7) {
    zip_->text_buffer = "x";
    zip_->item_list = "\"one\"";
    zip_->comment_switch = true;
    zip_->comment = std::string(65536, 'c');

    zip_->Action(kZipAddText);

    EXPECT_EQ(zip_->error_code, 7);
    EXPECT_FALSE(Exists("a.zip"));
}

TEST_F(ZipEngineAction, MakesArchivesForThisUserAloneAndKeepsTheModeOfOldOnes) {
    Put("f", "x");
    ASSERT_EQ(Add("f"), 0);
    struct stat about {};
    ASSERT_EQ(::stat(In("a.zip").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777U, 0600U);

    ASSERT_EQ(::chmod(In("a.zip").c_str(), 0640), 0);
    ASSERT_EQ(Add("f"), 0);
    ASSERT_EQ(::stat(In("a.zip").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777U, 0640U);
}

TEST_F(ZipEngineAction, FollowsNoLinkToAnInputOrAnArchive) {
    Put("f", "x");
    Put("other.zip", RawZip({}));
    std::filesystem::create_symlink(In("f"), In("link"));
    EXPECT_EQ(Add("link"), 18);

    std::filesystem::create_symlink(In("other.zip"), In("a.zip"));
    EXPECT_EQ(Add("f"), 15);
    EXPECT_EQ(Read("other.zip"), RawZip({}));
}

TEST_F(ZipEngineAction, AddsNothingButRegularFilesAndNeverWaits) {
    std::filesystem::create_directory(In("d"));
    ASSERT_EQ(::mkfifo(In("pipe").c_str(), 0600), 0);

    EXPECT_EQ(Add("d"), 18);
    EXPECT_EQ(Add("pipe"), 18);
    EXPECT_EQ(AddItems("\"/dev/null\""), 18);
    EXPECT_FALSE(Exists("a.zip"));
}

TEST_F(ZipEngineAction, ADirectoryInTheArchivesPlaceFails15) {
    Put("f", "x");
    std::filesystem::create_directory(In("a.zip"));

    EXPECT_EQ(Add("f"), 15);
}

TEST_F(ZipEngineAction, ADamagedArchiveKeepsItsBytes) {
    Put("f", "x");
    const std::string whole = RawZip({{.name = "old", .data = std::string(100, 'o')}});
    Put("a.zip", whole.substr(0, 80));
    EXPECT_EQ(Add("f"), 2);
    EXPECT_EQ(Read("a.zip"), whole.substr(0, 80));

    std::string broken = whole;
    broken[broken.find("PK\x01\x02")] = 'Q';
    Put("a.zip", broken);
    EXPECT_EQ(Add("f"), 3);
    EXPECT_EQ(Read("a.zip"), broken);
}

TEST_F(ZipEngineAction, AnEmptyFileBecomesAnArchive) {
    Put("f", "x");
    Put("a.zip", "");

    EXPECT_EQ(Add("f"), 0);

    EXPECT_EQ(Complaints(), "");
}

TEST_F(ZipEngineAction, ExtendsArchivesOfOtherProgramsWithoutTouchingTheirEntries) {
    Put("f", "x");
    const auto old = test::Deflated("old.txt", Prose(5000));
    auto follows = test::Deflated("text", Prose(300));
    Put("a.zip", RawZip({old, follows}, "their comment"));

    ASSERT_EQ(Add("f"), 0);

    EXPECT_THAT(Names(), ElementsAre("old.txt", "text", "f"));
    EXPECT_TRUE(Verify({Prose(5000), Prose(300), "x"}).ok());
    EXPECT_NE(Read("a.zip").find(old.data), std::string::npos);
    EXPECT_TRUE(Read("a.zip").ends_with("their comment"));
    EXPECT_EQ(Complaints(), "");
}

TEST_F(ZipEngineAction, GrowsAnArchiveEntryByEntry) {
    std::vector<std::string> contents;
    for (std::size_t i = 0; i < 60; ++i) {
        contents.push_back(Prose(i * 997) + std::to_string(i));
        Put("f", contents.back());
        ASSERT_EQ(Add("f"), 0);
    }

    EXPECT_TRUE(Verify(contents).ok());
    EXPECT_EQ(Complaints(), "");
}

TEST_F(ZipEngineAction, StreamsMembersThatAreTooLargeForMemory) {
    const std::string content = Prose(40 * 1024 * 1024);
    Put("large", content);
    Put("small", "x");

    ASSERT_EQ(AddItems('"' + In("large") + "\" \"" + In("small") + '"'), 0);

    EXPECT_LT(CompressedBytes(), 20 * 1024 * 1024);
    EXPECT_EQ(At(Record(), 6), 20U);
    EXPECT_EQ(At(Record(), 30), 0U);
    EXPECT_EQ(Complaints(), "");
    EXPECT_TRUE(Verify({"x", content}).ok());
}

TEST_F(ZipEngineAction, StoresAStreamedMemberThatTurnsOutNotToShrink) {
    // The samples shrink, the whole does not: what they save is lost in the rest.
    std::string content = Noise(34 * 1024 * 1024);
    content.replace(0, 2000, std::string(2000, 'x'));
    Put("large", content);

    ASSERT_EQ(Add("large"), 0);

    EXPECT_LE(CompressedBytes(), 34 * 1024 * 1024);
    EXPECT_EQ(At(Record(), 10), 0U);
    EXPECT_TRUE(Verify({content}).ok());
    EXPECT_EQ(Complaints(), "");
}

TEST_F(ZipEngineAction, StreamsWhatWouldTogetherNotFitIntoMemory) {
    const std::string content = Noise(25 * 1024 * 1024);
    std::string list;
    for (const char* name : {"1", "2", "3", "4"}) {
        Put(name, content);
        list += '"' + In(name) + "\" ";
    }

    ASSERT_EQ(AddItems(list), 0);

    EXPECT_EQ(Complaints(), "");
    EXPECT_TRUE(Verify({content, content, content, content}).ok());
}

class ZipEngineMemory : public ZipEngineAction {
 protected:
    void Serve(const std::string& input) {
        zip_->on_memory = [this, &input](ZipMemoryCall& call) {
            call.result = 3;
            if (call.action == 1) {
                EXPECT_EQ(static_cast<std::size_t>(call.output_offset), output_.size());
                output_.append(*call.data, 0, static_cast<std::size_t>(call.count));
                return;
            }
            const auto offset = static_cast<std::size_t>(call.input_offset);
            const std::size_t count =
                std::min(input.size() - offset, static_cast<std::size_t>(call.count));
            std::copy_n(input.begin() + static_cast<std::ptrdiff_t>(offset), count,
                        call.data->begin());
            call.count = static_cast<std::int32_t>(count);
            if (count == 0) call.result = 0;
        };
        zip_->item_list = "\"f\"";
    }

    std::string output_;
};

TEST_F(ZipEngineMemory, TakesAnInputThatDoesNotFitIntoMemory) {
    const std::string input = Prose(40 * 1024 * 1024);
    Serve(input);

    zip_->Action(kZipMemoryToFile);

    ASSERT_EQ(zip_->error_code, 0);
    EXPECT_TRUE(Verify({input}).ok());
    EXPECT_EQ(Complaints(), "");
}

TEST_F(ZipEngineMemory, HandsOverALargeArchiveInOrder) {
    const std::string input = Noise(3 * 1024 * 1024);
    Serve(input);

    zip_->Action(kZipMemoryToMemory);

    ASSERT_EQ(zip_->error_code, 0);
    Put("a.zip", output_);
    EXPECT_TRUE(Verify({input}).ok());
    EXPECT_EQ(Complaints(), "");
}

TEST_F(ZipEngineMemory, FailsWithoutACallback) {
    zip_->item_list = "\"f\"";
    zip_->Action(kZipMemoryToFile);
    EXPECT_EQ(zip_->error_code, 20);
    EXPECT_FALSE(Exists("a.zip"));
}

TEST_F(ZipEngineMemory, FailsWhenTheAnswerIsLongerThanTheBuffer) {
    zip_->on_memory = [](ZipMemoryCall& call) {
        call.result = 3;
        call.count = 1'000'000'000;
    };
    zip_->item_list = "\"f\"";
    zip_->Action(kZipMemoryToFile);
    EXPECT_EQ(zip_->error_code, 5);
}

TEST_F(ZipEngineMemory, FailsLateWithoutLeavingAnything) {
    // After more than fits into memory, so that there is a scratch file too.
    zip_->on_memory = [](ZipMemoryCall& call) {
        call.result = call.input_offset > 33 * 1024 * 1024 ? -1 : 3;
    };
    zip_->item_list = "\"f\"";
    zip_->Action(kZipMemoryToFile);

    EXPECT_EQ(zip_->error_code, 11);
    EXPECT_FALSE(Exists("a.zip"));
}

// A file size limit stands for a full disk: both fail a write in the middle.
class ZipEngineFullDisk : public ZipEngineAction {
 protected:
    ZipEngineFullDisk() {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        ignored_ = std::signal(SIGXFSZ, SIG_IGN);
    }
    ~ZipEngineFullDisk() override { Lift(); }
    void Limit(rlim_t bytes) {
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    void Lift() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, ignored_);
    }

    rlimit before_{};
    void (*ignored_)(int) = SIG_DFL;
};

TEST_F(ZipEngineFullDisk, AFailedWriteIs14AndTheArchiveIsAsItWas) {
    Put("f", Noise(3'000'000));
    Put("small", "x");
    ASSERT_EQ(Add("small"), 0);
    const std::string before = Read("a.zip");

    Limit(1'000'000);
    EXPECT_EQ(Add("f"), 14);
    Lift();

    EXPECT_EQ(Read("a.zip"), before);
}

TEST_F(ZipEngineFullDisk, AFailedFirstWriteLeavesNoArchive) {
    Put("f", Prose(40 * 1024 * 1024));

    Limit(1'000'000);
    EXPECT_EQ(Add("f"), 14);
    Lift();

    EXPECT_FALSE(Exists("a.zip"));
}

TEST_F(ZipEngineFullDisk, AFailedExtractionLeavesNoPart) {
    Put("a.zip", RawZip({{.name = "f", .data = Noise(3'000'000)}}));

    Limit(1'000'000);
    EXPECT_EQ(Extract(), 14);
    Lift();

    EXPECT_FALSE(Exists("out/f"));
}

}  // namespace
}  // namespace trevix
