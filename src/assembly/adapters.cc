#include "assembly/adapters.h"

#include <sys/stat.h>

#include <cstdlib>
#include <utility>

#include "platform/mime/messaging_factory.h"
#include "platform/summary_cache/memory_summary_cache.h"
#include "platform/summary_cache/sqlite_summary_cache.h"

namespace trevix::assembly {
namespace {

// In the build tree the data lies beside the program.
posix::FileSystemPlaces PlacesFor(const AdapterPlan& plan) {
    posix::FileSystemPlaces places = posix::DefaultPlaces();
    const std::string installed = places.installation + "/" + plan.data_from_program;
    struct stat about {};
    if (::stat(installed.c_str(), &about) == 0) places.installation = installed;
    if (!plan.temporary.empty()) places.temporary = plan.temporary;
    return places;
}

std::string OneOf(const std::string& wanted, const std::string& usual) {
    return wanted.empty() ? usual : wanted;
}

// $XDG_CACHE_HOME/trevix, by default below ~/.cache; without a home nothing is kept.
std::string CacheDirectory() {
    const char* configured = std::getenv("XDG_CACHE_HOME");
    if (configured != nullptr && configured[0] == '/') return std::string(configured) + "/trevix";
    const char* home = std::getenv("HOME");
    return home == nullptr || home[0] != '/' ? std::string() : std::string(home) + "/.cache/trevix";
}

std::unique_ptr<SummaryCache> CacheFor(const AdapterPlan& plan) {
    const std::string directory = CacheDirectory();
    if (!plan.keeps_summaries || directory.empty()) {
        return std::make_unique<summary_cache::MemorySummaryCache>();
    }
    return std::make_unique<summary_cache::SqliteSummaryCache>(directory);
}

}  // namespace

Adapters::Adapters(const AdapterPlan& plan)
    : loop_({}, plan.first_tick),
      files_(PlacesFor(plan)),
      registry_(OneOf(plan.user_settings, registry::UserFilePath()),
                OneOf(plan.machine_settings, registry::kMachineFilePath)),
      provider_(profiles::ProfileFile(profiles::ProfileFilePath()),
                FactoriesFor(plan.stores, clock_)),
      cache_(CacheFor(plan)),
      messaging_(mime::MessagingFactoryOver(provider_, *cache_, clock_)) {}

Adapters::~Adapters() = default;

Ports Adapters::PortsWith(EventLog& event_log, Registry& registry) {
    return Ports{clock_,       loop_,       event_log,    files_, registry,
                 environment_, *messaging_, record_sets_, zip_};
}

}  // namespace trevix::assembly
