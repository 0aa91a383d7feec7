// trevix_reference: writes what is made from the command table while the program is built.
//
//   trevix_reference man TEMPLATE DATE OUTPUT
//   trevix_reference bash|zsh|fish OUTPUT
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "cli/completion.h"
#include "cli/man_page.h"
#include "cli/reference.h"

namespace {

int Fail(const std::string& why) {
    std::cerr << "trevix_reference: " << why << '\n';
    return 1;
}

int Write(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text << std::flush;
    return file.good() ? 0 : Fail(path + " cannot be written");
}

int WriteManPage(const std::string& source, const std::string& date, const std::string& path) {
    std::ifstream file(source, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (text.empty()) return Fail(source + " cannot be read");
    const auto page =
        trevix::cli::FillManPage(text, std::filesystem::path(source).filename().string(), date,
                                 trevix::cli::ProgramReference());
    if (!page.ok()) return Fail(source + ": what is @" + page.error().description + "@?");
    return Write(path, page.value());
}

}  // namespace

int main(int argc, char** argv) {
    using trevix::cli::ProgramReference;
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() == 4 && words[0] == "man") return WriteManPage(words[1], words[2], words[3]);
    if (words.size() != 2) return Fail("man TEMPLATE DATE OUTPUT, or bash|zsh|fish OUTPUT");
    if (words[0] == "bash") return Write(words[1], BashCompletion(ProgramReference()));
    if (words[0] == "zsh") return Write(words[1], ZshCompletion(ProgramReference()));
    if (words[0] == "fish") return Write(words[1], FishCompletion(ProgramReference()));
    return Fail(words[0] + " is no shell that is known here");
}
