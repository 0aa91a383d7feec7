#include "service/details.h"

#include <exception>

#include "service/names.h"

namespace trevix::service {
namespace {

using dbus::kInt32;
using dbus::kInt64;
using dbus::kString;

constexpr std::uint32_t kTellMs = 100;

}  // namespace

dbus::Interface DetailsInterface(std::function<const Session*()> session) {
    return {kDetailsInterface,
            {},
            {{"LogonFailure",
              kString,
              [session = std::move(session)] {
                  const Session* about = session();
                  return dbus::Value(about == nullptr ? std::string() : about->LogonFailure());
              },
              {}}},
            {{"ManageFigures",
              {{kInt64, "MessagesChanged"},
               {kInt64, "MessagesFailed"},
               {kInt64, "MessagesLeft"},
               {kInt64, "AttachmentsZipped"},
               {kInt64, "StationeryRemoved"},
               {kInt64, "OriginalBytes"},
               {kInt64, "CompressedBytes"},
               {kString, "FoldersLeft"}}},
             {"IndexFigures",
              {{kInt64, "FoldersScanned"},
               {kInt64, "FoldersFailed"},
               {kInt64, "MessagesIndexed"},
               {kInt64, "MessagesFailed"},
               {kInt64, "RowsAdded"},
               {kInt64, "Rows"},
               {kInt64, "Bytes"},
               {kInt64, "StoredBytes"},
               {kString, "Statistics"}}},
             {"Problem", {{kInt32, "Type"}, {kString, "Procedure"}, {kString, "Text"}}}}};
}

void RunFigures::Send() noexcept {
    try {
        sender_.Send(signal_, figures_());
        last_sent_ = clock_.TickCount();
    } catch (const std::exception&) {
        // The next figures hold all that these did.
    }
}

// The tick count wraps; differences do not care.
void RunFigures::SendNowAndThen() noexcept {
    const auto passed =
        static_cast<std::uint32_t>(clock_.TickCount()) - static_cast<std::uint32_t>(last_sent_);
    if (passed >= kTellMs) Send();
}

dbus::Values FiguresOf(const RunSummary& summary, std::size_t& told) {
    // A run that has begun anew starts from nothing.
    if (told > summary.folders.size()) told = 0;
    std::string folders;
    for (; told < summary.folders.size(); ++told) {
        folders += summary.folders[told].path + "\n";
    }
    return {summary.messages_changed,   summary.messages_failed,    summary.messages_left,
            summary.attachments_zipped, summary.stationery_removed, summary.original_bytes,
            summary.compressed_bytes,   std::move(folders)};
}

dbus::Values FiguresOf(const IndexSummary& summary) {
    return {summary.folders_scanned, summary.folders_failed, summary.messages_indexed,
            summary.messages_failed, summary.rows_added,     summary.rows,
            summary.bytes,           summary.stored_bytes,   summary.text};
}

}  // namespace trevix::service
