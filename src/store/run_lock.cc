#include "store/run_lock.h"

#include "store/results_message.h"
#include "util/convert.h"
#include "util/format.h"
#include "util/pending_error.h"

namespace trevix {

const RunLockTexts kManageLockTexts = {
    "CManage",
    true,
    "Aborting procedure to avoid conflict with another process.",
    true,
    " aborting compression run to avoid conflict. StartCI = ",
    " initiating compression run after timeout of previous process. StartCI =",
    " initiating compression run"};
const RunLockTexts kIndexLockTexts = {
    "CIndex",
    false,
    "Aborting procedure to avoid conflict with another process",
    false,
    " aborting index run to avoid conflict. StartCI = ",
    " initiating index run after timeout of previous process. StartCI =",
    " initiating index run"};

namespace {

constexpr const char* kProcedure = "CheckInProcess";
constexpr int kTimeOutMinutes = 5;

Date ReadStamp(Message& message, const char* name) {
    // A stamp that is missing or cannot be read is the zero date: a new message is unlocked.
    PendingError pending;
    const Variant value = pending.ValueOr(GetNamed(message, name, kTypeTime), Variant());
    return pending.ValueOr(ToDate(value), Date{});
}

void TakeLock(BasCI& state, Message& message) {
    // A lock that cannot be written does not stop the run; saves are safe without it.
    PendingError pending;
    pending.Step(SetNamed(message, "StartCI", kTypeTime, state.ports.clock.NowLocal()));
    pending.Step(message.Update());
}

}  // namespace

bool CheckInProcess(BasCI& state, const RunLockTexts& texts,
                    const std::function<void(const std::string&)>& abort) {
    const auto log = [&](const std::string& message, std::int16_t level) {
        state.log.Write(texts.class_name, kProcedure, message, level);
    };
    if (texts.traces) log(" start", 8);

    const std::unique_ptr<Message> message = GetResultsHM(state);
    if (message == nullptr) {
        log(" hidden message not available; aborting", 1);
        abort("Aborting procedure: hidden message not available");
        return true;
    }

    const Date start = ReadStamp(*message, "StartCI");
    const Date end = ReadStamp(*message, "EndCI");
    const std::string start_text = FormatGeneralDate(start);
    if (texts.traces) log(" StartCI=" + start_text + "; EndCI=" + FormatGeneralDate(end), 8);

    const bool is_taken = end < start;
    const bool is_young = MinutesBetween(start, state.ports.clock.NowLocal()) <= kTimeOutMinutes;
    // A run of this process holds the lock however long it takes: it is what pumps this one.
    if (state.is_running || (is_taken && is_young)) {
        if (texts.raises_before_logging) abort(texts.conflict_message);
        log(texts.conflict_line + start_text, 2);
        if (!texts.raises_before_logging) abort(texts.conflict_message);
        return true;
    }
    if (is_taken) {
        TakeLock(state, *message);
        log(texts.after_timeout_line + start_text, 4);
        return false;
    }

    TakeLock(state, *message);
    log(texts.start_line, 4);
    return false;
}

void ClearEndCI(BasCI& state) {
    const std::unique_ptr<Message> message = GetResultsHM(state);
    PendingError pending;
    pending.Step(On(message, [&](Message& m) {
        return SetNamed(m, "EndCI", kTypeTime, state.ports.clock.NowLocal());
    }));
    pending.Step(On(message, [](Message& m) { return m.Update(); }));
    if (pending.failed()) {
        state.log.Write("basCI", "ClearEndCI",
                        " error " + std::to_string(pending.number()) + " " + pending.description(),
                        1);
    } else {
        state.log.Write("basCI", "ClearEndCI", "success", 8);
    }
}

}  // namespace trevix
