#include "platform/mime/summarize.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>

#include "platform/mime/header_block.h"
#include "platform/mime/header_text.h"
#include "platform/mime/message_class.h"

namespace trevix::mime {
namespace {

// So many messages are open at a time; a process has at least 1024 descriptors.
constexpr std::size_t kBatch = 128;
// The store is told of so many at a time.
constexpr std::size_t kExpected = 8 * kBatch;
// Below this a thread costs more than it brings.
constexpr std::size_t kManyTasks = 32;

struct OpenTask {
    SummaryTask* task = nullptr;
    MailOutline outline;
};

void SummarizeOne(OpenTask& open) {
    SummaryTask& task = *open.task;
    const Result<ReadMessage> message = TakeApart(open.outline);
    if (!message.ok()) {
        task.summary.has_attachments = true;
        task.summary.message_class = "IPM.Note";
        task.failed = message.error().kind != ErrorKind::kMalformed;
    } else {
        FillSummary(message.value(), &task.summary);
    }
    open.outline = {};
}

void SummarizeBatch(std::vector<OpenTask>& batch) {
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        for (std::size_t i = next++; i < batch.size(); i = next++)
            SummarizeOne(batch[i]);
    };
    // Contents that are not there yet come through the store, which knows one thread.
    const bool at_hand = std::all_of(batch.begin(), batch.end(),
                                     [](const OpenTask& open) { return open.outline.exact; });
    if (batch.size() < kManyTasks || !at_hand) return work();
    std::thread helper;
    try {
        helper = std::thread(work);
    } catch (const std::system_error&) {
        // No thread to be had: this one does it all.
    }
    work();
    if (helper.joinable()) helper.join();
}

void Expect(MailStore& store, const std::string& folder, const std::vector<SummaryTask>& tasks,
            std::size_t begin) {
    std::vector<MailEntry> entries;
    for (std::size_t i = begin; i < std::min(begin + kExpected, tasks.size()); ++i)
        entries.push_back(tasks[i].summary.entry);
    store.Expect(folder, entries, MailUse::kSummary);
}

}  // namespace

void FillSummary(const ReadMessage& message, MessageSummary* summary) {
    const std::string& header = message.tree.parts.front().header;
    summary->has_attachments = !message.shape.attachments.empty();
    summary->subject = DecodeHeaderText(FirstField(header, "Subject"));
    summary->message_class = MessageClassOf(message.bytes, message.tree, message.shape);
}

void Summarize(MailStore& store, const std::string& folder, std::vector<SummaryTask>* tasks) {
    StartGmime();
    for (std::size_t begin = 0; begin < tasks->size(); begin += kBatch) {
        const std::size_t end = std::min(begin + kBatch, tasks->size());
        if (begin % kExpected == 0) Expect(store, folder, *tasks, begin);
        std::vector<OpenTask> batch;
        for (std::size_t i = begin; i < end; ++i) {
            SummaryTask& task = (*tasks)[i];
            Result<MailOutline> outline = store.Outline(folder, task.summary.entry);
            if (outline.ok()) {
                batch.push_back({&task, std::move(outline).value()});
            } else if (outline.error().kind == ErrorKind::kGone ||
                       outline.error().kind == ErrorKind::kNotFound) {
                task.gone = true;
            } else {
                task.failed = true;
                task.summary.has_attachments = true;
                task.summary.message_class = "IPM.Note";
            }
        }
        SummarizeBatch(batch);
    }
}

// The marks of a run are whole seconds: a message that we wrote in the second of the mark, before
// it was set, must not look newer than the mark. What others write keeps its exact time, so that
// nothing of theirs hides behind a mark of the same second.
std::int64_t ModifiedNs(const MessageSummary& summary) {
    constexpr std::int64_t kSecond = 1'000'000'000;
    const std::int64_t changed = summary.entry.changed_ns;
    const bool ours = changed == summary.own_write_ns;
    return std::max(ours ? changed - changed % kSecond : changed, summary.first_seen_ns);
}

}  // namespace trevix::mime
