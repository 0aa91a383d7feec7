#include "cli/index_filter.h"

#include <gtest/gtest.h>

#include "index_rows.h"

namespace trevix::cli {
namespace {

using test::IndexRow;

bool Matches(const FilterOptions& options, const IndexRow& row) {
    const auto index = test::NewIndex();
    test::Add(*index, row);
    EXPECT_TRUE(index->MoveFirst().ok());
    const auto filter = IndexFilter::Make(options, DateFromCivil({2007, 10, 10}));
    EXPECT_TRUE(filter.ok());
    const bool first = filter.value().Matches(*index);
    EXPECT_EQ(filter.value().Matches(*index), first) << "the same when it is remembered";
    return first;
}

bool FindsWord(const std::string& word, const IndexRow& row = {}) {
    FilterOptions options;
    options.words = {word};
    return Matches(options, row);
}

TEST(IndexFilter, MatchesEverythingWhenNothingIsAsked) {
    EXPECT_TRUE(Matches({}, {}));
    EXPECT_FALSE(FilterOptions().AsksForAnything());
}

TEST(IndexFilter, FindsWordsInNameSubjectSenderAndRecipients) {
    for (const char* word : {"REPORT.doc", "the rep", "ANN@", "archer", "ben@", "baker; c", ""}) {
        EXPECT_TRUE(FindsWord(word)) << word;
    }
    for (const char* word : {"inbox", "ab01", "zebra", "reports"}) {
        EXPECT_FALSE(FindsWord(word)) << word;
    }
    IndexRow inside;
    inside.zip_file = "papers.zip";
    inside.zip_index = 3;
    EXPECT_FALSE(FindsWord("papers", inside)) << "the archive is not the file";
}

TEST(IndexFilter, FindsWordsInAnyCaseOfAnyScript) {
    IndexRow row;
    row.file_name = "Übersicht.xls";
    row.subject = "ОТЧЁТ за год";
    row.sender = "ΟΔΥΣΣΕΥΣ";
    EXPECT_TRUE(FindsWord("übersicht", row));
    EXPECT_TRUE(FindsWord("ÜBERSICHT", row));
    EXPECT_TRUE(FindsWord("отчёт ЗА", row));
    EXPECT_TRUE(FindsWord("οδυσσευς", row));
    EXPECT_FALSE(FindsWord("ubersicht", row));
}

TEST(IndexFilter, WantsAllWordsEachAnywhere) {
    FilterOptions options;
    options.words = {"report", "ann", "baker"};
    EXPECT_TRUE(Matches(options, {}));
    options.words.emplace_back("zebra");
    EXPECT_FALSE(Matches(options, {}));
}

TEST(IndexFilter, LooksIntoTheColumnThatIsNamed) {
    const auto matches = [](std::optional<std::string> FilterOptions::*option, const char* text) {
        FilterOptions options;
        options.*option = text;
        EXPECT_TRUE(options.AsksForAnything());
        return Matches(options, {});
    };
    EXPECT_TRUE(matches(&FilterOptions::name, "*.DOC"));
    EXPECT_FALSE(matches(&FilterOptions::name, "report"));
    EXPECT_TRUE(matches(&FilterOptions::from, "archer"));
    EXPECT_TRUE(matches(&FilterOptions::from, "ann@"));
    EXPECT_FALSE(matches(&FilterOptions::from, "ben"));
    EXPECT_TRUE(matches(&FilterOptions::to, "cy"));
    EXPECT_TRUE(matches(&FilterOptions::to, "BEN@"));
    EXPECT_FALSE(matches(&FilterOptions::to, "ann"));
    EXPECT_TRUE(matches(&FilterOptions::subject, "the report"));
    EXPECT_FALSE(matches(&FilterOptions::subject, "report.doc"));
    EXPECT_TRUE(matches(&FilterOptions::folder, "inb"));
    EXPECT_FALSE(matches(&FilterOptions::folder, "archive"));
}

TEST(IndexFilter, TakesBothSeparatorsInAFoldersPath) {
    IndexRow row;
    row.folder = "Archive\\2019";
    FilterOptions options;
    options.folder = "archive/20";
    EXPECT_TRUE(Matches(options, row));
    options.folder = "archive\\20";
    EXPECT_TRUE(Matches(options, row));
    row.folder = "Archive/2019";
    EXPECT_TRUE(Matches(options, row));
}

TEST(IndexFilter, LeavesTheLimitsOfSizesOut) {
    FilterOptions options;
    options.larger = "999";
    options.smaller = "1001";
    EXPECT_TRUE(Matches(options, {}));
    options.larger = "1000";
    EXPECT_FALSE(Matches(options, {}));
    options.larger.reset();
    options.smaller = "1000";
    EXPECT_FALSE(Matches(options, {}));
}

TEST(IndexFilter, TakesWholeDaysInTimes) {
    const auto matches = [](const char* since, const char* until) {
        FilterOptions options;
        if (since != nullptr) options.since = since;
        if (until != nullptr) options.until = until;
        return Matches(options, {});
    };
    EXPECT_TRUE(matches("2007-10-05", "2007-10-05"));
    EXPECT_TRUE(matches("2007-10", "2007-10"));
    EXPECT_FALSE(matches("2007-10-06", nullptr));
    EXPECT_FALSE(matches(nullptr, "2007-10-04"));
    EXPECT_TRUE(matches("7d", "3d"));
    EXPECT_FALSE(matches("3d", nullptr));
    EXPECT_FALSE(matches(nullptr, "1w"));
}

TEST(IndexFilter, LeavesOutWhatHasNoTimeWhenTimesAreAsked) {
    IndexRow row;
    row.received = Empty();
    FilterOptions options;
    options.since = "2000";
    EXPECT_FALSE(Matches(options, row));
    options.since.reset();
    options.until = "2030";
    EXPECT_FALSE(Matches(options, row));
    EXPECT_TRUE(Matches({}, row));
}

TEST(IndexFilter, TellsFilesInArchivesFromAttachments) {
    FilterOptions options;
    options.in_zip = true;
    IndexRow row;
    for (const auto& [zip_index, matches] : {std::pair<std::int16_t, bool>{0, true},
                                             {7, true},
                                             {-1, false},
                                             {-2, false},
                                             {-3, false}}) {
        row.zip_index = zip_index;
        EXPECT_EQ(Matches(options, row), matches) << zip_index;
    }
}

TEST(IndexFilter, WantsAllThatIsAsked) {
    FilterOptions options;
    options.words = {"report"};
    options.name = "*.doc";
    options.from = "ann";
    options.larger = "500";
    options.since = "2007";
    EXPECT_TRUE(Matches(options, {}));
    options.folder = "Archive";
    EXPECT_FALSE(Matches(options, {}));
}

TEST(IndexFilter, SaysWhichValueItCannotUnderstand) {
    FilterOptions sizes;
    sizes.larger = "big";
    const auto by_size = IndexFilter::Make(sizes, {});
    ASSERT_FALSE(by_size.ok());
    EXPECT_EQ(by_size.error().description,
              "--larger: \"big\" cannot be understood; give a size as 500, 10k, 5M or 1G");
    FilterOptions times;
    times.until = "soon";
    const auto by_time = IndexFilter::Make(times, {});
    ASSERT_FALSE(by_time.ok());
    EXPECT_TRUE(by_time.error().description.starts_with("--until: \"soon\" cannot"));
}

// Two texts of different rows must not be taken for one another.
TEST(IndexFilter, RemembersEachTextByItself) {
    const auto index = test::NewIndex();
    constexpr int kRows = 20000;
    for (int i = 0; i < kRows; ++i) {
        IndexRow row;
        row.subject = (i % 3 == 0 ? "offer " : "letter ") + std::to_string(i / 2);
        test::Add(*index, row);
    }
    FilterOptions options;
    options.subject = "offer";
    const auto filter = IndexFilter::Make(options, {});
    ASSERT_TRUE(filter.ok());
    ASSERT_TRUE(index->MoveFirst().ok());
    for (int i = 0; i < kRows; ++i) {
        ASSERT_EQ(filter.value().Matches(*index), i % 3 == 0) << i;
        ASSERT_TRUE(index->MoveNext().ok());
    }
}

}  // namespace
}  // namespace trevix::cli
