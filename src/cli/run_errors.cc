#include "cli/run_errors.h"

#include <initializer_list>

#include "cli/text_format.h"

namespace trevix::cli {
namespace {

bool HoldsAny(const std::string& text, std::initializer_list<const char*> wanted) {
    for (const char* words : wanted) {
        if (text.find(words) != std::string::npos) return true;
    }
    return false;
}

// Whether an entry tells a person something about a message. Before and after the run the outcome
// is told in other words; what a zip attachment looks like is for programs that show pictures; and
// a run only unpacks what an earlier one saved, which it makes anew when that is damaged.
bool ConcernsMail(int type, const std::string& procedure, const std::string& text) {
    if (type == 1) {
        return procedure != "CManage::GetZipAttachRender" && procedure != "CZIP::ZIPExtract";
    }
    return HoldsAny(procedure,
                    {"::TrevixItemRDM", "::CompressAttachments", "::DeleteStationery"}) &&
           !text.starts_with("user");
}

}  // namespace

EventEcho::Show RunErrors::Shower() {
    return [this](int type, const std::string& procedure, const std::string& text) {
        Show(type, procedure, text);
    };
}

void RunErrors::Show(int type, const std::string& procedure, const std::string& text) {
    if (folder_ == nullptr || !ConcernsMail(type, procedure, text)) return;
    if (type == 1) ++noted_.count;
    if (HoldsAny(text, {"Disk full", "MAPI_E_NOT_ENOUGH_DISK", "No space left"})) {
        noted_.is_disk_full = true;
    }
    // The zip engine does not say why; it writes nowhere else.
    if (HoldsAny(text, {"Error writing to a file"})) noted_.is_temporary_full = true;
    console_.Complain({folder_->empty() ? store_name_ : *folder_, PlainText(text), ""});
}

}  // namespace trevix::cli
