#include "unit/imap/certificates.h"

#include <array>
#include <ctime>

namespace trevix::test {
namespace {

// Fixed moments, so that a certificate is the same whenever the test runs: 2000, 2001, 2090, 2099.
constexpr std::time_t kLongAgo = 946684800;
constexpr std::time_t kAgo = 978307200;
constexpr std::time_t kAhead = 3786912000;
constexpr std::time_t kFarAhead = 4070908800;

gnutls_x509_privkey_t NewKey() {
    gnutls_x509_privkey_t key = nullptr;
    gnutls_x509_privkey_init(&key);
    gnutls_x509_privkey_generate(key, GNUTLS_PK_ECDSA,
                                 GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1), 0);
    return key;
}

gnutls_x509_crt_t NewCertificate(gnutls_x509_privkey_t key, const std::string& name,
                                 unsigned char serial, std::time_t from = kLongAgo,
                                 std::time_t until = kFarAhead) {
    gnutls_x509_crt_t certificate = nullptr;
    gnutls_x509_crt_init(&certificate);
    gnutls_x509_crt_set_version(certificate, 3);
    gnutls_x509_crt_set_serial(certificate, &serial, 1);
    gnutls_x509_crt_set_dn_by_oid(certificate, GNUTLS_OID_X520_COMMON_NAME, 0, name.data(),
                                  static_cast<unsigned>(name.size()));
    gnutls_x509_crt_set_activation_time(certificate, from);
    gnutls_x509_crt_set_expiration_time(certificate, until);
    gnutls_x509_crt_set_key(certificate, key);
    return certificate;
}

}  // namespace

TestAuthority::TestAuthority() : key_(NewKey()) {
    certificate_ = NewCertificate(key_, "an authority of tests", 1);
    gnutls_x509_crt_set_basic_constraints(certificate_, 1, -1);
    gnutls_x509_crt_set_key_usage(certificate_, GNUTLS_KEY_KEY_CERT_SIGN);
    gnutls_x509_crt_sign2(certificate_, certificate_, key_, GNUTLS_DIG_SHA256, 0);
}

TestAuthority::~TestAuthority() {
    gnutls_x509_crt_deinit(certificate_);
    gnutls_x509_privkey_deinit(key_);
}

std::string TestAuthority::Pem() const {
    std::array<char, 8192> text{};
    std::size_t size = text.size();
    gnutls_x509_crt_export(certificate_, GNUTLS_X509_FMT_PEM, text.data(), &size);
    return std::string(text.data(), size);
}

gnutls_certificate_credentials_t TestAuthority::Issue(const CertificateWishes& wishes) const {
    const gnutls_x509_privkey_t key = NewKey();
    gnutls_x509_crt_t certificate =
        NewCertificate(key, "a server of tests", 2, wishes.not_yet_valid ? kAhead : kLongAgo,
                       wishes.expired ? kAgo : kFarAhead);
    if (!wishes.dns_name.empty()) {
        gnutls_x509_crt_set_subject_alt_name(
            certificate, GNUTLS_SAN_DNSNAME, wishes.dns_name.data(),
            static_cast<unsigned>(wishes.dns_name.size()), GNUTLS_FSAN_APPEND);
    }
    if (wishes.loopback_address) {
        const std::array<unsigned char, 4> address = {127, 0, 0, 1};
        gnutls_x509_crt_set_subject_alt_name(certificate, GNUTLS_SAN_IPADDRESS, address.data(),
                                             static_cast<unsigned>(address.size()),
                                             GNUTLS_FSAN_APPEND);
    }
    gnutls_x509_crt_set_key_usage(certificate, GNUTLS_KEY_DIGITAL_SIGNATURE);
    gnutls_x509_crt_set_key_purpose_oid(
        certificate, wishes.for_clients ? GNUTLS_KP_TLS_WWW_CLIENT : GNUTLS_KP_TLS_WWW_SERVER, 0);
    gnutls_x509_crt_sign2(certificate, wishes.by_itself ? certificate : certificate_,
                          wishes.by_itself ? key : key_, GNUTLS_DIG_SHA256, 0);
    gnutls_certificate_credentials_t credentials = nullptr;
    gnutls_certificate_allocate_credentials(&credentials);
    gnutls_certificate_set_x509_key(credentials, &certificate, 1, key);
    gnutls_x509_crt_deinit(certificate);
    gnutls_x509_privkey_deinit(key);
    return credentials;
}

}  // namespace trevix::test
