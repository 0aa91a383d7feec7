#include "platform/dbus/incoming_call.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace trevix::dbus {
namespace {

using testing::ElementsAre;

class RecordingAnswer final : public IncomingCall::Answer {
 public:
    explicit RecordingAnswer(std::vector<std::string>& answers) : answers_(answers) {}
    void Reply(const Values& results) override {
        answers_.push_back("reply of " + std::to_string(results.size()));
    }
    void Fail(const char* error_name, const std::string& /*text*/) override {
        answers_.emplace_back(error_name);
    }

 private:
    std::vector<std::string>& answers_;
};

struct IncomingCallTest : testing::Test {
    IncomingCall Make() { return {std::make_unique<RecordingAnswer>(answers), ":1.5", {true}}; }
    std::vector<std::string> answers;
};

TEST_F(IncomingCallTest, IsAnsweredOnce) {
    {
        IncomingCall call = Make();
        call.Reply({std::string("a"), 2});
        call.Reply();
        call.Fail(kFailed, "late");
    }
    EXPECT_THAT(answers, ElementsAre("reply of 2"));
}

TEST_F(IncomingCallTest, FailsWhenNobodyAnswersIt) {
    { const IncomingCall call = Make(); }

    EXPECT_THAT(answers, ElementsAre("org.freedesktop.DBus.Error.Failed"));
}

TEST_F(IncomingCallTest, TakesItsAnswerAlongWhenItMoves) {
    {
        IncomingCall call = Make();
        IncomingCall moved(std::move(call));
        EXPECT_EQ(moved.sender(), ":1.5");
        EXPECT_EQ(moved.arguments(), (Values{true}));
        moved.Reply();
    }
    EXPECT_THAT(answers, ElementsAre("reply of 0"));
}

TEST(TypeOfValue, IsTheLetterOfTheBus) {
    EXPECT_EQ(TypeOf(true), 'b');
    EXPECT_EQ(TypeOf(std::int32_t{-1}), 'i');
    EXPECT_EQ(TypeOf(std::string("x")), 's');
    EXPECT_EQ(TypeOf(ObjectPath{"/"}), 'o');
}

}  // namespace
}  // namespace trevix::dbus
