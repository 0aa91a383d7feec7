// FakeZipFactory: zip engines whose archives are readable texts in a FakeFileSystem.
//
// An archive is "FAKEZIP" and then each part as "<length>:<bytes>": the comment, and for every
// entry its name, its level and its content. What an engine does to files counts as one call of the
// plan ("zip.Action4" and so on), not as calls of the file system.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fakes/fake_file_system.h"
#include "fakes/fault_plan.h"
#include "platform/zip_engine.h"

namespace trevix::fakes {

struct FakeEntry {
    std::string name;
    std::string content;
    std::int16_t level = 0;

    friend bool operator==(const FakeEntry&, const FakeEntry&) = default;
};

struct FakeArchive {
    std::string comment;
    std::vector<FakeEntry> entries;

    std::string ToBytes() const {
        std::string bytes = kMark + Part(comment);
        for (const FakeEntry& entry : entries)
            bytes += EntryBytes(entry);
        return bytes;
    }

    static std::string EntryBytes(const FakeEntry& entry) {
        return Part(entry.name) + Part(std::to_string(entry.level)) + Part(entry.content);
    }

    // 0, or the engines' code: 13 for no bytes, 3 for what is no archive, 2 for a part of one.
    static std::int16_t FromBytes(const std::string& bytes, FakeArchive* archive) {
        if (bytes.empty()) return 13;
        if (!bytes.starts_with(kMark)) return 3;
        std::size_t at = kMark.size();
        std::string level;
        if (!TakePart(bytes, at, archive->comment)) return 2;
        while (at < bytes.size()) {
            FakeEntry entry;
            const bool whole = TakePart(bytes, at, entry.name) && TakePart(bytes, at, level) &&
                               TakePart(bytes, at, entry.content);
            if (!whole) return 2;
            entry.level = static_cast<std::int16_t>(std::stoi(level));
            archive->entries.push_back(std::move(entry));
        }
        return 0;
    }

 private:
    static inline const std::string kMark = "FAKEZIP";

    static std::string Part(const std::string& bytes) {
        return std::to_string(bytes.size()) + ":" + bytes;
    }

    static bool TakePart(const std::string& bytes, std::size_t& at, std::string& part) {
        const auto colon = bytes.find(':', at);
        if (colon == std::string::npos) return false;
        const auto length = static_cast<std::size_t>(std::stoul(bytes.substr(at, colon - at)));
        if (length > bytes.size() - colon - 1) return false;
        part = bytes.substr(colon + 1, length);
        at = colon + 1 + length;
        return true;
    }
};

class FakeZipFactory final : public ZipFactory, public ArchiveProof {
 public:
    FakeZipFactory(FaultPlan& plan, FakeFileSystem& files) : plan_(plan), files_(files) {}

