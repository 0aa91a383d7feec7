// MemoryZip: zip engines for tests of the core. Archives are readable texts in a FakeFileSystem, so
// that a test can say what an archive holds without a zip library.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fakes/fake_file_system.h"
#include "fakes/fault_plan.h"
#include "platform/zip_engine.h"

namespace trevix::test {

using ZipEntries = std::vector<std::pair<std::string, std::string>>;  // name, content

class MemoryZip final : public ZipFactory, public ArchiveProof {
 public:
    MemoryZip(fakes::FaultPlan& plan, fakes::FakeFileSystem& files) : plan_(plan), files_(files) {}

    Result<std::unique_ptr<ZipEngine>> CreateZipEngine() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("zip.CreateZipEngine"));
        return std::unique_ptr<ZipEngine>(std::make_unique<Zip>(*this));
    }
    Result<std::unique_ptr<UnzipEngine>> CreateUnzipEngine() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("zip.CreateUnzipEngine"));
        return std::unique_ptr<UnzipEngine>(std::make_unique<Unzip>(*this));
    }
    ArchiveProof& Proof() override { return *this; }

    Status Verify(const std::string& archive, const std::vector<Blob>& contents) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("zip.Verify"));
        if (proof_error) return *proof_error;
        std::multiset<std::string> held;
        for (const auto& [name, content] : EntriesOf(files_.files[archive]))
            held.insert(content);
        std::multiset<std::string> wanted;
        for (const Blob& content : contents) {
            auto bytes = content.ToString();
            if (!bytes.ok()) return bytes.error();
            wanted.insert(bytes.value());
        }
        if (held != wanted) return MessagingError(kCorruptData, "contents differ");
        return {};
    }

    // What an archive's bytes hold; nothing for bytes that are no archive.
    ZipEntries EntriesOf(const std::string& bytes) const {
        ZipEntries entries;
        std::size_t at = kMark.size();
        if (!bytes.starts_with(kMark)) return entries;
        while (at < bytes.size() && bytes[at] == '(') {
            const std::string name = TakeText(bytes, at);
            entries.emplace_back(name, TakeText(bytes, at));
        }
        return entries;
    }

    // The bytes of an archive, for a test to attach.
    static std::string Archive(const ZipEntries& entries) {
        std::string bytes = kMark;
        for (const auto& [name, content] : entries) {
            PutText(bytes, name);
            PutText(bytes, content);
        }
        return bytes;
    }

    std::function<void()> on_action;   // before each action of a zip engine
    std::string last_item;             // the item list of the last action
    std::set<std::string> fail_items;  // base names that cannot be added
    std::size_t archive_overhead = 0;  // bytes that each archive has too many
    std::optional<Error> proof_error;
    std::vector<std::int16_t> levels;  // of the actions

 private:
    static inline const std::string kMark = "ZIP";

    class Zip final : public ZipEngine {
     public:
        explicit Zip(MemoryZip& owner) : owner_(owner) {}
        void Action(std::int16_t action) override { error_code = owner_.Add(*this, action); }

     private:
        MemoryZip& owner_;
    };

    class Unzip final : public UnzipEngine {
     public:
        explicit Unzip(MemoryZip& owner) : owner_(owner) {}
        void Action(std::int16_t action) override {
            error_code = 0;
            if (!owner_.plan_.Enter("zip.Unzip").ok()) {
                error_code = 11;
            } else if (action == kUnzipNext) {
                Next();
            } else {
                Read(action);
            }
        }

     private:
        void Read(std::int16_t action) {
            const auto file = owner_.files_.files.find(zip_file);
            entries_ =
                file == owner_.files_.files.end() ? ZipEntries() : owner_.EntriesOf(file->second);
            next_ = 0;
            entry_count = static_cast<std::int16_t>(entries_.size());
            if (entries_.empty()) error_code = 13;
            if (action != kUnzipExtract) return;
            for (const auto& [name, content] : entries_) {
                owner_.files_.Put(destination + name, content);
            }
        }
        // An entry has half its size in the archive.
        void Next() {
            if (next_ == entries_.size()) {
                error_code = 12;
                return;
            }
            const auto& [name, content] = entries_[next_];
            entry_name = name;
            entry_path_flag = name.find('/') != std::string::npos;
            entry_size = static_cast<std::int32_t>(content.size());
            entry_compressed_size = entry_size / 2;
            entry_number = static_cast<std::int32_t>(next_++);
            entry_date = "10/05/2007 12:30:00";
        }

        MemoryZip& owner_;
        ZipEntries entries_;
        std::size_t next_ = 0;
    };

    // Texts stand as "(LENGTH)TEXT".
    static void PutText(std::string& bytes, const std::string& text) {
        bytes += "(" + std::to_string(text.size()) + ")" + text;
    }
    static std::string TakeText(const std::string& bytes, std::size_t& at) {
        const std::size_t end = bytes.find(')', at);
        const std::size_t size = std::stoul(bytes.substr(at + 1, end - at - 1));
        at = end + 1 + size;
        return bytes.substr(end + 1, size);
    }

    static std::string Unquoted(const std::string& item) {
        const bool quoted = item.size() >= 2 && item.front() == '"' && item.back() == '"';
        return quoted ? item.substr(1, item.size() - 2) : item;
    }

    std::int16_t Add(ZipEngine& engine, std::int16_t action) {
        last_item = engine.item_list;
        levels.push_back(engine.compression_level);
        if (on_action) on_action();
        if (!plan_.Enter("zip.Action").ok()) return 14;
        const std::string path = Unquoted(engine.item_list);
        const std::string name = path.substr(path.rfind('/') + 1);
        if (fail_items.contains(name)) return 18;
        std::string content;
        if (action == kZipMemoryToFile) {
            content = PullMemory(engine);
        } else {
            const auto file = files_.files.find(path);
            if (file == files_.files.end()) return 18;
            content = file->second;
        }
        std::string& archive = files_.files[engine.zip_file];
        if (archive.empty()) archive = kMark;
        archive = archive.substr(0, archive.size() - TrailerOf(archive));
        PutText(archive, name);
        PutText(archive, content);
        archive += std::string(archive_overhead, '.');
        return 0;
    }

    std::size_t TrailerOf(const std::string& archive) const {
        return archive.ends_with('.') ? archive_overhead : 0;
    }

    static std::string PullMemory(ZipEngine& engine) {
        std::string content;
        for (;;) {
            std::string buffer(7, '\0');
            ZipMemoryCall call;
            call.action = 0;
            call.data = &buffer;
            call.count = static_cast<std::int32_t>(buffer.size());
            call.input_offset = static_cast<std::int64_t>(content.size());
            engine.on_memory(call);
            if (call.result == 0) return content;
            content += buffer.substr(0, static_cast<std::size_t>(call.count));
        }
    }

    fakes::FaultPlan& plan_;
    fakes::FakeFileSystem& files_;
};

}  // namespace trevix::test
