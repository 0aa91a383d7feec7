// The listing of real archives beside what another implementation found in them.
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "support/shared_folder.h"
#include "zip_world.h"

namespace trevix {
namespace {

// Archives on which the two differ, and why ours is meant.
const std::map<std::string, const char*>& Explained() {
    static const std::map<std::string, const char*> table = {
        {"commons-compress--split_zip_created_by_zip_zip64.zip", "last volume: listed"},
        {"zip2--zip64_magic_in_filename_3.zip", "taken for split: a locator in a name"},
        {"nuxeo--childwf.zip", "odd extra fields hide nothing"},
        {"nuxeo--confirm.zip", "odd extra fields hide nothing"},
        {"nuxeo--mainwf.zip", "odd extra fields hide nothing"},
        {"nuxeo--newworkflow.zip", "odd extra fields hide nothing"},
        {"tika--testzip_corrupted_oom.zip", "full sizes without a wide field: listed as such"},
        {"zip.js--malformed-multi-disk.zip", "says that the directory is in another volume"},
        {"extractcode--aspectjtest.zip", "folders of old programs are separated by slashes"},
        {"extractcode--boo-0.3-src.zip", "folders of old programs are separated by slashes"},
        {"jszip--slashes_and_izarc.zip", "folders of old programs are separated by slashes"},
        {"format_parser--broken_filename.zip", "UTF-8 that is not flagged"},
        {"node-stream-zip--osx.zip", "UTF-8 that is not flagged"},
        {"node-stream-zip--normal_comment.zip", "the name in the extra field"},
    };
    return table;
}

std::string CorpusFolder() {
    return test::SharedFolder("corpus/zip/");
}

std::int32_t Clamp(std::uint64_t value) {
    return static_cast<std::int32_t>(std::min<std::uint64_t>(value, 2147483647));
}

class UnzipCorpus : public test::ZipWorld {
 protected:
    // What differs between the listing of one archive and the truth about it; empty if nothing.
    std::string Difference(const nlohmann::json& truth) {
        const std::int16_t code = Count();
        const bool truth_refused = !truth.at("error").is_null();
        if (code != 0 || truth_refused) {
            return (code != 0) == truth_refused ? "" : "code " + std::to_string(code);
        }
        const auto& entries = truth.at("entries");
        if (static_cast<std::size_t>(unzip_->entry_count) != entries.size()) {
            return "count " + std::to_string(unzip_->entry_count);
        }
        for (const auto& entry : entries) {
            unzip_->Action(kUnzipNext);
            if (unzip_->error_code != 0) return "step " + std::to_string(unzip_->error_code);
            if (unzip_->entry_name != entry.at("name")) return "name " + unzip_->entry_name;
            const bool same = unzip_->entry_size == Clamp(entry.at("size")) &&
                              unzip_->entry_compressed_size == Clamp(entry.at("compressed_size"));
            if (!same) return "sizes of " + unzip_->entry_name;
        }
        return "";
    }
};

TEST_F(UnzipCorpus, ListsRealArchivesAsAnotherImplementationDoes) {
    std::ifstream lines(CorpusFolder() + "TRUTH.jsonl");
    if (!lines) GTEST_SKIP() << "no archives in " << CorpusFolder();
    std::size_t archives = 0;
    std::set<std::string> differing;
    for (std::string line; std::getline(lines, line);) {
        const auto truth = nlohmann::json::parse(line);
        const std::string name = truth.at("file");
        SCOPED_TRACE(name);
        unzip_->zip_file = CorpusFolder() + name;
        ++archives;
        const std::string difference = Difference(truth);
        if (difference.empty()) continue;
        differing.insert(name);
        EXPECT_TRUE(Explained().contains(name)) << difference;
    }

    EXPECT_GT(archives, 100U);
    // An explanation that explains nothing any more has to go.
    for (const auto& [name, reason] : Explained()) {
        EXPECT_TRUE(differing.contains(name)) << name << ": " << reason;
    }
}

TEST_F(UnzipCorpus, ExtractsOrRefusesRealArchivesWithoutLeavingTheDestination) {
    std::ifstream lines(CorpusFolder() + "TRUTH.jsonl");
    if (!lines) GTEST_SKIP() << "no archives in " << CorpusFolder();
    std::size_t extracted = 0;
    for (std::string line; std::getline(lines, line);) {
        const auto truth = nlohmann::json::parse(line);
        SCOPED_TRACE(truth.at("file").get<std::string>());
        unzip_->zip_file = CorpusFolder() + truth.at("file").get<std::string>();
        if (Extract() == 0) ++extracted;
        std::filesystem::remove_all(In("out"));
        EXPECT_TRUE(std::filesystem::is_empty(root_));
    }

    // Most of them are broken, hostile, encrypted or of other methods.
    EXPECT_GT(extracted, 35U);
}

}  // namespace
}  // namespace trevix
