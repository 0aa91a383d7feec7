// Certificates made for a test: an authority of its own, and servers' certificates by it.
#pragma once

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include <string>

namespace trevix::test {

struct CertificateWishes {
    std::string dns_name;  // empty: none
    bool loopback_address = true;
    bool expired = false;
    bool not_yet_valid = false;
    bool by_itself = false;    // signed with its own key
    bool for_clients = false;  // not for servers
};

class TestAuthority {
 public:
    TestAuthority();
    TestAuthority(const TestAuthority&) = delete;
    TestAuthority& operator=(const TestAuthority&) = delete;
    ~TestAuthority();

    // The authority's certificate as PEM.
    std::string Pem() const;

    // To be freed with gnutls_certificate_free_credentials.
    gnutls_certificate_credentials_t Issue(const CertificateWishes& wishes) const;

 private:
    gnutls_x509_privkey_t key_ = nullptr;
    gnutls_x509_crt_t certificate_ = nullptr;
};

}  // namespace trevix::test
