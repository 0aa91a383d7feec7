// Public sample files, where they are at hand.
#include <gtest/gtest.h>

#include <filesystem>

#include "bytes.h"
#include "support/shared_folder.h"

namespace trevix::recordset {
namespace {

std::string SampleFolder() {
    return test::SharedFolder("corpus/adtg");
}

std::vector<std::filesystem::path> Samples() {
    std::vector<std::filesystem::path> samples;
    std::error_code absent;
    for (const auto& entry : std::filesystem::directory_iterator(SampleFolder(), absent)) {
        if (entry.path().extension() == ".adtg") samples.push_back(entry.path());
    }
    return samples;
}

TEST(AdtgSamples, AreReadAndWrittenByteForByte) {
    const auto samples = Samples();
    if (samples.empty()) GTEST_SKIP() << "no sample files in " << SampleFolder();
    int flat = 0;
    for (const auto& sample : samples) {
        const std::string bytes = ReadWholeFile(sample.string());
        const auto records = ReadBytes(bytes);
        if (!records.ok()) {
            EXPECT_NE(records.error().description.find("hierarchical"), std::string::npos)
                << sample << ": " << records.error().description;
            continue;
        }
        ++flat;
        EXPECT_TRUE(WriteBytes(records.value()->table()) == bytes) << sample;
    }
    RecordProperty("flat", flat);
    RecordProperty("all", static_cast<int>(samples.size()));
    EXPECT_GT(flat, 0);
}

TEST(AdtgSamples, AreRefusedWhenCutOffAnywhere) {
    const auto samples = Samples();
    if (samples.empty()) GTEST_SKIP() << "no sample files in " << SampleFolder();
    for (const auto& sample : samples) {
        const std::string bytes = ReadWholeFile(sample.string());
        if (bytes.size() > 1000 || !ReadBytes(bytes).ok()) continue;
        for (std::size_t size = 0; size < bytes.size(); ++size) {
            ASSERT_FALSE(ReadBytes(std::string_view(bytes).substr(0, size)).ok())
                << sample << " cut at " << size;
        }
    }
}

}  // namespace
}  // namespace trevix::recordset
