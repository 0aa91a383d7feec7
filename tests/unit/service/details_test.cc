#include "service/details.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <utility>

namespace trevix::service {
namespace {

RunSummary SummaryOf(std::vector<std::string> folders) {
    RunSummary summary;
    summary.messages_changed = 1;
    summary.compressed_bytes = std::int64_t{1} << 40;
    for (std::string& path : folders) {
        summary.folders.push_back({std::move(path), 0, 0, 0});
    }
    return summary;
}

std::string FoldersIn(const dbus::Values& figures) {
    return std::get<std::string>(figures.back());
}

TEST(FiguresOfManage, AreInTheOrderOfTheSignal) {
    RunSummary summary;
    summary.messages_changed = 1;
    summary.messages_failed = 2;
    summary.messages_left = 3;
    summary.attachments_zipped = 4;
    summary.stationery_removed = 5;
    summary.original_bytes = 6;
    summary.compressed_bytes = std::int64_t{7} << 40;
    std::size_t told = 0;

    EXPECT_EQ(
        FiguresOf(summary, told),
        (dbus::Values{std::int64_t{1}, std::int64_t{2}, std::int64_t{3}, std::int64_t{4},
                      std::int64_t{5}, std::int64_t{6}, std::int64_t{7} << 40, std::string()}));
}

TEST(FiguresOfManage, NameEachFolderOnce) {
    std::size_t told = 0;

    EXPECT_EQ(FoldersIn(FiguresOf(SummaryOf({"Inbox"}), told)), "Inbox\n");
    EXPECT_EQ(FoldersIn(FiguresOf(SummaryOf({"Inbox"}), told)), "");
    EXPECT_EQ(FoldersIn(FiguresOf(SummaryOf({"Inbox", "A\\B", "C"}), told)), "A\\B\nC\n");
}

TEST(FiguresOfManage, BeginAnewWithANewRun) {
    std::size_t told = 0;
    FiguresOf(SummaryOf({"Inbox", "Archive"}), told);

    EXPECT_EQ(FoldersIn(FiguresOf(SummaryOf({"Inbox"}), told)), "Inbox\n");
}

TEST(FiguresOfIndex, AreInTheOrderOfTheSignal) {
    IndexSummary summary;
    summary.folders_scanned = 1;
    summary.folders_failed = 2;
    summary.messages_indexed = 3;
    summary.messages_failed = 4;
    summary.rows_added = 5;
    summary.rows = 6;
    summary.bytes = std::int64_t{7} << 40;
    summary.stored_bytes = 8;
    summary.text = "statistics";

    EXPECT_EQ(FiguresOf(summary),
              (dbus::Values{std::int64_t{1}, std::int64_t{2}, std::int64_t{3}, std::int64_t{4},
                            std::int64_t{5}, std::int64_t{6}, std::int64_t{7} << 40,
                            std::int64_t{8}, std::string("statistics")}));
}

// What the interface declares is what is sent.
TEST(DetailsInterface, DeclaresTheSignalsAsTheyAre) {
    const dbus::Interface details = DetailsInterface([] { return nullptr; });
    std::size_t told = 0;

    for (const auto& [name, figures] :
         {std::pair<std::string, dbus::Values>{"ManageFigures", FiguresOf(RunSummary{}, told)},
          std::pair<std::string, dbus::Values>{"IndexFigures", FiguresOf(IndexSummary{})}}) {
        const auto signal = std::find_if(details.signals.begin(), details.signals.end(),
                                         [&](const dbus::Signal& one) { return one.name == name; });
        ASSERT_NE(signal, details.signals.end()) << name;
        ASSERT_EQ(signal->arguments.size(), figures.size());
        for (std::size_t i = 0; i < figures.size(); ++i) {
            EXPECT_EQ(signal->arguments[i].type, dbus::TypeOf(figures[i])) << name << i;
        }
    }
}

TEST(DetailsInterface, HasNothingToSayWithoutASession) {
    const dbus::Interface details = DetailsInterface([] { return nullptr; });

    EXPECT_EQ(details.properties.at(0).get(), dbus::Value(std::string()));
}

}  // namespace
}  // namespace trevix::service
