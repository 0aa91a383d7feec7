#include "cli/fleet.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "cli/exit_codes.h"
#include "cli/text_format.h"

namespace trevix::cli {
namespace {

using nlohmann::json;

// What is summed up over all mailboxes.
constexpr std::array<const char*, 4> kSums = {"messages_changed", "attachments_zipped",
                                              "bytes_before", "bytes_after"};

// So many errors of a mailbox are told; a broken one may have one for each message.
constexpr std::size_t kMostErrors = 20;

// Under its name, so that people find it among the processes; or, when a newer one has taken its
// place, as the very one that runs.
std::string OwnProgram() {
    constexpr const char* kSelf = "/proc/self/exe";
    std::error_code failure;
    const std::filesystem::path path = std::filesystem::read_symlink(kSelf, failure);
    struct stat ours {};
    struct stat named {};
    const bool is_there = !failure && ::stat(kSelf, &ours) == 0 &&
                          ::stat(path.c_str(), &named) == 0 && ours.st_ino == named.st_ino &&
                          ours.st_dev == named.st_dev;
    return is_there ? path.string() : kSelf;
}

FleetOutcome OutcomeOf(int exit_code) {
    switch (exit_code) {
        case kExitDone: return FleetOutcome::kDone;
        case kExitSomeFailed: return FleetOutcome::kPartial;
        case kExitHeld: return FleetOutcome::kBusy;
        case kExitCancelled:
        case kExitTimeUp: return FleetOutcome::kStopped;
        default: return FleetOutcome::kFailed;
    }
}

}  // namespace

const char* NameOf(FleetOutcome outcome) {
    switch (outcome) {
        case FleetOutcome::kDone: return "done";
        case FleetOutcome::kPartial: return "partial";
        case FleetOutcome::kFailed: return "failed";
        case FleetOutcome::kBusy: return "busy";
        case FleetOutcome::kStopped: return "stopped";
    }
    return "";
}

FleetOutcome FleetTally::Count(int exit_code) {
    const FleetOutcome outcome = OutcomeOf(exit_code);
    ++counts_[static_cast<std::size_t>(outcome)];
    return outcome;
}

int FleetTally::ExitCode(bool is_interrupted, bool is_time_up) const {
    if (is_interrupted) return kExitCancelled;
    const std::size_t others = of(FleetOutcome::kDone) + of(FleetOutcome::kPartial) +
                               of(FleetOutcome::kBusy) + of(FleetOutcome::kStopped) + not_started_;
    if (of(FleetOutcome::kFailed) > 0 && others == 0) return kExitFailed;
    if (of(FleetOutcome::kFailed) + of(FleetOutcome::kPartial) > 0) return kExitSomeFailed;
    if (of(FleetOutcome::kStopped) + not_started_ > 0) {
        return is_time_up ? kExitTimeUp : kExitCancelled;
    }
    return of(FleetOutcome::kBusy) > 0 ? kExitHeld : kExitDone;
}

json FleetTally::Fields() const {
    json fields;
    std::size_t all = not_started_;
    for (const FleetOutcome outcome :
         {FleetOutcome::kDone, FleetOutcome::kPartial, FleetOutcome::kFailed, FleetOutcome::kBusy,
          FleetOutcome::kStopped}) {
        fields[NameOf(outcome)] = of(outcome);
        all += of(outcome);
    }
    fields["not_started"] = not_started_;
    fields["mailboxes"] = all;
    return fields;
}

Fleet::Fleet(FleetPlan plan, posix::PollLoop& loop, Console& console)
    : plan_(std::move(plan)), loop_(loop), console_(console), program_(OwnProgram()) {}

Fleet::~Fleet() {
    for (const auto& member : running_) {
        loop_.Unwatch(member->process->report_descriptor());
        loop_.Unwatch(member->process->end_descriptor());
    }
}

void Fleet::Run() {
    StartMore();
    if (!running_.empty()) loop_.Run();
    tally_.NotStarted(plan_.members.size() - next_);
}

void Fleet::Stop() {
    is_stopping_ = true;
    for (const auto& member : running_) {
        member->process->Terminate();
    }
}

void Fleet::StartMore() {
    const auto jobs = static_cast<std::size_t>(plan_.jobs);
    while (!is_stopping_ && running_.size() < jobs && next_ < plan_.members.size()) {
        Start(next_++);
    }
    if (running_.empty()) loop_.Quit();
}

bool Fleet::Start(std::size_t index) {
    auto member = std::make_unique<Member>();
    member->number = index + 1;
    const StoreName& store = plan_.members[index].store;
    // Put together with "=", a name that begins with "-" is no option.
    std::vector<std::string> arguments{"compress", "--json",
                                       "--part-of=" + std::to_string(::getpid())};
    if (store.profile.empty()) {
        arguments.push_back("--server=" + store.server);
        arguments.push_back("--alias=" + store.alias);
    } else {
        arguments.push_back("--profile=" + store.profile);
    }
    arguments.insert(arguments.end(), plan_.options.begin(), plan_.options.end());
    auto process =
        posix::ChildProcess::Start(program_, arguments, posix::ChildProcess::Report::kOutput);
    if (!process.ok()) {
        member->errors.push_back(
            {{"what", "a process for it"}, {"message", process.error().description}});
        Tell(*member, kExitFailed);
        return false;
    }
    member->process = std::move(process).value();
    Member& started = *member;
    running_.push_back(std::move(member));
    loop_.WatchDescriptor(started.process->report_descriptor(),
                          [this, &started] { Read(started); });
    loop_.WatchDescriptor(started.process->end_descriptor(), [this, &started] { Finish(started); });
    return true;
}

void Fleet::Read(Member& member) {
    if (!member.process->ReadReport(member.unread)) {
        loop_.Unwatch(member.process->report_descriptor());
    }
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = member.unread.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
        TakeLine(member, member.unread.substr(begin, end - begin));
    }
    member.unread.erase(0, begin);
}

