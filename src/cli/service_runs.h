// The runs of a session of the automation service, followed over the bus.
#pragma once

#include <memory>
#include <string>

#include "cli/console.h"
#include "cli/runs.h"
#include "cli/store_name.h"
#include "platform/dbus/connection.h"
#include "platform/posix/system_clock.h"
#include "shell/event_echo.h"

namespace trevix::cli {

enum class ServiceBus { kSession, kSystem };

class ServiceRuns final : public Runs {
 public:
    // Makes a session and logs on. A name means there what it means to the service. Null after a
    // complaint.
    static std::unique_ptr<ServiceRuns> Open(ServiceBus bus, const StoreName& name,
                                             EventEcho::Show show_problem, Console& console);
    ServiceRuns(const ServiceRuns&) = delete;
    ServiceRuns& operator=(const ServiceRuns&) = delete;
    ~ServiceRuns() override;

    void StartCompression(const Compression& plan) override;
    void CancelCompression() override;
    bool IsCompressing() override { return is_compressing_; }
    const RunSummary& CompressionSummary() const override { return compression_; }
    void CompressionEvents(CManageEvents* events) override { compression_events_ = events; }

    void StartIndexing(const std::string& store_ids, bool anew) override;
    void CancelIndexing() override;
    bool IsIndexing() override { return is_indexing_; }
    bool IndexingFollows() override;
    const IndexSummary& IndexingSummary() const override { return indexing_; }
    void IndexingEvents(CIndexEvents* events) override { indexing_events_ = events; }

    posix::PollLoop& loop() override { return loop_; }
    Clock& clock() override { return clock_; }
    std::string Loss() const override { return loss_; }

 private:
    ServiceRuns(std::unique_ptr<dbus::Connection> connection, EventEcho::Show show_problem);

    Status CreateSession();
    Status LogOn(const StoreName& name, std::string& refusal);
    Status FindRuns();
    void OnManage(const std::string& signal, const dbus::Values& arguments);
    void OnIndex(const std::string& signal, const dbus::Values& arguments);
    void OnDetails(const std::string& signal, const dbus::Values& arguments);
    void Note(const Status& outcome);
    void Lose(const std::string& why);
    void AskWhenSilent();
    void AskWhetherItRuns(const dbus::Address& run, bool& is_running);

    std::unique_ptr<dbus::Connection> connection_;
    EventEcho::Show show_problem_;
    posix::SystemClock clock_;
    posix::PollLoop loop_;
    MessageLoop::TimerId silence_timer_ = 0;
    bool heard_ = false;  // since the timer looked last

    dbus::Address session_;
    dbus::Address details_;
    dbus::Address manage_;
    dbus::Address index_;

    bool is_compressing_ = false;
    bool is_indexing_ = false;
    bool heard_indexing_ = false;  // since the compression run began
    RunSummary compression_;
    IndexSummary indexing_;
    CManageEvents* compression_events_ = nullptr;
    CIndexEvents* indexing_events_ = nullptr;
    std::string loss_;
};

}  // namespace trevix::cli
