// World: a whole process in memory: fakes behind every port, the module state on top, a session.
//
// Tests arrange the fakes, run, and look at the fakes. The default world has one store "S1" with an
// Inbox, a user, add-in mode and an empty results message list.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "fakes/fake_clock.h"
#include "fakes/fake_event_log.h"
#include "fakes/fake_file_system.h"
#include "fakes/fake_message_loop.h"
#include "fakes/fake_messaging.h"
#include "fakes/fake_record_set.h"
#include "fakes/fake_registry.h"
#include "fakes/fake_zip_engine.h"
#include "fakes/fault_plan.h"
#include "index/cindex.h"
#include "manage/cmanage.h"
#include "shell/bas_ci.h"
#include "shell/session.h"
#include "shell/settings.h"

namespace trevix::test {

// Keeps the events of a run as text lines.
class EventRecorder final : public CManageEvents {
 public:
    void FolderChange(const std::string& folder_name, std::int32_t count) override {
        events.push_back("FolderChange " + folder_name + " " + std::to_string(count));
        if (on_event) on_event(events.back());
    }
    void Progress(const std::string& folder_name, std::int32_t count) override {
        events.push_back("Progress " + folder_name + " " + std::to_string(count));
        if (on_event) on_event(events.back());
    }
    void Complete(std::int32_t elapsed_ms) override {
        events.push_back("Complete " + std::to_string(elapsed_ms));
    }
    void Abort(const std::string& message) override { events.push_back("Abort " + message); }

    std::vector<std::string> events;
    std::function<void(const std::string&)> on_event;
};

// The same for an index run.
class IndexRecorder final : public CIndexEvents {
 public:
    void FolderChange(const std::string& folder_name, std::int32_t count) override {
        Keep("FolderChange " + folder_name + " " + std::to_string(count));
    }
    void Progress(const std::string& text, std::int32_t count) override {
        Keep("Progress " + text + " " + std::to_string(count));
    }
    void Complete(std::int32_t elapsed_ms) override {
        Keep("Complete " + std::to_string(elapsed_ms));
    }
    void Abort(const std::string& message) override { Keep("Abort " + message); }

    std::vector<std::string> events;
    std::function<void(const std::string&)> on_event;

 private:
    void Keep(std::string event) {
        events.push_back(std::move(event));
        if (on_event) on_event(events.back());
    }
};

class World {
 public:
    World()
        : files(plan),
          registry(plan),
          environment(),
          event_log(plan),
          messaging(plan, files, clock),
          record_sets(plan, files),
          zip(plan, files),
          ci(Ports{clock, loop, event_log, files, registry, environment, messaging, record_sets,
                   zip}) {
        registry.PutText(kCurrentUser, kAddinKey, "Tray", "1");
        registry.PutText(kCurrentUser, kAddinKey, "ErrorLogLevel", "12");
        auto store = std::make_unique<fakes::StoreData>();
        store->id = "51";
        store->name = "Anna's mail";
        store->root.id = "F0";
        store->root.name = "IPM_SUBTREE";
        inbox = &store->root.Add("F1", "Inbox");
        messaging.state.inbox_id = "F1";
        messaging.state.outbox.id = "F9";
        messaging.state.stores.push_back(std::move(store));
        files.Put("/opt/trevix/TrevixTb.htm", "<html></html>");
    }

    // Starts the process and logs on with the known profile.
    void Logon() {
        started = ci.Main();
        session = std::make_unique<Session>(ci);
        if (started) session->Logon("home");
    }

    // Logs on and runs Manage(false) to its end.
    void Run(const std::string& folder_ids = {}) {
        if (session == nullptr) Logon();
        CManage* manage = session->Manage();
        if (manage == nullptr) return;
        manage->Compress(compress);
        manage->HTML(html);
        manage->FolderIDs(folder_ids);
        manage->Events(&recorder);
        manage->Manage(false);
        loop.FireTimers();
    }

    // Logs on and runs Index(recreate) to its end.
    void RunIndex(bool recreate) {
        if (session == nullptr) Logon();
        CIndex* index = session->Index();
        if (index == nullptr) return;
        index->Events(&index_recorder);
        index->Index(recreate);
        loop.FireTimers();
    }

    // A message with attachments, as the newest so far unless told otherwise.
    fakes::MessageData& AddMessage(fakes::FolderData& folder, const std::string& subject,
                                   std::vector<fakes::AttachmentData> attachments) {
        fakes::MessageData message;
        message.id = "00AB" + std::to_string(1000 + next_message);
        message.subject = subject;
        message.modified = {clock.utc.days - 10 + next_message * 0.01};
        ++next_message;
        message.attachments = std::move(attachments);
        message.revision = 1;
        folder.messages.push_back(std::move(message));
        return folder.messages.back();
    }

    static fakes::AttachmentData File(const std::string& name, const std::string& data) {
        fakes::AttachmentData attachment;
        attachment.name = name;
        attachment.data = data;
        return attachment;
    }

    // The diagnostic log's messages in order, "Class::Procedure:message", from the event log.
    std::vector<std::string> Log() const {
        std::vector<std::string> lines;
        for (const fakes::FakeEvent& event : event_log.events)
            lines.push_back(event.strings.at(0));
        return lines;
    }

    bool Logged(const std::string& text) const {
        for (const std::string& line : Log()) {
            if (line.find(text) != std::string::npos) return true;
        }
        return false;
    }
    int TimesLogged(const std::string& text) const {
        int times = 0;
        for (const std::string& line : Log())
            times += line.find(text) != std::string::npos ? 1 : 0;
        return times;
    }

    void Setting(const std::string& name, const std::string& value) {
        registry.PutText(kCurrentUser, kAddinKey, name, value);
    }
    void ServerMode() { registry.keys.clear(); }

    fakes::MessageData* Results() {
        return messaging.state.hidden.empty() ? nullptr : &messaging.state.hidden.front();
    }

    fakes::FaultPlan plan;
    fakes::FakeClock clock;
    fakes::FakeMessageLoop loop;
    fakes::FakeFileSystem files;
    fakes::FakeRegistry registry;
    fakes::FakeEnvironment environment;
    fakes::FakeEventLog event_log;
    fakes::FakeMessaging messaging;
    fakes::FakeRecordSetFactory record_sets;
    fakes::FakeZipFactory zip;
    BasCI ci;
    EventRecorder recorder;
    IndexRecorder index_recorder;
    std::unique_ptr<Session> session;
    fakes::FolderData* inbox = nullptr;
    bool started = false;
    bool compress = true;
    bool html = false;
    int next_message = 0;
};

}  // namespace trevix::test
