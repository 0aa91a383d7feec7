#include "util/reg_op.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "fakes/fake_registry.h"

namespace trevix {
namespace {

using fakes::FaultPlan;
using testing::ElementsAre;

using testing::Pair;

constexpr const char* kKey = "Software\\A\\B";
constexpr auto kUserRoot = static_cast<std::int32_t>(kCurrentUser);
constexpr auto kMachineRoot = static_cast<std::int32_t>(kLocalMachine);

std::string Number(unsigned char lowest) {
    return std::string(1, static_cast<char>(lowest)) + std::string(3, '\0');
}

struct World {
    FaultPlan plan;
    fakes::FakeRegistry registry{plan};
    fakes::FakeEnvironment environment;
    std::vector<std::string> shown;
    RegOp op{registry, environment, [this](const std::string& text) { shown.push_back(text); }};

    World() {
        environment.entries = {"HOME=/home/ada", "TEMP=/tmp"};
        op.Key(kKey);
    }

    void Put(const std::string& name, std::uint32_t type, const std::string& data) {
        registry.Put(kCurrentUser, kKey, name, type, data);
    }

    // Type and data as stored; "none" when the value does not exist.
    std::pair<std::uint32_t, std::string> Stored(const std::string& name) {
        const RegistryValue* value = registry.Stored(kCurrentUser, kKey, name);
        if (value == nullptr) return {kRegNone, "none"};
        return {value->type, value->data};
    }

