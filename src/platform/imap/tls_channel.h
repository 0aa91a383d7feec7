// TLS 1.2 or later over a connected socket, with the server's certificate and name checked.
#pragma once

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include <array>
#include <memory>
#include <string>

#include "platform/imap/channel.h"
#include "platform/result.h"

namespace trevix::imap {

class TlsChannel final : public Channel {
 public:
    // Trusts the authorities in `ca_file` (PEM), or the system's when it is empty. The socket stays
    // the caller's and does not block. kDenied when there is no authority to trust.
    static Result<std::unique_ptr<TlsChannel>> Make(int socket, const std::string& host,
                                                    const std::string& ca_file);
    ~TlsChannel() override;

    // Until kMoved. A certificate that does not hold is kFailed with certificate_refused().
    Attempt Handshake();
    bool certificate_refused() const { return certificate_refused_; }

    Attempt Read(char* target, std::size_t count) override;
    Attempt Write(const char* bytes, std::size_t count) override;

 private:
    explicit TlsChannel(const std::string& host);

    Status Prepare(int socket);
    Status Trust(const std::string& ca_file);
    Attempt Waiting() const;

    std::string host_;
    gnutls_certificate_credentials_t credentials_ = nullptr;
    gnutls_session_t session_ = nullptr;
    std::string purpose_ = GNUTLS_KP_TLS_WWW_SERVER;
    std::array<gnutls_typed_vdata_st, 2> expected_{};  // the library looks at it in the handshake
    bool certificate_refused_ = false;
};

// What is wrong with a certificate, for people: "the certificate has expired".
std::string CertificateProblem(unsigned status);

}  // namespace trevix::imap
