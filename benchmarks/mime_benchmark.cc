// What mail costs: reading structure, coding, editing, and the summaries of a large folder.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "platform/mime/decoded_blob.h"
#include "platform/mime/encoded_blob.h"
#include "platform/mime/second_opinion.h"
#include "platform/mime/splice.h"
#include "platform/mime/summarize.h"
#include "platform/summary_cache/sqlite_summary_cache.h"

namespace trevix::mime {
namespace {

std::string RandomBytes(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t state = 1;
    for (char& c : bytes) {
        state = state * 1664525U + 1013904223U;
        c = static_cast<char>(state >> 24U);
    }
    return bytes;
}

std::string TextMail() {
    std::string mail =
        "Return-Path: <a@x.org>\nReceived: from a by b; Fri, 5 Oct 2007 12:00:00 +0000\n"
        "From: A <a@x.org>\nTo: B <b@x.org>\nSubject: An ordinary subject of some length\n"
        "Message-ID: <1@x.org>\nMIME-Version: 1.0\nContent-Type: text/plain; charset=utf-8\n\n";
    for (int i = 0; i < 40; ++i)
        mail += "A line of text as people write it, more or less.\n";
    return mail;
}

std::string MailWith(std::size_t attachment_bytes) {
    return "From: a@x.org\nSubject: file\nMIME-Version: 1.0\n"
           "Content-Type: multipart/mixed; boundary=\"=_b\"\n\n--=_b\nContent-Type: text/plain\n\n"
           "text\n--=_b\nContent-Type: application/octet-stream; name=a.bin\n"
           "Content-Transfer-Encoding: base64\n\n" +
           EncodeBlob(Blob::FromString(RandomBytes(attachment_bytes)), "\n").ToString().value() +
           "\n--=_b--\n";
}

ReadMessage ReadMail(const Blob& bytes) {
    ReadMessage message;
    message.bytes = bytes;
    message.tree = ReadPartTree(bytes).value();
    message.shape = ShapeOf(message.tree);
    return message;
}

void SummarizeMessage(benchmark::State& state, const Blob& mail) {
    for (auto _ : state) {
        const ReadMessage message = ReadMail(mail);
        MessageSummary summary;
        FillSummary(message, &summary);
        benchmark::DoNotOptimize(summary);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * mail.size_bytes()));
}

void SummarizeTextMail(benchmark::State& state) {
    SummarizeMessage(state, Blob::FromString(TextMail()));
}
BENCHMARK(SummarizeTextMail);

void SummarizeMailWithMegabyte(benchmark::State& state) {
    SummarizeMessage(state, Blob::FromString(MailWith(1 << 20)));
}
BENCHMARK(SummarizeMailWithMegabyte);

void AskSecondReader(benchmark::State& state) {
    const ReadMessage message = ReadMail(Blob::FromString(MailWith(1 << 20)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(DisagreementOn(message.bytes, message.tree).value());
    }
    state.SetBytesProcessed(
        static_cast<std::int64_t>(state.iterations() * message.bytes.size_bytes()));
}
BENCHMARK(AskSecondReader);

void DecodeBase64Text(benchmark::State& state) {
    const std::string text =
        EncodeBlob(Blob::FromString(RandomBytes(8 << 20)), "\n").ToString().value();
    std::string out(text.size(), '\0');
    for (auto _ : state) {
        benchmark::DoNotOptimize(DecodeBase64(text.data(), text.size(), true, out.data()));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(DecodeBase64Text);

// Proving that it decodes, and reading all of it.
void ReadDecodedBlob(benchmark::State& state) {
    const Blob text = Blob::FromString(
        EncodeBlob(Blob::FromString(RandomBytes(8 << 20)), "\n").ToString().value());
    for (auto _ : state) {
        const Blob decoded = DecodeBlob(text, TransferEncoding::kBase64).value();
        const Status read = decoded.ForEachPiece([](const char* bytes, std::size_t) -> Status {
            benchmark::DoNotOptimize(bytes);
            return {};
        });
        benchmark::DoNotOptimize(read.ok());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size_bytes()));
}
BENCHMARK(ReadDecodedBlob);

void EncodeBase64Blob(benchmark::State& state) {
    const Blob plain = Blob::FromString(RandomBytes(8 << 20));
    for (auto _ : state) {
        const Status read =
            EncodeBlob(plain, "\n").ForEachPiece([](const char* bytes, std::size_t) -> Status {
                benchmark::DoNotOptimize(bytes);
                return {};
            });
        benchmark::DoNotOptimize(read.ok());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * plain.size_bytes()));
}
BENCHMARK(EncodeBase64Blob);

// Composing the new message and proving it, without the store.
void SpliceAndProve(benchmark::State& state) {
    const ReadMessage message = ReadMail(Blob::FromString(MailWith(1 << 20)));
    AttachmentEdit edit;
    edit.data = Blob::FromString(RandomBytes(1 << 19));
    edit.name = "a.zip";
    HelperThread helper;
    for (auto _ : state) {
        const std::vector<Splice> splices = PlanSplices(message, {edit});
        const Blob composed = ApplySplices(message.bytes, splices);
        const Blob stored = Blob::FromString(composed.ToString().value());
        benchmark::DoNotOptimize(
            ReadBackEdited(message, {edit}, splices, composed, stored, helper).ok());
    }
    state.SetBytesProcessed(
        static_cast<std::int64_t>(state.iterations() * message.bytes.size_bytes()));
}
BENCHMARK(SpliceAndProve);

FolderSummary LargeFolder() {
    FolderSummary folder;
    folder.stamp = "stamp";
    for (int i = 0; i < 100'000; ++i) {
        MessageSummary message;
        message.entry.key = "1191585600.M" + std::to_string(i) + "P4711.mail.example.org";
        message.entry.locator = "cur/" + message.entry.key + ":2,S";
        message.entry.changed_ns = 1'191'585'600'123'456'789 + i;
        message.subject = "Re: A subject of ordinary length, number " + std::to_string(i);
        message.message_class = "IPM.Note";
        folder.messages.push_back(std::move(message));
    }
    return folder;
}

class CacheFolder {
 public:
    CacheFolder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "trevix-benchmark-XXXXXX").string();
        path_ = mkdtemp(pattern.data());
    }
    ~CacheFolder() { std::filesystem::remove_all(path_); }
    CacheFolder(const CacheFolder&) = delete;
    CacheFolder& operator=(const CacheFolder&) = delete;
    const std::string& path() const { return path_; }

 private:
    std::string path_;
};

void LoadHundredThousandSummaries(benchmark::State& state) {
    const CacheFolder folder;
    const FolderSummary large = LargeFolder();
    static_cast<void>(
        summary_cache::SqliteSummaryCache(folder.path()).Save("s", "f", {}, large).ok());
    for (auto _ : state) {
        summary_cache::SqliteSummaryCache cache(folder.path());
        benchmark::DoNotOptimize(cache.Load("s", "f").value());
    }
}
BENCHMARK(LoadHundredThousandSummaries)->Unit(benchmark::kMillisecond);

void SaveOneChangeInHundredThousand(benchmark::State& state) {
    const CacheFolder folder;
    summary_cache::SqliteSummaryCache cache(folder.path());
    FolderSummary now = LargeFolder();
    static_cast<void>(cache.Save("s", "f", {}, now).ok());
    for (auto _ : state) {
        now.messages[50'000].entry.locator += "S";
        benchmark::DoNotOptimize(cache.Save("s", "f", {}, now).ok());
    }
}
BENCHMARK(SaveOneChangeInHundredThousand)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace trevix::mime

BENCHMARK_MAIN();