void Fleet::TakeLine(Member& member, const std::string& line) {
    json event = json::parse(line, nullptr, false);
    if (!event.is_object() || !event.contains("event")) return;
    if (event["event"] == "error" && member.errors.size() < kMostErrors) {
        event.erase("event");
        member.errors.push_back(std::move(event));
    } else if (event["event"] == "summary") {
        member.summary = std::move(event);
    }
}

void Fleet::Finish(Member& member) {
    Read(member);
    loop_.Unwatch(member.process->report_descriptor());
    loop_.Unwatch(member.process->end_descriptor());
    const int exit_code = member.process->Reap();
    if (exit_code < 0 && !is_stopping_) {
        member.errors.push_back({{"what", "its process"},
                                 {"message", "ended by signal " + std::to_string(-exit_code)}});
    }
    // A run that had not begun when it was stopped ends by the signal itself.
    Tell(member, exit_code < 0 && is_stopping_ ? kExitCancelled : exit_code);
    std::erase_if(running_, [&member](const auto& one) { return one.get() == &member; });
    StartMore();
}

// One line for programs on the standard output, and for people what went wrong.
void Fleet::Tell(const Member& member, int exit_code) {
    const std::string& name = plan_.members[member.number - 1].name;
    const FleetOutcome outcome = tally_.Count(exit_code);
    json event = member.summary.is_object() ? member.summary : json::object();
    event.erase("folders");
    event["event"] = "mailbox";
    event["mailbox"] = name;
    event["number"] = member.number;
    event["exit"] = exit_code;
    event["outcome"] = NameOf(outcome);
    event["errors"] = member.errors;
    console_.Event(event);

    for (std::size_t i = 0; i < kSums.size(); ++i) {
        const auto found = event.find(kSums[i]);
        if (found != event.end() && found->is_number()) sums_[i] += found->get<std::int64_t>();
    }
    for (const json& error : member.errors) {
        console_.Note("trevixctl: " + Printable(name) + ": " + Printable(error.value("what", "")) +
                      ": " + Printable(error.value("message", "")));
    }
}

json Fleet::Sums() const {
    json sums;
    for (std::size_t i = 0; i < kSums.size(); ++i)
        sums[kSums[i]] = sums_[i];
    sums["bytes_saved"] = sums_[2] - sums_[3];
    return sums;
}

}  // namespace trevix::cli
