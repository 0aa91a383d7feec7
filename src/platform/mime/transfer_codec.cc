#include "platform/mime/transfer_codec.h"

#include <array>
#include <cstring>

#include "platform/mime/ascii.h"

namespace trevix::mime {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint32_t kNotBase64 = 0x01000000;

// One table a position in the group: the character's bits, shifted to where they belong.
constexpr std::array<std::uint32_t, 256> MakeTable(unsigned shift) {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t& entry : table)
        entry = kNotBase64;
    for (std::uint32_t value = 0; value < 64; ++value) {
        table[static_cast<unsigned char>(kAlphabet[value])] = value << shift;
    }
    return table;
}

constexpr std::array<std::uint32_t, 256> kFirst = MakeTable(18);
constexpr std::array<std::uint32_t, 256> kSecond = MakeTable(12);
constexpr std::array<std::uint32_t, 256> kThird = MakeTable(6);
constexpr std::array<std::uint32_t, 256> kFourth = MakeTable(0);

// Two characters for each value of 12 bits.
constexpr std::array<char, 8192> MakePairs() {
    std::array<char, 8192> pairs{};
    for (std::size_t value = 0; value < 4096; ++value) {
        pairs[2 * value] = kAlphabet[value >> 6U];
        pairs[2 * value + 1] = kAlphabet[value & 63U];
    }
    return pairs;
}

constexpr std::array<char, 8192> kPairs = MakePairs();

std::uint32_t Group(const unsigned char* in) {
    return kFirst[in[0]] | kSecond[in[1]] | kThird[in[2]] | kFourth[in[3]];
}

void PutThree(std::uint32_t group, char* out) {
    out[0] = static_cast<char>(group >> 16U);
    out[1] = static_cast<char>(group >> 8U);
    out[2] = static_cast<char>(group);
}

// A group that is not four characters in a row: one with white space in it, the padded one, or the
// beginning of one whose rest is in the next piece.
struct LooseGroup {
    std::array<unsigned char, 4> chars{};
    std::size_t count = 0;  // characters of the alphabet
    std::size_t padding = 0;
    std::size_t end = 0;  // behind the group
    bool bad = false;
};

LooseGroup ReadLooseGroup(const unsigned char* in, std::size_t at, std::size_t size) {
    LooseGroup group;
    while (at < size && group.count + group.padding < 4) {
        const unsigned char c = in[at];
        if (kFourth[c] != kNotBase64 && group.padding == 0) {
            group.chars[group.count++] = c;
        } else if (c == '=' && group.count >= 2) {
            ++group.padding;
        } else if (!IsTransferSpace(static_cast<char>(c))) {
            group.bad = true;
            return group;
        }
        ++at;
    }
    group.end = at;
    return group;
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

}  // namespace

bool IsTransferSpace(char c) {
    return c == '\n' || c == '\r' || c == ' ' || c == '\t';
}

TransferEncoding TransferEncodingOf(std::string_view value) {
    std::string word = AsciiLower(TrimBlanks(value));
    // A stray separator behind the word is common and means nothing.
    while (!word.empty() && word.back() == ';')
        word = std::string(TrimBlanks(word.substr(0, word.size() - 1)));
    if (word.empty() || word == "7bit" || word == "8bit" || word == "binary") {
        return TransferEncoding::kIdentity;
    }
    if (word == "base64") return TransferEncoding::kBase64;
    if (word == "quoted-printable") return TransferEncoding::kQuotedPrintable;
    return TransferEncoding::kUnknown;
}

DecodeStep DecodeBase64(const char* in, std::size_t count, bool last, char* out) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(in);
    DecodeStep step;
    std::size_t at = 0;
    char* to = out;
    for (;;) {
        while (count - at >= 4) {
            const std::uint32_t group = Group(bytes + at);
            if (group >= kNotBase64) break;
            PutThree(group, to);
            to += 3;
            at += 4;
        }
        while (at < count && IsTransferSpace(in[at]))
            ++at;
        if (at == count) break;
        if (count - at >= 4 && Group(bytes + at) < kNotBase64) continue;

        const LooseGroup group = ReadLooseGroup(bytes, at, count);
        const bool whole = group.count + group.padding == 4;
        if (group.bad || (!whole && last)) {
            step.bad = true;
            break;
        }
        if (!whole) break;  // the rest of the group is in the next piece
        std::array<unsigned char, 4> chars = group.chars;
        for (std::size_t i = group.count; i < 4; ++i)
            chars[i] = 'A';
        std::array<char, 3> three{};
        PutThree(Group(chars.data()), three.data());
        for (std::size_t i = 0; i + 1 < group.count; ++i)
            *to++ = three[i];
        at = group.end;
        if (group.padding > 0) {
            step.padded = true;
            break;
        }
    }
    step.consumed = at;
    step.produced = static_cast<std::size_t>(to - out);
    return step;
}

DecodeStep DecodeQuotedPrintable(const char* in, std::size_t count, bool last, char* out) {
    DecodeStep step;
    std::size_t at = 0;
    char* to = out;
    while (at < count) {
        const void* found = std::memchr(in + at, '=', count - at);
        const std::size_t stop =
            found == nullptr ? count
                             : static_cast<std::size_t>(static_cast<const char*>(found) - in);
        std::memcpy(to, in + at, stop - at);
        to += stop - at;
        at = stop;
        if (at == count) break;

        const std::size_t left = count - at;
        if (left >= 2 && in[at + 1] == '\n') {
            at += 2;
        } else if (left >= 3 && in[at + 1] == '\r' && in[at + 2] == '\n') {
            at += 3;
        } else if (left >= 3 && HexValue(in[at + 1]) >= 0 && HexValue(in[at + 2]) >= 0) {
            *to++ = static_cast<char>(HexValue(in[at + 1]) * 16 + HexValue(in[at + 2]));
            at += 3;
        } else if (left == 1 && last) {
            at += 1;  // a soft line break whose line end belongs to the boundary that follows
        } else if (left < 3 && !last) {
            break;  // the rest of the escape is in the next piece
        } else {
            step.bad = true;
            break;
        }
    }
    step.consumed = at;
    step.produced = static_cast<std::size_t>(to - out);
    return step;
}

void EncodeBase64(const unsigned char* in, std::size_t count, char* out) {
    std::size_t at = 0;
    for (; count - at >= 3; at += 3, out += 4) {
        const unsigned high = static_cast<unsigned>(in[at]) << 4U | in[at + 1] >> 4U;
        const unsigned low = (in[at + 1] & 15U) << 8U | in[at + 2];
        std::memcpy(out, kPairs.data() + 2 * std::size_t{high}, 2);
        std::memcpy(out + 2, kPairs.data() + 2 * std::size_t{low}, 2);
    }
    if (count - at == 1) {
        std::memcpy(out, kPairs.data() + 2 * (std::size_t{in[at]} << 4U), 2);
        out[2] = out[3] = '=';
    } else if (count - at == 2) {
        const unsigned high = static_cast<unsigned>(in[at]) << 4U | in[at + 1] >> 4U;
        std::memcpy(out, kPairs.data() + 2 * std::size_t{high}, 2);
        out[2] = kAlphabet[(in[at + 1] & 15U) << 2U];
        out[3] = '=';
    }
}

}  // namespace trevix::mime
