// RegDocument: the content of one registry-editor text file, as keys with values and as text.
//
// What a user wrote by hand survives a change of something else: the order, the comments (they
// belong to the line that follows them), the spelling of every value that was not changed, the
// encoding and the line ends. Duplicate sections and values are merged, the last value wins, and
// deletion lines take effect and are then gone.
//
// Paths begin with the name of the root ("HKEY_CURRENT_USER\Software"). Paths and names match
// without regard to the case of ASCII letters. A key exists when it has a section or when one below
// it has.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/registry.h"
#include "platform/result.h"

namespace trevix::registry {

class RegDocument {
 public:
    // An empty document, version 5.00, UTF-8, LF.
    RegDocument() = default;

    // kMalformed with "`file`:line: what" as its description. Accepts version 5.00 and REGEDIT4,
    // UTF-8 with or without byte order mark, UTF-16LE with it, CR LF or LF; the empty text is an
    // empty document.
    static Result<RegDocument> Parse(const std::string& bytes, const std::string& file);

    std::string Format() const;

    bool HasKey(const std::string& path) const;
    std::vector<std::string> SubKeys(const std::string& path) const;
    std::vector<RegistryValue> Values(const std::string& path) const;

    void CreateKey(const std::string& path);

    // Creates the key when it is missing. False when nothing had to be changed.
    bool SetValue(const std::string& path, const RegistryValue& value);

    // False when there is none.
    bool DeleteValue(const std::string& path, const std::string& name);

    // Removes the key with everything below it; the key above stays. False when there is none.
    bool DeleteTree(const std::string& path);

    friend class RegParser;

 private:
    struct Entry {
        RegistryValue value;
        std::string before;  // comments and blank lines in front
        std::string text;    // as it was read; empty once changed
    };
    struct Section {
        std::string path;
        std::string folded;
        std::string before;
        std::string text;  // its line as it was read; empty for a new one
        std::vector<Entry> entries;
        std::string after;  // what stood in front of removed entries at the end
        bool removed = false;
    };

    Section& SectionOf(const std::string& path, const std::string& before);
    const Section* Find(const std::string& path) const;
    void RemoveTree(const std::string& folded);

    bool single_byte_ = false;  // REGEDIT4: texts in hexadecimal are bytes, not UTF-16
    bool utf16_ = false;
    bool byte_order_mark_ = false;
    bool carriage_returns_ = false;
    std::vector<Section> sections_;
    std::unordered_map<std::string, std::size_t> index_;  // folded path to section
    std::string tail_;                                    // lines after the last value
};

// ASCII letters in lower case, the form in which paths and names are compared.
std::string Fold(const std::string& text);

// Whether a value name can be written: no control characters but the tab.
bool IsWritableName(const std::string& name);

// The same for a path, in which "]" and then a comment would end the name.
bool IsWritablePath(const std::string& path);

// The path without empty components.
std::string CleanPath(const std::string& path);

}  // namespace trevix::registry
