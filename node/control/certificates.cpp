// Tests: tests/control/certificates_test.cpp, which also runs the commands below.
#include "node/control/certificates.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <fstream>
#include <iterator>
#include <memory>

namespace node::control {

const char howToMakeCertificates[] =
    R"(Management over TCP needs mutual TLS: the node's certificate and key, and the CA that has
signed the certificates of those who may manage it. To make them:

  new="openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -noenc -sha256"
  $new -days 3650 -subj /CN=management-ca -keyout ca.key -out ca.crt
  for who in node operator; do
    $new -days 825 -subj /CN=$who -CA ca.crt -CAkey ca.key -config /dev/null \
      -addext basicConstraints=critical,CA:FALSE \
      -addext subjectAltName=DNS:localhost,IP:127.0.0.1 -keyout $who.key -out $who.crt
  done

with the node's own name and address in subjectAltName. The node gets node.crt, node.key and
ca.crt; whoever manages it gets operator.crt, operator.key and ca.crt; ca.key stays elsewhere.
)";

namespace {

using Bio = std::unique_ptr<BIO, decltype(&BIO_free)>;
using X509Ptr = std::unique_ptr<X509, decltype(&X509_free)>;
using KeyPtr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

[[noreturn]] void fail(const std::string& problem) {
    ERR_clear_error();
    throw CertificateError(problem + "\n" + howToMakeCertificates);
}

std::string contentsOf(const std::string& what, const std::string& path) {
    if (path.empty()) {
        fail("no " + what + " is configured");
    }
    std::ifstream file(path, std::ios::binary);
    std::string contents{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file || contents.empty()) {
        fail("the " + what + " " + path + " cannot be read");
    }
    return contents;
}

// A key that asks for a passphrase is none that a node can use.
int noPassphrase(char*, int, int, void*) {
    return -1;
}

Bio bioOf(const std::string& text) {
    return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free);
}

X509Ptr certificateIn(const std::string& text) {
    return X509Ptr(PEM_read_bio_X509(bioOf(text).get(), nullptr, noPassphrase, nullptr), X509_free);
}

}  // namespace

Certificates loadCertificates(const CertificateFiles& files) {
    Certificates loaded;
    loaded.certificate = contentsOf("server certificate", files.certificate);
    loaded.key = contentsOf("server key", files.key);
    loaded.clientCa = contentsOf("client CA", files.clientCa);
    const X509Ptr certificate = certificateIn(loaded.certificate);
    if (!certificate) {
        fail("the server certificate " + files.certificate + " is no PEM certificate");
    }
    const KeyPtr key(
        PEM_read_bio_PrivateKey(bioOf(loaded.key).get(), nullptr, noPassphrase, nullptr),
        EVP_PKEY_free);
    if (!key) {
        fail("the server key " + files.key + " is no PEM key without a passphrase");
    }
    if (X509_check_private_key(certificate.get(), key.get()) != 1) {
        fail("the server key " + files.key + " does not belong to " + files.certificate);
    }
    if (!certificateIn(loaded.clientCa)) {
        fail("the client CA " + files.clientCa + " is no PEM certificate");
    }
    return loaded;
}

}  // namespace node::control
