// RegParser: reads registry-editor text into a RegDocument.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry/reg_document.h"

namespace trevix::registry {

class RegParser {
 public:
    RegParser(const std::string& bytes, const std::string& file);

    Result<RegDocument> Parse();

 private:
    Status ReadText();
    Status ReadHeader();
    Status ReadLine();
    Status ReadSection(std::string_view line);
    Status ReadEntry(std::string_view line);
    Status ReadData(std::string_view rest, RegistryValue& value);
    Status ReadDword(std::string_view rest, RegistryValue& value);
    Status ReadHex(std::string_view rest, RegistryValue& value);
    Status ReadHexBytes(std::string_view rest, std::string& data);
    Result<std::string> TakeQuoted(std::string_view& rest);
    void Keep(RegistryValue value, std::string text);
    Error Malformed(const std::string& what) const;

    std::string bytes_;
    const std::string& file_;
    std::vector<std::string> lines_;
    std::size_t at_ = 0;         // the line being read
    std::string before_;         // comments and blank lines since the last other line
    std::string section_;        // path of the section being read; empty in front of the first
    bool section_goes_ = false;  // inside a section of a deletion line
    RegDocument document_;
};

}  // namespace trevix::registry
