// Replacing one message: a new file takes the place of the old one.
//
// The order of the steps, and what a death at each leaves. O is the old file, N the new one.
//
//   1  N is written in tmp/ under its unique name, with O's owner, mode and time. Its sync begins,
//      on a helper thread, and is waited for at the end of step 2.
//         Death: O stands; N lies in tmp/ under a name with the journal's id, and is swept.
//   2  O is compared with the listing once more; the record (folder, O, N by name, inode, size and
//      time) is written to the journal and synced. N is durable as well now.
//         Death: as before. A torn record fails its checksum, and nothing has been done under it.
//   3  N is renamed from tmp/ to O's directory, never over another file.
//         Death: both are there, each whole. Recovery finds N as recorded, and removes O.
//   4  The directory is synced. From here on N survives a loss of power.
//         Before it, O must not be removed: a file system may keep the removal and lose the rename.
//   5  N and O are looked at again, and O is removed.
//         Death: N alone is there. Recovery finds O gone and N as recorded, and has nothing to do.
//   6  The removal of O becomes durable with the next sync of that directory: step 4 of the next
//      replacement in the same folder, or a sync of its own before the record's slot is written
//      again (two slots, two replacements later) or the journal is removed. After a loss of power
//      before that, O may be back, and the record with it: recovery removes O again.
//
// So a replacement costs three syncs (file, record, directory). Recovery may run on a record of any
// age: it removes only the recorded O (name or base name, inode, size, time), and only where N is
// found as recorded; a finished replacement gives it nothing to do.
//
// What other programs may do between any two steps:
//   - O renamed (a flag, or new/ to cur/): step 5 finds it under its base name, gives N the same
//     flags and place, and goes on with the renamed O. A death in between: recovery does the same,
//     since it, too, looks for both by base name.
//   - N renamed: found likewise, and O's later flag changes are carried over to it.
//   - O removed, or moved to another folder: N is removed again, kGone. A death before that leaves
//     N, whole: recovery cannot know who removed O, and a message too many is harmless.
//   - N removed or moved: somebody wants that message gone, but O may be the only copy: O stays.
//   - O overwritten in place, against all rules of a Maildir: N is removed again, kChanged.
//   - another process of ours replaces the same O: one removal of O succeeds, the other process
//     finds O gone and takes back its own N. Exactly one N stays. So that it can be taken back, no
//     third process replaces an N whose replacement may not have ended: step 2 refuses an O that
//     is the N of a record in another journal, and the message is left for the next run.
// Between the last look and the removal of O there is no time for a rename to be missed: removal is
// by name, and fails when the name is gone.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/clock.h"
#include "platform/helper_thread.h"
#include "platform/mail_store.h"
#include "platform/maildir/folder.h"
#include "platform/maildir/identity.h"
#include "platform/maildir/journal.h"
#include "platform/result.h"

namespace trevix::maildir {

// Where a test may step in, or end the process. Named after what has just been done.
enum class Step {
    kStaged,
    kCompared,
    kRecorded,
    kShown,
    kShownDurably,
    kOldFound,
    kOldRemoved,
    kNewMoved,
    kFinished
};
using StepHook = std::function<void(Step)>;

// What all replacements of one store have in common.
struct ReplacementContext {
    std::shared_ptr<Journal> journal;
    UniqueDescriptor root;
    std::string host;
    int counter = 0;  // of the names made so far
    StepHook hook;
    HelperThread helper;  // waits for the disk

    void At(Step step) const {
        if (hook) hook(step);
    }
};

// Steps 1 to 6.
Result<std::unique_ptr<StagedMail>> StageReplacement(std::shared_ptr<ReplacementContext> context,
                                                     Clock& clock,
                                                     std::shared_ptr<const Folder> folder,
                                                     const MailEntry& entry, const Blob& content);

// Step 5, shared with recovery: removes `old_mail` as long as `new_mail` is there. Gives the new
// file as it is at the end. On failure nothing was removed. kChanged, kGone as for Commit();
// `unsynced` gets the places that were changed and are not synced.
Result<Identity> RetireOld(const Folder& folder, Identity old_mail, Identity new_mail,
                           const StepHook& hook, std::vector<Place>& unsynced);

}  // namespace trevix::maildir
