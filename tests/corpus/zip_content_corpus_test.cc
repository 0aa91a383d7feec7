// The rows that real archives give the attachment index, beside what another implementation found
// in them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "fakes/fake_log.h"
#include "fakes/fake_message_loop.h"
#include "platform/posix/posix_file_system.h"
#include "platform/zip/factory.h"
#include "support/shared_folder.h"
#include "unit/zip/index_rows.h"
#include "util/format.h"
#include "zip/czip.h"

namespace trevix {
namespace {

std::string CorpusFolder() {
    return test::SharedFolder("corpus/zip/");
}

// Where the two differ, and why ours is meant.
struct Difference {
    const char* archive;
    const char* what;
    const char* reason;
};
constexpr Difference kDifferences[] = {
    {"commons-compress--createboundedinputstream.bin.zip",
     "1: A 2147483647 2147483647  | A 2147483647 2147483647 1980-00-00T00:00:00", "no such day"},
    {"commons-compress--long-name.zip",
     "1: nothing | aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa... 0 0 1980-00-00T00:00:00",
     "a name of 65519 characters has no room in the index"},
    {"commons-compress--split_zip_created_by_zip_zip64.zip",
     "243: Test.java 7368 1925 2019-10-26T16:40:40 | nothing", "the last volume lists all of them"},
    {"extractcode--aspectjtest.zip",
     "22: .classpath 288 163 2009-06-28T21:47:50 | AspectJTest\\.classpath 288 163 "
     "2009-06-28T21:47:50",
     "old programs part folders like this"},
    {"extractcode--boo-0.3-src.zip",
     "158: CallableDefinition.cs 2318 1136 2004-07-26T09:39:24 | "
     "src\\Boo.Lang.Compiler\\Ast\\CallableDefini... 2318 1136 2004-07-26T09:39:24",
     "old programs part folders like this"},
    {"jszip--slashes_and_izarc.zip",
     "1: Hello.txt 13 13 2013-01-14T14:05:54 | test\\Hello.txt 13 13 2013-01-14T14:05:54",
     "old programs part folders like this"},
    {"libzip--empty-pkware.zip", "1: 0 0 12  | 0 0 12 1980-00-00T00:00:00", "no such day"},
    {"node-stream-zip--normal_comment.zip",
     "1: \xD0\xBA\xD0\xB8\xD1\x80\xD0\xB8\xD0\xBB\xD0\xBB\xD0\xB8\xD1\x86\xD0\xB0.html 1642 537 "
     "2015-02-16T23:22:32 | "
     "\xC2\xAC\xC2\xBF\xCE\xB1\xC2\xBF\xC2\xBD\xC2\xBD\xC2\xBF\xC2\xB5\xC3\xA1.html 1642 537 "
     "2015-02-16T23:22:32",
     "an extra field has the name in UTF-8"},
    {"node-stream-zip--osx.zip",
     "2: \xD0\xBA\xD0\xB8\xD1\x80\xD0\xB8\xD0\xBB\xD0\xBB\xD0\xB8\xD1\x86\xD0\xB0.html 1642 538 "
     "2015-02-16T23:22:32 | "
     "\xE2\x95\xA8\xE2\x95\x91\xE2\x95\xA8\xE2\x95\x95\xE2\x95\xA4\xC3\x87\xE2\x95\xA8\xE2\x95\x95"
     "\xE2\x95\xA8\xE2\x95\x97\xE2\x95\xA8\xE2\x95\x97\xE2\x95\xA8\xE2\x95..."
     " 1642 538 2015-02-16T23:22:32",
     "UTF-8 that is not flagged"},
    {"nuxeo--childwf.zip", "5: .nuxeo-archive 0 2 2018-06-28T14:55:36 | nothing",
     "odd extra fields hide no entry"},
    {"nuxeo--confirm.zip", "5: .nuxeo-archive 0 2 2020-05-28T02:04:32 | nothing",
     "odd extra fields hide no entry"},
    {"nuxeo--mainwf.zip", "6: .nuxeo-archive 0 2 2018-06-28T14:55:36 | nothing",
     "odd extra fields hide no entry"},
    {"nuxeo--newworkflow.zip", "4: .nuxeo-archive 0 2 2017-07-18T15:25:38 | nothing",
     "odd extra fields hide no entry"},
    {"rubyzip--warninvaliddate.zip",
     "42: [Content_Types].xml 3826 496  | [Content_Types].xml 3826 496 2014-13-01T18:47:20",
     "no such day"},
    {"tika--testzip_corrupted_oom.zip",
     "1: hello.txt 2147483647 2147483647 2017-08-23T15:35:46 | nothing",
     "sizes that are full, and no field with wider ones: taken as they are"},
    {"zip.js--hamlet-reduce-pkzip092.zip", "1: a 2048 1285  | a 2048 1285 1980-00-00T00:00:00",
     "no such day"},
    {"zip.js--zeros-reduce-pkzip092.zip", "1: a 3072 1297  | a 3072 1297 1980-00-00T00:00:00",
     "no such day"},
};

struct Row {
    std::string name;
    std::int64_t size = 0;
    std::int64_t compressed = 0;
    std::string date;

