#include "platform/zip/engine.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "platform/zip/archive_output.h"
#include "platform/zip/archive_writer.h"
#include "platform/zip/heap_bytes.h"
#include "platform/zip/item_list.h"

namespace trevix::zip_engine {
namespace {

constexpr std::size_t kInputPiece = std::size_t{256} * 1024;
constexpr std::size_t kOutputPiece = std::size_t{64} * 1024;

std::vector<std::unique_ptr<Member>> JustOne(std::unique_ptr<Member> member) {
    std::vector<std::unique_ptr<Member>> members;
    members.push_back(std::move(member));
    return members;
}

}  // namespace

void Engine::Action(std::int16_t action) {
    // The library of the language reports missing memory by throwing; nothing may leave here.
    try {
        error_code = Run(action);
    } catch (const std::bad_alloc&) {
        error_code = kNoMemory;
    } catch (const std::exception&) {
        error_code = kInternal;
    }
}

Code Engine::Run(std::int16_t action) {
    if (compression_level < 0 || compression_level > 9) return kBadParameters;
    switch (action) {
        case kZipAddFiles: return AddFiles();
        case kZipAddText: return AddText();
        case kZipMemoryToMemory: return MemoryToMemory();
        case kZipMemoryToFile: return MemoryToFile();
        default: return kBadCommand;
    }
}

Code Engine::AddFiles() {
    std::vector<std::string> items;
    if (const Code code = ParseItemList(item_list, &items); code != kOk) return code;
    std::vector<std::unique_ptr<Member>> members;
    std::uint64_t may_hold = kHeldLimitBytes;
    for (const std::string& item : items) {
        std::string name;
        if (const Code code = EntryNameOf(item, store_folder_names, &name); code != kOk) {
            return code;
        }
        auto member = std::make_unique<Member>(std::move(name));
        const Code code = member->TakeFile(item, compression_level, may_hold, deflater_);
        if (code != kOk) return code;
        may_hold -= std::min(may_hold, member->held_bytes());
        members.push_back(std::move(member));
    }
    return WriteToFile(members);
}

Code Engine::AddText() {
    std::string name;
    if (const Code code = SingleEntryName(&name); code != kOk) return code;
    auto member = std::make_unique<Member>(std::move(name));
    HeapBytes bytes = MakeHeapBytes(text_buffer.size());
    std::copy(text_buffer.begin(), text_buffer.end(), bytes.get());
    member->TakeBytes(std::move(bytes), text_buffer.size(), compression_level, deflater_);
    member->ReplaceNamesakes();
    return WriteToFile(JustOne(std::move(member)));
}

Code Engine::MemoryToFile() {
    std::string name;
    if (const Code code = SingleEntryName(&name); code != kOk) return code;
    auto member = std::make_unique<Member>(std::move(name));
    const Code code = TakeMemoryInput(DirectoryOf(zip_file), *member);
    if (code != kOk) return code;
    return WriteToFile(JustOne(std::move(member)));
}

Code Engine::MemoryToMemory() {
    std::string name;
    if (const Code code = SingleEntryName(&name); code != kOk) return code;
    auto member = std::make_unique<Member>(std::move(name));
    Code code = TakeMemoryInput(ScratchDirectory(), *member);
    if (code != kOk) return code;

    ArchiveOutput output{std::string()};
    code = WriteArchive(output, compression_level, {comment_switch, comment},
                        JustOne(std::move(member)));
    if (code != kOk) return code;

    // Handed over in order, and only now: whoever collects it need not be able to go back.
    DescriptorBytes archive(output.new_descriptor(), output.new_bytes());
    for (std::uint64_t offset = 0; offset < archive.size_bytes();) {
        std::string piece(static_cast<std::size_t>(
                              std::min<std::uint64_t>(kOutputPiece, archive.size_bytes() - offset)),
                          '\0');
        const std::size_t count = piece.size();
        code = archive.ReadAt(offset, piece.data(), count);
        if (code != kOk) return code;
        ZipMemoryCall call;
        call.action = 1;
        call.data = &piece;
        call.count = static_cast<std::int32_t>(count);
        call.output_offset = static_cast<std::int64_t>(offset);
        on_memory(call);
        offset += count;
    }
    return kOk;
}

Code Engine::SingleEntryName(std::string* name) const {
    std::vector<std::string> items;
    if (const Code code = ParseItemList(item_list, &items); code != kOk) return code;
    if (items.size() != 1) return kBadCommand;
    return EntryNameOf(items.front(), store_folder_names, name);
}

Code Engine::AskForInput(std::int64_t offset, std::string& buffer, std::int32_t* count) {
    constexpr std::int32_t kEndOfInput = 0;
    constexpr std::int32_t kGoOn = 3;
    buffer.resize(kInputPiece);
    ZipMemoryCall call;
    call.data = &buffer;
    call.count = static_cast<std::int32_t>(buffer.size());
    call.input_offset = offset;
    on_memory(call);
    *count = 0;
    if (call.result == kEndOfInput) return kOk;
    if (call.result != kGoOn) return kReadFailed;
    // A negative number comes from an input that has not even one byte.
    if (call.count <= 0) return kOk;
    if (static_cast<std::size_t>(call.count) > buffer.size()) return kInternal;
    *count = call.count;
    return kOk;
}

Code Engine::TakeMemoryInput(const std::string& scratch, Member& member) {
    if (!on_memory) return kBadParameters;
    HeapBytes held;
    std::size_t capacity = 0;
    std::size_t used = 0;
    UniqueDescriptor spill;
    std::int64_t offset = 0;
    std::string buffer;
    for (;;) {
        std::int32_t count = 0;
        if (const Code code = AskForInput(offset, buffer, &count); code != kOk) return code;
        if (count == 0) break;
        const auto piece = static_cast<std::size_t>(count);
        const bool spilling = spill.valid() || used + piece > kWholeLimitBytes;
        if (spilling && !spill.valid()) {
            spill = OpenScratch(scratch);
            if (!spill.valid()) return CreateCode(errno) == kWriteFailed ? kWriteFailed : kTempFile;
            if (WriteFully(spill.get(), 0, held.get(), used) != 0) return kWriteFailed;
            held.reset();
        }
        if (spilling) {
            const int failed =
                WriteFully(spill.get(), static_cast<std::uint64_t>(offset), buffer.data(), piece);
            if (failed != 0) return kWriteFailed;
        } else {
            if (used + piece > capacity) {
                capacity = std::max(used + piece, capacity * 2);
                HeapBytes larger = MakeHeapBytes(capacity);
                if (used > 0) std::memcpy(larger.get(), held.get(), used);
                held = std::move(larger);
            }
            std::memcpy(held.get() + used, buffer.data(), piece);
            used += piece;
        }
        offset += count;
    }
    if (spill.valid()) {
        member.TakeScratch(std::move(spill), static_cast<std::uint64_t>(offset), compression_level,
                           deflater_);
        return kOk;
    }
    if (held == nullptr) held = MakeHeapBytes(0);
    member.TakeBytes(std::move(held), used, compression_level, deflater_);
    return kOk;
}

Code Engine::WriteToFile(const std::vector<std::unique_ptr<Member>>& members) {
    if (zip_file.empty() || zip_file.ends_with('/')) return kBadCommand;
    if (zip_file.find('\0') != std::string::npos) return kBadCommand;
    ArchiveOutput output(zip_file);
    if (const Code code = output.OpenOld(); code != kOk) return code;
    const Code code = WriteArchive(output, compression_level, {comment_switch, comment}, members);
    return code != kOk ? code : output.Publish();
}

}  // namespace trevix::zip_engine
