// Bytes, files and record sets for the tests of ADTG files.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "platform/recordset/adtg_reader.h"
#include "platform/recordset/adtg_writer.h"
#include "platform/recordset/number_text.h"

namespace trevix::recordset {

// The bytes that a text of hexadecimal digits names; blanks and line ends are passed over.
inline std::string FromHex(std::string_view digits) {
    const auto value = [](char digit) {
        return digit <= '9' ? digit - '0' : (digit & ~0x20) - 'A' + 10;
    };
    std::string bytes;
    int high = -1;
    for (const char digit : digits) {
        if (digit == ' ' || digit == '\n') continue;
        if (high < 0) {
            high = value(digit);
        } else {
            bytes += static_cast<char>(high * 16 + value(digit));
            high = -1;
        }
    }
    return bytes;
}

// The constant start of files, with its counts, as another writer of the format makes it.
inline std::string ConstantStart(int columns, int rows) {
    std::string start = FromHex(R"(
        01 07 54 47 21 00 00 00 00 02 19 00 B6 92 F2 3F 04 B2 CF 11 8D 23 00 AA 00 5F FE 58 01 00
        00 00 00 00 00 00 00 03 67 00 D2 AD 63 F6 02 EB CF 11 B0 E3 00 AA 00 3F 00 0F 00 00 00 02
        00 02 00 00 00 00 00 00 00 03 00 00 00 01 00 C1 3C 8E B6 EB 6D D0 11 8D F6 00 AA 00 5F FE
        58 07 00 0B 00 00 00 04 00 01 00 00 00 13 00 00 00 04 00 01 00 00 00 0D 00 00 00 00 00 0E
        00 00 00 00 00 0F 00 00 00 00 00 10 00 00 00 00 00 12 00 00 00 00 00 10 7C 00 02 00 BE 22
        B5 C8 F3 5C CE 11 AD E5 00 AA 00 44 77 3D 04 00 7F 00 00 00 02 00 FF FF 86 00 00 00 02 00
        FF FF 22 00 00 00 04 00 00 00 00 00 49 00 00 00 04 00 00 00 00 00 C1 3C 8E B6 EB 6D D0 11
        8D F6 00 AA 00 5F FE 58 05 00 04 00 00 00 04 00 0F 00 00 00 05 00 00 00 04 00 02 00 00 00
        03 00 00 00 04 00 0F 00 00 00 07 00 00 00 04 00 32 00 00 00 08 00 00 00 04 00 03 00 00 00)");
    start[0x3B] = static_cast<char>(columns);
    start[0x3D] = static_cast<char>(columns);
    start[0x45] = static_cast<char>(rows);
    return start;
}

// A column descriptor of an ASCII name.
inline std::string ColumnBytes(int ordinal, std::string_view name, int db_type,
                               std::uint32_t max_length, std::uint32_t flags) {
    std::string bytes;
    const auto put = [&bytes](std::uint32_t value, int count) {
        for (int i = 0; i < count; ++i)
            bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    };
    put(0x06, 1);
    put(static_cast<std::uint32_t>(29 + 2 * name.size()), 2);
    put(0x000180, 3);
    put(static_cast<std::uint32_t>(ordinal), 2);
    put(static_cast<std::uint32_t>(name.size()), 2);
    for (const char letter : name)
        put(static_cast<std::uint8_t>(letter), 2);
    put(static_cast<std::uint32_t>(db_type), 2);
    put(max_length, 4);
    put(0, 4);
    put(0, 4);
    put(flags, 4);
    put(0x0000, 2);
    put(0xFFFF, 2);
    return bytes;
}

inline Result<std::unique_ptr<Records>> ReadBytes(std::string_view bytes) {
    ByteReader reader(bytes);
    return ReadAdtg(reader);
}

inline std::string WriteBytes(const Table& table) {
    std::string bytes;
    ByteWriter writer(&bytes);
    EXPECT_TRUE(WriteAdtg(table, nullptr, writer));
    return bytes;
}

inline std::string ReadWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteWholeFile(const std::string& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// A value and its type as text, for comparing and for failure messages.
inline std::string Shown(const Variant& value) {
    struct Visitor {
        std::string operator()(Empty) const { return "Empty"; }
        std::string operator()(bool flag) const { return flag ? "True" : "False"; }
        std::string operator()(std::int16_t number) const { return std::to_string(number) + "s"; }
        std::string operator()(std::int32_t number) const { return std::to_string(number); }
        std::string operator()(double number) const { return NumberText(number) + "r"; }
        std::string operator()(Date date) const { return "#" + NumberText(date.days) + "#"; }
        std::string operator()(const std::string& text) const { return "'" + text + "'"; }
        std::string operator()(const Blob& blob) const { return blob.ToString().value(); }
        std::string operator()(const StringArray&) const { return "array"; }
        std::string operator()(ErrorValue) const { return "error"; }
    };
    return std::visit(Visitor(), value);
}

// A folder of its own for each test, removed with all that is in it.
class TemporaryFolder {
 public:
    TemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "rs-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string operator/(std::string_view name) const {
        return path_.string() + "/" + std::string(name);
    }
    std::size_t FileCount() const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(path_), {}));
    }

 private:
    std::filesystem::path path_;
};

}  // namespace trevix::recordset