    friend bool operator==(const Row&, const Row&) = default;

    std::string Text() const {
        constexpr std::size_t kShown = 40;
        const std::string shown = name.size() > kShown ? name.substr(0, kShown) + "..." : name;
        return shown + " " + std::to_string(size) + " " + std::to_string(compressed) + " " + date;
    }
};

// What the index is to say of an entry, by the other implementation; nothing for a folder.
std::vector<Row> RowsOf(const nlohmann::json& truth) {
    std::vector<Row> rows;
    if (!truth.at("error").is_null()) return rows;
    const auto clamp = [](std::uint64_t size) {
        return static_cast<std::int64_t>(std::min<std::uint64_t>(size, 2147483647));
    };
    for (const auto& entry : truth.at("entries")) {
        const std::string name = entry.at("name");
        Row row;
        row.name = name.substr(name.rfind('/') + 1);
        row.size = clamp(entry.at("size"));
        row.compressed = clamp(entry.at("compressed_size"));
        row.date = entry.at("date_time").is_null() ? "" : entry.at("date_time");
        if (!row.name.empty()) rows.push_back(row);
    }
    return rows;
}

class ZipContentCorpus : public testing::Test {
 protected:
    std::vector<Row> List(const std::string& path) {
        AttachedTo message;
        message.entry_id = "00";
        std::unique_ptr<RecordSet> index = test::OpenIndex();
        EXPECT_FALSE(zip_.GetZIPContent(path, "a.zip", message, index, loop_));
        std::vector<Row> rows;
        if (index->RecordCount() == 0) return rows;
        EXPECT_TRUE(index->MoveFirst().ok());
        while (!index->Eof()) {
            Row row;
            row.name = std::get<std::string>(index->Get("FileName").value());
            row.size = std::get<std::int32_t>(index->Get("FileSize").value());
            row.compressed = std::get<std::int32_t>(index->Get("FileIndex").value());
            const Variant date = index->Get("FileDate").value();
            if (!IsEmpty(date)) row.date = DateText(std::get<Date>(date));
            rows.push_back(row);
            EXPECT_TRUE(index->MoveNext().ok());
        }
        return rows;
    }

    static std::string DateText(Date date) {
        const CivilTime civil = CivilFromDate(date);
        std::array<char, 80> text{};
        std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d", civil.year,
                      civil.month, civil.day, civil.hour, civil.minute, civil.second);
        return text.data();
    }

