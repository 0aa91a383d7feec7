// Session: the public class that a client creates first. It logs on to one mailbox and hands out
// the component's one CManage and one CIndex object.
//
// Nothing is ever raised to the client: outcomes are read from State and LastError.
#pragma once

#include <cstdint>
#include <string>

#include "shell/bas_ci.h"

namespace trevix {

class CIndex;
class CManage;

inline constexpr std::int32_t txNoSession = 0;
inline constexpr std::int32_t txLoggedOn = 1;
inline constexpr std::int32_t txInProcess = 2;

class Session {
 public:
    // Borrows the process's state, on which Main() has succeeded.
    explicit Session(BasCI& state) : state_(state) {}
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Ends the session, drops the two run objects and closes the shared record sets.
    ~Session();

    void Server(const std::string& server) { server_ = server; }
    const std::string& Server() const { return server_; }
    void Alias(const std::string& alias) { alias_ = alias; }
    const std::string& Alias() const { return alias_; }
    void Profile(const std::string& profile) { profile_ = profile; }
    const std::string& Profile() const { return profile_; }

    // Text of the last log-on's outcome, success or failure.
    const std::string& LastError() const { return last_error_; }

    // Why the last log-on was refused, in the store's own words; empty when it was not. For
    // programs that talk to a person: the two texts above name only the profile.
    const std::string& LogonFailure() const { return logon_failure_; }

    // Logs on with the profile (which wins) or with server and alias. Not while a run is on the
    // stack, which would lose the object that it is a call of.
    void Logon(const std::string& profile_name = {});

    // Null before a successful log-on. They live until this object ends.
    CIndex* Index() const;
    CManage* Manage() const;

    // How many pairs of the two were made: a log-on that succeeds replaces them.
    int LogonCount() const { return logon_count_; }

    // One of the tx constants.
    std::int32_t State();

    // Logs off for good: the process cannot log on again.
    void EndSession();

 private:
    void LogOnToStore();
    Status OpenSession(std::string& name);
    Status CreateRuns(Folder& inbox);
    void Fail(const std::string& last_error, const std::string& log_text);

    BasCI& state_;
    std::string server_;
    std::string alias_;
    std::string profile_;
    std::string last_error_;
    std::string logon_failure_;
    int logon_count_ = 0;
};

}  // namespace trevix