    Result<std::unique_ptr<ZipEngine>> CreateZipEngine() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("zip.CreateZipEngine"));
        auto engine = std::make_unique<Zip>(*this);
        zip_engine = engine.get();
        return std::unique_ptr<ZipEngine>(std::move(engine));
    }

    Result<std::unique_ptr<UnzipEngine>> CreateUnzipEngine() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("zip.CreateUnzipEngine"));
        auto engine = std::make_unique<Unzip>(*this);
        unzip_engine = engine.get();
        return std::unique_ptr<UnzipEngine>(std::move(engine));
    }

    ArchiveProof& Proof() override { return *this; }

    Status Verify(const std::string& archive, const std::vector<Blob>& contents) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("zip.Verify"));
        if (proof_error) return *proof_error;
        if (!files_.files.contains(archive)) {
            return Error{ErrorKind::kIo, kFileNotFound, archive + ": File not found"};
        }
        FakeArchive held;
        std::vector<std::string> wanted;
        for (const Blob& content : contents) {
            Result<std::string> bytes = content.ToString();
            if (!bytes.ok()) return Error{ErrorKind::kIo, kDeviceIo, bytes.error().description};
            wanted.push_back(std::move(bytes).value());
        }
        std::vector<std::string> found;
        const bool opened = FakeArchive::FromBytes(files_.files.at(archive), &held) == 0;
        for (const FakeEntry& entry : held.entries)
            found.push_back(entry.content);
        std::sort(wanted.begin(), wanted.end());
        std::sort(found.begin(), found.end());
        if (opened && found == wanted) return {};
        return RuntimeError(kFileCouldNotBeRead, archive);
    }

    // The archive at `path`; empty when there is none.
    FakeArchive ArchiveAt(const std::string& path) const {
        FakeArchive archive;
        const auto file = files_.files.find(path);
        if (file != files_.files.end()) FakeArchive::FromBytes(file->second, &archive);
        return archive;
    }

    // The names and contents in an archive's bytes; none in bytes that are no archive.
    static std::vector<std::pair<std::string, std::string>> EntriesOf(const std::string& bytes) {
        FakeArchive archive;
        std::vector<std::pair<std::string, std::string>> entries;
        if (FakeArchive::FromBytes(bytes, &archive) != 0) return entries;
        for (const FakeEntry& entry : archive.entries)
            entries.emplace_back(entry.name, entry.content);
        return entries;
    }

    // The bytes of an archive of these, for a test to attach.
    static std::string Archive(const std::vector<std::pair<std::string, std::string>>& entries) {
        FakeArchive archive;
        for (const auto& [name, content] : entries)
            archive.entries.push_back({name, content, 5});
        return archive.ToBytes();
    }

    void PutArchive(const std::string& path, const FakeArchive& archive) {
        files_.Put(path, archive.ToBytes());
    }

    // The error code of the next action, once; the action does nothing else.
    std::optional<std::int16_t> next_code;

    std::function<void()> on_action;   // before each action of a zip engine
    std::string last_item;             // the item list of the last action of one
    std::string last_archive;          // and its archive
    std::set<std::string> fail_items;  // base names that cannot be added
    std::size_t archive_overhead = 0;  // bytes that each archive has too many
    std::optional<Error> proof_error;

    // The date of every entry.
    std::string entry_date = "01/02/2003 04:05:06";

    // The bytes of input that a memory action asks for at once, and hands over at once.
    std::int32_t piece_bytes = 64;

    // The engines that were made last, while they live.
    ZipEngine* zip_engine = nullptr;
    UnzipEngine* unzip_engine = nullptr;

 private:
    class Zip final : public ZipEngine {
     public:
        explicit Zip(FakeZipFactory& owner) : owner_(owner) {}
        void Action(std::int16_t action) override { error_code = owner_.RunZip(*this, action); }

     private:
        FakeZipFactory& owner_;
    };

    class Unzip final : public UnzipEngine {
     public:
        explicit Unzip(FakeZipFactory& owner) : owner_(owner) {}
        void Action(std::int16_t action) override { error_code = Run(action); }

     private:
        std::int16_t Run(std::int16_t action) {
            if (const auto code = owner_.Begin(action)) return *code;
            switch (action) {
                case kUnzipCount: return Count();
                case kUnzipNext: return Next();
                case kUnzipExtract: return Extract();
                default: return 16;
            }
        }

        std::int16_t Open() {
            archive_ = FakeArchive();
            next_ = 0;
            const auto file = owner_.files_.files.find(zip_file);
            if (file == owner_.files_.files.end()) return 13;
            return FakeArchive::FromBytes(file->second, &archive_);
        }

        std::int16_t Count() {
            entry_count = 0;
            if (const std::int16_t code = Open(); code != 0) {
                archive_ = FakeArchive();
                return code;
            }
            constexpr std::size_t kLargest = std::numeric_limits<std::int16_t>::max();
            entry_count = static_cast<std::int16_t>(std::min(archive_.entries.size(), kLargest));
            return 0;
        }

        std::int16_t Next() {
            entry_name.clear();
            entry_date.clear();
            entry_path_flag = false;
            entry_size = entry_compressed_size = entry_number = 0;
            if (next_ >= archive_.entries.size()) return 12;
            const FakeEntry& entry = archive_.entries[next_];
            entry_name = entry.name;
            entry_path_flag = entry.name.find('/') != std::string::npos;
            entry_size = static_cast<std::int32_t>(entry.content.size());
            entry_compressed_size = entry.level == 0 ? entry_size : (entry_size + 1) / 2;
            entry_number = static_cast<std::int32_t>(next_++);
            entry_date = owner_.entry_date;
            return 0;
        }

        std::int16_t Extract() {
            if (const std::int16_t code = Open(); code != 0) return code;
            if (!owner_.files_.HasDirectory(destination)) return 15;
            for (const FakeEntry& entry : archive_.entries) {
                const std::string path = destination + entry.name;
                if (entry.name.find("..") != std::string::npos) return 3;
                if (never_overwrite && owner_.files_.files.contains(path)) return 15;
                if (!entry.name.ends_with('/')) owner_.files_.Put(path, entry.content);
            }
            return 0;
        }

        FakeZipFactory& owner_;
        FakeArchive archive_;
        std::size_t next_ = 0;
    };

    // The code that a fault or the test wants instead of the action.
    std::optional<std::int16_t> Begin(std::int16_t action) {
        const std::string call = "zip.Action" + std::to_string(action);
        const Status planned = plan_.Enter(call.c_str());
        if (!planned.ok()) return planned.error().kind == ErrorKind::kNoSpace ? 14 : 17;
        return std::exchange(next_code, std::nullopt);
    }

    static std::vector<std::string> ItemsOf(const std::string& list) {
        std::vector<std::string> items;
        if (list.find('"') == std::string::npos && !list.empty()) return {list};
        for (auto open = list.find('"'); open != std::string::npos;) {
            const auto close = std::min(list.find('"', open + 1), list.size());
            items.push_back(list.substr(open + 1, close - open - 1));
            open = close == list.size() ? std::string::npos : list.find('"', close + 1);
        }
        std::erase(items, std::string());
        return items;
    }

    static std::string Lower(std::string name) {
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return name;
    }

    // All of the memory input; nothing when the answer to a question is none.
    std::optional<std::string> MemoryInput(ZipEngine& engine) const {
        std::string input;
        for (;;) {
            std::string buffer(static_cast<std::size_t>(piece_bytes), '\0');
            ZipMemoryCall call;
            call.data = &buffer;
            call.count = piece_bytes;
            call.input_offset = static_cast<std::int64_t>(input.size());
            engine.on_memory(call);
            if (call.result == 0 || (call.result == 3 && call.count <= 0)) return input;
            if (call.result != 3) return std::nullopt;
            input.append(buffer, 0, static_cast<std::size_t>(call.count));
        }
    }

    void HandOver(ZipEngine& engine, const std::string& output) const {
        for (std::size_t offset = 0; offset < output.size();) {
            std::string piece = output.substr(offset, static_cast<std::size_t>(piece_bytes));
            ZipMemoryCall call;
            call.action = 1;
            call.data = &piece;
            call.count = static_cast<std::int32_t>(piece.size());
            call.output_offset = static_cast<std::int64_t>(offset);
            offset += piece.size();
            engine.on_memory(call);
        }
    }

    // What the action is to add, under the names that it is to have.
    std::int16_t Collect(ZipEngine& engine, std::int16_t action,
                         const std::vector<std::string>& items, FakeArchive& added) const {
        for (const std::string& item : items) {
            const std::string base = item.substr(item.rfind('/') + 1);
            if (fail_items.contains(base)) return 18;
            FakeEntry entry{engine.store_folder_names ? item : base, {}, engine.compression_level};
            if (action == kZipAddFiles) {
                const auto file = files_.files.find(item);
                if (file == files_.files.end()) return 18;
                entry.content = file->second;
            } else if (action == kZipAddText) {
                entry.content = engine.text_buffer;
            } else {
                std::optional<std::string> input = MemoryInput(engine);
                if (!input.has_value()) return 11;
                entry.content = std::move(*input);
            }
            added.entries.push_back(std::move(entry));
        }
        return 0;
    }

    // Reads the archive that is to be extended, unless it is the one that was written last: a
    // rollup of thousands of files would be read thousands of times.
    std::int16_t OpenOld(const std::string& path) {
        const auto old = files_.files.find(path);
        const std::size_t size = old == files_.files.end() ? 0 : old->second.size();
        if (size > 0 && path == open_.path && size == open_.size) return 0;
        open_ = Opened();
        if (old != files_.files.end()) {
            const std::int16_t code = FakeArchive::FromBytes(old->second, &open_.archive);
            if (code != 0) return code;
        }
        for (const FakeEntry& entry : open_.archive.entries)
            open_.names.insert(Lower(entry.name));
        open_.path = path;
        return 0;
    }

    std::int16_t Extend(const ZipEngine& engine, std::int16_t action, const FakeArchive& added) {
        const auto cut = engine.zip_file.rfind('/');
        if (cut == std::string::npos || !files_.HasDirectory(engine.zip_file.substr(0, cut))) {
            return 15;
        }
        if (const std::int16_t code = OpenOld(engine.zip_file)) return code;
        std::vector<FakeEntry>& entries = open_.archive.entries;
        bool anew = engine.comment_switch || archive_overhead > 0 || open_.size == 0;
        if (engine.comment_switch) open_.archive.comment = engine.comment;
        if (archive_overhead > 0) open_.archive.comment.resize(archive_overhead, '.');
        std::string more;
        for (FakeEntry entry : added.entries) {
            if (action == kZipAddText) {
                const bool replaces = std::erase_if(entries, [&](const FakeEntry& old) {
                                          return old.name == entry.name;
                                      }) > 0;
                if (replaces) open_.names.erase(Lower(entry.name));
                anew = anew || replaces;
            }
            entry.name = open_.TakeName(entry.name);
            more += FakeArchive::EntryBytes(entry);
            entries.push_back(std::move(entry));
        }
        std::string& bytes = files_.files[engine.zip_file];
        if (anew) {
            bytes = open_.archive.ToBytes();
        } else {
            bytes += more;
        }
        open_.size = bytes.size();
        return 0;
    }

    std::int16_t RunZip(ZipEngine& engine, std::int16_t action) {
        last_item = engine.item_list;
        last_archive = engine.zip_file;
        if (on_action) on_action();
        if (const auto code = Begin(action)) return *code;
        const bool known = action >= kZipAddFiles && action <= kZipMemoryToFile;
        if (!known) return 16;
        const std::vector<std::string> items = ItemsOf(engine.item_list);
        if (items.empty()) return 12;
        if (action != kZipAddFiles && items.size() != 1) return 16;

        FakeArchive added;
        if (const std::int16_t code = Collect(engine, action, items, added)) return code;
        if (action != kZipMemoryToMemory) return Extend(engine, action, added);
        if (engine.comment_switch) added.comment = engine.comment;
        HandOver(engine, added.ToBytes());
        return 0;
    }

    // The archive that was written last.
    struct Opened {
        // The name itself, or the first that is free of "name (2).ext" and so on.
        std::string TakeName(const std::string& wanted) {
            const auto dot = std::min(wanted.rfind('.'), wanted.size());
            int& number = last_numbers[Lower(wanted)];
            std::string name = wanted;
            while (!names.insert(Lower(name)).second) {
                number = std::max(number + 1, 2);
                name = wanted.substr(0, dot) + " (" + std::to_string(number) + ")" +
                       wanted.substr(dot);
            }
            return name;
        }

        std::string path;
        std::size_t size = 0;  // 0: its bytes are to be made anew
        FakeArchive archive;
        std::set<std::string> names;              // in lower case
        std::map<std::string, int> last_numbers;  // where the search for a free name goes on
    };

    Opened open_;
    FaultPlan& plan_;
    FakeFileSystem& files_;
};

}  // namespace trevix::fakes
