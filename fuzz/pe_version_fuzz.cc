// Reads any bytes as a program with a version.
#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "util/pe_version.h"

namespace trevix {
namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

// The bytes, and how much of them is asked for: a bound that no input may break.
class WatchedSource final : public Blob::Source {
 public:
    explicit WatchedSource(std::string_view bytes) : bytes_(bytes) {}

    std::uint64_t size_bytes() const override { return bytes_.size(); }
    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        Require(offset <= bytes_.size() && count <= bytes_.size() - offset);
        read_ += count;
        Require(read_ <= 65536);
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), count, target);
        return {};
    }

 private:
    std::string_view bytes_;
    mutable std::size_t read_ = 0;
};

// Nothing, or four numbers of 16 bits.
bool IsVersion(const std::string& text) {
    if (text.empty()) return true;
    std::array<unsigned, 4> numbers{};
    std::size_t at = 0;
    for (const char c : text) {
        if (c == '.') {
            if (++at == numbers.size()) return false;
        } else if (std::isdigit(static_cast<unsigned char>(c)) != 0) {
            numbers.at(at) = numbers.at(at) * 10 + static_cast<unsigned>(c - '0');
            if (numbers.at(at) > 65535) return false;
        } else {
            return false;
        }
    }
    return at + 1 == numbers.size();
}

}  // namespace
}  // namespace trevix

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const trevix::Blob image(std::make_shared<trevix::WatchedSource>(bytes));
    trevix::Require(trevix::IsVersion(trevix::PeVersionText(image)));
    return 0;
}
