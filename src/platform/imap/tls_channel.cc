#include "platform/imap/tls_channel.h"

#include <arpa/inet.h>

#include <utility>

#include "platform/errors.h"

namespace trevix::imap {
namespace {

constexpr const char* kVersions = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";

bool IsAddress(const std::string& host) {
    in6_addr address{};
    return ::inet_pton(AF_INET, host.c_str(), &address) == 1 ||
           ::inet_pton(AF_INET6, host.c_str(), &address) == 1;
}

// A name with the root's dot at its end is the same name, and certificates do not have it.
std::string WithoutRootDot(std::string host) {
    if (host.size() > 1 && host.back() == '.') host.pop_back();
    return host;
}

unsigned char* Bytes(std::string& text) {
    // The library's structure is not const, but it only reads.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast)
    return reinterpret_cast<unsigned char*>(text.data());
}

}  // namespace

std::string CertificateProblem(unsigned status) {
    constexpr std::array<std::pair<unsigned, const char*>, 8> kProblems = {{
        {GNUTLS_CERT_UNEXPECTED_OWNER, "the certificate is for another name"},
        {GNUTLS_CERT_EXPIRED, "the certificate has expired"},
        {GNUTLS_CERT_NOT_ACTIVATED, "the certificate is not valid yet"},
        {GNUTLS_CERT_REVOKED, "the certificate was revoked"},
        {GNUTLS_CERT_SIGNER_NOT_FOUND, "the certificate is from an authority that is not trusted"},
        {GNUTLS_CERT_SIGNER_NOT_CA, "the certificate is from somebody who is no authority"},
        {GNUTLS_CERT_INSECURE_ALGORITHM, "the certificate uses a method that is not secure"},
        {GNUTLS_CERT_PURPOSE_MISMATCH, "the certificate is not meant for a server"},
    }};
    std::string text;
    for (const auto& [flag, words] : kProblems) {
        if ((status & flag) == 0) continue;
        if (!text.empty()) text += "; ";
        text += words;
    }
    return text.empty() ? "the certificate is not valid" : text;
}

TlsChannel::TlsChannel(const std::string& host) : host_(WithoutRootDot(host)) {}

TlsChannel::~TlsChannel() {
    // No farewell: the other side may be deaf, and whoever ends a session has said so above TLS.
    if (session_ != nullptr) gnutls_deinit(session_);
    if (credentials_ != nullptr) gnutls_certificate_free_credentials(credentials_);
}

Result<std::unique_ptr<TlsChannel>> TlsChannel::Make(int socket, const std::string& host,
                                                     const std::string& ca_file) {
    std::unique_ptr<TlsChannel> channel(new TlsChannel(host));
    TREVIX_RETURN_IF_ERROR(channel->Trust(ca_file));
    TREVIX_RETURN_IF_ERROR(channel->Prepare(socket));
    return channel;
}

Status TlsChannel::Trust(const std::string& ca_file) {
    if (gnutls_certificate_allocate_credentials(&credentials_) != GNUTLS_E_SUCCESS) {
        return MessagingError(kNotEnoughMemory, host_);
    }
    const int count = ca_file.empty() ? gnutls_certificate_set_x509_system_trust(credentials_)
                                      : gnutls_certificate_set_x509_trust_file(
                                            credentials_, ca_file.c_str(), GNUTLS_X509_FMT_PEM);
    if (count > 0) return {};
    if (ca_file.empty()) {
        return MessagingError(kNoAccess, host_ +
                                             ": this system has no certificates of authorities "
                                             "(package ca-certificates), and no CA file is set");
    }
    const std::string reason = count < 0 ? gnutls_strerror(count) : "no certificate in it";
    return MessagingError(kNoAccess, ca_file + ": cannot be used as CA file: " + reason);
}

Status TlsChannel::Prepare(int socket) {
    int outcome = gnutls_init(&session_, GNUTLS_CLIENT | GNUTLS_NONBLOCK | GNUTLS_NO_SIGNAL);
    if (outcome == GNUTLS_E_SUCCESS) {
        outcome = gnutls_priority_set_direct(session_, kVersions, nullptr);
    }
    if (outcome == GNUTLS_E_SUCCESS) {
        outcome = gnutls_credentials_set(session_, GNUTLS_CRD_CERTIFICATE, credentials_);
    }
    if (outcome == GNUTLS_E_SUCCESS && !IsAddress(host_)) {
        outcome = gnutls_server_name_set(session_, GNUTLS_NAME_DNS, host_.data(), host_.size());
    }
    if (outcome != GNUTLS_E_SUCCESS) {
        return MessagingError(kCallFailed, host_ + ": TLS: " + gnutls_strerror(outcome));
    }
    expected_[0].type = GNUTLS_DT_DNS_HOSTNAME;
    expected_[0].data = Bytes(host_);
    expected_[0].size = 0;  // ends with a zero byte
    expected_[1].type = GNUTLS_DT_KEY_PURPOSE_OID;
    expected_[1].data = Bytes(purpose_);
    expected_[1].size = 0;
    gnutls_session_set_verify_cert2(session_, expected_.data(),
                                    static_cast<unsigned>(expected_.size()), 0);
    gnutls_handshake_set_timeout(session_, GNUTLS_INDEFINITE_TIMEOUT);  // the caller has the clock
    gnutls_transport_set_int(session_, socket);
    return {};
}

Attempt TlsChannel::Waiting() const {
    Attempt attempt;
    attempt.state = gnutls_record_get_direction(session_) == 0 ? Attempt::State::kWaitToRead
                                                               : Attempt::State::kWaitToWrite;
    return attempt;
}

Attempt TlsChannel::Handshake() {
    const int outcome = gnutls_handshake(session_);
    if (outcome == GNUTLS_E_SUCCESS) return {};
    if (outcome == GNUTLS_E_CERTIFICATE_VERIFICATION_ERROR ||
        outcome == GNUTLS_E_NO_CERTIFICATE_FOUND) {
        certificate_refused_ = true;
        const unsigned status = gnutls_session_get_verify_cert_status(session_);
        return {Attempt::State::kFailed, 0,
                outcome == GNUTLS_E_NO_CERTIFICATE_FOUND ? "the server has no certificate"
                                                         : CertificateProblem(status)};
    }
    if (gnutls_error_is_fatal(outcome) == 0) return Waiting();
    if (outcome == GNUTLS_E_FATAL_ALERT_RECEIVED) {
        const char* const alert = gnutls_alert_get_name(gnutls_alert_get(session_));
        return {
            Attempt::State::kFailed, 0,
            std::string("TLS: the server refused: ") + (alert == nullptr ? "no reason" : alert)};
    }
    return {Attempt::State::kFailed, 0, std::string("TLS: ") + gnutls_strerror(outcome)};
}

Attempt TlsChannel::Read(char* target, std::size_t count) {
    const ssize_t got = gnutls_record_recv(session_, target, count);
    if (got > 0) return {Attempt::State::kMoved, static_cast<std::size_t>(got), {}};
    if (got == 0 || got == GNUTLS_E_PREMATURE_TERMINATION) {
        return {Attempt::State::kClosed, 0, {}};
    }
    const int outcome = static_cast<int>(got);
    // A new handshake within an old session has no use here but attacks.
    if (outcome != GNUTLS_E_REHANDSHAKE && gnutls_error_is_fatal(outcome) == 0) return Waiting();
    return {Attempt::State::kFailed, 0, std::string("TLS: ") + gnutls_strerror(outcome)};
}

Attempt TlsChannel::Write(const char* bytes, std::size_t count) {
    const ssize_t put = gnutls_record_send(session_, bytes, count);
    if (put >= 0) return {Attempt::State::kMoved, static_cast<std::size_t>(put), {}};
    const int outcome = static_cast<int>(put);
    if (gnutls_error_is_fatal(outcome) == 0) return Waiting();
    return {Attempt::State::kFailed, 0, std::string("TLS: ") + gnutls_strerror(outcome)};
}

}  // namespace trevix::imap
