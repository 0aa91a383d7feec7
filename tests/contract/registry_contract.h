// What every Registry must do, in executable form. Each implementation instantiates the suite with
// a factory of a fresh world: an empty registry.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "platform/errors.h"
#include "platform/registry.h"

namespace trevix::contract {

class RegistryWorld {
 public:
    virtual ~RegistryWorld() = default;
    virtual Registry& registry() = 0;
};

struct RegistryCase {
    const char* name;
    std::function<std::unique_ptr<RegistryWorld>()> make;
};

inline std::string RegistryCaseName(const testing::TestParamInfo<RegistryCase>& row) {
    return row.param.name;
}

template <typename T>
ErrorKind KindOf(const Result<T>& result) {
    EXPECT_FALSE(result.ok());
    return result.ok() ? ErrorKind::kOther : result.error().kind;
}

class RegistryContract : public testing::TestWithParam<RegistryCase> {
 protected:
    void SetUp() override {
        world_ = GetParam().make();
        ASSERT_NE(world_, nullptr);
    }

    Registry& registry() { return world_->registry(); }

    // An open key, made when missing.
    std::unique_ptr<RegistryKey> Open(const std::string& path, std::uint32_t access = kKeyAllAccess,
                                      std::uint32_t root = kCurrentUser) {
        auto key = registry().CreateKey(root, path, access);
        EXPECT_TRUE(key.ok()) << (key.ok() ? "" : key.error().description);
        return key.ok() ? std::move(key).value() : nullptr;
    }

