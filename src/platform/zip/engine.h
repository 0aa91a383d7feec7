// The zip engine over libzip and libdeflate.
//
// Contents of up to 32 MiB are deflated in memory, larger ones while they are read; either way the
// memory of an action stays below about 150 MB.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/zip/deflater.h"
#include "platform/zip/error_codes.h"
#include "platform/zip/member.h"
#include "platform/zip_engine.h"

namespace trevix::zip_engine {

class Engine final : public ZipEngine {
 public:
    void Action(std::int16_t action) override;

 private:
    Code Run(std::int16_t action);
    Code AddFiles();
    Code AddText();
    Code MemoryToMemory();
    Code MemoryToFile();

    // The single name that the actions on one content need, as the entry's name.
    Code SingleEntryName(std::string* name) const;

    // Asks for the whole memory input; what does not fit into memory goes to a file in `scratch`.
    Code TakeMemoryInput(const std::string& scratch, Member& member);
    Code AskForInput(std::int64_t offset, std::string& buffer, std::int32_t* count);

    // Writes the members to zip_file.
    Code WriteToFile(const std::vector<std::unique_ptr<Member>>& members);

    Deflater deflater_;
};

}  // namespace trevix::zip_engine
