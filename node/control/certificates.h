// The files that a TCP listener needs: read and looked at before the server starts, because the
// transport would only fail connection by connection. Any thread.
#pragma once

#include <stdexcept>
#include <string>

namespace node::control {

struct CertificateFiles {
    std::string certificate;
    std::string key;
    std::string clientCa;  // whoever it signed is let in
};

struct Certificates {  // PEM texts
    std::string certificate;
    std::string key;
    std::string clientCa;
};

class CertificateError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws CertificateError: what is wrong, and howToMakeCertificates.
Certificates loadCertificates(const CertificateFiles& files);

extern const char howToMakeCertificates[];

}  // namespace node::control