    std::unique_ptr<RegistryWorld> world_;
};

TEST_P(RegistryContract, CreatesAKeyWithItsParents) {
    Open("Software\\Trevix\\Add");

    EXPECT_EQ(Open("Software")->EnumKey(0).value(), "Trevix");
    EXPECT_EQ(Open("Software\\Trevix")->EnumKey(0).value(), "Add");
    EXPECT_EQ(Open("Software")->QueryInfo().value().sub_keys, 1);
}

TEST_P(RegistryContract, KeepsEveryTypeByteForByte) {
    const std::vector<RegistryValue> values = {
        {"text", kRegSz, std::string("C:\\a \"b\" \xC3\xA9\xF0\x9F\x98\x80\0", 16)},
        {"no end", kRegSz, "abc"},
        {"two ends", kRegSz, std::string("abc\0\0", 5)},
        {"nothing", kRegSz, ""},
        {"lines", kRegSz, std::string("a\r\nb\0", 5)},
        {"not text", kRegSz, std::string("\xFF\xC3(\xED\xA0\x80\0", 7)},
        {"expand", kRegExpandSz, std::string("%TEMP%\\x\0", 9)},
        {"multi", kRegMultiSz, std::string("a\0b\0\0", 5)},
        {"binary", kRegBinary, std::string("\0\xFF\x80\x7F", 4)},
        {"long", kRegBinary, std::string(300, '\xA5')},
        {"number", kRegDword, std::string("\x05\0\0\x80", 4)},
        {"short number", kRegDword, std::string("\x05\0", 2)},
        {"big", kRegDwordBigEndian, std::string("\0\0\0\x05", 4)},
        {"link", kRegLink, std::string("a\0b\0", 4)},
        {"none", kRegNone, std::string("\0\x01", 2)},
        {"quad", kRegQword, std::string("\x01\x02\x03\x04\x05\x06\x07\x08", 8)},
        {"odd", 0xFFFF0001U, "x"},
        {"", kRegSz, std::string("default\0", 8)},
        {"na\"me\\with [odd] = ;letters", kRegSz, std::string("\0", 1)},
    };
    for (const RegistryValue& value : values) {
        ASSERT_TRUE(Open("K")->SetValue(value.name, value.type, value.data).ok()) << value.name;
    }

    for (const RegistryValue& value : values) {
        const auto read = Open("K")->QueryValue(value.name);
        ASSERT_TRUE(read.ok()) << value.name;
        EXPECT_EQ(read.value().type, value.type) << value.name;
        EXPECT_EQ(read.value().data, value.data) << value.name;
    }
}

TEST_P(RegistryContract, EnumeratesValuesInTheOrderOfTheirMaking) {
    auto key = Open("K");
    ASSERT_TRUE(key->SetValue("b", kRegBinary, "1").ok());
    ASSERT_TRUE(key->SetValue("", kRegBinary, "22").ok());
    ASSERT_TRUE(key->SetValue("a", kRegBinary, "333").ok());
    ASSERT_TRUE(key->SetValue("B", kRegBinary, "4444").ok());

    EXPECT_EQ(key->EnumValue(0).value().name, "b");
    EXPECT_EQ(key->EnumValue(0).value().data, "4444");
    EXPECT_EQ(key->EnumValue(1).value().name, "");
    EXPECT_EQ(key->EnumValue(2).value().name, "a");
    EXPECT_EQ(KindOf(key->EnumValue(3)), ErrorKind::kNotFound);
    EXPECT_EQ(KindOf(key->EnumValue(-1)), ErrorKind::kNotFound);
}

TEST_P(RegistryContract, EnumeratesSubKeys) {
    Open("K\\b\\x");
    Open("K\\a");
    Open("K\\B");
    Open("Kb");

    auto key = Open("K");

    EXPECT_EQ(key->EnumKey(0).value(), "b");
    EXPECT_EQ(key->EnumKey(1).value(), "a");
    EXPECT_EQ(KindOf(key->EnumKey(2)), ErrorKind::kNotFound);
    EXPECT_EQ(KindOf(key->EnumKey(-1)), ErrorKind::kNotFound);
}

TEST_P(RegistryContract, CountsAndMeasures) {
    Open("K\\longest");
    Open("K\\b");
    auto key = Open("K");
    ASSERT_TRUE(key->SetValue("name", kRegBinary, "12345").ok());
    ASSERT_TRUE(key->SetValue("na", kRegSz, std::string("ab\0", 3)).ok());

    const RegistryKeyInfo info = key->QueryInfo().value();

    EXPECT_EQ(info.sub_keys, 2);
    EXPECT_EQ(info.longest_sub_key, 7);
    EXPECT_EQ(info.values, 2);
    EXPECT_EQ(info.longest_value_name, 4);
    EXPECT_EQ(info.longest_value_data, 5);
}

TEST_P(RegistryContract, MatchesNamesWithoutRegardToCase) {
    ASSERT_TRUE(Open("Soft\\Key")->SetValue("Name", kRegBinary, "1").ok());

    EXPECT_EQ(Open("SOFT\\key")->QueryValue("nAME").value().data, "1");
    EXPECT_EQ(Open("Soft")->QueryInfo().value().sub_keys, 1);
}

TEST_P(RegistryContract, KeepsRootsApart) {
    ASSERT_TRUE(Open("K", kKeyAllAccess, kCurrentUser)->SetValue("n", kRegBinary, "u").ok());
    ASSERT_TRUE(Open("K", kKeyAllAccess, kLocalMachine)->SetValue("n", kRegBinary, "m").ok());
    ASSERT_TRUE(Open("K", kKeyAllAccess, kClassesRoot)->SetValue("n", kRegBinary, "c").ok());

    EXPECT_EQ(Open("K", kKeyRead, kCurrentUser)->QueryValue("n").value().data, "u");
    EXPECT_EQ(Open("K", kKeyRead, kLocalMachine)->QueryValue("n").value().data, "m");
    EXPECT_EQ(Open("K", kKeyRead, kClassesRoot)->QueryValue("n").value().data, "c");
}

TEST_P(RegistryContract, HasNoOtherRoots) {
    EXPECT_EQ(KindOf(registry().CreateKey(0x80000003, "K", kKeyRead)), ErrorKind::kNotFound);
    EXPECT_EQ(KindOf(registry().CreateKey(0, "K", kKeyRead)), ErrorKind::kNotFound);
}

TEST_P(RegistryContract, ReportsMissingValues) {
    auto key = Open("K");

    EXPECT_EQ(KindOf(key->QueryValue("n")), ErrorKind::kNotFound);
    EXPECT_EQ(KindOf(key->DeleteValue("n")), ErrorKind::kNotFound);
    EXPECT_EQ(KindOf(key->QueryValue("")), ErrorKind::kNotFound);
}

TEST_P(RegistryContract, DeletesOneValue) {
    auto key = Open("K");
    ASSERT_TRUE(key->SetValue("a", kRegBinary, "1").ok());
    ASSERT_TRUE(key->SetValue("b", kRegBinary, "2").ok());

    ASSERT_TRUE(key->DeleteValue("A").ok());

    EXPECT_EQ(key->QueryInfo().value().values, 1);
    EXPECT_EQ(key->QueryValue("b").value().data, "2");
}

TEST_P(RegistryContract, DeletesATreeAndNothingBesideIt) {
    Open("K\\A\\B\\C");
    Open("K\\A\\B2");
    ASSERT_TRUE(Open("K\\A\\B")->SetValue("n", kRegBinary, "1").ok());

    ASSERT_TRUE(Open("K\\A")->DeleteTree("b").ok());

    EXPECT_EQ(Open("K\\A")->QueryInfo().value().sub_keys, 1);
    EXPECT_EQ(Open("K\\A")->EnumKey(0).value(), "B2");
    EXPECT_EQ(Open("K\\A\\B")->QueryInfo().value().values, 0);
    EXPECT_EQ(KindOf(Open("K\\A")->DeleteTree("none")), ErrorKind::kNotFound);
}

TEST_P(RegistryContract, LeavesTheParentOfADeletedKey) {
    Open("K\\A\\B");

    ASSERT_TRUE(Open("K\\A")->DeleteTree("B").ok());

    EXPECT_EQ(Open("K")->EnumKey(0).value(), "A");
}

TEST_P(RegistryContract, DeletesAKeyOnlyWithoutSubKeys) {
    Open("K\\A\\B");
    auto key = Open("K");

    EXPECT_EQ(KindOf(key->DeleteKey("A")), ErrorKind::kDenied);
    ASSERT_TRUE(Open("K\\A")->DeleteKey("B").ok());
    ASSERT_TRUE(key->DeleteKey("A").ok());

    EXPECT_EQ(key->QueryInfo().value().sub_keys, 0);
    EXPECT_EQ(KindOf(key->DeleteKey("A")), ErrorKind::kNotFound);
    EXPECT_FALSE(key->DeleteTree("").ok());
}

TEST_P(RegistryContract, RefusesWhatTheAccessMaskDoesNotAllow) {
    Open("K\\A");
    ASSERT_TRUE(Open("K")->SetValue("n", kRegBinary, "1").ok());
    auto reader = Open("K", kKeyRead);
    auto writer = Open("K", kKeyReadWrite);

    EXPECT_EQ(KindOf(reader->SetValue("n", kRegBinary, "2")), ErrorKind::kDenied);
    EXPECT_EQ(KindOf(reader->DeleteValue("n")), ErrorKind::kDenied);
    EXPECT_EQ(KindOf(reader->DeleteTree("A")), ErrorKind::kDenied);
    EXPECT_EQ(KindOf(writer->DeleteTree("A")), ErrorKind::kDenied);
    EXPECT_EQ(KindOf(writer->DeleteKey("A")), ErrorKind::kDenied);
    EXPECT_TRUE(writer->SetValue("n", kRegBinary, "3").ok());
    EXPECT_EQ(reader->QueryValue("n").value().data, "3");
}

TEST_P(RegistryContract, ShowsChangesMadeThroughAnotherKey) {
    auto reader = Open("K", kKeyRead);
    EXPECT_EQ(reader->QueryInfo().value().values, 0);

    ASSERT_TRUE(Open("K")->SetValue("n", kRegBinary, "1").ok());
    EXPECT_EQ(reader->QueryInfo().value().values, 1);
    ASSERT_TRUE(Open("K")->SetValue("n", kRegBinary, "2").ok());
    EXPECT_EQ(reader->QueryValue("n").value().data, "2");
}

TEST_P(RegistryContract, NoticesThatTheKeyIsGone) {
    auto key = Open("K\\A");

    ASSERT_TRUE(Open("K")->DeleteTree("A").ok());

    EXPECT_EQ(KindOf(key->QueryInfo()), ErrorKind::kGone);
    EXPECT_EQ(KindOf(key->SetValue("n", kRegBinary, "1")), ErrorKind::kGone);
}

}  // namespace trevix::contract
