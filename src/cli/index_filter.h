// IndexFilter: which rows of the attachment index a command is about. All that is asked for must
// hold.
#pragma once

#include <CLI/App.hpp>
#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/glob.h"
#include "cli/index_columns.h"
#include "platform/record_set.h"
#include "platform/result.h"
#include "util/case_fold.h"

namespace trevix::cli {

// What the command line says.
struct FilterOptions {
    std::vector<std::string> words;
    std::optional<std::string> name;
    std::optional<std::string> from;
    std::optional<std::string> to;
    std::optional<std::string> subject;
    std::optional<std::string> folder;
    std::optional<std::string> larger;
    std::optional<std::string> smaller;
    std::optional<std::string> since;
    std::optional<std::string> until;
    bool in_zip = false;

    bool AsksForAnything() const;
};

void AddFilterOptions(CLI::App& app, FilterOptions& options);

// A folder's path with "/" between its names, as the other commands write it.
std::string FolderText(std::string_view folder);

class IndexFilter {
 public:
    // kMalformed with "--option" and what is wrong with its value.
    static Result<IndexFilter> Make(const FilterOptions& options, Date now_utc);

    // Of the current record.
    bool Matches(const RecordSet& index) const;

 private:
    // A test of texts that remembers its answers: the rows of one message share its texts, and a
    // record set keeps each different one once.
    class TextTest {
     public:
        using Test = std::function<bool(std::string_view)>;
        explicit TextTest(Test test) : test_(std::move(test)) {}
        bool Holds(std::string_view text) const;

     private:
        struct Answer {
            const char* data = nullptr;
            std::size_t size = std::string_view::npos;  // none yet
            bool holds = false;
        };
        static constexpr std::size_t kAnswers = 4096;

        Test test_;
        mutable std::vector<Answer> answers_ = std::vector<Answer>(kAnswers);
    };
    // One of the columns has to hold the text.
    struct TextFilter {
        FoldedText wanted;
        std::vector<IndexColumn> columns;
        TextTest test;
        bool looks_at_name = false;  // file names are rarely shared: no use in remembering them
    };

    void AddText(const std::string& wanted, std::vector<IndexColumn> columns, bool looks_at_name);
    bool SizeAndTimeMatch(const RecordSet& index) const;

    std::vector<TextFilter> texts_;
    std::optional<Glob> name_;
    std::optional<TextTest> folder_;
    std::optional<std::int64_t> larger_;
    std::optional<std::int64_t> smaller_;
    std::optional<Date> since_;
    std::optional<Date> until_;
    bool in_zip_ = false;
};

}  // namespace trevix::cli
