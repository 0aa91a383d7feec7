// Structures as servers describe them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/imap/parsed.h"

namespace trevix::imap {
namespace {

using test::Parsed;

FetchedMessage WithStructure(const std::string& structure) {
    return Parsed<FetchReply>("* 1 FETCH (UID 5 BODYSTRUCTURE " + structure + ")\r\n").message;
}

// The sections of all parts, each list in parentheses.
std::string Sections(const BodyPart& part) {
    std::string text = part.section.empty() ? "-" : part.section;
    if (part.children.empty()) return text;
    text += "(";
    for (const BodyPart& child : part.children) {
        if (text.back() != '(') text += ' ';
        text += Sections(child);
    }
    return text + ")";
}

constexpr const char* kText =
    R"(("text" "plain" ("charset" "utf-8") NIL NIL "7bit" 12 2 NIL NIL NIL NIL))";

TEST(StructureParts, ReadsAMessageOfOnePart) {
    const auto message = WithStructure(
        R"(("APPLICATION" "ZIP" ("NAME" "a.zip") "<id@x>" "words" "BASE64" 4554 NIL ("attachment" ("filename" "=?utf-8?q?=C3=A4?=" "size" "3300")) ("en" "de") "http://x/"))");
    ASSERT_NE(message.structure, nullptr) << message.structure_problem;
    const BodyPart& part = *message.structure;
    EXPECT_EQ(part.type, "APPLICATION");
    EXPECT_EQ(part.subtype, "ZIP");
    ASSERT_EQ(part.parameters.size(), 1U);
    EXPECT_EQ(part.parameters[0].second, "a.zip");
    EXPECT_EQ(part.id, "<id@x>");
    EXPECT_EQ(part.description, "words");
    EXPECT_EQ(part.encoding, "BASE64");
    EXPECT_EQ(part.size_bytes, 4554U);
    EXPECT_FALSE(part.lines);
    ASSERT_TRUE(part.disposition);
    EXPECT_EQ(part.disposition->type, "attachment");
    EXPECT_EQ(part.disposition->parameters[0].second, "=?utf-8?q?=C3=A4?=");
    EXPECT_EQ(part.languages, (std::vector<std::string>{"en", "de"}));
    EXPECT_EQ(part.location, "http://x/");
    EXPECT_EQ(part.section, "1");
    EXPECT_TRUE(part.has_extension);
}

TEST(StructureParts, NumbersPartsAsTheyAreFetched) {
    const std::string text = kText;
    const std::string inner = "(" + text + text + R"( "ALTERNATIVE" ("BOUNDARY" "x") NIL NIL))";
    const std::string envelope = R"(("date" "subject" NIL NIL NIL NIL NIL NIL NIL "<id>"))";
    const std::string head = R"(("message" "rfc822" NIL NIL NIL "7bit" 700 )" + envelope + " ";
    EXPECT_EQ(
        Sections(*WithStructure("(" + text + inner + R"( "MIXED" NIL NIL NIL NIL))").structure),
        "-(1 2(2.1 2.2))");
    EXPECT_EQ(
        Sections(*WithStructure("(" + text + head + inner + R"( 20 NIL NIL NIL NIL) "MIXED"))")
                      .structure),
        "-(1 2(-(2.1 2.2)))");
    EXPECT_EQ(Sections(*WithStructure("(" + text + head + text + R"( 20) "MIXED"))").structure),
              "-(1 2(2.1))");
    EXPECT_EQ(Sections(*WithStructure(head + inner + " 20)").structure), "1(-(1.1 1.2))");
}

TEST(StructureParts, ReadsAMultipartsOwnFields) {
    const auto message = WithStructure("(" + std::string(kText) +
                                       R"( "SIGNED" ("PROTOCOL" "a/b" "MICALG" "x") NIL NIL))");
    ASSERT_NE(message.structure, nullptr);
    EXPECT_TRUE(message.structure->is_multipart());
    EXPECT_EQ(message.structure->subtype, "SIGNED");
    EXPECT_EQ(message.structure->parameters.size(), 2U);
    EXPECT_TRUE(message.structure->has_extension);
    EXPECT_FALSE(WithStructure("(" + std::string(kText) + R"( "MIXED"))").structure->has_extension);
}

TEST(StructureParts, TakesAnAttachedMessageThatWasNotOpened) {
    const auto message = WithStructure(
        R"(("message" "rfc822" NIL NIL NIL "base64" 700 NIL ("attachment" NIL) NIL NIL))");
    ASSERT_NE(message.structure, nullptr) << message.structure_problem;
    EXPECT_FALSE(message.structure->is_message());
    ASSERT_TRUE(message.structure->disposition);
    EXPECT_EQ(message.structure->disposition->type, "attachment");
}

TEST(StructureParts, TakesStringsAsLiterals) {
    const auto message =
        WithStructure("(\"text\" \"plain\" (\"name\" {5}\r\na\r\n\"b) NIL NIL \"7bit\" 12 2)");
    ASSERT_NE(message.structure, nullptr);
    EXPECT_EQ(message.structure->parameters[0].second, "a\r\n\"b");
}

TEST(StructureNil, IsBorneWhereItCanBe) {
    const auto message = WithStructure("(NIL NIL NIL NIL NIL NIL NIL NIL NIL NIL NIL NIL)");
    ASSERT_NE(message.structure, nullptr) << message.structure_problem;
    EXPECT_EQ(message.structure->type, "");
    EXPECT_EQ(message.structure->size_bytes, 0U);
    EXPECT_FALSE(message.structure->disposition);
    const auto multipart = WithStructure("((NIL NIL NIL NIL NIL NIL NIL) NIL NIL NIL NIL NIL)");
    ASSERT_NE(multipart.structure, nullptr) << multipart.structure_problem;
    EXPECT_TRUE(multipart.structure->is_multipart());
    const auto pairs = WithStructure(
        R"(("a" "b" (NIL "x" "name" NIL) NIL NIL "7bit" 1 NIL ("attachment" NIL) NIL NIL))");
    ASSERT_NE(pairs.structure, nullptr) << pairs.structure_problem;
    ASSERT_EQ(pairs.structure->parameters.size(), 1U);
    EXPECT_EQ(pairs.structure->parameters[0].second, "");
}

TEST(StructureDamage, LeavesTheMessageWithoutStructure) {
    for (const char* const structure :
         {"NIL", "x", "()", "(\"a\")", "(\"a\" \"b\")", "(\"a\" \"b\" NIL NIL NIL \"7bit\")",
          "(\"a\" \"b\" NIL NIL NIL \"7bit\" many)", "(\"a\" (\"b\") NIL NIL NIL \"7bit\" 1)",
          "(\"a\" \"b\" (\"c\") NIL NIL \"7bit\" 1)",
          "(\"a\" \"b\" (\"c\" (\"d\")) NIL NIL \"7bit\" 1)", "(())", "(()())", "((\"a\" \"b\"))",
          "(\"a\" \"b\" NIL NIL NIL \"7bit\" -1)",
          "(\"a\" \"b\" NIL NIL NIL \"7bit\" 99999999999999999999)"}) {
        const FetchedMessage message = WithStructure(structure);
        EXPECT_EQ(message.uid, 5U) << structure;
        EXPECT_EQ(message.structure, nullptr) << structure;
        EXPECT_FALSE(message.structure_problem.empty()) << structure;
    }
}

TEST(StructureDamage, TakesNinetyLevels) {
    std::string structure = kText;
    for (int level = 0; level < 90; ++level) {
        structure = "(" + structure + " \"MIXED\")";
    }
    EXPECT_NE(WithStructure(structure).structure, nullptr);
    for (int level = 0; level < 20; ++level) {
        structure = "(" + structure + " \"MIXED\")";
    }
    EXPECT_EQ(WithStructure(structure).structure, nullptr);
}

}  // namespace
}  // namespace trevix::imap