    int Calls(const std::string& call) const {
        return static_cast<int>(std::count(plan.calls().begin(), plan.calls().end(), call));
    }
};

// A value with its type, for comparing: "long 5", "array a,b,", "text x".
std::string Show(const Variant& value) {
    if (IsEmpty(value)) return "Empty";
    if (const auto* number = std::get_if<std::int32_t>(&value)) {
        return "long " + std::to_string(*number);
    }
    if (const auto* text = std::get_if<std::string>(&value)) return "text " + *text;
    const auto* items = std::get_if<StringArray>(&value);
    if (items == nullptr) return "another type";
    std::string result = "array ";
    for (const std::string& item : *items)
        result += item + ",";
    return result;
}

std::string Text(const Variant& value) {
    const auto* text = std::get_if<std::string>(&value);
    return text == nullptr ? "(no text)" : *text;
}

TEST(RegOpValueLet, StoresNumber5AsTextOverText) {
    World world;
    world.Put("n", kRegSz, std::string("old\0", 4));

    world.op.Value("n", std::int32_t{5});

    EXPECT_THAT(world.Stored("n"), Pair(kRegSz, std::string("5\0", 2)));
}

TEST(RegOpValueLet, StoresText7AsNumberOverANumber) {
    World world;
    world.Put("n", kRegDword, Number(1));

    world.op.Value("n", std::string("7"));

    EXPECT_THAT(world.Stored("n"), Pair(kRegDword, Number(7)));
}

TEST(RegOpValueLet, LeavesExistingBinaryDataUnchanged) {
    for (const std::uint32_t type :
         {kRegNone, kRegBinary, kRegDwordBigEndian, kRegLink, kRegQword}) {
        World world;
        world.op.Options(RegOp::kShowErrors);
        world.Put("n", type, "\x01\x02");

        world.op.Value("n", std::string("text"));
        world.op.Value("n", std::int32_t{5});
        world.op.Value("n", StringArray{"a"});

        EXPECT_THAT(world.Stored("n"), Pair(type, "\x01\x02"));
        ASSERT_EQ(world.shown.size(), 3U);
        EXPECT_EQ(world.shown[0],
                  "Existing value has unsupported data type and will not be overwritten");
    }
}

TEST(RegOpValueLet, LeavesAValueWhoseTypeCannotBeRead) {
    World world;
    world.Put("n", kRegBinary, "\x01");
    world.plan.FailCalls("registry.QueryValue", {ErrorKind::kIo, 57, "i/o"});

    world.op.Value("n", std::string("text"));

    EXPECT_THAT(world.Stored("n"), Pair(kRegBinary, "\x01"));
}

TEST(RegOpValueLet, WritesNothingThatDoesNotConvertToTheExistingType) {
    World world;
    world.Put("number", kRegDword, Number(1));
    world.Put("text", kRegSz, std::string("x\0", 2));

    world.op.Value("number", std::string("abc"));
    world.op.Value("number", 4e9);
    world.op.Value("text", StringArray{"a"});

    EXPECT_THAT(world.Stored("number"), Pair(kRegDword, Number(1)));
    EXPECT_THAT(world.Stored("text"), Pair(kRegSz, std::string("x\0", 2)));
}

TEST(RegOpValueLet, AlwaysStoresTextInTheDefaultValue) {
    World world;

    world.op.Value("", std::int32_t{5});

    EXPECT_THAT(world.Stored(""), Pair(kRegSz, std::string("5\0", 2)));
    EXPECT_EQ(Text(world.op.Value()), "5");
}

TEST(RegOpValueLet, StoresAKnownEnvironmentReferenceAsExpandable) {
    World world;

    world.op.Value("known", std::string("%TEMP%\\file.txt"));
    world.op.Value("other case", std::string("x%temp%"));
    world.op.Value("single", std::string("100%"));
    world.op.Value("unknown", std::string("%NOWHERE%\\file.txt"));
    world.op.Value("none", std::string("plain"));

    EXPECT_EQ(world.Stored("known").first, kRegExpandSz);
    EXPECT_EQ(world.Stored("other case").first, kRegExpandSz);
    EXPECT_THAT(world.Stored("single"), Pair(kRegSz, std::string("100%\0", 5)));
    EXPECT_EQ(world.Stored("unknown").first, kRegSz);
    EXPECT_EQ(world.Stored("none").first, kRegSz);
}

TEST(RegOpValueLet, LooksAtTheFirstHundredEnvironmentEntriesOnly) {
    World world;
    world.environment.entries.clear();
    for (int i = 1; i <= 101; ++i) {
        world.environment.entries.push_back("V" + std::to_string(i) + "=x");
    }

    world.op.Value("hundredth", std::string("%V100%"));
    world.op.Value("beyond", std::string("%V101%"));

    EXPECT_EQ(world.Stored("hundredth").first, kRegExpandSz);
    EXPECT_EQ(world.Stored("beyond").first, kRegSz);
}

TEST(RegOpValueLet, EndsTheSearchAtAnEmptyEnvironmentEntry) {
    World world;
    world.environment.entries = {"A=1", "", "TEMP=/tmp"};

    world.op.Value("n", std::string("%TEMP%"));

    EXPECT_EQ(world.Stored("n").first, kRegSz);
}

TEST(RegOpValueLet, StoresAnArrayAsMultiText) {
    World world;

    world.op.Value("n", StringArray{"a", "b"});

    EXPECT_THAT(world.Stored("n"), Pair(kRegMultiSz, std::string("a\0b\0\0", 5)));
}

TEST(RegOpValueLet, ChoosesTheTypeByTheKindOfTheValue) {
    World world;

    world.op.Value("integer", std::int16_t{-2});
    world.op.Value("long", std::int32_t{5});
    world.op.Value("double", 1.5);
    world.op.Value("flag", true);
    world.op.Value("date", Date{0});
    world.op.Value("text", std::string());

    EXPECT_THAT(world.Stored("integer"), Pair(kRegDword, "\xFE\xFF\xFF\xFF"));
    EXPECT_THAT(world.Stored("long"), Pair(kRegDword, Number(5)));
    EXPECT_THAT(world.Stored("double"), Pair(kRegSz, std::string("1.5\0", 4)));
    EXPECT_THAT(world.Stored("flag"), Pair(kRegSz, std::string("True\0", 5)));
    EXPECT_THAT(world.Stored("date"), Pair(kRegSz, std::string("12:00:00 AM\0", 12)));
    EXPECT_THAT(world.Stored("text"), Pair(kRegSz, std::string("\0", 1)));
}

TEST(RegOpValueLet, IgnoresEmptyAndWhatHasNoTextForm) {
    World world;

    world.op.Value("empty", Variant());
    world.op.Value("blob", Blob::FromString("x"));

    EXPECT_EQ(world.Stored("empty").second, "none");
    EXPECT_EQ(world.Stored("blob").second, "none");
}

TEST(RegOpValueLet, KeepsWhatIsGivenOverMultiText) {
    World world;
    world.Put("n", kRegMultiSz, std::string("a\0\0", 3));

    world.op.Value("n", std::int32_t{5});

    EXPECT_THAT(world.Stored("n"), Pair(kRegDword, Number(5)));
}

TEST(RegOpOptions, WritesNumbersAsTextWithOption1) {
    World world;
    world.op.Options(RegOp::kNumbersAsText);
    world.Put("old", kRegDword, Number(1));

    world.op.Value("new", std::int32_t{5});
    world.op.Value("old", std::int32_t{6});

    EXPECT_THAT(world.Stored("new"), Pair(kRegSz, std::string("5\0", 2)));
    EXPECT_THAT(world.Stored("old"), Pair(kRegSz, std::string("6\0", 2)));
}

TEST(RegOpOptions, ReadsMultiTextAsArrayWithOption2) {
    World world;
    world.Put("n", kRegMultiSz, std::string("a\0b\0\0", 5));

    EXPECT_EQ(Text(world.op.Value("n")), std::string("a\0b", 3));

    world.op.Options(RegOp::kMultiTextAsArray);
    world.op.Value("refresh", std::int32_t{1});
    EXPECT_EQ(Show(world.op.Value("n")), "array a,b,");
}

TEST(RegOpOptions, ExpandsReferencesWithOption4) {
    World world;
    world.Put("n", kRegExpandSz, std::string("%TEMP%/x\0", 9));

    EXPECT_EQ(Text(world.op.Value("n")), "%TEMP%/x");

    world.op.Options(RegOp::kExpandEnvironment);
    world.op.Value("refresh", std::int32_t{1});
    EXPECT_EQ(Text(world.op.Value("n")), "/tmp/x");
}

TEST(RegOpOptions, CutsALongExpansion) {
    World world;
    world.environment.entries = {"LONG=" + std::string(1023, 'x') + "\u00E9"};
    world.Put("n", kRegExpandSz, std::string("%LONG%\0", 7));
    world.op.Options(RegOp::kExpandEnvironment);

    EXPECT_EQ(Text(world.op.Value("n")), std::string(1023, 'x'));
}

TEST(RegOpOptions, LeavesTheOptionsUnchangedFor16AndMinus1) {
    World world;
    world.op.Options(RegOp::kMultiTextAsArray);
    world.Put("n", kRegMultiSz, std::string("a\0\0", 3));

    world.op.Options(16);
    world.op.Options(-1);

    EXPECT_EQ(Show(world.op.Value("n")), "array a,");
}

TEST(RegOpOptions, ShowsErrorsWithOption8Only) {
    World world;
    RegOp op(world.registry, world.environment,
             [&](const std::string& text) { world.shown.push_back(text); });
    EXPECT_TRUE(IsEmpty(op.Value("n")));
    EXPECT_THAT(world.shown, testing::IsEmpty());

    op.Options(RegOp::kShowErrors);
    EXPECT_TRUE(IsEmpty(op.Value("n")));
    EXPECT_EQ(op.ValueCount(), 0);
    EXPECT_FALSE(op.DeleteKey());
    EXPECT_THAT(world.shown, ElementsAre("No Key name specified!", "No Key name specified!",
                                         "No Key name specified!"));

    world.shown.clear();
    world.registry.read_only_roots = {kCurrentUser};
    op.Key("Nowhere");
    EXPECT_EQ(op.KeyCount(), 0);
    EXPECT_THAT(world.shown, ElementsAre("Could not open Registry Key!"));
}

TEST(RegOpOptions, ShowsNothingWithoutACallback) {
    World world;
    RegOp op(world.registry, world.environment);
    op.Options(RegOp::kShowErrors);

    EXPECT_TRUE(IsEmpty(op.Value("n")));
}

TEST(RegOpValueGet, ReadsEachType) {
    World world;
    world.Put("text", kRegSz, std::string("a\0b\0", 4));
    world.Put("number", kRegDword, "\xFF\xFF\xFF\xFF");
    world.Put("short", kRegDword, "\x05");
    world.Put("long", kRegDword, "12345");
    world.Put("binary", kRegBinary, "\x01");
    world.Put("none", kRegNone, "");
    world.Put("open", kRegMultiSz, std::string("a\0b\0", 4));

    EXPECT_EQ(Text(world.op.Value("text")), "a");
    EXPECT_EQ(Show(world.op.Value("number")), "long -1");
    EXPECT_EQ(Show(world.op.Value("short")), "long 5");
    EXPECT_TRUE(IsEmpty(world.op.Value("long")));
    EXPECT_EQ(Text(world.op.Value("binary")), "(unsupported data format)");
    EXPECT_EQ(Text(world.op.Value("none")), "(unsupported data format)");
    EXPECT_EQ(Text(world.op.Value("open")), std::string("a\0b", 3));
    EXPECT_TRUE(IsEmpty(world.op.Value("missing")));
}

TEST(RegOpValueGet, TellsAnEmptyTextFromAMissingValue) {
    World world;
    world.Put("Tray", kRegSz, std::string("\0", 1));

    EXPECT_FALSE(IsEmpty(world.op.Value("Tray")));
    EXPECT_EQ(Text(world.op.Value("Tray")), "");
}

TEST(RegOpValueGet, MatchesNamesWithoutRegardToCase) {
    World world;
    world.Put("ErrorLogLevel", kRegDword, Number(8));

    EXPECT_EQ(Show(world.op.Value("errorLOGlevel")), "long 8");
}

TEST(RegOpValueGet, ReadsTheRegistryOnce) {
    World world;
    world.Put("n", kRegSz, std::string("x\0", 2));
    world.op.Value("n");
    const std::size_t calls = world.plan.calls().size();

    world.op.Value("n");
    world.op.Value("missing");

    EXPECT_EQ(world.plan.calls().size(), calls);
}

TEST(RegOpValueGet, ReloadsTheWholeKeyAfterAWrite) {
    World world;
    world.Put("other", kRegSz, std::string("old\0", 4));
    world.op.Value("other");
    world.Put("other", kRegSz, std::string("changed by somebody else\0", 25));
    EXPECT_EQ(Text(world.op.Value("other")), "old");

    world.op.Value("n", std::string("a text longer than all the others were"));

    EXPECT_EQ(Text(world.op.Value("other")), "changed by somebody else");
    EXPECT_EQ(Text(world.op.Value("n")), "a text longer than all the others were");
}

TEST(RegOpValueGet, SkipsDataThatGrewSinceTheKeyWasOpened) {
    World world;
    world.Put("a", kRegSz, std::string("12\0", 3));
    world.Put("b", kRegSz, std::string("1\0", 2));
    EXPECT_EQ(world.op.ValueCount(), 2);
    world.Put("a", kRegSz, std::string("12345\0", 6));

    EXPECT_TRUE(IsEmpty(world.op.Value("a")));
    EXPECT_EQ(Text(world.op.Value("b")), "1");
}

TEST(RegOpValueGet, OpensWithReadAccessAndCreatesTheKey) {
    World world;

    EXPECT_TRUE(IsEmpty(world.op.Value("n")));

    EXPECT_TRUE(world.registry.Has(kCurrentUser, kKey));
}

TEST(RegOpValueGet, ReadsAKeyThatMustNotBeWritten) {
    World world;
    world.Put("n", kRegSz, std::string("x\0", 2));
    world.registry.read_only_roots = {kCurrentUser};

    EXPECT_EQ(Text(world.op.Value("n")), "x");
    world.op.Value("n", std::string("y"));
    EXPECT_EQ(Text(world.op.Value("n")), "x");
}

TEST(RegOpValueGet, NeverServesValuesOfAnotherKey) {
    World world;
    world.Put("n", kRegSz, std::string("x\0", 2));
    world.op.Value("n");
    world.registry.read_only_roots = {kLocalMachine};

    world.op.Root(kMachineRoot);

    EXPECT_TRUE(IsEmpty(world.op.Value("n")));
}

TEST(RegOpAllValues, ListsInTheOrderOfTheRegistry) {
    World world;
    world.Put("z", kRegSz, std::string("1\0", 2));
    world.Put("a", kRegDword, Number(2));

    std::vector<std::string> shown;
    for (const auto& [name, value] : world.op.AllValues())
        shown.push_back(name + " " + Show(value));

    EXPECT_THAT(shown, ElementsAre("z text 1", "a long 2"));
}

TEST(RegOpAllValues, IsEmptyForAKeyWithoutValues) {
    World world;

    EXPECT_THAT(world.op.AllValues(), testing::IsEmpty());
}

TEST(RegOpAllKeys, ListsSubKeys) {
    World world;
    world.registry.Put(kCurrentUser, std::string(kKey) + "\\z", "n", kRegBinary, "1");
    world.registry.Put(kCurrentUser, std::string(kKey) + "\\a", "n", kRegBinary, "1");

    const std::vector<Variant> names = world.op.AllKeys();
    ASSERT_EQ(names.size(), 2U);
    EXPECT_EQ(Show(names[0]), "text z");
    EXPECT_EQ(Show(names[1]), "text a");
    EXPECT_EQ(world.op.KeyCount(), 2);
}

TEST(RegOpAllKeys, LeavesAKeyEmptyThatCannotBeRead) {
    World world;
    world.registry.Put(kCurrentUser, std::string(kKey) + "\\a", "n", kRegBinary, "1");
    world.plan.FailCalls("registry.EnumKey", {ErrorKind::kIo, 57, "i/o"});

    const std::vector<Variant> names = world.op.AllKeys();

    ASSERT_EQ(names.size(), 1U);
    EXPECT_EQ(Show(names[0]), "Empty");
}

TEST(RegOpDeleteValue, DeletesAndReloads) {
    World world;
    world.Put("a", kRegSz, std::string("1\0", 2));
    world.Put("b", kRegSz, std::string("2\0", 2));
    world.op.Value("a");

    EXPECT_TRUE(world.op.DeleteValue("A"));

    EXPECT_EQ(world.op.ValueCount(), 1);
    EXPECT_TRUE(IsEmpty(world.op.Value("a")));
    EXPECT_FALSE(world.op.DeleteValue("a"));
    EXPECT_FALSE(world.op.DeleteValue());
}

TEST(RegOpDeleteKey, DeletesTheLastComponentWithItsTreeAndStandsOnTheParent) {
    World world;
    world.registry.Put(kCurrentUser, "Software\\A\\B\\C", "n", kRegBinary, "1");
    world.registry.Put(kCurrentUser, "Software\\A", "parent", kRegSz, std::string("here\0", 5));

    EXPECT_TRUE(world.op.DeleteKey());

    EXPECT_FALSE(world.registry.Has(kCurrentUser, "Software\\A\\B"));
    EXPECT_FALSE(world.registry.Has(kCurrentUser, "Software\\A\\B\\C"));
    EXPECT_EQ(Text(world.op.Value("parent")), "here");
    EXPECT_EQ(world.op.KeyCount(), 0);
}

TEST(RegOpDeleteKey, NeedsAKeyWithoutSubKeysWhereTreesCannotBeDeleted) {
    World world;
    world.registry.has_tree_delete = false;
    world.registry.Put(kCurrentUser, "Software\\A\\B\\C", "n", kRegBinary, "1");

    EXPECT_FALSE(world.op.DeleteKey());
    EXPECT_TRUE(world.registry.Has(kCurrentUser, "Software\\A\\B\\C"));

    world.op.Key("Software\\A\\B\\C");
    EXPECT_TRUE(world.op.DeleteKey());
    EXPECT_FALSE(world.registry.Has(kCurrentUser, "Software\\A\\B\\C"));
}

TEST(RegOpDeleteKey, NeverDeletesATopLevelKeyOrAnUnnamedOne) {
    World world;
    world.registry.Put(kCurrentUser, "Software\\A", "n", kRegBinary, "1");
    RegOp op(world.registry, world.environment);

    op.Key("Software");
    EXPECT_FALSE(op.DeleteKey());
    op.Key("Software\\A\\");
    EXPECT_FALSE(op.DeleteKey());

    EXPECT_TRUE(world.registry.Has(kCurrentUser, "Software\\A"));
}

TEST(RegOpRoot, StoresARootOutsideTheThreeAsGiven) {
    World world;
    world.Put("n", kRegSz, std::string("x\0", 2));
    world.op.Value("n");

    world.op.Root(static_cast<std::int32_t>(0x80000003));

    EXPECT_TRUE(IsEmpty(world.op.Value("n")));
    EXPECT_EQ(world.op.ValueCount(), 0);
}

TEST(RegOpRoot, ReopensForARootOutsideTheThreeEvenWhenItIsSetAlready) {
    World world;
    world.op.Root(static_cast<std::int32_t>(0x80000003));
    const int opened = world.Calls("registry.CreateKey");

    world.op.Root(static_cast<std::int32_t>(0x80000003));

    EXPECT_EQ(world.Calls("registry.CreateKey"), opened + 1);
}

TEST(RegOpRoot, ReopensTheKeyBelowTheNewRoot) {
    World world;
    world.registry.PutText(kLocalMachine, kKey, "n", "machine");
    world.registry.PutText(kCurrentUser, kKey, "n", "user");
    EXPECT_EQ(Text(world.op.Value("n")), "user");
    const int opened = world.Calls("registry.CreateKey");

    world.op.Root(kUserRoot);
    EXPECT_EQ(world.Calls("registry.CreateKey"), opened);
    world.op.Root(kMachineRoot);

    EXPECT_EQ(world.Calls("registry.CreateKey"), opened + 1);
    EXPECT_EQ(Text(world.op.Value("n")), "machine");
}

TEST(RegOpRoot, TakesZeroForTheCurrentUser) {
    World world;
    world.registry.PutText(kCurrentUser, kKey, "n", "user");

    world.op.Root(0);

    EXPECT_EQ(Text(world.op.Value("n")), "user");
}

TEST(RegOpKey, OpensOnlyWhenAnOtherKeyIsNamed) {
    World world;
    EXPECT_EQ(world.Calls("registry.CreateKey"), 0);

    world.op.Key("");
    world.op.Key("SOFTWARE\\a\\b");
    EXPECT_EQ(world.Calls("registry.CreateKey"), 0);
    world.op.Key("Software\\Other");
    EXPECT_EQ(world.Calls("registry.CreateKey"), 1);

    EXPECT_TRUE(world.registry.Has(kCurrentUser, "Software\\Other"));
    EXPECT_FALSE(world.registry.Has(kCurrentUser, kKey));
}

TEST(RegOpValueCount, UsesTheAccessNowRequested) {
    World world;
    world.Put("n", kRegSz, std::string("x\0", 2));
    world.op.Value("m", std::string("y"));
    const int opened = world.Calls("registry.CreateKey");

    EXPECT_EQ(world.op.ValueCount(), 2);

    EXPECT_EQ(world.Calls("registry.CreateKey"), opened);
}

// Every operation once; what it gives is checked where nothing may be lost or invented.
void UseAll(World& world) {
    world.Put("text", kRegSz, std::string("x\0", 2));
    world.Put("number", kRegDword, Number(5));
    world.Put("binary", kRegBinary, "\x01");
    world.registry.Put(kCurrentUser, std::string(kKey) + "\\sub", "n", kRegBinary, "1");
    world.op.Options(RegOp::kShowErrors);

    const Variant text = world.op.Value("text");
    EXPECT_TRUE(IsEmpty(text) || Text(text) == "x");
    const Variant number = world.op.Value("number");
    EXPECT_TRUE(IsEmpty(number) || Show(number) == "long 5");
    for (const auto& [name, value] : world.op.AllValues()) {
        EXPECT_FALSE(name.empty());
        EXPECT_FALSE(IsEmpty(value));
    }
    EXPECT_LE(world.op.AllKeys().size(), 1U);
    world.op.Value("binary", std::string("over it"));
    EXPECT_THAT(world.Stored("binary"), Pair(kRegBinary, "\x01"));
    world.op.Value("text", std::string("y"));
    const Variant changed = world.op.Value("text");
    EXPECT_TRUE(IsEmpty(changed) || Text(changed) == "y" || Text(changed) == "x");
    const bool deleted = world.op.DeleteValue("number");
    EXPECT_EQ(deleted, world.Stored("number").second == "none");
    const std::int32_t values = world.op.ValueCount();
    EXPECT_TRUE(values >= 0 && values <= 3);
    const std::int32_t keys = world.op.KeyCount();
    EXPECT_TRUE(keys >= 0 && keys <= 1);
    const bool tree_deleted = world.op.DeleteKey();
    EXPECT_EQ(tree_deleted, !world.registry.Has(kCurrentUser, kKey));
}

TEST(RegOpFaults, AnyFailureGivesNeutralResults) {
    World dry;
    UseAll(dry);
    const int calls = static_cast<int>(dry.plan.calls().size());
    ASSERT_GT(calls, 20);

    for (const auto mode : {FaultPlan::Mode::kOnce, FaultPlan::Mode::kFromThenOn}) {
        for (int nth = 1; nth <= calls; ++nth) {
            SCOPED_TRACE(std::to_string(nth) + " " +
                         dry.plan.calls()[static_cast<std::size_t>(nth - 1)]);
            World world;
            world.plan.FailCall(nth, mode, {ErrorKind::kIo, 57, "i/o error"});

            UseAll(world);
        }
    }
}

}  // namespace
}  // namespace trevix
