// A server that means ill, or is broken: whatever it sends and wherever it stops, the client ends
// in bounded time and memory, with an error that says what happened, or with what was really sent.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "unit/imap/imap_world.h"

namespace trevix::imap {
namespace {

using test::Conversation;
using test::Greeting;
using test::kModern;
using test::Script;
using test::ScriptedServer;
using test::ServerManners;

// One exchange: what the client says, and the lines that the server answers with.
struct Exchange {
    std::string command;
    std::vector<std::string> lines;
};

std::vector<Exchange> ReadingAMailbox() {
    return {
        {"SELECT *",
         {"* FLAGS (\\Seen)\r\n", "* 2 EXISTS\r\n", "* OK [UIDVALIDITY 7] ok\r\n",
          "* OK [UIDNEXT 12] ok\r\n", "{T} OK [READ-WRITE] done\r\n"}},
        {"UID FETCH *",
         {"* 1 FETCH (UID 10 FLAGS (\\Seen) BODYSTRUCTURE ((\"text\" \"plain\" NIL NIL NIL "
          "\"7bit\" 1 "
          "1)(\"application\" \"zip\" (\"name\" {5}\r\na.zip) NIL NIL \"base64\" 4 NIL "
          "(\"attachment\" "
          "NIL) NIL NIL) \"mixed\" (\"boundary\" \"x\") NIL NIL) BODY[HEADER] {4}\r\nA:b\n)\r\n",
          "* 2 FETCH (UID 11 FLAGS () BODYSTRUCTURE (\"text\" \"plain\" NIL NIL NIL \"7bit\" 1 1) "
          "BODY[HEADER] \"\")\r\n",
          "{T} OK done\r\n"}},
        {"NOOP", {"* 3 EXISTS\r\n", "{T} OK done\r\n"}},
    };
}

Script ToScript(const std::vector<Exchange>& exchanges) {
    Script script;
    script.Send(Greeting(kModern));
    for (const Exchange& exchange : exchanges) {
        script.Expect(exchange.command);
        std::string all;
        for (const std::string& line : exchange.lines) {
            all += line;
        }
        script.Send(all);
    }
    return script;
}

struct Outcome {
    Status status;
    bool connected = false;
    std::vector<std::uint32_t> uids;
};

Outcome Read(Script script, ServerManners manners = {}, const Limits* limits = nullptr) {
    Limits short_silence;
    short_silence.silence = std::chrono::milliseconds(200);
    short_silence.handshake = std::chrono::milliseconds(2'000);
    if (limits == nullptr) limits = &short_silence;
    Conversation talk(std::move(script), manners, limits);
    Outcome outcome;
    if (!talk.connected()) {
        outcome.status = talk.connect_error();
        return outcome;
    }
    FetchRequest request;
    request.uids = UidSet::Between(10, 11);
    request.flags = request.body_structure = true;
    request.sections.push_back({"HEADER", {}});
    const auto selected = talk->Select("INBOX", SelectMode::kReadWrite);
    outcome.status = selected.ok() ? Status() : Status(selected.error());
    if (outcome.status.ok()) {
        outcome.status = talk->Fetch(request, [&outcome](FetchedMessage&& message) {
            outcome.uids.push_back(message.uid);
            return Status();
        });
    }
    if (outcome.status.ok()) outcome.status = talk->Noop();
    outcome.connected = talk->connected();
    return outcome;
}

void ExpectDecent(const Outcome& outcome, const std::string& what) {
    if (outcome.status.ok()) {
        EXPECT_TRUE(outcome.connected) << what;
    } else {
        EXPECT_EQ(outcome.status.error().description.find("127.0.0.1: "), 0U)
            << what << ": " << outcome.status.error().description;
    }
    EXPECT_TRUE(std::all_of(outcome.uids.begin(), outcome.uids.end(), [](std::uint32_t uid) {
        return uid == 10 || uid == 11;
    })) << what;
}

TEST(HostileServer, ByteByByteIsStillUnderstood) {
    ServerManners manners;
    manners.byte_by_byte = true;
    const Outcome outcome = Read(ToScript(ReadingAMailbox()), manners);
    ASSERT_TRUE(outcome.status.ok()) << outcome.status.error().description;
    EXPECT_EQ(outcome.uids, (std::vector<std::uint32_t>{10, 11}));
}

TEST(HostileServer, CutAtEachByte) {
    std::uint64_t whole = 0;
    {
        Conversation talk(ToScript(ReadingAMailbox()));
        for (const Exchange& exchange : ReadingAMailbox()) {
            for (const std::string& line : exchange.lines) {
                whole += line.size();
            }
        }
        whole += Greeting(kModern).size();
    }
    // The tags are shorter than what stands for them in the script.
    for (std::uint64_t cut = 0; cut + 3 * 1 < whole; ++cut) {
        ServerManners manners;
        manners.cut_after_sent = cut;
        const Outcome outcome = Read(ToScript(ReadingAMailbox()), manners);
        ExpectDecent(outcome, "cut at " + std::to_string(cut));
        if (!outcome.status.ok()) {
            EXPECT_EQ(outcome.status.error().kind, ErrorKind::kIo) << cut;
        }
    }
}

TEST(HostileServer, ByeAnywhereIsReported) {
    const auto exchanges = ReadingAMailbox();
    for (std::size_t at = 0; at < exchanges.size(); ++at) {
        for (std::size_t line = 0; line <= exchanges[at].lines.size(); ++line) {
            auto changed = exchanges;
            changed.resize(at + 1);
            auto& lines = changed[at].lines;
            lines.resize(line);
            lines.push_back("* BYE [UNAVAILABLE] enough\r\n");
            Script script = ToScript(changed);
            script.HangUp();
            const Outcome outcome = Read(script);
            ExpectDecent(outcome, changed[at].command);
            if (line < exchanges[at].lines.size()) {
                ASSERT_FALSE(outcome.status.ok());
                EXPECT_NE(outcome.status.error().description.find("enough"), std::string::npos);
            }
        }
    }
}

TEST(HostileServer, LinesThatComeTwiceOrNeverOrInAnotherOrder) {
    const auto exchanges = ReadingAMailbox();
    for (std::size_t at = 0; at < exchanges.size(); ++at) {
        for (std::size_t line = 0; line < exchanges[at].lines.size(); ++line) {
            const std::string what = exchanges[at].command + std::to_string(line);
            auto doubled = exchanges;
            doubled[at].lines.insert(doubled[at].lines.begin() + static_cast<std::ptrdiff_t>(line),
                                     exchanges[at].lines[line]);
            ExpectDecent(Read(ToScript(doubled)), "doubled " + what);
            auto swapped = exchanges;
            std::swap(swapped[at].lines[line],
                      swapped[at].lines[(line + 1) % swapped[at].lines.size()]);
            ExpectDecent(Read(ToScript(swapped)), "swapped " + what);
            auto missing = exchanges;
            missing[at].lines.erase(missing[at].lines.begin() + static_cast<std::ptrdiff_t>(line));
            ExpectDecent(Read(ToScript(missing)), "missing " + what);
        }
    }
}

TEST(HostileServer, AnAnswerThatComesTwiceEndsTheConnection) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("NOOP")
                          .Send("{T} OK\r\n{T} OK\r\n")
                          .Expect("NOOP")
                          .Send("{T} OK\r\n"));
    EXPECT_TRUE(talk->Noop().ok());
    const Status second = talk->Noop();
    ASSERT_FALSE(second.ok());
    EXPECT_EQ(second.error().kind, ErrorKind::kMalformed);
    EXPECT_FALSE(talk->connected());
}

TEST(HostileServer, AnswersToWhatWasNotAskedEndTheConnection) {
    for (const char* const answer :
         {"T999 OK\r\n", "X OK\r\n", "T OK\r\n", "T1x OK\r\n", "+ more\r\n", "\r\n", "T1\r\n",
          "T18446744073709551617 OK\r\n"}) {
        Conversation talk(Script().Send(Greeting("")).Expect("NOOP").Send(answer));
        const Status status = talk->Noop();
        ASSERT_FALSE(status.ok()) << answer;
        EXPECT_EQ(status.error().kind, ErrorKind::kMalformed) << answer;
        EXPECT_FALSE(talk->connected());
    }
}

TEST(HostileServer, RepliesWithoutEndAreGivenUp) {
    for (const char* const reply :
         {"* 1 EXISTS\r\n", "* OK still here\r\n", "* VANISHED 1:4000000000\r\n", "* 1 EXPUNGE\r\n",
          "* 1 FETCH (UID 10 FLAGS (\\Seen))\r\n", "* LIST () NIL a\r\n", "* OK [ALERT] x\r\n",
          "* CAPABILITY A B C\r\n", "* STATUS INBOX (MESSAGES 1)\r\n"}) {
        Limits limits;
        limits.replies = 20'000;
        Conversation talk(Script().Send(Greeting("")).Expect("NOOP").Repeat(reply, 1'000'000'000),
                          {}, &limits);
        const Status status = talk->Noop();
        ASSERT_FALSE(status.ok()) << reply;
        EXPECT_EQ(status.error().kind, ErrorKind::kMalformed) << reply;
    }
}

TEST(HostileServer, NewsWithoutOrderStayCheapAndBounded) {
    std::string vanished;
    for (int uid = 1; uid < 30'000; ++uid) {
        vanished += "* VANISHED " + std::to_string(100'000 - 2 * uid) + "\r\n";
    }
    Conversation talk(Script().Send(Greeting("")).Expect("NOOP").Send(vanished + "{T} OK\r\n"));
    ASSERT_TRUE(talk->Noop().ok());
    const News news = talk->TakeNews();
    EXPECT_TRUE(news.vanished_incomplete);
    EXPECT_TRUE(news.vanished.empty());
}

TEST(HostileServer, SilenceIsGivenUp) {
    Limits limits;
    limits.silence = std::chrono::milliseconds(50);
    for (const char* const part :
         {"", "*", "* 1 FETCH (UID 10 BODY[] {10}\r\nabc", "* OK", "T1 OK"}) {
        Conversation talk(Script().Send(Greeting("")).Expect("NOOP").Send(part), {}, &limits);
        const Status status = talk->Noop();
        ASSERT_FALSE(status.ok());
        EXPECT_EQ(status.error().kind, ErrorKind::kIo);
        EXPECT_NE(status.error().description.find("does not answer"), std::string::npos);
        EXPECT_FALSE(talk->connected());
    }
}

TEST(HostileServer, AServerThatDoesNotReadIsGivenUp) {
    Limits limits;
    limits.silence = std::chrono::milliseconds(100);
    // It is busy talking to itself.
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("APPEND *")
                          .Send("+ go\r\n")
                          .Repeat("* OK hm\r\n", 1'000'000'000),
                      {}, &limits);
    AppendRequest request;
    request.mailbox = "a";
    request.content = Blob::FromString(std::string(std::size_t{64} << 20, 'x'));
    const auto appended = talk->Append(request);
    ASSERT_FALSE(appended.ok());
    EXPECT_FALSE(talk->connected());
    EXPECT_FALSE(talk->fate_unknown());
}

TEST(HostileServer, ContentThatIsLongerOrShorterThanSaid) {
    auto longer = ReadingAMailbox();
    longer[1].lines = {"* 1 FETCH (UID 10 BODY[HEADER] {4}\r\nA:b\nmore)\r\n", "{T} OK\r\n"};
    const Outcome too_long = Read(ToScript(longer));
    ASSERT_FALSE(too_long.status.ok());
    EXPECT_EQ(too_long.status.error().kind, ErrorKind::kMalformed);
    auto shorter = ReadingAMailbox();
    shorter[1].lines = {"* 1 FETCH (UID 10 BODY[HEADER] {400}\r\nA:b\n)\r\n", "{T} OK\r\n"};
    const Outcome too_short = Read(ToScript(shorter));
    ASSERT_FALSE(too_short.status.ok());
    EXPECT_EQ(too_short.status.error().kind, ErrorKind::kIo);
    EXPECT_TRUE(too_short.uids.empty());
}

TEST(HostileServer, HugeLengthsAreNotBelieved) {
    for (const char* const length : {"4294967296", "5000000000", "18446744073709551615"}) {
        auto exchanges = ReadingAMailbox();
        exchanges[1].lines = {"* 1 FETCH (UID 10 BODY[HEADER] {" + std::string(length) +
                              "}\r\nabc"};
        Script script = ToScript({exchanges[0], exchanges[1]});
        script.HangUp();
        const Outcome outcome = Read(script);
        EXPECT_FALSE(outcome.status.ok()) << length;
        EXPECT_TRUE(outcome.uids.empty());
    }
}

TEST(HostileServer, NilEverywhere) {
    auto exchanges = ReadingAMailbox();
    exchanges[0].lines = {"* FLAGS NIL\r\n", "* OK [PERMANENTFLAGS NIL] x\r\n",
                          "* OK [UIDVALIDITY NIL] x\r\n", "* OK [UIDNEXT] x\r\n", "{T} OK NIL\r\n"};
    exchanges[1].lines = {
        "* 1 FETCH (UID 10 FLAGS NIL INTERNALDATE NIL BODYSTRUCTURE NIL BODY[HEADER] NIL)\r\n",
        "{T} OK NIL\r\n"};
    const Outcome outcome = Read(ToScript(exchanges));
    EXPECT_TRUE(outcome.status.ok()) << outcome.status.error().description;
    EXPECT_EQ(outcome.uids, std::vector<std::uint32_t>{10});
}

TEST(HostileServer, AMillionParenthesesAreOneMessageWithoutStructure) {
    auto exchanges = ReadingAMailbox();
    exchanges[1].lines = {"* 1 FETCH (UID 10 BODYSTRUCTURE " + std::string(1'000'000, '(') +
                              std::string(1'000'000, ')') + ")\r\n",
                          "{T} OK\r\n"};
    Limits limits;
    const Outcome outcome = Read(ToScript(exchanges), {}, &limits);
    EXPECT_TRUE(outcome.status.ok()) << outcome.status.error().description;
    EXPECT_EQ(outcome.uids, std::vector<std::uint32_t>{10});
}

std::size_t ResidentBytes() {
    std::ifstream file("/proc/self/statm");
    std::size_t whole = 0;
    std::size_t resident = 0;
    file >> whole >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

TEST(HostileServer, LargeContentDoesNotStayInMemory) {
    constexpr std::size_t kPiece = std::size_t{64} * 1024;
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("UID FETCH *")
                          .Send("* 1 FETCH (UID 1 BODY[] {134217728}\r\n")
                          .Repeat(std::string(kPiece, 'm'), 2048)
                          .Send(")\r\n{T} OK\r\n"));
    FetchRequest request;
    request.uids = UidSet::Of(1);
    request.sections.push_back({});
    const std::size_t before = ResidentBytes();
    std::size_t during = 0;
    std::uint64_t size = 0;
    const Status status = talk->Fetch(request, [&](FetchedMessage&& message) {
        during = ResidentBytes();
        size = message.Find("")->content->size_bytes();
        return Status();
    });
    ASSERT_TRUE(status.ok()) << status.error().description;
    EXPECT_EQ(size, 134217728U);
    EXPECT_LT(during, before + (std::size_t{16} << 20));
}

}  // namespace
}  // namespace trevix::imap