    // The number of rows that differ and the first of them; empty when there is none.
    static std::string Compare(const std::vector<Row>& ours, const std::vector<Row>& theirs) {
        std::size_t differing = 0;
        std::string first;
        for (std::size_t i = 0; i < std::max(ours.size(), theirs.size()); ++i) {
            if (i < ours.size() && i < theirs.size() && ours[i] == theirs[i]) continue;
            const std::string our = i < ours.size() ? ours[i].Text() : "nothing";
            const std::string their = i < theirs.size() ? theirs[i].Text() : "nothing";
            if (++differing == 1) first = our + " | " + their;
        }
        return differing == 0 ? std::string() : std::to_string(differing) + ": " + first;
    }

    zip_engine::Factory factory_;
    posix::PosixFileSystem files_;
    fakes::FakeLog log_;
    fakes::FakeMessageLoop loop_;
    CZIP zip_{factory_, files_, log_, 5};
};

TEST_F(ZipContentCorpus, GivesTheRowsThatAnotherImplementationSees) {
    std::ifstream lines(CorpusFolder() + "TRUTH.jsonl");
    if (!lines) GTEST_SKIP() << "no archives in " << CorpusFolder();
    std::map<std::string, std::string> found;
    std::size_t archives = 0;
    std::size_t rows = 0;
    for (std::string line; std::getline(lines, line);) {
        const auto truth = nlohmann::json::parse(line);
        const std::string name = truth.at("file");
        const std::vector<Row> ours = List(CorpusFolder() + name);
        ++archives;
        rows += ours.size();
        const std::string difference = Compare(ours, RowsOf(truth));
        if (!difference.empty()) found[name] = difference;
    }

    EXPECT_GT(archives, 100U);
    EXPECT_GT(rows, 1000U);
    for (const Difference& difference : kDifferences) {
        EXPECT_EQ(found[difference.archive], difference.what) << difference.archive;
        found.erase(difference.archive);
    }
    EXPECT_THAT(found, testing::IsEmpty()) << "no reason is given for these";
}

// The most memory that this process has had, in bytes.
std::int64_t PeakMemory() {
    struct rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    return std::int64_t{usage.ru_maxrss} * 1024;
}

TEST_F(ZipContentCorpus, SaysWhyAnArchiveIsRefusedAndTakesLittleMemory) {
    std::ifstream lines(CorpusFolder() + "TRUTH.jsonl");
    if (!lines) GTEST_SKIP() << "no archives in " << CorpusFolder();
    std::size_t refused = 0;
    std::uint64_t inflated_bytes = 0;
    std::uint64_t largest_bytes = 0;
    const std::int64_t before = PeakMemory();
    for (std::string line; std::getline(lines, line);) {
        const auto truth = nlohmann::json::parse(line);
        const std::string name = truth.at("file");
        SCOPED_TRACE(name);
        largest_bytes = std::max(largest_bytes, truth.at("size").get<std::uint64_t>());
        for (const auto& entry : truth.value("entries", nlohmann::json::array())) {
            inflated_bytes +=
                std::min(entry.at("size").get<std::uint64_t>(), std::uint64_t{1} << 40);
        }
        log_.lines.clear();
        const bool has_rows = !List(CorpusFolder() + name).empty();

        if (zip_.LastListing() == ZipListing::kComplete) continue;
        ++refused;
        EXPECT_NE(zip_.LastListing(), ZipListing::kFailed);
        const std::vector<std::string> told = log_.MessagesOfLevel(12);
        ASSERT_EQ(told.size(), 1U);
        EXPECT_TRUE(told[0].starts_with(" 'a.zip' on '': ")) << told[0];
        EXPECT_NE(told[0].find(has_rows ? "listed up to entry" : "not listed"), std::string::npos)
            << told[0];
    }

    EXPECT_GT(refused, 20U);
    // Inflating what they hold would be far more than what a listing may take.
    EXPECT_GT(inflated_bytes, std::uint64_t{1} << 30);
    EXPECT_LT(PeakMemory() - before, 64 << 20);
    EXPECT_LT(largest_bytes, 64U << 20);
}

}  // namespace
}  // namespace trevix
