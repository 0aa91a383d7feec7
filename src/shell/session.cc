#include "shell/session.h"

#include "index/cindex.h"
#include "manage/cmanage.h"
#include "shell/settings.h"
#include "util/file_name.h"
#include "util/pending_error.h"
#include "util/text.h"

namespace trevix {
namespace {

constexpr const char* kClass = "Session";

}  // namespace

// A run may be on the stack, and this end may be served by its pump.
Session::~Session() {
    if (state_.gManage != nullptr) state_.gManage->Abandon();
    if (state_.gIndex != nullptr) state_.gIndex->Abandon();
    if (state_.gMAPISession != nullptr || state_.gUtils != nullptr) EndSession();
    state_.gManage.reset();
    state_.gIndex.reset();
    // A record set that does not close has nothing left to lose.
    if (state_.gFolderRST != nullptr) Drop(state_.gFolderRST->Close());
    if (state_.gAttachRST != nullptr) Drop(state_.gAttachRST->Close());
    state_.gFolderRST.reset();
    state_.gAttachRST.reset();
}

CIndex* Session::Index() const {
    return static_cast<CIndex*>(state_.gIndex.get());
}

CManage* Session::Manage() const {
    return static_cast<CManage*>(state_.gManage.get());
}

void Session::Logon(const std::string& profile_name) {
    const Status settings = ReadSettings(state_);
    state_.GetZipTemp();
    if (!settings.ok()) {
        const std::string number = std::to_string(settings.error().number);
        Fail("Logon error: " + number + " " + settings.error().description,
             " logon error: " + number + ":" + settings.error().description);
        return;
    }
    if (!profile_name.empty()) profile_ = profile_name;
    if (profile_.empty() && server_.empty() && alias_.empty()) {
        Fail("No profile or server/alias provided", " no profile or server/alias provided");
        return;
    }
    LogOnToStore();
}

void Session::LogOnToStore() {
    logon_failure_.clear();
    std::string name;
    const Status logon = OpenSession(name);
    state_.gLogonName = name;
    MakeFileNameSafe(state_.gLogonName);
    if (!logon.ok()) {
        logon_failure_ = logon.error().description;
        Fail("Invalid logon " + name, " invalid logon " + name);
        return;
    }

    PendingError pending;
    const std::string user = pending.ValueOr(state_.gMAPISession->CurrentUserName(), std::string());
    if (user.empty()) return;

    pending.Clear();
    std::unique_ptr<Folder> inbox;
    pending.Assign(inbox, state_.gMAPISession->GetDefaultFolder(kInboxFolder));
    if (pending.failed() || inbox == nullptr) {
        const std::string what = user + " " + pending.description();
        Fail("Unable to access Inbox for " + what, " unable to access Inbox for " + what);
        return;
    }

    last_error_ = "Successful logon " + user;
    state_.log.Write(kClass, "Logon", " successful logon " + user, 8);

    const Status created = CreateRuns(*inbox);
    if (!created.ok()) {
        const std::string number = std::to_string(created.error().number);
        Fail("Logon error: " + number + " " + created.error().description,
             " logon error: " + number + ":" + created.error().description);
    }
}

// `name` comes back as the name that the texts show: the profile, or server, line feed, alias. A
// password that somebody has put into a store's address gets into no text.
Status Session::OpenSession(std::string& name) {
    LogonRequest request;
    if (!profile_.empty()) {
        request.profile_name = profile_;
        name = WithoutPassword(profile_);
    } else {
        name = request.profile_info = server_ + "\n" + alias_;
    }
    return On(state_.gMAPISession,
              [&](MessagingSession& session) { return session.Logon(request); });
}

Status Session::CreateRuns(Folder& inbox) {
    PendingError pending;
    pending.Assign(state_.gStoreID, inbox.StoreId());
    state_.gManage = std::make_unique<CManage>(state_);
    state_.gIndex = std::make_unique<CIndex>(state_);
    ++logon_count_;
    state_.GetZipTemp();
    state_.gIndexDir = state_.gIndex->GetZipIndexDir();
    if (pending.failed()) {
        return Error{ErrorKind::kOther, pending.number(), pending.description()};
    }
    return {};
}

void Session::Fail(const std::string& last_error, const std::string& log_text) {
    last_error_ = last_error;
    state_.log.Write(kClass, "Logon", log_text, 1);
}

std::int32_t Session::State() {
    std::int32_t answer = txNoSession;
    state_.log.Write(kClass, "State", " txNoSession", 12);

    PendingError pending;
    const std::string user =
        pending.ValueOr(On(state_.gMAPISession,
                           [](MessagingSession& session) { return session.CurrentUserName(); }),
                        std::string());
    if (!user.empty()) {
        answer = txLoggedOn;
        state_.log.Write(kClass, "State", " txLoggedOn", 12);
    }

    const bool indexing = state_.gIndex != nullptr && state_.gIndex->InProcess();
    const bool managing = state_.gManage != nullptr && state_.gManage->InProcess();
    if (indexing || managing) {
        answer = txInProcess;
        state_.log.Write(kClass, "State", " txInProcess", 12);
    }
    return answer;
}

void Session::EndSession() {
    PendingError pending;
    if (state_.gUtils != nullptr) state_.gUtils->Shutdown();
    state_.gUtils.reset();
    pending.Step(
        On(state_.gMAPISession, [](MessagingSession& session) { return session.Logoff(); }));
    state_.gMAPISession.reset();

    if (pending.failed()) {
        state_.log.Write(kClass, "EndSession",
                         " error " + std::to_string(pending.number()) + " " + pending.description(),
                         1);
    } else {
        state_.log.Write(kClass, "EndSession", " success", 8);
    }
}

}  // namespace trevix
