#include "platform/mime/decoded_blob.h"

#include <mutex>
#include <string>
#include <vector>

namespace trevix::mime {
namespace {

constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

using StepFunction = DecodeStep (*)(const char*, std::size_t, bool, char*);

// Where a piece of the encoded text begins, and the decoded bytes before it.
struct Checkpoint {
    std::uint64_t encoded = 0;
    std::uint64_t decoded = 0;
};

Error Undecodable(const char* why) {
    return MessagingError(kCorruptData, std::string("the attachment cannot be decoded: ") + why);
}

class DecodedSource final : public Blob::Source {
 public:
    DecodedSource(Blob encoded, StepFunction step, std::vector<Checkpoint> checkpoints)
        : encoded_(std::move(encoded)), step_(step), checkpoints_(std::move(checkpoints)) {}

    std::uint64_t size_bytes() const override { return checkpoints_.back().decoded; }

    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        const std::lock_guard<std::mutex> lock(mutex_);
        std::size_t piece = PieceAt(offset);
        while (count > 0) {
            TREVIX_RETURN_IF_ERROR(DecodePiece(piece));
            const std::uint64_t inside = offset - checkpoints_[piece].decoded;
            const std::size_t take =
                std::min(count, piece_bytes_.size() - static_cast<std::size_t>(inside));
            std::memcpy(target, piece_bytes_.data() + inside, take);
            offset += take;
            target += take;
            count -= take;
            ++piece;
        }
        return {};
    }

 private:
    std::size_t PieceAt(std::uint64_t offset) const {
        const auto after = std::upper_bound(
            checkpoints_.begin(), checkpoints_.end(), offset,
            [](std::uint64_t value, const Checkpoint& point) { return value < point.decoded; });
        return static_cast<std::size_t>(after - checkpoints_.begin() - 1);
    }

    Status DecodePiece(std::size_t piece) const {
        if (piece == decoded_piece_) return {};
        const Checkpoint& from = checkpoints_[piece];
        const Checkpoint& to = checkpoints_[piece + 1];
        input_.resize(static_cast<std::size_t>(to.encoded - from.encoded));
        TREVIX_RETURN_IF_ERROR(encoded_.ReadAt(from.encoded, input_.data(), input_.size()));
        decoded_piece_ = kNoPiece;
        piece_bytes_.resize(input_.size());
        const bool last = to.encoded == encoded_.size_bytes();
        const DecodeStep step = step_(input_.data(), input_.size(), last, piece_bytes_.data());
        // The bytes decoded when this object was made; other bytes now mean a changed file.
        if (step.bad || step.produced != to.decoded - from.decoded) {
            return MessagingError(kObjectChanged, "the message changed while it was read");
        }
        piece_bytes_.resize(step.produced);
        decoded_piece_ = piece;
        return {};
    }

    static constexpr std::size_t kNoPiece = static_cast<std::size_t>(-1);

    Blob encoded_;
    StepFunction step_;
    std::vector<Checkpoint> checkpoints_;  // the last one is the end

    // The piece decoded last: a reader of small pieces does not decode each 64 KiB many times.
    mutable std::mutex mutex_;
    mutable std::string input_;
    mutable std::string piece_bytes_;
    mutable std::size_t decoded_piece_ = kNoPiece;
};

Status OnlySpaceFrom(const Blob& encoded, std::uint64_t offset) {
    const Blob rest = encoded.Slice(offset, encoded.size_bytes() - offset);
    return rest.ForEachPiece([](const char* bytes, std::size_t count) -> Status {
        for (std::size_t i = 0; i < count; ++i) {
            if (!IsTransferSpace(bytes[i])) return Undecodable("data after the padding");
        }
        return {};
    });
}

Result<Blob> DecodeInMemory(const Blob& encoded, StepFunction step_function) {
    const auto size = static_cast<std::size_t>(encoded.size_bytes());
    std::string output(size, '\0');
    const DecodeStep step = step_function(encoded.in_memory(), size, true, output.data());
    if (step.bad) return Undecodable("damaged transfer encoding");
    if (step.padded) TREVIX_RETURN_IF_ERROR(OnlySpaceFrom(encoded, step.consumed));
    output.resize(step.produced);
    return Blob::FromString(std::move(output));
}

Result<std::vector<Checkpoint>> Index(const Blob& encoded, StepFunction step_function) {
    std::vector<Checkpoint> points(1);
    const std::uint64_t size = encoded.size_bytes();
    std::string input(static_cast<std::size_t>(std::min<std::uint64_t>(size, kPieceBytes)), '\0');
    std::string output(input.size(), '\0');
    while (points.back().encoded < size) {
        const Checkpoint at = points.back();
        const auto count =
            static_cast<std::size_t>(std::min<std::uint64_t>(size - at.encoded, kPieceBytes));
        const bool last = at.encoded + count == size;
        TREVIX_RETURN_IF_ERROR(encoded.ReadAt(at.encoded, input.data(), count));
        const DecodeStep step = step_function(input.data(), count, last, output.data());
        if (step.bad || step.consumed == 0) return Undecodable("damaged transfer encoding");
        points.push_back({at.encoded + step.consumed, at.decoded + step.produced});
        if (step.padded) {
            TREVIX_RETURN_IF_ERROR(OnlySpaceFrom(encoded, points.back().encoded));
            break;
        }
    }
    return points;
}

}  // namespace

Result<Blob> DecodeBlob(const Blob& encoded, TransferEncoding encoding) {
    StepFunction step = nullptr;
    switch (encoding) {
        case TransferEncoding::kIdentity: return encoded;
        case TransferEncoding::kBase64: step = DecodeBase64; break;
        case TransferEncoding::kQuotedPrintable: step = DecodeQuotedPrintable; break;
        case TransferEncoding::kUnknown: return Undecodable("unknown transfer encoding");
    }
    if (encoded.in_memory() != nullptr) return DecodeInMemory(encoded, step);
    Result<std::vector<Checkpoint>> points = Index(encoded, step);
    if (!points.ok()) return points.error();
    return Blob(std::make_shared<DecodedSource>(encoded, step, std::move(points).value()));
}

}  // namespace trevix::mime
